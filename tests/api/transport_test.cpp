// Playback transport on the host engine: play and its wait for the start of
// streaming, trick play, seeking, speed change, time and state.
#include <array>
#include <chrono>
#include <cstdio>

#include "info/byte_order.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

class Transport : public ApiTest {};

// The engine's own reading of the stream clock.
struct EngineClock {
  u64 start = 0, current = 0;
};

EngineClock engine_clock() {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  put_le32(rec.data(), MAI_STREAM_TIME_SIZE);
  EXPECT_EQ(MAIengine_GetStreamMediaType(pmx.engine.load(), rec.data()), 0u);
  return {LittleEndian2int64u(rec.data() + MAI_STIME_START), LittleEndian2int64u(rec.data() + MAI_STIME_CURRENT)};
}

TEST_F(Transport, PlayWaitsForTheStartThenFitsThePicture) {
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  s32 status = -1;
  const std::string out = printed([&] { status = pmx_play(); });
  EXPECT_EQ(status, PMX_OK);
  // The renderer had started before the picture was fitted.
  EXPECT_TRUE(has(out, "play speed = 0x00010000\n")) << out;
  EXPECT_TRUE(has(out, "media_play status = 0\n")) << out;
  const size_t start = out.find("PMX internelsd: ProgressCB: START\n");
  const size_t fit = out.find("max xsize =480,max ysize =272 \n");
  ASSERT_NE(start, std::string::npos) << out;
  ASSERT_NE(fit, std::string::npos) << out;
  EXPECT_LT(start, fit);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_PLAYING);
  EXPECT_EQ(pmx.display_set, 1);
  EXPECT_EQ(engine_state(), MAI_STATE_PLAYING);

  // Once fitted, a further play leaves the picture alone.
  printed([] { pmx_pause(); });
  const std::string again = printed([&] { status = pmx_play(); });
  EXPECT_EQ(status, PMX_OK);
  EXPECT_FALSE(has(again, "max xsize")) << again;
}

// A stream that never reports its start: about 10000 polls, then the fit
// all the same, and play succeeds.
TEST_F(Transport, PlayWithoutStartReportGivesUpAfterThePolls) {
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault nostart"), 0);
  s32 status = -1;
  const auto began = std::chrono::steady_clock::now();
  const std::string out = printed([&] { status = pmx_play(); });
  const auto waited = std::chrono::steady_clock::now() - began;
  EXPECT_EQ(status, PMX_OK);
  EXPECT_FALSE(has(out, "ProgressCB: START")) << out;
  EXPECT_TRUE(has(out, "dstXsize[")) << out;
  EXPECT_EQ(pmx.running.load(), 0);
  EXPECT_EQ(pmx.display_set, 1);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_PLAYING);
  // 10000 sleeps of at least 10 us each.
  EXPECT_GE(waited, std::chrono::milliseconds(100));
}

TEST_F(Transport, PlayOfAnUnsupportedStreamStopsIt) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault error40"), 0);
  s32 status = -1;
  const std::string out = printed([&] { status = pmx_play(); });
  EXPECT_EQ(status, PMX_UNSUPPORTED_FORMAT);
  EXPECT_TRUE(has(out, "media_play status = 0\n")) << out;
  EXPECT_TRUE(has(out, "stopping \n")) << out;
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
  EXPECT_EQ(pmx.display_set, 0);
  EXPECT_EQ(engine_state(), MAI_STATE_STOPPED);
}

