// Layer III stages against their definitions in double precision where the
// random frame test cannot look: side information read back field by field
// and its refusals, Huffman granules with every table and escape, the power
// law and its saturation, the MPEG-2 intensity stereo bands the reference
// decoder reads differently, and the IMDCT at the limits of its range.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/mpadec.h"
#include "tests/direct/bit_writer.h"

// Designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

// One granule's side information in stream order: part2_3_length,
// big_values, global_gain, scalefac_compress, window switching; then block
// type, mixed, two tables and three subblock gains, or three tables and
// two region counts; then preflag (MPEG-1 only), scalefac_scale and the
// quadruple table.
using Fields = std::vector<int>;
std::vector<int> widths(const Fields &f, int lsf) {
  std::vector<int> w = {12, 9, 8, lsf ? 9 : 4, 1};
  for (int n : f[4] ? std::vector<int>{2, 1, 5, 5, 3, 3, 3} : std::vector<int>{5, 5, 5, 4, 3}) w.push_back(n);
  if (!lsf) w.push_back(1);
  w.insert(w.end(), {1, 1});
  return w;
}
Fields fields(const MpaGranuleInfo &g, int lsf) {
  Fields f = {g.part2_3_length, g.big_values, g.global_gain, g.scalefac_compress, g.window_switching};
  if (g.window_switching)
    f.insert(f.end(), {g.block_type, g.mixed, g.table_select[0], g.table_select[1], g.subblock_gain[0],
                       g.subblock_gain[1], g.subblock_gain[2]});
  else
    f.insert(f.end(), {g.table_select[0], g.table_select[1], g.table_select[2], g.region0_count, g.region1_count});
  if (!lsf) f.push_back(g.preflag);
  f.insert(f.end(), {g.scalefac_scale, g.count1table_select});
  return f;
}

TEST(MpaSideInfo, ReadsEveryFieldAndTheRegionStartsOrRefuses) {
  const Fields lng = {1234, 200, 150, 9, 0, 15, 24, 7, 5, 3, 1, 0, 1},
               shrt = {800, 100, 140, 3, 1, 2, 0, 13, 6, 1, 2, 7, 0, 1, 0},
               mixed = {700, 150, 160, 5, 1, 2, 1, 9, 10, 4, 0, 2, 1, 0, 1},
               start = {4095, 288, 255, 15, 1, 1, 0, 31, 1, 0, 3, 0, 0, 1, 1},
               lsf_long = {2000, 100, 120, 511, 0, 1, 2, 3, 15, 7, 1, 0},
               lsf_short = {800, 100, 140, 3, 1, 2, 0, 13, 6, 1, 2, 7, 1, 0},
               no_type = {800, 100, 140, 3, 1, 0, 0, 13, 6, 1, 2, 7, 0, 1, 0},
               too_big = {1234, 289, 150, 9, 0, 15, 24, 7, 5, 3, 1, 0, 1};
  // Region starts in values, at most 2 x big_values: at 44.1 kHz counts 5
  // and 3 end regions at bands 6 and 10 (24 and 52); a switched granule's
  // first region ends at 36. At 22.05 kHz counts 15 and 7 reach band 16.
  const struct {
    int lsf, channels, rate_index;
    std::vector<const Fields *> granules;  // granule-major
    std::vector<int> region1, region2;     // none: refused
  } cases[] = {
      {0, 2, 0, {&lng, &shrt, &mixed, &start}, {24, 36, 36, 36}, {52, 200, 300, 576}},
      {0, 1, 0, {&start, &lng}, {36, 24}, {576, 52}},
      {1, 2, 3, {&lsf_long, &lsf_short}, {200, 36}, {200, 200}},
      {0, 1, 0, {&no_type, &lng}},
      {0, 1, 0, {&too_big, &lng}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "lsf " << c.lsf << " channels " << c.channels);
    const int scfsi = c.channels == 1 ? 0xA : 0x5C;
    BitWriter w;
    w.put({{300 >> c.lsf, c.lsf ? 8 : 9}, {c.channels, c.lsf ? c.channels : c.channels == 1 ? 5 : 3}});
    if (!c.lsf) w.put(u32(scfsi), 4 * c.channels);
    for (const Fields *f : c.granules)
      for (size_t i = 0; i < f->size(); ++i) w.put(u32((*f)[i]), widths(*f, c.lsf)[i]);
    ASSERT_EQ(w.bits, u32(mpa_side_info_bytes(c.lsf, c.channels)) * 8);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSideInfo si{};
    ASSERT_EQ(mpa_read_side_info(&b, &si, c.lsf, c.channels, c.rate_index), c.region1.empty() ? -1 : 0);
    if (c.region1.empty()) continue;
    EXPECT_EQ(b.pos, w.bits);
    EXPECT_EQ(si.main_data_begin, 300 >> c.lsf);
    EXPECT_EQ(si.private_bits, c.channels);
    for (int k = 0; !c.lsf && k < 4 * c.channels; ++k)
      EXPECT_EQ(si.scfsi[k / 4][k % 4], (scfsi >> (4 * c.channels - 1 - k)) & 1) << k;
    for (size_t k = 0; k < c.granules.size(); ++k) {
      const MpaGranuleInfo &g = si.gr[k / size_t(c.channels)][k % size_t(c.channels)];
      EXPECT_EQ(fields(g, c.lsf), *c.granules[k]) << "granule/channel " << k;
      EXPECT_EQ(g.window_switching ? g.table_select[2] : g.block_type + g.mixed, 0) << "fields not sent read as 0";
      EXPECT_EQ(g.region1_start, c.region1[k]) << k;
      EXPECT_EQ(g.region2_start, c.region2[k]) << k;
    }
  }
}

