// The system-call boundary of the virtual board: open, close, ioctl, read and
// write on the board's device paths are answered by the models; every other
// call goes to the next definition (the C library, or a sanitizer runtime in
// front of it) found with dlsym(RTLD_NEXT, ...). Setting the wall clock is
// recorded and never reaches the host.
//
// A device descriptor is a real descriptor: an anonymous memory file (the
// framebuffer windows' files hold their pixels, so mmap works on them), so
// that fstat, fcntl, dup, poll and close behave as the program expects.
#undef _FORTIFY_SOURCE
#include "sim/board/board_internal.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>

namespace board::detail {
namespace {

// The next definition of a C library function, looked up once.
template <typename Fn>
Fn next_fn(std::atomic<void *> &slot, const char *name) {
  void *p = slot.load(std::memory_order_acquire);
  if (p == nullptr) {
    p = dlsym(RTLD_NEXT, name);
    slot.store(p, std::memory_order_release);
  }
  return reinterpret_cast<Fn>(p);
}

#define PMX_NEXT(name, type)                     \
  ([]() -> type {                                \
    static std::atomic<void *> slot{nullptr};    \
    return next_fn<type>(slot, name);            \
  }())

using OpenFn = int (*)(const char *, int, ...);
using OpenatFn = int (*)(int, const char *, int, ...);
using CloseFn = int (*)(int);
using ReadFn = ssize_t (*)(int, void *, size_t);
using WriteFn = ssize_t (*)(int, const void *, size_t);
using IoctlFn = int (*)(int, unsigned long, ...);
using ClockSettimeFn = int (*)(clockid_t, const struct timespec *);

int missing() {
  errno = ENOSYS;
  return -1;
}

const char *name_of(Device device) { return kDevices[index_of(device)].name; }

bool needs_mode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

bool nonblocking(int fd) {
  const int fl = fcntl(fd, F_GETFL);
  return fl >= 0 && (fl & O_NONBLOCK) != 0;
}

// Opens a device: a new descriptor and its record, or -1 with errno.
int open_device(Device device, int flags) {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  const char *name = name_of(device);
  if (device_absent(device)) {
    log_event("%s open absent", name);
    errno = ENOENT;
    return -1;
  }
  // The PCM output is single-open, as the sound driver's is.
  if (device == Device::dsp && open_count(device) > 0) {
    log_event("%s open busy", name);
    errno = EBUSY;
    return -1;
  }
  int fd;
  if (is_fb(device)) {
    fd = fb_open(device, flags);
  } else {
    std::string label = "pmxboard-";
    label += name;
    fd = memfd_create(label.c_str(), (flags & O_CLOEXEC) ? MFD_CLOEXEC : 0);
    if (fd < 0) fd = -errno;
  }
  if (fd < 0) {
    errno = -fd;
    return -1;
  }
  if (fd >= kMaxFd) {
    real_close(fd);
    errno = EMFILE;
    return -1;
  }
  // Kept on the descriptor itself, where fcntl(F_SETFL) can change it later.
  if (flags & O_NONBLOCK) fcntl(fd, F_SETFL, O_NONBLOCK);
  struct stat st {};
  fstat(fd, &st);
  OpenFile file;
  file.device = device;
  file.flags = flags;
  file.st_dev = st.st_dev;
  file.st_ino = st.st_ino;
  add_open(fd, file);
  log_event("%s open", name);
  if (device == Device::dsp) dsp_open(*find_open(fd));
  return fd;
}

// Open requests of every flavour end here.
template <typename Forward>
int open_common(const char *path, int flags, Forward forward) {
  Device device;
  if (!device_for_path(path, device)) return forward();
  return open_device(device, flags);
}

// The generic descriptor requests of the host's kernel act on any file.
bool generic_request(unsigned long request) {
  return request == FIONBIO || request == FIOCLEX || request == FIONCLEX || request == FIOASYNC;
}

int device_ioctl(OpenFile &file, u32 request, void *arg, std::unique_lock<std::mutex> &lock) {
  switch (file.device) {
    case Device::mixer: return mixer_ioctl(request, arg);
    case Device::i2cdrv: return i2cdrv_ioctl(request, arg);
    case Device::mae: return mae_ioctl(request, arg);
    case Device::dsp: return dsp_ioctl(file, request, arg, lock);
    case Device::hiddev: return hiddev_ioctl(request, arg);
    case Device::ts: return reject(file.device, request, "unsupported", EINVAL);
    case Device::fb0:
    case Device::fb1:
    case Device::fb2:
    case Device::fb3: return fb_ioctl(file.device, request, arg);
  }
  return -EINVAL;
}

int fail(int err) {
  errno = err;
  return -1;
}

}  // namespace

int real_open(const char *path, int flags, mode_t mode) {
  const OpenFn fn = PMX_NEXT("open", OpenFn);
  return fn ? fn(path, flags, mode) : missing();
}
int real_close(int fd) {
  const CloseFn fn = PMX_NEXT("close", CloseFn);
  return fn ? fn(fd) : missing();
}
ssize_t real_read(int fd, void *buf, size_t count) {
  const ReadFn fn = PMX_NEXT("read", ReadFn);
  return fn ? fn(fd, buf, count) : missing();
}
ssize_t real_write(int fd, const void *buf, size_t count) {
  const WriteFn fn = PMX_NEXT("write", WriteFn);
  return fn ? fn(fd, buf, count) : missing();
}
int real_ioctl(int fd, unsigned long request, void *arg) {
  const IoctlFn fn = PMX_NEXT("ioctl", IoctlFn);
  return fn ? fn(fd, request, arg) : missing();
}

}  // namespace board::detail

