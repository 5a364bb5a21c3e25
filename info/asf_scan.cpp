// ASF (Windows Media) scan. An ASF file starts with the Header Object,
// which holds the File Properties Object (duration, preroll), the Content
// Description Object (title, author) and one Stream Properties Object per
// stream. The scan does not walk the object tree: it looks for the GUIDs of
// those objects, and of the audio and video stream types, byte by byte in
// the head buffer and reads fields at fixed distances from each match.
#include <array>
#include <cstdio>
#include <cstring>
#include <optional>
#include <span>

#include "info/aspect_ratio.h"
#include "info/byte_order.h"
#include "info/media_info.h"

namespace {

using Guid = std::array<u8, 16>;

// A GUID as ASF stores it: the first three groups little-endian, the last
// eight bytes in their written order (`tail` holds them, first byte high).
constexpr Guid asf_guid(u32 a, u16 b, u16 c, u64 tail) {
  Guid g{};
  for (int i = 0; i < 4; ++i) g[i] = static_cast<u8>(a >> (8 * i));
  for (int i = 0; i < 2; ++i) g[4 + i] = static_cast<u8>(b >> (8 * i));
  for (int i = 0; i < 2; ++i) g[6 + i] = static_cast<u8>(c >> (8 * i));
  for (int i = 0; i < 8; ++i) g[8 + i] = static_cast<u8>(tail >> (8 * (7 - i)));
  return g;
}

constexpr Guid HEADER_OBJECT = asf_guid(0x75B22630, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
constexpr Guid FILE_PROPERTIES_OBJECT = asf_guid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365);
constexpr Guid CONTENT_DESCRIPTION_OBJECT = asf_guid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
constexpr Guid AUDIO_MEDIA = asf_guid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
constexpr Guid VIDEO_MEDIA = asf_guid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);

// The Header Object must leave room for its own fields and a first child.
constexpr u32 HEADER_SEARCH_MARGIN = 128;
// A stream type counts only when it is found this close to the start.
constexpr u32 STREAM_TYPE_LAST = 65532;

// File Properties Object, from its GUID.
constexpr u32 FP_PLAY_DURATION = 64;  // u64, 100 ns units (preroll included)
constexpr u32 FP_PREROLL = 80;        // u64 milliseconds; the low word is read
constexpr u32 FP_FIELDS_END = FP_PREROLL + 4;
// Content Description Object, from its GUID.
constexpr u32 CD_TITLE_LENGTH = 24;
constexpr u32 CD_AUTHOR_LENGTH = 26;
constexpr u32 CD_TEXT = 34;  // title, author, copyright, description, rating
// The stream type GUID sits 24 bytes into a Stream Properties Object;
// 54 bytes after it begins the type-specific data.
// Audio: a WAVEFORMATEX.
constexpr u32 AUDIO_FORMAT_TAG = 54;
constexpr u32 AUDIO_CHANNELS = 56;
constexpr u32 AUDIO_SAMPLE_RATE = 58;
constexpr u32 AUDIO_BYTE_RATE = 62;
constexpr u32 AUDIO_FIELDS_END = AUDIO_BYTE_RATE + 4;
// Video: encoded width and height (u32 each), a flag byte, the format data
// size (u16), then a BITMAPINFOHEADER at 65.
constexpr u32 VIDEO_WIDTH = 69;
constexpr u32 VIDEO_HEIGHT = 73;
constexpr u32 VIDEO_COMPRESSION = 81;
constexpr u32 VIDEO_FIELDS_END = VIDEO_COMPRESSION + 4;

// Each text is copied up to this many bytes.
constexpr u32 TAG_FIELD_LIMIT = 128;
// " - " in UTF-16LE, written over the title's terminating null.
constexpr std::array<u8, 6> TAG_SEPARATOR = {0x20, 0x00, 0x2D, 0x00, 0x20, 0x00};

// First position 0..last at which `guid` lies in the buffer whole, and
// from which `fields` bytes can be read. A first match that leaves no room
// for the fields counts as no match (a later one would not have room
// either). Only a position holding the GUID's first byte can match: memchr
// finds those (through zero-filled space at memory speed, as no first byte
// is zero), and memcmp checks the whole GUID there.
std::optional<u32> find_guid(std::span<const u8> head, const Guid &guid, s64 last, u32 fields) {
  const s64 size = static_cast<s64>(head.size());
  if (last > size - static_cast<s64>(guid.size())) last = size - static_cast<s64>(guid.size());
  for (s64 p = 0; p <= last; ++p) {
    const void *hit = std::memchr(head.data() + p, guid[0], static_cast<size_t>(last - p + 1));
    if (hit == nullptr) break;
    p = static_cast<const u8 *>(hit) - head.data();
    if (std::memcmp(head.data() + p, guid.data(), guid.size()) != 0) continue;
    if (p + fields > size) return std::nullopt;
    return static_cast<u32>(p);
  }
  return std::nullopt;
}

