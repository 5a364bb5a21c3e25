// The virtual board, driven by a test program that links it statically
// with the plain calls a program makes (open, ioctl, read, write, close,
// settimeofday), and preloaded into a small plain program.
#include "sim/board/board.h"
#include "sim/board/preload.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <linux/fb.h>
#include <linux/hiddev.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

extern char **environ;

namespace {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;
using U32s = std::vector<std::uint32_t>;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Every test starts from a board at power-on with an empty log.
class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override { board::reset(); }
  void TearDown() override { board::reset(); }
};

// A descriptor closed at the end of the scope.
struct Fd {
  int fd;
  explicit Fd(int f) : fd(f) {}
  Fd(const char *path, int flags) : fd(::open(path, flags)) {}
  Fd(const Fd &) = delete;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
  operator int() const { return fd; }
};

// The errno a call left when it failed, 0 when it succeeded.
template <typename F>
int error_of(F f) {
  errno = 0;
  return f() < 0 ? errno : 0;
}

// Request numbers: codec registers and OSS output.
constexpr unsigned long kAc97Read = 0x40026614, kAc97Write = 0x80026615, kAc97Index = 0x80026616;
constexpr unsigned long kReset = 0x20005000, kSync = 0x20005001, kSpeed = 0xC0045002, kStereo = 0xC0045003,
                        kGetBlkSize = 0xC0045004, kSetFmt = 0xC0045005, kChannels = 0xC0045006,
                        kProfile = 0x80045017, kGetODelay = 0x40045017;

// The log lines after the first `from`.
Lines log_since(size_t from) {
  const Lines all = board::log_lines();
  return Lines(all.begin() + static_cast<long>(std::min(from, all.size())), all.end());
}

