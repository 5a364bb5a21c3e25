// The board's devices other than /dev/dsp: the WM9712 codec (/dev/mixer),
// the LCD/TV switch (/dev/i2cdrv), the colour-space conversion (/dev/mae),
// the LCD controller's windows (/dev/fb0..3), the LED glasses
// (/dev/usb/hiddev0) and the touch screen (/dev/ts).
#include "tests/board/board_test_util.h"

#include <linux/fb.h>
#include <linux/hiddev.h>
#include <sys/mman.h>

#include <array>
#include <cstring>

namespace boardtest {
namespace {

using U32s = std::vector<std::uint32_t>;

class Devices : public BoardTest {};

// The codec's registers: power-on values, read-only registers and the ready
// bits of 0x26, which follow the power-down bits PR0-PR3; the selected index
// is the driver's (shared by descriptors) and values outlive descriptors;
// writing 0x00 or the reset request (null argument) restores the power-on
// values. Refused requests say why and keep the selected index.
TEST_F(Devices, MixerRegistersAndRefusals) {
  const std::tuple<std::uint8_t, std::uint16_t, std::uint16_t, std::uint16_t> cases[] = {
      // index, power-on value, value written (0: none), value read back
      {0x00, 0x6174, 0, 0x6174},      {0x04, 0x8000, 0x0E0E, 0x0E0E}, {0x2A, 0x0410, 0, 0x0410},
      {0x7C, 0x574D, 0x1234, 0x574D}, {0x7E, 0x4C12, 0x1234, 0x4C12}, {0x28, 0x0405, 0xFFFF, 0x0405},
      {0x26, 0x000F, 0x0300, 0x030C}, {0x26, 0x030C, 0x0400, 0x040B}, {0x26, 0x040B, 0x0800, 0x0803},
      {0x26, 0x0803, 0x4000, 0x400F}, {0x26, 0x400F, 0x400F, 0x400F}, {0x24, 0x0000, 0x1CCF, 0x1CCF}};
  Fd fd("/dev/mixer", O_RDWR), other("/dev/mixer", O_RDONLY);
  for (const auto &[index, before, written, after] : cases) {
    EXPECT_EQ(ac97_read(fd, index), before) << std::hex << int(index);
    if (written != 0) ac97_write(fd, index, written);
    EXPECT_EQ(ac97_read(fd, index), after) << std::hex << int(index) << " " << written;
  }
  ac97_write(fd, 0x04, 0x0E0E);
  std::uint16_t value = 0;
  EXPECT_EQ(::ioctl(other, kAc97Read, &value), 0);  // the index fd selected
  EXPECT_EQ(value, 0x0E0E);
  fd.close();
  other.close();
  Fd again("/dev/mixer", O_RDWR);
  EXPECT_EQ(ac97_read(again, 0x04), 0x0E0E);
  ac97_write(again, 0x00, 0);
  EXPECT_EQ(ac97_read(again, 0x04), 0x8000);
  ac97_write(again, 0x1C, 0x0F0F);
  EXPECT_EQ(ioctl16(again, kAc97Index, 0x7C), 0);
  board::reset();
  EXPECT_EQ(error_of([&] { return ioctl16(again, kAc97Index, 0x80); }), EINVAL);
  EXPECT_EQ(error_of([&] { return ioctl16(again, kAc97Index, 0x03); }), EINVAL);
  EXPECT_EQ(error_of([&] { return ::ioctl(again, kAc97Write, nullptr); }), EFAULT);
  EXPECT_EQ(error_of([&] { return ::ioctl(again, kAc97Read, nullptr); }), EFAULT);
  EXPECT_EQ(error_of([&] { return ::ioctl(again, 0x40044d00UL, nullptr); }), EINVAL);  // OSS volume read
  EXPECT_EQ(::ioctl(again, 0x80026619UL, nullptr), 0);
  EXPECT_EQ(board::mixer_register(0x1C), 0x8000);
  EXPECT_THAT(board::log_lines(),
              ElementsAre("mixer ioctl 0x80026616 invalid", "mixer ioctl 0x80026616 invalid",
                          "mixer ioctl 0x80026615 null", "mixer ioctl 0x40026614 null",
                          "mixer ioctl 0x40044d00 unsupported", "mixer reset"));
}

// The LCD/TV switch and the colour-space conversion refuse null records and
// unknown requests, keep what they were told for the board's view, and log
// a negative coefficient as its unsigned 32-bit value.
TEST_F(Devices, OutputSwitchAndColourConversion) {
  {
    Fd fd("/dev/i2cdrv", O_RDWR), mae("/dev/mae", O_RDWR);
    std::uint32_t position[5] = {0x58, 0x07}, write[5] = {0x4A, 0x1F, 0x80, 0, 1};  // dev, sub, data, rdata, nbytes
    EXPECT_EQ(::ioctl(fd, 0x2000740DUL), 0);
    EXPECT_EQ(board::video_output(), board::VideoOutput::component);
    EXPECT_EQ(::ioctl(fd, 0x80147410UL, position), 0);
    EXPECT_EQ(::ioctl(fd, 0x80147400UL, write), 0);
    for (unsigned long request : {0x80147410UL, 0x80147400UL})
      EXPECT_EQ(error_of([&] { return ::ioctl(fd, request, nullptr); }), EFAULT);
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x2000740EUL); }), EINVAL);
    std::array<std::uint32_t, 12> csc = {1176, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 0xFFFFFFFB};
    EXPECT_EQ(::ioctl(mae, 0x80044d15UL, csc.data()), 0);
    EXPECT_EQ(error_of([&] { return ::ioctl(mae, 0x80044d15UL, nullptr); }), EFAULT);
    EXPECT_EQ(error_of([&] { return ::ioctl(mae, 0x80044d16UL, csc.data()); }), EINVAL);
    EXPECT_THAT(board::mae_conversions(), ElementsAre(csc));
  }
  const auto w = board::i2c_writes();
  ASSERT_EQ(w.size(), 1u);
  EXPECT_EQ(U32s({board::tv_position().x, board::tv_position().y, w[0].dev, w[0].sub, w[0].data, w[0].nbytes}),
            U32s({0x58, 0x07, 0x4A, 0x1F, 0x80, 1}));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("i2cdrv open", "mae open", "i2cdrv ioctl 0x2000740d", "i2cdrv ioctl 0x80147410 x=0x58 y=0x07",
                          "i2cdrv ioctl 0x80147400 dev=0x4a sub=0x1f data=0x80 nbytes=1",
                          "i2cdrv ioctl 0x80147410 null", "i2cdrv ioctl 0x80147400 null",
                          "i2cdrv ioctl 0x2000740e unsupported",
                          "mae csc 1176 0 1634 1104 4497 4928 1280 2065 0 61969 2169 4294967291",
                          "mae ioctl 0x80044d15 null", "mae ioctl 0x80044d16 unsupported", "mae close", "i2cdrv close"));
}

