// Writes bit fields most significant bit first, as MPEG audio frames carry
// them, so the tests can build frames field by field.
#pragma once
#include <vector>

#include "platform/mai_types.h"

struct BitWriter {
  std::vector<u8> bytes;
  u32 bits = 0;
  void put(u32 value, int n) {
    for (int i = n - 1; i >= 0; --i) {
      if (bits % 8 == 0) bytes.push_back(0);
      if ((value >> i) & 1) bytes.back() |= u8(0x80 >> (bits % 8));
      ++bits;
    }
  }
};