using namespace board::detail;
using board::Device;

#define PMX_BOARD_API extern "C" __attribute__((visibility("default")))

// Named on the link line of every program that links the static library, so
// that this object (and with it the interposed functions) is always taken
// from the archive, whatever the order of the libraries.
PMX_BOARD_API const int pmx_board_linked = 1;

// ---- open ----

PMX_BOARD_API int open(const char *path, int flags, ...) {
  mode_t mode = 0;
  if (needs_mode(flags)) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  return open_common(path, flags, [&] {
    const OpenFn fn = PMX_NEXT("open", OpenFn);
    return fn ? fn(path, flags, mode) : missing();
  });
}

PMX_BOARD_API int open64(const char *path, int flags, ...) {
  mode_t mode = 0;
  if (needs_mode(flags)) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  return open_common(path, flags, [&] {
    const OpenFn fn = PMX_NEXT("open64", OpenFn);
    return fn ? fn(path, flags, mode) : missing();
  });
}

PMX_BOARD_API int openat(int dirfd, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (needs_mode(flags)) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  return open_common(path, flags, [&] {
    const OpenatFn fn = PMX_NEXT("openat", OpenatFn);
    return fn ? fn(dirfd, path, flags, mode) : missing();
  });
}

PMX_BOARD_API int openat64(int dirfd, const char *path, int flags, ...) {
  mode_t mode = 0;
  if (needs_mode(flags)) {
    va_list ap;
    va_start(ap, flags);
    mode = static_cast<mode_t>(va_arg(ap, int));
    va_end(ap);
  }
  return open_common(path, flags, [&] {
    const OpenatFn fn = PMX_NEXT("openat64", OpenatFn);
    return fn ? fn(dirfd, path, flags, mode) : missing();
  });
}

// The checked forms that fortified builds call when no mode is given.
PMX_BOARD_API int __open_2(const char *path, int flags) {
  return open_common(path, flags, [&] {
    const OpenFn fn = PMX_NEXT("__open_2", OpenFn);
    return fn ? fn(path, flags) : missing();
  });
}
PMX_BOARD_API int __open64_2(const char *path, int flags) {
  return open_common(path, flags, [&] {
    const OpenFn fn = PMX_NEXT("__open64_2", OpenFn);
    return fn ? fn(path, flags) : missing();
  });
}
PMX_BOARD_API int __openat_2(int dirfd, const char *path, int flags) {
  return open_common(path, flags, [&] {
    const OpenatFn fn = PMX_NEXT("__openat_2", OpenatFn);
    return fn ? fn(dirfd, path, flags) : missing();
  });
}
PMX_BOARD_API int __openat64_2(int dirfd, const char *path, int flags) {
  return open_common(path, flags, [&] {
    const OpenatFn fn = PMX_NEXT("__openat64_2", OpenatFn);
    return fn ? fn(dirfd, path, flags) : missing();
  });
}

// ---- close ----

PMX_BOARD_API int close(int fd) {
  if (maybe_device_fd(fd)) {
    std::lock_guard lock(board_mutex());
    if (OpenFile *file = find_open(fd)) {
      const Device device = file->device;
      if (device == Device::dsp) dsp_close(*file);
      log_event("%s close", kDevices[index_of(device)].name);
      // Forgotten before the number is given back, so that a file opened by
      // another thread under the same number is never taken for the device.
      remove_open(fd);
    }
  }
  return real_close(fd);
}

// ---- ioctl ----

