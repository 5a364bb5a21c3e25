// Layer III side information and scale factors, read back from bit
// streams written here field by field.
#include <gtest/gtest.h>

#include <vector>

#include "direct/mpadec/layer3_sideinfo.h"

#include "tests/direct/bit_writer.h"

// Designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

struct GranuleFields {
  int part23, big, gain, sfc, ws, type, mixed, t0, t1, t2, sbg0, sbg1, sbg2, r0, r1, pre, scale, c1;
};

// The fields in stream order with their widths, as a granule of that kind
// carries them; `g` read back gives the same list.
std::vector<std::pair<int, int>> fields(const GranuleFields &f, int lsf) {
  std::vector<std::pair<int, int>> v = {{f.part23, 12}, {f.big, 9}, {f.gain, 8}, {f.sfc, lsf ? 9 : 4}, {f.ws, 1}};
  if (f.ws)
    v.insert(v.end(), {{f.type, 2}, {f.mixed, 1}, {f.t0, 5}, {f.t1, 5}, {f.sbg0, 3}, {f.sbg1, 3}, {f.sbg2, 3}});
  else
    v.insert(v.end(), {{f.t0, 5}, {f.t1, 5}, {f.t2, 5}, {f.r0, 4}, {f.r1, 3}});
  if (!lsf) v.push_back({f.pre, 1});
  v.insert(v.end(), {{f.scale, 1}, {f.c1, 1}});
  return v;
}
std::vector<std::pair<int, int>> fields(const MpaGranuleInfo &g, int lsf) {
  // Fields the granule does not carry read as zero.
  EXPECT_EQ(g.window_switching ? g.table_select[2] : g.block_type + g.mixed, 0);
  EXPECT_EQ(lsf ? g.preflag : 0, 0);
  return fields(GranuleFields{g.part2_3_length, g.big_values, g.global_gain, g.scalefac_compress,
                              g.window_switching, g.block_type, g.mixed, g.table_select[0], g.table_select[1],
                              g.table_select[2], g.subblock_gain[0], g.subblock_gain[1], g.subblock_gain[2],
                              g.region0_count, g.region1_count, g.preflag, g.scalefac_scale,
                              g.count1table_select},
                lsf);
}
void write(BitWriter &w, const GranuleFields &f, int lsf) {
  for (auto [value, bits] : fields(f, lsf)) w.put(u32(value), bits);
}

const GranuleFields kLong = {1234, 200, 150, 9, 0, 0, 0, 15, 24, 7, 0, 0, 0, 5, 3, 1, 0, 1};
const GranuleFields kShort = {800, 100, 140, 3, 1, 2, 0, 13, 6, 0, 1, 2, 7, 0, 0, 0, 1, 0};
const GranuleFields kMixed = {700, 150, 160, 5, 1, 2, 1, 9, 10, 0, 4, 0, 2, 0, 0, 1, 0, 1};
const GranuleFields kStart = {4095, 288, 255, 15, 1, 1, 0, 31, 1, 0, 0, 3, 0, 0, 0, 0, 1, 1};
const GranuleFields kLsfLong = {2000, 100, 120, 511, 0, 0, 0, 1, 2, 3, 0, 0, 0, 15, 7, 0, 1, 0};
// Refused: a window switch without a block type; more than 288 big values.
const GranuleFields kNoType = {800, 100, 140, 3, 1, 0, 0, 13, 6, 0, 1, 2, 7, 0, 0, 0, 1, 0};
const GranuleFields kTooBig = {1234, 289, 150, 9, 0, 0, 0, 15, 24, 7, 0, 0, 0, 5, 3, 1, 0, 1};

