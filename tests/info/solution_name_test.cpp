// Solution naming over hand-filled media info records.
#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>

#include "info/byte_order.h"
#include "info/media_info.h"

namespace {

struct Case {
  const char *what;
  u32 type;
  u32 play_time;
  u32 video;
  std::initializer_list<u32> audio;
  u32 bits_per_sample;
  const char *solution;
  int multi_audio;  // -1: not decided for this type
};

const Case cases[] = {
    {"no play time beats a perfect AVI", SOLUTION_AVI, 0, fourcc("XVID"), {WAVE_FORMAT_MPEGLAYER3}, 0, "unknown", 0},
    {"type 0 with play time", SOLUTION_NONE, 1000, 0, {}, 0, "", -1},
    {"type 0 without play time", SOLUTION_NONE, 0, 0, {}, 0, "unknown", -1},
    {"type above 8", 9, 1000, fourcc("XVID"), {WAVE_FORMAT_MPEGLAYER3}, 0, "", -1},
    {"xvid ac3 then mp3", SOLUTION_AVI, 1000, fourcc("XVID"), {WAVE_FORMAT_AC3, WAVE_FORMAT_MPEGLAYER3}, 0, "avimpv4_ac3", 0},
    {"dx50 two mp3", SOLUTION_AVI, 1000, fourcc("DX50"), {WAVE_FORMAT_MPEGLAYER3, WAVE_FORMAT_MPEGLAYER3}, 0, "divx_mp3", 1},
    {"mp3 and layer 2 are one class", SOLUTION_AVI, 1000, fourcc("DX50"), {WAVE_FORMAT_MPEGLAYER3, WAVE_FORMAT_MPEG_L2}, 0, "divx_mp3", 1},
    {"dx50 pcm first", SOLUTION_AVI, 1000, fourcc("DX50"), {WAVE_FORMAT_PCM, WAVE_FORMAT_MPEGLAYER3}, 0, "unknown", 0},
    {"pcm then mp3 suffix after unknown", SOLUTION_AVI, 1000, fourcc("div3"), {WAVE_FORMAT_PCM}, 0, "unknown", 0},
    {"unknown video bare suffix", SOLUTION_AVI, 1000, fourcc("H264"), {WAVE_FORMAT_MPEGLAYER3}, 0, "_mp3", 0},
    {"no video bare dts", SOLUTION_AVI, 1000, 0, {WAVE_FORMAT_DTS}, 0, "_dts", 0},
    {"wmv3 in avi", SOLUTION_AVI, 1000, fourcc("wmv3"), {WAVE_FORMAT_AC3}, 0, "aviwmv_ac3", 0},
    {"wmv2 in avi keeps suffix", SOLUTION_AVI, 1000, fourcc("WMV2"), {WAVE_FORMAT_MPEG}, 0, "unknown_mpa", 0},
    {"mp43 is divx", SOLUTION_AVI, 1000, fourcc("MP43"), {WAVE_FORMAT_MPEG_L2}, 0, "divx_mpa", 0},
    {"3iv2 unknown", SOLUTION_AVI, 1000, fourcc("3iv2"), {}, 0, "unknown", 0},
    {"nine tracks are not multi", SOLUTION_AVI, 1000, fourcc("XVID"), {0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}, 0, "avimpv4_mp3", 0},
    {"unknown tags are one class", SOLUTION_AVI, 1000, fourcc("XVID"), {0x1234, 0x4321}, 0, "avimpv4", 1},
    {"no play time: classes all alike", SOLUTION_AVI, 0, fourcc("XVID"), {WAVE_FORMAT_AC3, WAVE_FORMAT_MPEGLAYER3}, 0, "unknown", 1},
    {"mpeg2 layer 3", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG2, {WAVE_FORMAT_MPEGLAYER3}, 0, "mpegps_mpa3", -1},
    {"mpeg1 layer 2", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG1, {WAVE_FORMAT_MPEG_L2}, 0, "mpegps_mpa", -1},
    {"mpeg2 lpcm", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG2, {WAVE_FORMAT_PCM}, 0, "mpegps_pcm", -1},
    {"mpeg2 dts adds nothing", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG2, {WAVE_FORMAT_DTS}, 0, "mpegps", -1},
    {"audio-only program stream", SOLUTION_MPEG_PS, 1000, 0, {WAVE_FORMAT_AC3}, 0, "_ac3", -1},
    {"wmv3 wma2", SOLUTION_ASF, 1000, fourcc("WMV3"), {WAVE_FORMAT_WMA2}, 0, "wmt", -1},
    {"wmv3 wma3", SOLUTION_ASF, 1000, fourcc("WMV3"), {WAVE_FORMAT_WMA3}, 0, "unknown", -1},
    {"audio-only asf", SOLUTION_ASF, 1000, 0, {WAVE_FORMAT_WMA2}, 0, "wma", -1},
    {"audio-only lossless", SOLUTION_ASF, 1000, 0, {WAVE_FORMAT_WMA_LOSSLESS}, 0, "unknown", -1},
    {"wmv2 asf", SOLUTION_ASF, 1000, fourcc("wmv2"), {WAVE_FORMAT_WMA2}, 0, "wmt8", -1},
    {"mp42 asf", SOLUTION_ASF, 1000, fourcc("MP42"), {WAVE_FORMAT_WMA2}, 0, "wmt78", -1},
    {"mpg4 asf", SOLUTION_ASF, 1000, fourcc("MPG4"), {WAVE_FORMAT_WMA2}, 0, "unknown", -1},
    {"mp3", SOLUTION_MPEG_AUDIO, 1000, 0, {WAVE_FORMAT_MPEGLAYER3}, 0, "mp3", -1},
    {"mp2", SOLUTION_MPEG_AUDIO, 1000, 0, {WAVE_FORMAT_MPEG_L2}, 0, "mpa", -1},
    {"mp3 with video", SOLUTION_MPEG_AUDIO, 1000, 1, {WAVE_FORMAT_MPEGLAYER3}, 0, "unknown", -1},
    {"mpeg audio other tag", SOLUTION_MPEG_AUDIO, 1000, 0, {WAVE_FORMAT_AC3}, 0, "", -1},
    {"ogg", SOLUTION_OGG, 1000, 0, {0x674F}, 0, "ogg", -1},
    {"ogg with video", SOLUTION_OGG, 1000, 7, {0x674F}, 0, "unknown", -1},
    {"ac3", SOLUTION_AC3, 1000, 0, {WAVE_FORMAT_AC3}, 0, "ac3", -1},
    {"wav pcm", SOLUTION_WAV, 1000, 0, {WAVE_FORMAT_PCM}, 0, "pcm", -1},
    {"wav ms adpcm", SOLUTION_WAV, 1000, 0, {WAVE_FORMAT_ADPCM}, 0, "pcm", -1},
    {"wav ima adpcm", SOLUTION_WAV, 1000, 0, {WAVE_FORMAT_DVI_ADPCM}, 0, "unknown", -1},
    {"wav float", SOLUTION_WAV, 1000, 0, {3}, 0, "unknown", -1},
    {"flac 16", SOLUTION_FLAC, 1000, 0, {AUDIO_CODEC_FLAC}, 16, "flac", -1},
    {"flac 24", SOLUTION_FLAC, 1000, 0, {AUDIO_CODEC_FLAC}, 24, "unknown", -1},
};

MediaInfo make(const Case &c) {
  MediaInfo r{};
  r.play_time = c.play_time;
  r.video_codec = c.video;
  u32 i = 0;
  for (u32 tag : c.audio) {
    if (i < MAX_AUDIO_STREAMS) r.audio[i].audio_codec = tag;
    ++i;
  }
  r.audio_count = i;
  r.bits_per_sample = c.bits_per_sample;
  r.multi_audio = 77;  // must be decided for AVI, left alone otherwise
  return r;
}

TEST(SolutionName, EveryTypeAndCodecRow) {
  for (const Case &c : cases) {
    MediaInfo r = make(c);
    EXPECT_EQ(Make_Solution_Name(&r, c.type), 1u) << c.what;
    EXPECT_STREQ(r.solution_name, c.solution) << c.what;
    EXPECT_EQ(static_cast<int>(r.multi_audio), c.multi_audio < 0 ? 77 : c.multi_audio) << c.what;
  }
}

struct Names {
  u32 type;
  u32 video;
  u32 audio;
  u32 bits;
  const char *video_name;
  const char *audio_name;
};

const Names display_names[] = {
    {SOLUTION_AVI, fourcc("DIV3"), WAVE_FORMAT_MPEGLAYER3, 0, "Div3 Low", "Mpeg1/2 L3"},
    {SOLUTION_AVI, fourcc("div4"), WAVE_FORMAT_MPEG, 0, "Div3 Fast", "Mpeg1/2 L1"},
    {SOLUTION_AVI, fourcc("DX50"), WAVE_FORMAT_DTS, 0, "Dx50", "Dts"},
    {SOLUTION_AVI, fourcc("VSSH"), 0x676F, 0, "H.264", "Vorbis1+"},
    {SOLUTION_AVI, fourcc("XVID"), WAVE_FORMAT_WMA3, 0, "Xvid", "Wma9"},
    {SOLUTION_MPEG_PS, VIDEO_CODEC_MPEG1, WAVE_FORMAT_DTS, 0, "Mpeg1", "Dts"},
    // The lossless name is longer than the 16-byte field: it is cut to fit.
    {SOLUTION_ASF, fourcc("WMV1"), WAVE_FORMAT_WMA_LOSSLESS, 0, "Wmv7", "MsAudio2 Losele"},
    {SOLUTION_MPEG_AUDIO, 0, WAVE_FORMAT_MPEG_L2, 0, "", "Mpeg1/2 L2"},
    {SOLUTION_OGG, 0, 0x674F, 0, "", "Ogg Vorbis"},
    {SOLUTION_WAV, 0, WAVE_FORMAT_DVI_ADPCM, 0, "", "Dvi-Pcm"},
    {SOLUTION_WAV, 0, 0x0006, 0, "", "??? PCM"},
    {SOLUTION_WAV, 3, 0x0006, 0, "", "Pcm"},
    {SOLUTION_FLAC, 0, AUDIO_CODEC_FLAC, 24, "", "Flac"},
};

TEST(SolutionName, DisplayNamesOfVideoAndFirstAudio) {
  for (const Names &n : display_names) {
    MediaInfo r{};
    r.play_time = 5000;
    r.video_codec = n.video;
    r.audio[0].audio_codec = n.audio;
    r.audio_count = 1;
    r.bits_per_sample = n.bits;
    Make_Solution_Name(&r, n.type);
    EXPECT_STREQ(r.video_codec_name, n.video_name) << n.type << " " << n.video;
    EXPECT_STREQ(r.audio[0].audio_codec_name, n.audio_name) << n.type << " " << n.video;
  }
}

TEST(SolutionName, AviNamesEveryTrackButOnlyTheFirstEditsTheName) {
  MediaInfo r{};
  r.play_time = 5000;
  r.video_codec = fourcc("XVID");
  const u32 tags[] = {WAVE_FORMAT_MPEGLAYER3, WAVE_FORMAT_AC3, WAVE_FORMAT_PCM};
  for (u32 i = 0; i < 3; ++i) r.audio[i].audio_codec = tags[i];
  r.audio_count = 3;
  std::strcpy(r.audio[2].audio_codec_name, "scanner");
  Make_Solution_Name(&r, SOLUTION_AVI);
  EXPECT_STREQ(r.solution_name, "avimpv4_mp3");  // a later PCM track does not make it "unknown"
  EXPECT_STREQ(r.audio[1].audio_codec_name, "Ac-3");
  EXPECT_STREQ(r.audio[2].audio_codec_name, "Pcm");
  EXPECT_EQ(r.multi_audio, 0u);
}

// An unknown tag leaves the scanner's own display name.
TEST(SolutionName, UnknownCodecKeepsTheScannersName) {
  MediaInfo r{};
  r.play_time = 5000;
  r.audio[0].audio_codec = WAVE_FORMAT_AC3;
  std::strcpy(r.audio[0].audio_codec_name, "from scan");
  r.audio_count = 1;
  Make_Solution_Name(&r, SOLUTION_MPEG_AUDIO);
  EXPECT_STREQ(r.audio[0].audio_codec_name, "from scan");
}

}  // namespace
