// MPEG audio stream scan: header tables and decoders, the head buffer scan
// and the search through the file, over hand-built frames.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "info/mpeg_audio.h"
#include "info/mpeg_audio_tables.h"
#include "tests/support/fixtures.h"

namespace {

// Header field values (ISO 11172-3 / 13818-3) and the standards' rows.
constexpr u32 V25 = 0, V_RES = 1, V2 = 2, V1 = 3, L3 = 1, L2 = 2, L1 = 3, JOINT = 1, MONO = 3;
constexpr std::array<u32, 16> ISO_V1_L1 = {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0};
constexpr std::array<u32, 16> ISO_V1_L2 = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0};
constexpr std::array<u32, 16> ISO_V1_L3 = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0};
constexpr std::array<u32, 16> ISO_V2_L1 = {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0};
constexpr std::array<u32, 16> ISO_V2_L23 = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};
constexpr std::array<std::array<u32, 4>, 3> ISO_HZ = {{{11025, 12000, 8000, 0}, {22050, 24000, 16000, 0},
                                                       {44100, 48000, 32000, 0}}};  // 2.5, 2, 1

struct Hdr {
  u32 version = V1, layer = L3, rate = 9, sr = 0, mode = 0, padding = 0, emphasis = 0;
};

std::array<u8, 4> hdr(const Hdr &h) {
  return {0xFF, static_cast<u8>(0xE1 | (h.version << 3) | (h.layer << 1)),
          static_cast<u8>((h.rate << 4) | (h.sr << 2) | (h.padding << 1)), static_cast<u8>((h.mode << 6) | h.emphasis)};
}
void put(std::vector<u8> &b, size_t at, std::span<const u8> bytes) {
  if (b.size() < at + bytes.size()) b.resize(at + bytes.size());
  std::memcpy(&b[at], bytes.data(), bytes.size());
}
void put_be32(std::vector<u8> &b, size_t at, u32 v) {
  put(b, at, std::array<u8, 4>{u8(v >> 24), u8(v >> 16), u8(v >> 8), u8(v)});
}
void put_text(std::vector<u8> &b, size_t at, const char *t) {
  put(b, at, std::span(reinterpret_cast<const u8 *>(t), std::strlen(t)));
}
// `count` frames of `length` bytes: a header and zeros.
void put_frames(std::vector<u8> &b, size_t at, const Hdr &h, u32 length, u32 count) {
  for (u32 i = 0; i < count; ++i) put(b, at + i * length, hdr(h));
  b.resize(std::max(b.size(), at + size_t{length} * count));
}
std::vector<u8> id3v2(u32 major, u32 size) {
  return {'I', 'D', '3', u8(major), 0, 0, u8((size >> 21) & 0x7F), u8((size >> 14) & 0x7F), u8((size >> 7) & 0x7F),
          u8(size & 0x7F)};
}
void put_xing(std::vector<u8> &b, size_t tag, u32 flags, u32 frames, u32 bytes) {
  put_text(b, tag, "Xing");
  put_be32(b, tag + 4, flags);
  if (flags & 1) put_be32(b, tag + 8, frames);
  if (flags & 2) put_be32(b, tag + ((flags & 1) ? 12 : 8), bytes);
}
// Whole seconds, then the remainder over the bit rate, as the player shows it.
u32 play_ms(u32 bytes, u32 rate) { return (bytes / (rate / 8)) * 1000 + (bytes % (rate / 8)) * 1000 / rate; }

