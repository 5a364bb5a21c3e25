// Transport: commands, states, the playback clock and the progress reports.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

#include <chrono>
#include <cmath>

using namespace simtest;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

namespace {

class Transport : public testing::Test {
 protected:
  Engine e;
  Recorder &rec = Recorder::get();
  u32 duration_ms = 0;

  void open(const char *fixture, const char *clock = "20") {
    const std::string path = fixtures::media(fixture);
    ASSERT_EQ(e.connect(path), MAI_OK);
    ASSERT_EQ(e.debug(std::string("sim clock ") + clock), MAI_OK);
    rec.attach(e.h);
    duration_ms = static_cast<u32>(
        std::llround(std::stod(fixtures::ffprobe_value(path, "format=duration")) * 1000));
  }
  // Waits until `n` component reports have arrived.
  std::vector<Report> reports_after(size_t n) {
    const auto until = Clock::now() + milliseconds(5000);
    for (;;) {
      auto r = rec.component_reports();
      if (r.size() >= n || Clock::now() > until) return r;
      std::this_thread::sleep_for(milliseconds(1));
    }
  }
};

bool has(const Report &r, u32 flags) { return (r.words[MAI_PROG_FLAGS] & flags) == flags; }
u32 type_of(const Report &r) { return r.words[MAI_PROG_COMPONENT_TYPE]; }

TEST_F(Transport, PlayStartsStreamingOnTheEngineThread) {
  open("xvid_mp3.avi", "1");
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  EXPECT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  auto r = reports_after(3);
  ASSERT_EQ(r.size(), 3u);
  const u32 expected_types[] = {MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER};
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(type_of(r[i]), expected_types[i]);
    EXPECT_TRUE(has(r[i], MAI_PROGFLAG_START));
    EXPECT_NE(r[i].thread, std::this_thread::get_id());
  }
  // Whoever reacts to the renderer's start finds the stream playing.
  EXPECT_EQ(r[2].state_seen, MAI_STATE_PLAYING);
  EXPECT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
}

TEST_F(Transport, EndOfStreamReportsInOrder) {
  open("xvid_mp3.avi");
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  std::vector<Report> ends;
  for (const Report &r : rec.component_reports())
    if (has(r, MAI_PROGFLAG_END)) ends.push_back(r);
  // Source and demux end the stream, both decoders end, the renderer last.
  ASSERT_EQ(ends.size(), 5u);
  const u32 types[] = {MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_DECODER, MAI_COMP_DECODER,
                       MAI_COMP_RENDERER};
  const bool stream_end[] = {true, true, false, false, true};
  for (size_t i = 0; i < ends.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(type_of(ends[i]), types[i]);
    EXPECT_EQ(has(ends[i], MAI_PROGFLAG_STREAM_END), stream_end[i]);
    EXPECT_FALSE(has(ends[i], MAI_PROGFLAG_ABORTED));
  }
  EXPECT_NE(ends[2].words[1], ends[3].words[1]) << "one decoder per stream";
  // Ordinary position reports of another kind came while playing.
  EXPECT_GE(rec.count_kind(0x200000), 3u);
  EXPECT_EQ(position(e.h), duration_ms);
  EXPECT_EQ(e.state(), MAI_STATE_ENDOFSTREAM);
  // Playing after the end starts again from zero.
  ASSERT_EQ(e.debug("sim clock 1"), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  EXPECT_LT(position(e.h), 500u);
}

TEST_F(Transport, ReversePlayEndsAtZero) {
  open("xvid_mp3.avi");
  ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, 1000), MAI_OK);
  ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL | MAI_RATE_REVERSE), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  EXPECT_EQ(position(e.h), 0u);
  size_t renderer_ends = 0, scanning_seen = 0;
  for (const Report &r : rec.component_reports()) {
    if (type_of(r) == MAI_COMP_RENDERER && has(r, MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END))
      ++renderer_ends;
    if (type_of(r) == MAI_COMP_RENDERER && has(r, MAI_PROGFLAG_START))
      scanning_seen += r.state_seen == MAI_STATE_SCANNING;
  }
  EXPECT_EQ(renderer_ends, 1u);
  EXPECT_EQ(scanning_seen, 1u);
}

