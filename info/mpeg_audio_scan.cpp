// MPEG audio stream scan: the head buffer scan and the search through the
// file that stands in for it when the head does not show a stream.
#include <algorithm>
#include <array>
#include <cstring>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/mpeg_audio.h"
#include "info/mpeg_audio_tables.h"
#include "info/zero_run.h"

namespace {

constexpr u32 NOT_FOUND = 0xFFFFFFFFu;

// The head scan wants this many frame syncs in a row, one per 1000 bytes of
// buffer and at most 128, behind the first one.
constexpr u32 SYNCS_PER_BYTES = 1000;
constexpr u32 MAX_FURTHER_SYNCS = 128;

// Xing header: "Xing", 32-bit flags, then frames, bytes, a 100-byte table
// of contents and a quality word, each present when its flag is set.
constexpr u32 XING_FRAMES = 0x01;
constexpr u32 XING_BYTES = 0x02;
constexpr u32 XING_TOC = 0x04;
constexpr u32 XING_QUALITY = 0x08;

// The head scan's bit rate from a Xing header: bytes per frame times
// frames per second, over 144 for every version.
constexpr u32 XING_RATE_DIVISOR = 144;

// Search through the file: blocks of MPA_BLOCK_SIZE bytes, scanned up to
// this position before the block slides on.
constexpr u32 SCAN_LIMIT = 1535;
constexpr u32 SLIDE_KEEP = 512;               // bytes kept at the front when the scan slides
constexpr u32 SLIDE_READ = 1536;              // bytes read behind them
constexpr u32 HEADER_KEEP = 4;                // the last bytes kept when a next header lies past the block
constexpr u32 HEADER_LIMIT = MPA_BLOCK_SIZE - HEADER_KEEP;  // 2044
constexpr u32 SEARCH_BUDGET = 10000;          // bytes other than 0x00 and 0xFF before giving up
constexpr u32 SAMPLE_ROUNDS = 20;
constexpr u32 SAMPLE_SEARCH = 1440;           // bytes SearchTwoHeader examines
constexpr u32 SECTOR = 512;

constexpr u32 ID3_HEADER_SIZE = 10;

// The first frame sync at or after `from` whose two bytes lie in the buffer.
// A sync starts with an FF byte: memchr finds each one at memory speed
// (through zero fill too), and the byte after it is checked there.
u32 find_sync(const u8 *buffer, u32 length, u32 from) {
  if (length < 2) return NOT_FOUND;
  const u32 last = length - 2;
  for (u32 q = from; q <= last; ++q) {
    const void *hit = std::memchr(buffer + q, 0xFF, last - q + 1);
    if (hit == nullptr) break;
    q = static_cast<u32>(static_cast<const u8 *>(hit) - buffer);
    if (mpa_sync(buffer + q)) return q;
  }
  return NOT_FOUND;
}

u32 synchsafe32(const u8 *p) {
  return (static_cast<u32>(p[0] & 0x7F) << 21) | (static_cast<u32>(p[1] & 0x7F) << 14) |
         (static_cast<u32>(p[2] & 0x7F) << 7) | static_cast<u32>(p[3] & 0x7F);
}

// Bit rate (kbit/s) and sample rate tables of a version and layer; null
// for the reserved version or layer.
struct RateTables {
  const std::array<u32, 16> *bitrates;
  const std::array<u32, 4> *sample_rates;
};

RateTables rate_tables(u32 version, u32 layer) {
  switch (version) {
    case MPA_VERSION_25:
      return {layer == MPA_LAYER_I ? &A25_L1_bitrate : layer == MPA_LAYER_II ? &A25_L2_bitrate : &A25_L3_bitrate,
              &A25S};
    case MPA_VERSION_2:
      return {layer == MPA_LAYER_I ? &A2_L1_bitrate : layer == MPA_LAYER_II ? &A2_L2_bitrate : &A2_L3_bitrate, &A2S};
    case MPA_VERSION_1:
      return {layer == MPA_LAYER_I ? &A1_L1_bitrate : layer == MPA_LAYER_II ? &A1_L2_bitrate : &A1_L3_bitrate, &A1S};
    default:
      return {nullptr, nullptr};
  }
}

// Bit rate from a Xing header of the frame at `header`, or 0 when there is
// none that fits the buffer and the file. The most significant byte of the
// first field behind the flags (the frame count when present) reads as 0,
// so counts are taken to 24 bits.
u32 xing_bitrate(const u8 *buffer, u32 length, u32 header, u32 file_size, u32 sample_rate) {
  const u32 tag = header + mpa_vbr_tag_offset(buffer + header);
  const u32 first_field = tag + 8;
  if (first_field > length) return 0;
  if (FourCC(buffer + tag) != fourcc("Xing")) return 0;
  const u32 flags = buffer[tag + 7];
  u32 size = (flags & XING_FRAMES) != 0 ? 12 : 8;
  if ((flags & XING_BYTES) != 0) size += 4;
  if ((flags & XING_TOC) != 0) size += 100;
  if ((flags & XING_QUALITY) != 0) size += 4;
  if (tag + size > file_size || tag + size > length) return 0;

  auto field = [&](u32 at) {
    std::array<u8, 4> word;
    std::memcpy(word.data(), buffer + at, 4);
    if (at == first_field) word[0] = 0;
    return BigEndian2int32u(word.data());
  };
  u32 at = first_field;
  u32 frames = 0;
  u32 bytes = 0;
  if ((flags & XING_FRAMES) != 0) {
    frames = field(at);
    at += 4;
  }
  if ((flags & XING_BYTES) != 0) bytes = field(at);
  if (static_cast<s32>(frames) <= 0) return 0;
  const u32 frame_bytes = (bytes != 0 ? bytes : file_size) / frames;
  return frame_bytes * sample_rate / XING_RATE_DIVISOR;
}

// The block of the search through the file and how much of it, from the
// front, holds bytes of the file; the rest reads as zero.
struct Block {
  MAIOSFile *file;
  std::array<u8, MPA_BLOCK_SIZE> bytes;
  u32 valid;
};

// Reads up to `count` bytes into `at` and zeroes what the file did not fill.
u32 read_into(MAIOSFile *file, std::span<u8, MPA_BLOCK_SIZE> block, u32 at, u32 count) {
  const u32 got = MAIOSFileRead(file, block.data() + at, count);
  const u32 filled = std::min(got, count);
  std::memset(block.data() + at + filled, 0, count - filled);
  return filled;
}

// Moves the last `keep` bytes of the block to its front and reads
// SLIDE_READ bytes of the file behind them; returns the count read.
u32 slide(MAIOSFile *file, std::span<u8, MPA_BLOCK_SIZE> block, u32 keep) {
  std::memmove(block.data(), block.data() + MPA_BLOCK_SIZE - keep, keep);
  return read_into(file, block, keep, SLIDE_READ);
}

void slide(Block &b, u32 keep) {
  const u32 start = MPA_BLOCK_SIZE - keep;
  const u32 kept = b.valid > start ? b.valid - start : 0;
  const u32 got = slide(b.file, b.bytes, keep);
  b.valid = kept < keep ? kept : keep + got;
}

void load(Block &b, u64 position) {
  MAIOSFileSeek(b.file, position, MAIOS_SEEK_SET);
  b.valid = read_into(b.file, b.bytes, 0, MPA_BLOCK_SIZE);
}

// The second header one frame behind a first one at `pos` agreed with it:
// average the bit rate over sampled places of the data.
u32 sample_bitrate(Block &b, MediaInfo *record, const u8 *second, u32 reference, u32 data_start) {
  AudioStreamInfo &audio = record->audio[0];
  audio.audio_channels = GetChannels(second);
  audio.audio_sample_rate = GetSamplingRate(second);
  const u32 data_length = record->file_size - data_start;
  record->bits_per_sample = data_length;
  // From 25 % to 72.5 % of the data in steps of 2.5 %, on 512-byte
  // boundaries. The block is not read here: a round sees the sampled
  // place only once SearchTwoHeader reads behind a frame.
  u32 sum = 0;
  u32 frames = 0;
  for (u32 i = 0; i < SAMPLE_ROUNDS; ++i) {
    const u32 at = ((data_length * (10 + i)) / 40) & ~(SECTOR - 1);
    MAIOSFileSeek(b.file, static_cast<u64>(at) + data_start, MAIOS_SEEK_SET);
    const u32 pair = SearchTwoHeader(b.file, record, b.bytes, reference);
    if (pair > 0) {
      sum += pair;
      frames += 2;
    }
  }
  if (frames == 0) return 0;
  audio.audio_bitrate = (sum / frames) * 1000;
  return 1;
}

}  // namespace

