// The direct playback driver: plug-in loading, the WAV operations and
// worker, stop and deinitialisation. The MP3 operations are in
// direct_mp3.cpp.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "direct/direct_internal.h"

DirectState pmx_direct;

namespace {

using InitWavDecodeFn = int (*)(void *context);
using DecodeWavAudioFn = int (*)(void *context, void *out, u32 *out_size, const void *input, u32 length);

// The PCM decoder plug-in's two entry points.
struct WaveDecoder {
  InitWavDecodeFn init_wav_decode = nullptr;
  DecodeWavAudioFn decode_wav_audio = nullptr;
};

WaveDecoder pmx_wave;

constexpr u32 WAV_BUFFER_BYTES = 8192;
constexpr u32 WAV_BLOCK_BYTES = 4096;
// Room for the PCM decoder's context record; the plug-in defines it, we
// read only its first two fields (sample rate, channel count).
constexpr u32 WAV_CONTEXT_WORDS = 256;
constexpr u32 OUTPUT_MODE = 2;

// Looks `name` up once: an already resolved symbol stays. false after
// printing the loader's text.
template <typename Fn>
bool resolve(void *lib, const char *name, Fn *slot) {
  if (*slot != nullptr) return true;
  dlerror();
  void *symbol = dlsym(lib, name);
  const char *error = dlerror();
  if (error != nullptr || symbol == nullptr) {
    std::fprintf(stderr, "%s\n", error != nullptr ? error : name);
    return false;
  }
  *slot = reinterpret_cast<Fn>(symbol);
  return true;
}

void wait_until_stopped() {
  while (pmx_direct.playing.load() != 0) usleep(10);
}

}  // namespace

s32 pmx_wav_init() {
  if (pmx_direct.pcm_decoder_lib != nullptr) return PMX_DIRECT_ALREADY_LOADED;
  pmx_direct.pcm_decoder_lib = dlopen("libmaipcmdec.so", RTLD_LAZY);
  if (pmx_direct.pcm_decoder_lib == nullptr) {
    std::fprintf(stderr, "%s\n", dlerror());
    return PMX_DIRECT_LOAD_FAILED;
  }
  if (!resolve(pmx_direct.pcm_decoder_lib, "init_wav_decode", &pmx_wave.init_wav_decode) ||
      !resolve(pmx_direct.pcm_decoder_lib, "decode_wav_audio", &pmx_wave.decode_wav_audio))
    return PMX_DIRECT_LOAD_FAILED;
  return PMX_DIRECT_OK;
}

namespace {

void *direct_wave_thread(void *) {
  pthread_detach(pthread_self());
  pmx_direct.playing.store(1);
  u8 *buffer = static_cast<u8 *>(std::malloc(WAV_BUFFER_BYTES));
  if (buffer == nullptr) {
    std::printf("%s :buf mem alloc faild \n", "direct_wave_thread");
    pmx_direct.playing.store(0);
    return nullptr;
  }
  u32 context[WAV_CONTEXT_WORDS] = {};
  pmx_wave.init_wav_decode(context);

  const u8 *data = pmx_direct.data;
  u32 length = pmx_direct.length;
  u32 handle = 0;
  u32 rate = 0;
  bool opened = false;
  while (length > 0 && pmx_direct.stop_request.load() == 0) {
    u32 size = 0;
    const int consumed = pmx_wave.decode_wav_audio(context, buffer, &size, data, length);
    // Decoding errors are not checked: we go on with what was taken.
    const u32 taken = consumed < 0 ? 0 : (static_cast<u32>(consumed) > length ? length : static_cast<u32>(consumed));
    length -= taken;
    data += taken;
    if (!opened) {
      rate = context[0];
      pmx_direct.save();
      handle = pmx_direct.setup(16, context[1], rate, WAV_BLOCK_BYTES, OUTPUT_MODE);
      opened = true;
    }
    if (size > 0) pmx_direct.send(handle, buffer, size);
  }

  if (opened) {
    std::memset(buffer, 0, WAV_BUFFER_BYTES);
    const u32 blocks = wav_padding_blocks(rate);
    for (u32 i = 0; i < blocks; ++i) {
      std::printf("padding: %d\n", static_cast<int>(i));
      pmx_direct.send(handle, buffer, WAV_BLOCK_BYTES);
    }
  }
  std::printf("END thread\n");
  usleep(100);
  std::free(buffer);
  if (opened) {
    pmx_direct.close();
    pmx_direct.recover();
  }
  pmx_direct.playing.store(0);
  return nullptr;
}

}  // namespace

s32 pmx_wav_play() {
  if (pmx_wave.init_wav_decode == nullptr || pmx_wave.decode_wav_audio == nullptr) return PMX_DIRECT_NOT_READY;
  return start_worker(direct_wave_thread);
}

