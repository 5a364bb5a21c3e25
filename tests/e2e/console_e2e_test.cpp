// The real console binary on the host engine and the virtual board, driven
// through its standard input: start-up, the line reader, and how engine
// failures end it.
#include <gtest/gtest.h>
#include <time.h>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

// Start-up with a file named: the fixed clock, the type sizes, engine and
// codec initialisation, help, then DAC input, earphone on, volume 25, and
// the file opened and played; quit closes it on release.
TEST(Console, StartUpWithAFile) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  TempFile log("startup.log");
  const ConsoleRun run = run_console({wav}, {{"quit\n"}}, {{"PMX_BOARD_LOG", log.path}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  std::tm t{};  // 1 Nov 2005 01:01:00 in the run's local zone
  t.tm_min = t.tm_hour = t.tm_mday = 1, t.tm_mon = 10, t.tm_year = 105;
  const std::string seconds = std::to_string(static_cast<long>(mktime(&t)));
  EXPECT_TRUE(o.starts_with("sec = " + seconds + "\nargc =2\ntype test\nchar =[1]\nshort =[2]\nint =[4]\n"
                            "int MAX=[2147483647]\nlong =[4]\nlong long=[8]\nlong MAX=[2147483647]\nfloat =[4]\n"
                            "double =[8]\nlong double =[8]\n\n\n\nMAIN pmx_engine initialize\n\n"
                            "audio_device initialize success.....!!\n\n####"))
      << o;
  EXPECT_TRUE(has(o, "\tzen       :  zen min test app \n###################################################\n"
                     "argv[1] =" + wav + "\ninput state : 1 \n\nSolution type=7\n"))
      << o;
  EXPECT_TRUE(has(o, "solution name =[pcm]\ncommand [OPEN] : PMX_OK\nplay speed = 0x00010000\n")) << o;
  EXPECT_TRUE(has(o, "command [PLAY] : PMX_OK\n\nCommand ('help' for help): pmx main engine release\nstopping \n"))
      << o;
  // The board's view: the clock set, the codec's defaults (ending with
  // 0x22), then DAC input, earphone on and the volume on the earphone.
  EXPECT_EQ(log.lines("clock set "), std::vector<std::string>{"clock set " + seconds});
  EXPECT_TRUE(log.holds({"mixer write 0x02 0x8000", "mixer write 0x22 0x0f0f", "mixer close", "mixer open",
                         "mixer write 0x18 0x4808", "mixer write 0x1a 0x3000", "mixer close", "mixer open",
                         "mixer write 0x04 0x8000", "mixer close", "mixer open", "mixer write 0x04 0x0d0d",
                         "mixer close"}));
  EXPECT_EQ(log.lines("mixer write").back(), "mixer write 0x04 0x0d0d");
}

// Without the board the clock request fails as on a board without the
// privilege, and the host clock does not move.
TEST(Console, HostClockIsNeverMoved) {
  timespec wall0{}, mono0{}, wall1{}, mono1{};
  clock_gettime(CLOCK_REALTIME, &wall0);
  clock_gettime(CLOCK_MONOTONIC, &mono0);
  const ConsoleRun run = run_console({}, {{"quit\n"}}, {}, false);
  clock_gettime(CLOCK_REALTIME, &wall1);
  clock_gettime(CLOCK_MONOTONIC, &mono1);
  EXPECT_TRUE(has(run.out, "argc =1\nError setting\n")) << run.out;
  const double wall = (wall1.tv_sec - wall0.tv_sec) + (wall1.tv_nsec - wall0.tv_nsec) / 1e9;
  const double mono = (mono1.tv_sec - mono0.tv_sec) + (mono1.tv_nsec - mono0.tv_nsec) / 1e9;
  EXPECT_NEAR(wall, mono, 2.0);
  EXPECT_GT(wall1.tv_sec, 1700000000);  // not back in 2005
}

// Two arguments open nothing; a typed line is cut at 255 characters, the
// rest read as the next line.
TEST(Console, TwoArgumentsAndLongLines) {
  const std::string wav = fixtures::media("tone.wav");
  const ConsoleRun run = run_session({wav, wav}, {{std::string(300, 'z') + "\n", "unkown command\n"},
                                                  {"", "unkown command\n"},
                                                  {"quit\n", "pmx main engine release\n"}});
  EXPECT_TRUE(has(run.out, "argc =3\n") && !has(run.out, "argv[1]")) << run.out;
}

// An engine that cannot start or be released ends the console with 1.
TEST(Console, EngineFailuresEndTheConsoleWithOne) {
  ConsoleRun run = run_console({}, {{"quit\n"}}, {{"PMX_ENGINE_FAULTS", "event"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "MAIN pmx_engine initialize\nMedia Init failed: 1\nEngine init failed: 15\n")) << run.out;
  EXPECT_FALSE(has(run.out, "Command ('help' for help)"));
  run = run_console({}, {{"quit\n"}}, {{"PMX_ENGINE_FAULTS", "release=40"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "pmx main engine release\nMAI Engine failed to release: 40\nFailed to release pmx: 7\n"))
      << run.out;
}

}  // namespace
