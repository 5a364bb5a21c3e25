// Layers I and II up to the subband samples: frames written here by a tiny
// encoder (chosen allocations, scale factors and quantised values) and
// read back.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "direct/mpadec/layer12.h"

#include "tests/direct/bit_writer.h"

namespace {

double scf(int i) { return std::pow(2.0, 1.0 - i / 3.0); }
double requant(int v, int levels, int scf_index) {
  return double(2 * v - levels + 1) / levels * scf(scf_index) * double(1 << 28);
}

TEST(Layer12, ScaleFactorsAreTwoToOneMinusAThird) {
  for (int i = 0; i < 63; ++i) EXPECT_NEAR(mpa_scalefactor(i), scf(i) * double(1 << 28), 1.0) << i;
  EXPECT_EQ(mpa_scalefactor(63), 0);
}

TEST(Layer12, RequantisationOfEveryQuantiser) {
  for (const MpaQuantClass &q : kMpaQuantClasses)
    for (int v : {0, 1, q.levels / 2, q.levels - 2, q.levels - 1})
      for (int s : {0, 1, 20, 62}) {
        double expect = requant(v, q.levels, s);
        EXPECT_NEAR(mpa_requantize_12(v, q.levels, mpa_scalefactor(s)), expect, 2.0)
            << q.levels << " " << v << " " << s;
      }
  // The midpoint of an odd quantiser is exactly zero.
  EXPECT_EQ(mpa_requantize_12(1, 3, mpa_scalefactor(0)), 0);
  EXPECT_EQ(mpa_requantize_12(32767, 65535, mpa_scalefactor(5)), 0);
}

MpaHeader header(int layer, int lsf, int rate, int bit_rate, int channels, int mode, int mode_ext) {
  MpaHeader hd{};
  hd.layer = layer;
  hd.lsf = lsf;
  hd.sample_rate = rate;
  hd.bit_rate = bit_rate;
  hd.bitrate_index = 1;
  hd.channels = channels;
  hd.mode = mode;
  hd.mode_ext = mode_ext;
  return hd;
}

TEST(Layer12, LayerOneFramesOfASine) {
  struct Case {
    const char *what;
    int channels, mode, mode_ext;
  } cases[] = {{"mono", 1, 3, 0}, {"stereo", 2, 0, 0}, {"joint stereo, bound 8", 2, 1, 1},
               {"joint stereo, bound 16", 2, 1, 3}};
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    MpaHeader hd = header(1, 0, 44100, 384000, c.channels, c.mode, c.mode_ext);
    int bound = c.mode == 1 ? 4 * (c.mode_ext + 1) : 32;
    int alloc[2][32], sf[2][32];
    for (int ch = 0; ch < 2; ++ch)
      for (int sb = 0; sb < 32; ++sb) {
        alloc[ch][sb] = sb < 20 ? (sb + 3 * ch) % 15 : 0;  // 0..14; 15 is forbidden
        if (sb >= bound) alloc[ch][sb] = alloc[0][sb];
        sf[ch][sb] = (sb * 5 + ch * 7) % 63;
      }
    BitWriter w;
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) w.put(u32(alloc[ch][sb]), 4);
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < c.channels; ++ch)
        if (alloc[ch][sb]) w.put(u32(sf[ch][sb]), 6);
    int v[2][12][32] = {};
    for (int t = 0; t < 12; ++t)
      for (int sb = 0; sb < 32; ++sb)
        for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) {
          int a = alloc[ch][sb];
          if (!a) continue;
          int levels = (2 << a) - 1;
          double x = 0.9 * std::sin(0.3 * t + sb + ch);
          int q = int(std::lround((x * levels + levels - 1) / 2));
          v[ch][t][sb] = q;
          if (sb >= bound) v[1][t][sb] = q;
          w.put(u32(q), a + 1);
        }
    w.put(0, 16);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSubbandFrame out{};
    ASSERT_EQ(mpa_decode_layer1(&b, &hd, &out), 0);
    EXPECT_EQ(b.pos, w.bits - 16);
    for (int ch = 0; ch < c.channels; ++ch)
      for (int t = 0; t < 12; ++t)
        for (int sb = 0; sb < 32; ++sb) {
          int a = alloc[ch][sb];
          double expect = a ? requant(v[ch][t][sb], (2 << a) - 1, sf[ch][sb]) : 0.0;
          ASSERT_NEAR(out.s[ch][t][sb], expect, 2.0) << ch << " " << t << " " << sb;
        }
  }
}

