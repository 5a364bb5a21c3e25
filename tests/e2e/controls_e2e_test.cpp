// The console's transport, display and audio commands, end to end: the real
// binary on the host engine and the virtual board, typed at as an engineer
// would, with the board's event log to see what reached the devices.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

bool has(const std::string &text, const std::string &part) { return text.find(part) != std::string::npos; }

size_t count(const std::string &text, const std::string &part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// A board event log private to the test.
struct BoardLog {
  std::string path;
  explicit BoardLog(const std::string &name)
      : path(testing::TempDir() + "controls_" + name + "_" + std::to_string(getpid()) + ".log") {
    std::remove(path.c_str());
  }
  ~BoardLog() { std::remove(path.c_str()); }
  std::pair<std::string, std::string> env() const { return {"PMX_BOARD_LOG", path}; }
  std::vector<std::string> lines() const {
    std::vector<std::string> out;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
  }
  // The lines that start with `prefix`, in order.
  std::vector<std::string> lines(const std::string &prefix) const {
    std::vector<std::string> out;
    for (const std::string &l : lines())
      if (l.rfind(prefix, 0) == 0) out.push_back(l);
    return out;
  }
  bool contains(const std::vector<std::string> &sequence) const {
    const std::vector<std::string> all = lines();
    size_t next = 0;
    for (const std::string &l : all)
      if (next < sequence.size() && l == sequence[next]) ++next;
    return next == sequence.size();
  }
};

TEST(Controls, StartUpSetsUpTheCodecAndPlays) {
  const std::string wav = fixtures::media("tone.wav");
  ASSERT_FALSE(wav.empty());
  BoardLog log("startup");
  const ConsoleRun run = run_console({wav}, "quit\n", {log.env()});
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(run.out, "MAIN pmx_engine initialize\n\naudio_device initialize success.....!!\n\n###")) << run.out;
  EXPECT_FALSE(has(run.out, "cannot open Mixer device"));
  EXPECT_TRUE(has(run.out, "argv[1] =" + wav + "\ninput state : 1 \n\n")) << run.out;
  EXPECT_TRUE(has(run.out, "command [OPEN] : PMX_OK\nplay speed = 0x00010000\n")) << run.out;
  EXPECT_TRUE(has(run.out, "command [PLAY] : PMX_OK\n"));

  // The board's view: the clock of the fixed date, the codec's defaults,
  // then DAC input, earphone on and volume 25.
  EXPECT_FALSE(log.lines("clock set ").empty());
  const std::vector<std::string> defaults = {
      "mixer write 0x02 0x8000", "mixer write 0x04 0x8000", "mixer write 0x06 0x8000", "mixer write 0x08 0x0f0f",
      "mixer write 0x0a 0xfff0", "mixer write 0x0c 0xc000", "mixer write 0x0e 0x6080", "mixer write 0x10 0xe808",
      "mixer write 0x12 0x8080", "mixer write 0x14 0xad00", "mixer write 0x16 0x8100", "mixer write 0x18 0xe808",
      "mixer write 0x1a 0x3000", "mixer write 0x1c 0x8000", "mixer write 0x20 0x0000", "mixer write 0x22 0x0f0f",
  };
  const std::vector<std::string> writes = log.lines("mixer write");
  ASSERT_GE(writes.size(), defaults.size());
  EXPECT_EQ(std::vector<std::string>(writes.begin(), writes.begin() + 16), defaults);
  // Input select (DAC), earphone on, then the volume on the earphone.
  EXPECT_TRUE(log.contains({"mixer write 0x22 0x0f0f", "mixer close", "mixer open", "mixer write 0x18 0x4808",
                            "mixer write 0x1a 0x3000", "mixer close", "mixer open", "mixer write 0x04 0x8000",
                            "mixer close", "mixer open", "mixer write 0x04 0x0d0d", "mixer close"}));
  EXPECT_EQ(writes.back(), "mixer write 0x04 0x0d0d");
}

