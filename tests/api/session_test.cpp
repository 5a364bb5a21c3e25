// Status codes and their printing, the media type printers, and the engine
// session: initialisation, opening with the prescan's solution, the
// engine's callbacks, close and release.
#include <sys/stat.h>

#include <array>
#include <cstring>
#include <map>

#include "platform/mai_os.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

// Engine statuses and the API statuses they become; every other is 15.
TEST(Status, Translation) {
  ASSERT_EQ(pmx_init(nullptr, nullptr), PMX_INVALID_ARG);  // fills the table before it checks its arguments
  const std::map<u32, s32> mapped = {{0, 0},       {1, 15},      {2, 12},      {3, 3},       {7, 6},
                                     {8, 9},       {11, 10},     {18, 13},     {21, 11},     {22, 2},
                                     {25, 8},      {40, 7},      {0x1003, 22}, {0x1001, 23}, {0x1002, 24},
                                     {0x1000, 25}, {0x1005, 20}, {0x1004, 21}, {0x10100000, 18},
                                     {0x10200000, 19}};
  for (u32 s = 0; s < 48; ++s) EXPECT_EQ(pmx_translate(s), mapped.count(s) ? mapped.at(s) : 15) << s;
  for (auto [engine, api] : mapped) EXPECT_EQ(pmx_translate(engine), api) << std::hex << engine;
  for (u32 other : {0x1006u, 0x500006u, 0xFFFFFFFFu}) EXPECT_EQ(pmx_translate(other), 15) << std::hex << other;
}

// Codes past 17 have no text; without a command only the text is printed.
TEST(Status, Printing) {
  const std::tuple<const char *, u32, const char *> cases[] = {
      {"PLAY", 0, "command [PLAY] : PMX_OK\n"}, {"OPEN", 17, "command [OPEN] : PMX_WMV78_RESOLUTION_WARNNING\n"},
      {nullptr, 6, "PMX_FILE_NOT_FOUND\n"},     {nullptr, 22, "\n"},
      {"X", 26, "command [X] : \n"}};
  for (const auto &[command, code, text] : cases) {
    std::string out;
    run([c = command, n = code] { pmx_print_error(c, n); return 0; }, &out);
    EXPECT_EQ(out, text) << code;
  }
}

std::string print(void (*printer)(const u8 *), std::initializer_list<std::pair<u32, u32>> words, u32 extra_at,
                  const std::string &extra) {
  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> r{};
  for (auto [at, value] : words) put_le32(r.data() + at, value);
  std::memcpy(&r[extra_at], extra.data(), extra.size());
  std::string out;
  run([&] { printer(r.data()); return 0; }, &out);
  return out;
}

