// Helpers of the output hardware tests: the virtual board's event log seen
// as a sequence of codec register accesses, expected sequences written as
// tables, and stdout capture.
#pragma once
#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/mai_types.h"

namespace hwtest {

// ---- The virtual board ----
void board_fresh();                  // every device present and working, registers at reset, log empty
void mixer_absent(bool absent);      // "/dev/mixer" cannot be opened
void i2cdrv_absent(bool absent);     // "/dev/i2cdrv" cannot be opened
std::vector<std::string> events();   // the event log, oldest first
// Puts a value into a codec register behind the program's back (the
// accesses this takes are not part of what a test checks).
void seed(u16 reg, u16 value);

// ---- Expected register traffic ----
// One expected access. A write may depend on the value the codec gave for
// the last read of the same register: (read & keep) | set.
struct Op {
  enum Kind : u8 { Read, Write, WriteFromRead } kind;
  u16 reg;
  u16 value;
  u16 keep;
  u16 set;
};
using Ops = std::vector<Op>;

inline Op rd(u16 reg) { return {Op::Read, reg, 0, 0, 0}; }
inline Op wr(u16 reg, u16 value) { return {Op::Write, reg, value, 0, 0}; }
inline Op wr_from(u16 reg, u16 keep, u16 set) { return {Op::WriteFromRead, reg, 0, keep, set}; }
// Read-modify-write: the read, then the write of (read & keep) | set.
inline Ops rmw(u16 reg, u16 keep, u16 set) { return {rd(reg), wr_from(reg, keep, set)}; }

Ops operator+(Ops a, const Ops &b);

// The "mixer read" / "mixer write" lines of a log.
std::vector<std::string> register_lines(const std::vector<std::string> &log);
// Lines of a log that start with `prefix`.
std::vector<std::string> lines_starting(const std::vector<std::string> &log, const std::string &prefix);
// The expected register lines, reads taking their values from `actual` at
// the same position. Joined one line each, for readable diffs.
std::string expected_register_text(const Ops &expected, const std::vector<std::string> &actual);
std::string joined(const std::vector<std::string> &lines);
// Value of the n-th (0-based) read of `reg` in a log's register lines; -1 if absent.
int read_value(const std::vector<std::string> &log, u16 reg, unsigned n = 0);

// ---- Running one operation ----
struct Outcome {
  s32 result = 0;
  std::string out;               // what it printed
  std::vector<std::string> log;  // board events it caused
};
Outcome run(const std::function<s32()> &op);
Outcome run_void(const std::function<void()> &op);
// Runs set-up steps with their output thrown away.
void quietly(const std::function<void()> &steps);

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

}  // namespace hwtest

// Checks the register traffic of an operation against a table.
#define EXPECT_REGISTERS(outcome_, ...)                                                             \
  do {                                                                                              \
    const auto actual_lines_ = ::hwtest::register_lines((outcome_).log);                           \
    EXPECT_EQ(::hwtest::joined(actual_lines_), ::hwtest::expected_register_text(__VA_ARGS__, actual_lines_)); \
  } while (0)
