// The media control API on the host engine and the virtual board: status
// codes and printouts, the session from init to release, the transport, the
// display and audio controls.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "api/pmx_internal.h"
#include "hw/audio_api.h"
#include "hw/lcd_tv_switch.h"
#include "info/byte_order.h"
#include "platform/mai_engine.h"
#include "platform/mai_os.h"
#include "sim/board/board.h"
#include "tests/doubles/scanner_doubles.h"
#include "tests/support/fixtures.h"

namespace {

// The engine calls back on its own threads.
std::mutex seen_lock;
std::vector<int> errors_seen;
std::atomic<int> eos_calls{0}, eos_status{0};

int on_error(int status) {
  std::lock_guard<std::mutex> hold(seen_lock);
  errors_seen.push_back(status);
  return 0;
}
int on_eos(int status) {
  eos_status = status;
  ++eos_calls;
  return 0;
}
std::vector<int> errors(bool clear = false) {
  std::lock_guard<std::mutex> hold(seen_lock);
  std::vector<int> seen = errors_seen;
  if (clear) errors_seen.clear();
  return seen;
}

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

// What a call returns and prints (checks belong outside: a failure printed
// while output is captured would be lost); run() only what it returns.
using Said = std::pair<s32, std::string>;
template <typename F>
Said said(F call) {
  testing::internal::CaptureStdout();
  const s32 result = static_cast<s32>(call());
  return {result, testing::internal::GetCapturedStdout()};
}
template <typename F>
auto run(F call) {
  testing::internal::CaptureStdout();
  auto result = call();
  testing::internal::GetCapturedStdout();
  return result;
}

// Has a scripted scanner recognise the next file of its kind.
void script(doubles::Scanner &scanner, u32 video, u32 width, u32 height, u32 audio, float aspect = 0,
                   u32 rate = 44100) {
  scanner = {1, [=](MediaInfo *r) {
               r->play_time = 2040, r->video_codec = video, r->video_width = width, r->video_height = height;
               r->aspect_ratio = aspect, r->frame_rate = 25, r->audio_count = 1;
               r->audio[0].audio_codec = audio, r->audio[0].audio_bitrate = 128000;
               r->audio[0].audio_sample_rate = rate, r->audio[0].audio_channels = 2;
             }};
}
void script_avi(u32 width, u32 height, float aspect = 0, u32 rate = 44100) {
  script(doubles::riff, fourcc("XVID"), width, height, WAVE_FORMAT_MPEGLAYER3, aspect, rate);
}

// Every test starts with an initialised engine and no file; whatever it
// leaves open or initialised is closed and released afterwards.
class ApiTest : public testing::Test {
 protected:
  void SetUp() override {
    doubles::reset();
    errors(true);
    ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  }
  void TearDown() override {
    unsetenv("PMX_ENGINE_FAULTS");
    if (pmx.engine.load() != 0) {
      pmx_debug("sim fault clear");
      run(pmx_close);
      EXPECT_EQ(pmx_release(), PMX_OK);
    }
    pmx.support = pmx.tv_out = pmx.speed_index = pmx.normal_speed_index = 0;
    pmx.spdif = pmx.display_set = 0;
    pmx.running = 0;
  }
  static s32 open(const std::string &path) {
    return run([&] { return pmx_open(path.c_str()); });
  }
};

// Engine statuses and the API statuses they become; every other is 15.
TEST(Status, Translation) {
  ASSERT_EQ(pmx_init(nullptr, nullptr), PMX_INVALID_ARG);  // fills the table before it checks its arguments
  const std::map<u32, s32> mapped = {{0, 0}, {1, 15}, {2, 12}, {3, 3}, {7, 6}, {8, 9}, {11, 10}, {18, 13},
                                     {21, 11}, {22, 2}, {25, 8}, {40, 7}, {0x1003, 22}, {0x1001, 23},
                                     {0x1002, 24}, {0x1000, 25}, {0x1005, 20}, {0x1004, 21}, {0x10100000, 18},
                                     {0x10200000, 19}, {0x1006, 15}, {0x500006, 15}, {0xFFFFFFFF, 15}};
  for (u32 s = 0; s < 48; ++s) EXPECT_EQ(pmx_translate(s), mapped.count(s) ? mapped.at(s) : 15) << s;
  for (auto [engine, api] : mapped) EXPECT_EQ(pmx_translate(engine), api) << std::hex << engine;
}

// Status texts stop at 17; without a command only the text is printed.
TEST(Status, Printing) {
  const std::tuple<const char *, u32, const char *> cases[] = {
      {"OPEN", 17, "command [OPEN] : PMX_WMV78_RESOLUTION_WARNNING\n"}, {nullptr, 6, "PMX_FILE_NOT_FOUND\n"},
      {nullptr, 18, "\n"}, {"X", 26, "command [X] : \n"}};
  for (const auto &[command, code, text] : cases)
    EXPECT_EQ(said([c = command, n = code] { pmx_print_error(c, n); return 0; }).second, text) << code;
}

std::string printed(void (*print)(const u8 *), std::initializer_list<std::pair<u32, u32>> words, u32 extra_at,
                    const std::string &extra) {
  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> r{};
  for (auto [at, value] : words) put_le32(&r[at], value);
  extra.copy(reinterpret_cast<char *>(&r[extra_at]), extra.size());
  return said([&] { print(r.data()); return 0; }).second;
}

using Session = ApiTest;

// The file printout; an unlisted value prints nothing (the next label follows
// on the same line); extra texts end at their NUL or the record's end.
TEST_F(Session, Printers) {
  EXPECT_EQ(printed(media_vedio_info_print,
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
  const std::string odd = printed(media_vedio_info_print,
                                  {{MAI_VMT_MAJOR, 3}, {MAI_VMT_SUBTYPE, 99}, {MAI_VMT_FRAMERATE, 12500}},
                                  MAI_VMT_EXTRA, full);
  EXPECT_TRUE(odd.starts_with("MediaType          : MediaSubType       : Can't find video type\n"
                              "FrameRate          : AverageBitrate     : 0\n") &&
              odd.ends_with("ExtraInfo          : " + full + "\n")) << odd;
  EXPECT_EQ(printed(media_audio_info_print,
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
  EXPECT_TRUE(has(printed(media_audio_info_print, {{MAI_AMT_TYPE_FLAGS, 3}}, MAI_AMT_EXTRA, ""),
                  "MediaType flags    : UNKNOWN\nAudio Mode flag    : UNKNOWN\n"));
  std::array<u32, PMX_DISPLAY_WORDS> display{};
  display[DISPLAY_FLAGS] = DISPLAY_CENTER | DISPLAY_KEYCOLOR;
  display[DISPLAY_X] = 1, display[DISPLAY_Y] = 2, display[DISPLAY_WIDTH] = 3, display[DISPLAY_HEIGHT] = 4;
  MAIengine_SetParam(pmx.engine.load(), MAI_PARAM_DISPLAY, display.data(), MAI_PARAM_DISPLAY_SIZE);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  const std::string out = said([] { pmx_print_fileinfo(); return 0; }).second;
  EXPECT_TRUE(out.starts_with("\n\t[FILE INFORMATION]\nMai Get Video info failed: 9\n\n\t[video source info]\n\n"
                              "MediaType          : MediaType is unspecified.\n") &&
              has(out, "\n\t[audio source info]\n\nMediaType          : Audio MediaType\n"
                       "MediaSubType       : PCM Audio \nMediaType flags    : CBR\nAudio Mode flag    : UNKNOWN\n"
                       "SamplesPerSec      : 44100\nBitsPerSample      : 16\nChannels           : 2\n") &&
              out.ends_with("\n\t[CURRENT DISPLAY SETTING INFORMATION]\n\nXpos               : 1\n"
                            "Ypos               : 2\nX Size             : 3\nY Size             : 4\n"
                            "NONE flag          : OFF\nENABLE flag        : OFF\nNOMIX flag         : OFF\n"
                            "CENTER flag        : ON\nSOURCERECT flag    : OFF\nDESTRECT flag      : OFF\n"
                            "KEYCOLOR   flag    : ON\nKEYMASK flag       : OFF\n")) << out;
}

// Init refusals; a failed callback registration is only reported.
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
    EXPECT_EQ(said([] { return pmx_init(on_error, on_eos); }), Said(status, text)) << faults;
    EXPECT_EQ(pmx.engine.load() != 0, status == PMX_OK) << faults;
    if (pmx.engine.load() == 0 && pmx.event.load() != 0) MAIOSEventDestroy(pmx.event.exchange(0));  // kept on failure
  }
}

// Open refusals; a refused disconnect keeps the file, a refused release the engine.
TEST_F(Session, RefusedOpenCloseAndRelease) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_open(wav.c_str()), PMX_NOT_INITIALIZED);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
  EXPECT_EQ(said([] { return pmx_open("/nonexistent/clip.wav"); }), Said(PMX_FILE_NOT_FOUND, ""));
  ASSERT_EQ(open(wav), PMX_OK);
  EXPECT_EQ(open(wav), PMX_FILE_ALREADY_OPEN);
  EXPECT_EQ(pmx_waitforstate(PMX_STATE_STOPPED), PMX_OK);
  EXPECT_EQ(pmx_waitforstate(3), PMX_FAILED);
  ASSERT_EQ(pmx_debug("sim fault disconnect=22,release=22"), 0);
  const auto [busy, out] = said(pmx_close);
  EXPECT_TRUE(busy == PMX_BUSY && has(out, "stopping \n") && has(out, "MAI Engine failed to disconnect: 22\n")) << out;
  EXPECT_EQ(run(pmx_close), PMX_OK);
  EXPECT_EQ(pmx_close(), PMX_NO_FILE_OPEN);
  const u32 engine = pmx.engine.load();
  EXPECT_EQ(said(pmx_release), Said(PMX_BUSY, "MAI Engine failed to release: 22\n"));
  EXPECT_EQ(pmx.engine.load(), engine);
}

// Unknown files, the "pmi_" mode, a failed manual attempt, an unreadable file.
TEST_F(Session, OpenAttempts) {
  const std::string wav = fixtures::media("tone.wav"), odd = testing::TempDir() + "tone.xyz";
  const std::string dir = testing::TempDir() + "folder.wav", failed = "Mai engine failed to connect to ";
  ASSERT_EQ(std::system(("cp " + wav + " " + odd + " && mkdir -p " + dir).c_str()), 0);
  const std::tuple<const char *, std::string, s32, std::string, const char *> cases[] = {
      {"", odd, PMX_UNKNOWN_FORMAT, "PMX_Prescan failed Solution type=0\n", "solution name"},
      {"pmi", wav, PMX_OK, "solution name =[pmi_pcm]\n" + failed + wav + ": 1\nPmx manual trying ...", "trial"},
      {"sim fault connect=8:2", wav, PMX_OPEN_FAILED,
       "Pmx manual trying ...Pmx manual trial failed to connect to " + wav + ": 8\n", "Solution type=0"},
      {"", dir, static_cast<s32>(MAIOS_FILE_OPEN_FAILED), "solution name =[]\n" + failed + dir + ": ", "trial"}};
  for (const auto &[setup, path, status, shown, not_shown] : cases) {
    pmx.support = std::string(setup) == "pmi" ? PMX_SUPPORT_PMI : 0;
    if (*setup != '\0' && pmx.support == 0) pmx_debug(setup);
    const auto [result, out] = said([p = path] { return pmx_open(p.c_str()); });
    EXPECT_TRUE(result == status && has(out, shown) && !has(out, not_shown)) << result << " " << out;
    run(pmx_close);
  }
}

// Older Windows Media pictures 480 wide or 272 high get a warning; WMV9 never.
TEST_F(Session, OlderWindowsMediaWarnsOnLargePictures) {
  const std::tuple<const char *, u32, u32, bool> cases[] = {
      {"WMV2", 480, 200, true}, {"WMV1", 320, 272, true}, {"WMV2", 479, 271, false}, {"WMV3", 640, 480, false}};
  for (const auto &[tag, w, h, warned] : cases) {
    script(doubles::asf, FourCC(reinterpret_cast<const u8 *>(tag)), w, h, WAVE_FORMAT_WMA2);
    errors(true);
    EXPECT_EQ(open(fixtures::media("wmv2_wma.wmv")), PMX_OK);
    EXPECT_EQ(errors() == std::vector<int>{PMX_WMV78_RESOLUTION_WARNNING}, warned) << tag << " " << w;
    run(pmx_close);
  }
}

// MP3, FLAC and (S/PDIF on) AVI with AC-3 or DTS connect by name with the
// stream-info hint; others try the engine's own choice first (failing here).
TEST_F(Session, NamedSolutionsGetTheStreamInfoHint) {
  const std::string ac3 = fixtures::media("xvid_ac3.avi");
  const std::tuple<const char *, doubles::Scanner *, u32, u32, u8, std::string, u32, u32> cases[] = {
      {"xvid_ac3.avi", &doubles::riff, fourcc("XVID"), WAVE_FORMAT_AC3, 0,
       "solution name =[avimpv4_ac3]\nMai engine failed to connect to " + ac3 + ": 8\nPmx manual trying ...", 28, 0},
      {"tone.mp3", &doubles::mpa, 0, WAVE_FORMAT_MPEGLAYER3, 1, "solution name =[mp3]\n", 36, 128000},
      {"tone.flac", nullptr, 0, 0, 0, "solution name =[flac]\n", 4, 0x404},
      {"xvid_ac3.avi", &doubles::riff, fourcc("DX50"), WAVE_FORMAT_AC3, 1,
       "Detected DTS Stream...soution name = [divx_spdif]\n", 28, 2040},
      {"xvid_ac3.avi", &doubles::riff, fourcc("wmv3"), WAVE_FORMAT_DTS, 1,
       "Detected DTS Stream...soution name = [aviwmv_spdif]\n", 28, 2040}};  // a word of the hint at the end
  for (const auto &[file, scanner, video, audio, spdif, shown, at, value] : cases) {
    if (scanner != nullptr) script(*scanner, video, 320, 240, audio);
    pmx.spdif = spdif;
    ASSERT_EQ(pmx_debug("sim fault auto=8"), 0);
    const auto [result, out] = said([f = fixtures::media(file)] { return pmx_open(f.c_str()); });
    EXPECT_TRUE(result == PMX_OK && has(out, shown) && (value == 0) == has(out, "failed to connect")) << out;
    std::array<u8, MAI_PARAM_STREAM_INFO_SIZE> hint{};
    MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_STREAM_INFO, hint.data(), hint.size());
    EXPECT_EQ(std::make_pair(LittleEndian2int32u(hint.data()), LittleEndian2int32u(hint.data() + at)),
              std::make_pair(value ? MAI_PARAM_STREAM_INFO_SIZE : 0, value)) << file;
    run(pmx_close);
    pmx_debug("sim fault clear");
  }
}

