// Runs the real pmxtestapp binary with typed input and collects what it
// prints: on the virtual board (libpmxboard.so preloaded, the engine's
// plug-ins on the library path) unless `board` is false, and as root
// without the privilege to set the clock, so the host's clock is never
// touched. `env` may add the board's and the engine's controls.
#pragma once
#include <functional>
#include <string>
#include <utility>
#include <vector>

struct ConsoleRun {
  int exit_code = -1;  // -1: killed after a minute
  std::string out;
  std::vector<std::string> log;  // the board's event log
};
using Env = std::vector<std::pair<std::string, std::string>>;

// A typed part and, for run_session, the console's reply to it: the text
// between the prompt it answers and the next, where '*' stands for any
// text. The next part follows `pause_ms` later, or once `until` holds.
struct Typed {
  std::string text, reply = "";
  int pause_ms = 0;
  std::function<bool()> until = {};
};
ConsoleRun run_console(const std::vector<std::string> &args, const std::vector<Typed> &input, const Env &env = {},
                       bool board = true);
// Also holds the run to a clean exit and to each reply, in order.
ConsoleRun run_session(const std::vector<std::string> &args, const std::vector<Typed> &rows, const Env &env = {});

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
// The lines starting with `prefix`; whether `sequence` is in them in order.
std::vector<std::string> lines(const std::vector<std::string> &log, const std::string &prefix);
bool holds(const std::vector<std::string> &log, const std::vector<std::string> &sequence);
inline size_t count(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}
