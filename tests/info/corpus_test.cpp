// The prescan over the corpus of real encoder-made files against ffprobe.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "info/byte_order.h"
#include "info/prescan.h"
#include "tests/info/image.h"
#include "tests/support/corpus.h"

namespace {

struct Report {
  unsigned type = 99;
  std::string solution, out;
  MediaInfo record{};
};

Report prescan(const std::string &path) {
  Report s;
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  EXPECT_EQ(PMX_Prescan(path.c_str(), solution.data()), 0u);
  s.out = testing::internal::GetCapturedStdout();
  const size_t at = s.out.find("Solution type=");
  if (at != std::string::npos) s.type = static_cast<unsigned>(std::stoul(s.out.substr(at + 14)));
  s.solution = solution.data();
  s.record = *prescan_record();
  return s;
}

// The tags a scanner may store for what ffprobe calls a codec.
const std::map<std::string, std::set<u32>> audio_tags = {
    {"mp3", {WAVE_FORMAT_MPEGLAYER3}}, {"mp2", {WAVE_FORMAT_MPEG, WAVE_FORMAT_MPEG_L2}},
    {"ac3", {WAVE_FORMAT_AC3}},        {"dts", {WAVE_FORMAT_DTS}},
    {"pcm_s16le", {WAVE_FORMAT_PCM}},  {"pcm_dvd", {WAVE_FORMAT_PCM}},
    {"adpcm_ms", {WAVE_FORMAT_ADPCM}}, {"adpcm_ima_wav", {WAVE_FORMAT_DVI_ADPCM}},
    {"wmav1", {WAVE_FORMAT_WMA1}},     {"wmav2", {WAVE_FORMAT_WMA2}},
    {"vorbis", {WAVE_FORMAT_VORBIS1}}, {"flac", {AUDIO_CODEC_FLAC}},
};

// One field of ffprobe's CSV output (it may add side data after a comma).
std::string probe(const std::string &path, const std::string &entry, const std::string &streams) {
  const std::string value = fixtures::ffprobe_value(path, entry, streams);
  return value.substr(0, value.find(','));
}
u32 number(const std::string &text) { return text.empty() ? 0 : static_cast<u32>(std::stoul(text)); }

// The container's FOURCC, or 5551/5552 for MPEG-1/2 video in a program stream.
u32 expected_video(const std::string &path, const std::string &codec) {
  if (codec == "mpeg1video") return VIDEO_CODEC_MPEG1;
  if (codec == "mpeg2video") return VIDEO_CODEC_MPEG2;
  return FourCC(sized(str(probe(path, "stream=codec_tag_string", "v:0")), 4).data());
}

// A tag of the file, or of its first audio stream (Ogg keeps them there).
std::string tag(const std::string &path, const std::string &name) {
  const std::string value = probe(path, "format_tags=" + name, "");
  return value.empty() ? probe(path, "stream_tags=" + name, "a:0") : value;
}

// The MPEG audio formula: whole seconds from the byte rate, the remainder
// divided by the bit rate (an eighth of the true fraction).
u32 mpeg_audio_play_time(u32 size, u32 rate) {
  return (size / (rate / 8)) * 1000 + ((size % (rate / 8)) * 1000) / rate;
}

// The layer III rate at a layer II rate's index (MPEG-1, kbit/s).
u32 layer3_rate_at_layer2_index(u32 rate) {
  constexpr u32 layer2[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384};
  constexpr u32 layer3[] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
  for (size_t i = 0; i < std::size(layer2); ++i)
    if (layer2[i] * 1000 == rate) return layer3[i] * 1000;
  return 0;
}

// Whole seconds from the first group of pictures (a key frame) to the last.
u32 gop_seconds(const std::string &path) {
  std::vector<double> keys;
  for (const std::string &line : fixtures::ffprobe_lines(path, "packet=pts_time,flags", "v:0"))
    if (line.find(",K") != std::string::npos) keys.push_back(std::stod(line));
  return keys.size() < 2 ? 0 : static_cast<u32>(keys.back() - keys.front());
}

std::string head_of(const std::string &path) {  // the first 8 KiB
  std::string head(8192, '\0');
  std::ifstream(path, std::ios::binary).read(head.data(), static_cast<std::streamsize>(head.size()));
  return head;
}

// Every file's solution type and name; codecs, rates, channels, picture
// sizes and tags as ffprobe reads them; durations and bit rates printed
// beside ffprobe's, each held to its scanner's own computation.
TEST(Corpus, SolutionsStreamsTagsAndDurations) {
  std::printf("%-26s %5s %9s %9s %9s %9s\n", "file", "type", "play ms", "ffprobe", "bit/s", "ffprobe");
  for (const fixtures::CorpusFile &f : fixtures::corpus) {
    const std::string path = fixtures::media(f.name);
    ASSERT_FALSE(path.empty()) << f.name;
    const Report s = prescan(path);
    EXPECT_EQ(s.type, f.type) << f.name;
    EXPECT_EQ(s.solution, f.solution) << f.name;
    if (f.type == 0) continue;
    const MediaInfo &r = s.record;
    const std::string acodec = probe(path, "stream=codec_name", "a:0");
    if (!acodec.empty()) {
      const auto tags = audio_tags.find(acodec);
      EXPECT_TRUE(tags != audio_tags.end() && tags->second.count(r.audio[0].audio_codec))
          << f.name << ": " << acodec << " stored as 0x" << std::hex << r.audio[0].audio_codec;
      EXPECT_EQ(r.audio[0].audio_sample_rate, number(probe(path, "stream=sample_rate", "a:0"))) << f.name;
      EXPECT_EQ(r.audio[0].audio_channels, number(probe(path, "stream=channels", "a:0"))) << f.name;
      if (f.type == 1) {
        EXPECT_EQ(r.audio_count, fixtures::ffprobe_lines(path, "stream=index", "a").size()) << f.name;
      }
    }
    const std::string vcodec = probe(path, "stream=codec_name", "v:0");
    EXPECT_EQ(r.video_codec, vcodec.empty() ? 0u : expected_video(path, vcodec)) << f.name;
    if (!vcodec.empty()) {
      EXPECT_EQ(r.video_width, number(probe(path, "stream=width", "v:0"))) << f.name;
      EXPECT_EQ(r.video_height, number(probe(path, "stream=height", "v:0"))) << f.name;
    }
    // "title - artist": exactly from ID3 and ASF; the Vorbis comment search
    // of Ogg and FLAC takes along what follows a value up to a zero pair.
    const std::string title = tag(path, "title"), artist = tag(path, "artist");
    const std::u16string text = tag_text(r);
    if (title.empty() && artist.empty()) {
      EXPECT_TRUE(text.empty()) << f.name;
    } else if (f.type == SOLUTION_MPEG_AUDIO || f.type == SOLUTION_ASF) {
      EXPECT_EQ(text, widen(title + " - " + artist)) << f.name;
    } else {
      EXPECT_EQ(text.find(widen(title)), 0u) << f.name;
      EXPECT_NE(text.find(widen(" - " + artist)), std::u16string::npos) << f.name;
    }
    const double probe_ms = std::stod("0" + probe(path, "format=duration", "")) * 1000.0, play = r.play_time;
    const std::string probe_rate = probe(path, "stream=bit_rate", "a:0");
    std::printf("%-26s %5u %9u %9.0f %9u %9s\n", f.name, s.type, r.play_time, probe_ms, r.audio[0].audio_bitrate,
                probe_rate.c_str());
    switch (s.type) {
      case SOLUTION_WAV: {  // the "data" chunk's size over the header's byte rate
        const u32 byte_rate = number(probe_rate) / 8;
        const std::string head = head_of(path);
        const u32 data = LittleEndian2int32u(reinterpret_cast<const u8 *>(head.data() + head.find("data", 12) + 4));
        EXPECT_EQ(r.play_time, (data / byte_rate) * 1000 + ((data % byte_rate) * 1000) / byte_rate) << f.name;
        // PCM's byte rate is exact; ADPCM encoders may write a nominal one.
        if (r.audio[0].audio_codec == WAVE_FORMAT_PCM) {
          EXPECT_NEAR(play, probe_ms, 2) << f.name;
        }
        break;
      }
      case SOLUTION_FLAC:  // whole seconds
        EXPECT_EQ(r.play_time, static_cast<u32>(probe_ms / 1000.0) * 1000) << f.name;
        break;
      case SOLUTION_MPEG_AUDIO: {
        // The head scan times the whole file, the search the data after the
        // tag (left in bits_per_sample).
        const bool searched = s.out.find("Mpa_prescan2 trying") != std::string::npos;
        EXPECT_EQ(r.play_time, mpeg_audio_play_time(searched ? r.bits_per_sample : r.file_size,
                                                    r.audio[0].audio_bitrate))
            << f.name;
        // The head scan's Xing rate uses the MPEG-1 divisor 144: MPEG-2 and
        // 2.5 files show half their rate and twice their time.
        const bool xing = head_of(path).find("Xing") != std::string::npos;
        const double expected = (!searched && r.audio[0].audio_sample_rate < 32000 && xing) ? probe_ms * 2 : probe_ms;
        EXPECT_NEAR(play, expected, expected * 0.08) << f.name;
        // Constant rate: the header's, but the search reads layer II headers
        // with the layer III table.
        u32 rate = number(probe_rate);
        if (searched && r.audio[0].audio_codec == WAVE_FORMAT_MPEG_L2) rate = layer3_rate_at_layer2_index(rate);
        if (!xing) {
          EXPECT_EQ(r.audio[0].audio_bitrate, rate) << f.name;
        }
        break;
      }
      case SOLUTION_MPEG_PS:  // whole seconds between the first and last time codes
        EXPECT_EQ(r.play_time, gop_seconds(path) * 1000) << f.name;
        break;
      case SOLUTION_AC3:  // the first frame only: no play time
        EXPECT_EQ(r.play_time, 0u) << f.name;
        EXPECT_EQ(std::to_string(r.audio[0].audio_bitrate), probe_rate) << f.name;
        break;
      default:  // frame counts, object durations, granules
        EXPECT_NEAR(play, probe_ms, probe_ms * 0.08) << f.name;
        break;
    }
  }
}

}  // namespace
