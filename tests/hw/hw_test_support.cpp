#include "tests/hw/hw_test_support.h"

#include <cstdarg>
#include <cstdio>
#include <map>
#include <sstream>

namespace hwtest {

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

namespace {

struct Access {
  bool ok = false;
  bool read = false;
  unsigned reg = 0;
  unsigned value = 0;
};

Access parse(const std::string &line) {
  Access a;
  char kind[8] = {};
  if (std::sscanf(line.c_str(), "mixer %7s 0x%x 0x%x", kind, &a.reg, &a.value) == 3) {
    a.read = std::string(kind) == "read";
    a.ok = a.read || std::string(kind) == "write";
  }
  return a;
}

std::string read_line(u16 reg, unsigned value) { return format("mixer read 0x%02x 0x%04x", reg, value); }
std::string write_line(u16 reg, unsigned value) { return format("mixer write 0x%02x 0x%04x", reg, value); }

}  // namespace

std::string joined(const std::vector<std::string> &lines) {
  std::string s;
  for (const auto &l : lines) s += l + "\n";
  return s;
}

std::string expected_register_text(const Ops &expected, const std::vector<std::string> &actual) {
  std::map<u16, unsigned> last_read;
  std::vector<std::string> lines;
  for (size_t i = 0; i < expected.size(); ++i) {
    const Op &op = expected[i];
    switch (op.kind) {
      case Op::Read: {
        const Access a = i < actual.size() ? parse(actual[i]) : Access{};
        if (a.ok && a.read && a.reg == op.reg) {
          last_read[op.reg] = a.value;
          lines.push_back(read_line(op.reg, a.value));
        } else {
          lines.push_back(format("mixer read 0x%02x (any value)", op.reg));
        }
        break;
      }
      case Op::Write:
        lines.push_back(write_line(op.reg, op.value));
        break;
      case Op::WriteFromRead: {
        const auto it = last_read.find(op.reg);
        if (it == last_read.end())
          lines.push_back(format("mixer write 0x%02x (read & 0x%04x | 0x%04x, after a read)", op.reg, op.keep, op.set));
        else
          lines.push_back(write_line(op.reg, ((it->second & op.keep) | op.set) & 0xFFFF));
        break;
      }
    }
  }
  return joined(lines);
}

int read_value(const std::vector<std::string> &log, u16 reg, unsigned n) {
  for (const auto &line : log) {
    const Access a = parse(line);
    if (a.ok && a.read && a.reg == reg && n-- == 0) return static_cast<int>(a.value);
  }
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

Outcome run_void(const std::function<void()> &op) {
  return run([&] {
    op();
    return 0;
  });
}

void quietly(const std::function<void()> &steps) {
  testing::internal::CaptureStdout();
  steps();
  fflush(stdout);
  (void)testing::internal::GetCapturedStdout();
}

}  // namespace hwtest

// ---- The virtual board ----

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <set>

#include "sim/board/board.h"

namespace hwtest {

namespace {
std::set<std::string> absent_devices;

void apply_absent() {
  std::string list;
  for (const auto &name : absent_devices) list += (list.empty() ? "" : ",") + name;
  board::set_absent(list);
}

void set_device_absent(const char *name, bool absent) {
  if (absent)
    absent_devices.insert(name);
  else
    absent_devices.erase(name);
  apply_absent();
}
}  // namespace

void board_fresh() {
  board::reset();
  absent_devices.clear();
}

void mixer_absent(bool absent) { set_device_absent("mixer", absent); }
void i2cdrv_absent(bool absent) { set_device_absent("i2cdrv", absent); }

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

}  // namespace hwtest
