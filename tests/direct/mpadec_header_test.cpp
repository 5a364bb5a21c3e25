// Frame header decoding, the free-format rule and the process-wide flag.
#include <gtest/gtest.h>

#include <vector>

#include "direct/mpadec/mpadec.h"

namespace {

struct HeaderCase {
  u32 word;
  int result, layer, lsf, mpeg25, rate, rate_index, bit_rate, frame_size, channels, crc;
};

TEST(MpaHeader, DecodesEveryFieldAndRefusesReservedValues) {
  const HeaderCase cases[] = {
      {0xFFFB9064, 0, 3, 0, 0, 44100, 0, 128000, 417, 2, 0},  // MPEG-1 layer III
      {0xFFFA9264, 0, 3, 0, 0, 44100, 0, 128000, 418, 2, 1},  // padded, check word
      {0xFFF31400, 0, 3, 1, 0, 24000, 4, 8000, 24, 2, 0},     // MPEG-2
      {0xFFE318C4, 0, 3, 1, 1, 8000, 8, 8000, 72, 1, 0},      // MPEG-2.5
      {0xFFFDEAC0, 0, 2, 0, 0, 32000, 2, 384000, 1729, 1, 0},  // largest frame, mono
      {0xFFF5A000, 0, 2, 1, 0, 22050, 3, 96000, 626, 2, 0},
      {0xFFFF1200, 0, 1, 0, 0, 44100, 0, 32000, 36, 2, 0},    // layer I, a 4-byte slot
      {0xFFF7E000, 0, 1, 1, 0, 22050, 3, 256000, 556, 2, 0},
      {0xFFFB0064, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0},   // free format, size unknown
      {0xFFFBF064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // reserved bit rate
      {0xFFFB9C64, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // reserved sampling rate
      {0xFFF99064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // reserved layer
      {0xFFEB9064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // reserved version
      {0x7FFB9064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // broken sync
      {0xFFE5E800, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // beyond the assembly buffer
  };
  for (const HeaderCase &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.word);
    MpaState s{};
    MpaHeader hd{};
    ASSERT_EQ(mpa_parse_header(&s, c.word, &hd), c.result);
    if (c.result != 0) continue;
    const int got[] = {hd.layer, hd.lsf, hd.mpeg25, hd.sample_rate, hd.rate_index,
                       hd.bit_rate, hd.frame_size, hd.channels, hd.crc};
    EXPECT_EQ(std::vector<int>(got, got + 9), std::vector<int>(&c.layer, &c.layer + 9));
  }
  MpaState s{};
  MpaHeader hd{};
  ASSERT_EQ(mpa_parse_header(&s, 0xFFFB9077, &hd), 0);  // mode 1, extension 3, emphasis 3
  EXPECT_EQ(hd.mode * 100 + hd.mode_ext * 10 + hd.emphasis, 133);
}

TEST(MpaHeader, FreeFormatUsesTheLearntSize) {
  const struct { u32 word, learnt; int frame_size, bit_rate; } cases[] = {
      {0xFFFB0264, 400, 401, 122500},    // layer III, padded by one byte
      {0xFFF30064, 300, 300, 91875},     // MPEG-2: 300 x 22050 x 2 / 144
      {0xFFFD0400, 1000, 1000, 333333},  // layer II at 48 kHz
      {0xFFFF0200, 500, 504, 459375},    // layer I: padding adds a 4-byte slot
  };
  for (const auto &c : cases) {
    MpaState s{};
    s.free_size = c.learnt;
    MpaHeader hd{};
    ASSERT_EQ(mpa_parse_header(&s, c.word, &hd), 0) << std::hex << c.word;
    EXPECT_EQ(hd.frame_size, c.frame_size) << std::hex << c.word;
    EXPECT_EQ(hd.bit_rate, c.bit_rate) << std::hex << c.word;
  }
}

TEST(MpaHeader, SameStreamIgnoresOnlyTheVaryingBits) {
  const u32 ref = 0xFFFB9064;
  for (u32 same : {0u, 0x00010000u, 0x00000200u, 0x000003FFu})  // check word, padding, mode ..
    EXPECT_TRUE(mpa_same_stream(ref ^ same, ref)) << std::hex << same;
  for (u32 other : {0x00001000u, 0x00000400u, 0x00020000u, 0x00080000u})  // rates, layer, version
    EXPECT_FALSE(mpa_same_stream(ref ^ other, ref)) << std::hex << other;
}

TEST(MpaHeader, BitRateAndVersionChangesRaiseTheStreamFlag) {
  MpaState s{};
  MpaHeader hd{};
  // The first header differs from the zeroed state; the last goes from
  // MPEG-2.5 to MPEG-2 at one bit-rate index.
  u32 last = 0;
  for (u32 word : {0xFFFB9064, 0xFFFB9064, 0xFFFBA064, 0xFFE318C4, 0xFFF318C4}) {
    const int changed = word != last;
    last = word;
    g_mpa_stream_changed = 0;
    ASSERT_EQ(mpa_parse_header(&s, word, &hd), 0);
    mpa_commit_header(&s, &hd);
    EXPECT_EQ(g_mpa_stream_changed, changed) << std::hex << word;
    EXPECT_EQ(s.frame_size, u32(hd.frame_size));
    EXPECT_EQ(s.last_frame_size, u32(hd.frame_size));
  }
  EXPECT_EQ(s.mpeg25, 0);
  g_mpa_stream_changed = 0;
}

}  // namespace
