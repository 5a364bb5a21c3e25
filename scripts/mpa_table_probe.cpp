// Recovers two tables of ISO/IEC 11172-3 by measurement: the 512
// coefficients of the polyphase synthesis window (Annex B, Table B.3) and
// the layer III Huffman code tables (Table B.7). Both are facts of the
// standard that any conforming decoder reproduces in its output, so they
// can be read back from a reference decoder's PCM through its public
// interface (libmpg123, float output) with frames built here:
//
//   window   a layer I frame with one non-zero sample in one subband: the
//            output is that sample times the window times the matrixing
//            cosine, 512 samples long; every subband is measured and the
//            estimates are combined by least squares.
//   huffman  a layer III granule with one big-value pair coded with the
//            table under test: the output is a linear combination of the
//            responses of the first spectral lines, whose coefficients are
//            |value|^(4/3). Feeding prefixes of candidate code words walks
//            the code tree: a prefix is a whole code word when the bit that
//            follows it no longer changes the decoded pair.
//
// Build and run (libmpg123-dev):
//   g++ -O2 -std=c++20 scripts/mpa_table_probe.cpp -lmpg123 -o /tmp/probe
//   /tmp/probe window|huffman     (C++ tables on standard output)
// direct/mpadec/synth_window.h and layer3_huffman_tables.h hold its output.
#include <mpg123.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

struct Bits {
  std::vector<unsigned char> bytes;
  unsigned bits = 0;
  void put(unsigned value, int n) {
    for (int i = n - 1; i >= 0; --i) {
      if (bits % 8 == 0) bytes.push_back(0);
      if ((value >> i) & 1) bytes.back() |= static_cast<unsigned char>(0x80 >> (bits % 8));
      ++bits;
    }
  }
  void put_string(const std::string &s) {
    for (char c : s) put(c == '1', 1);
  }
  void pad_to(size_t n) { bytes.resize(n, 0); }
};

// Decodes a stream of frames with libmpg123 (mono, float) and returns
// every sample it gives.
std::vector<double> reference_decode(const std::vector<unsigned char> &stream, long rate) {
  int err = 0;
  mpg123_handle *mh = mpg123_new(nullptr, &err);
  if (mh == nullptr) std::exit(2);
  mpg123_param(mh, MPG123_ADD_FLAGS, MPG123_QUIET, 0.);
  mpg123_param(mh, MPG123_REMOVE_FLAGS, MPG123_GAPLESS, 0.);
  mpg123_format_none(mh);
  mpg123_format(mh, rate, MPG123_MONO, MPG123_ENC_FLOAT_32);
  mpg123_open_feed(mh);
  mpg123_feed(mh, stream.data(), stream.size());
  std::vector<double> out;
  for (;;) {
    float buf[4096];
    size_t done = 0;
    int r = mpg123_read(mh, reinterpret_cast<unsigned char *>(buf), sizeof buf, &done);
    for (size_t i = 0; i < done / sizeof(float); ++i) out.push_back(buf[i]);
    if (r == MPG123_NEW_FORMAT || (r == MPG123_OK && done > 0)) continue;
    break;
  }
  mpg123_delete(mh);
  return out;
}

// ---- synthesis window -------------------------------------------------

// MPEG-1 layer I, 44.1 kHz, 384 kbit/s, mono, no check word: 416 bytes.
constexpr unsigned kLayer1Header = 0xFFFFC0C0;
constexpr size_t kLayer1Bytes = 416;

std::vector<unsigned char> layer1_impulse(int subband, unsigned code) {
  std::vector<unsigned char> stream;
  for (int f = 0; f < 3; ++f) {
    Bits b;
    b.put(kLayer1Header, 32);
    for (int sb = 0; sb < 32; ++sb) b.put(f == 0 && sb == subband ? 14 : 0, 4);
    if (f == 0) {
      b.put(3, 6);  // scale factor 2^(1 - 3/3) = 1
      // 15-bit codes; 16383 is zero, `code` the impulse in the first slot.
      for (int slot = 0; slot < 12; ++slot) b.put(slot == 0 ? code : 16383, 15);
    }
    b.pad_to(kLayer1Bytes);
    stream.insert(stream.end(), b.bytes.begin(), b.bytes.end());
  }
  return stream;
}

