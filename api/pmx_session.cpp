// Engine session and file opening: one process-wide engine instance, one
// open file at a time, and the two callbacks through which the engine
// reports errors and progress from its own threads.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "api/pmx_internal.h"
#include "direct/direct_play.h"
#include "info/prescan.h"
#include "platform/mai_engine.h"
#include "platform/mai_os.h"

PmxRecord pmx;
std::atomic<PmxCallback> pmx_error_cb{nullptr};
std::atomic<PmxCallback> pmx_eos_cb{nullptr};

namespace {

// Arguments of the end-of-stream event; their meaning is the OS layer's.
constexpr const char *EOS_EVENT_NAME = "AppEOF";
constexpr u32 EOS_EVENT_OPTIONS = 11;

constexpr u32 SOLUTION_BUFFER = 16;
constexpr u32 PMI_SOLUTION_BUFFER = 64;
constexpr u32 SETTLE_US = 500;

// Big pictures in the older Windows Media solutions may not play smoothly.
constexpr u32 WMV78_MAX_WIDTH = 480;
constexpr u32 WMV78_MAX_HEIGHT = 272;

struct SpdifRoute {
  const char *solution;
  const char *passthrough;
};

// With S/PDIF on, AVI files with AC-3 or DTS audio send the compressed
// audio to the digital output untouched.
constexpr SpdifRoute spdif_routes[] = {
    {"divx_dts", "divx_spdif"},       {"avimpv4_dts", "avimpv4_spdif"}, {"divx_ac3", "divx_spdif"},
    {"avimpv4_ac3", "avimpv4_spdif"}, {"aviwmv_dts", "aviwmv_spdif"},   {"aviwmv_ac3", "aviwmv_spdif"},
};

void send_stream_info_hint(u32 engine) {
  std::array<u8, MAI_PARAM_STREAM_INFO_SIZE> hint{};
  pmx_info_get_maistreaminfo(hint.data());
  MAIengine_SetParam(engine, MAI_PARAM_STREAM_INFO, hint.data(), MAI_PARAM_STREAM_INFO_SIZE);
}

// Picks the name of the automatic connection; null lets the engine choose.
const char *automatic_solution(u32 engine, const char *name) {
  if (pmx.spdif != 0) {
    for (const SpdifRoute &route : spdif_routes) {
      if (std::strcmp(name, route.solution) != 0) continue;
      std::printf("Detected DTS Stream...");
      send_stream_info_hint(engine);
      std::printf("soution name = [%s]\n", route.passthrough);
      return route.passthrough;
    }
  }
  if (std::strcmp(name, "mp3") == 0 || std::strcmp(name, "flac") == 0) {
    send_stream_info_hint(engine);
    return name;
  }
  return nullptr;
}

void warn_large_wmv78() {
  u32 width = 0, height = 0;
  float aspect = 0, rate = 0, bitrate = 0;
  pmx_info_getvideoinfo(&width, &height, &aspect, &rate, &bitrate);
  if (width < WMV78_MAX_WIDTH && height < WMV78_MAX_HEIGHT) return;
  if (PmxCallback cb = pmx_error_cb.load()) cb(PMX_WMV78_RESOLUTION_WARNNING);
}

}  // namespace

s32 pmx_init(PmxCallback error_cb, PmxCallback eos_cb) {
  pmx_fill_error_table();
  if (error_cb == nullptr || eos_cb == nullptr) return PMX_INVALID_ARG;
  if (pmx.engine.load() != 0) return PMX_ALREADY_INITIALIZED;

  std::memset(pmx.display, 0, sizeof pmx.display);
  pmx.engine = 0;
  pmx.at_eos = 0;
  pmx.is_open = 0;
  pmx.event = 0;

  u32 status = 0;
  pmx.event = MAIOSEventCreate(0, 0, EOS_EVENT_NAME, EOS_EVENT_OPTIONS);
  if (pmx.event.load() == 0) {
    status = MAI_E_FAIL;
  } else {
    u32 engine = 0;
    status = MAIengine_Create(&engine);
    pmx.engine = status == 0 ? engine : 0;
  }
  if (status != 0) {
    std::printf("Media Init failed: %d\n", static_cast<int>(status));
    return pmx_translate(status);
  }

  status = MAIengine_RegisterCallbacks(pmx.engine.load(), mai_err_cb, mai_prog_cb, nullptr);
  if (status != 0) std::printf("Mai engine failed to register callbacks: %d", static_cast<int>(status));

  pmx_error_cb = error_cb;
  pmx_eos_cb = eos_cb;
  return PMX_OK;
}

s32 pmx_release() {
  if (pmx.is_open.load() != 0) media_close();
  const u32 status = MAIengine_Release(pmx.engine.load());
  if (status != 0) {
    // The instance is still there: release can be tried again.
    std::printf("MAI Engine failed to release: %d\n", static_cast<int>(status));
    return pmx_translate(status);
  }
  if (const u32 event = pmx.event.load(); event != 0) {
    MAIOSEventDestroy(event);
    pmx.event = 0;
  }
  pmx.engine = 0;
  pmx_error_cb = nullptr;
  pmx_eos_cb = nullptr;
  pmx.state = PMX_STATE_NONE;
  return PMX_OK;
}

