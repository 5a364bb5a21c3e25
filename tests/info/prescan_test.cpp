// The prescan driver's report, accessors and names, and the prescan over the
// corpus of real encoder-made files against ffprobe.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <set>
#include <tuple>
#include <string>
#include <utility>
#include <vector>

#include "info/byte_order.h"
#include "info/extensions.h"
#include "info/prescan.h"
#include "tests/info/image.h"
#include "tests/support/corpus.h"

namespace {

struct Report {
  u32 status = 0, type = 99;
  std::string solution, out;
  MediaInfo record{};
};

Report prescan(const std::string &path) {
  Report s;
  std::array<char, 16> solution{};
  testing::internal::CaptureStdout();
  s.status = PMX_Prescan(path.c_str(), solution.data());
  s.out = testing::internal::GetCapturedStdout();
  const size_t at = s.out.find("Solution type=");
  if (at != std::string::npos) s.type = static_cast<u32>(std::stoul(s.out.substr(at + 14)));
  s.solution = solution.data();
  s.record = *prescan_record();
  return s;
}

std::string file_size(const std::string &path) { return std::to_string(std::filesystem::file_size(path)); }

// A WAV file's report, the accessors giving what was printed, and the hint
// (written byte by byte at any alignment, its FLAC bytes only for FLAC).
TEST(Prescan, WavReportAndAccessors) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const Report r = prescan(wav);
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
  Report r = prescan("/nonexistent/clip.wav");
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

// The end of the name: letters in either case, the dot and digits exactly.
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

struct Naming {
  const char *what;
  u32 type, play_time, video;
  std::initializer_list<u32> audio;
  const char *solution;
  int multi_audio;  // -1: not decided for this type
};

// Names by path through the naming, and the AVI tracks' switching flag.
const u32 MP3 = WAVE_FORMAT_MPEGLAYER3, AC3 = WAVE_FORMAT_AC3;
const Naming namings[] = {
    {"no play time: classes alike", SOLUTION_AVI, 0, fourcc("XVID"), {AC3, MP3}, "unknown", 1},
    {"AC-3 then MP3", SOLUTION_AVI, 1000, fourcc("XVID"), {AC3, MP3}, "avimpv4_ac3", 0},
    {"MP3 and layer II", SOLUTION_AVI, 1000, fourcc("DX50"), {MP3, WAVE_FORMAT_MPEG_L2}, "divx_mp3", 1},
    {"unknown tags are one class", SOLUTION_AVI, 1000, fourcc("XVID"), {0x1234, 0x4321}, "avimpv4", 1},
    {"nine tracks", SOLUTION_AVI, 1000, fourcc("XVID"), {9, 9, 9, 9, 9, 9, 9, 9, 9}, "avimpv4", 0},
    {"unknown video: bare suffix", SOLUTION_AVI, 1000, fourcc("H264"), {MP3}, "_mp3", 0},
    {"wmv2 in AVI keeps the suffix", SOLUTION_AVI, 1000, fourcc("WMV2"), {WAVE_FORMAT_MPEG}, "unknown_mpa", 0},
    {"program stream layer III", SOLUTION_MPEG_PS, 1000, VIDEO_CODEC_MPEG2, {MP3}, "mpegps_mpa3", -1},
    {"audio-only program stream", SOLUTION_MPEG_PS, 1000, 0, {AC3}, "_ac3", -1},
    {"MPEG audio with video", SOLUTION_MPEG_AUDIO, 1000, 1, {MP3}, "unknown", -1},
    {"MPEG audio of another tag", SOLUTION_MPEG_AUDIO, 1000, 0, {AC3}, "", -1},
    {"Ogg with video", SOLUTION_OGG, 1000, 7, {WAVE_FORMAT_VORBIS1}, "unknown", -1},
    {"AC-3 with a play time", SOLUTION_AC3, 1000, 0, {AC3}, "ac3", -1},
};

TEST(SolutionName, NamesByPath) {
  for (const Naming &c : namings) {
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

// Display names by type, cut to 16 bytes; every AVI track named but unknown tags.
TEST(SolutionName, DisplayNames) {
  const std::tuple<u32, u32, u32, std::string, std::string> names[] = {
      {SOLUTION_ASF, fourcc("WMV1"), WAVE_FORMAT_WMA_LOSSLESS, "Wmv7", "MsAudio2 Losele"},
      {SOLUTION_WAV, 0, 0x0006, "", "??? PCM"},
      {SOLUTION_WAV, 3, 0x0006, "", "Pcm"},
  };
  for (const auto &[type, video, audio, video_name, audio_name] : names) {
    MediaInfo r = start_record(0, 5000);
    r.video_codec = video;
    r.audio[0].audio_codec = audio;
    r.audio_count = 1;
    Make_Solution_Name(&r, type);
    EXPECT_EQ(std::make_pair(std::string(r.video_codec_name), std::string(r.audio[0].audio_codec_name)),
              std::make_pair(video_name, audio_name));
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

// Whole seconds from the byte rate, the remainder over the bit rate (an eighth).
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
    EXPECT_EQ((std::vector<u32>{s.status, s.type}), (std::vector<u32>{0, f.type})) << f.name;
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
    // Exact from ID3 and ASF; Vorbis comments take along bytes up to a zero pair.
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
        // The head scan times the file, the search the data (in bits_per_sample).
        const bool searched = s.out.find("Mpa_prescan2 trying") != std::string::npos;
        EXPECT_EQ(r.play_time, mpeg_audio_play_time(searched ? r.bits_per_sample : r.file_size,
                                                    r.audio[0].audio_bitrate))
            << f.name;
        // The head scan's Xing divisor 144 doubles the time of MPEG-2 and 2.5.
        const bool xing = head_of(path).find("Xing") != std::string::npos;
        const double expected = (!searched && r.audio[0].audio_sample_rate < 32000 && xing) ? probe_ms * 2 : probe_ms;
        EXPECT_NEAR(play, expected, expected * 0.08) << f.name;
        // Constant rate: the header's; the search reads layer II as layer III.
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
