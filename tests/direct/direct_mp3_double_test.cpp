// The MP3 worker against a stand-in decoder whose output is known exactly:
// the PCM it makes reaches /dev/dsp unchanged, the output opens with the
// first decoded frame's format, the padding blocks follow by rate, and the
// decoder context is closed at the end. The stand-in's definitions take the
// place of the real decoder's in this program.
#include "direct/mpa_decoder.h"
#include "tests/direct/direct_test_util.h"

namespace {

// The stand-in: every call takes up to kFrameIn bytes and makes one frame of
// kFrameSamples samples per channel from them; a stream that starts with
// "TAG" has a 100-byte lead-in that gives no output.
constexpr int kFrameIn = 300;
constexpr int kFrameSamples = 1152;

struct Double {
  int rate = 22050;
  int channels = 2;
  bool fail_open = false;
  int opens = 0, closes = 0;
  s16 output[kFrameSamples * 2] = {};
  MpaCodecContext *open_ctx = nullptr;
};
Double fake;

}  // namespace

int pmx_avcodec_open(MpaCodecContext *ctx, void *) {
  ++fake.opens;
  if (fake.fail_open || ctx->priv != nullptr) return -1;
  ctx->priv = ctx + 1;
  fake.open_ctx = ctx;
  return 0;
}

int pmx_avcodec_decode_audio(MpaCodecContext *ctx, s16 *out, int *out_size, const u8 *in, int in_len) {
  *out_size = 0;
  if (ctx->priv == nullptr || in_len <= 0) return 0;
  if (in_len >= 100 && in[0] == 'T' && in[1] == 'A' && in[2] == 'G') return 100;
  const int take = in_len < kFrameIn ? in_len : kFrameIn;
  const int n = kFrameSamples * fake.channels;
  for (int i = 0; i < n; ++i) out[i] = static_cast<s16>(in[i % take] * 100 + i);
  *out_size = n * 2;
  return take;
}

int pmx_avcodec_close(MpaCodecContext *ctx) {
  ++fake.closes;
  ctx->priv = nullptr;
  return 0;
}

s16 *mpa_output_buffer(const MpaCodecContext *) { return fake.output; }
int mpa_channels(const MpaCodecContext *) { return fake.channels; }
int mpa_sample_rate(const MpaCodecContext *) { return fake.rate; }

namespace directtest {
namespace {

// What the stand-in makes of `file`, fed as the driver feeds it.
std::vector<u8> expected_pcm(const std::vector<u8> &file, int channels) {
  std::vector<u8> pcm;
  std::size_t at = 0;
  if (file.size() >= 100 && file[0] == 'T' && file[1] == 'A' && file[2] == 'G') at = 100;
  while (at < file.size()) {
    const int take = static_cast<int>(std::min<std::size_t>(kFrameIn, file.size() - at));
    for (int i = 0; i < kFrameSamples * channels; ++i) {
      const s16 v = static_cast<s16>(file[at + static_cast<std::size_t>(i % take)] * 100 + i);
      const u8 *b = reinterpret_cast<const u8 *>(&v);
      pcm.insert(pcm.end(), b, b + 2);
    }
    at += static_cast<std::size_t>(take);
  }
  return pcm;
}

std::vector<u8> stream(std::size_t n, bool lead_in) {
  std::vector<u8> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<u8>(i * 13 + 7);
  if (lead_in) std::memcpy(v.data(), "TAG", 3);
  return v;
}

class DirectMp3Double : public DirectTest {
 protected:
  void SetUp() override {
    DirectTest::SetUp();
    fake = Double{};
  }
  std::string play(const std::vector<u8> &file) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), 0);
    EXPECT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
    wait_until_done();
    return ::testing::internal::GetCapturedStdout();
  }
};

struct RateCase {
  int rate, channels;
  u32 padding_blocks;
};

class DirectMp3Rates : public DirectMp3Double, public ::testing::WithParamInterface<RateCase> {};

