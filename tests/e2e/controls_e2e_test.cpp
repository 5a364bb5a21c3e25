// The console's transport, display and audio commands end to end: each
// command held to its whole reply (prompts, answer parsing, the call it
// makes), the board's event log showing what reached the devices.
#include <gtest/gtest.h>

#include "tests/e2e/console_run.h"
#include "tests/support/fixtures.h"

namespace {

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

// One typed session over the commands on an AVI, its two seconds played
// at a hundredth of the speed so that it plays on however slow the machine.
TEST(Controls, TypedSessionOnAnAvi) {
  const std::string avi = fixtures::media("xvid_mp3.avi");
  ASSERT_FALSE(avi.empty());
  TempFile log("session.log");
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
      {"src\n+\n", "[-]FR 1:NORMAL [+]FF\nPlay Speed [114%][48000]\n"},
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
  const ConsoleRun run = run_session({avi}, rows, {{"PMX_BOARD_LOG", log.path}, {"PMX_ENGINE_CLOCK", "0.01"}});
  EXPECT_EQ(count(run.out, "\t debug "), 2u * 17u);
  EXPECT_EQ(log.lines("mixer write 0x04 0x0808").size(), 3u);  // volume 30 set, then re-applied twice
  EXPECT_TRUE(log.holds({"mixer write 0x02 0x0000",                                                    // line out on
                         "mixer write 0x22 0x002f", "mixer write 0x08 0x1f0f", "mixer write 0x20 0x2000",  // 3D
                         "mixer write 0x26 0x400f", "mixer write 0x26 0x000f"}));  // muted, un-muted
  EXPECT_TRUE(log.holds({"mae open", "mae csc 1176 0 1634 1104 4497 4928 1240 2065 0 61969 2169 61107", "mae close"}));
}

// The console's end-of-file callback prints once, for normal play only:
// not while fast forward or rewind reach the end (engine clock ten times
// faster, so the two-second tone ends in the pauses).
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

// Without "/dev/mixer" the console starts and plays all the same, every
// codec operation saying what it could not do.
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

}  // namespace
