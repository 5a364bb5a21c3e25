// Layer II and layer III streams built here from random but valid frames,
// decoded by ours and by libmpg123 and held to the same limits as the
// encoded files: the parts of the format real encoders leave out (layer II
// joint stereo and the low sampling rates' allocation table; layer III
// intensity stereo of both kinds, mixed blocks, short blocks under joint
// stereo, preflag, scalefac_scale, subblock gains, reused scale factors,
// quadruple table B, every Huffman table and escape length, MPEG-2.5).
// Every frame carries all of its own data, so libmpg123 must decode each.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "direct/mpadec/layer3_huffman_tables.h"
#include "tests/direct/bit_writer.h"
#include "tests/direct/mpa_reference.h"

namespace {

using namespace mparef;

enum Version { kMpeg1, kMpeg2, kMpeg25 };

constexpr int kRates[3][3] = {{44100, 48000, 32000}, {22050, 24000, 16000}, {11025, 12000, 8000}};

struct Random {
  std::mt19937 gen;
  explicit Random(u32 seed) : gen(seed) {}
  int uniform(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(gen); }
  bool chance(int percent) { return uniform(1, 100) <= percent; }
};

// The 32-bit header; with `protect`, a zero check word after it.
void put_header(BitWriter &w, Version v, int layer, bool protect, int bitrate_index,
                int rate_index, int padding, int mode, int extension) {
  w.put(0x7FF, 11);
  w.put(v == kMpeg1 ? 3 : v == kMpeg2 ? 2 : 0, 2);
  w.put(u32(4 - layer), 2);
  w.put(protect ? 0 : 1, 1);
  w.put(u32(bitrate_index), 4);
  w.put(u32(rate_index), 2);
  w.put(u32(padding), 1);
  w.put(0, 1);  // private
  w.put(u32(mode), 2);
  w.put(u32(extension), 2);
  w.put(0, 4);  // copyright, original, no emphasis
  if (protect) w.put(0, 16);
}

// Fills in the check word: CRC-16 (x^16 + x^15 + x^2 + 1, preset all ones)
// over the last two header bytes and the frame's bits from `from` (just
// after the check word) up to `to`.
void set_crc(std::vector<u8> &frame, u32 to) {
  u16 crc = 0xFFFF;
  auto feed = [&](u32 bit) {
    const bool in = (frame[bit / 8] >> (7 - bit % 8)) & 1;
    const bool top = crc & 0x8000;
    crc = u16(crc << 1);
    if (in != top) crc ^= 0x8005;
  };
  for (u32 bit = 16; bit < 32; ++bit) feed(bit);
  for (u32 bit = 48; bit < to; ++bit) feed(bit);
  frame[4] = u8(crc >> 8);
  frame[5] = u8(crc);
}

void append_bits(BitWriter &w, const BitWriter &from) {
  for (u32 i = 0; i < from.bits; ++i) w.put((from.bytes[i / 8] >> (7 - i % 8)) & 1, 1);
}

// ---------------------------------------------------------------- layer II

constexpr int kLayerTwoKbps[2][15] = {
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};

// A subband's allocation field width and the quantiser levels of the
// allocations 1 .. 2^width - 1.
struct AllocRow {
  int width;
  std::array<int, 15> levels;
};
constexpr AllocRow kHighLow = {4, {3, 7, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767, 65535}};
constexpr AllocRow kHighMid = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 65535}};
constexpr AllocRow kHighUpper = {3, {3, 5, 7, 9, 15, 31, 65535}};
constexpr AllocRow kHighTop = {2, {3, 5, 65535}};
constexpr AllocRow kLowLow = {4, {3, 5, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383, 32767}};
constexpr AllocRow kLowUpper = {3, {3, 5, 9, 15, 31, 63, 127}};
constexpr AllocRow kHalfLow = {4, {3, 5, 7, 9, 15, 31, 63, 127, 255, 511, 1023, 2047, 4095, 8191, 16383}};
constexpr AllocRow kHalfMid = {3, {3, 5, 9, 15, 31, 63, 127}};
constexpr AllocRow kHalfTop = {2, {3, 5, 9}};

