// Layer III joint stereo over a granule: which bands take mid/side and
// which intensity stereo, for long and short blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "direct/mpadec/layer3_sideinfo.h"
#include "direct/mpadec/mpadec.h"

namespace {

constexpr double kOne = double(1 << 28);
const double kPi = std::acos(-1.0);

struct Granule {
  std::vector<s32> l = std::vector<s32>(576), r = std::vector<s32>(576);
};

Granule make(int right_nonzero_end) {
  Granule g;
  for (int i = 0; i < 576; ++i) {
    g.l[size_t(i)] = s32((i % 13 - 6) * (1 << 22));
    g.r[size_t(i)] = i < right_nonzero_end ? s32((i % 7 - 3) * (1 << 21)) : 0;
  }
  return g;
}

MpaHeader joint(int lsf, int rate_index, int mode_ext) {
  MpaHeader hd{};
  hd.lsf = lsf;
  hd.rate_index = rate_index;
  hd.mode = 1;
  hd.mode_ext = mode_ext;
  hd.channels = 2;
  return hd;
}

void expect_ms(const Granule &in, const Granule &out, int from, int to) {
  for (int i = from; i < to; ++i) {
    double m = in.l[size_t(i)], s = in.r[size_t(i)];
    ASSERT_NEAR(out.l[size_t(i)], (m + s) / std::sqrt(2.0), 1.0) << i;
    ASSERT_NEAR(out.r[size_t(i)], (m - s) / std::sqrt(2.0), 1.0) << i;
  }
}

void expect_unchanged(const Granule &in, const Granule &out, int from, int to) {
  for (int i = from; i < to; ++i) {
    ASSERT_EQ(out.l[size_t(i)], in.l[size_t(i)]) << i;
    ASSERT_EQ(out.r[size_t(i)], in.r[size_t(i)]) << i;
  }
}

void expect_intensity1(const Granule &in, const Granule &out, int from, int to, int pos) {
  double k = std::tan(pos * kPi / 12);
  for (int i = from; i < to; ++i) {
    double v = in.l[size_t(i)];
    double el = pos == 6 ? v : v * k / (1 + k), er = pos == 6 ? 0 : v / (1 + k);
    ASSERT_NEAR(out.l[size_t(i)], el, 1.0) << i;
    ASSERT_NEAR(out.r[size_t(i)], er, 1.0) << i;
  }
}

TEST(MpaJointStereo, MidSideAloneCoversTheGranule) {
  MpaHeader hd = joint(0, 0, 2);
  MpaGranuleInfo gi{};
  MpaScalefactors sf{};
  Granule in = make(576), out = in;
  mpa_joint_stereo(out.l.data(), out.r.data(), 576, &hd, &gi, &sf);
  expect_ms(in, out, 0, 576);
}

TEST(MpaJointStereo, LongBlockIntensityAboveTheRightChannel) {
  // 44.1 kHz long bands: 0 4 8 12 16 20 24 30 ... ; right values end at 18,
  // so intensity starts at band 5 (value 20).
  for (int ms = 0; ms <= 1; ++ms) {
    SCOPED_TRACE(ms ? "with mid/side" : "intensity alone");
    MpaHeader hd = joint(0, 0, ms ? 3 : 1);
    MpaGranuleInfo gi{};
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) sf.l[b] = u8(b % 8);
    Granule in = make(18), out = in;
    mpa_joint_stereo(out.l.data(), out.r.data(), 18, &hd, &gi, &sf);
    if (ms)
      expect_ms(in, out, 0, 20);
    else
      expect_unchanged(in, out, 0, 20);
    const u16 bounds[23] = {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576};
    for (int b = 5; b < 22; ++b) {
      int pos = b < 21 ? b % 8 : 20 % 8;
      if (pos == 7) {  // not a position: mid/side or nothing
        if (ms)
          expect_ms(in, out, bounds[b], bounds[b + 1]);
        else
          expect_unchanged(in, out, bounds[b], bounds[b + 1]);
      } else {
        expect_intensity1(in, out, bounds[b], bounds[b + 1], pos);
      }
    }
  }
}