void probe_window() {
  const double pi = std::acos(-1.0);
  const unsigned code = 24575;
  const double amplitude = (2.0 * code - 32767 + 1) / 32767;  // requantised sample
  std::array<double, 512> num{}, den{};
  for (int k = 0; k < 32; ++k) {
    std::vector<double> pcm = reference_decode(layer1_impulse(k, code), 44100);
    if (pcm.size() < 1152) {
      std::fprintf(stderr, "short decode: %zu\n", pcm.size());
      std::exit(1);
    }
    for (size_t i = 512; i < pcm.size(); ++i)
      if (std::fabs(pcm[i]) > 1e-6) std::fprintf(stderr, "tail sample %zu = %g\n", i, pcm[i]);
    for (int m = 0; m < 16; ++m)
      for (int j = 0; j < 32; ++j) {
        // The impulse's 64 matrixed values enter the window at offset 0
        // (even blocks) or 32 (odd blocks) of their row.
        int row = (m & 1) ? 32 + j : j;
        double c = amplitude * std::cos((16 + row) * (2 * k + 1) * pi / 64);
        num[32 * m + j] += pcm[32 * m + j] * c;
        den[32 * m + j] += c * c;
      }
  }
  std::printf("// 512 coefficients; the entries at 16 + 32m multiply matrixed values that\n"
              "// are always zero and cannot be measured: printed as 0.\n");
  for (int i = 0; i < 512; ++i) {
    double d = den[i] > 1e-9 ? num[i] / den[i] : 0.0;
    std::printf("%s%.9f,%s", i % 8 == 0 ? "    " : " ", d, i % 8 == 7 ? "\n" : "");
  }
}

// ---- Huffman code tables ------------------------------------------------

// MPEG-1 layer III, 44.1 kHz, 320 kbit/s, mono, no check word: 1044 bytes.
constexpr unsigned kLayer3Header = 0xFFFBE0C0;
constexpr size_t kLayer3Bytes = 1044;
constexpr int kGlobalGain = 140;

// One frame whose first granule codes `main` (part2_3_length bits) as
// `big_values` pairs with table `table` in region 0 and table A for count1.
std::vector<unsigned char> layer3_frame(const std::string &main, int big_values, int table) {
  Bits b;
  b.put(kLayer3Header, 32);
  b.put(0, 9);  // main_data_begin
  b.put(0, 5);  // private bits
  b.put(0, 4);  // scfsi
  for (int gr = 0; gr < 2; ++gr) {
    bool used = gr == 0;
    b.put(used ? unsigned(main.size()) : 0, 12);  // part2_3_length
    b.put(used ? unsigned(big_values) : 0, 9);
    b.put(kGlobalGain, 8);
    b.put(0, 4);  // scalefac_compress: no scale factor bits
    b.put(0, 1);  // normal long blocks
    b.put(used ? unsigned(table) : 0, 5);
    b.put(0, 5);
    b.put(0, 5);
    b.put(15, 4);  // region0_count: region 0 covers the pair
    b.put(7, 3);
    b.put(0, 1);  // preflag
    b.put(0, 1);  // scalefac_scale
    b.put(0, 1);  // count1table_select: table A
  }
  b.put_string(main);
  b.pad_to(kLayer3Bytes);
  return b.bytes;
}

std::vector<unsigned char> with_silence(std::vector<unsigned char> frame) {
  std::vector<unsigned char> silent = layer3_frame("", 0, 0);
  for (int i = 0; i < 2; ++i) frame.insert(frame.end(), silent.begin(), silent.end());
  return frame;
}

constexpr int kLines = 6;  // lines 0..5: the pair, and the first count1 quadruple
std::array<std::vector<double>, kLines> g_basis;

// Responses of single lines of value +1, coded with table 1 (codes
// 1: (0,0), 01: (1,0), 001: (0,1), then a sign bit 0 for +).
void measure_basis() {
  for (int line = 0; line < kLines; ++line) {
    std::string main;
    for (int pair = 0; pair < 3; ++pair) {
      bool x = line == 2 * pair, y = line == 2 * pair + 1;
      main += x ? "010" : y ? "0010" : "1";
    }
    g_basis[line] = reference_decode(with_silence(layer3_frame(main, 3, 1)), 44100);
  }
}

