// pmxtestapp: the media test console of the player. Sets the clock, brings
// up the media engine, optionally opens the file named on the command line,
// then carries out one typed command per line until "quit".
#include <sys/time.h>

#include <atomic>
#include <cstdio>
#include <ctime>

#include "api/pmx_api.h"
#include "console/console.h"
#include "hw/audio_api.h"

namespace {

constexpr u32 STARTUP_VOLUME = 25;

// The board has no battery-backed clock: every start begins at the same
// date, 1 November 2005 01:01:00 local time.
void set_clock(int argc) {
  std::tm t{};
  t.tm_sec = 0;
  t.tm_min = 1;
  t.tm_hour = 1;
  t.tm_mday = 1;
  t.tm_mon = 10;
  t.tm_year = 105;
  t.tm_isdst = 0;
  const time_t seconds = std::mktime(&t);
  std::printf("sec = %ld\n", static_cast<long>(seconds));
  std::printf("argc =%d\n", argc);
  timeval tv{};
  tv.tv_sec = seconds;
  tv.tv_usec = 0;
  if (settimeofday(&tv, nullptr) != 0) std::puts("Error setting");
}

// The sizes of the target's types, as a fixed table: the console reports
// the board's 32-bit model whatever machine it was built on.
void type_test() {
  std::puts("type test");
  std::printf("char =[%d]\n", 1);
  std::printf("short =[%d]\n", 2);
  std::printf("int =[%d]\n", 4);
  std::printf("int MAX=[%d]\n", 2147483647);
  std::printf("long =[%d]\n", 4);
  std::printf("long long=[%d]\n", 8);
  std::printf("long MAX=[%ld]\n", 2147483647L);
  std::printf("float =[%d]\n", 4);
  std::printf("double =[%d]\n", 8);
  std::printf("long double =[%d]\n", 8);
}

}  // namespace

int main(int argc, char **argv) {
  char line[CONSOLE_LINE_SIZE];
  set_clock(argc);
  type_test();

  std::puts("\n\n\nMAIN pmx_engine initialize");
  const s32 status = pmx_init(error_cb, eof_cb);
  if (status != 0) {
    std::printf("Engine init failed: %d\n", static_cast<int>(status));
    return 1;
  }
  // The codec comes up with its defaults whether or not it answers.
  pmx_set_audio_device_init();
  std::puts("\naudio_device initialize success.....!!\n");
  showhelp();

  if (argc == 2) {
    std::printf("argv[1] =%s\n", argv[1]);
    // Automatic play: sound from the DAC on the earphone at a moderate level.
    pmx_set_audio_input_select(INPUT_DAC);
    pmx_set_audio_output_ctrl(OUTPUT_EARPHONE, 1);
    pmx_set_volume(STARTUP_VOLUME);
    pmx_print_error("OPEN", static_cast<u32>(pmx_open(argv[1])));
    pmx_print_error("PLAY", static_cast<u32>(pmx_play()));
  }

  do {
    showprompt();
    get_input(line);
  } while (do_command(line) != 1);

  std::puts("pmx main engine release");
  const s32 released = pmx_release();
  if (released != 0) {
    std::printf("Failed to release pmx: %d\n", static_cast<int>(released));
    return 1;
  }
  return 0;
}
