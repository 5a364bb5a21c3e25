// Streams of random but valid frames built here, decoded by ours and by
// libmpg123 and held to the same limits as the encoded files. They reach
// the parts of the format real encoders leave out: layer I; layer II joint
// stereo, dual channel and the low sampling rates' allocation table; layer
// III intensity stereo of both kinds, mixed blocks, short blocks under joint
// stereo, preflag, scalefac_scale, subblock gains, reused scale factors,
// quadruple table B, every Huffman table and escape length, MPEG-2.5.
// Every frame carries all of its own data, so libmpg123 must decode each.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman_tables.h"
#include "tests/direct/bit_writer.h"
#include "tests/direct/mpa_reference.h"

namespace {

enum Version { kMpeg1, kMpeg2, kMpeg25 };

constexpr int kRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};
// kbit/s by bit-rate index: MPEG-1 layers I, II and III, then layers II
// and III at the low sampling rates.
constexpr int kKbps[4][15] = {{0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
                              {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
                              {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
                              {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};

int kbps(int layer, Version v, int br) { return kKbps[v == kMpeg1 ? layer - 1 : 3][br]; }

// Frame bytes, header included: layer I counts 4-byte slots, layer III at
// the low rates has half as many samples per frame.
int frame_bytes(int layer, Version v, int rate, int br, int padding) {
  if (layer == 1) return (12000 * kbps(layer, v, br) / rate + padding) * 4;
  return (layer == 3 && v != kMpeg1 ? 72000 : 144000) * kbps(layer, v, br) / rate + padding;
}

struct Random {
  std::mt19937 gen;
  int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
  bool chance(int percent) { return uniform(1, 100) <= percent; }
};

// The header (private, copyright and original bits clear, no emphasis);
// with `protect`, a zero check word after it.
void put_header(BitWriter &w, Version v, int layer, bool protect, int br, int rate_index, int padding, int mode,
                int extension) {
  w.put({{0x7FF, 11}, {v == kMpeg1 ? 3 : v == kMpeg2 ? 2 : 0, 2}, {4 - layer, 2}, {!protect, 1}, {br, 4},
         {rate_index, 2}, {padding, 1}, {0, 1}, {mode, 2}, {extension, 2}, {0, 4}});
  if (protect) w.put(0, 16);
}

// Fills in the check word: CRC-16 (x^16 + x^15 + x^2 + 1, preset all ones)
// over the last two header bytes and the frame's bits from just after the
// check word up to `to`. Neither decoder refuses a frame for a wrong one,
// but valid frames carry the right one.
void set_crc(std::vector<u8> &frame, u32 to) {
  u16 crc = 0xFFFF;
  for (u32 bit = 16; bit < to; bit = bit == 31 ? 48 : bit + 1) {
    const bool in = (frame[bit / 8] >> (7 - bit % 8)) & 1;
    crc = u16(crc << 1) ^ (in != bool(crc & 0x8000) ? 0x8005 : 0);
  }
  frame[4] = u8(crc >> 8);
  frame[5] = u8(crc);
}

// ------------------------------------------------------- layers I and II

// A subband's allocation field width and the quantiser levels of the
// allocations 1, 2, ... (a zero ends the list).
struct AllocRow {
  int width;
  std::array<int, 15> levels;
};
constexpr AllocRow kLayerOne = {4, {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}};
constexpr AllocRow kHighLow = {4, {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535}};
constexpr AllocRow kHighMid = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535}};
constexpr AllocRow kHighUpper = {3, {3, 5, 7, 9, 15, 31, 65535}};
constexpr AllocRow kHighTop = {2, {3, 5, 65535}};
constexpr AllocRow kLowLow = {4, {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}};
constexpr AllocRow kLowUpper = {3, {3, 5, 9, 15, 31, 63, 127}};
constexpr AllocRow kHalfLow = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383}};
constexpr AllocRow kHalfTop = {2, {3, 5, 9}};

// Layer II's four MPEG-1 tables (high bit rates with 27 or 30 subbands, low
// ones with 8 or 12), the one of the half sampling rates (30), and layer I
// as table 5 (32).
constexpr int kTableSubbands[6] = {27, 30, 8, 12, 30, 32};

