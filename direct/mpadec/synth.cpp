// Polyphase synthesis filter bank: each time slot's 32 subband samples
// become 32 PCM samples.
//
// The standard's matrixing forms 64 values V[i] = sum_k cos((16 + i)(2k + 1)
// pi/64) S[k] and shifts them into a 1024-value FIFO, from which 512 are
// windowed and summed 16 at a time. The 64 values are all given by the
// 32-point DCT-II X[n] = sum_k cos(n (2k + 1) pi/64) S[k]:
//   V[i] = X[16 + i] (i < 16), 0 (i = 16), -X[48 - i] (16 < i <= 48 with
//   X[0] at 48), -X[i - 48] (i > 48).
// Output sample j sums, over the 16 most recent slots m = 0..15 (0 the
// newest), D[32m + j] times V_m[j] for even m and V_m[32 + j] for odd m. So
// only the X vectors of the last 16 slots are kept, and each output reads
// one X component of the even slots and one of the odd slots.
//
// The DCT is computed recursively: the even outputs are the half-length
// DCT of x[k] + x[N-1-k]; the odd ones C[n] = sum d[k] cos((2n + 1)(2k + 1)
// pi/2N) of d[k] = x[k] - x[N-1-k] follow from the half-length DCT Y of
// 2 cos((2k + 1) pi/2N) d[k] as C[0] = Y[0]/2, C[n] = Y[n] - C[n-1]. Every
// multiplier is at most 2, so the intermediate values stay bounded: the
// largest sum of coefficient magnitudes over all of them is 101.4, and no
// output exceeds 50.5 times the largest input magnitude.
#include <cmath>
#include <cstring>
#include <utility>

#include "direct/mpadec/mpadec.h"
#include "direct/mpadec/synth_window.h"

