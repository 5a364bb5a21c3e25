// Helpers of the direct playback tests: hand-built WAV images with known
// samples, and a fixture that starts every test from a board at power-on
// and a driver that is deinitialised.
#pragma once
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "direct/direct_internal.h"
#include "sim/board/board.h"

namespace directtest {

struct WavImage {
  std::vector<std::uint8_t> bytes;
  std::vector<std::int16_t> samples;  // what the image should play as 16-bit PCM
};

inline void put(std::vector<std::uint8_t> &v, const char *tag) { v.insert(v.end(), tag, tag + 4); }
inline void put32(std::vector<std::uint8_t> &v, std::uint32_t x) {
  for (int i = 0; i < 4; ++i) v.push_back(static_cast<std::uint8_t>(x >> (8 * i)));
}
inline void put16(std::vector<std::uint8_t> &v, std::uint32_t x) {
  v.push_back(static_cast<std::uint8_t>(x));
  v.push_back(static_cast<std::uint8_t>(x >> 8));
}

// `frames` sample frames of a sawtooth per channel; `extra_chunks` puts a
// LIST chunk before the data and another chunk after it.
inline WavImage make_wav(std::uint32_t rate, std::uint32_t channels, std::uint32_t bits, std::uint32_t frames,
                         bool extra_chunks = false) {
  WavImage w;
  std::vector<std::uint8_t> data;
  for (std::uint32_t f = 0; f < frames; ++f) {
    for (std::uint32_t c = 0; c < channels; ++c) {
      if (bits == 8) {
        const std::uint8_t u = static_cast<std::uint8_t>(f * 3 + c * 40 + 1);
        data.push_back(u);
        w.samples.push_back(static_cast<std::int16_t>((u - 128) * 256));
      } else {
        const std::int16_t s = static_cast<std::int16_t>(f * 97 + c * 5000 - 20000);
        put16(data, static_cast<std::uint16_t>(s));
        w.samples.push_back(s);
      }
    }
  }
  std::vector<std::uint8_t> &v = w.bytes;
  put(v, "RIFF");
  put32(v, 0);  // filled below
  put(v, "WAVE");
  put(v, "fmt ");
  put32(v, 16);
  put16(v, 1);
  put16(v, channels);
  put32(v, rate);
  put32(v, rate * channels * bits / 8);
  put16(v, channels * bits / 8);
  put16(v, bits);
  if (extra_chunks) {
    put(v, "LIST");
    put32(v, 5);
    v.insert(v.end(), {'I', 'N', 'F', 'O', 'x', 0});  // odd size, one pad byte
  }
  put(v, "data");
  put32(v, static_cast<std::uint32_t>(data.size()));
  v.insert(v.end(), data.begin(), data.end());
  if (extra_chunks) {
    put(v, "id3 ");
    put32(v, 8);
    v.insert(v.end(), 8, 0x7F);
  }
  const std::uint32_t riff = static_cast<std::uint32_t>(v.size() - 8);
  std::memcpy(v.data() + 4, &riff, 4);
  return w;
}

inline void wait_until_done() {
  for (int i = 0; i < 20000 && pmx_is_direct_playing() != 0; ++i) usleep(1000);
}

class DirectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    board::reset();
    board::set_dsp_speed(0);
  }
  void TearDown() override {
    pmx_direct_stop();
    pmx_deinit_direct_play();
    board::reset();
  }
};

}  // namespace directtest