TEST(Layer12, LayerOneRefusesTheForbiddenAllocation) {
  MpaHeader hd = header(1, 0, 44100, 384000, 1, 3, 0);
  BitWriter w;
  w.put(3, 4);
  w.put(15, 4);
  w.put(0, 32);
  MpaBits b;
  mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
  MpaSubbandFrame out{};
  EXPECT_EQ(mpa_decode_layer1(&b, &hd, &out), -1);
}

TEST(Layer12, LayerTwoTableChoice) {
  struct Case {
    int lsf, rate, bit_rate, channels, table, sblimit;
  } cases[] = {
      {0, 48000, 192000, 2, 0, 27},  {0, 48000, 56000, 1, 0, 27},   {0, 48000, 96000, 2, 2, 8},
      {0, 44100, 128000, 2, 0, 27},  {0, 44100, 80000, 1, 0, 27},   {0, 44100, 192000, 1, 1, 30},
      {0, 44100, 384000, 2, 1, 30},  {0, 44100, 64000, 2, 2, 8},    {0, 32000, 64000, 2, 3, 12},
      {0, 32000, 32000, 1, 3, 12},   {0, 32000, 256000, 2, 1, 30},  {1, 22050, 64000, 2, 4, 30},
      {1, 16000, 8000, 1, 4, 30},
  };
  for (const auto &c : cases) {
    MpaHeader hd = header(2, c.lsf, c.rate, c.bit_rate, c.channels, c.channels == 1 ? 3 : 0, 0);
    int t = mpa_layer2_table(&hd);
    EXPECT_EQ(t, c.table) << c.rate << " " << c.bit_rate << " " << c.channels;
    EXPECT_EQ(mpa_layer2_sblimit(t), c.sblimit);
  }
}

// The allocation tables again, as field width and levels per allocation value.
struct Alloc {
  int nbal;
  std::vector<int> levels;
};
Alloc alloc_of(int table, int sb) {
  const std::vector<int> high0 = {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535};
  const std::vector<int> high1 = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535};
  const std::vector<int> high2 = {3, 5, 7, 9, 15, 31, 65535};
  const std::vector<int> high3 = {3, 5, 65535};
  const std::vector<int> low0 = {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767};
  const std::vector<int> low1 = {3, 5, 9, 15, 31, 63, 127};
  const std::vector<int> lsf0 = {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383};
  const std::vector<int> lsf2 = {3, 5, 9};
  if (table <= 1) return sb < 3 ? Alloc{4, high0} : sb < 11 ? Alloc{4, high1} : sb < 23 ? Alloc{3, high2} : Alloc{2, high3};
  if (table <= 3) return sb < 2 ? Alloc{4, low0} : Alloc{3, low1};
  return sb < 4 ? Alloc{4, lsf0} : sb < 11 ? Alloc{3, low1} : Alloc{2, lsf2};
}

int bits_of(int levels) {
  int k = 1;
  while ((1 << k) < levels) ++k;
  return k;
}
bool grouped(int levels) { return levels == 3 || levels == 5 || levels == 9; }

