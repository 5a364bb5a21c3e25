// Our decoded PCM against libmpg123's floating-point output, sample-aligned:
// rms difference at most 1.02 x that of the reference rounded to 16 bits, no
// sample more than 2 LSB off, the figures printed as a table. Sources: lame
// and ffmpeg files, and random valid frames built with the decoder's own
// tables (a wrong one builds frames libmpg123 reads differently) for what
// encoders leave out. Each built frame carries all its data.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "direct/mpadec/layer12.h"
#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman_tables.h"
#include "direct/mpadec/layer3_sideinfo.h"
#include "tests/direct/bit_writer.h"
#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

namespace {

struct Random {
  std::mt19937 gen;
  int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
  bool chance(int percent) { return uniform(1, 100) <= percent; }
};

// Version 0 MPEG-1, 1 MPEG-2, 2 MPEG-2.5.
u32 header_word(int version, int layer, bool protect, int br, int rate_index, int padding, int mode, int ext) {
  return 0xFFE00000u | u32(version == 0 ? 3 : version == 1 ? 2 : 0) << 19 | u32(4 - layer) << 17 |
         u32(!protect) << 16 | u32(br) << 12 | u32(rate_index) << 10 | u32(padding) << 9 | u32(mode) << 6 |
         u32(ext) << 4;
}
MpaHeader parse(u32 word) {
  static const MpaState no_free_format{};
  MpaHeader hd{};
  EXPECT_EQ(mpa_parse_header(&no_free_format, word, &hd), 0) << std::hex << word;
  return hd;
}

// The check word: CRC-16 over the header's last two bytes and bits up to `to`.
void set_crc(std::vector<u8> &f, u32 to) {
  u16 crc = 0xFFFF;
  for (u32 bit = 16; bit < to; bit = bit == 31 ? 48 : bit + 1)
    crc = u16(crc << 1) ^ ((((f[bit / 8] >> (7 - bit % 8)) & 1) != (crc >> 15)) ? 0x8005 : 0);
  f[4] = u8(crc >> 8), f[5] = u8(crc);
}

// Allocation rows (field width, quantiser class per allocation) of layer II's
// tables 0-4 and of layer I as table 5 (2^(a+1) - 1 levels, 14 allocations).
struct AllocRow {
  int width;
  u8 cls[15];
};
constexpr AllocRow kRows[8] = {
    {4, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}, {4, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16}},
    {3, {0, 1, 2, 3, 4, 5, 16}}, {2, {0, 1, 16}}, {4, {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}},
    {3, {0, 1, 3, 4, 5, 6, 7}}, {4, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}}, {2, {0, 1, 3}}};
const AllocRow &alloc_row(int table, int sb) {
  if (table <= 1) return kRows[sb < 3 ? 0 : sb < 11 ? 1 : sb < 23 ? 2 : 3];
  if (table <= 3) return kRows[sb < 2 ? 4 : 5];
  return kRows[table == 5 ? 0 : sb < 4 ? 6 : sb < 11 ? 5 : 7];
}
MpaQuantClass quant(int table, int sb, int a) {
  if (table == 5) return {u16((2 << a) - 1), 0, u8(a + 1)};
  return kMpaQuantClasses[alloc_row(table, sb).cls[a - 1]];
}

