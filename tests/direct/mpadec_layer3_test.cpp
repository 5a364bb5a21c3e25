// Layer III requantisation and short-block reordering against their
// definitions in double precision (stereo and the IMDCT have their own tests).
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer3.h"

namespace {

constexpr double kOne = double(1 << 28);

class Layer3 : public testing::Test {
 protected:
  void SetUp() override { mpa_build_layer3_tables(); }
};

double requant(int n, int quarter) {
  double v = std::pow(std::fabs(double(n)), 4.0 / 3.0) * std::pow(2.0, quarter / 4.0);
  return n < 0 ? -v : v;
}

TEST_F(Layer3, PowerLawAndGainMatchTheDefinitionAndSaturate) {
  for (int n : {0, 1, -1, 2, 3, -7, 15, 16, 100, -255, 1000, 4095, 8206})
    for (int q : {-210, -150, -100, -64, -40, -33, -17, -5, -1, 0, 3}) {
      double expect = requant(n, q) * kOne;
      if (std::fabs(expect) >= 2147483647.0) continue;
      EXPECT_NEAR(mpa_requantize_value(n, q), expect, 0.5 + std::fabs(expect) * 1e-9) << n << " " << q;
    }
  EXPECT_EQ(mpa_requantize_value(8206, 40), 0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(-8206, 40), -0x7FFFFFFF);
  EXPECT_EQ(mpa_requantize_value(1, -400), 0);
}

TEST_F(Layer3, GranuleRequantisationAppliesBandGains) {
  const struct { const char *what; int block_type, mixed, scalefac_scale, preflag, rate_index, count; } cases[] = {
      {"long, half-octave scale factors", 0, 0, 0, 0, 0, 576},
      {"long with pre-emphasis, octave steps", 0, 0, 1, 1, 1, 400},
      {"short blocks", 2, 0, 0, 0, 2, 576},
      {"mixed blocks", 2, 1, 1, 0, 3, 300},
      {"start block at 8 kHz", 1, 0, 0, 1, 8, 576},
  };
  std::mt19937 rng(5);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    const MpaGain g{170, c.scalefac_scale, c.preflag, c.block_type, c.mixed, {0, 1, 3}};
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) sf.l[b] = u8(b % 5);
    for (int b = 0; b < 13; ++b)
      for (int w = 0; w < 3; ++w) sf.s[b][w] = u8((b + w) % 4);
    std::vector<s32> is(576);
    for (s32 &v : is) v = int(rng() % 41) - 20;
    std::vector<s32> xr = is;
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
  for (int mixed = 0; mixed <= 1; ++mixed)
    for (int rate = 0; rate < 9; rate += 4) {
      const MpaGain g{0, 0, 0, 2, mixed, {}};
      const MpaSfbTable &t = mpa_sfb_table(rate);
      // Values in band-window order hold 1000 x line + window; the long
      // part of a mixed block (negative values) stays.
      const int start = 3 * t.short_bounds[mixed ? 3 : 0];
      std::vector<s32> xr(576);
      for (int k = 0; k < 576; ++k) xr[size_t(k)] = -k;
      for (int b = mixed ? 3 : 0, i = start; b < 13; ++b)
        for (int w = 0; w < 3; ++w)
          for (int line = t.short_bounds[b]; line < t.short_bounds[b + 1]; ++line) xr[size_t(i++)] = 1000 * line + w;
      mpa_reorder_short(xr.data(), &g, rate);
      for (int k = 0; k < 576; ++k) ASSERT_EQ(xr[size_t(k)], k < start ? -k : 1000 * (k / 3) + k % 3) << k;
    }
}

}  // namespace