// Every field under its label. Unlisted major types and frame rates print
// nothing, so the next label follows on the same line; the extra text ends
// at its NUL or at the end of the record; channels and bits are 16-bit
// fields, the byte after the channels is the bit rate's.
TEST(Printers, Records) {
  EXPECT_EQ(print(media_vedio_info_print,
                  {{MAI_VMT_MAJOR, 2}, {MAI_VMT_SUBTYPE, 0x200000}, {MAI_VMT_FRAMERATE, 29970},
                   {MAI_VMT_AVG_BITRATE, 800000}, {MAI_VMT_MAX_BITRATE, 900000}, {MAI_VMT_WIDTH, 320},
                   {MAI_VMT_HEIGHT, 240}, {MAI_VMT_PAR_H, 10}, {MAI_VMT_PAR_V, 11}, {MAI_VMT_FINAL_WIDTH, 352},
                   {MAI_VMT_FINAL_HEIGHT, 288}, {MAI_VMT_FINAL_PAR_H, 4}, {MAI_VMT_FINAL_PAR_V, 3},
                   {MAI_VMT_IMAGE_SUBTYPE, 7}},
                  MAI_VMT_EXTRA, std::string("xvid\0q", 6)),
            "MediaType          : Video MediaType\nMediaSubType       : XVID \nFrameRate          : 29.97\n"
            "AverageBitrate     : 800000\nMaxBitrate         : 900000\nImageWidth         : 320\n"
            "ImageHeight        : 240\nImagePARh          : 10\nImagePARv          : 11\n"
            "Final ImageWidth   : 352\nFinal ImageHeight  : 288\nFinal FinalPARh    : 4\n"
            "Final FinalPARv    : 3\nImageMSubType      : 7\nExtraInfo          : xvid\n");
  const std::string full(MAI_VIDEO_MEDIATYPE_SIZE - MAI_VMT_EXTRA, 'q');
  const std::string odd = print(media_vedio_info_print,
                                {{MAI_VMT_MAJOR, 3}, {MAI_VMT_SUBTYPE, 99}, {MAI_VMT_FRAMERATE, 12500}}, MAI_VMT_EXTRA, full);
  EXPECT_EQ(odd.find("MediaType          : MediaSubType       : Can't find video type\n"
                     "FrameRate          : AverageBitrate     : 0\n"),
            0u)
      << odd;
  EXPECT_TRUE(has(odd, "ExtraInfo          : " + full + "\n")) << odd;
  EXPECT_EQ(print(media_audio_info_print,
                  {{MAI_AMT_MAJOR, 0x10010}, {MAI_AMT_SUBTYPE, 0x20000}, {MAI_AMT_TYPE_FLAGS, 2},
                   {MAI_AMT_MODE_FLAGS, 2}, {MAI_AMT_SAMPLE_RATE, 48000}, {MAI_AMT_BITS, 16 | 6u << 16},
                   {MAI_AMT_BITRATE, 128}, {MAI_AMT_FRAME_SIZE, 1536}, {MAI_AMT_DURATION, 2000},
                   {MAI_AMT_MAX_BUFFER, 4096}, {MAI_AMT_LAYER, 3 | 1u << 16}, {MAI_AMT_MAX_BITRATE, 640}},
                  MAI_AMT_EXTRA, "ac3"),
            "MediaType          :  ASF Muxed Stream.\nMediaSubType       : JPEG Still Video or Motion JPEG Vide\n"
            "MediaType flags    : VBR\nAudio Mode flag    : MAI_AUDIOMODEFLAG_INTENSITYSTEREO\n"
            "SamplesPerSec      : 48000\nBitsPerSample      : 16\nChannels           : 6\nBitrate            : 128\n"
            "Framesize          : 1536\nDuration           : 2000\nMaxBufSize         : 4096\n"
            "Layer              : 3\nEmphasis           : 1\nMaxBitrate         : 640\npucExtraInfo       : [ac3]\n");
  EXPECT_TRUE(has(print(media_audio_info_print, {{MAI_AMT_TYPE_FLAGS, 3}, {MAI_AMT_MODE_FLAGS, 16}}, 0, ""),
                  "MediaType flags    : UNKNOWN\nAudio Mode flag    : UNKNOWN\n"));
}

using Session = ApiTest;

// Init refuses missing callbacks before anything else, then a second init.
// Engine failures are printed and translated and leave no engine (a failed
// engine keeps its event); a failed callback registration is only
// reported, without a line end.
TEST_F(Session, Init) {
  EXPECT_EQ(pmx_init(nullptr, on_eos), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_init(on_error, on_eos), PMX_ALREADY_INITIALIZED);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx.engine.load() | pmx.event.load(), 0u);
  EXPECT_EQ(pmx_init(on_error, nullptr), PMX_INVALID_ARG);
  const std::tuple<const char *, const char *, s32> cases[] = {
      {"event", "Media Init failed: 1\n", PMX_UNKNOWN},
      {"create=8", "Media Init failed: 8\n", PMX_OPEN_FAILED},
      {"register=3", "Mai engine failed to register callbacks: 3", PMX_OK}};
  for (const auto &[faults, text, status] : cases) {
    setenv("PMX_ENGINE_FAULTS", faults, 1);
    std::string out;
    EXPECT_EQ(run([] { return pmx_init(on_error, on_eos); }, &out), status) << faults;
    EXPECT_EQ(out, text);
    EXPECT_EQ(pmx.engine.load() != 0, status == PMX_OK) << faults;
    if (pmx.engine.load() == 0 && pmx.event.load() != 0) MAIOSEventDestroy(pmx.event.exchange(0));
  }
}

// Open refuses without an engine, then a missing file before the prescan
// prints anything, then a second file. A refused disconnect keeps the file
// open and a refused release keeps the engine: both can be tried again.
TEST_F(Session, OpenCloseAndRefusals) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_open(wav.c_str()), PMX_NOT_INITIALIZED);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  std::string out;
  EXPECT_EQ(open("/nonexistent/clip.wav", &out), PMX_FILE_NOT_FOUND);
  EXPECT_EQ(out, "");
  ASSERT_EQ(open(wav, &out), PMX_OK);
  EXPECT_FALSE(has(out, "failed to connect")) << out;
  EXPECT_EQ(open(wav), PMX_FILE_ALREADY_OPEN);
  EXPECT_EQ(pmx_waitforstate(PMX_STATE_STOPPED), PMX_OK);
  EXPECT_EQ(pmx_waitforstate(3), PMX_FAILED);
  ASSERT_EQ(pmx_debug("sim fault disconnect=22,release=22"), 0);
  EXPECT_EQ(run(pmx_close, &out), PMX_BUSY);
  EXPECT_TRUE(has(out, "stopping \n") && has(out, "MAI Engine failed to disconnect: 22\n")) << out;
  EXPECT_EQ(pmx.is_open.load(), 1);
  EXPECT_EQ(run(pmx_close), PMX_OK);
  EXPECT_EQ(pmx_close(), PMX_NO_FILE_OPEN);
  const u32 engine = pmx.engine.load();
  EXPECT_EQ(run(pmx_release, &out), PMX_BUSY);
  EXPECT_EQ(out, "MAI Engine failed to release: 22\n");
  EXPECT_EQ(pmx.engine.load(), engine);
}

