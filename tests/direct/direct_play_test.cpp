// The direct playback driver on the virtual board with the host builds of
// the engine's plug-ins: its result codes, what reaches /dev/dsp, stop and
// deinitialisation, the missing plug-in cases and the media control API's
// guard in front of it.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "api/pmx_internal.h"
#include "direct/direct_internal.h"
#include "sim/board/board.h"
#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

namespace directtest {
namespace {

// A file image and the 16-bit PCM it should play as.
struct Image {
  std::vector<u8> bytes;
  std::vector<s16> samples;  // interleaved
};

// `frames` sample frames of a sawtooth per channel; `extra_chunks` puts a
// LIST chunk of odd size (one pad byte) before the data and another chunk
// after it.
Image make_wav(u32 rate, u32 channels, u32 bits, u32 frames, bool extra_chunks = false) {
  Image w;
  std::vector<u8> data, &v = w.bytes;
  auto le = [](std::vector<u8> &to, u32 x, int bytes) {
    for (int i = 0; i < bytes; ++i) to.push_back(u8(x >> (8 * i)));
  };
  for (u32 f = 0; f < frames; ++f)
    for (u32 c = 0; c < channels; ++c) {
      const u8 u = u8(f * 3 + c * 40 + 1);
      w.samples.push_back(bits == 8 ? s16((u - 128) * 256) : s16(f * 97 + c * 5000 - 20000));
      le(data, bits == 8 ? u : u16(w.samples.back()), int(bits / 8));
    }
  auto chunk = [&](const char *tag, size_t size, std::vector<u8> body) {
    v.insert(v.end(), tag, tag + 4);
    le(v, u32(size), 4);
    v.insert(v.end(), body.begin(), body.end());
  };
  std::vector<u8> fmt;  // PCM, channels, rate, bytes per second and per frame, bits
  const std::pair<u32, int> fields[] = {{1, 2}, {channels, 2}, {rate, 4}, {rate * channels * bits / 8, 4},
                                        {channels * bits / 8, 2}, {bits, 2}};
  for (auto [x, n] : fields) le(fmt, x, n);
  chunk("RIFF", 0, {'W', 'A', 'V', 'E'});  // size filled in below
  chunk("fmt ", 16, fmt);
  if (extra_chunks) chunk("LIST", 5, {'I', 'N', 'F', 'O', 'x', 0});
  chunk("data", data.size(), data);
  if (extra_chunks) chunk("id3 ", 8, std::vector<u8>(8, 0x7F));
  const u32 riff = u32(v.size() - 8);
  std::memcpy(v.data() + 4, &riff, 4);
  return w;
}

// A media fixture and what our decoder makes of it.
Image mp3_image(const char *name) {
  Image m;
  m.bytes = mparef::read_file(fixtures::media(name));
  for (double s : mparef::decode_ours(m.bytes).samples) m.samples.push_back(s16(s));
  return m;
}

s32 play(const Image &image) { return _pmx_direct_play(image.bytes.data(), u32(image.bytes.size())); }

void wait_until_done() {
  for (int i = 0; i < 20000 && pmx_is_direct_playing() != 0; ++i) usleep(1000);
}

// Runs `f` with standard output captured and gives what it printed.
template <typename F>
std::string captured(F f) {
  ::testing::internal::CaptureStdout();
  f();
  return ::testing::internal::GetCapturedStdout();
}

// The driver's "padding: n" lines for n blocks.
std::string padding_lines(u32 n) {
  std::string s;
  for (u32 i = 0; i < n; ++i) s += "padding: " + std::to_string(i) + "\n";
  return s;
}

// Every test starts from a board at power-on and a driver with nothing
// loaded.
class DirectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    board::reset();
    board::set_dsp_speed(0);
  }
  // Only the deinit of a WAV set-up unloads the renderer, so one is made.
  void TearDown() override {
    pmx_direct_stop();
    if (pmx_init_direct_play(PMX_DIRECT_WAV) == PMX_DIRECT_OK) pmx_deinit_direct_play();
    board::reset();
  }
};

bool zeros_from(const std::vector<u8> &v, size_t from) {
  return std::all_of(v.begin() + long(from), v.end(), [](u8 b) { return b == 0; });
}

