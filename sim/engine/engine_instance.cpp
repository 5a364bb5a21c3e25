// Engine instances: the handle table, creation and release, callback
// registration and the parameter blocks.
//
// Handles are 1..MAX_INSTANCES, indexes into a fixed table. Each instance
// owns one engine thread (engine_main) that runs its playback clock and makes
// every callback; the instance's mutex guards its session record and its
// condition variable announces every change of it.
#include "engine_internal.h"

#include <cstring>

namespace mai {
namespace {

std::array<Instance, MAX_INSTANCES> g_instances;
std::mutex g_table_mu;
std::array<bool, MAX_INSTANCES> g_reserved{};  // guarded by g_table_mu

// Display block: word 0 flags (bit 0 enable), words 6..9 the window x, y,
// width and height; the engine starts with the whole 480 x 272 LCD.
constexpr u32 DISPLAY_DEFAULT_FLAGS = 0x1, DISPLAY_X = 6 * 4, DISPLAY_Y = 7 * 4,
              DISPLAY_WIDTH = 8 * 4, DISPLAY_HEIGHT = 9 * 4;
constexpr u32 LCD_WIDTH = 480, LCD_HEIGHT = 272;
constexpr u32 MIN_SAMPLE_RATE = 8000, MAX_SAMPLE_RATE = 192000;

Params default_params() {
  Params p;
  put_u32(p.display.data(), 0, DISPLAY_DEFAULT_FLAGS);
  put_u32(p.display.data(), DISPLAY_X, 0);
  put_u32(p.display.data(), DISPLAY_Y, 0);
  put_u32(p.display.data(), DISPLAY_WIDTH, LCD_WIDTH);
  put_u32(p.display.data(), DISPLAY_HEIGHT, LCD_HEIGHT);
  return p;
}

// The block of a parameter id, or an empty span for an unknown id.
std::span<u8> param_block(Params &p, u32 id) {
  switch (id) {
    case MAI_PARAM_DISPLAY: return p.display;
    case MAI_PARAM_EQUALIZER: return p.equalizer;
    case MAI_PARAM_TRACKS: return p.tracks;
    case MAI_PARAM_STREAM_INFO: return p.stream_info;
    default: return {};
  }
}

}  // namespace

Instance::~Instance() {
  if (!thread.joinable()) return;
  {
    std::lock_guard lk(mu);
    s.quit = true;
  }
  cv.notify_all();
  if (std::this_thread::get_id() == engine_tid)
    thread.detach();  // the program ends from inside a callback
  else
    thread.join();
}

Instance *lookup(u32 handle) {
  if (handle == 0 || handle > MAX_INSTANCES) return nullptr;
  Instance &in = g_instances[handle - 1];
  return in.live.load(std::memory_order_acquire) ? &in : nullptr;
}

bool on_engine_thread(const Instance &in) { return std::this_thread::get_id() == in.engine_tid; }

}  // namespace mai

using namespace mai;

