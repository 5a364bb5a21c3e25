// Helpers shared by the engine tests.
#pragma once
#include "platform/mai_engine.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace simtest {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// One engine instance for the length of a test.
struct Engine {
  u32 h = 0;
  Engine() { EXPECT_EQ(MAIengine_Create(&h), MAI_OK); }
  ~Engine() { MAIengine_Release(h); }
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;
  u32 debug(const std::string &command) const { return MAIengine_ExecDebugCommand(h, command.c_str()); }
  u32 connect(const std::string &path) const { return MAIengine_AutoConnect(h, nullptr, 0, path.c_str(), 1, 0); }
  u32 disconnect() const { return MAIengine_Disconnect(h, 0); }
  u32 command(u32 cmd, u32 p1 = 0, u32 p2 = 0) const {
    return MAIengine_SendCommand(h, cmd, p1, p2, 0, 0, MAI_WAIT_FOREVER);
  }
  u32 state(u32 *pending = nullptr) const {
    u32 s = 0;
    EXPECT_EQ(MAIengine_GetState(h, &s, pending), MAI_OK);
    return s;
  }
  u32 wait(u32 mask) const { return MAIengine_WaitForState(h, mask, 10000); }
};

// Sets an environment variable (read by MAIengine_Create) for a scope.
struct ScopedEnv {
  const char *name;
  ScopedEnv(const char *n, const char *value) : name(n) { ::setenv(n, value, 1); }
  ~ScopedEnv() { ::unsetenv(name); }
};

// Little-endian field of `n` bytes.
inline u64 rd(const u8 *p, u32 off, int n = 4) {
  u64 v = 0;
  for (int i = n - 1; i >= 0; --i) v = v << 8 | p[off + i];
  return v;
}

// Clock position in ms from the start of the stream.
inline u64 position(u32 h) {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  rec[0] = MAI_STREAM_TIME_SIZE;
  EXPECT_EQ(MAIengine_GetStreamMediaType(h, rec.data()), MAI_OK);
  return rd(rec.data(), MAI_STIME_CURRENT, 8) - rd(rec.data(), MAI_STIME_START, 8);
}

// Holds the playback clock to `speed` media ms per wall ms over 100 ms; each
// reading is bracketed by wall-clock readings, so a descheduled test thread
// widens the allowed range instead of failing the check.
inline void expect_speed(u32 h, double speed) {
  auto ms = [](Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); };
  const auto a0 = Clock::now();
  const double p0 = double(position(h));
  const auto b0 = Clock::now();
  std::this_thread::sleep_for(100ms);
  const auto a1 = Clock::now();
  const double moved = double(position(h)) - p0;
  const double x = speed * ms(a1 - b0), y = speed * ms(Clock::now() - a0), slack = std::abs(speed) * 5 + 2;
  EXPECT_TRUE(moved >= std::min(x, y) - slack && moved <= std::max(x, y) + slack)
      << "moved " << moved << " ms, expected " << x << ".." << y;
}

// Everything the engine reported through the callbacks; progress callbacks
// carry no context, so the recorder is one per process.
struct Report {
  u32 kind, flags, type, state_seen;  // state_seen: read inside the callback, as the API does
  std::thread::id thread;
};
struct ErrorReport {
  void *context;
  u32 code;
  std::thread::id thread;
};
struct Recorder {
  std::mutex mu;
  std::atomic<u32> engine = 0;  // the instance whose state the callback reads
  std::vector<Report> reports;
  std::vector<ErrorReport> errors;

  static Recorder &get() {
    static Recorder r;
    return r;
  }
  static u32 on_progress(u32 kind, const u32 *record) {
    Report rep{kind, record[MAI_PROG_FLAGS], record[MAI_PROG_COMPONENT_TYPE], 0, std::this_thread::get_id()};
    MAIengine_GetState(get().engine, &rep.state_seen, nullptr);
    std::lock_guard lk(get().mu);
    get().reports.push_back(rep);
    return 0;
  }
  static u32 on_error(void *context, u32 code, u32) {
    std::lock_guard lk(get().mu);
    get().errors.push_back({context, code, std::this_thread::get_id()});
    return 0;
  }
  // Clears the recorder and registers it with `engine_handle`.
  void attach(u32 engine_handle, void *context = nullptr) {
    engine = engine_handle;
    std::unique_lock lk(mu);
    reports.clear();
    errors.clear();
    lk.unlock();
    EXPECT_EQ(MAIengine_RegisterCallbacks(engine_handle, on_error, on_progress, context), MAI_OK);
  }
  // Reports of `kind` with all of `flags`.
  std::vector<Report> of(u32 kind, u32 flags = 0) {
    std::lock_guard lk(mu);
    std::vector<Report> out;
    for (const Report &r : reports)
      if (r.kind == kind && (r.flags & flags) == flags) out.push_back(r);
    return out;
  }
};

}  // namespace simtest
