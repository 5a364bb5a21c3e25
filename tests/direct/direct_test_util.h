// Helpers of the direct playback tests: file images with the 16-bit PCM
// they should play as (hand-built WAV, MP3 files through our decoder), and a
// fixture that starts every test from a board at power-on and a driver with
// nothing loaded.
#pragma once
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "direct/direct_internal.h"
#include "sim/board/board.h"
#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

namespace directtest {

struct Image {
  std::vector<u8> bytes;
  std::vector<s16> samples;  // interleaved
};

// `frames` sample frames of a sawtooth per channel; `extra_chunks` puts a
// LIST chunk of odd size (one pad byte) before the data and another chunk
// after it.
inline Image make_wav(u32 rate, u32 channels, u32 bits, u32 frames, bool extra_chunks = false) {
  Image w;
  std::vector<u8> data, &v = w.bytes;
  auto le = [](std::vector<u8> &to, u32 x, int bytes) {
    for (int i = 0; i < bytes; ++i) to.push_back(u8(x >> (8 * i)));
  };
  for (u32 f = 0; f < frames; ++f)
    for (u32 c = 0; c < channels; ++c) {
      const u8 u = u8(f * 3 + c * 40 + 1);
      w.samples.push_back(bits == 8 ? s16((u - 128) * 256) : s16(f * 97 + c * 5000 - 20000));
      le(data, bits == 8 ? u : u16(w.samples.back()), int(bits / 8));
    }
  auto chunk = [&](const char *tag, size_t size, std::vector<u8> body) {
    v.insert(v.end(), tag, tag + 4);
    le(v, u32(size), 4);
    v.insert(v.end(), body.begin(), body.end());
  };
  std::vector<u8> fmt;  // PCM, channels, rate, bytes per second and per frame, bits
  const std::pair<u32, int> fields[] = {{1, 2}, {channels, 2}, {rate, 4}, {rate * channels * bits / 8, 4},
                                        {channels * bits / 8, 2}, {bits, 2}};
  for (auto [x, n] : fields) le(fmt, x, n);
  chunk("RIFF", 0, {'W', 'A', 'V', 'E'});  // size filled in below
  chunk("fmt ", 16, fmt);
  if (extra_chunks) chunk("LIST", 5, {'I', 'N', 'F', 'O', 'x', 0});
  chunk("data", data.size(), data);
  if (extra_chunks) chunk("id3 ", 8, std::vector<u8>(8, 0x7F));
  const u32 riff = u32(v.size() - 8);
  std::memcpy(v.data() + 4, &riff, 4);
  return w;
}

// A media fixture and what our decoder makes of it.
inline Image mp3_image(const char *name) {
  Image m;
  m.bytes = mparef::read_file(fixtures::media(name));
  for (double s : mparef::decode_ours(m.bytes).samples) m.samples.push_back(s16(s));
  return m;
}

inline s32 play(const Image &image) { return _pmx_direct_play(image.bytes.data(), u32(image.bytes.size())); }

inline void wait_until_done() {
  for (int i = 0; i < 20000 && pmx_is_direct_playing() != 0; ++i) usleep(1000);
}

// Runs `f` with standard output captured and gives what it printed.
template <typename F>
std::string captured(F f) {
  ::testing::internal::CaptureStdout();
  f();
  return ::testing::internal::GetCapturedStdout();
}

// The driver's "padding: n" lines for n blocks.
inline std::string padding_lines(u32 n) {
  std::string s;
  for (u32 i = 0; i < n; ++i) s += "padding: " + std::to_string(i) + "\n";
  return s;
}

class DirectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    board::reset();
    board::set_dsp_speed(0);
  }
  // Only the deinit of a WAV set-up unloads the renderer, so one is made.
  void TearDown() override {
    pmx_direct_stop();
    if (pmx_init_direct_play(PMX_DIRECT_WAV) == PMX_DIRECT_OK) pmx_deinit_direct_play();
    board::reset();
  }
};

}  // namespace directtest