// Which progress reports start and end the stream (none in trick play).
TEST_F(Session, ProgressReportFilter) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  constexpr u32 C = MAI_PROGRESS_COMPONENT, R = MAI_COMP_RENDERER;
  const std::tuple<u32, u32, u32, bool, bool, bool> cases[] = {  // kind, flags, component, trick, start, end
      {C, 0x1, R, false, true, false},          {C, 0x1, MAI_COMP_SOURCE, false, false, false},
      {MAI_PROGRESS_POSITION, 0x1, R, false, false, false},    {C, 0x200011, 7, false, true, true},
      {C, 0x200010, MAI_COMP_DEMUX, false, false, false},      {C, 0x000010, R, false, false, false},
      {C, 0x200000, R, false, false, false},    {C, 0x210010, R, false, false, false},
      {C, 0x220010, R, false, false, false},    {C, 0x200011, R, true, false, false}};
  for (const auto &[kind, flags, component, trick, start, end] : cases) {
    const u32 state = trick ? PMX_STATE_TRICK : PMX_STATE_PLAYING, before = eos_calls.load();
    pmx.running = 0;
    pmx.state = state;
    std::array<u32, MAI_PROGRESS_WORDS> record{};
    record[MAI_PROG_FLAGS] = flags;
    record[MAI_PROG_COMPONENT_TYPE] = component;
    const std::string out = said([&, k = kind] { return mai_prog_cb(k, record.data()); }).second;
    EXPECT_EQ(std::make_tuple(out, MAIOSEventWait(pmx.event.load(), 1) == 0, eos_calls.load() - before,
                              pmx.state.load(), pmx.running.load()),
              std::make_tuple(std::string(start ? "PMX internelsd: ProgressCB: START\n" : "") +
                                  (end ? "PMX internel: ProgressCB: Component reached EndOfStream\n"
                                         "PMX internel: MAIOSEventWait status = 0\n" : ""),
                              end, u32(end), end ? PMX_STATE_STOPPED : state, start && !end))
        << std::hex << kind << "/" << flags << "/" << component;
  }
  EXPECT_EQ(eos_status.load(), 19);
}

