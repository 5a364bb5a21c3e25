// The line reader and command matching.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "console/console.h"

namespace {

struct Input {
  explicit Input(const std::string &text) : data(text) {
    file = fmemopen(data.data(), data.size(), "r");
  }
  ~Input() { std::fclose(file); }
  std::string data;
  FILE *file;
};

std::vector<std::string> lines_of(const std::string &text, std::vector<int> *ends = nullptr) {
  Input in(text);
  std::vector<std::string> lines;
  char line[CONSOLE_LINE_SIZE];
  for (;;) {
    const int end = read_line(in.file, line);
    if (ends != nullptr) ends->push_back(end);
    if (end == EOF && line[0] == '\0') break;
    lines.emplace_back(line);
    if (end == EOF) break;
  }
  return lines;
}

TEST(LineReader, LongLineIsCutAt255AndTheRestComesNext) {
  const std::string typed = std::string(255, 'a') + std::string(45, 'b') + "\nquit\n";
  std::vector<int> ends;
  const auto lines = lines_of(typed, &ends);
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], std::string(255, 'a'));
  EXPECT_EQ(lines[1], std::string(45, 'b'));
  EXPECT_EQ(lines[2], "quit");
  EXPECT_EQ(ends[0], 'a');  // the limit ended it: the last character stored
  EXPECT_EQ(ends[1], '\n');
}

TEST(LineReader, ExactlyFullLineLeavesItsNewlineAsAnEmptyLine) {
  const auto lines = lines_of(std::string(255, 'x') + "\nplay\n");
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[1], "");
  EXPECT_EQ(lines[2], "play");
}

TEST(LineReader, KeepsEveryByteAndEndsAtEndOfInput) {
  std::vector<int> ends;
  const auto lines = lines_of(std::string("open\r\n\t x\x01\n\nlast", 17), &ends);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[0], "open\r");
  EXPECT_EQ(lines[1], "\t x\x01");
  EXPECT_EQ(lines[2], "");
  EXPECT_EQ(lines[3], "last");
  EXPECT_EQ(ends.back(), EOF);
  // At end of input every further read is an empty line.
  Input empty("");
  char line[CONSOLE_LINE_SIZE] = "stale";
  EXPECT_EQ(read_line(empty.file, line), EOF);
  EXPECT_STREQ(line, "");
}

std::string run(const char *line, int *result) {
  testing::internal::CaptureStdout();
  *result = do_command(line);
  return testing::internal::GetCapturedStdout();
}

TEST(Commands, WholeWordsWithoutRegardToCase) {
  int result = 0;
  for (const char *quit : {"quit", "QUIT", "Quit", "qUiT"}) {
    EXPECT_EQ(run(quit, &result), "");
    EXPECT_EQ(result, 1) << quit;
  }
  for (const char *other : {"quit ", " quit", "qui", "quitt", "", "q\xd5it", "QUI\x14"}) {
    EXPECT_EQ(run(other, &result), "unkown command\n") << other;
    EXPECT_EQ(result, 0) << other;
  }
  const std::string help = run("HeLp", &result);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(help.find("###################################################\n"
                      "#############   PMX API TEST (v1.1)  ##############\n"),
            0u);
}

TEST(Commands, HelpText) {
  testing::internal::CaptureStdout();
  showhelp();
  showprompt();
  const std::string out = testing::internal::GetCapturedStdout();
  size_t lines = 0;
  for (char c : out) lines += c == '\n';
  EXPECT_EQ(lines, 42u + 1u);  // 42 help lines, the prompt starts with a line end
  EXPECT_NE(out.find("\tdirect    :  change display direct(LCD,COMPOSITE,COMPONENT\n"), std::string::npos);
  EXPECT_NE(out.find("\tfbio       :  frame buffer control \n"), std::string::npos);
  EXPECT_NE(out.find("\n" + std::string(50, '=') + "\n"), std::string::npos);
  EXPECT_EQ(out.substr(out.size() - 28), "\nCommand ('help' for help): ");
}

}  // namespace
