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
// unknown requests; the switch keeps the position and writes for the
// board's view; a negative coefficient is logged as its unsigned value.
TEST_F(Devices, OutputSwitchAndColourConversion) {
  {
    Fd fd("/dev/i2cdrv", O_RDWR), mae("/dev/mae", O_RDWR);
    std::uint32_t position[5] = {0x58, 0x07}, write[5] = {0x4A, 0x1F, 0x80, 0, 1};  // dev, sub, data, rdata, nbytes
    EXPECT_EQ(::ioctl(fd, 0x80147410UL, position), 0);
    EXPECT_EQ(::ioctl(fd, 0x80147400UL, write), 0);
    for (unsigned long request : {0x80147410UL, 0x80147400UL})
      EXPECT_EQ(error_of([&] { return ::ioctl(fd, request, nullptr); }), EFAULT);
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x2000740EUL); }), EINVAL);
    std::array<std::uint32_t, 12> csc = {1176, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 0xFFFFFFFB};
    EXPECT_EQ(::ioctl(mae, 0x80044d15UL, csc.data()), 0);
    EXPECT_EQ(error_of([&] { return ::ioctl(mae, 0x80044d15UL, nullptr); }), EFAULT);
    EXPECT_EQ(error_of([&] { return ::ioctl(mae, 0x80044d16UL, csc.data()); }), EINVAL);
  }
  const auto w = board::i2c_writes();
  ASSERT_EQ(w.size(), 1u);
  EXPECT_EQ(U32s({board::tv_position().x, board::tv_position().y, w[0].dev, w[0].sub, w[0].data, w[0].nbytes}),
            U32s({0x58, 0x07, 0x4A, 0x1F, 0x80, 1}));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("i2cdrv open", "mae open", "i2cdrv ioctl 0x80147410 x=0x58 y=0x07",
                          "i2cdrv ioctl 0x80147400 dev=0x4a sub=0x1f data=0x80 nbytes=1",
                          "i2cdrv ioctl 0x80147410 null", "i2cdrv ioctl 0x80147400 null",
                          "i2cdrv ioctl 0x2000740e unsupported",
                          "mae csc 1176 0 1634 1104 4497 4928 1280 2065 0 61969 2169 4294967291",
                          "mae ioctl 0x80044d15 null", "mae ioctl 0x80044d16 unsupported", "mae close",
                          "i2cdrv close"));
}

// Windows start as the 480x272 RGB565 panel. A window's memory is shared by
// every descriptor of it (mmap, read) and by no other window. A new mode is
// checked and rounded, grows the memory and bounds panning; a refused mode
// and FB_ACTIVATE_TEST change nothing. The controller's own requests store a
// record (even number) and return it (next odd number) on any window.
TEST_F(Devices, FramebufferWindows) {
  Fd fd("/dev/fb2", O_RDWR), other("/dev/fb2", O_RDONLY), fb0("/dev/fb0", O_RDWR);
  fb_var_screeninfo var{};
  fb_fix_screeninfo fix{};
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
  ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
  EXPECT_EQ(U32s({var.xres, var.yres, var.bits_per_pixel, var.green.length, fix.line_length, fix.smem_len}),
            U32s({480, 272, 16, 6, 960, 960 * 272}));
  var.xres = 320, var.yres = 240, var.xres_virtual = 0, var.yres_virtual = 480, var.bits_per_pixel = 32;
  ASSERT_EQ(::ioctl(fd, FBIOPUT_VSCREENINFO, &var), 0);
  ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
  EXPECT_EQ(U32s({var.xres_virtual, var.transp.length, fix.line_length, fix.smem_len}),
            U32s({320, 8, 1280, 1280 * 480}));
  auto *map = static_cast<std::uint8_t *>(::mmap(nullptr, fix.smem_len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(map, MAP_FAILED);
  map[0] = 0xAB;
  map[fix.smem_len - 1] = 1;  // the last byte is backed
  std::uint8_t first[2] = {};
  ASSERT_EQ(::read(other, first, 1), 1);
  ASSERT_EQ(::read(fb0, first + 1, 1), 1);
  EXPECT_EQ(U32s({first[0], first[1]}), U32s({0xAB, 0}));
  ::munmap(map, fix.smem_len);
  var.yoffset = 240;
  EXPECT_EQ(::ioctl(fd, FBIOPAN_DISPLAY, &var), 0);
  var.yoffset = 241;
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, FBIOPAN_DISPLAY, &var); }), EINVAL);
  EXPECT_EQ(::ioctl(fd, FBIOBLANK, FB_BLANK_POWERDOWN), 0);
  for (auto [bpp, error] : {std::pair{12u, EINVAL}, {24u, 0}}) {  // no such depth; a mode only tested
    fb_var_screeninfo v = var;
    v.xres = v.xres_virtual = 640, v.yres = v.yres_virtual = 480, v.bits_per_pixel = bpp, v.yoffset = 0;
    v.activate = FB_ACTIVATE_TEST;
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, FBIOPUT_VSCREENINFO, &v); }), error) << bpp;
  }
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
  EXPECT_EQ(var.xres, 320u);
  const std::uint32_t screen[3] = {1, 0x1E0, 0x110};
  std::uint32_t back[3] = {};
  EXPECT_EQ(::ioctl(fd, 0x800C4680UL, screen), 0);
  EXPECT_EQ(::ioctl(fb0, 0x400C4681UL, back), 0);
  EXPECT_EQ(U32s(back, back + 3), U32s(screen, screen + 3));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("fb2 open", "fb2 open", "fb0 open", "fb2 getvar", "fb2 getfix",
                          "fb2 putvar 320x240 virtual 320x480 offset 0,0 bpp 32", "fb2 getfix", "fb2 pan 0,240",
                          "fb2 ioctl 0x00004606 invalid", "fb2 blank 4", "fb2 ioctl 0x00004601 invalid",
                          "fb2 putvar 640x480 virtual 640x480 offset 0,0 bpp 24 test", "fb2 getvar",
                          "fb2 ioctl 0x800c4680 00000001 000001e0 00000110",
                          "fb0 ioctl 0x400c4681 00000001 000001e0 00000110"));
}