TEST(MpaSideInfo, ReadsEveryFieldAndRegionsOfEveryVersionAndChannelCountOrRefuses) {
  // Regions at 44.1 kHz: region0_count 5, region1_count 3 -> bands 6 and 10
  // (24 and 52 values); short blocks start region 1 at 36; region 2 is
  // limited to 2 x big_values. At 22.05 kHz counts 15 and 7 reach band 16.
  const struct {
    int lsf, channels, rate_index;
    std::vector<const GranuleFields *> granules;  // granule-major
    std::vector<int> region1, region2;
  } cases[] = {
      {0, 2, 0, {&kLong, &kShort, &kMixed, &kStart}, {24, 36, 36, 36}, {52, 200, 300, 576}},
      {0, 1, 0, {&kStart, &kLong}, {36, 24}, {576, 52}},
      {1, 1, 3, {&kLsfLong}, {200}, {200}},
      {1, 2, 3, {&kLsfLong, &kShort}, {200, 36}, {200, 200}},
      {0, 1, 0, {&kNoType, &kLong}, {}, {}},
      {0, 1, 0, {&kTooBig, &kLong}, {}, {}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "lsf " << c.lsf << " channels " << c.channels);
    BitWriter w;
    w.put(300 >> c.lsf, c.lsf ? 8 : 9);  // main_data_begin, private bits
    w.put(c.channels == 1 ? 1 : 2, c.lsf ? c.channels : c.channels == 1 ? 5 : 3);
    if (!c.lsf) w.put(c.channels == 1 ? 0xA : 0x5C, 4 * c.channels);
    for (const GranuleFields *f : c.granules) write(w, *f, c.lsf);
    ASSERT_EQ(w.bits, u32(mpa_side_info_bytes(c.lsf, c.channels)) * 8);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSideInfo si{};
    const int result = mpa_read_side_info(&b, &si, c.lsf, c.channels, c.rate_index);
    ASSERT_EQ(result, c.region1.empty() ? -1 : 0);
    if (result != 0) continue;
    EXPECT_EQ(b.pos, w.bits);
    EXPECT_EQ(si.main_data_begin, 300 >> c.lsf);
    EXPECT_EQ(si.private_bits, c.channels == 1 ? 1 : 2);
    for (int k = 0; !c.lsf && k < 4 * c.channels; ++k)
      EXPECT_EQ(si.scfsi[k / 4][k % 4], ((c.channels == 1 ? 0xA : 0x5C) >> (4 * c.channels - 1 - k)) & 1) << k;
    for (size_t k = 0; k < c.granules.size(); ++k) {
      const MpaGranuleInfo &g = si.gr[k / size_t(c.channels)][k % size_t(c.channels)];
      EXPECT_EQ(fields(g, c.lsf), fields(*c.granules[k], c.lsf)) << "granule/channel " << k;
      EXPECT_EQ(g.region1_start, c.region1[k]) << k;
      EXPECT_EQ(g.region2_start, c.region2[k]) << k;
    }
  }
}

// Scale factor values derived from their position so mistakes in order show.
u8 pattern(int band, int w, int len) { return len == 0 ? 0 : u8((band * 3 + w + 1) % (1 << len)); }

int read(const std::vector<u8> &bytes, MpaScalefactors *sf, const MpaGranuleInfo &gi,
         const int scfsi[4], int granule, const MpaScalefactors &prev, int lsf,
         int intensity_right, int *preflag) {
  MpaBits b;
  mpa_bits_init(&b, bytes.data(), u32(bytes.size()));
  *sf = MpaScalefactors{};
  return mpa_read_scalefactors(&b, sf, &gi, scfsi, granule, &prev, lsf, intensity_right, preflag);
}

