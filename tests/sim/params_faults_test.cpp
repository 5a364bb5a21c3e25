// Parameter blocks, and the host-only controls: clock factor and faults.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

#include <chrono>

using namespace simtest;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

struct Block {
  u32 id, size;
};
const Block kBlocks[] = {
    {MAI_PARAM_DISPLAY, MAI_PARAM_DISPLAY_SIZE},
    {MAI_PARAM_EQUALIZER, MAI_PARAM_EQUALIZER_SIZE},
    {MAI_PARAM_TRACKS, MAI_PARAM_TRACKS_SIZE},
    {MAI_PARAM_STREAM_INFO, MAI_PARAM_STREAM_INFO_SIZE},
};

TEST(Params, InitialBlocks) {
  Engine e;
  std::vector<u8> display(MAI_PARAM_DISPLAY_SIZE, 0xEE);
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_DISPLAY, display.data(), display.size()), MAI_OK);
  EXPECT_EQ(rd32(display.data(), 0), 1u);  // enabled
  const u32 window[] = {0, 0, 480, 272};   // x, y, width, height: the whole LCD
  for (u32 i = 0; i < 4; ++i) EXPECT_EQ(rd32(display.data(), (6 + i) * 4), window[i]) << i;
  for (const Block &b : {kBlocks[1], kBlocks[2], kBlocks[3]}) {
    std::vector<u8> data(b.size, 0xEE);
    ASSERT_EQ(MAIengine_GetParam(e.h, b.id, data.data(), b.size), MAI_OK);
    EXPECT_EQ(std::count(data.begin(), data.end(), 0), static_cast<long>(b.size)) << std::hex << b.id;
  }
}

TEST(Params, BlocksAreKeptPerInstanceAcrossConnections) {
  Engine a, b;
  for (const Block &blk : kBlocks) {
    SCOPED_TRACE(testing::Message() << std::hex << blk.id);
    std::vector<u8> data(blk.size);
    for (u32 i = 0; i < blk.size; ++i) data[i] = static_cast<u8>(i * 13 + blk.id);
    ASSERT_EQ(MAIengine_SetParam(a.h, blk.id, data.data(), blk.size), MAI_OK);
    ASSERT_EQ(a.connect(fixtures::media("tone.wav")), MAI_OK);
    ASSERT_EQ(MAIengine_Disconnect(a.h, 0), MAI_OK);
    std::vector<u8> back(blk.size), other(blk.size);
    ASSERT_EQ(MAIengine_GetParam(a.h, blk.id, back.data(), blk.size), MAI_OK);
    EXPECT_EQ(back, data);
    ASSERT_EQ(MAIengine_GetParam(b.h, blk.id, other.data(), blk.size), MAI_OK);
    EXPECT_NE(other, data) << "instances share a block";
  }
}

TEST(Params, SizeAndIdChecks) {
  Engine e;
  std::vector<u8> buf(MAI_PARAM_TRACKS_SIZE + 1);
  for (const Block &b : kBlocks) {
    SCOPED_TRACE(testing::Message() << std::hex << b.id);
    for (u32 size : {b.size - 1, b.size + 1}) {
      EXPECT_EQ(MAIengine_SetParam(e.h, b.id, buf.data(), size), MAI_E_INVALIDARG);
      EXPECT_EQ(MAIengine_GetParam(e.h, b.id, buf.data(), size), MAI_E_INVALIDARG);
    }
    EXPECT_EQ(MAIengine_SetParam(e.h, b.id, nullptr, b.size), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_SetParam(0, b.id, buf.data(), b.size), MAI_E_INVALIDARG);
  }
  for (u32 id : {0u, 0x50002u}) {
    EXPECT_EQ(MAIengine_SetParam(e.h, id, buf.data(), 4), MAI_E_UNSUPPORTED) << id;
    EXPECT_EQ(MAIengine_GetParam(e.h, id, buf.data(), 4), MAI_E_UNSUPPORTED) << id;
  }
  u32 rate = 44100;
  EXPECT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 2), MAI_E_INVALIDARG);
}