std::string temp_path(const std::string &name) {
  return ::testing::TempDir() + "pmxboard-" + std::to_string(::getpid()) + "-" + name;
}
std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
Lines read_lines(const std::string &path) {
  Lines lines;
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Takes CAP_SYS_TIME away from this process and every program it starts, so
// that a call reaching the host's settimeofday fails instead of moving the
// clock.
void drop_clock_privilege() {
  ::prctl(PR_CAPBSET_DROP, CAP_SYS_TIME, 0, 0, 0);
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (::syscall(SYS_capget, &header, data) != 0) return;
  for (unsigned *set : {&data[CAP_SYS_TIME / 32].effective, &data[CAP_SYS_TIME / 32].permitted,
                        &data[CAP_SYS_TIME / 32].inheritable})
    *set &= ~(1u << (CAP_SYS_TIME % 32));
  ::syscall(SYS_capset, &header, data);
}

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
      {mixer, kAc97Read, {0}, 0, "mixer read 0x04 0x0e0e", 0x0E0E},
      {mixer, 0x80026617, {100}, 0, "mixer beep 100"},
      {mixer, 0x80026618, {1}, 0, "mixer speaker on"},
      {mixer, 0x80026619, {}, 0, "mixer reset"},
      {mixer, kAc97Index, {0x03}, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {mixer, kAc97Write, {}, EFAULT, "mixer ioctl 0x80026615 null"},
      {mixer, 0x40044D00, {0}, EINVAL, "mixer ioctl 0x40044d00 unsupported"},  // OSS volume read
      {i2c, 0x2000740D, {}, 0, "i2cdrv ioctl 0x2000740d"},
      {i2c, 0x80147410, {0x58, 0x07, 0, 0, 0}, 0, "i2cdrv ioctl 0x80147410 x=0x58 y=0x07"},
      {i2c, 0x80147400, {0x4A, 0x1F, 0x80, 0, 1}, 0, "i2cdrv ioctl 0x80147400 dev=0x4a sub=0x1f data=0x80 nbytes=1"},
      {i2c, 0x80147400, {}, EFAULT, "i2cdrv ioctl 0x80147400 null"},
      {mae, 0x80044D15, {1176, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 0xFFFFFFFB}, 0,
       "mae csc 1176 0 1634 1104 4497 4928 1280 2065 0 61969 2169 4294967291"},
      {mae, 0x80044D16, {0}, EINVAL, "mae ioctl 0x80044d16 unsupported"},
      // OSS output: each open starts at U8 mono 8000 Hz; what was asked and what the codec can do.
      {dsp, kSetFmt, {0}, 0, "dsp setfmt 0x00 0x08", 0x08},
      {dsp, kSetFmt, {0x20}, 0, "dsp setfmt 0x20 0x10", 0x10},  // big-endian 16-bit: the codec's own order
      {dsp, kStereo, {5}, 0, "dsp stereo 5 1", 1},
      {dsp, kChannels, {6}, 0, "dsp channels 6 2", 2},
      {dsp, kSpeed, {96000}, 0, "dsp speed 96000 48000", 48000},
      {dsp, kSpeed, {0}, EINVAL, "dsp ioctl 0xc0045002 invalid"},
      {dsp, kGetBlkSize, {0}, 0, "dsp blksize 4096", 4096},
      {dsp, kProfile, {0}, 0, "dsp profile 0"},
      {dsp, kGetODelay, {7}, 0, "", 0},  // nothing queued
      {dsp, kReset, {}, 0, "dsp reset"},
      {dsp, kSync, {}, 0, "dsp sync"},
      {dsp, kSetFmt, {}, EFAULT, "dsp ioctl 0xc0045005 null"},
      // The glasses: usage values (type, id, field, index, code, value) of the output report, then a send.
      {hid, 0x8018480C, {kOut, kFirst, 0, 0, 1, 0x55}, 0, ""},
      {hid, 0x8018480C, {kOut, 0, 0, 7, 1, 0xFF}, 0, ""},
      {hid, 0x800C4808, {kOut, kFirst, 1}, 0, "hid report 55 00 00 00 00 00 00 ff"},
      {hid, 0x8018480C, {kOut, kFirst, 0, 8, 1, 0}, EINVAL, "hiddev ioctl 0x8018480c invalid"},
      {hid, 0x800C4808, {HID_REPORT_TYPE_INPUT, 0, 1}, EINVAL, "hiddev ioctl 0x800c4808 invalid"},
      // The LCD controller's own requests: an even number stores, the next odd one returns, on any window.
      {fb2, FBIOBLANK, {}, 0, "fb2 blank 0"},
      {fb0, 0x400C4681, {7, 7, 7}, 0, "fb0 ioctl 0x400c4681 00000000 00000000 00000000", 0},
      {fb2, 0x800C4680, {1, 0x1E0, 0x110}, 0, "fb2 ioctl 0x800c4680 00000001 000001e0 00000110"},
      {fb0, 0x400C4681, {0, 0, 0}, 0, "fb0 ioctl 0x400c4681 00000001 000001e0 00000110", 1},
  };
  for (const auto &c : cases) {
    U32s arg = c.arg;
    const size_t mark = board::log_lines().size();
    EXPECT_EQ(error_of([&] { return ::ioctl(c.fd, c.request, arg.empty() ? nullptr : arg.data()); }), c.error)
        << std::hex << c.request;
    EXPECT_EQ(log_since(mark), *c.line ? Lines{c.line} : Lines{}) << std::hex << c.request;
    EXPECT_TRUE(c.back < 0 || arg[0] == c.back) << std::hex << c.request << ": " << std::dec << arg[0];
  }
  EXPECT_TRUE(board::speaker_enabled() && board::video_output() == board::VideoOutput::component);
  EXPECT_EQ(U32s({board::tv_position().x, board::tv_position().y, board::i2c_writes().at(0).dev}),
            U32s({0x58, 0x07, 0x4A}));
  EXPECT_EQ(board::mae_conversions().size() + board::hid_reports().size(), 2u);
}