TEST(MpegAudioHeader, CheckValidHeaderAndFrameSize) {
  struct Case {
    std::array<u8, 4> bytes;
    u32 valid, length, tag;
  };
  const Case cases[] = {
      {hdr({}), 1, 417, 0x55},                                        // 144000 * 128 / 44100
      {hdr({.padding = 1}), 1, 418, 0x55},
      {hdr({.version = V2, .rate = 14, .sr = 2}), 1, 720, 0x55},      // 72000 * 160 / 16000
      {hdr({.version = V25, .rate = 8, .sr = 1, .padding = 1}), 1, 385, 0x55},
      {hdr({.layer = L2, .rate = 14, .sr = 1}), 1, 1152, 0x51},       // 144000 * 384 / 48000
      {hdr({.version = V2, .layer = L2, .rate = 14, .sr = 2}), 1, 1440, 0x51},
      {hdr({.version = V25, .layer = L2, .rate = 8}), 1, 417, 0x51},  // measured at 22050, not 11025 Hz
      {hdr({.layer = L1}), 0, 0, 0x50},
      {{0xFE, 0xFB, 0x90, 0}, 0, 417, 0x55},
      {{0xFF, 0xDB, 0x90, 0}, 0, 417, 0x55},                          // a sync bit missing
      {hdr({.layer = 0}), 0, 0, 0},
      {hdr({.version = V_RES}), 0, 0, 0x55},
      {hdr({.rate = 0}), 0, 0, 0x55},
      {hdr({.rate = 15}), 0, 0, 0x55},
      {hdr({.sr = 3}), 0, 0, 0x55},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(CheckValidHeader(c.bytes.data()), c.valid) << GetHeaderInfo(c.bytes.data());
    MediaInfo r{};
    EXPECT_EQ(GetFrameSize(&r, c.bytes.data()), c.length) << GetHeaderInfo(c.bytes.data());
    EXPECT_EQ(r.audio[0].audio_codec, c.tag);
  }
  EXPECT_EQ(GetBitrate(hdr({.layer = L2, .rate = 14}).data()), 320u);  // layer III rates for layer II
}

TEST(MpegAudioHeader, Id3v23TagSizeAndPlayTime) {
  const std::vector<std::pair<std::vector<u8>, u32>> tags = {
      {{'I', 'D', '3', 3, 0, 0xFF, 1, 2, 3, 4}, (1u << 21) | (2u << 14) | (3u << 7) | 4u},
      {{'I', 'D', '3', 4, 0, 0, 0, 0, 0x10, 0}, 0}, {{'I', 'D', '3', 2, 0, 0, 0, 0, 0x10, 0}, 0},
      {{'I', 'D', '3', 3, 0xFF, 0, 0, 0, 0x10, 0}, 0}, {{'I', 'D', '3', 3, 0, 0, 0, 0x80, 0x10, 0}, 0},
      {{'I', 'D', '3', 3, 0, 0, 0, 0, 0x10}, 0},
  };
  for (const auto &[bytes, size] : tags) EXPECT_EQ(CheckID3V2Tag(bytes), size);
  EXPECT_EQ(mpa_play_time(1000000, 128000), 62062u);  // 62 s, then 8000 bytes over 128000
  EXPECT_EQ(mpa_play_time(100, 7), 0u);
}

// ------------------------------------------------------ head buffer scan

MediaInfo head_scan(const std::vector<u8> &b, u32 file_size, u32 *result) {
  MediaInfo r{};
  r.file_size = file_size;
  *result = Mpa_prescan(nullptr, b.data(), static_cast<u32>(b.size()), &r);
  return r;
}
// `length` bytes with a header every 400 bytes.
std::vector<u8> synced(const Hdr &h, size_t length) {
  std::vector<u8> b(length, 0);
  for (size_t p = 0; p + 4 <= length; p += 400) put(b, p, hdr(h));
  return b;
}

TEST(MpegAudioHeadScan, FirstHeaderDecodedWithTheTablesOfItsVersionAndLayer) {
  struct Case {
    Hdr h;
    u32 result, tag, bitrate, rate, channels;
  };
  const Case cases[] = {
      {{}, 1, 0x55, 128000, 44100, 2},
      {{.rate = 14, .sr = 2, .mode = MONO}, 1, 0x55, 320000, 32000, 1},
      {{.layer = L2, .rate = 14, .sr = 1}, 1, 0x51, 384000, 48000, 2},
      {{.layer = L1, .rate = 14}, 1, 0x50, 448000, 44100, 2},
      {{.version = V2}, 1, 0x55, 80000, 22050, 2},
      {{.version = V2, .layer = L2, .rate = 14, .sr = 1}, 1, 0x51, 160000, 24000, 2},
      {{.version = V2, .layer = L1, .rate = 14, .sr = 2}, 1, 0x50, 256000, 16000, 2},
      {{.version = V25, .rate = 4, .mode = MONO}, 1, 0x55, 32000, 11025, 1},
      {{.version = V25, .rate = 1, .sr = 2}, 1, 0x55, 8000, 8000, 2},
      {{.version = V_RES}, 0, 0x55, 0, 0, 0},  // the tag stays behind
      {{.layer = 0}, 0, 0, 0, 0, 0},
      {{.rate = 0}, 0, 0x55, 0, 44100, 2},     // free format: no play time
  };
  for (const Case &c : cases) {
    u32 result = 9;
    const MediaInfo r = head_scan(synced(c.h, 4000), 160000, &result);
    EXPECT_EQ(result, c.result) << c.bitrate;
    EXPECT_EQ(r.audio[0].audio_codec, c.tag) << c.bitrate;
    EXPECT_EQ(r.audio[0].audio_bitrate, c.bitrate);
    EXPECT_EQ(r.audio[0].audio_sample_rate, c.rate) << c.bitrate;
    EXPECT_EQ(r.audio[0].audio_channels, c.channels) << c.bitrate;
    EXPECT_EQ(r.audio_count, c.result);
    EXPECT_EQ(r.play_time, c.result ? play_ms(160000, c.bitrate) : 0) << c.bitrate;
  }
}

