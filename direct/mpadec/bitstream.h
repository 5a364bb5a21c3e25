// Bit reader over a byte array, most significant bit first, as all MPEG
// audio fields are stored, and the CRC-16 of protected frames.
#pragma once
#include "platform/mai_types.h"

struct MpaBits {
  const u8 *data;
  u32 pos;  // bit position from data
  u32 end;  // bit length of the readable data
};

void mpa_bits_init(MpaBits *b, const u8 *data, u32 bytes);
// Reads n bits (0..32) as an unsigned number; reads past the end give zero
// bits and leave pos beyond end (mpa_bits_left then reports 0).
u32 mpa_bits_read(MpaBits *b, int n);
// The next n bits (0..32) without advancing.
u32 mpa_bits_peek(const MpaBits *b, int n);
void mpa_bits_skip(MpaBits *b, u32 n);
u32 mpa_bits_left(const MpaBits *b);

// CRC-16 with generator x^16 + x^15 + x^2 + 1 (0x8005), most significant
// bit first, over `bits` bits from b's position (b is not advanced). The
// frame check starts from 0xFFFF and covers the last two header bytes and
// the protected part of the side information or bit allocation.
u16 mpa_crc16_update(u16 crc, const MpaBits *b, u32 bits);
