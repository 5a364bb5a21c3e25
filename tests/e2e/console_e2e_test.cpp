// The real console binary on the host engine, driven through its standard
// input as an engineer would type.
#include <gtest/gtest.h>
#include <time.h>

#include <filesystem>
#include <string>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

size_t count(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

const char *PROMPT = "\nCommand ('help' for help): ";

TEST(Console, StartUpBannerHelpAndPrompt) {
  const ConsoleRun run = run_console({}, "quit\n");
  EXPECT_EQ(run.exit_code, 0);
  // 1 Nov 2005 01:01:00 in the local zone of the run.
  std::tm t{};
  t.tm_min = 1;
  t.tm_hour = 1;
  t.tm_mday = 1;
  t.tm_mon = 10;
  t.tm_year = 105;
  const long expected = static_cast<long>(mktime(&t));
  EXPECT_EQ(run.out.find("sec = " + std::to_string(expected) + "\nargc =1\n"), 0u) << run.out;
  EXPECT_TRUE(has(run.out, "type test\nchar =[1]\nshort =[2]\nint =[4]\nint MAX=[2147483647]\nlong =[4]\n"
                           "long long=[8]\nlong MAX=[2147483647]\nfloat =[4]\ndouble =[8]\nlong double =[8]\n"));
  EXPECT_TRUE(has(run.out, "\n\n\nMAIN pmx_engine initialize\n\naudio_device initialize success.....!!\n\n"
                           "###################################################\n"))
      << run.out;
  EXPECT_TRUE(has(run.out, "\tzen       :  zen min test app \n###################################################\n"
                           "\nCommand ('help' for help): pmx main engine release\n"))
      << run.out;
}

// The console sets the clock; on the host it must never succeed, even
// without the virtual board that takes the request.
TEST(Console, HostClockIsNeverMoved) {
  timespec wall0{}, mono0{}, wall1{}, mono1{};
  clock_gettime(CLOCK_REALTIME, &wall0);
  clock_gettime(CLOCK_MONOTONIC, &mono0);
  const ConsoleRun run = run_console({}, "quit\n", {}, 30, false);
  clock_gettime(CLOCK_REALTIME, &wall1);
  clock_gettime(CLOCK_MONOTONIC, &mono1);
  EXPECT_TRUE(has(run.out, "Error setting\n"));
  const double wall = (wall1.tv_sec - wall0.tv_sec) + (wall1.tv_nsec - wall0.tv_nsec) / 1e9;
  const double mono = (mono1.tv_sec - mono0.tv_sec) + (mono1.tv_nsec - mono0.tv_nsec) / 1e9;
  EXPECT_NEAR(wall, mono, 2.0);
  EXPECT_GT(wall1.tv_sec, 1700000000);  // not back in 2005
}

TEST(Console, WavFromTheCommandLineOpensAsPcm) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const ConsoleRun run = run_console({wav}, "file\nclose\nquit\n");
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(run.out, "argc =2\n"));
  EXPECT_TRUE(has(run.out, "argv[1] =" + wav + "\n"));
  EXPECT_TRUE(has(run.out, "Solution type=7\n"));
  EXPECT_TRUE(has(run.out, "solution name =[pcm]\ncommand [OPEN] : PMX_OK\n")) << run.out;
  // The engine's own view of the real file.
  EXPECT_TRUE(has(run.out, "\n\t[FILE INFORMATION]\n"));
  EXPECT_TRUE(has(run.out, "Mai Get Video info failed: "));
  EXPECT_TRUE(has(run.out, "\n\t[audio source info]\n\nMediaType          : Audio MediaType\n"
                           "MediaSubType       : PCM Audio \n")) << run.out;
  EXPECT_TRUE(has(run.out, "SamplesPerSec      : 44100\nBitsPerSample      : 16\nChannels           : 2\n"));
  EXPECT_TRUE(has(run.out, "\n\t[CURRENT DISPLAY SETTING INFORMATION]\n"));
  EXPECT_TRUE(has(run.out, "closing\nstopping \n"));
  EXPECT_TRUE(has(run.out, "command [CLOSE] : PMX_OK\n"));
}

TEST(Console, OpenCommandStatuses) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const std::string odd = testing::TempDir() + "tone.abc";
  std::filesystem::copy_file(wav, odd, std::filesystem::copy_options::overwrite_existing);
  const ConsoleRun run =
      run_console({}, "open\n/no/such/clip.wav\nOPEN\n" + odd + "\nOpen\n" + wav + "\nopen\n" + wav + "\nquit\n");
  EXPECT_TRUE(has(run.out, "filename? command [OPEN] : PMX_FILE_NOT_FOUND\n")) << run.out;
  EXPECT_TRUE(has(run.out, "PMX_Prescan failed Solution type=0\n"));
  EXPECT_TRUE(has(run.out, "command [OPEN] : PMX_UNKNOWN_FORMAT\n"));
  EXPECT_TRUE(has(run.out, "command [OPEN] : PMX_OK\n"));
  EXPECT_TRUE(has(run.out, "filename? command [OPEN] : PMX_FILE_ALREADY_OPEN\n"));
  // quit closes the open file on release.
  EXPECT_TRUE(has(run.out, "pmx main engine release\nstopping \n"));
  EXPECT_EQ(run.exit_code, 0);
}

TEST(Console, LongLinesAndUnknownWords) {
  const std::string typed = std::string(300, 'z') + "\nplay \nFILE\n\nquit\n";
  const ConsoleRun run = run_console({}, typed);
  // 255 + 45 characters: two commands, "play " one more, the empty line one more.
  EXPECT_EQ(count(run.out, "unkown command\n"), 4u) << run.out;
  EXPECT_EQ(count(run.out, PROMPT), 6u);
  EXPECT_TRUE(has(run.out, "\n\t[FILE INFORMATION]\nMai Get Video info failed: "));
  EXPECT_EQ(run.exit_code, 0);
}

TEST(Console, TwoArgumentsOpenNothing) {
  const std::string wav = fixtures::media("tone.wav");
  const ConsoleRun run = run_console({wav, wav}, "quit\n");
  EXPECT_TRUE(has(run.out, "argc =3\n"));
  EXPECT_FALSE(has(run.out, "argv[1]"));
  EXPECT_FALSE(has(run.out, "solution name"));
}

TEST(Console, ConnectionFallbacks) {
  const std::string wav = fixtures::media("tone.wav");
  ConsoleRun run = run_console({wav}, "quit\n", {{"PMX_ENGINE_FAULTS", "auto=8"}});
  EXPECT_TRUE(has(run.out, "Mai engine failed to connect to " + wav + ": 8\nPmx manual trying ...command [OPEN] : PMX_OK\n"))
      << run.out;
  run = run_console({wav}, "quit\n", {{"PMX_ENGINE_FAULTS", "connect=8:2"}});
  EXPECT_TRUE(has(run.out, "Pmx manual trial failed to connect to " + wav + ": 8\ncommand [OPEN] : PMX_OPEN_FAILED\n"))
      << run.out;
}

TEST(Console, EngineFailuresEndTheConsoleWithOne) {
  ConsoleRun run = run_console({}, "quit\n", {{"PMX_ENGINE_FAULTS", "event"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "MAIN pmx_engine initialize\nMedia Init failed: 1\nEngine init failed: 15\n")) << run.out;
  EXPECT_FALSE(has(run.out, PROMPT));

  run = run_console({}, "quit\n", {{"PMX_ENGINE_FAULTS", "release=40"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "pmx main engine release\nMAI Engine failed to release: 40\nFailed to release pmx: 7\n"))
      << run.out;
}

}  // namespace
