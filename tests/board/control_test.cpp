// Board control: absent and failing devices, the environment, the log file,
// the wall clock, and the calls that are not for the board.
#include "tests/board/board_test_util.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>

#include <algorithm>
#include <cstdio>

namespace boardtest {
namespace {

class Control : public BoardTest {};

constexpr const char *kPaths[] = {"/dev/mixer", "/dev/i2cdrv", "/dev/mae",  "/dev/dsp",
                                  "/dev/usb/hiddev0", "/dev/ts", "/dev/fb0", "/dev/fb1",
                                  "/dev/fb2", "/dev/fb3"};

TEST_F(Control, EveryDeviceOpensAndCloses) {
  for (std::size_t i = 0; i < board::kDeviceCount; ++i) {
    const auto device = static_cast<board::Device>(i);
    EXPECT_STREQ(board::device_path(device), kPaths[i]);
    board::reset();
    {
      Fd fd(kPaths[i], O_RDWR | O_CLOEXEC);
      ASSERT_GE(fd, 0) << kPaths[i];
      EXPECT_EQ(::fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    const std::string name = board::device_name(device);
    if (device == board::Device::dsp) {
      EXPECT_THAT(board::log_lines(), ElementsAre("dsp open", "dsp written 0", "dsp close"));
    } else {
      EXPECT_THAT(board::log_lines(), ElementsAre(name + " open", name + " close"));
    }
  }
}

TEST_F(Control, AbsentDevicesDoNotOpen) {
  for (std::size_t i = 0; i < board::kDeviceCount; ++i) {
    const std::string name = board::device_name(static_cast<board::Device>(i));
    board::reset();
    ASSERT_TRUE(board::set_absent("ts, " + name));
    const Call r = call([&] { return ::open(kPaths[i], O_RDWR); });
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.error, ENOENT);
    EXPECT_THAT(board::log_lines(), ElementsAre(name + " open absent"));
    // The others are still there.
    if (name != "ts" && name != "mixer") {
      Fd mixer("/dev/mixer", O_RDWR);
      EXPECT_GE(mixer, 0);
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
      {"mixer", {"mixer ioctl 0x80026616 failed", "mixer ioctl 0x80026615 failed",
                 "mixer ioctl 0x80026616 failed", "mixer ioctl 0x40026614 failed"}},
      {"mixer:80026615", {"mixer ioctl 0x80026615 failed", "mixer read 0x04 0x8000"}},
      {"mixer:0x40026614", {"mixer write 0x04 0x0303", "mixer ioctl 0x40026614 failed"}},
      {"dsp,i2cdrv", {"mixer write 0x04 0x0303", "mixer read 0x04 0x0303"}},
      {"mixer:80026616@1", {"mixer write 0x04 0x0303", "mixer ioctl 0x80026616 failed",
                            "mixer read 0x04 0x0303"}},
  };
  for (const Case &c : cases) {
    board::reset();
    Fd fd("/dev/mixer", O_RDWR);
    ASSERT_TRUE(board::set_failing(c.list)) << c.list;
    std::uint16_t index = 0x04, value = 0x0303;
    const Call i1 = call([&] { return ::ioctl(fd, kAc97Index, &index); });
    const Call w = call([&] { return ::ioctl(fd, kAc97Write, &value); });
    const Call i2 = call([&] { return ::ioctl(fd, kAc97Index, &index); });
    const Call r = call([&] { return ::ioctl(fd, kAc97Read, &value); });
    for (const Call &each : {i1, w, i2, r}) {
      if (each.result != 0) {
        EXPECT_EQ(each.result, -1);
        EXPECT_EQ(each.error, EIO) << c.list;
      }
    }
    auto lines = board::log_lines();
    lines.erase(lines.begin());  // "mixer open"
    EXPECT_THAT(lines, ElementsAreArray(c.lines)) << c.list;
  }
}

TEST_F(Control, FailingAfterSomeCalls) {
  // The third glasses report fails: programs see the device go away mid-way.
  ASSERT_TRUE(board::set_failing("hiddev:0x800c4808@2"));
  Fd fd("/dev/usb/hiddev0", O_RDWR);
  int results[4];
  for (int &r : results) r = ::ioctl(fd, 0x800C4808UL, nullptr) == -1 ? errno : 0;
  // The first two reach the model (which refuses the null record), then EIO.
  EXPECT_EQ(results[0], EFAULT);
  EXPECT_EQ(results[1], EFAULT);
  EXPECT_EQ(results[2], EIO);
  EXPECT_EQ(results[3], EIO);
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
  const Call set = call([&] { return ::settimeofday(&tv, nullptr); });
  EXPECT_EQ(set.result, -1);
  EXPECT_EQ(set.error, EPERM);
  EXPECT_THAT(board::log_lines(), ElementsAre("dsp open", "dsp write failed", "dsp blksize 4096",
                                              "clock set 1130806860 failed"));
}

TEST_F(Control, UnreadableFailingItems) {
  for (const char *bad : {"speaker", "mixer:zz", "mixer:80026615@x", "clock:1", "mixer:123456789"}) {
    EXPECT_FALSE(board::set_failing(bad)) << bad;
  }
  EXPECT_TRUE(board::set_failing(" mixer:0x80026615 , ts "));
}

TEST_F(Control, EnvironmentAndLogFile) {
  const std::string log = temp_path("env.log");
  ::unlink(log.c_str());
  ::setenv("PMX_BOARD_LOG", log.c_str(), 1);
  ::setenv("PMX_BOARD_ABSENT", "ts,fb3", 1);
  ::setenv("PMX_BOARD_FAIL", "i2cdrv:2000740b", 1);
  ::setenv("PMX_BOARD_DSP_SPEED", "0", 1);
  ::setenv("PMX_BOARD_HID_ID", "1234:abcd", 1);
  board::reload_environment();
  for (const char *name : {"PMX_BOARD_LOG", "PMX_BOARD_ABSENT", "PMX_BOARD_FAIL",
                           "PMX_BOARD_DSP_SPEED", "PMX_BOARD_HID_ID"}) {
    ::unsetenv(name);
  }
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
  const std::vector<std::string> expected = {"fb3 open absent", "i2cdrv open",
                                             "i2cdrv ioctl 0x2000740b failed",
                                             "i2cdrv ioctl 0x2000740c", "hiddev open"};
  EXPECT_EQ(read_lines(log), expected);
  EXPECT_EQ(board::log_lines(), expected);
  // A reset clears the faults the environment set; the log file stays.
  board::reset();
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), 0);
  EXPECT_EQ(read_lines(log).back(), "i2cdrv ioctl 0x2000740b");
  board::reload_environment();  // back to an empty environment: no log file
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
  EXPECT_GT(after.tv_sec, 1577836800);  // still after 2020
  EXPECT_THAT(board::log_lines(),
              ElementsAre("clock set 1130806860", "clock set 1130806860.000500",
                          "clock set 1130806861.000000250", "clock set 1130806860 invalid"));
  // The host's own settimeofday is the one that would have refused.
  if (without_privilege) {
    using Fn = int (*)(const timeval *, const void *);
    const auto host = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, "settimeofday"));
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(call([&] { return host(&start_of_day, nullptr); }).error, EPERM);
  }
}

