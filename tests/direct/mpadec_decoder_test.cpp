// The frame header and the decoder's interface: header fields, refusals and
// free format; gathering frames from pieces of any size in the 1792-byte
// assembly buffer; the ID3v2 skip across calls; the check word of layer III
// frames; the bit-rate-change count and the diagnostic dump.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/mpadec.h"

// Rows of refused headers leave the fields they do not reach zero.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

struct Decoder {
  std::vector<u8> work = std::vector<u8>(kMpaWorkBufferBytes, 0);
  MpaCodecContext *ctx() { return reinterpret_cast<MpaCodecContext *>(work.data()); }
  MpaState *state() { return ctx()->state; }
  Decoder() { EXPECT_EQ(pmx_avcodec_open(ctx()), 0); }
  ~Decoder() { pmx_avcodec_close(ctx()); }
};

// `count` frames of the given header and size; the body is a counter
// pattern that never holds a sync word.
std::vector<u8> frames(u32 header, size_t size, int count = 1) {
  std::vector<u8> s;
  for (int n = 0; n < count; ++n)
    for (size_t i = 0; i < size; ++i) s.push_back(i < 4 ? u8(header >> (24 - 8 * i)) : u8((i * 7) & 0x7F));
  return s;
}
void append(std::vector<u8> &to, const std::vector<u8> &v) { to.insert(to.end(), v.begin(), v.end()); }

// Feeds `data` `piece` bytes per call at most, as direct playback does:
// every call takes at most what it is given and completes at most one
// frame, of `frame_bytes` output bytes (when not -1).
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

TEST(MpaHeader, FieldsFrameSizesAndRefusals) {
  // A free-format header (bit-rate index 0) takes the size learnt from the
  // stream, padding added (a 4-byte slot in layer I), and its bit rate
  // follows from it; until the size is known it gives 1.
  const struct {
    u32 word, learnt;
    int result, layer, lsf, mpeg25, rate, rate_index, bit_rate, frame_size, channels, crc;
  } cases[] = {
      {0xFFFB9064, 0, 0, 3, 0, 0, 44100, 0, 128000, 417, 2, 0},  // MPEG-1 layer III
      {0xFFFA9264, 0, 0, 3, 0, 0, 44100, 0, 128000, 418, 2, 1},  // padded, check word
      {0xFFF31400, 0, 0, 3, 1, 0, 24000, 4, 8000, 24, 2, 0},     // MPEG-2
      {0xFFE318C4, 0, 0, 3, 1, 1, 8000, 8, 8000, 72, 1, 0},      // MPEG-2.5
      {0xFFFDEAC0, 0, 0, 2, 0, 0, 32000, 2, 384000, 1729, 1, 0},  // the largest frame
      {0xFFF5A000, 0, 0, 2, 1, 0, 22050, 3, 96000, 626, 2, 0},
      {0xFFFF1200, 0, 0, 1, 0, 0, 44100, 0, 32000, 36, 2, 0},  // layer I, a 4-byte slot
      {0xFFF7E000, 0, 0, 1, 1, 0, 22050, 3, 256000, 556, 2, 0},
      {0xFFFB0264, 400, 0, 3, 0, 0, 44100, 0, 122500, 401, 2, 0},  // free format
      {0xFFF30064, 300, 0, 3, 1, 0, 22050, 3, 91875, 300, 2, 0},
      {0xFFFD0400, 1000, 0, 2, 0, 0, 48000, 1, 333333, 1000, 2, 0},
      {0xFFFF0200, 500, 0, 1, 0, 0, 44100, 0, 459375, 504, 2, 0},
      {0xFFFB0064, 0, 1},   // free format, size not known yet
      {0xFFFBF064, 0, -1},  // reserved bit rate
      {0xFFFB9C64, 0, -1},  // reserved sampling rate
      {0xFFF99064, 0, -1},  // reserved layer
      {0xFFEB9064, 0, -1},  // reserved version
      {0x7FFB9064, 0, -1},  // broken sync
      {0xFFE5E800, 0, -1},  // 2880 bytes, beyond the assembly buffer
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.word);
    MpaState s{};
    s.free_size = c.learnt;
    MpaHeader hd{};
    ASSERT_EQ(mpa_parse_header(&s, c.word, &hd), c.result);
    if (c.result != 0) continue;
    EXPECT_EQ((std::vector<int>{hd.layer, hd.lsf, hd.mpeg25, hd.sample_rate, hd.rate_index, hd.bit_rate,
                                hd.frame_size, hd.channels, hd.crc}),
              (std::vector<int>{c.layer, c.lsf, c.mpeg25, c.rate, c.rate_index, c.bit_rate, c.frame_size,
                                c.channels, c.crc}));
  }
  MpaState s{};
  MpaHeader hd{};
  ASSERT_EQ(mpa_parse_header(&s, 0xFFFB9077, &hd), 0);  // joint stereo, extension 3, emphasis 3
  EXPECT_EQ(hd.mode * 100 + hd.mode_ext * 10 + hd.emphasis, 133);
  // One stream: every bit but the check word flag, padding, private bit,
  // mode, mode extension, copyright, original and emphasis stays.
  for (u32 bit = 0; bit < 21; ++bit)
    EXPECT_EQ(mpa_same_stream(0xFFFB9064 ^ (1u << bit), 0xFFFB9064), bit < 10 || bit == 16) << bit;
}

