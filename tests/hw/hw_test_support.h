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
#include <functional>
#include <map>
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
// Value of the n-th (0-based) read of `reg` in a log; -1 if absent.
inline int read_value(const Lines &log, u16 reg, unsigned n = 0) {
  for (const auto &line : log) {
    unsigned r = 0, value = 0;
    if (std::sscanf(line.c_str(), "mixer read 0x%x 0x%x", &r, &value) == 2 && r == reg && n-- == 0) return int(value);
  }
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
  r.log.assign(all.begin() + static_cast<std::ptrdiff_t>(std::min(mark, all.size())), all.end());
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

// One expected access. A write may depend on the value the codec gave for
// the last read of the same register: (read & keep) | set.
struct Op {
  enum Kind : u8 { Read, Write, WriteFromRead } kind;
  u16 reg, value, keep, set;
};
using Ops = std::vector<Op>;
inline Op rd(u16 reg) { return {Op::Read, reg, 0, 0, 0}; }
inline Op wr(u16 reg, u16 value) { return {Op::Write, reg, value, 0, 0}; }
inline Op wr_from(u16 reg, u16 keep, u16 set) { return {Op::WriteFromRead, reg, 0, keep, set}; }
inline Ops rmw(u16 reg, u16 keep, u16 set) { return {rd(reg), wr_from(reg, keep, set)}; }
inline Ops operator+(Ops a, const Ops &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The expected register lines; a read takes its value from the actual line
// at the same position.
inline std::string expected_register_text(const Ops &expected, const Lines &actual) {
  std::map<u16, int> last_read;
  std::string text;
  for (size_t i = 0; i < expected.size(); ++i) {
    const Op &op = expected[i];
    const int value = i < actual.size() ? read_value({actual[i]}, op.reg) : -1;
    const auto it = last_read.find(op.reg);
    if (op.kind == Op::Read)
      text += value < 0 ? format("mixer read 0x%02x (any value)\n", op.reg)
                        : format("mixer read 0x%02x 0x%04x\n", op.reg, unsigned(last_read[op.reg] = value));
    else if (op.kind == Op::Write)
      text += format("mixer write 0x%02x 0x%04x\n", op.reg, op.value);
    else if (it != last_read.end())
      text += format("mixer write 0x%02x 0x%04x\n", op.reg, (unsigned(it->second) & op.keep) | op.set);
    else
      text += format("mixer write 0x%02x (read & 0x%04x | 0x%04x)\n", op.reg, op.keep, op.set);
  }
  return text;
}

}  // namespace hwtest

// The register lines of an outcome against the expected accesses, one a
// line for readable differences.
#define EXPECT_REGISTERS(outcome_, ...)                                                                       \
  do {                                                                                                        \
    const auto actual_lines_ = ::hwtest::register_lines((outcome_).log);                                     \
    EXPECT_EQ(::hwtest::joined(actual_lines_), ::hwtest::expected_register_text(__VA_ARGS__, actual_lines_)); \
  } while (0)