// Windows start as the 480x272 RGB565 panel. A mode is checked and rounded
// and sizes the window's memory; a test mode changes nothing; panning stays
// on the virtual screen.
TEST_F(Devices, FramebufferWindows) {
  Fd fd("/dev/fb2", O_RDWR);
  fb_var_screeninfo var{};
  fb_fix_screeninfo fix{};
  auto screen = [&] {
    EXPECT_EQ(::ioctl(fd, FBIOGET_VSCREENINFO, &var) + ::ioctl(fd, FBIOGET_FSCREENINFO, &fix), 0);
    return U32s({var.xres, var.xres_virtual, var.bits_per_pixel, var.yoffset, fix.line_length, fix.smem_len});
  };
  EXPECT_EQ(screen(), U32s({480, 480, 16, 0, 960, 960 * 272}));
  const struct {
    unsigned long request;
    std::uint32_t xres, yres, bpp, yoffset, activate;  // the virtual screen 480 lines high
    int error;
    const char *line;
  } steps[] = {
      {FBIOPUT_VSCREENINFO, 320, 240, 32, 0, 0, 0, "fb2 putvar 320x240 virtual 320x480 offset 0,0 bpp 32"},
      {FBIOPAN_DISPLAY, 320, 240, 32, 240, 0, 0, "fb2 pan 0,240"},
      {FBIOPAN_DISPLAY, 320, 240, 32, 241, 0, EINVAL, "fb2 ioctl 0x00004606 invalid"},
      {FBIOPUT_VSCREENINFO, 640, 480, 12, 0, 0, EINVAL, "fb2 ioctl 0x00004601 invalid"},
      {FBIOPUT_VSCREENINFO, 640, 480, 24, 0, FB_ACTIVATE_TEST, 0,
       "fb2 putvar 640x480 virtual 640x480 offset 0,0 bpp 24 test"},
  };
  for (const auto &s : steps) {
    fb_var_screeninfo v = var;
    v.xres = s.xres, v.yres = s.yres, v.xres_virtual = 0, v.yres_virtual = 480, v.bits_per_pixel = s.bpp;
    v.yoffset = s.yoffset, v.activate = s.activate;
    const size_t mark = board::log_lines().size();
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, s.request, &v); }), s.error) << s.line;
    EXPECT_EQ(log_since(mark), Lines{s.line});
  }
  EXPECT_EQ(screen(), U32s({320, 320, 32, 240, 1280, 1280 * 480}));
}

int ask(int fd, unsigned long request, int value) {
  EXPECT_EQ(::ioctl(fd, request, &value), 0) << std::hex << request;
  return value;
}

// 16-bit stereo at 44100 Hz: 176400 bytes a second at real time.
void setup_cd(int fd) {
  ASSERT_EQ(ask(fd, kSetFmt, 0x10) + ask(fd, kChannels, 2) + ask(fd, kSpeed, 44100), 0x10 + 2 + 44100);
}

