// Layer III stages alone against their definitions in double precision:
// requantisation, short-block reordering and stereo processing (the IMDCT
// and alias reduction have their own tests).
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer3.h"

namespace {

constexpr double kOne = double(1 << 28);
const double kPi = std::acos(-1.0);

class Layer3 : public testing::Test {
 protected:
  void SetUp() override { mpa_build_layer3_tables(); }
};

double requant(int n, int quarter) {
  double v = std::pow(std::fabs(double(n)), 4.0 / 3.0) * std::pow(2.0, quarter / 4.0);
  return n < 0 ? -v : v;
}

TEST_F(Layer3, PowerLawAndGainMatchTheDefinition) {
  const int values[] = {0, 1, -1, 2, 3, -7, 15, 16, 100, -255, 1000, 4095, 8206};
  const int quarters[] = {-210, -150, -100, -64, -40, -33, -17, -5, -1, 0, 3};
  for (int n : values)
    for (int q : quarters) {
      double expect = requant(n, q) * kOne;
      if (std::fabs(expect) >= 2147483647.0) continue;
      double got = mpa_requantize_value(n, q);
      EXPECT_NEAR(got, expect, 0.5 + std::fabs(expect) * 1e-9) << "n " << n << " quarter " << q;
    }
}

TEST_F(Layer3, RequantisationSaturatesBeyondTheRange) {
  EXPECT_EQ(mpa_requantize_value(8206, 40), 0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(-8206, 40), -0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(1, -400), 0);
}

TEST_F(Layer3, ScaleFactorBandsCoverTheGranule) {
  for (int r = 0; r < 9; ++r) {
    const MpaSfbTable &t = mpa_sfb_table(r);
    EXPECT_EQ(t.long_bounds[0], 0);
    EXPECT_EQ(t.long_bounds[22], 576) << r;
    EXPECT_EQ(t.short_bounds[0], 0);
    EXPECT_EQ(t.short_bounds[13], 192) << r;
    for (int b = 0; b < 22; ++b) EXPECT_LT(t.long_bounds[b], t.long_bounds[b + 1]) << r;
    for (int b = 0; b < 13; ++b) EXPECT_LT(t.short_bounds[b], t.short_bounds[b + 1]) << r;
    // Bands only widen towards high frequencies, short of the top two.
    for (int b = 1; b < 20 && t.long_bounds[b + 1] < 560; ++b)
      EXPECT_LE(t.long_bounds[b] - t.long_bounds[b - 1], t.long_bounds[b + 1] - t.long_bounds[b]) << r;
  }
}

struct GranuleCase {
  const char *what;
  int block_type, mixed, scalefac_scale, preflag, rate_index, count;
};

TEST_F(Layer3, GranuleRequantisationAppliesBandGains) {
  const GranuleCase cases[] = {
      {"long, half-octave scale factors", 0, 0, 0, 0, 0, 576},
      {"long with pre-emphasis, octave steps", 0, 0, 1, 1, 1, 400},
      {"short blocks", 2, 0, 0, 0, 2, 576},
      {"mixed blocks", 2, 1, 1, 0, 3, 300},
      {"start block at 8 kHz", 1, 0, 0, 1, 8, 576},
  };
  std::mt19937 rng(5);
  for (const GranuleCase &c : cases) {
    SCOPED_TRACE(c.what);
    MpaGain g{};
    g.global_gain = 170;
    g.scalefac_scale = c.scalefac_scale;
    g.preflag = c.preflag;
    g.block_type = c.block_type;
    g.mixed = c.mixed;
    g.subblock_gain[0] = 0;
    g.subblock_gain[1] = 1;
    g.subblock_gain[2] = 3;
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) sf.l[b] = u8(b % 5);
    for (int b = 0; b < 13; ++b)
      for (int w = 0; w < 3; ++w) sf.s[b][w] = u8((b + w) % 4);
    std::vector<s32> is(576), xr(576);
    for (int i = 0; i < 576; ++i) is[size_t(i)] = int(rng() % 41) - 20;
    xr = is;
    mpa_requantize_granule(xr.data(), c.count, &g, &sf, c.rate_index, 0);
    const MpaSfbTable &t = mpa_sfb_table(c.rate_index);
    // The expected quarter exponent of each value.
    std::vector<int> quarter(576);
    int step = 2 * (1 + c.scalefac_scale);
    int long_end = c.block_type != 2 ? 576 : c.mixed ? 36 : 0;
    for (int b = 0; b < 22; ++b)
      for (int i = t.long_bounds[b]; i < t.long_bounds[b + 1] && i < long_end; ++i)
        quarter[size_t(i)] = 170 - 210 - step * (sf.l[b] + (c.preflag ? kMpaPretab[b] : 0));
    if (c.block_type == 2) {
      int i = long_end;
      for (int b = c.mixed ? 3 : 0; b < 13; ++b)
        for (int w = 0; w < 3; ++w)
          for (int j = t.short_bounds[b]; j < t.short_bounds[b + 1]; ++j)
            quarter[size_t(i++)] = 170 - 210 - 8 * g.subblock_gain[w] - step * sf.s[b][w];
      ASSERT_EQ(i, 576);
    }
    for (int i = 0; i < 576; ++i) {
      double expect = i < c.count ? requant(is[size_t(i)], quarter[size_t(i)]) * kOne : 0.0;
      ASSERT_NEAR(xr[size_t(i)], expect, 0.5 + std::fabs(expect) * 1e-9) << "value " << i;
    }
  }
}

