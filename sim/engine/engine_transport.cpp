// Connection and transport: connect/disconnect, the commands, the states and
// their waits, and the engine thread that runs the playback clock and sends
// the progress reports.
//
// The clock is a position (ms from the start of the stream) anchored at a
// wall-clock instant and moving at a speed while it runs:
//   speed = rate (16.16) x clock factor x (output sample rate / stream rate)
// negative in reverse. Nothing is decoded; the end of stream is reached when
// the position gets to the duration (or to 0 in reverse).
//
// The pipeline reports as the board's does: at the start of streaming the
// source, the demultiplexer and then the clock-master renderer report
// MAI_PROGFLAG_START; at the end of the stream the source and demultiplexer
// report END|STREAM_END, every decoder END, and finally the renderer
// END|STREAM_END, once. While the clock runs the renderer sends position
// ticks of another kind. A stopped stream makes the renderer report
// END|ABORTED, which is no end of stream.
//
// Callbacks are made only by the engine thread, with no lock held: the
// thread takes a job under the lock, copies what it needs, unlocks, calls
// out, locks again and drops the job's state change if a command came in
// meanwhile (the transport generation changed).
#include "engine_internal.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sys/stat.h>

namespace mai {
namespace {

using std::chrono::milliseconds;

constexpr auto SEEK_DELAY = milliseconds(10);  // time the pipeline takes to flush
constexpr auto STOP_DELAY = milliseconds(10);
constexpr double TICK_MS = 250;               // position tick interval, media time
constexpr auto MAX_SLEEP = milliseconds(50);

constexpr u32 PLAY_FROM = MAI_STATE_READY | MAI_STATE_STOPPED | MAI_STATE_PAUSED |
                          MAI_STATE_PLAYING | MAI_STATE_SCANNING | MAI_STATE_ENDOFSTREAM |
                          MAI_STATE_STARTING;
constexpr u32 PAUSE_FROM = MAI_STATE_PLAYING | MAI_STATE_SCANNING | MAI_STATE_PAUSED |
                           MAI_STATE_STARTING;
constexpr u32 MOVING = MAI_STATE_PLAYING | MAI_STATE_SCANNING;

struct Outgoing {
  std::vector<std::array<u32, 2>> errors;
  std::vector<std::pair<u32, ProgressRecord>> reports;
};

double compute_speed(const Session &s) {
  double speed = static_cast<double>(s.t.rate) / MAI_RATE_NORMAL * s.clock_factor;
  if (s.params.sample_rate != 0 && s.media.audio_rate != 0)
    speed *= static_cast<double>(s.params.sample_rate) / s.media.audio_rate;
  return s.t.reverse ? -speed : speed;
}

void schedule_tick(Transport &t) {
  t.next_tick_ms = t.speed >= 0 ? (std::floor(t.pos_ms / TICK_MS) + 1) * TICK_MS
                                : (std::ceil(t.pos_ms / TICK_MS) - 1) * TICK_MS;
}

void start_clock(Instance &in, Clock::time_point now) {
  Transport &t = in.s.t;
  t.anchor = now;
  t.speed = compute_speed(in.s);
  t.running = true;
  schedule_tick(t);
  tracef(in, TR_SYNC, "clock runs from %.0f ms at %.3f x", t.pos_ms, t.speed);
}

void freeze_clock(Session &s, Clock::time_point now) {
  s.t.pos_ms = position_ms(s, now);
  s.t.running = false;
}

u32 master_stream(const Session &s) {
  return s.media.streams.empty() ? 0 : s.media.streams[s.media.master].av_index;
}

void add_report(const Instance &in, Outgoing &out, u32 kind, u32 flags, u32 type, u32 stream,
                double pos) {
  ProgressRecord r{};
  r[MAI_PROG_FLAGS] = flags;
  r[PROG_STREAM] = stream;
  r[PROG_POSITION] = static_cast<u32>(pos);
  r[MAI_PROG_COMPONENT_TYPE] = type;
  r[PROG_ENGINE] = in.handle;
  out.reports.emplace_back(kind, r);
}

const char *component_name(u32 type) {
  switch (type) {
    case MAI_COMP_SOURCE: return "source";
    case MAI_COMP_DEMUX: return "demux";
    case MAI_COMP_DECODER: return "decoder";
    case MAI_COMP_RENDERER: return "renderer";
    default: return "component";
  }
}

// Calls out with the lock released; the caller re-checks its job afterwards.
void deliver(Instance &in, std::unique_lock<std::mutex> &lk, const Outgoing &out) {
  Session &s = in.s;
  MAIErrorCallback on_error = s.on_error;
  MAIProgressCallback on_progress = s.on_progress;
  void *context = s.context;
  s.delivering = true;
  lk.unlock();
  for (const auto &e : out.errors) {
    tracef(in, TR_ERROR, "error report %u (detail %u)", e[0], e[1]);
    if (on_error != nullptr) on_error(context, e[0], e[1]);
  }
  for (const auto &[kind, r] : out.reports) {
    if (kind == MAI_PROGRESS_COMPONENT)
      tracef(in, TR_PROGRESS, "progress %s stream %u flags 0x%X at %u ms",
             component_name(r[MAI_PROG_COMPONENT_TYPE]), r[PROG_STREAM], r[MAI_PROG_FLAGS],
             r[PROG_POSITION]);
    if (on_progress != nullptr) on_progress(kind, r.data());
  }
  lk.lock();
  s.delivering = false;
  in.cv.notify_all();
}

// Wall time until the running clock reaches `target_ms`.
Clock::duration time_to(const Transport &t, double pos, double target_ms) {
  double wall_ms = (target_ms - pos) / t.speed;
  if (!(wall_ms > 0)) return Clock::duration::zero();
  return std::chrono::duration_cast<Clock::duration>(
      std::chrono::duration<double, std::milli>(std::min(wall_ms, 60000.0)));
}

// One step of the engine thread; false when there was nothing to do and the
// thread may sleep until `wake`.
bool engine_step(Instance &in, std::unique_lock<std::mutex> &lk, Clock::time_point &wake) {
  Session &s = in.s;
  Transport &t = s.t;
  const auto now = Clock::now();

  if (!t.errors.empty()) {
    Outgoing out;
    out.errors = std::move(t.errors);
    t.errors.clear();
    const u64 upto = t.errors_queued;
    deliver(in, lk, out);
    t.errors_delivered = upto;
    in.cv.notify_all();
    return true;
  }

  if (t.start_pending) {
    t.start_pending = false;
    const u64 generation = t.generation;
    Outgoing out;
    add_report(in, out, MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START, MAI_COMP_SOURCE, 0, t.pos_ms);
    add_report(in, out, MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START, MAI_COMP_DEMUX, 0, t.pos_ms);
    deliver(in, lk, out);
    if (generation != t.generation || !s.connected) return true;
    // The state is set before the renderer reports, so whoever reacts to
    // the renderer's start finds the stream running.
    t.started = true;
    if (t.start_target != MAI_STATE_PAUSED) start_clock(in, Clock::now());
    set_state(in, t.start_target);
    if (!s.faults.nostart) {
      Outgoing renderer;
      add_report(in, renderer, MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START, MAI_COMP_RENDERER,
                 master_stream(s), t.pos_ms);
      deliver(in, lk, renderer);
    }
    return true;
  }

  if (t.stop_pending && now >= t.stop_due) {
    t.stop_pending = false;
    t.pos_ms = 0;
    set_state(in, MAI_STATE_STOPPED);
    if (t.stop_aborts) {
      t.stop_aborts = false;
      Outgoing out;
      add_report(in, out, MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_END | MAI_PROGFLAG_ABORTED,
                 MAI_COMP_RENDERER, master_stream(s), 0);
      deliver(in, lk, out);
    }
    return true;
  }

  if (t.seek_pending && now >= t.seek_due) {
    t.seek_pending = false;
    if (t.seek_return & MOVING) start_clock(in, now);
    set_state(in, t.seek_return);
    return true;
  }

  if (t.running) {
    const double pos = position_ms(s, now);
    const double end = t.speed >= 0 ? s.media.duration_ms : 0.0;
    if ((t.speed >= 0 && pos >= end) || (t.speed < 0 && pos <= end)) {
      // End of stream: the clock stops at the end while the pipeline drains.
      t.pos_ms = end;
      t.running = false;
      const u64 generation = t.generation;
      tracef(in, TR_SYNC, "clock reached the end of the stream at %.0f ms", end);
      Outgoing out;
      const u32 ends = MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END;
      add_report(in, out, MAI_PROGRESS_COMPONENT, ends, MAI_COMP_SOURCE, 0, end);
      add_report(in, out, MAI_PROGRESS_COMPONENT, ends, MAI_COMP_DEMUX, 0, end);
      for (const StreamDesc &d : s.media.streams)
        add_report(in, out, MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_END, MAI_COMP_DECODER,
                   d.av_index, end);
      add_report(in, out, MAI_PROGRESS_COMPONENT, ends, MAI_COMP_RENDERER, master_stream(s), end);
      deliver(in, lk, out);
      if (generation == t.generation && s.connected) {
        t.started = false;
        set_state(in, MAI_STATE_ENDOFSTREAM);
      }
      return true;
    }
    const bool tick_due = t.speed >= 0 ? pos >= t.next_tick_ms : pos <= t.next_tick_ms;
    if (tick_due) {
      while (t.speed >= 0 ? t.next_tick_ms <= pos : t.next_tick_ms >= pos)
        t.next_tick_ms += t.speed >= 0 ? TICK_MS : -TICK_MS;
      tracef(in, TR_SYNC | TR_SHOW, "%s at %.0f of %u ms", state_name(t.state), pos,
             s.media.duration_ms);
      Outgoing out;
      add_report(in, out, MAI_PROGRESS_POSITION, 0, MAI_COMP_RENDERER, master_stream(s), pos);
      deliver(in, lk, out);
      return true;
    }
    wake = std::min(wake, now + time_to(t, pos, end));
    wake = std::min(wake, now + time_to(t, pos, t.next_tick_ms));
  }
  if (t.stop_pending) wake = std::min(wake, t.stop_due);
  if (t.seek_pending) wake = std::min(wake, t.seek_due);
  return false;
}

u32 command_play(Instance &in, std::unique_lock<std::mutex> &lk, u32 p1, u32 timeout) {
  Session &s = in.s;
  Transport &t = s.t;
  const u32 rate = p1 & ~MAI_RATE_REVERSE;
  const bool reverse = (p1 & MAI_RATE_REVERSE) != 0;
  if (rate == 0) return MAI_E_INVALIDARG;
  if ((t.state & PLAY_FROM) == 0) return MAI_E_BUSY;
  const u32 target = !reverse && rate == MAI_RATE_NORMAL ? MAI_STATE_PLAYING : MAI_STATE_SCANNING;
  t.rate = rate;
  t.reverse = reverse;
  if (t.state == MAI_STATE_STARTING) {
    t.start_target = target;  // the start under way takes the new rate
  } else {
    freeze_clock(s, Clock::now());
    if (t.state == MAI_STATE_ENDOFSTREAM && !reverse && t.pos_ms >= s.media.duration_ms)
      t.pos_ms = 0;
    ++t.generation;
    t.start_pending = true;
    t.start_target = target;
    set_state(in, MAI_STATE_STARTING);
  }
  in.cv.notify_all();
  if (!s.faults.error40) return MAI_OK;

  // The decoder reports the stream as unsupported while the command runs:
  // the report reaches the client before SendCommand returns.
  if (on_engine_thread(in)) {
    MAIErrorCallback on_error = s.on_error;
    void *context = s.context;
    lk.unlock();
    tracef(in, TR_ERROR, "error report %u (detail 0)", MAI_E_UNSUPPORTEDFORMAT);
    if (on_error != nullptr) on_error(context, MAI_E_UNSUPPORTEDFORMAT, 0);
    lk.lock();
    return MAI_OK;
  }
  t.errors.push_back({MAI_E_UNSUPPORTEDFORMAT, 0});
  const u64 ticket = ++t.errors_queued;
  in.cv.notify_all();
  auto delivered = [&] { return t.errors_delivered >= ticket || s.quit; };
  if (timeout == MAI_WAIT_FOREVER)
    in.cv.wait(lk, delivered);
  else if (!in.cv.wait_for(lk, milliseconds(timeout), delivered))
    return MAI_E_TIMEOUT;
  return MAI_OK;
}

u32 command_pause(Instance &in) {
  Transport &t = in.s.t;
  if ((t.state & PAUSE_FROM) == 0) return MAI_E_BUSY;
  if (t.state == MAI_STATE_STARTING) {
    t.start_target = MAI_STATE_PAUSED;  // started streams stop at once
    return MAI_OK;
  }
  freeze_clock(in.s, Clock::now());
  ++t.generation;
  set_state(in, MAI_STATE_PAUSED);
  return MAI_OK;
}

u32 command_stop(Instance &in) {
  Transport &t = in.s.t;
  freeze_clock(in.s, Clock::now());
  ++t.generation;
  t.start_pending = false;
  t.seek_pending = false;
  t.stop_pending = true;
  t.stop_due = Clock::now() + STOP_DELAY;
  t.stop_aborts = t.started;
  t.started = false;
  set_state(in, MAI_STATE_STOPPING);
  in.cv.notify_all();
  return MAI_OK;
}

u32 command_seek(Instance &in, u32 mode, u32 value) {
  Session &s = in.s;
  Transport &t = s.t;
  if (t.state & (MAI_STATE_STARTING | MAI_STATE_STOPPING)) return MAI_E_BUSY;
  const auto now = Clock::now();
  const double pos = position_ms(s, now);
  const u32 duration = s.media.duration_ms;
  const std::vector<u32> &keys = s.media.keys_ms;
  u64 target = 0;
  switch (mode) {
    case MAI_SEEK_POSITION:
    case MAI_SEEK_TIME: target = value; break;
    case MAI_SEEK_PERCENT:
      if (value > 10000) return MAI_E_INVALIDARG;
      target = static_cast<u64>(duration) * value / 10000;
      break;
    case MAI_SEEK_NEXT_KEY: {
      auto it = std::find_if(keys.begin(), keys.end(), [&](u32 k) { return k > pos + 0.5; });
      if (it == keys.end()) return MAI_E_INVALIDARG;
      target = *it;
      break;
    }
    case MAI_SEEK_PREV_KEY: {
      auto it = std::find_if(keys.rbegin(), keys.rend(), [&](u32 k) { return k < pos - 0.5; });
      target = it == keys.rend() ? 0 : *it;
      break;
    }
    default: return MAI_E_INVALIDARG;
  }
  if (target > duration) return MAI_E_INVALIDARG;
  if (t.state != MAI_STATE_SEEKING) t.seek_return = t.state;
  t.running = false;
  t.pos_ms = static_cast<double>(target);
  ++t.generation;
  t.seek_pending = true;
  t.seek_due = now + SEEK_DELAY;
  tracef(in, TR_SYNC, "seek to %llu ms", static_cast<unsigned long long>(target));
  set_state(in, MAI_STATE_SEEKING);
  in.cv.notify_all();
  return MAI_OK;
}

const char *command_name(u32 command) {
  switch (command) {
    case MAI_CMD_PLAY: return "PLAY";
    case MAI_CMD_PAUSE: return "PAUSE";
    case MAI_CMD_STOP: return "STOP";
    case MAI_CMD_SEEK: return "SEEK";
    default: return "unknown";
  }
}

}  // namespace

double position_ms(const Session &s, Clock::time_point now) {
  const Transport &t = s.t;
  double pos = t.pos_ms;
  if (t.running) pos += t.speed * std::chrono::duration<double, std::milli>(now - t.anchor).count();
  return std::clamp(pos, 0.0, static_cast<double>(s.media.duration_ms));
}

void reanchor_clock(Instance &in) {
  if (!in.s.t.running) return;
  const auto now = Clock::now();
  freeze_clock(in.s, now);
  start_clock(in, now);
  in.cv.notify_all();
}

void set_state(Instance &in, u32 state) {
  Transport &t = in.s.t;
  if (t.state == state) return;
  tracef(in, TR_STATES, "state %s -> %s", state_name(t.state), state_name(state));
  t.state = state;
  in.cv.notify_all();
}

void drop_connection(Instance &in, std::unique_lock<std::mutex> &lk) {
  Session &s = in.s;
  Transport &t = s.t;
  ++t.generation;
  t.start_pending = t.seek_pending = t.stop_pending = false;
  t.stop_aborts = t.started = false;
  t.running = false;
  t.pos_ms = 0;
  s.connected = false;
  s.media = Media{};
  s.solution.clear();
  s.solution_auto = false;
  s.params.sample_rate = 0;  // the output rate belonged to that stream
  set_state(in, MAI_STATE_IDLE);
  // No report of the old connection may arrive after this returns.
  if (!on_engine_thread(in)) in.cv.wait(lk, [&] { return !s.delivering; });
}

void engine_main(Instance &in) {
  std::unique_lock lk(in.mu);
  while (!in.s.quit) {
    Clock::time_point wake = Clock::now() + MAX_SLEEP;
    if (engine_step(in, lk, wake)) continue;
    if (in.s.t.running || in.s.t.stop_pending || in.s.t.seek_pending)
      in.cv.wait_until(lk, wake);
    else
      in.cv.wait(lk);
  }
}

}  // namespace mai