const AllocRow &alloc_row(int table, int sb) {
  if (table <= 1) return sb < 3 ? kHighLow : sb < 11 ? kHighMid : sb < 23 ? kHighUpper : kHighTop;
  if (table <= 3) return sb < 2 ? kLowLow : kLowUpper;
  if (table == 4) return sb < 4 ? kHalfLow : sb < 11 ? kLowUpper : kHalfTop;
  return kLayerOne;
}

// MPEG-1 layer II picks the table by the bit rate per channel and the
// sampling rate.
int alloc_table(int layer, Version v, int rate, int kbps_per_channel) {
  if (layer == 1) return 5;
  if (v != kMpeg1) return 4;
  if (kbps_per_channel <= 48) return rate == 32000 ? 3 : 2;
  return kbps_per_channel <= 80 || rate == 48000 ? 0 : 1;
}

// Layer II codes three samples of 3, 5 or 9 levels in one word of 5, 7 or
// 10 bits; every other code takes the smallest width that holds levels - 1.
bool grouped(int layer, int levels) { return layer == 2 && (levels == 3 || levels == 5 || levels == 9); }
int code_bits(int layer, int levels) {
  if (grouped(layer, levels)) return levels == 3 ? 5 : levels == 5 ? 7 : 10;
  int bits = 1;
  while ((1 << bits) - 1 < levels) ++bits;
  return bits;
}

// One layer I or II frame: allocations per subband and channel (one shared
// field from the joint stereo bound up); in layer II, for every allocated
// subband and channel, the scale factor selection (which of the frame's
// three parts share a factor); the factors (one in layer I); then twelve
// samples (layer I) or triples (layer II) per subband. The bit rate is
// random per frame, within the ones MPEG-1 layer II allows for the mode,
// so the frames walk through every allocation table; allocations are taken
// away at random until the frame holds them.
std::vector<u8> layer12_frame(Random &r, int layer, Version v, int rate_index, int mode) {
  const int rate = kRates[v][rate_index], channels = mode == 3 ? 1 : 2;
  const int extension = mode == 1 ? r.uniform(0, 3) : 0;
  const bool protect = r.chance(50);
  int br;
  if (layer == 1 || v != kMpeg1) br = r.uniform(1, 14);
  else if (channels == 1) br = r.uniform(1, 10);  // 32 .. 192
  else do br = r.uniform(4, 14); while (br == 5);  // 64, 96 .. 384
  const int table = alloc_table(layer, v, rate, kbps(layer, v, br) / channels), limit = kTableSubbands[table];
  const int bound = mode == 1 ? std::min(limit, 4 * (extension + 1)) : limit;
  int fixed = 32 + (protect ? 16 : 0);
  for (int sb = 0; sb < limit; ++sb) fixed += alloc_row(table, sb).width * (sb < bound ? channels : 1);
  while (8 * frame_bytes(layer, v, rate, br, 0) < fixed + 64) ++br;  // layer I at the lowest rates
  const int padding = r.uniform(0, 1), capacity = 8 * frame_bytes(layer, v, rate, br, padding);

  int alloc[2][32] = {}, scfsi[2][32] = {};
  const int density = r.uniform(30, 100);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch) {
      const auto &levels = alloc_row(table, sb).levels;
      const int allocs = int(levels.size() - size_t(std::count(levels.begin(), levels.end(), 0)));
      if (ch == 1 && sb >= bound) alloc[1][sb] = alloc[0][sb];
      else if (r.chance(density)) alloc[ch][sb] = r.uniform(1, allocs);
      scfsi[ch][sb] = layer == 1 ? 2 : r.uniform(0, 3);  // layer I: one factor for the frame
    }
  constexpr int kFactors[4] = {3, 2, 1, 2};
  auto levels = [&](int ch, int sb) { return alloc_row(table, sb).levels[size_t(alloc[ch][sb] - 1)]; };
  auto frame_bits = [&] {
    int bits = fixed;
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < channels; ++ch) {
        if (alloc[ch][sb] == 0) continue;
        bits += (layer == 2 ? 2 : 0) + 6 * kFactors[scfsi[ch][sb]];
        const int l = levels(ch, sb);
        if (ch == 0 || sb < bound) bits += (layer == 1 || grouped(layer, l) ? 12 : 36) * code_bits(layer, l);
      }
    return bits;
  };
  while (frame_bits() > capacity) {
    const int sb = r.uniform(0, limit - 1), ch = r.uniform(0, channels - 1);
    if (alloc[ch][sb] == 0) continue;
    alloc[ch][sb] -= 1;
    if (sb >= bound && channels == 2) alloc[1 - ch][sb] = alloc[ch][sb];
  }
  // Samples span their whole range; the scale factors keep each subband
  // under a share of full scale such that the sum stays mostly unclipped.
  int active = 0;
  for (int sb = 0; sb < limit; ++sb) active += alloc[0][sb] != 0 || alloc[channels - 1][sb] != 0;
  const int quietest = std::clamp(int(std::ceil(3 * (1 - std::log2(0.5 / std::sqrt(std::max(1, active)))))), 0, 62);

  BitWriter w;
  put_header(w, v, layer, protect, br, rate_index, padding, mode, extension);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch) w.put(u32(alloc[ch][sb]), alloc_row(table, sb).width);
  for (int sb = 0; layer == 2 && sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch)
      if (alloc[ch][sb]) w.put(u32(scfsi[ch][sb]), 2);
  const u32 checked_end = w.bits;
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch)
      for (int f = 0; alloc[ch][sb] && f < kFactors[scfsi[ch][sb]]; ++f)
        w.put(u32(r.uniform(quietest, std::min(62, quietest + 24))), 6);
  for (int part = 0; part < 12; ++part)
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch) {
        if (alloc[ch][sb] == 0) continue;
        const int l = levels(ch, sb);
        const int s[3] = {r.uniform(0, l - 1), r.uniform(0, l - 1), r.uniform(0, l - 1)};
        if (grouped(layer, l)) w.put(u32(s[0] + l * (s[1] + l * s[2])), code_bits(layer, l));
        else
          for (int k = 0; k < (layer == 1 ? 1 : 3); ++k) w.put(u32(s[k]), code_bits(layer, l));
      }
  EXPECT_LE(int(w.bits), capacity);
  w.bytes.resize(size_t(capacity / 8), 0);
  if (protect) set_crc(w.bytes, checked_end);
  return w.bytes;
}