TEST_F(Transport, CommandsNeedAnOpenFile) {
  pmx.state = PMX_STATE_NONE;
  EXPECT_EQ(pmx_play(), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_NONE);
  EXPECT_EQ(pmx_pause(), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx_stop(), PMX_NO_FILE_OPEN);
  // Trick play marks its state before it finds there is nothing to play.
  EXPECT_EQ(pmx_fast_forward(PMX_SPEED_2X), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
  pmx.state = PMX_STATE_NONE;
  EXPECT_EQ(pmx_fast_rewind(PMX_SPEED_2X), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
}

TEST_F(Transport, TrickPlayRates) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  struct Case {
    u32 code;
    bool reverse;
    const char *rate;
  };
  const Case cases[] = {
      {PMX_SPEED_SIXTEENTH, false, "0x00001000"}, {PMX_SPEED_HALF, false, "0x00008000"},
      {PMX_SPEED_1X, false, "0x00010000"},        {PMX_SPEED_16X, false, "0x00100000"},
      {9, false, "0x00010000"},                   {PMX_SPEED_8X, true, "0x80080000"},
      {PMX_SPEED_SIXTEENTH, true, "0x80001000"},
  };
  for (const Case &c : cases) {
    pmx.state = PMX_STATE_PLAYING;
    s32 status = -1;
    const std::string out = printed([&] {
      status = c.reverse ? pmx_fast_rewind(c.code) : pmx_fast_forward(c.code);
    });
    const std::string what = std::to_string(c.code) + (c.reverse ? " reverse" : "");
    EXPECT_EQ(status, PMX_OK) << what;
    EXPECT_TRUE(has(out, std::string("play speed = ") + c.rate + "\n")) << what << "\n" << out;
    // What the engine received.
    std::string received = c.rate;
    received.erase(2, received.find_first_not_of('0', 2) - 2);
    EXPECT_TRUE(has(out, "command PLAY (1) " + received + " 0 in state")) << what << "\n" << out;
    EXPECT_TRUE(has(out, "media_play status = 0\n")) << out;
    EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK) << what;
  }
}

// End of stream while fast forward or rewind runs is not reported.
TEST_F(Transport, EndOfStreamOfTrickPlayIsNotReported) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("sim clock 10"), 0);
  for (const bool reverse : {false, true}) {
    s32 seek = PMX_OK, trick = -1;
    u32 ended = 1;
    std::string out = printed([&] {
      if (reverse) seek = pmx_seek(PMX_SEEK_TIME, 1500);
      trick = reverse ? pmx_fast_rewind(PMX_SPEED_16X) : pmx_fast_forward(PMX_SPEED_16X);
      ended = MAIengine_WaitForState(pmx.engine.load(), MAI_STATE_ENDOFSTREAM, 3000);
    });
    EXPECT_EQ(seek, PMX_OK);
    EXPECT_EQ(trick, PMX_OK);
    EXPECT_EQ(ended, 0u);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(has(out, "EndOfStream")) << out;
    EXPECT_EQ(eos_calls.load(), 0);
    EXPECT_EQ(pmx.at_eos.load(), 0);
    EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
  }
  // Stopped and played again at normal speed, the end is reported.
  run(pmx_stop);
  ASSERT_EQ(run(pmx_play), PMX_OK);
  EXPECT_TRUE(eventually([] { return eos_calls.load() == 1; }));
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
}

TEST_F(Transport, SeekTypesAndTheirEngineModes) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  struct Case {
    u32 type, value;
    const char *command;  // the engine's trace of what it received
    s32 status;
    u64 at;               // clock position afterwards
  };
  const Case cases[] = {
      {PMX_SEEK_POS, 500, "command SEEK (512) 0x0 500 ", PMX_OK, 500},
      {PMX_SEEK_TIME, 700, "command SEEK (512) 0x4 700 ", PMX_OK, 700},
      {PMX_SEEK_PERCENT, 50, "command SEEK (512) 0x2 5000 ", PMX_OK, 1000},
      // Beyond the end: the engine refuses.
      {PMX_SEEK_TIME, 5000, "command SEEK (512) 0x4 5000 ", PMX_INVALID_ARG, 1000},
      {PMX_SEEK_POS, 0, "command SEEK (512) 0x0 0 ", PMX_OK, 0},
  };
  for (const Case &c : cases) {
    s32 status = -1;
    const std::string out = printed([&] { status = pmx_seek(c.type, c.value); });
    const std::string what = std::to_string(c.type) + "/" + std::to_string(c.value);
    EXPECT_EQ(status, c.status) << what;
    EXPECT_TRUE(has(out, "[pmx_transport.cpp][pmx_seek][")) << out;
    EXPECT_TRUE(has(out, "] seek_type = [" + std::to_string(c.type) + "]\n")) << out;
    EXPECT_TRUE(has(out, c.command)) << what << "\n" << out;
    EXPECT_EQ(has(out, "PMX:SEEK failed!! [3]\n"), c.status != PMX_OK) << out;
    EXPECT_NE(engine_state(), MAI_STATE_SEEKING) << what;  // waited for the seek
    EXPECT_EQ(engine_clock().current, c.at) << what;
  }
  // Types outside 1..5 never reach the engine.
  for (const u32 type : {0u, 6u, 100u}) {
    s32 status = -1;
    const std::string out = printed([&] { status = pmx_seek(type, 10); });
    EXPECT_EQ(status, PMX_INVALID_ARG) << type;
    EXPECT_FALSE(has(out, "command SEEK")) << out;
  }
}

