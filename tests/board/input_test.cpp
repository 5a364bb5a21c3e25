// The USB devices and inputs: the LED glasses on /dev/usb/hiddev0 and the
// touch screen /dev/ts.
#include "tests/board/board_test_util.h"

#include <linux/hiddev.h>

#include <array>
#include <cstring>

namespace boardtest {
namespace {

constexpr unsigned long kGetDevInfo = 0x401C4803, kInitReport = 0x20004805,
                        kGetName256 = 0x41004806, kSetUsage = 0x8018480C,
                        kSendReport = 0x800C4808, kGetUsage = 0xC018480B;

// One output report the way the glasses' programs send it: a usage value
// per byte, then the send.
int send_report(int fd, const std::array<std::uint8_t, 8> &bytes) {
  for (std::uint32_t i = 0; i < 8; ++i) {
    hiddev_usage_ref ref{};
    ref.report_type = HID_REPORT_TYPE_OUTPUT;
    ref.report_id = HID_REPORT_ID_FIRST;
    ref.field_index = 0;
    ref.usage_index = i;
    ref.usage_code = 1;
    ref.value = bytes[i];
    if (::ioctl(fd, kSetUsage, &ref) != 0) return -1;
  }
  hiddev_report_info info{};
  info.report_type = HID_REPORT_TYPE_OUTPUT;
  info.report_id = HID_REPORT_ID_FIRST;
  info.num_fields = 1;
  return ::ioctl(fd, kSendReport, &info);
}

class Glasses : public BoardTest {};

TEST_F(Glasses, IdentifyAsTheLedGlasses) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  ASSERT_GE(fd, 0);
  hiddev_devinfo info{};
  ASSERT_EQ(::ioctl(fd, kGetDevInfo, &info), 0);
  EXPECT_EQ(info.bustype, 3u);  // USB
  EXPECT_EQ(static_cast<std::uint16_t>(info.vendor), 0x16B4);
  EXPECT_EQ(static_cast<std::uint16_t>(info.product), 0x0202);
  // The check programs make: vendor in the low half, product in the high.
  std::uint32_t word = 0;
  std::memcpy(&word, &info.vendor, 4);
  EXPECT_EQ(word, 0x020216B4u);
  EXPECT_EQ(::ioctl(fd, kInitReport), 0);
  char name[256];
  std::memset(name, 'x', sizeof name);
  EXPECT_EQ(::ioctl(fd, kGetName256, name), 12);
  EXPECT_STREQ(name, "LED glasses");
  // A short buffer gets the start of the name, without its end mark.
  char shortname[4];
  EXPECT_EQ(::ioctl(fd, 0x40044806UL, shortname), 4);
  EXPECT_EQ(std::string(shortname, 4), "LED ");
}

TEST_F(Glasses, AnotherIdentityCanBeSet) {
  board::set_hid_identity(0x046D, 0xC52B);
  Fd fd("/dev/usb/hiddev0", O_RDWR);
  hiddev_devinfo info{};
  ASSERT_EQ(::ioctl(fd, kGetDevInfo, &info), 0);
  EXPECT_EQ(static_cast<std::uint16_t>(info.vendor), 0x046D);
  EXPECT_EQ(static_cast<std::uint16_t>(info.product), 0xC52B);
}

TEST_F(Glasses, ReportsAreLoggedAsTheirEightBytes) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  const std::array<std::uint8_t, 8> start = {0x55, 0x01, 0, 0, 0, 0, 0, 0};
  const std::array<std::uint8_t, 8> light = {0x55, 0x03, 0x0E, 0x01, 0x00, 0x12, 0x34, 0xFF};
  const std::array<std::uint8_t, 8> stop = {0x55, 0x02, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(send_report(fd, start), 0);
  EXPECT_EQ(send_report(fd, light), 0);
  EXPECT_EQ(send_report(fd, stop), 0);
  fd.close();
  EXPECT_THAT(board::hid_reports(), ElementsAre(start, light, stop));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("hiddev open", "hid report 55 01 00 00 00 00 00 00",
                          "hid report 55 03 0e 01 00 12 34 ff", "hid report 55 02 00 00 00 00 00 00",
                          "hiddev close"));
}

