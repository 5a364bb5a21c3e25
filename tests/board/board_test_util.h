// Helpers of the virtual board's tests, which drive the devices with the
// plain calls a program makes; the board library linked in answers them.
#pragma once
#include "sim/board/board.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace boardtest {

using ::testing::ElementsAre;
using Lines = std::vector<std::string>;

// Every test starts from a board at power-on with an empty log.
class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override { board::reset(); }
  void TearDown() override { board::reset(); }
};

// A descriptor closed at the end of the scope.
struct Fd {
  int fd = -1;
  explicit Fd(int f) : fd(f) {}
  Fd(const char *path, int flags) : fd(::open(path, flags)) {}
  ~Fd() { close(); }
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  operator int() const { return fd; }
  void close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }
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
inline Lines log_since(size_t from) {
  const Lines all = board::log_lines();
  return Lines(all.begin() + static_cast<long>(std::min(from, all.size())), all.end());
}

inline std::string temp_path(const std::string &name) {
  return ::testing::TempDir() + "pmxboard-" + std::to_string(::getpid()) + "-" + name;
}
inline std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}
inline Lines read_lines(const std::string &path) {
  Lines lines;
  std::istringstream in(read_file(path));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Takes CAP_SYS_TIME away from this process and every program it starts, so
// that a call reaching the host's settimeofday fails instead of moving the
// clock. True when the process is now without it.
inline bool drop_clock_privilege() {
  ::prctl(PR_CAPBSET_DROP, CAP_SYS_TIME, 0, 0, 0);
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  const unsigned word = CAP_SYS_TIME / 32, bit = 1u << (CAP_SYS_TIME % 32);
  data[word].effective &= ~bit;
  data[word].permitted &= ~bit;
  data[word].inheritable &= ~bit;
  ::syscall(SYS_capset, &header, data);
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  return (data[word].effective & bit) == 0 && (data[word].permitted & bit) == 0 &&
         ::prctl(PR_CAPBSET_READ, CAP_SYS_TIME, 0, 0, 0) == 0;
}

}  // namespace boardtest
