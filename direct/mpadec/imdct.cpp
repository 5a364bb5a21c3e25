// Hybrid filter bank, second half: alias reduction, the IMDCT of long (36
// point) and short (three 12 point) blocks, the block-type windows, the
// overlap with the previous granule and the frequency inversion of odd
// subbands.
//
// The IMDCT is computed through a DCT-IV. With
//   C(n) = sum_{k<N} X_k cos(pi/4N (2n + 1)(2k + 1))
// (N = 18 for long blocks, 6 for short ones) the IMDCT output is
//   x_i = sum_k X_k cos(pi/4N (2i + 1 + N)(2k + 1)) = C(i + N/2),
// and C, taken over all integers n, satisfies C(2N - 1 - n) = -C(n) and
// C(n + 2N) = -C(n). So for N = 18
//   x_i = C(9 + i)       for  0 <= i <  9,
//   x_i = -C(26 - i)     for  9 <= i < 27,
//   x_i = -C(i - 27)     for 27 <= i < 36:
// the first 18 outputs use C(9..17) and the last 18 use C(0..8). For N = 6,
// x_i = C(3 + i) (i < 3), -C(8 - i) (3 <= i < 9), -C(i - 9) (9 <= i < 12).
//
// The DCT-IV itself: with y_k = X_k cos((2k + 1) pi/4N), the DCT-II
//   Y(n) = sum_k y_k cos(pi n (2k + 1)/2N)
// is (C(n) + C(n - 1))/2 (product to sum; C(-1) = C(0)), so C(0) = Y(0) and
// C(n) = 2 Y(n) - C(n - 1). A DCT-II of even length 2M splits into a DCT-II
// of length M over y_k + y_{2M-1-k} (the even outputs) and a DCT-IV of
// length M over y_k - y_{2M-1-k} (the odd outputs); the 9-point DCT-IV is
// again a 9-point DCT-II after the same pre-rotation.
//
// Arithmetic: the transform runs in 64-bit words holding Q29 values (Q28
// and a guard bit) and every product is formed in 64 bits. Inputs are below
// 2^31 in magnitude (Q28 up to 8), so values are below 2^32 after the
// pre-rotation. The largest multiplicand is then a signed sum of 12 of them
// (below 12 * 2^32), met by cos(pi/6) < 0.87 in Q27: below 2^62.4. A DCT-IV
// output is at most 11.76 (the largest sum of |cos| over a row) times
// 2^32, met by a Q27 window of at most 1: below 2^62.6. So no input
// overflows; results beyond 32 bits (only from corrupt streams) wrap when
// stored, as the decoder's other 32-bit words do.
#include <cmath>
#include <cstring>
#include <utility>

#include "direct/mpadec/layer3.h"

