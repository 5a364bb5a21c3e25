// MPEG program stream scan over hand-built streams (pack and system
// headers, PES packets with a PTS, sequence, GOP and audio frame headers).
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "info/mpeg_ps_scan.h"
#include "tests/support/fixtures.h"

namespace {

using Bytes = std::vector<u8>;
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) b.insert(b.end(), p.begin(), p.end());
  return b;
}
Bytes zeros(size_t n) { return Bytes(n, 0); }
u8 b8(u32 v) { return static_cast<u8>(v); }

// Pack header; byte 4 is 0x44 (MPEG-2) or 0x21 (MPEG-1) for a small clock.
Bytes pack(u8 byte4) { return {0, 0, 1, 0xBA, byte4, 0, 4, 0, 4, 1, 1, 0x89, 0xC3, 0xF8}; }
const Bytes system_header{0, 0, 1, 0xBB, 0, 6, 0x80, 0, 1, 4, 0xE1, 0xFF};
// A PES packet with a PTS; the length field counts the real payload.
Bytes pes(u8 id, const Bytes &payload, bool mpeg2 = true, u8 flags = 0x81) {
  const Bytes pes_header = mpeg2 ? Bytes{flags, 0x80, 5} : Bytes{};
  const size_t n = pes_header.size() + 5 + payload.size();
  return cat({{0, 0, 1, id, b8(n >> 8), b8(n)}, pes_header, {0x21, 0, 1, 0, 1}, payload});
}
Bytes seq(u32 w, u32 h, u32 aspect, u32 rate, u32 bits) {
  return {0,         0,         1,           0xB3, b8(w >> 4), b8(w << 4 | h >> 8), b8(h), b8(aspect << 4 | rate),
          b8(bits >> 10), b8(bits >> 2), b8((bits & 3) << 6 | 0x30), 0};
}
Bytes gop(u32 h, u32 m, u32 s) { return {0, 0, 1, 0xB8, b8(h << 2 | m >> 4), b8(m << 4 | 8 | s >> 3), b8(s << 5), 0x40}; }
Bytes mpa(u32 version, u32 layer, u32 rate, u32 sample, u32 mode) {
  return {0xFF, b8(0xE1 | version << 3 | layer << 1), b8(rate << 4 | sample << 2), b8(mode << 6)};
}
Bytes dts(u32 amode, u32 sfreq, u32 rate) {
  return {0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x1F, b8(0xF0 | amode >> 2), b8(amode << 6 | sfreq << 2 | rate >> 3),
          b8(rate << 5)};
}
Bytes video(u32 w, u32 h) { return cat({seq(w, h, 3, 3, 15000), zeros(20)}); }
Bytes audio(const Bytes &header) { return cat({header, zeros(40)}); }
Bytes sub_stream(u8 id, const Bytes &data) { return cat({{id, 1, 0, 1}, data, zeros(32)}); }
Bytes stream(std::initializer_list<Bytes> packets, u8 byte4 = 0x44) {
  Bytes b = cat({pack(byte4), system_header});
  for (const Bytes &p : packets) b.insert(b.end(), p.begin(), p.end());
  return cat({b, zeros(256)});
}

struct Scan {
  u32 found = 0;
  MediaInfo record{};
  std::string out;
};
// The head buffer is exactly the image, so a read past it is caught under
// the address sanitizer; the handle reads the same bytes from a file.
Scan scan(const Bytes &image) {
  const std::string path = fixtures::temp_file("scan.mpg", image);
  MAIOSFile *file = MAIOSFileOpenForRead(path.c_str());
  Bytes head = image;
  Scan s;
  s.record.file_size = static_cast<u32>(image.size());
  testing::internal::CaptureStdout();
  s.found = Mpeg_prescan(file, head.data(), static_cast<u32>(head.size()), &s.record);
  s.out = testing::internal::GetCapturedStdout();
  MAIOSFileClose(file);
  return s;
}

