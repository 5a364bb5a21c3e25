// The console's direct playback words end to end: wav_init, wav_play,
// wav_stop and wav_deinit on the real binary, with WAVs made by sox, the
// engine's plug-ins on the library path and /dev/dsp captured by the board.
#include <gtest/gtest.h>

#include <cstring>
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

// Played to the end without pacing (deinit typed once the capture holds
// it all): the captured sound is the file's own
// samples, then twelve zero blocks of 4096 bytes; then deinit.
TEST(DirectWords, PlayToTheEndThenDeinit) {
  for (const char *file : {"tone.wav", "tone_8k_mono.wav"}) {  // 44.1 kHz stereo, 8 kHz mono
    SCOPED_TRACE(file);
    const std::string wav = fixtures::media(file);
    ASSERT_FALSE(wav.empty());
    const std::vector<char> source = data_chunk(wav);
    ASSERT_FALSE(source.empty());
    TempFile cap(std::string("direct_") + file);
    auto played_all = [&] { return data_chunk(cap.path).size() >= source.size() + 12 * 4096; };
    const ConsoleRun run =
        run_console_paced({}, {{"wav_init\n" + wav + "\nwav_play\n", 0, played_all}, {"wav_deinit\nquit\n"}},
                          {{"PMX_BOARD_DSP_CAPTURE", cap.path}, {"PMX_BOARD_DSP_SPEED", "0"}});
    const std::string &o = run.out;
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_TRUE(has(o, "wav filename? loaded " + wav + ": ")) << o;
    EXPECT_TRUE(has(o, "PMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n")) << o;
    EXPECT_TRUE(has(o, "pmx_direct_play = 0\n")) << o;
    EXPECT_TRUE(has(o, "padding: 11\nEND thread\n")) << o;
    EXPECT_FALSE(has(o, "padding: 12\n")) << o;
    EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 0\n")) << o;
    const std::vector<char> played = data_chunk(cap.path);
    ASSERT_EQ(played.size(), source.size() + 12 * 4096);
    EXPECT_TRUE(std::equal(source.begin(), source.end(), played.begin()));
    EXPECT_TRUE(std::all_of(played.begin() + long(source.size()), played.end(), [](char b) { return b == 0; }));
  }
}

// Result codes: nothing loaded (3), busy (2), stop waiting for the worker,
// deinit stopping a playback and then having nothing left to undo (5).
TEST(DirectWords, StopBusyAndResults) {
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
  EXPECT_EQ(o.substr(first_play, 20), "pmx_direct_play = 3\n") << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 5\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 0\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 2\n")) << o;
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 2\n")) << o;
  // The worker pads the output before it ends.
  EXPECT_TRUE(has(o, "padding: 11\nEND thread\npmx_direct_stop = 0\n\nCommand ('help' for help): "
                     "pmx_direct_stop = 0\n"))
      << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 0\n\nCommand ('help' for help): pmx_deinit_direct_play = 5\n")) << o;
}

// Without the plug-ins initialisation reports 1; a missing file is not
// loaded, so there is nothing to play.
TEST(DirectWords, MissingPluginsOrFile) {
  const std::string wav = fixtures::media("tone.wav");
  std::string o = run_console({}, "wav_init\n" + wav + "\nwav_play\nwav_deinit\nquit\n", {}, 30, false).out;
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 1\n")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 5\n")) << o;
  EXPECT_TRUE(has(o, "pmx_deinit_direct_play = 5\n")) << o;
  o = run_console({}, "wav_init\n/nonexistent/x.wav\nwav_play\nquit\n").out;
  EXPECT_TRUE(has(o, "wav filename? cannot open /nonexistent/x.wav\n")) << o;
  EXPECT_FALSE(has(o, "pmx_init_direct_play")) << o;
  EXPECT_TRUE(has(o, "pmx_direct_play = 3\n")) << o;
}

}  // namespace
