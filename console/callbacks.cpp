// The application callbacks handed to the media control API. They run on
// the engine's threads: they only print and raise the end-of-file flag.
#include <atomic>
#include <cstdio>

#include "console/console.h"

std::atomic<int> eof{0};

int error_cb(int status) {
  std::printf("PMX_TEST : Status change: %d\n", status);
  return 0;
}

int eof_cb(int status) {
  std::printf("PMX_TEST : Eof file reached: %d\n", status);
  eof = 1;
  return 0;
}
