// Layer III Huffman decoding: whole granules written here with every table
// (pairs, escapes, silent regions, signs, the count1 quadruples and a
// quadruple running past the granule's end), and broken codes and input.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "direct/mpadec/layer3_huffman.h"

#include "tests/direct/bit_writer.h"

// Designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

struct FrameWriter : BitWriter {
  void code(const MpaHuffCode &c) { put(c.code, c.length); }
};

class Huffman : public testing::Test {
 protected:
  void SetUp() override { mpa_build_huffman_tables(); }
};

// Writes a granule with the regions' tables (values up to the table's
// size, escapes up to its linbits) and quadruple table `quad`; returns the
// values written.
std::vector<s32> write_granule(FrameWriter &w, const MpaGranuleInfo &gi, int quads, std::mt19937 &rng) {
  std::vector<s32> vals(576, 0);
  int i = 0;
  // Writes the sign of a non-zero magnitude, gives the signed value.
  auto sign = [&](int v) {
    u32 negative = v ? rng() % 2 : 0;
    if (v) w.put(negative, 1);
    return negative ? -v : v;
  };
  for (; i < 2 * gi.big_values; i += 2) {
    int tn = gi.table_select[i < gi.region1_start ? 0 : i < gi.region2_start ? 1 : 2];
    if (tn == 0) continue;
    const MpaPairTableDef &d = kMpaPairTables[tn];
    int lb = kMpaLinbits[tn], x = int(rng() % u32(d.size)), y = int(rng() % u32(d.size));
    w.code(d.codes[x * d.size + y]);
    for (int k = 0; k < 2; ++k) {
      int v = k ? y : x;
      if (lb && v == 15) {  // escape: linbits more of the magnitude
        int e = int(rng() % (1u << lb));
        w.put(u32(e), lb);
        v += e;
      }
      vals[size_t(i + k)] = sign(v);
    }
  }
  const MpaHuffCode *quad = gi.count1table_select ? kMpaQuadB : kMpaQuadA;
  for (int q = 0; q < quads; ++q, i += 4) {
    int sym = int(rng() % 16);
    w.code(quad[sym]);
    for (int k = 0; k < 4; ++k) vals[size_t(i + k)] = sign((sym >> (3 - k)) & 1);
  }
  return vals;
}

TEST_F(Huffman, GranulesOfPairsAndQuadruples) {
  // Every pair table, both quadruple tables, regions of every length
  // including none, a silent region and big values up to the end; where
  // `cut`, the granule ends two bits into one more quadruple, which is dropped.
  struct Case {
    int big_values, t0, t1, t2, r1, r2, count1table, quads, cut;
  } cases[] = {
      {100, 1, 1, 1, 36, 120, 0, 20, 1}, {60, 1, 0, 1, 24, 80, 1, 30, 1}, {0, 1, 1, 1, 0, 0, 0, 144, 0},
      {288, 1, 1, 1, 100, 300, 0, 0, 0}, {150, 2, 3, 5, 40, 100, 0, 10, 0}, {150, 6, 7, 8, 40, 100, 1, 10, 0},
      {150, 9, 10, 11, 40, 100, 0, 10, 0}, {200, 12, 13, 15, 60, 160, 1, 10, 0},
      {200, 16, 17, 18, 60, 160, 0, 10, 0}, {288, 19, 20, 21, 60, 200, 0, 0, 0},
      {288, 22, 23, 24, 60, 200, 1, 0, 0}, {288, 25, 26, 27, 60, 200, 0, 0, 0},
      {288, 28, 29, 30, 60, 200, 1, 0, 0}, {288, 31, 31, 31, 60, 200, 0, 0, 0},
  };
  std::mt19937 rng(11);
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "tables " << c.t0 << " " << c.t1 << " " << c.t2);
    const MpaGranuleInfo gi{.big_values = c.big_values, .table_select = {c.t0, c.t1, c.t2},
                            .count1table_select = c.count1table, .region1_start = c.r1, .region2_start = c.r2};
    FrameWriter w;
    w.put(0x5, 3);  // bits before the granule (the scale factors)
    std::vector<s32> expect = write_granule(w, gi, c.quads, rng);
    const u32 end = w.bits;
    w.code((c.count1table ? kMpaQuadB : kMpaQuadA)[15]);  // four non-zero values
    w.put(0, 32);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    mpa_bits_skip(&b, 3);
    std::vector<s32> is(576, 77);
    int count = mpa_huffman_granule(&b, end + (c.cut ? 2 : 0), &gi, is.data());
    EXPECT_EQ(count, std::min(576, 2 * c.big_values + 4 * c.quads));
    EXPECT_EQ(b.pos, end);
    for (int i = 0; i < 576; ++i) ASSERT_EQ(is[size_t(i)], expect[size_t(i)]) << i;
  }
}

TEST_F(Huffman, BrokenCodesTablesAndInputAreRefused) {
  MpaHuffTable t;
  const MpaHuffCode dup[2] = {{0b01, 2}, {0b01, 2}}, prefix[2] = {{0b0, 1}, {0b01, 2}},
                    longer_first[2] = {{0b01, 2}, {0b0, 1}}, partial[2] = {{0b10, 2}, {0b11, 2}};
  for (const MpaHuffCode *codes : {dup, prefix, longer_first}) EXPECT_FALSE(mpa_huff_build(&t, codes, 2, 0));
  EXPECT_TRUE(mpa_huff_build(&t, kMpaPair1, 4, 2));
  // An incomplete code and exhausted input give no symbol.
  ASSERT_TRUE(mpa_huff_build(&t, partial, 2, 0));
  const u8 data[8] = {0x00, 0xFF};
  MpaBits b;
  mpa_bits_init(&b, data, 1);
  EXPECT_EQ(mpa_huff_decode(&t, &b), -1);
  mpa_bits_init(&b, data + 1, 1);
  b.end = 1;  // a single bit left
  EXPECT_EQ(mpa_huff_decode(&t, &b), -1);
  // A granule selecting a table the format does not define.
  const MpaGranuleInfo gi{.big_values = 10, .table_select = {4}, .region1_start = 20, .region2_start = 20};
  mpa_bits_init(&b, data, 8);
  s32 is[576];
  EXPECT_EQ(mpa_huffman_granule(&b, 64, &gi, is), -1);
}

}  // namespace