// Least-squares coefficients of the basis for a response.
std::array<double, kLines> fit(const std::vector<double> &pcm) {
  double a[kLines][kLines + 1] = {};
  size_t n = pcm.size();
  for (int i = 0; i < kLines; ++i) {
    n = std::min(n, g_basis[i].size());
  }
  for (int i = 0; i < kLines; ++i) {
    for (int j = 0; j < kLines; ++j)
      for (size_t t = 0; t < n; ++t) a[i][j] += g_basis[i][t] * g_basis[j][t];
    for (size_t t = 0; t < n; ++t) a[i][kLines] += g_basis[i][t] * pcm[t];
  }
  for (int c = 0; c < kLines; ++c) {
    int piv = c;
    for (int r = c + 1; r < kLines; ++r)
      if (std::fabs(a[r][c]) > std::fabs(a[piv][c])) piv = r;
    for (int j = 0; j <= kLines; ++j) std::swap(a[c][j], a[piv][j]);
    for (int r = 0; r < kLines; ++r) {
      if (r == c) continue;
      double f = a[r][c] / a[c][c];
      for (int j = 0; j <= kLines; ++j) a[r][j] -= f * a[c][j];
    }
  }
  std::array<double, kLines> x{};
  for (int i = 0; i < kLines; ++i) x[i] = a[i][kLines] / a[i][i];
  return x;
}

int magnitude(double coefficient) {
  return int(std::lround(std::pow(std::fabs(coefficient), 0.75)));
}

struct Symbol {
  int x, y;
  bool operator==(const Symbol &o) const { return x == o.x && y == o.y; }
};

// The pair decoded from `prefix` followed by ones (sign bits 1, escape
// bits all ones, count1 quadruples of zeros), clamped to the table's
// symbol range.
std::map<std::string, Symbol> g_memo;
Symbol decode_prefix(int table, const std::string &prefix) {
  auto it = g_memo.find(prefix);
  if (it != g_memo.end()) return it->second;
  std::string main = prefix + std::string(120 - prefix.size(), '1');
  std::array<double, kLines> c = fit(reference_decode(with_silence(layer3_frame(main, 1, table)), 44100));
  Symbol s{std::min(magnitude(c[0]), 15), std::min(magnitude(c[1]), 15)};
  g_memo[prefix] = s;
  return s;
}

bool explore(int table, const std::string &p, std::map<std::pair<int, int>, std::string> *codes) {
  if (p.size() > 19) {
    std::fprintf(stderr, "table %d: no code word along %s\n", table, p.c_str());
    return false;
  }
  Symbol a = decode_prefix(table, p + "0"), b = decode_prefix(table, p + "1");
  if (!p.empty() && a == b) {
    auto key = std::make_pair(a.x, a.y);
    if (codes->count(key)) {
      std::fprintf(stderr, "table %d: (%d,%d) twice: %s and %s\n", table, a.x, a.y,
                   (*codes)[key].c_str(), p.c_str());
      return false;
    }
    (*codes)[key] = p;
    return true;
  }
  return explore(table, p + "0", codes) && explore(table, p + "1", codes);
}

void probe_huffman() {
  measure_basis();
  const int tables[] = {1, 2, 3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 16, 24};
  for (int t : tables) {
    g_memo.clear();
    std::map<std::pair<int, int>, std::string> codes;
    bool ok = explore(t, "", &codes);
    int size = 0;
    for (auto &kv : codes) size = std::max(size, kv.first.first + 1);
    std::fprintf(stderr, "table %d: %zu code words, %d values, %s, %zu probes\n", t, codes.size(),
                 size, ok ? "complete" : "FAILED", g_memo.size());
    if (!ok || codes.size() != size_t(size * size)) std::exit(1);
    std::printf("constexpr MpaHuffCode kMpaPair%d[%d] = {\n", t, size * size);
    int n = 0;
    for (int x = 0; x < size; ++x)
      for (int y = 0; y < size; ++y) {
        const std::string &c = codes[{x, y}];
        std::printf("%s{0b%s, %zu},%s", n % 6 == 0 ? "    " : " ", c.c_str(), c.size(),
                    n % 6 == 5 ? "\n" : "");
        ++n;
      }
    if (n % 6) std::printf("\n");
    std::printf("};\n");
  }
}

}  // namespace

int main(int argc, char **argv) {
  mpg123_init();
  std::string what = argc > 1 ? argv[1] : "";
  if (what == "window")
    probe_window();
  else if (what == "huffman")
    probe_huffman();
  else {
    std::fprintf(stderr, "usage: %s window|huffman\n", argv[0]);
    return 2;
  }
  return 0;
}
