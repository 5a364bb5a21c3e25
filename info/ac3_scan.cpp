// AC-3 and DTS scan: codec, sample rate, bit rate and channels from the
// first sync frame of an elementary stream.
#include "info/ac3_scan.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace {

constexpr u32 NOT_FOUND = 0xFFFFFFFFu;

// AC-3 (ATSC A/52) sync frame: syncinfo is the sync word 0B 77, crc1 (2
// bytes), then fscod (2 bits) and frmsizecod (6 bits); bsi follows with
// bsid (5), bsmod (3), acmod (3), the optional mix levels and lfeon.
constexpr u32 AC3_HEADER_BYTES = 7;

// Nominal bit rates by frmsizecod / 2.
constexpr std::array<u32, 19> AC3_bitrate = {32000,  40000,  48000,  56000,  64000,  80000,  96000,
                                             112000, 128000, 160000, 192000, 224000, 256000, 320000,
                                             384000, 448000, 512000, 576000, 640000};
constexpr std::array<u32, 4> AC3_sample_rate = {48000, 44100, 32000, 0};
// Full-bandwidth channels by acmod: 1+1 (dual mono), 1/0, 2/0, 3/0, 2/1,
// 3/1, 2/2, 3/2.
constexpr std::array<u32, 8> AC3_channels = {2, 1, 2, 3, 3, 4, 4, 5};
constexpr u32 AC3_ACMOD_STEREO = 2;
constexpr u32 AC3_DSURMOD_SURROUND = 2;  // Dolby Surround encoded
constexpr u32 AC3_LFE_CHANNELS = 6;

// The frame check looks for one further sync word per 10000 bytes of
// data, at most four, all within 16 KiB of the first.
constexpr u32 AC3_SYNC_SPACING = 10000;
constexpr u32 AC3_MAX_FURTHER = 4;
constexpr u32 AC3_SYNC_WINDOW = 16384;

// DTS core frame header: sync 7F FE 80 01, FTYPE (1), SHORT (5), CPF (1),
// NBLKS (7), FSIZE (14), AMODE (6), SFREQ (4), RATE (5), ...
constexpr u32 DTS_HEADER_BYTES = 10;
constexpr std::array<u16, 16> Dts_sample_rate = {0,     8000, 16000, 32000, 0,     0,     11025, 22050,
                                                 44100, 0,    0,     12000, 24000, 48000, 0,     0};
// Nominal bit rates by RATE; 29 to 31 (open, variable, lossless) read 0.
constexpr std::array<u32, 32> Dts_bitrate = {
    32000,   56000,   64000,   96000,   112000,  128000,  192000,  224000,  256000,  320000,  384000,
    448000,  512000,  576000,  640000,  768000,  896000,  1024000, 1152000, 1280000, 1344000, 1408000,
    1411200, 1472000, 1536000, 1920000, 2048000, 3072000, 3840000, 0,       0,       0};
// Channels by AMODE 0 to 15; 16 to 63 are user-defined and read 0.
constexpr std::array<u32, 16> Dts_channels = {1, 2, 2, 2, 2, 3, 3, 4, 4, 5, 6, 6, 6, 7, 8, 8};

// The first position from `from` to `last` where `lead` starts the
// `size`-byte pattern `word`; NOT_FOUND when there is none. memchr finds
// the lead byte at memory speed (through zero fill too), and the rest is
// compared there. The caller keeps last + size inside the buffer.
u32 find_word(const u8 *data, u32 from, u32 last, const u8 *word, u32 size) {
  for (u32 i = from; i <= last; ++i) {
    const void *hit = std::memchr(data + i, word[0], last - i + 1);
    if (hit == nullptr) break;
    i = static_cast<u32>(static_cast<const u8 *>(hit) - data);
    if (std::memcmp(data + i, word, size) == 0) return i;
  }
  return NOT_FOUND;
}

