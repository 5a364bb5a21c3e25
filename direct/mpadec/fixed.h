// Fixed-point arithmetic of the decoder. Samples and coefficients are
// signed 32-bit words; products are formed in 64 bits (one 32x32->64
// multiply on MIPS32) and shifted back.
#pragma once
#include "platform/mai_types.h"

// A value with kMpaFracBits fractional bits: 1.0 is 1 << kMpaFracBits.
typedef s32 mpa_fixed;

constexpr int kMpaFracBits = 28;
constexpr mpa_fixed kMpaOne = mpa_fixed(1) << kMpaFracBits;

// Product of two values of kMpaFracBits fractional bits, rounded down.
inline mpa_fixed mpa_mul(mpa_fixed a, mpa_fixed b) {
  return mpa_fixed((s64(a) * s64(b)) >> kMpaFracBits);
}

// Product with an arbitrary shift back.
inline s32 mpa_mul_shift(s32 a, s32 b, int shift) {
  return s32((s64(a) * s64(b)) >> shift);
}

// Multiply-accumulate in 64 bits: the synthesis and IMDCT sums use this
// and shift once at the end.
inline s64 mpa_mac(s64 acc, s32 a, s32 b) { return acc + s64(a) * s64(b); }

// Arithmetic right shift with rounding to nearest.
inline s32 mpa_round_shift(s64 v, int shift) {
  return s32((v + (s64(1) << (shift - 1))) >> shift);
}

// A fraction of kMpaFracBits bits from a compile-time real constant.
constexpr mpa_fixed mpa_const(double v) {
  return mpa_fixed(v * double(kMpaOne) + (v < 0 ? -0.5 : 0.5));
}

// Clip to the 16-bit output range.
inline s16 mpa_clip16(s32 v) {
  if (v > 32767) return 32767;
  if (v < -32768) return -32768;
  return s16(v);
}

// Makes the compiler store two arrays and reload them where they are next
// used. Placed between the stages of a transform, it keeps the compiler from
// interleaving the stages, which would need more registers than a core has
// and spill far more values than the stores and reloads cost.
template <typename A, typename B>
__attribute__((always_inline)) inline void mpa_keep_in_memory(A &a, B &b) {
  asm("" : "+m"(a), "+m"(b));
}
