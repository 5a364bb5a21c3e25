// Board control: the environment, absent and failing devices, the event log
// and the table of open device descriptors.
//
// The state record is made on first use and never destroyed: the entry
// points can be called before static constructors have run (by other
// libraries' start-up code) and after destructors (by exit handlers).
#include "sim/board/board_internal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace board::detail {

std::atomic<u8> g_fd_device[kMaxFd];

namespace {

constexpr std::size_t kMaxLogLines = 200000;  // kept in memory; the file gets every line

// One item of the failing list.
struct Fault {
  bool clock = false;   // the item is "clock"
  Device device = Device::mixer;
  bool any = true;      // every request (and no write)
  u32 request = 0;      // one request, or kWriteRequest
  u64 pass = 0;         // calls that still succeed before the failures start
};

struct Control {
  bool configured = false;
  std::array<bool, kDeviceCount> absent{};
  std::vector<Fault> faults;
  int log_fd = -1;
  std::string log_path;
  std::vector<std::string> lines;
  std::map<int, OpenFile> files;
};

Control &ctl() {
  static Control *state = new Control;
  return *state;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

template <typename Fn>
void for_each_item(std::string_view list, Fn fn) {
  while (!list.empty()) {
    const std::size_t comma = list.find(',');
    const std::string_view item = trim(list.substr(0, comma));
    if (!item.empty()) fn(item);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
}

bool device_named(std::string_view name, Device &device) {
  for (const DeviceInfo &info : kDevices) {
    if (name == info.name) {
      device = info.device;
      return true;
    }
  }
  return false;
}

// A whole-string unsigned number in the given base ("0x" allowed for 16).
bool parse_unsigned(std::string_view text, int base, u64 &value) {
  if (base == 16 && text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
    text.remove_prefix(2);
  if (text.empty() || text.size() > 16) return false;
  u64 v = 0;
  for (const char c : text) {
    int digit;
    if (c >= '0' && c <= '9') digit = c - '0';
    else if (base == 16 && c >= 'a' && c <= 'f') digit = c - 'a' + 10;
    else if (base == 16 && c >= 'A' && c <= 'F') digit = c - 'A' + 10;
    else return false;
    v = v * static_cast<u64>(base) + static_cast<u64>(digit);
  }
  value = v;
  return true;
}

void warn(const char *variable, std::string_view item) {
  std::string text = "pmxboard: ";
  text += variable;
  text += ": \"";
  text += item;
  text += "\" not understood\n";
  (void)real_write(2, text.data(), text.size());
}

bool parse_fault(std::string_view item, Fault &fault) {
  std::string_view what = item;
  const std::size_t at = what.find('@');
  if (at != std::string_view::npos) {
    if (!parse_unsigned(what.substr(at + 1), 10, fault.pass)) return false;
    what = what.substr(0, at);
  }
  const std::size_t colon = what.find(':');
  const std::string_view name = what.substr(0, colon);
  if (name == "clock") {
    fault.clock = true;
    return colon == std::string_view::npos;
  }
  if (!device_named(name, fault.device)) return false;
  if (colon == std::string_view::npos) return true;
  const std::string_view request = what.substr(colon + 1);
  fault.any = false;
  if (request == "write") {
    fault.request = kWriteRequest;
    return true;
  }
  u64 number = 0;
  if (!parse_unsigned(request, 16, number) || number > 0xFFFFFFFFu) return false;
  fault.request = static_cast<u32>(number);
  return true;
}

bool apply_absent(std::string_view list, const char *variable) {
  Control &c = ctl();
  c.absent.fill(false);
  bool ok = true;
  for_each_item(list, [&](std::string_view item) {
    Device device;
    if (device_named(item, device)) {
      c.absent[index_of(device)] = true;
    } else {
      warn(variable, item);
      ok = false;
    }
  });
  return ok;
}

bool apply_failing(std::string_view list, const char *variable) {
  Control &c = ctl();
  c.faults.clear();
  bool ok = true;
  for_each_item(list, [&](std::string_view item) {
    Fault fault;
    if (parse_fault(item, fault)) {
      c.faults.push_back(fault);
    } else {
      warn(variable, item);
      ok = false;
    }
  });
  return ok;
}

void open_log(const char *path) {
  Control &c = ctl();
  if (c.log_fd >= 0) real_close(c.log_fd);
  c.log_fd = -1;
  c.log_path = path ? path : "";
  if (c.log_path.empty()) return;
  c.log_fd = real_open(c.log_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  if (c.log_fd < 0) warn("PMX_BOARD_LOG", c.log_path);
}

const char *env(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

void apply_environment() {
  open_log(std::getenv("PMX_BOARD_LOG"));
  apply_absent(env("PMX_BOARD_ABSENT"), "PMX_BOARD_ABSENT");
  apply_failing(env("PMX_BOARD_FAIL"), "PMX_BOARD_FAIL");
  dsp_set_capture(env("PMX_BOARD_DSP_CAPTURE"));
  double speed = 1.0;
  if (const char *text = std::getenv("PMX_BOARD_DSP_SPEED"); text && *text) {
    char *end = nullptr;
    speed = std::strtod(text, &end);
    if (*end != '\0' || !(speed >= 0.0)) {
      warn("PMX_BOARD_DSP_SPEED", text);
      speed = 1.0;
    }
  }
  dsp_set_speed(speed);
  u16 vendor = 0x16B4, product = 0x0202;
  if (const std::string_view id = env("PMX_BOARD_HID_ID"); !id.empty()) {
    const std::size_t colon = id.find(':');
    u64 v = 0, p = 0;
    if (colon != std::string_view::npos && parse_unsigned(id.substr(0, colon), 16, v) &&
        parse_unsigned(id.substr(colon + 1), 16, p) && v <= 0xFFFF && p <= 0xFFFF) {
      vendor = static_cast<u16>(v);
      product = static_cast<u16>(p);
    } else {
      warn("PMX_BOARD_HID_ID", id);
    }
  }
  hiddev_set_identity(vendor, product);
}

// Counts the call against an item; true when it fails.
bool trips(Fault &fault) {
  if (fault.pass > 0) {
    --fault.pass;
    return false;
  }
  return true;
}

}  // namespace

std::mutex &board_mutex() {
  static std::mutex mutex;  // constant-initialised: usable at any time
  return mutex;
}

void ensure_configured() {
  Control &c = ctl();
  if (c.configured) return;
  c.configured = true;
  apply_environment();
}

bool device_for_path(const char *path, Device &device) {
  if (path == nullptr || path[0] != '/') return false;
  for (const DeviceInfo &info : kDevices) {
    if (std::strcmp(path, info.path) == 0) {
      device = info.device;
      return true;
    }
  }
  return false;
}

OpenFile *find_open(int fd) {
  Control &c = ctl();
  const auto it = c.files.find(fd);
  if (it == c.files.end()) return nullptr;
  struct stat st {};
  if (fstat(fd, &st) != 0 || st.st_dev != it->second.st_dev || st.st_ino != it->second.st_ino) {
    remove_open(fd);
    return nullptr;
  }
  return &it->second;
}

void add_open(int fd, const OpenFile &file) {
  ctl().files[fd] = file;
  g_fd_device[fd].store(static_cast<u8>(index_of(file.device) + 1), std::memory_order_release);
}

void remove_open(int fd) {
  if (fd >= 0 && fd < kMaxFd) g_fd_device[fd].store(0, std::memory_order_release);
  ctl().files.erase(fd);
}

bool device_absent(Device device) { return ctl().absent[index_of(device)]; }

int open_count(Device device) {
  int n = 0;
  for (const auto &[fd, file] : ctl().files) n += file.device == device ? 1 : 0;
  return n;
}

bool call_fails(Device device, u32 request) {
  bool fails = false;
  for (Fault &fault : ctl().faults) {
    if (fault.clock || fault.device != device) continue;
    const bool matches = fault.any ? request != kWriteRequest : fault.request == request;
    if (matches && trips(fault)) fails = true;
  }
  return fails;
}

bool clock_fails() {
  bool fails = false;
  for (Fault &fault : ctl().faults) {
    if (fault.clock && trips(fault)) fails = true;
  }
  return fails;
}

void log_event(const char *format, ...) {
  char small[256];
  va_list ap;
  va_start(ap, format);
  const int n = std::vsnprintf(small, sizeof small, format, ap);
  va_end(ap);
  if (n < 0) return;
  std::string line;
  if (static_cast<std::size_t>(n) < sizeof small) {
    line.assign(small, static_cast<std::size_t>(n));
  } else {
    line.resize(static_cast<std::size_t>(n) + 1);
    va_start(ap, format);
    std::vsnprintf(line.data(), line.size(), format, ap);
    va_end(ap);
    line.resize(static_cast<std::size_t>(n));
  }
  Control &c = ctl();
  if (c.log_fd >= 0) {
    // One write per line: with O_APPEND a line is never split, and nothing
    // waits in a buffer if the program is killed.
    line.push_back('\n');
    (void)real_write(c.log_fd, line.data(), line.size());
    line.pop_back();
  }
  if (c.lines.size() < kMaxLogLines) c.lines.push_back(std::move(line));
}

int reject(Device device, u32 request, const char *why, int err) {
  log_event("%s ioctl 0x%08x %s", kDevices[index_of(device)].name, request, why);
  return -err;
}

}  // namespace board::detail

// ---- The in-process API ----
namespace board {

using namespace detail;

const char *device_name(Device device) { return kDevices[index_of(device)].name; }
const char *device_path(Device device) { return kDevices[index_of(device)].path; }

void reset() {
  std::lock_guard lock(board_mutex());
  ensure_configured();  // so that the environment is not applied over the reset later
  Control &c = ctl();
  c.absent.fill(false);
  c.faults.clear();
  c.lines.clear();
  mixer_power_on();
  i2cdrv_power_on();
  mae_power_on();
  dsp_power_on();
  dsp_set_speed(1.0);
  dsp_set_capture("");
  hiddev_power_on();
  hiddev_set_identity(0x16B4, 0x0202);
  fb_power_on();
}

void reload_environment() {
  std::lock_guard lock(board_mutex());
  ctl().configured = true;
  apply_environment();
}

bool set_absent(std::string_view list) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  return apply_absent(list, "absent list");
}

bool set_failing(std::string_view list) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  return apply_failing(list, "failing list");
}

void set_dsp_speed(double factor) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  dsp_set_speed(factor);
}

void set_dsp_capture(const std::string &path) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  dsp_set_capture(path);
}

void set_hid_identity(std::uint16_t vendor, std::uint16_t product) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  hiddev_set_identity(vendor, product);
}

std::vector<std::string> log_lines() {
  std::lock_guard lock(board_mutex());
  return ctl().lines;
}

std::uint16_t mixer_register(std::uint8_t index) {
  std::lock_guard lock(board_mutex());
  return mixer_peek(index);
}

bool speaker_enabled() {
  std::lock_guard lock(board_mutex());
  return mixer_speaker();
}

}  // namespace board