// --------------------------------------------------------------- layer III

// MPEG-1 scalefac_compress: the widths of the factors of bands 0-10 and
// 11-20 (short: bands 0-5 and 6-11).
constexpr int kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr int kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// MPEG-2: scalefac_compress gives up to four widths, each for a run of
// factors whose length depends on the partition and the block kind (long,
// short, mixed; short runs count factors, three per band). The right
// channel of an intensity stereo frame reads it without its lowest bit
// (the intensity scale), in partitions 3 to 5. Within a partition's range
// of values the widths are the digits of a mixed-radix number, most
// significant first; partition 2 implies preflag.
constexpr int kPartitionRuns[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},   {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}};
constexpr struct { int start, radix[4]; } kPartitionWidths[6] = {{0, {5, 5, 4, 4}}, {400, {5, 5, 4, 1}},
                                                                  {500, {4, 3, 1, 1}}, {0, {5, 6, 6, 1}},
                                                                  {180, {4, 4, 4, 1}}, {244, {4, 3, 1, 1}}};

int lsf_widths(int sfc, bool intensity_right, int slen[4]) {
  const int x = intensity_right ? sfc >> 1 : sfc;
  int p = intensity_right ? 5 : 2;
  while (x < kPartitionWidths[p].start) --p;
  for (int i = 3, rest = x - kPartitionWidths[p].start; i >= 0; rest /= kPartitionWidths[p].radix[i--])
    slen[i] = rest % kPartitionWidths[p].radix[i];
  return p;
}

