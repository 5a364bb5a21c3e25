// Ogg scan: Ogg Vorbis and the Ogg media layout (OGM) with "video" and
// "audio" stream headers.
//
// An Ogg page starts with "OggS", a version byte, a header-type byte, the
// 64-bit granule position (bytes 6-13), the stream serial number, the page
// sequence number, a CRC, the segment count (byte 26) and the segment
// table; the packet data follows the table. The first packet of a logical
// stream is its identification header, whose first byte is 1.
//
// The scan reads each stream header at fixed offsets from its page, as if
// the page held one segment (true of identification headers). The play time
// comes from the granule position of the last page, found by reading the
// last MiB of the file and looking backwards for "OggS".
#include <algorithm>
#include <cstring>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/vorbis_comment.h"

namespace {

constexpr u32 CAPTURE_BYTES = 4;
// The page walk stops this far before the end of the head buffer, so the
// fixed header fields below are always inside it.
constexpr u32 PAGE_WALK_MARGIN = 100;
// The backward search for the last page starts this far before the end of
// what was read.
constexpr u32 TAIL_MARGIN = 100;

constexpr u32 SEGMENT_COUNT_AT = 26;
constexpr u32 SEGMENT_TABLE_AT = 27;
constexpr u8 HEADER_PACKET = 1;
constexpr u32 GRANULE_AT = 6;
// The two letters after the header packet's type byte, for a one-segment
// page: "vi"deo, "au"dio (Ogg media stream headers), "vo"rbis.
constexpr u32 KIND_AT = 29;

// Ogg media stream header (packet type, 8-byte stream type, 4-byte
// subtype, size, 64-bit time unit in 100 ns, samples per unit, default
// length, buffer size, bits per sample, then the video or audio part).
constexpr u32 OGM_SUBTYPE_AT = 37;
constexpr u32 OGM_TIME_UNIT_AT = 45;
constexpr u32 OGM_SAMPLES_PER_UNIT_AT = 53;
constexpr u32 OGM_WIDTH_AT = 73;
constexpr u32 OGM_HEIGHT_AT = 77;
constexpr u32 OGM_CHANNELS_AT = 73;
constexpr u32 OGM_BYTE_RATE_AT = 77;
constexpr double TIME_UNITS_PER_SECOND = 10000000.0;

// Vorbis identification header: type 1, "vorbis", 32-bit version, then
// channels (1 byte), sample rate and the maximum, nominal and minimum bit
// rates (32-bit each).
constexpr u32 VORBIS_CHANNELS_AT = 39;
constexpr u32 VORBIS_SAMPLE_RATE_AT = 40;
constexpr u32 VORBIS_NOMINAL_BITRATE_AT = 48;

bool capture_at(const u8 *p) { return FourCC(p) == fourcc("OggS"); }

// The first capture pattern at positions `from` to `last`, or last + 1.
// Only an 'O' can start one, and memchr finds the next 'O' at memory
// speed, through zero-filled buffer space too.
u32 find_capture(const u8 *buf, u32 from, u32 last) {
  while (from <= last) {
    const void *hit = std::memchr(buf + from, 'O', last - from + 1);
    if (hit == nullptr) break;
    from = static_cast<u32>(static_cast<const u8 *>(hit) - buf);
    if (capture_at(buf + from)) return from;
    ++from;
  }
  return last + 1;
}

bool kind_is(const u8 *page, const char (&kind)[3]) {
  return page[KIND_AT] == static_cast<u8>(kind[0]) && page[KIND_AT + 1] == static_cast<u8>(kind[1]);
}

// The stream header of the page at `p`, if it starts one. The walk keeps
// p + 100 inside the buffer; only the packet type byte can lie further.
void read_stream_header(const u8 *buf, u32 length, u32 p, MediaInfo *r) {
  const u8 *page = buf + p;
  const u32 type_at = p + SEGMENT_TABLE_AT + page[SEGMENT_COUNT_AT];
  if (type_at >= length || buf[type_at] != HEADER_PACKET) return;
  AudioStreamInfo &a = r->audio[0];
  if (kind_is(page, "vi")) {
    r->video_codec = FourCC(page + OGM_SUBTYPE_AT);
    const u32 unit = LittleEndian2int32u(page + OGM_TIME_UNIT_AT);
    if (unit != 0) r->frame_rate = static_cast<float>(TIME_UNITS_PER_SECOND / unit);
    r->video_width = LittleEndian2int32u(page + OGM_WIDTH_AT);
    r->video_height = LittleEndian2int32u(page + OGM_HEIGHT_AT);
  } else if (kind_is(page, "au")) {
    a.audio_codec = WAVE_FORMAT_VORBIS1;
    a.audio_sample_rate = LittleEndian2int32u(page + OGM_SAMPLES_PER_UNIT_AT);
    a.audio_channels = page[OGM_CHANNELS_AT];
    a.audio_bitrate = LittleEndian2int32u(page + OGM_BYTE_RATE_AT) * 8;
  } else if (kind_is(page, "vo")) {
    a.audio_codec = WAVE_FORMAT_VORBIS1;
    a.audio_channels = page[VORBIS_CHANNELS_AT];
    a.audio_sample_rate = LittleEndian2int32u(page + VORBIS_SAMPLE_RATE_AT);
    a.audio_bitrate = LittleEndian2int32u(page + VORBIS_NOMINAL_BITRATE_AT);
  }
}

void walk_pages(const u8 *buf, u32 length, MediaInfo *r) {
  if (length <= PAGE_WALK_MARGIN) return;
  u32 page = 0;
  while (page < length - PAGE_WALK_MARGIN) {
    const u32 next = find_capture(buf, page + CAPTURE_BYTES, length - CAPTURE_BYTES);
    read_stream_header(buf, length, page, r);
    if (next > length - CAPTURE_BYTES) break;
    page = next;
  }
}

// Granule position (low 32 bits) of the last page among the `count` bytes
// at the front of the buffer, searching backwards from count - 100; 0 when
// there is none.
u32 last_granule(const u8 *buf, u32 count) {
  if (count < TAIL_MARGIN) return 0;
  for (u32 at = count - TAIL_MARGIN + 1; at-- > 0;)
    if (capture_at(buf + at)) return LittleEndian2int32u(buf + at + GRANULE_AT);
  return 0;
}

// A float count of milliseconds truncated to 32 bits; too large a value
// saturates instead of being undefined.
u32 truncate_ms(float ms) {
  constexpr float LIMIT = 4294967296.0f;
  return ms < LIMIT ? static_cast<u32>(ms) : 0xFFFFFFFFu;
}

}  // namespace

