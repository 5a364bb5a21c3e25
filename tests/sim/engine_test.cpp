// The host build of the media engine library: the playback clock, the
// progress reports from the engine's threads, media type records, parameter
// blocks, injected faults and the debug commands.
#include "platform/mai_engine.h"
#include "tests/support/fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// One engine instance for the length of a test.
struct Engine {
  u32 h = 0;
  Engine() { EXPECT_EQ(MAIengine_Create(&h), MAI_OK); }
  ~Engine() { MAIengine_Release(h); }
  Engine(const Engine &) = delete;
  Engine &operator=(const Engine &) = delete;
  u32 debug(const std::string &command) const { return MAIengine_ExecDebugCommand(h, command.c_str()); }
  u32 connect(const std::string &path) const { return MAIengine_AutoConnect(h, nullptr, 0, path.c_str(), 1, 0); }
  u32 disconnect() const { return MAIengine_Disconnect(h, 0); }
  u32 command(u32 cmd, u32 p1 = 0, u32 p2 = 0) const {
    return MAIengine_SendCommand(h, cmd, p1, p2, 0, 0, MAI_WAIT_FOREVER);
  }
  u32 state(u32 *pending = nullptr) const {
    u32 s = 0;
    EXPECT_EQ(MAIengine_GetState(h, &s, pending), MAI_OK);
    return s;
  }
  u32 wait(u32 mask) const { return MAIengine_WaitForState(h, mask, 10000); }
};

// Sets an environment variable (read by MAIengine_Create) for a scope.
struct ScopedEnv {
  const char *name;
  ScopedEnv(const char *n, const char *value) : name(n) { ::setenv(n, value, 1); }
  ~ScopedEnv() { ::unsetenv(name); }
};

// Little-endian field of `n` bytes.
u64 rd(const u8 *p, u32 off, int n = 4) {
  u64 v = 0;
  for (int i = n - 1; i >= 0; --i) v = v << 8 | p[off + i];
  return v;
}

// Clock position in ms from the start of the stream.
u64 position(u32 h) {
  std::array<u8, MAI_STREAM_TIME_SIZE> rec{};
  rec[0] = MAI_STREAM_TIME_SIZE;
  EXPECT_EQ(MAIengine_GetStreamMediaType(h, rec.data()), MAI_OK);
  return rd(rec.data(), MAI_STIME_CURRENT, 8) - rd(rec.data(), MAI_STIME_START, 8);
}

// Holds the playback clock to `speed` media ms per wall ms over 100 ms; each
// reading is bracketed by wall-clock readings, so a descheduled test thread
// widens the allowed range instead of failing the check.
void expect_speed(u32 h, double speed) {
  auto ms = [](Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); };
  const auto a0 = Clock::now();
  const double p0 = double(position(h));
  const auto b0 = Clock::now();
  std::this_thread::sleep_for(100ms);
  const auto a1 = Clock::now();
  const double moved = double(position(h)) - p0;
  const double x = speed * ms(a1 - b0), y = speed * ms(Clock::now() - a0), slack = std::abs(speed) * 5 + 2;
  EXPECT_TRUE(moved >= std::min(x, y) - slack && moved <= std::max(x, y) + slack)
      << "moved " << moved << " ms, expected " << x << ".." << y;
}

// Everything the engine reported through the callbacks (errors as kind 0
// with their code as flags); progress callbacks carry no context, so the
// record is one per process.
struct Report {
  u32 kind, flags, type, state_seen;  // state_seen: read inside the callback, as the API does
  std::thread::id thread;
  void *context;
};
std::mutex g_mu;
std::vector<Report> g_reports;
std::atomic<u32> g_engine = 0;  // the instance whose state the callback reads

void add(const Report &r) {
  std::lock_guard lk(g_mu);
  g_reports.push_back(r);
}
u32 on_progress(u32 kind, const u32 *record) {
  Report r{kind, record[MAI_PROG_FLAGS], record[MAI_PROG_COMPONENT_TYPE], 0, std::this_thread::get_id(), nullptr};
  MAIengine_GetState(g_engine, &r.state_seen, nullptr);
  add(r);
  return 0;
}
u32 on_error(void *context, u32 code, u32) {
  add({0, code, 0, 0, std::this_thread::get_id(), context});
  return 0;
}
// Clears the record and registers the callbacks with `engine`.
void attach(u32 engine, void *context = nullptr) {
  g_engine = engine;
  std::unique_lock lk(g_mu);
  g_reports.clear();
  lk.unlock();
  EXPECT_EQ(MAIengine_RegisterCallbacks(engine, on_error, on_progress, context), MAI_OK);
}
// Reports of `kind` with all of `flags`.
std::vector<Report> reports(u32 kind, u32 flags = 0) {
  std::lock_guard lk(g_mu);
  std::vector<Report> out;
  for (const Report &r : g_reports)
    if (r.kind == kind && (r.flags & flags) == flags) out.push_back(r);
  return out;
}

