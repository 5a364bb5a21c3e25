// "/dev/i2cdrv": the board driver that programs the video encoder over I2C.
// It switches the picture between the built-in LCD and the TV outputs
// (composite, component), moves the picture on the TV, and passes raw
// register writes through. Requests are of type 't'; the write and position
// requests take the driver's 20-byte message record.
#include "sim/board/board_internal.h"

#include <cerrno>
#include <cstring>
#include <vector>

namespace board::detail {
namespace {

// The driver's message record: five 32-bit words.
struct I2cMessage {
  u32 dev_addr;   // device address; X position for the position request
  u32 sub_addr;   // register; Y position for the position request
  u32 data;       // value to write
  u32 rdata;      // the program's result pointer (32-bit on the board), unused here
  u32 nbytes;     // bytes to transfer
};
static_assert(sizeof(I2cMessage) == 20);

constexpr u32 kI2cWrite = ioc(IOC_WRITE, 't', 0x00, sizeof(I2cMessage));
constexpr u32 kLcdOut = ioc(IOC_NONE, 't', 0x0B, 0);
constexpr u32 kTvComposite = ioc(IOC_NONE, 't', 0x0C, 0);
constexpr u32 kTvComponent = ioc(IOC_NONE, 't', 0x0D, 0);
constexpr u32 kTvPosition = ioc(IOC_WRITE, 't', 0x10, sizeof(I2cMessage));
static_assert(kI2cWrite == 0x80147400 && kLcdOut == 0x2000740B && kTvComposite == 0x2000740C &&
              kTvComponent == 0x2000740D && kTvPosition == 0x80147410);

struct VideoSwitch {
  VideoOutput output = VideoOutput::lcd;
  TvPosition position;
  std::vector<I2cWrite> writes;
};

VideoSwitch &vs() {
  static VideoSwitch *state = new VideoSwitch;
  return *state;
}

}  // namespace

int i2cdrv_ioctl(u32 request, void *arg) {
  VideoSwitch &s = vs();
  switch (request) {
    case kLcdOut:
    case kTvComposite:
    case kTvComponent:
      s.output = request == kLcdOut        ? VideoOutput::lcd
                 : request == kTvComposite ? VideoOutput::composite
                                           : VideoOutput::component;
      log_event("i2cdrv ioctl 0x%08x", request);
      return 0;
    case kI2cWrite:
    case kTvPosition: {
      if (arg == nullptr) return reject(Device::i2cdrv, request, "null", EFAULT);
      I2cMessage m;
      std::memcpy(&m, arg, sizeof m);
      if (request == kTvPosition) {
        s.position = {m.dev_addr, m.sub_addr};
        log_event("i2cdrv ioctl 0x%08x x=0x%02x y=0x%02x", request, m.dev_addr, m.sub_addr);
      } else {
        s.writes.push_back({m.dev_addr, m.sub_addr, m.data, m.nbytes});
        log_event("i2cdrv ioctl 0x%08x dev=0x%02x sub=0x%02x data=0x%02x nbytes=%u", request,
                  m.dev_addr, m.sub_addr, m.data, m.nbytes);
      }
      return 0;
    }
  }
  return reject(Device::i2cdrv, request, "unsupported", EINVAL);
}

void i2cdrv_power_on() { vs() = VideoSwitch{}; }

}  // namespace board::detail

namespace board {

VideoOutput video_output() {
  std::lock_guard lock(detail::board_mutex());
  return detail::vs().output;
}

TvPosition tv_position() {
  std::lock_guard lock(detail::board_mutex());
  return detail::vs().position;
}

std::vector<I2cWrite> i2c_writes() {
  std::lock_guard lock(detail::board_mutex());
  return detail::vs().writes;
}

}  // namespace board