// Layer I or II at a random bit rate (of those MPEG-1 layer II allows for
// the mode), so every allocation table; allocations dropped until it fits.
std::vector<u8> layer12_frame(Random &r, int layer, int version, int rate_index, int mode) {
  const int channels = mode == 3 ? 1 : 2, ext = mode == 1 ? r.uniform(0, 3) : 0, padding = r.uniform(0, 1);
  const bool protect = r.chance(50);
  int br = r.uniform(layer == 1 ? channels : 1, 14);  // layer I stereo: room for the allocations
  while (layer == 2 && version == 0 && (channels == 1 ? br > 10 : br < 4 || br == 5)) br = r.uniform(1, 14);
  const u32 word = header_word(version, layer, protect, br, rate_index, padding, mode, ext);
  const MpaHeader hd = parse(word);
  const int table = layer == 1 ? 5 : mpa_layer2_table(&hd), limit = table == 5 ? 32 : mpa_layer2_sblimit(table);
  const int bound = mode == 1 ? std::min(limit, 4 * (ext + 1)) : limit;
  int alloc[2][32] = {}, scfsi[2][32] = {};
  const int density = r.uniform(30, 100);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch) {
      const int allocs = table == 5 ? 14 : (1 << alloc_row(table, sb).width) - 1;
      alloc[ch][sb] = ch == 1 && sb >= bound ? alloc[0][sb] : r.chance(density) ? r.uniform(1, allocs) : 0;
      scfsi[ch][sb] = layer == 1 ? 2 : r.uniform(0, 3);  // layer I: one factor
    }
  constexpr int kFactors[4] = {3, 2, 1, 2};
  auto frame_bits = [&] {
    int bits = 32 + 16 * protect;
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < channels; ++ch) {
        const bool own = ch == 0 || sb < bound;
        bits += own * alloc_row(table, sb).width;
        if (alloc[ch][sb] == 0) continue;
        const MpaQuantClass q = quant(table, sb, alloc[ch][sb]);
        bits += 2 * (layer == 2) + 6 * kFactors[scfsi[ch][sb]] + own * (layer == 1 || q.grouped ? 12 : 36) * q.bits;
      }
    return bits;
  };
  while (frame_bits() > 8 * hd.frame_size) {
    const int sb = r.uniform(0, limit - 1), ch = r.uniform(0, channels - 1);
    if (alloc[ch][sb] == 0) continue;
    alloc[ch][sb] -= 1;
    if (sb >= bound) alloc[1 - ch][sb] = alloc[ch][sb];
  }
  // Scale factors that keep the sum of the active subbands mostly unclipped.
  int active = 0;
  for (int sb = 0; sb < limit; ++sb) active += alloc[0][sb] != 0 || alloc[channels - 1][sb] != 0;
  const int quietest = std::clamp(int(std::ceil(3 * (1 - std::log2(0.5 / std::sqrt(std::max(1, active)))))), 0, 62);
  BitWriter w;
  w.put({{int(word >> 16), 16}, {int(word & 0xFFFF), 16}, {0, 16 * protect}});
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
        const MpaQuantClass q = quant(table, sb, alloc[ch][sb]);
        const int l = q.levels, s[3] = {r.uniform(0, l - 1), r.uniform(0, l - 1), r.uniform(0, l - 1)};
        if (q.grouped) w.put(u32(s[0] + l * (s[1] + l * s[2])), q.bits);
        for (int k = 0; !q.grouped && k < (layer == 1 ? 1 : 3); ++k) w.put(u32(s[k]), q.bits);
      }
  EXPECT_LE(int(w.bits), 8 * hd.frame_size);
  w.bytes.resize(size_t(hd.frame_size), 0);
  if (protect) set_crc(w.bytes, checked_end);
  return w.bytes;
}

// Layer III scale factor widths by scalefac_compress: MPEG-1 the two halves;
// MPEG-2 factors per run by partition and block kind (long, short, mixed),
// each partition's first value (halved for the intensity right channel, 3-5)
// and the radixes whose digits are the run widths.
constexpr int kSlen[2][16] = {{0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4},
                              {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3}};
constexpr int kPartitionRuns[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},   {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}};
constexpr struct { int start, radix[4]; } kPartitionWidths[6] = {{0, {5, 5, 4, 4}},   {400, {5, 5, 4, 1}},
                                                                  {500, {4, 3, 1, 1}}, {0, {5, 6, 6, 1}},
                                                                  {180, {4, 4, 4, 1}}, {244, {4, 3, 1, 1}}};

struct GranuleChannel {
  int big_values = 0, global_gain = 0, sfc = 0, block_type = 0, region0 = 0, region1 = 0;
  int table[3] = {}, subblock_gain[3] = {};
  bool switched = false, mixed = false, preflag = false, scale = false, quad_b = false;
  BitWriter data;  // scale factors, then the Huffman coded values
};

int table_max(int t) {
  return kMpaLinbits[t] ? 14 + (1 << kMpaLinbits[t]) : std::max(0, kMpaPairTables[t].size - 1);
}
int random_table(Random &r, int lowest = 0) {
  int t;
  do t = r.uniform(lowest, 31); while (t == 4 || t == 14);  // not defined
  return t;
}

int random_value(Random &r, int max) {
  if (max == 0 || r.chance(30)) return 0;
  if (max <= 15 || r.chance(60)) return r.uniform(0, std::min(max, 15));
  int width = 0;
  while ((1 << width) <= max - 15) ++width;
  return 15 + (r.uniform(0, (1 << r.uniform(0, width)) - 1) & (max - 15));
}

void put_pair(BitWriter &w, Random &r, int t, int x, int y) {
  if (t == 0) return;
  const int lin = kMpaLinbits[t], cx = std::min(x, 15), cy = std::min(y, 15);
  const MpaHuffCode &c = kMpaPairTables[t].codes[cx * kMpaPairTables[t].size + cy];
  w.put(c.code, c.length);
  for (const int v : {x, y}) {
    if (lin && v >= 15) w.put(u32(v - 15), lin);
    if (v) w.put(u32(r.uniform(0, 1)), 1);
  }
}

