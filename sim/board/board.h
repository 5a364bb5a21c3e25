// The virtual board: the Au1200 player's character devices modelled at the
// system-call boundary, so that plain POSIX code (open, ioctl, read, write,
// mmap, close, settimeofday) runs on a PC as it would on the board.
//
// The library defines open/open64/openat/openat64, close, ioctl, read and
// write (and settimeofday, clock_settime) with C linkage. Calls on the
// board's device paths are answered by the models below; every other call is
// passed to the C library unchanged. It is used two ways:
//   - preloaded into a real program: LD_PRELOAD=<build>/sim/board/libpmxboard.so
//     (see sim/board/preload.h and the README section "Virtual board");
//   - linked into a unit test (target pmx_board), which then drives the
//     devices with ordinary calls and inspects them through this header.
//
// Devices and their paths:
//   mixer   /dev/mixer         WM9712 AC97 codec registers, speaker, beep, reset
//   i2cdrv  /dev/i2cdrv        video encoder switch: LCD / composite / component, TV position
//   mae     /dev/mae           media acceleration engine colour-space conversion
//   dsp     /dev/dsp           OSS PCM output, paced in real time, captured to WAV
//   hiddev  /dev/usb/hiddev0   USB HID LED glasses (vendor 0x16b4, product 0x0202)
//   ts      /dev/ts            touch screen without touches
//   fb0..3  /dev/fb0../dev/fb3 LCD controller windows (480x272 panel), mmap-able
//
// Environment (read at the first call that touches a device or the clock):
//   PMX_BOARD_LOG=<file>          event log, one line per event, appended
//   PMX_BOARD_ABSENT=<names>      comma list of devices whose open fails with ENOENT
//   PMX_BOARD_FAIL=<items>        comma list: <name> (every ioctl fails with EIO),
//                                 <name>:<request hex> (that request only),
//                                 <name>:write (writes fail), <name>:<what>@<n>
//                                 (the first n succeed, the rest fail), clock
//                                 (settimeofday fails with EPERM)
//   PMX_BOARD_DSP_CAPTURE=<file>  PCM written to /dev/dsp is saved as a WAV file
//   PMX_BOARD_DSP_SPEED=<factor>  output pacing: 1 real time (default), 10 ten
//                                 times faster, 0 no pacing at all
//   PMX_BOARD_HID_ID=<vvvv:pppp>  vendor and product the glasses report (hex)
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace board {

enum class Device : std::uint8_t { mixer, i2cdrv, mae, dsp, hiddev, ts, fb0, fb1, fb2, fb3 };
constexpr std::size_t kDeviceCount = 10;

// "mixer", "i2cdrv", ... as used in the log and the environment lists.
const char *device_name(Device device);
// "/dev/mixer", ...
const char *device_path(Device device);

// ---- Control ----

// Everything back to power-on: codec registers, video output, DSP format and
// capture, HID state, framebuffer screen info; the in-memory log, absent and
// failing devices, pacing (real time) and capture file are cleared.
// Descriptors that are open stay open.
void reset();
// Re-reads the PMX_BOARD_* variables (replacing the absent and failing lists,
// the log file, capture file, speed and HID identity).
void reload_environment();
// Same syntax as PMX_BOARD_ABSENT / PMX_BOARD_FAIL; replaces the list.
// false when an item was not understood (the others still apply).
bool set_absent(std::string_view list);
bool set_failing(std::string_view list);
void set_dsp_speed(double factor);
// "" stops capturing to a file (the PCM is still kept in memory).
void set_dsp_capture(const std::string &path);
void set_hid_identity(std::uint16_t vendor, std::uint16_t product);

// ---- Observation ----

// Every event line recorded since the last reset (the same lines as the log
// file, without line ends).
std::vector<std::string> log_lines();

// The value a read of the codec register would give now (no log line).
std::uint16_t mixer_register(std::uint8_t index);
bool speaker_enabled();

enum class VideoOutput { lcd, composite, component };
VideoOutput video_output();
struct TvPosition {
  std::uint32_t x = 0, y = 0;
};
TvPosition tv_position();
struct I2cWrite {
  std::uint32_t dev = 0, sub = 0, data = 0, nbytes = 0;
};
std::vector<I2cWrite> i2c_writes();

// The twelve coefficients of every colour-space conversion request, in order.
std::vector<std::array<std::uint32_t, 12>> mae_conversions();

struct DspCapture {
  int format = 0;     // OSS AFMT_* of the captured PCM (0: nothing written yet)
  int channels = 0;
  int rate = 0;
  std::uint64_t bytes = 0;         // total written to the device
  std::vector<std::uint8_t> pcm;   // the first 64 MiB of it
};
DspCapture dsp_capture();

// Every 8-byte output report sent to the glasses, in order.
std::vector<std::array<std::uint8_t, 8>> hid_reports();

}  // namespace board
