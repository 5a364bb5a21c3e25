// The decoder's interface: open and close, gathering frames from pieces of
// any size with their output sizes, resynchronising, the ID3v2 skip across
// calls, free format, the frame check word, the bit-rate-change count and
// the diagnostic dump.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/mpadec.h"

namespace {

struct Decoder {
  std::vector<u8> work = std::vector<u8>(kMpaWorkBufferBytes, 0);
  MpaCodecContext *ctx() { return reinterpret_cast<MpaCodecContext *>(work.data()); }
  MpaState *state() { return ctx()->state; }
  Decoder() { EXPECT_EQ(pmx_avcodec_open(ctx()), 0); }
  ~Decoder() { pmx_avcodec_close(ctx()); }
};

// Frames of the given header and size; the body is a counter pattern that
// never holds a sync word.
std::vector<u8> frames(u32 header, size_t size, int count = 1) {
  std::vector<u8> s;
  for (int n = 0; n < count; ++n)
    for (size_t i = 0; i < size; ++i)
      s.push_back(i < 4 ? u8(header >> (24 - 8 * i)) : u8((i * 7) & 0x7F));
  return s;
}
void append(std::vector<u8> &to, const std::vector<u8> &v) { to.insert(to.end(), v.begin(), v.end()); }

// Feeds `data` the way direct playback does, `piece` bytes per call at
// most: one frame per call at most, of `frame_bytes` output bytes.
void feed(Decoder &d, const std::vector<u8> &data, size_t piece, int frame_bytes = -1) {
  std::vector<s16> out(kMpaOutputBytes / 2);
  for (size_t pos = 0, guard = 0; pos < data.size() && ++guard < 1000000;) {
    size_t n = std::min(piece, data.size() - pos);
    int size = -1;
    u32 before = d.state()->frames;
    int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos, int(n));
    ASSERT_GE(used, 0);
    ASSERT_LE(size_t(used), n);
    ASSERT_LE(d.state()->frames, before + 1) << "one frame per call at most";
    if (frame_bytes >= 0) {
      EXPECT_EQ(size, d.state()->frames > before ? frame_bytes : 0);
    }
    ASSERT_LT(guard + 1, 1000000u) << "the decoder stopped consuming";
    pos += size_t(used);
  }
}

TEST(MpaDecoder, OpensOnceAndClosesTheContext) {
  std::vector<u8> work(kMpaWorkBufferBytes, 0);
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  ASSERT_EQ(pmx_avcodec_open(ctx), 0);
  EXPECT_NE(ctx->priv, nullptr);
  EXPECT_NE(mpa_output_buffer(ctx), nullptr);
  // The state lives inside the caller's working buffer.
  auto *st = reinterpret_cast<u8 *>(ctx->state);
  EXPECT_GE(st, work.data() + sizeof(MpaCodecContext));
  EXPECT_LE(st + sizeof(MpaState), work.data() + work.size());
  EXPECT_EQ(pmx_avcodec_open(ctx), -1);  // once only, until closed
  EXPECT_EQ(pmx_avcodec_close(ctx), 0);
  EXPECT_TRUE(ctx->priv == nullptr && ctx->state == nullptr);
  EXPECT_EQ(pmx_avcodec_open(ctx), 0);  // and again once closed
  EXPECT_EQ(pmx_avcodec_close(ctx), 0);
}

TEST(MpaDecoder, GathersFramesFromPiecesOfAnySizeAfterGarbage) {
  const struct { u32 header; size_t size; int rate, channels, out_bytes; } streams[] = {
      {0xFFFB9064, 417, 44100, 2, 4608},  // layer III, 1152 samples
      {0xFFF318C4, 72, 16000, 1, 1152},   // MPEG-2 layer III, 576
      {0xFFFD8000, 417, 44100, 2, 4608},  // layer II
      {0xFFFF40C0, 136, 44100, 1, 768}};  // layer I, 384
  for (const auto &st : streams)
    for (size_t piece : {size_t(1), size_t(3), size_t(417), size_t(418), size_t(100000)}) {
      SCOPED_TRACE(testing::Message() << std::hex << st.header << std::dec << " piece " << piece);
      std::vector<u8> data(100, 0x42);
      append(data, {0xFF, 0xFB, 0xF0});  // a lone sync byte without a valid header
      data.resize(333, 0x42);
      append(data, frames(st.header, st.size, 6));
      Decoder d;
      feed(d, data, piece, st.out_bytes);
      EXPECT_EQ(d.state()->frames, 6u);
      EXPECT_EQ(mpa_sample_rate(d.ctx()), st.rate);
      EXPECT_EQ(mpa_channels(d.ctx()), st.channels);
    }
}

