// Layer III requantisation: the power law |is|^(4/3), the global gain,
// subblock gains and scale factors (with pre-emphasis), the scale factor
// band boundaries, and the reordering of short blocks into subband order.
#include <array>
#include <cmath>
#include <cstring>

#include "direct/mpadec/layer3.h"

namespace {

constexpr std::array<MpaSfbTable, 9> kSfb = {{
    // 44.1 kHz
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},
     {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192}},
    // 48 kHz
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},
     {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192}},
    // 32 kHz
    {{0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},
     {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192}},
    // 22.05 kHz
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192}},
    // 24 kHz
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192}},
    // 16 kHz
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 11.025 kHz
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 12 kHz
    {{0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
     {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192}},
    // 8 kHz
    {{0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576},
     {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192}},
}};

constexpr int kPowMax = 8207;

// |n|^(4/3) as a normalised mantissa (Q31, in [0.5, 1)) and a binary
// exponent: n^(4/3) = mantissa x 2^exponent.
bool g_built = false;
u32 g_pow_mant[kPowMax];
s8 g_pow_exp[kPowMax];
// 2^(r/4), r = 0..3, Q30.
u32 g_quarter[4];
// n^(4/3) for the small magnitudes that make up most of a spectrum, Q26
// (15^(4/3) = 37.0 fits 32 bits unsigned).
constexpr u32 kSmall = 16;
u32 g_pow_small[kSmall];

}  // namespace

const u8 kMpaPretab[22] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 3, 3, 3, 2, 0};

const MpaSfbTable &mpa_sfb_table(int rate_index) { return kSfb[std::size_t(rate_index)]; }

void mpa_build_imdct_tables();

void mpa_build_layer3_tables() {
  mpa_build_imdct_tables();
  if (g_built) return;
  g_pow_mant[0] = 0;
  g_pow_exp[0] = 0;
  for (int n = 1; n < kPowMax; ++n) {
    int e = 0;
    double m = std::frexp(std::pow(double(n), 4.0 / 3.0), &e);
    u64 q = u64(std::llround(m * 2147483648.0));
    if (q >= (u64(1) << 31)) {  // rounded up to 1.0
      q >>= 1;
      ++e;
    }
    g_pow_mant[n] = u32(q);
    g_pow_exp[n] = s8(e);
  }
  for (int r = 0; r < 4; ++r) g_quarter[r] = u32(std::llround(std::pow(2.0, r / 4.0) * 1073741824.0));
  for (u32 n = 0; n < kSmall; ++n) g_pow_small[n] = u32(std::llround(std::pow(double(n), 4.0 / 3.0) * 67108864.0));
  g_built = true;
}

namespace {

// n^(4/3) x 2^(quarter/4) for quarter = 4e + r, given 2^(r/4) (Q30) and
// 33 - e: the mantissa (Q31) times 2^(r/4) is Q61, and the Q28 result needs
// a shift of 61 - 28 - (exponent of n^(4/3)) - e.
inline s32 requantize(s32 n, u32 quarter_mul, int shift_base) {
  if (n == 0) return 0;
  int mag = n < 0 ? -n : n;
  if (mag >= kPowMax) mag = kPowMax - 1;
  u64 prod = u64(g_pow_mant[mag]) * quarter_mul;
  int shift = shift_base - g_pow_exp[mag];
  s32 v;
  if (shift >= 64)
    v = 0;
  else if (shift <= 2)
    v = 0x7FFFFFFF;  // beyond the Q28 range
  else {
    u64 q = (prod + (u64(1) << (shift - 1))) >> shift;
    v = q > 0x7FFFFFFFu ? 0x7FFFFFFF : s32(q);
  }
  return n < 0 ? -v : v;
}

// Requantises values [from, to) with one exponent; values from `count` on
// were not coded and are zero. From `big_end` on the values are -1, 0 or 1
// and take the band's unit step by one multiplication.
inline void requantize_run(s32 *xr, int from, int to, int count, int big_end, int quarter) {
  int stop = to < count ? to : count;
  u32 mul = g_quarter[quarter & 3];
  int shift_base = 33 - (quarter >> 2);  // quarter >> 2 rounds down
  int i = from;
  int big_stop = stop < big_end ? stop : big_end;
  // Small magnitudes from their own table: the Q26 power times the Q30 step
  // is Q(56 + e) for quarter = 4e + r, and needs a shift of 28 - e to Q28.
  // From a shift of 33 on the result stays below 2^31 without a check;
  // larger magnitudes and louder steps take the general path.
  const int shift = 28 - (quarter >> 2);
  if (shift >= 33 && shift < 64) {
    const u64 half = u64(1) << (shift - 1);
    for (; i < big_stop; ++i) {
      const s32 n = xr[i];
      const u32 sign = u32(n >> 31);
      const u32 mag = (u32(n) ^ sign) - sign;
      if (mag < kSmall)
        xr[i] = s32((u32((u64(g_pow_small[mag]) * mul + half) >> shift) ^ sign) - sign);
      else
        xr[i] = requantize(n, mul, shift_base);
    }
  }
  for (; i < big_stop; ++i) xr[i] = requantize(xr[i], mul, shift_base);
  if (i < stop) {
    const s32 unit = requantize(1, mul, shift_base);
    for (; i < stop; ++i) xr[i] *= unit;
  }
  for (; i < to; ++i) xr[i] = 0;
}

}  // namespace

