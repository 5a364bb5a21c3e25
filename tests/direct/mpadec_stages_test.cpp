// The decoder's stages where the reference comparisons cannot look.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/mpadec.h"
#include "tests/direct/bit_writer.h"

// Rows and designated initialisers leave the fields not named zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

// Opened once (a second open fails) in the caller's buffer; closed clears it.
struct Decoder {
  std::vector<u8> work = std::vector<u8>(kMpaWorkBufferBytes, 0);
  MpaCodecContext *ctx() { return reinterpret_cast<MpaCodecContext *>(work.data()); }
  MpaState *state() { return ctx()->state; }
  Decoder() {
    EXPECT_EQ(pmx_avcodec_open(ctx()), 0);
    EXPECT_EQ(pmx_avcodec_open(ctx()), -1);
    const u8 *s = reinterpret_cast<u8 *>(state()), *end = work.data() + work.size();
    EXPECT_TRUE(s >= work.data() + sizeof(MpaCodecContext) && s + sizeof(MpaState) <= end && mpa_output_buffer(ctx()));
  }
  ~Decoder() { EXPECT_TRUE(pmx_avcodec_close(ctx()) == 0 && !ctx()->priv && !state() && !mpa_output_buffer(ctx())); }
};

// `count` frames of the header and size; the body never holds a sync word.
std::vector<u8> frames(u32 header, size_t size, int count = 1) {
  std::vector<u8> s;
  for (int n = 0; n < count; ++n)
    for (size_t i = 0; i < size; ++i) s.push_back(i < 4 ? u8(header >> (24 - 8 * i)) : u8((i * 7) & 0x7F));
  return s;
}
void append(std::vector<u8> &to, const std::vector<u8> &v) { to.insert(to.end(), v.begin(), v.end()); }

// Feeds `piece` bytes per call at most; each call takes at most what it is
// given and completes at most one frame, of `frame_bytes` (unless -1).
void feed(Decoder &d, const std::vector<u8> &data, size_t piece, int frame_bytes = -1) {
  std::vector<s16> out(kMpaOutputBytes / 2);
  for (size_t pos = 0, calls = 0; pos < data.size(); ++calls) {
    ASSERT_LT(calls, 4 * data.size()) << "the decoder stopped taking input";
    const size_t n = std::min(piece, data.size() - pos);
    const u32 before = d.state()->frames;
    int size = -1;
    const int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos, int(n));
    ASSERT_TRUE(used >= 0 && size_t(used) <= n) << used;
    ASSERT_LE(d.state()->frames, before + 1);
    if (frame_bytes >= 0) {
      EXPECT_EQ(size, d.state()->frames > before ? frame_bytes : 0);
    }
    pos += size_t(used);
  }
}

// Free format takes the learnt size plus padding (a slot in layer I), unknown
// gives 1; reserved fields, no sync, frames beyond the buffer are refused.
// The stream mask ignores check flag, padding, private bit, mode, extension,
// copyright, original and emphasis.
TEST(MpaHeader, FreeFormatRefusalsAndTheStreamMask) {
  const struct { u32 word, learnt; int result, bit_rate, frame_size; } cases[] = {
      {0xFFFB0264, 400, 0, 122500, 401},   {0xFFF30064, 300, 0, 91875, 300}, {0xFFFD0400, 1000, 0, 333333, 1000},
      {0xFFFF0200, 500, 0, 459375, 504},   {0xFFFB0064, 0, 1},               {0xFFFBF064, 0, -1},  // bit rate
      {0xFFFB9C64, 0, -1} /* rate */,      {0xFFF99064, 0, -1} /* layer */,  {0xFFEB9064, 0, -1},  // version
      {0x7FFB9064, 0, -1} /* sync */,      {0xFFE5E800, 0, -1} /* 2880 bytes */,
  };
  for (const auto &c : cases) {
    MpaState s{};
    s.free_size = c.learnt;
    MpaHeader hd{};
    ASSERT_EQ(mpa_parse_header(&s, c.word, &hd), c.result) << std::hex << c.word;
    if (c.result == 0) {
      EXPECT_EQ((std::vector<int>{hd.bit_rate, hd.frame_size}), (std::vector<int>{c.bit_rate, c.frame_size}));
    }
  }
  for (u32 bit = 0; bit < 21; ++bit)
    EXPECT_EQ(mpa_same_stream(0xFFFB9064 ^ (1u << bit), 0xFFFB9064), bit < 10 || bit == 16) << bit;
}

