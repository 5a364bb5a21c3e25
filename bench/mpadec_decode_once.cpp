// Decodes one file once with ours, libmad or libmpg123 (its portable C
// decoder) and prints the samples per channel, channels and rate; for
// counting instructions under callgrind (scripts/bench), where only
// mpadec_decode_file is counted.
//   mpadec_decode_once {ours|mad|mpg123} file.mp3
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/mpadec_decoders.h"

extern "C" __attribute__((noinline)) mpabench::Decoded mpadec_decode_file(const char *which,
                                                                         const std::vector<u8> &file) {
  if (std::strcmp(which, "mad") == 0) return mpabench::decode_mad(file);
  if (std::strcmp(which, "mpg123") == 0) return mpabench::decode_mpg123(file);
  return mpabench::decode_ours(file);
}

int main(int argc, char **argv) {
  if (argc != 3 || (std::strcmp(argv[1], "ours") != 0 && std::strcmp(argv[1], "mad") != 0 &&
                    std::strcmp(argv[1], "mpg123") != 0)) {
    std::fprintf(stderr, "usage: %s {ours|mad|mpg123} file.mp3\n", argv[0]);
    return 2;
  }
  std::ifstream in(argv[2], std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot open %s\n", argv[2]);
    return 1;
  }
  std::vector<u8> file{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (std::strcmp(argv[1], "mad") == 0) file = mpabench::with_mad_guard(file);
  const mpabench::Decoded d = mpadec_decode_file(argv[1], file);
  std::printf("%ld samples per channel, %d channels, %d Hz\n", d.samples, d.channels, d.rate);
  return d.samples > 0 ? 0 : 1;
}
