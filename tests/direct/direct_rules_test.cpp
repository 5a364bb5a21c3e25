// The driver's result codes, stop and deinitialisation rules, the missing
// plug-in case, and the media control API's guard in front of it.
#include <sys/wait.h>

#include <cstdlib>

#include "api/pmx_internal.h"
#include "tests/direct/direct_test_util.h"

extern char **environ;

namespace directtest {
namespace {

// A WAV long enough to be still playing while the test acts: three seconds
// of CD-quality sound at real-time pacing, well beyond the output's buffer.
WavImage long_wav() { return make_wav(44100, 2, 16, 3 * 44100); }
constexpr std::size_t kLongPadding = 12 * 4096;

void start_real_time(const WavImage &wav) {
  board::set_dsp_speed(1);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ASSERT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  ASSERT_EQ(pmx_is_direct_playing(), 1u);
}

TEST_F(DirectTest, ArgumentsAreCheckedFirst) {
  const u8 byte = 0;
  EXPECT_EQ(pmx_init_direct_play(2), PMX_DIRECT_INVALID_ARG);
  EXPECT_EQ(pmx_init_direct_play(0xFFFFFFFFu), PMX_DIRECT_INVALID_ARG);
  EXPECT_EQ(_pmx_direct_play(nullptr, 100), PMX_DIRECT_INVALID_ARG);
  EXPECT_EQ(_pmx_direct_play(&byte, 0), PMX_DIRECT_INVALID_ARG);
}

TEST_F(DirectTest, NothingIsReadyBeforeInit) {
  const WavImage wav = make_wav(22050, 1, 16, 10);
  EXPECT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_direct_stop(), 0);
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  EXPECT_EQ(board::dsp_capture().bytes, 0u);
}

TEST_F(DirectTest, WavInitOnALoadedDecoderSaysAlreadyLoaded) {
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  EXPECT_EQ(pmx_wav_init(), PMX_DIRECT_ALREADY_LOADED);
  // The public init unloads the decoder first, so it loads again.
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "PMX_DIRECT_PLAY_WAVE\n");
}

TEST_F(DirectTest, BusyWhilePlaying) {
  const WavImage wav = long_wav();
  start_real_time(wav);
  EXPECT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), PMX_DIRECT_BUSY);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_BUSY);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), PMX_DIRECT_BUSY);
  EXPECT_EQ(pmx_init_direct_play(2), PMX_DIRECT_INVALID_ARG);  // the argument is checked before
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_direct_stop(), 0);
  ::testing::internal::GetCapturedStdout();
}

TEST_F(DirectTest, StopEndsThePlaybackWithItsPadding) {
  const WavImage wav = long_wav();
  ::testing::internal::CaptureStdout();
  start_real_time(wav);
  usleep(100 * 1000);
  EXPECT_EQ(pmx_direct_stop(), 0);
  // stop returns only once the worker has finished.
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  const std::string out = ::testing::internal::GetCapturedStdout();
  EXPECT_NE(out.find("padding: 11\nEND thread\n"), std::string::npos) << out;

  const board::DspCapture cap = board::dsp_capture();
  const std::size_t sound = wav.samples.size() * 2;
  ASSERT_LT(cap.pcm.size(), sound);  // cut short
  ASSERT_GT(cap.pcm.size(), kLongPadding);
  const std::size_t played = cap.pcm.size() - kLongPadding;
  EXPECT_EQ(played % 4096, 0u);  // whole decoded blocks
  EXPECT_EQ(std::memcmp(cap.pcm.data(), wav.samples.data(), played), 0);
  EXPECT_TRUE(std::all_of(cap.pcm.begin() + static_cast<long>(played), cap.pcm.end(),
                          [](std::uint8_t b) { return b == 0; }));
  // The stopped driver plays again.
  board::set_dsp_speed(0);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(board::dsp_capture().bytes, cap.bytes + sound + kLongPadding);
}