TEST_F(Transport, ProgramStreamsAreNotSeekable) {
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  s32 status = -1;
  const std::string out = printed([&] { status = pmx_seek(PMX_SEEK_TIME, 500); });
  EXPECT_EQ(status, PMX_INVALID_ARG);
  EXPECT_EQ(out, "MPEG-> NOT SUPPORTED AT THIS TIME !!\n");
}

// Steps of speed change from 44100 Hz (index 7 of the rate table).
TEST_F(Transport, SpeedChangeStaysBetween40And160Percent) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  PmxMediaInfo info{};
  EXPECT_EQ(printed([&] { pmx_get_media_info(&info); }), "current_src_order[7]\n");
  struct Step {
    u32 direction;
    u32 percent;
    const char *printed;
    u32 rate;  // the engine's output rate afterwards
  };
  const Step steps[] = {
      {PMX_PLAYSPEED_FASTER, 114, "Play Speed [114%][48000]\n", 48000},
      {PMX_PLAYSPEED_FASTER, 128, "Play Speed [128%][64000]\n", 64000},
      {PMX_PLAYSPEED_FASTER, 142, "Play Speed [142%][88200]\n", 88200},
      {PMX_PLAYSPEED_FASTER, 157, "Play Speed [157%][96000]\n", 96000},
      {PMX_PLAYSPEED_FASTER, 157, "Keeping Play Speed [157%]\n", 96000},  // 171 is too fast
      {PMX_PLAYSPEED_NORMAL, 100, "Play Speed [100%][44100]\n", 44100},
      {PMX_PLAYSPEED_SLOWER, 85, "Play Speed [85%][32000]\n", 32000},
      {PMX_PLAYSPEED_SLOWER, 71, "Play Speed [71%][24000]\n", 24000},
      {PMX_PLAYSPEED_SLOWER, 57, "Play Speed [57%][22050]\n", 22050},
      {PMX_PLAYSPEED_SLOWER, 42, "Play Speed [42%][16000]\n", 16000},
      {PMX_PLAYSPEED_SLOWER, 42, "Keeping Play Speed [42%]\n", 16000},  // 28 is too slow
      {PMX_PLAYSPEED_FASTER, 57, "Play Speed [57%][22050]\n", 22050},
  };
  for (const Step &s : steps) {
    u32 percent = 0;
    s32 status = -1;
    const std::string out = printed([&] { status = pmx_change_playspeed(s.direction, &percent); });
    EXPECT_EQ(status, PMX_OK);
    EXPECT_EQ(percent, s.percent) << s.printed;
    EXPECT_EQ(out, s.printed);
    u32 rate = 0;
    EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_SAMPLE_RATE, &rate, sizeof rate), 0u);
    EXPECT_EQ(rate, s.rate) << s.printed;
  }
}

