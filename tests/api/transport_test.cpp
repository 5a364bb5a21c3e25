// Playback transport on the host engine: play, trick play, seek, speed, time, state.
#include <array>
#include <chrono>
#include <thread>

#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;
using Transport = ApiTest;

// The engine's own reading of the stream clock: start and current position.
std::pair<u64, u64> engine_clock() {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  put_le32(rec.data(), MAI_STREAM_TIME_SIZE);
  MAIengine_GetStreamMediaType(pmx.engine.load(), rec.data());
  return {LittleEndian2int64u(rec.data() + MAI_STIME_START), LittleEndian2int64u(rec.data() + MAI_STIME_CURRENT)};
}

// The first play after an open fits the picture once the renderer starts, or
// without a start report after 10000 polls of at least 10 us.
TEST_F(Transport, PlayFitsThePictureOnceTheRendererRuns) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  script_avi(320, 240);
  ASSERT_EQ(open(avi), PMX_OK);
  std::string out;
  EXPECT_EQ(run(pmx_play, &out), PMX_OK);
  const size_t start = out.find("PMX internelsd: ProgressCB: START\n");
  EXPECT_TRUE(start != std::string::npos && start < out.find("max xsize =480,max ysize =272 \n")) << out;
  run(pmx_pause);
  EXPECT_EQ(run(pmx_play, &out), PMX_OK);
  EXPECT_FALSE(has(out, "max xsize")) << out;
  run(pmx_close);
  ASSERT_EQ(open(avi), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault nostart"), 0);
  const auto began = std::chrono::steady_clock::now();
  EXPECT_EQ(run(pmx_play, &out), PMX_OK);
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(100));
  EXPECT_TRUE(!has(out, "ProgressCB: START") && has(out, "dstXsize[480],dstYsize[90]\n")) << out;
}

// Refusals without a file; speed codes as 16.16 engine rates (top bit: reverse);
// an unsupported stream found during play stops it.
TEST_F(Transport, PlayRefusals) {
  for (s32 (*call)() : {pmx_play, pmx_pause, pmx_stop}) EXPECT_EQ(call(), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_NONE);
  EXPECT_EQ(pmx_fast_rewind(PMX_SPEED_2X), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  std::string out;
  EXPECT_EQ(run([] { return pmx_fast_rewind(9); }, &out), PMX_OK);
  EXPECT_TRUE(has(out, "play speed = 0x80010000\n") && has(out, "command PLAY (1) 0x80010000 ")) << out;
  EXPECT_EQ(run([] { return pmx_fast_forward(PMX_SPEED_SIXTEENTH); }, &out), PMX_OK);
  EXPECT_TRUE(has(out, "play speed = 0x00001000\n") && has(out, "command PLAY (1) 0x1000 ")) << out;
  ASSERT_EQ(pmx_debug("sim fault error40"), 0);
  EXPECT_EQ(run(pmx_play, &out), PMX_UNSUPPORTED_FORMAT);
  EXPECT_TRUE(has(out, "media_play status = 0\n") && has(out, "stopping \n")) << out;
  EXPECT_EQ(errors(), std::vector<int>{PMX_UNSUPPORTED_FORMAT});
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
  EXPECT_EQ(pmx_get_state(), 8u);
}

// Seek types as the engine's modes; other types never sent; program streams refused.
TEST_F(Transport, SeekTypesAndTheirEngineModes) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  const std::tuple<u32, u32, const char *, s32, u64> cases[] = {  // the engine's trace, the position afterwards
      {PMX_SEEK_POS, 500, "0x0 500 ", PMX_OK, 500},         {PMX_SEEK_TIME, 700, "0x4 700 ", PMX_OK, 700},
      {PMX_SEEK_PERCENT, 50, "0x2 5000 ", PMX_OK, 1000},    {PMX_SEEK_NEXT_KEY, 0, "0x104 0 ", PMX_OK, 2000},
      {PMX_SEEK_PREV_KEY, 0, "0x105 0 ", PMX_OK, 1000},
      {PMX_SEEK_TIME, 5000, "0x4 5000 ", PMX_INVALID_ARG, 1000},  // beyond the end
      {0, 10, nullptr, PMX_INVALID_ARG, 1000},              {6, 10, nullptr, PMX_INVALID_ARG, 1000}};
  for (const auto &[type, value, command, status, at] : cases) {
    const auto [result, out] = said([t = type, v = value] { return pmx_seek(t, v); });
    const bool sent = command != nullptr;
    EXPECT_TRUE(has(out, "] seek_type = [" + std::to_string(type) + "]\n") &&
                has(out, "command SEEK") == sent && (!sent || has(out, std::string("command SEEK (512) ") + command)) &&
                has(out, "PMX:SEEK failed!! [3]\n") == (sent && status != PMX_OK)) << out;
    EXPECT_EQ(std::make_tuple(result, pmx_get_state() != 12u, engine_clock().second), std::make_tuple(status, true, at))
        << type;
  }
  run(pmx_close);
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  EXPECT_EQ(said([] { return pmx_seek(PMX_SEEK_TIME, 500); }),
            Said(PMX_INVALID_ARG, "MPEG-> NOT SUPPORTED AT THIS TIME !!\n"));
}