TEST(MpaScalefactors, MpegOneLongWithReuseShortAndMixed) {
  const int slen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
  const int slen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};
  const int scfsi[4] = {0, 1, 0, 1};  // ignored by short and mixed blocks
  MpaScalefactors prev{}, sf{};
  for (int band = 0; band < 22; ++band) prev.l[band] = u8(100 + band);
  for (int sfc = 0; sfc < 16; ++sfc)
    for (int kind = 0; kind < 3; ++kind) {  // long, short, mixed
      SCOPED_TRACE(testing::Message() << "sfc " << sfc << " kind " << kind);
      const MpaGranuleInfo gi{.scalefac_compress = sfc, .window_switching = kind != 0,
                              .block_type = kind ? 2 : 0, .mixed = kind == 2};
      BitWriter w;
      std::vector<std::pair<const u8 *, int>> expect = {{&sf.l[21], 0}, {&sf.s[12][2], 0}};
      auto put = [&](const u8 *at, int value, int len) {
        w.put(u32(value), len);
        expect.push_back({at, value});
      };
      for (int band = 0; band < (kind == 0 ? 21 : kind == 2 ? 8 : 0); ++band) {
        int g = band < 6 ? 0 : band < 11 ? 1 : band < 16 ? 2 : 3, len = g < 2 ? slen1[sfc] : slen2[sfc];
        if (kind == 0 && scfsi[g])
          expect.push_back({&sf.l[band], 100 + band});
        else
          put(&sf.l[band], pattern(band, 0, len), len);
      }
      for (int band = kind == 2 ? 3 : 0; kind && band < 12; ++band)
        for (int win = 0; win < 3; ++win) {
          int len = band < 6 ? slen1[sfc] : slen2[sfc];
          put(&sf.s[band][win], pattern(band, win, len), len);
        }
      const u32 written = w.bits;
      w.put(0, 8);
      int preflag = -1;
      EXPECT_EQ(u32(read(w.bytes, &sf, gi, scfsi, 1, prev, 0, 0, &preflag)), written);
      for (auto [at, value] : expect) EXPECT_EQ(*at, value) << at - &sf.l[0];
      int bits0 = read(w.bytes, &sf, gi, scfsi, 0, prev, 0, 0, &preflag);  // granule 0 never reuses
      EXPECT_EQ(kind ? 0 : bits0, kind ? 0 : 11 * slen1[sfc] + 10 * slen2[sfc]);
    }
}

TEST(MpaScalefactors, MpegTwoPartitions) {
  // scalefac_compress below 400: ((5 a + b) << 4) | (c << 2) | d; the
  // partitions' factor counts for long, short and mixed blocks.
  const struct {
    int sfc, intensity_right, slen[4], preflag, nr[3][4];
  } cases[] = {
      {((5 * 3 + 2) << 4) | (1 << 2) | 3, 0, {3, 2, 1, 3}, 0, {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}}},
      {500 + 3 * 2 + 1, 0, {2, 1, 0, 0}, 1, {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}},
      {2 * (36 * 4 + 6 * 2 + 5), 1, {4, 2, 5, 0}, 0, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}}},
      {2 * (244 + 3 * 1 + 2) + 1, 1, {1, 2, 0, 0}, 0, {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}},
  };
  for (const auto &c : cases)
    for (int kind = 0; kind < 3; ++kind) {  // long, short, mixed
      SCOPED_TRACE(testing::Message() << "sfc " << c.sfc << " kind " << kind);
      const MpaGranuleInfo gi{.scalefac_compress = c.sfc, .window_switching = kind != 0,
                              .block_type = kind ? 2 : 0, .mixed = kind == 2};
      BitWriter w;
      std::vector<int> vals, max;
      for (int p = 0; p < 4; ++p)
        for (int i = 0; i < c.nr[kind][p]; ++i) {
          vals.push_back(c.slen[p] ? (int(vals.size()) * 5 + 1) % (1 << c.slen[p]) : 0);
          max.push_back((1 << c.slen[p]) - 1);
          w.put(u32(vals.back()), c.slen[p]);
        }
      const u32 written = w.bits;
      w.put(0, 8);
      const int scfsi[4] = {0, 0, 0, 0};
      int preflag = -1;
      MpaScalefactors sf;
      EXPECT_EQ(u32(read(w.bytes, &sf, gi, scfsi, 0, MpaScalefactors{}, 1, c.intensity_right, &preflag)), written);
      EXPECT_EQ(preflag, c.preflag);
      size_t k = 0;
      for (int band = 0; band < (kind == 0 ? 21 : kind == 2 ? 6 : 0); ++band, ++k) {
        EXPECT_EQ(sf.l[band], k < vals.size() ? vals[k] : 0) << band;
        // The largest value of each factor's length marks no intensity position.
        EXPECT_EQ(kind == 0 ? int(sf.max_l[band]) : max[k], max[k]) << band;
      }
      for (int band = kind == 2 ? 3 : 0; kind && band < 12; ++band)
        for (int win = 0; win < 3; ++win) EXPECT_EQ(sf.s[band][win], vals[k++]) << band;
      EXPECT_EQ(k, vals.size());
    }
}

}  // namespace
