// "/dev/fb0".."/dev/fb3": the four windows of the Au1200 LCD controller on
// the board's 480x272 panel; fb0 is the base plane, fb1..fb3 the overlays.
//
// Each window has its own pixel memory: an anonymous memory file sized
// from the screen information (line length times virtual height), grown when
// FBIOPUT_VSCREENINFO asks for more, never shrunk (a mapping stays valid).
// Every open of a window is a new descriptor on that file, so mmap, read
// and write reach the same pixels.
//
// The fbdev requests are the standard ones. The controller's own requests
// (type 'F', numbers 0x80 and up: screen, window and panel settings) are
// taken as pairs: an even number stores its record, the odd number after it
// hands the stored record back (zeros before anything was stored). The
// records belong to the controller, shared by the four windows.
#include "sim/board/board_internal.h"

#include <fcntl.h>
#include <linux/fb.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace board::detail {
namespace {

// Plain numbers, the same on every architecture.
constexpr u32 kGetVar = 0x4600;   // FBIOGET_VSCREENINFO
constexpr u32 kPutVar = 0x4601;   // FBIOPUT_VSCREENINFO
constexpr u32 kGetFix = 0x4602;   // FBIOGET_FSCREENINFO
constexpr u32 kPan = 0x4606;      // FBIOPAN_DISPLAY
constexpr u32 kBlank = 0x4611;    // FBIOBLANK, the level is the argument itself
constexpr u32 kControllerFirst = 0x80;

constexpr u32 kPanelWidth = 480, kPanelHeight = 272;
constexpr u32 kMaxSide = 2048;          // largest window side of the controller
constexpr u32 kMaxVirtual = 4096;
constexpr unsigned long kMemoryBase = 0x0C000000;  // where the windows' memory sits (bus address)
constexpr unsigned long kMemoryStride = 0x01000000;
constexpr std::size_t kMaxLoggedWords = 64;

struct Window {
  fb_var_screeninfo var;
  int memfd = -1;
  std::size_t size = 0;   // bytes in the memory file
  u32 blank = 0;
};

struct Lcd {
  std::array<Window, 4> windows;
  std::map<u32, std::vector<u8>> records;  // controller requests by number
};

void set_colours(fb_var_screeninfo &v) {
  v.red = v.green = v.blue = v.transp = fb_bitfield{};
  switch (v.bits_per_pixel) {
    case 8:  // palette
      v.red.length = v.green.length = v.blue.length = 8;
      break;
    case 16:  // RGB565
      v.red = {11, 5, 0};
      v.green = {5, 6, 0};
      v.blue = {0, 5, 0};
      break;
    case 24:  // RGB888
      v.red = {16, 8, 0};
      v.green = {8, 8, 0};
      v.blue = {0, 8, 0};
      break;
    default:  // 32: ARGB8888
      v.red = {16, 8, 0};
      v.green = {8, 8, 0};
      v.blue = {0, 8, 0};
      v.transp = {24, 8, 0};
      break;
  }
}

fb_var_screeninfo power_on_var() {
  fb_var_screeninfo v{};
  v.xres = v.xres_virtual = kPanelWidth;
  v.yres = v.yres_virtual = kPanelHeight;
  v.bits_per_pixel = 16;
  set_colours(v);
  v.activate = FB_ACTIVATE_NOW;
  v.width = 95;    // panel size in millimetres (4.3 inch)
  v.height = 54;
  v.pixclock = 111111;  // picoseconds: 9 MHz dot clock
  v.left_margin = 2;
  v.right_margin = 2;
  v.upper_margin = 2;
  v.lower_margin = 2;
  v.hsync_len = 41;
  v.vsync_len = 10;
  v.vmode = FB_VMODE_NONINTERLACED;
  return v;
}

u32 line_length(const fb_var_screeninfo &v) { return v.xres_virtual * ((v.bits_per_pixel + 7) / 8); }
std::size_t memory_needed(const fb_var_screeninfo &v) {
  return static_cast<std::size_t>(line_length(v)) * v.yres_virtual;
}

Lcd &lcd() {
  static Lcd *state = [] {
    Lcd *l = new Lcd;
    for (Window &w : l->windows) w.var = power_on_var();
    return l;
  }();
  return *state;
}

int grow_memory(Window &w, int window, std::size_t needed) {
  if (w.memfd < 0) {
    const std::string label = "pmxboard-fb" + std::to_string(window);
    w.memfd = memfd_create(label.c_str(), MFD_CLOEXEC);
    if (w.memfd < 0) return -errno;
    w.size = 0;
  }
  if (needed > w.size) {
    if (ftruncate(w.memfd, static_cast<off_t>(needed)) != 0) return -errno;
    w.size = needed;
  }
  return 0;
}

fb_fix_screeninfo fix_of(const Window &w, int window) {
  fb_fix_screeninfo f{};
  const std::string id = "Au1200 window " + std::to_string(window);
  std::memcpy(f.id, id.c_str(), std::min(id.size(), sizeof f.id - 1));
  f.smem_start = kMemoryBase + kMemoryStride * static_cast<unsigned long>(window);
  f.smem_len = static_cast<u32>(w.size);
  f.type = FB_TYPE_PACKED_PIXELS;
  f.visual = w.var.bits_per_pixel == 8 ? FB_VISUAL_PSEUDOCOLOR : FB_VISUAL_TRUECOLOR;
  f.xpanstep = 1;
  f.ypanstep = 1;
  f.line_length = line_length(w.var);
  f.accel = FB_ACCEL_NONE;
  return f;
}

// Checks a requested mode and rounds it as the driver does; false if the
// controller cannot show it.
bool fit_var(fb_var_screeninfo &v) {
  const u32 bpp = v.bits_per_pixel;
  if (bpp != 8 && bpp != 16 && bpp != 24 && bpp != 32) return false;
  if (v.xres == 0 || v.yres == 0 || v.xres > kMaxSide || v.yres > kMaxSide) return false;
  v.xres_virtual = std::max(v.xres_virtual, v.xres);
  v.yres_virtual = std::max(v.yres_virtual, v.yres);
  if (v.xres_virtual > kMaxVirtual || v.yres_virtual > kMaxVirtual) return false;
  if (v.xoffset > v.xres_virtual - v.xres || v.yoffset > v.yres_virtual - v.yres) return false;
  set_colours(v);
  return true;
}

void log_words(const char *name, u32 request, const u8 *bytes, std::size_t size) {
  std::string words;
  const std::size_t n = std::min(size / 4, kMaxLoggedWords);
  for (std::size_t i = 0; i < n; ++i) {
    u32 w;
    std::memcpy(&w, bytes + 4 * i, 4);
    char text[12];
    std::snprintf(text, sizeof text, " %08x", w);
    words += text;
  }
  log_event("%s ioctl 0x%08x%s", name, request, words.c_str());
}

int controller_request(Device device, u32 request, void *arg) {
  const u32 size = ioc_size(request);
  if (size > 0 && arg == nullptr) return reject(device, request, "null", EFAULT);
  const u32 nr = ioc_nr(request);
  std::vector<u8> &stored = lcd().records[nr & ~1u];
  const char *name = kDevices[index_of(device)].name;
  if ((nr & 1) == 0) {
    const u8 *in = static_cast<const u8 *>(arg);
    stored.assign(in, in + size);
    log_words(name, request, stored.data(), stored.size());
  } else {
    std::vector<u8> out(size, 0);
    std::copy_n(stored.begin(), std::min<std::size_t>(stored.size(), size), out.begin());
    if (size > 0) std::memcpy(arg, out.data(), size);
    log_words(name, request, out.data(), out.size());
  }
  return 0;
}

}  // namespace

