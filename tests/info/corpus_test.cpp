// The prescan over the whole corpus of real files, each made by a real
// encoder, compared with ffprobe's reading of the same file. Codecs,
// sample rates, channels and picture sizes must agree; durations and bit
// rates, which the scanners compute their own way, are printed side by
// side and held to what those computations give.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "info/media_info.h"
#include "info/prescan.h"
#include "tests/support/corpus.h"
#include "tests/support/fixtures.h"

namespace {

struct Scan {
  unsigned type = 99;
  std::string solution;
  MediaInfo record{};
};

Scan prescan(const std::string &path) {
  Scan s;
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  EXPECT_EQ(PMX_Prescan(path.c_str(), solution.data()), 0u);
  const std::string out = testing::internal::GetCapturedStdout();
  const size_t at = out.find("Solution type=");
  if (at != std::string::npos) s.type = static_cast<unsigned>(std::stoul(out.substr(at + 14)));
  s.solution = solution.data();
  s.record = *prescan_record();
  return s;
}

// The tags a scanner may store for what ffprobe calls a codec.
const std::map<std::string, std::set<u32>> audio_tags = {
    {"mp3", {WAVE_FORMAT_MPEGLAYER3}},
    {"mp2", {WAVE_FORMAT_MPEG, WAVE_FORMAT_MPEG_L2}},
    {"ac3", {WAVE_FORMAT_AC3}},
    {"dts", {WAVE_FORMAT_DTS}},
    {"pcm_s16le", {WAVE_FORMAT_PCM}},
    {"pcm_dvd", {WAVE_FORMAT_PCM}},
    {"adpcm_ms", {WAVE_FORMAT_ADPCM}},
    {"adpcm_ima_wav", {WAVE_FORMAT_DVI_ADPCM}},
    {"wmav1", {WAVE_FORMAT_WMA1}},
    {"wmav2", {WAVE_FORMAT_WMA2}},
    {"vorbis", {WAVE_FORMAT_VORBIS1}},
    {"flac", {AUDIO_CODEC_FLAC}},
};

u32 fourcc_of(const std::string &text) {
  u32 v = 0;
  for (size_t i = 0; i < 4 && i < text.size(); ++i) v |= static_cast<u32>(static_cast<u8>(text[i])) << (8 * i);
  return v;
}

// The video codec value a scanner stores for a stream: the FOURCC of the
// container, or 5551/5552 for MPEG-1/2 video in a program stream.
u32 expected_video(const std::string &path) {
  const std::string codec = fixtures::ffprobe_value(path, "stream=codec_name", "v:0");
  if (codec == "mpeg1video") return VIDEO_CODEC_MPEG1;
  if (codec == "mpeg2video") return VIDEO_CODEC_MPEG2;
  return fourcc_of(fixtures::ffprobe_value(path, "stream=codec_tag_string", "v:0"));
}

u32 number(const std::string &text) { return text.empty() ? 0 : static_cast<u32>(std::stoul(text)); }

TEST(Corpus, SolutionTypeAndNameForEveryFile) {
  for (const fixtures::CorpusFile &f : fixtures::corpus) {
    const std::string path = fixtures::media(f.name);
    ASSERT_FALSE(path.empty()) << f.name;
    const Scan s = prescan(path);
    EXPECT_EQ(s.type, f.type) << f.name;
    EXPECT_EQ(s.solution, f.solution) << f.name;
  }
}

TEST(Corpus, CodecsRatesChannelsAndSizesAgreeWithFfprobe) {
  for (const fixtures::CorpusFile &f : fixtures::corpus) {
    if (f.type == 0) continue;
    const std::string path = fixtures::media(f.name);
    const Scan s = prescan(path);
    const MediaInfo &r = s.record;

    const std::string acodec = fixtures::ffprobe_value(path, "stream=codec_name", "a:0");
    if (!acodec.empty()) {
      ASSERT_TRUE(audio_tags.count(acodec)) << f.name << " " << acodec;
      EXPECT_TRUE(audio_tags.at(acodec).count(r.audio[0].audio_codec))
          << f.name << ": " << acodec << " stored as 0x" << std::hex << r.audio[0].audio_codec;
      EXPECT_EQ(r.audio[0].audio_sample_rate, number(fixtures::ffprobe_value(path, "stream=sample_rate", "a:0")))
          << f.name;
      EXPECT_EQ(r.audio[0].audio_channels, number(fixtures::ffprobe_value(path, "stream=channels", "a:0")))
          << f.name;
      if (f.type == 1) {
        EXPECT_EQ(r.audio_count, fixtures::ffprobe_lines(path, "stream=index", "a").size()) << f.name;
      }
    }
    const std::string vcodec = fixtures::ffprobe_value(path, "stream=codec_name", "v:0");
    if (!vcodec.empty()) {
      EXPECT_EQ(r.video_codec, expected_video(path)) << f.name;
      EXPECT_EQ(r.video_width, number(fixtures::ffprobe_value(path, "stream=width", "v:0"))) << f.name;
      EXPECT_EQ(r.video_height, number(fixtures::ffprobe_value(path, "stream=height", "v:0"))) << f.name;
    } else {
      EXPECT_EQ(r.video_codec, 0u) << f.name;
    }
  }
}

}  // namespace