TEST(MpaDecoder, OpensOnceInTheCallersBufferAndCloses) {
  Decoder d;
  EXPECT_NE(mpa_output_buffer(d.ctx()), nullptr);
  auto *state = reinterpret_cast<u8 *>(d.state());
  EXPECT_TRUE(state >= d.work.data() + sizeof(MpaCodecContext) && state + sizeof(MpaState) <= &*d.work.end());
  EXPECT_EQ(pmx_avcodec_open(d.ctx()), -1);  // once only, until closed
  EXPECT_EQ(pmx_avcodec_close(d.ctx()), 0);
  EXPECT_TRUE(d.ctx()->priv == nullptr && d.state() == nullptr && mpa_output_buffer(d.ctx()) == nullptr);
  EXPECT_EQ(pmx_avcodec_open(d.ctx()), 0);
}

TEST(MpaDecoder, GathersFramesFromPiecesOfAnySizeAfterGarbage) {
  // Each layer and the largest frame, which the assembly buffer must hold.
  const struct { u32 header; size_t size; int rate, channels, out_bytes; } streams[] = {
      {0xFFFB9064, 417, 44100, 2, 4608},  // layer III, 1152 samples
      {0xFFF318C4, 72, 16000, 1, 1152},   // MPEG-2 layer III, 576
      {0xFFFD8000, 417, 44100, 2, 4608},  // layer II
      {0xFFFDEAC0, 1729, 32000, 1, 2304},
      {0xFFFF40C0, 136, 44100, 1, 768}};  // layer I, 384
  for (const auto &st : streams)
    for (size_t piece : {size_t(1), size_t(3), size_t(417), size_t(418), size_t(100000)}) {
      SCOPED_TRACE(testing::Message() << std::hex << st.header << std::dec << " piece " << piece);
      std::vector<u8> data(100, 0x42);
      append(data, {0xFF, 0xFB, 0xF0});  // a sync without a valid header
      data.resize(333, 0x42);
      append(data, frames(st.header, st.size, 6));
      Decoder d;
      feed(d, data, piece, st.out_bytes);
      EXPECT_EQ(d.state()->frames, 6u);
      EXPECT_EQ(mpa_sample_rate(d.ctx()), st.rate);
      EXPECT_EQ(mpa_channels(d.ctx()), st.channels);
    }
}

TEST(MpaDecoder, SkipsAnId3TagWithinOneCallAndAcrossCalls) {
  for (u32 tag : {138u, 100000u}) {
    SCOPED_TRACE(tag);
    std::vector<u8> data(tag, 0xFF);  // a body full of would-be sync bytes
    const u32 body = tag - 10;         // in four 7-bit bytes
    const u8 head[10] = {'I', 'D', '3', 3, 0, 0, u8(body >> 21 & 0x7F), u8(body >> 14 & 0x7F),
                         u8(body >> 7 & 0x7F), u8(body & 0x7F)};
    std::copy(head, head + 10, data.begin());
    append(data, frames(0xFFFB9064, 417, 5));
    Decoder d;
    std::vector<s16> out(kMpaOutputBytes / 2);
    size_t pos = 0, calls = 0;
    for (; pos < data.size(); ++calls) {
      int size = 0;
      const int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos,
                                                int(std::min<size_t>(8192, data.size() - pos)));
      ASSERT_GT(used, 0);
      pos += size_t(used);
      if (pos <= tag) {
        EXPECT_EQ(size + int(d.state()->frames), 0) << "inside the tag, call " << calls;
        EXPECT_EQ(d.state()->wr, 0u) << "tag bytes reached the assembly buffer";
      }
    }
    EXPECT_EQ(d.state()->frames, 5u);
    EXPECT_GE(calls, tag / 8192 + 1);
  }
}

