#include "tests/hw/hw_test_support.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <map>

#include "sim/board/board.h"

namespace hwtest {

void board_fresh() { board::reset(); }
void mixer_absent(bool absent) { board::set_absent(absent ? "mixer" : ""); }
void i2cdrv_absent(bool absent) { board::set_absent(absent ? "i2cdrv" : ""); }
std::vector<std::string> events() { return board::log_lines(); }

// Through the driver's own requests, as any program would.
void seed(u16 reg, u16 value) {
  const int fd = open("/dev/mixer", O_RDWR);
  ASSERT_GE(fd, 0) << "seeding register " << reg;
  u16 index = reg;
  EXPECT_EQ(ioctl(fd, 0x80026616, &index), 0);
  EXPECT_EQ(ioctl(fd, 0x80026615, &value), 0);
  close(fd);
}

Ops operator+(Ops a, const Ops &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::string format(const char *fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}

std::vector<std::string> lines_starting(const std::vector<std::string> &log, const std::string &prefix) {
  std::vector<std::string> out;
  for (const auto &line : log)
    if (line.rfind(prefix, 0) == 0) out.push_back(line);
  return out;
}

std::vector<std::string> register_lines(const std::vector<std::string> &log) {
  std::vector<std::string> out;
  for (const auto &line : log)
    if (line.rfind("mixer read ", 0) == 0 || line.rfind("mixer write ", 0) == 0) out.push_back(line);
  return out;
}

std::string joined(const std::vector<std::string> &lines) {
  std::string s;
  for (const auto &l : lines) s += l + "\n";
  return s;
}

namespace {
// A register line: true when it is a read of `reg`, with its value.
bool read_of(const std::string &line, u16 reg, unsigned &value) {
  unsigned r = 0;
  return std::sscanf(line.c_str(), "mixer read 0x%x 0x%x", &r, &value) == 2 && r == reg;
}
}  // namespace

std::string expected_register_text(const Ops &expected, const std::vector<std::string> &actual) {
  std::map<u16, unsigned> last_read;
  std::string text;
  for (size_t i = 0; i < expected.size(); ++i) {
    const Op &op = expected[i];
    unsigned value = 0;
    if (op.kind == Op::Read) {
      if (i < actual.size() && read_of(actual[i], op.reg, value)) {
        last_read[op.reg] = value;
        text += format("mixer read 0x%02x 0x%04x\n", op.reg, value);
      } else {
        text += format("mixer read 0x%02x (any value)\n", op.reg);
      }
    } else if (op.kind == Op::Write) {
      text += format("mixer write 0x%02x 0x%04x\n", op.reg, op.value);
    } else if (const auto it = last_read.find(op.reg); it != last_read.end()) {
      text += format("mixer write 0x%02x 0x%04x\n", op.reg, ((it->second & op.keep) | op.set) & 0xFFFF);
    } else {
      text += format("mixer write 0x%02x (read & 0x%04x | 0x%04x, after a read)\n", op.reg, op.keep, op.set);
    }
  }
  return text;
}

int read_value(const std::vector<std::string> &log, u16 reg, unsigned n) {
  unsigned value = 0;
  for (const auto &line : log)
    if (read_of(line, reg, value) && n-- == 0) return static_cast<int>(value);
  return -1;
}

Outcome run(const std::function<s32()> &op) {
  Outcome r;
  const size_t mark = events().size();
  testing::internal::CaptureStdout();
  r.result = op();
  fflush(stdout);
  r.out = testing::internal::GetCapturedStdout();
  const auto all = events();
  r.log.assign(all.begin() + static_cast<std::ptrdiff_t>(std::min(mark, all.size())), all.end());
  return r;
}

void quietly(const std::function<void()> &steps) {
  testing::internal::CaptureStdout();
  steps();
  fflush(stdout);
  (void)testing::internal::GetCapturedStdout();
}

}  // namespace hwtest
