// Layer III stages alone against their definitions in double precision:
// requantisation, short-block reordering, stereo processing, alias
// reduction and the IMDCT with windows and overlap.
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

TEST_F(Layer3, AliasReductionButterflies) {
  const double c[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};
  std::mt19937 rng(9);
  for (int subbands : {32, 2}) {
    std::vector<s32> xr(576);
    for (s32 &v : xr) v = s32(rng() % (1u << 29)) - (1 << 28);
    std::vector<double> ref(xr.begin(), xr.end());
    for (int sb = 1; sb < subbands; ++sb)
      for (int i = 0; i < 8; ++i) {
        double cs = 1 / std::sqrt(1 + c[i] * c[i]), ca = c[i] * cs;
        double a = ref[size_t(18 * sb - 1 - i)], b = ref[size_t(18 * sb + i)];
        ref[size_t(18 * sb - 1 - i)] = a * cs - b * ca;
        ref[size_t(18 * sb + i)] = b * cs + a * ca;
      }
    mpa_alias_reduce(xr.data(), subbands);
    for (int i = 0; i < 576; ++i) ASSERT_NEAR(xr[size_t(i)], ref[size_t(i)], 2.0) << i;
  }
}

// The IMDCT of the standard: x_i = sum_k X_k cos(pi/2n (2i + 1 + n/2)(2k + 1)).
void reference_block(const double *X, int type, double *y) {
  auto win = [&](int t, int i) -> double {
    double normal = std::sin(kPi / 36 * (i + 0.5));
    if (t == 0) return normal;
    if (t == 1) return i < 18 ? normal : i < 24 ? 1 : i < 30 ? std::sin(kPi / 12 * (i - 18 + 0.5)) : 0;
    return i < 6 ? 0 : i < 12 ? std::sin(kPi / 12 * (i - 6 + 0.5)) : i < 18 ? 1 : normal;
  };
  for (int i = 0; i < 36; ++i) y[i] = 0;
  if (type != 2) {
    for (int i = 0; i < 36; ++i) {
      double s = 0;
      for (int k = 0; k < 18; ++k) s += X[k] * std::cos(kPi / 72 * (2 * i + 19) * (2 * k + 1));
      y[i] = s * win(type, i);
    }
    return;
  }
  for (int w = 0; w < 3; ++w)
    for (int i = 0; i < 12; ++i) {
      double s = 0;
      for (int k = 0; k < 6; ++k) s += X[3 * k + w] * std::cos(kPi / 24 * (2 * i + 7) * (2 * k + 1));
      y[6 + 6 * w + i] += s * std::sin(kPi / 12 * (i + 0.5));
    }
}

TEST_F(Layer3, ImdctWindowsOverlapAndInversion) {
  struct Case {
    int type, mixed;
  } cases[] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {2, 1}};
  std::mt19937 rng(3);
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " mixed " << c.mixed);
    s32 overlap[32][18] = {};
    std::vector<double> ref_overlap(32 * 18, 0.0);
    for (int granule = 0; granule < 2; ++granule) {
      std::vector<s32> xr(576);
      for (s32 &v : xr) v = s32(rng() % (1u << 27)) - (1 << 26);
      s32 out[18][32];
      mpa_imdct_granule(xr.data(), overlap, c.type, c.mixed, out);
      for (int sb = 0; sb < 32; ++sb) {
        double X[18], y[36];
        for (int k = 0; k < 18; ++k) X[k] = xr[size_t(18 * sb + k)];
        reference_block(X, c.mixed && sb < 2 ? 0 : c.type, y);
        for (int i = 0; i < 18; ++i) {
          double v = y[i] + ref_overlap[size_t(18 * sb + i)];
          if (sb % 2 == 1 && i % 2 == 1) v = -v;
          ref_overlap[size_t(18 * sb + i)] = y[i + 18];
          ASSERT_NEAR(out[i][sb], v, 24.0) << "granule " << granule << " sb " << sb << " i " << i;
        }
      }
    }
  }
}

}  // namespace