TEST(MpegPsScan, SequenceHeader) {
  struct Case {
    u32 w, h, aspect, rate, bits, codec;
    float aspect_ratio, frame_rate;
    u32 bitrate, vbr;
  };
  const Case cases[] = {
      // Up to 400 pixels wide: MPEG-1, whose pel ratio multiplies.
      {352, 288, 8, 3, 2875, VIDEO_CODEC_MPEG1, float(352 * 0.9157 / 288), 25.0f, 1150000, 0},
      {352, 240, 15, 0, 1, VIDEO_CODEC_MPEG1, 22.0f, 0.0f, 400, 0},  // codes 15 and 0 stand for themselves
      {352, 0, 1, 2, 1, VIDEO_CODEC_MPEG1, 0.5f, 24.0f, 400, 0},     // no height: aspect kept
      {400, 300, 1, 1, 1, VIDEO_CODEC_MPEG1, 400.0f / 300.0f, 23.976f, 400, 0},
      {401, 300, 1, 6, 1, VIDEO_CODEC_MPEG2, 1.0f, 50.0f, 400, 0},
      {720, 480, 2, 7, 1, VIDEO_CODEC_MPEG2, 4.0f / 3.0f, 59.94f, 400, 0},
      {720, 576, 3, 8, 0x3FFFF, VIDEO_CODEC_MPEG2, 16.0f / 9.0f, 60.0f, 77, 1},  // variable: rate kept
      {1920, 1080, 4, 4, 0x3FFFE, VIDEO_CODEC_MPEG2, 2.2f, 29.97f, 0x3FFFE * 400, 0},
      {720, 576, 7, 9, 1, VIDEO_CODEC_MPEG2, 7.0f, 9.0f, 400, 0},
  };
  for (const Case &c : cases) {
    const Bytes data = cat({zeros(5), seq(c.w, c.h, c.aspect, c.rate, c.bits)});
    MediaInfo r{};
    r.video_bitrate = 77;
    r.aspect_ratio = 0.5f;
    EXPECT_EQ(Mpegv_prescan(nullptr, data.data(), u32(data.size()), &r), 1u);
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
    EXPECT_EQ(r.video_width * 10000 + r.video_height, c.w * 10000 + c.h);
    EXPECT_EQ(r.video_codec, c.codec);
    EXPECT_FLOAT_EQ(r.aspect_ratio, c.aspect_ratio);
    EXPECT_FLOAT_EQ(r.frame_rate, c.frame_rate);
    EXPECT_EQ(r.video_bitrate, c.bitrate);
    EXPECT_EQ(r.video_vbr, c.vbr);
  }
  // Every field must lie inside the data: 11 bytes of header at least.
  MediaInfo r{};
  const Bytes header = seq(720, 576, 3, 3, 1);
  EXPECT_EQ(Mpegv_prescan(nullptr, header.data(), 10, &r), 0u);
  EXPECT_EQ(Mpegv_prescan(nullptr, header.data(), 11, &r), 1u);
}

TEST(MpegPsScan, AudioFrameHeader) {
  struct Case {
    u32 version, layer, rate, sample, mode, codec, bitrate, sample_rate, channels;
  };
  constexpr u32 K = 7;  // what the record held before
  const Case cases[] = {
      {3, 1, 9, 0, 1, WAVE_FORMAT_MPEGLAYER3, 128000, 44100, 2},  // the layer field counts down
      {3, 3, 14, 2, 3, WAVE_FORMAT_MPEG, 448000, 32000, 1},
      {0, 2, 4, 2, 0, WAVE_FORMAT_MPEG_L2, 32000, 8000, 2},
      {3, 2, 15, 3, 0, WAVE_FORMAT_MPEG_L2, 0, 0, 2},
      {1, 2, 4, 0, 0, WAVE_FORMAT_MPEG_L2, K, K, 2},  // reserved version: no rates
      {3, 0, 4, 0, 3, K, K, 44100, 1},                // reserved layer: no codec, no bit rate
  };
  for (const Case &c : cases) {
    const Bytes data = cat({{0xFF, 0x1F, 0}, mpa(c.version, c.layer, c.rate, c.sample, c.mode)});
    MediaInfo r{};
    r.audio[0] = AudioStreamInfo{K, {}, K, K, K};
    EXPECT_EQ(Mpega_prescan(nullptr, data.data(), u32(data.size()), &r), 1u);
    const AudioStreamInfo &a = r.audio[0];
    EXPECT_EQ(std::vector<u32>({a.audio_codec, a.audio_bitrate, a.audio_sample_rate, a.audio_channels, r.audio_count}),
              std::vector<u32>({c.codec, c.bitrate, c.sample_rate, c.channels, 1}))
        << c.version << " " << c.layer;
  }
}