TEST_F(Control, OtherFilesAreLeftAlone) {
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
    struct stat st {};
    EXPECT_EQ(::fstat(fd, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
  }
  const Fd at(::openat(AT_FDCWD, path.c_str(), O_RDONLY));
  EXPECT_GE(at, 0);
  // Near misses of the device paths are plain paths.
  for (const char *miss : {"/dev/mixer1", "dev/mixer", "/dev/fb4", "/dev/usb/hiddev1"}) {
    EXPECT_EQ(::open(miss, O_RDONLY), -1) << miss;
  }
  ::unlink(path.c_str());
  EXPECT_TRUE(board::log_lines().empty());
}

TEST_F(Control, OpenatReachesTheDevices) {
  Fd fd(::openat(AT_FDCWD, "/dev/mae", O_RDWR));
  ASSERT_GE(fd, 0);
  Fd fd64(::openat64(AT_FDCWD, "/dev/mixer", O_RDWR));
  ASSERT_GE(fd64, 0);
  Fd o64(::open64("/dev/ts", O_RDONLY));
  ASSERT_GE(o64, 0);
  EXPECT_THAT(board::log_lines(), ElementsAre("mae open", "mixer open", "ts open"));
}

TEST_F(Control, AccessModesAndDescriptorRequests) {
  Fd mixer("/dev/mixer", O_RDWR);
  EXPECT_EQ(call([&] { return ::write(mixer, "x", 1); }).error, EINVAL);
  Fd wronly("/dev/ts", O_WRONLY);
  char c;
  EXPECT_EQ(call([&] { return ::read(wronly, &c, 1); }).error, EBADF);
  // Generic descriptor requests act on the descriptor as for any file.
  int on = 1;
  EXPECT_EQ(::ioctl(wronly, FIONBIO, &on), 0);
  EXPECT_NE(::fcntl(wronly, F_GETFL) & O_NONBLOCK, 0);
  const auto lines = board::log_lines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "mixer write unsupported"), 1);
  EXPECT_EQ(lines.back(), "ts open");
}

TEST_F(Control, ADescriptorClosedBehindTheBoardsBackIsForgotten) {
  const std::string path = temp_path("reuse.txt");
  Fd plain(::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600));
  const int fd = ::open("/dev/mae", O_RDWR);
  ASSERT_GE(fd, 0);
  // dup2 closes the device's descriptor without a close() call.
  ASSERT_EQ(::dup2(plain, fd), fd);
  std::uint32_t csc[12] = {};
  EXPECT_EQ(call([&] { return ::ioctl(fd, 0x80044d15UL, csc); }).error, ENOTTY);
  EXPECT_EQ(::write(fd, "ok", 2), 2);
  ::close(fd);
  EXPECT_THAT(board::log_lines(), ElementsAre("mae open"));
  ::unlink(path.c_str());
}

}  // namespace
}  // namespace boardtest