// Side information of one granule of one channel, and its main data.
struct GranuleChannel {
  int big_values = 0, global_gain = 0, sfc = 0, block_type = 0, region0 = 0, region1 = 0;
  int table[3] = {}, subblock_gain[3] = {};
  bool switched = false, mixed = false, preflag = false, scale = false, quad_b = false;
  BitWriter data;  // scale factors, then the Huffman coded values
};

// The largest value a table codes, escapes included (tables 4 and 14 do
// not exist; table 0 codes only zeros, in no bits).
int table_max(int t) {
  if (kMpaPairTables[t].size == 0) return 0;
  return kMpaLinbits[t] ? 15 + (1 << kMpaLinbits[t]) - 1 : kMpaPairTables[t].size - 1;
}
int random_table(Random &r) {
  for (;;)
    if (const int t = r.uniform(0, 31); t != 4 && t != 14) return t;
}

// A value up to `max`: zero often, small mostly, an escape of random width
// now and then.
int random_value(Random &r, int max) {
  if (max == 0 || r.chance(30)) return 0;
  if (max <= 15 || r.chance(60)) return r.uniform(0, std::min(max, 15));
  int width = 0;
  while ((1 << width) <= max - 15) ++width;
  return 15 + (r.uniform(0, (1 << r.uniform(0, width)) - 1) & (max - 15));
}

// A pair's code; values of 15 in the escape tables carry the excess in
// linbits bits, and each non-zero value is followed by its sign.
void put_pair(BitWriter &w, Random &r, int t, int x, int y) {
  if (t == 0) return;
  const int lin = kMpaLinbits[t], cx = std::min(x, 15), cy = std::min(y, 15);
  const MpaHuffCode &c = kMpaPairTables[t].codes[cx * kMpaPairTables[t].size + cy];
  w.put(c.code, c.length);
  if (lin && cx == 15) w.put(u32(x - 15), lin);
  if (x) w.put(u32(r.uniform(0, 1)), 1);
  if (lin && cy == 15) w.put(u32(y - 15), lin);
  if (y) w.put(u32(r.uniform(0, 1)), 1);
}

