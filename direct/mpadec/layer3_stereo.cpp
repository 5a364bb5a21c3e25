// Layer III joint stereo: mid/side matrixing and intensity stereo
// (MPEG-1 tangent positions, MPEG-2 power-of-two positions).
#include <cmath>

#include "direct/mpadec/layer3.h"

namespace {

constexpr int kBits = 28;
constexpr s32 kInvSqrt2 = s32(0.70710678118654752 * (1 << kBits) + 0.5);

// MPEG-1: k = tan(pos x pi/12); left gets k/(1+k), right 1/(1+k).
struct Pair {
  s32 l, r;
};
constexpr Pair kIntensity1[7] = {
    {0, s32(1.0 * (1 << kBits))},
    {s32(0.21132486540518712 * (1 << kBits) + 0.5), s32(0.78867513459481288 * (1 << kBits) + 0.5)},
    {s32(0.36602540378443865 * (1 << kBits) + 0.5), s32(0.63397459621556135 * (1 << kBits) + 0.5)},
    {s32(0.5 * (1 << kBits)), s32(0.5 * (1 << kBits))},
    {s32(0.63397459621556135 * (1 << kBits) + 0.5), s32(0.36602540378443865 * (1 << kBits) + 0.5)},
    {s32(0.78867513459481288 * (1 << kBits) + 0.5), s32(0.21132486540518712 * (1 << kBits) + 0.5)},
    {s32(1.0 * (1 << kBits)), 0},
};

s32 scale(s32 v, s32 k) { return mpa_round_shift(s64(v) * k, kBits); }

// (a +- b)/sqrt 2 with the sum formed in 64 bits; values of saturated
// spectra (near the 32-bit limits) saturate again.
s32 mid_side(s64 sum) {
  s64 v = (sum * kInvSqrt2 + (s64(1) << (kBits - 1))) >> kBits;
  return v > 0x7FFFFFFF ? 0x7FFFFFFF : v < -0x7FFFFFFF ? -0x7FFFFFFF : s32(v);
}

// 2^(-q/4) in Q28 for q = 0..63 by repeated quarter steps.
s32 pow2_quarter_neg(int q) {
  static constexpr s32 kQuarter[4] = {
      s32(1 << kBits), s32(0.84089641525371454 * (1 << kBits) + 0.5),
      s32(0.70710678118654752 * (1 << kBits) + 0.5), s32(0.59460355750136054 * (1 << kBits) + 0.5)};
  int e = q >> 2;
  return e >= 31 ? 0 : kQuarter[q & 3] >> e;
}

}  // namespace

void mpa_ms_stereo(s32 *l, s32 *r, int from, int to) {
  for (int i = from; i < to; ++i) {
    s64 m = l[i], s = r[i];
    l[i] = mid_side(m + s);
    r[i] = mid_side(m - s);
  }
}

void mpa_intensity_mpeg1(s32 *l, s32 *r, int from, int to, int pos) {
  const Pair &k = kIntensity1[pos];
  for (int i = from; i < to; ++i) {
    s32 v = l[i];
    l[i] = scale(v, k.l);
    r[i] = scale(v, k.r);
  }
}

void mpa_intensity_mpeg2(s32 *l, s32 *r, int from, int to, int pos, int intensity_scale) {
  // io = 2^(-1/4) or 2^(-1/2); odd positions attenuate the left channel by
  // io^((pos+1)/2), even ones the right by io^(pos/2).
  int step = intensity_scale ? 2 : 1;  // quarter steps per io
  s32 kl = 1 << kBits, kr = 1 << kBits;
  if (pos & 1)
    kl = pow2_quarter_neg(step * ((pos + 1) / 2));
  else
    kr = pow2_quarter_neg(step * (pos / 2));
  for (int i = from; i < to; ++i) {
    s32 v = l[i];
    l[i] = scale(v, kl);
    r[i] = scale(v, kr);
  }
}