namespace {

constexpr int kCosBits = 28;
// Fraction bits: the transform's values carry one guard bit below Q28 (the
// recurrences double rounding errors); its constants, the pre-rotations of
// the 32-bit input and the windows have as many as the bounds above allow.
constexpr int kGuard = 1;
constexpr int kQ = 27;
constexpr int kRotBits = 30;
constexpr int kWinBits = 27;

// Alias reduction coefficients c_i; cs = 1/sqrt(1 + c^2),
// ca = c/sqrt(1 + c^2).
constexpr double kAliasC[8] = {-0.6, -0.535, -0.33, -0.185, -0.095, -0.041, -0.0142, -0.0037};

// sqrt(v) for 1 <= v <= 2 by Newton's iteration (compile time).
constexpr double const_sqrt(double v) {
  double r = 1.0;
  for (int n = 0; n < 8; ++n) r = (r + v / r) / 2;
  return r;
}
constexpr s32 fix(double v) { return s32(v * double(1 << kCosBits) + (v < 0 ? -0.5 : 0.5)); }
template <int I>
constexpr s32 kAliasCs = fix(1.0 / const_sqrt(1.0 + kAliasC[I] * kAliasC[I]));
template <int I>
constexpr s32 kAliasCa = fix(kAliasC[I] / const_sqrt(1.0 + kAliasC[I] * kAliasC[I]));

// One subband boundary's eight butterflies, coefficients as constants.
template <int... I>
__attribute__((always_inline)) inline void alias_butterflies(s32 *lo, s32 *hi,
                                                             std::integer_sequence<int, I...>) {
  (
      [&] {
        const s32 a = lo[-I], b = hi[I];
        lo[-I] = s32((s64(a) * kAliasCs<I> - s64(b) * kAliasCa<I>) >> kCosBits);
        hi[I] = s32((s64(b) * kAliasCs<I> + s64(a) * kAliasCa<I>) >> kCosBits);
      }(),
      ...);
}

constexpr s64 q(double v) { return s64(v * double(s64(1) << kQ) + (v < 0 ? -0.5 : 0.5)); }

// cos(j pi/18) and cos(j pi/12) by degrees.
constexpr s64 kCos30 = q(0.8660254037844387);
constexpr s64 kCos40 = q(0.766044443118978);
constexpr s64 kCos50 = q(0.6427876096865394);
constexpr s64 kCos70 = q(0.3420201433256688);
constexpr s64 kCos80 = q(0.17364817766693041);
constexpr s64 kCos15 = q(0.9659258262890683);
constexpr s64 kCos45 = q(0.7071067811865476);
constexpr s64 kCos75 = q(0.25881904510252074);

bool g_built = false;
s64 g_rot18[18];      // cos((2k + 1) pi/72): pre-rotation of the 18-point DCT-IV
s64 g_rot9[9];        // cos((2k + 1) pi/36): of the 9-point DCT-IV
s64 g_rot6[6];        // cos((2k + 1) pi/24): of the 6-point DCT-IV
s64 g_window[4][36];  // by block type; type 2 holds the 12-point window

// v * c for a Q27 constant c, rounded; rotate takes a Q28 input and a Q30
// constant to the transform's Q29. Their errors pass through the
// recurrences, which double them, so they are rounded to nearest.
inline s64 mul(s64 v, s64 c) { return (v * c + (s64(1) << (kQ - 1))) >> kQ; }
inline s64 rotate(s32 v, s64 c) {
  return (v * c + (s64(1) << (kRotBits - kGuard - 1))) >> (kRotBits - kGuard);
}
inline s64 half(s64 v) { return (v + 1) >> 1; }
// Q29 value times a Q27 window to Q28, rounded down: the bias of half a
// Q28 unit (2^-14 of an output step) goes no further.
inline s64 mul_window(s64 v, s64 w) {
  return (v * w) >> (kWinBits + kGuard);
}

// Number of subbands up to the last one holding a non-zero value. Encoders
// leave the top of the spectrum zero (their low-pass), so this is found
// quickly from the end; the test reads two values per 64-bit word.
int active_subbands(const s32 *xr) {
  int sb = 32;
  while (sb > 0) {
    const s32 *p = xr + 18 * (sb - 1);
    u64 any = 0;
#pragma GCC unroll 9
    for (int k = 0; k < 9; ++k) {
      u64 two;
      std::memcpy(&two, p + 2 * k, sizeof two);
      any |= two;
    }
    if (any != 0) break;
    --sb;
  }
  return sb;
}

}  // namespace

void mpa_build_imdct_tables() {
  if (g_built) return;
  const double pi = 3.14159265358979323846;
  auto rot = [](double v) { return s64(std::llround(v * double(1 << kRotBits))); };
  for (int k = 0; k < 18; ++k) g_rot18[k] = rot(std::cos((2 * k + 1) * pi / 72));
  for (int k = 0; k < 9; ++k) g_rot9[k] = q(std::cos((2 * k + 1) * pi / 36));
  for (int k = 0; k < 6; ++k) g_rot6[k] = rot(std::cos((2 * k + 1) * pi / 24));
  auto win = [](double v) { return s64(std::lround(v * double(1 << kWinBits))); };
  for (int i = 0; i < 36; ++i) {
    double normal = std::sin(pi / 36 * (i + 0.5));
    g_window[0][i] = win(normal);
    // Start block: long rising half, flat, short falling half, zero.
    double start = i < 18 ? normal : i < 24 ? 1.0 : i < 30 ? std::sin(pi / 12 * (i - 18 + 0.5)) : 0.0;
    g_window[1][i] = win(start);
    // Stop block: the start block reversed.
    double stop = i < 6 ? 0.0 : i < 12 ? std::sin(pi / 12 * (i - 6 + 0.5)) : i < 18 ? 1.0 : normal;
    g_window[3][i] = win(stop);
    g_window[2][i] = i < 12 ? win(std::sin(pi / 12 * (i + 0.5))) : 0;
  }
  g_built = true;
}

void mpa_alias_reduce(s32 xr[kMpaGranule], int subbands) {
  // Boundaries past the last non-zero subband's upper one map zeros to
  // zeros. The butterflies' products are rounded down, like the IMDCT's.
  const int last = active_subbands(xr);
  for (int sb = 1; sb < subbands && sb <= last; ++sb) {
    alias_butterflies(xr + 18 * sb - 1, xr + 18 * sb, std::make_integer_sequence<int, 8>{});
  }
}