// One typed session over the audio and display commands.
TEST(Controls, TypedSessionOnAnAvi) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  ASSERT_FALSE(avi.empty());
  BoardLog log("session");
  const std::string typed =
      "vol\n30\n"
      "vol\n41\n"
      "aud_path\n1\n3\non\n"
      "aud_path\n1\n5\n"
      "3D\non\n"
      "M\non\n"
      "m\noff\n"
      "seteq\n2\n"
      "seteq\n7\n20\n-20\n0\n5\n13\n"
      "geteq\n"
      "D\n"
      "pos\n10\n20\n"
      "size\n641\n100\n"
      "fullsize\n"
      "autosize\n"
      "col\n60\n50\n40\n"
      "direct\n2\n"
      "info\n"
      "src\n+\n"
      "src\n1\n"
      "time\n"
      "state\n"
      "seek\npercent\n25\n"
      "seek\nfoo\n"
      "pause\n"
      "state\n"
      "stop\n"
      "direct\n4\n"
      "direct\n9\n"
      "atrk\n1\n"
      "mp3\n"
      "file\n"
      "close\n"
      "quit\n";
  const ConsoleRun run = run_console({avi}, typed, {log.env()});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);

  // Audio.
  EXPECT_TRUE(has(o, "input volume (volume range -> 0 to 40) : \nCommand")) << o;
  EXPECT_TRUE(has(o, "================  select input  ================\n 1 -> DAC,  2 -> MIC,  3 -> RADIO: "
                     "======================  select output  ======================\n 1 -> speaker, 2 -> earphone, "
                     "3 -> line_out , 4 -> SPDIF  : selected output 3 -> on / off : input state : 1 \n"))
      << o;
  EXPECT_TRUE(has(o, "4 -> SPDIF  : \nNot availible.... \nCommand")) << o;
  EXPECT_TRUE(has(o, "3D-> on / off : 3D ON...........\n")) << o;
  EXPECT_EQ(count(o, "Audio_device Mute ? -> on / off : "), 2u);
  EXPECT_TRUE(has(o, "7 : EQ_USER \n\npreset : PMX set EQ\nband1= 1\nband2= -3\nband3= -1\nband4= 3\nband5= 5\n"
                     "command [SET EQ] : PMX_OK\neq.band1 : 1\n"))
      << o;
  EXPECT_TRUE(has(o, "preset : band 1 :band 2 :band 3 :band 4 :band 5 :PMX set EQ\nband1= 12\nband2= -12\n"
                     "band3= 0\nband4= 5\nband5= 12\ncommand [SET EQ] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(has(o, "Command ('help' for help): \neq.band1 : 12\neq.band2 : -12\neq.band3 : 0\neq.band4 : 5\n"
                     "eq.band5 : 12\n"))
      << o;
  EXPECT_TRUE(has(o, "\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x 808\n")) << o;
  EXPECT_TRUE(has(o, "wm9712 22h : 0x  2f\n")) << o;
  EXPECT_TRUE(log.contains({"mixer write 0x04 0x0808"}));            // volume 30
  EXPECT_TRUE(log.contains({"mixer write 0x02 0x0000"}));            // line out on
  EXPECT_TRUE(log.contains({"mixer write 0x22 0x002f", "mixer write 0x08 0x1f0f", "mixer write 0x20 0x2000"}));
  EXPECT_TRUE(log.contains({"mixer write 0x20 0x2000", "mixer close", "mixer open", "mixer read 0x26 0x000f",
                            "mixer read 0x24 0x1c05", "mixer write 0x26 0x400f"}));  // muted
  EXPECT_EQ(log.lines("mixer write 0x04 0x0808").size(), 3u);  // volume 41 never reached the codec

  // Display.
  EXPECT_TRUE(has(o, "now set position\nX Pos  = Y Pos  = \nXpos = [10] YPos=[20]\n"
                     "video pos : xsize =480,ysize = 90\ncommand [POS] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(has(o, "now scaling\nwidth  = height = \nwidth = [641] height=[100]\n"
                     " media_set_videoscale() warning MAX_WIDTH=[640] width:[641]\ncommand [SIZE] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(has(o, "now set fullsize \ncommand [FULL SIZE] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "now autoscale \nmax xsize =480,max ysize =272 \ndstXsize[480],dstYsize[90]\n"
                     "command [AUTOSIZE] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(has(o, "Enter the color values: \nRed (0-100)  = Green (0-100) = Blue (0-100)  = \n"
                     "Red = [60] Green=[50] Blue=[40]\ncommand [Color: ] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(log.contains({"mae open", "mae csc 1176 0 1634 1104 4497 4928 1240 2065 0 61969 2169 61107", "mae close"}));
  // Refused while playing, done once stopped; 4 is no choice of the menu.
  EXPECT_TRUE(has(o, "(1:LCD 2:composite 3:component)? composite\ncommand [video out direction] : PMX_WRONG_STATE\n"))
      << o;
  EXPECT_TRUE(has(o, "(1:LCD 2:composite 3:component)? Invailed Argument \nCommand")) << o;
  EXPECT_EQ(count(o, "Invailed Argument "), 2u);
  EXPECT_TRUE(log.lines("i2cdrv ioctl").empty());

  // Media information and speed change.
  EXPECT_TRUE(has(o, "current_src_order[7]\n======== info ==========\nvideo width=320\nvideo height=240\n"
                     "video framerate=25.000\nvideo PARV=3\nvideo PARH=4\naudio bitrate=128000\naudio channel=2\n"
                     "\n\t[FILE INFORMATION]\n"))
      << o;
  EXPECT_TRUE(has(o, "[-]FR 1:NORMAL [+]FF\nPlay Speed [114%][48000]\n")) << o;
  EXPECT_TRUE(has(o, "[-]FR 1:NORMAL [+]FF\nPlay Speed [100%][44100]\n")) << o;

  // Transport.
  EXPECT_TRUE(has(o, "\ncurrent time =[0 min ")) << o;
  EXPECT_TRUE(has(o, " sec] , total time =[0 min 2 sec] \n")) << o;
  EXPECT_TRUE(has(o, "state= 5\n")) << o;
  EXPECT_TRUE(has(o, "seeking\ntype(pos, percent, time, pkey, nkey)?arg = [pmx_transport.cpp][pmx_seek][")) << o;
  EXPECT_TRUE(has(o, "] seek_type = [5]\ncommand [SEEK] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "type(pos, percent, time, pkey, nkey)?ERROR:invalid type\n \nCommand")) << o;
  EXPECT_TRUE(has(o, "now pausing \nmedia_pause status = 0\ncommand [PAUSE] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "state= 7\n")) << o;
  EXPECT_TRUE(has(o, "stopping \nmedia_stop status = 0\ncommand [STOP] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "set audio track\ntrack # = command [set track audio] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "closing\nstopping \nmedia_stop status = 0\ncommand [CLOSE] : PMX_OK\n")) << o;
  // mp3 is accepted and does nothing.
  EXPECT_EQ(count(o, "unkown command"), 0u) << o;
  EXPECT_TRUE(has(o, "\t[CURRENT DISPLAY SETTING INFORMATION]\n")) << o;
}

TEST(Controls, OutputDirectionAndTrickPlay) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  BoardLog log("direction");
  const std::string typed = "stop\ndirect\n1\ndirect\n2\ndirect\n3\nplay\nff\n3x\nff\nhalf\nfr\nstop\nquit\n";
  const ConsoleRun run = run_console({avi}, typed, {log.env()});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(o, "(1:LCD 2:composite 3:component)? LCD\ni2cdrv Driver open Succes!! device number : ")) << o;
  EXPECT_TRUE(has(o, "LCD__!!\ncommand [video out direction] : PMX_OK\n")) << o;
  // The menu's "component" is composite to the API.
  EXPECT_TRUE(has(o, "(1:LCD 2:composite 3:component)? component\ni2cdrv Driver open Succes!!")) << o;
  EXPECT_EQ(count(o, "TV__!!\ncommand [video out direction] : PMX_OK\n"), 2u) << o;
  EXPECT_EQ(log.lines("i2cdrv ioctl"),
            (std::vector<std::string>{"i2cdrv ioctl 0x2000740b", "i2cdrv ioctl 0x2000740c", "i2cdrv ioctl 0x2000740c"}));
  // The next play fits the picture to the TV.
  EXPECT_TRUE(has(o, "Playing file.\nplay speed = 0x00010000\n")) << o;
  EXPECT_TRUE(has(o, "max xsize =640,max ysize =480 \ndstXsize[640],dstYsize[120]\ncommand [PLAY] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "speed(sixteenth, eighth, quarter, half, 1x, 2x, 4x, 8x, 16x)?\tERROR:invalid type\n \nCommand"))
      << o;
  EXPECT_TRUE(has(o, "speed(sixteenth, eighth, quarter, half, 1x, 2x, 4x, 8x, 16x)?\tplay speed = 0x00008000\n"
                     "media_play status = 0\n\nCommand"))
      << o;
  EXPECT_TRUE(has(o, "Reverse Playing file.\nplay speed = 0x80080000\nmedia_play status = 0\n"
                     "command [FAST FORWARD] : PMX_OK\n"))
      << o;
}

// The end of the stream is not reported while fast forward or rewind runs;
// after a stop, normal play reports it.
TEST(Controls, EndOfStreamDuringTrickPlayIsNotReported) {
  const std::string wav = fixtures::media("tone.wav");
  const std::vector<TypedInput> typed = {
      {"open\n" + wav + "\nff\n16x\n", 800},
      {"state\nfr\n", 800},
      {"state\nstop\nplay\n", 1000},
      {"state\nquit\n", 0},
  };
  const ConsoleRun run = run_console_paced({}, typed, {{"PMX_ENGINE_CLOCK", "10"}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  const size_t played = o.find(": Playing file.\n");
  ASSERT_NE(played, std::string::npos) << o;
  const std::string trick = o.substr(0, played);
  EXPECT_EQ(count(trick, "state= 11\n"), 2u) << o;  // the engine at the end of the stream, twice
  EXPECT_FALSE(has(trick, "Eof file reached")) << o;
  EXPECT_FALSE(has(trick, "EndOfStream")) << o;
  EXPECT_EQ(count(o, "PMX_TEST : Eof file reached: 19\n"), 1u) << o;
}

// S/PDIF switched on through aud_path: AVI files with AC-3 or DTS audio
// connect as the pass-through solution.
TEST(Controls, SpdifPassThroughOpen) {
  const std::string ac3 = fixtures::media("xvid_ac3.avi");
  const std::string dts = fixtures::media("xvid_dts.avi");
  const std::string mp3 = fixtures::media("xvid_mp3.avi");
  ASSERT_FALSE(ac3.empty());
  ASSERT_FALSE(dts.empty());
  BoardLog log("spdif");
  const std::string typed = "open\n" + ac3 + "\nclose\naud_path\n1\n4\non\nopen\n" + ac3 + "\nclose\nopen\n" + dts +
                            "\nclose\nopen\n" + mp3 + "\nclose\naud_path\n1\n4\noff\nopen\n" + dts + "\nquit\n";
  const ConsoleRun run = run_console({}, typed, {log.env()});
  const std::string &o = run.out;
  EXPECT_EQ(count(o, "command [OPEN] : PMX_OK\n"), 5u) << o;
  EXPECT_TRUE(has(o, "solution name =[avimpv4_ac3]\nDetected DTS Stream...soution name = [avimpv4_spdif]\n"
                     "command [OPEN] : PMX_OK\n"))
      << o;
  EXPECT_TRUE(has(o, "solution name =[avimpv4_dts]\nDetected DTS Stream...soution name = [avimpv4_spdif]\n"
                     "command [OPEN] : PMX_OK\n"))
      << o;
  EXPECT_EQ(count(o, "Detected DTS Stream..."), 2u) << o;
  EXPECT_TRUE(has(o, "solution name =[avimpv4_mp3]\ncommand [OPEN] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "solution name =[avimpv4_dts]\ncommand [OPEN] : PMX_OK\n")) << o;
  // The codec's S/PDIF output went on and off.
  EXPECT_TRUE(log.contains({"mixer write 0x3a 0x2000", "mixer write 0x2a 0x0004", "mixer write 0x2a 0x0410"}));
}

// Without "/dev/mixer" every codec operation says so and the console goes on.
TEST(Controls, AbsentMixer) {
  const std::string wav = fixtures::media("tone.wav");
  const std::string typed = "vol\n20\naud_path\n1\n2\non\n3D\non\nM\non\nd\nplay\nquit\n";
  const ConsoleRun run = run_console({wav}, typed, {{"PMX_BOARD_ABSENT", "mixer"}});
  const std::string &o = run.out;
  EXPECT_EQ(run.exit_code, 0);
  EXPECT_TRUE(has(o, "MAIN pmx_engine initialize\naudio_api_init ->Error: cannot open Mixer device.\n"
                     "\naudio_device initialize success.....!!\n"))
      << o;
  EXPECT_TRUE(has(o, "argv[1] =" + wav + "\naudio_device_input_select ->Error: cannot open Mixer device.\n"
                     "audio_device_output_ctrl ->Error: cannot open Mixer device.\n"
                     "audio_device_set_volume ->Error: cannot open Mixer device.\n"))
      << o;
  EXPECT_TRUE(has(o, "command [OPEN] : PMX_OK\n")) << o;
  EXPECT_TRUE(has(o, "(volume range -> 0 to 40) : audio_device_set_volume ->Error: cannot open Mixer device.\n"))
      << o;
  EXPECT_TRUE(has(o, "on / off : audio_device_input_select ->Error: cannot open Mixer device.\n"
                     "audio_device_output_ctrl ->Error: cannot open Mixer device.\n"))
      << o;
  EXPECT_TRUE(has(o, "3D-> on / off : audio_device_3D_ctrl ->Error: cannot open Mixer device.\n")) << o;
  // Mute finds no output switched on before it needs the device.
  EXPECT_TRUE(has(o, "Mute ? -> on / off : audio_device_mute : Possible Output None..\n")) << o;
  EXPECT_TRUE(has(o, "WM9712_printf_register ->Error: cannot open Mixer device.\n")) << o;
  EXPECT_EQ(count(o, "command [PLAY] : PMX_OK\n"), 2u) << o;
}

TEST(Controls, EngineDebugCommands) {
  const std::string wav = fixtures::media("tone.wav");
  const ConsoleRun run = run_console({wav}, "debug\nDEBUG SHOW STATE\ndebug\ndebug show nothing\nquit\n");
  const std::string &o = run.out;
  EXPECT_TRUE(has(o, "DEBUG ERROR INFO PRINTING\n\t debug help              - Display debug command help\n")) << o;
  EXPECT_TRUE(has(o, "\t debug show all          - Show all available debugging info\n\t choice?\t")) << o;
  EXPECT_EQ(count(o, "\t debug "), 2u * 17u) << o;
  EXPECT_TRUE(has(o, "\t choice?\t\nunknow debug command\nCommand")) << o;
  EXPECT_EQ(count(o, "unknow debug command"), 1u) << o;
}

}  // namespace
