// Reference decoding for the MPEG audio decoder's tests: libmpg123 in
// floating point, and the sample-aligned comparison of a 16-bit decode with
// it. A perfect 16-bit decoder differs from the exact output only by
// rounding, about 2^-15/sqrt(12) of full scale rms.
#pragma once
#include <span>
#include <string>
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

// The bytes of a file.
std::vector<u8> read_file(const std::string &path);

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
// samples per channel, |shift| <= max_shift) and measures the difference
// over the overlap, the reference clipped to the 16-bit range.
Measures compare(const Pcm &ours, const Pcm &ref, int max_shift = kMaxShift);

// Our decoder over the whole of `file`, fed at once.
Pcm decode_ours(std::span<const u8> file);

// Adds a line for the stream to the table of figures.
void record(const std::string &name, const StreamInfo &info, const Pcm &ref, const Measures &m);
// Prints the table of the lines recorded so far and empties it.
void print_table();

// Decodes `file` both ways, checks the formats and the overlap, records the
// measures and checks them against the limits: our rms difference at most
// 1.02 x that of the rounded reference, no sample more than 2 LSB off.
// `expected`: samples per channel the reference must give, when known;
// `max_shift`: the alignment search's reach (0 for streams both decoders
// start alike).
void check_against_reference(const std::string &name, std::span<const u8> file,
                             size_t expected = 0, int max_shift = kMaxShift);

}  // namespace mparef