TEST_F(Glasses, UsageValuesStaySetAfterASend) {
  Fd fd("/dev/usb/hiddev0", O_RDWR);
  EXPECT_EQ(send_report(fd, {0x55, 7, 7, 7, 7, 7, 7, 7}), 0);
  hiddev_usage_ref ref{};
  ref.report_type = HID_REPORT_TYPE_OUTPUT;
  ref.report_id = HID_REPORT_ID_FIRST;
  ref.usage_index = 3;
  ASSERT_EQ(::ioctl(fd, kGetUsage, &ref), 0);
  EXPECT_EQ(ref.value, 7);
  // Changing one byte and sending again keeps the others.
  ref.usage_index = 1;
  ref.value = 0x09;
  ASSERT_EQ(::ioctl(fd, kSetUsage, &ref), 0);
  hiddev_report_info info{HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1};
  ASSERT_EQ(::ioctl(fd, kSendReport, &info), 0);
  EXPECT_EQ(board::log_lines().back(), "hid report 55 09 07 07 07 07 07 07");
}

TEST_F(Glasses, RefusedUsagesAndReports) {
  struct Case {
    std::uint32_t type, id, field, usage;
  };
  const Case bad_usages[] = {
      {HID_REPORT_TYPE_INPUT, HID_REPORT_ID_FIRST, 0, 0},    // no input report
      {HID_REPORT_TYPE_FEATURE, HID_REPORT_ID_FIRST, 0, 0},  // no feature report
      {HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_NEXT, 0, 0},    // only one report
      {HID_REPORT_TYPE_OUTPUT, 5, 0, 0},                     // no report 5
      {HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1, 0},   // one field
      {HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 0, 8},   // eight usages
  };
  Fd fd("/dev/usb/hiddev0", O_RDWR);
  board::reset();
  for (const Case &c : bad_usages) {
    hiddev_usage_ref ref{};
    ref.report_type = c.type;
    ref.report_id = c.id;
    ref.field_index = c.field;
    ref.usage_index = c.usage;
    EXPECT_EQ(call([&] { return ::ioctl(fd, kSetUsage, &ref); }).error, EINVAL);
  }
  hiddev_report_info input{HID_REPORT_TYPE_INPUT, HID_REPORT_ID_FIRST, 1};
  EXPECT_EQ(call([&] { return ::ioctl(fd, kSendReport, &input); }).error, EINVAL);
  EXPECT_EQ(board::log_lines().size(), 7u);
  EXPECT_EQ(board::log_lines().front(), "hiddev ioctl 0x8018480c invalid");
  EXPECT_EQ(board::log_lines().back(), "hiddev ioctl 0x800c4808 invalid");
  EXPECT_TRUE(board::hid_reports().empty());
}

TEST_F(Glasses, NoInputEvents) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  char event[8];
  EXPECT_EQ(call([&] { return ::read(fd, event, sizeof event); }).error, EAGAIN);
}

// ---- Touch screen ----

TEST_F(Glasses, TouchScreenIsHeldOpenWithoutTouches) {
  {
    Fd nonblocking("/dev/ts", O_RDWR | O_NONBLOCK);
    ASSERT_GE(nonblocking, 0);
    char sample[16];
    const Call r = call([&] { return ::read(nonblocking, sample, sizeof sample); });
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.error, EAGAIN);
    Fd blocking("/dev/ts", O_RDONLY);
    EXPECT_EQ(::read(blocking, sample, sizeof sample), 0);  // never waits
    // Switching to non-blocking later is seen too.
    ASSERT_EQ(::fcntl(blocking, F_SETFL, O_NONBLOCK), 0);
    EXPECT_EQ(call([&] { return ::read(blocking, sample, sizeof sample); }).error, EAGAIN);
  }
  EXPECT_THAT(board::log_lines(), ElementsAre("ts open", "ts open", "ts close", "ts close"));
}

}  // namespace
}  // namespace boardtest
