// Internal state and stage interfaces of the MPEG audio decoder.
#pragma once
#include "direct/mpadec/bitstream.h"
#include "direct/mpadec/fixed.h"
#include "platform/mai_types.h"

// The largest coded frame: layer II at 384 kbit/s and 32 kHz with padding.
constexpr u32 kMpaAssemblyBytes = 1792;
// Main data of the current frame plus the largest look-back (511 bytes).
constexpr u32 kMpaReservoirBytes = 511 + 1792;

// The fields of one frame header.
struct MpaHeader {
  int layer;            // 1..3
  int lsf;              // low sampling frequencies (MPEG-2 or MPEG-2.5)
  int mpeg25;           // MPEG-2.5
  int sample_rate;      // Hz
  int rate_index;       // 0..8: MPEG-1 44.1/48/32, MPEG-2 22.05/24/16, MPEG-2.5 11.025/12/8
  int bitrate_index;    // 0 = free format
  int bit_rate;         // bit/s
  int crc;              // a 16-bit check word follows the header
  int padding;
  int mode;             // 0 stereo, 1 joint stereo, 2 dual channel, 3 single channel
  int mode_ext;
  int emphasis;
  int channels;
  int frame_size;       // bytes, header included
};

// Subband samples of one frame, the input of the polyphase synthesis, Q28:
// [channel][time slot][subband]; layer I fills 12 slots, layer II 36,
// layer III 18 per granule.
struct MpaSubbandFrame {
  s32 s[2][36][32];
};

// Polyphase synthesis of one channel: the DCT outputs of the last 16 time
// slots, each written twice (rows pos and pos + 16) so that the 16 slots
// from the newest on are consecutive rows without wrapping.
struct MpaSynth {
  s32 hist[32][32];  // [slot][component]
  int pos;  // 0..15, where the newest slot is
};

struct MpaState {
  u8 assembly[kMpaAssemblyBytes];  // input gathered until a whole frame is present
  u32 rd, wr;                      // read and write positions in assembly
  u32 free_size;                   // free-format frame size without padding; 0 until learnt
  u32 free_header;                 // the header the free-format size was learnt from
  u32 frame_size;                  // the current frame's size
  u32 last_frame_size;             // the last non-zero frame size
  int layer;
  int lsf;
  int mpeg25;
  int sample_rate;
  int rate_index;
  int bit_rate;
  int crc;
  int padding;
  int mode;
  int mode_ext;
  int emphasis;
  int channels;
  int bitrate_index;               // of the previous header
  int bitrate_changes;             // times the bit-rate index changed
  int vbr;                         // set once the index changed more than 11 times
  u32 frames;                      // frames decoded
  u32 crc_errors;                  // protected frames whose check word did not match
  s16 *out;                        // kMpaOutputBytes, allocated at open
  // Layer III: main data of earlier frames (the bit reservoir) and the
  // second half of each subband's last IMDCT block.
  u8 reservoir[kMpaReservoirBytes];
  u32 reservoir_len;
  s32 overlap[2][32][18];
  MpaSubbandFrame subband;         // the last frame's subband samples
  MpaSynth synth[2];
};

// Process-wide flag: the stream's bit rate or MPEG-2.5 flag changed.
extern int g_mpa_stream_changed;

// Header stage. Fills *hd from the big-endian header word h with the state's
// learnt free-format size. 0 on success; 1 for a free-format header whose
// size is not known yet; -1 when h is no valid header (no sync, reserved
// layer, rate or bit-rate index, or a frame larger than the assembly buffer).
int mpa_parse_header(const MpaState *s, u32 h, MpaHeader *hd);
// Makes a parsed header current: copies its fields into the state and
// counts bit-rate changes.
void mpa_commit_header(MpaState *s, const MpaHeader *hd);
// True when h and the reference header agree in every bit that stays fixed
// along a stream (mask 0xFFFEFC00: all but CRC, padding, private bit, mode,
// mode extension, copyright, original and emphasis).
bool mpa_same_stream(u32 h, u32 reference);
// Samples per channel of one frame of the header's layer and version.
int mpa_frame_samples(const MpaHeader *hd);
// Checks the CRC of a protected frame (layer III: header and side
// information). True when the frame carries no check word, is of layer I
// or II, or its check word matches.
bool mpa_check_crc(const MpaHeader *hd, const u8 *frame);

// Synthesis stage: one time slot of 32 Q28 subband samples to 32 PCM
// samples written `stride` apart, through the channel's zeroed history.
void mpa_synth_slot(MpaSynth *f, const s32 subband[32], s16 *out, int stride);

// Layer III: decodes one frame (header hd, bytes from its start) into the
// state's subband samples, granule by granule. 0; 1 when the frame's main
// data begins in frames not received (its data is kept for the next ones);
// -1 for broken side information or an unsupported Huffman table.
int mpa_decode_layer3(MpaState *s, const MpaHeader *hd, const u8 *frame);
