// The command interpreter: one typed line names one command.
#include <cstdio>
#include <cstring>

#include "api/pmx_api.h"
#include "console/console.h"

char buf[CONSOLE_LINE_SIZE];

namespace {

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

// The whole line must equal the word; letters a..z compare without regard
// to case, every other byte as it is.
bool is_word(const char *line, const char *word) {
  while (*line != '\0' && *word != '\0') {
    if (upper(*line) != upper(*word)) return false;
    ++line;
    ++word;
  }
  return *line == '\0' && *word == '\0';
}

int cmd_open() {
  std::printf("filename? ");
  get_input(buf);
  pmx_print_error("OPEN", static_cast<u32>(pmx_open(buf)));
  return 0;
}

int cmd_close() {
  std::puts("closing");
  pmx_print_error("CLOSE", static_cast<u32>(pmx_close()));
  return 0;
}

int cmd_file() {
  pmx_print_fileinfo();
  return 0;
}

int cmd_help() {
  showhelp();
  return 0;
}

int cmd_quit() { return 1; }

struct Command {
  const char *word;
  int (*run)();
};

constexpr Command commands[] = {
    {"open", cmd_open}, {"close", cmd_close}, {"file", cmd_file}, {"help", cmd_help}, {"quit", cmd_quit},
};

}  // namespace

int do_command(const char *line) {
  for (const Command &c : commands)
    if (is_word(line, c.word)) return c.run();
  std::puts("unkown command");
  return 0;
}