// The four MPEG-1 tables (high bit rates with 27 or 30 subbands, low bit
// rates with 8 or 12) and the one of the half sampling rates (30).
constexpr int kTableSubbands[5] = {27, 30, 8, 12, 30};

const AllocRow &alloc_row(int table, int sb) {
  if (table <= 1) return sb < 3 ? kHighLow : sb < 11 ? kHighMid : sb < 23 ? kHighUpper : kHighTop;
  if (table <= 3) return sb < 2 ? kLowLow : kLowUpper;
  return sb < 4 ? kHalfLow : sb < 11 ? kHalfMid : kHalfTop;
}

// MPEG-1 picks the table by the bit rate per channel and the sampling rate.
int alloc_table(Version v, int rate, int kbps_per_channel) {
  if (v != kMpeg1) return 4;
  if (kbps_per_channel <= 48) return rate == 32000 ? 3 : 2;
  if (kbps_per_channel <= 80 || rate == 48000) return 0;
  return 1;
}

// 3, 5 and 9 levels code three samples in one word of 5, 7 and 10 bits;
// the others take the smallest width that holds levels - 1.
int code_bits(int levels) {
  if (levels == 3) return 5;
  if (levels == 5) return 7;
  if (levels == 9) return 10;
  int bits = 1;
  while ((1 << bits) - 1 < levels) ++bits;
  return bits;
}
bool grouped(int levels) { return levels == 3 || levels == 5 || levels == 9; }

// One layer II frame. Allocations per subband and channel (one shared
// field from the joint stereo bound up), then for every allocated subband
// and channel the scale factor selection (which of the frame's three parts
// share a factor), the factors, and twelve triples of samples per subband.
// The bit rate is random per frame, within the ones MPEG-1 allows for the
// mode, so the frames walk through every allocation table.
std::vector<u8> layer_two_frame(Random &r, Version v, int rate_index, int mode) {
  const int rate = kRates[v][rate_index];
  const int channels = mode == 3 ? 1 : 2;
  const int extension = mode == 1 ? r.uniform(0, 3) : 0;
  const bool protect = r.chance(50);
  int br;
  if (v != kMpeg1) br = r.uniform(1, 14);
  else if (channels == 1) br = r.uniform(1, 10);  // 32 .. 192
  else do br = r.uniform(4, 14); while (br == 5);  // 64, 96 .. 384
  const int kbps = kLayerTwoKbps[v == kMpeg1 ? 0 : 1][br];
  const int table = alloc_table(v, rate, kbps / channels);
  const int limit = kTableSubbands[table];
  const int bound = mode == 1 ? std::min(limit, 4 * (extension + 1)) : limit;
  const int padding = r.uniform(0, 1);
  const int capacity = (144 * kbps * 1000 / rate + padding) * 8;

  int alloc[2][32] = {};
  const int density = r.uniform(30, 100);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch) {
      if (ch == 1 && sb >= bound) alloc[1][sb] = alloc[0][sb];
      else if (r.chance(density)) alloc[ch][sb] = r.uniform(1, (1 << alloc_row(table, sb).width) - 1);
    }
  int scfsi[2][32] = {};
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch) scfsi[ch][sb] = r.uniform(0, 3);
  constexpr int kFactors[4] = {3, 2, 1, 2};
  auto levels = [&](int ch, int sb) { return alloc_row(table, sb).levels[size_t(alloc[ch][sb] - 1)]; };
  auto frame_bits = [&] {
    int bits = 32 + (protect ? 16 : 0);
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < channels; ++ch) {
        if (ch == 0 || sb < bound) bits += alloc_row(table, sb).width;
        if (alloc[ch][sb] == 0) continue;
        bits += 2 + 6 * kFactors[scfsi[ch][sb]];
        if (ch == 1 && sb >= bound) continue;
        const int l = levels(ch, sb);
        bits += (grouped(l) ? 12 : 36) * code_bits(l);
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
  const double budget = 0.5 / std::sqrt(std::max(1, active));
  const int quietest = std::clamp(int(std::ceil(3 * (1 - std::log2(budget)))), 0, 62);
  int scf[2][32][3] = {};
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch)
      for (int& f : scf[ch][sb]) f = r.uniform(quietest, std::min(62, quietest + 24));

  BitWriter w;
  put_header(w, v, 2, protect, br, rate_index, padding, mode, extension);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch)
      w.put(u32(alloc[ch][sb]), alloc_row(table, sb).width);
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch)
      if (alloc[ch][sb]) w.put(u32(scfsi[ch][sb]), 2);
  const u32 checked_end = w.bits;
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < channels; ++ch) {
      if (alloc[ch][sb] == 0) continue;
      const int *f = scf[ch][sb];
      switch (scfsi[ch][sb]) {
        case 0: for (int p = 0; p < 3; ++p) w.put(u32(f[p]), 6); break;
        case 1: w.put(u32(f[0]), 6); w.put(u32(f[2]), 6); break;  // parts 0 and 1 share
        case 2: w.put(u32(f[0]), 6); break;                       // one for all three
        default: w.put(u32(f[0]), 6); w.put(u32(f[1]), 6); break;  // parts 1 and 2 share
      }
    }
  for (int part = 0; part < 12; ++part)
    for (int sb = 0; sb < limit; ++sb)
      for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch) {
        if (alloc[ch][sb] == 0) continue;
        const int l = levels(ch, sb);
        const int s[3] = {r.uniform(0, l - 1), r.uniform(0, l - 1), r.uniform(0, l - 1)};
        if (grouped(l)) w.put(u32(s[0] + l * (s[1] + l * s[2])), code_bits(l));
        else
          for (int k : s) w.put(u32(k), code_bits(l));
      }
  const size_t size = size_t(capacity / 8);
  EXPECT_LE(w.bytes.size(), size);
  w.bytes.resize(size, 0);
  if (protect) set_crc(w.bytes, checked_end);
  return w.bytes;
}

