// The decoder's interface: open and close, gathering frames from pieces of
// any size, resynchronising, the ID3v2 skip across calls, free format, the
// frame check word and the bit-rate-change count over a stream.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/mpadec.h"

namespace {

struct Decoder {
  std::vector<u8> work = std::vector<u8>(kMpaWorkBufferBytes, 0);
  MpaCodecContext *ctx() { return reinterpret_cast<MpaCodecContext *>(work.data()); }
  MpaState *state() { return ctx()->state; }
  Decoder() { EXPECT_EQ(pmx_avcodec_open(ctx()), 0); }
  ~Decoder() { pmx_avcodec_close(ctx()); }
};

void put_be32(std::vector<u8> &v, size_t at, u32 w) {
  v[at] = u8(w >> 24);
  v[at + 1] = u8(w >> 16);
  v[at + 2] = u8(w >> 8);
  v[at + 3] = u8(w);
}

// A frame of the given header and size; the body is a counter pattern that
// never holds a sync word.
std::vector<u8> frame(u32 header, size_t size) {
  std::vector<u8> f(size);
  for (size_t i = 4; i < size; ++i) f[i] = u8((i * 7) & 0x7F);
  put_be32(f, 0, header);
  return f;
}

std::vector<u8> stream_of(u32 header, size_t size, int count) {
  std::vector<u8> s;
  for (int i = 0; i < count; ++i) {
    std::vector<u8> f = frame(header, size);
    s.insert(s.end(), f.begin(), f.end());
  }
  return s;
}

// Feeds `data` the way direct playback does, `piece` bytes per call at most;
// returns the frame count seen after each call.
std::vector<u32> feed(Decoder &d, const std::vector<u8> &data, size_t piece) {
  std::vector<u32> frames_after;
  size_t pos = 0;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int guard = 0;
  while (pos < data.size() && ++guard < 1000000) {
    size_t n = std::min(piece, data.size() - pos);
    int size = -1;
    u32 before = d.state()->frames;
    int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos, int(n));
    EXPECT_GE(used, 0);
    EXPECT_LE(size_t(used), n);
    EXPECT_LE(d.state()->frames, before + 1) << "one frame per call at most";
    pos += size_t(used);
    frames_after.push_back(d.state()->frames);
  }
  EXPECT_LT(guard, 1000000) << "the decoder stopped consuming";
  return frames_after;
}

TEST(MpaDecoder, OpensOnceAndClosesTheContext) {
  std::vector<u8> work(kMpaWorkBufferBytes, 0);
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  ASSERT_EQ(pmx_avcodec_open(ctx), 0);
  EXPECT_NE(ctx->priv, nullptr);
  EXPECT_NE(ctx->state, nullptr);
  EXPECT_NE(mpa_output_buffer(ctx), nullptr);
  // The state lives inside the caller's working buffer.
  auto *base = work.data();
  auto *st = reinterpret_cast<u8 *>(ctx->state);
  EXPECT_GE(st, base + sizeof(MpaCodecContext));
  EXPECT_LE(st + sizeof(MpaState), base + work.size());
  EXPECT_EQ(pmx_avcodec_open(ctx), -1);
  EXPECT_EQ(pmx_avcodec_close(ctx), 0);
  EXPECT_EQ(ctx->priv, nullptr);
  EXPECT_EQ(ctx->state, nullptr);
  EXPECT_EQ(pmx_avcodec_open(ctx), 0);
  EXPECT_EQ(pmx_avcodec_close(ctx), 0);
}

TEST(MpaDecoder, GathersFramesFromPiecesOfAnySize) {
  const std::vector<u8> data = stream_of(0xFFFB9064, 417, 12);
  for (size_t piece : {size_t(1), size_t(3), size_t(100), size_t(417), size_t(418), size_t(5000),
                       data.size()}) {
    SCOPED_TRACE(piece);
    Decoder d;
    feed(d, data, piece);
    EXPECT_EQ(d.state()->frames, 12u);
    EXPECT_EQ(d.state()->sample_rate, 44100);
    EXPECT_EQ(d.state()->channels, 2);
    EXPECT_EQ(mpa_sample_rate(d.ctx()), 44100);
    EXPECT_EQ(mpa_channels(d.ctx()), 2);
  }
}

