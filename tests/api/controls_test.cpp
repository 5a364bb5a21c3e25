// Display and audio controls on the host engine and the virtual board.
#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "hw/audio_api.h"
#include "hw/lcd_tv_switch.h"
#include "sim/board/board.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;
using Lines = std::vector<std::string>;

// The codec set up as at start-up, the board log empty.
class DisplayAndAudio : public ApiTest {
 protected:
  void SetUp() override {
    board::reset();
    ApiTest::SetUp();
    run(pmx_set_audio_device_init);
    board::reset();
  }
  void TearDown() override {
    ApiTest::TearDown();
    board::reset();
  }
};

// x, y, width, height and the flags of the engine's display block.
std::array<u32, 5> window(u32 flags) {
  std::array<u32, PMX_DISPLAY_WORDS> b{};
  MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_DISPLAY, b.data(), MAI_PARAM_DISPLAY_SIZE);
  return {b[DISPLAY_X], b[DISPLAY_Y], b[DISPLAY_WIDTH], b[DISPLAY_HEIGHT], b[DISPLAY_FLAGS] & flags};
}
constexpr u32 FIT = DISPLAY_DESTRECT | DISPLAY_CENTER, PLACED = DISPLAY_DESTRECT | DISPLAY_POSITION;

// The fit by the engine's pixel aspect parts (4:1 for xvid_mp3.avi, 4:11 for
// ntsc_wide.avi), centred, dropping a position; no file 11, no video 9, no engine 1.
TEST_F(DisplayAndAudio, AutomaticFit) {
  const std::tuple<const char *, u32, u32, u32, u32, u32> cases[] = {  // file, TV, size, fitted size
      {"xvid_mp3.avi", 0, 480, 272, 480, 68},     // not wider than the LCD: h = 272 / 4
      {"xvid_mp3.avi", 0, 640, 480, 480, 90},     // wider: w = 4 x 640
      {"xvid_mp3.avi", 1, 720, 576, 640, 128},    // wider than the TV
      {"xvid_mp3.avi", 0, 0, 0, 0, 272},          // no size known
      {"ntsc_wide.avi", 0, 352, 240, 145, 272},   // h = 11 x 240 / 4
      {"ntsc_wide.avi", 0, 2000, 240, 480, 158}}; // w = 4 x 2000 / 11
  for (const auto &[file, tv, w, h, fit_w, fit_h] : cases) {
    script_avi(w, h);
    ASSERT_EQ(open(fixtures::media(file)), PMX_OK);
    pmx.tv_out = tv;
    run([] { return pmx_set_video_pos(33, 44); });
    EXPECT_EQ(said(media_setvideo_auto_display),
              Said(0, std::string(tv ? "max xsize =640,max ysize =480 \n" : "max xsize =480,max ysize =272 \n") +
                          "dstXsize[" + std::to_string(fit_w) + "],dstYsize[" + std::to_string(fit_h) + "]\n"));
    EXPECT_EQ(window(FIT), (std::array<u32, 5>{0, 0, fit_w, fit_h, FIT})) << file << " " << w << "x" << h;
    run(pmx_close);
  }
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_NOTCONNECTED);
  EXPECT_EQ(pmx_set_video_autosize(), PMX_NO_FILE_OPEN);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(said(pmx_set_video_autosize),
            Said(PMX_UNKNOWN, "max xsize =480,max ysize =272 \nMai Get Video info failed: 9\n"));
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_FAIL);
}

// A side outside the TV's 640x480 (on the LCD too) is kept with a warning.
TEST_F(DisplayAndAudio, PositionAndSize) {
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NO_FILE_OPEN);
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  ASSERT_EQ(run(media_setvideo_auto_display), 0u);
  const std::string wide = " media_set_videoscale() warning MAX_WIDTH=[640] width:[";
  const std::string high = " media_set_videoscale() warning _MAX_HEIGHT=[480] height:[";
  EXPECT_EQ(said([] { return pmx_set_video_size(640, 480); }), Said(PMX_OK, ""));
  EXPECT_EQ(said([] { return pmx_set_video_size(0, 481); }), Said(PMX_OK, wide + "0]\n" + high + "481]\n"));
  EXPECT_EQ(said([] { return pmx_set_video_size(641, 0); }), Said(PMX_OK, wide + "641]\n" + high + "0]\n"));
  EXPECT_EQ(said([] { return pmx_set_video_pos(5000, 0); }), Said(PMX_OK, "video pos : xsize =640,ysize = 480\n"));
  EXPECT_EQ(window(FIT | PLACED), (std::array<u32, 5>{5000, 0, 640, 480, PLACED}));
  run(pmx_close);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_video_pos(1, 2), PMX_NOT_INITIALIZED);
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NOT_INITIALIZED);
}