// A stream type GUID: searched up to `last`, but only a first match at
// STREAM_TYPE_LAST or before counts.
std::optional<u32> find_stream_type(std::span<const u8> head, const Guid &guid, s64 last, u32 fields) {
  const std::optional<u32> p = find_guid(head, guid, last, fields);
  if (p && *p > STREAM_TYPE_LAST) return std::nullopt;
  return p;
}

// Copies up to `count` bytes from `from` to the tag block at `to`, as far
// as the buffer holds them. Returns the count copied.
u32 copy_text(std::span<const u8> head, u64 from, u32 count, MediaInfo *r, u32 to) {
  if (from >= head.size()) return 0;
  if (count > head.size() - from) count = static_cast<u32>(head.size() - from);
  std::memcpy(r->tag_info + to, head.data() + from, count);
  return count;
}

// Title and author, UTF-16LE, into the tag block as "title - author". The
// title's length counts its terminating null, which the separator takes
// the place of.
void read_content_description(std::span<const u8> head, u32 p, MediaInfo *r) {
  const u32 title_length = LittleEndian2int16u(head.data() + p + CD_TITLE_LENGTH);
  const u32 author_length = LittleEndian2int16u(head.data() + p + CD_AUTHOR_LENGTH);
  std::printf("Taille0[%d], Taille1[%d]\n", static_cast<int>(title_length), static_cast<int>(author_length));

  const u64 title_at = static_cast<u64>(p) + CD_TEXT;
  const u32 title_take = title_length < TAG_FIELD_LIMIT ? title_length : TAG_FIELD_LIMIT;
  const u32 copied = copy_text(head, title_at, title_take, r, 0);
  u32 next = copied;
  if (copied > 2) {
    std::memcpy(r->tag_info + copied - 2, TAG_SEPARATOR.data(), TAG_SEPARATOR.size());
    next = copied + 4;
  }
  // The author follows the whole title in the file, however much of the
  // title was taken.
  const u32 author_take = author_length < TAG_FIELD_LIMIT ? author_length : TAG_FIELD_LIMIT;
  copy_text(head, title_at + title_length, author_take, r, next);
}

}  // namespace

u32 WM_prescan(MAIOSFile *, const u8 *buffer, u32 length, MediaInfo *record) {
  if (buffer == nullptr) return 0;
  const std::span<const u8> head(buffer, length);
  const s64 len = length;
  if (!find_guid(head, HEADER_OBJECT, len - HEADER_SEARCH_MARGIN, 0)) return 0;
  MediaInfo *r = record;

  if (const auto p = find_guid(head, FILE_PROPERTIES_OBJECT, len - 4, FP_FIELDS_END)) {
    // The duration includes the preroll, which playback skips.
    const u64 duration_ms = LittleEndian2int64u(buffer + *p + FP_PLAY_DURATION) / 10000;
    const u32 preroll_ms = LittleEndian2int32u(buffer + *p + FP_PREROLL);
    r->play_time = static_cast<u32>(duration_ms) - preroll_ms;
  }

  if (const auto p = find_guid(head, CONTENT_DESCRIPTION_OBJECT, len - 4, CD_TEXT))
    read_content_description(head, *p, r);

  if (const auto p = find_stream_type(head, AUDIO_MEDIA, len / 4 - 4, AUDIO_FIELDS_END)) {
    AudioStreamInfo &a = r->audio[0];
    a.audio_codec = LittleEndian2int16u(buffer + *p + AUDIO_FORMAT_TAG);
    a.audio_channels = LittleEndian2int8u(buffer + *p + AUDIO_CHANNELS);
    a.audio_sample_rate = LittleEndian2int32u(buffer + *p + AUDIO_SAMPLE_RATE);
    a.audio_bitrate = LittleEndian2int32u(buffer + *p + AUDIO_BYTE_RATE) * 8;
    r->audio_count = 1;
  }

  const auto v = find_stream_type(head, VIDEO_MEDIA, len - 4, VIDEO_FIELDS_END);
  if (!v) return 1;
  r->video_width = LittleEndian2int32u(buffer + *v + VIDEO_WIDTH);
  r->video_height = LittleEndian2int32u(buffer + *v + VIDEO_HEIGHT);
  r->video_codec = FourCC(buffer + *v + VIDEO_COMPRESSION);
  // Bits per millisecond of the whole file, scaled to seconds; the bit
  // count is a 32-bit word and wraps for files of 512 MiB and more.
  const u32 file_bits = r->file_size * 8;
  if (r->play_time != 0) r->video_bitrate = (file_bits / r->play_time) * 1000;
  if (r->video_height != 0 && r->video_width != 0)
    r->aspect_ratio = snap_aspect_ratio(r->video_width, r->video_height, r->aspect_ratio);
  return 1;
}
