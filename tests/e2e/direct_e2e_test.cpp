// The console's direct playback words end to end on the real binary, with
// the engine's plug-ins on the library path and /dev/dsp captured by the
// board. (The driver's rules are the direct playback tests'.)
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

// The bytes of a WAV file's data chunk.
std::vector<char> data_chunk(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> wav{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  for (std::size_t pos = 12; pos + 8 <= wav.size();) {
    std::uint32_t size = 0;
    std::memcpy(&size, wav.data() + pos + 4, 4);
    if (std::memcmp(wav.data() + pos, "data", 4) == 0)
      return {wav.begin() + long(pos + 8), wav.begin() + long(std::min<std::size_t>(wav.size(), pos + 8 + size))};
    pos += 8 + size + (size & 1);
  }
  return {};
}

// Played to the end without pacing, deinit typed once the capture holds it
// all: the file's own samples, then twelve zero blocks of 4096 bytes.
TEST(DirectWords, PlayToTheEndThenDeinit) {
  const std::string wav = fixtures::media("tone.wav");
  const std::vector<char> source = data_chunk(wav);
  ASSERT_FALSE(source.empty());
  TempFile cap("direct.wav");
  auto played_all = [&] { return data_chunk(cap.path).size() >= source.size() + 12 * 4096; };
  const ConsoleRun run =
      run_console({}, {{"wav_init\n" + wav + "\nwav_play\n", "", 0, played_all}, {"wav_deinit\nquit\n"}},
                  {{"PMX_BOARD_DSP_CAPTURE", cap.path}, {"PMX_BOARD_DSP_SPEED", "0"}});
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(run.out, "wav filename? loaded " + wav + ": " + std::to_string(std::filesystem::file_size(wav)) +
                               " bytes\nPMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n") &&
              has(run.out, "padding: 11\nEND thread\n") && !has(run.out, "padding: 12\n"))
      << run.out;
  const std::vector<char> played = data_chunk(cap.path);
  ASSERT_EQ(played.size(), source.size() + 12 * 4096);
  EXPECT_TRUE(std::equal(source.begin(), source.end(), played.begin()));
  EXPECT_TRUE(std::all_of(played.begin() + long(source.size()), played.end(), [](char b) { return b == 0; }));
}

// Each word prints the driver's result; a wav_init while a playback runs
// keeps its image (busy, 2); wav_deinit drops the image, so nothing is left
// to play (3). The two-second tone plays in real time, so it is still
// playing when stopped; the stop waits for the worker.
TEST(DirectWords, ResultsAndTheImage) {
  const std::string wav = fixtures::media("tone.wav");
  run_session({}, {{"wav_init\n" + wav + "\n", "wav filename? loaded *PMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n"},
                   {"wav_play\n", "pmx_direct_play = 0\n", 300},
                   {"wav_init\n" + wav + "\n", "wav filename? pmx_init_direct_play = 2\n"},
                   {"wav_stop\n", "*padding: 11\nEND thread\npmx_direct_stop = 0\n"},
                   {"wav_deinit\n", "pmx_deinit_direct_play = 0\n"},
                   {"wav_play\n", "pmx_direct_play = 3\n"},
                   {"quit\n", "pmx main engine release\n"}});
}

// Without the plug-ins initialisation reports 1; a file that cannot be
// opened is not loaded, so there is nothing to play.
TEST(DirectWords, MissingPluginsOrFile) {
  const std::string wav = fixtures::media("tone.wav");
  std::string o = run_console({}, {{"wav_init\n" + wav + "\nwav_play\nquit\n"}}, {}, false).out;
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 1\n") && has(o, "pmx_direct_play = 5\n")) << o;
  o = run_console({}, {{"wav_init\n/nonexistent/x.wav\nwav_play\nquit\n"}}).out;
  EXPECT_TRUE(has(o, "wav filename? cannot open /nonexistent/x.wav\n") && !has(o, "pmx_init_direct_play") &&
              has(o, "pmx_direct_play = 3\n"))
      << o;
}

}  // namespace
