// Shared set-up of the control API tests: one engine session on the host
// engine per test, the application callbacks recorded, printed output caught.
#pragma once
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <string>
#include <vector>

#include "api/pmx_internal.h"
#include "info/byte_order.h"
#include "platform/mai_engine.h"
#include "tests/doubles/scanner_doubles.h"
#include "tests/support/fixtures.h"

namespace api_test {

// The engine calls back on its own threads.
inline std::mutex seen_lock;
inline std::vector<int> errors_seen;
inline std::atomic<int> eos_calls{0}, eos_status{0};

inline int on_error(int status) {
  std::lock_guard<std::mutex> hold(seen_lock);
  errors_seen.push_back(status);
  return 0;
}
inline int on_eos(int status) {
  eos_status = status;
  ++eos_calls;
  return 0;
}
inline std::vector<int> errors(bool clear = false) {
  std::lock_guard<std::mutex> hold(seen_lock);
  std::vector<int> seen = errors_seen;
  if (clear) errors_seen.clear();
  return seen;
}

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// The result of `call`, what it printed going to `out` (checks belong
// outside: a failure printed while output is captured would be lost).
template <typename F>
auto run(F call, std::string *out = nullptr) {
  testing::internal::CaptureStdout();
  auto result = call();
  std::string text = testing::internal::GetCapturedStdout();
  if (out != nullptr) *out = std::move(text);
  return result;
}

// What a call returns and prints.
using Said = std::pair<s32, std::string>;
template <typename F>
Said said(F call) {
  std::string out;
  const s32 result = static_cast<s32>(run(call, &out));
  return {result, out};
}

// Has a scripted scanner recognise the next file of its kind.
inline void script(doubles::Scanner &scanner, u32 video, u32 width, u32 height, u32 audio, float aspect = 0,
                   u32 rate = 44100) {
  scanner = {1, [=](MediaInfo *r) {
               r->play_time = 2040, r->video_codec = video, r->video_width = width, r->video_height = height;
               r->aspect_ratio = aspect, r->frame_rate = 25, r->audio_count = 1;
               r->audio[0].audio_codec = audio, r->audio[0].audio_bitrate = 128000;
               r->audio[0].audio_sample_rate = rate, r->audio[0].audio_channels = 2;
             }};
}
inline void script_avi(u32 width, u32 height, float aspect = 0, u32 rate = 44100) {
  script(doubles::riff, fourcc("XVID"), width, height, WAVE_FORMAT_MPEGLAYER3, aspect, rate);
}

// Every test starts with an initialised engine and no file; whatever it
// leaves open or initialised is closed and released afterwards.
class ApiTest : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    errors(true);
    ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  }
  void TearDown() override {
    unsetenv("PMX_ENGINE_FAULTS");
    if (pmx.engine.load() != 0) {
      pmx_debug("sim fault clear");
      run(pmx_close);
      EXPECT_EQ(pmx_release(), PMX_OK);
    }
    pmx.support = pmx.tv_out = pmx.speed_index = pmx.normal_speed_index = 0;
    pmx.spdif = pmx.display_set = 0;
    pmx.running = 0;
  }
  static s32 open(const std::string &path, std::string *out = nullptr) {
    return run([&] { return pmx_open(path.c_str()); }, out);
  }
};

}  // namespace api_test