TEST(MpegPsScan, Recognition) {
  struct Case {
    Bytes image;
    u32 found;
    const char *printed;
  };
  const Case cases[] = {
      {cat({zeros(3), pack(0x21), zeros(200)}), 1, "MPEG1 "},
      {cat({zeros(3), pack(0x44), zeros(200)}), 1, "MPEG2 "},
      // Byte 4 is compared whole: a clock with high bits set is not taken.
      {cat({pack(0x24), zeros(200)}), 0, "UNKNOWN MPEG "},
      {cat({pack(0x23), zeros(200)}), 0, "UNKNOWN MPEG "},
      // The pack must start 128 bytes before the end or earlier.
      {cat({zeros(300), pack(0x44), zeros(114)}), 1, "MPEG2 "},
      {cat({zeros(300), pack(0x44), zeros(113)}), 0, ""},
      {pack(0x44), 0, ""},
  };
  for (const Case &c : cases) {
    const Scan s = scan(c.image);
    EXPECT_EQ(s.found, c.found) << c.printed;
    EXPECT_EQ(s.out, c.printed);
  }
}

TEST(MpegPsScan, PacketWalk) {
  Bytes long_packet = pes(0xE0, video(720, 576));
  long_packet[4] = long_packet[5] = 0xFF;  // runs past the buffer: cut to it
  // MPEG-1 packets count as 1000 bytes from the length field: the layer III
  // packet right behind the video packet is stepped over.
  Bytes mpeg1 = cat({pack(0x21), system_header, pes(0xE0, video(352, 240), false),
                     pes(0xC0, audio(mpa(3, 1, 9, 0, 0)), false)});
  mpeg1.resize(pack(0x21).size() + system_header.size() + 4 + 1000, 0);
  mpeg1 = cat({mpeg1, pes(0xC0, audio(mpa(3, 2, 10, 1, 0)), false), zeros(256)});
  struct Case {
    const char *what;
    Bytes image;
    u32 width, codec, sample_rate, channels, bitrate, count;
  };
  const Case cases[] = {
      {"video and layer II", stream({pes(0xE0, video(720, 576)), pes(0xC0, audio(mpa(3, 2, 10, 1, 0)))}), 720,
       WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1},
      {"first streams win",
       stream({pes(0xE1, video(352, 288)), pes(0xE0, video(720, 576)), pes(0xC1, audio(mpa(3, 1, 9, 0, 3))),
               pes(0xC0, audio(mpa(3, 2, 10, 1, 0)))}),
       352, WAVE_FORMAT_MPEGLAYER3, 44100, 1, 128000, 1},
      {"no PES header bits", stream({pes(0xE0, video(352, 288), true, 0x0F), pes(0xC0, audio(mpa(3, 1, 9, 0, 3)), true, 0x0F),
                                     pes(0xE0, video(720, 480)), pes(0xC0, audio(mpa(3, 2, 10, 1, 0)))}),
       720, WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1},
      {"audio without sync", stream({pes(0xC0, zeros(64)), pes(0xC0, audio(mpa(3, 3, 2, 2, 0)))}), 0,
       WAVE_FORMAT_MPEG, 32000, 2, 64000, 1},
      {"MPEG-1", mpeg1, 352, WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1},
      {"DTS 0x89", stream({pes(0xBD, sub_stream(0x89, dts(9, 13, 24)))}), 0, WAVE_FORMAT_DTS, 48000, 5, 1536000, 1},
      {"DTS 0x88", stream({pes(0xBD, sub_stream(0x88, dts(2, 8, 22)))}), 0, WAVE_FORMAT_DTS, 44100, 2, 1411200, 1},
      // LPCM byte 5: sample rate code (bits 5-4: 48 or 96 kHz), channels - 1.
      {"LPCM 96 kHz", stream({pes(0xBD, {0xA8, 1, 0, 4, 0x80, 0x15, 0x80, 0, 0})}), 0, WAVE_FORMAT_PCM, 96000, 6, 0, 1},
      {"LPCM code 2", stream({pes(0xBD, {0xA0, 1, 0, 4, 0x80, 0x20, 0x80, 0, 0})}), 0, WAVE_FORMAT_PCM, 0, 1, 0, 1},
      // Any private stream 1 packet ends the audio search, a subpicture too.
      {"subpicture first", stream({pes(0xBD, sub_stream(0x20, {})), pes(0xC0, audio(mpa(3, 2, 10, 1, 0))),
                                   pes(0xBD, sub_stream(0x89, dts(9, 13, 24)))}),
       0, 0, 0, 0, 0, 0},
      {"length past the buffer", stream({long_packet}), 720, 0, 0, 0, 0, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(c.image);
    const AudioStreamInfo &a = s.record.audio[0];
    EXPECT_EQ(s.found, 1u) << c.what;
    EXPECT_EQ(std::vector<u32>({s.record.video_width, a.audio_codec, a.audio_sample_rate, a.audio_channels,
                                a.audio_bitrate, s.record.audio_count}),
              std::vector<u32>({c.width, c.codec, c.sample_rate, c.channels, c.bitrate, c.count}))
        << c.what;
    EXPECT_EQ(s.out.find("FOUND AIDIO !!!") != std::string::npos, c.codec == WAVE_FORMAT_PCM) << c.what;
  }
}

TEST(MpegPsScan, Ac3SubStreamGoesToTheAc3Scan) {
  // 48 kHz, frmsizecod 20, 2/0; the payload reaches the AC-3 scan less its
  // last two bytes.
  const Bytes payload = sub_stream(0x80, {0x0B, 0x77, 0x12, 0x34, 0x14, 0x40, 0x40});
  MediaInfo expected{};
  ASSERT_EQ(Ac3_prescan(nullptr, payload.data(), u32(payload.size() - 2), &expected), 1u);
  const Scan s = scan(stream({pes(0xBD, payload)}));
  EXPECT_EQ(s.record.audio[0].audio_codec, WAVE_FORMAT_AC3);
  EXPECT_EQ(s.record.audio[0].audio_bitrate, expected.audio[0].audio_bitrate);
  EXPECT_EQ(s.record.audio[0].audio_channels, expected.audio[0].audio_channels);
  EXPECT_EQ(s.record.audio_count, 1u);
}

// A file of `size` bytes with a sequence header of bit-rate value `bits`
// at the front and GOP headers {offset, h, m, s}.
Bytes timed(size_t size, std::initializer_list<std::array<u32, 4>> codes, u32 bits = 2500) {
  Bytes b = cat({pack(0x44), pes(0xE0, seq(720, 576, 2, 3, bits))});
  b.resize(size, 0);
  for (const auto &c : codes) {
    const Bytes g = gop(c[1], c[2], c[3]);
    std::copy(g.begin(), g.end(), b.begin() + c[0]);
  }
  return b;
}

TEST(MpegPsScan, PlayTime) {
  struct Case {
    const char *what;
    Bytes image;
    u32 play_time;
  };
  const Case cases[] = {
      {"00:00:00 to 01:30:00", timed(200000, {{100, 0, 0, 0}, {150000, 1, 30, 0}}), 5400000},
      {"last before first", timed(200000, {{100, 1, 30, 0}, {150000, 0, 10, 0}}), 4800000},
      {"seconds", timed(200000, {{100, 0, 0, 7}, {190000, 0, 1, 59}}), 112000},
      // Nothing in the last 64 KiB: the block before counts, with its first code.
      {"block before last", timed(300000, {{100, 0, 0, 0}, {170000, 0, 20, 0}, {200000, 0, 30, 0}}), 1200000},
      // Equal codes: bytes from the first code's block on (not from the code)
      // at 125000 bytes/s: 376000 bytes, 3 s.
      {"equal codes", timed(441536, {{70000, 0, 0, 9}, {440000, 0, 0, 9}}), 3000},
      {"no codes", timed(441536, {}), 0},
      // More seconds than bytes: 90000 bytes at 50 bytes/s.
      {"span beyond size", timed(90000, {{100, 0, 0, 0}, {89000, 27, 46, 40}}, 1), 1800000},
      // Under 64 KiB the backward read starts at 0 and meets the first code.
      {"short file", timed(20000, {{100, 0, 0, 0}, {10000, 0, 0, 10}}, 10), 40000},
      // Variable bit rate: 625000 bytes/s.
      {"variable rate", timed(1400000, {{100, 0, 0, 0}, {1399000, 0, 0, 0}}, 0x3FFFF), 2000},
  };
  for (const Case &c : cases) EXPECT_EQ(scan(c.image).record.play_time, c.play_time) << c.what;
}

}  // namespace