TEST_F(Transport, RateSetsStateAndClockSpeed) {
  open("xvid_mp3.avi", "1");
  struct Case {
    u32 rate;
    u32 state;
    double speed;
  };
  const Case cases[] = {
      {MAI_RATE_NORMAL, MAI_STATE_PLAYING, 1.0},
      {0x40000, MAI_STATE_SCANNING, 4.0},
      {0x20000 | MAI_RATE_REVERSE, MAI_STATE_SCANNING, -2.0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.rate);
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, 1000), MAI_OK);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    ASSERT_EQ(e.command(MAI_CMD_PLAY, c.rate), MAI_OK);
    ASSERT_EQ(e.wait(c.state), MAI_OK);
    EXPECT_NEAR(clock_speed(e.h, milliseconds(120)), c.speed, std::abs(c.speed) * 0.25);
    ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
  }
}

TEST_F(Transport, SampleRateParameterScalesTheClock) {
  open("tone.wav", "1");  // a 44100 Hz stream
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  for (auto [rate, speed] : {std::pair{88200u, 2.0}, {22050u, 0.5}}) {
    SCOPED_TRACE(rate);
    u32 value = rate;
    ASSERT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &value, 4), MAI_OK);
    EXPECT_NEAR(clock_speed(e.h, milliseconds(120)), speed, speed * 0.25);
  }
}

TEST_F(Transport, PauseHoldsAndStopRewindsWithoutEndOfStream) {
  open("xvid_mp3.avi", "1");
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_E_BUSY);  // nothing is playing
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  std::this_thread::sleep_for(milliseconds(30));
  ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
  EXPECT_EQ(e.state(), MAI_STATE_PAUSED);
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);  // pausing again is fine
  const u64 held = position(e.h);
  EXPECT_GE(held, 20u);
  std::this_thread::sleep_for(milliseconds(40));
  EXPECT_EQ(position(e.h), held);
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  std::this_thread::sleep_for(milliseconds(40));
  EXPECT_GT(position(e.h), held + 20);
  ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
  u32 state = 0, pending = 0;
  ASSERT_EQ(MAIengine_GetState(e.h, &state, &pending), MAI_OK);
  EXPECT_EQ(state, MAI_STATE_STOPPING);
  EXPECT_EQ(pending, MAI_STATE_STOPPED);
  ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  EXPECT_EQ(position(e.h), 0u);
  std::this_thread::sleep_for(milliseconds(20));
  for (const Report &r : rec.component_reports())
    EXPECT_FALSE(has(r, MAI_PROGFLAG_STREAM_END)) << "stop is no end of stream";
  EXPECT_EQ(e.command(MAI_CMD_PAUSE), MAI_E_BUSY);
  EXPECT_EQ(e.command(MAI_CMD_STOP), MAI_OK);  // stopping a stopped stream is fine
}

// Key frame times of the video stream, as ffprobe lists its packets.
std::vector<u32> key_frames_ms(const std::string &path) {
  std::vector<u32> keys;
  for (const std::string &line : fixtures::ffprobe_lines(path, "packet=pts_time,flags", "v:0"))
    if (line.find(",K") != std::string::npos)
      keys.push_back(static_cast<u32>(std::llround(std::stod(line) * 1000)));
  return keys;
}