// Writes the scale factors and the values of one granule and channel into
// g.data and fills in the side information to match (block type chosen
// before). `reuse`: the MPEG-1 scfsi groups skipped in the second granule;
// `intensity_right`: the right channel of an intensity stereo frame, whose
// values end early (above them its factors steer the left channel).
void build_granule(Random &r, Version v, int band_row, GranuleChannel &g, const bool reuse[4],
                   bool intensity_right, int budget) {
  const MpaSfbTable &bands = mpa_sfb_table(band_row);
  // Scale factors in runs of one width: MPEG-1 long blocks in four groups
  // (bands 0-5, 6-10, 11-15, 16-20), each skipped when reused; short
  // blocks bands 0-5 and 6-11, three windows each, mixed ones long bands
  // 0-7 and short bands 3-5 first; MPEG-2 by partition.
  int runs[4] = {}, slen[4] = {};
  const int kind = g.block_type != 2 ? 0 : g.mixed ? 2 : 1;  // long, short, mixed
  if (v == kMpeg1) {
    g.sfc = r.uniform(0, 15);
    for (int i = 0; i < 4; ++i) {
      runs[i] = kind == 0 ? (reuse[i] ? 0 : i == 0 ? 6 : 5) : i == 0 ? (g.mixed ? 17 : 18) : i == 1 ? 18 : 0;
      slen[i] = (kind == 0 ? i < 2 : i == 0) ? kSlen1[g.sfc] : kSlen2[g.sfc];
    }
  } else {
    g.sfc = r.uniform(0, 511);
    // Short blocks: the top band (no factor of its own) follows the band
    // below, whose width must not be 0 (see below): partition 3, widths 1-5.
    if (intensity_right && g.block_type == 2)
      g.sfc = 2 * (36 * r.uniform(1, 4) + 6 * r.uniform(1, 5) + r.uniform(1, 5)) + r.uniform(0, 1);
    const int partition = lsf_widths(g.sfc, intensity_right, slen);
    std::copy_n(kPartitionRuns[partition][kind], 4, runs);
    g.preflag = partition == 2;
  }
  // Where decoders differ on intensity stereo, the right channel keeps to
  // what both read alike. Positions above 7 mean nothing in MPEG-1 (7 marks
  // a band as not steered). In MPEG-2 one decoder takes the largest value
  // of the factor's width for "none", the other 7 alone, so the right
  // channel keeps to values both read alike (7 at width 3). A factor of
  // width 0 is such a value too; where the partition has one, the right
  // channel fills the spectrum to its last band, so that no band is
  // steered. And libmpg123 steers the short bands of a mixed block by
  // other positions than this decoder does; both agree on zeros.
  const bool lsf_right = intensity_right && v != kMpeg1;
  bool full = false;  // the right channel's values reach its top band
  for (int run = 0, nth = 0; run < 4; ++run) {
    full |= lsf_right && runs[run] > 0 && slen[run] == 0;
    for (int i = 0; i < runs[run]; ++i, ++nth) {
      const int top = (1 << slen[run]) - 1;
      int value = r.uniform(0, intensity_right && v == kMpeg1 ? std::min(top, 7) : top);
      if (lsf_right && slen[run] != 3 && slen[run] != 0)
        while (value == top || value == 7) value = r.uniform(0, top - 1);
      if (lsf_right && g.mixed && nth >= 6) value = 0;
      g.data.put(u32(value), slen[run]);
    }
  }

  // Values: big_values pairs in up to three regions, then quadruples of
  // zeros and ones. A full right channel (long blocks only) ends in a
  // non-zero pair. libmpg123 steers the top short band of every window,
  // even over non-zero right values there; such values are left out.
  int limit = r.chance(20) ? 288 : r.uniform(0, 288);
  if (intensity_right) limit = r.chance(30) ? 0 : r.uniform(0, 120);
  const int top_short = 3 * bands.short_bounds[12];
  for (int attempt = 0;; ++attempt) {
    BitWriter w = g.data;
    g.big_values = full ? 288 : r.uniform(0, limit);
    int region_end[2] = {bands.long_bounds[8], 576};
    if (g.switched) {
      g.table[0] = random_table(r), g.table[1] = random_table(r), g.table[2] = 0;
      // Where the second region of a mixed block starts at the MPEG-2 rates
      // decoders do not agree (36 or 54), so both regions share a table.
      if (g.mixed && v == kMpeg2) g.table[1] = g.table[0];
      if (!g.mixed && g.block_type == 2) region_end[0] = 3 * bands.short_bounds[3];
    } else {
      for (int &t : g.table) t = random_table(r);
      g.region0 = r.uniform(0, 15);
      g.region1 = r.uniform(0, std::min(7, 20 - g.region0));
      region_end[0] = bands.long_bounds[g.region0 + 1];
      region_end[1] = bands.long_bounds[g.region0 + g.region1 + 2];
    }
    if (full)
      for (int &t : g.table) t = 1;  // short codes, so 288 pairs fit
    double energy = 0;
    for (int i = 0; i < 2 * g.big_values; i += 2) {
      const int t = g.table[i < region_end[0] ? 0 : i < region_end[1] ? 1 : 2];
      int x = random_value(r, table_max(t)), y = random_value(r, table_max(t));
      if (full && i >= 574) x = std::max(x, 1), y = std::max(y, 1);
      if (intensity_right && g.block_type == 2 && i >= top_short) x = y = 0;
      energy += std::pow(x, 8.0 / 3) + std::pow(y, 8.0 / 3);
      put_pair(w, r, t, x, y);
    }
    g.quad_b = r.chance(50);
    int quads = r.uniform(0, (576 - 2 * g.big_values) / 4) / (intensity_right ? 4 : 1);
    // libmpg123 leaves a right channel alone whose part2_3_length is 0 (it
    // does not steer it as positions of 0 would): one coded zero quadruple.
    if (intensity_right && w.bits == 0) quads = std::max(quads, 1);
    for (int q = 0; q < quads; ++q) {
      int bits = r.chance(30) ? 0 : r.uniform(0, 15);
      if (intensity_right && g.block_type == 2 && 2 * g.big_values + 4 * q + 4 > top_short) bits = 0;
      const MpaHuffCode &c = (g.quad_b ? kMpaQuadB : kMpaQuadA)[bits];
      w.put(c.code, c.length);
      for (int k = 3; k >= 0; --k)
        if ((bits >> k) & 1) w.put(u32(r.uniform(0, 1)), 1);
      energy += __builtin_popcount(unsigned(bits));
    }
    if (int(w.bits) > budget && attempt < 50) {
      limit /= 2;
      continue;
    }
    // The global gain puts the granule's spectrum at a moderate level: a
    // value v stands for |v|^(4/3) x 2^((gain - 210)/4).
    const double level = 0.3 / std::sqrt(std::max(1.0, energy));
    g.global_gain = std::clamp(int(std::lround(210 + 4 * std::log2(level))) - r.uniform(0, 8), 0, 255);
    g.data = w;
    return;
  }
}

