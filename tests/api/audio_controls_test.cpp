// Audio controls on the host engine and the virtual board's codec: the
// codec wrappers, the S/PDIF flag, the equaliser, track selection and the
// media information.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "hw/audio_api.h"
#include "sim/board/board.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

class AudioControls : public ApiTest {
 protected:
  void SetUp() override {
    board::reset();
    ApiTest::SetUp();
    run(pmx_set_audio_device_init);
    board::reset();  // the codec as set up, an empty log
  }
  void TearDown() override {
    ApiTest::TearDown();
    board::reset();
  }
};

std::array<u8, MAI_PARAM_EQUALIZER_SIZE> engine_equalizer() {
  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> block{};
  EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_EQUALIZER, block.data(), MAI_PARAM_EQUALIZER_SIZE), 0u);
  return block;
}

std::vector<s8> bands_of(const std::array<u8, MAI_PARAM_EQUALIZER_SIZE> &block) {
  return {static_cast<s8>(block[0]), static_cast<s8>(block[1]), static_cast<s8>(block[2]), static_cast<s8>(block[3]),
          static_cast<s8>(block[4])};
}

TEST_F(AudioControls, VolumeUsesTheLowByte) {
  struct Case {
    u32 argument;
    s32 status;
    u8 volume;  // the codec's volume afterwards
    bool touched;
  };
  for (const Case &c : {Case{41, PMX_INVALID_ARG, 0, false}, {0x128, PMX_OK, 40, true}, {0x100, PMX_OK, 0, true},
                        {0x1000029, PMX_INVALID_ARG, 0, false}, {0xFFFF0005, PMX_OK, 5, true}}) {
    board::reset();
    EXPECT_EQ(run([&] { return pmx_set_volume(c.argument); }), c.status) << std::hex << c.argument;
    if (c.touched) {
      EXPECT_EQ(pmx_get_volume(), c.volume) << std::hex << c.argument;
    }
    EXPECT_EQ(board::log_lines().empty(), !c.touched) << std::hex << c.argument;
  }
}

TEST_F(AudioControls, SpdifFlagFollowsTheOutputSwitch) {
  struct Case {
    s32 output;
    u32 on;
    u8 spdif;
  };
  for (const Case &c : {Case{OUTPUT_SPDIF, 1, 1}, {OUTPUT_SPDIF, 0x100, 0}, {OUTPUT_SPDIF, 0x1FF, 1},
                        {OUTPUT_EARPHONE, 0, 1}, {OUTPUT_SPDIF, 0, 0}, {OUTPUT_SPEAKER, 1, 0}}) {
    EXPECT_EQ(run([&] { return pmx_set_audio_output_ctrl(c.output, c.on); }), PMX_OK);
    EXPECT_EQ(pmx.spdif, c.spdif) << c.output << " " << std::hex << c.on;
    if (c.output == OUTPUT_SPDIF) {
      EXPECT_EQ(pmx_get_audio_output_state(OUTPUT_SPDIF), c.spdif);
    }
  }
  // The flag is kept even when the codec cannot be reached.
  board::set_absent("mixer");
  EXPECT_EQ(run([] { return pmx_set_audio_output_ctrl(OUTPUT_SPDIF, 0); }), PMX_FAILED);
  EXPECT_EQ(pmx.spdif, 0);
}

