// The media control API: the calls through which the console drives the
// media engine. Every call returns one of the status codes below.
#pragma once
#include "platform/mai_types.h"

enum PmxStatus : s32 {
  PMX_OK = 0,
  PMX_FAILED = 1,
  PMX_BUSY = 2,
  PMX_INVALID_ARG = 3,
  PMX_ALREADY_INITIALIZED = 4,
  PMX_NOT_INITIALIZED = 5,
  PMX_FILE_NOT_FOUND = 6,
  PMX_UNSUPPORTED_FORMAT = 7,
  PMX_UNKNOWN_FORMAT = 8,
  PMX_OPEN_FAILED = 9,
  PMX_NO_FILE_OPEN = 10,
  PMX_FILE_ALREADY_OPEN = 11,
  PMX_UNSUPPORTED = 12,
  PMX_EOS = 13,
  PMX_WRONG_STATE = 14,
  PMX_UNKNOWN = 15,
  PMX_UNSUPPORT_RESOLUTION = 16,
  PMX_WMV78_RESOLUTION_WARNNING = 17,
  // 18 to 25 come from engine statuses the API has no name for.
  PMX_STATUS_COUNT = 27,
};

// API playback states.
constexpr u32 PMX_STATE_NONE = 0;
constexpr u32 PMX_STATE_PLAYING = 5;
constexpr u32 PMX_STATE_PAUSED = 7;
constexpr u32 PMX_STATE_TRICK = 11;     // fast forward or rewind
constexpr u32 PMX_STATE_SEEKED = 12;
constexpr u32 PMX_STATE_STOPPED = 14;

// Status handed to the end-of-stream callback.
constexpr s32 PMX_EOS_CALLBACK_STATUS = 19;

typedef int (*PmxCallback)(int status);

// ---- Session and file opening ----
s32 pmx_init(PmxCallback error_cb, PmxCallback eos_cb);
s32 pmx_release();
s32 pmx_open(const char *file);
s32 pmx_close();
s32 pmx_waitforstate(u32 state);
s32 pmx_set_support(u32 mode);
s32 pmx_debug(const char *command);

// ---- Transport ----
// Speed codes of fast forward and rewind, the console's speed words in order.
enum PmxSpeed : u32 {
  PMX_SPEED_SIXTEENTH = 0,
  PMX_SPEED_EIGHTH = 1,
  PMX_SPEED_QUARTER = 2,
  PMX_SPEED_HALF = 3,
  PMX_SPEED_1X = 4,
  PMX_SPEED_2X = 5,
  PMX_SPEED_4X = 6,
  PMX_SPEED_8X = 7,
  PMX_SPEED_16X = 8,
};
// Seek targets of pmx_seek.
enum PmxSeek : u32 {
  PMX_SEEK_POS = 1,      // milliseconds
  PMX_SEEK_TIME = 2,     // milliseconds
  PMX_SEEK_NEXT_KEY = 3,
  PMX_SEEK_PREV_KEY = 4,
  PMX_SEEK_PERCENT = 5,  // whole percent
};
// Directions of pmx_change_playspeed.
enum PmxPlayspeed : u32 {
  PMX_PLAYSPEED_SLOWER = 0,
  PMX_PLAYSPEED_NORMAL = 1,
  PMX_PLAYSPEED_FASTER = 2,
};

s32 pmx_play();
s32 pmx_pause();
s32 pmx_stop();
s32 pmx_fast_forward(u32 speed_code);
s32 pmx_fast_rewind(u32 speed_code);
s32 pmx_seek(u32 type, u32 value);
// Steps the audio output sample rate; writes the speed in percent.
// pmx_get_media_info must have found the stream's own rate first.
s32 pmx_change_playspeed(u32 direction, u32 *percent);
// Current and total time in milliseconds.
s32 pmx_get_time(u64 *current, u64 *total);
// The engine's state mapped to an API state; also stored as the API state.
u32 pmx_get_state();
// Direct playback of a file image while the engine does not play: 2 while
// the engine plays, else the result of _pmx_direct_play.
s32 pmx_direct_play(const void *data, u32 length);

// ---- Video display ----
// Screen of the LCD and of the TV out, in pixels.
constexpr u32 PMX_LCD_WIDTH = 480, PMX_LCD_HEIGHT = 272;
constexpr u32 PMX_TV_WIDTH = 640, PMX_TV_HEIGHT = 480;
// Outputs of pmx_set_video_direction.
constexpr u32 PMX_DIRECTION_MIN = 1, PMX_DIRECTION_MAX = 6;

s32 pmx_set_video_autosize();
s32 pmx_set_video_pos(u32 x, u32 y);
s32 pmx_set_video_size(u32 width, u32 height);
// Red, green and blue gains, 0..100; 50 leaves a gain as it is.
s32 pmx_set_video_color(u32 r, u32 g, u32 b);
// 2 or 3: composite TV, 4: component TV, any other of 1..6: the LCD.
s32 pmx_set_video_direction(u32 direction);
s32 pmx_set_tvout_position(u32 x, u32 y);

// ---- Audio, equaliser and tracks ----
// Equaliser presets of pmx_set_EQ; 7 (and 8) take the caller's band values.
constexpr u32 PMX_EQ_USER = 7;
constexpr u32 PMX_EQ_BANDS = 5;
constexpr s8 PMX_EQ_GAIN_MAX = 12;

s32 pmx_set_audio_device_init();
s32 pmx_set_volume(u32 volume);
// Output 4 is S/PDIF: switching it also decides the pass-through solutions
// of the next open.
s32 pmx_set_audio_output_ctrl(s32 output, u32 on);
s32 pmx_set_audio_input_select(s32 input);
s32 pmx_set_audio_mute(u32 on);
s32 pmx_set_audio_3D_ctrl(u32 on, u32 depth, u32 bass, u32 treble);
u8 pmx_get_audio_output_state(s32 output);
u8 pmx_get_audio_input_state();
u8 pmx_get_volume();
s32 pmx_set_MIC_sensitivity(s32 sense);
s32 pmx_set_EQ(u32 preset, s8 *bands);
s32 pmx_get_EQ_band_value(s8 *bands);
// Kind 0 sets the first track field and its enable flag, kinds 1 to 3 the
// second to fourth track fields of the engine's track selection.
s32 pmx_set_track_selection(u32 kind, u32 number);

// What pmx_get_media_info hands out: the prescan's view of the open file.
struct PmxMediaInfo {
  u32 video_height;
  u32 video_width;
  float video_aspect;       // display aspect ratio, width / height
  u32 video_par_h;          // the same as whole parts h:v, 0:0 when unknown
  u32 video_par_v;
  float video_frame_rate;   // frames per second
  float video_bitrate;      // bits per second
  u32 audio_bitrate;        // bits per second
  u16 audio_channels;
  u16 reserved0;
  u32 audio_sample_rate;    // Hz
  u8 reserved1[8];
  u8 tag[512];              // UTF-16LE "title - artist", NUL-terminated
};
static_assert(sizeof(PmxMediaInfo) == 560, "the console's media info record is 560 bytes");

// Also prepares speed change: finds the stream's sample rate among the
// rates the resampler plays.
s32 pmx_get_media_info(PmxMediaInfo *info);

// ---- Status codes and diagnostic printing ----
// Engine status to API status.
s32 pmx_translate(u32 engine_status);
void pmx_print_error(const char *command, u32 code);
void pmx_print_fileinfo();
