// "/dev/dsp": the OSS PCM output of the AC97 controller.
//
// Format, channels and rate are set with the OSS requests; a new open starts
// from the OSS defaults (unsigned 8-bit, mono, 8000 Hz). The device plays
// from a buffer of 16 fragments of 4096 bytes: a write returns once what it
// queued fits in that buffer, so a writer is paced at the real playing speed
// (PMX_BOARD_DSP_SPEED times it; 0 plays everything at once). The queue
// drains on a clock; SNDCTL_DSP_GETODELAY tells how much of it is left,
// SNDCTL_DSP_RESET drops it. Closing drops what is still queued (no wait).
// Recording is not modelled: reads give nothing.
//
// Everything written is captured: the first 64 MiB in memory, and all of it
// into a WAV file when one is named. The file's header takes the format of
// the first write; its sizes are brought up to date after every write (so a
// killed program still leaves a valid file), at close and at exit.
#include "sim/board/board_internal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

namespace board::detail {
namespace {

using Clock = std::chrono::steady_clock;

// OSS requests (type 'P', an int argument unless stated)
constexpr u32 kReset = ioc(IOC_NONE, 'P', 0, 0);                  // SNDCTL_DSP_RESET
constexpr u32 kSync = ioc(IOC_NONE, 'P', 1, 0);                   // SNDCTL_DSP_SYNC
constexpr u32 kSpeed = ioc(IOC_READ | IOC_WRITE, 'P', 2, 4);      // SNDCTL_DSP_SPEED
constexpr u32 kStereo = ioc(IOC_READ | IOC_WRITE, 'P', 3, 4);     // SNDCTL_DSP_STEREO
constexpr u32 kGetBlkSize = ioc(IOC_READ | IOC_WRITE, 'P', 4, 4); // SNDCTL_DSP_GETBLKSIZE
constexpr u32 kSetFmt = ioc(IOC_READ | IOC_WRITE, 'P', 5, 4);     // SNDCTL_DSP_SETFMT
constexpr u32 kChannels = ioc(IOC_READ | IOC_WRITE, 'P', 6, 4);   // SNDCTL_DSP_CHANNELS
constexpr u32 kProfile = ioc(IOC_WRITE, 'P', 23, 4);              // SNDCTL_DSP_PROFILE
constexpr u32 kGetODelay = ioc(IOC_READ, 'P', 23, 4);             // SNDCTL_DSP_GETODELAY
static_assert(kReset == 0x20005000 && kSync == 0x20005001 && kSpeed == 0xC0045002 &&
              kStereo == 0xC0045003 && kGetBlkSize == 0xC0045004 && kSetFmt == 0xC0045005 &&
              kChannels == 0xC0045006 && kProfile == 0x80045017 && kGetODelay == 0x40045017);

// OSS sample formats
constexpr int kAfmtQuery = 0x00;
constexpr int kAfmtU8 = 0x08;
constexpr int kAfmtS16Le = 0x10;

constexpr int kMinRate = 8000, kMaxRate = 48000;  // the codec's variable-rate range
constexpr int kBlockSize = 4096;
constexpr u64 kBufferBytes = 16 * kBlockSize;
constexpr std::size_t kMemoryCapture = 64u << 20;
constexpr u64 kWavHeader = 44;

struct Format {
  int format = kAfmtU8;
  int channels = 1;
  int rate = 8000;
};

struct Dsp {
  Format now;                  // as configured
  int profile = 0;
  Clock::time_point play_end;  // when the queued sound has played
  double speed = 1.0;
  // capture
  Format captured;             // fixed by the first write
  bool any_captured = false;
  u64 total = 0;
  std::vector<u8> pcm;
  std::string path;
  int fd = -1;
  u64 file_data = 0;           // bytes in the file's data chunk
};

Dsp &dsp() {
  static Dsp *state = new Dsp;
  return *state;
}

int bytes_per_sample(int format) { return format == kAfmtU8 ? 1 : 2; }
int frame_bytes(const Format &f) { return f.channels * bytes_per_sample(f.format); }

double bytes_per_second(const Dsp &d) {
  return static_cast<double>(d.now.rate) * frame_bytes(d.now) * d.speed;
}

// Bytes still queued for output at time t; a frame being played counts as
// queued until it is done.
u64 queued(const Dsp &d, Clock::time_point t) {
  if (d.speed <= 0 || d.play_end <= t) return 0;
  const double seconds = std::chrono::duration<double>(d.play_end - t).count();
  const u64 bytes = static_cast<u64>(std::ceil(seconds * bytes_per_second(d) - 1e-6));
  const u64 frame = static_cast<u64>(frame_bytes(d.now));
  return (bytes + frame - 1) / frame * frame;
}

Clock::duration seconds_for(const Dsp &d, double bytes) {
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double>(bytes / bytes_per_second(d)));
}

void put_le(u8 *p, u32 v, int n) {
  for (int i = 0; i < n; ++i) p[i] = static_cast<u8>(v >> (8 * i));
}

void write_header(Dsp &d) {
  if (d.fd < 0) return;
  const u32 data = static_cast<u32>(std::min<u64>(d.file_data, 0xFFFFFFFFu - 36));
  const int bits = 8 * bytes_per_sample(d.captured.format);
  const int align = frame_bytes(d.captured);
  u8 h[kWavHeader];
  std::memcpy(h, "RIFF", 4);
  put_le(h + 4, 36 + data, 4);
  std::memcpy(h + 8, "WAVEfmt ", 8);
  put_le(h + 16, 16, 4);
  put_le(h + 20, 1, 2);  // PCM
  put_le(h + 22, static_cast<u32>(d.captured.channels), 2);
  put_le(h + 24, static_cast<u32>(d.captured.rate), 4);
  put_le(h + 28, static_cast<u32>(d.captured.rate * align), 4);
  put_le(h + 32, static_cast<u32>(align), 2);
  put_le(h + 34, static_cast<u32>(bits), 2);
  std::memcpy(h + 36, "data", 4);
  put_le(h + 40, data, 4);
  (void)pwrite(d.fd, h, sizeof h, 0);
}

void close_capture_file(Dsp &d) {
  if (d.fd >= 0) {
    write_header(d);
    real_close(d.fd);
  }
  d.fd = -1;
  d.file_data = 0;
}

void capture(Dsp &d, const void *buf, size_t n) {
  if (!d.any_captured) {
    d.captured = d.now;
    d.any_captured = true;
  }
  d.total += n;
  const size_t room = kMemoryCapture - std::min(kMemoryCapture, d.pcm.size());
  const u8 *bytes = static_cast<const u8 *>(buf);
  d.pcm.insert(d.pcm.end(), bytes, bytes + std::min(room, n));
  if (d.path.empty()) return;
  if (d.fd < 0) {
    d.fd = real_open(d.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (d.fd < 0) {
      d.path.clear();  // reported once in the log, not again per write
      log_event("dsp capture failed");
      return;
    }
    d.file_data = 0;
  }
  const ssize_t put = pwrite(d.fd, buf, n, static_cast<off_t>(kWavHeader + d.file_data));
  if (put > 0) d.file_data += static_cast<u64>(put);
  write_header(d);
}

int load_int(const void *arg) {
  int v;
  std::memcpy(&v, arg, sizeof v);
  return v;
}
void store_int(void *arg, int v) { std::memcpy(arg, &v, sizeof v); }

}  // namespace

void dsp_open(OpenFile &) {
  Dsp &d = dsp();
  d.now = Format{};
  d.play_end = Clock::now();
}

void dsp_close(OpenFile &file) {
  Dsp &d = dsp();
  log_event("dsp written %llu", static_cast<unsigned long long>(file.written));
  d.play_end = Clock::now();
  write_header(d);
}

int dsp_ioctl(OpenFile &, u32 request, void *arg, std::unique_lock<std::mutex> &lock) {
  Dsp &d = dsp();
  if (request == kReset) {
    d.play_end = std::min(d.play_end, Clock::now());
    log_event("dsp reset");
    return 0;
  }
  if (request == kSync) {
    log_event("dsp sync");
    const Clock::time_point until = d.play_end;
    lock.unlock();
    std::this_thread::sleep_until(until);
    return 0;
  }
  if (request != kSpeed && request != kStereo && request != kGetBlkSize && request != kSetFmt &&
      request != kChannels && request != kProfile && request != kGetODelay) {
    return reject(Device::dsp, request, "unsupported", EINVAL);
  }
  if (arg == nullptr) return reject(Device::dsp, request, "null", EFAULT);
  const int asked = load_int(arg);
  switch (request) {
    case kSetFmt:
      // The codec plays unsigned 8-bit and signed 16-bit little-endian;
      // anything else is answered with the latter.
      if (asked != kAfmtQuery) d.now.format = asked == kAfmtU8 ? kAfmtU8 : kAfmtS16Le;
      store_int(arg, d.now.format);
      log_event("dsp setfmt 0x%02x 0x%02x", static_cast<unsigned>(asked),
                static_cast<unsigned>(d.now.format));
      return 0;
    case kStereo:
      d.now.channels = asked != 0 ? 2 : 1;
      store_int(arg, d.now.channels - 1);
      log_event("dsp stereo %d %d", asked, d.now.channels - 1);
      return 0;
    case kChannels:
      if (asked < 1) return reject(Device::dsp, request, "invalid", EINVAL);
      d.now.channels = asked >= 2 ? 2 : 1;
      store_int(arg, d.now.channels);
      log_event("dsp channels %d %d", asked, d.now.channels);
      return 0;
    case kSpeed:
      if (asked <= 0) return reject(Device::dsp, request, "invalid", EINVAL);
      d.now.rate = std::clamp(asked, kMinRate, kMaxRate);
      store_int(arg, d.now.rate);
      log_event("dsp speed %d %d", asked, d.now.rate);
      return 0;
    case kProfile:
      d.profile = asked;
      log_event("dsp profile %d", asked);
      return 0;
    case kGetBlkSize:
      store_int(arg, kBlockSize);
      log_event("dsp blksize %d", kBlockSize);
      return 0;
    case kGetODelay:  // asked often while draining: no log line
      store_int(arg, static_cast<int>(queued(d, Clock::now())));
      return 0;
  }
  return -EINVAL;
}

ssize_t dsp_write(OpenFile &file, int fd, const void *buf, size_t count,
                  std::unique_lock<std::mutex> &lock) {
  Dsp &d = dsp();
  if (count == 0) return 0;
  if (buf == nullptr) return -EFAULT;
  const Clock::time_point now = Clock::now();
  size_t n = count;
  const int fl = fcntl(fd, F_GETFL);
  if (d.speed > 0 && fl >= 0 && (fl & O_NONBLOCK) != 0) {
    // Non-blocking: only what fits in the buffer now.
    const u64 frame = static_cast<u64>(frame_bytes(d.now));
    u64 room = kBufferBytes - std::min(kBufferBytes, queued(d, now));
    room -= room % frame;
    if (room == 0) return -EAGAIN;
    n = static_cast<size_t>(std::min<u64>(n, room));
  }
  capture(d, buf, n);
  file.written += n;
  if (d.speed <= 0) return static_cast<ssize_t>(n);
  if (d.play_end < now) d.play_end = now;  // the queue had run dry
  d.play_end += seconds_for(d, static_cast<double>(n));
  // Back once the rest fits in the buffer.
  const Clock::time_point wake = d.play_end - seconds_for(d, static_cast<double>(kBufferBytes));
  lock.unlock();
  if (wake > now) std::this_thread::sleep_until(wake);
  return static_cast<ssize_t>(n);
}

void dsp_power_on() {
  Dsp &d = dsp();
  d.now = Format{};
  d.profile = 0;
  d.play_end = Clock::now();
  d.captured = Format{};
  d.any_captured = false;
  d.total = 0;
  d.pcm.clear();
  d.pcm.shrink_to_fit();
  close_capture_file(d);  // a later write starts the named file afresh
}

void dsp_set_speed(double factor) { dsp().speed = factor > 0 ? factor : 0; }

void dsp_set_capture(const std::string &path) {
  Dsp &d = dsp();
  if (path == d.path && d.fd >= 0) return;
  close_capture_file(d);
  d.path = path;
}

void dsp_finish_capture() { write_header(dsp()); }

namespace {
// At exit the WAV header gets its final sizes, unless a thread is inside the
// board at that moment (then the last write's header stands).
__attribute__((destructor)) void finish_at_exit() {
  std::unique_lock lock(board_mutex(), std::try_to_lock);
  if (lock.owns_lock()) dsp_finish_capture();
}
}  // namespace

}  // namespace board::detail

namespace board {

DspCapture dsp_capture() {
  std::lock_guard lock(detail::board_mutex());
  const detail::Dsp &d = detail::dsp();
  DspCapture c;
  if (d.any_captured) {
    c.format = d.captured.format;
    c.channels = d.captured.channels;
    c.rate = d.captured.rate;
  }
  c.bytes = d.total;
  c.pcm = d.pcm;
  return c;
}

}  // namespace board
