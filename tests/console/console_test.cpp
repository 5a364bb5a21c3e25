// The line reader, the command words and the help text.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "console/console.h"

namespace {

using Lines = std::vector<std::pair<std::string, int>>;

// Every line of `text` and what ended it, up to the first read at the end
// of the input.
Lines read_all(std::string text) {
  FILE *in = fmemopen(text.data(), text.size(), "r");
  Lines lines;
  char line[CONSOLE_LINE_SIZE] = "stale";
  for (int end = 0; end != EOF;) {
    end = read_line(in, line);
    lines.emplace_back(line, end);
  }
  std::fclose(in);
  return lines;
}

// A line ends at a newline or the end of input; every other byte is kept.
// After 255 characters reading stops, the last character stored is
// returned, and the rest comes as the next line (an empty one when only
// the newline is left). At the end of input a read gives an empty line.
TEST(LineReader, Lines) {
  const std::string a(255, 'a'), b(45, 'b');
  const std::pair<std::string, Lines> cases[] = {
      {a + b + "\nquit\n", {{a, 'a'}, {b, '\n'}, {"quit", '\n'}, {"", EOF}}},
      {a + "\nplay\n", {{a, 'a'}, {"", '\n'}, {"play", '\n'}, {"", EOF}}},
      {"open\r\n\t x\x01\n\nlast", {{"open\r", '\n'}, {"\t x\x01", '\n'}, {"", '\n'}, {"last", EOF}}},
      {"", {{"", EOF}}},
  };
  for (const auto &[text, lines] : cases) EXPECT_EQ(read_all(text), lines) << text.size() << " bytes";
}

std::string run(const char *line, int *result) {
  testing::internal::CaptureStdout();
  *result = do_command(line);
  return testing::internal::GetCapturedStdout();
}

// A command is the whole line; only the letters a..z compare without
// regard to case; bytes that match a letter in only some of its bits do not.
TEST(Commands, WholeWordsWithoutRegardToCase) {
  int result = 0;
  for (const char *quit : {"quit", "QUIT", "qUiT"}) {
    EXPECT_EQ(run(quit, &result), "") << quit;
    EXPECT_EQ(result, 1) << quit;
  }
  for (const char *other : {"quit ", " quit", "qui", "quitt", "", "q\xd5it", "QUI\x14"}) {
    EXPECT_EQ(run(other, &result), "unkown command\n") << other;
    EXPECT_EQ(result, 0) << other;
  }
  EXPECT_EQ(run("HeLp", &result).find("###################################################\n"
                                     "#############   PMX API TEST (v1.1)  ##############\n"),
            0u);
  EXPECT_EQ(result, 0);
}

// 42 lines of help, their odd spellings and spacing kept; the prompt
// starts on a new line.
TEST(Commands, HelpText) {
  testing::internal::CaptureStdout();
  showhelp();
  showprompt();
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 42 + 1);
  EXPECT_NE(out.find("\tdirect    :  change display direct(LCD,COMPOSITE,COMPONENT\n"), std::string::npos);
  EXPECT_NE(out.find("\tfile      :  print file infomation \n"), std::string::npos);
  EXPECT_NE(out.find("\tfbio       :  frame buffer control \n"), std::string::npos);
  EXPECT_NE(out.find("\n" + std::string(50, '=') + "\n"), std::string::npos);
  EXPECT_EQ(out.substr(out.size() - 28), "\nCommand ('help' for help): ");
}

}  // namespace