TEST(MpaDecoder, SkipsId3TagsWithinOneCallAndAcrossCalls) {
  for (u32 tag : {138u, 100000u}) {
    SCOPED_TRACE(tag);
    std::vector<u8> data(tag, 0xFF);  // a body full of would-be sync bytes
    const u32 body = tag - 10;  // in four 7-bit bytes
    const u8 head[10] = {'I', 'D', '3', 3, 0, 0, u8(body >> 21 & 0x7F), u8(body >> 14 & 0x7F),
                         u8(body >> 7 & 0x7F), u8(body & 0x7F)};
    std::copy(head, head + 10, data.begin());
    append(data, frames(0xFFFB9064, 417, 5));
    Decoder d;
    std::vector<s16> out(kMpaOutputBytes / 2);
    size_t pos = 0, calls = 0;
    for (; pos < data.size(); ++calls) {
      int size = 0;
      int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos,
                                          int(std::min<size_t>(8192, data.size() - pos)));
      ASSERT_GT(used, 0);
      pos += size_t(used);
      if (pos <= tag) {
        EXPECT_EQ(size, 0);
        EXPECT_EQ(d.state()->frames, 0u) << "inside the tag, call " << calls;
        EXPECT_EQ(d.state()->wr, 0u) << "tag bytes reached the assembly buffer";
      }
    }
    EXPECT_EQ(d.state()->frames, 5u);
    EXPECT_GE(calls, tag / 8192 + 1);
  }
}

TEST(MpaDecoder, FreeFormatWaitsForTheSecondHeaderAndLearnsAcrossPadding) {
  const size_t size = 300;  // layer III, 44.1 kHz, bit-rate index 0; the first padded
  std::vector<u8> data = frames(0xFFFB0264, size + 1);
  append(data, frames(0xFFFB0064, size));
  for (int i = 0; i < 6; ++i) append(data, frames(i % 2 ? 0xFFFB0264 : 0xFFFB0064, size + i % 2));
  Decoder d;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int out_size = 0;
  // The whole first frame and three bytes of the next give nothing: the
  // size is not known until the second header is complete.
  for (size_t n : {size + 1, size_t(3)}) {
    EXPECT_EQ(pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data(), int(n)), int(n));
    data.erase(data.begin(), data.begin() + long(n));
    EXPECT_EQ(d.state()->frames, 0u);
    EXPECT_EQ(d.state()->free_size, 0u);
  }
  EXPECT_EQ(pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data(), 1), 1);
  EXPECT_EQ(d.state()->free_size, size);
  EXPECT_EQ(d.state()->frames, 1u);
  EXPECT_EQ(d.state()->bit_rate, 91875);
  feed(d, std::vector<u8>(data.begin() + 1, data.end()), 64, 4608);
  EXPECT_EQ(d.state()->frames, 8u);
  EXPECT_EQ(d.state()->free_size, size) << "the padding byte is not part of the learnt size";
}

TEST(MpaDecoder, ChecksProtectedLayerThreeFrames) {
  const struct { u32 header; size_t size, side; } cases[] = {
      {0xFFFA9064, 417, 32}, {0xFFFA90C4, 417, 17}, {0xFFF29064, 261, 17}, {0xFFF290C4, 261, 9}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.header);
    // The check word covers the header's last two bytes and the side information.
    std::vector<u8> good = frames(c.header, c.size), covered = {good[2], good[3]};
    covered.insert(covered.end(), good.begin() + 6, good.begin() + 6 + long(c.side));
    MpaBits b;
    mpa_bits_init(&b, covered.data(), u32(covered.size()));
    u16 crc = mpa_crc16_update(0xFFFF, &b, u32(8 * covered.size()));
    good[4] = u8(crc >> 8);
    good[5] = u8(crc);
    std::vector<u8> data = good, bad = good, unprotected = good;
    bad[6 + c.side - 1] ^= 1;      // last protected bit
    unprotected[6 + c.side] ^= 1;  // first bit after the side information
    append(data, bad);
    append(data, unprotected);
    Decoder d;
    feed(d, data, 500);
    EXPECT_EQ(d.state()->frames, 3u);
    EXPECT_EQ(d.state()->crc_errors, 1u);
    EXPECT_EQ(d.state()->crc, 1);
  }
}

TEST(MpaDecoder, CountsBitRateChangesOverAStream) {
  const int sizes[] = {0, 104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044};
  const struct { std::vector<int> kbps_index; int changes, vbr; } cases[] = {  // index per frame
      {{9, 9, 9, 9, 9, 9}, 1, 0},
      {{9, 10, 10, 9, 9, 11}, 4, 0},
      {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}, 14, 1},
      {{5, 6, 5, 6, 5, 6, 5, 6, 5, 6, 5, 6}, 12, 1},
      {{5, 6, 5, 6, 5, 6, 5, 6, 5, 6, 5}, 11, 0},
  };
  for (const auto &c : cases) {
    std::vector<u8> data;
    for (int b : c.kbps_index) append(data, frames(0xFFFB0064 | (u32(b) << 12), size_t(sizes[b])));
    Decoder d;
    feed(d, data, 700);
    EXPECT_EQ(d.state()->frames, c.kbps_index.size());
    EXPECT_EQ(d.state()->bitrate_changes, c.changes);
    EXPECT_EQ(d.state()->vbr, c.vbr);
  }
  g_mpa_stream_changed = 0;
}

TEST(MpaDecoder, DebugDumpWritesHeadingAndValues) {
  char dir[] = "/tmp/mpadec_dumpXXXXXX", old[4096];
  ASSERT_NE(mkdtemp(dir), nullptr);
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(dir), 0);
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
