// WAV header scan over hand-built byte images.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "info/media_info.h"

namespace {

void put32(std::vector<u8> &b, size_t at, u32 v) {
  if (b.size() < at + 4) b.resize(at + 4);
  for (int i = 0; i < 4; ++i) b[at + i] = static_cast<u8>(v >> (8 * i));
}
void put16(std::vector<u8> &b, size_t at, u32 v) {
  b[at] = static_cast<u8>(v);
  b[at + 1] = static_cast<u8>(v >> 8);
}
void put_id(std::vector<u8> &b, size_t at, const char *id) {
  if (b.size() < at + 4) b.resize(at + 4);
  std::memcpy(&b[at], id, 4);
}

// A canonical 44-byte header: RIFF size, fmt chunk, data chunk at 36.
std::vector<u8> wav(u32 riff_size, u32 tag, u32 channels, u32 rate, u32 byte_rate, u32 data_size,
                    const char *fmt_id = "fmt ") {
  std::vector<u8> b(44, 0);
  put_id(b, 0, "RIFF");
  put32(b, 4, riff_size);
  put_id(b, 8, "WAVE");
  put_id(b, 12, fmt_id);
  put32(b, 16, 16);
  put16(b, 20, tag);
  put16(b, 22, channels);
  put32(b, 24, rate);
  put32(b, 28, byte_rate);
  put_id(b, 36, "data");
  put32(b, 40, data_size);
  return b;
}

MediaInfo scan(std::vector<u8> b, u32 file_size = 0, u32 *result = nullptr) {
  MediaInfo r{};
  r.file_size = file_size;
  const u32 got = Wav_prescan(nullptr, b.data(), static_cast<u32>(b.size()), &r);
  if (result != nullptr) *result = got;
  return r;
}

TEST(WavScan, CdQualityHeader) {
  u32 ok = 0;
  // 1000000 bytes at 176400 bytes/s: 5 s and 117 ms (integer milliseconds).
  MediaInfo r = scan(wav(1000036, 1, 2, 44100, 176400, 1000000), 0, &ok);
  EXPECT_EQ(ok, 1u);
  EXPECT_EQ(r.audio[0].audio_codec, WAVE_FORMAT_PCM);
  EXPECT_EQ(r.audio[0].audio_channels, 2u);
  EXPECT_EQ(r.audio[0].audio_sample_rate, 44100u);
  EXPECT_EQ(r.audio[0].audio_bitrate, 1411200u);
  EXPECT_EQ(r.audio_count, 1u);
  EXPECT_EQ(r.play_time, 5000u + (1000000u - 5 * 176400u) * 1000u / 176400u);
}

// Whole seconds are taken first so that large sizes do not overflow.
TEST(WavScan, LargeDataDoesNotOverflowTheMilliseconds) {
  MediaInfo r = scan(wav(0xFFFFFFF0u, 1, 2, 48000, 192000, 0xFFFFFF00u));
  EXPECT_EQ(r.play_time, (0xFFFFFF00u / 192000u) * 1000u + ((0xFFFFFF00u % 192000u) * 1000u) / 192000u);
  EXPECT_GT(r.play_time, 22000000u);
}

TEST(WavScan, RiffSizeZeroUsesTheFileSize) {
  // No data chunk either: the size is then the RIFF size (file size) less
  // the format chunk size.
  std::vector<u8> b = wav(0, 1, 1, 8000, 16000, 0);
  put_id(b, 36, "junk");
  MediaInfo r = scan(b, 32016);
  EXPECT_EQ(r.play_time, 2000u);
}

TEST(WavScan, DataSizeZeroFallsBackToRiffSize) {
  MediaInfo r = scan(wav(16036, 1, 1, 8000, 16000, 0));
  EXPECT_EQ(r.play_time, 1002u);
}

TEST(WavScan, DataFoundOnlyWithinTheSearchWindow) {
  // "data" at the last searched position (36 + 1046) is found...
  std::vector<u8> b = wav(100016, 1, 1, 8000, 16000, 0);
  put_id(b, 36, "LIST");
  b.resize(2000, 0);
  put_id(b, 36 + 1046, "data");
  put32(b, 36 + 1050, 8000);
  EXPECT_EQ(scan(b).play_time, 500u);
  // ...one byte further it is not: RIFF size less format chunk size.
  std::vector<u8> c = wav(100016, 1, 1, 8000, 16000, 0);
  put_id(c, 36, "LIST");
  c.resize(2000, 0);
  put_id(c, 36 + 1047, "data");
  put32(c, 36 + 1051, 8000);
  EXPECT_EQ(scan(c).play_time, 6250u);
}

TEST(WavScan, WithoutFormatChunkSearchesFromTwelve) {
  std::vector<u8> b = wav(5000, 1, 2, 44100, 176400, 0);
  put_id(b, 12, "LIST");
  put_id(b, 20, "data");
  put32(b, 24, 4000);
  u32 ok = 0;
  MediaInfo r = scan(b, 0, &ok);
  EXPECT_EQ(ok, 1u);  // still a WAV file
  EXPECT_EQ(r.audio[0].audio_codec, 0u);
  EXPECT_EQ(r.audio[0].audio_sample_rate, 0u);
  EXPECT_EQ(r.play_time, 0u);  // no byte rate: no time, and no trap
}

TEST(WavScan, UnderscoreFormatIdIsAccepted) {
  MediaInfo r = scan(wav(8036, 2, 1, 8000, 4096, 8000, "fmt_"));
  EXPECT_EQ(r.audio[0].audio_codec, WAVE_FORMAT_ADPCM);
  EXPECT_EQ(r.play_time, 1953u);
}

TEST(WavScan, RefusesOtherFormsAndShortBuffers) {
  std::vector<u8> b = wav(100, 1, 1, 8000, 16000, 10);
  put_id(b, 8, "AVI ");
  u32 ok = 9;
  MediaInfo r = scan(b, 0, &ok);
  EXPECT_EQ(ok, 0u);
  EXPECT_EQ(r.audio_count, 0u);
  put_id(b, 0, "RIFX");
  put_id(b, 8, "WAVE");
  scan(b, 0, &ok);
  EXPECT_EQ(ok, 0u);
  // A buffer that ends inside the header is read only as far as it goes.
  std::vector<u8> good = wav(100, 1, 1, 8000, 16000, 10);
  for (size_t n : {0, 4, 11, 12, 20, 35, 36, 40, 43}) {
    std::vector<u8> cut(good.begin(), good.begin() + static_cast<long>(n));
    cut.shrink_to_fit();
    MediaInfo m{};
    const u32 got = Wav_prescan(nullptr, cut.data(), static_cast<u32>(n), &m);
    EXPECT_EQ(got, n >= 12 ? 1u : 0u) << n;
  }
}

}  // namespace
