// Status codes and their printing; the engine session from init to release.
#include <array>
#include <map>

#include "platform/mai_os.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

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

}  // namespace