// One layer III frame: the side information of every granule and channel,
// then their main data in order, from right after the side information
// (main_data_begin 0), and zeros up to the frame size of the smallest bit
// rate at or above a random one that holds it all.
std::vector<u8> layer3_frame(Random &r, Version v, int rate_index, int mode) {
  const int rate = kRates[v][rate_index], channels = mode == 3 ? 1 : 2, granules = v == kMpeg1 ? 2 : 1;
  const int extension = mode == 1 ? r.uniform(0, 3) : 0;
  const bool ms = extension & 2, intensity = extension & 1, protect = r.chance(50);
  const int side_bytes = v == kMpeg1 ? (channels == 1 ? 17 : 32) : (channels == 1 ? 9 : 17);
  const int head_bytes = 4 + (protect ? 2 : 0) + side_bytes;
  const int budget = std::min(4095, (frame_bytes(3, v, rate, 14, 0) - head_bytes) * 8 / (granules * channels));

  // Block types first (the reuse of factors needs both granules' types);
  // under mid/side or intensity stereo both channels switch alike. Mixed
  // blocks switch at 36 lines, which is no short band boundary at 8 kHz.
  GranuleChannel gc[2][2];
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      const int kind = ch == 1 && (ms || intensity) ? -1 : r.uniform(0, 4);  // long, start, short, mixed, stop
      g.switched = kind < 0 ? gc[gr][0].switched : kind != 0;
      g.block_type = kind < 0 ? gc[gr][0].block_type : kind == 0 ? 0 : kind == 1 ? 1 : kind == 4 ? 3 : 2;
      g.mixed = kind < 0 ? gc[gr][0].mixed : kind == 3 && !(v == kMpeg25 && rate_index == 2);
    }
  bool reuse[2][4] = {};
  for (int ch = 0; v == kMpeg1 && ch < channels; ++ch)
    if (gc[0][ch].block_type != 2 && gc[1][ch].block_type != 2)
      for (bool &b : reuse[ch]) b = r.chance(40);
  const bool none[4] = {};
  int main_bits = 0;
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      build_granule(r, v, 3 * v + rate_index, g, gr == 1 ? reuse[ch] : none, intensity && ch == 1, budget);
      for (int &s : g.subblock_gain) s = g.switched && g.block_type == 2 ? r.uniform(0, 7) : 0;
      // Pre-emphasis: MPEG-1 signals it, MPEG-2 implies it by the partition.
      if (v == kMpeg1) g.preflag = g.block_type != 2 && r.chance(50);
      g.scale = r.chance(50);
      main_bits += int(g.data.bits);
    }
  int br = r.uniform(1, 14);
  const int padding = r.uniform(0, 1);
  while (frame_bytes(3, v, rate, br, padding) < head_bytes + (main_bits + 7) / 8) ++br;
  EXPECT_LE(br, 14);

  BitWriter w;
  put_header(w, v, 3, protect, br, rate_index, padding, mode, extension);
  w.put({{0, v == kMpeg1 ? 9 : 8}, {0, v == kMpeg1 ? (channels == 1 ? 5 : 3) : channels}});  // main_data_begin, private
  for (int ch = 0; v == kMpeg1 && ch < channels; ++ch)
    for (bool b : reuse[ch]) w.put(b, 1);
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      const GranuleChannel &g = gc[gr][ch];
      w.put({{int(g.data.bits), 12}, {g.big_values, 9}, {g.global_gain, 8}, {g.sfc, v == kMpeg1 ? 4 : 9},
             {g.switched, 1}});
      if (g.switched)
        w.put({{g.block_type, 2}, {g.mixed, 1}, {g.table[0], 5}, {g.table[1], 5}, {g.subblock_gain[0], 3},
               {g.subblock_gain[1], 3}, {g.subblock_gain[2], 3}});
      else
        w.put({{g.table[0], 5}, {g.table[1], 5}, {g.table[2], 5}, {g.region0, 4}, {g.region1, 3}});
      if (v == kMpeg1) w.put(g.preflag, 1);
      w.put({{g.scale, 1}, {g.quad_b, 1}});
    }
  EXPECT_EQ(w.bits, u32(8 * head_bytes));
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) w.append(gc[gr][ch].data);
  w.bytes.resize(size_t(frame_bytes(3, v, rate, br, padding)), 0);
  if (protect) set_crc(w.bytes, u32(8 * head_bytes));
  return w.bytes;
}

}  // namespace

