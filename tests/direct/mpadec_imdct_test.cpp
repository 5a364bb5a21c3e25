// The fast layer III IMDCT against its definition in double precision:
// every block type and mixed blocks, windows, overlap and frequency
// inversion, spectra ending at every kind of subband edge (the transform
// skips the zero top), values at the ends of the Q28 range, and saturated
// input after alias reduction.
//
// Tolerance: a PCM step is 2^13 Q28 units; rounding (doubled by the
// recurrences) stays below 16 units and the constants' rounding below 2^-25
// of the block's magnitude sum. A lost bit of headroom is off by millions of
// units; an input scaled down a few bits is off by tens on quiet spectra.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer3.h"

namespace {

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