// Granules written with the tables' own codes: every pair table and both
// quadruple tables, every escape length, regions of every length including
// none, a silent region (table 0), big values up to the granule's end; the
// values come back with their signs, and the count of values up to the
// last one decoded. A quadruple that runs past the granule's end is dropped.
TEST(MpaHuffman, GranulesOfEveryTable) {
  mpa_build_huffman_tables();
  const struct { int big_values, t0, t1, t2, r1, r2, quad_b, quads, cut; } cases[] = {
      {100, 1, 1, 1, 36, 120, 0, 20, 1}, {60, 1, 0, 1, 24, 80, 1, 30, 1},     {0, 1, 1, 1, 0, 0, 0, 144, 0},
      {288, 1, 1, 1, 100, 300, 0, 0, 0}, {150, 2, 3, 5, 40, 100, 0, 10, 0},   {150, 6, 7, 8, 40, 100, 1, 10, 0},
      {150, 9, 10, 11, 40, 100, 0, 10, 0}, {200, 12, 13, 15, 60, 160, 1, 10, 0}, {200, 16, 17, 18, 60, 160, 0, 10, 0},
      {288, 19, 20, 21, 60, 200, 0, 0, 0}, {288, 22, 23, 24, 60, 200, 1, 0, 0}, {288, 25, 26, 27, 60, 200, 0, 0, 0},
      {288, 28, 29, 30, 60, 200, 1, 0, 0}, {288, 31, 31, 31, 60, 200, 0, 0, 0},
  };
  std::mt19937 rng(11);
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "tables " << c.t0 << " " << c.t1 << " " << c.t2);
    const MpaGranuleInfo gi{.big_values = c.big_values, .table_select = {c.t0, c.t1, c.t2},
                            .count1table_select = c.quad_b, .region1_start = c.r1, .region2_start = c.r2};
    BitWriter w;
    w.put(0x5, 3);  // bits before the granule (the scale factors)
    std::vector<s32> expect(576, 0);
    // Writes the sign of a non-zero magnitude; gives the signed value.
    auto sign = [&](int v) {
      const bool negative = v && rng() % 2;
      if (v) w.put(negative, 1);
      return negative ? -v : v;
    };
    int i = 0;
    for (; i < 2 * c.big_values; i += 2) {
      const int t = gi.table_select[i < c.r1 ? 0 : i < c.r2 ? 1 : 2];
      const MpaPairTableDef &d = kMpaPairTables[t];
      if (t == 0) continue;
      const int lin = kMpaLinbits[t], x = int(rng() % u32(d.size)), y = int(rng() % u32(d.size));
      w.put(d.codes[x * d.size + y].code, d.codes[x * d.size + y].length);
      for (int k = 0; k < 2; ++k) {
        int v = k ? y : x;
        if (lin && v == 15) {  // escape: linbits more bits of the magnitude
          const int e = int(rng() % (1u << lin));
          w.put(u32(e), lin);
          v += e;
        }
        expect[size_t(i + k)] = sign(v);
      }
    }
    const MpaHuffCode *quad = c.quad_b ? kMpaQuadB : kMpaQuadA;
    for (int q = 0; q < c.quads; ++q, i += 4) {
      const int sym = int(rng() % 16);
      w.put(quad[sym].code, quad[sym].length);
      for (int k = 0; k < 4; ++k) expect[size_t(i + k)] = sign((sym >> (3 - k)) & 1);
    }
    const u32 end = w.bits;
    w.put(quad[15].code, quad[15].length);  // four non-zero values
    w.put(0, 32);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    mpa_bits_skip(&b, 3);
    std::vector<s32> is(576, 77);
    const int count = mpa_huffman_granule(&b, end + (c.cut ? 2 : 0), &gi, is.data());
    EXPECT_EQ(count, std::min(576, 2 * c.big_values + 4 * c.quads));
    EXPECT_EQ(b.pos, end);
    EXPECT_EQ(is, expect);
  }
}

