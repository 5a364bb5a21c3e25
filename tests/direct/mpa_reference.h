// Reference decoding for the MPEG audio decoder's tests: libmpg123 in
// floating point, and the sample-aligned comparison of our 16-bit output
// with it.
#pragma once
#include <span>
#include <string>
#include <vector>

#include "platform/mai_types.h"

namespace mparef {

struct Pcm {
  int rate = 0, channels = 0;
  std::vector<double> samples;  // interleaved, in LSB (1.0 = 1/32768 of full scale)
  size_t frames() const { return channels ? samples.size() / size_t(channels) : 0; }
};

std::vector<u8> read_file(const std::string &path);

// Our decoder over the whole of `file`, fed at once.
Pcm decode_ours(std::span<const u8> file);

// Decodes `file` both ways (libmpg123 at the stream's rate, gapless trimming
// off), aligns them within `max_shift` samples per channel (two frames by
// default: an Info frame one decoder plays as silence), adds a line to the
// table and checks: the reference gives `expected` samples per channel (when
// not 0) and all of them overlap ours, our rms difference is at most 1.02 x
// that of the reference rounded to 16 bits, no sample more than 2 LSB off.
void check_against_reference(const std::string &name, std::span<const u8> file, size_t expected = 0,
                             int max_shift = 2304);

// Prints the table of the lines added so far and empties it.
void print_table();

}  // namespace mparef
