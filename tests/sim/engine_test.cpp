// The engine's synchronous interface: media type records, parameter blocks,
// injected faults and the debug commands.
#include "platform/mai_os.h"
#include "sim_test_util.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <regex>

using namespace simtest;

namespace {

// The video and audio records carry the files' stream properties, written
// through an unaligned pointer without touching a byte outside the record.
TEST(MediaType, RecordsCarryTheStreamProperties) {
  using V = std::vector<double>;
  const std::tuple<const char *, bool, V> cases[] = {
      // video: major type, subtype, width, height, frame rate, displayed width
      {"xvid_mp3.avi", true, {MAI_MAJOR_VIDEO, MAI_SUB_XVID, 320, 240, 25000, 320}},
      {"ntsc_wide.avi", true, {MAI_MAJOR_VIDEO, MAI_SUB_MPEG4_VIDEO, 352, 240, 29970, 320}},
      // audio: major type, subtype, sample rate, channels, bits (decoders give 16)
      {"tone.mp3", false, {MAI_MAJOR_AUDIO, MAI_SUB_MPEG_L3, 44100, 2, 16}},
      {"tone_8k_mono.wav", false, {MAI_MAJOR_AUDIO, MAI_SUB_PCM, 8000, 1, 16}}};
  Engine e;
  for (const auto &[fixture, video, expected] : cases) {
    const std::string path = fixtures::media(fixture);
    ASSERT_EQ(e.connect(path), MAI_OK) << fixture;
    std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE + 17> buf;
    buf.fill(0xEE);
    const u32 size = video ? MAI_VIDEO_MEDIATYPE_SIZE : MAI_AUDIO_MEDIATYPE_SIZE;
    ASSERT_EQ((video ? MAIengine_GetVideoMediaType : MAIengine_GetAudioMediaType)(e.h, buf.data() + 1, 0), MAI_OK);
    EXPECT_TRUE(buf[0] == 0xEE && std::all_of(buf.begin() + size + 1, buf.end(), [](u8 b) { return b == 0xEE; }));
    auto f = [&](u32 off, int n = 4) { return double(rd(buf.data() + 1, off, n)); };
    const V got = video ? V{f(MAI_VMT_MAJOR), f(MAI_VMT_SUBTYPE), f(MAI_VMT_WIDTH), f(MAI_VMT_HEIGHT),
                            f(MAI_VMT_FRAMERATE), f(MAI_VMT_FINAL_WIDTH)}
                        : V{f(MAI_AMT_MAJOR), f(MAI_AMT_SUBTYPE), f(MAI_AMT_SAMPLE_RATE), f(MAI_AMT_CHANNELS, 2),
                            f(MAI_AMT_BITS, 2)};
    EXPECT_EQ(got, expected) << fixture;
    const double duration = std::stod(fixtures::ffprobe_value(path, "format=duration")) * 1000;
    EXPECT_TRUE(video || std::abs(f(MAI_AMT_DURATION) - duration) <= 1.0) << f(MAI_AMT_DURATION) << " ms";
    EXPECT_EQ(e.disconnect(), MAI_OK);
  }
}

// Blocks start as the whole LCD (display) or zeros, are kept per instance
// across connections, and must have their exact size and a known id. The
// output sample rate is the stream's own until set (8000..192000 Hz) and
// belongs to that connection.
TEST(Params, BlocksPerInstance) {
  Engine a, b;
  for (auto [id, size] : {std::pair{MAI_PARAM_DISPLAY, MAI_PARAM_DISPLAY_SIZE},
                          {MAI_PARAM_EQUALIZER, MAI_PARAM_EQUALIZER_SIZE}, {MAI_PARAM_TRACKS, MAI_PARAM_TRACKS_SIZE},
                          {MAI_PARAM_STREAM_INFO, MAI_PARAM_STREAM_INFO_SIZE}}) {
    SCOPED_TRACE(testing::Message() << std::hex << id);
    std::vector<u8> data(size), back(size, 0xEE), expected(size, 0);
    if (id == MAI_PARAM_DISPLAY) {  // enabled; x 0, y 0, width 480, height 272
      for (auto [word, value] : {std::pair{0, 1}, {8, 480}, {9, 272}}) std::memcpy(&expected[word * 4], &value, 4);
    }
    ASSERT_EQ(MAIengine_GetParam(a.h, id, back.data(), size), MAI_OK);
    const size_t n = id == MAI_PARAM_DISPLAY ? 40 : size;  // the display block: its first ten words
    EXPECT_TRUE(std::equal(back.begin(), back.begin() + n, expected.begin()));
    for (u32 i = 0; i < size; ++i) data[i] = static_cast<u8>(i * 13 + id);
    ASSERT_EQ(MAIengine_SetParam(a.h, id, data.data(), size), MAI_OK);
    ASSERT_EQ(a.connect(fixtures::media("tone.wav")), MAI_OK);
    ASSERT_EQ(a.disconnect(), MAI_OK);
    ASSERT_EQ(MAIengine_GetParam(a.h, id, back.data(), size), MAI_OK);
    EXPECT_EQ(back, data);
    ASSERT_EQ(MAIengine_GetParam(b.h, id, back.data(), size), MAI_OK);
    EXPECT_NE(back, data) << "instances share a block";
    EXPECT_EQ(MAIengine_SetParam(a.h, id, data.data(), size - 1), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_GetParam(a.h, id + 0x100, back.data(), size), MAI_E_UNSUPPORTED);
  }
  ASSERT_EQ(a.connect(fixtures::media("tone_8k_mono.wav")), MAI_OK);
  auto rate = [&] {
    u32 r = 0;
    EXPECT_EQ(MAIengine_GetParam(a.h, MAI_PARAM_SAMPLE_RATE, &r, 4), MAI_OK);
    return r;
  };
  EXPECT_EQ(rate(), 8000u);
  for (u32 value : {7999u, 192001u, 192000u})
    EXPECT_EQ(MAIengine_SetParam(a.h, MAI_PARAM_SAMPLE_RATE, &value, 4), value == 192000 ? MAI_OK : MAI_E_INVALIDARG);
  EXPECT_EQ(rate(), 192000u);
  ASSERT_EQ(a.disconnect(), MAI_OK);
  ASSERT_EQ(a.connect(fixtures::media("tone.wav")), MAI_OK);
  EXPECT_EQ(rate(), 44100u);
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
  for (const char *bad : {"sim fault connect=0", "sim fault connect=8:0", "sim fault nostart=1", "sim fault"})
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

// Status texts name known statuses (verbose: with the explanation) and give
// unknown ones their number; "debug show" tells the connection; a trace
// category prints while on and nothing once off; anything else is refused.
TEST(Debug, StatusTextsShowAndTrace) {
  EXPECT_STREQ(MAIengine_StatusToString(MAI_E_FILENOTFOUND, 1), "MAI_E_FILENOTFOUND: file not found");
  EXPECT_STREQ(MAIengine_StatusToString(MAIOS_EVENT_TIMEOUT, 0), "MAIOS_EVENT_TIMEOUT");
  EXPECT_NE(std::string(MAIengine_StatusToString(0x10200000, 0)).find("270532608"), std::string::npos);
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(e.debug("sim clock 40"), MAI_OK);
  const std::tuple<const char *, bool, const char *> steps[] = {  // command, play to the end, output
      {"DEBUG  Show   config", false, R"(solution +: pcm \(engine's choice\)[\s\S]*44100 Hz[\s\S]*factor : 40\n)"},
      {"debug states on", true, R"(MAI\[\d\] state READY -> STARTING)"},
      {"debug off", true, "^$"}};
  for (const auto &[command, play, pattern] : steps) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(e.debug(command), MAI_OK) << command;
    EXPECT_TRUE(!play || (e.command(MAI_CMD_PLAY, MAI_RATE_NORMAL) | e.wait(MAI_STATE_ENDOFSTREAM)) == MAI_OK);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_search(out, std::regex(pattern))) << command << "\n" << out;
  }
  for (const char *bad : {"", "debug", "debug show bogus", "debug states maybe", "sim", "show state"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << '"' << bad << '"';
}

}  // namespace
