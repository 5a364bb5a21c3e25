// The driver's state record and the per-type operations, shared by the
// driver (direct_play.cpp) and the MP3 operations (direct_mp3.cpp).
#pragma once
#include <pthread.h>

#include <atomic>

#include "direct/direct_play.h"

// The renderer plug-in's entry points.
using SetupAudioOutputFn = u32 (*)(u32 bits, u32 channels, u32 rate, u32 block, u32 mode);
using SendToAudioOutputFn = int (*)(u32 handle, const void *buffer, u32 length);
using VoidFn = void (*)();
using TypeOpFn = s32 (*)();

struct DirectState {
  // The console thread and the worker both touch these two.
  std::atomic<u8> stop_request{0};
  std::atomic<u8> playing{0};
  pthread_t thread{};
  u32 play_type = 0;
  void *pcm_decoder_lib = nullptr;  // "libmaipcmdec.so"
  void *renderer_lib = nullptr;     // "libmaiaudrend.so"
  const u8 *data = nullptr;
  u32 length = 0;
  SetupAudioOutputFn setup = nullptr;
  SendToAudioOutputFn send = nullptr;
  VoidFn close = nullptr;
  VoidFn save = nullptr;
  VoidFn recover = nullptr;
  TypeOpFn init = nullptr;
  TypeOpFn play = nullptr;
  TypeOpFn deinit = nullptr;
};

extern DirectState pmx_direct;

// Zero blocks sent after the last sound so that the output's buffering
// plays it out.
u32 wav_padding_blocks(u32 rate);
u32 mp3_padding_blocks(u32 rate);

s32 pmx_wav_init();
s32 pmx_wav_play();
s32 pmx_wav_deinit();
s32 pmx_mp3_init();
s32 pmx_mp3_play();
s32 pmx_mp3_deinit();

// Starts `worker` detached-to-be (the worker detaches itself); playing is
// raised before the thread exists so that stop and deinit never miss it.
s32 start_worker(void *(*worker)(void *));