TEST_F(AudioControls, CodecResultsBecomeStatuses) {
  struct Case {
    const char *what;
    std::function<s32()> call;
    s32 status;
  };
  const Case cases[] = {
      {"input", [] { return pmx_set_audio_input_select(INPUT_MIC); }, PMX_OK},
      {"mic high", [] { return pmx_set_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, PMX_OK},
      {"mic other", [] { return pmx_set_MIC_sensitivity(5); }, PMX_FAILED},
      // Nothing to mute while no output is on.
      {"mute without output", [] { return pmx_set_audio_mute(1); }, PMX_FAILED},
      {"speaker on", [] { return pmx_set_audio_output_ctrl(OUTPUT_SPEAKER, 1); }, PMX_OK},
      {"mute", [] { return pmx_set_audio_mute(0x101); }, PMX_OK},
      {"3D", [] { return pmx_set_audio_3D_ctrl(1, 15, 15, 15); }, PMX_OK},
  };
  for (const Case &c : cases) EXPECT_EQ(run(c.call), c.status) << c.what;
  EXPECT_EQ(board::mixer_register(0x1C), 0x0B0B);
  EXPECT_EQ(pmx_get_audio_input_state(), INPUT_MIC);
  EXPECT_EQ(pmx_get_audio_output_state(OUTPUT_SPEAKER), 1);
}

// Only the low bytes of the 3D arguments reach the codec.
TEST_F(AudioControls, ThreeDimensionalEffect) {
  EXPECT_EQ(run([] { return pmx_set_audio_3D_ctrl(0x201, 0x107, 0x10A, 0x205); }), PMX_OK);
  EXPECT_EQ(board::mixer_register(0x22), 0x0027);
  EXPECT_EQ(board::mixer_register(0x08), 0x1A05);
  EXPECT_EQ(board::mixer_register(0x20) & 0x2000, 0x2000);
  EXPECT_EQ(run([] { return pmx_set_audio_3D_ctrl(0x100, 1, 1, 1); }), PMX_OK);
  EXPECT_EQ(board::mixer_register(0x22), 0x0000);
  EXPECT_EQ(board::mixer_register(0x08), 0x0F0F);
}

TEST_F(AudioControls, EqualiserPresets) {
  // Bytes past the five gains are the engine's and stay as they are.
  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> seeded{};
  for (u32 i = 0; i < seeded.size(); ++i) seeded[i] = static_cast<u8>(i * 7);
  ASSERT_EQ(MAIengine_SetParam(pmx.engine.load(), MAI_PARAM_EQUALIZER, seeded.data(), MAI_PARAM_EQUALIZER_SIZE), 0u);

  const std::pair<u32, std::vector<s8>> presets[] = {
      {0, {0, 0, 0, 0, 0}}, {2, {1, -3, -1, 3, 5}}, {6, {-2, 0, 2, 1, -1}}};
  for (const auto &[preset, p] : presets) {
    s8 bands[5] = {9, 9, 9, 9, 9};  // ignored for presets 0 to 6
    std::string out;
    EXPECT_EQ(run([&] { return pmx_set_EQ(preset, bands); }, &out), PMX_OK);
    char text[128];
    std::snprintf(text, sizeof text, "PMX set EQ\nband1= %d\nband2= %d\nband3= %d\nband4= %d\nband5= %d\n", p[0], p[1],
                  p[2], p[3], p[4]);
    EXPECT_EQ(out, text);
    const auto block = engine_equalizer();
    EXPECT_EQ(bands_of(block), p) << preset;
    EXPECT_TRUE(std::equal(block.begin() + 5, block.end(), seeded.begin() + 5)) << preset;
    EXPECT_EQ(std::vector<s8>(bands, bands + 5), std::vector<s8>(5, 9)) << preset;
    s8 read[5] = {};
    EXPECT_EQ(pmx_get_EQ_band_value(read), PMX_OK);
    EXPECT_EQ(std::vector<s8>(read, read + 5), p) << preset;
  }
}

// The user preset (and 8) clamps the caller's values to +-12 and writes
// them back.
TEST_F(AudioControls, EqualiserUserValues) {
  for (const u32 preset : {7u, 8u}) {
    s8 bands[5] = {20, -20, 0, 5, 13};
    std::string out;
    EXPECT_EQ(run([&] { return pmx_set_EQ(preset, bands); }, &out), PMX_OK);
    const std::vector<s8> clamped = {12, -12, 0, 5, 12};
    EXPECT_EQ(std::vector<s8>(bands, bands + 5), clamped) << preset;
    EXPECT_EQ(bands_of(engine_equalizer()), clamped) << preset;
    EXPECT_EQ(out, "PMX set EQ\nband1= 12\nband2= -12\nband3= 0\nband4= 5\nband5= 12\n");
  }
  s8 extremes[5] = {-128, 127, -12, 12, -13};
  EXPECT_EQ(run([&] { return pmx_set_EQ(7, extremes); }), PMX_OK);
  EXPECT_EQ(std::vector<s8>(extremes, extremes + 5), (std::vector<s8>{-12, 12, -12, 12, -12}));

  s8 bands[5] = {};
  EXPECT_EQ(pmx_set_EQ(9, bands), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_set_EQ(0xFFFFFFFF, bands), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_set_EQ(0, nullptr), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_EQ_band_value(nullptr), PMX_INVALID_ARG);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_EQ(9, bands), PMX_INVALID_ARG);  // the argument first
  EXPECT_EQ(pmx_set_EQ(0, bands), PMX_FAILED);
  EXPECT_EQ(pmx_get_EQ_band_value(bands), PMX_FAILED);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
}

