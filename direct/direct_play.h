// Direct playback: MP3 and WAV images played outside the engine on a
// worker thread. WAV data goes through the engine's PCM decoder plug-in
// ("libmaipcmdec.so"), MP3 data through our own MPEG audio decoder, and the
// PCM to the engine's audio renderer plug-in ("libmaiaudrend.so"); both
// plug-ins are loaded by name at run time. The media control API asks
// whether a playback runs before it lets the engine's transport move.
#pragma once
#include "platform/mai_types.h"

// Results of the public operations.
enum : s32 {
  PMX_DIRECT_OK = 0,
  PMX_DIRECT_LOAD_FAILED = 1,     // a library, symbol or buffer could not be obtained
  PMX_DIRECT_BUSY = 2,            // a playback is running
  PMX_DIRECT_INVALID_ARG = 3,
  PMX_DIRECT_ALREADY_LOADED = 4,  // the PCM decoder library is loaded already
  PMX_DIRECT_NOT_READY = 5,       // nothing loaded or resolved
};

// Play types.
constexpr u32 PMX_DIRECT_WAV = 0;
constexpr u32 PMX_DIRECT_MP3 = 1;

// Loads the renderer (and for WAV the PCM decoder) and selects the type's
// operations.
s32 pmx_init_direct_play(u32 type);
// Starts playing the file image [data, data + length) on a worker thread.
// The image must stay in place until the playback ends.
s32 _pmx_direct_play(const void *data, u32 length);
// Asks the worker to stop and waits until it has; 0.
s32 pmx_direct_stop();
// 1 while a direct playback worker runs, else 0.
u32 pmx_is_direct_playing();
// Stops a playback and unloads the plug-ins. Only a WAV set-up (which has
// both libraries loaded) is undone; otherwise 5 and everything stays.
s32 pmx_deinit_direct_play();
