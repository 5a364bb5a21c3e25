// Layers I and II up to the subband samples: frames written here by a tiny
// encoder (random allocations, scale factors and quantised values) and
// read back; the layer II table choice and forbidden values.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer12.h"

#include "tests/direct/bit_writer.h"

// Designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

double requant(int v, int levels, int scf_index) {
  return double(2 * v - levels + 1) / levels * std::pow(2.0, 1.0 - scf_index / 3.0) * double(1 << 28);
}

MpaHeader header(int layer, int lsf, int rate, int bit_rate, int channels, int mode, int mode_ext) {
  return MpaHeader{.layer = layer, .lsf = lsf, .sample_rate = rate, .bitrate_index = 1, .bit_rate = bit_rate,
                   .mode = mode, .mode_ext = mode_ext, .channels = channels};
}

TEST(Layer12, ForbiddenAllocationAndScaleFactorIndex) {
  EXPECT_EQ(mpa_scalefactor(63), 0);
  const u8 data[8] = {0x3F};  // layer I mono: subband 0 allocation 3, subband 1 the forbidden 15
  MpaHeader hd = header(1, 0, 44100, 384000, 1, 3, 0);
  MpaBits b;
  mpa_bits_init(&b, data, 8);
  MpaSubbandFrame out{};
  EXPECT_EQ(mpa_decode_layer1(&b, &hd, &out), -1);
}

