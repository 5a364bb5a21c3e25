// A renderer plug-in that lacks "recover_setting", for the driver's failed
// look-up. Built as libmaiaudrend.so in a folder of its own.
#include <cstdint>

extern "C" {
__attribute__((visibility("default"))) std::uint32_t setup_audio_output(std::uint32_t, std::uint32_t, std::uint32_t,
                                                                        std::uint32_t, std::uint32_t) {
  return 0;
}
__attribute__((visibility("default"))) int send_to_audio_output(std::uint32_t, const void *, std::uint32_t) {
  return -1;
}
__attribute__((visibility("default"))) void close_audio_output() {}
__attribute__((visibility("default"))) void save_current_setting() {}
}