TEST(MpaDecoder, FreeFormatWaitsForTheSecondHeaderAndLearnsAcrossPadding) {
  const size_t size = 300;  // layer III, 44.1 kHz, bit-rate index 0; the first frame padded
  std::vector<u8> data = frames(0xFFFB0264, size + 1);
  for (int i = 0; i < 7; ++i) append(data, frames(i % 2 ? 0xFFFB0264 : 0xFFFB0064, size + i % 2));
  Decoder d;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int out_size = 0;
  // The whole first frame and three bytes of the next give nothing: the
  // size is not known until the second header is complete.
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
  EXPECT_EQ(d.state()->free_size, size) << "the padding byte is not part of the learnt size";
}

u16 crc16(const std::vector<u8> &bytes) {
  MpaBits b;
  mpa_bits_init(&b, bytes.data(), u32(bytes.size()));
  return mpa_crc16_update(0xFFFF, &b, u32(8 * bytes.size()));
}

TEST(MpaDecoder, CountsLayerThreeFramesWhoseCheckWordIsWrong) {
  // The check: CRC-16 x^16 + x^15 + x^2 + 1 from all ones, no reflection,
  // whose check value ("123456789") is 0xAEE7.
  EXPECT_EQ(crc16({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xAEE7);
  const struct { u32 header; size_t size, side; } cases[] = {
      {0xFFFA9064, 417, 32}, {0xFFFA90C4, 417, 17}, {0xFFF29064, 261, 17}, {0xFFF290C4, 261, 9}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.header);
    // It covers the header's last two bytes and the side information.
    std::vector<u8> good = frames(c.header, c.size), covered = {good[2], good[3]};
    covered.insert(covered.end(), good.begin() + 6, good.begin() + 6 + long(c.side));
    const u16 crc = crc16(covered);
    good[4] = u8(crc >> 8);
    good[5] = u8(crc);
    std::vector<u8> data = good, bad = good, unprotected = good;
    bad[6 + c.side - 1] ^= 1;      // the last protected bit
    unprotected[6 + c.side] ^= 1;  // the first bit after the side information
    append(data, bad);
    append(data, unprotected);
    Decoder d;
    feed(d, data, 500);
    EXPECT_EQ(d.state()->frames, 3u);
    EXPECT_EQ(d.state()->crc_errors, 1u);
  }
}

TEST(MpaDecoder, CountsBitRateChangesAndRaisesTheStreamFlag) {
  // The first frame's index counts as a change; the stream is taken for VBR
  // once the index changed more than 11 times. After the first frame, a
  // change of the index or of MPEG-2.5 raises the process-wide flag.
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
      {{0xFFE3A0C4, 0xFFF3A0C4}, 1, 0, 1},  // MPEG-2.5, then MPEG-2 at the same index
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
    EXPECT_EQ(d.state()->bitrate_changes, c.changes);
    EXPECT_EQ(d.state()->vbr, c.vbr);
    EXPECT_EQ(g_mpa_stream_changed, c.flag);
  }
  g_mpa_stream_changed = 0;
}

// The diagnostic dump appends a heading and the values to dump_mp3.txt in
// the working directory.
TEST(MpaDecoder, DebugDumpWritesHeadingAndValues) {
  char dir[] = "/tmp/mpadec_dumpXXXXXX", old[4096];
  ASSERT_TRUE(mkdtemp(dir) && getcwd(old, sizeof old) && chdir(dir) == 0);
  const s32 values[] = {1, -22, 333333};
  debug_dump(values, 3, "granule 0");
  debug_dump(values, 1, "next");
  ASSERT_EQ(chdir(old), 0);
  const std::string file = std::string(dir) + "/dump_mp3.txt";
  std::stringstream text;
  text << std::ifstream(file).rdbuf();
  EXPECT_EQ(text.str(), "granule 0\n            1           -22        333333 \nnext\n            1 \n");
  std::remove(file.c_str());
  rmdir(dir);
}

}  // namespace