TEST(MpaDecoder, ResynchronisesAfterGarbage) {
  std::vector<u8> data(333, 0x42);
  data[100] = 0xFF;  // a lone sync byte without a valid header
  data[101] = 0xFB;
  data[102] = 0xF0;
  std::vector<u8> frames = stream_of(0xFFF318C4, 72, 6);  // 8k frames at 16 kHz
  data.insert(data.end(), frames.begin(), frames.end());
  Decoder d;
  feed(d, data, 50);
  EXPECT_EQ(d.state()->frames, 6u);
  EXPECT_EQ(d.state()->sample_rate, 16000);
  EXPECT_EQ(d.state()->channels, 1);
}

TEST(MpaDecoder, SkipsALargeId3TagAcrossCalls) {
  const u32 tag = 100000;
  std::vector<u8> data(tag, 0xFF);  // a body full of would-be sync bytes
  const u32 body = tag - 10;
  const u8 head[10] = {'I', 'D', '3', 3, 0, 0, u8((body >> 21) & 0x7F), u8((body >> 14) & 0x7F),
                       u8((body >> 7) & 0x7F), u8(body & 0x7F)};
  std::copy(head, head + 10, data.begin());
  std::vector<u8> frames = stream_of(0xFFFB9064, 417, 5);
  data.insert(data.end(), frames.begin(), frames.end());

  Decoder d;
  size_t pos = 0;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int calls = 0;
  while (pos < data.size()) {
    size_t n = std::min<size_t>(8192, data.size() - pos);
    int size = 0;
    int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &size, data.data() + pos, int(n));
    ASSERT_GT(used, 0);
    if (pos + size_t(used) <= tag) {
      EXPECT_EQ(size, 0);
      EXPECT_EQ(d.state()->frames, 0u) << "inside the tag, call " << calls;
      EXPECT_EQ(d.state()->wr, 0u) << "tag bytes reached the assembly buffer";
    }
    pos += size_t(used);
    ++calls;
  }
  EXPECT_EQ(d.state()->frames, 5u);
  EXPECT_GE(calls, 13);  // 100000 / 8192 pieces of tag alone
}

TEST(MpaDecoder, SkipsASmallId3TagWithinOneCall) {
  std::vector<u8> data = {'I', 'D', '3', 4, 0, 0, 0, 0, 1, 0};  // 128-byte body
  data.resize(138, 0xFF);
  std::vector<u8> frames = stream_of(0xFFFB9064, 417, 3);
  data.insert(data.end(), frames.begin(), frames.end());
  Decoder d;
  feed(d, data, 4096);
  EXPECT_EQ(d.state()->frames, 3u);
}

TEST(MpaDecoder, FreeFormatWaitsForTheSecondHeader) {
  const u32 free_header = 0xFFFB0064;  // layer III, 44.1 kHz, bit-rate index 0
  const size_t size = 300;
  const std::vector<u8> data = stream_of(free_header, size, 8);
  Decoder d;
  std::vector<s16> out(kMpaOutputBytes / 2);
  int out_size = 0;
  // The whole first frame alone gives nothing: its size is not known yet.
  int used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data(), int(size));
  EXPECT_EQ(used, int(size));
  EXPECT_EQ(d.state()->frames, 0u);
  EXPECT_EQ(d.state()->free_size, 0u);
  // Three more bytes still hide the second header.
  used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data() + size, 3);
  EXPECT_EQ(used, 3);
  EXPECT_EQ(d.state()->frames, 0u);
  // Its fourth byte completes it.
  used = pmx_avcodec_decode_audio(d.ctx(), out.data(), &out_size, data.data() + size + 3, 1);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(d.state()->free_size, size);
  EXPECT_EQ(d.state()->frames, 1u);
  EXPECT_EQ(d.state()->bit_rate, 91875);
  std::vector<u8> rest(data.begin() + long(size) + 4, data.end());
  feed(d, rest, 1000);
  EXPECT_EQ(d.state()->frames, 8u);
}