namespace {

// Synthesis works on Q22 values held in the machine's register width (no
// widening before each product on a 64-bit core). Subband samples are
// limited to +-4, which keeps every DCT intermediate (at most 101.4 x 4 in
// magnitude) below 2^31.
typedef long word;
constexpr int kInShift = kMpaFracBits - 22;
constexpr s32 kInLimit = s32(1) << (kMpaFracBits + 2);  // 4.0 in Q28
// 2 cos multipliers, Q30.
constexpr int kCosBits = 30;

// cos x for 0 <= x <= pi, by its Taylor series (compile time).
constexpr double const_cos(double x) {
  double term = 1, sum = 1;
  for (int n = 1; n < 30; ++n) {
    term *= -x * x / ((2 * n - 1) * (2 * n));
    sum += term;
  }
  return sum;
}
constexpr double kPi = 3.14159265358979323846;

// 2 cos((2k + 1) pi / 2N), Q30.
template <int N>
constexpr s32 twocos(int k) {
  double v = 2 * const_cos(kPi * (2 * k + 1) / (2 * N));
  return s32(v * double(s64(1) << kCosBits) + 0.5);
}

// Product by a Q30 constant, rounded down. The first split's products are
// rounded to nearest instead: their errors pass through every later stage,
// while the bias of the later ones stays far below the output's resolution.
inline word mul_cos(word v, s32 c) { return word((s64(v) * c) >> kCosBits); }
inline word mul_cos_first(s32 v, s32 c) {
  constexpr int shift = kCosBits + kInShift;
  return word((s64(v) * c + (s64(1) << (shift - 1))) >> shift);
}

// Even outputs of a length-N DCT-II from the half-length DCT of the sums,
// odd ones from the half-length DCT of the weighted differences.
template <int N>
struct Dct {
  template <int... K>
  __attribute__((always_inline)) static void split(const word *x, word *g, word *y,
                                                   std::integer_sequence<int, K...>) {
    ((g[K] = x[K] + x[N - 1 - K], y[K] = mul_cos(x[K] - x[N - 1 - K], twocos<N>(K))), ...);
  }
  template <typename Out>
  __attribute__((always_inline)) static void join(const word *ge, const word *yo, Out *out) {
    word odd = yo[0] >> 1;
    out[0] = Out(ge[0]);
    out[1] = Out(odd);
#pragma GCC unroll 16
    for (int n = 1; n < N / 2; ++n) {
      odd = yo[n] - odd;
      out[2 * n] = Out(ge[n]);
      out[2 * n + 1] = Out(odd);
    }
  }
  __attribute__((always_inline)) static void run(const word *x, word *out) {
    constexpr int H = N / 2;
    word g[H], y[H], ge[H], yo[H];
    split(x, g, y, std::make_integer_sequence<int, H>{});
    Dct<H>::run(g, ge);
    if constexpr (N >= 16) mpa_keep_in_memory(ge, y);
    Dct<H>::run(y, yo);
    join(ge, yo, out);
  }
};

template <>
struct Dct<2> {
  __attribute__((always_inline)) static void run(const word *x, word *out) {
    out[0] = x[0] + x[1];
    out[1] = mul_cos(x[0] - x[1], s32(const_cos(kPi / 4) * double(s64(1) << kCosBits) + 0.5));
  }
};

// The 32-point DCT of Q28 subband samples within +-4, to Q22: the first
// split works on the 32-bit inputs (their sums and differences stay within
// 32 bits) and drops the extra fraction bits as it goes.
template <int... K>
__attribute__((always_inline)) inline void dct32(const s32 *x, s32 *out,
                                                 std::integer_sequence<int, K...>) {
  word g[16], y[16], ge[16], yo[16];
  ((g[K] = word((x[K] + x[31 - K]) >> kInShift), y[K] = mul_cos_first(x[K] - x[31 - K], twocos<32>(K))),
   ...);
  Dct<16>::run(g, ge);
  mpa_keep_in_memory(ge, y);
  Dct<16>::run(y, yo);
  Dct<32>::join(ge, yo, out);
}

// Window tap of output j at slot age m, the V signs folded in: even slots
// read X[16 + j] for j < 16 (+) or X[48 - j] (-, none for j = 16), odd slots
// X[16 - j] (j <= 16) or X[j - 16], always with a minus.
constexpr s64 tap(int j, int m) {
  int sign = (m & 1) ? -1 : j < 16 ? 1 : j == 16 ? 0 : -1;
  return s64(sign) * kMpaSynthWindow[32 * m + j];
}

// The sums start at half an output step, so the shift to PCM rounds to
// nearest. Q22 x 2^-16 units; 16-bit full scale is 2^15: shift by 22 + 16
// - 15.
constexpr s64 kHalfStep = s64(1) << 22;
constexpr int kPcmShift = 23;

// Out-of-range sums come only from overloaded input: clipped out of line,
// so the common path is one test and a branch.
__attribute__((noinline)) s16 clip_pcm(s64 v) { return v < 0 ? -32768 : 32767; }
inline s16 to_pcm(s64 acc) {
  const s64 v = acc >> kPcmShift;
  if (u64(v + 32768) > 65535) return clip_pcm(v);
  return s16(v);
}

// The window is symmetric: output 32 - j takes at age m the tap of output j
// at age 15 - m, negated for even m.
constexpr bool mirrored_taps() {
  for (int j = 1; j < 16; ++j)
    for (int m = 0; m < 16; ++m)
      if (tap(32 - j, m) != ((m & 1) ? 1 : -1) * tap(j, 15 - m)) return false;
  return true;
}
static_assert(mirrored_taps());

// Outputs j and 32 - j (0 < j < 16) read the same 16 values v_m: X[16 + j]
// of the even slots and X[16 - j] of the odd ones (h is the newest slot's
// row; older slots follow, 32 values apart). With t_m the taps of output j
// and s_m = -1 for even m, +1 for odd m, the mirrored taps give, per couple
// of ages m < 8 and n = 15 - m,
//   a_m = v_m t_m + v_n t_n,   b_m = s_m (v_m t_n - v_n t_m),
// formed with three products instead of four:
//   k = (v_m + v_n) t_m,  a_m = k + v_n (t_n - t_m),
//   b_m = s_m (v_m (t_m + t_n) - k).
// k goes to both sums, with the sign of b kept apart by age parity (sums e
// and o). Every product is exact, so this equals the plain sums.
template <int Stride, int J, int... M>
__attribute__((always_inline)) inline void window_pair(const s32 *h, s16 *out,
                                                       std::integer_sequence<int, M...>) {
  s64 a = kHalfStep, b = kHalfStep, e = 0, o = 0;
  (
      [&]() __attribute__((always_inline)) {
        constexpr int N = 15 - M;
        constexpr s64 tm = tap(J, M), tn = tap(J, N), sign = (M & 1) ? 1 : -1;
        const s64 vm = h[32 * M + ((M & 1) ? 16 - J : 16 + J)];
        const s64 vn = h[32 * N + ((N & 1) ? 16 - J : 16 + J)];
        // Ties the next couple's loads to the sums before this couple's
        // products: otherwise the compiler loads all sixteen values first
        // and spills them for want of registers, while tying them to the
        // sums after it would wait for every product in turn.
        asm("" : "+r"(h) : "r"(a), "r"(b), "r"(e), "r"(o));
        const s64 k = (vm + vn) * tm;
        a += vn * (tn - tm);
        b += vm * (sign * (tm + tn));
        (M & 1 ? o : e) += k;
      }(),
      ...);
  out[J * Stride] = to_pcm(a + e + o);
  out[(32 - J) * Stride] = to_pcm(b + e - o);
}

template <int Stride, int... M>
inline void window_ends(const s32 *h, s16 *out, std::integer_sequence<int, M...>) {
  s64 a = kHalfStep, b = kHalfStep;
  (
      [&] {
        a += s64(h[32 * M + 16]) * tap(0, M);
        if constexpr (M & 1) b += s64(h[32 * M]) * tap(16, M);
      }(),
      ...);
  out[0] = to_pcm(a);
  out[16 * Stride] = to_pcm(b);
}

// All 32 outputs, `Stride` apart (1 for mono, 2 for interleaved stereo).
template <int Stride, int... J>
inline void window_all(const s32 *h, s16 *out, std::integer_sequence<int, J...>) {
  (window_pair<Stride, J + 1>(h, out, std::make_integer_sequence<int, 8>{}), ...);
  window_ends<Stride>(h, out, std::make_integer_sequence<int, 16>{});
}

}  // namespace

