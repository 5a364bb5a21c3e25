// Layer III Huffman decoding of one granule's spectral values.
#pragma once
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/layer3_huffman_tables.h"
#include "direct/mpadec/layer3_sideinfo.h"

// A decoding tree built from a code table: node i's children are
// nodes[2i] and nodes[2i + 1]; a negative entry -1 - symbol is a leaf.
struct MpaHuffTree {
  s16 nodes[2 * 512];
  int count;  // nodes in use
};

// Builds a tree from n code words (symbol i has codes[i]). False when the
// codes are not prefix-free or do not fit.
bool mpa_huff_build(MpaHuffTree *t, const MpaHuffCode *codes, int n);
// Decodes one symbol; -1 on a code not in the table or past the end.
int mpa_huff_decode(const MpaHuffTree *t, MpaBits *b);

// Builds the process-wide trees of the present tables (first open).
void mpa_build_huffman_tables();

// Decodes one granule's values into is[576] (signed integers, escape bits
// and signs applied) from the reader positioned after the scale factors;
// `end` is the bit position where the granule's part2_3_length ends.
// Returns the number of values up to the last decoded one (the rest are
// zero), or -1 when the granule selects a table that is not present.
int mpa_huffman_granule(MpaBits *b, u32 end, const MpaGranuleInfo *gi, s32 is[576]);
