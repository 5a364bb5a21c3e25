// Board control: absent and failing devices, the environment, the log file,
// the wall clock, and the calls that are not for the board.
#include "tests/board/board_test_util.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>

namespace boardtest {
namespace {

class Control : public BoardTest {};

constexpr const char *kPaths[] = {"/dev/mixer", "/dev/i2cdrv", "/dev/mae", "/dev/dsp", "/dev/usb/hiddev0",
                                  "/dev/ts",    "/dev/fb0",    "/dev/fb1", "/dev/fb2", "/dev/fb3"};

TEST_F(Control, EveryDeviceOpensClosesAndCanBeAbsent) {
  for (std::size_t i = 0; i < board::kDeviceCount; ++i) {
    const auto device = static_cast<board::Device>(i);
    const std::string name = board::device_name(device);
    SCOPED_TRACE(name);
    EXPECT_STREQ(board::device_path(device), kPaths[i]);
    board::reset();
    {
      Fd fd(kPaths[i], O_RDWR | O_CLOEXEC);
      ASSERT_GE(fd, 0);
      EXPECT_EQ(::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    if (device == board::Device::dsp)
      EXPECT_THAT(board::log_lines(), ElementsAre("dsp open", "dsp written 0", "dsp close"));
    else
      EXPECT_THAT(board::log_lines(), ElementsAre(name + " open", name + " close"));
    board::reset();
    ASSERT_TRUE(board::set_absent("ts, " + name));
    const Call r = call([&] { return ::open(kPaths[i], O_RDWR); });
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.error, ENOENT);
    EXPECT_THAT(board::log_lines(), ElementsAre(name + " open absent"));
    if (name != "ts" && name != "mixer") {
      EXPECT_GE(Fd("/dev/mixer", O_RDWR), 0);  // the others are there
    }
  }
  EXPECT_FALSE(board::set_absent("mixer,speaker"));
}

TEST_F(Control, FailingRequests) {
  struct Case {
    const char *list;
    std::vector<const char *> lines;  // after a write of register 0x04 and a read of it
  };
  const Case cases[] = {
      {"mixer", {"mixer ioctl 0x80026616 failed", "mixer ioctl 0x80026615 failed", "mixer ioctl 0x80026616 failed",
                 "mixer ioctl 0x40026614 failed"}},
      {"mixer:80026615", {"mixer ioctl 0x80026615 failed", "mixer read 0x04 0x8000"}},
      {"dsp,i2cdrv", {"mixer write 0x04 0x0303", "mixer read 0x04 0x0303"}},
      {"mixer:80026616@1", {"mixer write 0x04 0x0303", "mixer ioctl 0x80026616 failed", "mixer read 0x04 0x0303"}},
  };
  for (const Case &c : cases) {
    board::reset();
    Fd fd("/dev/mixer", O_RDWR);
    ASSERT_TRUE(board::set_failing(c.list)) << c.list;
    std::uint16_t index = 0x04, value = 0x0303;
    for (auto [request, arg] : {std::pair{kAc97Index, &index}, {kAc97Write, &value}, {kAc97Index, &index},
                                {kAc97Read, &value}}) {
      const Call each = call([&] { return ::ioctl(fd, request, arg); });
      if (each.result != 0) {
        EXPECT_EQ(each.error, EIO) << c.list;
      }
    }
    auto lines = board::log_lines();
    lines.erase(lines.begin());  // "mixer open"
    EXPECT_THAT(lines, ElementsAreArray(c.lines)) << c.list;
  }
  // Counted: the third glasses report fails, and every one after it.
  ASSERT_TRUE(board::set_failing("hiddev:0x800c4808@2"));
  Fd hid("/dev/usb/hiddev0", O_RDWR);
  std::vector<int> errors;
  for (int i = 0; i < 4; ++i) errors.push_back(call([&] { return ::ioctl(hid, 0x800C4808UL, nullptr); }).error);
  EXPECT_EQ(errors, (std::vector<int>{EFAULT, EFAULT, EIO, EIO}));  // the model refuses the null record
  for (const char *bad : {"speaker", "mixer:zz", "mixer:80026615@x", "clock:1", "mixer:123456789"})
    EXPECT_FALSE(board::set_failing(bad)) << bad;
  EXPECT_TRUE(board::set_failing(" mixer:0x80026615 , ts "));
}

TEST_F(Control, FailingWritesAndClock) {
  ASSERT_TRUE(board::set_failing("dsp:write, clock"));
  board::set_dsp_speed(0);
  Fd fd("/dev/dsp", O_WRONLY);
  const char pcm[4] = {};
  EXPECT_EQ(call([&] { return ::write(fd, pcm, sizeof pcm); }).error, EIO);
  int blksize = 0;
  EXPECT_EQ(::ioctl(fd, 0xC0045004UL, &blksize), 0);  // requests still work
  const timeval tv{1130806860, 0};
  EXPECT_EQ(call([&] { return ::settimeofday(&tv, nullptr); }).error, EPERM);
  EXPECT_THAT(board::log_lines(),
              ElementsAre("dsp open", "dsp write failed", "dsp blksize 4096", "clock set 1130806860 failed"));
}

TEST_F(Control, EnvironmentAndLogFile) {
  const std::string log = temp_path("env.log");
  ::unlink(log.c_str());
  const std::pair<const char *, std::string> env[] = {
      {"PMX_BOARD_LOG", log},          {"PMX_BOARD_ABSENT", "ts,fb3"},      {"PMX_BOARD_FAIL", "i2cdrv:2000740b"},
      {"PMX_BOARD_DSP_SPEED", "0"},    {"PMX_BOARD_HID_ID", "1234:abcd"}};
  for (const auto &[name, value] : env) ::setenv(name, value.c_str(), 1);
  board::reload_environment();
  for (const auto &[name, value] : env) ::unsetenv(name);
  EXPECT_EQ(::open("/dev/fb3", O_RDWR), -1);
  Fd i2c("/dev/i2cdrv", O_RDWR);
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), -1);
  EXPECT_EQ(::ioctl(i2c, 0x2000740CUL), 0);
  Fd hid("/dev/usb/hiddev0", O_RDWR);
  std::uint16_t info[14] = {};
  ASSERT_EQ(::ioctl(hid, 0x401C4803UL, info), 0);
  EXPECT_EQ(info[8], 0x1234);  // vendor
  EXPECT_EQ(info[9], 0xABCD);  // product
  // Every line is in the file as soon as it happened.
  const std::vector<std::string> expected = {"fb3 open absent", "i2cdrv open", "i2cdrv ioctl 0x2000740b failed",
                                             "i2cdrv ioctl 0x2000740c", "hiddev open"};
  EXPECT_EQ(read_lines(log), expected);
  EXPECT_EQ(board::log_lines(), expected);
  // A reset clears the faults the environment set; the log file stays.
  board::reset();
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), 0);
  EXPECT_EQ(read_lines(log).back(), "i2cdrv ioctl 0x2000740b");
  board::reload_environment();
  ::unlink(log.c_str());
}