u32 Mpa_prescan(MAIOSFile *, const u8 *buffer, u32 length, MediaInfo *record) {
  if (buffer == nullptr) return 0;
  // An ID3v2 tag of any version in front of the audio is skipped whole.
  u32 start = 0;
  if (length >= 3 && buffer[0] == 'I' && buffer[1] == 'D' && buffer[2] == '3') {
    if (length < ID3_HEADER_SIZE) return 0;
    start = synchsafe32(buffer + 6) + ID3_HEADER_SIZE;
  }
  const u32 first = find_sync(buffer, length, start);
  if (first == NOT_FOUND) return 0;

  // Confirm the stream by further syncs: frame lengths are not checked,
  // only that the sync pattern keeps turning up.
  const u32 further = std::min(length / SYNCS_PER_BYTES, MAX_FURTHER_SYNCS);
  u32 from = first;
  for (u32 i = 0; i <= further; ++i) {
    const u32 found = find_sync(buffer, length, from);
    if (found == NOT_FOUND || length - found < 4) return 0;
    from = found + 1;
  }

  const u8 *header = buffer + first;
  AudioStreamInfo &audio = record->audio[0];
  const u32 layer = mpa_layer(header);
  if (layer == 0) return 0;
  audio.audio_codec = mpa_codec_by_layer[layer];
  const RateTables tables = rate_tables(mpa_version(header), layer);
  if (tables.bitrates == nullptr) return 0;
  audio.audio_bitrate = (*tables.bitrates)[mpa_bitrate_index(header)] * 1000;
  audio.audio_sample_rate = (*tables.sample_rates)[mpa_sample_rate_index(header)];
  audio.audio_channels = GetChannels(header);

  const u32 vbr = xing_bitrate(buffer, length, first, record->file_size, audio.audio_sample_rate);
  if (vbr != 0) audio.audio_bitrate = vbr;

  // The whole file is timed, tags included.
  if (audio.audio_bitrate == 0) return 0;
  record->play_time = mpa_play_time(record->file_size, audio.audio_bitrate);
  if (record->play_time == 0) return 0;
  record->audio_count = 1;
  return 1;
}

