// Layer III side information (per frame: main data pointer, private bits,
// scale factor selection; per granule and channel: lengths, gains, block
// type, Huffman table selection and regions) and the scale factors at the
// start of each granule's main data.
#include "direct/mpadec/layer3_sideinfo.h"

namespace {

// MPEG-1 scale factor lengths by scalefac_compress.
constexpr u8 kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr u8 kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// MPEG-2: number of scale factors in each of the four partitions, by
// scalefac_compress range (six groups) and block kind (long, short, mixed).
constexpr u8 kNrOfSfb[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},
    {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}},
    {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},
    {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}},
};

void derive_regions(MpaGranuleInfo *g, int rate_index) {
  const MpaSfbTable &t = mpa_sfb_table(rate_index);
  if (g->window_switching) {
    g->region1_start = (g->block_type == 2 && !g->mixed) ? 3 * t.short_bounds[3] : t.long_bounds[8];
    g->region2_start = kMpaGranule;
  } else {
    int r1 = g->region0_count + 1;
    int r2 = g->region0_count + g->region1_count + 2;
    g->region1_start = t.long_bounds[r1 > 22 ? 22 : r1];
    g->region2_start = t.long_bounds[r2 > 22 ? 22 : r2];
  }
  int end = 2 * g->big_values;
  if (g->region1_start > end) g->region1_start = end;
  if (g->region2_start > end) g->region2_start = end;
}

}  // namespace

int mpa_side_info_bytes(int lsf, int channels) {
  return lsf ? (channels == 1 ? 9 : 17) : (channels == 1 ? 17 : 32);
}

int mpa_read_side_info(MpaBits *b, MpaSideInfo *si, int lsf, int channels, int rate_index) {
  int granules = lsf ? 1 : 2;
  si->main_data_begin = int(mpa_bits_read(b, lsf ? 8 : 9));
  si->private_bits = int(mpa_bits_read(b, lsf ? (channels == 1 ? 1 : 2) : (channels == 1 ? 5 : 3)));
  for (int ch = 0; ch < 2; ++ch)
    for (int g = 0; g < 4; ++g) si->scfsi[ch][g] = 0;
  if (!lsf)
    for (int ch = 0; ch < channels; ++ch)
      for (int g = 0; g < 4; ++g) si->scfsi[ch][g] = int(mpa_bits_read(b, 1));
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      MpaGranuleInfo *g = &si->gr[gr][ch];
      g->part2_3_length = int(mpa_bits_read(b, 12));
      g->big_values = int(mpa_bits_read(b, 9));
      g->global_gain = int(mpa_bits_read(b, 8));
      g->scalefac_compress = int(mpa_bits_read(b, lsf ? 9 : 4));
      g->window_switching = int(mpa_bits_read(b, 1));
      if (g->window_switching) {
        g->block_type = int(mpa_bits_read(b, 2));
        g->mixed = int(mpa_bits_read(b, 1));
        g->table_select[0] = int(mpa_bits_read(b, 5));
        g->table_select[1] = int(mpa_bits_read(b, 5));
        g->table_select[2] = 0;
        for (int w = 0; w < 3; ++w) g->subblock_gain[w] = int(mpa_bits_read(b, 3));
        g->region0_count = (g->block_type == 2 && !g->mixed) ? 8 : 7;
        g->region1_count = 36;  // the rest of the granule
        if (g->block_type == 0) return -1;
      } else {
        g->block_type = 0;
        g->mixed = 0;
        for (int r = 0; r < 3; ++r) g->table_select[r] = int(mpa_bits_read(b, 5));
        for (int w = 0; w < 3; ++w) g->subblock_gain[w] = 0;
        g->region0_count = int(mpa_bits_read(b, 4));
        g->region1_count = int(mpa_bits_read(b, 3));
      }
      g->preflag = lsf ? 0 : int(mpa_bits_read(b, 1));
      g->scalefac_scale = int(mpa_bits_read(b, 1));
      g->count1table_select = int(mpa_bits_read(b, 1));
      if (g->big_values > 288) return -1;
      derive_regions(g, rate_index);
    }
  return 0;
}

