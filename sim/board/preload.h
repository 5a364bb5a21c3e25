// The environment that runs a program on the virtual board: the program's
// open/ioctl/read/write/close and settimeofday calls reach the board's
// device models instead of the host. Link the CMake target
// pmx_board_preload (it also builds libpmxboard.so first).
//
//   auto env = board::preload_env("/tmp/run.log");  // {name, value} pairs
//   for (auto &[k, v] : env) setenv(k.c_str(), v.c_str(), 1);  // in the child
//
// In a sanitizer build the library is built with the same sanitizer as the
// program. Under ASan the preloaded library is loaded before the ASan
// runtime, which ASan would refuse: verify_asan_link_order=0 is added to
// ASAN_OPTIONS (kept from the caller's environment otherwise).
#pragma once

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#ifndef PMX_BOARD_PRELOAD_LIB
#error "link the pmx_board_preload target"
#endif

namespace board {

inline std::vector<std::pair<std::string, std::string>> preload_env(const std::string &log_file = "") {
  std::vector<std::pair<std::string, std::string>> env;
  std::string preload = PMX_BOARD_PRELOAD_LIB;
  if (const char *old = std::getenv("LD_PRELOAD"); old && *old) preload += std::string(":") + old;
  env.emplace_back("LD_PRELOAD", preload);
#if PMX_BOARD_PRELOAD_ASAN
  std::string options;
  if (const char *old = std::getenv("ASAN_OPTIONS"); old && *old) options = std::string(old) + ":";
  env.emplace_back("ASAN_OPTIONS", options + "verify_asan_link_order=0");
#endif
  if (!log_file.empty()) env.emplace_back("PMX_BOARD_LOG", log_file);
  return env;
}

}  // namespace board