// Coefficients 0, 3, 6 of the boot conversion move 4 per step from 50, capped at 100.
TEST_F(DisplayAndAudio, ColourGoesToTheMediaAccelerationEngine) {
  EXPECT_EQ(said([] { return pmx_set_video_color(101, 0, 0xFFFFFFFF); }), Said(PMX_OK, ""));
  EXPECT_EQ(board::log_lines(),
            (Lines{"mae open", "mae csc 1336 0 1634 904 4497 4928 1480 2065 0 61969 2169 61107", "mae close"}));
  board::set_absent("mae");
  EXPECT_EQ(said([] { return pmx_set_video_color(50, 50, 50); }),
            Said(PMX_OPEN_FAILED, "pmx_set_video_color: Failed to open mae_driver: -1\n"));
  board::set_absent("");
  board::set_failing("mae");
  EXPECT_EQ(said([] { return pmx_set_video_color(50, 50, 50); }),
            Said(PMX_FAILED, "pmx_set_video_color: Failed to send AU1XXXMAE_CSC: -1\n"));
  EXPECT_EQ(board::mae_conversions().size(), 1u);
}

// Direction 4 is component, 6 the LCD, refusals before the driver opens; a
// refused TV position leaves the driver open.
TEST_F(DisplayAndAudio, OutputSwitchAndTvPosition) {
  const std::string opened = "i2cdrv Driver open Succes!! device number : ";
  for (const auto &[direction, output, tv_out, request] :
       {std::tuple(4u, board::VideoOutput::component, 1u, "i2cdrv ioctl 0x2000740d"),
        std::tuple(6u, board::VideoOutput::lcd, 0u, "i2cdrv ioctl 0x2000740b")}) {
    board::reset();
    pmx.running = pmx.display_set = 1;
    const auto [result, out] = said([d = direction] { return pmx_set_video_direction(d); });
    EXPECT_TRUE(result == PMX_OK && out.starts_with(opened)) << out;
    EXPECT_EQ(std::make_tuple(board::video_output(), pmx.tv_out, pmx.running.load(), pmx.display_set),
              std::make_tuple(output, tv_out, 0, 0)) << direction;
    EXPECT_EQ(board::log_lines(), (Lines{"i2cdrv open", request, "i2cdrv close"})) << direction;
  }
  board::reset();
  for (const u32 direction : {0u, 7u}) EXPECT_EQ(pmx_set_video_direction(direction), PMX_INVALID_ARG);
  for (const u32 state : {PMX_STATE_PLAYING, PMX_STATE_PAUSED}) {
    pmx.state = state;
    EXPECT_EQ(pmx_set_video_direction(2), PMX_WRONG_STATE);
  }
  EXPECT_EQ(pmx_set_tvout_position(100, 20), PMX_WRONG_STATE);  // on the LCD
  EXPECT_TRUE(board::log_lines().empty());
  pmx.state = PMX_STATE_STOPPED;
  pmx.display_set = 1;
  board::set_absent("i2cdrv");
  EXPECT_EQ(said([] { return pmx_set_video_direction(4); }),
            Said(PMX_FAILED, "ERROR: irdrv kernel module could not be opened\nTV Out Device Driver Open fail"));
  EXPECT_EQ(std::make_tuple(board::video_output(), pmx.tv_out, pmx.display_set),
            std::make_tuple(board::VideoOutput::lcd, 0u, 1));
  board::reset();
  pmx.tv_out = 1;
  EXPECT_EQ(run([] { return pmx_set_tvout_position(100, 20); }), PMX_OK);
  EXPECT_EQ(run([] { return pmx_set_tvout_position(87, 0); }), PMX_FAILED);
  EXPECT_EQ(board::log_lines(), (Lines{"i2cdrv open", "i2cdrv ioctl 0x80147410 x=0x64 y=0x14", "i2cdrv close",
                                       "i2cdrv open"}));
  i2cdrv_close();
}

// Only low bytes reach the codec; the S/PDIF flag follows the switch even
// without a codec; the wrappers' -1 becomes 1.
TEST_F(DisplayAndAudio, CodecArguments) {
  EXPECT_EQ(run([] { return pmx_set_volume(0x1000029); }), PMX_INVALID_ARG);
  EXPECT_TRUE(board::log_lines().empty());
  EXPECT_EQ(run([] { return pmx_set_volume(0x128); }), PMX_OK);
  EXPECT_EQ(pmx_get_volume(), 40);
  for (const auto &[output, on, spdif] : {std::tuple(OUTPUT_SPDIF, 1u, 1), std::tuple(OUTPUT_SPDIF, 0x100u, 0),
                                          std::tuple(OUTPUT_SPDIF, 0x1FFu, 1), std::tuple(OUTPUT_SPEAKER, 0u, 1)}) {
    EXPECT_EQ(run([o = output, v = on] { return pmx_set_audio_output_ctrl(o, v); }), PMX_OK);
    EXPECT_EQ(std::make_tuple(pmx.spdif, pmx_get_audio_output_state(OUTPUT_SPDIF)), std::make_tuple(spdif, spdif))
        << output << " " << std::hex << on;
  }
  EXPECT_EQ(run([] { return pmx_set_audio_3D_ctrl(0x201, 0x107, 0x10A, 0x205); }), PMX_OK);
  EXPECT_EQ(std::make_tuple(board::mixer_register(0x22), board::mixer_register(0x08)), std::make_tuple(0x27, 0x1A05));
  EXPECT_EQ(run([] { return pmx_set_MIC_sensitivity(5); }), PMX_FAILED);
  board::set_absent("mixer");
  EXPECT_EQ(run([] { return pmx_set_audio_output_ctrl(OUTPUT_SPDIF, 0); }), PMX_FAILED);
  EXPECT_EQ(pmx.spdif, 0);
}

