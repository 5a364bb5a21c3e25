// Layer III stages after the Huffman decoding: requantisation, stereo
// processing, alias reduction and the hybrid filter bank's IMDCT. Each
// works on one granule (576 spectral values per channel, 18 per subband).
#pragma once
#include "direct/mpadec/fixed.h"
#include "platform/mai_types.h"

constexpr int kMpaGranule = 576;

// Scale factor band boundaries of one sampling frequency: long blocks (22
// bands, 23 boundaries) and short blocks (13 bands per window, 14
// boundaries, in values of one window).
struct MpaSfbTable {
  u16 long_bounds[23];
  u16 short_bounds[14];
};
// By rate index 0..8 (44.1, 48, 32, 22.05, 24, 16, 11.025, 12, 8 kHz).
const MpaSfbTable &mpa_sfb_table(int rate_index);
// The pre-emphasis added to long-block scale factors when preflag is set.
extern const u8 kMpaPretab[22];

// Builds the process-wide derived tables (power law, IMDCT cosines and
// windows); cheap to call again.
void mpa_build_layer3_tables();

// |n|^(4/3) x 2^(quarter/4) with n's sign, as a Q28 value; n is a Huffman
// magnitude with its escape bits (0..8206), quarter any exponent in
// quarter steps. Results beyond the Q28 range saturate.
mpa_fixed mpa_requantize_value(int n, int quarter);

// Per-granule gains of one channel, in the side information's terms.
struct MpaGain {
  int global_gain;
  int scalefac_scale;   // 0: scale factors in steps of 2^(1/2), 1: of 2
  int preflag;
  int block_type;       // 0 normal, 1 start, 2 short, 3 stop
  int mixed;            // short blocks above the two lowest subbands only
  int subblock_gain[3];
};
// Scale factors of one channel and granule: long bands, then short bands
// by [band][window].
struct MpaScalefactors {
  u8 l[22];
  u8 s[13][3];
  // MPEG-2 intensity stereo: the largest value each factor of the right
  // channel could take (2^slen - 1); that value marks no position.
  u8 max_l[22];
  u8 max_s[13];
};
// Requantises `count` Huffman values (the rest of the granule is zero) in
// place: is[] holds signed magnitudes on entry and Q28 values on exit.
// Values from `big_end` on come from the count1 region and are -1, 0 or 1.
void mpa_requantize_granule(s32 xr[kMpaGranule], int count, const MpaGain *g,
                            const MpaScalefactors *sf, int rate_index, int lsf,
                            int big_end = kMpaGranule);

// Reorders the short-block part of a granule from band/window/frequency
// order into subband order (window-interleaved, 18 values per subband).
void mpa_reorder_short(s32 xr[kMpaGranule], const MpaGain *g, int rate_index);

// Mid/side stereo over values [from, to): L = (M + S)/sqrt 2, R = (M - S)/sqrt 2.
void mpa_ms_stereo(s32 *l, s32 *r, int from, int to);
// Intensity stereo of one band of values [from, to) taken from the left
// channel. MPEG-1: position 0..6, ratio tan(pos x pi/12). MPEG-2: the
// position and the intensity scale (0: steps of 2^(-1/4), 1: of 2^(-1/2)).
void mpa_intensity_mpeg1(s32 *l, s32 *r, int from, int to, int pos);
void mpa_intensity_mpeg2(s32 *l, s32 *r, int from, int to, int pos, int scale);

// Alias reduction butterflies between neighbouring subbands of long blocks;
// `subbands` is the number of long-block subbands (32, or 2 when mixed).
void mpa_alias_reduce(s32 xr[kMpaGranule], int subbands);

// IMDCT, windowing and overlap-add of one granule of one channel:
// xr in subband order, overlap[32][18] the previous granule's tail (updated),
// out[18][32] time samples per subband for the polyphase synthesis, with
// the odd subbands' odd samples inverted.
void mpa_imdct_granule(const s32 xr[kMpaGranule], s32 overlap[32][18], int block_type, int mixed,
                       s32 out[18][32]);