TEST_F(Transport, SpeedChangeAtTheEndsOfTheTable) {
  struct Case {
    u32 normal, index, direction;
    u32 percent, index_after;
    const char *printed;
  };
  const Case cases[] = {
      // At the bottom no step is made, and the keeping step moves up all the same.
      {1, 0, PMX_PLAYSPEED_SLOWER, 100, 1, "Keeping Play Speed [100%]\n"},
      // At the top the step is not made and the speed stays normal.
      {13, 13, PMX_PLAYSPEED_FASTER, 100, 13, "Play Speed [100%][192000]\n"},
      {12, 13, PMX_PLAYSPEED_FASTER, 108, 13, "Play Speed [108%][192000]\n"},
      // An unknown direction keeps the index.
      {7, 8, 3, 114, 8, "Play Speed [114%][48000]\n"},
      {2, 4, 3, 200, 4, "Keeping Play Speed [200%]\n"},
  };
  for (const Case &c : cases) {
    pmx.normal_speed_index = c.normal;
    pmx.speed_index = c.index;
    u32 percent = 0;
    std::string out;
    EXPECT_EQ(run([&] { return pmx_change_playspeed(c.direction, &percent); }, &out), PMX_OK);
    EXPECT_EQ(out, c.printed);
    EXPECT_EQ(percent, c.percent) << c.printed;
    EXPECT_EQ(pmx.speed_index, c.index_after) << c.printed;
  }
  pmx.normal_speed_index = 0;
  u32 percent = 7;
  std::string out;
  EXPECT_EQ(run([&] { return pmx_change_playspeed(PMX_PLAYSPEED_FASTER, &percent); }, &out), PMX_FAILED);
  EXPECT_EQ(out, "Please, pmx_get_media_info() first ...\n");
  EXPECT_EQ(percent, 7u);
}

// The video subtype is asked once per open; a file without video reads as
// subtype 0 and gets the engine's clock as it is.
TEST_F(Transport, TimeOfAFileWithoutVideo) {
  for (int round = 0; round < 2; ++round) {
    ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
    u64 current = 1, total = 0;
    std::string out;
    EXPECT_EQ(run([&] { return pmx_get_time(&current, &total); }, &out), PMX_OK);
    EXPECT_EQ(out, "Mai Get Video info failed: 9\n");
    EXPECT_EQ(current, 0u);
    EXPECT_EQ(total, 2000u);
    EXPECT_EQ(eMSubtype, 0u);
    EXPECT_EQ(run([] { return pmx_seek(PMX_SEEK_TIME, 1234); }), PMX_OK);
    EXPECT_EQ(run([&] { return pmx_get_time(&current, &total); }, &out), PMX_OK);
    EXPECT_EQ(out, "");
    EXPECT_EQ(current, 1234u);
    printed([] { pmx_close(); });
  }
}

TEST_F(Transport, TimeArgumentsAndFailedQuery) {
  u64 current = 9, total = 9;
  EXPECT_EQ(pmx_get_time(nullptr, &total), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_time(&current, &total), PMX_NO_FILE_OPEN);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault stream=22"), 0);
  s32 status = -1;
  const std::string out = printed([&] { status = pmx_get_time(&current, &total); });
  EXPECT_EQ(status, PMX_BUSY);
  EXPECT_TRUE(has(out, "Get Time Failed!!\n")) << out;
  EXPECT_EQ(current, 0u);
  EXPECT_EQ(total, 0u);
}