int fb_open(Device device, int flags) {
  const int window = fb_window(device);
  Window &w = lcd().windows[static_cast<std::size_t>(window)];
  if (const int r = grow_memory(w, window, memory_needed(w.var)); r < 0) return r;
  // A descriptor of its own (own file position) on the window's memory file.
  const std::string path = "/proc/self/fd/" + std::to_string(w.memfd);
  int fd = real_open(path.c_str(), (flags & (O_ACCMODE | O_CLOEXEC)), 0);
  if (fd < 0) fd = fcntl(w.memfd, (flags & O_CLOEXEC) ? F_DUPFD_CLOEXEC : F_DUPFD, 0);
  return fd < 0 ? -errno : fd;
}

int fb_ioctl(Device device, u32 request, void *arg) {
  const int window = fb_window(device);
  Window &w = lcd().windows[static_cast<std::size_t>(window)];
  const char *name = kDevices[index_of(device)].name;
  if (ioc_type(request) == 'F' && ioc_nr(request) >= kControllerFirst)
    return controller_request(device, request, arg);
  if (request == kBlank) {
    // The argument is the blanking level itself.
    w.blank = static_cast<u32>(reinterpret_cast<std::uintptr_t>(arg));
    log_event("%s blank %u", name, w.blank);
    return 0;
  }
  if (request != kGetVar && request != kPutVar && request != kGetFix && request != kPan)
    return reject(device, request, "unsupported", EINVAL);
  if (arg == nullptr) return reject(device, request, "null", EFAULT);
  switch (request) {
    case kGetVar:
      std::memcpy(arg, &w.var, sizeof w.var);
      log_event("%s getvar", name);
      return 0;
    case kGetFix: {
      const fb_fix_screeninfo f = fix_of(w, window);
      std::memcpy(arg, &f, sizeof f);
      log_event("%s getfix", name);
      return 0;
    }
    case kPutVar: {
      fb_var_screeninfo v;
      std::memcpy(&v, arg, sizeof v);
      if (!fit_var(v)) return reject(device, request, "invalid", EINVAL);
      const bool test = (v.activate & FB_ACTIVATE_MASK) == FB_ACTIVATE_TEST;
      if (!test) {
        if (const int r = grow_memory(w, window, memory_needed(v)); r < 0) return r;
        w.var = v;
      }
      std::memcpy(arg, &v, sizeof v);  // the mode as the driver set it
      log_event("%s putvar %ux%u virtual %ux%u offset %u,%u bpp %u%s", name, v.xres, v.yres,
                v.xres_virtual, v.yres_virtual, v.xoffset, v.yoffset, v.bits_per_pixel,
                test ? " test" : "");
      return 0;
    }
    case kPan: {
      fb_var_screeninfo v;
      std::memcpy(&v, arg, sizeof v);
      if (v.xoffset > w.var.xres_virtual - w.var.xres || v.yoffset > w.var.yres_virtual - w.var.yres)
        return reject(device, request, "invalid", EINVAL);
      w.var.xoffset = v.xoffset;
      w.var.yoffset = v.yoffset;
      log_event("%s pan %u,%u", name, v.xoffset, v.yoffset);
      return 0;
    }
  }
  return -EINVAL;
}

void fb_power_on() {
  Lcd &l = lcd();
  for (Window &w : l.windows) {
    w.var = power_on_var();
    w.blank = 0;
  }
  l.records.clear();
}

}  // namespace board::detail
