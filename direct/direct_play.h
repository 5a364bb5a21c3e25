// Direct playback: MP3 and WAV images played outside the engine on a
// worker thread. The media control API asks it whether it is playing
// before it lets the engine's transport move.
#pragma once
#include "platform/mai_types.h"

// 1 while a direct playback worker runs, else 0.
u32 pmx_is_direct_playing();
