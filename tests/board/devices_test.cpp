// The board's devices driven by their request numbers.
#include "tests/board/board_test_util.h"

#include <linux/fb.h>
#include <linux/hiddev.h>
#include <sys/mman.h>

namespace boardtest {
namespace {

using U32s = std::vector<std::uint32_t>;

class Devices : public BoardTest {};

// Each request by its number: its result and its log line ("": none); null
// records, bad arguments and unknown numbers are refused and say why.
TEST_F(Devices, RequestsAndTheirLogLines) {
  Fd mixer("/dev/mixer", O_RDWR), i2c("/dev/i2cdrv", O_RDWR), mae("/dev/mae", O_RDWR), dsp("/dev/dsp", O_WRONLY),
      hid("/dev/usb/hiddev0", O_RDWR), fb2("/dev/fb2", O_RDWR), fb0("/dev/fb0", O_RDWR);
  constexpr std::uint32_t kOut = HID_REPORT_TYPE_OUTPUT, kFirst = HID_REPORT_ID_FIRST;
  struct Case {
    int fd;
    unsigned long request;
    U32s arg;  // empty: a null argument
    int error;
    const char *line;
    std::int64_t back = -1;  // the argument's first word afterwards (-1: not checked)
  };
  const Case cases[] = {
      {mixer, kAc97Index, {0x04}, 0, ""},
      {mixer, kAc97Write, {0x0E0E}, 0, "mixer write 0x04 0x0e0e"},
      {mixer, kAc97Read, {0}, 0, "mixer read 0x04 0x0e0e"},
      {mixer, 0x80026617, {100}, 0, "mixer beep 100"},
      {mixer, 0x80026618, {1}, 0, "mixer speaker on"},
      {mixer, 0x80026619, {}, 0, "mixer reset"},
      {mixer, kAc97Read, {0}, 0, "mixer read 0x00 0x6174"},  // the reset selected 0x00
      {mixer, kAc97Index, {0x80}, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {mixer, kAc97Index, {0x03}, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {mixer, kAc97Write, {}, EFAULT, "mixer ioctl 0x80026615 null"},
      {mixer, 0x40044D00, {0}, EINVAL, "mixer ioctl 0x40044d00 unsupported"},  // OSS volume read
      {i2c, 0x2000740D, {}, 0, "i2cdrv ioctl 0x2000740d"},
      {i2c, 0x80147410, {0x58, 0x07, 0, 0, 0}, 0, "i2cdrv ioctl 0x80147410 x=0x58 y=0x07"},
      {i2c, 0x80147400, {0x4A, 0x1F, 0x80, 0, 1}, 0, "i2cdrv ioctl 0x80147400 dev=0x4a sub=0x1f data=0x80 nbytes=1"},
      {i2c, 0x80147400, {}, EFAULT, "i2cdrv ioctl 0x80147400 null"},
      {i2c, 0x2000740E, {}, EINVAL, "i2cdrv ioctl 0x2000740e unsupported"},
      {mae, 0x80044D15, {1176, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 0xFFFFFFFB}, 0,
       "mae csc 1176 0 1634 1104 4497 4928 1280 2065 0 61969 2169 4294967291"},
      {mae, 0x80044D15, {}, EFAULT, "mae ioctl 0x80044d15 null"},
      {mae, 0x80044D16, {0}, EINVAL, "mae ioctl 0x80044d16 unsupported"},
      // OSS output: each open starts at U8 mono 8000 Hz; what was asked and what the codec can do.
      {dsp, kSetFmt, {0}, 0, "dsp setfmt 0x00 0x08", 0x08},
      {dsp, kSetFmt, {0x20}, 0, "dsp setfmt 0x20 0x10", 0x10},  // big-endian 16-bit: the codec's own order
      {dsp, kStereo, {5}, 0, "dsp stereo 5 1", 1},
      {dsp, kChannels, {6}, 0, "dsp channels 6 2", 2},
      {dsp, kSpeed, {100}, 0, "dsp speed 100 8000", 8000},
      {dsp, kSpeed, {96000}, 0, "dsp speed 96000 48000", 48000},
      {dsp, kSpeed, {0}, EINVAL, "dsp ioctl 0xc0045002 invalid"},
      {dsp, kGetBlkSize, {0}, 0, "dsp blksize 4096", 4096},
      {dsp, kProfile, {0}, 0, "dsp profile 0"},
      {dsp, kGetODelay, {7}, 0, "", 0},  // nothing queued
      {dsp, kReset, {}, 0, "dsp reset"},
      {dsp, kSync, {}, 0, "dsp sync"},
      {dsp, kSetFmt, {}, EFAULT, "dsp ioctl 0xc0045005 null"},
      {dsp, 0xC004500B, {0}, EINVAL, "dsp ioctl 0xc004500b unsupported"},
      // The glasses: usage values (type, id, field, index, code, value) of the output report, then sends.
      {hid, 0x8018480C, {kOut, kFirst, 0, 0, 1, 0x55}, 0, ""},
      {hid, 0x8018480C, {kOut, 0, 0, 7, 1, 0xFF}, 0, ""},
      {hid, 0x800C4808, {kOut, kFirst, 1}, 0, "hid report 55 00 00 00 00 00 00 ff"},
      {hid, 0x800C4808, {kOut, 0, 1}, 0, "hid report 55 00 00 00 00 00 00 ff"},  // values stay set
      {hid, 0x8018480C, {kOut, kFirst, 0, 8, 1, 0}, EINVAL, "hiddev ioctl 0x8018480c invalid"},
      {hid, 0x8018480C, {HID_REPORT_TYPE_FEATURE, kFirst, 0, 0, 1, 0}, EINVAL, "hiddev ioctl 0x8018480c invalid"},
      {hid, 0x800C4808, {HID_REPORT_TYPE_INPUT, 0, 1}, EINVAL, "hiddev ioctl 0x800c4808 invalid"},
      {hid, 0x800C4808, {}, EFAULT, "hiddev ioctl 0x800c4808 null"},
      // The LCD controller's own requests: an even number stores, the next odd one returns, on any window.
      {fb2, FBIOBLANK, {}, 0, "fb2 blank 0"},
      {fb0, 0x400C4681, {0, 0, 0}, 0, "fb0 ioctl 0x400c4681 00000000 00000000 00000000"},
      {fb2, 0x800C4680, {1, 0x1E0, 0x110}, 0, "fb2 ioctl 0x800c4680 00000001 000001e0 00000110"},
      {fb0, 0x400C4681, {0, 0, 0}, 0, "fb0 ioctl 0x400c4681 00000001 000001e0 00000110"},
  };
  for (const auto &c : cases) {
    U32s arg = c.arg;
    const size_t mark = board::log_lines().size();
    EXPECT_EQ(error_of([&] { return ::ioctl(c.fd, c.request, arg.empty() ? nullptr : arg.data()); }), c.error)
        << std::hex << c.request;
    EXPECT_EQ(log_since(mark), *c.line ? Lines{c.line} : Lines{}) << std::hex << c.request;
    EXPECT_TRUE(c.back < 0 || arg[0] == c.back) << std::hex << c.request << ": " << std::dec << arg[0];
  }
  const auto writes = board::i2c_writes();
  ASSERT_EQ(writes.size(), 1u);
  EXPECT_EQ(U32s({board::tv_position().x, board::tv_position().y, writes[0].dev, writes[0].nbytes}),
            U32s({0x58, 0x07, 0x4A, 1}));
  EXPECT_TRUE(board::speaker_enabled() && board::video_output() == board::VideoOutput::component);
  EXPECT_EQ(board::mae_conversions().size(), 1u);
  EXPECT_EQ(board::hid_reports().size(), 2u);
}

// Windows start as the 480x272 RGB565 panel. A mode is checked and rounded
// and sizes the window's memory, which every open of the window shares (no
// other window); a test mode changes nothing; panning stays inside the
// virtual screen.
TEST_F(Devices, FramebufferWindows) {
  Fd fd("/dev/fb2", O_RDWR), other("/dev/fb2", O_RDONLY), fb0("/dev/fb0", O_RDWR);
  fb_var_screeninfo var{};
  fb_fix_screeninfo fix{};
  auto screen = [&] {
    EXPECT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var), 0);
    EXPECT_EQ(::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
    return U32s({var.xres, var.xres_virtual, var.bits_per_pixel, var.yoffset, fix.line_length, fix.smem_len});
  };
  EXPECT_EQ(screen(), U32s({480, 480, 16, 0, 960, 960 * 272}));
  const struct {
    unsigned long request;
    std::uint32_t xres, yres, yvirtual, bpp, yoffset, activate;  // bpp 0: the mode as it is
    int error;
    const char *line;
  } steps[] = {
      {FBIOPUT_VSCREENINFO, 320, 240, 480, 32, 0, 0, 0, "fb2 putvar 320x240 virtual 320x480 offset 0,0 bpp 32"},
      {FBIOPAN_DISPLAY, 0, 0, 0, 0, 240, 0, 0, "fb2 pan 0,240"},
      {FBIOPAN_DISPLAY, 0, 0, 0, 0, 241, 0, EINVAL, "fb2 ioctl 0x00004606 invalid"},
      {FBIOPUT_VSCREENINFO, 640, 480, 480, 12, 0, 0, EINVAL, "fb2 ioctl 0x00004601 invalid"},
      {FBIOPUT_VSCREENINFO, 640, 480, 0, 24, 0, FB_ACTIVATE_TEST, 0,
       "fb2 putvar 640x480 virtual 640x480 offset 0,0 bpp 24 test"},
  };
  for (const auto &s : steps) {
    fb_var_screeninfo v = var;
    if (s.bpp != 0) v.xres = s.xres, v.yres = s.yres, v.xres_virtual = 0, v.yres_virtual = s.yvirtual;
    if (s.bpp != 0) v.bits_per_pixel = s.bpp;
    v.yoffset = s.yoffset, v.activate = s.activate;
    const size_t mark = board::log_lines().size();
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, s.request, &v); }), s.error) << s.line;
    EXPECT_EQ(log_since(mark), Lines{s.line});
    screen();
  }
  EXPECT_EQ(screen(), U32s({320, 320, 32, 240, 1280, 1280 * 480}));
  auto *map = static_cast<std::uint8_t *>(::mmap(nullptr, fix.smem_len, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(map, MAP_FAILED);
  map[0] = 0xAB;
  map[fix.smem_len - 1] = 1;  // the last byte is backed
  std::uint8_t first[2] = {};
  EXPECT_EQ(::read(other, first, 1) + ::read(fb0, first + 1, 1), 2);
  EXPECT_EQ(U32s({first[0], first[1]}), U32s({0xAB, 0}));
  ::munmap(map, fix.smem_len);
}

}  // namespace
}  // namespace boardtest