// `frames` random frames of one layer, version (0 MPEG-1, 1 MPEG-2, 2
// MPEG-2.5), sampling rate and mode; the accuracy test's layer I streams too.
std::vector<u8> random_stream(int layer, int version, int rate_index, int mode, int frames, u32 seed) {
  Random r{std::mt19937(seed)};
  std::vector<u8> stream;
  for (int i = 0; i < frames; ++i) {
    const Version v = Version(version);
    const std::vector<u8> f =
        layer == 3 ? layer3_frame(r, v, rate_index, mode) : layer12_frame(r, layer, v, rate_index, mode);
    stream.insert(stream.end(), f.begin(), f.end());
  }
  return stream;
}

namespace {

struct StreamCase {
  std::string name;
  int layer, version, rate_index, mode;  // mode: 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
};

void PrintTo(const StreamCase &c, std::ostream *os) { *os << c.name; }

class MpaRandomFrames : public testing::TestWithParam<StreamCase> {
 public:
  static void TearDownTestSuite() { mparef::print_table(); }
};

TEST_P(MpaRandomFrames, MatchTheReferenceToRounding) {
  const StreamCase &c = GetParam();
  const int frames = c.layer == 2 ? 32 : c.version == kMpeg1 ? 40 : 64;
  const int per_frame = c.layer == 3 && c.version != kMpeg1 ? 576 : 1152;
  const u32 seed = u32(7000 + 100 * c.layer + 10 * (3 * c.version + c.rate_index) + c.mode);
  // Frames that carry all their data start both decoders alike: no shift.
  mparef::check_against_reference(c.name, random_stream(c.layer, c.version, c.rate_index, c.mode, frames, seed),
                                  size_t(frames * per_frame), 0);
}

// Layer II at the MPEG-1 and MPEG-2 rates in every mode; layer III at every
// rate in stereo, joint stereo and mono.
std::vector<StreamCase> streams() {
  const char *const rates[3][3] = {{"44k", "48k", "32k"}, {"22k", "24k", "16k"}, {"11k", "12k", "8k"}};
  const char *const modes[4] = {"stereo", "joint", "dual", "mono"};
  std::vector<StreamCase> v;
  for (int layer : {2, 3})
    for (int version = 0; version < layer; ++version)
      for (int rate = 0; rate < 3; ++rate)
        for (int mode = 0; mode < 4; ++mode)
          if (layer == 2 || mode != 2)
            v.push_back({"layer" + std::to_string(layer) + "_" + rates[version][rate] + "_" + modes[mode], layer,
                         version, rate, mode});
  return v;
}

INSTANTIATE_TEST_SUITE_P(Streams, MpaRandomFrames, testing::ValuesIn(streams()),
                         [](const testing::TestParamInfo<StreamCase> &p) { return p.param.name; });

}  // namespace