std::vector<std::uint8_t> ramp(std::size_t n) {
  std::vector<std::uint8_t> pcm(n);
  for (std::size_t i = 0; i < n; ++i) pcm[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return pcm;
}

std::uint32_t le(const std::string &s, std::size_t at, std::size_t n) {
  std::uint32_t v = 0;
  std::memcpy(&v, s.data() + at, n);
  return v;
}

// Without pacing everything plays at once; the capture is a WAV file in the
// format of the first write, its sizes right while the device is still
// open; the in-memory capture and the close line agree.
TEST_F(Devices, DspCaptureToWavWithoutPacing) {
  const std::string path = temp_path("capture.wav");
  board::set_dsp_speed(0);
  board::set_dsp_capture(path);
  const auto pcm = ramp(1 << 20);
  {
    Fd fd("/dev/dsp", O_WRONLY);
    setup_cd(fd);
    ASSERT_EQ(::write(fd, pcm.data(), 1000), 1000);
    EXPECT_EQ(le(read_file(path), 40, 4), 1000u);
    const auto t0 = Clock::now();
    ASSERT_EQ(::write(fd, pcm.data() + 1000, pcm.size() - 1000), static_cast<ssize_t>(pcm.size() - 1000));
    EXPECT_LT(Clock::now() - t0, 2s);  // paced, it would take 6 s
    EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  }
  const std::string wav = read_file(path);
  ASSERT_EQ(wav.size(), 44u + pcm.size());
  EXPECT_EQ(wav.substr(0, 4) + wav.substr(8, 8) + wav.substr(36, 4), "RIFFWAVEfmt data");
  // RIFF size, fmt size, PCM, channels, rate, bytes per second, frame, bits, data size.
  const std::uint32_t header[] = {le(wav, 4, 4),  le(wav, 16, 4), le(wav, 20, 2), le(wav, 22, 2), le(wav, 24, 4),
                                  le(wav, 28, 4), le(wav, 32, 2), le(wav, 34, 2), le(wav, 40, 4)};
  EXPECT_THAT(header, ElementsAre(36u + pcm.size(), 16u, 1u, 2u, 44100u, 176400u, 4u, 16u, pcm.size()));
  EXPECT_EQ(std::memcmp(wav.data() + 44, pcm.data(), pcm.size()), 0);
  EXPECT_EQ(board::dsp_capture().pcm, pcm);
  EXPECT_EQ(board::log_lines().end()[-2], "dsp written 1048576");
  ::unlink(path.c_str());
}

// At half real time (88200 bytes a second) a write returns once what it
// queued fits in the 65536-byte buffer: the first at once, the second when
// its 8820 bytes (0.1 s) have made room. GETODELAY tells what is still
// queued, in whole frames; a reset drops it, a sync waits for it; a
// non-blocking write takes what fits, then EAGAIN.
TEST_F(Devices, DspWritesArePacedByThePlayingClock) {
  board::set_dsp_speed(0.5);
  Fd fd("/dev/dsp", O_WRONLY);
  setup_cd(fd);
  const auto pcm = ramp(65536 + 8820);
  const auto t0 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 65536), 65536);
  const auto t1 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data() + 65536, 8820), 8820);
  const auto t2 = Clock::now();
  const int delay = ask(fd, kGetODelay, 0);
  const double since = std::chrono::duration<double>(Clock::now() - t0).count();
  EXPECT_LT(t1 - t0, 400ms);  // waiting for its own sound would take 743 ms
  EXPECT_GE(t2 - t0, 99ms);
  EXPECT_LT(t2 - t0, 5s);
  EXPECT_LE(delay, 65536);
  EXPECT_GE(delay, static_cast<int>(65536 + 8820 - since * 88200) - 4);
  EXPECT_EQ(delay % 4, 0);
  ASSERT_EQ(::ioctl(fd, kReset), 0);
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  setup_cd(fd);
  board::set_dsp_speed(10);  // 1764000 bytes a second: 52920 bytes are 30 ms
  const auto t3 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 52920), 52920);
  ASSERT_EQ(::ioctl(fd, kSync), 0);
  EXPECT_GE(Clock::now() - t3, 29900us);
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  board::set_dsp_speed(0.0001);  // nothing drains meanwhile
  ASSERT_EQ(::fcntl(fd, F_SETFL, O_NONBLOCK), 0);
  EXPECT_EQ(::write(fd, pcm.data(), pcm.size()), 65536);
  EXPECT_EQ(error_of([&] { return ::write(fd, pcm.data(), 4096); }), EAGAIN);
}

class Control : public BoardTest {};

// Every device opens on its path through every open flavour, keeping
// O_CLOEXEC, and logs its open and close; /dev/dsp opens once at a time;
// near-miss paths go on to the C library; a device listed absent refuses to
// open with ENOENT.
TEST_F(Control, OpensAndAbsentDevices) {
  Lines expected;
  for (const char *name : {"mixer", "i2cdrv", "mae", "dsp", "usb/hiddev0", "ts", "fb0", "fb1", "fb2", "fb3"}) {
    EXPECT_EQ(::fcntl(Fd(("/dev/" + std::string(name)).c_str(), O_RDWR | O_CLOEXEC), F_GETFD), FD_CLOEXEC) << name;
    const std::string logged = name[0] == 'u' ? "hiddev" : name;
    expected.insert(expected.end(), {logged + " open", logged + " close"});
    if (logged == "dsp") expected.insert(expected.end() - 1, "dsp written 0");
  }
  {
    Fd a(::openat(AT_FDCWD, "/dev/i2cdrv", O_RDWR)), b(::openat64(AT_FDCWD, "/dev/mixer", O_RDWR)),
        c(::open64("/dev/dsp", O_WRONLY));
    EXPECT_EQ(error_of([] { return ::open("/dev/dsp", O_WRONLY); }), EBUSY);  // one open at a time
  }
  expected.insert(expected.end(), {"i2cdrv open", "mixer open", "dsp open", "dsp open busy", "dsp written 0",
                                   "dsp close", "mixer close", "i2cdrv close"});
  for (const char *miss : {"/dev/mixer1", "dev/mixer", "/dev/fb4", "/dev/usb/hiddev1"})
    EXPECT_EQ(::open(miss, O_RDONLY), -1) << miss;
  EXPECT_EQ(board::log_lines(), expected);
  ASSERT_TRUE(board::set_absent("mixer, fb1"));
  EXPECT_EQ(error_of([] { return ::open("/dev/fb1", O_RDWR); }), ENOENT);
  EXPECT_EQ(log_since(expected.size()), Lines{"fb1 open absent"});
  EXPECT_FALSE(board::set_absent("mixer,speaker"));
}