// Frames of each layer up to the largest (the 1792-byte assembly buffer)
// gathered from pieces of any size after garbage and a false sync.
TEST(MpaDecoder, GathersFramesFromPiecesOfAnySizeAfterGarbage) {
  const struct { u32 header; size_t size; int rate, channels, out_bytes; } streams[] = {
      {0xFFFB9064, 417, 44100, 2, 4608}, {0xFFF318C4, 72, 16000, 1, 1152}, {0xFFFD8000, 417, 44100, 2, 4608},
      {0xFFFDEAC0, 1729, 32000, 1, 2304}, {0xFFFF40C0, 136, 44100, 1, 768}};
  for (const auto &st : streams)
    for (size_t piece : {1, 3, 417, 418, 100000}) {
      SCOPED_TRACE(testing::Message() << std::hex << st.header << std::dec << " piece " << piece);
      std::vector<u8> data(100, 0x42);
      append(data, {0xFF, 0xFB, 0xF0});
      data.resize(333, 0x42);
      append(data, frames(st.header, st.size, 6));
      Decoder d;
      feed(d, data, piece, st.out_bytes);
      EXPECT_EQ(d.state()->frames, 6u);
      EXPECT_EQ(mpa_sample_rate(d.ctx()) * 10 + mpa_channels(d.ctx()), st.rate * 10 + st.channels);
    }
}

// An ID3v2 tag full of sync bytes is skipped within one call and across
// many, none of it reaching the assembly buffer.
TEST(MpaDecoder, SkipsAnId3TagWithinOneCallAndAcrossCalls) {
  for (u32 tag : {138u, 100000u}) {
    SCOPED_TRACE(tag);
    std::vector<u8> data(tag, 0xFF);
    const u32 body = tag - 10;
    const u8 head[10] = {'I', 'D', '3', 3, 0, 0, u8(body >> 21 & 0x7F), u8(body >> 14 & 0x7F), u8(body >> 7 & 0x7F),
                         u8(body & 0x7F)};
    std::copy(head, head + 10, data.begin());
    append(data, frames(0xFFFB9064, 417, 5));
    Decoder d;
    std::vector<s16> out(kMpaOutputBytes / 2);
    size_t pos = 0, calls = 0;
    for (; pos < data.size(); ++calls) {
      int size = 0;
      const size_t end = tag > 8192 && pos < tag ? tag : data.size();  // the long tag's last piece ends with it
      const int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos,
                                                int(std::min<size_t>(8192, end - pos)));
      ASSERT_GT(used, 0);
      pos += size_t(used);
      if (pos <= tag) {
        EXPECT_EQ(size + int(d.state()->frames) + int(d.state()->wr), 0) << "in the tag, call " << calls;
      }
    }
    EXPECT_EQ(d.state()->frames, 5u);
    EXPECT_GE(calls, tag / 8192 + 1);
  }
}

// The free-format size is learnt from the complete second header, without
// the first frame's padding byte.
TEST(MpaDecoder, FreeFormatWaitsForTheSecondHeaderAndLearnsAcrossPadding) {
  const size_t size = 300;
  std::vector<u8> data = frames(0xFFFB0264, size + 1);
  for (int i = 0; i < 7; ++i) append(data, frames(i % 2 ? 0xFFFB0264 : 0xFFFB0064, size + i % 2));
  Decoder d;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int out_size = 0;
  for (size_t n : {size + 1, size_t(3)}) {
    EXPECT_EQ(pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data(), int(n)), int(n));
    data.erase(data.begin(), data.begin() + long(n));
    EXPECT_EQ(d.state()->frames + d.state()->free_size, 0u);
  }
  EXPECT_EQ(pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data(), 1), 1);
  EXPECT_EQ(d.state()->free_size, size);
  EXPECT_EQ(d.state()->frames, 1u);
  EXPECT_EQ(d.state()->bit_rate, 91875);
  feed(d, std::vector<u8>(data.begin() + 1, data.end()), 64, 4608);
  EXPECT_EQ(d.state()->frames, 8u);
  EXPECT_EQ(d.state()->free_size, size);
}

u16 crc16(const std::vector<u8> &bytes) {
  MpaBits b;
  mpa_bits_init(&b, bytes.data(), u32(bytes.size()));
  return mpa_crc16_update(0xFFFF, &b, u32(8 * bytes.size()));
}

