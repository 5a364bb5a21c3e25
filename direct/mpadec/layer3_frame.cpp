// Layer III frame decoding: side information, the bit reservoir (main data
// may begin in earlier frames), and per granule and channel the scale
// factors, Huffman values, requantisation, stereo processing, reordering,
// alias reduction and IMDCT, giving 18 subband samples per granule.
#include <cstring>

#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/layer3_sideinfo.h"
#include "direct/mpadec/mpadec.h"

namespace {

// Intensity or, when the band's factor is no position (7 in MPEG-1, the
// largest value of its length in MPEG-2), mid/side processing of values
// [from, to).
void joint_band(s32 *l, s32 *r, int from, int to, int pos, int illegal, bool ms,
                const MpaHeader *hd, const MpaGranuleInfo *gi) {
  if (pos == illegal) {
    if (ms) mpa_ms_stereo(l, r, from, to);
  } else if (!hd->lsf) {
    mpa_intensity_mpeg1(l, r, from, to, pos);
  } else {
    mpa_intensity_mpeg2(l, r, from, to, pos, gi->scalefac_compress & 1);
  }
}

// Whether r holds a non-zero value in [from, to).
bool any_nonzero(const s32 *r, int from, int to) {
  for (int i = from; i < to; ++i)
    if (r[i] != 0) return true;
  return false;
}

// Stereo processing of one granule, before short blocks are reordered.
// Mid/side where intensity stereo does not apply; intensity stereo in the
// scale factor bands above the last one holding a non-zero value of the
// right channel (for short blocks per window), with the right channel's
// scale factor as the position. The last band takes the position of the
// one below it.
}  // namespace

void mpa_joint_stereo(s32 *l, s32 *r, int right_count, const MpaHeader *hd, const MpaGranuleInfo *gi,
                      const MpaScalefactors *sf_right) {
  bool ms = hd->mode == 1 && (hd->mode_ext & 2);
  bool intensity = hd->mode == 1 && (hd->mode_ext & 1);
  const MpaSfbTable &t = mpa_sfb_table(hd->rate_index);
  if (!intensity) {
    if (ms) mpa_ms_stereo(l, r, 0, kMpaGranule);
    return;
  }
  if (gi->block_type != 2) {
    int first_band = 22;
    for (int band = 0; band < 22; ++band)
      if (t.long_bounds[band] >= right_count) {
        first_band = band;
        break;
      }
    if (ms) mpa_ms_stereo(l, r, 0, t.long_bounds[first_band]);
    for (int band = first_band; band < 22; ++band) {
      int from_band = band < 21 ? band : 20;
      joint_band(l, r, t.long_bounds[band], t.long_bounds[band + 1], sf_right->l[from_band],
                 hd->lsf ? sf_right->max_l[from_band] : 7, ms, hd, gi);
    }
    return;
  }
  // Short blocks (the short part of a mixed block): values in band, window,
  // frequency order from 3 x the first short band's start.
  int first_short = gi->mixed ? 3 : 0;
  bool short_silent = true;
  for (int w = 0; w < 3; ++w) {
    int last = -1;  // last band of this window with a non-zero right value
    for (int band = first_short; band < 13; ++band) {
      int width = t.short_bounds[band + 1] - t.short_bounds[band];
      int from = 3 * t.short_bounds[band] + w * width;
      if (any_nonzero(r, from, from + width)) last = band;
    }
    if (last >= 0) short_silent = false;
    for (int band = first_short; band < 13; ++band) {
      int width = t.short_bounds[band + 1] - t.short_bounds[band];
      int from = 3 * t.short_bounds[band] + w * width;
      if (band <= last) {
        if (ms) mpa_ms_stereo(l, r, from, from + width);
      } else {
        int from_band = band < 12 ? band : 11;
        joint_band(l, r, from, from + width, sf_right->s[from_band][w],
                   hd->lsf ? sf_right->max_s[from_band] : 7, ms, hd, gi);
      }
    }
  }
  if (gi->mixed) {
    // The long bands below the short part: intensity only above the right
    // channel's last non-zero value, and only when the short part is silent.
    for (int band = 0; t.long_bounds[band] < 36; ++band) {
      int from = t.long_bounds[band], to = t.long_bounds[band + 1] < 36 ? t.long_bounds[band + 1] : 36;
      if (short_silent && from >= right_count)
        joint_band(l, r, from, to, sf_right->l[band], hd->lsf ? sf_right->max_l[band] : 7, ms, hd, gi);
      else if (ms)
        mpa_ms_stereo(l, r, from, to);
    }
  }
}

