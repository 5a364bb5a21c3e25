// The prescan driver's printed report, the accessors and the engine's
// stream information hint.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/prescan.h"
#include "tests/support/fixtures.h"

namespace {

struct Result {
  u32 status;
  std::string solution, out;
};

Result prescan(const std::string &path) {
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  const u32 status = PMX_Prescan(path.c_str(), solution.data());
  return {status, solution.data(), testing::internal::GetCapturedStdout()};
}

std::string file_size(const std::string &path) { return std::to_string(std::filesystem::file_size(path)); }

// A WAV file's report, the accessors giving what was printed, and the hint
// (written byte by byte at any alignment, its FLAC bytes only for FLAC).
TEST(Prescan, WavReportAndAccessors) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const Result r = prescan(wav);
  EXPECT_EQ(r.status, 0u);
  EXPECT_EQ(r.solution, "pcm");
  EXPECT_EQ(r.out, "Solution type=7\n-General ------------------------\n\tFile size: " + file_size(wav) +
                       "\n\tPlay time: 2000\n-Audio[1/1] ---------------------\n\tCodec: 0x1 (Pcm)\n\tBitrate: "
                       "1411200\n\tChannel: 2\n\tSample_rate: 44100\n-Divx Subtitle (DXSB) -----------\n\tTotal "
                       "Subtitle Num: 0\n-Multi Audio --------------------\n\tSupport: DISABLE \n"
                       "---------------------------------\n");
  u32 bitrate = 0, rate = 0, seekable = 0;
  u16 channels = 0;
  std::array<u8, TAG_INFO_SIZE> tag;
  tag.fill(0xEE);
  pmx_info_getaudioinfo(&bitrate, &channels, &rate, tag.data());
  pmx_info_video_seekable(&seekable);
  EXPECT_EQ((std::vector<u32>{pmx_info_get_totaltime(), bitrate, channels, rate, seekable}),
            (std::vector<u32>{2000, 1411200, 2, 44100, 1}));
  EXPECT_EQ(tag, (std::array<u8, TAG_INFO_SIZE>{}));  // the whole block is copied
  std::array<u8, 1 + 160> block;
  block.fill(0x5A);
  u8 *hint = block.data() + 1;
  pmx_info_get_maistreaminfo(hint);
  pmx_info_get_maistreaminfo(nullptr);
  EXPECT_EQ((std::vector<u64>{LittleEndian2int32u(hint), LittleEndian2int64u(hint + 4), LittleEndian2int32u(hint + 12),
                              LittleEndian2int32u(hint + 16), LittleEndian2int64u(hint + 20),
                              LittleEndian2int64u(hint + 28), LittleEndian2int32u(hint + 36), hint[40]}),
            (std::vector<u64>{160, 0x5A5A5A5A5A5A5A5A, 0x00010000, 0x5A5A5A5A, std::filesystem::file_size(wav), 2000,
                              1411200, 0x5A}));
}

// A missing file gives the open status and no report; an extension no
// scanner takes is reported unknown, nothing left of the record before.
TEST(Prescan, MissingAndUnknownFiles) {
  Result r = prescan("/nonexistent/clip.wav");
  EXPECT_EQ(r.status, MAIOS_FILE_OPEN_FAILED);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.solution, "");
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  prescan(wav);
  const std::string other = std::filesystem::path(wav).parent_path() / "tone.xyz";
  std::filesystem::copy_file(wav, other, std::filesystem::copy_options::overwrite_existing);
  r = prescan(other);
  EXPECT_EQ(r.status, 0u);
  EXPECT_EQ(r.solution, "unknown");
  EXPECT_EQ(r.out, "PMX_Prescan failed Solution type=0\n-General ------------------------\n\tFile size: " +
                       file_size(wav) + "\n\tPlay time: 0\n");
  EXPECT_EQ(pmx_info_get_totaltime(), 0u);
}

// The video block, FLAC's sample width, the multi-audio flag, at most eight
// audio blocks; the video accessors (a bit rate of 2^31 stays positive).
TEST(Prescan, VideoAndSeveralTracks) {
  MediaInfo r{};
  r.file_size = 1234;
  r.play_time = 5000;
  r.video_codec = fourcc("XVID");
  std::strcpy(r.video_codec_name, "Xvid");
  r.video_bitrate = 777;
  r.video_width = 320;
  r.video_height = 240;
  r.aspect_ratio = 4.0f / 3.0f;
  r.frame_rate = 25.0f;
  r.subtitle_count = 3;
  r.audio_count = 2;
  r.multi_audio = 1;
  r.bits_per_sample = 16;
  r.audio[0] = {AUDIO_CODEC_FLAC, "Flac", 100, 2, 44100};
  r.audio[1] = {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 128000, 1, 48000};
  testing::internal::CaptureStdout();
  Info_Display(&r);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "-General ------------------------\n\tFile size: 1234\n\tPlay time: 5000\n"
            "-Video --------------------------\n\tCodec: 0x44495658 (Xvid)\n\tBitrate: 777\n\tWidth: 320\n"
            "\tHeight: 240\n\tAspect_ratio: 1.33\n\tFrame_rate: 25.00\n"
            "-Audio[1/2] ---------------------\n\tCodec: 0x664c6143 (Flac)\n\tBitrate: 100\n\tChannel: 2\n"
            "\tSample_rate: 44100\n\tBitperSample: 16 bit\n"
            "-Audio[2/2] ---------------------\n\tCodec: 0x55 (Mpeg1/2 L3)\n\tBitrate: 128000\n\tChannel: 1\n"
            "\tSample_rate: 48000\n-Divx Subtitle (DXSB) -----------\n\tTotal Subtitle Num: 3\n"
            "-Multi Audio --------------------\n\tSupport: ENABLE \n---------------------------------\n");
  r.audio_count = 9;
  testing::internal::CaptureStdout();
  Info_Display(&r);
  const std::string nine = testing::internal::GetCapturedStdout();
  EXPECT_NE(nine.find("-Audio[8/9]"), std::string::npos);
  EXPECT_EQ(nine.find("-Audio[9/9]"), std::string::npos);
  r.video_bitrate = 0x80000000;
  *prescan_record() = r;
  u32 width = 0, height = 0, multi = 0, count = 0, subtitles = 0;
  float aspect = 0, rate = 0, bitrate = 0;
  pmx_info_getvideoinfo(&width, &height, &aspect, &rate, &bitrate);
  pmx_info_get_2audioinfo(&multi, &count);
  pmx_info_get_divxsubinfo(&subtitles);
  EXPECT_EQ((std::vector<u32>{width, height, multi, count, subtitles}), (std::vector<u32>{320, 240, 1, 9, 3}));
  EXPECT_EQ((std::vector<float>{aspect, rate, bitrate}), (std::vector<float>{4.0f / 3.0f, 25.0f, 2147483648.0f}));
}

}  // namespace
