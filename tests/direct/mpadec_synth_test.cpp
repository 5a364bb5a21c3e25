// The polyphase synthesis against its definition in double precision
// (matrixing into a 1024-value FIFO, the windowed sum of 16 values per
// output) over ordinary and overloaded slots: inputs beyond +-4 are clipped
// to +-4 before the filter, outputs beyond 16 bits to the 16-bit range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/mpadec.h"
#include "direct/mpadec/synth_window.h"

namespace {

using Slots = std::vector<std::vector<s32>>;

// Runs slots through the decoder (stereo-interleaved output, left channel)
// and the definition, which sees the inputs clipped to +-4.
void expect_matches(const Slots &slots) {
  const double pi = std::acos(-1.0);
  MpaSynth f{};
  std::vector<double> v(1024, 0.0);
  for (size_t n = 0; n < slots.size(); ++n) {
    s16 out[64];
    mpa_synth_slot(&f, slots[n].data(), out, 2);
    std::rotate(v.rbegin(), v.rbegin() + 64, v.rend());
    for (int i = 0; i < 64; ++i) {
      double sum = 0;
      for (int k = 0; k < 32; ++k)
        sum += std::cos((16 + i) * (2 * k + 1) * pi / 64) * std::clamp(slots[n][size_t(k)], -(1 << 30), (1 << 30) - 1);
      v[size_t(i)] = sum / (1 << 28);
    }
    for (int j = 0; j < 32; ++j) {
      double want = 0;
      for (int i = 0; i < 8; ++i)
        want += v[size_t(128 * i + j)] * kMpaSynthWindow[64 * i + j] / 65536.0 +
                v[size_t(128 * i + 96 + j)] * kMpaSynthWindow[64 * i + 32 + j] / 65536.0;
      ASSERT_NEAR(out[2 * j], std::clamp(want * 32768, -32768.0, 32767.0), 0.6) << "slot " << n << " output " << j;
    }
  }
}

Slots random_slots(std::mt19937 &rng, int count, s32 low, s32 high) {
  std::uniform_int_distribution<s32> value(low, high);
  Slots slots(size_t(count), std::vector<s32>(32));
  for (auto &slot : slots)
    for (s32 &x : slot) x = value(rng);
  return slots;
}

// Quiet and ordinary levels (a tenth and a quarter of full scale per
// subband) within rounding; whole slots far beyond +-4, and single values at
// and just past the limits in even and odd positions among ordinary ones
// (a pairwise range test may see 2^30 - 1 next to a negative value as
// outside; clipping keeps it).
TEST(MpaSynth, MatchesTheDefinitionAndClipsOverloads) {
  std::mt19937 rng(5);
  expect_matches(random_slots(rng, 40, -(1 << 24), 1 << 24));
  expect_matches(random_slots(rng, 40, -(1 << 26), 1 << 26));
  Slots slots = random_slots(rng, 24, INT32_MIN, INT32_MAX);
  const s32 edges[] = {(1 << 30) - 1, 1 << 30, -(1 << 30), -(1 << 30) - 1, INT32_MAX, INT32_MIN};
  for (int n = 0; n < 24; ++n) {
    slots.push_back(random_slots(rng, 1, -(1 << 25), 1 << 25)[0]);
    slots.back()[size_t(n)] = edges[n % 6];
    slots.back()[size_t(n ^ 1)] = -(1 << 20);
  }
  expect_matches(slots);
}

}  // namespace