// Windows start as the 480x272 RGB565 panel. A window's memory is shared by
// every descriptor of it (mmap, read, write) and by no other window. A new
// mode is checked and rounded, grows the memory and bounds panning; refused
// modes and FB_ACTIVATE_TEST change nothing. The controller's own requests
// store a record (even number) and return it (next odd number) on any
// window, zeros before.
TEST_F(Devices, FramebufferWindows) {
  Fd fd("/dev/fb2", O_RDWR), other("/dev/fb2", O_RDONLY), fb0("/dev/fb0", O_RDWR);
  fb_var_screeninfo var{};
  fb_fix_screeninfo fix{};
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
  ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
  EXPECT_EQ(U32s({var.xres, var.yres, var.bits_per_pixel, var.red.offset, var.green.length, fix.line_length,
                  fix.smem_len, fix.visual}),
            U32s({480, 272, 16, 11, 6, 960, 960 * 272, FB_VISUAL_TRUECOLOR}));
  var.xres = 320, var.yres = 240, var.xres_virtual = 0, var.yres_virtual = 480, var.bits_per_pixel = 32;
  ASSERT_EQ(::ioctl(fd, FBIOPUT_VSCREENINFO, &var), 0);
  ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
  EXPECT_EQ(U32s({var.xres_virtual, var.transp.length, fix.line_length}), U32s({320, 8, 1280}));
  ASSERT_GE(fix.smem_len, 1280u * 480u);
  auto *map = static_cast<std::uint8_t *>(::mmap(nullptr, fix.smem_len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(map, MAP_FAILED);
  map[0] = 0xAB;
  map[fix.smem_len - 1] = 1;  // the last byte is backed
  std::uint8_t first[2] = {};
  ASSERT_EQ(::read(other, first, 1), 1);
  ASSERT_EQ(::pwrite(fd, "\x07", 1, 1), 1);
  ASSERT_EQ(::read(fb0, first + 1, 1), 1);
  EXPECT_EQ(U32s({first[0], map[1], first[1]}), U32s({0xAB, 0x07, 0}));
  ::munmap(map, fix.smem_len);
  var.yoffset = 240;
  EXPECT_EQ(::ioctl(fd, FBIOPAN_DISPLAY, &var), 0);
  var.yoffset = 241;
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, FBIOPAN_DISPLAY, &var); }), EINVAL);
  EXPECT_EQ(::ioctl(fd, FBIOBLANK, FB_BLANK_POWERDOWN), 0);
  // x, y, bits per pixel, x offset, error: no such depth, too wide, offset
  // past the virtual width, and one that fits but is only tested.
  for (const U32s &m : {U32s{480, 272, 12, 0, EINVAL}, {4096, 272, 16, 0, EINVAL}, {480, 272, 16, 1, EINVAL},
                        {640, 480, 24, 0, 0}}) {
    fb_var_screeninfo v = var;
    v.xres = v.xres_virtual = m[0], v.yres = v.yres_virtual = m[1], v.bits_per_pixel = m[2], v.xoffset = m[3];
    v.yoffset = 0, v.activate = FB_ACTIVATE_TEST;
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, FBIOPUT_VSCREENINFO, &v); }), int(m[4])) << m[0] << " bpp " << m[2];
  }
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
  EXPECT_EQ(var.xres, 320u);
  const std::uint32_t screen[3] = {1, 0x1E0, 0x110};
  std::uint32_t back[3] = {}, panel = 0xFFFF;
  EXPECT_EQ(::ioctl(fd, 0x800C4680UL, screen), 0);
  EXPECT_EQ(::ioctl(fb0, 0x400C4681UL, back), 0);
  EXPECT_EQ(U32s(back, back + 3), U32s(screen, screen + 3));
  EXPECT_EQ(::ioctl(fd, 0x40044685UL, &panel), 0);
  EXPECT_EQ(panel, 0u);
  EXPECT_THAT(board::log_lines(),
              ElementsAre("fb2 open", "fb2 open", "fb0 open", "fb2 getvar", "fb2 getfix",
                          "fb2 putvar 320x240 virtual 320x480 offset 0,0 bpp 32", "fb2 getfix", "fb2 pan 0,240",
                          "fb2 ioctl 0x00004606 invalid", "fb2 blank 4", "fb2 ioctl 0x00004601 invalid",
                          "fb2 ioctl 0x00004601 invalid", "fb2 ioctl 0x00004601 invalid",
                          "fb2 putvar 640x480 virtual 640x480 offset 0,0 bpp 24 test", "fb2 getvar",
                          "fb2 ioctl 0x800c4680 00000001 000001e0 00000110",
                          "fb0 ioctl 0x400c4681 00000001 000001e0 00000110", "fb2 ioctl 0x40044685 00000000"));
}

