// Three MPEG audio decoders over a whole file image in memory, each giving
// interleaved signed 16-bit PCM: ours, libmad (its low-level stream, frame
// and synth calls, samples rounded and clipped to 16 bits) and libmpg123
// held to its portable C decoder ("generic"). Shared by the decoder
// benchmark and the one-shot decoding program.
#pragma once
#include <mad.h>
#include <mpg123.h>

#include <cstring>
#include <span>
#include <vector>

#include "direct/mpa_decoder.h"

namespace mpabench {

enum class Decoder { ours, mad, mpg123 };

struct Decoded {
  long samples = 0;  // per channel
  int channels = 0;
  int rate = 0;
  u32 checksum = 0;  // keeps the PCM from being optimised away
};

// libmad reads up to MAD_BUFFER_GUARD bytes past the last frame: its copy
// of the file ends in that many zeros.
inline std::vector<u8> with_mad_guard(std::span<const u8> file) {
  std::vector<u8> copy(file.begin(), file.end());
  copy.resize(copy.size() + MAD_BUFFER_GUARD, 0);
  return copy;
}

// A light checksum (every 64th sample): enough to keep the output alive,
// little enough not to weigh on the decoders' counts.
inline u32 sum(const s16 *pcm, size_t n) {
  u32 s = 0;
  for (size_t i = 0; i < n; i += 64) s = s * 31 + u16(pcm[i]);
  return s;
}

inline Decoded decode_ours(std::span<const u8> file) {
  Decoded d;
  static std::vector<u8> work(kMpaWorkBufferBytes);
  static std::vector<s16> out(kMpaOutputBytes / 2);
  std::memset(work.data(), 0, work.size());
  auto *ctx = reinterpret_cast<MpaCodecContext *>(work.data());
  if (pmx_avcodec_open(ctx) != 0) return d;
  size_t pos = 0;
  for (;;) {
    int size = 0;
    const int used = pmx_avcodec_decode_audio(ctx, out.data(), &size, file.data() + pos,
                                              int(file.size() - pos));
    if (used < 0) break;
    pos += size_t(used);
    if (size > 0) {
      d.channels = mpa_channels(ctx);
      d.rate = mpa_sample_rate(ctx);
      d.samples += size / 2 / d.channels;
      d.checksum += sum(out.data(), size_t(size / 2));
    }
    if (used == 0 && size == 0) break;
  }
  pmx_avcodec_close(ctx);
  return d;
}

inline s16 mad_to_s16(mad_fixed_t v) {
  v += 1L << (MAD_F_FRACBITS - 16);  // round
  if (v >= MAD_F_ONE) v = MAD_F_ONE - 1;
  if (v < -MAD_F_ONE) v = -MAD_F_ONE;
  return s16(v >> (MAD_F_FRACBITS + 1 - 16));
}

// `guarded` comes from with_mad_guard.
inline Decoded decode_mad(std::span<const u8> guarded) {
  Decoded d;
  static std::vector<s16> out(1152 * 2);
  mad_stream stream;
  mad_frame frame;
  mad_synth synth;
  mad_stream_init(&stream);
  mad_frame_init(&frame);
  mad_synth_init(&synth);
  mad_stream_buffer(&stream, guarded.data(), guarded.size());
  for (;;) {
    if (mad_frame_decode(&frame, &stream) != 0) {
      if (MAD_RECOVERABLE(stream.error)) continue;
      break;  // MAD_ERROR_BUFLEN: the end
    }
    mad_synth_frame(&synth, &frame);
    const mad_pcm &pcm = synth.pcm;
    size_t n = 0;
    for (unsigned i = 0; i < pcm.length; ++i)
      for (unsigned c = 0; c < pcm.channels; ++c) out[n++] = mad_to_s16(pcm.samples[c][i]);
    d.channels = pcm.channels;
    d.rate = int(pcm.samplerate);
    d.samples += pcm.length;
    d.checksum += sum(out.data(), n);
  }
  mad_synth_finish(&synth);
  mad_frame_finish(&frame);
  mad_stream_finish(&stream);
  return d;
}

inline Decoded decode_mpg123(std::span<const u8> file) {
  Decoded d;
  mpg123_init();
  mpg123_handle *mh = mpg123_new(nullptr, nullptr);
  if (mh == nullptr) return d;
  if (mpg123_decoder(mh, "generic") != MPG123_OK) {
    mpg123_delete(mh);
    return d;
  }
  mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET, 0);
  mpg123_param(mh, MPG123_REMOVE_FLAGS, MPG123_GAPLESS | MPG123_AUTO_RESAMPLE, 0);
  mpg123_format_none(mh);
  const long *rates = nullptr;
  size_t count = 0;
  mpg123_rates(&rates, &count);
  for (size_t i = 0; i < count; ++i)
    mpg123_format(mh, rates[i], MPG123_MONO | MPG123_STEREO, MPG123_ENC_SIGNED_16);
  if (mpg123_open_feed(mh) == MPG123_OK && mpg123_feed(mh, file.data(), file.size()) == MPG123_OK) {
    for (;;) {
      off_t num = 0;
      unsigned char *audio = nullptr;
      size_t bytes = 0;
      const int r = mpg123_decode_frame(mh, &num, &audio, &bytes);
      if (r == MPG123_NEW_FORMAT) {
        long rate = 0;
        int encoding = 0;
        mpg123_getformat(mh, &rate, &d.channels, &encoding);
        d.rate = int(rate);
        continue;
      }
      if (r != MPG123_OK) break;
      d.samples += long(bytes / 2 / size_t(d.channels));
      d.checksum += sum(reinterpret_cast<const s16 *>(audio), bytes / 2);
    }
  }
  mpg123_delete(mh);
  return d;
}

}  // namespace mpabench
