// MP3 operations of direct playback: our own MPEG audio decoder works in a
// caller-owned buffer (the codec context at its start, the decoder's
// private area after it) and hands back one frame of 16-bit PCM a call.
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "direct/direct_internal.h"
#include "direct/mpa_decoder.h"

namespace {

// The decoder's working buffer, its context, and the decoder's output
// buffer once a playback has opened it.
struct Mp3Decoder {
  u8 *buffer = nullptr;
  MpaCodecContext *context = nullptr;
  s16 *output = nullptr;
};

Mp3Decoder pmx_mp3;

constexpr u32 MP3_BLOCK_BYTES = 8192;
constexpr u32 OUTPUT_MODE = 2;

void *direct_mp3_thread(void *) {
  pthread_detach(pthread_self());
  pmx_direct.playing.store(1);
  std::memset(pmx_mp3.buffer, 0, kMpaWorkBufferBytes);
  pmx_mp3.context = reinterpret_cast<MpaCodecContext *>(pmx_mp3.buffer);
  if (pmx_avcodec_open(pmx_mp3.context) < 0) {
    std::printf("pmx_mp3_init failed!:avcodec_open failed!\n");
  } else {
    pmx_mp3.output = mpa_output_buffer(pmx_mp3.context);
    const u8 *data = pmx_direct.data;
    u32 length = pmx_direct.length;
    u32 handle = 0;
    u32 rate = 0;
    bool opened = false;
    while (length > 0 && pmx_direct.stop_request.load() == 0) {
      int size = 0;
      const int consumed = pmx_avcodec_decode_audio(pmx_mp3.context, pmx_mp3.output, &size, data,
                                                    static_cast<int>(length));
      // Channels and rate are known once the first frame is decoded; a
      // first call that completes no frame (a tag being skipped) waits.
      if (!opened && size > 0) {
        rate = static_cast<u32>(mpa_sample_rate(pmx_mp3.context));
        pmx_direct.save();
        handle = pmx_direct.setup(16, static_cast<u32>(mpa_channels(pmx_mp3.context)), rate, MP3_BLOCK_BYTES,
                                  OUTPUT_MODE);
        opened = true;
      }
      if (size > 0) pmx_direct.send(handle, pmx_mp3.output, static_cast<u32>(size));
      // Decoding errors are not checked: we go on with what was taken.
      u32 taken = consumed < 0 ? 0 : static_cast<u32>(consumed);
      if (taken > length) taken = length;
      data += taken;
      length -= taken;
    }
    if (opened) {
      u8 *zeros = static_cast<u8 *>(std::calloc(MP3_BLOCK_BYTES, 1));
      const u32 blocks = zeros != nullptr ? mp3_padding_blocks(rate) : 0;
      for (u32 i = 0; i < blocks; ++i) {
        std::printf("padding: %d\n", static_cast<int>(i));
        pmx_direct.send(handle, zeros, MP3_BLOCK_BYTES);
      }
      std::free(zeros);
      pmx_direct.close();
      pmx_direct.recover();
    }
  }
  pmx_avcodec_close(pmx_mp3.context);
  pmx_mp3.context = nullptr;
  pmx_mp3.output = nullptr;
  pmx_direct.playing.store(0);
  return nullptr;
}

}  // namespace

s32 pmx_mp3_init() {
  if (pmx_mp3.buffer == nullptr) pmx_mp3.buffer = static_cast<u8 *>(std::malloc(kMpaWorkBufferBytes));
  return pmx_mp3.buffer == nullptr ? PMX_DIRECT_LOAD_FAILED : PMX_DIRECT_OK;
}

s32 pmx_mp3_play() {
  if (pmx_mp3.buffer == nullptr) return PMX_DIRECT_NOT_READY;
  const s32 result = start_worker(direct_mp3_thread);
  usleep(100);
  return result;
}

s32 pmx_mp3_deinit() {
  if (pmx_mp3.context != nullptr) pmx_avcodec_close(pmx_mp3.context);
  pmx_mp3.context = nullptr;
  pmx_mp3.output = nullptr;
  std::free(pmx_mp3.buffer);
  pmx_mp3.buffer = nullptr;
  return PMX_DIRECT_OK;
}