TEST_P(DirectMp3Rates, CapturesTheDecodersOutputThenPadding) {
  const RateCase c = GetParam();
  fake.rate = c.rate;
  fake.channels = c.channels;
  const std::vector<u8> file = stream(5 * kFrameIn + 123, true);
  const std::string out = play(file);

  const std::vector<u8> expected = expected_pcm(file, c.channels);
  const board::DspCapture cap = board::dsp_capture();
  EXPECT_EQ(cap.format, 0x10);
  EXPECT_EQ(cap.rate, c.rate);
  EXPECT_EQ(cap.channels, c.channels);
  ASSERT_EQ(cap.pcm.size(), expected.size() + c.padding_blocks * 8192);
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), cap.pcm.begin()));
  EXPECT_TRUE(std::all_of(cap.pcm.begin() + static_cast<long>(expected.size()), cap.pcm.end(),
                          [](u8 b) { return b == 0; }));
  std::string lines = "PMX_DIRECT_PLAY_MP3\n";
  for (u32 i = 0; i < c.padding_blocks; ++i) lines += "padding: " + std::to_string(i) + "\n";
  EXPECT_EQ(out, lines);
  EXPECT_EQ(fake.opens, 1);
  EXPECT_EQ(fake.closes, 1);
}

// 11025 and 16000 Hz get 4 blocks, 22050 Hz 8, every other rate 12.
INSTANTIATE_TEST_SUITE_P(Rates, DirectMp3Rates,
                         ::testing::Values(RateCase{22050, 2, 8}, RateCase{11025, 1, 4}, RateCase{16000, 1, 4},
                                           RateCase{44100, 2, 12}, RateCase{48000, 2, 12}),
                         [](const ::testing::TestParamInfo<RateCase> &info) {
                           return std::to_string(info.param.rate) + "Hz";
                         });

TEST_F(DirectMp3Double, OpenFailureEndsThePlaybackQuietly) {
  fake.fail_open = true;
  const std::string out = play(stream(1000, false));
  EXPECT_EQ(out, "PMX_DIRECT_PLAY_MP3\npmx_mp3_init failed!:avcodec_open failed!\n");
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  EXPECT_EQ(board::dsp_capture().bytes, 0u);
  EXPECT_TRUE(board::log_lines().empty());  // the output was never opened
}

TEST_F(DirectMp3Double, PlaysAgainAndDeinitKeepsTheMp3SetUp) {
  const std::vector<u8> file = stream(2 * kFrameIn, false);
  play(file);
  const std::uint64_t once = board::dsp_capture().bytes;
  EXPECT_EQ(once, expected_pcm(file, 2).size() + 8 * 8192u);
  // MP3 mode never loads the PCM decoder: deinit says not ready and leaves
  // the renderer and the decoder buffer, so the file plays again.
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(board::dsp_capture().bytes, 2 * once);
  EXPECT_EQ(fake.opens, 2);
  EXPECT_EQ(fake.closes, 2);
}

TEST_F(DirectMp3Double, StopAndBusy) {
  fake.rate = 44100;
  const std::vector<u8> file = stream(200 * kFrameIn, false);  // about 5 s of sound
  board::set_dsp_speed(1);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), 0);
  ASSERT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
  EXPECT_EQ(pmx_is_direct_playing(), 1u);
  EXPECT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), PMX_DIRECT_BUSY);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_BUSY);
  usleep(100 * 1000);
  EXPECT_EQ(pmx_direct_stop(), 0);
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("padding: 11\n"), std::string::npos) << out;
  const std::uint64_t bytes = board::dsp_capture().bytes;
  EXPECT_LT(bytes, expected_pcm(file, 2).size());
  EXPECT_EQ((bytes - 12 * 8192) % (kFrameSamples * 4), 0u);  // whole frames, then padding
  EXPECT_EQ(fake.closes, 1);
}

}  // namespace
}  // namespace directtest