TEST(MpegAudioHeadScan, ConfirmationCountsSyncsNotFrames) {
  struct Case {
    size_t length;
    u32 syncs;      // sync patterns placed, 7 bytes apart
    size_t last;    // where the last one goes, when not 7 bytes on
    u32 result;
  };
  // One more sync per 1000 bytes of buffer, at most 128; all of them at
  // least four bytes before the end.
  const Case cases[] = {
      {999, 1, 0, 1},         {5000, 6, 0, 1},          {5000, 5, 0, 0},     {1999, 2, 1995, 1},
      {1999, 2, 1996, 0},     {200000, 129, 0, 1},      {200000, 128, 0, 0}, {1048576, 129, 0, 1},
      {1048576, 128, 0, 0},
  };
  for (const Case &c : cases) {
    std::vector<u8> b(c.length, 0);
    put(b, 0, hdr({}));
    for (u32 i = 1; i < c.syncs; ++i) put(b, i + 1 == c.syncs && c.last ? c.last : i * 7, std::array<u8, 2>{0xFF, 0xE0});
    u32 result = 9;
    head_scan(b, 1000000, &result);
    EXPECT_EQ(result, c.result) << c.length << " " << c.syncs;
  }
  // A header too close to the end to be read whole.
  u32 result = 9;
  head_scan({0, 0, 0xFF, 0xFB, 0x90}, 100000, &result);
  EXPECT_EQ(result, 0u);
}

TEST(MpegAudioHeadScan, LeadingId3v2TagOfAnyVersionIsSkipped) {
  for (u32 major : {2u, 3u, 4u, 9u}) {
    std::vector<u8> b = id3v2(major, 300);
    put(b, 100, hdr({.version = V2, .sr = 1}));  // a stray sync inside the tag
    put_frames(b, 310, {.sr = 2}, 400, 8);
    u32 result = 9;
    EXPECT_EQ(head_scan(b, 100000, &result).audio[0].audio_sample_rate, 32000u) << major;
    EXPECT_EQ(result, 1u);
  }
  u32 result = 9;
  head_scan({'I', 'D', '3', 3, 0xFF, 0xFB, 0x90}, 100000, &result);  // no room for a size
  EXPECT_EQ(result, 0u);
}

TEST(MpegAudioHeadScan, XingHeaderGivesTheMeanBitRateOver144) {
  struct Case {
    Hdr h;
    size_t tag, length;
    u32 flags, frames, bytes, file_size, bitrate;
  };
  const Case cases[] = {
      {{}, 36, 4000, 0x03, 1000, 500000, 600000, 153125},             // 500 bytes * 44100 / 144
      {{}, 36, 4000, 0x0F, 1000, 500000, 600000, 153125},             // with TOC and quality
      {{}, 36, 4000, 0x01, 1000, 0, 400000, 122500},                  // no byte count: the file size
      {{}, 36, 4000, 0x03, 0x01000010, 160000, 600000, 3062500},      // count taken to 24 bits: 16
      {{.mode = MONO}, 21, 4000, 0x03, 100, 20000, 600000, 61250},
      {{.version = V2}, 21, 4000, 0x03, 100, 20000, 600000, 30625},  // 144 for MPEG-2 too
      {{.version = V25, .mode = MONO}, 13, 4000, 0x03, 50, 5000, 600000, 7656},
      {{}, 36, 4000, 0x02, 0, 20000, 600000, 128000},                 // no count: the header's rate
      {{}, 36, 4000, 0x0F, 1000, 500000, 155, 128000},                // 120-byte header past the file
      {{}, 36, 4000, 0x0F, 1000, 500000, 156, 153125},
      {{}, 36, 48, 0x01, 1000, 0, 600000, 183750},                    // count is the buffer's last word
      {{}, 36, 47, 0x01, 1000, 0, 600000, 128000},                    // count cut off
  };
  for (const Case &c : cases) {
    std::vector<u8> b = synced(c.h, 4000);
    put_xing(b, c.tag, c.flags, c.frames, c.bytes);
    b.resize(c.length);
    u32 result = 9;
    const MediaInfo r = head_scan(b, c.file_size, &result);
    EXPECT_EQ(r.audio[0].audio_bitrate, c.bitrate) << c.flags << " " << c.frames;
    EXPECT_EQ(r.play_time, play_ms(c.file_size, c.bitrate));
  }
}

