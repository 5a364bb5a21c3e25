// Layer III side information and scale factors.
#pragma once
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/layer3.h"

struct MpaGranuleInfo {
  int part2_3_length;     // bits of scale factors and Huffman data
  int big_values;         // pairs coded with the big-value tables
  int global_gain;
  int scalefac_compress;  // 4 bits (MPEG-1) or 9 bits (MPEG-2)
  int window_switching;
  int block_type;
  int mixed;
  int table_select[3];
  int subblock_gain[3];
  int region0_count, region1_count;
  int preflag;            // MPEG-2: derived from scalefac_compress
  int scalefac_scale;
  int count1table_select;
  // Derived: where the second and third big-value regions start, in values.
  int region1_start, region2_start;
};

struct MpaSideInfo {
  int main_data_begin;    // bytes back into earlier frames' main data
  int private_bits;
  int scfsi[2][4];        // MPEG-1: granule 1 reuses granule 0's scale factor groups
  MpaGranuleInfo gr[2][2];
};

// Side information size in bytes.
int mpa_side_info_bytes(int lsf, int channels);

// Reads the side information following the header (and check word). 0, or
// -1 when it is inconsistent (big_values beyond the granule, a window
// switch with block type 0).
int mpa_read_side_info(MpaBits *b, MpaSideInfo *si, int lsf, int channels, int rate_index);

// Reads one channel's scale factors of one granule; `prev` holds granule
// 0's factors for the MPEG-1 reuse (scfsi). `intensity_right` marks the
// right channel of an MPEG-2 intensity-stereo frame, whose factors are
// coded differently; `preflag` receives MPEG-2's derived flag. Returns the
// bits read (part 2 of part2_3_length).
int mpa_read_scalefactors(MpaBits *b, MpaScalefactors *sf, const MpaGranuleInfo *gi,
                          const int scfsi[4], int granule, const MpaScalefactors *prev, int lsf,
                          int intensity_right, int *preflag);

struct MpaHeader;
// Joint stereo processing of one granule (before short blocks are
// reordered): mid/side where intensity stereo does not apply, intensity
// stereo above the last scale factor band with a non-zero right value
// (per window for short blocks); right_count is the number of right-channel
// values up to its last decoded one.
void mpa_joint_stereo(s32 *l, s32 *r, int right_count, const MpaHeader *hd, const MpaGranuleInfo *gi,
                      const MpaScalefactors *sf_right);