constexpr std::array<u8, 2> AC3_SYNC = {0x0B, 0x77};
constexpr std::array<u8, 4> DTS_SYNC = {0x7F, 0xFE, 0x80, 0x01};

// The first AC-3 sync word at a position from `from` to `length` - 4.
u32 find_ac3_sync(const u8 *data, u32 length, u32 from) {
  if (length < 4) return NOT_FOUND;
  return find_word(data, from, length - 4, AC3_SYNC.data(), AC3_SYNC.size());
}

}  // namespace

u32 Ac3_prescan(MAIOSFile *, const u8 *data, u32 length, MediaInfo *record) {
  if (data == nullptr) return 0;
  const u32 first = find_ac3_sync(data, length, 0);
  if (first == NOT_FOUND) return 0;

  u32 further = length / AC3_SYNC_SPACING;
  if (further > AC3_MAX_FURTHER) further = AC3_MAX_FURTHER;
  u32 at = first;
  for (u32 i = 0; i <= further; ++i) {
    const u32 found = find_ac3_sync(data, length, at);
    if (found == NOT_FOUND) return 0;
    at = found + 1;
  }
  if (at - first > AC3_SYNC_WINDOW) return 0;
  // A sync word too near the end to hold its header is no frame.
  if (length - first < AC3_HEADER_BYTES) return 0;

  const u8 *frame = data + first;
  const u32 fscod = frame[4] >> 6;
  const u32 frmsizecod = frame[4] & 0x3F;
  AudioStreamInfo &audio = record->audio[0];
  audio.audio_codec = WAVE_FORMAT_AC3;
  audio.audio_sample_rate = AC3_sample_rate[fscod];
  audio.audio_bitrate = frmsizecod / 2 < AC3_bitrate.size() ? AC3_bitrate[frmsizecod / 2] : 0;

  // acmod is the top three bits of byte 6; the optional fields follow
  // it in the same byte (at most 2 + 2 + 1 bits behind it).
  const u32 bsi = frame[6];
  const u32 acmod = bsi >> 5;
  audio.audio_channels = AC3_channels[acmod];
  u32 bit = 5;  // bits of the byte still to read, from the top
  auto take = [&](u32 count) {
    bit -= count;
    return (bsi >> bit) & ((1u << count) - 1);
  };
  if ((acmod & 1) != 0 && acmod != 1) take(2);  // cmixlev: three front channels
  if ((acmod & 4) != 0) take(2);                // surmixlev: a surround channel
  if (acmod == AC3_ACMOD_STEREO && take(2) == AC3_DSURMOD_SURROUND) std::printf("Dolby Digital");
  const u32 lfeon = take(1);
  // Any stream with a low-frequency effects channel is reported as 5.1.
  if (lfeon != 0) audio.audio_channels = AC3_LFE_CHANNELS;

  record->audio_count = 1;
  return 1;
}

u32 Dts_prescan(MAIOSFile *, const u8 *data, u32 length, MediaInfo *record) {
  if (data == nullptr) return 0;
  const u32 first = length < 4 ? NOT_FOUND : find_word(data, 0, length - 4, DTS_SYNC.data(), DTS_SYNC.size());
  if (first == NOT_FOUND || length - first < DTS_HEADER_BYTES) return 0;

  const u8 *frame = data + first;
  const u32 amode = ((frame[7] & 0x0F) << 2) | (frame[8] >> 6);
  const u32 sfreq = (frame[8] >> 2) & 0x0F;
  const u32 rate = ((frame[8] & 0x03) << 3) | (frame[9] >> 5);
  AudioStreamInfo &audio = record->audio[0];
  audio.audio_codec = WAVE_FORMAT_DTS;
  audio.audio_bitrate = Dts_bitrate[rate];
  audio.audio_sample_rate = Dts_sample_rate[sfreq];
  audio.audio_channels = amode < Dts_channels.size() ? Dts_channels[amode] : 0;
  record->audio_count = 1;
  return 1;
}