// One granule and channel's scale factors and values into g.data, the side
// information to match; `reuse`: the groups granule 1 takes from granule 0.
void build_granule(Random &r, int version, int rate_index, GranuleChannel &g, const bool reuse[4],
                   bool intensity_right, bool ms, int budget) {
  const MpaSfbTable &bands = mpa_sfb_table(3 * version + rate_index);
  int runs[4] = {}, slen[4] = {};  // factors of one width: MPEG-1 long blocks in four groups
  const int kind = g.block_type != 2 ? 0 : g.mixed ? 2 : 1;
  if (version == 0) {
    g.sfc = r.uniform(0, 15);
    for (int i = 0; i < 4; ++i) {
      runs[i] = kind == 0 ? (reuse[i] ? 0 : i == 0 ? 6 : 5) : i == 0 ? (g.mixed ? 17 : 18) : i == 1 ? 18 : 0;
      slen[i] = kSlen[kind == 0 ? i >= 2 : i >= 1][g.sfc];
    }
  } else {
    g.sfc = r.uniform(0, 511);
    // The top short band follows band 11, whose width must not be 0 (below).
    if (intensity_right && g.block_type == 2)
      g.sfc = 2 * (36 * r.uniform(1, 4) + 6 * r.uniform(1, 5) + r.uniform(1, 5)) + r.uniform(0, 1);
    const int x = intensity_right ? g.sfc >> 1 : g.sfc;
    int p = intensity_right ? 5 : 2;
    while (x < kPartitionWidths[p].start) --p;
    for (int i = 3, rest = x - kPartitionWidths[p].start; i >= 0; rest /= kPartitionWidths[p].radix[i--])
      slen[i] = rest % kPartitionWidths[p].radix[i];
    std::copy_n(kPartitionRuns[p][kind], 4, runs);
    g.preflag = p == 2;
  }
  // Intensity positions both decoders read alike: 0-7 in MPEG-1; in MPEG-2
  // "none" is the width's largest value for us, 7 for libmpg123, so neither
  // but at width 3 (at width 0 the values fill the spectrum); zeros in the
  // short bands of mixed blocks, which libmpg123 reads differently.
  const bool lsf_right = intensity_right && version != 0;
  bool full = false;  // the right channel's values reach its top band
  for (int run = 0, nth = 0; run < 4; ++run) {
    full |= lsf_right && runs[run] > 0 && slen[run] == 0;
    for (int i = 0; i < runs[run]; ++i, ++nth) {
      const int top = (1 << slen[run]) - 1;
      int value = r.uniform(0, intensity_right && version == 0 ? std::min(top, 7) : top);
      if (lsf_right && slen[run] != 3 && slen[run] != 0)
        while (value == top || value == 7) value = r.uniform(0, top - 1);
      if (lsf_right && g.mixed && nth >= 6) value = 0;
      g.data.put(u32(value), slen[run]);
    }
  }
  // Pairs in up to three regions, then quadruples. libmpg123 steers the top
  // short band even over right values, so there are none; and with mid/side
  // it gives the first short band of an MPEG-2 mixed block sqrt 2 x our
  // level when the right short part is silent, so that holds a value.
  const bool short_value = lsf_right && g.mixed && ms;
  int limit = r.chance(20) ? 288 : r.uniform(0, 288);
  if (intensity_right) limit = r.chance(30) ? 0 : r.uniform(0, 120);
  const int top_short = 3 * bands.short_bounds[12];
  for (int attempt = 0;; ++attempt) {
    BitWriter w = g.data;
    g.big_values = full ? 288 : std::max(r.uniform(0, limit), short_value ? 19 : 0);
    int region_end[2] = {bands.long_bounds[8], 576};
    if (g.switched) {
      // The decoders split MPEG-2 mixed blocks' regions differently.
      g.table[0] = random_table(r, short_value);
      g.table[1] = g.mixed && version == 1 ? g.table[0] : random_table(r);
      g.table[2] = 0;
      if (!g.mixed && g.block_type == 2) region_end[0] = 3 * bands.short_bounds[3];
    } else {
      for (int &t : g.table) t = random_table(r);
      g.region0 = r.uniform(0, 15);
      g.region1 = r.uniform(0, std::min(7, 20 - g.region0));
      region_end[0] = bands.long_bounds[g.region0 + 1];
      region_end[1] = bands.long_bounds[g.region0 + g.region1 + 2];
    }
    if (full) std::fill_n(g.table, 3, 1);  // short codes, so 288 pairs fit
    double energy = 0;
    for (int i = 0; i < 2 * g.big_values; i += 2) {
      const int t = g.table[i < region_end[0] ? 0 : i < region_end[1] ? 1 : 2];
      int x = random_value(r, table_max(t)), y = random_value(r, table_max(t));
      if (full && i >= 574) x = std::max(x, 1), y = std::max(y, 1);
      if (short_value && i == 36) x = std::max(x, 1);
      if (intensity_right && g.block_type == 2 && i >= top_short) x = y = 0;
      energy += std::pow(x, 8.0 / 3) + std::pow(y, 8.0 / 3);
      put_pair(w, r, t, x, y);
    }
    g.quad_b = r.chance(50);
    int quads = r.uniform(0, (576 - 2 * g.big_values) / 4) / (intensity_right ? 4 : 1);
    // libmpg123 does not steer a right channel without bits.
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
    // A moderate level: v stands for |v|^(4/3) x 2^((gain - 210)/4).
    const double level = 0.3 / std::sqrt(std::max(1.0, energy));
    g.global_gain = std::clamp(int(std::lround(210 + 4 * std::log2(level))) - r.uniform(0, 8), 0, 255);
    g.data = w;
    return;
  }
}

