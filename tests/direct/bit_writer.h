// Writes bit fields most significant bit first, as MPEG audio frames carry
// them, so the tests can build frames field by field.
#pragma once
#include <initializer_list>
#include <utility>
#include <vector>

#include "platform/mai_types.h"

struct BitWriter {
  std::vector<u8> bytes;
  u32 bits = 0;
  void put(u32 value, int n) {
    for (int i = n - 1; i >= 0; --i, ++bits) {
      if (bits % 8 == 0) bytes.push_back(0);
      bytes.back() |= u8(((value >> i) & 1) << (7 - bits % 8));
    }
  }
  void put(std::initializer_list<std::pair<int, int>> fields) {  // {value, width} in stream order
    for (auto [value, n] : fields) put(u32(value), n);
  }
  void append(const BitWriter &w) {
    for (u32 i = 0; i < w.bits; ++i) put((w.bytes[i / 8] >> (7 - i % 8)) & 1, 1);
  }
};