hiddev_usage_ref usage(std::uint32_t index, std::int32_t value = 0, std::uint32_t type = HID_REPORT_TYPE_OUTPUT,
                       std::uint32_t id = HID_REPORT_ID_FIRST, std::uint32_t field = 0) {
  hiddev_usage_ref ref{};
  ref.report_type = type, ref.report_id = id, ref.field_index = field, ref.usage_index = index, ref.value = value;
  return ref;
}

// The glasses tell their identity (vendor in the low half of the word
// programs check) and name; a report is sent as one usage value per byte and
// logged as its eight bytes; values stay set after a send; anything but the
// output report's one field and eight usages is refused; reads never block.
TEST_F(Devices, GlassesAndTouchScreen) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK);
  for (auto [vendor, product] : {std::pair{0x16B4u, 0x0202u}, {0x046Du, 0xC52Bu}}) {
    if (vendor != 0x16B4) board::set_hid_identity(std::uint16_t(vendor), std::uint16_t(product));
    hiddev_devinfo info{};
    ASSERT_EQ(::ioctl(fd, 0x401C4803UL, &info), 0);
    std::uint32_t word = 0;
    std::memcpy(&word, &info.vendor, 4);
    EXPECT_EQ(U32s({info.bustype, word}), U32s({3, product << 16 | vendor}));  // USB
  }
  EXPECT_EQ(::ioctl(fd, 0x20004805UL), 0);  // init report
  char name[256], shortname[4];
  EXPECT_EQ(::ioctl(fd, 0x41004806UL, name), 12);
  EXPECT_STREQ(name, "LED glasses");
  EXPECT_EQ(::ioctl(fd, 0x40044806UL, shortname), 4);  // the start of the name, without its end mark
  EXPECT_EQ(std::string(shortname, 4), "LED ");
  const std::array<std::uint8_t, 8> light = {0x55, 0x03, 0x0E, 0x01, 0x00, 0x12, 0x34, 0xFF};
  hiddev_report_info report{HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1}, input{HID_REPORT_TYPE_INPUT, 0, 1};
  for (std::uint32_t i = 0; i < 8; ++i) {
    hiddev_usage_ref ref = usage(i, light[i]);
    ASSERT_EQ(::ioctl(fd, 0x8018480CUL, &ref), 0);
  }
  ASSERT_EQ(::ioctl(fd, 0x800C4808UL, &report), 0);
  hiddev_usage_ref ref = usage(3);
  ASSERT_EQ(::ioctl(fd, 0xC018480BUL, &ref), 0);
  EXPECT_EQ(ref.value, 0x01);
  ref = usage(1, 0x09);
  ASSERT_EQ(::ioctl(fd, 0x8018480CUL, &ref), 0);
  ASSERT_EQ(::ioctl(fd, 0x800C4808UL, &report), 0);
  std::array<std::uint8_t, 8> changed = light;
  changed[1] = 0x09;
  EXPECT_THAT(board::hid_reports(), ElementsAre(light, changed));
  EXPECT_THAT(board::log_lines(), ElementsAre("hiddev open", "hid report 55 03 0e 01 00 12 34 ff",
                                              "hid report 55 09 0e 01 00 12 34 ff"));
  board::reset();
  for (hiddev_usage_ref bad : {usage(0, 0, HID_REPORT_TYPE_INPUT), usage(0, 0, HID_REPORT_TYPE_FEATURE),
                               usage(0, 0, HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_NEXT),
                               usage(0, 0, HID_REPORT_TYPE_OUTPUT, 5),
                               usage(0, 0, HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1), usage(8)})
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x8018480CUL, &bad); }), EINVAL) << bad.report_type << bad.usage_index;
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x800C4808UL, &input); }), EINVAL);
  EXPECT_EQ(board::log_lines().size(), 7u);
  EXPECT_EQ(board::log_lines().back(), "hiddev ioctl 0x800c4808 invalid");
  EXPECT_TRUE(board::hid_reports().empty());
  // Reads: EAGAIN when non-blocking (also when switched later), else 0.
  Fd ts("/dev/ts", O_RDONLY);
  EXPECT_EQ(error_of([&] { return ::read(fd, name, 8); }), EAGAIN);
  EXPECT_EQ(::read(ts, name, 8), 0);
  ASSERT_EQ(::fcntl(ts, F_SETFL, O_NONBLOCK), 0);
  EXPECT_EQ(error_of([&] { return ::read(ts, name, 8); }), EAGAIN);
}

}  // namespace
}  // namespace boardtest