s32 pmx_wav_deinit() {
  pmx_wave = {};
  return PMX_DIRECT_OK;
}

u32 wav_padding_blocks(u32 rate) {
  if (rate == 11025) return 4;
  if (rate == 22050) return 8;
  return 12;
}

u32 mp3_padding_blocks(u32 rate) {
  if (rate == 11025 || rate == 16000) return 4;
  if (rate == 22050) return 8;
  return 12;
}

s32 start_worker(void *(*worker)(void *)) {
  pmx_direct.playing.store(1);
  if (pthread_create(&pmx_direct.thread, nullptr, worker, nullptr) != 0) {
    pmx_direct.playing.store(0);
    return PMX_DIRECT_LOAD_FAILED;
  }
  return PMX_DIRECT_OK;
}

s32 pmx_init_direct_play(u32 type) {
  if (type > PMX_DIRECT_MP3) return PMX_DIRECT_INVALID_ARG;
  if (pmx_direct.playing.load() != 0) return PMX_DIRECT_BUSY;

  if (pmx_direct.pcm_decoder_lib != nullptr) {
    dlclose(pmx_direct.pcm_decoder_lib);
    pmx_direct.pcm_decoder_lib = nullptr;
    pmx_wave = {};
  }
  if (pmx_direct.renderer_lib == nullptr) {
    pmx_direct.renderer_lib = dlopen("libmaiaudrend.so", RTLD_LAZY);
    if (pmx_direct.renderer_lib == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      return PMX_DIRECT_LOAD_FAILED;
    }
  }
  void *lib = pmx_direct.renderer_lib;
  if (!resolve(lib, "setup_audio_output", &pmx_direct.setup) ||
      !resolve(lib, "send_to_audio_output", &pmx_direct.send) ||
      !resolve(lib, "close_audio_output", &pmx_direct.close) ||
      !resolve(lib, "recover_setting", &pmx_direct.recover) ||
      !resolve(lib, "save_current_setting", &pmx_direct.save))
    return PMX_DIRECT_LOAD_FAILED;

  pmx_direct.playing.store(0);
  pmx_direct.stop_request.store(0);
  if (type == PMX_DIRECT_WAV) {
    std::printf("PMX_DIRECT_PLAY_WAVE\n");
    pmx_direct.init = pmx_wav_init;
    pmx_direct.play = pmx_wav_play;
    pmx_direct.deinit = pmx_wav_deinit;
  } else {
    std::printf("PMX_DIRECT_PLAY_MP3\n");
    pmx_direct.init = pmx_mp3_init;
    pmx_direct.play = pmx_mp3_play;
    pmx_direct.deinit = pmx_mp3_deinit;
  }
  pmx_direct.play_type = type;
  return pmx_direct.init();
}

s32 _pmx_direct_play(const void *data, u32 length) {
  if (data == nullptr || length == 0) return PMX_DIRECT_INVALID_ARG;
  if (pmx_direct.renderer_lib == nullptr || pmx_direct.setup == nullptr || pmx_direct.close == nullptr ||
      pmx_direct.send == nullptr || pmx_direct.play == nullptr)
    return PMX_DIRECT_NOT_READY;
  if (pmx_direct.playing.load() != 0) return PMX_DIRECT_BUSY;
  pmx_direct.stop_request.store(0);
  pmx_direct.data = static_cast<const u8 *>(data);
  pmx_direct.length = length;
  return pmx_direct.play();
}

s32 pmx_direct_stop() {
  pmx_direct.stop_request.store(1);
  wait_until_stopped();
  return PMX_DIRECT_OK;
}

u32 pmx_is_direct_playing() { return pmx_direct.playing.load() != 0 ? 1 : 0; }

s32 pmx_deinit_direct_play() {
  if (pmx_direct.playing.load() != 0) {
    pmx_direct.stop_request.store(1);
    wait_until_stopped();
  }
  // Only a WAV set-up has both libraries; after MP3 playback the renderer
  // and the MP3 buffer stay as they are.
  if (pmx_direct.pcm_decoder_lib == nullptr || pmx_direct.renderer_lib == nullptr) return PMX_DIRECT_NOT_READY;
  pmx_direct.thread = {};
  pmx_direct.stop_request.store(1);
  pmx_direct.playing.store(0);
  pmx_direct.setup = nullptr;
  pmx_direct.close = nullptr;
  pmx_direct.send = nullptr;
  pmx_direct.data = nullptr;
  pmx_direct.length = 0;
  dlclose(pmx_direct.pcm_decoder_lib);
  dlclose(pmx_direct.renderer_lib);
  pmx_direct.pcm_decoder_lib = nullptr;
  pmx_direct.renderer_lib = nullptr;
  // save and recover are looked up again with the renderer's next load.
  pmx_direct.save = nullptr;
  pmx_direct.recover = nullptr;
  return pmx_direct.deinit();
}
