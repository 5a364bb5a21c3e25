// File name extension tests, and the solution and codec display names
// derived from hand-filled records (the corpus test names real files).
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <utility>

#include "info/byte_order.h"
#include "info/extensions.h"
#include "info/media_info.h"

namespace {

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
