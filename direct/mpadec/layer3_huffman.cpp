// Layer III Huffman decoding: the big-value pairs in three regions with
// their own tables and escape bits, then quadruples of values 0/1 in the
// count1 region until the granule's bits end.
//
// Every code is decoded with one or two table lookups on the next bits of
// the stream. One 64-bit look-ahead covers a whole pair: a code word of at
// most 19 bits, two escapes of at most 13 bits and two sign bits.
#include "direct/mpadec/layer3_huffman.h"

namespace {

// Room for every table's lookup entries (the codes need 6842).
constexpr int kPoolEntries = 8192;
u32 g_pool[kPoolEntries];
int g_pool_used = 0;

bool g_built = false;
MpaHuffTable g_pair[32];  // by table number; 16..23 and 24..31 share entries
MpaHuffTable g_quad_a, g_quad_b;

// Width of the root index: the longest code, at most 8 bits (the longer
// codes take a second lookup).
constexpr int kMaxRootBits = 8;

u32 leaf(int length, int sym, int size) {
  u32 xy = size > 0 ? u32((sym / size) << 4 | (sym % size)) : 0;
  return kMpaHuffLeaf | u32(length) << 24 | xy << 16 | u32(sym);
}

inline u32 lookup(const MpaHuffTable *t, u64 w) {
  u32 e = t->entries[w >> (64 - t->root_bits)];
  if (e & kMpaHuffSub) {
    int bits = int((e >> 24) & 63);
    e = t->entries[(e & 0xFFFF) + ((w << t->root_bits) >> (64 - bits))];
  }
  return e;
}

inline int entry_length(u32 e) { return int((e >> 24) & 63); }

}  // namespace

bool mpa_huff_build(MpaHuffTable *t, const MpaHuffCode *codes, int n, int size) {
  int longest = 0;
  for (int i = 0; i < n; ++i) {
    if (codes[i].length == 0 || codes[i].length > 32) return false;
    if (codes[i].length > longest) longest = codes[i].length;
  }
  int root = longest < kMaxRootBits ? longest : kMaxRootBits;
  int base = g_pool_used;
  int used = 1 << root;
  if (base + used > kPoolEntries) return false;
  u32 *e = g_pool + base;
  for (int i = 0; i < used; ++i) e[i] = 0;

  // Second-level tables: for each root prefix, as wide as the longest code
  // under it requires.
  int sub_bits[1 << kMaxRootBits] = {};
  for (int i = 0; i < n; ++i) {
    int len = codes[i].length;
    if (len <= root) continue;
    u32 prefix = codes[i].code >> (len - root);
    if (len - root > sub_bits[prefix]) sub_bits[prefix] = len - root;
  }
  for (int p = 0; p < (1 << root); ++p) {
    if (sub_bits[p] == 0) continue;
    int width = 1 << sub_bits[p];
    if (base + used + width > kPoolEntries || used > 0xFFFF) return false;
    e[p] = kMpaHuffSub | u32(sub_bits[p]) << 24 | u32(used);
    for (int i = 0; i < width; ++i) e[used + i] = 0;
    used += width;
  }

  for (int sym = 0; sym < n; ++sym) {
    int len = codes[sym].length;
    u32 code = codes[sym].code;
    u32 *slot;
    int spare;  // index bits below the code word: its entries repeat
    if (len <= root) {
      slot = e + (code << (root - len));
      spare = root - len;
    } else {
      u32 head = e[code >> (len - root)];
      int bits = int((head >> 24) & 63);
      u32 tail = code & ((1u << (len - root)) - 1);
      slot = e + (head & 0xFFFF) + (tail << (bits - (len - root)));
      spare = bits - (len - root);
    }
    for (int i = 0; i < (1 << spare); ++i) {
      if (slot[i] != 0) return false;  // two codes claim the same bits
      slot[i] = leaf(len, sym, size);
    }
  }
  g_pool_used = base + used;
  t->entries = e;
  t->root_bits = root;
  return true;
}

int mpa_huff_decode(const MpaHuffTable *t, MpaBits *b) {
  u64 w = mpa_bits_peek64(b);
  u32 e = lookup(t, w);
  if (!(e & kMpaHuffLeaf)) return -1;
  int len = entry_length(e);
  if (mpa_bits_left(b) < u32(len)) return -1;
  b->pos += u32(len);
  return int(e & 0xFFFF);
}