// The "pmi_" mode skips the automatic attempt (reported as failed with 1)
// and connects by hand. When the prescan could not open the file, its
// status is returned unchanged, without a manual attempt.
TEST_F(Session, PrefixModeAndUnreadableFile) {
  const std::string wav = fixtures::media("tone.wav"), dir = testing::TempDir() + "folder.wav";
  mkdir(dir.c_str(), 0755);
  pmx.support = PMX_SUPPORT_PMI;
  std::string out;
  EXPECT_EQ(open(wav, &out), PMX_OK);
  EXPECT_TRUE(has(out, "solution name =[pmi_pcm]\nMai engine failed to connect to " + wav +
                           ": 1\nPmx manual trying ...")) << out;
  EXPECT_FALSE(has(out, "trial failed")) << out;
  run(pmx_close);
  pmx.support = 0;
  EXPECT_EQ(open(dir, &out), static_cast<s32>(MAIOS_FILE_OPEN_FAILED));
  EXPECT_TRUE(has(out, "solution name =[]\nMai engine failed to connect to " + dir)) << out;
  EXPECT_FALSE(has(out, "trial failed")) << out;
  EXPECT_EQ(pmx.is_open.load(), 0);
}

// Pictures 480 wide or 272 high in the older Windows Media solutions get a
// warning through the error callback; WMV9 never does.
TEST_F(Session, OlderWindowsMediaWarnsOnLargePictures) {
  struct Case {
    const char *tag;
    u32 w, h;
    bool warned;
  };
  for (const Case &c : {Case{"WMV2", 480, 200, true}, {"WMV1", 320, 272, true}, {"WMV2", 479, 271, false},
                        {"WMV3", 640, 480, false}}) {
    doubles::asf = {1, [&](MediaInfo *r) {
                      r->play_time = 2000;
                      r->video_codec = FourCC(reinterpret_cast<const u8 *>(c.tag));
                      r->video_width = c.w;
                      r->video_height = c.h;
                      r->audio[0].audio_codec = WAVE_FORMAT_WMA2;
                      r->audio_count = 1;
                    }};
    reset_callbacks();
    EXPECT_EQ(open(fixtures::media("wmv2_wma.wmv")), PMX_OK);
    EXPECT_EQ(errors() == std::vector<int>{PMX_WMV78_RESOLUTION_WARNNING}, c.warned) << c.tag << " " << c.w;
    EXPECT_EQ(run(pmx_close), PMX_OK);
  }
}

// MP3 and FLAC, and with S/PDIF on AVI files with AC-3 or DTS audio, connect
// by the solution's name (the engine's own choice fails here) after the
// prescan's stream-info hint has gone to the engine.
TEST_F(Session, NamedSolutionsGetTheStreamInfoHint) {
  struct Case {
    const char *file;
    u32 video, audio;
    const char *shown;
    u32 at, value;  // a word of the hint
  };
  const Case cases[] = {
      {"tone.mp3", 0, WAVE_FORMAT_MPEGLAYER3, "solution name =[mp3]\n", 36, 128000},
      {"tone.flac", 0, 0, "solution name =[flac]\n", 4, 0x404},
      {"xvid_ac3.avi", fourcc("DX50"), WAVE_FORMAT_AC3, "Detected DTS Stream...soution name = [divx_spdif]\n", 28,
       2000},
      {"xvid_ac3.avi", fourcc("wmv3"), WAVE_FORMAT_DTS, "Detected DTS Stream...soution name = [aviwmv_spdif]\n", 28,
       2000}};
  pmx.spdif = 1;
  for (const Case &c : cases) {
    doubles::riff = doubles::mpa = {1, [&](MediaInfo *r) {
                                      r->play_time = 2000;
                                      r->video_codec = c.video;
                                      r->video_width = r->video_height = c.video ? 240 : 0;
                                      r->audio[0].audio_codec = c.audio;
                                      r->audio[0].audio_bitrate = 128000;
                                      r->audio_count = 1;
                                    }};
    ASSERT_EQ(pmx_debug("sim fault auto=8"), 0);
    std::string out;
    EXPECT_EQ(open(fixtures::media(c.file), &out), PMX_OK);
    EXPECT_TRUE(has(out, c.shown) && !has(out, "failed to connect")) << out;
    std::array<u8, MAI_PARAM_STREAM_INFO_SIZE> hint{};
    EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_STREAM_INFO, hint.data(), hint.size()), 0u);
    EXPECT_EQ(LittleEndian2int32u(hint.data()), MAI_PARAM_STREAM_INFO_SIZE) << c.file;
    EXPECT_EQ(LittleEndian2int32u(hint.data() + c.at), c.value) << c.file;
    ASSERT_EQ(run(pmx_close), PMX_OK);
    pmx_debug("sim fault clear");
  }
}

