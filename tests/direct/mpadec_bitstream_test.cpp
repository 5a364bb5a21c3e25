// The bit reader and the frame check word.
#include <gtest/gtest.h>

#include <array>

#include "direct/mpadec/bitstream.h"

namespace {

TEST(MpaBits, ReadsFieldsMostSignificantBitFirstAndZerosPastTheEnd) {
  // 1010 0101 0011 1100 1111 1111 0000 0001 1000 0000
  const std::array<u8, 5> data = {0xA5, 0x3C, 0xFF, 0x01, 0x80};
  const int bits[] = {1, 3, 4, 0, 6, 10, 7, 2, 1, 6, 8, 16};
  const u32 values[] = {1, 2, 5, 0, 0x0F, 0x0FF, 0, 3, 0, 0, 0, 0};
  MpaBits b;
  mpa_bits_init(&b, data.data(), data.size());
  u32 pos = 0;
  for (size_t i = 0; i < std::size(bits); ++i) {
    EXPECT_EQ(mpa_bits_peek(&b, bits[i]), values[i]) << "at bit " << pos;
    EXPECT_EQ(mpa_bits_read(&b, bits[i]), values[i]) << "at bit " << pos;
    pos = std::min(pos + u32(bits[i]), 40u);
    EXPECT_EQ(mpa_bits_left(&b), 40 - pos);
  }
  // Whole words at every alignment; a read straddling the end pads with zeros.
  for (u32 offset = 0; offset < 8; ++offset) {
    mpa_bits_init(&b, data.data(), data.size());
    mpa_bits_skip(&b, offset);
    EXPECT_EQ(mpa_bits_read(&b, 32), u32(0xA53CFF0180ull >> (8 - offset)) & 0xFFFFFFFFu) << offset;
    EXPECT_EQ(mpa_bits_read(&b, 16), u32(0x80 << 8 << offset) & 0xFFFFu) << offset;
  }
}

TEST(MpaCrc, CheckValueArbitraryBitCountsAndChaining) {
  // CRC-16 x^16+x^15+x^2+1, initial 0xFFFF, no reflection: "123456789"
  // gives 0xAEE7; the reader is not advanced.
  MpaBits b;
  mpa_bits_init(&b, reinterpret_cast<const u8 *>("123456789"), 9);
  EXPECT_EQ(mpa_crc16_update(0xFFFF, &b, 72), 0xAEE7);
  EXPECT_EQ(b.pos, 0u);
  std::array<u8, 4> data = {0x12, 0x34, 0x56, 0x78};
  mpa_bits_init(&b, data.data(), data.size());
  u16 whole = mpa_crc16_update(0xFFFF, &b, 27);
  u16 first = mpa_crc16_update(0xFFFF, &b, 13);
  mpa_bits_skip(&b, 13);
  EXPECT_EQ(mpa_crc16_update(first, &b, 14), whole);
  data[3] ^= 0x10;  // bit 27 lies outside the span
  mpa_bits_init(&b, data.data(), data.size());
  EXPECT_EQ(mpa_crc16_update(0xFFFF, &b, 27), whole);
  data[3] ^= 0x20;  // bit 26 lies inside
  EXPECT_NE(mpa_crc16_update(0xFFFF, &b, 27), whole);
}

}  // namespace