void mpa_build_huffman_tables() {
  if (g_built) return;
  g_pool_used = 0;
  for (int n = 0; n < 32; ++n) {
    int base = n >= 24 ? 24 : n >= 16 ? 16 : n;
    const MpaPairTableDef &d = kMpaPairTables[base];
    if (d.codes == nullptr) {
      g_pair[n] = MpaHuffTable{nullptr, 0};
    } else if (base != n) {
      g_pair[n] = g_pair[base];
    } else if (!mpa_huff_build(&g_pair[n], d.codes, d.size * d.size, d.size)) {
      g_pair[n] = MpaHuffTable{nullptr, 0};
    }
  }
  mpa_huff_build(&g_quad_a, kMpaQuadA, 16, 0);
  mpa_huff_build(&g_quad_b, kMpaQuadB, 16, 0);
  g_built = true;
}

const MpaHuffTable *mpa_pair_table(int n) { return &g_pair[n & 31]; }
const MpaHuffTable *mpa_quad_table(int b) { return b ? &g_quad_b : &g_quad_a; }
int mpa_huff_pool_used() { return g_pool_used;
}

namespace {

// Applies the sign bit taken from the top of w when v is not zero.
inline s32 signed_value(s32 v, u64 *w, u32 *pos) {
  if (v == 0) return 0;
  s32 neg = s32(*w >> 63);
  *w <<= 1;
  ++*pos;
  return neg ? -v : v;
}

// Decodes the pairs of values [from, to) with one table.
void decode_pairs(MpaBits *b, int table, s32 *is, int from, int to) {
  if (table == 0) {
    for (int i = from; i < to; ++i) is[i] = 0;
    return;
  }
  const MpaHuffTable *t = &g_pair[table];
  const int linbits = kMpaLinbits[table];
  for (int i = from; i < to; i += 2) {
    u64 w = mpa_bits_peek64(b);
    u32 e = lookup(t, w);
    int len = entry_length(e);  // every pair table is a complete code
    w <<= len;
    u32 pos = b->pos + u32(len);
    s32 x = s32((e >> 20) & 15), y = s32((e >> 16) & 15);
    if (linbits != 0 && x == 15) {
      x += s32(w >> (64 - linbits));
      w <<= linbits;
      pos += u32(linbits);
    }
    x = signed_value(x, &w, &pos);
    if (linbits != 0 && y == 15) {
      y += s32(w >> (64 - linbits));
      w <<= linbits;
      pos += u32(linbits);
    }
    y = signed_value(y, &w, &pos);
    b->pos = pos;
    is[i] = x;
    is[i + 1] = y;
  }
}

}  // namespace

int mpa_huffman_granule(MpaBits *b, u32 end, const MpaGranuleInfo *gi, s32 is[576]) {
  for (int r = 0; r < 3; ++r) {
    int tn = gi->table_select[r];
    if (tn != 0 && g_pair[tn].entries == nullptr) return -1;
  }
  int big_end = 2 * gi->big_values;
  if (big_end > 576) big_end = 576;
  int r1 = gi->region1_start < big_end ? gi->region1_start : big_end;
  int r2 = gi->region2_start < big_end ? gi->region2_start : big_end;
  if (r2 < r1) r2 = r1;
  // Region boundaries fall on scale factor band edges, which are even.
  r1 = (r1 + 1) & ~1;
  r2 = (r2 + 1) & ~1;
  decode_pairs(b, gi->table_select[0], is, 0, r1);
  decode_pairs(b, gi->table_select[1], is, r1, r2);
  decode_pairs(b, gi->table_select[2], is, r2, big_end & ~1);
  int i = big_end & ~1;

  // count1 region: quadruples until the granule's bits are used up.
  const MpaHuffTable *quad = gi->count1table_select ? &g_quad_b : &g_quad_a;
  while (i + 4 <= 576 && b->pos < end) {
    u64 w = mpa_bits_peek64(b);
    u32 e = lookup(quad, w);
    int len = entry_length(e);
    if (len == 0) break;
    w <<= len;
    u32 pos = b->pos + u32(len);
    int sym = int(e & 15);
    s32 v[4] = {(sym >> 3) & 1, (sym >> 2) & 1, (sym >> 1) & 1, sym & 1};
    for (s32 &x : v) x = signed_value(x, &w, &pos);
    if (pos > end) break;  // the last quadruple ran past the end
    b->pos = pos;
    is[i] = v[0];
    is[i + 1] = v[1];
    is[i + 2] = v[2];
    is[i + 3] = v[3];
    i += 4;
  }
  int count = i;
  for (; i < 576; ++i) is[i] = 0;
  return count;
}
