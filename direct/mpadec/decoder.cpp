// The decoder's interface: opening and closing, gathering input into
// whole frames, skipping an ID3v2 tag at the start, learning the size of
// free-format frames, and handing each frame to its layer.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/layer12.h"
#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/mpadec.h"

namespace {

// An ID3v2 tag at the start of the input: its whole size and the part of it
// still to be skipped in later calls.
u32 g_id3_size = 0;
u32 g_id3_remaining = 0;

FILE *g_dump = nullptr;

u32 load_be32(const u8 *p) {
  return (u32(p[0]) << 24) | (u32(p[1]) << 16) | (u32(p[2]) << 8) | u32(p[3]);
}

// The private area starts after the context record, aligned for the state.
void *default_private_area(MpaCodecContext *ctx) {
  uintptr_t p = reinterpret_cast<uintptr_t>(ctx + 1);
  p = (p + alignof(MpaState) - 1) & ~uintptr_t(alignof(MpaState) - 1);
  return reinterpret_cast<void *>(p);
}

// Copies up to `want` more input bytes into the assembly buffer, moving
// the buffered bytes to its start first. Returns the number copied.
u32 copy_in(MpaState *s, const u8 *in, u32 in_len, u32 *consumed, u32 want) {
  if (s->rd > 0) {
    std::memmove(s->assembly, s->assembly + s->rd, s->wr - s->rd);
    s->wr -= s->rd;
    s->rd = 0;
  }
  u32 n = in_len - *consumed;
  if (n > want) n = want;
  if (n > kMpaAssemblyBytes - s->wr) n = kMpaAssemblyBytes - s->wr;
  std::memcpy(s->assembly + s->wr, in + *consumed, n);
  s->wr += n;
  *consumed += n;
  return n;
}

// Searches the buffer for the second header of a free-format stream; on
// success the free-format size is known.
bool learn_free_size(MpaState *s, u32 h, const MpaHeader *probe) {
  for (u32 p = s->rd + 4; p + 4 <= s->wr; ++p) {
    u32 next = load_be32(s->assembly + p);
    if (!mpa_same_stream(next, h)) continue;
    u32 size = p - s->rd;
    u32 pad = probe->layer == 1 ? 4u * u32(probe->padding) : u32(probe->padding);
    if (size <= pad) continue;
    s->free_size = size - pad;
    s->free_header = h;
    return true;
  }
  return false;
}

// Decodes one complete frame into out; samples per channel written. A
// frame whose data cannot be decoded (broken side information, a layer III
// frame whose main data begins before the first frame received) gives
// silence of its length, so the output keeps the stream's timing.
int decode_frame(MpaState *s, const MpaHeader *hd, const u8 *frame, s16 *out) {
  if (!mpa_check_crc(hd, frame)) ++s->crc_errors;
  int head = 4 + (hd->crc ? 2 : 0);
  MpaBits b;
  mpa_bits_init(&b, frame + head, u32(hd->frame_size - head));
  int r;
  if (hd->layer == 1)
    r = mpa_decode_layer1(&b, hd, &s->subband);
  else if (hd->layer == 2)
    r = mpa_decode_layer2(&b, hd, &s->subband);
  else
    r = mpa_decode_layer3(s, hd, frame);
  if (r != 0) std::memset(&s->subband, 0, sizeof s->subband);
  int slots = mpa_frame_samples(hd) / 32;
  int nch = hd->channels;
  for (int slot = 0; slot < slots; ++slot)
    for (int ch = 0; ch < nch; ++ch)
      mpa_synth_slot(&s->synth[ch], s->subband.s[ch][slot], out + slot * 32 * nch + ch, nch);
  return slots * 32;
}

}  // namespace

int pmx_avcodec_open(MpaCodecContext *ctx, void *priv) {
  if (ctx->priv != nullptr) return -1;
  if (priv == nullptr) priv = default_private_area(ctx);
  static_assert(sizeof(MpaCodecContext) + sizeof(MpaState) + alignof(MpaState) <=
                    kMpaWorkBufferBytes,
                "the decoder state must fit the working buffer");
  mpa_build_layer3_tables();
  mpa_build_huffman_tables();
  MpaState *s = new (priv) MpaState();
  s->out = static_cast<s16 *>(std::malloc(kMpaOutputBytes));
  if (s->out == nullptr) return -1;
  ctx->priv = priv;
  ctx->state = s;
  return 0;
}

