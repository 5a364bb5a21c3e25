// WAV playback on the virtual board: what reaches /dev/dsp is the image's
// own samples as 16-bit PCM followed by the driver's zero padding blocks,
// with the output set up from the image's format.
#include "tests/direct/direct_test_util.h"

namespace directtest {
namespace {

using ::testing::ElementsAre;

constexpr std::uint32_t kBlock = 4096;

struct Format {
  std::uint32_t rate, channels, bits, frames, padding_blocks;
};

class DirectWavFormats : public DirectTest, public ::testing::WithParamInterface<Format> {};

TEST_P(DirectWavFormats, CapturesItsSamplesThenPadding) {
  const Format f = GetParam();
  const WavImage wav = make_wav(f.rate, f.channels, f.bits, f.frames);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  const std::string out = ::testing::internal::GetCapturedStdout();
  ASSERT_EQ(pmx_is_direct_playing(), 0u);

  const board::DspCapture cap = board::dsp_capture();
  EXPECT_EQ(cap.format, 0x10);
  EXPECT_EQ(cap.channels, static_cast<int>(f.channels));
  EXPECT_EQ(cap.rate, static_cast<int>(f.rate));
  const std::size_t sound = wav.samples.size() * 2;
  ASSERT_EQ(cap.pcm.size(), sound + f.padding_blocks * kBlock);
  EXPECT_EQ(std::memcmp(cap.pcm.data(), wav.samples.data(), sound), 0);
  EXPECT_TRUE(std::all_of(cap.pcm.begin() + static_cast<long>(sound), cap.pcm.end(),
                          [](std::uint8_t b) { return b == 0; }));

  std::string padding;
  for (std::uint32_t i = 0; i < f.padding_blocks; ++i) padding += "padding: " + std::to_string(i) + "\n";
  EXPECT_NE(out.find(padding + "END thread\n"), std::string::npos) << out;
  EXPECT_EQ(out.find("padding: " + std::to_string(f.padding_blocks)), std::string::npos) << out;
}

// 11025 Hz gets 4 blocks, 22050 Hz 8, every other rate 12 (16000 Hz too).
INSTANTIATE_TEST_SUITE_P(Rates, DirectWavFormats,
                         ::testing::Values(Format{11025, 2, 8, 3000, 4}, Format{22050, 1, 16, 7001, 8},
                                           Format{44100, 2, 16, 10000, 12}, Format{16000, 1, 16, 1000, 12},
                                           Format{8000, 1, 8, 5, 12}, Format{11025, 1, 8, 5512, 4}),
                         [](const ::testing::TestParamInfo<Format> &info) {
                           const Format &f = info.param;
                           return std::to_string(f.rate) + "Hz_" + std::to_string(f.channels) + "ch_" +
                                  std::to_string(f.bits) + "bit";
                         });

TEST_F(DirectTest, OnlyTheDataChunkIsPlayed) {
  const WavImage wav = make_wav(22050, 2, 16, 2500, true);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  const board::DspCapture cap = board::dsp_capture();
  const std::size_t sound = wav.samples.size() * 2;
  ASSERT_EQ(cap.pcm.size(), sound + 8 * kBlock);
  EXPECT_EQ(std::memcmp(cap.pcm.data(), wav.samples.data(), sound), 0);
}

TEST_F(DirectTest, RendererSetsUpTheOutputWithTheBoardsRequests) {
  const WavImage wav = make_wav(22050, 1, 16, 100);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  std::vector<std::string> setup;
  for (const std::string &line : board::log_lines())
    if (line.rfind("dsp written", 0) != 0) setup.push_back(line);
  EXPECT_THAT(setup, ElementsAre("dsp open", "dsp reset", "dsp setfmt 0x10 0x10", "dsp stereo 0 0",
                                 "dsp speed 22050 22050", "dsp close"));
}

TEST_F(DirectTest, PlaysAgainAfterTheEndAndAfterANewInit) {
  const WavImage wav = make_wav(11025, 1, 16, 500);
  const std::size_t one = wav.samples.size() * 2 + 4 * kBlock;
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  // A new init unloads the PCM decoder and loads it again.
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(board::dsp_capture().bytes, 3 * one);
}

}  // namespace
}  // namespace directtest
