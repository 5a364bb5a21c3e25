// Layer III Huffman decoding: trees from code tables, and whole granules
// written here with the present tables (pairs, escape-free regions, signs,
// the count1 quadruples and a quadruple running past the granule's end).
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "direct/mpadec/layer3_huffman.h"

#include "tests/direct/bit_writer.h"

namespace {

struct FrameWriter : BitWriter {
  void code(const MpaHuffCode &c) { put(c.code, c.length); }
};

class Huffman : public testing::Test {
 protected:
  void SetUp() override { mpa_build_huffman_tables(); }
};

TEST_F(Huffman, TreesDecodeEverySymbolOfTheirTable) {
  struct Table {
    const char *name;
    const MpaHuffCode *codes;
    int n;
  } tables[] = {{"pair table 1", kMpaPair1, 4}, {"quadruples A", kMpaQuadA, 16}, {"quadruples B", kMpaQuadB, 16}};
  for (const Table &t : tables) {
    SCOPED_TRACE(t.name);
    MpaHuffTree tree;
    ASSERT_TRUE(mpa_huff_build(&tree, t.codes, t.n));
    FrameWriter w;
    std::mt19937 rng(1);
    std::vector<int> syms;
    for (int i = 0; i < 300; ++i) {
      syms.push_back(int(rng() % u32(t.n)));
      w.code(t.codes[syms.back()]);
    }
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    for (int s : syms) ASSERT_EQ(mpa_huff_decode(&tree, &b), s);
    EXPECT_EQ(b.pos, w.bits);
  }
}

TEST_F(Huffman, QuadrupleTableBIsTheInvertedValue) {
  for (int v = 0; v < 16; ++v) {
    EXPECT_EQ(kMpaQuadB[v].code, 15 - v);
    EXPECT_EQ(kMpaQuadB[v].length, 4);
  }
}

TEST_F(Huffman, BuildRefusesCodesThatAreNotPrefixFree) {
  const MpaHuffCode dup[2] = {{0b01, 2}, {0b01, 2}};
  const MpaHuffCode prefix[2] = {{0b0, 1}, {0b01, 2}};
  const MpaHuffCode longer_first[2] = {{0b01, 2}, {0b0, 1}};
  MpaHuffTree t;
  EXPECT_FALSE(mpa_huff_build(&t, dup, 2));
  EXPECT_FALSE(mpa_huff_build(&t, prefix, 2));
  EXPECT_FALSE(mpa_huff_build(&t, longer_first, 2));
  EXPECT_TRUE(mpa_huff_build(&t, kMpaPair1, 4));
}

TEST_F(Huffman, IncompleteCodesAndExhaustedInputGiveNoSymbol) {
  const MpaHuffCode partial[2] = {{0b10, 2}, {0b11, 2}};
  MpaHuffTree t;
  ASSERT_TRUE(mpa_huff_build(&t, partial, 2));
  const u8 zeros[1] = {0x00};
  MpaBits b;
  mpa_bits_init(&b, zeros, 1);
  EXPECT_EQ(mpa_huff_decode(&t, &b), -1);
  const u8 ones[1] = {0xFF};
  mpa_bits_init(&b, ones, 1);
  b.end = 1;  // a single bit left
  EXPECT_EQ(mpa_huff_decode(&t, &b), -1);
}

// Writes a granule with table 1 in the big-value regions (or table 0 in the
// middle region) and quadruple table `quad`; returns the values written.
std::vector<s32> write_granule(FrameWriter &w, const MpaGranuleInfo &gi, int quads, std::mt19937 &rng) {
  std::vector<s32> vals(576, 0);
  int i = 0;
  for (; i < 2 * gi.big_values; i += 2) {
    int tn = gi.table_select[i < gi.region1_start ? 0 : i < gi.region2_start ? 1 : 2];
    if (tn == 0) continue;
    int x = int(rng() % 2), y = int(rng() % 2);
    w.code(kMpaPair1[x * 2 + y]);
    int sx = x ? int(rng() % 2) : 0, sy = y ? int(rng() % 2) : 0;
    if (x) w.put(u32(sx), 1);
    if (y) w.put(u32(sy), 1);
    vals[size_t(i)] = sx ? -x : x;
    vals[size_t(i + 1)] = sy ? -y : y;
  }
  const MpaHuffCode *quad = gi.count1table_select ? kMpaQuadB : kMpaQuadA;
  for (int q = 0; q < quads; ++q, i += 4) {
    int sym = int(rng() % 16);
    w.code(quad[sym]);
    for (int k = 0; k < 4; ++k) {
      int v = (sym >> (3 - k)) & 1;
      int s = v ? int(rng() % 2) : 0;
      if (v) w.put(u32(s), 1);
      vals[size_t(i + k)] = s ? -v : v;
    }
  }
  return vals;
}

TEST_F(Huffman, GranulesOfPairsAndQuadruples) {
  struct Case {
    const char *what;
    int big_values, t0, t1, t2, r1, r2, count1table, quads;
  } cases[] = {
      {"three regions of table 1, quadruples A", 100, 1, 1, 1, 36, 120, 0, 20},
      {"a silent middle region, quadruples B", 60, 1, 0, 1, 24, 80, 1, 30},
      {"no big values, quadruples only", 0, 1, 1, 1, 0, 0, 0, 144},
      {"big values to the end", 288, 1, 1, 1, 100, 300, 0, 0},
  };
  std::mt19937 rng(11);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    MpaGranuleInfo gi{};
    gi.big_values = c.big_values;
    gi.table_select[0] = c.t0;
    gi.table_select[1] = c.t1;
    gi.table_select[2] = c.t2;
    gi.region1_start = c.r1;
    gi.region2_start = c.r2;
    gi.count1table_select = c.count1table;
    FrameWriter w;
    w.put(0x5, 3);  // bits before the granule (the scale factors)
    std::vector<s32> expect = write_granule(w, gi, c.quads, rng);
    u32 end = w.bits;
    w.put(0, 32);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    mpa_bits_skip(&b, 3);
    std::vector<s32> is(576, 77);
    int count = mpa_huffman_granule(&b, end, &gi, is.data());
    EXPECT_EQ(count, 2 * c.big_values + 4 * c.quads);
    EXPECT_EQ(b.pos, end);
    for (int i = 0; i < 576; ++i) ASSERT_EQ(is[size_t(i)], expect[size_t(i)]) << i;
  }
}