// The layer III check word (CRC-16, check value 0xAEE7) covers the header's
// last two bytes and the side information; a wrong one is counted.
TEST(MpaDecoder, CountsLayerThreeFramesWhoseCheckWordIsWrong) {
  EXPECT_EQ(crc16({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xAEE7);
  const struct { u32 header; size_t size, side; } cases[] = {
      {0xFFFA9064, 417, 32}, {0xFFFA90C4, 417, 17}, {0xFFF29064, 261, 17}, {0xFFF290C4, 261, 9}};
  for (const auto &c : cases) {
    std::vector<u8> good = frames(c.header, c.size), covered = {good[2], good[3]};
    covered.insert(covered.end(), good.begin() + 6, good.begin() + 6 + long(c.side));
    const u16 crc = crc16(covered);
    good[4] = u8(crc >> 8), good[5] = u8(crc);
    std::vector<u8> data = good, bad = good, unprotected = good;
    bad[6 + c.side - 1] ^= 1;      // the last protected bit
    unprotected[6 + c.side] ^= 1;  // the first bit after the side information
    append(data, bad);
    append(data, unprotected);
    Decoder d;
    feed(d, data, 500);
    EXPECT_EQ(d.state()->frames * 10 + d.state()->crc_errors, 31u) << std::hex << c.header;
  }
}

// The first frame's index counts as a change; more than 11 make VBR; later
// changes of the index or of MPEG-2.5 raise the process-wide flag.
TEST(MpaDecoder, CountsBitRateChangesAndRaisesTheStreamFlag) {
  auto alternating = [](int n) {
    std::vector<u32> v;
    for (int i = 0; i < n; ++i) v.push_back(0xFFFB0064 | u32(5 + i % 2) << 12);
    return v;
  };
  const struct { std::vector<u32> headers; int changes, vbr, flag; } cases[] = {
      {{0xFFFB9064, 0xFFFB9064, 0xFFFB9064}, 1, 0, 0},
      {{0xFFFB9064, 0xFFFBA064, 0xFFFBA064, 0xFFFB9064, 0xFFFBB064}, 4, 0, 1},
      {alternating(12), 12, 1, 1},
      {alternating(11), 11, 0, 1},
      {{0xFFE3A0C4, 0xFFF3A0C4}, 1, 0, 1},
  };
  for (const auto &c : cases) {
    std::vector<u8> first, rest;
    for (u32 h : c.headers) {
      MpaState s{};
      MpaHeader hd{};
      ASSERT_EQ(mpa_parse_header(&s, h, &hd), 0);
      append(first.empty() ? first : rest, frames(h, size_t(hd.frame_size)));
    }
    Decoder d;
    feed(d, first, 700);
    g_mpa_stream_changed = 0;
    feed(d, rest, 700);
    EXPECT_EQ(d.state()->frames, c.headers.size());
    EXPECT_EQ((std::vector<int>{d.state()->bitrate_changes, d.state()->vbr, g_mpa_stream_changed}),
              (std::vector<int>{c.changes, c.vbr, c.flag}));
  }
  g_mpa_stream_changed = 0;
}

// Every pair table, escape length and quadruple table, regions of any length
// and silent ones decode with their signs; a quadruple past the end is
// dropped; cut code words and tables 4 and 14 are refused.
// The diagnostic dump: "dump_mp3.txt" in the working directory, opened once
// and kept open, a heading line and the values as "%13d " each.
TEST(MpaDecoder, DebugDumpWritesHeadingsAndValues) {
  const std::string dir = testing::TempDir() + "mpadec_dump";
  ASSERT_EQ(std::system(("mkdir -p " + dir).c_str()), 0);
  char *previous = getcwd(nullptr, 0);
  ASSERT_EQ(chdir(dir.c_str()), 0);
  const s32 first[] = {1, -20}, second[] = {2147483647};
  debug_dump(first, 2, "granule");
  debug_dump(second, 1, "max");
  ASSERT_EQ(chdir(previous), 0);
  std::free(previous);
  std::ifstream in(dir + "/dump_mp3.txt");
  const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  EXPECT_EQ(text, "granule\n            1           -20 \nmax\n   2147483647 \n");
}

TEST(MpaHuffman, GranulesOfEveryTable) {
  mpa_build_huffman_tables();
  const struct { int big_values, t0, t1, t2, r1, r2, quad_b, quads, cut; } cases[] = {
      {100, 1, 1, 1, 36, 120, 0, 20, 1},   {60, 1, 0, 1, 24, 80, 1, 30, 1},      {0, 1, 1, 1, 0, 0, 0, 144, 0},
      {288, 1, 1, 1, 100, 300, 0, 0, 0},   {150, 2, 3, 5, 40, 100, 0, 10, 0},    {150, 6, 7, 8, 40, 100, 1, 10, 0},
      {150, 9, 10, 11, 40, 100, 0, 10, 0}, {200, 12, 13, 15, 60, 160, 1, 10, 0}, {200, 16, 17, 18, 60, 160, 0, 10, 0},
      {288, 19, 20, 21, 60, 200, 0, 0, 0}, {288, 22, 23, 24, 60, 200, 1, 0, 0},  {288, 25, 26, 27, 60, 200, 0, 0, 0},
      {288, 28, 29, 30, 60, 200, 1, 0, 0}, {288, 31, 31, 31, 60, 200, 0, 0, 0},  {10, 4, 4, 4, 20, 20, 0, 0, 0},
      {10, 14, 14, 14, 20, 20, 0, 0, 0},
  };
  std::mt19937 rng(11);
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << "tables " << c.t0 << " " << c.t1 << " " << c.t2);
    const MpaGranuleInfo gi{.big_values = c.big_values, .table_select = {c.t0, c.t1, c.t2},
                            .count1table_select = c.quad_b, .region1_start = c.r1, .region2_start = c.r2};
    BitWriter w;
    w.put(0x5, 3);  // bits before the granule (the scale factors)
    std::vector<s32> expect(576, 0);
    auto put_value = [&](int v, int lin, size_t at) {  // escape bits of a 15, sign
      const int e = lin && v == 15 ? int(rng() % (1u << lin)) : 0, negative = v && rng() % 2;
      w.put(u32(e), lin && v == 15 ? lin : 0);
      w.put(u32(negative), v ? 1 : 0);
      expect[at] = negative ? -(v + e) : v + e;
    };
    int i = 0;
    for (; i < 2 * c.big_values && kMpaPairTables[c.t0].size; i += 2) {
      const int t = gi.table_select[i < c.r1 ? 0 : i < c.r2 ? 1 : 2], n = kMpaPairTables[t].size;
      if (t == 0) continue;
      const int x = int(rng() % u32(n)), y = int(rng() % u32(n));
      w.put(kMpaPairTables[t].codes[x * n + y].code, kMpaPairTables[t].codes[x * n + y].length);
      put_value(x, kMpaLinbits[t], size_t(i));
      put_value(y, kMpaLinbits[t], size_t(i + 1));
    }
    const MpaHuffCode *quad = c.quad_b ? kMpaQuadB : kMpaQuadA;
    for (int q = 0; q < c.quads; ++q, i += 4) {
      const int sym = int(rng() % 16);
      w.put(quad[sym].code, quad[sym].length);
      for (int k = 0; k < 4; ++k) put_value((sym >> (3 - k)) & 1, 0, size_t(i + k));
    }
    const u32 end = w.bits;
    w.put(quad[15].code, quad[15].length);  // four non-zero values
    w.put(0, 32);
    MpaBits b;
    mpa_bits_init(&b, w.bytes.data(), u32(w.bytes.size()));
    mpa_bits_skip(&b, 3);
    std::vector<s32> is(576, 77);
    const int count = mpa_huffman_granule(&b, end + (c.cut ? 2 : 0), &gi, is.data());
    if (kMpaPairTables[c.t0].size == 0) {
      EXPECT_EQ(count, -1);
      continue;
    }
    EXPECT_EQ(count, std::min(576, 2 * c.big_values + 4 * c.quads));
    EXPECT_EQ(b.pos, end);
    EXPECT_EQ(is, expect);
  }
  const u8 zeros[1] = {};
  MpaBits b;
  mpa_bits_init(&b, zeros, 1);
  b.end = 1;  // one bit of pair table 2's six-bit code 000000
  EXPECT_EQ(mpa_huff_decode(mpa_pair_table(2), &b), -1);
}

