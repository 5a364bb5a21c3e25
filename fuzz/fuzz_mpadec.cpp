// MPEG audio decoder: arbitrary bytes fed in pieces of varying size, as
// direct playback feeds a file image. The first byte chooses the piece
// sizes. Every call must take at most what it was given, give whole
// samples of at most one frame, and the decoding must make progress.
#include <cstring>
#include <vector>

#include "direct/mpa_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  if (size < 1) return 0;
  const u32 piece = 1u + (u32(data[0]) << 4);
  ++data;
  --size;
  static std::vector<u8> work(kMpaWorkBufferBytes);
  std::memset(work.data(), 0, work.size());
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  if (pmx_avcodec_open(ctx) != 0) __builtin_trap();
  s16 *out = mpa_output_buffer(ctx);
  size_t pos = 0;
  int idle = 0;
  while (pos < size) {
    const int len = int(size - pos < piece ? size - pos : piece);
    int out_size = -1;
    const int used = pmx_avcodec_decode_audio(ctx, out, &out_size, data + pos, len);
    if (used < 0 || used > len) __builtin_trap();
    // At most 1152 samples of two channels, in whole stereo or mono samples.
    if (out_size < 0 || out_size > 1152 * 2 * 2 || out_size % 2 != 0) __builtin_trap();
    pos += size_t(used);
    // A call that takes nothing must give a frame; a frame is at least a
    // header long, so more idle calls than bytes would be a hang.
    idle = used == 0 ? idle + 1 : 0;
    if (used == 0 && out_size == 0) break;
    if (idle > 2048) __builtin_trap();
  }
  pmx_avcodec_close(ctx);
  return 0;
}
