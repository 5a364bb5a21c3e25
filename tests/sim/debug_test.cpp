// Status texts and the debug command interpreter.
#include "sim_test_util.h"

#include <regex>

using namespace simtest;

namespace {

std::string captured(const std::function<void()> &action) {
  testing::internal::CaptureStdout();
  action();
  return testing::internal::GetCapturedStdout();
}

// Known statuses give their name (verbose: "name: explanation"), unknown ones
// their number; earlier texts stay valid.
TEST(StatusText, NamesAndNumbers) {
  const char *busy = MAIengine_StatusToString(MAI_E_BUSY, 1);
  EXPECT_STREQ(MAIengine_StatusToString(MAIOS_EVENT_TIMEOUT, 0), "MAIOS_EVENT_TIMEOUT");
  EXPECT_STREQ(MAIengine_StatusToString(MAI_E_FILENOTFOUND, 1), "MAI_E_FILENOTFOUND: file not found");
  EXPECT_NE(std::string(MAIengine_StatusToString(0x10200000, 0)).find("270532608"), std::string::npos);
  EXPECT_NE(std::string(MAIengine_StatusToString(46, 1)).find("46"), std::string::npos);
  EXPECT_STREQ(busy, "MAI_E_BUSY: wrong state for the request");
}

// Commands ignore case and blanks; each show command tells its part of the
// connection; each trace category prints its lines while on and nothing
// once off; anything else is refused.
TEST(DebugCommands, ShowTraceAndRefusals) {
  Engine e;
  const std::string path = fixtures::media("tone.wav");
  EXPECT_NE(captured([&] { e.debug("debug show state"); }).find("IDLE"), std::string::npos);
  ASSERT_EQ(e.connect(path), MAI_OK);
  u8 hint[MAI_PARAM_STREAM_INFO_SIZE] = {0xA0, 0, 0, 0, 0x04, 0x04};
  ASSERT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_STREAM_INFO, hint, sizeof hint), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 40"), MAI_OK);
  const u32 event = MAIOSEventCreate(0, 0, "AppEOF", 11);
  ASSERT_EQ(MAIOSEventSignal(event), 0u);
  const std::pair<const char *, std::vector<std::string>> shows[] = {
      {"DEBUG  Show   STATE", {"READY", "of 2000 ms"}},
      {"debug show config", {path, "pcm", "engine's choice", "wav", "44100 Hz", "40", "000000A0 00000404"}},
      {"debug show comps", {"source", "demux", "decoder", "renderer", "clock master"}},
      {"debug show sync", {"held at 0 ms", "start time 0 ms"}},
      {"debug show solutions", {"avimpv4_spdif", "mpegps_mpa3", "wmt78", "flac", "pmi_"}},
      {"debug show events", {"\"AppEOF\" signaled"}},
      {"debug help",
       {"show", "config", "sync", "events", "progress", "commands", "ellapsed", "sim fault", "sim clock"}},
  };
  for (const auto &[command, expect] : shows) {
    const std::string out = captured([&] { EXPECT_EQ(e.debug(command), MAI_OK) << command; });
    for (const std::string &s : expect)
      EXPECT_NE(out.find(s), std::string::npos) << command << ": " << s << "\n" << out;
  }
  MAIOSEventDestroy(event);
  auto play_to_end = [&] {
    EXPECT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    EXPECT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
    u8 rec[MAI_PARAM_DISPLAY_SIZE];
    MAIengine_GetParam(e.h, MAI_PARAM_DISPLAY, rec, 1);  // a failing call
  };
  const std::pair<std::vector<const char *>, const char *> traces[] = {
      {{"debug states on"}, R"(MAI\[\d\] state READY -> STARTING|ENDOFSTREAM -> STARTING)"},
      {{"debug commands on"}, R"(command PLAY \(1\) 0x10000)"},
      {{"debug progress on"}, R"(progress renderer stream 0 flags 0x200010)"},
      {{"debug error on"}, R"(MAIengine_GetParam: MAI_E_INVALIDARG)"},
      {{"debug trace on"}, R"(MAIengine_SendCommand\(\d+, 1, 0x10000)"},
      {{"debug sync on"}, R"(clock runs from 0 ms at 40\.000 x)"},
      {{"debug show on"}, R"(PLAYING at \d+ of 2000 ms)"},
      {{"debug on"}, R"(state STARTING -> PLAYING)"},
      {{"debug states on", "debug ellapsed on"}, R"(MAI\[\d\] +\d+\.\d{3} state )"},
  };
  for (const auto &[on, pattern] : traces) {
    for (const char *command : on) ASSERT_EQ(e.debug(command), MAI_OK);
    const std::string out = captured(play_to_end);
    EXPECT_TRUE(std::regex_search(out, std::regex(pattern))) << on.back() << "\n" << out;
    ASSERT_EQ(e.debug("debug off"), MAI_OK);
    EXPECT_EQ(captured(play_to_end), "") << on.back();
  }
  for (const char *bad : {"", "   ", "debug", "debug show bogus", "debug show state now", "debug bogus on",
                          "debug states maybe", "sim", "show state"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << '"' << bad << '"';
  EXPECT_EQ(MAIengine_ExecDebugCommand(e.h, nullptr), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_ExecDebugCommand(0, "debug help"), MAI_E_INVALIDARG);
}

}  // namespace