TEST_F(DirectTest, DeinitStopsAPlaybackAndUnloads) {
  const WavImage wav = long_wav();
  ::testing::internal::CaptureStdout();
  start_real_time(wav);
  usleep(50 * 1000);
  EXPECT_EQ(pmx_deinit_direct_play(), 0);
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  EXPECT_LT(board::dsp_capture().pcm.size(), wav.samples.size() * 2);
  // Unloaded: playing is refused, a second deinit has nothing to undo.
  EXPECT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  // And it comes back with a new init.
  board::set_dsp_speed(0);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(_pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
}

TEST_F(DirectTest, DeinitAfterMp3ModeSaysNotReady) {
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  pmx_init_direct_play(PMX_DIRECT_MP3);  // unloads the PCM decoder
  EXPECT_NE(::testing::internal::GetCapturedStdout().find("PMX_DIRECT_PLAY_MP3\n"), std::string::npos);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
  // The renderer stayed loaded: a WAV init needs only the decoder again.
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  EXPECT_EQ(pmx_deinit_direct_play(), 0);
}

TEST_F(DirectTest, PaddingCountsByRate) {
  EXPECT_EQ(wav_padding_blocks(11025), 4u);
  EXPECT_EQ(wav_padding_blocks(16000), 12u);
  EXPECT_EQ(wav_padding_blocks(22050), 8u);
  EXPECT_EQ(wav_padding_blocks(48000), 12u);
  EXPECT_EQ(mp3_padding_blocks(11025), 4u);
  EXPECT_EQ(mp3_padding_blocks(16000), 4u);
  EXPECT_EQ(mp3_padding_blocks(22050), 8u);
  EXPECT_EQ(mp3_padding_blocks(44100), 12u);
}

TEST_F(DirectTest, ApiGuardRefusesWhileTheEngineIsPlaying) {
  const WavImage wav = make_wav(22050, 1, 16, 10);
  pmx.state = PMX_STATE_PLAYING;
  EXPECT_EQ(pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), PMX_DIRECT_BUSY);
  pmx.state = PMX_STATE_STOPPED;
  EXPECT_EQ(pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), PMX_DIRECT_NOT_READY);
  ASSERT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), 0);
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_direct_play(wav.bytes.data(), static_cast<u32>(wav.bytes.size())), 0);
  wait_until_done();
  ::testing::internal::GetCapturedStdout();
  EXPECT_EQ(board::dsp_capture().bytes, 10 * 2 + 8 * 4096u);
  pmx.state = PMX_STATE_NONE;
}

// Without the plug-ins on the library path initialisation reports 1 and
// the loader's text. The loader reads its path at start-up, so the check
// runs in a fresh copy of this program started without it.
TEST(DirectNoPlugins, DISABLED_InitReportsLoadFailure) {
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), PMX_DIRECT_LOAD_FAILED);
  const u8 byte = 0;
  EXPECT_EQ(_pmx_direct_play(&byte, 1), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
}

// Runs one disabled test of this program in a fresh copy with the given
// library path ("" for none); its standard error comes back.
std::string run_child(const char *test, const std::string &library_path, int *exit_code) {
  int err[2];
  if (pipe(err) != 0) return {};
  const std::string filter = std::string("--gtest_filter=") + test;
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(err[1], 2);
    if (library_path.empty()) {
      unsetenv("LD_LIBRARY_PATH");
    } else {
      setenv("LD_LIBRARY_PATH", library_path.c_str(), 1);
    }
    execl("/proc/self/exe", "direct_tests", "--gtest_also_run_disabled_tests", filter.c_str(),
          static_cast<char *>(nullptr));
    _exit(127);
  }
  close(err[1]);
  std::string text;
  char chunk[512];
  for (ssize_t n; (n = read(err[0], chunk, sizeof chunk)) > 0;) text.append(chunk, static_cast<size_t>(n));
  close(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  *exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return text;
}

TEST(DirectNoPlugins, InitReportsLoadFailure) {
  int code = -1;
  const std::string text = run_child("DirectNoPlugins.DISABLED_InitReportsLoadFailure", "", &code);
  EXPECT_EQ(code, 0) << text;
  EXPECT_NE(text.find("libmaiaudrend.so: cannot open shared object file"), std::string::npos) << text;
}

// A renderer without "recover_setting": the look-up fails with the
// loader's text, after the symbols before it were resolved.
TEST(DirectNoPlugins, DISABLED_MissingRendererSymbol) {
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_NE(pmx_direct.setup, nullptr);
  EXPECT_NE(pmx_direct.close, nullptr);
  EXPECT_EQ(pmx_direct.recover, nullptr);
  EXPECT_EQ(pmx_direct.save, nullptr);
}

TEST(DirectNoPlugins, MissingRendererSymbol) {
  int code = -1;
  const std::string text = run_child("DirectNoPlugins.DISABLED_MissingRendererSymbol", PMX_BROKEN_PLUGIN_DIR, &code);
  EXPECT_EQ(code, 0) << text;
  EXPECT_NE(text.find("undefined symbol: recover_setting"), std::string::npos) << text;
}

}  // namespace
}  // namespace directtest
