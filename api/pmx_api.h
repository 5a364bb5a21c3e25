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
s32 pmx_stop();

// ---- Status codes and diagnostic printing ----
// Engine status to API status.
s32 pmx_translate(u32 engine_status);
void pmx_print_error(const char *command, u32 code);
void pmx_print_fileinfo();