namespace {

// 9-point DCT-II: out[m] = sum_k a_k cos(pi m (2k + 1)/18). Pairing k with
// 8 - k (2(8 - k) + 1 = 18 - (2k + 1)) gives (-1)^m times the same cosine,
// so even m use s_k = a_k + a_{8-k} and a_4, odd m use t_k = a_k - a_{8-k}
// (a_4 meets cos(pi m/2) = 0). With c_j = cos(j pi/18), the rows are
//   m = 2: c2 s0 + s1/2 - c8 s2 - c4 s3 - a4
//   m = 4: c4 s0 - s1/2 - c2 s2 + c8 s3 + a4
//   m = 6: (s0 + s2 + s3)/2 - s1 - a4
//   m = 8: c8 s0 - s1/2 + c4 s2 - c2 s3 + a4
//   m = 1: c1 t0 + c3 t1 + c5 t2 + c7 t3
//   m = 3: c3 (t0 - t2 - t3)
//   m = 5: c5 t0 - c3 t1 - c7 t2 + c1 t3
//   m = 7: c7 t0 - c3 t1 + c1 t2 - c5 t3
// and c2 = c4 + c8, c1 = c5 + c7 (cos a + cos b = 2 cos((a+b)/2) cos((a-b)/2)
// with cos(pi/3) = 1/2) fold each three-term row into two products.
inline void dct9(const s64 *a, s64 *out) {
  const s64 s0 = a[0] + a[8], s1 = a[1] + a[7], s2 = a[2] + a[6], s3 = a[3] + a[5];
  const s64 t0 = a[0] - a[8], t1 = a[1] - a[7], t2 = a[2] - a[6], t3 = a[3] - a[5];
  const s64 a4 = a[4];
  out[0] = s0 + s1 + s2 + s3 + a4;
  const s64 p = a4 - half(s1);
  out[2] = mul(s0 - s3, kCos40) + mul(s0 - s2, kCos80) - p;
  out[4] = mul(s0 - s2, kCos40) - mul(s2 - s3, kCos80) + p;
  out[6] = half(s0 + s2 + s3) - s1 - a4;
  out[8] = mul(s0 - s3, kCos80) + mul(s2 - s3, kCos40) + p;
  const s64 r = mul(t1, kCos30);
  out[1] = mul(t0 + t2, kCos50) + mul(t0 + t3, kCos70) + r;
  out[3] = mul(t0 - t2 - t3, kCos30);
  out[5] = mul(t0 + t3, kCos50) - mul(t2 - t3, kCos70) - r;
  out[7] = mul(t0 + t2, kCos70) + mul(t2 - t3, kCos50) - r;
}

// 18-point DCT-IV of x (Q28) into c (Q29).
inline void dct4_18(const s32 *x, s64 *c) {
  // DCT-II of the pre-rotated y: even outputs from the sums, odd ones from
  // the differences through a 9-point DCT-IV (pre-rotation, DCT-II,
  // recurrence).
  s64 sum[9], dif[9], even[9], odd[9];
#pragma GCC unroll 9
  for (int k = 0; k < 9; ++k) {
    const s64 a = rotate(x[k], g_rot18[k]), b = rotate(x[17 - k], g_rot18[17 - k]);
    sum[k] = a + b;
    dif[k] = mul(a - b, g_rot9[k]);
  }
  mpa_keep_in_memory(sum, dif);
  dct9(sum, even);
  dct9(dif, odd);
  mpa_keep_in_memory(odd, even);
  // odd[m] = (D(m) + D(m - 1))/2 for the 9-point DCT-IV D; then the DCT-II
  // of y is Y(2m) = even[m], Y(2m + 1) = D(m), and C(n) = 2 Y(n) - C(n - 1).
  s64 d = odd[0];
  c[0] = even[0];
  c[1] = 2 * d - c[0];
#pragma GCC unroll 8
  for (int m = 1; m < 9; ++m) {
    d = 2 * odd[m] - d;
    c[2 * m] = 2 * even[m] - c[2 * m - 1];
    c[2 * m + 1] = 2 * d - c[2 * m];
  }
}

// 36-point IMDCT of 18 values from the DCT-IV as above, windowed; the
// first half is added to the previous tail and stored in out (negating odd
// samples when kInvert), the second half becomes the new tail.
template <bool kInvert>
void imdct36(const s32 *x, const s64 *window, s32 *tail, s32 (*out)[32], int sb) {
  s64 c[18];
  dct4_18(x, c);
#pragma GCC unroll 9
  for (int i = 0; i < 9; ++i) {
    const s64 lo = c[9 + i], hi = c[8 - i];
    const s64 a = mul_window(lo, window[i]) + tail[i];
    const s64 b = tail[17 - i] - mul_window(lo, window[17 - i]);
    tail[i] = s32(-mul_window(hi, window[18 + i]));
    tail[17 - i] = s32(-mul_window(hi, window[35 - i]));
    // Sample i is odd exactly when 17 - i is even.
    out[i][sb] = s32(kInvert && (i & 1) ? -a : a);
    out[17 - i][sb] = s32(kInvert && !(i & 1) ? -b : b);
  }
}

// Three 12-point IMDCTs of the interleaved short windows (x[3k + w] is
// value k of window w), windowed and overlapped into the 36 outputs at 6,
// 12 and 18; outputs 0..5 and 30..35 are zero. Each is a 6-point DCT-IV:
// pre-rotation, a 6-point DCT-II split into a 3-point DCT-II of the sums
// (rows 1 1 1; c30 0 -c30; 1/2 -1 1/2) and a 3-point DCT-IV of the
// differences (rows c15 c45 c75; c45 -c45 -c45; c75 -c45 c15), then the
// recurrence C(n) = 2 Y(n) - C(n - 1).
inline void imdct_short(const s32 *x, s64 *y) {
  for (int i = 0; i < 36; ++i) y[i] = 0;
  const s64 *window = g_window[2];
  for (int w = 0; w < 3; ++w) {
    s64 v[6];
    for (int k = 0; k < 6; ++k) v[k] = rotate(x[3 * k + w], g_rot6[k]);
    const s64 a0 = v[0] + v[5], a1 = v[1] + v[4], a2 = v[2] + v[3];
    const s64 b0 = v[0] - v[5], b1 = v[1] - v[4], b2 = v[2] - v[3];
    const s64 r = mul(b1, kCos45);
    s64 Y[6];
    Y[0] = a0 + a1 + a2;
    Y[2] = mul(a0 - a2, kCos30);
    Y[4] = half(a0 + a2) - a1;
    Y[1] = mul(b0, kCos15) + mul(b2, kCos75) + r;
    Y[3] = mul(b0 - b1 - b2, kCos45);
    Y[5] = mul(b0, kCos75) + mul(b2, kCos15) - r;
    s64 c[6];
    c[0] = Y[0];
    for (int n = 1; n < 6; ++n) c[n] = 2 * Y[n] - c[n - 1];
    s64 *o = y + 6 + 6 * w;
    for (int i = 0; i < 3; ++i) {
      o[i] += mul_window(c[3 + i], window[i]);
      o[5 - i] += mul_window(-c[3 + i], window[5 - i]);
      o[6 + i] += mul_window(-c[2 - i], window[6 + i]);
      o[11 - i] += mul_window(-c[2 - i], window[11 - i]);
    }
  }
}

// A windowed 36-sample block y added to the tail, as imdct36 stores it.
template <bool kInvert>
void overlap_add(const s64 *y, s32 *tail, s32 (*out)[32], int sb) {
  for (int i = 0; i < 18; i += 2) {
    const s64 a = y[i] + tail[i], b = y[i + 1] + tail[i + 1];
    tail[i] = s32(y[i + 18]);
    tail[i + 1] = s32(y[i + 19]);
    out[i][sb] = s32(a);
    out[i + 1][sb] = s32(kInvert ? -b : b);
  }
}

// A subband without new signal: the tail alone, and a zero tail.
template <bool kInvert>
void flush(s32 *tail, s32 (*out)[32], int sb) {
  for (int i = 0; i < 18; i += 2) {
    out[i][sb] = tail[i];
    out[i + 1][sb] = s32(kInvert ? -s64(tail[i + 1]) : tail[i + 1]);
    tail[i] = tail[i + 1] = 0;
  }
}

}  // namespace

void mpa_imdct_granule(const s32 xr[kMpaGranule], s32 overlap[32][18], int block_type, int mixed,
                       s32 out[18][32]) {
  // Subbands past the last non-zero value have no new signal: their output
  // is the previous granule's tail and their new tail is zero.
  const int active = active_subbands(xr);
  for (int sb = 0; sb < 32; ++sb) {
    const s32 *x = xr + 18 * sb;
    const bool invert = sb & 1;
    const int type = (mixed && sb < 2) ? 0 : block_type;
    if (sb >= active) {
      invert ? flush<true>(overlap[sb], out, sb) : flush<false>(overlap[sb], out, sb);
    } else if (type != 2) {
      invert ? imdct36<true>(x, g_window[type], overlap[sb], out, sb)
             : imdct36<false>(x, g_window[type], overlap[sb], out, sb);
    } else {
      s64 y[36];
      imdct_short(x, y);
      invert ? overlap_add<true>(y, overlap[sb], out, sb)
             : overlap_add<false>(y, overlap[sb], out, sb);
    }
  }
}
