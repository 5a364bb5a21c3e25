// Decoding speed of our MPEG audio decoder against libmad and libmpg123's
// portable C decoder, over the same lame files held in memory (made at the
// start by the test fixtures). Each benchmark reports the time it takes per
// second of decoded audio (per_audio_s); ours also reports how many times
// longer the other two take (mad/ours, mpg123/ours), once they have run.
//   mpadec_bench [Google Benchmark options]
#include <benchmark/benchmark.h>
#include <time.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "bench/mpadec_decoders.h"
#include "tests/support/fixtures.h"

namespace {

using mpabench::Decoded;
using mpabench::Decoder;

struct File {
  const char *fixture;
  const char *label;
  std::vector<u8> bytes;
  std::vector<u8> guarded;  // the copy libmad reads
};

File g_files[] = {
    {"music_44k_stereo_cbr128_15s.mp3", "44k_stereo_128k", {}, {}},
    {"music_48k_stereo_cbr320_10s.mp3", "48k_stereo_320k", {}, {}},
    {"music_22k_mono_cbr64_10s.mp3", "22k_mono_64k", {}, {}},
};

// CPU seconds per second of audio, by file and decoder, as measured.
std::map<std::string, double> g_cost;

double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

Decoded decode(Decoder which, const File &f) {
  switch (which) {
    case Decoder::ours: return mpabench::decode_ours(f.bytes);
    case Decoder::mad: return mpabench::decode_mad(f.guarded);
    case Decoder::mpg123: return mpabench::decode_mpg123(f.bytes);
  }
  return {};
}

const char *name_of(Decoder which) {
  return which == Decoder::ours ? "ours" : which == Decoder::mad ? "mad" : "mpg123";
}

void decode_bench(benchmark::State &state, Decoder which, const File *f) {
  // The file's play time, from the reference decoder: ours may add a
  // silent frame for an Info header, and must not be credited for it.
  const Decoded ref = mpabench::decode_mpg123(f->bytes);
  if (ref.rate == 0) {
    state.SkipWithError("libmpg123 cannot decode the file");
    return;
  }
  const double seconds = double(ref.samples) / ref.rate;
  Decoded last;
  const double start = cpu_seconds();
  for (auto _ : state) {
    last = decode(which, *f);
    benchmark::DoNotOptimize(last.checksum);
  }
  const double cost = (cpu_seconds() - start) / double(state.iterations()) / seconds;
  g_cost[std::string(f->label) + "/" + name_of(which)] = cost;
  state.counters["per_audio_s"] =
      benchmark::Counter(seconds, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["samples"] = double(last.samples);
  if (which == Decoder::ours) {
    for (Decoder other : {Decoder::mad, Decoder::mpg123}) {
      auto it = g_cost.find(std::string(f->label) + "/" + name_of(other));
      if (it != g_cost.end() && cost > 0)
        state.counters[std::string(name_of(other)) + "/ours"] = it->second / cost;
    }
  }
}

std::vector<u8> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace

int main(int argc, char **argv) {
  for (File &f : g_files) {
    const std::string path = fixtures::media(f.fixture);
    if (path.empty()) {
      std::fprintf(stderr, "cannot make %s\n", f.fixture);
      return 1;
    }
    f.bytes = read_file(path);
    f.guarded = mpabench::with_mad_guard(f.bytes);
  }
  // The references first, so that ours can report the ratios.
  for (const File &f : g_files)
    for (Decoder which : {Decoder::mad, Decoder::mpg123, Decoder::ours})
      benchmark::RegisterBenchmark((std::string("decode/") + f.label + "/" + name_of(which)).c_str(),
                                   decode_bench, which, &f)
          ->Unit(benchmark::kMillisecond);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
