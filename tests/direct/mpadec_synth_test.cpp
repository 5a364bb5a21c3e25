// The polyphase synthesis against the standard's definition in double
// precision (matrixing into a 1024-value FIFO, the windowed sum of 16
// values per output), over ordinary slots and over overloaded ones: inputs
// beyond +-4 are clipped to +-4 before the filter and outputs beyond 16
// bits to the 16-bit range.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/mpadec.h"
#include "direct/mpadec/synth_window.h"

namespace {

class ReferenceSynth {
 public:
  // One slot of Q28 samples to 32 PCM values, unrounded.
  std::vector<double> slot(const s32 *q28) {
    const double pi = std::acos(-1.0);
    std::rotate(v_.rbegin(), v_.rbegin() + 64, v_.rend());
    for (int i = 0; i < 64; ++i) {
      double sum = 0;
      for (int k = 0; k < 32; ++k) sum += std::cos((16 + i) * (2 * k + 1) * pi / 64) * q28[k];
      v_[size_t(i)] = sum / (1 << 28);
    }
    std::vector<double> out(32, 0.0);
    for (int i = 0; i < 8; ++i)
      for (int j = 0; j < 32; ++j) {
        out[size_t(j)] += v_[size_t(128 * i + j)] * kMpaSynthWindow[64 * i + j] / 65536.0;
        out[size_t(j)] += v_[size_t(128 * i + 96 + j)] * kMpaSynthWindow[64 * i + 32 + j] / 65536.0;
      }
    for (double &o : out) o *= 32768;
    return out;
  }

 private:
  std::vector<double> v_ = std::vector<double>(1024, 0.0);
};

// Runs slots through the decoder's synthesis (stereo-interleaved output,
// left channel) and the reference, which sees the inputs clipped to +-4.
void expect_matches(const std::vector<std::vector<s32>> &slots, double tolerance) {
  MpaSynth f{};
  ReferenceSynth ref;
  for (size_t n = 0; n < slots.size(); ++n) {
    s16 out[64];
    mpa_synth_slot(&f, slots[n].data(), out, 2);
    std::vector<s32> clipped(slots[n]);
    for (s32 &v : clipped) v = std::clamp(v, -(1 << 30), (1 << 30) - 1);
    const std::vector<double> want = ref.slot(clipped.data());
    for (int j = 0; j < 32; ++j)
      ASSERT_NEAR(out[2 * j], std::clamp(want[size_t(j)], -32768.0, 32767.0), tolerance)
          << "slot " << n << " output " << j;
  }
}

std::vector<std::vector<s32>> random_slots(std::mt19937 &rng, int count, s32 low, s32 high) {
  std::uniform_int_distribution<s32> value(low, high);
  std::vector<std::vector<s32>> slots(size_t(count), std::vector<s32>(32));
  for (auto &slot : slots)
    for (s32 &v : slot) v = value(rng);
  return slots;
}

TEST(MpaSynth, MatchesTheDefinition) {
  std::mt19937 rng(5);
  // Quiet and ordinary levels (a tenth and a quarter of full scale per
  // subband): within rounding of the 16-bit step.
  expect_matches(random_slots(rng, 40, -(1 << 24), 1 << 24), 0.6);
  expect_matches(random_slots(rng, 40, -(1 << 26), 1 << 26), 0.6);
}

TEST(MpaSynth, OverloadedSlotsAreClipped) {
  std::mt19937 rng(6);
  // Whole slots far beyond +-4, and single values at and just past the
  // limits, in even and odd positions, among ordinary ones (the pairwise
  // range test may see 2^30 - 1 next to a negative value as outside;
  // clipping keeps it).
  auto slots = random_slots(rng, 24, INT32_MIN, INT32_MAX);
  const s32 edges[] = {(1 << 30) - 1, 1 << 30, -(1 << 30), -(1 << 30) - 1, INT32_MAX, INT32_MIN};
  for (int n = 0; n < 24; ++n) {
    std::vector<s32> slot = random_slots(rng, 1, -(1 << 25), 1 << 25)[0];
    slot[size_t(n)] = edges[n % 6];
    slot[size_t(n ^ 1)] = -(1 << 20);
    slots.push_back(slot);
  }
  expect_matches(slots, 0.6);
}

}  // namespace