// --------------------------------------------------------------- layer III

constexpr int kLayerThreeKbps[2][15] = {
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};

// Scale factor band boundaries, long and short, by sampling rate (the
// rows of kRates in order); the region boundaries are counted in them.
constexpr int kLongBands[9][23] = {
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 52, 62, 74, 90, 110, 134, 162, 196, 238, 288, 342, 418, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 42, 50, 60, 72, 88, 106, 128, 156, 190, 230, 276, 330, 384, 576},
    {0, 4, 8, 12, 16, 20, 24, 30, 36, 44, 54, 66, 82, 102, 126, 156, 194, 240, 296, 364, 448, 550, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 114, 136, 162, 194, 232, 278, 332, 394, 464, 540, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 6, 12, 18, 24, 30, 36, 44, 54, 66, 80, 96, 116, 140, 168, 200, 238, 284, 336, 396, 464, 522, 576},
    {0, 12, 24, 36, 48, 60, 72, 88, 108, 132, 160, 192, 232, 280, 336, 400, 476, 566, 568, 570, 572, 574, 576}};
constexpr int kShortBands[9][14] = {
    {0, 4, 8, 12, 16, 22, 30, 40, 52, 66, 84, 106, 136, 192},
    {0, 4, 8, 12, 16, 22, 28, 38, 50, 64, 80, 100, 126, 192},
    {0, 4, 8, 12, 16, 22, 30, 42, 58, 78, 104, 138, 180, 192},
    {0, 4, 8, 12, 18, 24, 32, 42, 56, 74, 100, 132, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 136, 180, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 4, 8, 12, 18, 26, 36, 48, 62, 80, 104, 134, 174, 192},
    {0, 8, 16, 24, 36, 52, 72, 96, 124, 160, 162, 164, 166, 192}};