// Every operation's result codes and printout through the driver's states:
// arguments are checked first (3), nothing is ready before init or after
// deinit (5), the PCM decoder is not loaded twice (4). Deinit undoes only a
// WAV set-up: after MP3 mode it says 5 and leaves the renderer loaded. (2
// and 1 are in the tests below.)
TEST_F(DirectTest, ResultCodesThroughTheStates) {
  const Image wav = make_wav(22050, 1, 16, 10);
  const u8 byte = 0;
  auto init = [](u32 type) { return [type] { return pmx_init_direct_play(type); }; };
  const std::string wave = "PMX_DIRECT_PLAY_WAVE\n";
  const struct {
    const char *what;
    std::function<s32()> op;
    s32 result;
    std::string prints;
  } steps[] = {
      {"unknown play type", init(2), PMX_DIRECT_INVALID_ARG, ""},
      {"unknown play type", init(0xFFFFFFFFu), PMX_DIRECT_INVALID_ARG, ""},
      {"null data", [] { return _pmx_direct_play(nullptr, 100); }, PMX_DIRECT_INVALID_ARG, ""},
      {"no data", [&] { return _pmx_direct_play(&byte, 0); }, PMX_DIRECT_INVALID_ARG, ""},
      {"play before init", [&] { return play(wav); }, PMX_DIRECT_NOT_READY, ""},
      {"deinit before init", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"stop with nothing playing", pmx_direct_stop, PMX_DIRECT_OK, ""},
      {"WAV init", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"PCM decoder loaded twice", pmx_wav_init, PMX_DIRECT_ALREADY_LOADED, ""},
      {"WAV init again: it unloads the decoder first", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"null data when ready", [] { return _pmx_direct_play(nullptr, 100); }, PMX_DIRECT_INVALID_ARG, ""},
      {"MP3 init, which unloads the PCM decoder", init(PMX_DIRECT_MP3), PMX_DIRECT_OK, "PMX_DIRECT_PLAY_MP3\n"},
      {"deinit after MP3 mode", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"deinit after MP3 mode, again", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"renderer still loaded", [] { return s32(pmx_direct.renderer_lib != nullptr); }, 1, ""},
      {"WAV init", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"deinit of a WAV set-up", pmx_deinit_direct_play, PMX_DIRECT_OK, ""},
      {"renderer unloaded", [] { return s32(pmx_direct.renderer_lib != nullptr); }, 0, ""},
      {"play after deinit", [&] { return play(wav); }, PMX_DIRECT_NOT_READY, ""},
      {"deinit after deinit", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
  };
  for (const auto &s : steps) {
    s32 result = -1;
    EXPECT_EQ(captured([&] { result = s.op(); }), s.prints) << s.what;
    EXPECT_EQ(result, s.result) << s.what;
  }
  EXPECT_EQ(pmx_is_direct_playing(), 0u);
  EXPECT_EQ(board::dsp_capture().bytes, 0u);
}

// What reaches /dev/dsp: the image's own samples as 16-bit PCM (of a WAV
// image the data chunk alone, of an MP3 file what our decoder makes of it)
// and then the zero padding blocks, 4096 bytes each after WAV and 8192
// after MP3, each announced by a "padding: n" line: 4 at 11025 Hz, 8 at
// 22050 Hz, else 12, except 4 after MP3 at 16000 Hz. The output is set up
// from the image's format, and the image plays again after a new init.
TEST_F(DirectTest, CapturesTheSoundThenPadding) {
  const struct {
    const char *what;
    u32 type;
    Image image;
    int rate, channels;
    u32 blocks;
  } cases[] = {
      {"WAV 11025 Hz stereo 8-bit", PMX_DIRECT_WAV, make_wav(11025, 2, 8, 3000), 11025, 2, 4},
      {"WAV 22050 Hz mono", PMX_DIRECT_WAV, make_wav(22050, 1, 16, 7001), 22050, 1, 8},
      {"WAV 44100 Hz stereo", PMX_DIRECT_WAV, make_wav(44100, 2, 16, 10000), 44100, 2, 12},
      {"WAV 16000 Hz", PMX_DIRECT_WAV, make_wav(16000, 1, 16, 1000), 16000, 1, 12},
      {"WAV 8000 Hz, five frames", PMX_DIRECT_WAV, make_wav(8000, 1, 8, 5), 8000, 1, 12},
      {"WAV, chunks around the data", PMX_DIRECT_WAV, make_wav(22050, 2, 16, 2500, true), 22050, 2, 8},
      {"MP3 44100 Hz", PMX_DIRECT_MP3, mp3_image("tone.mp3"), 44100, 2, 12},
      {"MP3 22050 Hz after an ID3v2 tag", PMX_DIRECT_MP3, mp3_image("mpeg2_22k_vbr_id3v24.mp3"), 22050, 2, 8},
      {"MP3 16000 Hz", PMX_DIRECT_MP3, mp3_image("music_16k_joint_cbr48.mp3"), 16000, 2, 4},
      {"MP3 11025 Hz mono", PMX_DIRECT_MP3, mp3_image("mpeg25_11k_cbr_id3v1.mp3"), 11025, 1, 4},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    board::reset();
    board::set_dsp_speed(0);
    const bool wav = c.type == PMX_DIRECT_WAV;
    std::vector<s32> r;
    const std::string out = captured([&] {
      r = {pmx_init_direct_play(c.type), play(c.image)};
      wait_until_done();
    });
    EXPECT_EQ(r, (std::vector<s32>{0, 0}));
    EXPECT_EQ(out, std::string(wav ? "PMX_DIRECT_PLAY_WAVE\n" : "PMX_DIRECT_PLAY_MP3\n") + padding_lines(c.blocks) +
                       (wav ? "END thread\n" : ""));
    const board::DspCapture cap = board::dsp_capture();
    EXPECT_EQ(cap.format, 0x10);
    EXPECT_EQ(cap.channels, c.channels);
    EXPECT_EQ(cap.rate, c.rate);
    const size_t sound = c.image.samples.size() * 2;
    ASSERT_GT(sound, 0u);
    ASSERT_EQ(cap.pcm.size(), sound + c.blocks * (wav ? 4096 : 8192));
    EXPECT_EQ(std::memcmp(cap.pcm.data(), c.image.samples.data(), sound), 0);
    EXPECT_TRUE(zeros_from(cap.pcm, sound));
    std::vector<std::string> setup;
    for (const std::string &line : board::log_lines())
      if (line.rfind("dsp written", 0) != 0) setup.push_back(line);
    const std::string stereo = std::to_string(c.channels - 1), rate = std::to_string(c.rate);
    EXPECT_EQ(setup, (std::vector<std::string>{"dsp open", "dsp reset", "dsp setfmt 0x10 0x10",
                                               "dsp stereo " + stereo + " " + stereo,
                                               "dsp speed " + rate + " " + rate, "dsp close"}));
    captured([&] {
      r = {pmx_init_direct_play(c.type), play(c.image)};
      wait_until_done();
    });
    EXPECT_EQ(r, (std::vector<s32>{0, 0}));
    EXPECT_EQ(board::dsp_capture().bytes, 2 * cap.bytes);
  }
}

// While a playback runs (real-time pacing, longer than the output's
// buffer) a second play and every init get 2, though an unknown type is
// still 3. Stop, or deinit, ends it at once: whole blocks (WAV) or frames
// (MP3) of the sound, then all the padding. After a WAV deinit playing is
// refused; MP3 mode keeps the renderer and the decoder buffer, so its
// deinit says 5 and the file plays again.
TEST_F(DirectTest, BusyWhilePlayingThenStopped) {
  const Image wav = make_wav(44100, 2, 16, 3 * 44100), mp3 = mp3_image("tone.mp3");
  const struct {
    const char *what;
    u32 type;
    const Image &image;
    bool deinit;
    s32 stopped, replay;
  } cases[] = {
      {"WAV, stop", PMX_DIRECT_WAV, wav, false, PMX_DIRECT_OK, PMX_DIRECT_OK},
      {"WAV, deinit", PMX_DIRECT_WAV, wav, true, PMX_DIRECT_OK, PMX_DIRECT_NOT_READY},
      {"MP3, stop", PMX_DIRECT_MP3, mp3, false, PMX_DIRECT_OK, PMX_DIRECT_OK},
      {"MP3, deinit", PMX_DIRECT_MP3, mp3, true, PMX_DIRECT_NOT_READY, PMX_DIRECT_OK},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    board::reset();
    board::set_dsp_speed(1);
    // init, play, playing?, play, init WAV and MP3, init of an unknown
    // type, stop or deinit, playing? (both return once the worker ended).
    std::vector<s32> r;
    const std::string out = captured([&] {
      r = {pmx_init_direct_play(c.type), play(c.image), s32(pmx_is_direct_playing()), play(c.image),
           pmx_init_direct_play(PMX_DIRECT_WAV), pmx_init_direct_play(PMX_DIRECT_MP3), pmx_init_direct_play(2)};
      usleep(100 * 1000);
      r.push_back(c.deinit ? pmx_deinit_direct_play() : pmx_direct_stop());
      r.push_back(s32(pmx_is_direct_playing()));
    });
    EXPECT_EQ(r, (std::vector<s32>{0, 0, 1, 2, 2, 2, 3, c.stopped, 0}));
    const bool is_wav = c.type == PMX_DIRECT_WAV;
    EXPECT_NE(out.find(padding_lines(12) + (is_wav ? "END thread\n" : "")), std::string::npos) << out;
    const board::DspCapture cap = board::dsp_capture();
    const size_t padding = 12 * (is_wav ? 4096 : 8192), sound = c.image.samples.size() * 2;
    ASSERT_GT(cap.pcm.size(), padding);
    const size_t played = cap.pcm.size() - padding;
    EXPECT_LT(played, sound);
    EXPECT_EQ(played % (is_wav ? 4096 : 1152 * 4), 0u);
    EXPECT_EQ(std::memcmp(cap.pcm.data(), c.image.samples.data(), played), 0);
    EXPECT_TRUE(zeros_from(cap.pcm, played));
    board::set_dsp_speed(0);
    s32 replay = -1;
    captured([&] {
      replay = play(c.image);
      wait_until_done();
    });
    EXPECT_EQ(replay, c.replay);
    EXPECT_EQ(board::dsp_capture().bytes, cap.bytes + (c.replay == 0 ? sound + padding : 0));
  }
}

// The media control API lets direct playback start only while the engine
// does not play (2); otherwise it is the driver's answer.
TEST_F(DirectTest, ApiGuardRefusesWhileTheEngineIsPlaying) {
  const Image wav = make_wav(22050, 1, 16, 10);
  pmx.state = PMX_STATE_PLAYING;
  EXPECT_EQ(pmx_direct_play(wav.bytes.data(), u32(wav.bytes.size())), PMX_DIRECT_BUSY);
  pmx.state = PMX_STATE_STOPPED;
  EXPECT_EQ(pmx_direct_play(wav.bytes.data(), u32(wav.bytes.size())), PMX_DIRECT_NOT_READY);
  pmx.state = PMX_STATE_NONE;
}

// Without the plug-ins initialisation reports 1 and the loader's text, and
// nothing gets ready.
TEST(DirectChild, DISABLED_NoPlugins) {
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_MP3), PMX_DIRECT_LOAD_FAILED);
  const u8 byte = 0;
  EXPECT_EQ(_pmx_direct_play(&byte, 1), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
}

