// MP3 playback on the virtual board: what reaches /dev/dsp is exactly what
// our decoder makes of the file, frame by frame, followed by the driver's
// 8192-byte zero padding blocks; and that sound is the reference decoder's
// to within 16-bit rounding.
#include <fstream>
#include <iterator>

#include "direct/mpa_decoder.h"
#include "tests/direct/direct_test_util.h"
#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

namespace directtest {
namespace {

std::vector<u8> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Decoded {
  std::vector<u8> pcm;
  int channels = 0;
  int rate = 0;
};

// The whole file through the decoder the way the driver feeds it.
Decoded decode_all(const std::vector<u8> &file) {
  Decoded d;
  std::vector<u8> work(kMpaWorkBufferBytes, 0);
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  EXPECT_EQ(pmx_avcodec_open(ctx), 0);
  s16 *out = mpa_output_buffer(ctx);
  const u8 *data = file.data();
  std::size_t left = file.size();
  while (left > 0) {
    int size = 0;
    int used = pmx_avcodec_decode_audio(ctx, out, &size, data, static_cast<int>(left));
    if (size > 0) {
      const u8 *bytes = reinterpret_cast<const u8 *>(out);
      d.pcm.insert(d.pcm.end(), bytes, bytes + size);
      d.channels = mpa_channels(ctx);
      d.rate = mpa_sample_rate(ctx);
    }
    if (used < 0) used = 0;
    const std::size_t taken = std::min<std::size_t>(static_cast<std::size_t>(used), left);
    data += taken;
    left -= taken;
  }
  pmx_avcodec_close(ctx);
  return d;
}

struct Mp3Case {
  const char *file;
  int rate;
  int channels;
  u32 padding_blocks;
};

class DirectMp3Files : public DirectTest, public ::testing::WithParamInterface<Mp3Case> {};

TEST_P(DirectMp3Files, CapturesTheDecodersOutputThenPadding) {
  const Mp3Case c = GetParam();
  const std::string path = fixtures::media(c.file);
  ASSERT_FALSE(path.empty());
  const std::vector<u8> file = read_file(path);
  const Decoded expected = decode_all(file);
  ASSERT_EQ(expected.rate, c.rate);
  ASSERT_EQ(expected.channels, c.channels);
  ASSERT_GT(expected.pcm.size(), 0u);

  ::testing::internal::CaptureStdout();
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), 0);
  ASSERT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
  wait_until_done();
  const std::string out = ::testing::internal::GetCapturedStdout();

  const board::DspCapture cap = board::dsp_capture();
  EXPECT_EQ(cap.format, 0x10);
  EXPECT_EQ(cap.rate, c.rate);
  EXPECT_EQ(cap.channels, c.channels);
  ASSERT_EQ(cap.pcm.size(), expected.pcm.size() + c.padding_blocks * 8192);
  EXPECT_TRUE(std::equal(expected.pcm.begin(), expected.pcm.end(), cap.pcm.begin()));
  EXPECT_TRUE(std::all_of(cap.pcm.begin() + static_cast<long>(expected.pcm.size()), cap.pcm.end(),
                          [](u8 b) { return b == 0; }));
  // The captured sound against libmpg123: at most 2% above the rms error of
  // ideal 16-bit rounding, no sample more than 2 LSB off.
  mparef::StreamInfo info;
  const mparef::Pcm ref = mparef::decode_reference(file, &info);
  const mparef::Pcm played =
      mparef::from_s16(reinterpret_cast<const s16 *>(cap.pcm.data()), expected.pcm.size() / 2, c.channels, c.rate);
  const mparef::Measures m = mparef::compare(played, ref);
  EXPECT_GE(m.compared + size_t(mparef::kMaxShift), ref.frames());
  EXPECT_LE(m.ours_rms, 1.02 * m.rounded_rms) << m.ours_rms / mparef::kRoundingRms;
  EXPECT_LE(m.max_lsb, 2.0);

  std::string padding = "PMX_DIRECT_PLAY_MP3\n";
  for (u32 i = 0; i < c.padding_blocks; ++i) padding += "padding: " + std::to_string(i) + "\n";
  EXPECT_EQ(out, padding);

  // MP3 mode never loads the PCM decoder: deinit says not ready and keeps
  // the renderer and the decoder buffer, so the file plays again.
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(board::dsp_capture().bytes, 2 * cap.bytes);
}

INSTANTIATE_TEST_SUITE_P(Files, DirectMp3Files,
                         ::testing::Values(Mp3Case{"tone.mp3", 44100, 2, 12},
                                           Mp3Case{"mpeg2_22k_vbr_id3v24.mp3", 22050, 2, 8},
                                           Mp3Case{"mpeg25_11k_cbr_id3v1.mp3", 11025, 1, 4}),
                         [](const ::testing::TestParamInfo<Mp3Case> &info) {
                           return std::to_string(info.param.rate) + "Hz";
                         });

TEST_F(DirectTest, Mp3StopEndsThePlaybackWithItsPadding) {
  const std::vector<u8> file = read_file(fixtures::media("tone.mp3"));
  ASSERT_FALSE(file.empty());
  board::set_dsp_speed(1);
  ::testing::internal::CaptureStdout();
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), 0);
  ASSERT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), 0);
  EXPECT_EQ(pmx_is_direct_playing(), 1u);
  EXPECT_EQ(_pmx_direct_play(file.data(), static_cast<u32>(file.size())), PMX_DIRECT_BUSY);
  usleep(100 * 1000);
  EXPECT_EQ(pmx_direct_stop(), 0);
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("padding: 11\n"), std::string::npos) << out;
  // Two seconds of 44.1 kHz stereo would be 352800 bytes before padding.
  EXPECT_LT(board::dsp_capture().bytes, 352800u);
}

}  // namespace
}  // namespace directtest