mpa_fixed mpa_requantize_value(int n, int quarter) {
  return requantize(n, g_quarter[quarter & 3], 33 - (quarter >> 2));
}

void mpa_requantize_granule(s32 xr[kMpaGranule], int count, const MpaGain *g,
                            const MpaScalefactors *sf, int rate_index, int lsf, int big_end) {
  (void)lsf;
  const MpaSfbTable &t = kSfb[std::size_t(rate_index)];
  int shift_sf = 1 + g->scalefac_scale;  // scale factor step in half-octaves
  int base = g->global_gain - 210;
  int i = 0;
  // Long-block part: the whole granule, or the two lowest subbands (36
  // values, eight long bands at MPEG-1 rates) of a mixed block.
  int long_end = g->block_type != 2 ? kMpaGranule : g->mixed ? 36 : 0;
  for (int band = 0; band < 22 && i < long_end && i < count; ++band) {
    int sfv = sf->l[band] + (g->preflag ? kMpaPretab[band] : 0);
    int end = t.long_bounds[band + 1];
    if (end > long_end) end = long_end;
    requantize_run(xr, i, end, count, big_end, base - 2 * shift_sf * sfv);
    i = end;
  }
  if (g->block_type == 2) {
    if (i < long_end) {
      std::memset(xr + i, 0, sizeof(s32) * std::size_t(long_end - i));
      i = long_end;
    }
    int first_band = g->mixed ? 3 : 0;
    for (int band = first_band; band < 13 && i < count; ++band) {
      int width = t.short_bounds[band + 1] - t.short_bounds[band];
      for (int w = 0; w < 3; ++w, i += width)
        requantize_run(xr, i, i + width, count, big_end,
                       base - 8 * g->subblock_gain[w] - 2 * shift_sf * sf->s[band][w]);
    }
  }
  if (i < kMpaGranule) std::memset(xr + i, 0, sizeof(s32) * std::size_t(kMpaGranule - i));
}

void mpa_reorder_short(s32 xr[kMpaGranule], const MpaGain *g, int rate_index) {
  if (g->block_type != 2) return;
  const MpaSfbTable &t = kSfb[std::size_t(rate_index)];
  s32 tmp[kMpaGranule];
  int first_band = g->mixed ? 3 : 0;
  int start = 3 * t.short_bounds[first_band];
  int i = start;
  for (int band = first_band; band < 13; ++band) {
    int lo = t.short_bounds[band];
    int width = t.short_bounds[band + 1] - lo;
    for (int w = 0; w < 3; ++w)
      for (int j = 0; j < width; ++j) tmp[3 * (lo + j) + w] = xr[i++];
  }
  std::memcpy(xr + start, tmp + start, sizeof(s32) * std::size_t(kMpaGranule - start));
}
