// Declarations shared by the device models of the virtual board.
//
// Locking: one mutex guards every model's state record, the descriptor
// table and the log. The system-call entry points (interpose.cpp) take it and
// call the models with it held; only the PCM output gives it up while it
// sleeps to pace the writer.
#pragma once
#include "sim/board/board.h"

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace board::detail {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

// ---- Request numbers ----
// The board is a MIPS Linux: its ioctl numbers put the direction in bits
// 29..31 (1 none, 2 read, 4 write, 6 both), the argument size in bits
// 16..28, the type character in bits 8..15 and the number in bits 0..7.
// These are the numbers the board's programs issue.
constexpr u32 IOC_NONE = 1, IOC_READ = 2, IOC_WRITE = 4;
constexpr u32 ioc(u32 dir, char type, u32 nr, u32 size) {
  return dir << 29 | size << 16 | static_cast<u32>(static_cast<u8>(type)) << 8 | nr;
}
constexpr u32 ioc_type(u32 request) { return (request >> 8) & 0xFF; }
constexpr u32 ioc_nr(u32 request) { return request & 0xFF; }
constexpr u32 ioc_size(u32 request) { return (request >> 16) & 0x1FFF; }

// ---- Devices ----
struct DeviceInfo {
  Device device;
  const char *name;
  const char *path;
};
constexpr DeviceInfo kDevices[kDeviceCount] = {
    {Device::mixer, "mixer", "/dev/mixer"},
    {Device::i2cdrv, "i2cdrv", "/dev/i2cdrv"},
    {Device::mae, "mae", "/dev/mae"},
    {Device::dsp, "dsp", "/dev/dsp"},
    {Device::hiddev, "hiddev", "/dev/usb/hiddev0"},
    {Device::ts, "ts", "/dev/ts"},
    {Device::fb0, "fb0", "/dev/fb0"},
    {Device::fb1, "fb1", "/dev/fb1"},
    {Device::fb2, "fb2", "/dev/fb2"},
    {Device::fb3, "fb3", "/dev/fb3"},
};
constexpr std::size_t index_of(Device d) { return static_cast<std::size_t>(d); }
constexpr bool is_fb(Device d) { return d >= Device::fb0 && d <= Device::fb3; }
constexpr int fb_window(Device d) { return static_cast<int>(d) - static_cast<int>(Device::fb0); }
// The device whose path this is, if any.
bool device_for_path(const char *path, Device &device);

// One open descriptor of a device.
struct OpenFile {
  Device device = Device::mixer;
  int flags = 0;        // open flags
  dev_t st_dev = 0;     // identity of the backing file, to notice a reused number
  ino_t st_ino = 0;
  u64 written = 0;      // bytes written through this descriptor
};

// ---- Descriptor table (control.cpp) ----
// A lock-free first test: non-zero only for descriptor numbers that were
// handed out for a device (device index + 1).
constexpr int kMaxFd = 1 << 16;
extern std::atomic<u8> g_fd_device[kMaxFd];
inline bool maybe_device_fd(int fd) {
  return fd >= 0 && fd < kMaxFd && g_fd_device[fd].load(std::memory_order_acquire) != 0;
}

std::mutex &board_mutex();
// Reads the environment once (lock held).
void ensure_configured();
// The open record of a device descriptor, or null (lock held). A descriptor
// that no longer refers to the device's file (closed behind our back and its
// number reused) is forgotten here.
OpenFile *find_open(int fd);
void add_open(int fd, const OpenFile &file);
void remove_open(int fd);
bool device_absent(Device device);
// How many descriptors of the device are open.
int open_count(Device device);

// ---- Faults (control.cpp), lock held ----
constexpr u32 kWriteRequest = 0xFFFFFFFFu;  // stands for write() in the fail list
// True when this call must fail; counts the call against "@n" items.
bool call_fails(Device device, u32 request);
bool clock_fails();

// ---- Event log (control.cpp), lock held ----
void log_event(const char *format, ...) __attribute__((format(printf, 1, 2)));
// Logs "<device> ioctl 0x<request> <why>" and returns -err, for requests a
// model refuses: "unsupported" (-EINVAL), "invalid" (-EINVAL), "null" (-EFAULT).
int reject(Device device, u32 request, const char *why, int err);

// ---- The C library underneath (interpose.cpp) ----
int real_open(const char *path, int flags, mode_t mode);
int real_close(int fd);
ssize_t real_read(int fd, void *buf, size_t count);
ssize_t real_write(int fd, const void *buf, size_t count);
int real_ioctl(int fd, unsigned long request, void *arg);

// ---- Device models, lock held ----
// ioctl handlers return a non-negative result or -errno.
int mixer_ioctl(u32 request, void *arg);
void mixer_power_on();
u16 mixer_peek(u8 index);
bool mixer_speaker();

int i2cdrv_ioctl(u32 request, void *arg);
void i2cdrv_power_on();

int mae_ioctl(u32 request, void *arg);
void mae_power_on();

void dsp_open(OpenFile &file);
void dsp_close(OpenFile &file);
int dsp_ioctl(OpenFile &file, u32 request, void *arg, std::unique_lock<std::mutex> &lock);
// May give up the lock while it paces the writer.
ssize_t dsp_write(OpenFile &file, int fd, const void *buf, size_t count,
                  std::unique_lock<std::mutex> &lock);
void dsp_power_on();
void dsp_set_speed(double factor);
void dsp_set_capture(const std::string &path);
void dsp_finish_capture();  // header brought up to date (exit)

int hiddev_ioctl(u32 request, void *arg);
void hiddev_power_on();
void hiddev_set_identity(u16 vendor, u16 product);

int fb_open(Device device, int flags);  // a new descriptor on the window's memory, or -errno
int fb_ioctl(Device device, u32 request, void *arg);
void fb_power_on();

}  // namespace board::detail