u32 SearchTwoHeader(MAIOSFile *handle, MediaInfo *record, std::span<u8, MPA_BLOCK_SIZE> block, u32 reference) {
  for (u32 at = 0; at < SAMPLE_SEARCH; ++at) {
    const u8 *header = block.data() + at;
    if (CheckValidHeader(header) == 0) continue;
    if ((GetHeaderInfo(header) & MPA_SAME_STREAM_MASK) != (reference & MPA_SAME_STREAM_MASK)) continue;
    const u32 rate = GetBitrate(header);
    u32 next = at + GetFrameSize(record, header);
    if (next >= HEADER_LIMIT) {
      slide(handle, block, HEADER_KEEP);
      next -= HEADER_LIMIT;
    }
    const u8 *second = block.data() + next;
    if (CheckValidHeader(second) != 0) return rate + GetBitrate(second);
  }
  return 0;
}

u32 GetHeaderPosition(MAIOSFile *handle, MediaInfo *record) {
  Block b{handle, {}, 0};
  load(b, 0);

  // Audio data start: behind an ID3v2.3 tag, else the start of the file.
  u32 data_start = 0;
  u32 pos = 0;
  const u32 tag = CheckID3V2Tag(b.bytes);
  if (tag != 0) {
    data_start = tag + ID3_HEADER_SIZE;
    if (data_start <= SCAN_LIMIT + 1) {
      pos = data_start;
    } else if (data_start <= 2 * (SCAN_LIMIT + 1)) {
      slide(b, SLIDE_KEEP);
      pos = data_start - SLIDE_READ;
    } else {
      // Start in the 512-byte sector of the data start, at the data
      // start's offset within 256 bytes: up to 256 bytes early.
      load(b, data_start & ~(SECTOR - 1));
      pos = data_start & 255;
    }
  }

  u32 file_pos = data_start;  // advances with the scan
  u32 budget = SEARCH_BUDGET;
  for (;; ++pos, ++file_pos) {
    if (pos > SCAN_LIMIT) {
      slide(b, SLIDE_KEEP);
      pos -= SLIDE_READ;
    }
    if (pos >= b.valid) return 0;  // the end of the file
    const u8 *header = b.bytes.data() + pos;
    if (header[0] == 0x00) {
      // No header starts with a zero byte, and zeros cost nothing: the scan
      // moves on to the last zero of the run before the next slide point
      // or the end of the data, and the loop steps past it.
      const u32 end = std::min(SCAN_LIMIT + 1, b.valid);
      const u32 run = first_nonzero(b.bytes.data(), pos, end) - pos;
      pos += run - 1;
      file_pos += run - 1;
      continue;
    }
    // Runs of 0x00 and 0xFF (silence, padding) cost nothing.
    if (header[0] != 0xFF && --budget == 0) return 0;
    if (CheckValidHeader(header) == 0) continue;

    // A Xing or VBRI header gives the frame count, and with it the mean
    // bit rate over the audio data.
    u32 samples = 0;
    const u32 frames = DecodeVBRHeader(std::span<const u8>(b.bytes).subspan(pos), &samples);
    if (frames != 0) {
      AudioStreamInfo &audio = record->audio[0];
      audio.audio_codec = mpa_codec_by_layer[mpa_layer(header)];
      audio.audio_channels = GetChannels(header);
      audio.audio_sample_rate = GetSamplingRate(header);
      const u32 data_length = record->file_size - data_start;
      record->bits_per_sample = data_length;
      audio.audio_bitrate = ((data_length / frames) * audio.audio_sample_rate) / (samples / 8);
      return audio.audio_bitrate != 0 ? 1 : 0;
    }

    // Otherwise the next frame must follow one frame length on.
    const u32 reference = GetHeaderInfo(header);
    u32 next = pos + GetFrameSize(record, header);
    if (next > HEADER_LIMIT - 1) {
      slide(b, HEADER_KEEP);
      next -= HEADER_LIMIT;
    }
    const u8 *second = b.bytes.data() + next;
    if (CheckValidHeader(second) != 0 &&
        (GetHeaderInfo(second) & MPA_SAME_STREAM_MASK) == (reference & MPA_SAME_STREAM_MASK))
      return sample_bitrate(b, record, second, reference, data_start);

    // A false sync: read the block again where the scan stood.
    load(b, file_pos & ~(SECTOR - 1));
    pos = file_pos & (SECTOR - 1);
  }
}

u32 Mpa_prescan2(MediaInfo *record, const char *path) {
  MAIOSFile *file = MAIOSFileOpenForRead(path);
  if (file == nullptr) return 0;
  u32 found = 0;
  if (file->status == 0) found = GetHeaderPosition(file, record);
  MAIOSFileClose(file);
  if (found == 0) return 0;
  record->audio_count = 1;
  record->play_time = mpa_play_time(record->bits_per_sample, record->audio[0].audio_bitrate);
  return found;
}
