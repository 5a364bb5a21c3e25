// Frame header decoding, the free-format rule and the bit-rate-change count.
#include <gtest/gtest.h>

#include "direct/mpadec/mpadec.h"

namespace {

struct HeaderCase {
  u32 word;
  int result;
  int layer, lsf, mpeg25, rate, rate_index, bit_rate, frame_size, channels, crc;
  const char *what;
};

const HeaderCase kHeaders[] = {
    {0xFFFB9064, 0, 3, 0, 0, 44100, 0, 128000, 417, 2, 0, "MPEG-1 layer III 128k joint"},
    {0xFFFB9264, 0, 3, 0, 0, 44100, 0, 128000, 418, 2, 0, "the same, padded"},
    {0xFFFA9064, 0, 3, 0, 0, 44100, 0, 128000, 417, 2, 1, "protected by a check word"},
    {0xFFFBE4C4, 0, 3, 0, 0, 48000, 1, 320000, 960, 1, 0, "MPEG-1 320k at 48 kHz mono"},
    {0xFFFB1800, 0, 3, 0, 0, 32000, 2, 32000, 144, 2, 0, "MPEG-1 32k at 32 kHz"},
    {0xFFF39064, 0, 3, 1, 0, 22050, 3, 80000, 261, 2, 0, "MPEG-2 layer III 80k"},
    {0xFFF31400, 0, 3, 1, 0, 24000, 4, 8000, 24, 2, 0, "MPEG-2 8k at 24 kHz"},
    {0xFFE318C4, 0, 3, 1, 1, 8000, 8, 8000, 72, 1, 0, "MPEG-2.5 8k at 8 kHz mono"},
    {0xFFE3E000, 0, 3, 1, 1, 11025, 6, 160000, 1044, 2, 0, "MPEG-2.5 160k at 11.025 kHz"},
    {0xFFFDC400, 0, 2, 0, 0, 48000, 1, 256000, 768, 2, 0, "MPEG-1 layer II 256k"},
    {0xFFFDEA00, 0, 2, 0, 0, 32000, 2, 384000, 1729, 2, 0, "largest frame: 384k at 32 kHz"},
    {0xFFF5A000, 0, 2, 1, 0, 22050, 3, 96000, 626, 2, 0, "MPEG-2 layer II 96k"},
    {0xFFFF1200, 0, 1, 0, 0, 44100, 0, 32000, 36, 2, 0, "layer I 32k, padded by one slot"},
    {0xFFFFE800, 0, 1, 0, 0, 32000, 2, 448000, 672, 2, 0, "layer I 448k at 32 kHz"},
    {0xFFF7E000, 0, 1, 1, 0, 22050, 3, 256000, 556, 2, 0, "MPEG-2 layer I 256k"},
    {0xFFFB0064, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "free format before its size is known"},
    {0xFFFBF064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "reserved bit-rate index"},
    {0xFFFB9C64, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "reserved sampling-rate index"},
    {0xFFF99064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "reserved layer"},
    {0xFFEB9064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "reserved version"},
    {0x7FFB9064, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "broken sync"},
    {0xFFE5E800, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, "a frame beyond the assembly buffer"},
};

TEST(MpaHeader, DecodesEveryField) {
  for (const HeaderCase &c : kHeaders) {
    SCOPED_TRACE(c.what);
    MpaState s{};
    MpaHeader hd{};
    ASSERT_EQ(mpa_parse_header(&s, c.word, &hd), c.result);
    if (c.result != 0) continue;
    EXPECT_EQ(hd.layer, c.layer);
    EXPECT_EQ(hd.lsf, c.lsf);
    EXPECT_EQ(hd.mpeg25, c.mpeg25);
    EXPECT_EQ(hd.sample_rate, c.rate);
    EXPECT_EQ(hd.rate_index, c.rate_index);
    EXPECT_EQ(hd.bit_rate, c.bit_rate);
    EXPECT_EQ(hd.frame_size, c.frame_size);
    EXPECT_EQ(hd.channels, c.channels);
    EXPECT_EQ(hd.crc, c.crc);
  }
}

TEST(MpaHeader, ModeAndEmphasisFields) {
  MpaState s{};
  MpaHeader hd{};
  ASSERT_EQ(mpa_parse_header(&s, 0xFFFB9077, &hd), 0);  // mode 1, extension 3, emphasis 3
  EXPECT_EQ(hd.mode, 1);
  EXPECT_EQ(hd.mode_ext, 3);
  EXPECT_EQ(hd.emphasis, 3);
  ASSERT_EQ(mpa_parse_header(&s, 0xFFFB9080, &hd), 0);  // dual channel
  EXPECT_EQ(hd.mode, 2);
  EXPECT_EQ(hd.channels, 2);
}

TEST(MpaHeader, FreeFormatUsesTheLearntSize) {
  struct Case {
    u32 word;
    u32 learnt;
    int frame_size, bit_rate;
  };
  const Case cases[] = {
      {0xFFFB0064, 400, 400, 122500},  // layer III, 44.1 kHz
      {0xFFFB0264, 400, 401, 122500},  // padded by one byte
      {0xFFF30064, 300, 300, 91875},   // MPEG-2: 300 x 22050 x 2 / 144
      {0xFFFD0400, 1000, 1000, 333333},  // layer II at 48 kHz
      {0xFFFF0200, 500, 504, 459375},  // layer I: padding adds a 4-byte slot
  };
  for (const Case &c : cases) {
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
  EXPECT_TRUE(mpa_same_stream(ref, ref));
  EXPECT_TRUE(mpa_same_stream(ref ^ 0x00010000, ref));  // check word present
  EXPECT_TRUE(mpa_same_stream(ref ^ 0x00000200, ref));  // padding
  EXPECT_TRUE(mpa_same_stream(ref ^ 0x000003FF, ref));  // private, mode .. emphasis
  EXPECT_FALSE(mpa_same_stream(ref ^ 0x00001000, ref));  // bit rate
  EXPECT_FALSE(mpa_same_stream(ref ^ 0x00000400, ref));  // sampling rate
  EXPECT_FALSE(mpa_same_stream(ref ^ 0x00020000, ref));  // layer
  EXPECT_FALSE(mpa_same_stream(ref ^ 0x00080000, ref));  // version
}

TEST(MpaHeader, FrameSamplesByLayerAndVersion) {
  MpaHeader hd{};
  const struct {
    int layer, lsf, samples;
  } cases[] = {{1, 0, 384}, {1, 1, 384}, {2, 0, 1152}, {2, 1, 1152}, {3, 0, 1152}, {3, 1, 576}};
  for (const auto &c : cases) {
    hd.layer = c.layer;
    hd.lsf = c.lsf;
    EXPECT_EQ(mpa_frame_samples(&hd), c.samples);
  }
}

TEST(MpaHeader, CountsBitRateChangesAndMarksVariableRate) {
  MpaState s{};
  MpaHeader hd{};
  g_mpa_stream_changed = 0;
  // The first header differs from the zeroed state's index.
  ASSERT_EQ(mpa_parse_header(&s, 0xFFFB9064, &hd), 0);
  mpa_commit_header(&s, &hd);
  EXPECT_EQ(s.bitrate_changes, 1);
  EXPECT_EQ(g_mpa_stream_changed, 1);
  g_mpa_stream_changed = 0;
  mpa_commit_header(&s, &hd);  // same rate: nothing counted
  EXPECT_EQ(s.bitrate_changes, 1);
  EXPECT_EQ(g_mpa_stream_changed, 0);
  EXPECT_EQ(s.last_frame_size, 417u);
  // Alternate 160k and 128k: the change met with the counter already at 11
  // marks the stream variable.
  for (int change = 2; change <= 13; ++change) {
    u32 word = change % 2 == 0 ? 0xFFFBA064 : 0xFFFB9064;
    ASSERT_EQ(mpa_parse_header(&s, word, &hd), 0);
    mpa_commit_header(&s, &hd);
    EXPECT_EQ(s.bitrate_changes, change);
    EXPECT_EQ(s.vbr, change >= 12 ? 1 : 0) << "change " << change;
  }
  EXPECT_EQ(s.bit_rate, 128000);
  EXPECT_EQ(s.frame_size, 417u);
  g_mpa_stream_changed = 0;
}

TEST(MpaHeader, MpegTwoPointFiveSwitchRaisesTheStreamFlag) {
  MpaState s{};
  MpaHeader hd{};
  ASSERT_EQ(mpa_parse_header(&s, 0xFFE318C4, &hd), 0);
  mpa_commit_header(&s, &hd);
  g_mpa_stream_changed = 0;
  ASSERT_EQ(mpa_parse_header(&s, 0xFFF318C4, &hd), 0);  // same index, MPEG-2
  mpa_commit_header(&s, &hd);
  EXPECT_EQ(g_mpa_stream_changed, 1);
  EXPECT_EQ(s.mpeg25, 0);
  g_mpa_stream_changed = 0;
}

}  // namespace
