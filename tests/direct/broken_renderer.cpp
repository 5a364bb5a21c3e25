// A renderer plug-in without "recover_setting", for the driver's failed
// look-up; built as libmaiaudrend.so in a folder of its own.
#include <cstdint>

#define EXPORT extern "C" __attribute__((visibility("default")))
EXPORT std::uint32_t setup_audio_output(std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t) {
  return 0;
}
EXPORT int send_to_audio_output(std::uint32_t, const void *, std::uint32_t) { return -1; }
EXPORT void close_audio_output() {}
EXPORT void save_current_setting() {}
