// Transport: commands, states, the playback clock and the progress reports
// from the engine's threads.
#include "sim_test_util.h"

#include <cmath>

using namespace simtest;

namespace {

class Transport : public testing::Test {
 protected:
  Engine e;
  Recorder &rec = Recorder::get();
  u32 duration_ms = 0;

  void open(const char *fixture, const char *clock = "1") {
    const std::string path = fixtures::media(fixture);
    ASSERT_EQ(e.connect(path), MAI_OK);
    ASSERT_EQ(e.debug(std::string("sim clock ") + clock), MAI_OK);
    rec.attach(e.h);
    duration_ms = static_cast<u32>(std::llround(std::stod(fixtures::ffprobe_value(path, "format=duration")) * 1000));
  }
  void play(u32 rate, u32 state) {
    ASSERT_EQ(e.command(MAI_CMD_PLAY, rate), MAI_OK);
    ASSERT_EQ(e.wait(state), MAI_OK);
  }
  void seek(u32 mode, u32 value, u32 status = MAI_OK) {
    ASSERT_EQ(e.command(MAI_CMD_SEEK, mode, value), status);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
  }
  // The component reports with all of `flags`, once `n` of them came.
  std::vector<Report> reports(u32 flags, size_t n) {
    for (auto until = Clock::now() + 10s; rec.of(MAI_PROGRESS_COMPONENT, flags).size() < n && Clock::now() < until;)
      std::this_thread::sleep_for(1ms);
    return rec.of(MAI_PROGRESS_COMPONENT, flags);
  }
  std::vector<u32> types_of(const std::vector<Report> &reports) {
    std::vector<u32> types;
    for (const Report &r : reports) types.push_back(r.type());
    return types;
  }
};

// Source, demux and renderer report the start from an engine thread; whoever
// reacts to the renderer's start finds the stream playing.
TEST_F(Transport, PlayStartsStreamingOnTheEngineThread) {
  open("xvid_mp3.avi");
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  const auto r = reports(MAI_PROGFLAG_START, 3);
  ASSERT_EQ(types_of(r), (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  for (const Report &x : r) EXPECT_NE(x.thread, std::this_thread::get_id());
  EXPECT_EQ(r.back().state_seen, MAI_STATE_PLAYING);
}

// At the end source and demux end the stream, each stream's decoder ends,
// the renderer last; position ticks came meanwhile; the clock stands at the
// duration, and playing again starts from zero. Reverse play scans back to
// zero and ends there.
TEST_F(Transport, EndOfStreamReportsInOrder) {
  open("xvid_mp3.avi", "20");
  play(MAI_RATE_NORMAL, MAI_STATE_ENDOFSTREAM);
  const auto ends = rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_END);
  ASSERT_EQ(types_of(ends), (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_DECODER, MAI_COMP_DECODER,
                                              MAI_COMP_RENDERER}));
  for (size_t i = 0; i < ends.size(); ++i) {
    EXPECT_EQ(ends[i].words[MAI_PROG_FLAGS], MAI_PROGFLAG_END | (i == 2 || i == 3 ? 0 : MAI_PROGFLAG_STREAM_END)) << i;
  }
  EXPECT_NE(ends[2].words[1], ends[3].words[1]) << "one decoder per stream";
  EXPECT_GE(rec.of(MAI_PROGRESS_POSITION).size(), 3u);
  EXPECT_EQ(position(e.h), duration_ms);
  ASSERT_EQ(e.debug("sim clock 1"), MAI_OK);
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  EXPECT_LT(position(e.h), 1000u);
  ASSERT_EQ(reports(MAI_PROGFLAG_START, 6).size(), 6u);  // the renderer's start came too
  ASSERT_EQ(e.debug("sim clock 20"), MAI_OK);
  rec.attach(e.h);
  play(MAI_RATE_NORMAL | MAI_RATE_REVERSE, MAI_STATE_ENDOFSTREAM);
  EXPECT_EQ(position(e.h), 0u);
  const auto starts = rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START);
  ASSERT_EQ(types_of(starts), (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  EXPECT_EQ(starts[2].state_seen, MAI_STATE_SCANNING);
  EXPECT_EQ(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END).size(), 3u);
}

// The clock runs at rate x clock factor x output rate / stream rate; rates
// other than 1x scan; the factor comes from PMX_ENGINE_CLOCK or "sim clock",
// which refuses bad factors.
TEST_F(Transport, ClockSpeed) {
  open("xvid_mp3.avi");
  const struct {
    u32 from, rate, state;
    double speed;
  } cases[] = {{1000, MAI_RATE_NORMAL, MAI_STATE_PLAYING, 1.0},
               {0, 0x40000, MAI_STATE_SCANNING, 4.0},
               {2000, 0x20000 | MAI_RATE_REVERSE, MAI_STATE_SCANNING, -2.0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.rate);
    seek(MAI_SEEK_POSITION, c.from);
    play(c.rate, c.state);
    expect_speed(e.h, c.speed);
    ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
  }
  ASSERT_EQ(e.disconnect(), MAI_OK);
  for (const char *bad : {"sim clock", "sim clock 0", "sim clock -2", "sim clock inf"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
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

// Pause holds the clock (pausing twice is fine, pausing nothing is not);
// stop passes through STOPPING, rewinds to zero and is no end of stream.
TEST_F(Transport, PauseHoldsAndStopRewinds) {
  open("xvid_mp3.avi");
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_E_BUSY);
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  std::this_thread::sleep_for(30ms);
  ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
  EXPECT_EQ(e.state(), MAI_STATE_PAUSED);
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
  const u64 held = position(e.h);
  EXPECT_GE(held, 20u);
  std::this_thread::sleep_for(40ms);
  EXPECT_EQ(position(e.h), held);
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  std::this_thread::sleep_for(40ms);
  EXPECT_GT(position(e.h), held + 20);
  ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
  u32 pending = 0;
  EXPECT_EQ(e.state(&pending), MAI_STATE_STOPPING);
  EXPECT_EQ(pending, MAI_STATE_STOPPED);
  ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  EXPECT_EQ(position(e.h), 0u);
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_STREAM_END).empty()) << "stop is no end of stream";
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_E_BUSY);
  EXPECT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
}

