// Runs the real pmxtestapp binary with typed input and collects what it
// prints. The console runs on the virtual board (libpmxboard.so preloaded,
// unless `board` is false): its codec, output switch, colour conversion and
// clock calls reach the board's device models; `env` may add the board's
// PMX_BOARD_* and the engine's PMX_ENGINE_* controls. The engine's plug-ins
// (sim/plugins) are put on the library path with the board. As root the
// console runs without the privilege to set the clock, so the host's clock
// is never touched.
#pragma once
#include <functional>
#include <string>
#include <utility>
#include <vector>

struct ConsoleRun {
  int exit_code = -1;  // -1: killed after a minute
  std::string out;
};
using Env = std::vector<std::pair<std::string, std::string>>;

// Typed input in parts, with a pause after each part (to let the engine's
// clock run between commands), or a wait until `until` holds (bounded by
// the time limit).
struct TypedInput {
  std::string text;
  int pause_ms = 0;
  std::function<bool()> until = {};
};
ConsoleRun run_console_paced(const std::vector<std::string> &args, const std::vector<TypedInput> &input,
                             const Env &env = {}, bool board = true);
inline ConsoleRun run_console(const std::vector<std::string> &args, const std::string &input, const Env &env = {},
                              bool board = true) {
  return run_console_paced(args, {{input, 0}}, env, board);
}

inline bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
inline size_t count(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A file in the test's temporary folder, removed at the end: the board's
// event log or its /dev/dsp capture.
struct TempFile {
  std::string path;
  explicit TempFile(const std::string &name);
  ~TempFile();
  std::vector<std::string> lines(const std::string &prefix = "") const;  // those starting with `prefix`
  // Whether the lines hold `sequence` in this order (others may come between).
  bool holds(const std::vector<std::string> &sequence) const;
};

// One typed command and the console's reply to it: the text between the
// prompt it answers and the next prompt. In `reply` a '*' stands for any
// text, so a trailing '*' leaves the rest of the reply open. The next
// command is typed `pause_ms` later.
struct Reply {
  std::string typed, reply;
  int pause_ms = 0;
};
// Runs the console with the rows' input and holds it to a clean exit and
// each reply, in order, after the start-up text.
ConsoleRun run_session(const std::vector<std::string> &args, const std::vector<Reply> &rows, const Env &env = {});
