// The engine's synchronous interface: connecting files, instances, media
// type records, parameter blocks and injected faults.
#include "sim_test_util.h"

#include <cmath>
#include <optional>

using namespace simtest;

namespace {

// The engine's own choice follows container and codecs; a named solution
// must belong to the container's family ("pmi_" is dropped once); every
// refusal leaves the instance idle. "debug show config" names the solution.
TEST(Connect, SolutionsAgainstContainers) {
  const std::tuple<std::string, const char *, u32, std::string> cases[] = {  // file, solution, status, in use
      {"xvid_mp3.avi", nullptr, MAI_OK, "avimpv4_mp3"}, {"xvid_ac3.avi", nullptr, MAI_OK, "avimpv4_ac3"},
      {"divx5_mp3.avi", nullptr, MAI_OK, "divx_mp3"},   {"divx3_mp2.avi", nullptr, MAI_OK, "divx_mpa"},
      {"mpeg2_ac3.mpg", nullptr, MAI_OK, "mpegps_ac3"}, {"wmv2_wma.wmv", nullptr, MAI_OK, "wmt8"},
      {"tone.wma", nullptr, MAI_OK, "wma"},             {"tone.mp2", nullptr, MAI_OK, "mpa"},
      {"tone.flac", nullptr, MAI_OK, "flac"},           {"tone.wav", nullptr, MAI_OK, "pcm"},
      {"xvid_mp3.avi", "pmi_avimpv4_mp3", MAI_OK, "avimpv4_mp3"},
      {"xvid_ac3.avi", "avimpv4_spdif", MAI_OK, "avimpv4_spdif"},
      {"xvid_mp3.avi", "_mp3", MAI_OK, "_mp3"},         {"mpeg1_mp2.mpg", "mpegps_mpa3", MAI_OK, "mpegps_mpa3"},
      {"xvid_mp3.avi", "mp3", MAI_E_UNKNOWNFORMAT, ""}, {"clip.mp4", nullptr, MAI_E_UNKNOWNFORMAT, ""},
      {"clip.mkv", "avimpv4", MAI_E_UNKNOWNFORMAT, ""}, {"xvid_mp3.avi", "avimpv4_aac", MAI_E_UNSUPPORTED, ""},
      {"xvid_mp3.avi", "", MAI_E_UNSUPPORTED, ""},      {"tone.mp3", "pmi_pmi_mp3", MAI_E_UNSUPPORTED, ""},
      {testing::TempDir() + "pmx-missing.avi", "avimpv4_mp3", MAI_E_FILENOTFOUND, ""},
      {testing::TempDir(), nullptr, MAI_E_OPENFAILED, ""},  // a directory
      {fixtures::temp_file("junk.avi", std::vector<u8>(4096, 0x5A)), nullptr, MAI_E_OPENFAILED, ""},
  };
  Engine e;
  for (const auto &[file, solution, status, in_use] : cases) {
    const std::string path = file.find('/') == std::string::npos ? fixtures::media(file) : file;
    SCOPED_TRACE(testing::Message() << path << " with " << (solution ? solution : "(null)"));
    ASSERT_EQ(e.connect(path, solution), status);
    testing::internal::CaptureStdout();
    e.debug("debug show config");
    const std::string config = testing::internal::GetCapturedStdout();
    EXPECT_EQ(config.find("solution     : " + in_use + " ") != std::string::npos, status == MAI_OK) << config;
    EXPECT_EQ(e.state(), status == MAI_OK ? MAI_STATE_READY : MAI_STATE_IDLE);
    e.disconnect();
    EXPECT_EQ(e.state(), MAI_STATE_IDLE);
  }
}

// The instance table runs out; a second connection and bad handles are
// refused; release disconnects and frees the slot for reuse.
TEST(Connect, InstancesAndHandles) {
  std::vector<u32> handles;
  for (u32 h = 0; MAIengine_Create(&h) == MAI_OK && handles.size() < 64; h = 0) handles.push_back(h);
  ASSERT_TRUE(!handles.empty() && handles.size() < 64) << "the instance table never ran out";
  const u32 h = handles.back();
  const std::string mp3 = fixtures::media("tone.mp3");
  ASSERT_EQ(MAIengine_AutoConnect(h, nullptr, 0, mp3.c_str(), 1, 0), MAI_OK);
  EXPECT_EQ(MAIengine_AutoConnect(h, nullptr, 0, mp3.c_str(), 1, 0), MAI_E_ALREADYCONNECTED);
  EXPECT_EQ(MAIengine_AutoConnect(h, nullptr, 0, nullptr, 1, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_AutoConnect(h + 1000, nullptr, 0, mp3.c_str(), 1, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_Disconnect(0, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_Release(h), MAI_OK);
  u32 state = 0;
  EXPECT_EQ(MAIengine_GetState(h, &state, nullptr), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_Release(h), MAI_E_INVALIDARG);
  ASSERT_EQ(MAIengine_Create(&handles.back()), MAI_OK);
  EXPECT_EQ(MAIengine_Disconnect(handles.back(), 0), MAI_E_NOTCONNECTED);
  for (u32 x : handles) EXPECT_EQ(MAIengine_Release(x), MAI_OK);
}

// A program may exit while its engine plays: the engine's threads must not
// hang or crash the exit.
TEST(Connect, ProgramMayEndWithoutReleasing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = fixtures::media("tone.wav");
  EXPECT_EXIT(
      {
        Engine e;
        e.connect(path);
        e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL);
        e.wait(MAI_STATE_PLAYING);
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

std::optional<double> probe(const std::string &path, const std::string &entry, const std::string &streams) {
  const std::string v = fixtures::ffprobe_value(path, entry, streams);
  if (v.empty() || v == "N/A") return std::nullopt;
  const size_t slash = v.find_first_of("/:");  // a ratio such as 30000/1001 or 4:3
  return slash == std::string::npos ? std::stod(v) : std::stod(v) / std::stod(v.substr(slash + 1));
}

// Reads a record through an unaligned pointer with guard bytes round it;
// the engine must write nothing outside it and end the extra text in it.
template <size_t N>
std::array<u8, N> read_record(u32 (*query)(u32, void *, u32), u32 h, u32 extra) {
  std::array<u8, N + 17> buf;
  buf.fill(0xEE);
  EXPECT_EQ(query(h, buf.data() + 1, 0), MAI_OK);
  EXPECT_TRUE(buf[0] == 0xEE && std::all_of(buf.begin() + N + 1, buf.end(), [](u8 b) { return b == 0xEE; }));
  std::array<u8, N> out;
  std::memcpy(out.data(), buf.data() + 1, N);
  const void *end = std::memchr(out.data() + extra, 0, N - extra);
  EXPECT_TRUE(end != nullptr && end != out.data() + extra) << "extra text missing or not ended";
  return out;
}

// The video and audio records carry what ffprobe reports for the same file;
// a VBR MP3 gives its highest frame rate as the maximum bit rate.
TEST(MediaType, RecordsMatchTheFiles) {
  const struct {
    const char *fixture;
    u32 video;                                 // subtype, 0: the video record is not checked
    u32 audio, layer, type_flags, mode_flags;  // type_flags 0: the audio record is not checked
  } cases[] = {
      {"xvid_mp3.avi", MAI_SUB_XVID, 0, 0, 0, 0},
      {"divx3_mp2.avi", MAI_SUB_DIVX3, 0, 0, 0, 0},
      {"ntsc_wide.avi", MAI_SUB_MPEG4_VIDEO, 0, 0, 0, 0},
      {"mpeg1_mp2.mpg", MAI_SUB_MPEG_VIDEO_PES1, MAI_SUB_MPEG_AUDIO_PES1, 2, MAI_AUDIO_CBR, 0},
      {"wmv2_wma.wmv", MAI_SUB_WMV8, MAI_SUB_WMA, 0, MAI_AUDIO_CBR, 0},
      {"mpeg2_ac3.mpg", 0, MAI_SUB_AC3_PES, 0, MAI_AUDIO_CBR, 0},
      {"tone.mp3", 0, MAI_SUB_MPEG_L3, 3, MAI_AUDIO_CBR, MAI_AUDIOMODE_JOINT},
      {"vbr.mp3", 0, MAI_SUB_MPEG_L3, 3, MAI_AUDIO_VBR, MAI_AUDIOMODE_JOINT},
      {"tone.mp2", 0, MAI_SUB_MPEG_L2, 2, MAI_AUDIO_CBR, 0},
      {"tone.ac3", 0, MAI_SUB_AC3, 0, MAI_AUDIO_CBR, 0},
      {"tone_8k_mono.wav", 0, MAI_SUB_PCM, 0, MAI_AUDIO_CBR, 0},
      {"tone.flac", 0, 0, 0, MAI_AUDIO_VBR, 0},
      {"tone.ogg", 0, MAI_SUB_OGG, 0, MAI_AUDIO_VBR, 0},
  };
  using V = std::vector<double>;
  Engine e;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.fixture);
    const std::string path = fixtures::media(c.fixture);
    if (path.empty()) continue;  // optional encoder missing
    ASSERT_EQ(e.connect(path), MAI_OK);
    if (c.video != 0) {
      const auto r = read_record<MAI_VIDEO_MEDIATYPE_SIZE>(MAIengine_GetVideoMediaType, e.h, MAI_VMT_EXTRA);
      auto f = [&](u32 off) { return double(rd(r.data(), off)); };
      auto ff = [&](const char *entry) { return probe(path, entry, "v:0").value_or(-1); };
      const double sar = probe(path, "stream=sample_aspect_ratio", "v:0").value_or(1);
      // Major type, subtype, picture (4:2:0), size, frame rate, displayed size.
      EXPECT_EQ(V({f(MAI_VMT_MAJOR), f(MAI_VMT_SUBTYPE), f(MAI_VMT_IMAGE_SUBTYPE), f(MAI_VMT_WIDTH), f(MAI_VMT_HEIGHT),
                   f(MAI_VMT_FRAMERATE), f(MAI_VMT_FINAL_WIDTH), f(MAI_VMT_FINAL_HEIGHT)}),
                V({MAI_MAJOR_VIDEO, double(c.video), 0x80002, ff("stream=width"), ff("stream=height"),
                   std::round(ff("stream=avg_frame_rate") * 1000), std::round(ff("stream=width") * sar),
                   ff("stream=height")}));
      EXPECT_DOUBLE_EQ(f(MAI_VMT_PAR_H) / f(MAI_VMT_PAR_V), sar);
      EXPECT_DOUBLE_EQ(f(MAI_VMT_FINAL_PAR_H) / f(MAI_VMT_FINAL_PAR_V), ff("stream=display_aspect_ratio"));
      EXPECT_GT(f(MAI_VMT_AVG_BITRATE), 0);
      EXPECT_GE(f(MAI_VMT_MAX_BITRATE), f(MAI_VMT_AVG_BITRATE));
    }
    if (c.type_flags != 0) {
      const auto r = read_record<MAI_AUDIO_MEDIATYPE_SIZE>(MAIengine_GetAudioMediaType, e.h, MAI_AMT_EXTRA);
      auto f = [&](u32 off, int n = 4) { return double(rd(r.data(), off, n)); };
      auto ff = [&](const char *entry) { return probe(path, entry, "a:0"); };
      const double rate = f(MAI_AMT_BITRATE), max = f(MAI_AMT_MAX_BITRATE);
      // Major type, subtype, flags, layer, sample rate, channels, bits (decoders give 16), bit rate.
      EXPECT_EQ(V({f(MAI_AMT_MAJOR), f(MAI_AMT_SUBTYPE), f(MAI_AMT_TYPE_FLAGS), f(MAI_AMT_MODE_FLAGS),
                   f(MAI_AMT_LAYER, 2), f(MAI_AMT_SAMPLE_RATE), f(MAI_AMT_CHANNELS, 2), f(MAI_AMT_BITS, 2), rate}),
                V({MAI_MAJOR_AUDIO, double(c.audio), double(c.type_flags), double(c.mode_flags), double(c.layer),
                   ff("stream=sample_rate").value_or(-1), ff("stream=channels").value_or(-1), 16,
                   ff("stream=bit_rate").value_or(rate)}));
      EXPECT_GT(rate, 0);
      EXPECT_TRUE(c.fixture == std::string("vbr.mp3") ? max > rate : c.type_flags == MAI_AUDIO_VBR || max >= rate);
      const double duration = ff("stream=duration").value_or(probe(path, "format=duration", "").value_or(-1));
      EXPECT_NEAR(f(MAI_AMT_DURATION), duration * 1000, 1.0);
      EXPECT_GT(f(MAI_AMT_MAX_BUFFER), 0);
    }
    EXPECT_EQ(e.disconnect(), MAI_OK);
  }
}

// Queries without a connection, a stream or a proper record are refused.
TEST(MediaType, Refusals) {
  Engine e;
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), MAI_E_NOTCONNECTED);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), MAI_E_NOTCONNECTED);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  EXPECT_EQ(MAIengine_GetStreamMediaType(e.h, rec.data()), MAI_E_INVALIDARG);  // size word missing
  EXPECT_EQ(MAIengine_GetStreamMediaType(e.h, nullptr), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_GetVideoMediaType(e.h, rec.data(), 0), MAI_E_NOSTREAM);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 1), MAI_E_NOSTREAM);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, nullptr, 0), MAI_E_INVALIDARG);
  EXPECT_EQ(MAIengine_GetAudioMediaType(0, rec.data(), 0), MAI_E_INVALIDARG);
  ASSERT_EQ(e.disconnect(), MAI_OK);
  ASSERT_EQ(e.connect(fixtures::media("ntsc_wide.avi")), MAI_OK);  // video only
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), MAI_E_NOSTREAM);
}

