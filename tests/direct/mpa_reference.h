// Reference decoding for the MPEG audio decoder's tests: libmpg123 in
// floating point, and the sample-aligned comparison of our 16-bit decode
// with it. A perfect 16-bit decoder differs from the exact output only by
// rounding, about 2^-15/sqrt(12) of full scale rms.
#pragma once
#include <span>
#include <string>
#include <vector>

#include "platform/mai_types.h"

namespace mparef {

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

// The bytes of a file.
std::vector<u8> read_file(const std::string &path);

// Our decoder over the whole of `file`, fed at once.
Pcm decode_ours(std::span<const u8> file);

// Decodes `file` both ways (libmpg123 at the stream's own rate, every frame
// it finds, gapless trimming off), checks the formats and the overlap,
// adds a line to the table of figures and checks the limits: our rms
// difference at most 1.02 x that of the reference rounded to 16 bits, no
// sample more than 2 LSB off. `expected`: samples per channel the reference
// must give, when known; `max_shift`: the alignment search's reach (0 for
// streams both decoders start alike).
void check_against_reference(const std::string &name, std::span<const u8> file, size_t expected = 0,
                             int max_shift = kMaxShift);

// Prints the table of the lines added so far and empties it.
void print_table();

}  // namespace mparef