// The look-up of the missing symbol fails with the loader's text, after the
// symbols before it were resolved; a second init fails alike.
TEST(DirectChild, DISABLED_MissingRendererSymbol) {
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_EQ(pmx_init_direct_play(PMX_DIRECT_WAV), PMX_DIRECT_LOAD_FAILED);
  EXPECT_NE(pmx_direct.setup, nullptr);
  EXPECT_NE(pmx_direct.close, nullptr);
  EXPECT_EQ(pmx_direct.recover, nullptr);
  EXPECT_EQ(pmx_direct.save, nullptr);
}

// The loader reads its path at start-up, so the two above run in a fresh
// copy of this program, without a library path or with a folder whose
// renderer lacks "recover_setting"; the loader's text is in its output.
TEST(DirectPlugins, MissingOrBrokenGiveLoadFailure) {
  char exe[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  const struct { const char *test, *env, *error; } cases[] = {
      {"NoPlugins", "env -u LD_LIBRARY_PATH", "libmaiaudrend.so: cannot open shared object file"},
      {"MissingRendererSymbol", "LD_LIBRARY_PATH=" PMX_BROKEN_PLUGIN_DIR, "undefined symbol: recover_setting"},
  };
  for (const auto &c : cases) {
    const std::string command = std::string(c.env) + " " + exe +
                                " --gtest_also_run_disabled_tests --gtest_filter=DirectChild.DISABLED_" + c.test +
                                " 2>&1";
    FILE *child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string text;
    char chunk[512];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, child)) > 0;) text.append(chunk, n);
    EXPECT_EQ(pclose(child), 0) << c.test << "\n" << text;
    EXPECT_NE(text.find(c.error), std::string::npos) << c.test << "\n" << text;
  }
}

}  // namespace
}  // namespace directtest