TEST_F(Transport, SeekTargets) {
  open("xvid_mp3.avi", "1");
  const std::vector<u32> key = key_frames_ms(fixtures::media("xvid_mp3.avi"));
  ASSERT_GE(key.size(), 4u);
  struct Case {
    u32 from;  // position before the seek
    u32 mode, value;
    u32 status;
    u32 to;
  };
  const Case cases[] = {
      {0, MAI_SEEK_POSITION, 1000, MAI_OK, 1000},
      {0, MAI_SEEK_TIME, 1500, MAI_OK, 1500},
      {0, MAI_SEEK_PERCENT, 5000, MAI_OK, duration_ms / 2},
      // Key frames come from the container's index (the first GOP is not a
      // whole second long, so a one-second grid would miss them).
      {0, MAI_SEEK_NEXT_KEY, 0, MAI_OK, key[1]},
      {key[2] - 10, MAI_SEEK_NEXT_KEY, 0, MAI_OK, key[2]},
      {key[2] + 10, MAI_SEEK_PREV_KEY, 0, MAI_OK, key[2]},
      {key[2], MAI_SEEK_PREV_KEY, 0, MAI_OK, key[1]},
      {0, MAI_SEEK_PREV_KEY, 0, MAI_OK, 0},
      {key.back(), MAI_SEEK_NEXT_KEY, 0, MAI_E_INVALIDARG, 0},
      {0, MAI_SEEK_POSITION, duration_ms + 1, MAI_E_INVALIDARG, 0},
      {0, MAI_SEEK_PERCENT, 10001, MAI_E_INVALIDARG, 0},
      {0, 1, 100, MAI_E_INVALIDARG, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " value " << c.value << " from "
                                    << c.from);
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, c.from), MAI_OK);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    ASSERT_EQ(e.command(MAI_CMD_SEEK, c.mode, c.value), c.status);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    EXPECT_EQ(position(e.h), c.status == MAI_OK ? c.to : c.from);
    EXPECT_EQ(e.state(), MAI_STATE_READY);
  }
}

TEST_F(Transport, KeyFramesWithoutVideoFallOnWholeSeconds) {
  open("tone.wav", "1");
  ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_NEXT_KEY, 0), MAI_OK);
  ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
  EXPECT_EQ(position(e.h), 1000u);
  ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, 1500), MAI_OK);
  ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
  ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_PREV_KEY, 0), MAI_OK);
  ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
  EXPECT_EQ(position(e.h), 1000u);
}

TEST_F(Transport, SeekPassesThroughSeekingBackToThePreviousState) {
  open("xvid_mp3.avi", "1");
  for (u32 before : {MAI_STATE_PAUSED, MAI_STATE_PLAYING}) {
    SCOPED_TRACE(before);
    ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
    if (before == MAI_STATE_PAUSED) {
      ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
    }
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_PERCENT, 2500), MAI_OK);
    u32 state = 0, pending = 0;
    ASSERT_EQ(MAIengine_GetState(e.h, &state, &pending), MAI_OK);
    EXPECT_EQ(state, MAI_STATE_SEEKING);
    EXPECT_EQ(pending, before);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    EXPECT_EQ(e.state(), before);
    EXPECT_GE(position(e.h), duration_ms / 4);
    ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
    ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  }
}

TEST_F(Transport, CommandsNeedAConnectionAndWaitsTimeOut) {
  for (u32 cmd : {MAI_CMD_PLAY, MAI_CMD_PAUSE, MAI_CMD_STOP, MAI_CMD_SEEK, 99u})
    EXPECT_EQ(e.command(cmd, MAI_RATE_NORMAL), MAI_E_NOTCONNECTED) << cmd;
  open("tone.wav", "1");
  const auto t0 = Clock::now();
  EXPECT_EQ(e.wait(MAI_STATE_PLAYING, 50), MAI_E_TIMEOUT);
  EXPECT_GE(Clock::now() - t0, milliseconds(50));
  EXPECT_EQ(e.wait(MAI_STATE_READY | MAI_STATE_PLAYING, 0), MAI_OK);
  EXPECT_EQ(e.command(99), MAI_E_UNSUPPORTED);
  EXPECT_EQ(e.command(MAI_CMD_PLAY, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_SendCommand(0, MAI_CMD_PLAY, MAI_RATE_NORMAL, 0, 0, 0, 0), MAI_E_INVALIDARG);
}

TEST_F(Transport, NoReportArrivesAfterDisconnect) {
  open("xvid_mp3.avi", "40");
  ASSERT_EQ(e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_PLAYING), MAI_OK);
  ASSERT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  EXPECT_EQ(e.state(), MAI_STATE_IDLE);
  const size_t seen = rec.count_kind(MAI_PROGRESS_COMPONENT) + rec.count_kind(0x200000);
  std::this_thread::sleep_for(milliseconds(80));  // longer than the clip at this speed
  EXPECT_EQ(rec.count_kind(MAI_PROGRESS_COMPONENT) + rec.count_kind(0x200000), seen);
}

}  // namespace
