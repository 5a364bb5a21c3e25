// Shared set-up of the control API tests: one engine session on the host
// engine per test, the application callbacks counted, and helpers to
// capture what a call prints.
#pragma once
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "api/pmx_internal.h"
#include "info/byte_order.h"
#include "platform/mai_engine.h"
#include "tests/doubles/scanner_doubles.h"
#include "tests/support/fixtures.h"

namespace api_test {

inline std::atomic<int> eos_calls{0};
inline std::atomic<int> error_calls{0};
inline std::atomic<int> eos_status{0};
inline std::atomic<bool> eos_on_other_thread{false};
inline std::thread::id test_thread;
inline std::mutex seen_lock;
inline std::vector<int> errors_seen;

inline int on_error(int status) {
  ++error_calls;
  std::lock_guard<std::mutex> hold(seen_lock);
  errors_seen.push_back(status);
  return 0;
}
inline int on_eos(int status) {
  eos_status = status;
  eos_on_other_thread = std::this_thread::get_id() != test_thread;
  ++eos_calls;
  return 0;
}
inline std::vector<int> errors() {
  std::lock_guard<std::mutex> hold(seen_lock);
  return errors_seen;
}
inline void reset_callbacks() {
  eos_calls = 0;
  error_calls = 0;
  eos_status = 0;
  test_thread = std::this_thread::get_id();
  std::lock_guard<std::mutex> hold(seen_lock);
  errors_seen.clear();
}

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// What `call` prints on standard output.
inline std::string printed(const std::function<void()> &call) {
  testing::internal::CaptureStdout();
  call();
  return testing::internal::GetCapturedStdout();
}

// The result of `call`; what it printed goes to `out` (or is dropped).
// Checks belong outside the call: a failure message printed while the
// output is captured would be lost.
template <typename F>
auto run(F call, std::string *out = nullptr) {
  testing::internal::CaptureStdout();
  auto result = call();
  std::string text = testing::internal::GetCapturedStdout();
  if (out != nullptr) *out = std::move(text);
  return result;
}

// Opens a fixture (or any path); the status of pmx_open, what it printed to `out`.
inline s32 open_file(const std::string &path, std::string *out = nullptr) {
  return run([&] { return pmx_open(path.c_str()); }, out);
}

template <typename F>
bool eventually(F done, int ms = 3000) {
  for (int i = 0; i < ms && !done(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return done();
}

inline u32 engine_state() {
  u32 state = 0, pending = 0;
  MAIengine_GetState(pmx.engine.load(), &state, &pending);
  return state;
}

// Has the scripted AVI scanner recognise xvid_mp3.avi as MPEG-4 video of
// the given size with MP3 audio.
inline void script_avi(u32 width, u32 height, float aspect = 0) {
  doubles::riff = {1, [=](MediaInfo *r) {
                     r->play_time = 2040;
                     r->video_codec = fourcc("XVID");
                     r->video_width = width;
                     r->video_height = height;
                     r->aspect_ratio = aspect;
                     r->frame_rate = 25;
                     r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
                     r->audio[0].audio_sample_rate = 44100;
                     r->audio[0].audio_channels = 2;
                     r->audio_count = 1;
                   }};
}

class ApiTest : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    reset_callbacks();
    ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  }
  void TearDown() override {
    pmx_debug("sim fault clear");
    printed([] { pmx_close(); });
    EXPECT_EQ(pmx_release(), PMX_OK);
    pmx.spdif = 0;
    pmx.tv_out = 0;
    pmx.display_set = 0;
    pmx.running = 0;
    pmx.speed_index = 0;
    pmx.normal_speed_index = 0;
  }
  static s32 open(const std::string &path, std::string *out = nullptr) { return open_file(path, out); }
};

}  // namespace api_test
