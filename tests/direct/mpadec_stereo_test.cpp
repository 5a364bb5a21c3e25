// Layer III joint stereo over a granule: which bands take mid/side and
// which intensity stereo, for long and short blocks.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "direct/mpadec/layer3_sideinfo.h"
#include "direct/mpadec/mpadec.h"

// Designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

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

Granule run(const Granule &in, int lsf, int rate_index, int mode_ext, int right_end,
            const MpaGranuleInfo &gi, const MpaScalefactors &sf) {
  const MpaHeader hd{.lsf = lsf, .rate_index = rate_index, .mode = 1, .mode_ext = mode_ext, .channels = 2};
  Granule out = in;
  mpa_joint_stereo(out.l.data(), out.r.data(), right_end, &hd, &gi, &sf);
  return out;
}

// Values from..to hold mid/side (ms), are unchanged (neither), or intensity
// stereo with left and right taken from the left value by kl and kr.
void expect(const Granule &in, const Granule &out, int from, int to, bool ms, double kl = -1,
            double kr = -1) {
  for (int i = from; i < to; ++i) {
    double m = in.l[size_t(i)], s = in.r[size_t(i)];
    double el = kl >= 0 ? m * kl : ms ? (m + s) / std::sqrt(2.0) : m;
    double er = kl >= 0 ? m * kr : ms ? (m - s) / std::sqrt(2.0) : s;
    ASSERT_NEAR(out.l[size_t(i)], el, 1.0) << i;
    ASSERT_NEAR(out.r[size_t(i)], er, 1.0) << i;
  }
}

// MPEG-1 intensity position 0..6 as the factors of left and right.
void expect_pos1(const Granule &in, const Granule &out, int from, int to, int pos) {
  double k = std::tan(pos * std::acos(-1.0) / 12);
  expect(in, out, from, to, false, pos == 6 ? 1 : k / (1 + k), pos == 6 ? 0 : 1 / (1 + k));
}

TEST(MpaJointStereo, LongBlocksMidSideAndIntensityAboveTheRightChannel) {
  // 44.1 kHz long bands: 0 4 8 12 16 20 24 30 ... ; right values end at 18,
  // so intensity starts at band 5 (value 20).
  const u16 bounds[23] = {0,  4,  8,  12, 16,  20,  24,  30,  36,  44,  52, 62,
                          74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576};
  for (int mode_ext = 1; mode_ext <= 3; ++mode_ext) {
    SCOPED_TRACE(mode_ext);
    bool ms = mode_ext & 2;
    MpaScalefactors sf{};
    for (int b = 0; b < 22; ++b) sf.l[b] = u8(b % 8);
    Granule in = make(18), out = run(in, 0, 0, mode_ext, 18, MpaGranuleInfo{}, sf);
    expect(in, out, 0, mode_ext == 2 ? 576 : 20, ms);  // mid/side alone covers the granule
    for (int b = 5; mode_ext != 2 && b < 22; ++b) {
      int pos = b < 21 ? b % 8 : 20 % 8;
      if (pos == 7)  // not a position: mid/side or nothing
        expect(in, out, bounds[b], bounds[b + 1], ms);
      else
        expect_pos1(in, out, bounds[b], bounds[b + 1], pos);
    }
  }
}

TEST(MpaJointStereo, ShortBlockIntensityPerWindow) {
  // 44.1 kHz short bands 0 4 8 12 16 22 30 40 52 66 84 106 136 192. The
  // right channel holds a value in band 4 of window 0 and band 12 of window
  // 2; window 1 is silent.
  const MpaGranuleInfo gi{.window_switching = 1, .block_type = 2};
  MpaScalefactors sf{};
  for (int b = 0; b < 13; ++b)
    for (int w = 0; w < 3; ++w) sf.s[b][w] = u8((b + 2 * w) % 7);
  const int sb[14] = {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192};
  Granule in = make(0);
  auto at = [&](int band, int w) { return 3 * sb[band] + w * (sb[band + 1] - sb[band]); };
  in.r[size_t(at(4, 0) + 1)] = 1 << 20;
  in.r[size_t(at(12, 2) + 5)] = -(1 << 20);
  Granule out = run(in, 0, 0, 1, 576, gi, sf);
  const int last[3] = {4, -1, 12};
  for (int w = 0; w < 3; ++w)
    for (int b = 0; b < 13; ++b) {
      SCOPED_TRACE(testing::Message() << "window " << w << " band " << b);
      int from = at(b, w), to = from + sb[b + 1] - sb[b];
      if (b <= last[w])
        expect(in, out, from, to, false);
      else
        expect_pos1(in, out, from, to, sf.s[b < 12 ? b : 11][w]);
    }
}

TEST(MpaJointStereo, MpegTwoIntensityScaleAndBandsWithoutAPosition) {
  // 22.05 kHz long bands 0 6 12 18 ...; right values end at 10 -> band 2.
  // A right factor at the largest value of its length is no position: such
  // a band takes mid/side when that is on, else stays.
  for (int scale = 0; scale <= 1; ++scale)
    for (int ms = 0; ms <= 1; ++ms) {
      SCOPED_TRACE(testing::Message() << "scale " << scale << " ms " << ms);
      const MpaGranuleInfo gi{.scalefac_compress = scale};
      MpaScalefactors sf{};
      for (int b = 0; b < 22; ++b) {
        sf.l[b] = u8(b);
        sf.max_l[b] = b == 3 ? 3 : 31;
      }
      Granule in = make(10), out = run(in, 1, 3, ms ? 3 : 1, 10, gi, sf);
      expect(in, out, 0, 12, ms);
      expect(in, out, 18, 24, ms);
      double io = scale ? std::pow(2.0, -0.5) : std::pow(2.0, -0.25);
      for (int pos : {2, 4, 5}) {
        double kl = pos & 1 ? std::pow(io, (pos + 1) / 2) : 1.0;
        double kr = pos & 1 ? 1.0 : std::pow(io, pos / 2);
        expect(in, out, 6 * pos, 6 * pos + 6, false, kl, kr);
      }
    }
}

}  // namespace
