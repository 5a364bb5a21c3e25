// Fixed-point arithmetic of the decoder. Samples and coefficients are
// signed 32-bit words; products are formed in 64 bits (one 32x32->64
// multiply on MIPS32) and shifted back.
#pragma once
#include "platform/mai_types.h"

// A value with kMpaFracBits fractional bits: 1.0 is 1 << kMpaFracBits.
typedef s32 mpa_fixed;

constexpr int kMpaFracBits = 28;
constexpr mpa_fixed kMpaOne = mpa_fixed(1) << kMpaFracBits;

// Arithmetic right shift with rounding to nearest.
inline s32 mpa_round_shift(s64 v, int shift) {
  return s32((v + (s64(1) << (shift - 1))) >> shift);
}

// Makes the compiler store two arrays and reload them where they are next
// used. Placed between the stages of a transform, it keeps the compiler from
// interleaving the stages, which would need more registers than a core has
// and spill far more values than the stores and reloads cost.
template <typename A, typename B>
__attribute__((always_inline)) inline void mpa_keep_in_memory(A &a, B &b) {
  asm("" : "+m"(a), "+m"(b));
}
