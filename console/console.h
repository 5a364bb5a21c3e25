// The test console: line reader, help, command interpreter and the two
// application callbacks.
#pragma once
#include <atomic>
#include <cstdio>

constexpr int CONSOLE_LINE_SIZE = 256;  // 255 characters and the NUL

// Set by the end-of-file callback on the engine's thread.
extern std::atomic<int> eof;
// Line buffer of the command interpreter for file names and values.
extern char buf[CONSOLE_LINE_SIZE];

// Reads one line of at most 255 characters from `in` into `line`: a newline
// or end of input ends it and is not stored. Returns the character that
// ended the line, or the last one stored when the limit ended it.
int read_line(FILE *in, char *line);
// The same from standard input.
int get_input(char *line);

void showprompt();
void showhelp();
// Carries out one command line; 1 means quit.
int do_command(const char *line);

// The direct playback test: 0 init (asks for a WAV file), 1 play, 2 stop,
// 3 deinit.
void direct_play_test(int mode);

int error_cb(int status);
int eof_cb(int status);