// Blocks start as the whole LCD (display) or zeros, are kept per instance
// across connections, and must have their exact size and a known id.
TEST(Params, BlocksPerInstance) {
  Engine a, b;
  for (auto [id, size] : {std::pair{MAI_PARAM_DISPLAY, MAI_PARAM_DISPLAY_SIZE},
                          {MAI_PARAM_EQUALIZER, MAI_PARAM_EQUALIZER_SIZE}, {MAI_PARAM_TRACKS, MAI_PARAM_TRACKS_SIZE},
                          {MAI_PARAM_STREAM_INFO, MAI_PARAM_STREAM_INFO_SIZE}}) {
    SCOPED_TRACE(testing::Message() << std::hex << id);
    std::vector<u8> data(size, 0xEE), back(size), expected(size, 0);
    if (id == MAI_PARAM_DISPLAY) {  // enabled; x 0, y 0, width 480, height 272
      for (auto [word, value] : {std::pair{0, 1}, {8, 480}, {9, 272}}) std::memcpy(&expected[word * 4], &value, 4);
    }
    ASSERT_EQ(MAIengine_GetParam(a.h, id, data.data(), size), MAI_OK);
    const size_t n = id == MAI_PARAM_DISPLAY ? 40 : size;  // the display block: its first ten words
    EXPECT_TRUE(std::equal(data.begin(), data.begin() + n, expected.begin()));
    for (u32 i = 0; i < size; ++i) data[i] = static_cast<u8>(i * 13 + id);
    ASSERT_EQ(MAIengine_SetParam(a.h, id, data.data(), size), MAI_OK);
    ASSERT_EQ(a.connect(fixtures::media("tone.wav")), MAI_OK);
    ASSERT_EQ(a.disconnect(), MAI_OK);
    ASSERT_EQ(MAIengine_GetParam(a.h, id, back.data(), size), MAI_OK);
    EXPECT_EQ(back, data);
    ASSERT_EQ(MAIengine_GetParam(b.h, id, back.data(), size), MAI_OK);
    EXPECT_NE(back, data) << "instances share a block";
    EXPECT_EQ(MAIengine_SetParam(a.h, id, data.data(), size - 1), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_GetParam(a.h, id, back.data(), size + 1), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_SetParam(a.h, id, nullptr, size), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_SetParam(0, id, data.data(), size), MAI_E_INVALIDARG);
  }
  u8 buf[4] = {};
  EXPECT_EQ(MAIengine_SetParam(a.h, 0, buf, 4), MAI_E_UNSUPPORTED);
  EXPECT_EQ(MAIengine_GetParam(a.h, 0x50002, buf, 4), MAI_E_UNSUPPORTED);
}

