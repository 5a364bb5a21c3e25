// Status texts and the debug command interpreter.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

#include <functional>
#include <regex>

using namespace simtest;

namespace {

TEST(StatusText, StatusesHaveTheirNames) {
  struct Case {
    u32 code;
    const char *name;
  };
  const Case cases[] = {
      {MAI_OK, "MAI_OK"},
      {MAI_E_NOTCONNECTED, "MAI_E_NOTCONNECTED"},
      {MAI_E_UNKNOWNFORMAT, "MAI_E_UNKNOWNFORMAT"},
      {MAI_E_UNSUPPORTEDFORMAT, "MAI_E_UNSUPPORTEDFORMAT"},
      {MAIOS_FILE_OPEN_FAILED, "MAIOS_FILE_OPEN_FAILED"},
      {MAIOS_EVENT_TIMEOUT, "MAIOS_EVENT_TIMEOUT"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_STREQ(MAIengine_StatusToString(c.code, 0), c.name);
    const std::string verbose = MAIengine_StatusToString(c.code, 1);
    EXPECT_EQ(verbose.rfind(std::string(c.name) + ": ", 0), 0u) << verbose;
    EXPECT_GT(verbose.size(), std::string(c.name).size() + 2);
  }
  EXPECT_STREQ(MAIengine_StatusToString(MAI_E_FILENOTFOUND, 1), "MAI_E_FILENOTFOUND: file not found");
}

TEST(StatusText, UnknownStatusesShowTheirNumber) {
  const char *named = MAIengine_StatusToString(MAI_E_BUSY, 1);
  for (u32 code : {46u, 0x1003u, 0x10200000u}) {
    SCOPED_TRACE(code);
    const std::string text = MAIengine_StatusToString(code, 1);
    EXPECT_NE(text.find(std::to_string(code)), std::string::npos) << text;
    const char *again = MAIengine_StatusToString(code, 0);
    EXPECT_NE(std::string(again).find(std::to_string(code)), std::string::npos);
  }
  EXPECT_STREQ(named, "MAI_E_BUSY: wrong state for the request");  // still valid
}

std::string captured(const std::function<void()> &action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

TEST(DebugCommands, AcceptedAndRefused) {
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("xvid_mp3.avi")), MAI_OK);
  struct Case {
    const char *command;
    bool prints;
  };
  const Case accepted[] = {
      {"debug help", true},          {"debug show", true},
      {"debug show all", true},      {"debug show events", true},
      {"DEBUG  Show   STATE", true}, {"debug on", false},
      {"debug show off", false},     {"debug sync on", false},
      {"debug ellapsed off", false}, {"sim clock 3", false},
      {"sim fault nostart", false},  {"sim fault clear", false},
  };
  for (const Case &c : accepted) {
    SCOPED_TRACE(c.command);
    ASSERT_EQ(e.debug("debug off"), MAI_OK);
    std::string out = captured([&] { EXPECT_EQ(e.debug(c.command), MAI_OK); });
    EXPECT_EQ(!out.empty(), c.prints) << out;
  }
  for (const char *bad : {"", "   ", "debug", "debug show bogus", "debug show state now", "debug bogus on",
                          "debug states maybe", "sim", "show state"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << '"' << bad << '"';
  EXPECT_EQ(MAIengine_ExecDebugCommand(e.h, nullptr), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_ExecDebugCommand(0, "debug help"), MAI_E_INVALIDARG);
  // The help lists every command.
  const std::string help = captured([&] { e.debug("debug help"); });
  for (const char *word : {"show", "state", "solutions", "config", "comps", "sync", "events", "error", "states",
                           "progress", "commands", "trace", "ellapsed", "sim fault", "sim clock"})
    EXPECT_NE(help.find(word), std::string::npos) << word;
}

TEST(DebugCommands, ShowTellsAboutTheConnection) {
  Engine e;
  const std::string path = fixtures::media("xvid_mp3.avi");
  EXPECT_NE(captured([&] { e.debug("debug show state"); }).find("IDLE"), std::string::npos);
  ASSERT_EQ(e.connect(path), MAI_OK);
  u8 hint[MAI_PARAM_STREAM_INFO_SIZE] = {0xA0, 0, 0, 0, 0x04, 0x04};
  ASSERT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_STREAM_INFO, hint, sizeof hint), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 2.5"), MAI_OK);
  const u32 event = MAIOSEventCreate(0, 0, "AppEOF", 11);
  ASSERT_EQ(MAIOSEventSignal(event), 0u);
  struct Case {
    const char *command;
    std::vector<std::string> expect;
  };
  const Case cases[] = {
      {"debug show state", {"READY", "of 2040 ms"}},
      {"debug show config", {path, "avimpv4_mp3", "engine's choice", "avi", "320x240",
                             "44100 Hz", "2.5", "000000A0 00000404"}},
      {"debug show comps", {"source", "demux", "decoder", "mpeg4", "mp3", "renderer",
                            "clock master"}},
      {"debug show sync", {"held at 0 ms", "start time 0 ms"}},
      {"debug show solutions", {"avimpv4_spdif", "mpegps_mpa3", "wmt78", "flac", "pmi_"}},
      {"debug show events", {"\"AppEOF\" signaled"}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.command);
    const std::string out = captured([&] { EXPECT_EQ(e.debug(c.command), MAI_OK); });
    for (const std::string &s : c.expect) EXPECT_NE(out.find(s), std::string::npos) << s << "\n" << out;
  }
  MAIOSEventDestroy(event);
}

TEST(DebugCommands, TraceCategoriesPrintWhatHappens) {
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 40"), MAI_OK);
  auto play_to_end = [&] {
    EXPECT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    EXPECT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
    u8 rec[MAI_PARAM_DISPLAY_SIZE];
    MAIengine_GetParam(e.h, MAI_PARAM_DISPLAY, rec, 1);  // a failing call
  };
  struct Case {
    const char *on;
    const char *pattern;  // what its lines look like
  };
  const Case cases[] = {
      {"debug states on", R"(MAI\[\d\] state READY -> STARTING|ENDOFSTREAM -> STARTING)"},
      {"debug commands on", R"(command PLAY \(1\) 0x10000)"},
      {"debug progress on", R"(progress renderer stream 0 flags 0x200010)"},
      {"debug error on", R"(MAIengine_GetParam: MAI_E_INVALIDARG)"},
      {"debug trace on", R"(MAIengine_SendCommand\(\d+, 1, 0x10000)"},
      {"debug sync on", R"(clock runs from 0 ms at 40\.000 x)"},
      {"debug show on", R"(PLAYING at \d+ of 2000 ms)"},
      {"debug on", R"(state STARTING -> PLAYING)"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.on);
    ASSERT_EQ(e.debug(c.on), MAI_OK);
    const std::string out = captured(play_to_end);
    EXPECT_TRUE(std::regex_search(out, std::regex(c.pattern))) << out;
    ASSERT_EQ(e.debug("debug off"), MAI_OK);
    EXPECT_EQ(captured(play_to_end), "");
  }
  ASSERT_EQ(e.debug("debug states on"), MAI_OK);
  ASSERT_EQ(e.debug("debug ellapsed on"), MAI_OK);
  const std::string out = captured(play_to_end);
  EXPECT_TRUE(std::regex_search(out, std::regex(R"(MAI\[\d\] +\d+\.\d{3} state )"))) << out;
}

}  // namespace
