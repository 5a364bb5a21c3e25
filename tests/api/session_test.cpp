// Engine session and file opening against the host engine, with scripted
// container scanners where a format's scanner is needed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

#include "info/media_info.h"
#include "platform/mai_os.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

// Each test starts without a session.
class Session : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    reset_callbacks();
  }
  void TearDown() override {
    pmx.support = 0;
    pmx.spdif = 0;
    pmx.state = 0;
    if (pmx.engine.load() != 0) {
      pmx_debug("sim fault clear");
      pmx_close();
      EXPECT_EQ(pmx_release(), PMX_OK);
    }
  }
  void init() { ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK); }
  static s32 open(const std::string &path, std::string *out = nullptr) { return open_file(path, out); }
};

TEST_F(Session, InitChecksCallbacksThenEngine) {
  EXPECT_EQ(pmx_init(nullptr, on_eos), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_init(on_error, nullptr), PMX_INVALID_ARG);
  EXPECT_EQ(pmx.engine.load(), 0u);
  init();
  EXPECT_NE(pmx.engine.load(), 0u);
  EXPECT_EQ(pmx_init(on_error, on_eos), PMX_ALREADY_INITIALIZED);
  EXPECT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx.engine.load(), 0u);
  EXPECT_EQ(pmx.event.load(), 0u);
}

TEST_F(Session, InitFailures) {
  struct Case {
    const char *faults;
    const char *printed;
    s32 status;
  };
  const Case cases[] = {
      {"event", "Media Init failed: 1\n", PMX_UNKNOWN},
      {"create=8", "Media Init failed: 8\n", PMX_OPEN_FAILED},
  };
  for (const Case &c : cases) {
    setenv("PMX_ENGINE_FAULTS", c.faults, 1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(pmx_init(on_error, on_eos), c.status) << c.faults;
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.printed);
    EXPECT_EQ(pmx.engine.load(), 0u);
    if (pmx.event.load() != 0) {  // a failed engine keeps its event
      MAIOSEventDestroy(pmx.event.load());
      pmx.event = 0;
    }
  }
  // A failed callback registration is only reported, without a line end.
  setenv("PMX_ENGINE_FAULTS", "register=3", 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Mai engine failed to register callbacks: 3");
  unsetenv("PMX_ENGINE_FAULTS");
}

TEST_F(Session, FailedReleaseKeepsTheEngine) {
  init();
  const u32 engine = pmx.engine.load();
  ASSERT_EQ(pmx_debug("sim fault release=22"), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_release(), PMX_BUSY);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "MAI Engine failed to release: 22\n");
  EXPECT_EQ(pmx.engine.load(), engine);
  EXPECT_NE(pmx.event.load(), 0u);
  EXPECT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx.engine.load(), 0u);
}

TEST_F(Session, OpenChecksInOrder) {
  EXPECT_EQ(pmx_open("/nonexistent"), PMX_NOT_INITIALIZED);
  init();
  std::string out;
  EXPECT_EQ(open("/nonexistent/clip.wav", &out), PMX_FILE_NOT_FOUND);
  EXPECT_EQ(out, "");  // before any prescan output
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_EQ(open(wav, &out), PMX_OK) << out;
  EXPECT_TRUE(has(out, "Solution type=7\n"));
  EXPECT_TRUE(has(out, "solution name =[pcm]\n"));
  EXPECT_FALSE(has(out, "failed to connect"));
  EXPECT_EQ(pmx.is_open.load(), 1);
  EXPECT_EQ(pmx.subtype_pending, 1);
  EXPECT_EQ(open(wav), PMX_FILE_ALREADY_OPEN);
  EXPECT_EQ(pmx_waitforstate(PMX_STATE_STOPPED), PMX_OK);
  EXPECT_EQ(pmx_waitforstate(3), PMX_FAILED);
  EXPECT_EQ(pmx_close(), PMX_OK);
  EXPECT_EQ(pmx_close(), PMX_NO_FILE_OPEN);
}

