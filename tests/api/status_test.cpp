// Status translation, status printing and the media type printers.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "api/pmx_internal.h"
#include "platform/mai_engine.h"

namespace {

std::string printed(const std::function<void()> &f) {
  testing::internal::CaptureStdout();
  f();
  return testing::internal::GetCapturedStdout();
}

TEST(Status, TranslationTable) {
  // pmx_init fills the table before it checks its arguments.
  ASSERT_EQ(pmx_init(nullptr, nullptr), PMX_INVALID_ARG);
  // Engine statuses and their API statuses; everything else is 15.
  const std::map<u32, s32> mapped = {{0, 0},       {1, 15},      {2, 12},      {3, 3},       {7, 6},
                                     {8, 9},       {11, 10},     {18, 13},     {21, 11},     {22, 2},
                                     {25, 8},      {40, 7},      {0x1003, 22}, {0x1001, 23}, {0x1002, 24},
                                     {0x1000, 25}, {0x1005, 20}, {0x1004, 21}, {0x10100000, 18},
                                     {0x10200000, 19}};
  for (u32 s = 0; s < 48; ++s) EXPECT_EQ(pmx_translate(s), mapped.count(s) ? mapped.at(s) : 15) << s;
  for (auto [engine, api] : mapped) EXPECT_EQ(pmx_translate(engine), api) << std::hex << engine;
  for (u32 other : {0x1006u, 0x500006u, 0xFFFFFFFFu}) EXPECT_EQ(pmx_translate(other), 15) << std::hex << other;
}

TEST(Status, PrintError) {
  EXPECT_EQ(printed([] { pmx_print_error("PLAY", 0); }), "command [PLAY] : PMX_OK\n");
  EXPECT_EQ(printed([] { pmx_print_error("OPEN", 17); }), "command [OPEN] : PMX_WMV78_RESOLUTION_WARNNING\n");
  EXPECT_EQ(printed([] { pmx_print_error(nullptr, 22); }), "\n");
  EXPECT_EQ(printed([] { pmx_print_error(nullptr, 6); }), "PMX_FILE_NOT_FOUND\n");
  EXPECT_EQ(printed([] { pmx_print_error("X", 26); }), "command [X] : \n");
}

void put32(std::array<u8, 156> &r, u32 at, u32 v) {
  for (int i = 0; i < 4; ++i) r[at + i] = static_cast<u8>(v >> (8 * i));
}

TEST(Printers, VideoRecord) {
  std::array<u8, 156> r{};
  put32(r, MAI_VMT_MAJOR, 2);
  put32(r, MAI_VMT_SUBTYPE, 0x200000);
  put32(r, MAI_VMT_FRAMERATE, 29970);
  put32(r, MAI_VMT_WIDTH, 320);
  put32(r, MAI_VMT_HEIGHT, 240);
  put32(r, MAI_VMT_FINAL_PAR_H, 4);
  put32(r, MAI_VMT_FINAL_PAR_V, 3);
  put32(r, MAI_VMT_AVG_BITRATE, 800000);
  std::memcpy(&r[MAI_VMT_EXTRA], "xvid", 5);
  const std::string out = printed([&] { media_vedio_info_print(r.data()); });
  EXPECT_EQ(out.find("MediaType          : Video MediaType\nMediaSubType       : XVID \n"
                     "FrameRate          : 29.97\nAverageBitrate     : 800000\nMaxBitrate         : 0\n"),
            0u)
      << out;
  EXPECT_NE(out.find("ImageWidth         : 320\nImageHeight        : 240\n"), std::string::npos);
  EXPECT_NE(out.find("Final FinalPARh    : 4\nFinal FinalPARv    : 3\n"), std::string::npos);
  EXPECT_NE(out.find("ExtraInfo          : xvid\n"), std::string::npos);
}

// Unlisted major types and frame rates print nothing, so the next label
// follows on the same line; an unknown subtype has its own text.
TEST(Printers, UnlistedValuesJoinLines) {
  std::array<u8, 156> r{};
  put32(r, MAI_VMT_MAJOR, 3);
  put32(r, MAI_VMT_SUBTYPE, 99);
  put32(r, MAI_VMT_FRAMERATE, 12500);
  r.back() = 'z';  // extra text without a terminator stays inside the record
  std::memset(&r[MAI_VMT_EXTRA], 'q', 156 - MAI_VMT_EXTRA);
  const std::string out = printed([&] { media_vedio_info_print(r.data()); });
  EXPECT_EQ(out.find("MediaType          : MediaSubType       : Can't find video type\n"), 0u) << out;
  EXPECT_NE(out.find("FrameRate          : AverageBitrate     : 0\n"), std::string::npos);
  EXPECT_NE(out.find("ExtraInfo          : " + std::string(156 - MAI_VMT_EXTRA, 'q') + "\n"), std::string::npos);
}

TEST(Printers, AudioRecord) {
  std::array<u8, 156> r{};
  put32(r, MAI_AMT_MAJOR, 0x10010);
  put32(r, MAI_AMT_SUBTYPE, 0x20000);
  put32(r, MAI_AMT_TYPE_FLAGS, 2);
  put32(r, MAI_AMT_MODE_FLAGS, 2);
  put32(r, MAI_AMT_SAMPLE_RATE, 48000);
  r[MAI_AMT_BITS] = 16;
  r[MAI_AMT_CHANNELS] = 6;
  r[MAI_AMT_CHANNELS + 2] = 0x80;  // first byte of the bit rate, not the channels
  r[MAI_AMT_LAYER] = 3;
  std::memcpy(&r[MAI_AMT_EXTRA], "ac3", 4);
  const std::string out = printed([&] { media_audio_info_print(r.data()); });
  EXPECT_EQ(out.find("MediaType          :  ASF Muxed Stream.\n"
                     "MediaSubType       : JPEG Still Video or Motion JPEG Vide\n"
                     "MediaType flags    : VBR\n"
                     "Audio Mode flag    : MAI_AUDIOMODEFLAG_INTENSITYSTEREO\n"
                     "SamplesPerSec      : 48000\n"
                     "BitsPerSample      : 16\n"
                     "Channels           : 6\n"
                     "Bitrate            : 128\n"),
            0u)
      << out;
  EXPECT_NE(out.find("Layer              : 3\nEmphasis           : 0\n"), std::string::npos);
  EXPECT_NE(out.find("pucExtraInfo       : [ac3]\n"), std::string::npos);
  put32(r, MAI_AMT_TYPE_FLAGS, 3);
  put32(r, MAI_AMT_MODE_FLAGS, 16);
  const std::string other = printed([&] { media_audio_info_print(r.data()); });
  EXPECT_NE(other.find("MediaType flags    : UNKNOWN\nAudio Mode flag    : UNKNOWN\n"), std::string::npos);
}

}  // namespace