TEST_F(Huffman, AQuadrupleRunningPastTheEndIsDropped) {
  MpaGranuleInfo gi{};
  gi.count1table_select = 1;  // four bits each
  FrameWriter w;
  w.code(kMpaQuadB[0b0000]);
  w.code(kMpaQuadB[0b1001]);
  w.put(0, 1);  // v positive
  w.put(1, 1);  // y negative
  u32 end = w.bits + 2;  // the granule ends inside the next quadruple
  w.code(kMpaQuadB[0b1111]);
  w.put(0, 8);
  MpaBits b;
  mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
  std::vector<s32> is(576, 77);
  int count = mpa_huffman_granule(&b, end, &gi, is.data());
  EXPECT_EQ(count, 8);
  const s32 expect[8] = {0, 0, 0, 0, 1, 0, 0, -1};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(is[size_t(i)], expect[i]) << i;
  for (int i = 8; i < 576; ++i) ASSERT_EQ(is[size_t(i)], 0);
  EXPECT_EQ(b.pos, end - 2);
}

TEST_F(Huffman, GranulesSelectingAMissingTableAreRefused) {
  MpaGranuleInfo gi{};
  gi.big_values = 10;
  gi.region1_start = gi.region2_start = 20;
  gi.table_select[0] = 4;  // never used by the standard
  u8 data[8] = {};
  MpaBits b;
  mpa_bits_init(&b, data, 8);
  s32 is[576];
  EXPECT_EQ(mpa_huffman_granule(&b, 64, &gi, is), -1);
}

}  // namespace