using namespace mai;

MAI_EXPORT u32 MAIengine_AutoConnect(u32 engine, const char *solution, u32 reserved,
                                     const char *file, u32 flags, u32 reserved2) {
  static constexpr const char *fn = "MAIengine_AutoConnect";
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, fn, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, %s, %u, %s, %u, %u)", fn, engine, solution ? solution : "(null)",
         reserved, file ? file : "(null)", flags, reserved2);
  if (file == nullptr) return fail(in, fn, MAI_E_INVALIDARG);
  {
    std::lock_guard lk(in->mu);
    if (in->s.connected) return fail(in, fn, MAI_E_ALREADYCONNECTED);
    if (u32 st = take_fault(in->s.faults.connect_status, in->s.faults.connect_count))
      return fail(in, fn, st);
    if (solution == nullptr && in->s.faults.auto_status != 0)
      return fail(in, fn, in->s.faults.auto_status);
  }
  struct stat st {};
  if (::stat(file, &st) != 0) return fail(in, fn, MAI_E_FILENOTFOUND);
  std::string name;
  Family wanted = Family::none;
  if (solution != nullptr) {
    wanted = solution_family(solution, &name);
    if (wanted == Family::none) return fail(in, fn, MAI_E_UNSUPPORTED);
  }
  // Probing reads the file: done without the lock, committed under it.
  Media media;
  if (u32 status = probe_media(file, media); status != MAI_OK) return fail(in, fn, status);
  if (solution != nullptr && media.family != wanted) {
    tracef(*in, TR_ERROR, "solution %s needs %s, the file is %s", name.c_str(),
           family_name(wanted), media.container.c_str());
    return fail(in, fn, MAI_E_UNKNOWNFORMAT);
  }
  if (solution == nullptr) {
    if (media.auto_solution.empty()) {
      tracef(*in, TR_ERROR, "no solution for a %s container", media.container.c_str());
      return fail(in, fn, MAI_E_UNKNOWNFORMAT);
    }
    name = media.auto_solution;
  }
  std::lock_guard lk(in->mu);
  Session &s = in->s;
  if (s.connected) return fail(in, fn, MAI_E_ALREADYCONNECTED);
  s.connected = true;
  s.media = std::move(media);
  s.solution = name;
  s.solution_auto = solution == nullptr;
  s.t.pos_ms = 0;
  s.t.running = false;
  s.t.started = false;
  s.t.rate = MAI_RATE_NORMAL;
  s.t.reverse = false;
  ++s.t.generation;
  tracef(*in, TR_STATES | TR_COMMANDS, "connected %s with solution %s%s", s.media.path.c_str(),
         name.c_str(), s.solution_auto ? " (engine's choice)" : "");
  set_state(*in, MAI_STATE_READY);
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_Disconnect(u32 engine, u32 flags) {
  static constexpr const char *fn = "MAIengine_Disconnect";
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, fn, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, %u)", fn, engine, flags);
  std::unique_lock lk(in->mu);
  if (!in->s.connected) return fail(in, fn, MAI_E_NOTCONNECTED);
  if (u32 st = take_fault(in->s.faults.disconnect_status, in->s.faults.disconnect_count))
    return fail(in, fn, st);
  drop_connection(*in, lk);
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_SendCommand(u32 engine, u32 command, u32 p1, u32 p2, u32 p3, u32 p4,
                                     u32 timeout) {
  static constexpr const char *fn = "MAIengine_SendCommand";
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, fn, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, %u, 0x%X, %u, %u, %u, %d)", fn, engine, command, p1, p2, p3, p4,
         static_cast<int>(timeout));
  std::unique_lock lk(in->mu);
  tracef(*in, TR_COMMANDS, "command %s (%u) 0x%X %u in state %s", command_name(command), command,
         p1, p2, state_name(in->s.t.state));
  if (!in->s.connected) return fail(in, fn, MAI_E_NOTCONNECTED);
  u32 status;
  switch (command) {
    case MAI_CMD_PLAY: status = command_play(*in, lk, p1, timeout); break;
    case MAI_CMD_PAUSE: status = command_pause(*in); break;
    case MAI_CMD_STOP: status = command_stop(*in); break;
    case MAI_CMD_SEEK: status = command_seek(*in, p1, p2); break;
    default: status = MAI_E_UNSUPPORTED; break;
  }
  return status == MAI_OK ? MAI_OK : fail(in, fn, status);
}

