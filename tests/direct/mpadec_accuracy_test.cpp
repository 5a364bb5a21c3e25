// Our decoded PCM against libmpg123's floating-point output, sample-aligned:
// files from real encoders (lame layer III, ffmpeg layer II) and streams of
// random valid frames (layer I, which no encoder at hand makes, and layers II
// and III in every mode at every rate, for what encoders leave out). The rms
// difference may be at most 1.02 x that of the reference rounded to 16 bits,
// no sample more than 2 LSB off; the table of figures is printed at the end.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "tests/direct/mpa_reference.h"
#include "tests/support/fixtures.h"

// mpa_random_frames.cpp: version 0 MPEG-1, 1 MPEG-2, 2 MPEG-2.5; mode 0
// stereo, 1 joint stereo, 2 dual channel, 3 mono.
std::vector<u8> random_stream(int layer, int version, int rate_index, int mode, int frames, u32 seed);

namespace {

struct Source {
  std::string name;
  int layer = 0, version = 0, rate_index = 0, mode = 0;  // layer 0: a media fixture
};

void PrintTo(const Source &s, std::ostream *os) { *os << s.name; }

// lame files at every sampling rate and channel mode, CBR and VBR from 32
// to 320 kbit/s (two behind an ID3v2 tag); ffmpeg layer II files whose bit
// rates per channel pick each allocation table; random frames: layer I at
// the MPEG-1 rates, layer II at the MPEG-1 and 2 rates, layer III at all.
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
  const char *const rates[3][3] = {{"44k", "48k", "32k"}, {"22k", "24k", "16k"}, {"11k", "12k", "8k"}};
  const char *const modes[4] = {"stereo", "joint", "dual", "mono"};
  for (int layer = 1; layer <= 3; ++layer)
    for (int version = 0; version < (layer == 1 ? 1 : layer); ++version)
      for (int rate = 0; rate < 3; ++rate)
        for (int mode = 0; mode < 4; ++mode)
          if (mode != 2 || layer == 2)
            v.push_back({"layer" + std::to_string(layer) + "_" + rates[version][rate] + "_" + modes[mode], layer,
                         version, rate, mode});
  return v;
}

class MpaAccuracy : public testing::TestWithParam<Source> {
 public:
  static void TearDownTestSuite() { mparef::print_table(); }
};

TEST_P(MpaAccuracy, MatchesTheReferenceToRounding) {
  const Source &s = GetParam();
  if (s.layer == 0) {
    const std::string path = fixtures::media(s.name);
    ASSERT_FALSE(path.empty());
    return mparef::check_against_reference(s.name, mparef::read_file(path));
  }
  // Built frames start both decoders alike (no shift), and each must decode.
  const int frames = s.layer == 2 ? 32 : s.version == 0 ? 40 : 64;
  const int per_frame = s.layer == 1 ? 384 : s.layer == 3 && s.version != 0 ? 576 : 1152;
  const u32 seed = u32(1000 * s.layer + 10 * (3 * s.version + s.rate_index) + s.mode + 1);
  mparef::check_against_reference(s.name, random_stream(s.layer, s.version, s.rate_index, s.mode, frames, seed),
                                  size_t(frames * per_frame), 0);
}

INSTANTIATE_TEST_SUITE_P(Sources, MpaAccuracy, testing::ValuesIn(sources()),
                         [](const testing::TestParamInfo<Source> &p) {
                           std::string s = p.param.name;
                           std::replace_if(s.begin(), s.end(), [](char c) { return !std::isalnum(u8(c)); }, '_');
                           return s;
                         });

}  // namespace
