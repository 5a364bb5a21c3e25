#include "tests/e2e/console_run.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

ConsoleRun run_console(const std::vector<std::string> &args, const std::string &input,
                       const std::vector<std::pair<std::string, std::string>> &env, int seconds) {
  int to_child[2], from_child[2];
  if (pipe(to_child) != 0 || pipe(from_child) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(to_child[0], 0);
    dup2(from_child[1], 1);
    close(to_child[1]);
    close(from_child[0]);
    for (const auto &[name, value] : env) setenv(name.c_str(), value.c_str(), 1);
    std::vector<std::string> argv;
    if (geteuid() == 0) argv = {"setpriv", "--bounding-set=-sys_time", "--"};
    argv.emplace_back(PMX_CONSOLE_PATH);
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char *> raw;
    for (std::string &a : argv) raw.push_back(a.data());
    raw.push_back(nullptr);
    execvp(raw[0], raw.data());
    _exit(127);
  }
  close(to_child[0]);
  close(from_child[1]);
  signal(SIGPIPE, SIG_IGN);
  // The console reads one character at a time: the whole input fits the
  // pipe, and closing it gives end of input.
  ssize_t written = 0;
  while (written < static_cast<ssize_t>(input.size())) {
    const ssize_t n = write(to_child[1], input.data() + written, input.size() - written);
    if (n <= 0) break;
    written += n;
  }
  close(to_child[1]);

  ConsoleRun run;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  char chunk[4096];
  bool killed = false;
  for (;;) {
    pollfd p{from_child[0], POLLIN, 0};
    const int ready = poll(&p, 1, 100);
    if (ready > 0) {
      const ssize_t n = read(from_child[0], chunk, sizeof chunk);
      if (n <= 0) break;
      run.out.append(chunk, static_cast<size_t>(n));
    }
    if (std::chrono::steady_clock::now() > deadline && !killed) {
      kill(pid, SIGKILL);
      killed = true;
    }
  }
  close(from_child[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  run.exit_code = (!killed && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
  return run;
}