MAI_EXPORT u32 MAIengine_GetState(u32 engine, u32 *state, u32 *pending) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, "MAIengine_GetState", MAI_E_INVALIDARG);
  if (state == nullptr) return fail(in, "MAIengine_GetState", MAI_E_INVALIDARG);
  std::lock_guard lk(in->mu);
  const Transport &t = in->s.t;
  *state = t.state;
  if (pending != nullptr) {
    // Where a passing state is heading.
    *pending = t.state == MAI_STATE_STARTING   ? t.start_target
               : t.state == MAI_STATE_STOPPING ? MAI_STATE_STOPPED
               : t.state == MAI_STATE_SEEKING  ? t.seek_return
                                               : 0;
  }
  return MAI_OK;
}

MAI_EXPORT u32 MAIengine_WaitForState(u32 engine, u32 state_mask, u32 timeout) {
  static constexpr const char *fn = "MAIengine_WaitForState";
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, fn, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, 0x%X, %d)", fn, engine, state_mask, static_cast<int>(timeout));
  std::unique_lock lk(in->mu);
  auto reached = [&] { return (in->s.t.state & state_mask) != 0 || in->s.quit; };
  // On the engine thread nothing could change the state while it waits.
  if (on_engine_thread(*in)) return reached() ? MAI_OK : fail(in, fn, MAI_E_TIMEOUT);
  if (timeout == MAI_WAIT_FOREVER)
    in->cv.wait(lk, reached);
  else if (!in->cv.wait_for(lk, milliseconds(timeout), reached))
    return fail(in, fn, MAI_E_TIMEOUT);
  return (in->s.t.state & state_mask) != 0 ? MAI_OK : fail(in, fn, MAI_E_FAIL);
}

MAI_EXPORT u32 MAIengine_GetStreamMediaType(u32 engine, void *record) {
  static constexpr const char *fn = "MAIengine_GetStreamMediaType";
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, fn, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, %p)", fn, engine, record);
  if (record == nullptr) return fail(in, fn, MAI_E_INVALIDARG);
  auto *rec = static_cast<u8 *>(record);
  if (get_u32(rec, 0) != MAI_STREAM_TIME_SIZE) return fail(in, fn, MAI_E_INVALIDARG);
  std::lock_guard lk(in->mu);
  const Session &s = in->s;
  if (!s.connected) return fail(in, fn, MAI_E_NOTCONNECTED);
  if (s.faults.stream_status != 0) return fail(in, fn, s.faults.stream_status);
  const u64 position = static_cast<u64>(position_ms(s, Clock::now()));
  put_u64(rec, MAI_STIME_START, s.media.start_ms);
  put_u64(rec, MAI_STIME_CURRENT, s.media.start_ms + position);
  return MAI_OK;
}
