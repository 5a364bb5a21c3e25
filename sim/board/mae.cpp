// "/dev/mae": the Au1200 media acceleration engine. The one request modelled
// loads the colour-space conversion used for the video picture: twelve
// 32-bit coefficients (the gains and offsets of the YUV to RGB matrix).
// On the board the request's size field is that of a pointer (4 bytes);
// the argument points at the twelve words.
#include "sim/board/board_internal.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace board::detail {
namespace {

constexpr u32 kCsc = ioc(IOC_WRITE, 'M', 0x15, 4);  // AU1XXXMAE_CSC
static_assert(kCsc == 0x80044d15);

using Coefficients = std::array<u32, 12>;

struct Mae {
  std::vector<Coefficients> conversions;
};

Mae &mae() {
  static Mae *state = new Mae;
  return *state;
}

}  // namespace

int mae_ioctl(u32 request, void *arg) {
  if (request != kCsc) return reject(Device::mae, request, "unsupported", EINVAL);
  if (arg == nullptr) return reject(Device::mae, request, "null", EFAULT);
  Coefficients c;
  std::memcpy(c.data(), arg, sizeof c);
  mae().conversions.push_back(c);
  // Unsigned decimal: negative offsets show as their 32-bit two's complement.
  log_event("mae csc %u %u %u %u %u %u %u %u %u %u %u %u", c[0], c[1], c[2], c[3], c[4], c[5], c[6],
            c[7], c[8], c[9], c[10], c[11]);
  return 0;
}

void mae_power_on() { mae().conversions.clear(); }

}  // namespace board::detail

namespace board {

std::vector<std::array<std::uint32_t, 12>> mae_conversions() {
  std::lock_guard lock(detail::board_mutex());
  return detail::mae().conversions;
}

}  // namespace board