// The output sample rate is the stream's own until set (8000..192000 Hz)
// and belongs to that stream: the next connection starts at its own.
TEST(Params, SampleRate) {
  Engine e;
  u32 rate = 0;
  ASSERT_EQ(e.connect(fixtures::media("tone_8k_mono.wav")), MAI_OK);
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 8000u);
  for (auto [value, status] : {std::pair{7999u, MAI_E_INVALIDARG}, {8000u, MAI_OK}, {192001u, MAI_E_INVALIDARG},
                               {192000u, MAI_OK}, {48000u, MAI_OK}})
    EXPECT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &value, 4), status) << value;
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 48000u);
  ASSERT_EQ(e.disconnect(), MAI_OK);
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(MAIengine_GetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
  EXPECT_EQ(rate, 44100u);
}

// PMX_ENGINE_FAULTS items fail their calls with their status, as often as
// they say (blanks ignored, a bad item skipped); "sim fault" adds the same
// items at run time (malformed ones add nothing), "sim fault clear" drops them.
TEST(Faults, ItemsFailTheirCalls) {
  const std::string mp3 = fixtures::media("tone.mp3");
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  {
    ScopedEnv env("PMX_ENGINE_FAULTS", " connect=8:2 , bogus=1,mediatype=9,stream=0x1010,release=1:2,disconnect=22");
    u32 h = 0;
    ASSERT_EQ(MAIengine_Create(&h), MAI_OK);
    EXPECT_EQ(MAIengine_AutoConnect(h, nullptr, 0, mp3.c_str(), 1, 0), MAI_E_OPENFAILED);
    EXPECT_EQ(MAIengine_AutoConnect(h, "mp3", 0, mp3.c_str(), 1, 0), MAI_E_OPENFAILED);
    ASSERT_EQ(MAIengine_AutoConnect(h, nullptr, 0, mp3.c_str(), 1, 0), MAI_OK);  // only twice
    EXPECT_EQ(MAIengine_GetAudioMediaType(h, rec.data(), 0), 9u);
    rec[0] = MAI_STREAM_TIME_SIZE;
    EXPECT_EQ(MAIengine_GetStreamMediaType(h, rec.data()), 0x1010u);
    EXPECT_EQ(MAIengine_Disconnect(h, 0), MAI_E_BUSY);  // the connection stays
    EXPECT_EQ(MAIengine_Disconnect(h, 0), MAI_OK);
    EXPECT_EQ(MAIengine_Release(h), 1u);  // the instance stays
    EXPECT_EQ(MAIengine_Release(h), 1u);
    EXPECT_EQ(MAIengine_Release(h), MAI_OK);
  }
  Engine e;
  for (const char *bad : {"sim fault connect=0", "sim fault connect=8:0", "sim fault nostart=1", "sim fault bogus",
                          "sim fault auto=8:2", "sim fault"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
  EXPECT_EQ(e.connect(mp3), MAI_OK);
  EXPECT_EQ(MAIengine_GetAudioMediaType(e.h, rec.data(), 0), MAI_OK);
  ASSERT_EQ(e.disconnect(), MAI_OK);
  ASSERT_EQ(e.debug("sim fault connect=0x19:2, create=7"), MAI_OK);
  EXPECT_EQ(e.connect(mp3), MAI_E_UNKNOWNFORMAT);
  u32 other = 0;
  EXPECT_EQ(MAIengine_Create(&other), 7u);
  ASSERT_EQ(e.debug("sim fault clear"), MAI_OK);
  EXPECT_EQ(e.connect(mp3), MAI_OK);
  ASSERT_EQ(MAIengine_Create(&other), MAI_OK);
  MAIengine_Release(other);
}

}  // namespace
