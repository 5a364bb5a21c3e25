// AC-3 and DTS scans over hand-built sync frames.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "info/ac3_scan.h"
#include "tests/support/fixtures.h"

namespace {

// AC-3 sync frame start: sync word, crc1, fscod|frmsizecod, bsid 8|bsmod,
// then acmod and the optional fields in `bsi`.
std::vector<u8> ac3_header(u8 rate_byte, u8 bsi) { return {0x0B, 0x77, 0x12, 0x34, rate_byte, 0x40, bsi}; }

struct Scan {
  u32 result;
  MediaInfo record;
  std::string out;
};

template <typename F>
Scan scan(F f, const std::vector<u8> &data) {
  Scan s{0, {}, {}};
  testing::internal::CaptureStdout();
  s.result = f(nullptr, data.data(), static_cast<u32>(data.size()), &s.record);
  s.out = testing::internal::GetCapturedStdout();
  return s;
}

TEST(Ac3Scan, ChannelsFromAcmodAndLfe) {
  struct Case {
    u8 bsi;  // acmod (3 bits), then cmixlev, surmixlev, dsurmod as present, then lfeon
    u32 channels;
    bool dolby;
  };
  const Case cases[] = {
      {0x00, 2, false}, {0x10, 6, false},  // 1+1
      {0x20, 1, false}, {0x30, 6, false},  // 1/0
      {0x40, 2, false}, {0x44, 6, false},  // 2/0; a stereo stream with LFE reports six
      {0x50, 2, true},  {0x48, 2, false},  // dsurmod 2 is Dolby Surround, 1 is not
      {0x60, 3, false}, {0x78, 3, false}, {0x64, 6, false},  // 3/0: cmixlev before lfeon
      {0x98, 3, false}, {0x84, 6, false},                    // 2/1: surmixlev
      {0xBE, 4, false}, {0xA1, 6, false},                    // 3/1: both
      {0xD8, 4, false}, {0xC4, 6, false},                    // 2/2
      {0xFE, 5, false}, {0xE1, 6, false},                    // 3/2, 5.1
  };
  for (const Case &c : cases) {
    const Scan s = scan(Ac3_prescan, ac3_header(0x0A, c.bsi));
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(s.record.audio[0].audio_channels, c.channels) << std::hex << int(c.bsi);
    EXPECT_EQ(s.out, c.dolby ? "Dolby Digital" : "") << std::hex << int(c.bsi);
    EXPECT_EQ(s.record.audio[0].audio_codec, 0x2000u);
    EXPECT_EQ(s.record.audio_count, 1u);
    EXPECT_EQ(s.record.play_time, 0u);
  }
}

TEST(Ac3Scan, SampleRateAndBitRate) {
  struct Case {
    u8 rate_byte;  // fscod (2 bits), frmsizecod (6)
    u32 sample_rate, bitrate;
  };
  const Case cases[] = {{0x00, 48000, 32000},   {0x4E, 44100, 112000}, {0x8F, 32000, 112000},
                        {0x25, 48000, 640000},  {0x1E, 48000, 448000}, {0xC0, 0, 32000},
                        {0x26, 48000, 0},       {0x3F, 48000, 0}};
  for (const Case &c : cases) {
    const Scan s = scan(Ac3_prescan, ac3_header(c.rate_byte, 0x40));
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.sample_rate) << int(c.rate_byte);
    EXPECT_EQ(s.record.audio[0].audio_bitrate, c.bitrate) << int(c.rate_byte);
  }
}

TEST(Ac3Scan, FurtherSyncWordsWithin16KiB) {
  struct Case {
    u32 length;
    std::vector<u32> syncs;
    u32 result;
  };
  std::vector<u32> frames;  // 448 kbit/s at 48 kHz: 1792 bytes a frame
  for (u32 p = 0; p < 1048576 - 7; p += 1792) frames.push_back(p);
  // One further sync word per 10000 bytes, at most four.
  const Case cases[] = {
      {1048576, frames, 1},
      {1048576, {100}, 0},  // one sync, then 20 KiB and more of other data
      {1048576, {100, 4000, 8000, 12000, 16483}, 1},  // the last one 16383 bytes on
      {1048576, {100, 4000, 8000, 12000, 16484}, 0},
      {9999, {100}, 1},  // a short payload needs only the first
      {30000, {100, 200, 300}, 0},
      {30000, {100, 200, 300, 400}, 1},
      {10, {3}, 1},  // the header fits
      {10, {6}, 0},  // it does not
      {1000, {}, 0},
  };
  for (const Case &c : cases) {
    std::vector<u8> data(c.length, 0);
    for (u32 p : c.syncs) {
      const std::vector<u8> h = ac3_header(0x1C, 0x40);
      for (u32 i = 0; i < h.size() && p + i < c.length; ++i) data[p + i] = h[i];
    }
    const Scan s = scan(Ac3_prescan, data);
    EXPECT_EQ(s.result, c.result) << c.length << " " << c.syncs.size();
    if (s.result == 0) {
      EXPECT_EQ(s.record.audio[0].audio_codec, 0u);
    }
  }
}

// DTS core header: sync, then AMODE from byte 7 bits 3-0 and byte 8 bits
// 7-6, SFREQ byte 8 bits 5-2, RATE byte 8 bits 1-0 and byte 9 bits 7-5.
std::vector<u8> dts_header(u32 amode, u32 sfreq, u32 rate) {
  return {0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x7F, 0xF0, u8(0xF0 | (amode >> 2)),
          u8(((amode & 3) << 6) | (sfreq << 2) | (rate >> 3)), u8(((rate & 7) << 5) | 0x1F)};
}

TEST(DtsScan, CoreHeaderFields) {
  struct Case {
    u32 amode, sfreq, rate;
    u32 channels, sample_rate, bitrate;
  };
  const Case cases[] = {
      {9, 13, 24, 5, 48000, 1536000},  {2, 8, 22, 2, 44100, 1411200}, {15, 12, 28, 8, 24000, 3840000},
      {0, 1, 0, 1, 8000, 32000},       {5, 6, 9, 3, 11025, 320000},   {13, 11, 15, 7, 12000, 768000},
      {16, 0, 29, 0, 0, 0},            {63, 4, 31, 0, 0, 0},
  };
  for (const Case &c : cases) {
    std::vector<u8> data(20, 0x11);
    const std::vector<u8> h = dts_header(c.amode, c.sfreq, c.rate);
    std::copy(h.begin(), h.end(), data.begin() + 5);
    const Scan s = scan(Dts_prescan, data);
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(s.record.audio[0].audio_codec, 0x2001u);
    EXPECT_EQ(s.record.audio[0].audio_channels, c.channels) << c.amode;
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.sample_rate) << c.sfreq;
    EXPECT_EQ(s.record.audio[0].audio_bitrate, c.bitrate) << c.rate;
    EXPECT_EQ(s.record.audio_count, 1u);
  }
  std::vector<u8> cut = dts_header(9, 13, 24);
  cut.pop_back();
  EXPECT_EQ(scan(Dts_prescan, cut).result, 0u);
  EXPECT_EQ(scan(Dts_prescan, {0x7F, 0xFE, 0x80, 0x00, 0, 0, 0, 0, 0, 0, 0}).result, 0u);
}

}  // namespace
