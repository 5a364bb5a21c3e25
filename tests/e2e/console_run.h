// Runs the real pmxtestapp binary with typed input and collects what it
// prints. The console runs on the virtual board (libpmxboard.so preloaded):
// its codec, output switch, colour conversion and clock calls reach the
// board's device models; `env` may add PMX_BOARD_LOG, PMX_BOARD_ABSENT and
// the engine's PMX_ENGINE_* controls. The engine's plug-ins (sim/plugins)
// are put on the library path with the board. As root the console also
// runs without the privilege to set the clock, so the host's clock is
// never touched.
#pragma once
#include <string>
#include <utility>
#include <vector>

struct ConsoleRun {
  int exit_code = -1;   // -1: killed after the time limit
  std::string out;
};

ConsoleRun run_console(const std::vector<std::string> &args, const std::string &input,
                       const std::vector<std::pair<std::string, std::string>> &env = {},
                       int seconds = 30, bool board = true);

// Typed input in parts, with a pause after each part (to let the engine's
// clock run between commands).
struct TypedInput {
  std::string text;
  int pause_ms = 0;
};
ConsoleRun run_console_paced(const std::vector<std::string> &args, const std::vector<TypedInput> &input,
                             const std::vector<std::pair<std::string, std::string>> &env = {},
                             int seconds = 30, bool board = true);
