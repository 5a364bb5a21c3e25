// The program's own MPEG audio decoder (MPEG-1, MPEG-2 and MPEG-2.5,
// layers I, II and III): fed a file image in arbitrary pieces, it returns
// interleaved signed 16-bit PCM one frame per completed call.
#pragma once
#include "platform/mai_types.h"

// Size of the caller-owned working buffer that direct playback zeroes and
// hands to pmx_avcodec_open: the codec context at its start, the decoder's
// private area after it.
constexpr u32 kMpaWorkBufferBytes = 26756;
// Bytes of the output buffer the decoder allocates at open; the largest
// frame (1152 stereo samples) needs 4608 of them.
constexpr u32 kMpaOutputBytes = 131072;

struct MpaState;

struct MpaCodecContext {
  void *priv;        // private area; null while closed
  MpaState *state;   // the decoder state within the private area
};

// Opens the decoder in `ctx`, using `priv` (or, when null, the part of the
// working buffer after the context record) as its private area; ctx is the
// start of a zeroed kMpaWorkBufferBytes buffer. 0, or -1 when already open
// or the output buffer cannot be allocated.
int pmx_avcodec_open(MpaCodecContext *ctx, void *priv = nullptr);

// Consumes input and returns the number of bytes taken; *out_size receives
// the bytes of PCM written to `out` (0 when no frame was completed).
int pmx_avcodec_decode_audio(MpaCodecContext *ctx, s16 *out, int *out_size, const u8 *in,
                             int in_len);

// Frees the output buffer and marks the context closed. 0.
int pmx_avcodec_close(MpaCodecContext *ctx);

// Appends a heading and the values ("%13d " each, then a newline) to
// "dump_mp3.txt", opened on first use and kept open.
void debug_dump(const s32 *values, int count, const char *heading);

// Read-only views of the decoder state for the caller.
s16 *mpa_output_buffer(const MpaCodecContext *ctx);
int mpa_channels(const MpaCodecContext *ctx);
int mpa_sample_rate(const MpaCodecContext *ctx);
