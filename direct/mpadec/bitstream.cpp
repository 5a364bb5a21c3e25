#include "direct/mpadec/bitstream.h"

void mpa_bits_init(MpaBits *b, const u8 *data, u32 bytes) {
  b->data = data;
  b->pos = 0;
  b->end = bytes * 8;
}

u32 mpa_bits_peek(const MpaBits *b, int n) {
  if (n == 0) return 0;
  // Gather up to five bytes covering the n bits; bytes beyond the end read
  // as zero.
  u32 byte = b->pos >> 3;
  u32 last = b->end >> 3;
  u64 acc = 0;
  for (int i = 0; i < 5; ++i) {
    acc <<= 8;
    if (byte + u32(i) < last) acc |= b->data[byte + u32(i)];
  }
  int shift = 40 - int(b->pos & 7) - n;
  return u32((acc >> shift) & ((u64(1) << n) - 1));
}

u32 mpa_bits_read(MpaBits *b, int n) {
  u32 v = mpa_bits_peek(b, n);
  b->pos += u32(n);
  return v;
}

void mpa_bits_skip(MpaBits *b, u32 n) { b->pos += n; }

u32 mpa_bits_left(const MpaBits *b) { return b->pos >= b->end ? 0 : b->end - b->pos; }

u16 mpa_crc16_update(u16 crc, const MpaBits *b, u32 bits) {
  MpaBits r = *b;
  for (u32 i = 0; i < bits; ++i) {
    u32 bit = mpa_bits_read(&r, 1);
    u32 top = (crc >> 15) & 1;
    crc = u16(crc << 1);
    if (top ^ bit) crc ^= 0x8005;
  }
  return crc;
}