// |n|^(4/3) x 2^(q/4) in Q28 over the whole range, saturating beyond it.
TEST(MpaRequantize, PowerLawAndGainSaturate) {
  mpa_build_layer3_tables();
  for (int n : {0, 1, -1, 2, 3, -7, 15, 16, 100, -255, 1000, 4095, 8206})
    for (int q : {-210, -150, -100, -64, -40, -33, -17, -5, -1, 0, 3, 40, 400}) {
      const double x = std::clamp(std::copysign(std::pow(std::abs(n), 4.0 / 3) * std::pow(2.0, q / 4.0), n) * (1 << 28),
                                  -2147483647.0, 2147483647.0);
      EXPECT_NEAR(mpa_requantize_value(n, q), x, 0.5 + std::fabs(x) * 1e-9) << n << " " << q;
    }
  EXPECT_EQ(mpa_requantize_value(1, -400), 0);
}

// Bands of 6 from band 2 up (right values end at 10) steered by position,
// scaled by 2^(-1/4) or 2^(-1/2) a step; a factor at its width's largest
// value (band 3) is no position: mid/side when on, like bands 0-1.
TEST(MpaJointStereo, MpegTwoIntensityScaleAndBandsWithoutAPosition) {
  std::vector<s32> l(576), r(576);
  for (int i = 0; i < 576; ++i)
    l[size_t(i)] = s32((i % 13 - 6) * (1 << 22)), r[size_t(i)] = i < 10 ? s32((i % 7 - 3) * (1 << 21)) : 0;
  for (int scale = 0; scale <= 1; ++scale)
    for (int ms = 0; ms <= 1; ++ms) {
      SCOPED_TRACE(testing::Message() << "scale " << scale << " ms " << ms);
      const MpaHeader hd{.lsf = 1, .rate_index = 3, .mode = 1, .mode_ext = ms ? 3 : 1, .channels = 2};
      const MpaGranuleInfo gi{.scalefac_compress = scale};
      MpaScalefactors sf{};
      for (int b = 0; b < 22; ++b) sf.l[b] = u8(b), sf.max_l[b] = b == 3 ? 3 : 31;
      std::vector<s32> ol = l, orr = r;
      mpa_joint_stereo(ol.data(), orr.data(), 10, &hd, &gi, &sf);
      const double step = std::pow(2.0, scale ? -0.5 : -0.25);
      for (int i = 0; i < 36; ++i) {
        const int pos = i / 6;
        const double m = l[size_t(i)], s = r[size_t(i)];
        double el = m, er = s;  // bands 0, 1 and 3: mid/side or nothing
        if (ms && (pos < 2 || pos == 3)) el = (m + s) / std::sqrt(2.0), er = (m - s) / std::sqrt(2.0);
        if (pos == 2 || pos == 4 || pos == 5)
          el = m * (pos & 1 ? std::pow(step, (pos + 1) / 2) : 1.0), er = m * (pos & 1 ? 1.0 : std::pow(step, pos / 2));
        ASSERT_NEAR(ol[size_t(i)], el, 1.0) << i;
        ASSERT_NEAR(orr[size_t(i)], er, 1.0) << i;
      }
    }
}

