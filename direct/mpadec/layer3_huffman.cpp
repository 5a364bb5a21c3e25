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
// A quadruple's values with their signs: indexed by the symbol (bits v w x
// y) and the four stream bits after its code word, the values plus one in
// two bits each (v lowest) and, in bits 8..10, the number of sign bits
// taken (one per non-zero value, in order).
u16 g_quad_signed[16 * 16];

// Width of the root index: the longest code, at most 8 bits (the longer
// codes take a second lookup).
constexpr int kMaxRootBits = 8;

u32 leaf(int length, int sym, int size) {
  u32 xy = size > 0 ? u32((sym / size) << 4 | (sym % size)) : 0;
  return kMpaHuffLeaf | u32(length) << 24 | xy << 16 | u32(sym);
}

inline u32 lookup(const u32 *entries, int root_bits, u64 w) {
  u32 e = entries[w >> (64 - root_bits)];
  if (e & kMpaHuffSub) {
    int bits = int((e >> 24) & 63);
    e = entries[(e & 0xFFFF) + ((w << root_bits) >> (64 - bits))];
  }
  return e;
}
inline u32 lookup(const MpaHuffTable *t, u64 w) { return lookup(t->entries, t->root_bits, w); }

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
  for (int sym = 0; sym < 16; ++sym)
    for (int bits = 0; bits < 16; ++bits) {
      int taken = 0, packed = 0;
      for (int k = 0; k < 4; ++k) {
        int v = (sym >> (3 - k)) & 1;
        if (v != 0 && ((bits >> (3 - taken++)) & 1)) v = -1;
        packed |= (v + 1) << (2 * k);
      }
      g_quad_signed[16 * sym + bits] = u16(packed | taken << 8);
    }
  g_built = true;
}

const MpaHuffTable *mpa_pair_table(int n) { return &g_pair[n & 31]; }
const MpaHuffTable *mpa_quad_table(int b) { return b ? &g_quad_b : &g_quad_a; }
int mpa_huff_pool_used() { return g_pool_used;
}

namespace {

// The stream's next bits for a run of code words: 64 bits loaded at `base`,
// the first `used` of them consumed (and shifted out of w). A load holds at
// least 57 usable bits.
struct Cache {
  u64 w;
  u32 base;
  int used;
};
constexpr int kCacheBits = 57;

inline void cache_load(Cache *c, MpaBits *b, u32 pos) {
  b->pos = pos;
  c->w = mpa_bits_peek64(b);
  c->base = pos;
  c->used = 0;
}
inline void cache_skip(Cache *c, int n) {
  c->w <<= n;
  c->used += n;
}
inline u32 cache_pos(const Cache *c) { return c->base + u32(c->used); }

// Applies the next sign bit to v when v is not zero.
inline s32 take_sign(s32 v, Cache *c) {
  if (v == 0) return 0;
  const s32 negative = s32(c->w >> 63);
  cache_skip(c, 1);
  return negative ? -v : v;
}

// Decodes the pairs of values [from, to) with one table; kEscapes for the
// tables whose value 15 is followed by `linbits` more bits.
template <bool kEscapes>
void decode_pairs(MpaBits *b, const MpaHuffTable *t, int linbits, s32 *is, int from, int to) {
  // The longest pair: a 19-bit code word, two escapes and two signs.
  constexpr int kMost = kEscapes ? 19 + 2 * 13 + 2 : 19 + 2;
  const u32 *entries = t->entries;
  const int root_bits = t->root_bits;
  Cache c;
  cache_load(&c, b, b->pos);
  for (int i = from; i < to; i += 2) {
    if (c.used > kCacheBits - kMost) cache_load(&c, b, cache_pos(&c));
    const u32 e = lookup(entries, root_bits, c.w);
    cache_skip(&c, entry_length(e));  // every pair table is a complete code
    s32 x = s32((e >> 20) & 15), y = s32((e >> 16) & 15);
    if (kEscapes && x == 15) {
      x += s32(c.w >> (64 - linbits));
      cache_skip(&c, linbits);
    }
    x = take_sign(x, &c);
    if (kEscapes && y == 15) {
      y += s32(c.w >> (64 - linbits));
      cache_skip(&c, linbits);
    }
    y = take_sign(y, &c);
    is[i] = x;
    is[i + 1] = y;
  }
  b->pos = cache_pos(&c);
}

void decode_region(MpaBits *b, int table, s32 *is, int from, int to) {
  if (from >= to) return;
  if (table == 0) {
    for (int i = from; i < to; ++i) is[i] = 0;
    return;
  }
  const int linbits = kMpaLinbits[table];
  if (linbits != 0)
    decode_pairs<true>(b, &g_pair[table], linbits, is, from, to);
  else
    decode_pairs<false>(b, &g_pair[table], 0, is, from, to);
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
  decode_region(b, gi->table_select[0], is, 0, r1);
  decode_region(b, gi->table_select[1], is, r1, r2);
  decode_region(b, gi->table_select[2], is, r2, big_end & ~1);
  int i = big_end & ~1;

  // count1 region: quadruples until the granule's bits are used up. A
  // quadruple takes at most 6 code bits and 4 signs.
  const MpaHuffTable *quad = gi->count1table_select ? &g_quad_b : &g_quad_a;
  Cache c;
  cache_load(&c, b, b->pos);
  while (i + 4 <= 576 && cache_pos(&c) < end) {
    if (c.used > kCacheBits - 10) cache_load(&c, b, cache_pos(&c));
    const u32 e = lookup(quad, c.w);
    const int len = entry_length(e);
    if (len == 0) break;
    const u64 after = c.w << len;
    const u32 q = g_quad_signed[16 * (e & 15) + u32(after >> 60)];
    const int used = len + int(q >> 8);
    if (cache_pos(&c) + u32(used) > end) break;  // the last quadruple ran past the end
    cache_skip(&c, used);
    for (int k = 0; k < 4; ++k) is[i + k] = s32((q >> (2 * k)) & 3) - 1;
    i += 4;
  }
  b->pos = cache_pos(&c);
  int count = i;
  for (; i < 576; ++i) is[i] = 0;
  return count;
}