// Steps through the resampler's rates within 40..160 percent of the table
// position; a step outside is taken back, even one not made at a table end.
TEST_F(Transport, SpeedChange) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  const std::tuple<u32, u32, u32, u32, u32, const char *, u32> cases[] = {
      // normal and current index, direction; percent, index, text and engine rate afterwards (0: unchanged)
      {5, 7, PMX_PLAYSPEED_FASTER, 160, 8, "Play Speed [160%][48000]\n", 48000},
      {7, 11, PMX_PLAYSPEED_FASTER, 157, 11, "Keeping Play Speed [157%]\n", 0},
      {5, 3, PMX_PLAYSPEED_SLOWER, 40, 2, "Play Speed [40%][12000]\n", 12000},
      {7, 3, PMX_PLAYSPEED_SLOWER, 42, 3, "Keeping Play Speed [42%]\n", 0},
      {7, 8, 3, 114, 8, "Play Speed [114%][48000]\n", 48000},
      {1, 0, PMX_PLAYSPEED_SLOWER, 100, 1, "Keeping Play Speed [100%]\n", 0},
      {13, 13, PMX_PLAYSPEED_FASTER, 100, 13, "Play Speed [100%][192000]\n", 192000},
      {2, 4, 3, 200, 4, "Keeping Play Speed [200%]\n", 0}};
  const auto engine_rate = [] {
    u32 rate = 0;
    MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_SAMPLE_RATE, &rate, sizeof rate);
    return rate;
  };
  for (const auto &[normal, index, direction, percent, index_after, printed, rate] : cases) {
    pmx.normal_speed_index = normal;
    pmx.speed_index = index;
    const u32 before = engine_rate();
    u32 got = 0;
    EXPECT_EQ(said([&, d = direction] { return pmx_change_playspeed(d, &got); }), Said(PMX_OK, printed));
    EXPECT_EQ(std::make_tuple(got, pmx.speed_index, engine_rate()),
              std::make_tuple(percent, index_after, rate != 0 ? rate : before)) << printed;
  }
  pmx.normal_speed_index = 0;
  EXPECT_EQ(said([] { return pmx_change_playspeed(PMX_PLAYSPEED_FASTER, nullptr); }),
            Said(PMX_FAILED, "Please, pmx_get_media_info() first ...\n"));
}

// Time of a file without video is the clock as it is; a failed query reads zero.
TEST_F(Transport, TimeOfAFileWithoutVideo) {
  u64 current = 9, total = 9;
  EXPECT_EQ(pmx_get_time(nullptr, &total), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_time(&current, &total), PMX_NO_FILE_OPEN);
  const auto time = [&] { return said([&] { return pmx_get_time(&current, &total); }); };
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(time(), Said(PMX_OK, "Mai Get Video info failed: 9\n"));  // the subtype, asked once per open
  EXPECT_EQ(std::make_tuple(current, total, eMSubtype), std::make_tuple(0u, 2000u, 0u));
  EXPECT_EQ(run([] { return pmx_seek(PMX_SEEK_TIME, 1234); }), PMX_OK);
  EXPECT_EQ(time(), Said(PMX_OK, ""));
  EXPECT_EQ(current, 1234u);
  ASSERT_EQ(pmx_debug("sim fault stream=22"), 0);
  EXPECT_EQ(time(), Said(PMX_BUSY, "Get Time Failed!!\n"));
  EXPECT_EQ(std::make_pair(current, total), std::make_pair(u64(0), u64(0)));
}

