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

struct Source {
  std::string name;               // a media fixture, or a layer I stream's name
  int rate_index = -1, mode = 0;  // layer I: 0 44.1, 1 48, 2 32 kHz; 0 stereo, 1 joint stereo, 3 mono
};

void PrintTo(const Source &s, std::ostream *os) { *os << s.name; }

// lame files over every sampling rate, each channel mode, CBR and VBR from
// 32 to 320 kbit/s (with the files direct playback plays, two behind an
// ID3v2 tag); ffmpeg layer II files at MPEG-1 and MPEG-2 rates, whose bit
// rates per channel pick each of the allocation tables. Layer I has no
// encoder at hand: 40 random but valid frames at each MPEG-1 rate in
// stereo, joint stereo and mono.
std::vector<Source> sources() {
  std::vector<Source> v;
  for (const char *file :
       {"music_8k_mono_cbr32.mp3", "music_11k_stereo_vbr.mp3", "music_16k_joint_cbr48.mp3", "music_22k_mono_cbr64.mp3",
        "music_24k_joint_cbr160.mp3", "music_32k_joint_cbr32.mp3", "music_32k_stereo_cbr96.mp3",
        "music_44k_stereo_cbr128.mp3", "music_44k_joint_vbr2.mp3", "music_44k_mono_cbr256.mp3",
        "music_48k_joint_cbr320.mp3", "music_48k_stereo_vbr0.mp3", "tone.mp3", "mpeg2_22k_vbr_id3v24.mp3",
        "mpeg25_11k_cbr_id3v1.mp3", "music_48k_stereo_192.mp2", "music_44k_stereo_128.mp2", "music_32k_stereo_64.mp2",
        "music_24k_stereo_96.mp2", "music_48k_mono_48.mp2"})
    v.push_back({file});
  const char *const rates[3] = {"44k", "48k", "32k"}, *const modes[4] = {"stereo", "joint", "", "mono"};
  for (int rate = 0; rate < 3; ++rate)
    for (int mode : {0, 1, 3}) v.push_back({std::string("layer1_") + rates[rate] + "_" + modes[mode], rate, mode});
  return v;
}

class MpaAccuracy : public testing::TestWithParam<Source> {
 public:
  static void TearDownTestSuite() { mparef::print_table(); }
};

TEST_P(MpaAccuracy, MatchesTheReferenceToRounding) {
  const Source &s = GetParam();
  if (s.rate_index >= 0) {
    const u32 seed = u32(1000 + 10 * s.rate_index + s.mode);
    mparef::check_against_reference(s.name, random_stream(1, 0, s.rate_index, s.mode, 40, seed), 40 * 384);
    return;
  }
  const std::string path = fixtures::media(s.name);
  ASSERT_FALSE(path.empty());
  mparef::check_against_reference(s.name, mparef::read_file(path));
}

INSTANTIATE_TEST_SUITE_P(Sources, MpaAccuracy, testing::ValuesIn(sources()),
                         [](const testing::TestParamInfo<Source> &p) {
                           std::string s = p.param.name;
                           std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(u8(c)); }, '_');
                           return s;
                         });

}  // namespace
