// The console's direct playback words end to end: wav_init, wav_play,
// wav_stop and wav_deinit on the real binary, with a WAV made by sox, the
// engine's plug-ins on the library path and /dev/dsp captured by the board.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

std::vector<std::uint8_t> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::uint32_t le32(const std::vector<std::uint8_t> &v, std::size_t at) {
  std::uint32_t x = 0;
  std::memcpy(&x, v.data() + at, 4);
  return x;
}

// The bytes of a WAV file's data chunk.
std::vector<std::uint8_t> data_chunk(const std::vector<std::uint8_t> &wav) {
  for (std::size_t pos = 12; pos + 8 <= wav.size();) {
    const std::uint32_t size = le32(wav, pos + 4);
    if (std::memcmp(wav.data() + pos, "data", 4) == 0) {
      const std::size_t end = std::min<std::size_t>(wav.size(), pos + 8 + size);
      return {wav.begin() + static_cast<long>(pos + 8), wav.begin() + static_cast<long>(end)};
    }
    pos += 8 + size + (size & 1);
  }
  return {};
}

struct Capture {
  std::string path;
  explicit Capture(const std::string &name)
      : path(testing::TempDir() + "direct_" + name + "_" + std::to_string(getpid()) + ".wav") {
    std::remove(path.c_str());
  }
  ~Capture() { std::remove(path.c_str()); }
};

struct WavCase {
  const char *file;
  std::size_t padding_blocks;  // of 4096 bytes
};

class DirectWords : public testing::TestWithParam<WavCase> {};

TEST_P(DirectWords, PlayToTheEndThenDeinit) {
  const std::string wav = fixtures::media(GetParam().file);
  ASSERT_FALSE(wav.empty());
  Capture cap(std::to_string(GetParam().padding_blocks));
  const ConsoleRun run = run_console_paced(
      {}, {{"wav_init\n" + wav + "\nwav_play\n", 1500}, {"wav_deinit\nquit\n", 0}},
      {{"PMX_BOARD_DSP_CAPTURE", cap.path}, {"PMX_BOARD_DSP_SPEED", "0"}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(o, "wav filename? loaded " + wav + ": ")) << o;
  EXPECT_TRUE(has(o, "PMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 0\n")) << o;
  const std::string last = "padding: " + std::to_string(GetParam().padding_blocks - 1) + "\nEND thread\n";
  EXPECT_TRUE(has(o, last)) << o;
  EXPECT_FALSE(has(o, "padding: " + std::to_string(GetParam().padding_blocks) + "\n")) << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 0\n")) << o;

  // The captured sound is the file's own samples, then the zero padding.
  const std::vector<std::uint8_t> source = data_chunk(read_file(wav));
  const std::vector<std::uint8_t> played = data_chunk(read_file(cap.path));
  ASSERT_FALSE(source.empty());
  ASSERT_EQ(played.size(), source.size() + GetParam().padding_blocks * 4096);
  EXPECT_TRUE(std::equal(source.begin(), source.end(), played.begin()));
  EXPECT_TRUE(std::all_of(played.begin() + static_cast<long>(source.size()), played.end(),
                          [](std::uint8_t b) { return b == 0; }));
}

// tone.wav: 44.1 kHz stereo, 12 blocks; tone_8k_mono.wav: 8 kHz mono, 12.
INSTANTIATE_TEST_SUITE_P(Sox, DirectWords,
                         testing::Values(WavCase{"tone.wav", 12}, WavCase{"tone_8k_mono.wav", 12}),
                         [](const testing::TestParamInfo<WavCase> &info) { return std::string(info.index ? "Mono8k" : "Stereo44k"); });

TEST(DirectWordsRules, StopBusyAndResults) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  // Real-time output: the two-second tone is still playing when stopped.
  const ConsoleRun run = run_console_paced(
      {}, {{"wav_play\nwav_deinit\nwav_init\n" + wav + "\nwav_play\n", 300},
           {"wav_play\nwav_init\n" + wav + "\n", 100},
           {"wav_stop\nwav_stop\nwav_play\n", 100},
           {"wav_deinit\nwav_deinit\nquit\n", 0}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  const std::size_t first_play = o.find("pmx_direct_play = ");
  ASSERT_NE(first_play, std::string::npos);
  EXPECT_EQ(o.substr(first_play, 20), "pmx_direct_play = 3\n") << o;  // nothing loaded yet
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 5\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 0\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 2\n")) << o;        // busy
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 2\n")) << o;   // busy
  // The stop waits for the worker, which pads the output before it ends.
  EXPECT_TRUE(has(o, "padding: 11\nEND thread\npmx_direct_stop = 0\n\nCommand ('help' for help): "
                     "pmx_direct_stop = 0\n")) << o;
  // Played again after the stop, then deinit stops it; a second deinit has
  // nothing left to undo.
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 0\n")) << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 0\n\nCommand ('help' for help): pmx_deinit_direct_play = 5\n")) << o;
}

TEST(DirectWordsRules, WithoutThePluginsInitReportsOne) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const ConsoleRun run = run_console({}, "wav_init\n" + wav + "\nwav_play\nwav_deinit\nquit\n", {}, 30, false);
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 1\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 5\n")) << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 5\n")) << o;
}

TEST(DirectWordsRules, AMissingFileIsNotLoaded) {
  const ConsoleRun run = run_console({}, "wav_init\n/nonexistent/x.wav\nwav_play\nquit\n");
  EXPECT_TRUE(has(run.out, "wav filename? cannot open /nonexistent/x.wav\n")) << run.out;
  EXPECT_FALSE(has(run.out, "pmx_init_direct_play")) << run.out;
  EXPECT_TRUE(has(run.out, "pmx_direct_play = 3\n")) << run.out;  // no image to play
}

}  // namespace
