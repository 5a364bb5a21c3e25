// The prescan driver's choices with scripted container scanners.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>
#include <vector>

#include "info/byte_order.h"
#include "info/prescan.h"
#include "tests/doubles/scanner_doubles.h"

namespace {

// A scanner that recognises the file and describes one audio track.
doubles::Scanner found(u32 play_time, u32 video, u32 audio) {
  return {1, [=](MediaInfo *r) {
            r->play_time = play_time;
            r->video_codec = video;
            r->audio[0].audio_codec = audio;
            r->audio_count = 1;
          }};
}
const doubles::Scanner xvid_mp3 = found(1000, fourcc("XVID"), WAVE_FORMAT_MPEGLAYER3);
const doubles::Scanner wmv2 = found(1000, fourcc("WMV2"), WAVE_FORMAT_WMA2);
// 1000000 bytes of data: at 128 kbit/s 62 s and 8000 bytes over the bit rate.
doubles::Scanner searched(u32 bitrate) {
  return {1, [bitrate](MediaInfo *r) {
            r->audio[0].audio_codec = WAVE_FORMAT_MPEGLAYER3;
            r->audio[0].audio_bitrate = bitrate;
            r->bits_per_sample = 1000000;
          }};
}

// AVI names try RIFF then ASF, ASF names the reverse, until one recognises
// the file; an .mp3 head without MPEG audio is searched through; tags read.
TEST(PrescanDriver, ScannersByExtension) {
  struct Case {
    const char *file;
    doubles::Scanner riff, asf, mpa, search;
    const char *solution;
    std::vector<std::string> calls;
    const char *printed;
    u32 play_time, audio_count;
  } const cases[] = {
      {"clip.AVI", {}, wmv2, {}, {}, "wmt8", {"riff", "asf"}, "Solution type=3\n", 1000, 1},
      {"clip.wmv", xvid_mp3, {}, {}, {}, "avimpv4_mp3", {"asf", "riff"}, "Solution type=1\n", 1000, 1},
      {"clip.divx", xvid_mp3, wmv2, {}, {}, "avimpv4_mp3", {"riff"}, "Solution type=1\n", 1000, 1},
      {"clip.Avi.mp3", xvid_mp3, {}, {}, {}, "unknown", {"mpa", "header_position"},
       "Mpa_prescan2 trying ... PMX_Prescan failed Solution type=0\n", 0, 0},
      {"layer2.mp3", {}, {}, found(3000, 0, WAVE_FORMAT_MPEG_L2), {}, "mpa", {"mpa", "id3"},
       "ID3 Tag found ...Solution type=4\n", 3000, 1},
      {"song.mp3", {}, {}, {}, searched(128000), "mp3", {"mpa", "header_position", "id3"},
       "Mpa_prescan2 trying ... ID3 Tag found ...Solution type=4\n", 62062, 1},
      {"tiny.mp3", {}, {}, {}, searched(7), "unknown", {"mpa", "header_position", "id3"},
       "Mpa_prescan2 trying ... ID3 Tag found ...Solution type=4\n", 0, 1},
  };
  for (const Case &c : cases) {
    doubles::reset();
    doubles::riff = c.riff;
    doubles::asf = c.asf;
    doubles::mpa = c.mpa;
    doubles::header_position = c.search;
    const std::string path = testing::TempDir() + c.file;
    std::ofstream(path, std::ios::binary) << std::string(4096, '\x11');
    std::array<char, 16> solution{};
    testing::internal::CaptureStdout();
    EXPECT_EQ(PMX_Prescan(path.c_str(), solution.data()), 0u) << c.file;
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_STREQ(solution.data(), c.solution) << c.file;
    EXPECT_EQ(doubles::calls, c.calls) << c.file;
    EXPECT_EQ(out.rfind(c.printed, 0), 0u) << c.file << ": " << out;
    EXPECT_EQ(pmx_info_get_totaltime(), c.play_time) << c.file;
    u32 multi = 9, count = 9;
    pmx_info_get_2audioinfo(&multi, &count);
    EXPECT_EQ(count, c.audio_count) << c.file;
  }
}

}  // namespace