// What an open prints and returns when the solution is unknown, when
// prefix mode skips the automatic attempt (reported as failed with 1), when
// the automatic or the manual attempt fails, and when the prescan could not
// open the file (returned unchanged, without a manual attempt).
TEST_F(Session, OpenAttempts) {
  init();
  const std::string wav = fixtures::media("tone.wav");
  const std::string odd = testing::TempDir() + "tone.xyz", dir = testing::TempDir() + "folder.wav";
  ASSERT_EQ(std::system(("cp " + wav + " " + odd + " && mkdir -p " + dir).c_str()), 0);
  const std::string failed = "Mai engine failed to connect to " + wav;
  struct Case {
    const char *setup;  // a debug command, or "pmi" for prefix mode
    std::string path;
    s32 status;
    std::string shown, not_shown;
  };
  const Case cases[] = {
      {"", odd, PMX_UNKNOWN_FORMAT, "PMX_Prescan failed Solution type=0\n", "solution name"},
      {"pmi", wav, PMX_OK, "solution name =[pmi_pcm]\n" + failed + ": 1\nPmx manual trying ...", "manual trial failed"},
      {"sim fault auto=8", wav, PMX_OK, failed + ": 8\nPmx manual trying ...", "manual trial failed"},
      {"sim fault connect=25:2", wav, PMX_UNKNOWN_FORMAT,
       "Pmx manual trying ...Pmx manual trial failed to connect to " + wav + ": 25\n", "Solution type=0"},
      {"", dir, static_cast<s32>(MAIOS_FILE_OPEN_FAILED), "solution name =[]\nMai engine failed to connect to ",
       "manual trial failed"},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.setup + (" " + c.path));
    pmx_debug("sim fault clear");
    pmx.support = std::string(c.setup) == "pmi";
    if (*c.setup && !pmx.support) ASSERT_EQ(pmx_debug(c.setup), 0);
    std::string out;
    EXPECT_EQ(open(c.path, &out), c.status);
    EXPECT_TRUE(has(out, c.shown)) << out;
    EXPECT_FALSE(has(out, c.not_shown)) << out;
    EXPECT_EQ(pmx.is_open.load(), c.status == PMX_OK);
    run(pmx_close);
  }
  pmx.support = 0;
}

void asf_video(MediaInfo *r, const char *tag, u32 w, u32 h) {
  r->play_time = 2000;
  r->video_codec = FourCC(reinterpret_cast<const u8 *>(tag));
  r->video_width = w;
  r->video_height = h;
  r->audio[0].audio_codec = WAVE_FORMAT_WMA2;
  r->audio_count = 1;
}

TEST_F(Session, OlderWindowsMediaWarnsOnLargePictures) {
  init();
  const std::string wmv = fixtures::media("wmv2_wma.wmv");
  ASSERT_FALSE(wmv.empty());
  struct Case {
    const char *tag;
    u32 w, h;
    bool warned;
  };
  const Case cases[] = {
      {"WMV2", 480, 200, true}, {"WMV1", 320, 272, true}, {"WMV2", 479, 271, false}, {"WMV3", 640, 480, false}};
  for (const Case &c : cases) {
    doubles::asf = {1, [&](MediaInfo *r) { asf_video(r, c.tag, c.w, c.h); }};
    reset_callbacks();
    std::string out;
    EXPECT_EQ(open(wmv, &out), PMX_OK) << out;
    EXPECT_EQ(errors() == std::vector<int>{PMX_WMV78_RESOLUTION_WARNNING}, c.warned) << c.tag << c.w;
    EXPECT_EQ(pmx_close(), PMX_OK);
  }
}

void avi_record(MediaInfo *r, u32 video, u32 audio) {
  r->play_time = 2000;
  r->video_codec = video;
  r->video_width = 320;
  r->video_height = 240;
  r->audio[0].audio_codec = audio;
  r->audio_count = 1;
}

TEST_F(Session, SpdifRoutesCompressedAviAudio) {
  init();
  const std::string avi = fixtures::media("xvid_ac3.avi");
  ASSERT_FALSE(avi.empty());
  struct Case {
    u32 video, audio;
    const char *route;
  };
  const Case cases[] = {
      {fourcc("XVID"), WAVE_FORMAT_DTS, "avimpv4_spdif"},
      {fourcc("DX50"), WAVE_FORMAT_AC3, "divx_spdif"},
      {fourcc("wmv3"), WAVE_FORMAT_DTS, "aviwmv_spdif"},
  };
  pmx.spdif = 1;
  for (const Case &c : cases) {
    doubles::riff = {1, [&](MediaInfo *r) { avi_record(r, c.video, c.audio); }};
    std::string out;
    ASSERT_EQ(open(avi, &out), PMX_OK) << out;
    EXPECT_TRUE(has(out, std::string("Detected DTS Stream...soution name = [") + c.route + "]\n")) << out;
    std::array<u8, 160> hint{};
    EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_STREAM_INFO, hint.data(), 160), 0u);
    EXPECT_EQ(LittleEndian2int32u(hint.data()), 160u);
    EXPECT_EQ(LittleEndian2int32u(hint.data() + 28), 2000u);
    ASSERT_EQ(pmx_close(), PMX_OK);
  }
  // MP3 audio has no pass-through; without S/PDIF nothing is routed.
  doubles::riff = {1, [](MediaInfo *r) { avi_record(r, fourcc("XVID"), WAVE_FORMAT_MPEGLAYER3); }};
  std::string out;
  ASSERT_EQ(open(avi, &out), PMX_OK);
  EXPECT_FALSE(has(out, "Detected"));
  ASSERT_EQ(pmx_close(), PMX_OK);
  pmx.spdif = 0;
  doubles::riff = {1, [](MediaInfo *r) { avi_record(r, fourcc("XVID"), WAVE_FORMAT_AC3); }};
  ASSERT_EQ(open(avi, &out), PMX_OK);
  EXPECT_FALSE(has(out, "Detected"));
}

