// The real console on the host engine and the virtual board, driven through
// its standard input: start-up, the commands, the direct playback words.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/board/preload.h"
#include "tests/support/fixtures.h"

namespace {

struct ConsoleRun {
  int exit_code = -1;  // -1: killed after a minute
  std::string out;
  std::vector<std::string> log;  // the board's event log
};
using Env = std::vector<std::pair<std::string, std::string>>;

// A typed part and, for run_session, the console's reply to it: the text
// between the prompt it answers and the next, where '*' stands for any
// text. The next part follows `pause_ms` later, or once `until` holds.
struct Typed {
  std::string text, reply = "";
  int pause_ms = 0;
  std::function<bool()> until = {};
};

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }
size_t count(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// The lines starting with `prefix`; whether `sequence` is in them in order.
std::vector<std::string> lines(const std::vector<std::string> &log, const std::string &prefix) {
  std::vector<std::string> out;
  std::copy_if(log.begin(), log.end(), std::back_inserter(out), [&](const auto &l) { return l.starts_with(prefix); });
  return out;
}

bool holds(const std::vector<std::string> &log, const std::vector<std::string> &sequence) {
  size_t next = 0;
  for (const std::string &l : log) next += next < sequence.size() && l == sequence[next];
  return next == sequence.size();
}

bool matches(const std::string &text, const std::string &pattern) {
  size_t at = 0, from = 0;
  for (size_t star; (star = pattern.find('*', from)) != std::string::npos; from = star + 1) {
    const std::string piece = pattern.substr(from, star - from);
    at = from == 0 ? (text.starts_with(piece) ? 0 : std::string::npos) : text.find(piece, at);
    if (at == std::string::npos) return false;
    at += piece.size();
  }
  const std::string last = pattern.substr(from);
  return from == 0 ? text == last : text.size() >= at + last.size() && text.ends_with(last);
}

// Runs the real pmxtestapp binary with typed input and collects what it
// prints: on the virtual board (libpmxboard.so preloaded, the engine's
// plug-ins on the library path) unless `board` is false, and as root without
// the privilege to set the clock, so the host's clock is never touched.
ConsoleRun run_console(const std::vector<std::string> &args, const std::vector<Typed> &input, const Env &env = {},
                       bool board = true) {
  // Everything the child needs is prepared before the fork. The board goes
  // into the console alone, not into setpriv.
  std::vector<std::string> argv;
  if (geteuid() == 0) argv = {"setpriv", "--bounding-set=-sys_time", "--"};
  if (board) {
    argv.emplace_back("env");
    for (const auto &[name, value] : board::preload_env()) argv.push_back(name + "=" + value);
    const char *old = std::getenv("LD_LIBRARY_PATH");
    argv.push_back(std::string("LD_LIBRARY_PATH=") + PMX_PLUGIN_DIR + (old && *old ? std::string(":") + old : ""));
  }
  const std::string log = testing::TempDir() + "e2e_board" + std::to_string(getpid()) + ".log";
  if (board) argv.push_back("PMX_BOARD_LOG=" + log);
  std::remove(log.c_str());
  argv.emplace_back(PMX_CONSOLE_PATH);
  argv.insert(argv.end(), args.begin(), args.end());
  std::vector<char *> raw;
  for (std::string &a : argv) raw.push_back(a.data());
  raw.push_back(nullptr);

  int to_child[2], from_child[2];
  if (pipe(to_child) != 0 || pipe(from_child) != 0) return {};
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(to_child[0], 0);
    dup2(from_child[1], 1);
    close(to_child[1]);
    close(from_child[0]);
    for (const auto &[name, value] : env) setenv(name.c_str(), value.c_str(), 1);
    execvp(raw[0], raw.data());
    _exit(127);
  }
  close(to_child[0]);
  close(from_child[1]);
  signal(SIGPIPE, SIG_IGN);
  // Typing on its own thread, so that the output is read while it waits;
  // closing the pipe at the end gives end of input.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  std::thread typist([fd = to_child[1], &input, deadline] {
    for (const Typed &part : input) {
      for (size_t done = 0; done < part.text.size();) {
        const ssize_t n = write(fd, part.text.data() + done, part.text.size() - done);
        if (n <= 0) break;
        done += size_t(n);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(part.pause_ms));
      while (part.until && !part.until() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(fd);
  });
  ConsoleRun run;
  bool killed = false;
  for (char buf[4096];;) {
    pollfd p{from_child[0], POLLIN, 0};
    if (poll(&p, 1, 100) > 0) {
      const ssize_t n = read(from_child[0], buf, sizeof buf);
      if (n <= 0) break;
      run.out.append(buf, size_t(n));
    }
    if (!killed && std::chrono::steady_clock::now() > deadline) killed = kill(pid, SIGKILL) == 0;
  }
  close(from_child[0]);
  typist.join();
  int status = 0;
  waitpid(pid, &status, 0);
  run.exit_code = !killed && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  std::ifstream in(log);
  for (std::string line; std::getline(in, line);) run.log.push_back(line);
  std::remove(log.c_str());
  return run;
}