TEST(Params, SampleRateRangeAndStreamDefault) {
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("tone_8k_mono.wav")), MAI_OK);
  u32 rate = 0;
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 8000u);  // the stream's own while never set
  for (auto [value, status] : {std::pair{7999u, MAI_E_INVALIDARG}, {8000u, MAI_OK},
                               {192001u, MAI_E_INVALIDARG}, {192000u, MAI_OK},
                               {48000u, MAI_OK}}) {
    u32 v = value;
    EXPECT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &v, 4), status) << value;
  }
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 48000u);
  // The output rate belonged to that stream: the next one starts at its own.
  ASSERT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 44100u);
}

// ---- Faults from PMX_ENGINE_FAULTS ----

TEST(Faults, CreateAndRegister) {
  {
    ScopedEnv env("PMX_ENGINE_FAULTS", "create=0x1003");
    u32 h = 77;
    EXPECT_EQ(MAIengine_Create(&h), 0x1003u);
  }
  ScopedEnv env("PMX_ENGINE_FAULTS", "register=5");
  Engine e;
  ASSERT_NE(e.h, 0u);
  EXPECT_EQ(MAIengine_RegisterCallbacks(e.h, Recorder::on_error, Recorder::on_progress, nullptr), 5u);
  // Nothing was registered: playing reports to no one.
  Recorder &rec = Recorder::get();
  {
    std::lock_guard lk(rec.mu);
    rec.reports.clear();
  }
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 50"), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  EXPECT_EQ(rec.count_kind(MAI_PROGRESS_COMPONENT), 0u);
}

TEST(Faults, ConnectFailures) {
  const std::string path = fixtures::media("tone.mp3");
  {
    ScopedEnv env("PMX_ENGINE_FAULTS", " connect=8:2 , bogus=1");  // the bad item is skipped
    Engine e;
    EXPECT_EQ(e.connect(path), MAI_E_OPENFAILED);
    EXPECT_EQ(e.connect(path, "mp3"), MAI_E_OPENFAILED);
    EXPECT_EQ(e.connect(path), MAI_OK);  // only twice
  }
  ScopedEnv env("PMX_ENGINE_FAULTS", "auto=25");  // only the engine's own choice, every time
  Engine e;
  EXPECT_EQ(e.connect(path), MAI_E_UNKNOWNFORMAT);
  EXPECT_EQ(e.connect(path), MAI_E_UNKNOWNFORMAT);
  EXPECT_EQ(e.connect(path, "pmi_mp3"), MAI_OK);
}

TEST(Faults, Error40ArrivesBeforePlayReturns) {
  ScopedEnv env("PMX_ENGINE_FAULTS", "error40");
  Engine e;
  Recorder &rec = Recorder::get();
  int context_marker = 0;
  rec.attach(e.h, &context_marker);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  for (size_t plays = 1; plays <= 2; ++plays) {
    ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    auto errors = rec.error_reports();  // no waiting: already delivered
    ASSERT_EQ(errors.size(), plays);
    EXPECT_EQ(errors.back().code, MAI_E_UNSUPPORTEDFORMAT);
    EXPECT_EQ(errors.back().detail, 0u);
    EXPECT_EQ(errors.back().context, &context_marker);
    EXPECT_NE(errors.back().thread, std::this_thread::get_id());
    ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
    ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  }
}

TEST(Faults, NoStartKeepsTheRendererQuiet) {
  ScopedEnv env("PMX_ENGINE_FAULTS", "nostart");
  Engine e;
  Recorder &rec = Recorder::get();
  rec.attach(e.h);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  std::this_thread::sleep_for(milliseconds(30));
  std::vector<u32> starters;
  for (const Report &r : rec.component_reports())
    if (r.words[MAI_PROG_FLAGS] & MAI_PROGFLAG_START) starters.push_back(r.words[3]);
  EXPECT_EQ(starters, (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX}));
}

