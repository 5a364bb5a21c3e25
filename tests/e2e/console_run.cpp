#include "tests/e2e/console_run.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

#include "sim/board/preload.h"

std::vector<std::string> lines(const std::vector<std::string> &log, const std::string &prefix) {
  std::vector<std::string> out;
  std::copy_if(log.begin(), log.end(), std::back_inserter(out), [&](const auto &l) { return l.starts_with(prefix); });
  return out;
}

bool holds(const std::vector<std::string> &log, const std::vector<std::string> &sequence) {
  size_t next = 0;
  for (const std::string &l : log) next += next < sequence.size() && l == sequence[next];
  return next == sequence.size();
}

namespace {
bool matches(const std::string &text, const std::string &pattern) {
  size_t at = 0, from = 0;
  for (size_t star; (star = pattern.find('*', from)) != std::string::npos; from = star + 1) {
    const std::string piece = pattern.substr(from, star - from);
    at = from == 0 ? (text.starts_with(piece) ? 0 : std::string::npos) : text.find(piece, at);
    if (at == std::string::npos) return false;
    at += piece.size();
  }
  const std::string last = pattern.substr(from);
  return from == 0 ? text == last : text.size() >= at + last.size() && text.ends_with(last);
}
}  // namespace

ConsoleRun run_session(const std::vector<std::string> &args, const std::vector<Typed> &rows, const Env &env) {
  const ConsoleRun run = run_console(args, rows, env);
  EXPECT_EQ(run.exit_code, 0);
  const std::string prompt = "\nCommand ('help' for help): ";
  std::vector<std::string> replies;
  for (size_t at = run.out.find(prompt), next; at != std::string::npos; at = next) {
    next = run.out.find(prompt, at + prompt.size());
    replies.push_back(run.out.substr(at + prompt.size(), next == std::string::npos ? next : next - at - prompt.size()));
  }
  EXPECT_EQ(replies.size(), rows.size()) << run.out;
  for (size_t i = 0; i < rows.size() && i < replies.size(); ++i)
    EXPECT_TRUE(matches(replies[i], rows[i].reply))
        << "typed: " << rows[i].text << "reply:\n" << replies[i] << "\nwanted:\n" << rows[i].reply;
  return run;
}

ConsoleRun run_console(const std::vector<std::string> &args, const std::vector<Typed> &input, const Env &env,
                       bool board) {
  // Everything the child needs is prepared before the fork. The board goes
  // into the console alone, not into setpriv.
  std::vector<std::string> argv;
  if (geteuid() == 0) argv = {"setpriv", "--bounding-set=-sys_time", "--"};
  if (board) {
    argv.emplace_back("env");
    for (const auto &[name, value] : board::preload_env()) argv.push_back(name + "=" + value);
    const char *old = std::getenv("LD_LIBRARY_PATH");
    argv.push_back(std::string("LD_LIBRARY_PATH=") + PMX_PLUGIN_DIR + (old && *old ? std::string(":") + old : ""));
  }
  const std::string log = testing::TempDir() + "e2e_board" + std::to_string(getpid()) + ".log";
  if (board) argv.push_back("PMX_BOARD_LOG=" + log);
  std::remove(log.c_str());
  argv.emplace_back(PMX_CONSOLE_PATH);
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char *> raw;
  for (std::string &a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);

  int to_child[2], from_child[2];
  if (pipe(to_child) != 0 || pipe(from_child) != 0) return {};
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
  // Typing on its own thread, so that the output is read while it waits;
  // closing the pipe at the end gives end of input.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  std::thread typist([fd = to_child[1], &input, deadline] {
    for (const Typed &part : input) {
      for (size_t done = 0; done < part.text.size();) {
        const ssize_t n = write(fd, part.text.data() + done, part.text.size() - done);
        if (n <= 0) break;
        done += size_t(n);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(part.pause_ms));
      while (part.until && !part.until() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(fd);
  });
  ConsoleRun run;
  bool killed = false;
  for (char buf[4096];;) {
    pollfd p{from_child[0], POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      const ssize_t n = read(from_child[0], buf, sizeof buf);
      if (n <= 0) break;
      run.out.append(buf, size_t(n));
    }
    if (!killed && std::chrono::steady_clock::now() > deadline) killed = kill(pid, SIGKILL) == 0;
  }
  close(from_child[0]);
  typist.join();
  int status = 0;
  waitpid(pid, &status, 0);
  run.exit_code = !killed && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) run.log.push_back(line);
  std::remove(log.c_str());
  return run;
}
