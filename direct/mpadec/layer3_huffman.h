// Layer III Huffman decoding of one granule's spectral values.
#pragma once
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/layer3_huffman_tables.h"
#include "direct/mpadec/layer3_sideinfo.h"

// A code table turned into lookup tables: the next root_bits bits of the
// stream index the root; an entry there is either a whole code word (its
// length and symbol) or the place of a second-level table indexed by the
// bits after the root's, as many as the longest code word under that
// prefix needs. Entries live in one process-wide pool.
struct MpaHuffTable {
  const u32 *entries;  // root, then the second-level tables; null: no table
  int root_bits;
};

// Entry layout: bit 30 marks a code word with its length in bits 24..29,
// x << 4 | y (pair tables) in bits 16..23 and the symbol index in bits
// 0..15; bit 31 marks a second-level table with its index width in bits
// 24..29 and its offset from the root in bits 0..15; 0 is no code.
constexpr u32 kMpaHuffLeaf = 1u << 30;
constexpr u32 kMpaHuffSub = 1u << 31;

// Builds the lookup tables of n code words (symbol i has codes[i]) into the
// pool; `size` is the pair table's values per dimension (0 for the
// quadruple tables). False when the codes are not prefix-free or the pool
// is full.
bool mpa_huff_build(MpaHuffTable *t, const MpaHuffCode *codes, int n, int size);
// Decodes one symbol; -1 on a code not in the table.
int mpa_huff_decode(const MpaHuffTable *t, MpaBits *b);

// Builds the process-wide tables (first open), and read-only views of them:
// pair table n (entries null for 0, 4 and 14), quadruple table A (0) or B
// (1), and the pool entries in use.
void mpa_build_huffman_tables();
const MpaHuffTable *mpa_pair_table(int n);
const MpaHuffTable *mpa_quad_table(int b);
int mpa_huff_pool_used();

// Decodes one granule's values into is[576] (signed integers, escape bits
// and signs applied) from the reader positioned after the scale factors;
// `end` is the bit position where the granule's part2_3_length ends.
// Returns the number of values up to the last decoded one (the rest are
// zero), or -1 when the granule selects a table that is not present.
int mpa_huffman_granule(MpaBits *b, u32 end, const MpaGranuleInfo *gi, s32 is[576]);