PMX_BOARD_API int ioctl(int fd, unsigned long request, ...) noexcept {
  va_list ap;
  va_start(ap, request);
  void *arg = va_arg(ap, void *);
  va_end(ap);
  if (!maybe_device_fd(fd)) return real_ioctl(fd, request, arg);
  std::unique_lock lock(board_mutex());
  OpenFile *file = find_open(fd);
  if (file == nullptr || generic_request(request)) {
    lock.unlock();
    return real_ioctl(fd, request, arg);
  }
  ensure_configured();
  // The kernel takes the request as a 32-bit number.
  const u32 req = static_cast<u32>(request);
  if (call_fails(file->device, req)) {
    log_event("%s ioctl 0x%08x failed", kDevices[index_of(file->device)].name, req);
    return fail(EIO);
  }
  const int result = device_ioctl(*file, req, arg, lock);
  return result < 0 ? fail(-result) : result;
}

// ---- read ----

PMX_BOARD_API ssize_t read(int fd, void *buf, size_t count) {
  if (!maybe_device_fd(fd)) return real_read(fd, buf, count);
  std::unique_lock lock(board_mutex());
  OpenFile *file = find_open(fd);
  if (file == nullptr) {
    lock.unlock();
    return real_read(fd, buf, count);
  }
  if ((file->flags & O_ACCMODE) == O_WRONLY) return fail(EBADF);
  const Device device = file->device;
  lock.unlock();
  // The touch screen and the glasses have no input events to give: a
  // non-blocking read says "try again", a blocking one ends at once.
  if (device == Device::ts || device == Device::hiddev) {
    if (nonblocking(fd)) return fail(EAGAIN);
    return 0;
  }
  // A framebuffer reads its pixels; the others read as empty.
  return real_read(fd, buf, count);
}

PMX_BOARD_API ssize_t __read_chk(int fd, void *buf, size_t count, size_t buflen) {
  if (count > buflen) {
    static const char message[] = "*** buffer overflow detected ***: read\n";
    (void)real_write(2, message, sizeof message - 1);
    abort();
  }
  return read(fd, buf, count);
}

// ---- write ----

PMX_BOARD_API ssize_t write(int fd, const void *buf, size_t count) {
  if (!maybe_device_fd(fd)) return real_write(fd, buf, count);
  std::unique_lock lock(board_mutex());
  OpenFile *file = find_open(fd);
  if (file == nullptr) {
    lock.unlock();
    return real_write(fd, buf, count);
  }
  if ((file->flags & O_ACCMODE) == O_RDONLY) return fail(EBADF);
  ensure_configured();
  const char *name = kDevices[index_of(file->device)].name;
  if (call_fails(file->device, kWriteRequest)) {
    log_event("%s write failed", name);
    return fail(EIO);
  }
  if (file->device == Device::dsp) {
    const ssize_t n = dsp_write(*file, fd, buf, count, lock);
    return n < 0 ? fail(static_cast<int>(-n)) : n;
  }
  if (is_fb(file->device)) {
    file->written += count;
    lock.unlock();
    return real_write(fd, buf, count);
  }
  log_event("%s write unsupported", name);
  return fail(EINVAL);
}

// ---- The wall clock ----

// A request to set the wall clock to sec and a fraction of `digits` decimal
// digits (microseconds or nanoseconds): logged, and refused when the
// fraction is out of range or the clock is set to fail. The host clock is
// never touched.
static int set_wall_clock(long long sec, long fraction, int digits) {
  long limit = 1;
  for (int i = 0; i < digits; ++i) limit *= 10;
  if (fraction < 0 || fraction >= limit) {
    log_event("clock set %lld invalid", sec);
    return fail(EINVAL);
  }
  if (clock_fails()) {
    log_event("clock set %lld failed", sec);
    return fail(EPERM);
  }
  if (fraction == 0)
    log_event("clock set %lld", sec);
  else
    log_event("clock set %lld.%0*ld", sec, digits, fraction);
  return 0;
}

PMX_BOARD_API int settimeofday(const struct timeval *tv, const struct timezone *tz) noexcept {
  std::lock_guard lock(board_mutex());
  ensure_configured();
  if (tv == nullptr) {
    if (tz != nullptr) log_event("clock timezone");
    return 0;
  }
  return set_wall_clock(static_cast<long long>(tv->tv_sec), static_cast<long>(tv->tv_usec), 6);
}

PMX_BOARD_API int clock_settime(clockid_t clock, const struct timespec *ts) noexcept {
  if (clock != CLOCK_REALTIME) {
    const ClockSettimeFn fn = PMX_NEXT("clock_settime", ClockSettimeFn);
    return fn ? fn(clock, ts) : missing();
  }
  std::lock_guard lock(board_mutex());
  ensure_configured();
  return set_wall_clock(static_cast<long long>(ts->tv_sec), static_cast<long>(ts->tv_nsec), 9);
}