// The clock an MPEG program stream reports starts at its first time stamp
// (529 ms into the fixture). How the API turns it into play time depends on
// the video subtype.
TEST_F(Transport, TimeBySubtype) {
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  u64 current = 0, total = 0;
  ASSERT_EQ(run([&] { return pmx_get_time(&current, &total); }), PMX_OK);
  EXPECT_EQ(eMSubtype, MAI_SUB_MPEG_VIDEO_PES2);
  const u32 engine = pmx.engine.load();
  const u64 start = engine_clock().start;
  ASSERT_GT(start, 0u);
  ASSERT_GT(total, start);
  // Clocks that start low are taken as they are: no base.
  EXPECT_EQ(current, start);
  EXPECT_EQ(pmx.time_base, 0u);

  struct Case {
    u32 subtype;
    u32 seek_to;  // ms into the stream
    u64 expected;
  };
  const u64 past_total = total - start + 100;  // a reading of total + 100 ms
  const Case cases[] = {
      {MAI_SUB_WMV, 300, 300}, {MAI_SUB_WMV9_ADVANCED, 300, 300}, {MAI_SUB_XVID, 300, start + 300},
      {69, 300, start + 300},
  };
  for (const Case &c : cases) {
    eMSubtype = c.subtype;
    ASSERT_EQ(MAIengine_SendCommand(engine, MAI_CMD_SEEK, MAI_SEEK_TIME, c.seek_to, 0, 0, MAI_WAIT_FOREVER), 0u);
    ASSERT_EQ(MAIengine_WaitForState(engine, MAI_STATE_READY, 1000), 0u);
    ASSERT_EQ(pmx_get_time(&current, &total), PMX_OK);
    EXPECT_EQ(current, c.expected) << c.subtype;
  }
  // The PES subtypes: the first reading at or beyond the play time becomes
  // the base; later readings count from it.
  for (const u32 subtype : {MAI_SUB_MPEG1_VIDEO, MAI_SUB_MPEG_VIDEO_PES2, MAI_SUB_MPEG_AUDIO_PES1, MAI_SUB_AC3_PES}) {
    eMSubtype = subtype;
    pmx.time_base = 0;
    for (const auto &[seek_to, expected] : {std::pair<u64, u64>{300, start + 300}, {past_total, 0},
                                            {past_total + 250, 250}}) {
      ASSERT_EQ(MAIengine_SendCommand(engine, MAI_CMD_SEEK, MAI_SEEK_TIME, static_cast<u32>(seek_to), 0, 0,
                                      MAI_WAIT_FOREVER),
                0u);
      ASSERT_EQ(MAIengine_WaitForState(engine, MAI_STATE_READY, 1000), 0u);
      ASSERT_EQ(pmx_get_time(&current, &total), PMX_OK);
      EXPECT_EQ(current, expected) << subtype << " at " << seek_to;
    }
    EXPECT_EQ(pmx.time_base, total + 100) << subtype;
  }
}

TEST_F(Transport, StateFollowsTheEngine) {
  EXPECT_EQ(pmx_get_state(), 1u);  // idle
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(pmx_get_state(), 2u);  // connected
  ASSERT_EQ(pmx_debug("sim clock 10"), 0);
  struct Step {
    s32 (*command)();
    u32 state;
  };
  const Step steps[] = {
      {pmx_play, 5},
      {[] { return pmx_fast_forward(PMX_SPEED_2X); }, 6},
      {pmx_pause, 7},
      {pmx_stop, 8},
      {pmx_play, 5},
  };
  for (const Step &s : steps) {
    ASSERT_EQ(run(s.command), PMX_OK);
    EXPECT_TRUE(eventually([&] { return pmx_get_state() == s.state; })) << s.state;
    EXPECT_EQ(pmx.state.load(), s.state);
  }
  // Played to the end.
  EXPECT_TRUE(eventually([] { return pmx_get_state() == 11; }));
  ASSERT_EQ(pmx_release(), PMX_OK);
  pmx.state = PMX_STATE_PLAYING;
  EXPECT_EQ(pmx_get_state(), 0u);
  EXPECT_EQ(pmx.state.load(), 0u);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
}

// Pause and stop return once the engine is there.
TEST_F(Transport, PauseAndStopWaitForTheEngine) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(run(pmx_play), PMX_OK);
  std::string out;
  EXPECT_EQ(run(pmx_pause, &out), PMX_OK);
  EXPECT_EQ(out, "media_pause status = 0\n");
  EXPECT_EQ(engine_state(), MAI_STATE_PAUSED);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_PAUSED);
  pmx.at_eos = 1;
  EXPECT_EQ(run(pmx_stop, &out), PMX_OK);
  EXPECT_EQ(out, "stopping \nmedia_stop status = 0\n");
  EXPECT_EQ(engine_state(), MAI_STATE_STOPPED);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
  EXPECT_EQ(pmx.running.load(), 0);
  EXPECT_EQ(pmx.at_eos.load(), 0);
}

}  // namespace
