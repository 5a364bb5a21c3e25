// Unaligned byte-order readers. Every scanner reads its records through
// these, byte by byte, so a field at an odd offset of the head buffer needs
// no alignment (the board's MIPS core traps on unaligned word loads).
#pragma once
#include "platform/mai_types.h"

inline u8 LittleEndian2int8u(const u8 *p) { return p[0]; }
inline u16 LittleEndian2int16u(const u8 *p) { return static_cast<u16>(p[0] | (p[1] << 8)); }
inline u32 LittleEndian2int32u(const u8 *p) {
  return static_cast<u32>(p[0]) | (static_cast<u32>(p[1]) << 8) | (static_cast<u32>(p[2]) << 16) |
         (static_cast<u32>(p[3]) << 24);
}
inline s32 LittleEndian2int32s(const u8 *p) { return static_cast<s32>(LittleEndian2int32u(p)); }
inline u64 LittleEndian2int64u(const u8 *p) {
  return static_cast<u64>(LittleEndian2int32u(p)) | (static_cast<u64>(LittleEndian2int32u(p + 4)) << 32);
}
inline s64 LittleEndian2int64s(const u8 *p) { return static_cast<s64>(LittleEndian2int64u(p)); }

inline u8 BigEndian2int8u(const u8 *p) { return p[0]; }
inline u16 BigEndian2int16u(const u8 *p) { return static_cast<u16>((p[0] << 8) | p[1]); }
inline u32 BigEndian2int32u(const u8 *p) {
  return (static_cast<u32>(p[0]) << 24) | (static_cast<u32>(p[1]) << 16) | (static_cast<u32>(p[2]) << 8) |
         static_cast<u32>(p[3]);
}
inline s32 BigEndian2int32s(const u8 *p) { return static_cast<s32>(BigEndian2int32u(p)); }
inline u64 BigEndian2int64u(const u8 *p) {
  return (static_cast<u64>(BigEndian2int32u(p)) << 32) | static_cast<u64>(BigEndian2int32u(p + 4));
}

// A four-character code read little-endian: the first character is the
// lowest byte, so FourCC("RIFF") equals the word a RIFF file starts with.
inline u32 FourCC(const u8 *p) { return LittleEndian2int32u(p); }

// The same code built from a literal, for comparisons in tables.
constexpr u32 fourcc(const char (&s)[5]) {
  return static_cast<u32>(static_cast<u8>(s[0])) | (static_cast<u32>(static_cast<u8>(s[1])) << 8) |
         (static_cast<u32>(static_cast<u8>(s[2])) << 16) | (static_cast<u32>(static_cast<u8>(s[3])) << 24);
}
