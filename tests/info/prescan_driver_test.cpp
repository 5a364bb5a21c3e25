// The prescan driver's choices, with scripted scanners in place of the
// container scanners: the back-up order, the MPEG audio fall-back and its
// play-time arithmetic, and the ID3 reading.
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "info/media_info.h"
#include "info/prescan.h"
#include "tests/doubles/scanner_doubles.h"

namespace {

class PrescanDriver : public testing::Test {
 protected:
  void SetUp() override { doubles::reset(); }

  // Any bytes will do: the scripted scanners do not read them.
  std::string file(const std::string &name) {
    const std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << std::string(4096, '\x11');
    return path;
  }

  std::string run(const std::string &path, std::string *out = nullptr) {
    std::array<char, 16> solution{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(PMX_Prescan(path.c_str(), solution.data()), 0u);
    const std::string text = testing::internal::GetCapturedStdout();
    if (out != nullptr) *out = text;
    return solution.data();
  }
};

void xvid_mp3(MediaInfo *r) {
  r->play_time = 1000;
  r->video_codec = 0x44495658;  // "XVID"
  r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
  r->audio_count = 1;
}

void wmv2(MediaInfo *r) {
  r->play_time = 1000;
  r->video_codec = 0x32564D57;  // "WMV2"
  r->audio[0].audio_codec = WAVE_FORMAT_WMA2;
  r->audio_count = 1;
}

TEST_F(PrescanDriver, AviNameTriesRiffThenAsf) {
  doubles::riff = {0, nullptr};
  doubles::asf = {1, wmv2};
  std::string out;
  EXPECT_EQ(run(file("clip.AVI"), &out), "wmt8");
  EXPECT_EQ(doubles::calls, (std::vector<std::string>{"riff", "asf"}));
  EXPECT_NE(out.find("Solution type=3"), std::string::npos);
}

TEST_F(PrescanDriver, WmvHoldingAnAviIsFoundByTheBackUp) {
  doubles::riff = {1, xvid_mp3};
  std::string out;
  EXPECT_EQ(run(file("clip.wmv"), &out), "avimpv4_mp3");
  EXPECT_EQ(doubles::calls, (std::vector<std::string>{"asf", "riff"}));
  EXPECT_NE(out.find("Solution type=1"), std::string::npos);
}

TEST_F(PrescanDriver, RecognisedAviDoesNotAskAsf) {
  doubles::riff = {1, xvid_mp3};
  EXPECT_EQ(run(file("clip.divx")), "avimpv4_mp3");
  EXPECT_EQ(doubles::calls, (std::vector<std::string>{"riff"}));
}

TEST_F(PrescanDriver, AviNameWithMp3ExtensionIsOnlyMp3) {
  std::string out;
  EXPECT_EQ(run(file("clip.Avi.mp3"), &out), "unknown");
  EXPECT_EQ(doubles::calls, (std::vector<std::string>{"mpa", "header_position"}));
  EXPECT_NE(out.find("Mpa_prescan2 trying ... PMX_Prescan failed Solution type=0\n"), std::string::npos) << out;
  EXPECT_EQ(doubles::id3_calls, 0);
}

// B = 128000, L = 1000000: 62 whole seconds, and the remainder 8000 bytes
// counted as 8000000 / 128000 = 62 ms (an eighth of the true fraction).
TEST_F(PrescanDriver, FallbackPlayTimeKeepsTheEighthRemainder) {
  doubles::header_position = {1, [](MediaInfo *r) {
                                r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
                                r->audio[0].audio_bitrate = 128000;
                                r->bits_per_sample = 1000000;
                              }};
  std::string out;
  EXPECT_EQ(run(file("song.mp3"), &out), "mp3");
  EXPECT_EQ(pmx_info_get_totaltime(), 62062u);
  u32 multi = 9, count = 0;
  pmx_info_get_2audioinfo(&multi, &count);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(doubles::id3_calls, 1);
  EXPECT_NE(out.find("Mpa_prescan2 trying ... ID3 Tag found ...Solution type=4\n"), std::string::npos) << out;
}

// A bit rate below 8 would divide by zero: the play time stays 0.
TEST_F(PrescanDriver, FallbackWithTinyBitRateDoesNotTrap) {
  doubles::header_position = {1, [](MediaInfo *r) {
                                r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
                                r->audio[0].audio_bitrate = 7;
                                r->bits_per_sample = 1000;
                              }};
  EXPECT_EQ(run(file("tiny.mp3")), "unknown");
  EXPECT_EQ(pmx_info_get_totaltime(), 0u);
}

TEST_F(PrescanDriver, HeadScanOfMp3SkipsTheFallback) {
  doubles::mpa = {1, [](MediaInfo *r) {
                    r->play_time = 3000;
                    r->audio[0].audio_codec = WAVE_FORMAT_MPEG_L2;
                    r->audio_count = 1;
                  }};
  EXPECT_EQ(run(file("layer2.mp3")), "mpa");
  EXPECT_EQ(doubles::calls, (std::vector<std::string>{"mpa", "id3"}));
}

}  // namespace
