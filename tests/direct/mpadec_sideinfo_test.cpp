// Layer III side information and scale factors, read back from bit
// streams written here field by field.
#include <gtest/gtest.h>

#include <vector>

#include "direct/mpadec/layer3_sideinfo.h"

#include "tests/direct/bit_writer.h"

namespace {

struct GranuleFields {
  int part23, big, gain, sfc, ws, type, mixed, t0, t1, t2, sbg0, sbg1, sbg2, r0, r1, pre, scale, c1;
};

void write_granule(BitWriter &w, const GranuleFields &f, int lsf) {
  w.put(u32(f.part23), 12);
  w.put(u32(f.big), 9);
  w.put(u32(f.gain), 8);
  w.put(u32(f.sfc), lsf ? 9 : 4);
  w.put(u32(f.ws), 1);
  if (f.ws) {
    w.put(u32(f.type), 2);
    w.put(u32(f.mixed), 1);
    w.put(u32(f.t0), 5);
    w.put(u32(f.t1), 5);
    w.put(u32(f.sbg0), 3);
    w.put(u32(f.sbg1), 3);
    w.put(u32(f.sbg2), 3);
  } else {
    w.put(u32(f.t0), 5);
    w.put(u32(f.t1), 5);
    w.put(u32(f.t2), 5);
    w.put(u32(f.r0), 4);
    w.put(u32(f.r1), 3);
  }
  if (!lsf) w.put(u32(f.pre), 1);
  w.put(u32(f.scale), 1);
  w.put(u32(f.c1), 1);
}

void expect_granule(const MpaGranuleInfo &g, const GranuleFields &f, int lsf) {
  EXPECT_EQ(g.part2_3_length, f.part23);
  EXPECT_EQ(g.big_values, f.big);
  EXPECT_EQ(g.global_gain, f.gain);
  EXPECT_EQ(g.scalefac_compress, f.sfc);
  EXPECT_EQ(g.window_switching, f.ws);
  EXPECT_EQ(g.block_type, f.ws ? f.type : 0);
  EXPECT_EQ(g.mixed, f.ws ? f.mixed : 0);
  EXPECT_EQ(g.table_select[0], f.t0);
  EXPECT_EQ(g.table_select[1], f.t1);
  EXPECT_EQ(g.table_select[2], f.ws ? 0 : f.t2);
  if (f.ws) {
    EXPECT_EQ(g.subblock_gain[0], f.sbg0);
    EXPECT_EQ(g.subblock_gain[1], f.sbg1);
    EXPECT_EQ(g.subblock_gain[2], f.sbg2);
  } else {
    EXPECT_EQ(g.region0_count, f.r0);
    EXPECT_EQ(g.region1_count, f.r1);
  }
  EXPECT_EQ(g.preflag, lsf ? 0 : f.pre);
  EXPECT_EQ(g.scalefac_scale, f.scale);
  EXPECT_EQ(g.count1table_select, f.c1);
}

const GranuleFields kLong = {1234, 200, 150, 9, 0, 0, 0, 15, 24, 7, 0, 0, 0, 5, 3, 1, 0, 1};
const GranuleFields kShort = {800, 100, 140, 3, 1, 2, 0, 13, 6, 0, 1, 2, 7, 0, 0, 0, 1, 0};
const GranuleFields kMixed = {700, 150, 160, 5, 1, 2, 1, 9, 10, 0, 4, 0, 2, 0, 0, 1, 0, 1};
const GranuleFields kStart = {4095, 288, 255, 15, 1, 1, 0, 31, 1, 0, 0, 3, 0, 0, 0, 0, 1, 1};

TEST(MpaSideInfo, MpegOneStereoReadsEveryField) {
  BitWriter w;
  w.put(300, 9);  // main_data_begin
  w.put(5, 3);    // private bits
  const int scfsi[2][4] = {{1, 0, 1, 0}, {0, 1, 1, 1}};
  for (auto &ch : scfsi)
    for (int v : ch) w.put(u32(v), 1);
  const GranuleFields *fields[2][2] = {{&kLong, &kShort}, {&kMixed, &kStart}};
  for (auto &gr : fields)
    for (const GranuleFields *f : gr) write_granule(w, *f, 0);
  ASSERT_EQ(w.bits, 32u * 8);
  ASSERT_EQ(mpa_side_info_bytes(0, 2), 32);
  MpaBits b;
  mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
  MpaSideInfo si{};
  ASSERT_EQ(mpa_read_side_info(&b, &si, 0, 2, 0), 0);
  EXPECT_EQ(b.pos, 256u);
  EXPECT_EQ(si.main_data_begin, 300);
  EXPECT_EQ(si.private_bits, 5);
  for (int ch = 0; ch < 2; ++ch)
    for (int g = 0; g < 4; ++g) EXPECT_EQ(si.scfsi[ch][g], scfsi[ch][g]);
  for (int gr = 0; gr < 2; ++gr)
    for (int ch = 0; ch < 2; ++ch) {
      SCOPED_TRACE(testing::Message() << "granule " << gr << " channel " << ch);
      expect_granule(si.gr[gr][ch], *fields[gr][ch], 0);
    }
  // Regions at 44.1 kHz: long block region0_count 5, region1_count 3 ->
  // bands 6 and 10 (24 and 52 values); short blocks start region 1 at 36.
  EXPECT_EQ(si.gr[0][0].region1_start, 24);
  EXPECT_EQ(si.gr[0][0].region2_start, 52);
  EXPECT_EQ(si.gr[0][1].region1_start, 36);
  EXPECT_EQ(si.gr[0][1].region2_start, 200);  // limited to 2 x big_values
  EXPECT_EQ(si.gr[1][0].region1_start, 36);
  EXPECT_EQ(si.gr[1][1].region1_start, 36);
  EXPECT_EQ(si.gr[1][1].region2_start, 576);
}

TEST(MpaSideInfo, MpegTwoMonoAndStereoSizes) {
  for (int channels = 1; channels <= 2; ++channels) {
    BitWriter w;
    w.put(200, 8);
    w.put(channels == 1 ? 1 : 2, channels);
    const GranuleFields lsf_long = {2000, 100, 120, 511, 0, 0, 0, 1, 2, 3, 0, 0, 0, 15, 7, 0, 1, 0};
    const GranuleFields lsf_short = {900, 50, 100, 300, 1, 2, 0, 5, 6, 0, 3, 2, 1, 0, 0, 0, 0, 1};
    write_granule(w, lsf_long, 1);
    if (channels == 2) write_granule(w, lsf_short, 1);
    ASSERT_EQ(w.bits, u32(mpa_side_info_bytes(1, channels)) * 8);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSideInfo si{};
    ASSERT_EQ(mpa_read_side_info(&b, &si, 1, channels, 3), 0);
    EXPECT_EQ(si.main_data_begin, 200);
    expect_granule(si.gr[0][0], lsf_long, 1);
    // 22.05 kHz: region0_count 15, region1_count 7 -> bands 16 and 22 (capped).
    EXPECT_EQ(si.gr[0][0].region1_start, 200);
    if (channels == 2) {
      expect_granule(si.gr[0][1], lsf_short, 1);
      EXPECT_EQ(si.gr[0][1].region1_start, 36);
    }
  }
}

TEST(MpaSideInfo, RejectsInconsistentGranules) {
  GranuleFields bad_type = kShort;
  bad_type.type = 0;  // a window switch needs a block type
  GranuleFields too_big = kLong;
  too_big.big = 289;
  for (const GranuleFields *f : {&bad_type, &too_big}) {
    BitWriter w;
    w.put(0, 9);
    w.put(0, 5);
    w.put(0, 4);
    write_granule(w, *f, 0);
    write_granule(w, kLong, 0);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaSideInfo si{};
    EXPECT_EQ(mpa_read_side_info(&b, &si, 0, 1, 0), -1);
  }
}

// Scale factors written with the given lengths; value i of a band is
// derived from the band so mistakes in order show.
u8 pattern(int band, int w, int len) { return len == 0 ? 0 : u8((band * 3 + w + 1) % (1 << len)); }

TEST(MpaScalefactors, MpegOneLongBlocksWithReuse) {
  const int slen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
  const int slen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};
  for (int sfc = 0; sfc < 16; ++sfc) {
    MpaGranuleInfo gi{};
    gi.scalefac_compress = sfc;
    MpaScalefactors prev{};
    for (int band = 0; band < 22; ++band) prev.l[band] = u8(100 + band);
    const int scfsi[4] = {0, 1, 0, 1};
    BitWriter w;
    int expect_bits = 0;
    const int groups[5] = {0, 6, 11, 16, 21};
    for (int g = 0; g < 4; ++g) {
      if (scfsi[g]) continue;
      int len = g < 2 ? slen1[sfc] : slen2[sfc];
      for (int band = groups[g]; band < groups[g + 1]; ++band) {
        w.put(pattern(band, 0, len), len);
        expect_bits += len;
      }
    }
    w.put(0, 8);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaScalefactors sf{};
    int preflag = -1;
    EXPECT_EQ(mpa_read_scalefactors(&b, &sf, &gi, scfsi, 1, &prev, 0, 0, &preflag), expect_bits);
    for (int g = 0; g < 4; ++g) {
      int len = g < 2 ? slen1[sfc] : slen2[sfc];
      for (int band = groups[g]; band < groups[g + 1]; ++band)
        EXPECT_EQ(sf.l[band], scfsi[g] ? 100 + band : pattern(band, 0, len)) << sfc << " " << band;
    }
    EXPECT_EQ(sf.l[21], 0);
    // Granule 0 never reuses.
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    int bits0 = mpa_read_scalefactors(&b, &sf, &gi, scfsi, 0, &prev, 0, 0, &preflag);
    EXPECT_EQ(bits0, 11 * slen1[sfc] + 10 * slen2[sfc]);
  }
}