TEST_F(Session, Mp3GetsTheStreamInfoHintAndItsName) {
  init();
  const std::string mp3 = fixtures::media("tone.mp3");
  ASSERT_FALSE(mp3.empty());
  doubles::mpa = {1, [](MediaInfo *r) {
                    r->play_time = 2000;
                    r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
                    r->audio[0].audio_bitrate = 128000;
                    r->audio_count = 1;
                  }};
  // Only the named attempt may connect: an engine choice would fail.
  ASSERT_EQ(pmx_debug("sim fault auto=8"), 0);
  std::string out;
  EXPECT_EQ(open(mp3, &out), PMX_OK) << out;
  EXPECT_FALSE(has(out, "failed to connect")) << out;
  std::array<u8, 160> hint{};
  EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_STREAM_INFO, hint.data(), 160), 0u);
  EXPECT_EQ(LittleEndian2int32u(hint.data() + 36), 128000u);
}

// Progress reports: which ones mean start and end of stream.
TEST_F(Session, ProgressReportFilter) {
  init();
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_EQ(open(wav), PMX_OK);
  struct Case {
    u32 kind, flags, component;
    bool start, end;
  };
  const Case cases[] = {
      {MAI_PROGRESS_COMPONENT, 0x1, MAI_COMP_RENDERER, true, false},
      {MAI_PROGRESS_COMPONENT, 0x1, MAI_COMP_SOURCE, false, false},
      {0x200000, 0x1, MAI_COMP_RENDERER, false, false},
      {MAI_PROGRESS_COMPONENT, 0x200010, MAI_COMP_RENDERER, false, true},
      {MAI_PROGRESS_COMPONENT, 0x200010, MAI_COMP_DECODER, false, true},
      {MAI_PROGRESS_COMPONENT, 0x200011, 7, true, true},
      {MAI_PROGRESS_COMPONENT, 0x200010, MAI_COMP_SOURCE, false, false},
      {MAI_PROGRESS_COMPONENT, 0x000010, MAI_COMP_RENDERER, false, false},
      {MAI_PROGRESS_COMPONENT, 0x200000, MAI_COMP_RENDERER, false, false},
      {MAI_PROGRESS_COMPONENT, 0x210010, MAI_COMP_RENDERER, false, false},
      {MAI_PROGRESS_COMPONENT, 0x220010, MAI_COMP_RENDERER, false, false},
  };
  for (const Case &c : cases) {
    pmx.running = 0;
    pmx.at_eos = 0;
    pmx.state = PMX_STATE_PLAYING;
    const int before = eos_calls.load();
    std::array<u32, MAI_PROGRESS_WORDS> record{};
    record[MAI_PROG_FLAGS] = c.flags;
    record[MAI_PROG_COMPONENT_TYPE] = c.component;
    testing::internal::CaptureStdout();
    EXPECT_EQ(mai_prog_cb(c.kind, record.data()), 0u);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string what = std::to_string(c.kind) + "/" + std::to_string(c.flags) + "/" + std::to_string(c.component);
    EXPECT_EQ(has(out, "PMX internelsd: ProgressCB: START\n"), c.start) << what;
    EXPECT_EQ(has(out, "PMX internel: ProgressCB: Component reached EndOfStream\n"), c.end) << what;
    EXPECT_EQ(eos_calls.load() - before, c.end ? 1 : 0) << what;
    EXPECT_EQ(pmx.at_eos.load(), c.end ? 1 : 0) << what;
    EXPECT_EQ(pmx.state.load(), c.end ? PMX_STATE_STOPPED : PMX_STATE_PLAYING) << what;
    // End of stream clears the start a report of both flags set.
    EXPECT_EQ(pmx.running.load(), (c.start && !c.end) ? 1 : 0) << what;
  }
  EXPECT_EQ(eos_status.load(), 19);
  // While fast forward or rewind runs, nothing is reported.
  pmx.state = PMX_STATE_TRICK;
  std::array<u32, MAI_PROGRESS_WORDS> end{};
  end[MAI_PROG_FLAGS] = 0x200011;
  end[MAI_PROG_COMPONENT_TYPE] = MAI_COMP_RENDERER;
  const int before = eos_calls.load();
  pmx.running = 0;
  mai_prog_cb(MAI_PROGRESS_COMPONENT, end.data());
  EXPECT_EQ(eos_calls.load(), before);
  EXPECT_EQ(pmx.running.load(), 0);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
}