TEST_F(Layer3, ShortBlocksReorderIntoSubbandOrder) {
  for (int mixed = 0; mixed <= 1; ++mixed) {
    for (int rate = 0; rate < 9; rate += 4) {
      MpaGain g{};
      g.block_type = 2;
      g.mixed = mixed;
      const MpaSfbTable &t = mpa_sfb_table(rate);
      // Encode (line, window) of every short value as 1000 x line + window.
      std::vector<s32> xr(576);
      int first = mixed ? 3 : 0;
      int i = 3 * t.short_bounds[first];
      for (int k = 0; k < i; ++k) xr[size_t(k)] = -k;
      for (int b = first; b < 13; ++b)
        for (int w = 0; w < 3; ++w)
          for (int line = t.short_bounds[b]; line < t.short_bounds[b + 1]; ++line)
            xr[size_t(i++)] = 1000 * line + w;
      mpa_reorder_short(xr.data(), &g, rate);
      int start = 3 * t.short_bounds[first];
      for (int k = 0; k < start; ++k) EXPECT_EQ(xr[size_t(k)], -k);
      for (int k = start; k < 576; ++k) ASSERT_EQ(xr[size_t(k)], 1000 * (k / 3) + k % 3) << k;
    }
  }
}

TEST_F(Layer3, MidSideAndIntensityStereo) {
  const s32 vals[] = {0, 1 << 28, -(1 << 27), 123456789, -987654, 5};
  const int n = 6;
  std::vector<s32> l(vals, vals + n), r(n);
  for (int i = 0; i < n; ++i) r[size_t(i)] = vals[n - 1 - i];
  std::vector<s32> l0 = l, r0 = r;
  mpa_ms_stereo(l.data(), r.data(), 1, 5);
  for (int i = 0; i < n; ++i) {
    bool in = i >= 1 && i < 5;
    double m = l0[size_t(i)], s = r0[size_t(i)];
    EXPECT_NEAR(l[size_t(i)], in ? (m + s) / std::sqrt(2.0) : m, 1.0);
    EXPECT_NEAR(r[size_t(i)], in ? (m - s) / std::sqrt(2.0) : s, 1.0);
  }
  for (int pos = 0; pos < 7; ++pos) {
    l = l0;
    mpa_intensity_mpeg1(l.data(), r.data(), 0, n, pos);
    double k = std::tan(pos * kPi / 12);
    for (int i = 0; i < n; ++i) {
      double v = l0[size_t(i)];
      double el = pos == 6 ? v : v * k / (1 + k), er = pos == 6 ? 0.0 : v / (1 + k);
      EXPECT_NEAR(l[size_t(i)], el, 1.0) << pos;
      EXPECT_NEAR(r[size_t(i)], er, 1.0) << pos;
    }
  }
  for (int scale = 0; scale <= 1; ++scale)
    for (int pos = 0; pos < 31; ++pos) {
      l = l0;
      mpa_intensity_mpeg2(l.data(), r.data(), 0, n, pos, scale);
      double io = scale ? std::pow(2.0, -0.5) : std::pow(2.0, -0.25);
      double kl = pos & 1 ? std::pow(io, (pos + 1) / 2) : 1.0;
      double kr = pos & 1 ? 1.0 : std::pow(io, pos / 2);
      for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(l[size_t(i)], l0[size_t(i)] * kl, 1.0) << pos;
        EXPECT_NEAR(r[size_t(i)], l0[size_t(i)] * kr, 1.0) << pos;
      }
    }
}

}  // namespace