MAI_EXPORT u32 MAIengine_Create(u32 *engine) {
  if (engine == nullptr) return MAI_E_INVALIDARG;
  Faults faults = env_faults();
  if (u32 st = faults.create_status ? faults.create_status : process_faults().create_status)
    return st;
  u32 index = MAX_INSTANCES;
  {
    std::lock_guard table(g_table_mu);
    for (u32 i = 0; i < MAX_INSTANCES && index == MAX_INSTANCES; ++i)
      if (!g_reserved[i]) index = i;
    if (index == MAX_INSTANCES) return MAI_E_FAIL;
    g_reserved[index] = true;
  }
  Instance &in = g_instances[index];
  {
    std::lock_guard lk(in.mu);
    in.s = Session{};
    in.s.params = default_params();
    in.s.faults = faults;
    in.s.clock_factor = env_clock_factor();
    in.trace.store(0);
    in.created = Clock::now();
    in.handle = index + 1;
    in.thread = std::thread(engine_main, std::ref(in));
    in.engine_tid = in.thread.get_id();
  }
  in.live.store(true, std::memory_order_release);
  *engine = index + 1;
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_Release(u32 engine) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_Release", MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "MAIengine_Release(%u)", engine);
  {
    std::unique_lock lk(in->mu);
    // The engine thread cannot wait for its own end.
    if (on_engine_thread(*in)) return fail(in, "MAIengine_Release", MAI_E_BUSY);
    if (u32 st = take_fault(in->s.faults.release_status, in->s.faults.release_count))
      return fail(in, "MAIengine_Release", st);
    if (in->s.connected) drop_connection(*in, lk);
    in->live.store(false, std::memory_order_release);
    in->s.quit = true;
    in->cv.notify_all();
  }
  in->thread.join();
  {
    std::lock_guard lk(in->mu);
    in->s = Session{};  // frees the probed media now rather than at the next Create
  }
  std::lock_guard table(g_table_mu);
  g_reserved[engine - 1] = false;
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_RegisterCallbacks(u32 engine, MAIErrorCallback on_error,
                                           MAIProgressCallback on_progress, void *context) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_RegisterCallbacks", MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "MAIengine_RegisterCallbacks(%u)", engine);
  std::lock_guard lk(in->mu);
  if (in->s.faults.register_status != 0)
    return fail(in, "MAIengine_RegisterCallbacks", in->s.faults.register_status);
  in->s.on_error = on_error;
  in->s.on_progress = on_progress;
  in->s.context = context;
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_SetParam(u32 engine, u32 id, void *data, u32 size) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_SetParam", MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "MAIengine_SetParam(%u, 0x%X, %p, %u)", engine, id, data, size);
  if (data == nullptr) return fail(in, "MAIengine_SetParam", MAI_E_INVALIDARG);
  std::lock_guard lk(in->mu);
  Session &s = in->s;
  if (id == MAI_PARAM_SAMPLE_RATE) {
    if (size != sizeof(u32)) return fail(in, "MAIengine_SetParam", MAI_E_INVALIDARG);
    u32 rate;
    std::memcpy(&rate, data, sizeof rate);
    if (rate < MIN_SAMPLE_RATE || rate > MAX_SAMPLE_RATE)
      return fail(in, "MAIengine_SetParam", MAI_E_INVALIDARG);
    s.params.sample_rate = rate;
    tracef(*in, TR_SYNC, "output sample rate %u Hz (stream %u Hz)", rate, s.media.audio_rate);
    reanchor_clock(*in);
    return MAI_OK;
  }
  std::span<u8> block = param_block(s.params, id);
  if (block.empty()) return fail(in, "MAIengine_SetParam", MAI_E_UNSUPPORTED);
  if (size != block.size()) return fail(in, "MAIengine_SetParam", MAI_E_INVALIDARG);
  std::memcpy(block.data(), data, size);
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_GetParam(u32 engine, u32 id, void *data, u32 size) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_GetParam", MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "MAIengine_GetParam(%u, 0x%X, %p, %u)", engine, id, data, size);
  if (data == nullptr) return fail(in, "MAIengine_GetParam", MAI_E_INVALIDARG);
  std::lock_guard lk(in->mu);
  Session &s = in->s;
  if (id == MAI_PARAM_SAMPLE_RATE) {
    if (size != sizeof(u32)) return fail(in, "MAIengine_GetParam", MAI_E_INVALIDARG);
    u32 rate = s.params.sample_rate != 0 ? s.params.sample_rate : s.media.audio_rate;
    std::memcpy(data, &rate, sizeof rate);
    return MAI_OK;
  }
  std::span<u8> block = param_block(s.params, id);
  if (block.empty()) return fail(in, "MAIengine_GetParam", MAI_E_UNSUPPORTED);
  if (size != block.size()) return fail(in, "MAIengine_GetParam", MAI_E_INVALIDARG);
  std::memcpy(data, block.data(), size);
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_ExecDebugCommand(u32 engine, const char *command) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_ExecDebugCommand", MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "MAIengine_ExecDebugCommand(%u, \"%s\")", engine,
         command ? command : "(null)");
  if (command == nullptr) return fail(in, "MAIengine_ExecDebugCommand", MAI_E_INVALIDARG);
  return exec_debug(*in, command);
}