// Layer III: side information, then the main data, at the smallest bit rate
// from a random one up that holds it.
std::vector<u8> layer3_frame(Random &r, int version, int rate_index, int mode) {
  const int channels = mode == 3 ? 1 : 2, granules = version == 0 ? 2 : 1, ext = mode == 1 ? r.uniform(0, 3) : 0;
  const bool ms = ext & 2, intensity = ext & 1, protect = r.chance(50);
  const int padding = r.uniform(0, 1), head_bytes = 4 + 2 * protect + mpa_side_info_bytes(version != 0, channels);
  auto word = [&](int br) { return header_word(version, 3, protect, br, rate_index, padding, mode, ext); };
  const int budget = std::min(4095, (parse(word(14)).frame_size - padding - head_bytes) * 8 / (granules * channels));
  // Block types first (reuse needs both granules'); joint stereo channels
  // switch alike; no mixed blocks at 8 kHz (36 is no short band boundary).
  GranuleChannel gc[2][2];
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      if (ch == 1 && (ms || intensity)) {
        g = gc[gr][0];
        continue;
      }
      const int kind = r.uniform(0, 4);  // long, start, short, mixed, stop
      g.switched = kind != 0;
      g.block_type = kind == 0 ? 0 : kind == 1 ? 1 : kind == 4 ? 3 : 2;
      g.mixed = kind == 3 && !(version == 2 && rate_index == 2);
    }
  bool reuse[2][4] = {};
  for (int ch = 0; version == 0 && ch < channels; ++ch)
    if (gc[0][ch].block_type != 2 && gc[1][ch].block_type != 2)
      for (bool &b : reuse[ch]) b = r.chance(40);
  const bool none[4] = {};
  int main_bits = 0;
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      build_granule(r, version, rate_index, g, gr == 1 ? reuse[ch] : none, intensity && ch == 1, ms, budget);
      for (int &s : g.subblock_gain) s = g.switched && g.block_type == 2 ? r.uniform(0, 7) : 0;
      if (version == 0) g.preflag = g.block_type != 2 && r.chance(50);  // MPEG-2: by the partition
      g.scale = r.chance(50);
      main_bits += int(g.data.bits);
    }
  int br = r.uniform(1, 14);
  while (br < 14 && parse(word(br)).frame_size < head_bytes + (main_bits + 7) / 8) ++br;
  const int size = parse(word(br)).frame_size;
  EXPECT_LE(head_bytes + (main_bits + 7) / 8, size);

  BitWriter w;
  w.put(word(br), 32);
  w.put(0, 16 * protect);
  w.put({{0, version == 0 ? 9 : 8}, {0, version == 0 ? (channels == 1 ? 5 : 3) : channels}});  // begin, private
  for (int ch = 0; version == 0 && ch < channels; ++ch)
    for (bool b : reuse[ch]) w.put(b, 1);
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      const GranuleChannel &g = gc[gr][ch];
      w.put({{int(g.data.bits), 12}, {g.big_values, 9}, {g.global_gain, 8}, {g.sfc, version == 0 ? 4 : 9},
             {g.switched, 1}});
      if (g.switched)
        w.put({{g.block_type, 2}, {g.mixed, 1}, {g.table[0], 5}, {g.table[1], 5}, {g.subblock_gain[0], 3},
               {g.subblock_gain[1], 3}, {g.subblock_gain[2], 3}});
      else
        w.put({{g.table[0], 5}, {g.table[1], 5}, {g.table[2], 5}, {g.region0, 4}, {g.region1, 3}});
      w.put({{g.preflag, version == 0}, {g.scale, 1}, {g.quad_b, 1}});
    }
  EXPECT_EQ(w.bits, u32(8 * head_bytes));
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) w.append(gc[gr][ch].data);
  w.bytes.resize(size_t(size), 0);
  if (protect) set_crc(w.bytes, u32(8 * head_bytes));
  return w.bytes;
}

