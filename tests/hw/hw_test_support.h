// Helpers of the output hardware tests: the virtual board's event log seen
// as codec register accesses, expected sequences written as tables, and
// stdout capture.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/mai_types.h"

namespace hwtest {

void board_fresh();  // every device present and working, registers at reset, log empty
void mixer_absent(bool absent);
void i2cdrv_absent(bool absent);
std::vector<std::string> events();
// Puts a value into a codec register behind the program's back.
void seed(u16 reg, u16 value);

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
Ops operator+(Ops a, const Ops &b);

// Lines of a log that start with `prefix`; the register lines by default.
std::vector<std::string> lines_starting(const std::vector<std::string> &log, const std::string &prefix);
std::vector<std::string> register_lines(const std::vector<std::string> &log);
// The expected register lines, reads taking their values from `actual` at
// the same position, one line each for readable diffs.
std::string expected_register_text(const Ops &expected, const std::vector<std::string> &actual);
std::string joined(const std::vector<std::string> &lines);
// Value of the n-th (0-based) read of `reg` in register lines; -1 if absent.
int read_value(const std::vector<std::string> &log, u16 reg, unsigned n = 0);

struct Outcome {
  s32 result = 0;
  std::string out;               // what it printed
  std::vector<std::string> log;  // board events it caused
};
Outcome run(const std::function<s32()> &op);
void quietly(const std::function<void()> &steps);  // output thrown away

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace hwtest

#define EXPECT_REGISTERS(outcome_, ...)                                                                       \
  do {                                                                                                        \
    const auto actual_lines_ = ::hwtest::register_lines((outcome_).log);                                     \
    EXPECT_EQ(::hwtest::joined(actual_lines_), ::hwtest::expected_register_text(__VA_ARGS__, actual_lines_)); \
  } while (0)
