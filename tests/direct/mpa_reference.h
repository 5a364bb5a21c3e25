// Reference decoding for the MPEG audio decoder's tests: libmpg123 in
// floating point, and the sample-aligned comparison of a 16-bit decode with
// it. A perfect 16-bit decoder differs from the exact output only by
// rounding, about 2^-15/sqrt(12) of full scale rms.
#pragma once
#include <span>
#include <vector>

#include "platform/mai_types.h"

namespace mparef {

constexpr double kFullScale = 32768.0;
// The rms error of ideal rounding to 16 bits, in units of full scale.
extern const double kRoundingRms;
// How far the alignment search looks, in samples per channel: two frames of
// 1152, enough for an Info frame one decoder plays as silence and the other
// skips.
constexpr int kMaxShift = 2304;

struct Pcm {
  int rate = 0;
  int channels = 0;
  std::vector<double> samples;  // interleaved, in LSB (1.0 = 1/32768 of full scale)
  size_t frames() const { return channels ? samples.size() / size_t(channels) : 0; }
};

// Facts about the stream, from the reference's frame info.
struct StreamInfo {
  int layer = 0;
  int mode = 0;  // 0 stereo, 1 joint, 2 dual, 3 mono
  int min_kbps = 0, max_kbps = 0;
  double bytes = 0;
};

// Interleaved 16-bit samples as a Pcm.
Pcm from_s16(const s16 *samples, size_t count, int channels, int rate);

// libmpg123 in floating point at the stream's own rate, every frame it
// finds (gapless trimming off, so the encoder's delay and padding stay).
Pcm decode_reference(std::span<const u8> file, StreamInfo *info);

struct Measures {
  int shift = 0;
  size_t compared = 0;     // samples per channel in the overlap
  double ours_rms = 0;     // rms(ours - ref), in units of full scale
  double rounded_rms = 0;  // rms(round(ref) - ref): the floor of a 16-bit decoder
  double max_lsb = 0;      // max |ours - ref|
};

// Aligns `ours` with the reference (ours = reference delayed by `shift`
// samples per channel) and measures the difference over the overlap, the
// reference clipped to the 16-bit range.
Measures compare(const Pcm &ours, const Pcm &ref);

}  // namespace mparef