// x_i = sum_k X_k cos(pi/2n (2i + 1 + n/2)(2k + 1)), n = 36 windowed, or
// three n = 12 short blocks at 6, 12 and 18.
void reference_block(const s32 *X, int type, double *y) {
  const double pi = std::acos(-1.0);
  auto sine = [&](int n, int i) { return std::sin(pi / n * (i + 0.5)); };
  for (int i = 0; i < 36; ++i) {
    double s = 0;
    for (int k = 0; type != 2 && k < 18; ++k) s += X[k] * std::cos(pi / 72 * (2 * i + 19) * (2 * k + 1));
    const double start = i < 18 ? sine(36, i) : i < 24 ? 1 : i < 30 ? sine(12, i - 18) : 0;
    const double stop = i >= 18 ? sine(36, i) : i < 6 ? 0 : i < 12 ? sine(12, i - 6) : 1;
    y[i] = s * (type == 1 ? start : type == 3 ? stop : sine(36, i));
  }
  for (int w = 0; type == 2 && w < 3; ++w)
    for (int i = 0; i < 12; ++i) {
      double s = 0;
      for (int k = 0; k < 6; ++k) s += X[3 * k + w] * std::cos(pi / 24 * (2 * i + 7) * (2 * k + 1));
      y[6 + 6 * w + i] += s * sine(12, i);
    }
}

