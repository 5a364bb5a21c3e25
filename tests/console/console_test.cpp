// The line reader, the command words and the help text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "console/console.h"

namespace {

using Lines = std::vector<std::pair<std::string, int>>;

// At 255 characters a read stops, returns the last one stored and leaves the
// rest (maybe just the newline) for the next; at the end an empty line.
TEST(LineReader, Lines) {
  const std::string a(255, 'a'), b(45, 'b');
  const std::pair<std::string, Lines> cases[] = {
      {a + b + "\nquit\n", {{a, 'a'}, {b, '\n'}, {"quit", '\n'}, {"", EOF}}},
      {a + "\nplay\n", {{a, 'a'}, {"", '\n'}, {"play", '\n'}, {"", EOF}}},
      {"open\r\n\t x\x01\n\nlast", {{"open\r", '\n'}, {"\t x\x01", '\n'}, {"", '\n'}, {"last", EOF}}},
      {"", {{"", EOF}}}};
  for (auto [text, expected] : cases) {
    FILE *in = fmemopen(text.data(), text.size(), "r");
    Lines lines;
    char line[CONSOLE_LINE_SIZE] = "stale";
    for (int end = 0; end != EOF;) {
      end = read_line(in, line);
      lines.emplace_back(line, end);
    }
    std::fclose(in);
    EXPECT_EQ(lines, expected) << text.size() << " bytes";
  }
}

// Whole-line words, case-insensitive for a..z only; 42 lines of help; the prompt.
TEST(Commands, WordsAndHelp) {
  const auto command = [](const char *line, int expected) {
    testing::internal::CaptureStdout();
    const int result = do_command(line);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, expected) << line;
    return out;
  };
  for (const char *quit : {"quit", "QUIT", "qUiT"}) EXPECT_EQ(command(quit, 1), "") << quit;
  for (const char *other : {"quit ", " quit", "qui", "quitt", "", "q\xd5it", "QUI\x14"})
    EXPECT_EQ(command(other, 0), "unkown command\n") << other;
  const std::string help = command("HeLp", 0);
  testing::internal::CaptureStdout();
  showprompt();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nCommand ('help' for help): ");
  EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), 42);
  EXPECT_EQ(help.find("###################################################\n"
                      "#############   PMX API TEST (v1.1)  ##############\n"), 0u);
  EXPECT_TRUE(help.find("\tdirect    :  change display direct(LCD,COMPOSITE,COMPONENT\n") != std::string::npos &&
              help.find("\tfbio       :  frame buffer control \n") != std::string::npos);
}

}  // namespace