// Engine errors printed and handed on translated; unsupported streams marked.
TEST_F(Session, EngineErrorCallback) {
  const std::tuple<u32, bool, const char *, u8> cases[] = {
      {40, true, "PMX EngineErrorCB(0x28/0x5) MAI_E_UNSUPPORTEDFORMAT", 1},
      {8, true, "PMX EngineErrorCB(0x8/0x5) MAI_E_OPENFAILED", 0},
      {40, false, "No Error callback function registered.", 1}};
  for (const auto &[code, registered, shown, unsupported] : cases) {
    if (!registered) pmx_release();
    pmx.unsupported = 0;
    const std::string out = said([n = code] { return mai_err_cb(nullptr, n, 5); }).second;
    EXPECT_TRUE(has(out, shown) && pmx.unsupported.load() == unsupported) << out;
  }
  EXPECT_EQ(errors(), (std::vector<int>{PMX_UNSUPPORTED_FORMAT, PMX_OPEN_FAILED}));
}

using Transport = ApiTest;

// The engine's own reading of the stream clock: start and current position.
std::pair<u64, u64> engine_clock() {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  put_le32(rec.data(), MAI_STREAM_TIME_SIZE);
  MAIengine_GetStreamMediaType(pmx.engine.load(), rec.data());
  return {LittleEndian2int64u(rec.data() + MAI_STIME_START), LittleEndian2int64u(rec.data() + MAI_STIME_CURRENT)};
}

