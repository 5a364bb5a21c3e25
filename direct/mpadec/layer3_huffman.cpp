// Layer III Huffman decoding: the big-value pairs in three regions with
// their own tables and escape bits, then quadruples of values 0/1 in the
// count1 region until the granule's bits end.
#include "direct/mpadec/layer3_huffman.h"

namespace {

bool g_built = false;
MpaHuffTree g_pair_trees[32];
bool g_pair_present[32];
MpaHuffTree g_quad_a, g_quad_b;

}  // namespace

bool mpa_huff_build(MpaHuffTree *t, const MpaHuffCode *codes, int n) {
  t->count = 2;  // the root's two children
  t->nodes[0] = t->nodes[1] = 0;
  const int cap = int(sizeof t->nodes / sizeof t->nodes[0]);
  for (int sym = 0; sym < n; ++sym) {
    int node = 0;  // index of the child pair of the current inner node
    for (int bit = codes[sym].length - 1; bit >= 0; --bit) {
      int slot = node + ((codes[sym].code >> bit) & 1);
      if (bit == 0) {
        if (t->nodes[slot] != 0) return false;
        t->nodes[slot] = s16(-1 - sym);
      } else {
        if (t->nodes[slot] < 0) return false;  // a shorter code is a prefix
        if (t->nodes[slot] == 0) {
          if (t->count + 2 > cap) return false;
          t->nodes[slot] = s16(t->count);
          t->nodes[t->count] = t->nodes[t->count + 1] = 0;
          t->count += 2;
        }
        node = t->nodes[slot];
      }
    }
  }
  return true;
}

int mpa_huff_decode(const MpaHuffTree *t, MpaBits *b) {
  int node = 0;
  for (int depth = 0; depth < 20; ++depth) {
    if (mpa_bits_left(b) == 0) return -1;
    s16 next = t->nodes[node + int(mpa_bits_read(b, 1))];
    if (next < 0) return -1 - next;
    if (next == 0) return -1;
    node = next;
  }
  return -1;
}

void mpa_build_huffman_tables() {
  if (g_built) return;
  for (int n = 0; n < 32; ++n) {
    int base = n >= 24 ? 24 : n >= 16 ? 16 : n;
    const MpaPairTableDef &d = kMpaPairTables[base];
    g_pair_present[n] = d.codes != nullptr && mpa_huff_build(&g_pair_trees[n], d.codes, d.size * d.size);
  }
  g_pair_present[0] = true;  // table 0 codes nothing: all values zero
  mpa_huff_build(&g_quad_a, kMpaQuadA, 16);
  mpa_huff_build(&g_quad_b, kMpaQuadB, 16);
  g_built = true;
}

namespace {

s32 read_sign(MpaBits *b, s32 v) { return (v != 0 && mpa_bits_read(b, 1)) ? -v : v; }

}  // namespace

int mpa_huffman_granule(MpaBits *b, u32 end, const MpaGranuleInfo *gi, s32 is[576]) {
  for (int r = 0; r < 3; ++r)
    if (!g_pair_present[gi->table_select[r]]) return -1;
  int i = 0;
  int big_end = 2 * gi->big_values;
  for (; i < big_end; i += 2) {
    int tn = gi->table_select[i < gi->region1_start ? 0 : i < gi->region2_start ? 1 : 2];
    if (tn == 0) {
      is[i] = is[i + 1] = 0;
      continue;
    }
    int base = tn >= 24 ? 24 : tn >= 16 ? 16 : tn;
    int size = kMpaPairTables[base].size;
    int sym = mpa_huff_decode(&g_pair_trees[tn], b);
    if (sym < 0) sym = 0;
    s32 x = sym / size, y = sym % size;
    int linbits = kMpaLinbits[tn];
    if (linbits && x == 15) x += s32(mpa_bits_read(b, linbits));
    x = read_sign(b, x);
    if (linbits && y == 15) y += s32(mpa_bits_read(b, linbits));
    y = read_sign(b, y);
    is[i] = x;
    is[i + 1] = y;
  }
  // count1 region: quadruples until the granule's bits are used up.
  const MpaHuffTree *quad = gi->count1table_select ? &g_quad_b : &g_quad_a;
  while (i + 4 <= 576 && b->pos < end) {
    u32 at = b->pos;
    int sym = mpa_huff_decode(quad, b);
    s32 v[4] = {(sym >> 3) & 1, (sym >> 2) & 1, (sym >> 1) & 1, sym & 1};
    for (s32 &x : v) x = read_sign(b, x);
    if (sym < 0 || b->pos > end) {  // the last quadruple ran past the end
      b->pos = at;
      break;
    }
    for (int k = 0; k < 4; ++k) is[i + k] = v[k];
    i += 4;
  }
  int count = i;
  for (; i < 576; ++i) is[i] = 0;
  return count;
}
