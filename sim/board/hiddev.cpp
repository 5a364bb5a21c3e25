// "/dev/usb/hiddev0": the LED glasses, a USB HID device seen through the
// Linux hiddev interface. The device has one output report (id 0) of one
// field with eight usages, one per byte of the light command; a program sets
// the eight usage values with HIDIOCSUSAGE and sends the report with
// HIDIOCSREPORT. The values stay set after a send, as the kernel keeps them.
// There is no input: reads give nothing.
#include "sim/board/board_internal.h"

#include <linux/hiddev.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

namespace board::detail {
namespace {

constexpr u32 kGetVersion = ioc(IOC_READ, 'H', 0x01, sizeof(int));                  // HIDIOCGVERSION
constexpr u32 kGetDevInfo = ioc(IOC_READ, 'H', 0x03, sizeof(hiddev_devinfo));       // HIDIOCGDEVINFO
constexpr u32 kInitReport = ioc(IOC_NONE, 'H', 0x05, 0);                            // HIDIOCINITREPORT
constexpr u32 kSendReport = ioc(IOC_WRITE, 'H', 0x08, sizeof(hiddev_report_info));  // HIDIOCSREPORT
constexpr u32 kGetUsage = ioc(IOC_READ | IOC_WRITE, 'H', 0x0B, sizeof(hiddev_usage_ref));  // HIDIOCGUSAGE
constexpr u32 kSetUsage = ioc(IOC_WRITE, 'H', 0x0C, sizeof(hiddev_usage_ref));     // HIDIOCSUSAGE
// HIDIOCGNAME(len): read, number 0x06, the buffer's length in the size field.
constexpr u32 kGetNameBase = ioc(IOC_READ, 'H', 0x06, 0);
static_assert(kGetDevInfo == 0x401C4803 && kInitReport == 0x20004805 &&
              (kGetNameBase | 256u << 16) == 0x41004806 && kSetUsage == 0x8018480C &&
              kSendReport == 0x800C4808);

constexpr u32 kBusUsb = 3;
constexpr u32 kUsages = 8;
constexpr char kName[] = "LED glasses";
constexpr int kHiddevVersion = 0x010004;

struct Hid {
  u16 vendor = 0x16B4;
  u16 product = 0x0202;
  std::array<std::int32_t, kUsages> values{};  // the output field's usage values
  std::vector<std::array<u8, 8>> reports;       // every report sent
};

Hid &hid() {
  static Hid *state = new Hid;
  return *state;
}

// The output report is addressed as the first report or by its id, 0.
bool output_report(u32 type, u32 id) {
  if (type != HID_REPORT_TYPE_OUTPUT) return false;
  return (id & ~static_cast<u32>(HID_REPORT_ID_MASK)) == HID_REPORT_ID_FIRST || id == 0;
}

bool valid_usage(const hiddev_usage_ref &ref) {
  return output_report(ref.report_type, ref.report_id) && ref.field_index == 0 &&
         ref.usage_index < kUsages;
}

}  // namespace

int hiddev_ioctl(u32 request, void *arg) {
  Hid &h = hid();
  if (request == kInitReport) return 0;
  const bool get_name = (request & ~(0x1FFFu << 16)) == kGetNameBase;
  if (request != kGetVersion && request != kGetDevInfo && request != kSendReport &&
      request != kGetUsage && request != kSetUsage && !get_name) {
    return reject(Device::hiddev, request, "unsupported", EINVAL);
  }
  if (arg == nullptr) return reject(Device::hiddev, request, "null", EFAULT);
  if (get_name) {
    // As the kernel: the name with its terminating zero, cut to the buffer.
    const u32 len = std::min<u32>(sizeof kName, ioc_size(request));
    std::memcpy(arg, kName, len);
    return static_cast<int>(len);
  }
  switch (request) {
    case kGetVersion:
      std::memcpy(arg, &kHiddevVersion, sizeof kHiddevVersion);
      return 0;
    case kGetDevInfo: {
      hiddev_devinfo info{};
      info.bustype = kBusUsb;
      info.busnum = 1;
      info.devnum = 2;
      info.ifnum = 0;
      info.vendor = static_cast<__s16>(h.vendor);
      info.product = static_cast<__s16>(h.product);
      info.version = 0x0100;
      info.num_applications = 1;
      std::memcpy(arg, &info, sizeof info);
      return 0;
    }
    case kSetUsage:
    case kGetUsage: {
      hiddev_usage_ref ref;
      std::memcpy(&ref, arg, sizeof ref);
      if (!valid_usage(ref)) return reject(Device::hiddev, request, "invalid", EINVAL);
      if (request == kSetUsage) {
        h.values[ref.usage_index] = ref.value;
      } else {
        ref.value = h.values[ref.usage_index];
        std::memcpy(arg, &ref, sizeof ref);
      }
      return 0;
    }
    case kSendReport: {
      hiddev_report_info info;
      std::memcpy(&info, arg, sizeof info);
      if (!output_report(info.report_type, info.report_id))
        return reject(Device::hiddev, request, "invalid", EINVAL);
      std::array<u8, 8> bytes;
      for (u32 i = 0; i < kUsages; ++i) bytes[i] = static_cast<u8>(h.values[i]);
      h.reports.push_back(bytes);
      log_event("hid report %02x %02x %02x %02x %02x %02x %02x %02x", bytes[0], bytes[1], bytes[2],
                bytes[3], bytes[4], bytes[5], bytes[6], bytes[7]);
      return 0;
    }
  }
  return -EINVAL;
}

void hiddev_power_on() {
  Hid &h = hid();
  h.values.fill(0);
  h.reports.clear();
}

void hiddev_set_identity(u16 vendor, u16 product) {
  hid().vendor = vendor;
  hid().product = product;
}

}  // namespace board::detail

namespace board {

std::vector<std::array<std::uint8_t, 8>> hid_reports() {
  std::lock_guard lock(detail::board_mutex());
  return detail::hid().reports;
}

}  // namespace board
