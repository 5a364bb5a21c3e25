// Our decoded PCM against libmpg123's floating-point output, sample by
// sample: files from real encoders (lame for layer III, ffmpeg for layer II)
// and layer I streams built here. A perfect 16-bit decoder differs from the
// exact output only by rounding, about 2^-15/sqrt(12) rms; ours may add at
// most 2% to that, and no sample may be more than 2 LSB off.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

// Random valid frames, from mpadec_random_frames_test.cpp.
std::vector<u8> random_stream(int layer, int version, int rate_index, int mode, int frames, u32 seed);

namespace {

using namespace mparef;

class MpaAccuracy : public testing::TestWithParam<const char *> {
 public:
  static void TearDownTestSuite() { print_table(); }
};

TEST_P(MpaAccuracy, EncodedFileMatchesTheReferenceToRounding) {
  const std::string path = fixtures::media(GetParam());
  ASSERT_FALSE(path.empty());
  check_against_reference(GetParam(), read_file(path));
}

// lame files over every sampling rate, each channel mode, CBR and VBR from
// 32 to 320 kbit/s (and the files direct playback plays, two of them behind
// an ID3v2 tag); ffmpeg layer II files at MPEG-1 and MPEG-2 rates, whose bit
// rates per channel pick each of the allocation tables.
INSTANTIATE_TEST_SUITE_P(
    Files, MpaAccuracy,
    testing::Values("music_8k_mono_cbr32.mp3", "music_11k_stereo_vbr.mp3", "music_16k_joint_cbr48.mp3",
                    "music_22k_mono_cbr64.mp3", "music_24k_joint_cbr160.mp3", "music_32k_joint_cbr32.mp3",
                    "music_32k_stereo_cbr96.mp3", "music_44k_stereo_cbr128.mp3", "music_44k_joint_vbr2.mp3",
                    "music_44k_mono_cbr256.mp3", "music_48k_joint_cbr320.mp3", "music_48k_stereo_vbr0.mp3",
                    "tone.mp3", "mpeg2_22k_vbr_id3v24.mp3", "mpeg25_11k_cbr_id3v1.mp3",
                    "music_48k_stereo_192.mp2", "music_44k_stereo_128.mp2", "music_32k_stereo_64.mp2",
                    "music_24k_stereo_96.mp2", "music_48k_mono_48.mp2"),
    [](const testing::TestParamInfo<const char *> &p) {
      std::string s = p.param;
      std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(u8(c)); }, '_');
      return s;
    });

// Layer I: no encoder at hand, so the streams are built from random but
// valid frames, 40 to a stream, at each MPEG-1 rate in stereo, joint stereo
// and mono.
struct LayerOneCase {
  const char *name;
  int rate_index;  // 0 = 44.1 kHz, 1 = 48 kHz, 2 = 32 kHz
  int mode;        // 0 stereo, 1 joint stereo, 3 mono
};

void PrintTo(const LayerOneCase &c, std::ostream *os) { *os << c.name; }

class MpaLayerOneAccuracy : public testing::TestWithParam<LayerOneCase> {
 public:
  static void TearDownTestSuite() { print_table(); }
};

TEST_P(MpaLayerOneAccuracy, RandomFramesMatchTheReferenceToRounding) {
  const LayerOneCase &c = GetParam();
  const u32 seed = u32(1000 + 10 * c.rate_index + c.mode);
  check_against_reference(c.name, random_stream(1, 0, c.rate_index, c.mode, 40, seed), 40 * 384);
}

INSTANTIATE_TEST_SUITE_P(Streams, MpaLayerOneAccuracy,
                         testing::Values(LayerOneCase{"layer1_44k_stereo", 0, 0}, LayerOneCase{"layer1_44k_joint", 0, 1},
                                         LayerOneCase{"layer1_44k_mono", 0, 3}, LayerOneCase{"layer1_48k_stereo", 1, 0},
                                         LayerOneCase{"layer1_48k_joint", 1, 1}, LayerOneCase{"layer1_48k_mono", 1, 3},
                                         LayerOneCase{"layer1_32k_stereo", 2, 0}, LayerOneCase{"layer1_32k_joint", 2, 1},
                                         LayerOneCase{"layer1_32k_mono", 2, 3}),
                         [](const testing::TestParamInfo<LayerOneCase> &p) { return std::string(p.param.name); });

}  // namespace
