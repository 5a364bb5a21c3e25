// Our decoded PCM against libmpg123's floating-point output, sample by
// sample: files from real encoders (lame for layer III, ffmpeg for layer II)
// and layer I streams built here. A perfect 16-bit decoder differs from the
// exact output only by rounding, about 2^-15/sqrt(12) rms; ours may add at
// most 2% to that, and no sample may be more than 2 LSB off.
#include <gtest/gtest.h>
#include <mpg123.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tests/direct/bit_writer.h"
#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

namespace {

using namespace mparef;

std::vector<u8> read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class MpaAccuracy : public testing::TestWithParam<const char *> {
 public:
  static void TearDownTestSuite() { print_table(); }
};

TEST_P(MpaAccuracy, EncodedFileMatchesTheReferenceToRounding) {
  const std::string path = fixtures::media(GetParam());
  ASSERT_FALSE(path.empty());
  const std::vector<u8> file = read_file(path);
  check_against_reference(GetParam(), file);
}

// lame files over every sampling rate, each channel mode, CBR and VBR from
// 32 to 320 kbit/s; ffmpeg layer II files at MPEG-1 and MPEG-2 rates, whose
// bit rates per channel pick each of the allocation tables.
INSTANTIATE_TEST_SUITE_P(
    Files, MpaAccuracy,
    testing::Values("music_8k_mono_cbr32.mp3", "music_11k_stereo_vbr.mp3",
                    "music_16k_joint_cbr48.mp3", "music_22k_mono_cbr64.mp3",
                    "music_24k_joint_cbr160.mp3", "music_32k_joint_cbr32.mp3",
                    "music_32k_stereo_cbr96.mp3", "music_44k_stereo_cbr128.mp3",
                    "music_44k_joint_vbr2.mp3", "music_44k_mono_cbr256.mp3",
                    "music_48k_joint_cbr320.mp3", "music_48k_stereo_vbr0.mp3",
                    "music_48k_stereo_192.mp2", "music_44k_stereo_128.mp2",
                    "music_32k_stereo_64.mp2", "music_24k_stereo_96.mp2",
                    "music_48k_mono_48.mp2"),
    [](const testing::TestParamInfo<const char *> &p) {
      std::string s = p.param;
      std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(u8(c)); }, '_');
      return s;
    });

// Layer I: no encoder at hand, so the streams are built here from random
// but valid frames.
struct LayerOneCase {
  const char *name;
  int rate_index;  // 0 = 44.1 kHz, 1 = 48 kHz, 2 = 32 kHz
  int mode;        // 0 stereo, 1 joint stereo, 3 mono
};

void PrintTo(const LayerOneCase &c, std::ostream *os) { *os << c.name; }

constexpr int kLayerOneRates[3] = {44100, 48000, 32000};
constexpr int kLayerOneKbps[15] = {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448};

// The frame check word over `bits` (one bit per element).
u16 crc16(const std::vector<int> &bits) {
  u16 crc = 0xFFFF;
  for (int in : bits) {
    const bool top = crc & 0x8000;
    crc = u16(crc << 1);
    if (bool(in) != top) crc ^= 0x8005;
  }
  return crc;
}

