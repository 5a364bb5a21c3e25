// Program stream, AC-3 and DTS scans over hand-built packets and headers.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "info/ac3_scan.h"
#include "info/mpeg_ps_scan.h"
#include "tests/info/image.h"

namespace {

// Pack header; byte 4 is 0x44 (MPEG-2) or 0x21 (MPEG-1).
Bytes pack(u8 byte4) { return {0, 0, 1, 0xBA, byte4, 0, 4, 0, 4, 1, 1, 0x89, 0xC3, 0xF8}; }
const Bytes system_header{0, 0, 1, 0xBB, 0, 6, 0x80, 0, 1, 4, 0xE1, 0xFF};
// A PES packet with a PTS.
Bytes pes(u8 id, const Bytes &payload, bool mpeg2 = true, u8 flags = 0x81) {
  const Bytes header = (mpeg2 ? Bytes{flags, 0x80, 5} : Bytes{}) + Bytes{0x21, 0, 1, 0, 1};
  return Bytes{0, 0, 1, id} + be(header.size() + payload.size(), 2) + header + payload;
}
Bytes seq(u32 w, u32 h, u32 aspect, u32 rate, u32 bits) {
  return {0, 0, 1, 0xB3, u8(w >> 4), u8(w << 4 | h >> 8), u8(h), u8(aspect << 4 | rate), u8(bits >> 10), u8(bits >> 2),
          u8((bits & 3) << 6 | 0x30), 0};
}
Bytes gop(u32 h, u32 m, u32 s) {
  return {0, 0, 1, 0xB8, u8(h << 2 | m >> 4), u8(m << 4 | 8 | s >> 3), u8(s << 5), 0x40};
}
Bytes mpa(u32 version, u32 layer, u32 rate, u32 sample, u32 mode) {
  return {0xFF, u8(0xE1 | version << 3 | layer << 1), u8(rate << 4 | sample << 2), u8(mode << 6)};
}
// AC-3 frame start: sync, crc1, fscod|frmsizecod, bsid|bsmod, acmod...lfeon.
Bytes ac3(u8 rate_byte, u8 bsi) { return {0x0B, 0x77, 0x12, 0x34, rate_byte, 0x40, bsi}; }
// DTS core header: AMODE (6 bits), SFREQ (4) and RATE (5) from bit 4 of byte 7.
Bytes dts(u32 amode, u32 sfreq, u32 rate) {
  return {0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x1F, u8(0xF0 | amode >> 2), u8(amode << 6 | sfreq << 2 | rate >> 3),
          u8(rate << 5)};
}
Bytes video(u32 w, u32 h) { return seq(w, h, 3, 3, 15000) + Bytes(20); }
Bytes audio(const Bytes &header) { return header + Bytes(40); }
Bytes sub_stream(u8 id, const Bytes &data) { return Bytes{id, 1, 0, 1} + data + Bytes(32); }
Bytes stream(std::initializer_list<Bytes> packets) { return pack(0x44) + system_header + join(packets) + Bytes(256); }
std::vector<u32> audio_fields(const MediaInfo &r) {
  const AudioStreamInfo &a = r.audio[0];
  return {a.audio_codec, a.audio_sample_rate, a.audio_channels, a.audio_bitrate, r.audio_count};
}

// The codec by the width, MPEG-1's pel aspect ratio multiplied in, codes
// outside the tables as they are, a variable bit rate keeping the one before.
TEST(MpegPsScan, SequenceHeader) {
  MediaInfo start{};
  start.video_bitrate = 77;
  const Case cases[] = {  // width, height, codec, bit rate, variable, aspect ratio and frame rate x 1000
      {"MPEG-1 pel aspect", seq(352, 288, 8, 3, 2875), {352, 288, VIDEO_CODEC_MPEG1, 1150000, 0, 1119, 25000}},
      {"codes outside the tables", seq(352, 240, 15, 0, 1), {352, 240, VIDEO_CODEC_MPEG1, 400, 0, 22000, 0}},
      {"401 pixels: MPEG-2", seq(401, 300, 1, 6, 1), {401, 300, VIDEO_CODEC_MPEG2, 400, 0, 1000, 50000}},
      {"variable rate", seq(720, 576, 3, 8, 0x3FFFF), {720, 576, VIDEO_CODEC_MPEG2, 77, 1, 1777, 60000}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Mpegv_prescan, Bytes(5) + c.image, start);
    const MediaInfo &r = s.record;
    EXPECT_EQ((std::vector<u32>{r.video_width, r.video_height, r.video_codec, r.video_bitrate, r.video_vbr,
                                u32(r.aspect_ratio * 1000), u32(r.frame_rate * 1000)}),
              c.want)
        << c.what;
  }
  expect_cuts(Mpegv_prescan, seq(720, 576, 3, 3, 1), 11);
}

// A pack up to 128 bytes before the end, byte 4 exactly 0x21 or 0x44; the
// packet walk's quirks, row by row.
TEST(MpegPsScan, RecognitionAndPacketWalk) {
  Scan s = scan_file(Mpeg_prescan, pack(0x24) + Bytes(200));
  EXPECT_EQ(std::make_pair(s.result, s.out), std::make_pair(0u, std::string("UNKNOWN MPEG ")));
  s = scan_file(Mpeg_prescan, Bytes(300) + pack(0x44) + Bytes(113));
  EXPECT_EQ(std::make_pair(s.result, s.out), std::make_pair(0u, std::string()));
  expect_cuts(Mpeg_prescan,
              stream({pes(0xE0, video(720, 576) + gop(0, 0, 1)), pes(0xC0, audio(mpa(3, 2, 10, 1, 0))),
                      pes(0xBD, sub_stream(0xA0, {})), pes(0xBD, sub_stream(0x80, ac3(0x14, 0x40)))}),
              128, true);
  const Bytes layer2 = audio(mpa(3, 2, 10, 1, 0));
  const Bytes mpeg1 = sized(pack(0x21) + system_header + pes(0xE0, video(352, 240), false) +
                                pes(0xC0, audio(mpa(3, 1, 9, 0, 0)), false),
                            26 + 4 + 1000) +
                      pes(0xC0, layer2, false) + Bytes(256);
  const Case cases[] = {  // width, codec, sample rate, channels, bit rate, audio count
      {"no PES header bits",
       stream({pes(0xE0, video(352, 288), true, 0x0F), pes(0xC0, audio(mpa(3, 1, 9, 0, 3)), true, 0x0F),
               pes(0xE0, video(720, 480)), pes(0xC0, layer2)}),
       {720, 0x51, 48000, 2, 192000, 1}},
      {"reserved version", stream({pes(0xC0, audio(mpa(1, 2, 4, 0, 0)))}), {0, 0x51, 0, 2, 0, 1}},
      {"MPEG-1", mpeg1, {352, 0x51, 48000, 2, 192000, 1}},
      {"AC-3 needing its last two bytes",
       stream({pes(0xBD, Bytes{0x80, 1, 0, 1} + Bytes(24) + ac3(0x14, 0x40) + Bytes(1))}), {0, 0, 0, 0, 0, 0}},
      {"DTS 0x88", stream({pes(0xBD, sub_stream(0x88, dts(2, 8, 22)))}), {0, 0x2001, 44100, 2, 1411200, 1}},
      {"LPCM 96 kHz", stream({pes(0xBD, {0xA8, 1, 0, 4, 0x80, 0x15, 0x80, 0, 0})}), {0, 1, 96000, 6, 0, 1}},
      {"subpicture first",
       stream({pes(0xBD, sub_stream(0x20, {})), pes(0xC0, layer2), pes(0xBD, sub_stream(0x89, dts(9, 13, 24)))}),
       {0, 0, 0, 0, 0, 0}},
  };
  for (const Case &c : cases) {
    s = scan_file(Mpeg_prescan, c.image);
    std::vector<u32> got = audio_fields(s.record);
    got.insert(got.begin(), s.record.video_width);
    EXPECT_EQ(got, c.want) << c.what;
    EXPECT_EQ(s.out.find("FOUND AIDIO !!!") != std::string::npos, c.want[1] == WAVE_FORMAT_PCM) << c.what;
  }
}

// A sequence header (bit-rate value `bits`) and time codes {offset, h, m, s}.
Bytes timed(size_t size, std::initializer_list<std::array<u32, 4>> codes, u32 bits = 2500) {
  Bytes b = sized(pack(0x44) + pes(0xE0, seq(720, 576, 2, 3, bits)), size);
  for (const auto &c : codes) b = patch(b, c[0], gop(c[1], c[2], c[3]));
  return b;
}

// Whole seconds between the first and last time codes (a 64 KiB block at a
// time from the end); else the size from the first code's block at the rate.
TEST(MpegPsScan, PlayTimeFromTimeCodes) {
  const Case cases[] = {  // play time
      {"last before first", timed(200000, {{100, 1, 30, 0}, {150000, 0, 10, 0}}), {4800000}},
      {"block before last", timed(300000, {{100, 0, 0, 0}, {170000, 0, 20, 0}, {200000, 0, 30, 0}}), {1200000}},
      {"equal codes: 134464 bytes at 4000 bytes/s", timed(200000, {{70000, 0, 0, 9}, {198000, 0, 0, 9}}, 80), {33000}},
      {"span beyond size: 90000 bytes at 50 bytes/s", timed(90000, {{100, 0, 0, 0}, {89000, 27, 46, 40}}, 1),
       {1800000}},
      {"variable rate: 625000 bytes/s", timed(1400000, {{100, 0, 0, 0}, {1399000, 0, 0, 0}}, 0x3FFFF), {2000}},
  };
  for (const Case &c : cases) EXPECT_EQ(scan_file(Mpeg_prescan, c.image).record.play_time, c.want[0]) << c.what;
}

// Any lfeon gives six channels, dsurmod 2 prints "Dolby Digital", no play
// time; one more sync word per 10000 bytes, all within 16 KiB.
TEST(Ac3Scan, FirstFrameHeaderAndFurtherSyncWords) {
  const Case cases[] = {  // codec, sample rate, channels, bit rate, count
      {"1+1 with lfeon", ac3(0x0A, 0x10), {0x2000, 48000, 6, 80000, 1}},
      {"2/0 Dolby Surround", ac3(0x0A, 0x50), {0x2000, 48000, 2, 80000, 1}},
      {"3/1 with lfeon", ac3(0x0A, 0xA1), {0x2000, 48000, 6, 80000, 1}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Ac3_prescan, c.image);
    EXPECT_EQ(audio_fields(s.record), c.want) << c.what;
    EXPECT_EQ(s.out, c.image[6] == 0x50 ? "Dolby Digital" : "") << c.what;
    EXPECT_EQ(s.record.play_time, 0u);
  }
  expect_cuts(Ac3_prescan, ac3(0x1C, 0x40), 7);
  auto synced = [](u32 length, std::vector<u32> syncs) {
    Bytes data(length);
    for (u32 p : syncs) data = patch(data, p, ac3(0x1C, 0x40));
    return data;
  };
  for (const Bytes &no : {synced(1048576, {100, 4000, 8000, 12000, 16484}), synced(30000, {100, 200, 300})}) {
    const Scan s = scan(Ac3_prescan, no);
    EXPECT_TRUE(s.result == 0 && s.record.audio[0].audio_codec == 0) << no.size();
  }
}

// User-defined channel modes and open bit rates read 0.
TEST(DtsScan, CoreHeaderFields) {
  const Case cases[] = {  // codec, sample rate, channels, bit rate, count
      {"5 channels", Bytes(5, 0x11) + dts(9, 13, 24) + Bytes(5, 0x11), {0x2001, 48000, 5, 1536000, 1}},
      {"user-defined, open", dts(16, 0, 29), {0x2001, 0, 0, 0, 1}},
  };
  for (const Case &c : cases) EXPECT_EQ(audio_fields(scan(Dts_prescan, c.image).record), c.want) << c.what;
  expect_cuts(Dts_prescan, dts(9, 13, 24), 10);
}

}  // namespace
