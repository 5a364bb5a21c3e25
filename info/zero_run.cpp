#include "info/zero_run.h"

#include <array>
#include <cstring>

namespace {

// Whole blocks are compared with a block of zeros by memcmp, the fastest
// plain comparison the library has; the rest goes byte by byte.
constexpr u32 BLOCK = 1024;
constexpr std::array<u8, BLOCK> ZEROS{};

}  // namespace

u32 first_nonzero(const u8 *buffer, u32 from, u32 to) {
  while (from < to && to - from >= BLOCK && std::memcmp(buffer + from, ZEROS.data(), BLOCK) == 0) from += BLOCK;
  while (from < to && buffer[from] == 0) ++from;
  return from < to ? from : to;
}
