// The preload path: a plain program started with board::preload_env() runs
// on the virtual board without knowing it (sanitizer builds included).
#include "sim/board/preload.h"
#include "tests/board/board_test_util.h"

#include <spawn.h>
#include <sys/wait.h>

#include <map>

extern char **environ;

namespace boardtest {
namespace {

struct ProbeRun {
  int exit_code = -1;
  std::vector<std::string> log;
  std::string out;
};

ProbeRun run_probe(const std::vector<std::pair<std::string, std::string>> &extra) {
  const std::string log = temp_path("probe.log");
  const std::string out = temp_path("probe.out");
  ::unlink(log.c_str());
  std::map<std::string, std::string> env;
  for (char **e = environ; *e; ++e) {
    const std::string entry = *e;
    const std::size_t eq = entry.find('=');
    if (eq != std::string::npos && entry.compare(0, 10, "PMX_BOARD_") != 0)
      env[entry.substr(0, eq)] = entry.substr(eq + 1);
  }
  for (const auto &[name, value] : board::preload_env(log)) env[name] = value;
  for (const auto &[name, value] : extra) env[name] = value;
  std::vector<std::string> entries;
  for (const auto &[name, value] : env) entries.push_back(name + "=" + value);
  std::vector<char *> envp;
  for (std::string &e : entries) envp.push_back(e.data());
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::string program = PMX_BOARD_PROBE;
  char *argv[] = {program.data(), nullptr};
  pid_t pid = 0;
  ProbeRun run;
  if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, envp.data()) == 0) {
    int status = 0;
    ::waitpid(pid, &status, 0);
    run.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  run.log = read_lines(log);
  run.out = read_file(out);
  ::unlink(log.c_str());
  ::unlink(out.c_str());
  return run;
}

struct PreloadCase {
  const char *what;
  std::vector<std::pair<std::string, std::string>> env;
  std::vector<std::string> log;
};

void PrintTo(const PreloadCase &c, std::ostream *os) { *os << c.what; }

class Preload : public ::testing::TestWithParam<PreloadCase> {
 protected:
  // The probe must not be able to move the host clock even if the board
  // were not in front of it.
  static void SetUpTestSuite() { drop_clock_privilege(); }
};

TEST_P(Preload, ProbeRunsOnTheBoard) {
  const PreloadCase &c = GetParam();
  const ProbeRun run = run_probe(c.env);
  EXPECT_EQ(run.exit_code, 0) << run.out;
  EXPECT_EQ(run.log, c.log) << run.out;
}

INSTANTIATE_TEST_SUITE_P(
    Board, Preload,
    ::testing::Values(
        PreloadCase{"plain",
                    {},
                    {"mixer open", "mixer read 0x26 0x000f", "mixer write 0x04 0x0e0e",
                     "mixer read 0x04 0x0e0e", "mixer close", "clock set 1130806860"}},
        PreloadCase{"absent",
                    {{"PMX_BOARD_ABSENT", "mixer"}},
                    {"mixer open absent", "clock set 1130806860"}},
        PreloadCase{"failing",
                    {{"PMX_BOARD_FAIL", "mixer:80026615"}},
                    {"mixer open", "mixer read 0x26 0x000f", "mixer ioctl 0x80026615 failed",
                     "mixer read 0x04 0x8000", "mixer close", "clock set 1130806860"}}),
    [](const ::testing::TestParamInfo<PreloadCase> &info) { return std::string(info.param.what); });

}  // namespace
}  // namespace boardtest
