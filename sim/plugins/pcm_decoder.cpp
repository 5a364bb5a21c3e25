// libmaipcmdec.so: the engine's PCM decoder plug-in for WAV file images.
//
// The caller owns the decoder context and hands the file image in pieces
// (usually all of it at once). The first call reads the RIFF header up to
// the data chunk; from then on the context's first two 32-bit fields hold
// the sample rate and the channel count. Each call turns at most 4096 bytes
// of output worth of 8-bit unsigned or 16-bit signed little-endian PCM into
// 16-bit signed samples in machine order and returns how many input bytes
// it took. Input that cannot be decoded (another format, the bytes after
// the data chunk, a piece shorter than one sample frame) is taken whole
// without output, so a caller that advances by the result always ends.
#include <cstdint>
#include <cstring>

namespace {

using u8 = std::uint8_t;
using s16 = std::int16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;

constexpr u32 kMaxOutput = 4096;

// The context record. The first two fields are read by the caller.
struct WavDecodeContext {
  u32 sample_rate;
  u32 channels;
  u32 bits;         // 8 or 16; 0 when the format is not one we decode
  u32 header_done;  // the header has been read
  u32 data_left;    // bytes of the data chunk still to come
};

u32 le16(const u8 *p) { return static_cast<u32>(p[0] | (p[1] << 8)); }
u32 le32(const u8 *p) {
  return static_cast<u32>(p[0]) | static_cast<u32>(p[1]) << 8 | static_cast<u32>(p[2]) << 16 |
         static_cast<u32>(p[3]) << 24;
}

// Walks the chunks of a RIFF WAVE image up to the data chunk. Returns the
// number of header bytes, or 0 when the image holds no data chunk after a
// format chunk.
u32 read_header(WavDecodeContext *ctx, const u8 *in, u32 len) {
  if (len < 12 || std::memcmp(in, "RIFF", 4) != 0 || std::memcmp(in + 8, "WAVE", 4) != 0) return 0;
  u64 pos = 12;
  bool have_format = false;
  while (pos + 8 <= len) {
    const u8 *chunk = in + pos;
    const u32 size = le32(chunk + 4);
    if (std::memcmp(chunk, "fmt ", 4) == 0 && size >= 16 && pos + 8 + 16 <= len) {
      const u32 tag = le16(chunk + 8);
      ctx->channels = le16(chunk + 10);
      ctx->sample_rate = le32(chunk + 12);
      const u32 bits = le16(chunk + 22);
      // PCM, or WAVE_FORMAT_EXTENSIBLE (assumed to carry PCM)
      const bool pcm = tag == 1 || tag == 0xFFFE;
      ctx->bits = (pcm && (bits == 8 || bits == 16) && ctx->channels > 0) ? bits : 0;
      have_format = true;
    } else if (std::memcmp(chunk, "data", 4) == 0) {
      if (!have_format) return 0;
      ctx->data_left = size;
      return static_cast<u32>(pos + 8);
    }
    pos += 8 + static_cast<u64>(size) + (size & 1);
  }
  return 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int init_wav_decode(void *context) {
  if (context == nullptr) return -1;
  std::memset(context, 0, sizeof(WavDecodeContext));
  return 0;
}

__attribute__((visibility("default"))) int decode_wav_audio(void *context, void *out, u32 *out_size,
                                                            const void *input, u32 length) {
  auto *ctx = static_cast<WavDecodeContext *>(context);
  const u8 *in = static_cast<const u8 *>(input);
  *out_size = 0;
  if (ctx == nullptr || in == nullptr || length == 0) return 0;

  u32 taken = 0;
  if (ctx->header_done == 0) {
    ctx->header_done = 1;
    taken = read_header(ctx, in, length);
    if (taken == 0) {
      ctx->bits = 0;
      return static_cast<int>(length);
    }
  }
  if (ctx->bits == 0 || ctx->data_left == 0) return static_cast<int>(length);

  const u32 in_frame = ctx->channels * (ctx->bits / 8);
  const u32 out_frame = ctx->channels * 2;
  u32 avail = length - taken;
  if (avail > ctx->data_left) avail = ctx->data_left;
  u32 frames = avail / in_frame;
  if (frames > kMaxOutput / out_frame) frames = kMaxOutput / out_frame;
  if (frames == 0) {
    // Less than one frame: the data chunk's end, or a torn piece.
    ctx->data_left -= avail;
    return static_cast<int>(taken == 0 ? length : taken + avail);
  }

  const u32 samples = frames * ctx->channels;
  const u8 *src = in + taken;
  s16 *dst = static_cast<s16 *>(out);
  for (u32 i = 0; i < samples; ++i) {
    if (ctx->bits == 8) {
      dst[i] = static_cast<s16>((static_cast<int>(src[i]) - 128) * 256);
    } else {
      dst[i] = static_cast<s16>(le16(src + 2 * i));
    }
  }
  const u32 used = frames * in_frame;
  ctx->data_left -= used;
  *out_size = samples * 2;
  return static_cast<int>(taken + used);
}

}  // extern "C"