TEST(MpaDecoder, FreeFormatSizeLearntAcrossPadding) {
  // Padded and unpadded free-format frames: the padding byte is not part of
  // the learnt size.
  std::vector<u8> data = frame(0xFFFB0264, 301);
  for (int i = 0; i < 5; ++i) {
    std::vector<u8> f = frame(i % 2 ? 0xFFFB0264 : 0xFFFB0064, i % 2 ? 301 : 300);
    data.insert(data.end(), f.begin(), f.end());
  }
  Decoder d;
  feed(d, data, 64);
  EXPECT_EQ(d.state()->free_size, 300u);
  EXPECT_EQ(d.state()->frames, 6u);
}

// The frame check word, computed here bit by bit from the generator.
u16 reference_crc(const std::vector<u8> &bytes) {
  u16 crc = 0xFFFF;
  for (u8 byte : bytes)
    for (int bit = 7; bit >= 0; --bit) {
      bool in = (byte >> bit) & 1;
      bool top = crc & 0x8000;
      crc = u16(crc << 1);
      if (in != top) crc ^= 0x8005;
    }
  return crc;
}

TEST(MpaDecoder, ChecksProtectedLayerThreeFrames) {
  struct Case {
    u32 header;
    size_t size, side;
  } cases[] = {{0xFFFA9064, 417, 32}, {0xFFFA90C4, 417, 17}, {0xFFF29064, 261, 17},
               {0xFFF290C4, 261, 9}};
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.header);
    std::vector<u8> good = frame(c.header, c.size);
    std::vector<u8> covered = {good[2], good[3]};
    covered.insert(covered.end(), good.begin() + 6, good.begin() + 6 + long(c.side));
    u16 crc = reference_crc(covered);
    good[4] = u8(crc >> 8);
    good[5] = u8(crc);
    std::vector<u8> data = good;
    std::vector<u8> bad = good;
    bad[6 + c.side - 1] ^= 1;  // last protected bit
    data.insert(data.end(), bad.begin(), bad.end());
    std::vector<u8> unprotected = good;
    unprotected[6 + c.side] ^= 1;  // first bit after the side information
    data.insert(data.end(), unprotected.begin(), unprotected.end());
    Decoder d;
    feed(d, data, 500);
    EXPECT_EQ(d.state()->frames, 3u);
    EXPECT_EQ(d.state()->crc_errors, 1u);
    EXPECT_EQ(d.state()->crc, 1);
  }
}

TEST(MpaDecoder, CountsBitRateChangesOverAStream) {
  struct Case {
    std::vector<int> kbps_index;  // per frame
    int changes, vbr;
  };
  const int sizes[16] = {0, 104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044};
  const Case cases[] = {
      {{9, 9, 9, 9, 9, 9}, 1, 0},
      {{9, 10, 10, 9, 9, 11}, 4, 0},
      {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14}, 14, 1},
      {{5, 6, 5, 6, 5, 6, 5, 6, 5, 6, 5, 6}, 12, 1},
      {{5, 6, 5, 6, 5, 6, 5, 6, 5, 6, 5}, 11, 0},
  };
  for (const Case &c : cases) {
    std::vector<u8> data;
    for (int b : c.kbps_index) {
      std::vector<u8> f = frame(0xFFFB0064 | (u32(b) << 12), size_t(sizes[b]));
      data.insert(data.end(), f.begin(), f.end());
    }
    Decoder d;
    feed(d, data, 700);
    EXPECT_EQ(d.state()->frames, c.kbps_index.size());
    EXPECT_EQ(d.state()->bitrate_changes, c.changes);
    EXPECT_EQ(d.state()->vbr, c.vbr);
  }
  g_mpa_stream_changed = 0;
}

TEST(MpaDecoder, DebugDumpWritesHeadingAndValues) {
  char dir_template[] = "/tmp/mpadec_dumpXXXXXX";
  ASSERT_NE(mkdtemp(dir_template), nullptr);
  char old[4096];
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(dir_template), 0);
  const s32 values[] = {1, -22, 333333};
  debug_dump(values, 3, "granule 0");
  debug_dump(values, 1, "next");
  ASSERT_EQ(chdir(old), 0);
  std::ifstream in(std::string(dir_template) + "/dump_mp3.txt");
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(),
            "granule 0\n            1           -22        333333 \nnext\n            1 \n");
  std::remove((std::string(dir_template) + "/dump_mp3.txt").c_str());
  rmdir(dir_template);
}

}  // namespace