TEST(MpaJointStereo, ShortBlockIntensityPerWindow) {
  // 44.1 kHz short bands 0 4 8 12 16 22 30 40 52 66 84 106 136 192. The
  // right channel holds a value in band 4 of window 0 and band 12 of window
  // 2; window 1 is silent.
  MpaHeader hd = joint(0, 0, 1);
  MpaGranuleInfo gi{};
  gi.block_type = 2;
  gi.window_switching = 1;
  MpaScalefactors sf{};
  for (int b = 0; b < 13; ++b)
    for (int w = 0; w < 3; ++w) sf.s[b][w] = u8((b + 2 * w) % 7);
  const int sb[14] = {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192};
  Granule in = make(0);
  auto at = [&](int band, int w) { return 3 * sb[band] + w * (sb[band + 1] - sb[band]); };
  in.r[size_t(at(4, 0) + 1)] = 1 << 20;
  in.r[size_t(at(12, 2) + 5)] = -(1 << 20);
  Granule out = in;
  mpa_joint_stereo(out.l.data(), out.r.data(), 576, &hd, &gi, &sf);
  const int last[3] = {4, -1, 12};
  for (int w = 0; w < 3; ++w)
    for (int b = 0; b < 13; ++b) {
      SCOPED_TRACE(testing::Message() << "window " << w << " band " << b);
      int from = at(b, w), to = from + sb[b + 1] - sb[b];
      if (b <= last[w])
        expect_unchanged(in, out, from, to);
      else
        expect_intensity1(in, out, from, to, sf.s[b < 12 ? b : 11][w]);
    }
}

TEST(MpaJointStereo, MpegTwoIntensityScale) {
  // 22.05 kHz long bands 0 6 12 18 ...; right values end at 10 -> band 2.
  for (int scale = 0; scale <= 1; ++scale) {
    MpaHeader hd = joint(1, 3, 1);
    MpaGranuleInfo gi{};
    gi.scalefac_compress = scale;
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) sf.l[b] = u8(b);
    Granule in = make(10), out = in;
    mpa_joint_stereo(out.l.data(), out.r.data(), 10, &hd, &gi, &sf);
    expect_unchanged(in, out, 0, 12);
    double io = scale ? std::pow(2.0, -0.5) : std::pow(2.0, -0.25);
    const u16 bounds[5] = {12, 18, 24, 30, 36};
    for (int k = 0; k < 4; ++k) {
      int pos = 2 + k;
      double kl = pos & 1 ? std::pow(io, (pos + 1) / 2) : 1.0;
      double kr = pos & 1 ? 1.0 : std::pow(io, pos / 2);
      for (int i = bounds[k]; i < bounds[k + 1]; ++i) {
        ASSERT_NEAR(out.l[size_t(i)], in.l[size_t(i)] * kl, 1.0) << i;
        ASSERT_NEAR(out.r[size_t(i)], in.l[size_t(i)] * kr, 1.0) << i;
      }
    }
  }
  (void)kOne;
}

TEST(MpaJointStereo, MpegTwoBandsWithoutAPosition) {
  // A right-channel factor at the largest value of its length is no
  // position: such a band takes mid/side when that is on, else stays.
  for (int ms = 0; ms <= 1; ++ms) {
    MpaHeader hd = joint(1, 3, ms ? 3 : 1);
    MpaGranuleInfo gi{};
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) {
      sf.max_l[b] = 7;
      sf.l[b] = u8(b % 2 ? 7 : 2);  // odd bands: no position
    }
    Granule in = make(0), out = in;
    mpa_joint_stereo(out.l.data(), out.r.data(), 0, &hd, &gi, &sf);
    const u16 bounds[5] = {0, 6, 12, 18, 24};
    for (int b = 0; b < 4; ++b) {
      SCOPED_TRACE(b);
      if (b % 2 == 0) {
        double kr = std::pow(2.0, -0.25);  // position 2: right by io^1
        for (int i = bounds[b]; i < bounds[b + 1]; ++i) {
          ASSERT_NEAR(out.l[size_t(i)], in.l[size_t(i)], 1.0);
          ASSERT_NEAR(out.r[size_t(i)], in.l[size_t(i)] * kr, 1.0);
        }
      } else if (ms) {
        expect_ms(in, out, bounds[b], bounds[b + 1]);
      } else {
        expect_unchanged(in, out, bounds[b], bounds[b + 1]);
      }
    }
  }
}

}  // namespace
