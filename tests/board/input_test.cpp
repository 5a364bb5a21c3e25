// The USB devices and inputs: the LED glasses on /dev/usb/hiddev0 and the
// touch screen /dev/ts.
#include "tests/board/board_test_util.h"

#include <linux/hiddev.h>

#include <array>
#include <cstring>

namespace boardtest {
namespace {

constexpr unsigned long kGetDevInfo = 0x401C4803, kInitReport = 0x20004805, kGetName256 = 0x41004806,
                        kSetUsage = 0x8018480C, kSendReport = 0x800C4808, kGetUsage = 0xC018480B;

hiddev_usage_ref usage(std::uint32_t index, std::int32_t value = 0, std::uint32_t type = HID_REPORT_TYPE_OUTPUT,
                       std::uint32_t id = HID_REPORT_ID_FIRST, std::uint32_t field = 0) {
  hiddev_usage_ref ref{};
  ref.report_type = type;
  ref.report_id = id;
  ref.field_index = field;
  ref.usage_index = index;
  ref.usage_code = 1;
  ref.value = value;
  return ref;
}

int send(int fd, std::uint32_t type = HID_REPORT_TYPE_OUTPUT) {
  hiddev_report_info info{type, HID_REPORT_ID_FIRST, 1};
  return ::ioctl(fd, kSendReport, &info);
}

// One output report the way the glasses' programs send it: a usage value
// per byte, then the send.
int send_report(int fd, const std::array<std::uint8_t, 8> &bytes) {
  for (std::uint32_t i = 0; i < 8; ++i) {
    hiddev_usage_ref ref = usage(i, bytes[i]);
    if (::ioctl(fd, kSetUsage, &ref) != 0) return -1;
  }
  return send(fd);
}

class Glasses : public BoardTest {};

TEST_F(Glasses, Identity) {
  for (auto [vendor, product] : {std::pair{0x16B4, 0x0202}, {0x046D, 0xC52B}}) {
    if (vendor != 0x16B4) board::set_hid_identity(vendor, product);
    Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    hiddev_devinfo info{};
    ASSERT_EQ(::ioctl(fd, kGetDevInfo, &info), 0);
    EXPECT_EQ(info.bustype, 3u);  // USB
    // The check programs make: vendor in the low half, product in the high.
    std::uint32_t word = 0;
    std::memcpy(&word, &info.vendor, 4);
    EXPECT_EQ(word, static_cast<std::uint32_t>(product << 16 | vendor));
  }
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  EXPECT_EQ(::ioctl(fd, kInitReport), 0);
  char name[256];
  std::memset(name, 'x', sizeof name);
  EXPECT_EQ(::ioctl(fd, kGetName256, name), 12);
  EXPECT_STREQ(name, "LED glasses");
  // A short buffer gets the start of the name, without its end mark.
  char shortname[4];
  EXPECT_EQ(::ioctl(fd, 0x40044806UL, shortname), 4);
  EXPECT_EQ(std::string(shortname, 4), "LED ");
  char event[8];
  EXPECT_EQ(call([&] { return ::read(fd, event, sizeof event); }).error, EAGAIN);  // no input events
}

TEST_F(Glasses, ReportsAreLoggedAsTheirEightBytes) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  const std::array<std::uint8_t, 8> start = {0x55, 0x01, 0, 0, 0, 0, 0, 0};
  const std::array<std::uint8_t, 8> light = {0x55, 0x03, 0x0E, 0x01, 0x00, 0x12, 0x34, 0xFF};
  EXPECT_EQ(send_report(fd, start), 0);
  EXPECT_EQ(send_report(fd, light), 0);
  // Usage values stay set after a send: changing one byte keeps the others.
  hiddev_usage_ref ref = usage(3);
  ASSERT_EQ(::ioctl(fd, kGetUsage, &ref), 0);
  EXPECT_EQ(ref.value, 0x01);
  ref = usage(1, 0x09);
  ASSERT_EQ(::ioctl(fd, kSetUsage, &ref), 0);
  ASSERT_EQ(send(fd), 0);
  fd.close();
  EXPECT_THAT(board::hid_reports(),
              ElementsAre(start, light, std::array<std::uint8_t, 8>{0x55, 0x09, 0x0E, 0x01, 0x00, 0x12, 0x34, 0xFF}));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("hiddev open", "hid report 55 01 00 00 00 00 00 00", "hid report 55 03 0e 01 00 12 34 ff",
                          "hid report 55 09 0e 01 00 12 34 ff", "hiddev close"));
}

TEST_F(Glasses, RefusedUsagesAndReports) {
  const hiddev_usage_ref bad[] = {
      usage(0, 0, HID_REPORT_TYPE_INPUT),                         // no input report
      usage(0, 0, HID_REPORT_TYPE_FEATURE),                       // no feature report
      usage(0, 0, HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_NEXT),    // only one report
      usage(0, 0, HID_REPORT_TYPE_OUTPUT, 5),                     // no report 5
      usage(0, 0, HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1),  // one field
      usage(8),                                                   // eight usages
  };
  Fd fd("/dev/usb/hiddev0", O_RDWR);
  board::reset();
  for (hiddev_usage_ref ref : bad) EXPECT_EQ(call([&] { return ::ioctl(fd, kSetUsage, &ref); }).error, EINVAL);
  EXPECT_EQ(call([&] { return send(fd, HID_REPORT_TYPE_INPUT); }).error, EINVAL);
  EXPECT_EQ(board::log_lines().size(), 7u);
  EXPECT_EQ(board::log_lines().front(), "hiddev ioctl 0x8018480c invalid");
  EXPECT_EQ(board::log_lines().back(), "hiddev ioctl 0x800c4808 invalid");
  EXPECT_TRUE(board::hid_reports().empty());
}

TEST_F(Glasses, TouchScreenIsHeldOpenWithoutTouches) {
  {
    Fd nonblocking("/dev/ts", O_RDWR | O_NONBLOCK);
    ASSERT_GE(nonblocking, 0);
    char sample[16];
    EXPECT_EQ(call([&] { return ::read(nonblocking, sample, sizeof sample); }).error, EAGAIN);
    Fd blocking("/dev/ts", O_RDONLY);
    EXPECT_EQ(::read(blocking, sample, sizeof sample), 0);  // never waits
    ASSERT_EQ(::fcntl(blocking, F_SETFL, O_NONBLOCK), 0);   // switching later is seen too
    EXPECT_EQ(call([&] { return ::read(blocking, sample, sizeof sample); }).error, EAGAIN);
  }
  EXPECT_THAT(board::log_lines(), ElementsAre("ts open", "ts open", "ts close", "ts close"));
}

}  // namespace
}  // namespace boardtest
