// Fixed-width integer names used across the board's C interfaces.
// The board is 32-bit little-endian MIPS: handles and statuses are 32-bit
// words, never pointers.
#pragma once
#include <cstdint>

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef uint64_t u64;
typedef int8_t s8;
typedef int16_t s16;
typedef int32_t s32;
typedef int64_t s64;
