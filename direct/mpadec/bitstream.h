// Bit reader over a byte array, most significant bit first, as all MPEG
// audio fields are stored, and the CRC-16 of protected frames.
#pragma once
#include <cstring>

#include "platform/mai_types.h"

struct MpaBits {
  const u8 *data;
  u32 pos;  // bit position from data
  u32 end;  // bit length of the readable data
};

void mpa_bits_init(MpaBits *b, const u8 *data, u32 bytes);

// Bytes beyond the end read as zero, gathered one by one.
u64 mpa_bits_peek64_slow(const MpaBits *b);

// The next 57 or more bits, left-aligned in 64 (bit 63 is the next bit).
// Eight whole bytes are loaded when they lie within the data.
inline u64 mpa_bits_peek64(const MpaBits *b) {
  u32 byte = b->pos >> 3;
  if (byte + 8 > b->end >> 3) return mpa_bits_peek64_slow(b);
  u64 v;
  std::memcpy(&v, b->data + byte, 8);
  v = __builtin_bswap64(v);
  return v << (b->pos & 7);
}

// The next n bits (0..32) without advancing.
inline u32 mpa_bits_peek(const MpaBits *b, int n) {
  return n == 0 ? 0 : u32(mpa_bits_peek64(b) >> (64 - n));
}
// Reads n bits (0..32) as an unsigned number; reads past the end give zero
// bits and leave pos beyond end (mpa_bits_left then reports 0).
inline u32 mpa_bits_read(MpaBits *b, int n) {
  u32 v = mpa_bits_peek(b, n);
  b->pos += u32(n);
  return v;
}
inline void mpa_bits_skip(MpaBits *b, u32 n) { b->pos += n; }
inline u32 mpa_bits_left(const MpaBits *b) { return b->pos >= b->end ? 0 : b->end - b->pos; }

// CRC-16 with generator x^16 + x^15 + x^2 + 1 (0x8005), most significant
// bit first, over `bits` bits from b's position (b is not advanced). The
// frame check starts from 0xFFFF and covers the last two header bytes and
// the protected part of the side information or bit allocation.
u16 mpa_crc16_update(u16 crc, const MpaBits *b, u32 bits);
