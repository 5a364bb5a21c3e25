// libmaiaudrend.so: the engine's audio renderer plug-in over the OSS PCM
// output "/dev/dsp".
//
// setup_audio_output opens the device, drops what is queued and sets format,
// channels and rate; send_to_audio_output writes a buffer, blocking until
// the driver took all of it; close_audio_output closes the device.
// save_current_setting and recover_setting keep the output settings of the
// renderer across a playback that changes them.
//
// The OSS requests are written as the board's MIPS kernel numbers them: on
// MIPS the ioctl direction bits differ from other processors, so the C
// library's macros of another build machine would give other numbers.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace {

using u32 = std::uint32_t;

constexpr unsigned long kDspReset = 0x20005000;     // SNDCTL_DSP_RESET
constexpr unsigned long kDspSpeed = 0xC0045002;     // SNDCTL_DSP_SPEED
constexpr unsigned long kDspStereo = 0xC0045003;    // SNDCTL_DSP_STEREO
constexpr unsigned long kDspSetFmt = 0xC0045005;    // SNDCTL_DSP_SETFMT
constexpr unsigned long kDspChannels = 0xC0045006;  // SNDCTL_DSP_CHANNELS
constexpr int kAfmtU8 = 0x08;
constexpr int kAfmtS16Le = 0x10;

struct Settings {
  u32 bits = 16;
  u32 channels = 2;
  u32 rate = 44100;
};

struct Renderer {
  int fd = -1;
  Settings current;
  Settings saved;
  u32 block = 4096;  // bytes per write
};

Renderer renderer;

}  // namespace

extern "C" {

// Returns a non-zero output handle, 0 when the output cannot be opened.
__attribute__((visibility("default"))) u32 setup_audio_output(u32 bits, u32 channels, u32 rate, u32 block,
                                                              u32 mode) {
  (void)mode;  // the board's renderer knows one playing mode here
  if (renderer.fd >= 0) close(renderer.fd);
  renderer.fd = open("/dev/dsp", O_WRONLY);
  if (renderer.fd < 0) {
    std::printf("setup_audio_output: cannot open /dev/dsp\n");
    return 0;
  }
  int format = bits == 8 ? kAfmtU8 : kAfmtS16Le;
  int arg = 0;
  ioctl(renderer.fd, kDspReset, 0);
  ioctl(renderer.fd, kDspSetFmt, &format);
  if (channels <= 2) {
    arg = channels == 2 ? 1 : 0;
    ioctl(renderer.fd, kDspStereo, &arg);
  } else {
    arg = static_cast<int>(channels);
    ioctl(renderer.fd, kDspChannels, &arg);
  }
  arg = static_cast<int>(rate);
  ioctl(renderer.fd, kDspSpeed, &arg);
  renderer.current = {bits, channels, rate};
  renderer.block = block > 0 ? block : 4096;
  return 1;
}

// Writes the whole buffer; returns the bytes written, -1 on an error.
__attribute__((visibility("default"))) int send_to_audio_output(u32 handle, const void *buffer, u32 length) {
  if (handle == 0 || renderer.fd < 0 || buffer == nullptr) return -1;
  const char *p = static_cast<const char *>(buffer);
  u32 done = 0;
  while (done < length) {
    u32 piece = length - done;
    if (piece > renderer.block) piece = renderer.block;
    const ssize_t n = write(renderer.fd, p + done, piece);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return -1;
    done += static_cast<u32>(n);
  }
  return static_cast<int>(done);
}

__attribute__((visibility("default"))) void close_audio_output() {
  if (renderer.fd >= 0) close(renderer.fd);
  renderer.fd = -1;
}

__attribute__((visibility("default"))) void save_current_setting() { renderer.saved = renderer.current; }

__attribute__((visibility("default"))) void recover_setting() { renderer.current = renderer.saved; }

}  // extern "C"
