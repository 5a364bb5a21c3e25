// Layers I and II. Layer I: a 4-bit allocation per subband, one 6-bit
// scale factor, twelve samples of allocation + 1 bits. Layer II: allocation
// tables by sample rate and bit rate, scale factor selection information
// (one to three factors per subband for the frame's three parts), and
// quantisers of 3 to 65535 levels, the 3, 5 and 9 level ones coding three
// samples in one word. In joint stereo the subbands from the bound up
// share one allocation and one set of samples.
#include "direct/mpadec/layer12.h"

namespace {

// 2^(-k/3) for k = 0, 1, 2, Q29 (so that 2 x 2^(-k/3) fits Q28 after a shift).
constexpr s64 kThirds[3] = {s64(1) << 29, 426114725, 338207482};

// Allocation tables: for each subband the allocation field width and the
// class of each allocation value 1..15.
struct SubbandAlloc {
  u8 nbal;
  u8 cls[15];
};
constexpr SubbandAlloc kHigh0 = {4, {0, 2, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
constexpr SubbandAlloc kHigh1 = {4, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 16}};
constexpr SubbandAlloc kHigh2 = {3, {0, 1, 2, 3, 4, 5, 16}};
constexpr SubbandAlloc kHigh3 = {2, {0, 1, 16}};
constexpr SubbandAlloc kLow0 = {4, {0, 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};
constexpr SubbandAlloc kLow1 = {3, {0, 1, 3, 4, 5, 6, 7}};
constexpr SubbandAlloc kLsf0 = {4, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}};
constexpr SubbandAlloc kLsf1 = {3, {0, 1, 3, 4, 5, 6, 7}};
constexpr SubbandAlloc kLsf2 = {2, {0, 1, 3}};

// Table 0 and 1: high bit rates (27 and 30 subbands); 2 and 3: low bit
// rates (8 and 12 subbands); 4: the low sampling frequencies (30).
constexpr int kSblimit[5] = {27, 30, 8, 12, 30};

const SubbandAlloc &subband_alloc(int table, int sb) {
  switch (table) {
    case 0:
    case 1:
      return sb < 3 ? kHigh0 : sb < 11 ? kHigh1 : sb < 23 ? kHigh2 : kHigh3;
    case 2:
    case 3:
      return sb < 2 ? kLow0 : kLow1;
    default:
      return sb < 4 ? kLsf0 : sb < 11 ? kLsf1 : kLsf2;
  }
}

int joint_bound(const MpaHeader *hd, int limit) {
  int bound = hd->mode == 1 ? 4 * (hd->mode_ext + 1) : 32;
  return bound > limit ? limit : bound;
}

}  // namespace

const MpaQuantClass kMpaQuantClasses[17] = {
    {3, 1, 5},     {5, 1, 7},     {7, 0, 3},     {9, 1, 10},    {15, 0, 4},    {31, 0, 5},
    {63, 0, 6},    {127, 0, 7},   {255, 0, 8},   {511, 0, 9},   {1023, 0, 10}, {2047, 0, 11},
    {4095, 0, 12}, {8191, 0, 13}, {16383, 0, 14}, {32767, 0, 15}, {65535, 0, 16}};

s32 mpa_scalefactor(int index) {
  if (index < 0 || index > 62) return 0;
  // 2^(1 - i/3) = 2 x 2^(-(i mod 3)/3) / 2^(i div 3); Q29 thirds -> Q28 x 2.
  return s32(kThirds[index % 3] >> (index / 3));
}

s32 mpa_requantize_12(int v, int levels, s32 scalefactor) {
  int k = 1;
  while ((1 << k) < levels) ++k;
  // R = 2^(30 + k) / levels < 2^31; (2v - levels + 1) x R >> k is the
  // fraction in Q30.
  s64 r = ((s64(1) << (30 + k)) + levels / 2) / levels;
  s64 frac = (s64(2 * v - levels + 1) * r) >> k;
  return s32((frac * scalefactor + (s64(1) << 29)) >> 30);
}

int mpa_layer2_table(const MpaHeader *hd) {
  if (hd->lsf) return 4;
  int per_channel = hd->bit_rate / hd->channels / 1000;
  if (hd->bitrate_index != 0 && per_channel <= 48) return hd->sample_rate == 32000 ? 3 : 2;
  if (hd->sample_rate == 48000) return 0;
  return (hd->bitrate_index != 0 && per_channel <= 80) ? 0 : 1;
}

int mpa_layer2_sblimit(int table) { return kSblimit[table]; }

int mpa_decode_layer1(MpaBits *b, const MpaHeader *hd, MpaSubbandFrame *out) {
  int nch = hd->channels;
  int bound = joint_bound(hd, 32);
  int alloc[2][32] = {};
  s32 scf[2][32] = {};
  for (int sb = 0; sb < 32; ++sb)
    for (int ch = 0; ch < (sb < bound ? nch : 1); ++ch) {
      alloc[ch][sb] = int(mpa_bits_read(b, 4));
      if (alloc[ch][sb] == 15) return -1;
      if (sb >= bound) alloc[1][sb] = alloc[0][sb];
    }
  for (int sb = 0; sb < 32; ++sb)
    for (int ch = 0; ch < nch; ++ch)
      if (alloc[ch][sb]) scf[ch][sb] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
  for (int t = 0; t < 12; ++t)
    for (int sb = 0; sb < 32; ++sb) {
      if (sb < bound) {
        for (int ch = 0; ch < nch; ++ch) {
          int a = alloc[ch][sb];
          out->s[ch][t][sb] = a ? mpa_requantize_12(int(mpa_bits_read(b, a + 1)), (2 << a) - 1, scf[ch][sb]) : 0;
        }
      } else {
        int a = alloc[0][sb];
        int v = a ? int(mpa_bits_read(b, a + 1)) : 0;
        for (int ch = 0; ch < nch; ++ch) out->s[ch][t][sb] = a ? mpa_requantize_12(v, (2 << a) - 1, scf[ch][sb]) : 0;
      }
    }
  return 0;
}

int mpa_decode_layer2(MpaBits *b, const MpaHeader *hd, MpaSubbandFrame *out) {
  int nch = hd->channels;
  int table = mpa_layer2_table(hd);
  int limit = kSblimit[table];
  int bound = joint_bound(hd, limit);
  int cls[2][32];
  for (int ch = 0; ch < 2; ++ch)
    for (int sb = 0; sb < 32; ++sb) cls[ch][sb] = -1;
  for (int sb = 0; sb < limit; ++sb) {
    const SubbandAlloc &sa = subband_alloc(table, sb);
    for (int ch = 0; ch < (sb < bound ? nch : 1); ++ch) {
      int a = int(mpa_bits_read(b, sa.nbal));
      cls[ch][sb] = a ? sa.cls[a - 1] : -1;
    }
    if (sb >= bound) cls[1][sb] = cls[0][sb];
  }
  int scfsi[2][32] = {};
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < nch; ++ch)
      if (cls[ch][sb] >= 0) scfsi[ch][sb] = int(mpa_bits_read(b, 2));
  s32 scf[2][32][3] = {};
  for (int sb = 0; sb < limit; ++sb)
    for (int ch = 0; ch < nch; ++ch) {
      if (cls[ch][sb] < 0) continue;
      s32 *f = scf[ch][sb];
      switch (scfsi[ch][sb]) {
        case 0:
          for (int p = 0; p < 3; ++p) f[p] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          break;
        case 1:
          f[0] = f[1] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          f[2] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          break;
        case 2:
          f[0] = f[1] = f[2] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          break;
        default:
          f[0] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          f[1] = f[2] = mpa_scalefactor(int(mpa_bits_read(b, 6)));
          break;
      }
    }
  for (int gr = 0; gr < 12; ++gr) {
    int part = gr / 4;
    for (int sb = 0; sb < 32; ++sb) {
      for (int ch = 0; ch < nch; ++ch) {
        if (sb >= bound && ch == 1) break;  // shared samples were stored for both
        int c = cls[ch][sb];
        if (c < 0) {
          for (int k = 0; k < 3; ++k) out->s[ch][3 * gr + k][sb] = 0;
          if (sb >= bound && nch == 2)
            for (int k = 0; k < 3; ++k) out->s[1][3 * gr + k][sb] = 0;
          continue;
        }
        const MpaQuantClass &q = kMpaQuantClasses[c];
        int v[3];
        if (q.grouped) {
          u32 word = mpa_bits_read(b, q.bits);
          for (int k = 0; k < 3; ++k) {
            v[k] = int(word % q.levels);
            word /= q.levels;
          }
        } else {
          for (int k = 0; k < 3; ++k) v[k] = int(mpa_bits_read(b, q.bits));
        }
        for (int k = 0; k < 3; ++k) {
          out->s[ch][3 * gr + k][sb] = mpa_requantize_12(v[k], q.levels, scf[ch][sb][part]);
          if (sb >= bound && nch == 2)
            out->s[1][3 * gr + k][sb] = mpa_requantize_12(v[k], q.levels, scf[1][sb][part]);
        }
      }
    }
  }
  return 0;
}