// A failing item makes every request of a device, one request, writes, or
// the clock fail with EIO (EPERM for the clock) and says so in the log;
// "@n" lets n calls pass first, refused ones too; the rest is untouched;
// malformed lists are refused.
TEST_F(Control, FailingRequestsWritesAndClock) {
  for (const char *bad : {"speaker", "mixer:zz", "mixer:80026615@x", "clock:1", "mixer:123456789"})
    EXPECT_FALSE(board::set_failing(bad)) << bad;
  ASSERT_TRUE(board::set_failing(" mixer:80026615@1 , i2cdrv, dsp:write, clock,hiddev:0x800c4808@1"));
  board::set_dsp_speed(0);
  Fd mixer("/dev/mixer", O_RDWR), i2c("/dev/i2cdrv", O_RDWR), dsp("/dev/dsp", O_WRONLY), hid("/dev/usb/hiddev0", 0);
  std::uint16_t value = 0x0303;
  const timeval tv{1130806860, 0};
  const std::vector<int> errors = {error_of([&] { return ::ioctl(mixer, kAc97Write, &value); }),
                                   error_of([&] { return ::ioctl(mixer, kAc97Write, &value); }),
                                   error_of([&] { return ::ioctl(mixer, kAc97Read, &value); }),
                                   error_of([&] { return ::ioctl(i2c, 0x2000740BUL); }),
                                   error_of([&] { return ::write(dsp, "pcm", 3); }),
                                   error_of([&] { return ::ioctl(dsp, kSync); }),
                                   error_of([&] { return ::settimeofday(&tv, nullptr); }),
                                   error_of([&] { return ::ioctl(hid, 0x800C4808UL, nullptr); }),
                                   error_of([&] { return ::ioctl(hid, 0x800C4808UL, nullptr); })};
  EXPECT_EQ(errors, (std::vector<int>{0, EIO, 0, EIO, EIO, 0, EPERM, EFAULT, EIO}));
  EXPECT_EQ(log_since(4), (Lines{"mixer write 0x00 0x0303", "mixer ioctl 0x80026615 failed", "mixer read 0x00 0x6174",
                                 "i2cdrv ioctl 0x2000740b failed", "dsp write failed", "dsp sync",
                                 "clock set 1130806860 failed", "hiddev ioctl 0x800c4808 null",
                                 "hiddev ioctl 0x800c4808 failed"}));
}

// The PMX_BOARD_* variables set the log file, absent and failing devices,
// pacing and the glasses' identity; every line reaches the file as it
// happens; a reset clears the faults but keeps the log file.
TEST_F(Control, EnvironmentAndLogFile) {
  const std::string log = temp_path("env.log");
  ::unlink(log.c_str());
  const std::pair<const char *, std::string> env[] = {{"PMX_BOARD_LOG", log}, {"PMX_BOARD_ABSENT", "ts,fb3"},
                                                      {"PMX_BOARD_FAIL", "i2cdrv:2000740b"},
                                                      {"PMX_BOARD_DSP_SPEED", "0"}, {"PMX_BOARD_HID_ID", "1234:abcd"}};
  for (const auto &[name, value] : env) ::setenv(name, value.c_str(), 1);
  board::reload_environment();
  for (const auto &[name, value] : env) ::unsetenv(name);
  EXPECT_EQ(::open("/dev/fb3", O_RDWR), -1);
  Fd i2c("/dev/i2cdrv", O_RDWR), hid("/dev/usb/hiddev0", O_RDWR), dsp("/dev/dsp", O_WRONLY);
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), -1);
  EXPECT_EQ(::ioctl(i2c, 0x2000740CUL), 0);
  std::uint16_t info[14] = {};
  ASSERT_EQ(::ioctl(hid, 0x401C4803UL, info), 0);
  EXPECT_EQ(std::vector<int>({info[8], info[9]}), std::vector<int>({0x1234, 0xABCD}));  // vendor, product
  const std::vector<char> pcm(160000);  // 20 s of U8 mono at 8000 Hz: paced, the write would take 12 s
  const auto t0 = Clock::now();
  ASSERT_EQ(::write(dsp, pcm.data(), pcm.size()), static_cast<ssize_t>(pcm.size()));
  EXPECT_LT(Clock::now() - t0, 5s);
  const Lines expected = {"fb3 open absent", "i2cdrv open", "hiddev open", "dsp open",
                          "i2cdrv ioctl 0x2000740b failed", "i2cdrv ioctl 0x2000740c"};
  EXPECT_EQ(read_lines(log), expected);
  EXPECT_EQ(board::log_lines(), expected);
  board::reset();
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), 0);
  EXPECT_EQ(read_lines(log).back(), "i2cdrv ioctl 0x2000740b");
  board::reload_environment();
  ::unlink(log.c_str());
}

