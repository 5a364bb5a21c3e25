// Helpers of the output hardware tests: one call's output and board events,
// and expected codec register traffic written as tables.
#pragma once
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "platform/mai_types.h"
#include "sim/board/board.h"

namespace hwtest {

using Lines = std::vector<std::string>;

inline std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
inline std::string format(const char *fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}
inline std::string joined(const Lines &lines) {
  std::string s;
  for (const auto &l : lines) s += l + "\n";
  return s;
}
inline long count(const Lines &log, const std::string &line) { return std::count(log.begin(), log.end(), line); }
// Lines of a log that start with one of the prefixes.
inline Lines lines_starting(const Lines &log, std::initializer_list<const char *> prefixes) {
  Lines out;
  std::copy_if(log.begin(), log.end(), std::back_inserter(out), [&](const std::string &l) {
    return std::any_of(prefixes.begin(), prefixes.end(), [&](const char *p) { return l.starts_with(p); });
  });
  return out;
}
inline Lines register_lines(const Lines &log) { return lines_starting(log, {"mixer read ", "mixer write "}); }
// Value of the first read of `reg` in a log; -1 if none.
inline int read_value(const Lines &log, unsigned reg) {
  for (const auto &line : log)
    if (unsigned r = 0, v = 0; std::sscanf(line.c_str(), "mixer read 0x%x 0x%x", &r, &v) == 2 && r == reg)
      return int(v);
  return -1;
}

struct Outcome {
  s32 result = 0;
  std::string out;  // what it printed
  Lines log;        // board events it caused
};
inline Outcome run(const std::function<s32()> &op) {
  Outcome r;
  const size_t mark = board::log_lines().size();
  testing::internal::CaptureStdout();
  r.result = op();
  fflush(stdout);
  r.out = testing::internal::GetCapturedStdout();
  const Lines all = board::log_lines();
  r.log.assign(all.begin() + std::ptrdiff_t(std::min(mark, all.size())), all.end());
  return r;
}
inline void quietly(const std::function<void()> &steps) {
  run([&] { return steps(), 0; });
}

// Puts a value into a codec register behind the program's back, through
// the driver's own requests.
inline void seed(u16 reg, u16 value) {
  const int fd = open("/dev/mixer", O_RDWR);
  ASSERT_GE(fd, 0) << "seeding register " << reg;
  EXPECT_EQ(ioctl(fd, 0x80026616, &reg), 0);
  EXPECT_EQ(ioctl(fd, 0x80026615, &value), 0);
  close(fd);
}

// Expected register traffic, one word per access in the order of the log:
// "r26" a read of 0x26 (whatever it gives), "w04=0d0d" a write of 0x0d0d to
// 0x04, and "w26&bfff|0100" a write to 0x26 of the value last read from it
// with only the bits of 0xbfff kept and those of 0x0100 set ("&..." and
// "|..." each optional: "w26" writes the value read back). Turned into the
// log lines it stands for, a read taking its value from the actual line at
// the same position.
inline std::string expected_register_text(const std::string &expected, const Lines &actual) {
  std::map<unsigned, int> last_read;
  std::istringstream words(expected);
  std::string text, w;
  for (size_t i = 0; words >> w; ++i) {
    unsigned reg = 0, value = 0, keep = 0xFFFF, set = 0;
    const char *rest = w.c_str() + std::min<size_t>(w.size(), 3);
    if (w.size() < 3 || (w[0] != 'r' && w[0] != 'w') || std::sscanf(w.c_str() + 1, "%2x", &reg) != 1) {
      text += "unreadable expectation " + w + "\n";
    } else if (w[0] == 'r') {
      const int got = last_read[reg] = i < actual.size() ? read_value({actual[i]}, reg) : -1;
      text += got < 0 ? format("mixer read 0x%02x (any value)\n", reg)
                      : format("mixer read 0x%02x 0x%04x\n", reg, unsigned(got));
    } else if (std::sscanf(rest, "=%x", &value) == 1) {
      text += format("mixer write 0x%02x 0x%04x\n", reg, value);
    } else {
      std::sscanf(rest, "&%x", &keep);
      if (const char *bar = std::strchr(rest, '|')) std::sscanf(bar, "|%x", &set);
      const auto it = last_read.find(reg);
      text += it == last_read.end() || it->second < 0
                  ? format("mixer write 0x%02x (from a read: %s)\n", reg, rest)
                  : format("mixer write 0x%02x 0x%04x\n", reg, (unsigned(it->second) & keep) | set);
    }
  }
  return text;
}

}  // namespace hwtest

// The register lines of an outcome against the expected accesses, one a
// line for readable differences.
#define EXPECT_REGISTERS(outcome_, expected_)                                                                  \
  do {                                                                                                         \
    const auto actual_lines_ = ::hwtest::register_lines((outcome_).log);                                      \
    EXPECT_EQ(::hwtest::joined(actual_lines_), ::hwtest::expected_register_text((expected_), actual_lines_)); \
  } while (0)
