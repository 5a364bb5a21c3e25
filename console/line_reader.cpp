#include <cstdio>

#include "console/console.h"

int read_line(FILE *in, char *line) {
  line[0] = '\0';
  int n = 0;
  int c = 0;
  // Every byte is kept as typed, control characters too. After 255
  // characters reading stops: the rest of the line stays in the input and
  // comes back as the next line.
  while (n < CONSOLE_LINE_SIZE - 1) {
    c = std::getc(in);
    if (c == '\n' || c == EOF) break;
    line[n++] = static_cast<char>(c);
  }
  line[n] = '\0';
  return c;
}

int get_input(char *line) { return read_line(stdin, line); }
