// The prescan driver on real files, through the engine's file layer.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>

#include "info/byte_order.h"
#include "info/prescan.h"
#include "platform/mai_os.h"
#include "tests/support/fixtures.h"

namespace {

struct Result {
  u32 status;
  std::string solution;
  std::string out;
};

Result prescan(const std::string &path) {
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  const u32 status = PMX_Prescan(path.c_str(), solution.data());
  return {status, solution.data(), testing::internal::GetCapturedStdout()};
}

std::string copy_as(const std::string &from, const std::string &name) {
  const std::string to = std::filesystem::path(from).parent_path() / name;
  std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
  return to;
}

TEST(Prescan, WavFromSoxOpensAsPcm) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  for (const std::string &path : {wav, copy_as(wav, "TONE_UPPER.WAV")}) {
    const Result r = prescan(path);
    EXPECT_EQ(r.status, 0u);
    EXPECT_EQ(r.solution, "pcm");
    EXPECT_NE(r.out.find("Solution type=7\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("-Audio[1/1] ---------------------\n\tCodec: 0x1 (Pcm)\n"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\tSample_rate: 44100\n"), std::string::npos);
    EXPECT_NE(r.out.find("\tSupport: DISABLE \n---------------------------------\n"), std::string::npos);
    EXPECT_EQ(r.out.find("-Video"), std::string::npos);

    // Two seconds of 16-bit stereo at 44.1 kHz.
    EXPECT_EQ(pmx_info_get_totaltime(), 2000u);
    u32 bitrate = 0, rate = 0;
    u16 channels = 0;
    std::array<u8, 512> tag{};
    tag.fill(0xEE);
    pmx_info_getaudioinfo(&bitrate, &channels, &rate, tag.data());
    EXPECT_EQ(bitrate, 1411200u);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(rate, 44100u);
    EXPECT_EQ(tag[0], 0);
    EXPECT_EQ(tag[511], 0);
    u32 seekable = 0;
    pmx_info_video_seekable(&seekable);
    EXPECT_EQ(seekable, 1u);
  }
}

TEST(Prescan, StreamInfoHintLayout) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  prescan(wav);
  // Odd start: the hint is written byte by byte at any alignment.
  std::array<u8, 1 + 160> block{};
  block.fill(0x5A);
  u8 *hint = block.data() + 1;
  pmx_info_get_maistreaminfo(hint);
  pmx_info_get_maistreaminfo(nullptr);
  EXPECT_EQ(LittleEndian2int32u(hint), 160u);
  EXPECT_EQ(LittleEndian2int32u(hint + 4), 0x5A5A5A5Au);  // not FLAC: untouched
  EXPECT_EQ(LittleEndian2int32u(hint + 8), 0x5A5A5A5Au);
  EXPECT_EQ(LittleEndian2int32u(hint + 12), 0x00010000u);
  EXPECT_EQ(LittleEndian2int32u(hint + 16), 0x5A5A5A5Au);
  EXPECT_EQ(LittleEndian2int64u(hint + 20), std::filesystem::file_size(wav));
  EXPECT_EQ(LittleEndian2int64u(hint + 28), 2000u);
  EXPECT_EQ(LittleEndian2int32u(hint + 36), 1411200u);
  EXPECT_EQ(hint[40], 0x5A);
}

TEST(Prescan, MissingFileReturnsTheOpenStatusSilently) {
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  const u32 status = PMX_Prescan("/nonexistent/clip.wav", solution.data());
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(status, MAIOS_FILE_OPEN_FAILED);
  EXPECT_STREQ(solution.data(), "");
  EXPECT_EQ(pmx_info_get_totaltime(), 0u);
}

TEST(Prescan, UnknownExtensionIsNamedUnknown) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  prescan(wav);  // leaves a full record behind, which must be replaced
  const Result r = prescan(copy_as(wav, "tone.xyz"));
  EXPECT_EQ(r.status, 0u);
  EXPECT_EQ(r.solution, "unknown");
  EXPECT_NE(r.out.find("PMX_Prescan failed Solution type=0\n"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\tFile size: " + std::to_string(std::filesystem::file_size(wav))), std::string::npos);
  EXPECT_NE(r.out.find("\tPlay time: 0\n"), std::string::npos);
  EXPECT_EQ(r.out.find("-Audio"), std::string::npos);
  EXPECT_EQ(pmx_info_get_totaltime(), 0u);
}

}  // namespace
