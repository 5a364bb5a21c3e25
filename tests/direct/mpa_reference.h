// libmpg123's floating-point output as the reference for our decoder.
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

// Decodes `file` both ways, aligns them within `max_shift` samples (an Info
// frame one decoder plays as silence), adds a table line and checks: the
// reference gives `expected` samples (when not 0), all overlap ours, rms
// difference at most 1.02 x the reference rounded, no sample over 2 LSB off.
void check_against_reference(const std::string &name, std::span<const u8> file, size_t expected = 0,
                             int max_shift = 2304);

// Prints the lines added so far and empties the table.
void print_table();

}  // namespace mparef
