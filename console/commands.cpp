// The command interpreter: one typed line names one command. Follow-up
// values are read line by line into `buf`.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "api/pmx_api.h"
#include "console/console.h"
#include "hw/audio_api.h"

char buf[CONSOLE_LINE_SIZE];

namespace {

char upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

// The whole line must equal the word; letters a..z compare without regard
// to case, every other byte as it is.
bool is_word(const char *line, const char *word) {
  while (*line != '\0' && *word != '\0') {
    if (upper(*line) != upper(*word)) return false;
    ++line;
    ++word;
  }
  return *line == '\0' && *word == '\0';
}

void print_status(const char *label, s32 status) { pmx_print_error(label, static_cast<u32>(status)); }

// Prints the prompt and reads one line into buf.
const char *ask(const char *prompt) {
  std::printf("%s", prompt);
  get_input(buf);
  return buf;
}

// A typed number in base 10; text that is no number gives 0.
long ask_number(const char *prompt) { return std::strtol(ask(prompt), nullptr, 10); }

// "off" switches off; any other answer switches on.
u32 ask_on_off(const char *prompt) { return is_word(ask(prompt), "off") ? 0 : 1; }

struct Named {
  const char *word;
  u32 value;
};

// Finds the answer among the words; false when it is none of them.
template <size_t N>
bool lookup(const Named (&names)[N], const char *answer, u32 *value) {
  for (const Named &n : names) {
    if (!is_word(answer, n.word)) continue;
    *value = n.value;
    return true;
  }
  return false;
}

constexpr const char *INVALID_TYPE = "ERROR:invalid type\n ";

int cmd_open() {
  print_status("OPEN", pmx_open(ask("filename? ")));
  return 0;
}

int cmd_play() {
  std::puts("Playing file.");
  print_status("PLAY", pmx_play());
  return 0;
}

int cmd_stop() {
  print_status("STOP", pmx_stop());
  return 0;
}

int cmd_close() {
  std::puts("closing");
  print_status("CLOSE", pmx_close());
  return 0;
}

int cmd_pause() {
  std::puts("now pausing ");
  print_status("PAUSE", pmx_pause());
  return 0;
}

// Rewind always runs at 8x; its status carries the forward label.
int cmd_fr() {
  std::puts("Reverse Playing file.");
  print_status("FAST FORWARD", pmx_fast_rewind(PMX_SPEED_8X));
  return 0;
}

constexpr Named speed_words[] = {
    {"sixteenth", PMX_SPEED_SIXTEENTH}, {"eighth", PMX_SPEED_EIGHTH}, {"quarter", PMX_SPEED_QUARTER},
    {"half", PMX_SPEED_HALF},           {"1x", PMX_SPEED_1X},         {"2x", PMX_SPEED_2X},
    {"4x", PMX_SPEED_4X},               {"8x", PMX_SPEED_8X},         {"16x", PMX_SPEED_16X},
};

int cmd_ff() {
  std::puts("Forward Playing file.");
  u32 speed = 0;
  if (!lookup(speed_words, ask("speed(sixteenth, eighth, quarter, half, 1x, 2x, 4x, 8x, 16x)?\t"), &speed)) {
    std::printf("%s", INVALID_TYPE);
    return 0;
  }
  pmx_fast_forward(speed);
  return 0;
}

constexpr Named seek_words[] = {
    {"pos", PMX_SEEK_POS},       {"time", PMX_SEEK_TIME},       {"nkey", PMX_SEEK_NEXT_KEY},
    {"pkey", PMX_SEEK_PREV_KEY}, {"percent", PMX_SEEK_PERCENT},
};

int cmd_seek() {
  std::puts("seeking");
  u32 type = 0;
  if (!lookup(seek_words, ask("type(pos, percent, time, pkey, nkey)?"), &type)) {
    std::printf("%s", INVALID_TYPE);
    return 0;
  }
  const long arg = ask_number("arg = ");
  print_status("SEEK", pmx_seek(type, static_cast<u32>(arg)));
  return 0;
}

constexpr Named speed_steps[] = {
    {"-", PMX_PLAYSPEED_SLOWER}, {"1", PMX_PLAYSPEED_NORMAL}, {"+", PMX_PLAYSPEED_FASTER},
};

int cmd_src() {
  std::puts("[-]FR 1:NORMAL [+]FF");
  get_input(buf);
  u32 direction = 0;
  if (!lookup(speed_steps, buf, &direction)) {
    std::printf("%s", INVALID_TYPE);
    return 0;
  }
  u32 percent = 0;
  pmx_change_playspeed(direction, &percent);
  return 0;
}

int cmd_time() {
  u64 current = 0, total = 0;
  const s32 status = pmx_get_time(&current, &total);
  if (status != 0) {
    std::printf("pmx_get_time failed: %d\n", static_cast<int>(status));
    return 0;
  }
  const auto minutes = [](u64 ms) { return static_cast<int>(ms / 60000); };
  const auto seconds = [](u64 ms) { return static_cast<int>(ms / 1000 % 60); };
  std::printf("\ncurrent time =[%d min %d sec] , total time =[%d min %d sec] \n", minutes(current), seconds(current),
              minutes(total), seconds(total));
  return 0;
}

int cmd_state() {
  std::printf("state= %d\n", static_cast<int>(pmx_get_state()));
  return 0;
}

int cmd_info() {
  PmxMediaInfo info{};
  pmx_get_media_info(&info);
  std::puts("======== info ==========");
  std::printf("video width=%d\n", static_cast<int>(info.video_width));
  std::printf("video height=%d\n", static_cast<int>(info.video_height));
  std::printf("video framerate=%02.03f\n", static_cast<double>(info.video_frame_rate));
  std::printf("video PARV=%d\n", static_cast<int>(info.video_par_v));
  std::printf("video PARH=%d\n", static_cast<int>(info.video_par_h));
  std::printf("audio bitrate=%d\n", static_cast<int>(info.audio_bitrate));
  std::printf("audio channel=%d\n", static_cast<int>(info.audio_channels));
  pmx_print_fileinfo();
  return 0;
}

int cmd_file() {
  pmx_print_fileinfo();
  return 0;
}

int cmd_fullsize() {
  std::puts("now set fullsize ");
  print_status("FULL SIZE", pmx_set_video_size(PMX_LCD_WIDTH, PMX_LCD_HEIGHT));
  return 0;
}

int cmd_autosize() {
  std::puts("now autoscale ");
  print_status("AUTOSIZE", pmx_set_video_autosize());
  return 0;
}

int cmd_size() {
  std::puts("now scaling");
  const long width = ask_number("width  = ");
  const long height = ask_number("height = ");
  std::printf("\nwidth = [%d] height=[%d]\n", static_cast<int>(width), static_cast<int>(height));
  print_status("SIZE", pmx_set_video_size(static_cast<u32>(width), static_cast<u32>(height)));
  return 0;
}

int cmd_pos() {
  std::puts("now set position");
  const long x = ask_number("X Pos  = ");
  const long y = ask_number("Y Pos  = ");
  std::printf("\nXpos = [%d] YPos=[%d]\n", static_cast<int>(x), static_cast<int>(y));
  print_status("POS", pmx_set_video_pos(static_cast<u32>(x), static_cast<u32>(y)));
  return 0;
}

int cmd_col() {
  std::puts("Enter the color values: ");
  const long r = ask_number("Red (0-100)  = ");
  const long g = ask_number("Green (0-100) = ");
  const long b = ask_number("Blue (0-100)  = ");
  std::printf("\nRed = [%d] Green=[%d] Blue=[%d]\n", static_cast<int>(r), static_cast<int>(g), static_cast<int>(b));
  print_status("Color: ", pmx_set_video_color(static_cast<u32>(r), static_cast<u32>(g), static_cast<u32>(b)));
  return 0;
}

// The answer goes to the API as typed: 3 says "component" but the API
// takes 3 as composite and 4 as component.
constexpr const char *direction_names[] = {"LCD", "composite", "component"};

int cmd_direct() {
  const long direction = ask_number("Set disply dircetion?(1:LCD 2:composite 3:component)? ");
  if (direction < 1 || direction > 3) {
    std::printf("Invailed Argument ");
    return 0;
  }
  std::puts(direction_names[direction - 1]);
  print_status("video out direction", pmx_set_video_direction(static_cast<u32>(direction)));
  return 0;
}

struct TrackCommand {
  const char *heading;
  const char *prompt;
  u32 kind;
  const char *label;
};

int select_track(const TrackCommand &t) {
  std::puts(t.heading);
  const long number = ask_number(t.prompt);
  print_status(t.label, pmx_set_track_selection(t.kind, static_cast<u32>(number)));
  return 0;
}

int cmd_atrk() { return select_track({"set audio track", "track # = ", 2, "set track audio"}); }
int cmd_vtrk() { return select_track({"set video track", "track # = ", 3, "set track video"}); }
int cmd_sub() { return select_track({"set subtitle", "subtitle # = ", 0, "set track subtitle"}); }
int cmd_chap() { return select_track({"set chaptor", "chaptor # = ", 1, "set track chaptor"}); }

int cmd_vol() {
  pmx_set_volume(static_cast<u32>(ask_number("input volume (volume range -> 0 to 40) : ")));
  return 0;
}

int cmd_aud_path() {
  std::puts("================  select input  ================");
  const long input = ask_number(" 1 -> DAC,  2 -> MIC,  3 -> RADIO: ");
  std::puts("======================  select output  ======================");
  // The codec numbers its outputs earphone 1, speaker 2: the menu's names
  // are the other way round, and the number goes through as typed.
  const long output = ask_number(" 1 -> speaker, 2 -> earphone, 3 -> line_out , 4 -> SPDIF  : ");
  if (output < OUTPUT_EARPHONE || output > OUTPUT_SPDIF) {
    std::printf("\nNot availible.... ");
    return 0;
  }
  char prompt[64];
  std::snprintf(prompt, sizeof prompt, "selected output %d -> on / off : ", static_cast<int>(output));
  const u32 on = ask_on_off(prompt);
  pmx_set_audio_input_select(static_cast<s32>(input));
  pmx_set_audio_output_ctrl(static_cast<s32>(output), on);
  return 0;
}

// 3D at full depth; bass and treble 15 leave the tone block flat, as the
// codec is set up.
constexpr u32 THREE_D_DEPTH = 15, THREE_D_BASS = 15, THREE_D_TREBLE = 15;

int cmd_3d() {
  pmx_set_audio_3D_ctrl(ask_on_off("3D-> on / off : "), THREE_D_DEPTH, THREE_D_BASS, THREE_D_TREBLE);
  return 0;
}

int cmd_mute() {
  pmx_set_audio_mute(ask_on_off("Audio_device Mute ? -> on / off : "));
  return 0;
}

constexpr const char *eq_presets[] = {
    "0 : EQ_NORMAL ", "1 : EQ_CLASSIC ", "2 : EQ_ROCK ", "3 : EQ_HIP_HOP ",
    "4 : EQ_JAZZ ",   "5 : EQ_POP ",     "6 : EQ_R&B ",  "7 : EQ_USER ",
};

void print_bands(const s8 *bands) {
  for (u32 i = 0; i < PMX_EQ_BANDS; ++i) std::printf("eq.band%d : %d\n", static_cast<int>(i + 1), bands[i]);
}

int cmd_seteq() {
  for (const char *preset : eq_presets) std::puts(preset);
  const long preset = ask_number("\npreset : ");
  s8 bands[PMX_EQ_BANDS] = {};
  if (preset == PMX_EQ_USER) {
    for (u32 i = 0; i < PMX_EQ_BANDS; ++i) {
      char prompt[16];
      std::snprintf(prompt, sizeof prompt, "band %d :", static_cast<int>(i + 1));
      bands[i] = static_cast<s8>(ask_number(prompt));
    }
  }
  print_status("SET EQ", pmx_set_EQ(static_cast<u32>(preset), bands));
  if (pmx_get_EQ_band_value(bands) == 0) print_bands(bands);
  return 0;
}

int cmd_geteq() {
  s8 bands[PMX_EQ_BANDS] = {};
  if (pmx_get_EQ_band_value(bands) != 0) {
    std::puts("Equalizer band value read Fail...!!!");
    return 0;
  }
  std::printf("\n");
  print_bands(bands);
  return 0;
}

int cmd_dump() {
  WM9712_printf_register();
  return 0;
}

int cmd_wav_init() {
  direct_play_test(0);
  return 0;
}
int cmd_wav_play() {
  direct_play_test(1);
  return 0;
}
int cmd_wav_stop() {
  direct_play_test(2);
  return 0;
}
int cmd_wav_deinit() {
  direct_play_test(3);
  return 0;
}

// Accepted and ignored.
int cmd_mp3() { return 0; }

constexpr const char *debug_help[] = {
    "\t debug help              - Display debug command help",
    "\t debug show              - Show current debug settings",
    "\t debug on|off            - Turn all debugging on/off",
    "\t debug show on|off       - Turn status display on/off",
    "\t debug sync on|off       - Turn sync debugging on/off",
    "\t debug error on|off      - Turn error debugging on/off",
    "\t debug states on|off     - Turn state debugging on/off",
    "\t debug progress on|off   - Turn progress debugging on/off",
    "\t debug commands on|off   - Turn command debugging on/off",
    "\t debug trace on|off      - Turn trace debugging on/off",
    "\t debug ellapsed on|off   - Turn ellapsed time display on/off",
    "\t debug show sync         - Show sync information",
    "\t debug show state        - Show state information",
    "\t debug show config       - Show configuration information",
    "\t debug show solutions    - Show available solutions",
    "\t debug show comps        - Show component information",
    "\t debug show all          - Show all available debugging info",
};

// The engine's debug commands the console passes on.
constexpr const char *debug_commands[] = {
    "debug help",         "debug show",          "debug on",          "debug off",
    "debug show on",      "debug show off",      "debug sync on",     "debug sync off",
    "debug error on",     "debug error off",     "debug states on",   "debug states off",
    "debug progress on",  "debug progress off",  "debug commands on", "debug commands off",
    "debug trace on",     "debug trace off",     "debug ellapsed on", "debug ellapsed off",
    "debug show sync",    "debug show state",    "debug show config", "debug show solutions",
    "debug show comps",   "debug show all",
};

int cmd_debug() {
  std::puts("DEBUG ERROR INFO PRINTING");
  for (const char *line : debug_help) std::puts(line);
  const char *choice = ask("\t choice?\t");
  for (const char *command : debug_commands) {
    if (!is_word(choice, command)) continue;
    pmx_debug(choice);
    return 0;
  }
  std::printf("\nunknow debug command");
  return 0;
}

int cmd_help() {
  showhelp();
  return 0;
}

int cmd_quit() { return 1; }

struct Command {
  const char *word;
  int (*run)();
};

constexpr Command commands[] = {
    {"open", cmd_open},         {"play", cmd_play},       {"stop", cmd_stop},
    {"close", cmd_close},       {"pause", cmd_pause},     {"fr", cmd_fr},
    {"ff", cmd_ff},             {"seek", cmd_seek},       {"src", cmd_src},
    {"time", cmd_time},         {"state", cmd_state},     {"info", cmd_info},
    {"file", cmd_file},         {"fullsize", cmd_fullsize}, {"autosize", cmd_autosize},
    {"size", cmd_size},         {"pos", cmd_pos},         {"col", cmd_col},
    {"direct", cmd_direct},     {"atrk", cmd_atrk},       {"vtrk", cmd_vtrk},
    {"sub", cmd_sub},           {"chap", cmd_chap},       {"vol", cmd_vol},
    {"aud_path", cmd_aud_path}, {"3D", cmd_3d},           {"M", cmd_mute},
    {"seteq", cmd_seteq},       {"geteq", cmd_geteq},     {"d", cmd_dump},
    {"wav_init", cmd_wav_init}, {"wav_play", cmd_wav_play}, {"wav_stop", cmd_wav_stop},
    {"wav_deinit", cmd_wav_deinit},
    {"mp3", cmd_mp3},           {"debug", cmd_debug},     {"help", cmd_help},
    {"quit", cmd_quit},
};

}  // namespace

int do_command(const char *line) {
  for (const Command &c : commands)
    if (is_word(line, c.word)) return c.run();
  std::puts("unkown command");
  return 0;
}