// MPEG-1 scalefac_compress: the widths of the factors of bands 0-10 and
// 11-20 (short: bands 0-5 and 6-11).
constexpr int kSlen1[16] = {0, 0, 0, 0, 3, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4};
constexpr int kSlen2[16] = {0, 1, 2, 3, 0, 1, 2, 3, 1, 2, 3, 1, 2, 3, 2, 3};

// MPEG-2: scalefac_compress splits into up to four widths, each for a run
// of factors whose lengths depend on the partition and the block kind
// (long, short, mixed; short runs count factors, three per band).
constexpr int kPartitionRuns[6][3][4] = {
    {{6, 5, 5, 5}, {9, 9, 9, 9}, {6, 9, 9, 9}},     {{6, 5, 7, 3}, {9, 9, 12, 6}, {6, 9, 12, 6}},
    {{11, 10, 0, 0}, {18, 18, 0, 0}, {15, 18, 0, 0}}, {{7, 7, 7, 0}, {12, 12, 12, 0}, {6, 15, 12, 0}},
    {{6, 6, 6, 3}, {12, 9, 9, 6}, {6, 12, 9, 6}},   {{8, 8, 5, 0}, {15, 12, 9, 0}, {6, 18, 9, 0}}};

// Widths and partition of an MPEG-2 scalefac_compress; the right channel
// of an intensity stereo frame reads it differently (its lowest bit is the
// intensity scale). Sets *preflag for the partition that implies it.
int lsf_widths(int sfc, bool intensity_right, int slen[4], bool *preflag) {
  *preflag = false;
  slen[3] = slen[2] = 0;
  if (!intensity_right) {
    if (sfc < 400) {
      slen[0] = (sfc >> 4) / 5, slen[1] = (sfc >> 4) % 5, slen[2] = (sfc & 15) >> 2, slen[3] = sfc & 3;
      return 0;
    }
    if (sfc < 500) {
      sfc -= 400;
      slen[0] = (sfc >> 2) / 5, slen[1] = (sfc >> 2) % 5, slen[2] = sfc & 3;
      return 1;
    }
    sfc -= 500;
    slen[0] = sfc / 3, slen[1] = sfc % 3;
    *preflag = true;
    return 2;
  }
  sfc >>= 1;
  if (sfc < 180) {
    slen[0] = sfc / 36, slen[1] = sfc % 36 / 6, slen[2] = sfc % 6;
    return 3;
  }
  if (sfc < 244) {
    sfc -= 180;
    slen[0] = sfc >> 4, slen[1] = (sfc >> 2) & 3, slen[2] = sfc & 3;
    return 4;
  }
  sfc -= 244;
  slen[0] = sfc / 3, slen[1] = sfc % 3;
  return 5;
}

// Side information of one granule of one channel, and its main data.
struct GranuleChannel {
  int big_values = 0, global_gain = 0, sfc = 0;
  bool switched = false;
  int block_type = 0;
  bool mixed = false;
  int table[3] = {};
  int subblock_gain[3] = {};
  int region0 = 0, region1 = 0;
  bool preflag = false, scale = false, quad_b = false;
  BitWriter data;  // scale factors, then the Huffman coded values
};

struct FrameShape {
  Version v;
  int rate_index;
  int channels;
  bool ms, intensity;
};

// Table numbers that exist (4 and 14 do not) and the largest value each
// codes, escapes included; table 0 codes only zeros, in no bits.
int table_max(int t) {
  const int size = kMpaPairTables[t].size;
  if (size == 0) return 0;
  return kMpaLinbits[t] ? 15 + (1 << kMpaLinbits[t]) - 1 : size - 1;
}
int random_table(Random &r) {
  for (;;) {
    const int t = r.uniform(0, 31);
    if (t != 4 && t != 14) return t;
  }
}