// Granules through the decoder and the definition with overlap-add and
// frequency inversion, within 16 Q28 units (a PCM step is 2^13) and 2^-25 of
// the magnitude sums.
struct Granule {
  std::vector<s32> xr;
  int type, mixed;
};
void expect_filter_bank(const std::vector<Granule> &granules) {
  s32 overlap[32][18] = {}, out[18][32];
  double tail[32][18] = {}, pending[32] = {};  // magnitude sum of the block whose tail is pending
  for (size_t n = 0; n < granules.size(); ++n) {
    const Granule &g = granules[n];
    mpa_imdct_granule(g.xr.data(), overlap, g.type, g.mixed, out);
    for (int sb = 0; sb < 32; ++sb) {
      double y[36], l1 = 0;
      reference_block(&g.xr[size_t(18 * sb)], g.mixed && sb < 2 ? 0 : g.type, y);
      for (int k = 0; k < 18; ++k) l1 += std::fabs(double(g.xr[size_t(18 * sb + k)]));
      for (int i = 0; i < 18; ++i) {
        const double v = (sb % 2 && i % 2 ? -1 : 1) * (y[i] + tail[sb][i]);
        tail[sb][i] = y[18 + i];
        ASSERT_NEAR(out[i][sb], v, 16.0 + (l1 + pending[sb]) / (1 << 25)) << "granule " << n << " " << sb << " " << i;
        ASSERT_NEAR(overlap[sb][i], tail[sb][i], 16.0 + l1 / (1 << 25)) << "tail, sb " << sb << " i " << i;
      }
      pending[sb] = l1;
    }
  }
}

const struct { int type, mixed; } kBlocks[] = {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {2, 1}, {1, 1}};

// The IMDCT against its definition: every block type, quiet and loud
// spectra ending anywhere, lone values up to the Q28 limit; saturated input
// stays defined and dies out.
TEST(MpaImdct, MatchesTheDefinitionForEveryBlockType) {
  mpa_build_layer3_tables();
  std::mt19937 rng(11);
  const std::vector<s32> zero(576, 0);
  auto spectrum = [&](s32 amplitude, int end) {
    std::uniform_int_distribution<s32> value(-amplitude, amplitude);
    std::vector<s32> xr(576, 0);
    for (int i = 0; i < end; ++i) xr[size_t(i)] = value(rng);
    return xr;
  };
  for (const auto &c : kBlocks) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " mixed " << c.mixed);
    for (int end : {0, 1, 17, 18, 19, 35, 36, 300, 557, 558, 575, 576, 576, 576})
      for (s32 amplitude : {1 << 18, 1 << 26}) {
        SCOPED_TRACE(testing::Message() << "end " << end << " amplitude " << amplitude);
        std::vector<s32> last = spectrum(amplitude, end);
        if (end > 0) last[size_t(end - 1)] = amplitude / 2;
        expect_filter_bank({{spectrum(amplitude, 576), c.type, c.mixed}, {spectrum(amplitude, 576), 0, 0},
                            {last, c.type, c.mixed}, {zero, c.type, c.mixed}});
      }
    for (s32 v : {INT_MAX, INT_MIN, -INT_MAX, 3 << 29, 1})
      for (int k = 0; k < 18; ++k) {
        SCOPED_TRACE(testing::Message() << "value " << v << " k " << k);
        std::vector<s32> xr(576, 0);
        for (int sb = 0; sb < 32; ++sb) xr[size_t(18 * sb + k)] = sb % 3 == 1 ? s32(-(v / 2)) : v;
        expect_filter_bank({{xr, c.type, c.mixed}, {zero, c.type, c.mixed}});
      }
    for (s32 fill : {INT_MAX, INT_MIN}) {
      s32 overlap[32][18] = {}, out[18][32];
      std::vector<s32> xr(576);
      for (int i = 0; i < 576; ++i) xr[size_t(i)] = (i / 3) % 2 ? fill : ~fill;
      mpa_alias_reduce(xr.data(), c.mixed ? 2 : 32);
      mpa_imdct_granule(xr.data(), overlap, c.type, c.mixed, out);
      for (int n = 0; n < 2; ++n) mpa_imdct_granule(zero.data(), overlap, c.type, c.mixed, out);
      for (int i = 0; i < 18 * 32; ++i) ASSERT_EQ(out[i / 32][i % 32], 0) << "saturated, at " << i;
    }
  }
}

}  // namespace
