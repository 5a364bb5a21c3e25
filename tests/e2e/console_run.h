// Runs the real pmxtestapp binary with typed input and collects what it
// prints. As root the console runs without the privilege to set the clock,
// so the host's clock is never touched.
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
                       int seconds = 30);
