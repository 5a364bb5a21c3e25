// The direct playback driver on the virtual board with the host plug-ins.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
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

// A file image and the interleaved 16-bit PCM it should play as.
struct Image {
  std::vector<u8> bytes;
  std::vector<s16> samples;
};

// A sawtooth per channel; `extra_chunks`: odd-sized chunks around the data.
Image make_wav(u32 rate, u32 channels, u32 bits, u32 frames, bool extra_chunks = false) {
  Image w;
  auto le = [&](u32 x, u32 bytes) {
    for (u32 i = 0; i < bytes; ++i) w.bytes.push_back(u8(x >> (8 * i)));
  };
  auto tag = [&](const char *t) { std::for_each(t, t + 4, [&](char c) { w.bytes.push_back(u8(c)); }); };
  tag("RIFF"), le(0, 4), tag("WAVE"), tag("fmt "), le(16, 4);
  for (auto [x, n] : {std::pair<u32, u32>{1, 2}, {channels, 2}, {rate, 4}, {rate * channels * bits / 8, 4},
                      {channels * bits / 8, 2}, {bits, 2}})
    le(x, n);
  if (extra_chunks) tag("LIST"), le(5, 4), tag("INFO"), le('x', 2);  // odd size: a pad byte
  tag("data"), le(frames * channels * bits / 8, 4);
  for (u32 f = 0; f < frames; ++f)
    for (u32 c = 0; c < channels; ++c) {
      const u8 u = u8(f * 3 + c * 40 + 1);
      w.samples.push_back(bits == 8 ? s16((u - 128) * 256) : s16(f * 97 + c * 5000 - 20000));
      le(bits == 8 ? u : u16(w.samples.back()), bits / 8);
    }
  if (extra_chunks) tag("id3 "), le(8, 4), le(0x7F7F7F7F, 4), le(0x7F7F7F7F, 4);
  const u32 riff = u32(w.bytes.size() - 8);
  std::memcpy(w.bytes.data() + 4, &riff, 4);
  return w;
}

// A fixture and our decoder's output (held to the reference elsewhere).
Image mp3_image(const char *name) {
  Image m{mparef::read_file(fixtures::media(name)), {}};
  for (double s : mparef::decode_ours(m.bytes).samples) m.samples.push_back(s16(s));
  return m;
}

s32 play(const Image &image) { return _pmx_direct_play(image.bytes.data(), u32(image.bytes.size())); }

void wait_until_done() {
  for (int i = 0; i < 20000 && pmx_is_direct_playing() != 0; ++i) usleep(1000);
}

std::string captured(const std::function<void()> &f) {
  ::testing::internal::CaptureStdout();
  f();
  return ::testing::internal::GetCapturedStdout();
}

std::string padding_lines(u32 n) {
  std::string s;
  for (u32 i = 0; i < n; ++i) s += "padding: " + std::to_string(i) + "\n";
  return s;
}

// /dev/dsp got `sound` bytes (0: all but the padding) of the image's
// samples, then `padding` zero bytes; gives the sound's bytes.
size_t expect_capture(const Image &image, size_t sound, size_t padding) {
  const std::vector<u8> pcm = board::dsp_capture().pcm;
  sound = sound ? sound : pcm.size() - std::min(padding, pcm.size());
  EXPECT_TRUE(sound > 0 && sound <= 2 * image.samples.size() && pcm.size() == sound + padding) << pcm.size();
  EXPECT_TRUE(pcm.size() == sound + padding && std::memcmp(pcm.data(), image.samples.data(), sound) == 0 &&
              std::all_of(pcm.begin() + long(sound), pcm.end(), [](u8 b) { return b == 0; }));
  return sound;
}

// A board at power-on and nothing loaded (only a WAV deinit unloads all).
class DirectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    board::reset();
    board::set_dsp_speed(0);
  }
  void TearDown() override {
    pmx_direct_stop();
    if (pmx_init_direct_play(PMX_DIRECT_WAV) == PMX_DIRECT_OK) pmx_deinit_direct_play();
    board::reset();
  }
};