// A code word cut off by the end of the input gives no symbol; a granule
// that selects table 4 or 14, which the format does not define, is refused.
TEST(MpaHuffman, RefusesCutCodesAndMissingTables) {
  mpa_build_huffman_tables();
  const u8 data[8] = {0x00};
  MpaBits b;
  mpa_bits_init(&b, data, 1);
  b.end = 1;  // one bit of pair table 2's six-bit code 000000, (2, 2)
  EXPECT_EQ(mpa_huff_decode(mpa_pair_table(2), &b), -1);
  for (int table : {4, 14}) {
    const MpaGranuleInfo gi{.big_values = 10, .table_select = {table}, .region1_start = 20, .region2_start = 20};
    mpa_bits_init(&b, data, 8);
    s32 is[576];
    EXPECT_EQ(mpa_huffman_granule(&b, 64, &gi, is), -1) << table;
  }
}

// |n|^(4/3) x 2^(q/4) in Q28 over the whole range of magnitudes and gains,
// saturating beyond it.
TEST(MpaRequantize, PowerLawAndGainSaturate) {
  mpa_build_layer3_tables();
  for (int n : {0, 1, -1, 2, 3, -7, 15, 16, 100, -255, 1000, 4095, 8206})
    for (int q : {-210, -150, -100, -64, -40, -33, -17, -5, -1, 0, 3}) {
      const double expect = std::copysign(std::pow(std::abs(n), 4.0 / 3) * std::pow(2.0, q / 4.0) * (1 << 28), n);
      if (std::fabs(expect) >= 2147483647.0) continue;
      EXPECT_NEAR(mpa_requantize_value(n, q), expect, 0.5 + std::fabs(expect) * 1e-9) << n << " " << q;
    }
  EXPECT_EQ(mpa_requantize_value(8206, 40), 0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(-8206, 40), -0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(1, -400), 0);
}

// Left values hold one pattern, right values another up to `right_end`.
struct Granule {
  std::vector<s32> l = std::vector<s32>(576), r = std::vector<s32>(576);
  explicit Granule(int right_end) {
    for (int i = 0; i < 576; ++i) {
      l[size_t(i)] = s32((i % 13 - 6) * (1 << 22));
      r[size_t(i)] = i < right_end ? s32((i % 7 - 3) * (1 << 21)) : 0;
    }
  }
};