// ------------------------------------------------ search through the file

struct File {
  MAIOSFile *handle;
  explicit File(const std::string &path) : handle(MAIOSFileOpenForRead(path.c_str())) {}
  ~File() { MAIOSFileClose(handle); }
};

MediaInfo search(const std::vector<u8> &bytes, u32 *result) {
  static int serial = 0;
  File f(fixtures::temp_file("search" + std::to_string(++serial) + ".mp3", bytes));
  MediaInfo r{};
  r.file_size = static_cast<u32>(bytes.size());
  *result = GetHeaderPosition(f.handle, &r);
  return r;
}

TEST(MpegAudioSearch, ChainedFramesAveragedWithLayerThreeRates) {
  struct Case {
    Hdr h;
    u32 length, tag, bitrate, rate, channels;
  };
  const Case cases[] = {
      {{}, 417, 0x55, 128000, 44100, 2},
      {{.layer = L2, .rate = 14, .sr = 1}, 1152, 0x51, 320000, 48000, 2},  // 384 kbit/s reads 320
      {{.layer = L2, .rate = 1, .sr = 2, .mode = MONO}, 144, 0x51, 32000, 32000, 1},
      {{.version = V2, .rate = 8, .mode = JOINT}, 208, 0x55, 64000, 22050, 2},
      {{.version = V2, .layer = L2, .rate = 8, .sr = 1}, 384, 0x51, 64000, 24000, 2},
      {{.version = V25, .rate = 4, .sr = 2, .mode = MONO}, 288, 0x55, 32000, 8000, 1},
      {{.rate = 12, .padding = 1}, 732, 0x55, 224000, 44100, 2},
  };
  for (const Case &c : cases) {
    std::vector<u8> b;
    put_frames(b, 0, c.h, c.length, 120);
    u32 result = 9;
    const MediaInfo r = search(b, &result);
    EXPECT_EQ(result, 1u) << c.length;
    EXPECT_EQ(r.audio[0].audio_codec, c.tag) << c.length;
    EXPECT_EQ(r.audio[0].audio_bitrate, c.bitrate) << c.length;
    EXPECT_EQ(r.audio[0].audio_sample_rate, c.rate) << c.length;
    EXPECT_EQ(r.audio[0].audio_channels, c.channels) << c.length;
    EXPECT_EQ(r.bits_per_sample, b.size());
  }
  // The rounds scan the block as it stands: ten 128 kbit/s frames at the
  // start set the rate of a file that is mostly 320 kbit/s.
  std::vector<u8> b;
  put_frames(b, 0, {}, 417, 10);
  put_frames(b, b.size(), {.rate = 14}, 1044, 200);
  u32 result = 9;
  EXPECT_EQ(search(b, &result).audio[0].audio_bitrate, 128000u);
}

TEST(MpegAudioSearch, HeadersThatDoNotChainArePassedOver) {
  // Pairs whose second header differs in a masked field, then a stream at
  // 48 kHz; the channel mode is not compared.
  for (const Hdr second : {Hdr{.sr = 2}, Hdr{.version = V2}, Hdr{.layer = L2}, Hdr{.emphasis = 1}, Hdr{.mode = JOINT}}) {
    std::vector<u8> b;
    for (u32 i = 0; i < 20; ++i) {
      put(b, i * 834, hdr({}));
      put(b, i * 834 + 417, hdr(second));
    }
    put_frames(b, 20 * 834, {.sr = 1}, 384, 100);
    u32 result = 9;
    const MediaInfo r = search(b, &result);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(r.audio[0].audio_sample_rate, second.mode == JOINT ? 44100u : 48000u) << second.version;
  }
}