int mpa_read_scalefactors(MpaBits *b, MpaScalefactors *sf, const MpaGranuleInfo *gi,
                          const int scfsi[4], int granule, const MpaScalefactors *prev, int lsf,
                          int intensity_right, int *preflag) {
  u32 start = b->pos;
  bool short_blocks = gi->window_switching && gi->block_type == 2;
  *preflag = gi->preflag;
  if (!lsf) {
    int slen1 = kSlen1[gi->scalefac_compress], slen2 = kSlen2[gi->scalefac_compress];
    if (short_blocks) {
      int first_short = 0;
      if (gi->mixed) {
        for (int band = 0; band < 8; ++band) sf->l[band] = u8(mpa_bits_read(b, slen1));
        first_short = 3;
      }
      for (int band = first_short; band < 12; ++band) {
        int len = band < 6 ? slen1 : slen2;
        for (int w = 0; w < 3; ++w) sf->s[band][w] = u8(mpa_bits_read(b, len));
      }
      for (int w = 0; w < 3; ++w) sf->s[12][w] = 0;
    } else {
      // Four groups of bands; granule 1 may take a group from granule 0.
      static constexpr int kGroup[5] = {0, 6, 11, 16, 21};
      for (int g = 0; g < 4; ++g) {
        int len = g < 2 ? slen1 : slen2;
        for (int band = kGroup[g]; band < kGroup[g + 1]; ++band)
          sf->l[band] = (granule == 1 && scfsi[g]) ? prev->l[band] : u8(mpa_bits_read(b, len));
      }
      sf->l[21] = 0;
    }
    return int(b->pos - start);
  }

  // MPEG-2: four partitions whose lengths and sizes follow from
  // scalefac_compress.
  int sfc = gi->scalefac_compress;
  int slen[4] = {0, 0, 0, 0};
  int table;
  *preflag = 0;
  if (!intensity_right) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5;
      slen[1] = (sfc >> 4) % 5;
      slen[2] = (sfc & 15) >> 2;
      slen[3] = sfc & 3;
      table = 0;
    } else if (sfc < 500) {
      sfc -= 400;
      slen[0] = (sfc >> 2) / 5;
      slen[1] = (sfc >> 2) % 5;
      slen[2] = sfc & 3;
      table = 1;
    } else {
      sfc -= 500;
      slen[0] = sfc / 3;
      slen[1] = sfc % 3;
      *preflag = 1;
      table = 2;
    }
  } else {
    sfc >>= 1;
    if (sfc < 180) {
      slen[0] = sfc / 36;
      slen[1] = (sfc % 36) / 6;
      slen[2] = (sfc % 36) % 6;
      table = 3;
    } else if (sfc < 244) {
      sfc -= 180;
      slen[0] = (sfc & 63) >> 4;
      slen[1] = (sfc & 15) >> 2;
      slen[2] = sfc & 3;
      table = 4;
    } else {
      sfc -= 244;
      slen[0] = sfc / 3;
      slen[1] = sfc % 3;
      table = 5;
    }
  }
  int kind = short_blocks ? (gi->mixed ? 2 : 1) : 0;
  // Values in coding order: long bands first, then short bands with the
  // window varying fastest.
  u8 vals[39] = {};
  u8 maxes[39] = {};
  int n = 0;
  for (int p = 0; p < 4; ++p)
    for (int i = 0; i < kNrOfSfb[table][kind][p]; ++i) {
      maxes[n] = u8((1 << slen[p]) - 1);
      vals[n++] = u8(mpa_bits_read(b, slen[p]));
    }
  int k = 0;
  if (kind == 0) {
    for (int band = 0; band < 22; ++band) {
      sf->l[band] = band < n ? vals[band] : 0;
      sf->max_l[band] = band < n ? maxes[band] : 0;
    }
  } else {
    int first_short = 0;
    if (kind == 2) {
      for (int band = 0; band < 6; ++band) {
        sf->max_l[band] = maxes[k];
        sf->l[band] = vals[k++];
      }
      first_short = 3;
    }
    for (int band = first_short; band < 13; ++band) {
      sf->max_s[band] = (band < 12 && k < n) ? maxes[k] : 0;
      for (int w = 0; w < 3; ++w) sf->s[band][w] = (band < 12 && k < n) ? vals[k++] : 0;
    }
  }
  return int(b->pos - start);
}