TEST(Layer12, LayerTwoFramesWithEveryQuantiserAndScaleFactorSelection) {
  struct Case {
    const char *what;
    int lsf, rate, bit_rate, channels, mode, mode_ext;
  } cases[] = {
      {"48 kHz stereo, 27 subbands", 0, 48000, 192000, 2, 0, 0},
      {"44.1 kHz mono, 30 subbands", 0, 44100, 192000, 1, 3, 0},
      {"44.1 kHz low rate, 8 subbands", 0, 44100, 64000, 2, 2, 0},
      {"32 kHz low rate, 12 subbands", 0, 32000, 64000, 2, 0, 0},
      {"joint stereo, bound 12", 0, 48000, 256000, 2, 1, 2},
      {"22.05 kHz joint stereo, bound 4", 1, 22050, 96000, 2, 1, 0},
  };
  std::mt19937 rng(21);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    MpaHeader hd = header(2, c.lsf, c.rate, c.bit_rate, c.channels, c.mode, c.mode_ext);
    int table = mpa_layer2_table(&hd);
    int limit = mpa_layer2_sblimit(table);
    int bound = c.mode == 1 ? std::min(4 * (c.mode_ext + 1), limit) : limit;
    int levels[2][32] = {}, scfsi[2][32] = {}, sf[2][32][3] = {};
    BitWriter w;
    for (int sb = 0; sb < limit; ++sb) {
      Alloc a = alloc_of(table, sb);
      for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) {
        int idx = int(rng() % (1u << a.nbal));
        if (idx > int(a.levels.size())) idx = int(a.levels.size());
        w.put(u32(idx), a.nbal);
        levels[ch][sb] = idx ? a.levels[size_t(idx - 1)] : 0;
      }
      if (sb >= bound) levels[1][sb] = levels[0][sb];
    }
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < c.channels; ++ch)
        if (levels[ch][sb]) {
          scfsi[ch][sb] = int(rng() % 4);
          w.put(u32(scfsi[ch][sb]), 2);
        }
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < c.channels; ++ch) {
        if (!levels[ch][sb]) continue;
        int f[3] = {int(rng() % 63), int(rng() % 63), int(rng() % 63)};
        int *s = sf[ch][sb];
        switch (scfsi[ch][sb]) {
          case 0: s[0] = f[0], s[1] = f[1], s[2] = f[2]; w.put(u32(f[0]), 6), w.put(u32(f[1]), 6), w.put(u32(f[2]), 6); break;
          case 1: s[0] = s[1] = f[0], s[2] = f[1]; w.put(u32(f[0]), 6), w.put(u32(f[1]), 6); break;
          case 2: s[0] = s[1] = s[2] = f[0]; w.put(u32(f[0]), 6); break;
          default: s[0] = f[0], s[1] = s[2] = f[1]; w.put(u32(f[0]), 6), w.put(u32(f[1]), 6); break;
        }
      }
    std::vector<int> vals(2 * 36 * 32, 0);
    auto at = [&](int ch, int t, int sb) -> int & { return vals[size_t((ch * 36 + t) * 32 + sb)]; };
    for (int gr = 0; gr < 12; ++gr)
      for (int sb = 0; sb < limit; ++sb)
        for (int ch = 0; ch < (sb < bound ? c.channels : 1); ++ch) {
          int L = levels[ch][sb];
          if (!L) continue;
          int v[3];
          for (int k = 0; k < 3; ++k) v[k] = int(rng() % u32(L));
          if (grouped(L)) {
            w.put(u32(v[0] + L * (v[1] + L * v[2])), bits_of(L * L * L));
          } else {
            for (int k = 0; k < 3; ++k) w.put(u32(v[k]), bits_of(L + 1));
          }
          for (int k = 0; k < 3; ++k) {
            at(ch, 3 * gr + k, sb) = v[k];
            if (sb >= bound) at(1, 3 * gr + k, sb) = v[k];
          }
        }
    w.put(0, 16);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSubbandFrame out{};
    ASSERT_EQ(mpa_decode_layer2(&b, &hd, &out), 0);
    EXPECT_EQ(b.pos, w.bits - 16);
    for (int ch = 0; ch < c.channels; ++ch)
      for (int t = 0; t < 36; ++t)
        for (int sb = 0; sb < 32; ++sb) {
          int L = levels[ch][sb];
          double expect = L ? requant(at(ch, t, sb), L, sf[ch][sb][t / 12]) : 0.0;
          ASSERT_NEAR(out.s[ch][t][sb], expect, 2.0) << ch << " " << t << " " << sb;
        }
  }
}

}  // namespace
