#include <cstdio>

#include "console/console.h"

namespace {

constexpr const char *help_lines[] = {
    "###################################################",
    "#############   PMX API TEST (v1.1)  ##############",
    "\t ./pmxtestapp [filenam] : automatic play",
    "==================================================",
    "\topen      :  file open ",
    "\tplay      :  play  file",
    "\tstop      :  stop file",
    "\tpause     :  pause file",
    "\tquit      :  quit this program",
    "\tfr        :  fast rewind",
    "\tff        :  fast forward",
    "\tseek      :  seek",
    "\tsrc       :  ff/fr with audio",
    "\ttime      :  print current, total time ",
    "\tatrk      :  audio track selection ",
    "\tsub       :  divx subtitle ",
    "==================================================",
    "\tvol       :  volume",
    "\taud_path  :  audio_output",
    "\tseteq     :  setup EQ",
    "\tgeteq     :  get Equalizer band Value..",
    "\t3D        :  wolfson 3D function..",
    "\tM(mute)   :  audio_mute(without line_out)",
    "==================================================",
    "\tfullsize  :  fullsize video display ",
    "\tscale     :  change width,height",
    "\tautosize  :  auto adjust scale ",
    "\tpos       :  move display position ",
    "\tcol       :  change video display rgb values",
    "\tdirect    :  change display direct(LCD,COMPOSITE,COMPONENT",
    "\tfile      :  print file infomation ",
    "\tinfo      :  get infomation ",
    "\twav_init  :  initialize for playing wav audio  directly ",
    "\twav_play  :  play wav audio  directly ",
    "\twav_stop  :  stop wav audio   ",
    "\twav_deinit:  deinitialize wav audio ",
    "==================================================",
    "\tfbio       :  frame buffer control ",
    "\tfbset      :  frame buffer preset ",
    "==================================================",
    "\tzen       :  zen min test app ",
    "###################################################",
};

}  // namespace

void showprompt() { std::printf("\nCommand ('help' for help): "); }

void showhelp() {
  for (const char *line : help_lines) std::printf("%s\n", line);
}