// Mode 0 stereo, 1 joint stereo, 2 dual channel, 3 mono.
std::vector<u8> random_stream(int layer, int version, int rate_index, int mode, int frames, u32 seed) {
  Random r{std::mt19937(seed)};
  std::vector<u8> stream;
  while (frames-- > 0) {
    const std::vector<u8> f =
        layer == 3 ? layer3_frame(r, version, rate_index, mode) : layer12_frame(r, layer, version, rate_index, mode);
    stream.insert(stream.end(), f.begin(), f.end());
  }
  return stream;
}

struct Source {
  std::string name;
  int layer = 0, version = 0, rate_index = 0, mode = 0;  // layer 0: a media fixture
};

void PrintTo(const Source &s, std::ostream *os) { *os << s.name; }

// lame files at every rate and mode, CBR and VBR, 32-320 kbit/s; ffmpeg layer
// II files picking each allocation table; built layer I at the MPEG-1 rates,
// layer II at the MPEG-1 and 2 rates in every mode, layer III at all.
std::vector<Source> sources() {
  std::vector<Source> v;
  for (const char *file :
       {"music_8k_mono_cbr32.mp3", "music_11k_stereo_vbr.mp3", "music_16k_joint_cbr48.mp3", "music_22k_mono_cbr64.mp3",
        "music_24k_joint_cbr160.mp3", "music_32k_joint_cbr32.mp3", "music_32k_stereo_cbr96.mp3",
        "music_44k_stereo_cbr128.mp3", "music_44k_joint_vbr2.mp3", "music_44k_mono_cbr256.mp3",
        "music_48k_joint_cbr320.mp3", "music_48k_stereo_vbr0.mp3", "tone.mp3", "mpeg2_22k_vbr_id3v24.mp3",
        "mpeg25_11k_cbr_id3v1.mp3", "music_48k_stereo_192.mp2", "music_44k_stereo_128.mp2", "music_32k_stereo_64.mp2",
        "music_24k_stereo_96.mp2", "music_48k_mono_48.mp2"})
    v.push_back({file});
  const char *const rates[3][3] = {{"44k", "48k", "32k"}, {"22k", "24k", "16k"}, {"11k", "12k", "8k"}};
  const char *const modes[4] = {"stereo", "joint", "dual", "mono"};
  for (int layer = 1; layer <= 3; ++layer)
    for (int version = 0; version < (layer == 1 ? 1 : layer); ++version)
      for (int rate = 0; rate < 3; ++rate)
        for (int mode = 0; mode < 4; ++mode)
          if (mode != 2 || layer == 2)
            v.push_back({"layer" + std::to_string(layer) + "_" + rates[version][rate] + "_" + modes[mode], layer,
                         version, rate, mode});
  return v;
}

class MpaAccuracy : public testing::TestWithParam<Source> {
 public:
  static void TearDownTestSuite() { mparef::print_table(); }
};

TEST_P(MpaAccuracy, MatchesTheReferenceToRounding) {
  const Source &s = GetParam();
  if (s.layer == 0) {
    const std::string path = fixtures::media(s.name);
    ASSERT_FALSE(path.empty());
    return mparef::check_against_reference(s.name, mparef::read_file(path));
  }
  // Built streams start both decoders alike (no shift); every frame counts.
  const int frames = s.layer == 2 ? 32 : s.version == 0 ? 40 : 64;
  const int per_frame = s.layer == 1 ? 384 : s.layer == 3 && s.version != 0 ? 576 : 1152;
  const u32 seed = u32(1000 * s.layer + 10 * (3 * s.version + s.rate_index) + s.mode + 1);
  mparef::check_against_reference(s.name, random_stream(s.layer, s.version, s.rate_index, s.mode, frames, seed),
                                  size_t(frames * per_frame), 0);
}

INSTANTIATE_TEST_SUITE_P(Sources, MpaAccuracy, testing::ValuesIn(sources()),
                         [](const testing::TestParamInfo<Source> &p) {
                           std::string s = p.param.name;
                           std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(u8(c)); }, '_');
                           return s;
                         });

}  // namespace