// The first play after an open fits the picture once the renderer starts, or
// without a start report after 10000 polls of at least 10 us.
TEST_F(Transport, PlayFitsThePictureOnceTheRendererRuns) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  script_avi(320, 240);
  ASSERT_EQ(open(avi), PMX_OK);
  auto [result, out] = said(pmx_play);
  const size_t start = out.find("PMX internelsd: ProgressCB: START\n");
  const size_t fit = out.find("max xsize =480,max ysize =272 \n");
  EXPECT_TRUE(result == PMX_OK && start < fit && fit != std::string::npos) << out;
  run(pmx_pause);
  std::tie(result, out) = said(pmx_play);
  EXPECT_TRUE(result == PMX_OK && !has(out, "max xsize")) << out;
  run(pmx_close);
  ASSERT_EQ(open(avi), PMX_OK);
  ASSERT_EQ(pmx_debug("sim fault nostart"), 0);
  const auto began = std::chrono::steady_clock::now();
  std::tie(result, out) = said(pmx_play);
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(100));
  EXPECT_TRUE(result == PMX_OK && !has(out, "ProgressCB: START") && has(out, "dstXsize[480],dstYsize[90]\n")) << out;
}

// Refusals without a file; speed codes as 16.16 engine rates (top bit: reverse);
// an unsupported stream found during play stops it.
TEST_F(Transport, PlayRefusals) {
  for (s32 (*call)() : {pmx_play, pmx_pause, pmx_stop}) EXPECT_EQ(call(), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_NONE);
  EXPECT_EQ(pmx_fast_rewind(PMX_SPEED_2X), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx.state.load(), PMX_STATE_TRICK);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  auto [result, out] = said([] { return pmx_fast_rewind(9); });
  EXPECT_TRUE(result == PMX_OK && has(out, "play speed = 0x80010000\n") && has(out, "command PLAY (1) 0x80010000 "))
      << out;
  std::tie(result, out) = said([] { return pmx_fast_forward(PMX_SPEED_SIXTEENTH); });
  EXPECT_TRUE(result == PMX_OK && has(out, "play speed = 0x00001000\n") && has(out, "command PLAY (1) 0x1000 ")) << out;
  ASSERT_EQ(pmx_debug("sim fault error40"), 0);
  std::tie(result, out) = said(pmx_play);
  EXPECT_TRUE(result == PMX_UNSUPPORTED_FORMAT && has(out, "media_play status = 0\n") && has(out, "stopping \n"))
      << out;
  EXPECT_EQ(errors(), std::vector<int>{PMX_UNSUPPORTED_FORMAT});
  EXPECT_EQ(pmx.state.load(), PMX_STATE_STOPPED);
  EXPECT_EQ(pmx_get_state(), 8u);
}

