#include "tests/e2e/console_run.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "sim/board/preload.h"

ConsoleRun run_console(const std::vector<std::string> &args, const std::string &input,
                       const std::vector<std::pair<std::string, std::string>> &env, int seconds, bool board) {
  return run_console_paced(args, {{input, 0}}, env, seconds, board);
}

ConsoleRun run_console_paced(const std::vector<std::string> &args, const std::vector<TypedInput> &input,
                             const std::vector<std::pair<std::string, std::string>> &env, int seconds, bool board) {
  int to_child[2], from_child[2];
  if (pipe(to_child) != 0 || pipe(from_child) != 0) return {};
  // Everything the child needs is prepared before the fork.
  std::vector<std::string> argv;
  if (geteuid() == 0) argv = {"setpriv", "--bounding-set=-sys_time", "--"};
  // The board goes into the console alone, not into setpriv: env sets the
  // preload for the program it starts.
  if (board) {
    argv.emplace_back("env");
    for (const auto &[name, value] : board::preload_env()) argv.push_back(name + "=" + value);
    // The engine's plug-ins that direct playback loads by name.
    std::string library_path = PMX_PLUGIN_DIR;
    if (const char *old = std::getenv("LD_LIBRARY_PATH"); old && *old) library_path += std::string(":") + old;
    argv.push_back("LD_LIBRARY_PATH=" + library_path);
  }
  argv.emplace_back(PMX_CONSOLE_PATH);
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char *> raw;
  for (std::string &a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);

  const pid_t pid = fork();
  if (pid == 0) {
    dup2(to_child[0], 0);
    dup2(from_child[1], 1);
    close(to_child[1]);
    close(from_child[0]);
    for (const auto &[name, value] : env) setenv(name.c_str(), value.c_str(), 1);
    execvp(raw[0], raw.data());
    _exit(127);
  }
  close(to_child[0]);
  close(from_child[1]);
  signal(SIGPIPE, SIG_IGN);
  // The console reads one character at a time. The typing runs on its own
  // thread so that the output is collected while it pauses; closing the
  // pipe at the end gives end of input.
  std::thread typist([fd = to_child[1], &input] {
    for (const TypedInput &chunk : input) {
      size_t written = 0;
      while (written < chunk.text.size()) {
        const ssize_t n = write(fd, chunk.text.data() + written, chunk.text.size() - written);
        if (n <= 0) break;
        written += static_cast<size_t>(n);
      }
      if (chunk.pause_ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(chunk.pause_ms));
    }
    close(fd);
  });

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
  typist.join();
  int status = 0;
  waitpid(pid, &status, 0);
  run.exit_code = (!killed && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
  return run;
}