TEST(MpaScalefactors, MpegOneShortAndMixedBlocks) {
  for (int mixed = 0; mixed <= 1; ++mixed) {
    MpaGranuleInfo gi{};
    gi.window_switching = 1;
    gi.block_type = 2;
    gi.mixed = mixed;
    gi.scalefac_compress = 14;  // slen 4 and 2
    BitWriter w;
    if (mixed)
      for (int band = 0; band < 8; ++band) w.put(pattern(band, 0, 4), 4);
    for (int band = mixed ? 3 : 0; band < 12; ++band)
      for (int win = 0; win < 3; ++win) w.put(pattern(band, win, band < 6 ? 4 : 2), band < 6 ? 4 : 2);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    MpaScalefactors sf{};
    int preflag = 0;
    const int no_scfsi[4] = {1, 1, 1, 1};  // ignored for short blocks
    int bits = mpa_read_scalefactors(&b, &sf, &gi, no_scfsi, 1, &sf, 0, 0, &preflag);
    EXPECT_EQ(u32(bits), w.bits);
    if (mixed) {
      for (int band = 0; band < 8; ++band) EXPECT_EQ(sf.l[band], pattern(band, 0, 4));
    }
    for (int band = mixed ? 3 : 0; band < 12; ++band)
      for (int win = 0; win < 3; ++win)
        EXPECT_EQ(sf.s[band][win], pattern(band, win, band < 6 ? 4 : 2)) << band << " " << win;
    for (int win = 0; win < 3; ++win) EXPECT_EQ(sf.s[12][win], 0);
  }
}