// Seek types as the engine's modes; other types never sent; program streams refused.
TEST_F(Transport, SeekTypesAndTheirEngineModes) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  ASSERT_EQ(pmx_debug("debug commands on"), 0);
  const std::tuple<u32, u32, const char *, s32, u64> cases[] = {  // the engine's trace, the position afterwards
      {PMX_SEEK_POS, 500, "0x0 500 ", PMX_OK, 500},         {PMX_SEEK_TIME, 700, "0x4 700 ", PMX_OK, 700},
      {PMX_SEEK_PERCENT, 50, "0x2 5000 ", PMX_OK, 1000},    {PMX_SEEK_NEXT_KEY, 0, "0x104 0 ", PMX_OK, 2000},
      {PMX_SEEK_PREV_KEY, 0, "0x105 0 ", PMX_OK, 1000},
      {PMX_SEEK_TIME, 5000, "0x4 5000 ", PMX_INVALID_ARG, 1000},  // beyond the end
      {0, 10, nullptr, PMX_INVALID_ARG, 1000},              {6, 10, nullptr, PMX_INVALID_ARG, 1000}};
  for (const auto &[type, value, command, status, at] : cases) {
    const auto [result, out] = said([t = type, v = value] { return pmx_seek(t, v); });
    const bool sent = command != nullptr;
    EXPECT_TRUE(has(out, "] seek_type = [" + std::to_string(type) + "]\n") &&
                has(out, "command SEEK") == sent && (!sent || has(out, std::string("command SEEK (512) ") + command)) &&
                has(out, "PMX:SEEK failed!! [3]\n") == (sent && status != PMX_OK)) << out;
    EXPECT_EQ(std::make_tuple(result, pmx_get_state() != 12u, engine_clock().second), std::make_tuple(status, true, at))
        << type;
  }
  run(pmx_close);
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  EXPECT_EQ(said([] { return pmx_seek(PMX_SEEK_TIME, 500); }),
            Said(PMX_INVALID_ARG, "MPEG-> NOT SUPPORTED AT THIS TIME !!\n"));
}

// Steps through the resampler's rates within 40..160 percent of the table
// position; a step outside is taken back, even one not made at a table end.
TEST_F(Transport, SpeedChange) {
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  const std::tuple<u32, u32, u32, u32, u32, const char *, u32> cases[] = {
      // normal and current index, direction; percent, index, text and engine rate afterwards (0: unchanged)
      {5, 7, PMX_PLAYSPEED_FASTER, 160, 8, "Play Speed [160%][48000]\n", 48000},
      {7, 11, PMX_PLAYSPEED_FASTER, 157, 11, "Keeping Play Speed [157%]\n", 0},
      {5, 3, PMX_PLAYSPEED_SLOWER, 40, 2, "Play Speed [40%][12000]\n", 12000},
      {7, 3, PMX_PLAYSPEED_SLOWER, 42, 3, "Keeping Play Speed [42%]\n", 0},
      {7, 8, 3, 114, 8, "Play Speed [114%][48000]\n", 48000},
      {1, 0, PMX_PLAYSPEED_SLOWER, 100, 1, "Keeping Play Speed [100%]\n", 0},
      {13, 13, PMX_PLAYSPEED_FASTER, 100, 13, "Play Speed [100%][192000]\n", 192000},
      {2, 4, 3, 200, 4, "Keeping Play Speed [200%]\n", 0}};
  const auto engine_rate = [] {
    u32 rate = 0;
    MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_SAMPLE_RATE, &rate, sizeof rate);
    return rate;
  };
  for (const auto &[normal, index, direction, percent, index_after, printed, rate] : cases) {
    pmx.normal_speed_index = normal;
    pmx.speed_index = index;
    const u32 before = engine_rate();
    u32 got = 0;
    EXPECT_EQ(said([&, d = direction] { return pmx_change_playspeed(d, &got); }), Said(PMX_OK, printed));
    EXPECT_EQ(std::make_tuple(got, pmx.speed_index, engine_rate()),
              std::make_tuple(percent, index_after, rate != 0 ? rate : before)) << printed;
  }
  pmx.normal_speed_index = 0;
  EXPECT_EQ(said([] { return pmx_change_playspeed(PMX_PLAYSPEED_FASTER, nullptr); }),
            Said(PMX_FAILED, "Please, pmx_get_media_info() first ...\n"));
}

// Time of a file without video is the clock as it is; a failed query reads zero.
TEST_F(Transport, TimeOfAFileWithoutVideo) {
  u64 current = 9, total = 9;
  EXPECT_EQ(pmx_get_time(nullptr, &total), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_time(&current, &total), PMX_NO_FILE_OPEN);
  const auto time = [&] { return said([&] { return pmx_get_time(&current, &total); }); };
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(time(), Said(PMX_OK, "Mai Get Video info failed: 9\n"));  // the subtype, asked once per open
  EXPECT_EQ(std::make_tuple(current, total, eMSubtype), std::make_tuple(0u, 2000u, 0u));
  EXPECT_EQ(run([] { return pmx_seek(PMX_SEEK_TIME, 1234); }), PMX_OK);
  EXPECT_EQ(time(), Said(PMX_OK, ""));
  EXPECT_EQ(current, 1234u);
  ASSERT_EQ(pmx_debug("sim fault stream=22"), 0);
  EXPECT_EQ(time(), Said(PMX_BUSY, "Get Time Failed!!\n"));
  EXPECT_EQ(std::make_pair(current, total), std::make_pair(u64(0), u64(0)));
}