// Setting the wall clock is logged (with its fraction) and answered with
// success, an invalid time with EINVAL; the host clock does not move.
TEST_F(Control, TheHostClockNeverMoves) {
  drop_clock_privilege();  // a call reaching the host fails instead of moving its clock
  timespec before{}, after{};
  ::clock_gettime(CLOCK_REALTIME, &before);
  const timeval start_of_day{1130806860, 0}, with_usec{1130806860, 500}, bad{1130806860, 1000000};
  const timespec by_clock{1130806861, 250};
  const struct timezone zone{};
  EXPECT_EQ(::settimeofday(&start_of_day, nullptr), 0);
  EXPECT_EQ(::settimeofday(&with_usec, nullptr), 0);
  EXPECT_EQ(::clock_settime(CLOCK_REALTIME, &by_clock), 0);
  EXPECT_EQ(error_of([&] { return ::settimeofday(&bad, nullptr); }), EINVAL);
  EXPECT_EQ(::settimeofday(nullptr, &zone), 0);
  ::clock_gettime(CLOCK_REALTIME, &after);
  EXPECT_TRUE(after.tv_sec >= before.tv_sec && after.tv_sec - before.tv_sec < 5);
  EXPECT_THAT(board::log_lines(), ElementsAre("clock set 1130806860", "clock set 1130806860.000500",
                                              "clock set 1130806861.000000250", "clock set 1130806860 invalid",
                                              "clock timezone"));
}

// A plain program started with board::preload_env() runs on the board
// without knowing it: its mixer calls and its clock setting reach the board
// configured by the environment it inherits, and the host clock stays.
TEST(Preload, ProbeRunsOnTheBoard) {
  drop_clock_privilege();  // the probe must not move the host clock even without the board in front
  const std::string log = temp_path("probe.log");
  ::unlink(log.c_str());
  std::map<std::string, std::string> env = {{"PMX_BOARD_FAIL", "mixer:80026615"}};
  for (char **e = environ; *e; ++e) {  // the test's own board settings stay out
    const std::string entry = *e;
    const size_t eq = entry.find('=');
    if (entry.rfind("PMX_BOARD_", 0) != 0) env.emplace(entry.substr(0, eq), entry.substr(eq + 1));
  }
  for (const auto &[name, value] : board::preload_env(log)) env[name] = value;
  std::vector<std::string> entries;
  for (const auto &[name, value] : env) entries.push_back(name + "=" + value);
  std::vector<char *> envp;
  for (std::string &entry : entries) envp.push_back(entry.data());
  envp.push_back(nullptr);
  std::string program = PMX_BOARD_PROBE;
  char *argv[] = {program.data(), nullptr};
  pid_t pid = 0;
  int status = -1;
  ASSERT_EQ(posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, envp.data()), 0);
  ::waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_THAT(read_lines(log), ElementsAre("mixer open", "mixer read 0x26 0x000f", "mixer ioctl 0x80026615 failed",
                                           "mixer read 0x04 0x8000", "mixer close", "clock set 1130806860"));
  ::unlink(log.c_str());
}

}  // namespace