TEST_F(Control, TheHostClockNeverMoves) {
  const bool without_privilege = drop_clock_privilege();
  timespec before{};
  ::clock_gettime(CLOCK_REALTIME, &before);
  const timeval start_of_day{1130806860, 0};  // 1 November 2005
  EXPECT_EQ(::settimeofday(&start_of_day, nullptr), 0);
  const timeval with_usec{1130806860, 500};
  EXPECT_EQ(::settimeofday(&with_usec, nullptr), 0);
  const timespec by_clock{1130806861, 250};
  EXPECT_EQ(::clock_settime(CLOCK_REALTIME, &by_clock), 0);
  const timeval bad{1130806860, 1000000};
  EXPECT_EQ(call([&] { return ::settimeofday(&bad, nullptr); }).error, EINVAL);
  timespec after{};
  ::clock_gettime(CLOCK_REALTIME, &after);
  EXPECT_GE(after.tv_sec, before.tv_sec);
  EXPECT_LT(after.tv_sec - before.tv_sec, 5);
  EXPECT_THAT(board::log_lines(), ElementsAre("clock set 1130806860", "clock set 1130806860.000500",
                                              "clock set 1130806861.000000250", "clock set 1130806860 invalid"));
  // The host's own settimeofday is the one that would have refused.
  if (without_privilege) {
    using Fn = int (*)(const timeval *, const void *);
    const auto host = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, "settimeofday"));
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(call([&] { return host(&start_of_day, nullptr); }).error, EPERM);
  }
}

TEST_F(Control, OtherFilesAndOpenVariants) {
  const std::string path = temp_path("plain.txt");
  {
    Fd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
    ASSERT_GE(fd, 0);
    EXPECT_EQ(::write(fd, "board", 5), 5);
    ASSERT_EQ(::lseek(fd, 0, SEEK_SET), 0);
    char text[8] = {};
    EXPECT_EQ(::read(fd, text, sizeof text), 5);
    EXPECT_STREQ(text, "board");
    int pending = -1;
    EXPECT_EQ(::ioctl(fd, FIONREAD, &pending), 0);
    EXPECT_EQ(pending, 0);
  }
  EXPECT_GE(Fd(::openat(AT_FDCWD, path.c_str(), O_RDONLY)), 0);
  // Near misses of the device paths are plain paths.
  for (const char *miss : {"/dev/mixer1", "dev/mixer", "/dev/fb4", "/dev/usb/hiddev1"})
    EXPECT_EQ(::open(miss, O_RDONLY), -1) << miss;
  EXPECT_TRUE(board::log_lines().empty());
  {
    Fd fd(::openat(AT_FDCWD, "/dev/mae", O_RDWR));
    Fd fd64(::openat64(AT_FDCWD, "/dev/mixer", O_RDWR));
    Fd o64(::open64("/dev/ts", O_WRONLY));
    EXPECT_EQ(call([&] { return ::write(fd64, "x", 1); }).error, EINVAL);
    char c;
    EXPECT_EQ(call([&] { return ::read(o64, &c, 1); }).error, EBADF);
    // Generic descriptor requests act on the descriptor as for any file.
    int on = 1;
    EXPECT_EQ(::ioctl(o64, FIONBIO, &on), 0);
    EXPECT_NE(::fcntl(o64, F_GETFL) & O_NONBLOCK, 0);
  }
  EXPECT_THAT(board::log_lines(), ElementsAre("mae open", "mixer open", "ts open", "mixer write unsupported",
                                              "ts close", "mixer close", "mae close"));
  ::unlink(path.c_str());
}

TEST_F(Control, ADescriptorClosedBehindTheBoardsBackIsForgotten) {
  const std::string path = temp_path("reuse.txt");
  Fd plain(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
  const int fd = ::open("/dev/mae", O_RDWR);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::dup2(plain, fd), fd);  // closes the device's descriptor without a close() call
  std::uint32_t csc[12] = {};
  EXPECT_EQ(call([&] { return ::ioctl(fd, 0x80044d15UL, csc); }).error, ENOTTY);
  EXPECT_EQ(::write(fd, "ok", 2), 2);
  ::close(fd);
  EXPECT_THAT(board::log_lines(), ElementsAre("mae open"));
  ::unlink(path.c_str());
}

}  // namespace
}  // namespace boardtest