int pmx_avcodec_close(MpaCodecContext *ctx) {
  if (ctx->state != nullptr) {
    std::free(ctx->state->out);
    ctx->state->out = nullptr;
  }
  ctx->priv = nullptr;
  ctx->state = nullptr;
  return 0;
}

int pmx_avcodec_decode_audio(MpaCodecContext *ctx, s16 *out, int *out_size, const u8 *in,
                             int in_len) {
  *out_size = 0;
  MpaState *s = ctx->state;
  if (s == nullptr || in == nullptr || in_len <= 0) return 0;
  u32 len = u32(in_len);
  u32 consumed = 0;

  // The rest of a tag met in an earlier call.
  if (g_id3_remaining > 0) {
    u32 n = len < g_id3_remaining ? len : g_id3_remaining;
    g_id3_remaining -= n;
    return int(n);
  }
  if (len >= 10 && in[0] == 'I' && in[1] == 'D' && in[2] == '3') {
    // Tag size: four 7-bit bytes (syncsafe), plus the 10-byte tag header.
    g_id3_size = ((u32(in[6]) & 0x7F) << 21 | (u32(in[7]) & 0x7F) << 14 |
                  (u32(in[8]) & 0x7F) << 7 | (u32(in[9]) & 0x7F)) +
                 10;
    if (g_id3_size > len) {
      g_id3_remaining = g_id3_size - len;
      return int(len);
    }
    consumed = g_id3_size;
  }

  for (;;) {
    u32 avail = s->wr - s->rd;
    if (avail < 4) {
      if (copy_in(s, in, len, &consumed, 4 - avail) == 0) break;
      continue;
    }
    u32 h = load_be32(s->assembly + s->rd);
    MpaHeader hd;
    int r = mpa_parse_header(s, h, &hd);
    if (r == 0 && hd.bitrate_index == 0 && !mpa_same_stream(h, s->free_header)) {
      // A free-format stream other than the learnt one: learn again.
      s->free_size = 0;
      r = mpa_parse_header(s, h, &hd);
    }
    if (r < 0) {
      ++s->rd;  // not a header: resynchronise byte by byte
      continue;
    }
    if (r == 1) {
      if (learn_free_size(s, h, &hd)) continue;
      if (avail == kMpaAssemblyBytes) {
        ++s->rd;  // no second header within the largest frame
        continue;
      }
      if (copy_in(s, in, len, &consumed, kMpaAssemblyBytes) == 0) break;
      continue;
    }
    if (avail < u32(hd.frame_size)) {
      if (copy_in(s, in, len, &consumed, u32(hd.frame_size) - avail) == 0) break;
      continue;
    }
    mpa_commit_header(s, &hd);
    int samples = decode_frame(s, &hd, s->assembly + s->rd, out);
    s->rd += u32(hd.frame_size);
    ++s->frames;
    *out_size = samples * hd.channels * 2;
    break;
  }
  return int(consumed);
}

void debug_dump(const s32 *values, int count, const char *heading) {
  if (g_dump == nullptr) g_dump = std::fopen("dump_mp3.txt", "w");
  if (g_dump == nullptr) return;
  std::fprintf(g_dump, "%s\n", heading);
  for (int i = 0; i < count; ++i) std::fprintf(g_dump, "%13d ", values[i]);
  std::fprintf(g_dump, "\n");
  std::fflush(g_dump);
}

s16 *mpa_output_buffer(const MpaCodecContext *ctx) {
  return ctx->state ? ctx->state->out : nullptr;
}
int mpa_channels(const MpaCodecContext *ctx) { return ctx->state ? ctx->state->channels : 0; }
int mpa_sample_rate(const MpaCodecContext *ctx) {
  return ctx->state ? ctx->state->sample_rate : 0;
}
