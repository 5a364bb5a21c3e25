// The picture devices: the LCD/TV switch (/dev/i2cdrv), the colour-space
// conversion (/dev/mae) and the LCD controller's windows (/dev/fb0..3).
#include "tests/board/board_test_util.h"

#include <linux/fb.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace boardtest {
namespace {

class Video : public BoardTest {};

// The driver's 20-byte message record.
struct I2cMessage {
  std::uint32_t dev, sub, data, rdata, nbytes;
};

TEST_F(Video, SwitchRequests) {
  EXPECT_EQ(board::video_output(), board::VideoOutput::lcd);
  Fd fd("/dev/i2cdrv", O_RDWR | O_NONBLOCK);
  ASSERT_GE(fd, 0);
  // The selections take no argument; programs call ioctl with two.
  for (auto [request, output] : {std::pair{0x2000740CUL, board::VideoOutput::composite},
                                 {0x2000740DUL, board::VideoOutput::component},
                                 {0x2000740BUL, board::VideoOutput::lcd}}) {
    EXPECT_EQ(::ioctl(fd, request), 0);
    EXPECT_EQ(board::video_output(), output);
  }
  I2cMessage position{0x58, 0x00, 0, 0, 0};
  EXPECT_EQ(::ioctl(fd, 0x80147410UL, &position), 0);
  I2cMessage write{0x4A, 0x1F, 0x80, 0, 1};
  EXPECT_EQ(::ioctl(fd, 0x80147400UL, &write), 0);
  EXPECT_EQ(call([&] { return ::ioctl(fd, 0x80147410UL, nullptr); }).error, EFAULT);
  EXPECT_EQ(call([&] { return ::ioctl(fd, 0x2000740EUL); }).error, EINVAL);
  fd.close();
  EXPECT_EQ(board::tv_position().x, 0x58u);
  EXPECT_EQ(board::tv_position().y, 0x00u);
  const auto writes = board::i2c_writes();
  ASSERT_EQ(writes.size(), 1u);
  EXPECT_EQ(writes[0].dev, 0x4Au);
  EXPECT_EQ(writes[0].sub, 0x1Fu);
  EXPECT_EQ(writes[0].data, 0x80u);
  EXPECT_EQ(writes[0].nbytes, 1u);
  EXPECT_THAT(board::log_lines(),
              ElementsAre("i2cdrv open", "i2cdrv ioctl 0x2000740c", "i2cdrv ioctl 0x2000740d", "i2cdrv ioctl 0x2000740b",
                          "i2cdrv ioctl 0x80147410 x=0x58 y=0x00",
                          "i2cdrv ioctl 0x80147400 dev=0x4a sub=0x1f data=0x80 nbytes=1",
                          "i2cdrv ioctl 0x80147410 null", "i2cdrv ioctl 0x2000740e unsupported", "i2cdrv close"));
}

TEST_F(Video, ColourSpaceConversion) {
  Fd fd("/dev/mae", O_RDWR);
  ASSERT_GE(fd, 0);
  // The last offset is negative as a 32-bit value and prints unsigned.
  std::array<std::uint32_t, 12> csc = {1176, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 0xFFFFFFFB};
  EXPECT_EQ(::ioctl(fd, 0x80044d15UL, csc.data()), 0);
  EXPECT_EQ(call([&] { return ::ioctl(fd, 0x80044d15UL, nullptr); }).error, EFAULT);
  fd.close();
  EXPECT_THAT(board::log_lines(),
              ElementsAre("mae open", "mae csc 1176 0 1634 1104 4497 4928 1280 2065 0 61969 2169 4294967291",
                          "mae ioctl 0x80044d15 null", "mae close"));
  const auto conversions = board::mae_conversions();
  ASSERT_EQ(conversions.size(), 1u);
  EXPECT_EQ(conversions[0][0], 1176u);
  EXPECT_EQ(conversions[0][11], 0xFFFFFFFBu);
}

// ---- Framebuffer windows ----

TEST_F(Video, WindowsStartAsThePanelAndHoldTheirPixels) {
  for (const char *path : {"/dev/fb0", "/dev/fb3"}) {
    Fd fd(path, O_RDWR);
    ASSERT_GE(fd, 0) << path;
    fb_var_screeninfo var{};
    fb_fix_screeninfo fix{};
    ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
    ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
    EXPECT_EQ(var.xres, 480u);
    EXPECT_EQ(var.yres, 272u);
    EXPECT_EQ(var.bits_per_pixel, 16u);
    EXPECT_EQ(var.red.offset, 11u);
    EXPECT_EQ(var.green.length, 6u);
    EXPECT_EQ(fix.line_length, 960u);
    EXPECT_EQ(fix.smem_len, 960u * 272u);
    EXPECT_EQ(fix.visual, static_cast<unsigned>(FB_VISUAL_TRUECOLOR));
  }
  EXPECT_THAT(board::log_lines(), ::testing::IsSupersetOf({"fb0 getvar", "fb0 getfix"}));

  Fd fd("/dev/fb1", O_RDWR);
  void *map = ::mmap(nullptr, 960u * 272u, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  auto *pixels = static_cast<std::uint16_t *>(map);
  pixels[0] = 0xF800;
  // Another descriptor of the same window reads the same pixels.
  Fd other("/dev/fb1", O_RDONLY);
  std::uint16_t first = 0;
  ASSERT_EQ(::read(other, &first, sizeof first), 2);
  EXPECT_EQ(first, 0xF800);
  // A write through a descriptor shows in the mapping.
  const std::uint16_t green = 0x07E0;
  ASSERT_EQ(::pwrite(fd, &green, sizeof green, 2), 2);
  EXPECT_EQ(pixels[1], 0x07E0);
  // The windows do not share memory.
  Fd fb2("/dev/fb2", O_RDONLY);
  ASSERT_EQ(::read(fb2, &first, sizeof first), 2);
  EXPECT_NE(first, 0xF800);
  ::munmap(map, 960u * 272u);
}

TEST_F(Video, PutVarStoresAndGrowsTheMemory) {
  Fd fd("/dev/fb2", O_RDWR);
  fb_var_screeninfo var{};
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
  var.xres = 320;
  var.yres = 240;
  var.xres_virtual = 0;  // rounded up to the visible size
  var.yres_virtual = 480;
  var.bits_per_pixel = 32;
  ASSERT_EQ(::ioctl(fd, FBIOPUT_VSCREENINFO, &var), 0);
  EXPECT_EQ(var.xres_virtual, 320u);
  EXPECT_EQ(var.transp.length, 8u);
  fb_fix_screeninfo fix{};
  ASSERT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
  EXPECT_EQ(fix.line_length, 1280u);
  EXPECT_GE(fix.smem_len, 1280u * 480u);
  void *map = ::mmap(nullptr, fix.smem_len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  static_cast<std::uint8_t *>(map)[fix.smem_len - 1] = 1;  // the last byte is backed
  ::munmap(map, fix.smem_len);
  var.yoffset = 240;  // panning within the virtual height
  EXPECT_EQ(::ioctl(fd, FBIOPAN_DISPLAY, &var), 0);
  var.yoffset = 241;
  EXPECT_EQ(call([&] { return ::ioctl(fd, FBIOPAN_DISPLAY, &var); }).error, EINVAL);
  EXPECT_EQ(::ioctl(fd, FBIOBLANK, FB_BLANK_POWERDOWN), 0);
  // Refused and test-only settings change nothing.
  struct Case {
    std::uint32_t xres, yres, bpp, xoffset;
    int error;
  };
  const Case cases[] = {
      {480, 272, 12, 0, EINVAL},   // no such depth
      {4096, 272, 16, 0, EINVAL},  // wider than a window can be
      {480, 272, 16, 1, EINVAL},   // offset past the virtual width
      {640, 480, 24, 0, 0},        // fits
  };
  for (const Case &c : cases) {
    fb_var_screeninfo v = var;
    v.xres = v.xres_virtual = c.xres;
    v.yres = v.yres_virtual = c.yres;
    v.bits_per_pixel = c.bpp;
    v.xoffset = c.xoffset;
    v.yoffset = 0;
    v.activate = FB_ACTIVATE_TEST;
    EXPECT_EQ(call([&] { return ::ioctl(fd, FBIOPUT_VSCREENINFO, &v); }).error, c.error) << c.xres << " bpp " << c.bpp;
  }
  fb_var_screeninfo now{};
  ASSERT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &now), 0);
  EXPECT_EQ(now.xres, 320u);
  fd.close();
  EXPECT_THAT(board::log_lines(),
              ElementsAre("fb2 open", "fb2 getvar", "fb2 putvar 320x240 virtual 320x480 offset 0,0 bpp 32", "fb2 getfix",
                          "fb2 pan 0,240", "fb2 ioctl 0x00004606 invalid", "fb2 blank 4", "fb2 ioctl 0x00004601 invalid",
                          "fb2 ioctl 0x00004601 invalid", "fb2 ioctl 0x00004601 invalid",
                          "fb2 putvar 640x480 virtual 640x480 offset 0,0 bpp 24 test", "fb2 getvar", "fb2 close"));
}

TEST_F(Video, ControllerRequestsStoreAndReturnTheirRecords) {
  // The LCD controller's own requests: 0x80 sets a record, 0x81 returns it.
  const unsigned long set_screen = 0x800C4680, get_screen = 0x400C4681, get_panel = 0x40044685;
  Fd fd("/dev/fb0", O_RDWR);
  board::reset();
  const std::uint32_t screen[3] = {1, 0x1E0, 0x110};
  EXPECT_EQ(::ioctl(fd, set_screen, screen), 0);
  std::uint32_t back[3] = {};
  Fd fb3("/dev/fb3", O_RDWR);  // one controller behind all windows
  EXPECT_EQ(::ioctl(fb3, get_screen, back), 0);
  EXPECT_EQ(std::memcmp(back, screen, sizeof screen), 0);
  std::uint32_t panel = 0xFFFF;
  EXPECT_EQ(::ioctl(fd, get_panel, &panel), 0);
  EXPECT_EQ(panel, 0u);  // nothing stored yet
  EXPECT_THAT(board::log_lines(),
              ElementsAre("fb0 ioctl 0x800c4680 00000001 000001e0 00000110", "fb3 open",
                          "fb3 ioctl 0x400c4681 00000001 000001e0 00000110", "fb0 ioctl 0x40044685 00000000"));
}

}  // namespace
}  // namespace boardtest