// End of stream as the engine delivers it: from its own thread, once,
// signalling the end-of-stream event.
TEST_F(Session, EndOfStreamFromTheEngine) {
  init();
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_EQ(open(wav), PMX_OK);
  ASSERT_EQ(pmx_debug("sim clock 40"), 0);
  testing::internal::CaptureStdout();
  ASSERT_EQ(MAIengine_SendCommand(pmx.engine.load(), MAI_CMD_PLAY, MAI_RATE_NORMAL, 0, 0, 0, MAI_WAIT_FOREVER), 0u);
  EXPECT_TRUE(eventually([] { return pmx.running.load() == 1 || eos_calls.load() > 0; }));
  EXPECT_TRUE(eventually([] { return eos_calls.load() > 0; }));
  EXPECT_EQ(MAIengine_WaitForState(pmx.engine.load(), MAI_STATE_ENDOFSTREAM, 3000), 0u);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(eos_calls.load(), 1) << out;
  EXPECT_EQ(eos_status.load(), 19);
  EXPECT_TRUE(eos_on_other_thread.load());
  EXPECT_TRUE(has(out, "PMX internelsd: ProgressCB: START\n"));
  EXPECT_TRUE(has(out, "PMX internel: ProgressCB: Component reached EndOfStream\nPMX internel: MAIOSEventWait status = 0\n"))
      << out;
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
  EXPECT_EQ(pmx.at_eos.load(), 1);
  EXPECT_EQ(pmx.running.load(), 0);
  EXPECT_EQ(MAIOSEventWait(pmx.event.load(), 100), 0u);  // the signal is pending
  // End of stream does not close the file; a fresh open clears at_eos.
  EXPECT_EQ(pmx.is_open.load(), 1);
  ASSERT_EQ(pmx_close(), PMX_OK);
  ASSERT_EQ(open(wav), PMX_OK);
  EXPECT_EQ(pmx.at_eos.load(), 0);
}

TEST_F(Session, EngineErrorCallback) {
  init();
  testing::internal::CaptureStdout();
  pmx.unsupported = 0;
  EXPECT_EQ(mai_err_cb(nullptr, 40, 5), 0u);
  std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out.find("PMX EngineErrorCB(0x28/0x5) "), 0u) << out;
  EXPECT_EQ(errors(), std::vector<int>{PMX_UNSUPPORTED_FORMAT});
  EXPECT_EQ(pmx.unsupported.load(), 1);

  // Reported by the engine during a play command.
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  pmx.unsupported = 0;
  ASSERT_EQ(pmx_debug("sim fault error40"), 0);
  testing::internal::CaptureStdout();
  MAIengine_SendCommand(pmx.engine.load(), MAI_CMD_PLAY, MAI_RATE_NORMAL, 0, 0, 0, MAI_WAIT_FOREVER);
  EXPECT_EQ(pmx.unsupported.load(), 1);
  EXPECT_EQ(errors(), (std::vector<int>{PMX_UNSUPPORTED_FORMAT, PMX_UNSUPPORTED_FORMAT}));
  testing::internal::GetCapturedStdout();
  ASSERT_EQ(pmx_close(), PMX_OK);

  // Without an application callback the flag is set all the same.
  ASSERT_EQ(pmx_release(), PMX_OK);
  pmx.unsupported = 0;
  testing::internal::CaptureStdout();
  mai_err_cb(nullptr, 40, 0);
  out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(has(out, "No Error callback function registered.")) << out;
  EXPECT_EQ(pmx.unsupported.load(), 1);
}

TEST_F(Session, FailedDisconnectKeepsTheFileOpen) {
  init();
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault disconnect=22"), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(pmx_close(), PMX_BUSY);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_TRUE(has(out, "stopping \n")) << out;
  EXPECT_TRUE(has(out, "MAI Engine failed to disconnect: 22\n")) << out;
  EXPECT_EQ(pmx.is_open.load(), 1);
  EXPECT_EQ(pmx_close(), PMX_OK);
  EXPECT_EQ(pmx.is_open.load(), 0);
}

}  // namespace