struct LsfCase {
  int sfc, intensity_right, slen[4], table, preflag;
};

TEST(MpaScalefactors, MpegTwoPartitions) {
  const int nr[6][3][4] = {
      {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
      {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
      {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},   {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}},
  };
  const LsfCase cases[] = {
      // sfc = ((5 a + b) << 4) | (c << 2) | d below 400
      {((5 * 3 + 2) << 4) | (1 << 2) | 3, 0, {3, 2, 1, 3}, 0, 0},
      {400 + (((5 * 4 + 1) << 2) | 2), 0, {4, 1, 2, 0}, 1, 0},
      {500 + 3 * 2 + 1, 0, {2, 1, 0, 0}, 2, 1},
      {2 * (36 * 4 + 6 * 2 + 5), 1, {4, 2, 5, 0}, 3, 0},
      {2 * (180 + (2 << 4) + (3 << 2) + 1), 1, {2, 3, 1, 0}, 4, 0},
      {2 * (244 + 3 * 1 + 2) + 1, 1, {1, 2, 0, 0}, 5, 0},
  };
  for (const LsfCase &c : cases) {
    for (int kind = 0; kind < 3; ++kind) {
      SCOPED_TRACE(testing::Message() << "sfc " << c.sfc << " kind " << kind);
      MpaGranuleInfo gi{};
      gi.scalefac_compress = c.sfc;
      gi.window_switching = kind != 0;
      gi.block_type = kind != 0 ? 2 : 0;
      gi.mixed = kind == 2;
      BitWriter w;
      std::vector<int> vals;
      for (int p = 0; p < 4; ++p)
        for (int i = 0; i < nr[c.table][kind][p]; ++i) {
          int v = c.slen[p] ? (int(vals.size()) * 5 + 1) % (1 << c.slen[p]) : 0;
          vals.push_back(v);
          w.put(u32(v), c.slen[p]);
        }
      const u32 written = w.bits;
      w.put(0, 8);
      MpaBits b;
      mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
      MpaScalefactors sf{};
      int preflag = -1;
      const int scfsi[4] = {0, 0, 0, 0};
      int bits = mpa_read_scalefactors(&b, &sf, &gi, scfsi, 0, &sf, 1, c.intensity_right, &preflag);
      EXPECT_EQ(u32(bits), written);
      EXPECT_EQ(preflag, c.preflag);
      size_t k = 0;
      if (kind == 0) {
        for (int band = 0; band < 21; ++band)
          EXPECT_EQ(sf.l[band], band < int(vals.size()) ? vals[size_t(band)] : 0) << band;
        // The largest value of each factor's length marks no intensity position.
        int band = 0;
        for (int p = 0; p < 4; ++p)
          for (int i = 0; i < nr[c.table][kind][p]; ++i, ++band)
            EXPECT_EQ(sf.max_l[band], (1 << c.slen[p]) - 1) << band;
      } else {
        if (kind == 2) {
          for (int band = 0; band < 6; ++band) EXPECT_EQ(sf.l[band], vals[k++]) << band;
        }
        for (int band = kind == 2 ? 3 : 0; band < 12; ++band)
          for (int win = 0; win < 3; ++win) EXPECT_EQ(sf.s[band][win], vals[k++]) << band;
        EXPECT_EQ(k, vals.size());
      }
    }
  }
}

}  // namespace