// WMV subtypes count from the stream's first time stamp; PES subtypes from the
// first reading at or beyond the play time (a low clock is taken as it is).
TEST_F(Transport, TimeBySubtype) {
  ASSERT_EQ(open(fixtures::media("mpeg2_mp2.mpg")), PMX_OK);
  u64 current = 0, total = 0;
  ASSERT_EQ(run([&] { return pmx_get_time(&current, &total); }), PMX_OK);
  const u64 start = engine_clock().first;
  EXPECT_EQ(std::make_tuple(eMSubtype, current), std::make_tuple(MAI_SUB_MPEG_VIDEO_PES2, start));
  ASSERT_GT(start, 0u);
  ASSERT_GT(total, start);
  const auto time_at = [&](u32 subtype, u64 seek_to) {
    eMSubtype = subtype;
    const u32 engine = pmx.engine.load();
    EXPECT_EQ(MAIengine_SendCommand(engine, MAI_CMD_SEEK, MAI_SEEK_TIME, u32(seek_to), 0, 0, MAI_WAIT_FOREVER), 0u);
    EXPECT_EQ(MAIengine_WaitForState(engine, MAI_STATE_READY, 1000), 0u);
    EXPECT_EQ(pmx_get_time(&current, &total), PMX_OK);
    return current;
  };
  for (const auto &[subtype, expected] : {std::pair<u32, u64>{MAI_SUB_WMV, 300}, {MAI_SUB_WMV9_ADVANCED, 300},
                                          {MAI_SUB_WMV - 1, start + 300}, {MAI_SUB_WMV9_ADVANCED + 1, start + 300}})
    EXPECT_EQ(time_at(subtype, 300), expected) << subtype;
  const u64 past_total = total - start + 100;  // a reading of total + 100 ms
  for (const u32 subtype : {MAI_SUB_MPEG1_VIDEO, MAI_SUB_MPEG2_VIDEO, MAI_SUB_MPEG_VIDEO_PES1, MAI_SUB_MPEG_VIDEO_PES2,
                            MAI_SUB_MPEG_AUDIO_PES1, MAI_SUB_MPEG_AUDIO_PES2, MAI_SUB_AC3_PES}) {
    pmx.time_base = 0;
    const std::array<u64, 4> got{time_at(subtype, 300), time_at(subtype, past_total),
                                 time_at(subtype, past_total + 250), pmx.time_base};  // in this order
    EXPECT_EQ(got, (std::array<u64, 4>{start + 300, 0, 250, total + 100})) << subtype;
  }
}

// Engine states as API states, stored; pause and stop wait for the engine.
TEST_F(Transport, StateFollowsTheEngine) {
  EXPECT_EQ(pmx_get_state(), 1u);  // idle
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(pmx_get_state(), 2u);  // connected
  ASSERT_EQ(pmx_debug("sim clock 10"), 0);
  const auto reaches = [](u32 state) {
    for (int ms = 0; ms < 3000 && pmx_get_state() != state; ++ms)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return pmx.state.load() == state;
  };
  const std::tuple<s32 (*)(), u32, bool> steps[] = {
      {pmx_play, 5, false}, {[] { return pmx_fast_forward(PMX_SPEED_2X); }, 6, false}, {pmx_pause, 7, true},
      {pmx_stop, 8, true},  {pmx_play, 5, false}};
  for (const auto &[command, state, waits] : steps) {
    ASSERT_EQ(run(command), PMX_OK);
    EXPECT_TRUE(!waits || pmx_get_state() == state) << state;
    EXPECT_TRUE(reaches(state)) << state;
  }
  EXPECT_TRUE(reaches(11));  // played to the end
  ASSERT_EQ(pmx_release(), PMX_OK);
  pmx.state = PMX_STATE_PLAYING;
  EXPECT_EQ(pmx_get_state(), 0u);
  EXPECT_EQ(pmx.state.load(), 0u);
}

using Lines = std::vector<std::string>;

// The codec set up as at start-up, the board log empty.
class DisplayAndAudio : public ApiTest {
 protected:
  void SetUp() override {
    board::reset();
    ApiTest::SetUp();
    run(pmx_set_audio_device_init);
    board::reset();
  }
  void TearDown() override {
    ApiTest::TearDown();
    board::reset();
  }
};

// x, y, width, height and the flags of the engine's display block.
std::array<u32, 5> window(u32 flags) {
  std::array<u32, PMX_DISPLAY_WORDS> b{};
  MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_DISPLAY, b.data(), MAI_PARAM_DISPLAY_SIZE);
  return {b[DISPLAY_X], b[DISPLAY_Y], b[DISPLAY_WIDTH], b[DISPLAY_HEIGHT], b[DISPLAY_FLAGS] & flags};
}
constexpr u32 FIT = DISPLAY_DESTRECT | DISPLAY_CENTER, PLACED = DISPLAY_DESTRECT | DISPLAY_POSITION;

// The fit by the engine's pixel aspect parts (4:1 for xvid_mp3.avi, 4:11 for
// ntsc_wide.avi), centred, dropping a position; no file 11, no video 9, no engine 1.
TEST_F(DisplayAndAudio, AutomaticFit) {
  const std::tuple<const char *, u32, u32, u32, u32, u32> cases[] = {  // file, TV, size, fitted size
      {"xvid_mp3.avi", 0, 480, 272, 480, 68},     // not wider than the LCD: h = 272 / 4
      {"xvid_mp3.avi", 0, 640, 480, 480, 90},     // wider: w = 4 x 640
      {"xvid_mp3.avi", 1, 720, 576, 640, 128},    // wider than the TV
      {"xvid_mp3.avi", 0, 0, 0, 0, 272},          // no size known
      {"ntsc_wide.avi", 0, 352, 240, 145, 272},   // h = 11 x 240 / 4
      {"ntsc_wide.avi", 0, 2000, 240, 480, 158}}; // w = 4 x 2000 / 11
  for (const auto &[file, tv, w, h, fit_w, fit_h] : cases) {
    script_avi(w, h);
    ASSERT_EQ(open(fixtures::media(file)), PMX_OK);
    pmx.tv_out = tv;
    run([] { return pmx_set_video_pos(33, 44); });
    EXPECT_EQ(said(media_setvideo_auto_display),
              Said(0, std::string(tv ? "max xsize =640,max ysize =480 \n" : "max xsize =480,max ysize =272 \n") +
                          "dstXsize[" + std::to_string(fit_w) + "],dstYsize[" + std::to_string(fit_h) + "]\n"));
    EXPECT_EQ(window(FIT), (std::array<u32, 5>{0, 0, fit_w, fit_h, FIT})) << file << " " << w << "x" << h;
    run(pmx_close);
  }
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_NOTCONNECTED);
  EXPECT_EQ(pmx_set_video_autosize(), PMX_NO_FILE_OPEN);
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  EXPECT_EQ(said(pmx_set_video_autosize),
            Said(PMX_UNKNOWN, "max xsize =480,max ysize =272 \nMai Get Video info failed: 9\n"));
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_FAIL);
}