// Arguments first (3), nothing ready before init or after deinit (5), no
// second PCM decoder (4); deinit after MP3 mode says 5, keeps the renderer.
TEST_F(DirectTest, ResultCodesThroughTheStates) {
  const Image wav = make_wav(22050, 1, 16, 10);
  const u8 byte = 0;
  auto init = [](u32 type) { return [type] { return pmx_init_direct_play(type); }; };
  auto renderer_loaded = [] { return s32(pmx_direct.renderer_lib != nullptr); };
  auto api_play = [&](u32 engine) {  // the API's guard in front of the driver
    pmx.state = engine;
    const s32 r = pmx_direct_play(wav.bytes.data(), u32(wav.bytes.size()));
    pmx.state = PMX_STATE_NONE;
    return r;
  };
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
      {"API play while the engine plays", [&] { return api_play(PMX_STATE_PLAYING); }, PMX_DIRECT_BUSY, ""},
      {"API play, engine stopped", [&] { return api_play(PMX_STATE_STOPPED); }, PMX_DIRECT_NOT_READY, ""},
      {"deinit before init", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"stop with nothing playing", pmx_direct_stop, PMX_DIRECT_OK, ""},
      {"WAV init", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"PCM decoder loaded twice", pmx_wav_init, PMX_DIRECT_ALREADY_LOADED, ""},
      {"WAV init again: it unloads the decoder first", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"null data when ready", [] { return _pmx_direct_play(nullptr, 100); }, PMX_DIRECT_INVALID_ARG, ""},
      {"MP3 init, which unloads the PCM decoder", init(PMX_DIRECT_MP3), PMX_DIRECT_OK, "PMX_DIRECT_PLAY_MP3\n"},
      {"deinit after MP3 mode", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"deinit after MP3 mode, again", pmx_deinit_direct_play, PMX_DIRECT_NOT_READY, ""},
      {"renderer still loaded", renderer_loaded, 1, ""},
      {"WAV init", init(PMX_DIRECT_WAV), PMX_DIRECT_OK, wave},
      {"deinit of a WAV set-up", pmx_deinit_direct_play, PMX_DIRECT_OK, ""},
      {"renderer unloaded", renderer_loaded, 0, ""},
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

// The sound in its format, then announced zero blocks (WAV 4096 bytes, MP3
// 8192): 4 at 11025 Hz, 8 at 22050 Hz, else 12, but 4 after MP3 at 16000 Hz.
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
    EXPECT_EQ((std::vector<int>{cap.format, cap.channels, cap.rate}), (std::vector<int>{0x10, c.channels, c.rate}));
    expect_capture(c.image, c.image.samples.size() * 2, c.blocks * (wav ? 4096 : 8192));
  }
}

// While playing, play and init get 2 (an unknown type 3); stop or deinit
// ends at a block or frame, then pads. MP3 deinit says 5 and keeps playing.
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
    const size_t padding = 12 * (is_wav ? 4096 : 8192), sound = c.image.samples.size() * 2;
    const size_t played = expect_capture(c.image, 0, padding), bytes = board::dsp_capture().bytes;
    EXPECT_LT(played, sound);
    EXPECT_EQ(played % (is_wav ? 4096 : 1152 * 4), 0u);
    board::set_dsp_speed(0);
    s32 replay = -1;
    captured([&] {
      replay = play(c.image);
      wait_until_done();
    });
    EXPECT_EQ(replay, c.replay);
    EXPECT_EQ(board::dsp_capture().bytes, bytes + (c.replay == 0 ? sound + padding : 0));
  }
}

// Run in a fresh process by the next test: init reports 1, nothing gets
// ready; a broken renderer's symbols before the missing one are resolved.
TEST(DirectChild, DISABLED_LoadFails) {
  const bool broken = getenv("PMX_BROKEN_RENDERER") != nullptr;
  for (u32 type : {PMX_DIRECT_WAV, PMX_DIRECT_WAV, PMX_DIRECT_MP3}) {
    EXPECT_EQ(pmx_init_direct_play(type), PMX_DIRECT_LOAD_FAILED);
    EXPECT_TRUE(!pmx_direct.setup != broken && !pmx_direct.close != broken && !pmx_direct.recover && !pmx_direct.save);
  }
  const u8 byte = 0;
  EXPECT_EQ(_pmx_direct_play(&byte, 1), PMX_DIRECT_NOT_READY);
  EXPECT_EQ(pmx_deinit_direct_play(), PMX_DIRECT_NOT_READY);
}

// Without the plug-ins, or with a renderer lacking "recover_setting".
TEST(DirectPlugins, MissingOrBrokenGiveLoadFailure) {
  char exe[4096] = {};
  ASSERT_GT(readlink("/proc/self/exe", exe, sizeof exe - 1), 0);
  const struct { const char *env, *error; } cases[] = {
      {"env -u LD_LIBRARY_PATH", "libmaiaudrend.so: cannot open shared object file"},
      {"PMX_BROKEN_RENDERER=1 LD_LIBRARY_PATH=" PMX_BROKEN_PLUGIN_DIR, "undefined symbol: recover_setting"},
  };
  for (const auto &c : cases) {
    const std::string command = std::string(c.env) + " " + exe +
                                " --gtest_also_run_disabled_tests --gtest_filter=DirectChild.DISABLED_LoadFails 2>&1";
    FILE *child = popen(command.c_str(), "r");
    ASSERT_NE(child, nullptr);
    std::string text;
    char chunk[512];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, child)) > 0;) text.append(chunk, n);
    EXPECT_EQ(pclose(child), 0) << text;
    EXPECT_NE(text.find(c.error), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace directtest