// One layer I frame. Per channel and subband: an allocation of 0..14 (a
// sample of allocation a takes a + 1 bits), a scale factor index 0..62 where
// anything is allocated, then twelve samples per subband in turn. Above the
// joint stereo bound (4, 8, 12 or 16 by the mode extension) both channels
// share allocation and samples and keep their own scale factors. The samples
// are random, held so that the sum over the subbands stays loud without
// clipping much; a scale factor too loud for its subband gets samples near
// zero. With the check word, it covers the last two header bytes and the
// allocations.
std::vector<u8> layer_one_frame(std::mt19937 &rng, int rate_index, int mode) {
  auto uniform = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const int channels = mode == 3 ? 1 : 2;
  const int extension = mode == 1 ? uniform(0, 3) : 0;
  const int bound = mode == 1 ? 4 * (extension + 1) : 32;
  const bool protect = uniform(0, 1);
  const int rate = kLayerOneRates[rate_index];

  int alloc[2][32] = {};
  int scf[2][32] = {};
  const int density = uniform(20, 100);  // percent of subbands that carry samples
  for (int sb = 0; sb < 32; ++sb)
    for (int ch = 0; ch < channels; ++ch) {
      if (ch == 1 && sb >= bound) alloc[1][sb] = alloc[0][sb];
      else if (uniform(1, 100) <= density) alloc[ch][sb] = uniform(1, 14);
    }
  const int fixed_bits = 32 + (protect ? 16 : 0) + 4 * (channels == 1 ? 32 : 32 + bound);
  auto data_bits = [&] {
    int bits = fixed_bits;
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < channels; ++ch) {
        if (alloc[ch][sb] == 0) continue;
        bits += 6;
        if (ch == 0 || sb < bound) bits += 12 * (alloc[ch][sb] + 1);
      }
    return bits;
  };
  // A random bit rate with room for the fixed part, then allocations taken
  // away at random until the samples fit.
  int br = uniform(1, 14);
  auto slots = [&](int index) { return 12 * kLayerOneKbps[index] * 1000 / rate; };
  while (slots(br) * 32 < fixed_bits + 64 && br < 14) ++br;
  const int padding = uniform(0, 1);
  const int capacity = (slots(br) + padding) * 32;
  while (data_bits() > capacity) {
    const int sb = uniform(0, 31), ch = uniform(0, channels - 1);
    if (alloc[ch][sb] == 0) continue;
    alloc[ch][sb] -= 1;
    if (sb >= bound && channels == 2) alloc[1 - ch][sb] = alloc[ch][sb];
  }
  // Scale factors and the sample amplitude each subband may reach.
  double limit[32] = {};
  int active = 0;
  for (int sb = 0; sb < 32; ++sb) active += alloc[0][sb] != 0 || alloc[channels - 1][sb] != 0;
  for (int sb = 0; sb < 32; ++sb) {
    double loudest = 0;
    for (int ch = 0; ch < channels; ++ch) {
      scf[ch][sb] = uniform(0, 62);
      loudest = std::max(loudest, 2.0 * std::pow(2.0, -scf[ch][sb] / 3.0));
    }
    limit[sb] = std::min(1.0, 0.8 / std::sqrt(std::max(1, active)) / loudest);
  }

  BitWriter w;
  w.put(0xFFF, 12);
  w.put(1, 1);  // MPEG-1
  w.put(3, 2);  // layer I
  w.put(protect ? 0 : 1, 1);
  w.put(u32(br), 4);
  w.put(u32(rate_index), 2);
  w.put(u32(padding), 1);
  w.put(0, 1);
  w.put(u32(mode), 2);
  w.put(u32(extension), 2);
  w.put(0, 4);  // copyright, original, no emphasis
  if (protect) w.put(0, 16);  // filled in below
  std::vector<int> covered;
  for (int i = 16; i < 32; ++i) covered.push_back((w.bytes[size_t(i / 8)] >> (7 - i % 8)) & 1);
  auto put_alloc = [&](int a) {
    w.put(u32(a), 4);
    for (int i = 3; i >= 0; --i) covered.push_back((a >> i) & 1);
  };
  for (int sb = 0; sb < 32; ++sb)
    for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch) put_alloc(alloc[ch][sb]);
  for (int sb = 0; sb < 32; ++sb)
    for (int ch = 0; ch < channels; ++ch)
      if (alloc[ch][sb]) w.put(u32(scf[ch][sb]), 6);
  for (int s = 0; s < 12; ++s)
    for (int sb = 0; sb < 32; ++sb)
      for (int ch = 0; ch < (sb < bound ? channels : 1); ++ch) {
        const int a = alloc[ch][sb];
        if (a == 0) continue;
        // Codes 0 .. 2^(a+1) - 2 (all ones is never sent); the middle one,
        // 2^a - 1, is zero.
        const int middle = (1 << a) - 1;
        const int reach = int(middle * limit[sb]);
        w.put(u32(middle + uniform(-reach, reach)), a + 1);
      }
  const size_t size = size_t(slots(br) + padding) * 4;
  EXPECT_LE(w.bytes.size(), size);
  w.bytes.resize(size, 0);  // ancillary data: zeros
  if (protect) {
    const u16 crc = crc16(covered);
    w.bytes[4] = u8(crc >> 8);
    w.bytes[5] = u8(crc);
  }
  return w.bytes;
}

class MpaLayerOneAccuracy : public testing::TestWithParam<LayerOneCase> {
 public:
  static void TearDownTestSuite() { print_table(); }
};

TEST_P(MpaLayerOneAccuracy, RandomFramesMatchTheReferenceToRounding) {
  const LayerOneCase &c = GetParam();
  std::mt19937 rng(u32(1000 + 10 * c.rate_index + c.mode));
  std::vector<u8> stream;
  const int frames = 40;
  for (int i = 0; i < frames; ++i) {
    const std::vector<u8> f = layer_one_frame(rng, c.rate_index, c.mode);
    stream.insert(stream.end(), f.begin(), f.end());
  }
  check_against_reference(c.name, stream, size_t(frames) * 384);
}

INSTANTIATE_TEST_SUITE_P(Streams, MpaLayerOneAccuracy,
                         testing::Values(LayerOneCase{"layer1_44k_stereo", 0, 0},
                                         LayerOneCase{"layer1_44k_joint", 0, 1},
                                         LayerOneCase{"layer1_44k_mono", 0, 3},
                                         LayerOneCase{"layer1_48k_stereo", 1, 0},
                                         LayerOneCase{"layer1_48k_joint", 1, 1},
                                         LayerOneCase{"layer1_48k_mono", 1, 3},
                                         LayerOneCase{"layer1_32k_stereo", 2, 0},
                                         LayerOneCase{"layer1_32k_joint", 2, 1},
                                         LayerOneCase{"layer1_32k_mono", 2, 3}),
                         [](const testing::TestParamInfo<LayerOneCase> &p) {
                           return std::string(p.param.name);
                         });

}  // namespace
