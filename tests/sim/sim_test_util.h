// Helpers shared by the engine tests.
#pragma once
#include "platform/mai_engine.h"
#include "platform/mai_os.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace simtest {

// One engine instance for the length of a test.
struct Engine {
  u32 h = 0;
  Engine() { EXPECT_EQ(MAIengine_Create(&h), MAI_OK); }
  ~Engine() {
    if (h != 0) MAIengine_Release(h);
  }
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;
  u32 debug(const std::string &command) const {
    return MAIengine_ExecDebugCommand(h, command.c_str());
  }
  u32 connect(const std::string &file, const char *solution = nullptr) const {
    return MAIengine_AutoConnect(h, solution, 0, file.c_str(), 1, 0);
  }
  u32 command(u32 cmd, u32 p1 = 0, u32 p2 = 0) const {
    return MAIengine_SendCommand(h, cmd, p1, p2, 0, 0, MAI_WAIT_FOREVER);
  }
  u32 state() const {
    u32 s = 0;
    EXPECT_EQ(MAIengine_GetState(h, &s, nullptr), MAI_OK);
    return s;
  }
  u32 wait(u32 mask, u32 ms = 5000) const { return MAIengine_WaitForState(h, mask, ms); }
};

// Sets an environment variable for the length of a test.
struct ScopedEnv {
  std::string name;
  std::optional<std::string> old;
  ScopedEnv(const char *n, const char *value) : name(n) {
    if (const char *o = std::getenv(n)) old = o;
    ::setenv(n, value, 1);
  }
  ~ScopedEnv() {
    if (old) ::setenv(name.c_str(), old->c_str(), 1);
    else ::unsetenv(name.c_str());
  }
};

inline u32 rd32(const u8 *p, u32 off) {
  return u32(p[off]) | u32(p[off + 1]) << 8 | u32(p[off + 2]) << 16 | u32(p[off + 3]) << 24;
}
inline u32 rd16(const u8 *p, u32 off) { return u32(p[off]) | u32(p[off + 1]) << 8; }
inline u64 rd64(const u8 *p, u32 off) { return u64(rd32(p, off)) | u64(rd32(p, off + 4)) << 32; }

struct StreamTime {
  u32 status;
  u64 start, current;
};
inline StreamTime stream_time(u32 h) {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  rec[0] = MAI_STREAM_TIME_SIZE;
  u32 st = MAIengine_GetStreamMediaType(h, rec.data());
  return {st, rd64(rec.data(), MAI_STIME_START), rd64(rec.data(), MAI_STIME_CURRENT)};
}
// Clock position in ms from the start of the stream.
inline u64 position(u32 h) {
  StreamTime t = stream_time(h);
  EXPECT_EQ(t.status, MAI_OK);
  return t.current - t.start;
}

// Measured clock speed over `wall`, in media ms per wall ms.
inline double clock_speed(u32 h, std::chrono::milliseconds wall) {
  using Clock = std::chrono::steady_clock;
  const u64 p0 = position(h);
  const auto t0 = Clock::now();
  std::this_thread::sleep_for(wall);
  const u64 p1 = position(h);
  const double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
  return (double(p1) - double(p0)) / ms;
}

// Everything the engine reported through the callbacks. Progress callbacks
// carry no context, so the recorder is one per process.
struct Report {
  u32 kind;
  std::array<u32, MAI_PROGRESS_WORDS> words;
  std::thread::id thread;
  u32 state_seen;  // engine state read from inside the callback
};
struct ErrorReport {
  void *context;
  u32 code, detail;
  std::thread::id thread;
};
struct Recorder {
  std::mutex mu;
  u32 engine = 0;
  std::vector<Report> reports;
  std::vector<ErrorReport> errors;

  static Recorder &get() {
    static Recorder r;
    return r;
  }
  static u32 on_progress(u32 kind, const u32 *record) {
    Recorder &r = get();
    u32 engine;
    {
      std::lock_guard lk(r.mu);
      engine = r.engine;
    }
    u32 state = 0;
    MAIengine_GetState(engine, &state, nullptr);  // as the API's callback does
    Report rep{kind, {}, std::this_thread::get_id(), state};
    std::memcpy(rep.words.data(), record, sizeof rep.words);
    std::lock_guard lk(r.mu);
    r.reports.push_back(rep);
    return 0;
  }
  static u32 on_error(void *context, u32 code, u32 detail) {
    Recorder &r = get();
    std::lock_guard lk(r.mu);
    r.errors.push_back({context, code, detail, std::this_thread::get_id()});
    return 0;
  }
  // Clears and registers the recorder with `engine`.
  void attach(u32 engine_handle, void *context = nullptr) {
    {
      std::lock_guard lk(mu);
      engine = engine_handle;
      reports.clear();
      errors.clear();
    }
    EXPECT_EQ(MAIengine_RegisterCallbacks(engine_handle, on_error, on_progress, context), MAI_OK);
  }
  std::vector<Report> component_reports() {
    std::lock_guard lk(mu);
    std::vector<Report> out;
    for (const Report &r : reports)
      if (r.kind == MAI_PROGRESS_COMPONENT) out.push_back(r);
    return out;
  }
  size_t count_kind(u32 kind) {
    std::lock_guard lk(mu);
    size_t n = 0;
    for (const Report &r : reports) n += r.kind == kind;
    return n;
  }
  std::vector<ErrorReport> error_reports() {
    std::lock_guard lk(mu);
    return errors;
  }
};

}  // namespace simtest