// Allocation field width and levels per allocation value: layer I (table
// -1), then the layer II tables.
struct Alloc {
  int nbal;
  std::vector<int> levels;
};
Alloc alloc_of(int table, int sb) {
  const std::vector<int> layer1 = {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
  const std::vector<int> high0 = {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  const std::vector<int> high1 = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
  const std::vector<int> high2 = {3, 5, 7, 9, 15, 31, 65535};
  const std::vector<int> high3 = {3, 5, 65535};
  const std::vector<int> low0 = {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
  const std::vector<int> low1 = {3, 5, 9, 15, 31, 63, 127};
  const std::vector<int> lsf0 = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383};
  const std::vector<int> lsf2 = {3, 5, 9};
  if (table < 0) return Alloc{4, layer1};
  if (table <= 1)
    return sb < 3 ? Alloc{4, high0} : sb < 11 ? Alloc{4, high1} : sb < 23 ? Alloc{3, high2} : Alloc{2, high3};
  if (table <= 3) return sb < 2 ? Alloc{4, low0} : Alloc{3, low1};
  return sb < 4 ? Alloc{4, lsf0} : sb < 11 ? Alloc{3, low1} : Alloc{2, lsf2};
}

int bits_of(int levels) {
  int k = 1;
  while ((1 << k) < levels) ++k;
  return k;
}

TEST(Layer12, FramesWithEveryQuantiserScaleFactorSelectionAndStereoBound) {
  // Layer II cases cover every allocation table (given with its limit).
  const struct {
    int layer, lsf, rate, bit_rate, channels, mode, mode_ext, table, limit;
  } cases[] = {
      {1, 0, 44100, 384000, 1, 3, 0, -1, 32}, {1, 0, 44100, 384000, 2, 0, 0, -1, 32},
      {1, 0, 44100, 384000, 2, 1, 1, -1, 32},  // joint stereo, bound 8
      {1, 0, 44100, 384000, 2, 1, 3, -1, 32},  // bound 16
      {2, 0, 48000, 192000, 2, 0, 0, 0, 27},   {2, 0, 44100, 192000, 1, 3, 0, 1, 30},
      {2, 0, 44100, 64000, 2, 2, 0, 2, 8},     {2, 0, 32000, 64000, 2, 0, 0, 3, 12},
      {2, 0, 48000, 256000, 2, 1, 2, 0, 27},   // joint stereo, bound 12
      {2, 1, 22050, 96000, 2, 1, 0, 4, 30},    // joint stereo, bound 4
      {2, 0, 48000, 56000, 1, 3, 0, 0, 27},    {2, 0, 32000, 256000, 2, 0, 0, 1, 30},
      {2, 0, 48000, 96000, 2, 0, 0, 2, 8},     {2, 0, 44100, 80000, 1, 3, 0, 0, 27},  // bit-rate edges
      {2, 0, 32000, 32000, 1, 3, 0, 3, 12},    {2, 1, 16000, 8000, 1, 3, 0, 4, 30},
  };
  std::mt19937 rng(21);
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "layer " << c.layer << " rate " << c.rate << " bit rate "
                                    << c.bit_rate << " mode " << c.mode << " " << c.mode_ext);
    MpaHeader hd = header(c.layer, c.lsf, c.rate, c.bit_rate, c.channels, c.mode, c.mode_ext);
    // Layer I: 12 single samples with one scale factor; layer II: 12 groups
    // of three samples, scale factors chosen per third of the frame.
    const int table = c.table, limit = c.limit, n = c.layer == 1 ? 1 : 3;
    if (c.layer == 2) {
      ASSERT_EQ(mpa_layer2_table(&hd), table);
      ASSERT_EQ(mpa_layer2_sblimit(table), limit);
    }
    const int bound = c.mode == 1 ? std::min(4 * (c.mode_ext + 1), limit) : limit;
    int levels[2][32] = {}, scfsi[2][32] = {}, sf[2][32][3] = {};
    BitWriter w;
    for (int sb = 0; sb < limit; ++sb) {
      Alloc a = alloc_of(table, sb);
      for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) {
        int idx = std::min(int(rng() % (1u << a.nbal)), int(a.levels.size()));
        w.put(u32(idx), a.nbal);
        levels[ch][sb] = levels[1][sb] = idx ? a.levels[size_t(idx - 1)] : 0;
      }
    }
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < c.channels; ++ch) {
        scfsi[ch][sb] = c.layer == 1 ? 2 : int(rng() % 4);  // layer I: one factor, not signalled
        if (levels[ch][sb] && c.layer == 2) w.put(u32(scfsi[ch][sb]), 2);
      }
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < c.channels; ++ch) {
        if (!levels[ch][sb]) continue;
        int f[3] = {int(rng() % 63), int(rng() % 63), int(rng() % 63)};
        // Which of the three parts take which written factor, by selection.
        const int use[4][3] = {{0, 1, 2}, {0, 0, 1}, {0, 0, 0}, {0, 1, 1}};
        for (int k = 0; k < 3; ++k) sf[ch][sb][k] = f[use[scfsi[ch][sb]][k]];
        for (int k = 0; k <= use[scfsi[ch][sb]][2]; ++k) w.put(u32(f[k]), 6);
      }
    std::vector<int> vals(2 * 36 * 32, 0);
    auto at = [&](int ch, int t, int sb) -> int & { return vals[size_t((ch * 36 + t) * 32 + sb)]; };
    for (int gr = 0; gr < 12; ++gr)
      for (int sb = 0; sb < limit; ++sb)
        for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) {
          int L = levels[ch][sb];
          if (!L) continue;
          int v[3];
          for (int k = 0; k < n; ++k) v[k] = at(ch, n * gr + k, sb) = at(1, n * gr + k, sb) = int(rng() % u32(L));
          if (n == 3 && (L == 3 || L == 5 || L == 9))
            w.put(u32(v[0] + L * (v[1] + L * v[2])), bits_of(L * L * L));
          else
            for (int k = 0; k < n; ++k) w.put(u32(v[k]), bits_of(L + 1));
        }
    w.put(0, 16);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSubbandFrame out{};
    ASSERT_EQ(c.layer == 1 ? mpa_decode_layer1(&b, &hd, &out) : mpa_decode_layer2(&b, &hd, &out), 0);
    EXPECT_EQ(b.pos, w.bits - 16);
    for (int ch = 0; ch < c.channels; ++ch)
      for (int t = 0; t < 12 * n; ++t)
        for (int sb = 0; sb < 32; ++sb) {
          int L = levels[ch][sb];
          double expect = L ? requant(at(ch, t, sb), L, sf[ch][sb][t / 12]) : 0.0;
          ASSERT_NEAR(out.s[ch][t][sb], expect, 2.0) << ch << " " << t << " " << sb;
        }
  }
}

}  // namespace
