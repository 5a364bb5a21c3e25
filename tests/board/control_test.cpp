// Board control: opens, absent and failing devices, the environment, the log
// file, the wall clock, and the preload path into a plain program.
#include "sim/board/preload.h"
#include "tests/board/board_test_util.h"

#include <dlfcn.h>
#include <spawn.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>

#include <chrono>
#include <map>

extern char **environ;

namespace boardtest {
namespace {

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
  const auto t0 = std::chrono::steady_clock::now();
  ASSERT_EQ(::write(dsp, pcm.data(), pcm.size()), static_cast<ssize_t>(pcm.size()));
  EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));
  const Lines expected = {"fb3 open absent", "i2cdrv open",   "hiddev open",
                          "dsp open",        "i2cdrv ioctl 0x2000740b failed", "i2cdrv ioctl 0x2000740c"};
  EXPECT_EQ(read_lines(log), expected);
  EXPECT_EQ(board::log_lines(), expected);
  board::reset();
  EXPECT_EQ(::ioctl(i2c, 0x2000740BUL), 0);
  EXPECT_EQ(read_lines(log).back(), "i2cdrv ioctl 0x2000740b");
  board::reload_environment();
  ::unlink(log.c_str());
}

// Setting the wall clock is logged (with its fraction) and answered with
// success, an invalid time with EINVAL; the host clock does not move, and
// the host's own settimeofday, without the privilege, would have refused.
TEST_F(Control, TheHostClockNeverMoves) {
  const bool without_privilege = drop_clock_privilege();
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
  if (without_privilege) {
    using Fn = int (*)(const timeval *, const void *);
    const auto host = reinterpret_cast<Fn>(::dlsym(RTLD_NEXT, "settimeofday"));
    ASSERT_NE(host, nullptr);
    EXPECT_EQ(error_of([&] { return host(&start_of_day, nullptr); }), EPERM);
  }
}

// A plain program started with board::preload_env() runs on the board
// without knowing it: its mixer calls and its clock setting reach the board
// configured by the environment it inherits, and the host clock stays.
TEST(Preload, ProbeRunsOnTheBoard) {
  drop_clock_privilege();  // the probe must not move the host clock even without the board in front
  const std::string log = temp_path("probe.log");
  ::unlink(log.c_str());
  std::map<std::string, std::string> env = {{"PMX_BOARD_FAIL", "mixer:80026615"}};
  for (char **e = environ; *e; ++e) {
    const std::string entry = *e;
    if (entry.rfind("PMX_BOARD_", 0) != 0) env.emplace(entry.substr(0, entry.find('=')), entry.substr(entry.find('=') + 1));
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
}  // namespace boardtest
