// Layer III frames written here field by field, decoded through side
// information, bit reservoir, Huffman values, requantisation and IMDCT to
// the subband samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "direct/mpa_decoder.h"
#include "direct/mpadec/layer3.h"
#include "direct/mpadec/layer3_huffman.h"
#include "direct/mpadec/mpadec.h"

#include "tests/direct/bit_writer.h"

namespace {

// A mono MPEG-1 frame at 44.1 kHz, 128 kbit/s (417 bytes): granule 0 codes
// one value of magnitude 1 (table 1, pair (1, 0), sign `negative`) at
// global gain `gain`; granule 1 is silent.
std::vector<u8> mono_frame(int main_data_begin, int gain, int negative) {
  BitWriter w;
  w.put(0xFFFB90C4, 32);  // layer III, no check word, mono
  w.put(u32(main_data_begin), 9);
  w.put(0, 9);  // private bits, scfsi
  for (u32 gr = 0; gr < 2; ++gr) {
    // part2_3_length (code '01' and a sign bit), big_values, global_gain,
    // scalefac_compress 0 (no scale factor bits), no window switching,
    // table_select 1 1 1; region counts, preflag, scale, count1 table 0.
    const u32 fields[][2] = {{gr ? 0u : 3u, 12}, {gr ? 0u : 1u, 9}, {u32(gain), 8}, {0, 5}, {0x421, 15}, {0, 10}};
    for (auto [value, bits] : fields) w.put(value, int(bits));
  }
  EXPECT_EQ(w.bits, (4u + 17u) * 8);
  w.put(0b01, 2);
  w.put(u32(negative), 1);
  while (w.bytes.size() < 417) w.put(0, 8);
  return w.bytes;
}

struct Decoder {
  std::vector<u8> work = std::vector<u8>(kMpaWorkBufferBytes, 0);
  MpaCodecContext *ctx() { return reinterpret_cast<MpaCodecContext *>(work.data()); }
  MpaState *state() { return ctx()->state; }
  Decoder() { EXPECT_EQ(pmx_avcodec_open(ctx()), 0); }
  ~Decoder() { pmx_avcodec_close(ctx()); }
};

const double kPi = std::acos(-1.0);

// Subband 0 of a long block holding one value v at the lowest frequency:
// the 36-point IMDCT of (v, 0, ...) windowed by the normal window.
double block(double v, int i) {
  return v * std::cos(kPi / 72 * (2 * i + 19)) * std::sin(kPi / 36 * (i + 0.5));
}

// Granules 0 and 1 of subband 0 hold the block of v and its overlap; all
// other subbands are silent.
void expect_value(const MpaState *s, double v) {
  const MpaSubbandFrame &sb = s->subband;
  for (int t = 0; t < 36; ++t) {
    EXPECT_NEAR(sb.s[0][t][0] / double(1 << 28), block(v, t), 1e-7) << t;
    for (int band = 1; band < 32; ++band) ASSERT_EQ(sb.s[0][t][band], 0);
  }
}

TEST(MpaLayer3Frame, OneValueThroughTheChainFromThisAndEarlierFramesOrRefused) {
  Decoder d;
  MpaHeader hd{};
  ASSERT_EQ(mpa_parse_header(d.state(), 0xFFFB90C4, &hd), 0);
  // The first frame points 100 bytes back into data never received.
  std::vector<u8> first = mono_frame(100, 210, 0);
  EXPECT_EQ(mpa_decode_layer3(d.state(), &hd, first.data()), 1);
  expect_value(d.state(), 0);
  // Main data of its own, at gains giving 2^(0, -2, -5) and both signs.
  for (auto [gain, negative] : {std::pair{210, 1}, {202, 0}, {190, 1}}) {
    std::vector<u8> f = mono_frame(0, gain, negative);
    ASSERT_EQ(mpa_decode_layer3(d.state(), &hd, f.data()), 0);
    expect_value(d.state(), (negative ? -1.0 : 1.0) * std::pow(2.0, (gain - 210) / 4.0));
    // The next granule 0 would start on this one's tail: start afresh.
    std::memset(d.state()->overlap, 0, sizeof d.state()->overlap);
  }
  // This frame's main data begins 396 bytes back: the whole main data of
  // the previous frame (417 - 21 bytes), whose first bits code the negative
  // value; the value bits it carries itself are cleared.
  std::vector<u8> last = mono_frame(396, 0, 0);
  last[21] = 0;
  EXPECT_EQ(mpa_decode_layer3(d.state(), &hd, last.data()), 0);
  expect_value(d.state(), -std::pow(2.0, (0 - 210) / 4.0));  // gain 0 of this frame's side information
  // Broken side information: big_values of granule 0 (bits 30..38) beyond 288.
  last[4 + 3] |= 0x3F;
  last[4 + 4] |= 0xE0;
  EXPECT_EQ(mpa_decode_layer3(d.state(), &hd, last.data()), -1);
}

}  // namespace