// A value up to `max`: zero often, small mostly, an escape of random
// width now and then.
int random_value(Random &r, int max) {
  if (max == 0 || r.chance(30)) return 0;
  if (max <= 15 || r.chance(60)) return r.uniform(0, std::min(max, 15));
  const int spare = max - 15;
  int width = 0;
  while ((1 << width) <= spare) ++width;
  return 15 + (r.uniform(0, (1 << r.uniform(0, width)) - 1) & spare);
}

void put_pair(BitWriter &w, Random &r, int t, int x, int y) {
  if (t == 0) return;
  const int lin = kMpaLinbits[t];
  const int cx = std::min(x, 15), cy = std::min(y, 15);
  const MpaHuffCode &c = kMpaPairTables[t].codes[cx * kMpaPairTables[t].size + cy];
  w.put(c.code, c.length);
  // Values of 15 in the escape tables carry the excess in `lin` bits; each
  // non-zero value is followed by its sign.
  if (lin && cx == 15) w.put(u32(x - 15), lin);
  if (x) w.put(u32(r.uniform(0, 1)), 1);
  if (lin && cy == 15) w.put(u32(y - 15), lin);
  if (y) w.put(u32(r.uniform(0, 1)), 1);
}

// Writes the scale factors and the values of one granule and channel into
// g.data and fills in the side information to match (block type chosen
// before). `reuse`: the MPEG-1 scfsi groups skipped in the second granule;
// `intensity_right` marks the right channel of an intensity stereo frame,
// whose values end early (above them the left channel is steered by these
// factors).
void build_granule(Random &r, const FrameShape &f, GranuleChannel &g, const bool reuse[4],
                   bool intensity_right, int budget) {
  const int band_row = 3 * f.v + f.rate_index;
  bool full = false;  // the right channel's values reach its top band
  // Scale factors.
  if (f.v == kMpeg1) {
    g.sfc = r.uniform(0, 15);
    const int s1 = kSlen1[g.sfc], s2 = kSlen2[g.sfc];
    // Positions above 7 mean nothing to intensity stereo (7 itself marks a
    // band as not steered), so the right channel keeps to 0..7 there.
    auto put = [&](int width) {
      const int top = (1 << width) - 1;
      g.data.put(u32(r.uniform(0, intensity_right ? std::min(top, 7) : top)), width);
    };
    if (g.block_type != 2) {
      constexpr int kGroupStart[5] = {0, 6, 11, 16, 21};
      for (int group = 0; group < 4; ++group) {
        if (reuse[group]) continue;
        for (int sfb = kGroupStart[group]; sfb < kGroupStart[group + 1]; ++sfb) put(sfb < 11 ? s1 : s2);
      }
    } else {
      // Mixed: long bands 0-7, then short bands 3-11; short: bands 0-11,
      // three windows each.
      for (int i = 0; i < (g.mixed ? 8 + 9 : 18); ++i) put(s1);
      for (int i = 0; i < 18; ++i) put(s2);
    }
  } else {
    g.sfc = r.uniform(0, 511);
    // Short blocks: the top band (no factor of its own) follows the band
    // below, whose width must not be 0 (see below); that leaves the first
    // partition of the intensity reading, widths 1 to 5 only.
    if (intensity_right && g.block_type == 2)
      g.sfc = 2 * (36 * r.uniform(1, 4) + 6 * r.uniform(1, 5) + r.uniform(1, 5)) + r.uniform(0, 1);
    int slen[4];
    bool preflag;
    const int kind = g.block_type != 2 ? 0 : g.mixed ? 2 : 1;
    const int partition = lsf_widths(g.sfc, intensity_right, slen, &preflag);
    g.preflag = preflag;
    // Intensity positions: decoders disagree on which are "no position"
    // (the largest value of the factor's width, or 7 alone), so the right
    // channel keeps to values both read alike (7 at width 3 is "none" to
    // both). A factor of width 0 is such a value too; where the partition
    // has one, the right channel fills the spectrum to its last band, so
    // that no band is steered.
    for (int run = 0; run < 4; ++run)
      if (intensity_right && kPartitionRuns[partition][kind][run] > 0 && slen[run] == 0) full = true;
    int nth = 0;  // factors so far; a mixed block's first 6 are its long bands
    for (int run = 0; run < 4; ++run)
      for (int i = 0; i < kPartitionRuns[partition][kind][run]; ++i, ++nth) {
        const int top = (1 << slen[run]) - 1;
        int value = r.uniform(0, top);
        if (intensity_right && slen[run] != 3 && slen[run] != 0)
          while (value == top || value == 7) value = r.uniform(0, top - 1);
        // The short bands of a mixed block: libmpg123 steers them by other
        // positions than this decoder does (both agree on zeros).
        if (intensity_right && g.mixed && nth >= 6) value = 0;
        g.data.put(u32(value), slen[run]);
      }
  }

  // Values: big_values pairs in up to three regions, then quadruples of
  // zeros and ones.
  int limit = r.chance(20) ? 288 : r.uniform(0, 288);
  if (intensity_right) limit = r.chance(30) ? 0 : r.uniform(0, 120);
  // A full right channel (long blocks only) ends in a non-zero pair.
  const int force_from = 574;
  // libmpg123 steers the top short band of every window, even over non-zero
  // right values there; such values are left out.
  const int top_short = 3 * kShortBands[band_row][12];
  for (int attempt = 0;; ++attempt) {
    BitWriter w = g.data;
    g.big_values = full ? 288 : r.uniform(0, limit);
    int region_end[3];
    if (g.switched) {
      g.table[0] = random_table(r), g.table[1] = random_table(r), g.table[2] = 0;
      // Where the second region of a mixed block starts at the MPEG-2 rates
      // decoders do not agree (36 or 54), so both regions share a table.
      if (g.mixed && f.v == kMpeg2) g.table[1] = g.table[0];
      const int start = g.block_type == 2 && !g.mixed ? 3 * kShortBands[band_row][3]
                                                      : kLongBands[band_row][8];
      region_end[0] = start, region_end[1] = region_end[2] = 576;
    } else {
      for (int &t : g.table) t = random_table(r);
      g.region0 = r.uniform(0, 15);
      g.region1 = r.uniform(0, std::min(7, 20 - g.region0));
      region_end[0] = kLongBands[band_row][g.region0 + 1];
      region_end[1] = kLongBands[band_row][g.region0 + g.region1 + 2];
      region_end[2] = 576;
    }
    if (full)
      for (int &t : g.table) t = 1;  // short codes, so 288 pairs fit
    double energy = 0;
    for (int i = 0; i < 2 * g.big_values; i += 2) {
      const int region = i < region_end[0] ? 0 : i < region_end[1] ? 1 : 2;
      const int t = g.table[region];
      int x = random_value(r, table_max(t)), y = random_value(r, table_max(t));
      if (full && i >= force_from) x = std::max(x, 1), y = std::max(y, 1);
      if (intensity_right && g.block_type == 2 && i >= top_short) x = y = 0;
      energy += std::pow(x, 8.0 / 3) + std::pow(y, 8.0 / 3);
      put_pair(w, r, t, x, y);
    }
    g.quad_b = r.chance(50);
    int quads = r.uniform(0, (576 - 2 * g.big_values) / 4) / (intensity_right ? 4 : 1);
    // libmpg123 leaves a right channel alone whose part2_3_length is 0
    // (it does not steer it as positions of 0 would); one coded zero
    // quadruple keeps such granules out.
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
    break;
  }
}

