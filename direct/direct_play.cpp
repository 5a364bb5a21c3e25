#include "direct/direct_play.h"

#include <atomic>

namespace {

// The state the console thread and the playback worker share. No worker
// is started by this build, so playing stays 0.
struct DirectState {
  std::atomic<u8> stop_request{0};
  std::atomic<u8> playing{0};
};

DirectState pmx_direct;

}  // namespace

u32 pmx_is_direct_playing() { return pmx_direct.playing.load() != 0 ? 1 : 0; }