// Preset 8 clamps the caller's gains to +-12 like 7 and writes them back;
// the engine's bytes past the five gains are kept.
TEST_F(DisplayAndAudio, Equaliser) {
  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> seeded{}, block{};
  for (u32 i = 0; i < seeded.size(); ++i) seeded[i] = static_cast<u8>(i * 7);
  ASSERT_EQ(MAIengine_SetParam(pmx.engine.load(), MAI_PARAM_EQUALIZER, seeded.data(), seeded.size()), 0u);
  std::array<s8, 5> bands{-128, 127, -12, 12, -13};
  EXPECT_EQ(run([&] { return pmx_set_EQ(8, bands.data()); }), PMX_OK);
  EXPECT_EQ(bands, (std::array<s8, 5>{-12, 12, -12, 12, -12}));
  MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_EQUALIZER, block.data(), block.size());
  EXPECT_EQ(std::vector<u8>(block.begin() + 5, block.end()), std::vector<u8>(seeded.begin() + 5, seeded.end()));
  EXPECT_EQ(pmx_set_EQ(9, bands.data()), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_set_EQ(0, nullptr), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_EQ_band_value(nullptr), PMX_INVALID_ARG);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_EQ(9, bands.data()), PMX_INVALID_ARG);  // the argument first
  EXPECT_EQ(pmx_set_EQ(0, bands.data()), PMX_FAILED);
  EXPECT_EQ(pmx_get_EQ_band_value(bands.data()), PMX_FAILED);
}

// The mask of fields set, the enable flag (kind 0), four track fields; always 0.
TEST_F(DisplayAndAudio, TrackSelection) {
  const std::tuple<u32, u32, std::array<u32, 6>> steps[] = {
      {0, 3, {0x1, 1, 3, 0, 0, 0}}, {3, 7, {0x9, 1, 3, 0, 0, 7}}, {0, 0, {0x9, 0, 0, 0, 0, 7}},
      {4, 9, {0x9, 0, 0, 0, 0, 7}}, {1, 5, {0xB, 0, 0, 5, 0, 7}}, {2, 0xFFFFFFFF, {0xF, 0, 0, 5, 0xFFFFFFFF, 7}}};
  for (const auto &[kind, number, words] : steps) {
    EXPECT_EQ(pmx_set_track_selection(kind, number), PMX_OK);
    std::array<u32, MAI_PARAM_TRACKS_SIZE / 4> block{};
    MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_TRACKS, block.data(), MAI_PARAM_TRACKS_SIZE);
    EXPECT_TRUE(std::equal(words.begin(), words.end(), block.begin())) << kind << " " << number;
  }
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_track_selection(0, 1), PMX_OK);
}

// The prescan's information with the aspect in whole parts; the rate's index
// among the resampler's rates (0 means none, an unlisted rate keeps the old).
TEST_F(DisplayAndAudio, MediaInfo) {
  PmxMediaInfo info{};
  EXPECT_EQ(pmx_get_media_info(&info), PMX_NO_FILE_OPEN);
  const std::tuple<const char *, float, u32, u32, u32, u32, const char *> cases[] = {
      {"tone_8k_mono.wav", 0, 8000, 1, 0, 0, "current_src_order[0]\nNOT SUPPORT AUDIO TRICK MODE !!\n"},
      {"xvid_mp3.avi", 4.0f / 3, 44000, 2, 4, 3, "NOT SUPPORT AUDIO TRICK MODE !!\n"},
      {"xvid_mp3.avi", 16.0f / 9, 22050, 2, 16, 9, "current_src_order[4]\n"},
      {"xvid_mp3.avi", 1.85f, 44000, 2, 37, 20, ""}};
  for (const auto &[file, aspect, rate, channels, par_h, par_v, printed] : cases) {
    const bool avi = std::string(file).ends_with(".avi");
    if (avi) script_avi(720, 576, aspect, rate);
    ASSERT_EQ(open(fixtures::media(file)), PMX_OK);
    std::memset(&info, 0xAB, sizeof info);
    EXPECT_EQ(said([&] { return pmx_get_media_info(&info); }), Said(PMX_OK, printed));
    EXPECT_EQ(std::make_tuple(info.audio_sample_rate, u32(info.audio_channels), info.video_par_h, info.video_par_v,
                              info.video_width, info.video_aspect, info.tag[0], info.reserved1[0]),
              std::make_tuple(rate, channels, par_h, par_v, avi ? 720u : 0u, aspect, 0, 0))
        << file << " " << aspect;
    EXPECT_EQ(pmx_get_media_info(nullptr), PMX_INVALID_ARG);
    run(pmx_close);
  }
  EXPECT_EQ(pmx.normal_speed_index, 4u);
}

}  // namespace