TEST(Faults, QueriesReleaseDisconnectAndEvents) {
  {
    ScopedEnv env("PMX_ENGINE_FAULTS", "mediatype=1,stream=0x10100000");
    Engine e;
    ASSERT_EQ(e.connect(fixtures::media("xvid_mp3.avi")), MAI_OK);
    std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> rec{};
    EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), 1u);
    EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), 1u);
    EXPECT_EQ(stream_time(e.h).status, 0x10100000u);
  }
  {
    ScopedEnv env("PMX_ENGINE_FAULTS", "event");
    EXPECT_EQ(MAIOSEventCreate(0, 0, "AppEOF", 11), 0u);
  }
  const u32 ev = MAIOSEventCreate(0, 0, "AppEOF", 11);
  EXPECT_NE(ev, 0u);
  MAIOSEventDestroy(ev);
  ScopedEnv env("PMX_ENGINE_FAULTS", "release=1:2,disconnect=22");
  u32 h = 0;
  ASSERT_EQ(MAIengine_Create(&h), MAI_OK);
  ASSERT_EQ(MAIengine_AutoConnect(h, nullptr, 0, fixtures::media("tone.wav").c_str(), 1, 0), MAI_OK);
  EXPECT_EQ(MAIengine_Disconnect(h, 0), MAI_E_BUSY);
  u32 state = 0;
  ASSERT_EQ(MAIengine_GetState(h, &state, nullptr), MAI_OK);
  EXPECT_EQ(state, MAI_STATE_READY);  // still connected
  EXPECT_EQ(MAIengine_Disconnect(h, 0), MAI_OK);
  EXPECT_EQ(MAIengine_Release(h), 1u);
  EXPECT_EQ(MAIengine_Release(h), 1u);
  EXPECT_EQ(MAIengine_GetState(h, &state, nullptr), MAI_OK);  // still valid
  EXPECT_EQ(MAIengine_Release(h), MAI_OK);
}

// ---- The same faults by debug command ----

TEST(Faults, SimFaultCommand) {
  Engine e;
  const std::string path = fixtures::media("tone.mp3");
  for (const char *bad : {"sim fault connect=0", "sim fault connect=8:0", "sim fault nostart=1",
                          "sim fault bogus", "sim fault auto=8:2", "sim fault"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
  EXPECT_EQ(e.connect(path), MAI_OK);  // the bad commands added nothing
  ASSERT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);

  ASSERT_EQ(e.debug("sim fault connect=0x19:2, create=7"), MAI_OK);
  EXPECT_EQ(e.connect(path), MAI_E_UNKNOWNFORMAT);
  u32 other = 0;
  EXPECT_EQ(MAIengine_Create(&other), 7u);
  ASSERT_EQ(e.debug("sim fault clear"), MAI_OK);
  EXPECT_EQ(e.connect(path), MAI_OK);
  ASSERT_EQ(MAIengine_Create(&other), MAI_OK);
  MAIengine_Release(other);
}

// ---- Clock factor ----

TEST(ClockFactor, EnvironmentSetsPlaybackSpeed) {
  struct Case {
    const char *value;
    double factor;  // 2 s clips
  };
  for (const Case &c : {Case{"12.5", 12.5}, Case{"fast", 1}}) {
    SCOPED_TRACE(c.value);
    ScopedEnv env("PMX_ENGINE_CLOCK", c.value);
    Engine e;
    ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
    const auto t0 = Clock::now();
    ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    if (c.factor == 1) {  // normal speed: check the pace, not the end
      ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
      EXPECT_NEAR(clock_speed(e.h, milliseconds(100)), 1.0, 0.25);
      continue;
    }
    ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
    const double ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    EXPECT_GE(ms, 2000 / c.factor - 1);
    EXPECT_LT(ms, 2000 / c.factor + 300);
  }
}

TEST(ClockFactor, SimClockCommand) {
  Engine e;
  for (const char *bad : {"sim clock", "sim clock 0", "sim clock -2", "sim clock inf"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 0.5"), MAI_OK);  // takes effect while playing
  EXPECT_NEAR(clock_speed(e.h, milliseconds(100)), 0.5, 0.125);
}

}  // namespace