// The glasses tell their identity (vendor in the low half of the word
// programs check) and name; a report is sent as one usage value per byte and
// logged as its eight bytes; values stay set after a send; anything but the
// output report's one field and eight usages is refused. Neither the glasses
// nor the touch screen have input: reads give EAGAIN when non-blocking (also
// when switched later), else 0.
TEST_F(Devices, GlassesAndTouchScreen) {
  Fd fd("/dev/usb/hiddev0", O_RDWR | O_NONBLOCK), ts("/dev/ts", O_RDONLY);
  board::set_hid_identity(0x046D, 0xC52B);
  hiddev_devinfo info{};
  ASSERT_EQ(::ioctl(fd, 0x401C4803UL, &info), 0);
  std::uint32_t word = 0;
  std::memcpy(&word, &info.vendor, 4);
  EXPECT_EQ(U32s({info.bustype, word}), U32s({3, 0xC52B046D}));  // USB
  char name[256];
  EXPECT_EQ(::ioctl(fd, 0x20004805UL), 0);  // init report
  EXPECT_EQ(::ioctl(fd, 0x41004806UL, name), 12);
  EXPECT_STREQ(name, "LED glasses");
  EXPECT_EQ(::ioctl(fd, 0x40044806UL, name), 4);  // a short buffer: the start, without the end mark
  const std::array<std::uint8_t, 8> light = {0x55, 0x03, 0x0E, 0x01, 0x00, 0x12, 0x34, 0xFF};
  hiddev_report_info report{HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 1}, input{HID_REPORT_TYPE_INPUT, 0, 1};
  hiddev_usage_ref ref{HID_REPORT_TYPE_OUTPUT, HID_REPORT_ID_FIRST, 0, 0, 1, 0};
  for (ref.usage_index = 0; ref.usage_index < 8; ++ref.usage_index) {
    ref.value = light[ref.usage_index];
    ASSERT_EQ(::ioctl(fd, 0x8018480CUL, &ref), 0);
  }
  ASSERT_EQ(::ioctl(fd, 0x800C4808UL, &report), 0);
  ref.usage_index = 1, ref.value = 9;
  ASSERT_EQ(::ioctl(fd, 0x8018480CUL, &ref), 0);
  ASSERT_EQ(::ioctl(fd, 0x800C4808UL, &report), 0);
  ref.usage_index = 8;
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x8018480CUL, &ref); }), EINVAL);
  ref.usage_index = 0, ref.report_type = HID_REPORT_TYPE_FEATURE;
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x8018480CUL, &ref); }), EINVAL);
  EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0x800C4808UL, &input); }), EINVAL);
  std::array<std::uint8_t, 8> changed = light;
  changed[1] = 0x09;
  EXPECT_THAT(board::hid_reports(), ElementsAre(light, changed));
  EXPECT_THAT(board::log_lines(),
              ElementsAre("hiddev open", "ts open", "hid report 55 03 0e 01 00 12 34 ff",
                          "hid report 55 09 0e 01 00 12 34 ff", "hiddev ioctl 0x8018480c invalid",
                          "hiddev ioctl 0x8018480c invalid", "hiddev ioctl 0x800c4808 invalid"));
  EXPECT_EQ(error_of([&] { return ::read(fd, name, 8); }), EAGAIN);
  EXPECT_EQ(::read(ts, name, 8), 0);
  ASSERT_EQ(::fcntl(ts, F_SETFL, O_NONBLOCK), 0);
  EXPECT_EQ(error_of([&] { return ::read(ts, name, 8); }), EAGAIN);
}

}  // namespace
}  // namespace boardtest
