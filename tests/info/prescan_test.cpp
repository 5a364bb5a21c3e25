// The prescan driver's printed report, the accessors and the engine's
// stream information hint; extension tests, solution and codec names.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "info/byte_order.h"
#include "info/extensions.h"
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
  MediaInfo r{.file_size = 1234, .play_time = 5000, .video_codec = fourcc("XVID"), .video_codec_name = "Xvid",
              .video_bitrate = 777, .video_vbr = 0, .video_width = 320, .video_height = 240,
              .aspect_ratio = 4.0f / 3.0f, .frame_rate = 25.0f, .video_bits_per_pixel = 0, .video_seekable = 0,
              .subtitle_count = 3,
              .audio = {{AUDIO_CODEC_FLAC, "Flac", 100, 2, 44100},
                        {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 128000, 1, 48000}},
              .audio_count = 2, .multi_audio = 1, .bits_per_sample = 16, .tag_info = {}, .solution_name = {}};
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

using Detector = u32 (*)(const char *);

// Each test compares the end of the name with its suffix: letters in
// either case, the dot and digits exactly; a shorter name never matches.
TEST(Extensions, MatchTheEndOfTheName) {
  const std::pair<Detector, const char *> every[] = {
      {is_avi, "a.AVI"}, {is_divx, "a.DivX"}, {is_wmv, "a.wmv"},  {is_wma, "a.WMA"}, {is_asf, "a.asf"},
      {is_mpeg, ".mpeg"}, {is_mpg, "a.MPG"}, {is_vob, "a.vob"},   {is_mp3, "a.Avi.mp3"}, {is_ogg, "a.ogg"},
      {is_ac3, "a.AC3"},  {is_wav, "a.wav"}, {is_flac, "a.FLAC"}, {is_mp4, "a.mp4"}, {is_m1v, "a.m1v"},
      {is_m2v, "a.M2V"},  {is_m4v, "a.m4v"}, {is_dat, "a.dat"},
  };
  for (const auto &[detector, name] : every) EXPECT_EQ(detector(name), 1u) << name;
  const std::pair<Detector, const char *> none[] = {{is_avi, "avi"},   {is_avi, "a.avi "},   {is_avi, "a,avi"},
                                                    {is_mp3, "a.mpS"}, {is_mp3, "a.mp\x13"}, {is_dat, ""}};
  for (const auto &[detector, name] : none) EXPECT_EQ(detector(name), 0u) << name;
}

struct Case {
  const char *what;
  u32 type, play_time, video;
  std::initializer_list<u32> audio;
  const char *solution;
  int multi_audio;  // -1: not decided for this type
};

// Names by path through the naming: without a play time "unknown" (and for
// AVI all tracks of one class); the AVI video edit, then the first track's
// suffix; several AVI tracks of one class (MPEG audio counts as one) can be
// switched; other types by their own rules.
const u32 MP3 = WAVE_FORMAT_MPEGLAYER3, AC3 = WAVE_FORMAT_AC3;
const Case cases[] = {
    {"no play time: classes alike", SOLUTION_AVI, 0, fourcc("XVID"), {AC3, MP3}, "unknown", 1},
    {"type above 8", 9, 1000, fourcc("XVID"), {MP3}, "", -1},
    {"AC-3 then MP3", SOLUTION_AVI, 1000, fourcc("XVID"), {AC3, MP3}, "avimpv4_ac3", 0},
    {"MP3 and layer II", SOLUTION_AVI, 1000, fourcc("DX50"), {MP3, WAVE_FORMAT_MPEG_L2}, "divx_mp3", 1},
    {"unknown tags are one class", SOLUTION_AVI, 1000, fourcc("XVID"), {0x1234, 0x4321}, "avimpv4", 1},
    {"nine tracks", SOLUTION_AVI, 1000, fourcc("XVID"), {9, 9, 9, 9, 9, 9, 9, 9, 9}, "avimpv4", 0},
    {"unknown video: bare suffix", SOLUTION_AVI, 1000, fourcc("H264"), {MP3}, "_mp3", 0},
    {"wmv2 in AVI keeps the suffix", SOLUTION_AVI, 1000, fourcc("WMV2"), {WAVE_FORMAT_MPEG}, "unknown_mpa", 0},
    {"program stream layer III", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG2, {MP3}, "mpegps_mpa3", -1},
    {"audio-only program stream", SOLUTION_MPEG_PS, 1000, 0, {AC3}, "_ac3", -1},
    {"wmv3 and WMA3", SOLUTION_ASF, 1000, fourcc("WMV3"), {WAVE_FORMAT_WMA3}, "unknown", -1},
    {"MPEG audio with video", SOLUTION_MPEG_AUDIO, 1000, 1, {MP3}, "unknown", -1},
    {"MPEG audio of another tag", SOLUTION_MPEG_AUDIO, 1000, 0, {AC3}, "", -1},
    {"Ogg with video", SOLUTION_OGG, 1000, 7, {WAVE_FORMAT_VORBIS1}, "unknown", -1},
    {"AC-3 with a play time", SOLUTION_AC3, 1000, 0, {AC3}, "ac3", -1},
    {"WAV float", SOLUTION_WAV, 1000, 0, {3}, "unknown", -1},
};