TEST(MpaJointStereo, MpegTwoIntensityScaleAndBandsWithoutAPosition) {
  // 22.05 kHz long bands 0 6 12 18 ...; right values end at 10, so
  // intensity starts at band 2 and mid/side, when on, covers bands 0-1. A
  // right factor at the largest value of its width is no position: that
  // band (3 here) takes mid/side when that is on, else stays. Odd positions
  // scale the left value, even ones the right, by 2^(-1/4) or 2^(-1/2) per
  // step as the intensity scale says.
  for (int scale = 0; scale <= 1; ++scale)
    for (int ms = 0; ms <= 1; ++ms) {
      SCOPED_TRACE(testing::Message() << "scale " << scale << " ms " << ms);
      const MpaHeader hd{.lsf = 1, .rate_index = 3, .mode = 1, .mode_ext = ms ? 3 : 1, .channels = 2};
      const MpaGranuleInfo gi{.scalefac_compress = scale};
      MpaScalefactors sf{};
      for (int b = 0; b < 22; ++b) sf.l[b] = u8(b), sf.max_l[b] = b == 3 ? 3 : 31;
      const Granule in(10);
      Granule out = in;
      mpa_joint_stereo(out.l.data(), out.r.data(), 10, &hd, &gi, &sf);
      const double step = scale ? std::pow(2.0, -0.5) : std::pow(2.0, -0.25);
      for (int i = 0; i < 36; ++i) {
        const int pos = i / 6;
        const double m = in.l[size_t(i)], s = in.r[size_t(i)];
        double l = m, r = s;  // bands 0, 1 and 3: mid/side or nothing
        if (ms && (pos < 2 || pos == 3)) l = (m + s) / std::sqrt(2.0), r = (m - s) / std::sqrt(2.0);
        if (pos == 2 || pos == 4 || pos == 5)
          l = m * (pos & 1 ? std::pow(step, (pos + 1) / 2) : 1.0), r = m * (pos & 1 ? 1.0 : std::pow(step, pos / 2));
        ASSERT_NEAR(out.l[size_t(i)], l, 1.0) << i;
        ASSERT_NEAR(out.r[size_t(i)], r, 1.0) << i;
      }
    }
}

// The IMDCT: every block type and mixed blocks, windows, overlap and
// frequency inversion, spectra ending at every kind of subband edge (the
// transform skips the zero top), values at the ends of the Q28 range, and
// saturated input after alias reduction. Tolerance: a PCM step is 2^13 Q28
// units; rounding (doubled by the recurrences) stays below 16 units and the
// constants' rounding below 2^-25 of the block's magnitude sum. A lost bit
// of headroom is off by millions of units; an input scaled down a few bits
// is off by tens on quiet spectra.

const double kPi = std::acos(-1.0);

// One subband's 36 windowed outputs from the IMDCT's definition:
// x_i = sum_k X_k cos(pi/2n (2i + 1 + n/2)(2k + 1)), n = 36 under the
// normal (0), start (1) or stop (3) window, or three interleaved n = 12
// blocks under the short window, placed at 6, 12 and 18.
void reference_block(const s32 *X, int type, double *y) {
  auto sine = [](int n, int i) { return std::sin(kPi / n * (i + 0.5)); };
  for (int i = 0; i < 36; ++i) {
    double s = 0;
    for (int k = 0; type != 2 && k < 18; ++k) s += X[k] * std::cos(kPi / 72 * (2 * i + 19) * (2 * k + 1));
    const double start = i < 18 ? sine(36, i) : i < 24 ? 1 : i < 30 ? sine(12, i - 18) : 0;
    const double stop = i >= 18 ? sine(36, i) : i < 6 ? 0 : i < 12 ? sine(12, i - 6) : 1;
    y[i] = s * (type == 1 ? start : type == 3 ? stop : sine(36, i));
  }
  for (int w = 0; type == 2 && w < 3; ++w)
    for (int i = 0; i < 12; ++i) {
      double s = 0;
      for (int k = 0; k < 6; ++k) s += X[3 * k + w] * std::cos(kPi / 24 * (2 * i + 7) * (2 * k + 1));
      y[6 + 6 * w + i] += s * sine(12, i);
    }
}

// A channel's filter bank run through the decoder and the reference granule
// by granule; every output sample and the new tail are checked.
class Channel {
 public:
  void granule(const std::vector<s32> &xr, int type, int mixed) {
    s32 out[18][32];
    mpa_imdct_granule(xr.data(), overlap_, type, mixed, out);
    for (int sb = 0; sb < 32; ++sb) {
      double y[36], l1 = 0;
      reference_block(&xr[size_t(18 * sb)], mixed && sb < 2 ? 0 : type, y);
      for (int k = 0; k < 18; ++k) l1 += std::fabs(double(xr[size_t(18 * sb + k)]));
      for (int i = 0; i < 18; ++i) {
        const double v = (sb % 2 == 1 && i % 2 == 1 ? -1 : 1) * (y[i] + tail_[sb][i]);  // frequency inversion
        tail_[sb][i] = y[18 + i];
        ASSERT_NEAR(out[i][sb], v, 16.0 + (l1 + l1_[sb]) / (1 << 25)) << "granule " << n_ << " sb " << sb << " i " << i;
        ASSERT_NEAR(overlap_[sb][i], tail_[sb][i], 16.0 + l1 / (1 << 25)) << "tail, sb " << sb << " i " << i;
      }
      l1_[sb] = l1;
    }
    ++n_;
  }