// A side outside the TV's 640x480 (on the LCD too) is kept with a warning.
TEST_F(DisplayAndAudio, PositionAndSize) {
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NO_FILE_OPEN);
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  ASSERT_EQ(run(media_setvideo_auto_display), 0u);
  const std::string wide = " media_set_videoscale() warning MAX_WIDTH=[640] width:[";
  const std::string high = " media_set_videoscale() warning _MAX_HEIGHT=[480] height:[";
  EXPECT_EQ(said([] { return pmx_set_video_size(640, 480); }), Said(PMX_OK, ""));
  EXPECT_EQ(said([] { return pmx_set_video_size(0, 481); }), Said(PMX_OK, wide + "0]\n" + high + "481]\n"));
  EXPECT_EQ(said([] { return pmx_set_video_size(641, 0); }), Said(PMX_OK, wide + "641]\n" + high + "0]\n"));
  EXPECT_EQ(said([] { return pmx_set_video_pos(5000, 0); }), Said(PMX_OK, "video pos : xsize =640,ysize = 480\n"));
  EXPECT_EQ(window(FIT | PLACED), (std::array<u32, 5>{5000, 0, 640, 480, PLACED}));
  run(pmx_close);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_video_pos(1, 2), PMX_NOT_INITIALIZED);
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NOT_INITIALIZED);
}

// Coefficients 0, 3, 6 of the boot conversion move 4 per step from 50, capped at 100.
TEST_F(DisplayAndAudio, ColourGoesToTheMediaAccelerationEngine) {
  EXPECT_EQ(said([] { return pmx_set_video_color(101, 0, 0xFFFFFFFF); }), Said(PMX_OK, ""));
  EXPECT_EQ(board::log_lines(),
            (Lines{"mae open", "mae csc 1336 0 1634 904 4497 4928 1480 2065 0 61969 2169 61107", "mae close"}));
  board::set_absent("mae");
  EXPECT_EQ(said([] { return pmx_set_video_color(50, 50, 50); }),
            Said(PMX_OPEN_FAILED, "pmx_set_video_color: Failed to open mae_driver: -1\n"));
  board::set_absent("");
  board::set_failing("mae");
  EXPECT_EQ(said([] { return pmx_set_video_color(50, 50, 50); }),
            Said(PMX_FAILED, "pmx_set_video_color: Failed to send AU1XXXMAE_CSC: -1\n"));
  EXPECT_EQ(board::mae_conversions().size(), 1u);
}

// Direction 4 is component, 6 the LCD, refusals before the driver opens; a
// refused TV position leaves the driver open.
TEST_F(DisplayAndAudio, OutputSwitchAndTvPosition) {
  const std::string opened = "i2cdrv Driver open Succes!! device number : ";
  for (const auto &[direction, tv_out, request] :
       {std::tuple(4u, 1u, "i2cdrv ioctl 0x2000740d"), std::tuple(6u, 0u, "i2cdrv ioctl 0x2000740b")}) {
    board::reset();
    pmx.running = pmx.display_set = 1;
    const auto [result, out] = said([d = direction] { return pmx_set_video_direction(d); });
    EXPECT_TRUE(result == PMX_OK && out.starts_with(opened)) << out;
    // The renderer restarts; the next play fits anew.
    EXPECT_EQ(std::make_tuple(pmx.tv_out, pmx.running.load(), pmx.display_set), std::make_tuple(tv_out, 0, 0));
    EXPECT_EQ(board::log_lines(), (Lines{"i2cdrv open", request, "i2cdrv close"})) << direction;
  }
  board::reset();
  for (const u32 direction : {0u, 7u}) EXPECT_EQ(pmx_set_video_direction(direction), PMX_INVALID_ARG);
  for (const u32 state : {PMX_STATE_PLAYING, PMX_STATE_PAUSED}) {
    pmx.state = state;
    EXPECT_EQ(pmx_set_video_direction(2), PMX_WRONG_STATE);
  }
  EXPECT_EQ(pmx_set_tvout_position(100, 20), PMX_WRONG_STATE);  // on the LCD
  EXPECT_TRUE(board::log_lines().empty());
  pmx.state = PMX_STATE_STOPPED;
  pmx.display_set = 1;
  board::set_absent("i2cdrv");
  EXPECT_EQ(said([] { return pmx_set_video_direction(4); }),
            Said(PMX_FAILED, "ERROR: irdrv kernel module could not be opened\nTV Out Device Driver Open fail"));
  EXPECT_EQ(std::make_tuple(board::video_output(), pmx.tv_out, pmx.display_set),
            std::make_tuple(board::VideoOutput::lcd, 0u, 1));
  board::reset();
  pmx.tv_out = 1;
  EXPECT_EQ(run([] { return pmx_set_tvout_position(100, 20); }), PMX_OK);
  EXPECT_EQ(run([] { return pmx_set_tvout_position(87, 0); }), PMX_FAILED);
  EXPECT_EQ(board::log_lines(), (Lines{"i2cdrv open", "i2cdrv ioctl 0x80147410 x=0x64 y=0x14", "i2cdrv close",
                                       "i2cdrv open"}));
  i2cdrv_close();
}