// One layer III frame: the side information of every granule and channel,
// then their main data in order, from right after the side information
// (main_data_begin 0), and zeros up to the frame size of the smallest
// bit rate at or above a random one that holds it all.
std::vector<u8> layer_three_frame(Random &r, Version v, int rate_index, int mode) {
  const int rate = kRates[v][rate_index];
  const int channels = mode == 3 ? 1 : 2;
  const int extension = mode == 1 ? r.uniform(0, 3) : 0;
  const FrameShape f = {v, rate_index, channels, (extension & 2) != 0, (extension & 1) != 0};
  const bool protect = r.chance(50);
  const int granules = v == kMpeg1 ? 2 : 1;
  const int side_bytes = v == kMpeg1 ? (channels == 1 ? 17 : 32) : (channels == 1 ? 9 : 17);
  const int slot_factor = v == kMpeg1 ? 144 : 72;
  const int kbps_row = v == kMpeg1 ? 0 : 1;
  auto frame_bytes = [&](int br, int padding) {
    return slot_factor * kLayerThreeKbps[kbps_row][br] * 1000 / rate + padding;
  };
  const int room = (frame_bytes(14, 0) - 4 - (protect ? 2 : 0) - side_bytes) * 8;
  const int budget = std::min(4095, room / (granules * channels));

  // Block types first (the reuse of factors needs both granules' types);
  // under mid/side or intensity stereo both channels switch alike. Mixed
  // blocks switch at 36 lines, which does not fall on a short band
  // boundary at 8 kHz, so they are left out there.
  GranuleChannel gc[2][2];
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      if (ch == 1 && (f.ms || f.intensity)) {
        g.switched = gc[gr][0].switched, g.block_type = gc[gr][0].block_type, g.mixed = gc[gr][0].mixed;
        continue;
      }
      const int kind = r.uniform(0, 4);  // long, start, short, mixed, stop
      g.switched = kind != 0;
      g.block_type = kind == 0 ? 0 : kind == 1 ? 1 : kind == 4 ? 3 : 2;
      g.mixed = kind == 3 && !(v == kMpeg25 && rate_index == 2);
    }
  bool reuse[2][4] = {};
  if (v == kMpeg1)
    for (int ch = 0; ch < channels; ++ch)
      if (gc[0][ch].block_type != 2 && gc[1][ch].block_type != 2)
        for (bool &b : reuse[ch]) b = r.chance(40);
  const bool none[4] = {};
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      GranuleChannel &g = gc[gr][ch];
      build_granule(r, f, g, gr == 1 ? reuse[ch] : none, f.intensity && ch == 1, budget);
      for (int &s : g.subblock_gain) s = g.switched && g.block_type == 2 ? r.uniform(0, 7) : 0;
      // Pre-emphasis of the upper long bands: MPEG-1 signals it, MPEG-2
      // implies it by the partition.
      if (v == kMpeg1) g.preflag = g.block_type != 2 && r.chance(50);
      g.scale = r.chance(50);
    }

  int main_bits = 0;
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) main_bits += int(gc[gr][ch].data.bits);
  const int need = 4 + (protect ? 2 : 0) + side_bytes + (main_bits + 7) / 8;
  int br = r.uniform(1, 14);
  const int padding = r.uniform(0, 1);
  while (frame_bytes(br, padding) < need) ++br;
  EXPECT_LE(br, 14);

  BitWriter w;
  put_header(w, v, 3, protect, br, rate_index, padding, mode, extension);
  w.put(0, v == kMpeg1 ? 9 : 8);  // main_data_begin
  w.put(0, v == kMpeg1 ? (channels == 1 ? 5 : 3) : channels);  // private bits
  if (v == kMpeg1)
    for (int ch = 0; ch < channels; ++ch)
      for (bool b : reuse[ch]) w.put(b, 1);
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) {
      const GranuleChannel &g = gc[gr][ch];
      w.put(g.data.bits, 12);  // part2_3_length
      w.put(u32(g.big_values), 9);
      w.put(u32(g.global_gain), 8);
      w.put(u32(g.sfc), v == kMpeg1 ? 4 : 9);
      w.put(g.switched, 1);
      if (g.switched) {
        w.put(u32(g.block_type), 2);
        w.put(g.mixed, 1);
        w.put(u32(g.table[0]), 5);
        w.put(u32(g.table[1]), 5);
        for (int s : g.subblock_gain) w.put(u32(s), 3);
      } else {
        for (int t : g.table) w.put(u32(t), 5);
        w.put(u32(g.region0), 4);
        w.put(u32(g.region1), 3);
      }
      if (v == kMpeg1) w.put(g.preflag, 1);
      w.put(g.scale, 1);
      w.put(g.quad_b, 1);
    }
  const u32 checked_end = w.bits;
  EXPECT_EQ(checked_end, u32(8 * (4 + (protect ? 2 : 0) + side_bytes)));
  for (int gr = 0; gr < granules; ++gr)
    for (int ch = 0; ch < channels; ++ch) append_bits(w, gc[gr][ch].data);
  w.bytes.resize(size_t(frame_bytes(br, padding)), 0);
  if (protect) set_crc(w.bytes, checked_end);
  return w.bytes;
}