u32 Ogg_prescan(MAIOSFile *handle, u8 *buf, u32 length, MediaInfo *r) {
  if (buf == nullptr || length < CAPTURE_BYTES || !capture_at(buf)) return 0;

  walk_pages(buf, length, r);
  if (r->audio[0].audio_codec == WAVE_FORMAT_VORBIS1)
    Vorbis_comment_search(buf, length, r, CommentSource::Ogg);

  // The last MiB of the file replaces the head. For a file shorter than
  // that the seek offset wraps past the end and nothing is read: the whole
  // file is then still in the buffer, and its end is searched there.
  const u32 tail_at = r->file_size - PRESCAN_HEAD_SIZE;
  u32 count = 0;
  if (handle != nullptr && MAIOSFileSeek(handle, tail_at, MAIOS_SEEK_SET) == 0)
    count = MAIOSFileRead(handle, buf, std::min(length, PRESCAN_HEAD_SIZE));
  if (count == 0) count = std::min(r->file_size, length);
  const u32 granule = last_granule(buf, count);

  AudioStreamInfo &a = r->audio[0];
  if (a.audio_sample_rate != 0)
    r->play_time = truncate_ms(static_cast<float>(granule) * 1000.0f / static_cast<float>(a.audio_sample_rate));
  // A second or less is not believed: estimate from the size and the
  // nominal bit rate instead. The remainder term divides by the bit rate,
  // not the byte rate, as the MPEG audio estimate does.
  const u32 bits = a.audio_bitrate;
  const u32 bytes = bits / 8;
  if (r->play_time < 1001 && bytes != 0)
    r->play_time = (r->file_size / bytes) * 1000 + ((r->file_size % bytes) * 1000) / bits;
  r->audio_count = 1;
  return 1;
}
