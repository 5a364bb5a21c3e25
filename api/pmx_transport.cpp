// Playback transport.
#include <unistd.h>

#include <cstdio>

#include "api/pmx_internal.h"
#include "direct/direct_play.h"
#include "platform/mai_engine.h"

namespace {
constexpr u32 STOPPED_MASK = 0xFFFFBF83;
constexpr u32 SETTLE_US = 500;
constexpr u32 NO_TIMEOUT = 0xFFFFFFFFu;
}  // namespace

s32 media_stop() {
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (pmx_is_direct_playing() != 0) return PMX_BUSY;
  const u32 engine = pmx.engine.load();
  std::puts("stopping ");
  const u32 status = MAIengine_SendCommand(engine, MAI_CMD_STOP, 0, 0, 0, 0, NO_TIMEOUT);
  if (MAIengine_WaitForState(engine, STOPPED_MASK, MAI_WAIT_FOREVER) == 0) usleep(SETTLE_US);
  std::printf("media_stop status = %d\n", static_cast<int>(status));
  pmx.state = PMX_STATE_STOPPED;
  pmx.running = 0;
  pmx.at_eos = 0;
  return pmx_translate(status);
}

s32 pmx_stop() { return media_stop(); }