// ------------------------------------------------------------------ tests

struct StreamCase {
  const char *name;
  int layer;
  Version v;
  int rate_index;
  int mode;  // 0 stereo, 1 joint stereo, 2 dual channel, 3 mono
};

void PrintTo(const StreamCase &c, std::ostream *os) { *os << c.name; }

class MpaRandomFrames : public testing::TestWithParam<StreamCase> {
 public:
  static void TearDownTestSuite() { print_table(); }
};

TEST_P(MpaRandomFrames, MatchTheReferenceToRounding) {
  const StreamCase &c = GetParam();
  Random r(u32(7000 + 100 * c.layer + 10 * (3 * c.v + c.rate_index) + c.mode));
  std::vector<u8> stream;
  const int frames = c.layer == 2 ? 32 : c.v == kMpeg1 ? 40 : 64;
  for (int i = 0; i < frames; ++i) {
    const std::vector<u8> f = c.layer == 2 ? layer_two_frame(r, c.v, c.rate_index, c.mode)
                                           : layer_three_frame(r, c.v, c.rate_index, c.mode);
    stream.insert(stream.end(), f.begin(), f.end());
  }
  const int per_frame = c.layer == 3 && c.v != kMpeg1 ? 576 : 1152;
  // Frames that carry all their data start both decoders alike: no shift.
  check_against_reference(c.name, stream, size_t(frames) * size_t(per_frame), 0);
}

