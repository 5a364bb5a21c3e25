// File name extension tests and the unaligned byte-order readers.
#include <gtest/gtest.h>

#include <array>
#include <string>

#include "info/byte_order.h"
#include "info/extensions.h"

namespace {

using Detector = u32 (*)(const char *);

struct Case {
  const char *name;
  Detector detector;
  u32 expected;
};

const Case cases[] = {
    {"clip.avi", is_avi, 1},       {"clip.AVI", is_avi, 1},      {"clip.Avi", is_avi, 1},
    {".avi", is_avi, 1},           {"avi", is_avi, 0},           {"clip.avi ", is_avi, 0},
    {"clipavi", is_avi, 0},        {"clip,avi", is_avi, 0},      {"clip.DivX", is_divx, 1},
    {".divx", is_divx, 1},         {"divx", is_divx, 0},         {"a.mpeg", is_mpeg, 1},
    {"a.mpeg", is_mpg, 0},         {"a.MPG", is_mpg, 1},         {"clip.Avi.mp3", is_mp3, 1},
    {"clip.Avi.mp3", is_avi, 0},   {"x.MP3", is_mp3, 1},         {"x.mp", is_mp3, 0},
    {"x.mp2", is_mp3, 0},          {"x.AC3", is_ac3, 1},         {"x.ac", is_ac3, 0},
    {"x.m4v", is_m4v, 1},          {"x.M2V", is_m2v, 1},         {"x.m1v", is_m2v, 0},
    {"x.FLAC", is_flac, 1},        {"x.lac", is_flac, 0},        {"x.wav", is_wav, 1},
    {"x.wma", is_wmv, 0},          {"x.WMA", is_wma, 1},         {"x.asf", is_asf, 1},
    {"x.vob", is_vob, 1},          {"x.ogg", is_ogg, 1},         {"x.mp4", is_mp4, 1},
    {"x.dat", is_dat, 1},          {"", is_dat, 0},              {"x.wmv", is_wmv, 1},
};

TEST(Extensions, MatchLastCharactersCaseInsensitively) {
  for (const Case &c : cases) EXPECT_EQ(c.detector(c.name), c.expected) << c.name;
}

// A digit of the extension is compared exactly: shifting it by the case
// distance must not match.
TEST(Extensions, DigitsCompareExactly) {
  std::string name = "x.mp3";
  name[4] = static_cast<char>('3' + ('a' - 'A'));
  EXPECT_EQ(is_mp3(name.c_str()), 0u);
  name = "x.mp\x13";  // '3' - 0x20
  EXPECT_EQ(is_mp3(name.c_str()), 0u);
}

TEST(ByteOrder, ReadsAtOddOffsets) {
  alignas(8) std::array<u8, 12> b = {0xAA, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88, 0xFF, 0, 0};
  const u8 *p = b.data() + 1;
  EXPECT_EQ(LittleEndian2int16u(p), 0x0201);
  EXPECT_EQ(LittleEndian2int32u(p), 0x04030201u);
  EXPECT_EQ(LittleEndian2int64u(p), 0x8807060504030201ull);
  EXPECT_EQ(LittleEndian2int64s(p), static_cast<s64>(0x8807060504030201ull));
  EXPECT_EQ(BigEndian2int16u(p), 0x0102);
  EXPECT_EQ(BigEndian2int32u(p), 0x01020304u);
  EXPECT_EQ(BigEndian2int64u(p), 0x0102030405060788ull);
  EXPECT_EQ(LittleEndian2int32s(b.data() + 6), static_cast<s32>(0xFF880706u));
  EXPECT_LT(BigEndian2int32s(b.data() + 8), 0);
  const u8 riff[] = {'R', 'I', 'F', 'F'};
  EXPECT_EQ(FourCC(riff), fourcc("RIFF"));
  EXPECT_EQ(fourcc("RIFF"), 0x46464952u);
}

}  // namespace
