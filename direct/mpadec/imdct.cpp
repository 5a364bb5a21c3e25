// Hybrid filter bank, second half: alias reduction, the IMDCT of long (36
// point) and short (three 12 point) blocks, the block-type windows, the
// overlap with the previous granule and the frequency inversion of odd
// subbands.
#include <cmath>

#include "direct/mpadec/layer3.h"

namespace {

constexpr int kCosBits = 28;

// Alias reduction coefficients c_i of the standard; cs = 1/sqrt(1 + c^2),
// ca = c/sqrt(1 + c^2).
constexpr double kAliasC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};

bool g_built = false;
s32 g_cs[8], g_ca[8];
s32 g_cos36[36][18];    // cos(pi/72 (2i + 1 + 18)(2k + 1))
s32 g_cos12[12][6];     // cos(pi/24 (2i + 1 + 6)(2k + 1))
s32 g_window[4][36];    // by block type; type 2 holds the 12-point window
s32 fix(double v) { return s32(std::lround(v * double(1 << kCosBits))); }

}  // namespace

void mpa_build_imdct_tables() {
  if (g_built) return;
  const double pi = 3.14159265358979323846;
  for (int i = 0; i < 8; ++i) {
    double d = std::sqrt(1.0 + kAliasC[i] * kAliasC[i]);
    g_cs[i] = fix(1.0 / d);
    g_ca[i] = fix(kAliasC[i] / d);
  }
  for (int i = 0; i < 36; ++i)
    for (int k = 0; k < 18; ++k) g_cos36[i][k] = fix(std::cos(pi / 72 * (2 * i + 1 + 18) * (2 * k + 1)));
  for (int i = 0; i < 12; ++i)
    for (int k = 0; k < 6; ++k) g_cos12[i][k] = fix(std::cos(pi / 24 * (2 * i + 1 + 6) * (2 * k + 1)));
  for (int i = 0; i < 36; ++i) {
    double normal = std::sin(pi / 36 * (i + 0.5));
    g_window[0][i] = fix(normal);
    // Start block: long rising half, flat, short falling half, zero.
    double start = i < 18 ? normal : i < 24 ? 1.0 : i < 30 ? std::sin(pi / 12 * (i - 18 + 0.5)) : 0.0;
    g_window[1][i] = fix(start);
    // Stop block: the start block reversed.
    double stop = i < 6 ? 0.0 : i < 12 ? std::sin(pi / 12 * (i - 6 + 0.5)) : i < 18 ? 1.0 : normal;
    g_window[3][i] = fix(stop);
    g_window[2][i] = i < 12 ? fix(std::sin(pi / 12 * (i + 0.5))) : 0;
  }
  g_built = true;
}

void mpa_alias_reduce(s32 xr[kMpaGranule], int subbands) {
  for (int sb = 1; sb < subbands; ++sb) {
    s32 *lo = xr + 18 * sb - 1;
    s32 *hi = xr + 18 * sb;
    for (int i = 0; i < 8; ++i) {
      s32 a = lo[-i], b = hi[i];
      lo[-i] = mpa_round_shift(s64(a) * g_cs[i] - s64(b) * g_ca[i], kCosBits);
      hi[i] = mpa_round_shift(s64(b) * g_cs[i] + s64(a) * g_ca[i], kCosBits);
    }
  }
}

namespace {

// 36-point IMDCT of 18 values, windowed. The cosine's symmetries leave 18
// distinct outputs: x[17 - i] = -x[i] (i < 9) and x[53 - i] = x[i]
// (18 <= i < 27), so only those are summed.
void imdct36(const s32 *x, const s32 *window, s32 *y) {
  s32 v[36];
  for (int i = 0; i < 9; ++i) {
    s64 a = 0, b = 0;
    for (int k = 0; k < 18; ++k) {
      a = mpa_mac(a, x[k], g_cos36[i][k]);
      b = mpa_mac(b, x[k], g_cos36[18 + i][k]);
    }
    v[i] = mpa_round_shift(a, kCosBits);
    v[17 - i] = -v[i];
    v[18 + i] = mpa_round_shift(b, kCosBits);
    v[35 - i] = v[18 + i];
  }
  for (int i = 0; i < 36; ++i) y[i] = mpa_round_shift(s64(v[i]) * window[i], kCosBits);
}

// Three 12-point IMDCTs of the interleaved short windows, windowed and
// overlapped into the 36 outputs at 6, 12 and 18. Here x[5 - i] = -x[i]
// (i < 3) and x[17 - i] = x[i] (6 <= i < 9).
void imdct_short(const s32 *x, s32 *y) {
  for (int i = 0; i < 36; ++i) y[i] = 0;
  for (int w = 0; w < 3; ++w) {
    s32 v[12];
    for (int i = 0; i < 3; ++i) {
      s64 a = 0, b = 0;
      for (int k = 0; k < 6; ++k) {
        a = mpa_mac(a, x[3 * k + w], g_cos12[i][k]);
        b = mpa_mac(b, x[3 * k + w], g_cos12[6 + i][k]);
      }
      v[i] = mpa_round_shift(a, kCosBits);
      v[5 - i] = -v[i];
      v[6 + i] = mpa_round_shift(b, kCosBits);
      v[11 - i] = v[6 + i];
    }
    for (int i = 0; i < 12; ++i) y[6 + 6 * w + i] += mpa_round_shift(s64(v[i]) * g_window[2][i], kCosBits);
  }
}

}  // namespace

void mpa_imdct_granule(const s32 xr[kMpaGranule], s32 overlap[32][18], int block_type, int mixed,
                       s32 out[18][32]) {
  s32 y[36];
  for (int sb = 0; sb < 32; ++sb) {
    const s32 *x = xr + 18 * sb;
    int type = (mixed && sb < 2) ? 0 : block_type;
    if (type == 2)
      imdct_short(x, y);
    else
      imdct36(x, g_window[type], y);
    for (int i = 0; i < 18; ++i) {
      s32 v = y[i] + overlap[sb][i];
      overlap[sb][i] = y[i + 18];
      // Frequency inversion: odd subbands' odd samples change sign.
      out[i][sb] = ((sb & i) & 1) ? -v : v;
    }
  }
}