TEST(SolutionName, NamesByPath) {
  for (const Case &c : cases) {
    MediaInfo r{};
    r.play_time = c.play_time;
    r.video_codec = c.video;
    for (u32 tag : c.audio) {
      if (r.audio_count < MAX_AUDIO_STREAMS) r.audio[r.audio_count].audio_codec = tag;
      ++r.audio_count;
    }
    r.multi_audio = 77;  // decided for AVI, left alone otherwise
    EXPECT_EQ(Make_Solution_Name(&r, c.type), 1u) << c.what;
    EXPECT_STREQ(r.solution_name, c.solution) << c.what;
    EXPECT_EQ(static_cast<int>(r.multi_audio), c.multi_audio < 0 ? 77 : c.multi_audio) << c.what;
  }
}

// The display names the console prints: video and first audio by type,
// cut to the 16-byte field; every AVI track is named, an unknown tag keeps
// what the scanner wrote.
TEST(SolutionName, DisplayNames) {
  struct Names {
    u32 type, video, audio;
    const char *video_name, *audio_name;
  } const names[] = {
      {SOLUTION_AVI, fourcc("VSSH"), WAVE_FORMAT_VORBIS1P, "H.264", "Vorbis1+"},
      {SOLUTION_ASF, fourcc("WMV1"), WAVE_FORMAT_WMA_LOSSLESS, "Wmv7", "MsAudio2 Losele"},
      {SOLUTION_WAV, 0, 0x0006, "", "??? PCM"},
      {SOLUTION_WAV, 3, 0x0006, "", "Pcm"},
  };
  for (const Names &n : names) {
    MediaInfo r{};
    r.play_time = 5000;
    r.video_codec = n.video;
    r.audio[0].audio_codec = n.audio;
    r.audio_count = 1;
    Make_Solution_Name(&r, n.type);
    EXPECT_STREQ(r.video_codec_name, n.video_name) << n.type << " " << n.video;
    EXPECT_STREQ(r.audio[0].audio_codec_name, n.audio_name) << n.type << " " << n.video;
  }
  MediaInfo r{};
  r.play_time = 5000;
  r.video_codec = fourcc("XVID");
  r.audio_count = 4;
  const u32 tags[] = {WAVE_FORMAT_MPEGLAYER3, WAVE_FORMAT_AC3, WAVE_FORMAT_PCM, 0x1234};
  for (u32 i = 0; i < 4; ++i) {
    r.audio[i].audio_codec = tags[i];
    std::strcpy(r.audio[i].audio_codec_name, "scanner");
  }
  Make_Solution_Name(&r, SOLUTION_AVI);
  EXPECT_STREQ(r.solution_name, "avimpv4_mp3");  // a later PCM track does not make it "unknown"
  EXPECT_STREQ(r.audio[1].audio_codec_name, "Ac-3");
  EXPECT_STREQ(r.audio[2].audio_codec_name, "Pcm");
  EXPECT_STREQ(r.audio[3].audio_codec_name, "scanner");
}

}  // namespace
