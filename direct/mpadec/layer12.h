// Layers I and II: bit allocation, scale factors and requantisation of the
// 32 subband samples, up to the input of the polyphase synthesis.
#pragma once
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/mpadec.h"

// Quantisation class of layer II: levels, grouping (three samples in one
// code word) and bits per code word or sample.
struct MpaQuantClass {
  u16 levels;
  u8 grouped;
  u8 bits;
};
extern const MpaQuantClass kMpaQuantClasses[17];

// Scale factor index 0..62 as a Q28 value, 2^(1 - index/3); 63 is not a
// valid index and gives 0.
s32 mpa_scalefactor(int index);

// (2v - levels + 1) / levels x scale factor: the requantised value of a
// code v of a quantiser with the given number of levels, Q28.
s32 mpa_requantize_12(int v, int levels, s32 scalefactor);

// Layer II: the allocation table chosen for a frame, by sample rate, bit
// rate per channel and version; its subband limit.
int mpa_layer2_table(const MpaHeader *hd);
int mpa_layer2_sblimit(int table);

// Decode one frame's audio data from the reader positioned after the header
// and check word. 0, or -1 for a forbidden allocation.
int mpa_decode_layer1(MpaBits *b, const MpaHeader *hd, MpaSubbandFrame *out);
int mpa_decode_layer2(MpaBits *b, const MpaHeader *hd, MpaSubbandFrame *out);