TEST(MpegAudioSearch, VbrHeadersGiveTheMeanRateOverTheData) {
  struct Case {
    Hdr h;
    size_t tag;
    bool vbri;
    u32 frames, file_size, result, bitrate;
  };
  const Case cases[] = {
      {{}, 36, false, 500, 200000, 1, 122500},                              // 400 * 44100 / 144
      {{.version = V2}, 21, true, 100, 20000, 1, 61250},                    // 200 * 22050 / 72
      {{.version = V25, .sr = 2, .mode = MONO}, 13, false, 50, 5000, 1, 11111},
      {{.layer = L2}, 36, true, 1000, 400000, 1, 122500},
      {{.version = V25, .sr = 2}, 21, false, 100000, 8000, 0, 0},           // under 1 byte a frame
  };
  for (const Case &c : cases) {
    std::vector<u8> b(c.file_size, 0);
    put(b, 0, hdr(c.h));
    put_text(b, c.tag, c.vbri ? "VBRI" : "Xing");
    put_be32(b, c.tag + (c.vbri ? 14 : 8), c.frames);
    if (!c.vbri) put_be32(b, c.tag + 4, 1);
    put_frames(b, c.file_size - 4170, {}, 417, 10);  // a stream the search must not go on to
    u32 result = 9;
    const MediaInfo r = search(b, &result);
    EXPECT_EQ(result, c.result) << c.frames;
    EXPECT_EQ(r.audio[0].audio_bitrate, c.bitrate) << c.frames;
    EXPECT_EQ(r.audio[0].audio_sample_rate, GetSamplingRate(hdr(c.h).data()));
    EXPECT_EQ(r.audio[0].audio_channels, c.h.mode == MONO ? 1u : 2u);
    EXPECT_EQ(r.audio[0].audio_codec, c.h.layer == L2 ? 0x51u : 0x55u);
    EXPECT_EQ(r.bits_per_sample, c.file_size);
  }
}

TEST(MpegAudioSearch, DataStartBehindAnId3v23Tag) {
  struct Case {
    u32 tag;      // data start: tag + 10
    u32 planted;  // a VBR frame at 22050 Hz inside the tag, 0 for none
    u32 major;
    u32 rate;     // what the search reports
  };
  // Inside the first block, the slid block, or after a seek to the 512-byte
  // sector with the offset taken modulo 256: up to 256 bytes early.
  const Case cases[] = {
      {990, 0, 3, 48000},    {1526, 0, 3, 48000},   {1527, 0, 3, 48000},  {3062, 0, 3, 48000},
      {3063, 0, 3, 48000},   {70000, 0, 3, 48000},
      {4990, 4800, 3, 22050},  // start 5000 = 4608 + 392: scanned from 4744
      {4990, 4700, 3, 48000},
      {4096, 4100, 3, 48000},  // start 4106 = 4096 + 10: scanned from 4106
      {290, 100, 4, 22050},    // version 2.4 is not skipped: its bytes count as data
  };
  for (const Case &c : cases) {
    std::vector<u8> b = id3v2(c.major, c.tag);
    b.resize(c.tag + 10);
    if (c.planted != 0) {
      put(b, c.planted, hdr({.version = V2}));
      put_xing(b, c.planted + 21, 0x01, 10, 0);
    }
    put_frames(b, c.tag + 10, {.sr = 1}, 384, 100);
    u32 result = 9;
    const MediaInfo r = search(b, &result);
    EXPECT_EQ(result, 1u) << c.tag;
    EXPECT_EQ(r.audio[0].audio_sample_rate, c.rate) << c.tag << " " << c.planted;
    EXPECT_EQ(r.bits_per_sample, b.size() - (c.major == 3 ? c.tag + 10 : 0)) << c.tag;
    if (c.major == 4) {  // the head scan skips any version
      EXPECT_EQ(head_scan(b, static_cast<u32>(b.size()), &result).audio[0].audio_sample_rate, 48000u);
    }
  }
}