s32 pmx_open(const char *file) {
  std::array<char, SOLUTION_BUFFER> solution{};
  std::array<char, PMI_SOLUTION_BUFFER> pmi_solution{};
  std::strcpy(pmi_solution.data(), "pmi_");

  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_NOT_INITIALIZED;
  if (pmx.is_open.load() != 0) return PMX_FILE_ALREADY_OPEN;
  if (access(file, F_OK) != 0) return PMX_FILE_NOT_FOUND;

  const u32 prescan_status = PMX_Prescan(file, solution.data());

  // "unknown": the engine has no solution for this file.
  if (solution[0] == 'u' && solution[1] == 'n') return pmx_translate(MAI_E_UNKNOWNFORMAT);

  if (std::strcmp(solution.data(), "wmt78") == 0 || std::strcmp(solution.data(), "wmt8") == 0)
    warn_large_wmv78();

  const char *name = solution.data();
  if (pmx.support == PMX_SUPPORT_PMI) {
    sp_strcat8(pmi_solution.data(), solution.data());
    name = pmi_solution.data();
  }
  std::printf("solution name =[%s]\n", name);

  const char *chosen = automatic_solution(engine, name);

  u32 status = MAI_E_FAIL;
  if (pmx.support != PMX_SUPPORT_PMI) status = MAIengine_AutoConnect(engine, chosen, 0, file, 1, 0);
  if (status != 0) {
    std::printf("Mai engine failed to connect to %s: %d\n", file, static_cast<int>(status));
    std::printf("Pmx manual trying ...");
    if (prescan_status != 0) return static_cast<s32>(prescan_status);
    status = MAIengine_AutoConnect(engine, name, 0, file, 1, 0);
    if (status != 0) {
      std::printf("Pmx manual trial failed to connect to %s: %d\n", file, static_cast<int>(status));
      return pmx_translate(status);
    }
  }

  pmx.is_open = 1;
  pmx.display_set = 0;
  const u32 wait = MAIOSEventWait(pmx.event.load(), 0);
  if (wait != 0) std::printf("Mai EOF Signal failed: %d\n", static_cast<int>(wait));
  pmx.subtype_pending = 1;
  pmx.at_eos = 0;
  pmx.time_base = 0;
  return PMX_OK;
}

s32 media_close() {
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (pmx_is_direct_playing() != 0) return PMX_BUSY;
  const s32 stopped = media_stop();
  if (stopped != 0) std::printf("MAI Engine failed to disconnect: %d\n", static_cast<int>(stopped));
  usleep(SETTLE_US);
  const u32 status = MAIengine_Disconnect(pmx.engine.load(), 0);
  if (status != 0) {
    std::printf("MAI Engine failed to disconnect: %d\n", static_cast<int>(status));
    return pmx_translate(status);
  }
  pmx.display_set = 0;
  pmx.is_open = 0;
  return PMX_OK;
}

s32 pmx_close() { return media_close(); }

s32 pmx_waitforstate(u32 state) {
  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_NOT_INITIALIZED;
  u32 mask = 0;
  switch (state) {
    case PMX_STATE_PLAYING: mask = 0x10; break;
    case PMX_STATE_PAUSED: mask = 0x40; break;
    case PMX_STATE_SEEKED: mask = 0xFFFFBFFF; break;
    case PMX_STATE_STOPPED: mask = 0xFFFFBF83; break;
    default: return PMX_FAILED;
  }
  const u32 status = MAIengine_WaitForState(engine, mask, MAI_WAIT_FOREVER);
  if (status == 0) usleep(SETTLE_US);
  return pmx_translate(status);
}

s32 pmx_set_support(u32 mode) {
  pmx.support = mode;
  return PMX_OK;
}

s32 pmx_debug(const char *command) {
  return static_cast<s32>(MAIengine_ExecDebugCommand(pmx.engine.load(), command));
}

// ---- Engine callbacks, called on the engine's threads ----

u32 mai_err_cb(void *, u32 code, u32 detail) {
  std::printf("PMX EngineErrorCB(0x%X/0x%X) %s\n", code, detail, MAIengine_StatusToString(code, 1));
  if (PmxCallback cb = pmx_error_cb.load())
    cb(pmx_translate(code));
  else
    std::printf("No Error callback function registered.");
  if (code == MAI_E_UNSUPPORTEDFORMAT) pmx.unsupported = 1;
  return 0;
}

u32 mai_prog_cb(u32 kind, const u32 *record) {
  if (kind != MAI_PROGRESS_COMPONENT || pmx.state.load() == PMX_STATE_TRICK) return 0;
  const u32 component = record[MAI_PROG_COMPONENT_TYPE];
  // Reports of the source and the demultiplexer do not count: only the
  // components downstream say when the picture and sound really start/end.
  const bool counts = component != MAI_COMP_SOURCE && component != MAI_COMP_DEMUX;

  if ((record[MAI_PROG_FLAGS] & MAI_PROGFLAG_START) != 0 && counts) {
    std::puts("PMX internelsd: ProgressCB: START");
    pmx.running = 1;
  }

  const u32 flags = record[MAI_PROG_FLAGS];
  if ((flags & MAI_PROGFLAG_END) != 0 && counts && (flags & MAI_PROGFLAG_ABORTED) == 0 &&
      (flags & MAI_PROGFLAG_FLUSHED) == 0 && (flags & MAI_PROGFLAG_STREAM_END) != 0) {
    std::puts("PMX internel: ProgressCB: Component reached EndOfStream");
    pmx.running = 0;
    if (const u32 event = pmx.event.load(); event != 0) {
      const u32 signalled = MAIOSEventSignal(event);
      std::printf("PMX internel: MAIOSEventWait status = %d\n", static_cast<int>(signalled));
    }
    // The application hears 19 for end of stream.
    if (PmxCallback cb = pmx_eos_cb.load()) cb(PMX_EOS_CALLBACK_STATUS);
    pmx.state = PMX_STATE_STOPPED;
    pmx.at_eos = 1;
    return 0;
  }

  u32 state = 0, pending = 0;
  MAIengine_GetState(pmx.engine.load(), &state, &pending);
  return 0;
}