 private:
  s32 overlap_[32][18] = {};
  double tail_[32][18] = {};
  double l1_[32] = {};  // of the previous block, whose tail is pending
  int n_ = 0;
};

std::vector<s32> random_spectrum(std::mt19937 &rng, s32 amplitude, int end = 576) {
  std::uniform_int_distribution<s32> value(-amplitude, amplitude);
  std::vector<s32> xr(576, 0);
  for (int i = 0; i < end; ++i) xr[size_t(i)] = value(rng);
  return xr;
}

const struct { int type, mixed; } kBlocks[] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {2, 1}, {1, 1}};

TEST(MpaImdct, MatchesTheDefinitionForEveryBlockType) {
  mpa_build_layer3_tables();
  std::mt19937 rng(11);
  const std::vector<s32> zero(576, 0);
  for (const auto &c : kBlocks) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " mixed " << c.mixed);
    // Consecutive granules change block type as a stream does, on quiet
    // spectra (only the rounding floor allowed) and loud ones (a quarter of
    // the Q28 unit per value keeps every sum within 32 bits). The top of
    // the spectrum is zero: subbands above the last non-zero value still
    // emit the previous tail and must leave a zero one. The last value sits
    // at a subband's first or last position, in the middle, at the very
    // top, or nowhere.
    for (int end : {0, 1, 17, 18, 19, 35, 36, 300, 557, 558, 575, 576, 576, 576})
      for (s32 amplitude : {1 << 18, 1 << 26}) {
        SCOPED_TRACE(testing::Message() << "end " << end << " amplitude " << amplitude);
        Channel ch;
        ch.granule(random_spectrum(rng, amplitude), c.type, c.mixed);
        ch.granule(random_spectrum(rng, amplitude), 0, 0);
        std::vector<s32> xr = random_spectrum(rng, amplitude, end);
        if (end > 0) xr[size_t(end - 1)] = amplitude / 2;
        ch.granule(xr, c.type, c.mixed);
        ch.granule(zero, c.type, c.mixed);
      }
    // A lone value up to the Q28 limit (about +-8) in every position gives
    // outputs within range, though the fast transform's sums of many such
    // values reach far beyond 32 bits on the way.
    for (s32 v : {INT_MAX, INT_MIN, -INT_MAX, 3 << 29, 1})
      for (int k = 0; k < 18; ++k) {
        SCOPED_TRACE(testing::Message() << "value " << v << " k " << k);
        Channel ch;
        std::vector<s32> xr(576, 0);
        for (int sb = 0; sb < 32; ++sb) xr[size_t(18 * sb + k)] = sb % 3 == 1 ? s32(-(v / 2)) : v;
        ch.granule(xr, c.type, c.mixed);
        ch.granule(zero, c.type, c.mixed);
      }
  }
}

TEST(MpaImdct, SaturatedSpectraStayDefined) {
  // Corrupt streams can saturate every value; the results are meaningless
  // but the arithmetic of alias reduction and IMDCT must stay defined (the
  // sanitizer builds check), and the next granules, fed zeros, carry only
  // the one bad tail.
  mpa_build_layer3_tables();
  std::vector<s32> zero(576, 0);
  for (const auto &c : kBlocks)
    for (s32 fill : {INT_MAX, INT_MIN}) {
      s32 overlap[32][18] = {}, out[18][32];
      std::vector<s32> xr(576);
      for (int i = 0; i < 576; ++i) xr[size_t(i)] = (i / 3) % 2 ? fill : ~fill;
      mpa_alias_reduce(xr.data(), c.mixed ? 2 : 32);
      for (const s32 *in : {&xr[0], &zero[0], &zero[0]}) mpa_imdct_granule(in, overlap, c.type, c.mixed, out);
      for (int i = 0; i < 18 * 32; ++i) ASSERT_EQ(out[i / 32][i % 32], 0) << "type " << c.type << " at " << i;
    }
}

}  // namespace