// Also holds the run to a clean exit and to each reply, in order.
ConsoleRun run_session(const std::vector<std::string> &args, const std::vector<Typed> &rows, const Env &env = {}) {
  const ConsoleRun run = run_console(args, rows, env);
  EXPECT_EQ(run.exit_code, 0);
  const std::string prompt = "\nCommand ('help' for help): ";
  std::vector<std::string> replies;
  for (size_t at = run.out.find(prompt), next; at != std::string::npos; at = next) {
    next = run.out.find(prompt, at + prompt.size());
    replies.push_back(run.out.substr(at + prompt.size(), next == std::string::npos ? next : next - at - prompt.size()));
  }
  EXPECT_EQ(replies.size(), rows.size()) << run.out;
  for (size_t i = 0; i < rows.size() && i < replies.size(); ++i)
    EXPECT_TRUE(matches(replies[i], rows[i].reply))
        << "typed: " << rows[i].text << "reply:\n" << replies[i] << "\nwanted:\n" << rows[i].reply;
  return run;
}

// Start-up with a file: clock, type sizes, engine, codec, help, DAC input,
// earphone on, volume 25, the file played; quit closes it.
TEST(Console, StartUpWithAFile) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  const ConsoleRun run = run_console({wav}, {{"quit\n"}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  std::tm t{};  // 1 Nov 2005 01:01:00 in the run's local zone
  t.tm_min = t.tm_hour = t.tm_mday = 1, t.tm_mon = 10, t.tm_year = 105;
  const std::string seconds = std::to_string(static_cast<long>(mktime(&t)));
  EXPECT_TRUE(o.starts_with("sec = " + seconds + "\nargc =2\ntype test\nchar =[1]\nshort =[2]\nint =[4]\n"
                            "int MAX=[2147483647]\nlong =[4]\nlong long=[8]\nlong MAX=[2147483647]\nfloat =[4]\n"
                            "double =[8]\nlong double =[8]\n\n\n\nMAIN pmx_engine initialize\n\n"
                            "audio_device initialize success.....!!\n\n####"))
      << o;
  EXPECT_TRUE(has(o, "\tzen       :  zen min test app \n###################################################\n"
                     "argv[1] =" + wav + "\ninput state : 1 \n\nSolution type=7\n"))
      << o;
  EXPECT_TRUE(has(o, "solution name =[pcm]\ncommand [OPEN] : PMX_OK\nplay speed = 0x00010000\n")) << o;
  EXPECT_TRUE(has(o, "command [PLAY] : PMX_OK\n\nCommand ('help' for help): pmx main engine release\nstopping \n"))
      << o;
  // The board's view: the clock set, the codec's defaults (ending with
  // 0x22), then DAC input, earphone on and the volume on the earphone.
  EXPECT_EQ(lines(run.log, "clock set "), std::vector<std::string>{"clock set " + seconds});
  EXPECT_TRUE(holds(run.log, {"mixer write 0x02 0x8000", "mixer write 0x22 0x0f0f", "mixer close", "mixer open",
                              "mixer write 0x18 0x4808", "mixer write 0x1a 0x3000", "mixer close", "mixer open",
                              "mixer write 0x04 0x8000", "mixer close", "mixer open", "mixer write 0x04 0x0d0d",
                              "mixer close"}));
  EXPECT_EQ(lines(run.log, "mixer write").back(), "mixer write 0x04 0x0d0d");
}

// Without the board the clock request fails and the host clock does not
// move; two arguments open nothing.
TEST(Console, HostClockIsNeverMoved) {
  const std::string wav = fixtures::media("tone.wav");
  timespec wall0{}, mono0{}, wall1{}, mono1{};
  clock_gettime(CLOCK_REALTIME, &wall0);
  clock_gettime(CLOCK_MONOTONIC, &mono0);
  const ConsoleRun run = run_console({wav, wav}, {{"quit\n"}}, {}, false);
  clock_gettime(CLOCK_REALTIME, &wall1);
  clock_gettime(CLOCK_MONOTONIC, &mono1);
  EXPECT_TRUE(has(run.out, "argc =3\nError setting\n") && !has(run.out, "argv[1]")) << run.out;
  const double wall = (wall1.tv_sec - wall0.tv_sec) + (wall1.tv_nsec - wall0.tv_nsec) / 1e9;
  const double mono = (mono1.tv_sec - mono0.tv_sec) + (mono1.tv_nsec - mono0.tv_nsec) / 1e9;
  EXPECT_NEAR(wall, mono, 2.0);
  EXPECT_GT(wall1.tv_sec, 1700000000);  // not back in 2005
}

// An engine that cannot start or be released ends the console with 1.
TEST(Console, EngineFailuresEndTheConsoleWithOne) {
  ConsoleRun run = run_console({}, {{"quit\n"}}, {{"PMX_ENGINE_FAULTS", "event"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "MAIN pmx_engine initialize\nMedia Init failed: 1\nEngine init failed: 15\n")) << run.out;
  EXPECT_FALSE(has(run.out, "Command ('help' for help)"));
  run = run_console({}, {{"quit\n"}}, {{"PMX_ENGINE_FAULTS", "release=40"}});
  EXPECT_EQ(run.exit_code, 1);
  EXPECT_TRUE(has(run.out, "pmx main engine release\nMAI Engine failed to release: 40\nFailed to release pmx: 7\n"))
      << run.out;
}

const std::string AUDIO_MENU =
    "================  select input  ================\n 1 -> DAC,  2 -> MIC,  3 -> RADIO: "
    "======================  select output  ======================\n"
    " 1 -> speaker, 2 -> earphone, 3 -> line_out , 4 -> SPDIF  : ";
const std::string EQ_MENU =
    "0 : EQ_NORMAL \n1 : EQ_CLASSIC \n2 : EQ_ROCK \n3 : EQ_HIP_HOP \n4 : EQ_JAZZ \n5 : EQ_POP \n6 : EQ_R&B \n"
    "7 : EQ_USER \n\npreset : ";
const std::string DIRECTION = "Set disply dircetion?(1:LCD 2:composite 3:component)? ";
const std::string SPEEDS = "speed(sixteenth, eighth, quarter, half, 1x, 2x, 4x, 8x, 16x)?\t";
const std::string MUTE = "Audio_device Mute ? -> on / off : ";
const std::string OPENED = "i2cdrv Driver open Succes!! device number : *\n";

// One session on an AVI played at a hundredth of the speed (robust when slow).
TEST(Controls, TypedSessionOnAnAvi) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  ASSERT_FALSE(avi.empty());
  const std::vector<Typed> rows = {
      {"vol\n30\n", "input volume (volume range -> 0 to 40) : "},
      {"aud_path\n1\n3\non\n", AUDIO_MENU + "selected output 3 -> on / off : input state : 1 \n\n"},
      {"aud_path\n1\n5\n", AUDIO_MENU + "\nNot availible.... "},
      {"3D\non\n", "3D-> on / off : 3D ON...........\n"},
      {"M\non\n", MUTE},
      {"m\noff\n", MUTE},
      {"seteq\n2\n", EQ_MENU + "PMX set EQ\nband1= 1\nband2= -3\nband3= -1\nband4= 3\nband5= 5\n"
                               "command [SET EQ] : PMX_OK\neq.band1 : 1\n*"},
      {"seteq\n7\n20\n-20\n0\n5\n13\n", EQ_MENU + "band 1 :band 2 :band 3 :band 4 :band 5 :PMX set EQ\nband1= 12\n*"},
      {"geteq\n", "\neq.band1 : 12\neq.band2 : -12\neq.band3 : 0\neq.band4 : 5\neq.band5 : 12\n"},
      {"D\n", "\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x 808\n*wm9712 22h : 0x  2f\n*"},
      {"pos\n10\n20\n", "now set position\nX Pos  = Y Pos  = \nXpos = [10] YPos=[20]\n*command [POS] : PMX_OK\n"},
      {"size\n641\n100\n", "now scaling\nwidth  = height = \nwidth = [641] height=[100]\n*command [SIZE] : PMX_OK\n"},
      {"fullsize\n", "now set fullsize \ncommand [FULL SIZE] : PMX_OK\n"},
      {"autosize\n", "now autoscale \n*command [AUTOSIZE] : PMX_OK\n"},
      {"col\n60\n50\n40\n", "Enter the color values: \nRed (0-100)  = Green (0-100) = Blue (0-100)  = \n"
                            "Red = [60] Green=[50] Blue=[40]\ncommand [Color: ] : PMX_OK\n"},
      {"info\n", "current_src_order[7]\n======== info ==========\nvideo width=320\nvideo height=240\n"
                 "video framerate=25.000\nvideo PARV=3\nvideo PARH=4\naudio bitrate=128000\naudio channel=2\n"
                 "\n\t[FILE INFORMATION]\n*"},
      {"src\n1\n", "[-]FR 1:NORMAL [+]FF\nPlay Speed [100%][44100]\n"},
      {"time\n", "\ncurrent time =[0 min 0 sec] , total time =[0 min 2 sec] \n"},
      {"state\n", "state= 5\n"},
      {"seek\npercent\n25\n", "seeking\ntype(pos, percent, time, pkey, nkey)?arg = [pmx_transport.cpp][pmx_seek][*] "
                              "seek_type = [5]\ncommand [SEEK] : PMX_OK\n"},
      {"seek\nfoo\n", "seeking\ntype(pos, percent, time, pkey, nkey)?ERROR:invalid type\n "},
      {"pause\n", "now pausing \nmedia_pause status = 0\ncommand [PAUSE] : PMX_OK\n"},
      {"stop\n", "stopping \nmedia_stop status = 0\ncommand [STOP] : PMX_OK\n"},
      // The menu's "component" is composite to the API, 4 is no choice of
      // the menu; the next play fits the picture to the TV.
      {"direct\n1\n", DIRECTION + "LCD\n" + OPENED + "LCD__!!\ncommand [video out direction] : PMX_OK\n"},
      {"direct\n3\n", DIRECTION + "component\n" + OPENED + "TV__!!\ncommand [video out direction] : PMX_OK\n"},
      {"direct\n4\n", DIRECTION + "Invailed Argument "},
      {"play\n", "Playing file.\n*max xsize =640,max ysize =480 \n*command [PLAY] : PMX_OK\n"},
      {"ff\nhalf\n", "Forward Playing file.\n" + SPEEDS + "play speed = 0x00008000\nmedia_play status = 0\n"},
      {"fr\n", "Reverse Playing file.\nplay speed = 0x80080000\nmedia_play status = 0\n"
               "command [FAST FORWARD] : PMX_OK\n"},
      {"atrk\n1\n", "set audio track\ntrack # = command [set track audio] : PMX_OK\n"},
      {"mp3\n", ""},  // accepted, does nothing
      // A listed debug choice goes to the engine whatever its case.
      {"debug\nDEBUG SHOW STATE\n",
       "DEBUG ERROR INFO PRINTING\n\t debug help              - Display debug command help\n*"
       "\t debug show all          - Show all available debugging info\n\t choice?\t[state] engine *"},
      {"debug\ndebug show nothing\n", "DEBUG ERROR INFO PRINTING\n*\t choice?\t\nunknow debug command"},
      {"file\n", "\n\t[FILE INFORMATION]\n*"},
      {"close\n", "closing\nstopping \nmedia_stop status = 0\ncommand [CLOSE] : PMX_OK\n"},
      {"quit\n", "pmx main engine release\n"},
  };
  const ConsoleRun run = run_session({avi}, rows, {{"PMX_ENGINE_CLOCK", "0.01"}});
  EXPECT_EQ(count(run.out, "\t debug "), 2u * 17u);
  EXPECT_EQ(lines(run.log, "mixer write 0x04 0x0808").size(), 3u);  // volume 30 set, then re-applied twice
  // Line out on; 3D; muted and un-muted; the colour.
  EXPECT_TRUE(holds(run.log, {"mixer write 0x02 0x0000", "mixer write 0x22 0x002f", "mixer write 0x08 0x1f0f",
                              "mixer write 0x20 0x2000", "mixer write 0x26 0x400f", "mixer write 0x26 0x000f",
                              "mae csc 1176 0 1634 1104 4497 4928 1240 2065 0 61969 2169 61107"}));
}

// The end-of-file callback prints for normal play only (engine clock x10).
TEST(Controls, EndOfStreamOnlyInNormalPlay) {
  const std::string wav = fixtures::media("tone.wav");
  const std::vector<Typed> rows = {
      {"Open\n" + wav + "\n", "filename? Solution type=7\n*solution name =[pcm]\ncommand [OPEN] : PMX_OK\n"},
      {"ff\n16x\n", "Forward Playing file.\n" + SPEEDS + "play speed = 0x00100000\nmedia_play status = 0\n", 800},
      {"state\n", "state= 11\n"},  // the engine at the end
      {"fr\n", "Reverse Playing file.\n*command [FAST FORWARD] : PMX_OK\n", 800},
      {"state\n", "state= 11\n"},
      {"stop\n", "stopping \n*command [STOP] : PMX_OK\n"},
      // The callback prints on its own thread, after the prompt.
      {"play\n", "Playing file.\n*command [PLAY] : PMX_OK\n", 1000},
      {"quit\n", "*PMX_TEST : Eof file reached: 19\npmx main engine release\n*"},
  };
  EXPECT_EQ(count(run_session({}, rows, {{"PMX_ENGINE_CLOCK", "10"}}).out, "Eof file reached"), 1u);
}

// Without "/dev/mixer" the console starts and plays all the same.
TEST(Controls, AbsentMixer) {
  const std::string wav = fixtures::media("tone.wav"), none = " ->Error: cannot open Mixer device.\n";
  const std::string o = run_session({wav}, {{"quit\n", "pmx main engine release\n*"}},
                                    {{"PMX_BOARD_ABSENT", "mixer"}}).out;
  EXPECT_TRUE(has(o, "MAIN pmx_engine initialize\naudio_api_init" + none + "\naudio_device initialize success")) << o;
  EXPECT_TRUE(has(o, "argv[1] =" + wav + "\naudio_device_input_select" + none + "audio_device_output_ctrl" + none +
                         "audio_device_set_volume" + none + "Solution type=7"))
      << o;
  EXPECT_TRUE(has(o, "command [PLAY] : PMX_OK\n")) << o;
}

// The bytes of a WAV file's data chunk.
std::vector<char> data_chunk(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> wav{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  for (std::size_t pos = 12; pos + 8 <= wav.size();) {
    std::uint32_t size = 0;
    std::memcpy(&size, wav.data() + pos + 4, 4);
    if (std::memcmp(wav.data() + pos, "data", 4) == 0)
      return {wav.begin() + long(pos + 8), wav.begin() + long(std::min<std::size_t>(wav.size(), pos + 8 + size))};
    pos += 8 + size + (size & 1);
  }
  return {};
}

// Played unpaced to the end: the file's samples, then twelve zero 4096-byte blocks.
TEST(DirectWords, PlayToTheEndThenDeinit) {
  const std::string wav = fixtures::media("tone.wav");
  const std::vector<char> source = data_chunk(wav);
  ASSERT_FALSE(source.empty());
  const std::string cap = testing::TempDir() + "e2e_direct" + std::to_string(getpid()) + ".wav";
  auto played_all = [&] { return data_chunk(cap).size() >= source.size() + 12 * 4096; };
  const ConsoleRun run =
      run_console({}, {{"wav_init\n" + wav + "\nwav_play\n", "", 0, played_all}, {"wav_deinit\nquit\n"}},
                  {{"PMX_BOARD_DSP_CAPTURE", cap}, {"PMX_BOARD_DSP_SPEED", "0"}});
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(run.out, "wav filename? loaded " + wav + ": " + std::to_string(std::filesystem::file_size(wav)) +
                               " bytes\nPMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n") &&
              has(run.out, "padding: 11\nEND thread\n") && !has(run.out, "padding: 12\n"))
      << run.out;
  const std::vector<char> played = data_chunk(cap);
  std::remove(cap.c_str());
  ASSERT_EQ(played.size(), source.size() + 12 * 4096);
  EXPECT_TRUE(std::equal(source.begin(), source.end(), played.begin()));
  EXPECT_TRUE(std::all_of(played.begin() + long(source.size()), played.end(), [](char b) { return b == 0; }));
}

// Each word prints the result; wav_init while playing keeps the image (2);
// wav_deinit drops it (3). Real time: still playing when stopped.
TEST(DirectWords, ResultsAndTheImage) {
  const std::string wav = fixtures::media("tone.wav");
  const std::string init = "wav_init\n" + wav + "\n";
  run_session({}, {{init, "wav filename? loaded *PMX_DIRECT_PLAY_WAVE\npmx_init_direct_play = 0\n"},
                   {"wav_play\n", "pmx_direct_play = 0\n", 300},
                   {init, "wav filename? pmx_init_direct_play = 2\n"},
                   {"wav_stop\n", "*padding: 11\nEND thread\npmx_direct_stop = 0\n"},
                   {"wav_deinit\n", "pmx_deinit_direct_play = 0\n"},
                   {"wav_play\n", "pmx_direct_play = 3\n"},
                   {"quit\n", "pmx main engine release\n"}});
}

// Without the plug-ins init reports 1; an unopened file leaves nothing to play.
TEST(DirectWords, MissingPluginsOrFile) {
  const std::string wav = fixtures::media("tone.wav");
  std::string o = run_console({}, {{"wav_init\n" + wav + "\nwav_play\nquit\n"}}, {}, false).out;
  EXPECT_TRUE(has(o, "pmx_init_direct_play = 1\n") && has(o, "pmx_direct_play = 5\n")) << o;
  o = run_console({}, {{"wav_init\n/nonexistent/x.wav\nwav_play\nquit\n"}}).out;
  EXPECT_TRUE(has(o, "wav filename? cannot open /nonexistent/x.wav\n") && !has(o, "pmx_init_direct_play") &&
              has(o, "pmx_direct_play = 3\n"))
      << o;
}

}  // namespace
