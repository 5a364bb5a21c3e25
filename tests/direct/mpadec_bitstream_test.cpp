// The bit reader and the frame check word.
#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "direct/mpadec/bitstream.h"

namespace {

TEST(MpaBits, ReadsFieldsMostSignificantBitFirst) {
  const std::array<u8, 5> data = {0xA5, 0x3C, 0xFF, 0x01, 0x80};
  struct Step {
    int bits;
    u32 value;
  };
  // 1010 0101 0011 1100 1111 1111 0000 0001 1000 0000
  const Step steps[] = {{1, 1},   {3, 2},     {4, 5},  {0, 0},  {6, 0x0F},
                        {10, 0x0FF}, {7, 0}, {2, 3}, {1, 0}, {6, 0}};
  MpaBits b;
  mpa_bits_init(&b, data.data(), data.size());
  u32 pos = 0;
  for (const Step &s : steps) {
    EXPECT_EQ(mpa_bits_peek(&b, s.bits), s.value) << "at bit " << pos;
    EXPECT_EQ(mpa_bits_read(&b, s.bits), s.value) << "at bit " << pos;
    pos += u32(s.bits);
    EXPECT_EQ(b.pos, pos);
    EXPECT_EQ(mpa_bits_left(&b), 40 - pos);
  }
}

TEST(MpaBits, ReadsWholeWordsAtEveryAlignment) {
  std::vector<u8> data(12);
  for (size_t i = 0; i < data.size(); ++i) data[i] = u8(0x11 * (i + 1) ^ 0x5A);
  for (u32 offset = 0; offset < 8; ++offset) {
    MpaBits b;
    mpa_bits_init(&b, data.data(), u32(data.size()));
    mpa_bits_skip(&b, offset);
    u64 wide = 0;
    for (int i = 0; i < 8; ++i) wide = (wide << 8) | data[size_t(i)];
    u32 expect = u32(wide >> (32 - offset));
    EXPECT_EQ(mpa_bits_read(&b, 32), expect) << "offset " << offset;
  }
}

TEST(MpaBits, ReadsBeyondTheEndGiveZeroBits) {
  const std::array<u8, 2> data = {0xFF, 0xFF};
  MpaBits b;
  mpa_bits_init(&b, data.data(), data.size());
  EXPECT_EQ(mpa_bits_read(&b, 12), 0xFFFu);
  EXPECT_EQ(mpa_bits_read(&b, 8), 0xF0u);  // four real bits, four past the end
  EXPECT_EQ(mpa_bits_left(&b), 0u);
  EXPECT_EQ(mpa_bits_read(&b, 16), 0u);
  EXPECT_EQ(mpa_bits_left(&b), 0u);
}

TEST(MpaCrc, MatchesTheCheckValueOfTheGenerator) {
  // CRC-16 x^16+x^15+x^2+1, initial 0xFFFF, no reflection: "123456789"
  // gives 0xAEE7.
  const char text[] = "123456789";
  MpaBits b;
  mpa_bits_init(&b, reinterpret_cast<const u8 *>(text), 9);
  EXPECT_EQ(mpa_crc16_update(0xFFFF, &b, 72), 0xAEE7);
  EXPECT_EQ(b.pos, 0u);  // the reader is not advanced
}

TEST(MpaCrc, CoversAnArbitraryBitCountAndChains) {
  const std::array<u8, 4> data = {0x12, 0x34, 0x56, 0x78};
  MpaBits b;
  mpa_bits_init(&b, data.data(), data.size());
  u16 whole = mpa_crc16_update(0xFFFF, &b, 27);
  u16 first = mpa_crc16_update(0xFFFF, &b, 13);
  mpa_bits_skip(&b, 13);
  EXPECT_EQ(mpa_crc16_update(first, &b, 14), whole);
  // A single flipped bit inside the covered span changes the result.
  std::array<u8, 4> flipped = data;
  flipped[3] ^= 0x20;  // bit 26
  MpaBits f;
  mpa_bits_init(&f, flipped.data(), flipped.size());
  EXPECT_NE(mpa_crc16_update(0xFFFF, &f, 27), whole);
  flipped[3] = u8(data[3] ^ 0x10);  // bit 27 lies outside the span
  EXPECT_EQ(mpa_crc16_update(0xFFFF, &f, 27), whole);
}

}  // namespace