#define LAYER_TWO(v, tag, rates)                                               \
  StreamCase{"layer2_" tag "_stereo", 2, v, rates, 0},                         \
      StreamCase{"layer2_" tag "_joint", 2, v, rates, 1},                      \
      StreamCase{"layer2_" tag "_dual", 2, v, rates, 2},                       \
      StreamCase{"layer2_" tag "_mono", 2, v, rates, 3}
#define LAYER_THREE(v, tag, rates)                                             \
  StreamCase{"layer3_" tag "_stereo", 3, v, rates, 0},                         \
      StreamCase{"layer3_" tag "_joint", 3, v, rates, 1},                      \
      StreamCase{"layer3_" tag "_mono", 3, v, rates, 3}

INSTANTIATE_TEST_SUITE_P(
    Streams, MpaRandomFrames,
    testing::Values(LAYER_TWO(kMpeg1, "44k", 0), LAYER_TWO(kMpeg1, "48k", 1),
                    LAYER_TWO(kMpeg1, "32k", 2), LAYER_TWO(kMpeg2, "22k", 0),
                    LAYER_TWO(kMpeg2, "24k", 1), LAYER_TWO(kMpeg2, "16k", 2),
                    LAYER_THREE(kMpeg1, "44k", 0), LAYER_THREE(kMpeg1, "48k", 1),
                    LAYER_THREE(kMpeg1, "32k", 2), LAYER_THREE(kMpeg2, "22k", 0),
                    LAYER_THREE(kMpeg2, "24k", 1), LAYER_THREE(kMpeg2, "16k", 2),
                    LAYER_THREE(kMpeg25, "11k", 0), LAYER_THREE(kMpeg25, "12k", 1),
                    LAYER_THREE(kMpeg25, "8k", 2)),
    [](const testing::TestParamInfo<StreamCase> &p) { return std::string(p.param.name); });

}  // namespace
