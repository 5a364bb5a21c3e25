// Transport: the playback clock and the progress reports from the engine's
// threads.
#include "sim_test_util.h"

#include <cmath>

using namespace simtest;

namespace {

class Transport : public testing::Test {
 protected:
  Engine e;
  Recorder &rec = Recorder::get();

  void open(const char *fixture, const char *clock = "1") {
    ASSERT_EQ(e.connect(fixtures::media(fixture)), MAI_OK);
    ASSERT_EQ(e.debug(std::string("sim clock ") + clock), MAI_OK);
    rec.attach(e.h);
  }
  void play(u32 rate, u32 state) {
    ASSERT_EQ(e.command(MAI_CMD_PLAY, rate), MAI_OK);
    ASSERT_EQ(e.wait(state), MAI_OK);
  }
  // Component types of the reports with all of `flags`, once `n` of them came.
  std::vector<u32> types(u32 flags, size_t n = 0) {
    for (auto until = Clock::now() + 10s; rec.of(MAI_PROGRESS_COMPONENT, flags).size() < n && Clock::now() < until;)
      std::this_thread::sleep_for(1ms);
    std::vector<u32> out;
    for (const Report &r : rec.of(MAI_PROGRESS_COMPONENT, flags)) out.push_back(r.type);
    return out;
  }
};

// Source, demux and renderer report the start from an engine thread, the
// renderer once the stream plays; at the end source and demux end the
// stream, each stream's decoder ends, the renderer last, and the clock
// stands at the duration. Reverse play scans back to zero and ends there.
TEST_F(Transport, StartAndEndReportsFromTheEngineThreads) {
  open("xvid_mp3.avi");
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  using V = std::vector<u32>;
  ASSERT_EQ(types(MAI_PROGFLAG_START, 3), V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  for (const Report &r : rec.of(MAI_PROGRESS_COMPONENT)) EXPECT_NE(r.thread, std::this_thread::get_id());
  EXPECT_EQ(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START).back().state_seen, MAI_STATE_PLAYING);
  ASSERT_EQ(e.debug("sim clock 20"), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  EXPECT_EQ(types(MAI_PROGFLAG_END, 5),
            V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_DECODER, MAI_COMP_DECODER, MAI_COMP_RENDERER}));
  EXPECT_EQ(types(MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END), V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  EXPECT_GE(rec.of(MAI_PROGRESS_POSITION).size(), 3u);
  const std::string path = fixtures::media("xvid_mp3.avi");
  EXPECT_EQ(position(e.h), u64(std::llround(std::stod(fixtures::ffprobe_value(path, "format=duration")) * 1000)));
  rec.attach(e.h);
  play(MAI_RATE_NORMAL | MAI_RATE_REVERSE, MAI_STATE_ENDOFSTREAM);
  EXPECT_EQ(position(e.h), 0u);
  ASSERT_EQ(types(MAI_PROGFLAG_START, 3), V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  EXPECT_EQ(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START).back().state_seen, MAI_STATE_SCANNING);
  EXPECT_EQ(types(MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END, 3).size(), 3u);
}

// The clock runs at rate x clock factor x output rate / stream rate and
// stands while paused; rates other than 1x scan; the factor comes from
// PMX_ENGINE_CLOCK or "sim clock", which refuses bad factors.
TEST_F(Transport, ClockSpeedAndPause) {
  open("xvid_mp3.avi");
  const struct {
    u32 from, rate, state;
    double speed;
  } cases[] = {{1000, MAI_RATE_NORMAL, MAI_STATE_PLAYING, 1.0},
               {0, 0x40000, MAI_STATE_SCANNING, 4.0},
               {2000, 0x20000 | MAI_RATE_REVERSE, MAI_STATE_SCANNING, -2.0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.rate);
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, c.from), MAI_OK);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    play(c.rate, c.state);
    expect_speed(e.h, c.speed);
    ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
    EXPECT_EQ(e.state(), MAI_STATE_PAUSED);
    expect_speed(e.h, 0);
  }
  for (const char *bad : {"sim clock", "sim clock 0", "sim clock -2", "sim clock inf"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
  ASSERT_EQ(e.disconnect(), MAI_OK);
  open("tone.wav", "0.5");  // 44100 Hz
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  for (auto [rate, speed] : {std::pair{88200u, 1.0}, {22050u, 0.25}}) {
    ASSERT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
    expect_speed(e.h, speed);
  }
  ScopedEnv env("PMX_ENGINE_CLOCK", "2.5");
  Engine other;
  ASSERT_EQ(other.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(other.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(other.wait(MAI_STATE_PLAYING), MAI_OK);
  expect_speed(other.h, 2.5);
}

// Stop passes through STOPPING, rewinds to zero and is no end of stream;
// disconnecting while playing ends the engine's threads: no report after.
TEST_F(Transport, StopRewindsAndDisconnectEndsTheThreads) {
  open("xvid_mp3.avi");
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  std::this_thread::sleep_for(30ms);
  ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
  u32 pending = 0;
  EXPECT_EQ(e.state(&pending), MAI_STATE_STOPPING);
  EXPECT_EQ(pending, MAI_STATE_STOPPED);
  ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  EXPECT_EQ(position(e.h), 0u);
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_STREAM_END).empty()) << "stop is no end of stream";
  ASSERT_EQ(e.debug("sim clock 40"), MAI_OK);
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  ASSERT_EQ(e.disconnect(), MAI_OK);
  EXPECT_EQ(e.state(), MAI_STATE_IDLE);
  const size_t seen = rec.of(MAI_PROGRESS_COMPONENT).size() + rec.of(MAI_PROGRESS_POSITION).size();
  std::this_thread::sleep_for(100ms);  // longer than the clip at this speed
  EXPECT_EQ(rec.of(MAI_PROGRESS_COMPONENT).size() + rec.of(MAI_PROGRESS_POSITION).size(), seen);
}

// error40: every play reports error 40 from an engine thread, with the
// registered context, before the command returns. nostart: the stream
// plays, but the renderer never reports its start.
TEST_F(Transport, Error40AndNoStartFaults) {
  ScopedEnv env("PMX_ENGINE_FAULTS", "error40,nostart");
  Engine faulty;
  int context = 0;
  rec.attach(faulty.h, &context);
  ASSERT_EQ(faulty.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(faulty.debug("sim clock 50"), MAI_OK);
  for (size_t plays = 1; plays <= 2; ++plays) {
    ASSERT_EQ(faulty.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    std::unique_lock lk(rec.mu);  // no waiting: already delivered
    ASSERT_EQ(rec.errors.size(), plays);
    EXPECT_EQ(rec.errors.back().code, MAI_E_UNSUPPORTEDFORMAT);
    EXPECT_EQ(rec.errors.back().context, &context);
    EXPECT_NE(rec.errors.back().thread, std::this_thread::get_id());
    lk.unlock();
    ASSERT_EQ(faulty.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  }
  EXPECT_EQ(types(MAI_PROGFLAG_START, 4), (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_SOURCE,
                                                         MAI_COMP_DEMUX}));
}

}  // namespace