// Seeks land where they should (key frames from the container's index);
// refused seeks leave the position; a seek while paused or playing passes
// through SEEKING and returns there.
TEST_F(Transport, SeekTargets) {
  open("xvid_mp3.avi");
  std::vector<u32> key;  // key frame times, as ffprobe lists the packets
  for (const std::string &line : fixtures::ffprobe_lines(fixtures::media("xvid_mp3.avi"), "packet=pts_time,flags",
                                                         "v:0"))
    if (line.find(",K") != std::string::npos) key.push_back(static_cast<u32>(std::llround(std::stod(line) * 1000)));
  ASSERT_GE(key.size(), 4u);
  const struct {
    u32 from, mode, value, status, to;
  } cases[] = {
      {0, MAI_SEEK_PERCENT, 5000, MAI_OK, duration_ms / 2},
      {0, MAI_SEEK_NEXT_KEY, 0, MAI_OK, key[1]},  // the first GOP is not a whole second long
      {key[2] - 10, MAI_SEEK_NEXT_KEY, 0, MAI_OK, key[2]},
      {key[2] + 10, MAI_SEEK_PREV_KEY, 0, MAI_OK, key[2]},
      {key[2], MAI_SEEK_PREV_KEY, 0, MAI_OK, key[1]},
      {0, MAI_SEEK_PREV_KEY, 0, MAI_OK, 0},
      {key.back(), MAI_SEEK_NEXT_KEY, 0, MAI_E_INVALIDARG, 0},
      {0, MAI_SEEK_POSITION, duration_ms + 1, MAI_E_INVALIDARG, 0},
      {0, MAI_SEEK_PERCENT, 10001, MAI_E_INVALIDARG, 0},
      {0, 1, 100, MAI_E_INVALIDARG, 0},
  };
  for (const auto &c : cases) {
    seek(MAI_SEEK_POSITION, c.from);
    seek(c.mode, c.value, c.status);
    EXPECT_EQ(position(e.h), c.status == MAI_OK ? c.to : c.from) << "mode " << c.mode << " from " << c.from;
    EXPECT_EQ(e.state(), MAI_STATE_READY);
  }
  for (u32 before : {MAI_STATE_PAUSED, MAI_STATE_PLAYING}) {
    play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
    if (before == MAI_STATE_PAUSED) {
      ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
    }
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_PERCENT, 2500), MAI_OK);
    u32 pending = 0;
    EXPECT_EQ(e.state(&pending), MAI_STATE_SEEKING);
    EXPECT_EQ(pending, before);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    EXPECT_EQ(e.state(), before);
    EXPECT_GE(position(e.h), duration_ms / 4);
  }
}

// Commands need a connection, a known command and a rate; waits time out;
// disconnecting while playing stops the engine's threads: no report after.
TEST_F(Transport, RefusalsTimeoutAndDisconnect) {
  for (u32 cmd : {MAI_CMD_PLAY, MAI_CMD_PAUSE, MAI_CMD_STOP, MAI_CMD_SEEK, 99u})
    EXPECT_EQ(e.command(cmd, MAI_RATE_NORMAL), MAI_E_NOTCONNECTED) << cmd;
  EXPECT_EQ(MAIengine_SendCommand(0, MAI_CMD_PLAY, MAI_RATE_NORMAL, 0, 0, 0, 0), MAI_E_INVALIDARG);
  open("xvid_mp3.avi", "40");
  EXPECT_EQ(e.command(99), MAI_E_UNSUPPORTED);
  EXPECT_EQ(e.command(MAI_CMD_PLAY, 0), MAI_E_INVALIDARG);
  const auto t0 = Clock::now();
  EXPECT_EQ(e.wait(MAI_STATE_PLAYING, 50), MAI_E_TIMEOUT);
  EXPECT_GE(Clock::now() - t0, 50ms);
  EXPECT_EQ(e.wait(MAI_STATE_READY | MAI_STATE_PLAYING, 0), MAI_OK);
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
    const auto errors = rec.error_reports();  // no waiting: already delivered
    ASSERT_EQ(errors.size(), plays);
    EXPECT_EQ(errors.back().code, MAI_E_UNSUPPORTEDFORMAT);
    EXPECT_EQ(errors.back().detail, 0u);
    EXPECT_EQ(errors.back().context, &context);
    EXPECT_NE(errors.back().thread, std::this_thread::get_id());
    ASSERT_EQ(faulty.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  }
  EXPECT_EQ(types_of(rec.of(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START)),
            (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_SOURCE, MAI_COMP_DEMUX}));
}

}  // namespace