// WMV subtypes count from the stream's first time stamp; PES subtypes from the
// first reading at or beyond the play time (a low clock is taken as it is).
TEST_F(Transport, TimeBySubtype) {
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  u64 current = 0, total = 0;
  ASSERT_EQ(run([&] { return pmx_get_time(&current, &total); }), PMX_OK);
  const u64 start = engine_clock().first;
  EXPECT_EQ(std::make_tuple(eMSubtype, current), std::make_tuple(MAI_SUB_MPEG_VIDEO_PES2, start));
  ASSERT_GT(start, 0u);
  ASSERT_GT(total, start);
  const auto time_at = [&](u32 subtype, u64 seek_to) {
    eMSubtype = subtype;
    const u32 engine = pmx.engine.load();
    EXPECT_EQ(MAIengine_SendCommand(engine, MAI_CMD_SEEK, MAI_SEEK_TIME, u32(seek_to), 0, 0, MAI_WAIT_FOREVER), 0u);
    EXPECT_EQ(MAIengine_WaitForState(engine, MAI_STATE_READY, 1000), 0u);
    EXPECT_EQ(pmx_get_time(&current, &total), PMX_OK);
    return current;
  };
  for (const auto &[subtype, expected] : {std::pair<u32, u64>{MAI_SUB_WMV, 300}, {MAI_SUB_WMV9_ADVANCED, 300},
                                          {MAI_SUB_WMV - 1, start + 300}, {MAI_SUB_WMV9_ADVANCED + 1, start + 300}})
    EXPECT_EQ(time_at(subtype, 300), expected) << subtype;
  const u64 past_total = total - start + 100;  // a reading of total + 100 ms
  for (const u32 subtype : {MAI_SUB_MPEG1_VIDEO, MAI_SUB_MPEG2_VIDEO, MAI_SUB_MPEG_VIDEO_PES1, MAI_SUB_MPEG_VIDEO_PES2,
                            MAI_SUB_MPEG_AUDIO_PES1, MAI_SUB_MPEG_AUDIO_PES2, MAI_SUB_AC3_PES}) {
    pmx.time_base = 0;
    const std::array<u64, 4> got{time_at(subtype, 300), time_at(subtype, past_total),
                                 time_at(subtype, past_total + 250), pmx.time_base};  // in this order
    EXPECT_EQ(got, (std::array<u64, 4>{start + 300, 0, 250, total + 100})) << subtype;
  }
}

// Engine states as API states, stored; pause and stop wait for the engine.
TEST_F(Transport, StateFollowsTheEngine) {
  EXPECT_EQ(pmx_get_state(), 1u);  // idle
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(pmx_get_state(), 2u);  // connected
  ASSERT_EQ(pmx_debug("sim clock 10"), 0);
  const auto reaches = [](u32 state) {
    for (int ms = 0; ms < 3000 && pmx_get_state() != state; ++ms)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return pmx.state.load() == state;
  };
  const std::tuple<s32 (*)(), u32, bool> steps[] = {
      {pmx_play, 5, false}, {[] { return pmx_fast_forward(PMX_SPEED_2X); }, 6, false}, {pmx_pause, 7, true},
      {pmx_stop, 8, true},  {pmx_play, 5, false}};
  for (const auto &[command, state, waits] : steps) {
    ASSERT_EQ(run(command), PMX_OK);
    EXPECT_TRUE(!waits || pmx_get_state() == state) << state;
    EXPECT_TRUE(reaches(state)) << state;
  }
  EXPECT_TRUE(reaches(11));  // played to the end
  ASSERT_EQ(pmx_release(), PMX_OK);
  pmx.state = PMX_STATE_PLAYING;
  EXPECT_EQ(pmx_get_state(), 0u);
  EXPECT_EQ(pmx.state.load(), 0u);
}

}  // namespace