// Only low bytes reach the codec; the S/PDIF flag follows the switch even
// without a codec; the wrappers' -1 becomes 1.
TEST_F(DisplayAndAudio, CodecArguments) {
  EXPECT_EQ(run([] { return pmx_set_volume(0x1000029); }), PMX_INVALID_ARG);
  EXPECT_TRUE(board::log_lines().empty());
  EXPECT_EQ(run([] { return pmx_set_volume(0x128); }), PMX_OK);
  EXPECT_EQ(pmx_get_volume(), 40);
  for (const auto &[output, on, spdif] : {std::tuple(OUTPUT_SPDIF, 1u, 1), std::tuple(OUTPUT_SPDIF, 0x100u, 0),
                                          std::tuple(OUTPUT_SPDIF, 0x1FFu, 1), std::tuple(OUTPUT_SPEAKER, 0u, 1)}) {
    EXPECT_EQ(run([o = output, v = on] { return pmx_set_audio_output_ctrl(o, v); }), PMX_OK);
    EXPECT_EQ(pmx.spdif, spdif) << output << " " << std::hex << on;
  }
  EXPECT_EQ(run([] { return pmx_set_audio_3D_ctrl(0x201, 0x107, 0x10A, 0x205); }), PMX_OK);
  EXPECT_EQ(std::make_tuple(board::mixer_register(0x22), board::mixer_register(0x08)), std::make_tuple(0x27, 0x1A05));
  EXPECT_EQ(run([] { return pmx_set_MIC_sensitivity(5); }), PMX_FAILED);
  board::set_absent("mixer");
  EXPECT_EQ(run([] { return pmx_set_audio_output_ctrl(OUTPUT_SPDIF, 0); }), PMX_FAILED);
  EXPECT_EQ(pmx.spdif, 0);
}

// Preset 8 clamps the caller's gains to +-12 like 7 and writes them back.
TEST_F(DisplayAndAudio, Equaliser) {
  std::array<s8, 5> bands{-128, 127, -12, 12, -13};
  EXPECT_EQ(run([&] { return pmx_set_EQ(8, bands.data()); }), PMX_OK);
  EXPECT_EQ(bands, (std::array<s8, 5>{-12, 12, -12, 12, -12}));
  EXPECT_EQ(pmx_set_EQ(9, bands.data()), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_set_EQ(0, nullptr), PMX_INVALID_ARG);
  EXPECT_EQ(pmx_get_EQ_band_value(nullptr), PMX_INVALID_ARG);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_EQ(9, bands.data()), PMX_INVALID_ARG);  // the argument first
  EXPECT_EQ(pmx_set_EQ(0, bands.data()), PMX_FAILED);
  EXPECT_EQ(pmx_get_EQ_band_value(bands.data()), PMX_FAILED);
}

// The prescan's information with the aspect in whole parts; the rate's index
// among the resampler's rates (0 means none, an unlisted rate keeps the old).
TEST_F(DisplayAndAudio, MediaInfo) {
  PmxMediaInfo info{};
  EXPECT_EQ(pmx_get_media_info(&info), PMX_NO_FILE_OPEN);
  const std::tuple<const char *, float, u32, u32, u32, u32, const char *> cases[] = {
      {"tone_8k_mono.wav", 0, 8000, 1, 0, 0, "current_src_order[0]\nNOT SUPPORT AUDIO TRICK MODE !!\n"},
      {"xvid_mp3.avi", 4.0f / 3, 44000, 2, 4, 3, "NOT SUPPORT AUDIO TRICK MODE !!\n"},
      {"xvid_mp3.avi", 16.0f / 9, 22050, 2, 16, 9, "current_src_order[4]\n"},
      {"xvid_mp3.avi", 1.85f, 44000, 2, 37, 20, ""}};
  for (const auto &[file, aspect, rate, channels, par_h, par_v, printed] : cases) {
    const bool avi = std::string(file).ends_with(".avi");
    if (avi) script_avi(720, 576, aspect, rate);
    ASSERT_EQ(open(fixtures::media(file)), PMX_OK);
    std::memset(&info, 0xAB, sizeof info);
    EXPECT_EQ(said([&] { return pmx_get_media_info(&info); }), Said(PMX_OK, printed));
    EXPECT_EQ(std::make_tuple(info.audio_sample_rate, u32(info.audio_channels), info.video_par_h, info.video_par_v,
                              info.video_width, info.video_aspect, info.tag[0], info.reserved1[0]),
              std::make_tuple(rate, channels, par_h, par_v, avi ? 720u : 0u, aspect, 0, 0))
        << file << " " << aspect;
    EXPECT_EQ(pmx_get_media_info(nullptr), PMX_INVALID_ARG);
    run(pmx_close);
  }
  EXPECT_EQ(pmx.normal_speed_index, 4u);
}

}  // namespace