// The video and audio records carry the files' stream properties, written
// through an unaligned pointer without touching a byte outside the record.
TEST(MediaType, RecordsCarryTheStreamProperties) {
  using V = std::vector<double>;
  const std::tuple<const char *, bool, V> cases[] = {
      // video: major type, subtype, width, height, frame rate, displayed width
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

// "debug show" tells the connection; a trace category prints while on and
// nothing once off; anything else is refused.
TEST(Debug, ShowAndTrace) {
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

class Transport : public testing::Test {
 protected:
  Engine e;

  void open(const char *fixture, const char *clock = "1") {
    ASSERT_EQ(e.connect(fixtures::media(fixture)), MAI_OK);
    ASSERT_EQ(e.debug(std::string("sim clock ") + clock), MAI_OK);
    attach(e.h);
  }
  void play(u32 rate, u32 state) {
    ASSERT_EQ(e.command(MAI_CMD_PLAY, rate), MAI_OK);
    ASSERT_EQ(e.wait(state), MAI_OK);
  }
  // Component types of the reports with all of `flags`, once `n` of them came.
  std::vector<u32> types(u32 flags, size_t n = 0) {
    for (auto until = Clock::now() + 10s; reports(MAI_PROGRESS_COMPONENT, flags).size() < n && Clock::now() < until;)
      std::this_thread::sleep_for(1ms);
    std::vector<u32> out;
    for (const Report &r : reports(MAI_PROGRESS_COMPONENT, flags)) out.push_back(r.type);
    return out;
  }
};

// Source, demux and renderer report the start from an engine thread, the
// renderer once the stream plays; at the end source and demux end the
// stream, each stream's decoder ends, the renderer last, and the clock
// stands at the duration.
TEST_F(Transport, StartAndEndReportsFromTheEngineThreads) {
  open("xvid_mp3.avi");
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  using V = std::vector<u32>;
  ASSERT_EQ(types(MAI_PROGFLAG_START, 3), V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  for (const Report &r : reports(MAI_PROGRESS_COMPONENT)) EXPECT_NE(r.thread, std::this_thread::get_id());
  EXPECT_EQ(reports(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_START).back().state_seen, MAI_STATE_PLAYING);
  ASSERT_EQ(e.debug("sim clock 20"), MAI_OK);
  ASSERT_EQ(e.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  EXPECT_EQ(types(MAI_PROGFLAG_END, 5),
            V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_DECODER, MAI_COMP_DECODER, MAI_COMP_RENDERER}));
  EXPECT_EQ(types(MAI_PROGFLAG_END | MAI_PROGFLAG_STREAM_END), V({MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_RENDERER}));
  EXPECT_GE(reports(MAI_PROGRESS_POSITION).size(), 3u);
  const std::string path = fixtures::media("xvid_mp3.avi");
  EXPECT_EQ(position(e.h), u64(std::llround(std::stod(fixtures::ffprobe_value(path, "format=duration")) * 1000)));
}

// The clock runs at rate x clock factor x output rate / stream rate, stands
// while paused and goes back to zero at a stop; rates other than 1x scan;
// the factor comes from PMX_ENGINE_CLOCK or "sim clock", which refuses bad
// factors. Disconnecting while playing ends the engine's threads.
TEST_F(Transport, ClockSpeedPauseAndStop) {
  open("xvid_mp3.avi");
  const struct {
    u32 from, rate, state;
    double speed;
  } cases[] = {{1000, MAI_RATE_NORMAL, MAI_STATE_PLAYING, 1.0},
               {0, 0x40000, MAI_STATE_SCANNING, 4.0},
               {2000, 0x20000 | MAI_RATE_REVERSE, MAI_STATE_SCANNING, -2.0}};
  for (const auto &c : cases) {
    SCOPED_TRACE(testing::Message() << std::hex << c.rate);
    ASSERT_EQ(e.command(MAI_CMD_SEEK, MAI_SEEK_POSITION, c.from), MAI_OK);
    ASSERT_EQ(e.wait(~MAI_STATE_SEEKING), MAI_OK);
    play(c.rate, c.state);
    expect_speed(e.h, c.speed);
    ASSERT_EQ(e.command(MAI_CMD_PAUSE), MAI_OK);
    EXPECT_EQ(e.state(), MAI_STATE_PAUSED);
    expect_speed(e.h, 0);
  }
  ASSERT_EQ(e.command(MAI_CMD_STOP), MAI_OK);
  u32 pending = 0;
  EXPECT_EQ(e.state(&pending), MAI_STATE_STOPPING);
  EXPECT_EQ(pending, MAI_STATE_STOPPED);
  ASSERT_EQ(e.wait(MAI_STATE_STOPPED), MAI_OK);
  EXPECT_EQ(position(e.h), 0u);
  std::this_thread::sleep_for(20ms);
  EXPECT_TRUE(reports(MAI_PROGRESS_COMPONENT, MAI_PROGFLAG_STREAM_END).empty()) << "stop is no end of stream";
  for (const char *bad : {"sim clock", "sim clock 0", "sim clock -2", "sim clock inf"})
    EXPECT_EQ(e.debug(bad), MAI_E_INVALIDARG) << bad;
  ASSERT_EQ(e.disconnect(), MAI_OK);
  open("tone.wav", "0.5");  // 44100 Hz
  play(MAI_RATE_NORMAL, MAI_STATE_PLAYING);
  for (auto [rate, speed] : {std::pair{88200u, 1.0}, {22050u, 0.25}}) {
    ASSERT_EQ(MAIengine_SetParam(e.h, MAI_PARAM_SAMPLE_RATE, &rate, 4), MAI_OK);
    expect_speed(e.h, speed);
  }
  ScopedEnv env("PMX_ENGINE_CLOCK", "2.5");
  Engine other;
  ASSERT_EQ(other.connect(fixtures::media("tone.wav")), MAI_OK);
  attach(other.h);
  ASSERT_EQ(other.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
  ASSERT_EQ(other.wait(MAI_STATE_PLAYING), MAI_OK);
  expect_speed(other.h, 2.5);
  ASSERT_EQ(other.debug("sim clock 40"), MAI_OK);
  ASSERT_EQ(other.disconnect(), MAI_OK);  // the engine's threads end: no report after
  const size_t seen = reports(MAI_PROGRESS_COMPONENT).size() + reports(MAI_PROGRESS_POSITION).size();
  std::this_thread::sleep_for(100ms);  // longer than the rest of the clip at this speed
  EXPECT_EQ(reports(MAI_PROGRESS_COMPONENT).size() + reports(MAI_PROGRESS_POSITION).size(), seen);
}

// error40: every play reports error 40 from an engine thread, with the
// registered context, before the command returns. nostart: the stream
// plays, but the renderer never reports its start.
TEST_F(Transport, Error40AndNoStartFaults) {
  ScopedEnv env("PMX_ENGINE_FAULTS", "error40,nostart");
  Engine faulty;
  int context = 0;
  attach(faulty.h, &context);
  ASSERT_EQ(faulty.connect(fixtures::media("tone.wav")), MAI_OK);
  ASSERT_EQ(faulty.debug("sim clock 50"), MAI_OK);
  for (size_t plays = 1; plays <= 2; ++plays) {
    ASSERT_EQ(faulty.command(MAI_CMD_PLAY, MAI_RATE_NORMAL), MAI_OK);
    const auto errors = reports(0);  // no waiting: already delivered
    ASSERT_EQ(errors.size(), plays);
    EXPECT_EQ(errors.back().flags, MAI_E_UNSUPPORTEDFORMAT);
    EXPECT_EQ(errors.back().context, &context);
    EXPECT_NE(errors.back().thread, std::this_thread::get_id());
    ASSERT_EQ(faulty.wait(MAI_STATE_ENDOFSTREAM), MAI_OK);
  }
  EXPECT_EQ(types(MAI_PROGFLAG_START, 4), (std::vector<u32>{MAI_COMP_SOURCE, MAI_COMP_DEMUX, MAI_COMP_SOURCE,
                                                         MAI_COMP_DEMUX}));
}

}  // namespace
