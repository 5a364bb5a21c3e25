// Layer III frame decoding: side information, the bit reservoir (main data
// may begin in earlier frames), and per granule and channel the scale
// factors, Huffman values, requantisation, stereo processing, reordering,
// alias reduction and IMDCT, giving 18 subband samples per granule.
#include <cstring>

#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/layer3_sideinfo.h"
#include "direct/mpadec/mpadec.h"

namespace {

// Stereo processing of one granule. Mid/side over the whole spectrum when
// it is on; intensity stereo (long blocks) above the last non-zero value of
// the right channel, per scale factor band with the right channel's factor
// as position.
void stereo(s32 *l, s32 *r, int right_count, const MpaHeader *hd, const MpaGranuleInfo *gi,
            const MpaScalefactors *sf_right) {
  bool ms = hd->mode == 1 && (hd->mode_ext & 2);
  bool intensity = hd->mode == 1 && (hd->mode_ext & 1) && gi->block_type != 2;
  int is_start = kMpaGranule;
  const MpaSfbTable &t = mpa_sfb_table(hd->rate_index);
  int first_band = 22;
  if (intensity) {
    for (int band = 0; band < 22; ++band)
      if (t.long_bounds[band] >= right_count) {
        first_band = band;
        is_start = t.long_bounds[band];
        break;
      }
  }
  if (ms) mpa_ms_stereo(l, r, 0, is_start);
  if (!intensity) return;
  for (int band = first_band; band < 22; ++band) {
    // The last band takes the position of the one below it.
    int pos = sf_right->l[band < 21 ? band : 20];
    int from = t.long_bounds[band], to = t.long_bounds[band + 1];
    if (!hd->lsf) {
      if (pos < 7)
        mpa_intensity_mpeg1(l, r, from, to, pos);
      else if (ms)
        mpa_ms_stereo(l, r, from, to);
    } else {
      int scale = gi->scalefac_compress & 1;
      mpa_intensity_mpeg2(l, r, from, to, pos, scale);
    }
  }
}

}  // namespace

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
  s32 (*xr)[kMpaGranule] = s->xr;
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
      m.pos = end;
      MpaGain g{gi->global_gain, gi->scalefac_scale, gi->preflag, gi->block_type, gi->mixed,
                {gi->subblock_gain[0], gi->subblock_gain[1], gi->subblock_gain[2]}};
      mpa_requantize_granule(xr[ch], count[ch], &g, &sf[gr][ch], hd->rate_index, hd->lsf);
    }
    if (nch == 2) stereo(xr[0], xr[1], count[1], hd, &si.gr[gr][1], &sf[gr][1]);
    for (int ch = 0; ch < nch; ++ch) {
      const MpaGranuleInfo *gi = &si.gr[gr][ch];
      MpaGain g{gi->global_gain, gi->scalefac_scale, gi->preflag, gi->block_type, gi->mixed,
                {gi->subblock_gain[0], gi->subblock_gain[1], gi->subblock_gain[2]}};
      mpa_reorder_short(xr[ch], &g, hd->rate_index);
      if (gi->block_type != 2)
        mpa_alias_reduce(xr[ch], 32);
      else if (gi->mixed)
        mpa_alias_reduce(xr[ch], 2);
      s32 out[18][32];
      mpa_imdct_granule(xr[ch], s->overlap[ch], gi->block_type, gi->mixed, out);
      std::memcpy(s->subband.s[ch][18 * gr], out, sizeof out);
    }
  }
  return 0;
}
