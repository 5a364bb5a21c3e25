#include "direct/mpadec/bitstream.h"

void mpa_bits_init(MpaBits *b, const u8 *data, u32 bytes) {
  b->data = data;
  b->pos = 0;
  b->end = bytes * 8;
}

u64 mpa_bits_peek64_slow(const MpaBits *b) {
  // Nine bytes cover 64 bits from any bit offset; bytes at or beyond the
  // end read as zero.
  u32 byte = b->pos >> 3;
  u32 last = b->end >> 3;
  u64 hi = 0;
  for (u32 i = 0; i < 8; ++i) hi = (hi << 8) | (byte + i < last ? b->data[byte + i] : 0u);
  u32 extra = byte + 8 < last ? b->data[byte + 8] : 0u;
  int shift = int(b->pos & 7);
  return shift == 0 ? hi : (hi << shift) | (u64(extra) >> (8 - shift));
}

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