void mpa_synth_slot(MpaSynth *f, const s32 subband[32], s16 *out, int stride) {
  // Values beyond +-4 come only from saturated spectra: one test for the
  // whole slot, and a clipped copy when it fails. A value is inside exactly
  // when adding 2^30 leaves its bit 31 clear; two values are tested per
  // 64-bit word, where the carry out of the lower one can only make the
  // test flag the upper one's largest inside value (which the clip keeps).
  u64 outside = 0;
#pragma GCC unroll 16
  for (int k = 0; k < 32; k += 2) {
    u64 pair;
    std::memcpy(&pair, subband + k, sizeof pair);
    outside |= pair + (u64(kInLimit) << 32 | u64(kInLimit));
  }
  s32 clipped[32];
  if (outside & 0x8000000080000000u) {
    for (int k = 0; k < 32; ++k) {
      const s32 v = subband[k];
      clipped[k] = v >= kInLimit ? kInLimit - 1 : v < -kInLimit ? -kInLimit : v;
    }
    subband = clipped;
  }
  int pos = (f->pos - 1) & 15;
  f->pos = pos;
  dct32(subband, f->hist[pos], std::make_integer_sequence<int, 16>{});
  std::memcpy(f->hist[pos + 16], f->hist[pos], sizeof f->hist[pos]);
  constexpr auto pairs = std::make_integer_sequence<int, 15>{};
  if (stride == 2)
    window_all<2>(f->hist[pos], out, pairs);
  else
    window_all<1>(f->hist[pos], out, pairs);
}
