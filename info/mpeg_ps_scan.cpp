// MPEG-1/2 program stream scan (.mpg, .mpeg, .vob).
//
// A program stream is a sequence of packs: a pack header (00 00 01 BA,
// carrying the system clock reference), optionally a system header
// (00 00 01 BB), then PES packets (00 00 01 id) with a 16-bit length. The
// byte after the pack start code tells the two systems layers apart: MPEG-1
// packs start it with the bits 0010, MPEG-2 packs with 01.
//
// The scan walks the PES packets of the head buffer once, describes the
// first video stream from its sequence header and the first audio stream
// from its frame header, and then times the whole file from the
// group-of-pictures time codes near its start and near its end, which it
// reads through the file handle into the head buffer.
//
// The walk keeps the player's long-standing short cuts: an MPEG-1 packet is
// taken as 1000 bytes with a 2-byte header whatever it says, a packet's
// payload is counted 2 bytes short, the codec is named by the picture width,
// and time codes are read in whole seconds.
#include "info/mpeg_ps_scan.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <vector>

#include "info/ac3_scan.h"
#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/mpeg_audio.h"
#include "info/mpeg_audio_tables.h"

namespace {

// The packet walk stops this far before the end of the head buffer, so the
// fixed fields of a packet header are always inside it.
constexpr u32 WALK_MARGIN = 128;

constexpr u8 PACK_START = 0xBA;
constexpr u8 SEQUENCE_HEADER = 0xB3;
constexpr u8 GROUP_START = 0xB8;
constexpr u8 PRIVATE_STREAM_1 = 0xBD;
constexpr u8 PRIVATE_STREAM_2 = 0xBF;
constexpr u8 FIRST_AUDIO_ID = 0xC0;
constexpr u8 FIRST_VIDEO_ID = 0xE0;
constexpr u8 LAST_STREAM_ID = 0xEF;

// Byte 4 of the pack header, compared whole: the marker bits and a system
// clock reference whose top bits are 0.
constexpr u8 PACK_MPEG1 = 0x21;
constexpr u8 PACK_MPEG2 = 0x44;

// MPEG-1 packets are not measured: every one counts as this long, with a
// header of this length (stuffing, buffer size and time stamps ignored).
constexpr u16 MPEG1_PACKET_LENGTH = 1000;
constexpr u16 MPEG1_HEADER_LENGTH = 2;
// Payload = packet length - header data length - this.
constexpr u16 PES_FIXED_BYTES = 5;

// Private stream 1 sub-streams (DVD numbering).
constexpr u8 AC3_FIRST = 0x80, AC3_LAST = 0x88;
constexpr u8 DTS_FIRST = 0x88, DTS_LAST = 0x8F;
constexpr u8 LPCM_FIRST = 0xA0, LPCM_LAST = 0xA8;
// The LPCM private header's byte with the sample-rate and channel codes.
constexpr u32 LPCM_FORMAT_AT = 5;

// Time codes are read in blocks of this size.
constexpr u32 TIME_CODE_BLOCK = 65536;
// A group start code is looked for at positions 0 to count - 6; its time
// code ends one byte further, so a block buffer keeps a little spare room.
constexpr u32 TIME_CODE_SLACK = 8;
// Byte rate assumed when the sequence header gives no bit rate.
constexpr u32 DEFAULT_BYTE_RATE = 625000;

// Sequence header: frame rates by frame_rate_code 1 to 8, the MPEG-1 pel
// aspect ratios by aspect code 1 to 14 and the MPEG-2 display aspect ratios
// by code 1 to 4. Other codes stand for themselves.
constexpr std::array<float, 9> FRAME_RATE{0.0f, 23.976f, 24.0f, 25.0f, 29.97f, 30.0f, 50.0f, 59.94f, 60.0f};
constexpr std::array<double, 15> PEL_ASPECT{0.0,    1.0,    0.6735, 0.7031, 0.7615, 0.8055, 0.8437, 0.8935,
                                            0.9157, 0.9815, 1.0255, 1.0695, 1.095,  1.1575, 1.2015};
constexpr std::array<float, 5> DISPLAY_ASPECT{0.0f, 1.0f, 4.0f / 3.0f, 16.0f / 9.0f, 2.2f};
constexpr u32 VBR_BIT_RATE = 0x3FFFF;
constexpr u32 BIT_RATE_UNIT = 400;
constexpr u32 MPEG1_MAX_WIDTH = 400;
// Start code and the 7 bytes of size, aspect, frame rate and bit rate.
constexpr u32 SEQUENCE_HEADER_BYTES = 11;

// The first start code (00 00 01) at positions `from` to `last` whose code
// byte, the one after it, `wanted` accepts; last + 1 when there is none.
// The caller keeps last + 3 inside the buffer. A start code at p has its
// 01 byte at p + 2, so memchr looks for 01 bytes at memory speed (through
// zero fill too), and each one found is checked in full; positions whose
// byte p + 2 is not 01 hold no start code.
template <typename Wanted>
u32 find_start_code(const u8 *buf, u32 from, u32 last, Wanted wanted) {
  for (u32 p = from; p <= last; ++p) {
    const void *hit = std::memchr(buf + p + 2, 0x01, last - p + 1);
    if (hit == nullptr) break;
    p = static_cast<u32>(static_cast<const u8 *>(hit) - buf) - 2;
    if (buf[p] == 0 && buf[p + 1] == 0 && wanted(buf[p + 3])) return p;
  }
  return last + 1;
}

template <u8 CODE>
bool is(u8 code) {
  return code == CODE;
}

// The first MPEG audio frame sync (FF, then a byte with its top three bits
// set) at positions `from` to `last`, found by its FF byte; last + 1 when
// there is none. The caller keeps last + 1 inside the buffer.
u32 find_audio_sync(const u8 *buf, u32 from, u32 last) {
  for (u32 p = from; p <= last; ++p) {
    const void *hit = std::memchr(buf + p, 0xFF, last - p + 1);
    if (hit == nullptr) break;
    p = static_cast<u32>(static_cast<const u8 *>(hit) - buf);
    if (mpa_sync(buf + p)) return p;
  }
  return last + 1;
}

// The first sequence header at positions 0 to search - 8 of `data`; its
// fields must lie within the `avail` bytes there.
bool read_sequence_header(const u8 *data, u32 search, u32 avail, MediaInfo *r) {
  if (search < 8 || avail < SEQUENCE_HEADER_BYTES) return false;
  const u32 last = std::min(search - 8, avail - SEQUENCE_HEADER_BYTES);
  const u32 p = find_start_code(data, 0, last, is<SEQUENCE_HEADER>);
  if (p > last) return false;
  const u8 *h = data + p;
  const u32 width = (static_cast<u32>(h[4]) << 4) | (h[5] >> 4);
  const u32 height = (static_cast<u32>(h[5] & 0x0F) << 8) | h[6];
  const u32 aspect = h[7] >> 4;
  const u32 rate = h[7] & 0x0F;
  const u32 bits = (static_cast<u32>(h[8]) << 10) | (static_cast<u32>(h[9]) << 2) | (h[10] >> 6);
  r->video_width = width;
  r->video_height = height;
  r->frame_rate = rate >= 1 && rate < FRAME_RATE.size() ? FRAME_RATE[rate] : static_cast<float>(rate);
  if (bits == VBR_BIT_RATE) {
    r->video_vbr = 1;
  } else {
    r->video_bitrate = bits * BIT_RATE_UNIT;
    r->video_vbr = 0;
  }
  r->video_codec = width <= MPEG1_MAX_WIDTH ? VIDEO_CODEC_MPEG1 : VIDEO_CODEC_MPEG2;
  if (r->video_codec == VIDEO_CODEC_MPEG1) {
    // MPEG-1 gives the shape of a pel; it is multiplied in, not divided.
    const double pel = aspect >= 1 && aspect < PEL_ASPECT.size() ? PEL_ASPECT[aspect] : aspect;
    if (height != 0) r->aspect_ratio = static_cast<float>(width * pel / height);
  } else {
    r->aspect_ratio =
        aspect >= 1 && aspect < DISPLAY_ASPECT.size() ? DISPLAY_ASPECT[aspect] : static_cast<float>(aspect);
  }
  return true;
}

// Bit-rate table of a version and layer; none for the reserved ones.
const std::array<u32, 16> *audio_rates(u32 version, u32 layer) {
  constexpr std::array<const std::array<u32, 16> *, 4> mpeg25{nullptr, &A25_L3_bitrate, &A25_L2_bitrate,
                                                              &A25_L1_bitrate};
  constexpr std::array<const std::array<u32, 16> *, 4> mpeg2{nullptr, &A2_L3_bitrate, &A2_L2_bitrate,
                                                             &A2_L1_bitrate};
  constexpr std::array<const std::array<u32, 16> *, 4> mpeg1{nullptr, &A1_L3_bitrate, &A1_L2_bitrate,
                                                             &A1_L1_bitrate};
  if (version == MPA_VERSION_25) return mpeg25[layer];
  if (version == MPA_VERSION_2) return mpeg2[layer];
  if (version == MPA_VERSION_1) return mpeg1[layer];
  return nullptr;
}

const std::array<u32, 4> *audio_sample_rates(u32 version) {
  if (version == MPA_VERSION_25) return &A25S;
  if (version == MPA_VERSION_2) return &A2S;
  if (version == MPA_VERSION_1) return &A1S;
  return nullptr;
}

// The first MPEG audio frame header (FF, then a byte with its top three bits
// set) at positions 0 to length - 4 into audio[0].
bool read_audio_header(const u8 *data, u32 length, MediaInfo *r) {
  if (length < 4) return false;
  const u32 p = find_audio_sync(data, 0, length - 4);
  if (p > length - 4) return false;
  const u8 *h = data + p;
  const u32 version = mpa_version(h);
  const u32 layer = mpa_layer(h);
  AudioStreamInfo &a = r->audio[0];
  if (layer != 0) a.audio_codec = mpa_codec_by_layer[layer];
  // The reserved version sets neither rate; the reserved layer has no
  // bit rates.
  if (const auto *rates = audio_rates(version, layer)) a.audio_bitrate = (*rates)[mpa_bitrate_index(h)] * 1000;
  if (const auto *rates = audio_sample_rates(version)) a.audio_sample_rate = (*rates)[mpa_sample_rate_index(h)];
  a.audio_channels = mpa_channel_mode(h) == MPA_MODE_MONO ? 1 : 2;
  r->audio_count = 1;
  return true;
}

// Private stream 1 carries DVD audio behind a sub-stream id byte. Any such
// packet settles the audio question, whatever it held (a subpicture too).
// Sub-stream 0x88 is tried as both AC-3 and DTS.
void read_private_stream(MAIOSFile *handle, const u8 *payload, u32 search, u32 avail, MediaInfo *r) {
  if (avail == 0) return;
  const u8 sub = payload[0];
  const u32 bounded = std::min(search, avail);
  if (sub >= AC3_FIRST && sub <= AC3_LAST) {
    if (Ac3_prescan(handle, payload, bounded, r) == 1) r->audio_count = 1;
  }
  if (sub >= DTS_FIRST && sub <= DTS_LAST) Dts_prescan(handle, payload, bounded, r);
  if (sub >= LPCM_FIRST && sub <= LPCM_LAST) {
    std::printf("FOUND AIDIO !!!");
    AudioStreamInfo &a = r->audio[0];
    a.audio_codec = WAVE_FORMAT_PCM;
    if (LPCM_FORMAT_AT < avail) {
      const u8 format = payload[LPCM_FORMAT_AT];
      const u32 rate_code = (format >> 4) & 3;
      if (rate_code == 0) a.audio_sample_rate = 48000;
      if (rate_code == 1) a.audio_sample_rate = 96000;
      a.audio_channels = (format & 7) + 1;
    }
    r->audio_count = 1;
  }
}

// Walks the PES packets of the head buffer from the pack at `pack`.
void walk_packets(MAIOSFile *handle, const u8 *buf, u32 length, u32 pack, bool mpeg1, MediaInfo *r) {
  const u32 last = length - WALK_MARGIN;
  bool video_found = false;
  bool audio_found = false;
  u32 at = pack;
  auto packet_code = [](u8 code) { return code >= GROUP_START && code <= LAST_STREAM_ID; };
  while (at <= last) {
    at = find_start_code(buf, at, last, packet_code);
    if (at > last) break;
    const u8 id = buf[at + 3];
    const u32 pos = at + 4;  // the packet length field
    if (id != PRIVATE_STREAM_1 && id < PRIVATE_STREAM_2) {
      // Pack and system headers, stream maps, padding: look further on.
      at = pos;
      continue;
    }
    u16 packet_length = MPEG1_PACKET_LENGTH;
    u16 header_length = MPEG1_HEADER_LENGTH;
    if (!mpeg1) {
      packet_length = BigEndian2int16u(buf + pos);
      header_length = buf[pos + 4];
    }
    // The lengths are 16-bit words: what is left of the buffer is compared
    // modulo 64 KiB, and the payload length wraps with them.
    const u16 room = static_cast<u16>(length - pos);
    if (room < packet_length) packet_length = room;
    const u32 payload = pos + header_length + PES_FIXED_BYTES;
    const u16 payload_length = static_cast<u16>(packet_length - header_length - PES_FIXED_BYTES);
    // The payload as far as the buffer holds it; searches may look a few
    // bytes past the payload's end, never past the buffer's.
    const u32 avail = payload < length ? length - payload : 0;
    const u8 *data = buf + (payload < length ? payload : length);
    // Under MPEG-2 a PES header's first flags byte starts with the bits 10.
    const bool pes_header = mpeg1 || (buf[pos + 2] & 0x80) != 0;

    if (!video_found && id >= FIRST_VIDEO_ID && pes_header)
      video_found = read_sequence_header(data, payload_length, avail, r);
    if (!audio_found) {
      if (id >= FIRST_AUDIO_ID && id < FIRST_VIDEO_ID && pes_header) {
        audio_found = read_audio_header(data, std::min<u32>(payload_length, avail), r);
      } else if (id == PRIVATE_STREAM_1) {
        read_private_stream(handle, data, payload_length, avail, r);
        audio_found = true;
      }
    }
    at = payload + payload_length;
  }
}

// Group-of-pictures time code in whole seconds: after the start code come
// a drop-frame flag, 5 bits of hours, 6 of minutes, a marker bit and 6 of
// seconds (then 6 of pictures, not used).
u32 time_code_seconds(const u8 *gop) {
  const u32 hours = (gop[4] >> 2) & 0x1F;
  const u32 minutes = ((gop[4] & 0x03) << 4) | (gop[5] >> 4);
  const u32 seconds = ((gop[5] & 0x07) << 3) | (gop[6] >> 5);
  return hours * 3600 + minutes * 60 + seconds;
}

// Reads up to one block at `offset`; the count read, 0 when the seek failed.
u32 read_block(MAIOSFile *handle, u64 offset, u8 *block) {
  if (handle == nullptr || MAIOSFileSeek(handle, offset, MAIOS_SEEK_SET) != 0) return 0;
  return MAIOSFileRead(handle, block, TIME_CODE_BLOCK);
}

// The first group start code at positions 0 to count - 6 of a block.
bool first_time_code(const u8 *block, u32 count, u32 &seconds) {
  if (count < 6) return false;
  const u32 p = find_start_code(block, 0, count - 6, is<GROUP_START>);
  if (p > count - 6) return false;
  seconds = time_code_seconds(block + p);
  return true;
}

// Play time from the first and the last time code of the whole file, or
// from the size and the video bit rate when they give nothing.
void time_the_file(MAIOSFile *handle, u8 *buf, u32 length, MediaInfo *r) {
  const u32 size = r->file_size;
  if (size == 0) return;
  // The head buffer is reused when it has room for a block; a spare one
  // otherwise.
  std::vector<u8> spare;
  u8 *block = buf;
  if (length < TIME_CODE_BLOCK + TIME_CODE_SLACK) {
    spare.assign(TIME_CODE_BLOCK + TIME_CODE_SLACK, 0);
    block = spare.data();
  }

  // Forwards: the offset of the block holding the first code, not of the
  // code itself.
  u32 first = 0;
  u32 first_block = size;
  for (u64 offset = 0; offset < size; offset += TIME_CODE_BLOCK) {
    const u32 count = read_block(handle, offset, block);
    if (first_time_code(block, count, first)) {
      first_block = static_cast<u32>(offset);
      break;
    }
    if (count == 0) break;
  }

  // Backwards, one block at a time from the end; the first block reads from
  // the start of the file when the file is shorter than a block.
  u32 last = 0;
  for (u32 k = 1;; ++k) {
    const u64 back = static_cast<u64>(k) * TIME_CODE_BLOCK;
    const u32 offset = back <= size ? static_cast<u32>(size - back) : 0;
    const u32 count = read_block(handle, offset, block);
    if (first_time_code(block, count, last) || offset == 0) break;
  }

  const u32 span = first < last ? last - first : first - last;
  const u32 rest = size - first_block;
  if (span != 0 && rest / span != 0) {
    r->play_time = span * 1000;
    return;
  }
  const u32 byte_rate = r->video_bitrate / 8 != 0 ? r->video_bitrate / 8 : DEFAULT_BYTE_RATE;
  r->play_time = (rest / byte_rate) * 1000;
}

}  // namespace

u32 Mpegv_prescan(MAIOSFile *, const u8 *data, u32 length, MediaInfo *record) {
  if (data == nullptr) return 0;
  return read_sequence_header(data, length, length, record) ? 1 : 0;
}

u32 Mpega_prescan(MAIOSFile *, const u8 *data, u32 length, MediaInfo *record) {
  if (data != nullptr) read_audio_header(data, length, record);
  return 1;
}

u32 Mpeg_prescan(MAIOSFile *handle, u8 *buf, u32 length, MediaInfo *r) {
  if (buf == nullptr || length < WALK_MARGIN) return 0;
  const u32 last = length - WALK_MARGIN;
  const u32 pack = find_start_code(buf, 0, last, is<PACK_START>);
  if (pack > last) return 0;

  bool mpeg1 = false;
  if (buf[pack + 4] == PACK_MPEG1) {
    std::printf("MPEG1 ");
    mpeg1 = true;
  } else if (buf[pack + 4] == PACK_MPEG2) {
    std::printf("MPEG2 ");
  } else {
    std::printf("UNKNOWN MPEG ");
    return 0;
  }

  walk_packets(handle, buf, length, pack, mpeg1, r);
  time_the_file(handle, buf, length, r);
  return 1;
}