// Progress reports: only component reports of components downstream of the
// demultiplexer count; an end needs the stream-end flag and neither abort
// nor flush. End of stream signals the event, is handed on as 19 and
// stops; while fast forward or rewind runs nothing is reported. The next
// open starts without the end.
TEST_F(Session, ProgressReportFilter) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  struct Case {
    u32 kind, flags, component;
    bool trick, start, end;
  };
  const Case cases[] = {
      {MAI_PROGRESS_COMPONENT, 0x1, MAI_COMP_RENDERER, false, true, false},
      {MAI_PROGRESS_COMPONENT, 0x1, MAI_COMP_SOURCE, false, false, false},
      {MAI_PROGRESS_POSITION, 0x1, MAI_COMP_RENDERER, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x200010, MAI_COMP_DECODER, false, false, true},
      {MAI_PROGRESS_COMPONENT, 0x200011, 7, false, true, true},
      {MAI_PROGRESS_COMPONENT, 0x200010, MAI_COMP_DEMUX, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x000010, MAI_COMP_RENDERER, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x200000, MAI_COMP_RENDERER, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x210010, MAI_COMP_RENDERER, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x220010, MAI_COMP_RENDERER, false, false, false},
      {MAI_PROGRESS_COMPONENT, 0x200011, MAI_COMP_RENDERER, true, false, false}};
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.kind << "/" << c.flags << "/" << c.component);
    const u32 state = c.trick ? PMX_STATE_TRICK : PMX_STATE_PLAYING;
    pmx.running = pmx.at_eos = 0;
    pmx.state = state;
    const int before = eos_calls.load();
    std::array<u32, MAI_PROGRESS_WORDS> record{};
    record[MAI_PROG_FLAGS] = c.flags;
    record[MAI_PROG_COMPONENT_TYPE] = c.component;
    std::string out;
    EXPECT_EQ(run([&] { return mai_prog_cb(c.kind, record.data()); }, &out), 0u);
    EXPECT_EQ(has(out, "PMX internelsd: ProgressCB: START\n"), c.start) << out;
    EXPECT_EQ(has(out, "PMX internel: ProgressCB: Component reached EndOfStream\n"
                       "PMX internel: MAIOSEventWait status = 0\n"), c.end) << out;
    EXPECT_EQ(MAIOSEventWait(pmx.event.load(), 1) == 0, c.end);  // the signal is pending
    EXPECT_EQ(eos_calls.load() - before, c.end ? 1 : 0);
    EXPECT_EQ(pmx.at_eos.load(), c.end ? 1 : 0);
    EXPECT_EQ(pmx.state.load(), c.end ? PMX_STATE_STOPPED : state);
    EXPECT_EQ(pmx.running.load(), (c.start && !c.end) ? 1 : 0);  // the end clears a start of the same report
  }
  EXPECT_EQ(eos_status.load(), 19);
  EXPECT_EQ(pmx.is_open.load(), 1);
  run(pmx_close);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(pmx.at_eos.load(), 0);
}

// The engine's error reports are printed with the engine's text and handed
// on translated; an unsupported stream is marked, with a callback or not.
TEST_F(Session, EngineErrorCallback) {
  const std::tuple<u32, bool, const char *, u8> cases[] = {
      {40, true, "PMX EngineErrorCB(0x28/0x5) MAI_E_UNSUPPORTEDFORMAT", 1},
      {8, true, "PMX EngineErrorCB(0x8/0x5) MAI_E_OPENFAILED", 0},
      {40, false, "No Error callback function registered.", 1}};
  for (const auto &[code, registered, shown, unsupported] : cases) {
    if (!registered) pmx_release();
    pmx.unsupported = 0;
    std::string out;
    EXPECT_EQ(run([n = code] { return mai_err_cb(nullptr, n, 5); }, &out), 0u);
    EXPECT_TRUE(has(out, shown)) << out;
    EXPECT_EQ(pmx.unsupported.load(), unsupported) << code;
  }
  EXPECT_EQ(errors(), (std::vector<int>{PMX_UNSUPPORTED_FORMAT, PMX_OPEN_FAILED}));
}

}  // namespace
