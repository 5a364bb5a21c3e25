// Native FLAC scan.
//
// A FLAC stream starts with "fLaC" and a chain of metadata blocks, each
// behind a 32-bit big-endian header: the last-block flag (bit 31), the
// block type (bits 30-24: 0 STREAMINFO, 2 APPLICATION, 4 VORBIS_COMMENT,
// ...) and the length of the block data (bits 23-0).
//
// The walk looks for the STREAMINFO block the way the player always has: a
// block of another type is not skipped by its length but crept through 5
// bytes at a time, so a STREAMINFO behind such a block is found only when
// the creep lands on its header (encoders put STREAMINFO first, where this
// does not matter). The duration is counted in whole seconds, from the low
// 32 bits of the sample count.
#include <cstdio>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/vorbis_comment.h"
#include "info/zero_run.h"

namespace {

constexpr u32 FIRST_BLOCK_AT = 4;
constexpr u32 BLOCK_HEADER_BYTES = 4;
constexpr u32 LAST_BLOCK_FLAG = 0x80000000;
constexpr u32 STREAMINFO = 0;
// Steps of the walk past a block of another type and past an empty one.
constexpr u32 CREEP_STEP = 5;
constexpr u32 EMPTY_BLOCK_STEP = 8;
// STREAMINFO data: min/max block size (2+2), min/max frame size (3+3),
// then sample rate (20 bits), channels - 1 (3), bits per sample - 1 (5)
// and the 36-bit sample count.
constexpr u32 FORMAT_WORD_AT = 10;
constexpr u32 SAMPLE_COUNT_AT = 14;
constexpr u32 STREAMINFO_BYTES_READ = 18;

// A header of four zero bytes is an empty block that is not the last: the
// walk steps 8 bytes past it and goes on. In zero fill it would take one
// such step after another; this gives the position of the first header,
// 8 bytes at a time from the zero header at `at`, that is not all zero.
// Every header skipped ends before the first nonzero byte, so lies inside
// the buffer.
u32 past_zero_headers(const u8 *buf, u32 length, u32 at) {
  const u32 nonzero = first_nonzero(buf, at, length);
  return at + ((nonzero - at - BLOCK_HEADER_BYTES) / EMPTY_BLOCK_STEP + 1) * EMPTY_BLOCK_STEP;
}

void comment_search(const u8 *buf, u32 length, MediaInfo *r) {
  std::printf(">>> vorbis comment found !!");
  Vorbis_comment_search(buf, length, r, CommentSource::Flac);
}

}  // namespace

u32 Flac_prescan(MAIOSFile *, const u8 *buf, u32 length, MediaInfo *r) {
  if (buf == nullptr || length < FIRST_BLOCK_AT || FourCC(buf) != fourcc("fLaC")) return 0;

  u32 at = FIRST_BLOCK_AT;
  for (;;) {
    if (at > length - BLOCK_HEADER_BYTES) return 0;
    const u32 header = BigEndian2int32u(buf + at);
    if (header == 0) {
      at = past_zero_headers(buf, length, at);
      continue;
    }
    const u32 type = (header >> 24) & 0x7F;
    const u32 size = header & 0xFFFFFF;
    if (size != 0 && type == STREAMINFO) break;
    if (size != 0) {
      at += CREEP_STEP;
      if (r->audio_count != 0) {
        comment_search(buf, length, r);
        return 1;
      }
    } else {
      at += EMPTY_BLOCK_STEP;
    }
    if ((header & LAST_BLOCK_FLAG) != 0) return 0;
  }

  // A STREAMINFO block cut off by the end of the buffer is no stream.
  const u32 data = at + BLOCK_HEADER_BYTES;
  if (length - data < STREAMINFO_BYTES_READ) return 0;
  const u32 format = BigEndian2int32u(buf + data + FORMAT_WORD_AT);
  const u32 samples_low = BigEndian2int32u(buf + data + SAMPLE_COUNT_AT);
  const u32 sample_rate = format >> 12;
  const u32 samples_high = format & 0x0F;

  AudioStreamInfo &a = r->audio[0];
  a.audio_codec = AUDIO_CODEC_FLAC;
  a.audio_channels = ((format >> 9) & 0x07) + 1;
  a.audio_sample_rate = sample_rate;
  r->bits_per_sample = ((format >> 4) & 0x1F) + 1;

  if (sample_rate != 0) {
    const u32 seconds = samples_low / sample_rate;
    // Bits per second = bytes / seconds x 8, counted as bytes / (seconds x
    // 125) x 1000. A stream under one second has no bit rate.
    const u32 per_kilobit = seconds * 125;
    if ((samples_high != 0 || samples_low != 0) && per_kilobit != 0)
      a.audio_bitrate = (r->file_size / per_kilobit) * 1000;
    r->play_time = seconds * 1000;
  }
  r->audio_count = 1;

  comment_search(buf, length, r);
  return 1;
}