TEST_F(AudioControls, TrackSelection) {
  constexpr u32 WORDS = MAI_PARAM_TRACKS_SIZE / 4;
  struct Step {
    u32 kind, number;
    std::array<u32, 6> words;  // mask, enable, four tracks
  };
  const Step steps[] = {
      {0, 3, {0x1, 1, 3, 0, 0, 0}},  {1, 5, {0x3, 1, 3, 5, 0, 0}},  {2, 6, {0x7, 1, 3, 5, 6, 0}},
      {3, 7, {0xF, 1, 3, 5, 6, 7}},  {0, 0, {0xF, 0, 0, 5, 6, 7}},  {4, 9, {0xF, 0, 0, 5, 6, 7}},
      {2, 0xFFFFFFFF, {0xF, 0, 0, 5, 0xFFFFFFFF, 7}},
  };
  for (const Step &s : steps) {
    EXPECT_EQ(pmx_set_track_selection(s.kind, s.number), PMX_OK);
    std::vector<u32> block(WORDS);
    ASSERT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_TRACKS, block.data(), MAI_PARAM_TRACKS_SIZE), 0u);
    EXPECT_EQ(std::vector<u32>(block.begin(), block.begin() + 6), std::vector<u32>(s.words.begin(), s.words.end()))
        << s.kind << " " << s.number;
  }
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_track_selection(0, 1), PMX_OK);  // whatever happened
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
}

TEST_F(AudioControls, MediaInfoOfWavs) {
  PmxMediaInfo info{};
  EXPECT_EQ(pmx_get_media_info(&info), PMX_NO_FILE_OPEN);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(pmx_get_media_info(nullptr), PMX_INVALID_ARG);
  std::memset(&info, 0xAB, sizeof info);
  std::string out;
  EXPECT_EQ(run([&] { return pmx_get_media_info(&info); }, &out), PMX_OK);
  EXPECT_EQ(out, "current_src_order[7]\n");
  EXPECT_EQ(std::make_tuple(info.audio_sample_rate, u32(info.audio_channels), info.audio_bitrate, info.video_width,
                            info.video_height, info.video_par_h, info.video_par_v, int(info.tag[0]),
                            int(info.reserved1[0]), pmx.normal_speed_index, pmx.speed_index),
            std::make_tuple(44100u, 2u, 1411200u, 0u, 0u, 0u, 0u, 0, 0, 7u, 7u));
  // 8000 Hz is the first rate of the table: index 0 counts as unknown.
  run(pmx_close);
  ASSERT_EQ(open(fixtures::media("tone_8k_mono.wav")), PMX_OK);
  EXPECT_EQ(run([&] { return pmx_get_media_info(&info); }, &out), PMX_OK);
  EXPECT_EQ(out, "current_src_order[0]\nNOT SUPPORT AUDIO TRICK MODE !!\n");
  EXPECT_EQ(info.audio_channels, 1);
  u32 percent = 0;
  EXPECT_EQ(run([&] { return pmx_change_playspeed(PMX_PLAYSPEED_FASTER, &percent); }), PMX_FAILED);
}

TEST_F(AudioControls, MediaInfoOfAVideo) {
  struct Case {
    float aspect;
    u32 rate;
    u32 par_h, par_v;
    const char *printed;
  };
  // The last rate is one the resampler does not play: the speed index is left as it was.
  for (const Case &c : {Case{4.0f / 3, 48000, 4, 3, "current_src_order[8]\n"},
                        {16.0f / 9, 22050, 16, 9, "current_src_order[4]\n"},
                        {1.85f, 32000, 37, 20, "current_src_order[6]\n"},
                        {0.0f, 44100, 0, 0, "current_src_order[7]\n"}, {4.0f / 3, 44000, 4, 3, ""}}) {
    doubles::riff = {1, [&](MediaInfo *r) {
                       r->play_time = 2000;
                       r->video_codec = fourcc("XVID");
                       r->video_width = 720;
                       r->video_height = 576;
                       r->aspect_ratio = c.aspect;
                       r->frame_rate = 25;
                       r->video_bitrate = 800000;
                       r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
                       r->audio[0].audio_bitrate = 128000;
                       r->audio[0].audio_channels = 2;
                       r->audio[0].audio_sample_rate = c.rate;
                       r->audio_count = 1;
                     }};
    ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
    PmxMediaInfo info{};
    std::string out;
    EXPECT_EQ(run([&] { return pmx_get_media_info(&info); }, &out), PMX_OK);
    EXPECT_EQ(out, c.printed) << c.aspect;
    EXPECT_FLOAT_EQ(info.video_aspect, c.aspect);
    EXPECT_EQ(std::make_tuple(info.video_width, info.video_height, info.video_par_h, info.video_par_v,
                              info.video_frame_rate, info.video_bitrate, info.audio_bitrate, info.audio_sample_rate),
              std::make_tuple(720u, 576u, c.par_h, c.par_v, 25.0f, 800000.0f, 128000u, c.rate))
        << c.aspect;
    run(pmx_close);
  }
  // With the index at 0 an unplayable rate is reported as such.
  pmx.speed_index = 0;
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  PmxMediaInfo info{};
  std::string out;
  EXPECT_EQ(run([&] { return pmx_get_media_info(&info); }, &out), PMX_OK);
  EXPECT_EQ(out, "NOT SUPPORT AUDIO TRICK MODE !!\n");
}

}  // namespace