TEST(MpegAudioSearch, BudgetOfTenThousandOrdinaryBytesAndTheFileEnd) {
  struct Case {
    u32 runs, garbage, result;  // bytes of 0x00/0xFF runs, then of 0x55, before a stream
  };
  for (const Case &c : {Case{0, 9999, 1}, Case{0, 10000, 0}, Case{40000, 9999, 1}, Case{40000, 10000, 0},
                        Case{100000, 0, 1}}) {
    std::vector<u8> b;
    for (u32 i = 0; i < c.runs; ++i) b.push_back((i / 3) % 2 ? 0xFF : 0x00);
    b.resize(c.runs + c.garbage, 0x55);
    put_frames(b, b.size(), {}, 417, 60);
    u32 result = 9;
    search(b, &result);
    EXPECT_EQ(result, c.result) << c.runs << " " << c.garbage;
  }
  for (const auto &f : std::vector<std::vector<u8>>{{}, {0xFF, 0xFB, 0x90}, std::vector<u8>(5000, 0xFF),
                                                     std::vector<u8>(70000, 0), id3v2(3, 0x0FFFFFFF)}) {
    u32 result = 9;
    search(f, &result);
    EXPECT_EQ(result, 0u) << f.size();
  }
}

// Zero bytes cost no budget and start no header: a run of them of any
// length, across the places where the block slides on, is passed over,
// and one that runs to the end of the file ends the search.
TEST(MpegAudioSearch, ZeroRunsAcrossTheBlock) {
  for (size_t lead : {1u, 1536u, 1537u, 2043u, 2048u, 3072u, 65539u}) {
    std::vector<u8> b(lead, 0);
    put_frames(b, lead, {}, 417, 120);
    u32 result = 9;
    const MediaInfo r = search(b, &result);
    EXPECT_EQ(result, 1u) << lead;
    EXPECT_EQ(r.audio[0].audio_bitrate, 128000u) << lead;
  }
  for (size_t n : {1535u, 1536u, 2048u, 2049u}) {
    std::vector<u8> b{0x55};
    b.resize(n, 0);
    u32 result = 9;
    search(b, &result);
    EXPECT_EQ(result, 0u) << n;
  }
}

TEST(MpegAudioSearch, SearchTwoHeaderScansTheBlockAsItStands) {
  struct Case {
    size_t at;
    Hdr first;
    u32 next;
    Hdr second;
    Hdr reference;
    u32 sum;
  };
  const Case cases[] = {
      {0, {}, 417, {.rate = 14}, {}, 128 + 320},
      {1439, {}, 417, {}, {}, 256},  // the last place looked at
      {1440, {}, 417, {}, {}, 0},
      {100, {.sr = 1}, 384, {.sr = 1}, {}, 0},
      {100, {.rate = 14, .mode = MONO}, 1044, {.version = V2}, {}, 320 + 80},  // the second need not agree
      {100, {.layer = L2, .rate = 1}, 104, {}, {.layer = L2}, 32 + 128},
  };
  for (const Case &c : cases) {
    std::vector<u8> v(MPA_BLOCK_SIZE, 0);
    put(v, c.at, hdr(c.first));
    put(v, c.at + c.next, hdr(c.second));
    std::array<u8, MPA_BLOCK_SIZE> block{};
    std::memcpy(block.data(), v.data(), MPA_BLOCK_SIZE);
    MediaInfo r{};
    EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, GetHeaderInfo(hdr(c.reference).data())), c.sum) << c.at;
  }
  // A second header past 2043: the last 4 bytes move to the front and 1536
  // bytes are read from the file behind them, so 1400 + 1044 = 2444 is
  // read as byte 396 from the file position.
  std::vector<u8> file(4000, 0);
  put(file, 396, hdr({.version = V2, .rate = 3}));
  const std::string path = fixtures::temp_file("two_header.bin", file);
  for (const u32 position : {0u, 1u}) {
    File f(path);
    MAIOSFileSeek(f.handle, position, MAIOS_SEEK_SET);
    std::vector<u8> v(MPA_BLOCK_SIZE, 0);
    put(v, 1400, hdr({.rate = 14}));
    std::array<u8, MPA_BLOCK_SIZE> block{};
    std::memcpy(block.data(), v.data(), MPA_BLOCK_SIZE);
    MediaInfo r{};
    EXPECT_EQ(SearchTwoHeader(f.handle, &r, block, GetHeaderInfo(hdr({}).data())), position == 0 ? 320u + 24u : 0u);
  }
}

}  // namespace