int mpa_decode_layer3(MpaState *s, const MpaHeader *hd, const u8 *frame) {
  int nch = hd->channels;
  int side_bytes = mpa_side_info_bytes(hd->lsf, nch);
  int head = 4 + (hd->crc ? 2 : 0);
  if (hd->frame_size < head + side_bytes) return -1;
  MpaBits b;
  mpa_bits_init(&b, frame + head, u32(side_bytes));
  MpaSideInfo si;
  if (mpa_read_side_info(&b, &si, hd->lsf, nch, hd->rate_index) < 0) return -1;

  // Main data: the last main_data_begin bytes of the reservoir, then this
  // frame's bytes after the side information.
  const u8 *main = frame + head + side_bytes;
  u32 main_len = u32(hd->frame_size - head - side_bytes);
  u32 back = u32(si.main_data_begin);
  bool available = back <= s->reservoir_len;
  if (s->reservoir_len > back) {
    std::memmove(s->reservoir, s->reservoir + s->reservoir_len - back, back);
    s->reservoir_len = back;
  }
  if (s->reservoir_len + main_len > kMpaReservoirBytes) return -1;
  std::memcpy(s->reservoir + s->reservoir_len, main, main_len);
  u32 total = s->reservoir_len + main_len;
  s->reservoir_len = total;
  if (!available) {
    std::memset(&s->subband, 0, sizeof s->subband);
    return 1;
  }

  MpaBits m;
  mpa_bits_init(&m, s->reservoir, total);
  int granules = hd->lsf ? 1 : 2;
  MpaScalefactors sf[2][2];
  std::memset(sf, 0, sizeof sf);
  s32 xr[2][kMpaGranule];
  for (int gr = 0; gr < granules; ++gr) {
    int count[2] = {0, 0};
    for (int ch = 0; ch < nch; ++ch) {
      MpaGranuleInfo *gi = &si.gr[gr][ch];
      u32 start = m.pos;
      u32 end = start + u32(gi->part2_3_length);
      int intensity_right = hd->lsf && ch == 1 && hd->mode == 1 && (hd->mode_ext & 1);
      int preflag = 0;
      mpa_read_scalefactors(&m, &sf[gr][ch], gi, si.scfsi[ch], gr, &sf[0][ch], hd->lsf,
                            intensity_right, &preflag);
      gi->preflag = preflag;
      count[ch] = mpa_huffman_granule(&m, end, gi, xr[ch]);
      if (count[ch] < 0) return -1;
      // Coded zeros at the end (zero pairs or quadruples) do not move the
      // intensity stereo bound: it lies above the last non-zero value.
      while (count[ch] > 0 && xr[ch][count[ch] - 1] == 0) --count[ch];
      m.pos = end;
      MpaGain g{gi->global_gain, gi->scalefac_scale, gi->preflag, gi->block_type, gi->mixed,
                {gi->subblock_gain[0], gi->subblock_gain[1], gi->subblock_gain[2]}};
      // Intensity stereo finds the short blocks' bounds from the right
      // channel's non-zero values: one too small for Q28 still counts.
      const bool steered = ch == 1 && hd->mode == 1 && (hd->mode_ext & 1) && gi->block_type == 2;
      u32 coded[kMpaGranule / 32] = {}, negative[kMpaGranule / 32] = {};
      if (steered)
        for (int i = 0; i < count[ch]; ++i) {
          if (xr[ch][i] != 0) coded[i >> 5] |= 1u << (i & 31);
          if (xr[ch][i] < 0) negative[i >> 5] |= 1u << (i & 31);
        }
      mpa_requantize_granule(xr[ch], count[ch], &g, &sf[gr][ch], hd->rate_index, hd->lsf,
                             2 * gi->big_values);
      if (steered)
        for (int i = 0; i < count[ch]; ++i)
          if (xr[ch][i] == 0 && (coded[i >> 5] >> (i & 31)) & 1)
            xr[ch][i] = (negative[i >> 5] >> (i & 31)) & 1 ? -1 : 1;
    }
    if (nch == 2) mpa_joint_stereo(xr[0], xr[1], count[1], hd, &si.gr[gr][1], &sf[gr][1]);
    for (int ch = 0; ch < nch; ++ch) {
      const MpaGranuleInfo *gi = &si.gr[gr][ch];
      MpaGain g{gi->global_gain, gi->scalefac_scale, gi->preflag, gi->block_type, gi->mixed,
                {gi->subblock_gain[0], gi->subblock_gain[1], gi->subblock_gain[2]}};
      mpa_reorder_short(xr[ch], &g, hd->rate_index);
      if (gi->block_type != 2)
        mpa_alias_reduce(xr[ch], 32);
      else if (gi->mixed)
        mpa_alias_reduce(xr[ch], 2);
      mpa_imdct_granule(xr[ch], s->overlap[ch], gi->block_type, gi->mixed, &s->subband.s[ch][18 * gr]);
    }
  }
  return 0;
}
