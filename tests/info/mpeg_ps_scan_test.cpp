// MPEG program stream scan over hand-built streams (packs, PES packets,
// sequence, group-of-pictures and audio frame headers), and the AC-3 and
// DTS scans that read its DVD audio sub-streams and .ac3 files.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "info/ac3_scan.h"
#include "info/mpeg_ps_scan.h"
#include "tests/info/image.h"

namespace {

// Pack header; byte 4 is 0x44 (MPEG-2) or 0x21 (MPEG-1) for a small clock.
Bytes pack(u8 byte4) { return {0, 0, 1, 0xBA, byte4, 0, 4, 0, 4, 1, 1, 0x89, 0xC3, 0xF8}; }
const Bytes system_header{0, 0, 1, 0xBB, 0, 6, 0x80, 0, 1, 4, 0xE1, 0xFF};
// A PES packet with a PTS; the length field counts the real payload.
Bytes pes(u8 id, const Bytes &payload, bool mpeg2 = true, u8 flags = 0x81) {
  const Bytes header = (mpeg2 ? Bytes{flags, 0x80, 5} : Bytes{}) + Bytes{0x21, 0, 1, 0, 1};
  return Bytes{0, 0, 1, id} + be(header.size() + payload.size(), 2) + header + payload;
}
Bytes seq(u32 w, u32 h, u32 aspect, u32 rate, u32 bits) {
  return {0, 0, 1, 0xB3, u8(w >> 4), u8(w << 4 | h >> 8), u8(h), u8(aspect << 4 | rate), u8(bits >> 10), u8(bits >> 2),
          u8((bits & 3) << 6 | 0x30), 0};
}
Bytes gop(u32 h, u32 m, u32 s) { return {0, 0, 1, 0xB8, u8(h << 2 | m >> 4), u8(m << 4 | 8 | s >> 3), u8(s << 5), 0x40}; }
Bytes mpa(u32 version, u32 layer, u32 rate, u32 sample, u32 mode) {
  return {0xFF, u8(0xE1 | version << 3 | layer << 1), u8(rate << 4 | sample << 2), u8(mode << 6)};
}
// AC-3 sync frame start: sync word, crc1, fscod|frmsizecod, bsid|bsmod,
// then acmod and the optional fields up to lfeon in `bsi`.
Bytes ac3(u8 rate_byte, u8 bsi) { return {0x0B, 0x77, 0x12, 0x34, rate_byte, 0x40, bsi}; }
// DTS core header: sync, then AMODE (6 bits), SFREQ (4) and RATE (5) from
// bit 4 of byte 7 on.
Bytes dts(u32 amode, u32 sfreq, u32 rate) {
  return {0x7F, 0xFE, 0x80, 0x01, 0xFC, 0x3C, 0x1F, u8(0xF0 | amode >> 2), u8(amode << 6 | sfreq << 2 | rate >> 3),
          u8(rate << 5)};
}
Bytes video(u32 w, u32 h) { return seq(w, h, 3, 3, 15000) + Bytes(20); }
Bytes audio(const Bytes &header) { return header + Bytes(40); }
Bytes sub_stream(u8 id, const Bytes &data) { return Bytes{id, 1, 0, 1} + data + Bytes(32); }
Bytes stream(std::initializer_list<Bytes> packets, u8 byte4 = 0x44) {
  Bytes b = pack(byte4) + system_header;
  for (const Bytes &p : packets) b = b + p;
  return b + Bytes(256);
}
std::vector<u32> audio_fields(const MediaInfo &r) {
  const AudioStreamInfo &a = r.audio[0];
  return {a.audio_codec, a.audio_sample_rate, a.audio_channels, a.audio_bitrate, r.audio_count};
}

// The sequence header: the codec is named by the width (MPEG-1 up to 400
// pixels), whose pel aspect ratio is multiplied in; MPEG-2 gives display
// ratios; codes outside the tables stand for themselves; a variable bit
// rate keeps the rate before. Its fields must lie inside the data.
TEST(MpegPsScan, SequenceHeader) {
  struct Case {
    u32 w, h, aspect, rate, bits, codec;
    float aspect_ratio, frame_rate;
    u32 bitrate, vbr;
  } const cases[] = {
      {352, 288, 8, 3, 2875, VIDEO_CODEC_MPEG1, float(352 * 0.9157 / 288), 25.0f, 1150000, 0},
      {352, 240, 15, 0, 1, VIDEO_CODEC_MPEG1, 22.0f, 0.0f, 400, 0},
      {352, 0, 1, 2, 1, VIDEO_CODEC_MPEG1, 0.5f, 24.0f, 400, 0},
      {400, 300, 1, 1, 1, VIDEO_CODEC_MPEG1, 400.0f / 300.0f, 23.976f, 400, 0},
      {401, 300, 1, 6, 1, VIDEO_CODEC_MPEG2, 1.0f, 50.0f, 400, 0},
      {720, 576, 3, 8, 0x3FFFF, VIDEO_CODEC_MPEG2, 16.0f / 9.0f, 60.0f, 77, 1},
      {1920, 1080, 4, 4, 0x3FFFE, VIDEO_CODEC_MPEG2, 2.2f, 29.97f, 0x3FFFE * 400, 0},
      {720, 576, 7, 9, 1, VIDEO_CODEC_MPEG2, 7.0f, 9.0f, 400, 0},
  };
  MediaInfo start{};
  start.video_bitrate = 77;
  start.aspect_ratio = 0.5f;
  for (const Case &c : cases) {
    SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
    const Scan s = scan(Mpegv_prescan, Bytes(5) + seq(c.w, c.h, c.aspect, c.rate, c.bits), start);
    const MediaInfo &r = s.record;
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(std::vector<u32>({r.video_width, r.video_height, r.video_codec, r.video_bitrate, r.video_vbr}),
              std::vector<u32>({c.w, c.h, c.codec, c.bitrate, c.vbr}));
    EXPECT_FLOAT_EQ(r.aspect_ratio, c.aspect_ratio);
    EXPECT_FLOAT_EQ(r.frame_rate, c.frame_rate);
  }
  EXPECT_EQ(scan(Mpegv_prescan, sized(seq(720, 576, 3, 3, 1), 10)).result, 0u);
  EXPECT_EQ(scan(Mpegv_prescan, sized(seq(720, 576, 3, 3, 1), 11)).result, 1u);
}

// The audio frame header: a reserved version sets no rates, a reserved
// layer no codec and no bit rate; what the record held stays.
TEST(MpegPsScan, AudioFrameHeader) {
  struct Case {
    u32 version, layer, rate, sample, mode;
    std::vector<u32> fields;  // codec, sample rate, channels, bit rate, count
  } const cases[] = {
      {3, 1, 9, 0, 1, {WAVE_FORMAT_MPEGLAYER3, 44100, 2, 128000, 1}},
      {3, 3, 14, 2, 3, {WAVE_FORMAT_MPEG, 32000, 1, 448000, 1}},
      {0, 2, 4, 2, 0, {WAVE_FORMAT_MPEG_L2, 8000, 2, 32000, 1}},
      {1, 2, 4, 0, 0, {WAVE_FORMAT_MPEG_L2, 7, 2, 7, 1}},
      {3, 0, 4, 0, 3, {7, 44100, 1, 7, 1}},
  };
  for (const Case &c : cases) {
    MediaInfo start{};
    start.audio[0] = AudioStreamInfo{7, {}, 7, 7, 7};
    const Scan s = scan(Mpega_prescan, Bytes{0xFF, 0x1F, 0} + mpa(c.version, c.layer, c.rate, c.sample, c.mode), start);
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(audio_fields(s.record), c.fields) << c.version << " " << c.layer;
  }
}

// A pack start code 128 bytes before the end or earlier, whose byte 4 is
// exactly 0x21 or 0x44, makes a program stream; the systems layer is
// printed.
TEST(MpegPsScan, Recognition) {
  struct Case {
    Bytes image;
    u32 found;
    const char *printed;
  } const cases[] = {
      {Bytes(3) + pack(0x21) + Bytes(200), 1, "MPEG1 "},
      {Bytes(3) + pack(0x44) + Bytes(200), 1, "MPEG2 "},
      {pack(0x24) + Bytes(200), 0, "UNKNOWN MPEG "},
      {Bytes(300) + pack(0x44) + Bytes(114), 1, "MPEG2 "},
      {Bytes(300) + pack(0x44) + Bytes(113), 0, ""},
      {pack(0x44), 0, ""},
  };
  for (const Case &c : cases) {
    const Scan s = scan_file(Mpeg_prescan, c.image);
    EXPECT_EQ(s.result, c.found) << c.printed;
    EXPECT_EQ(s.out, c.printed);
  }
}

// The packet walk: the first video and the first audio stream of the head
// are described, MPEG-2 packets only with PES header bits; an MPEG-1 packet
// counts as 1000 bytes whatever it says; a length past the buffer is cut to
// it. Any private stream 1 packet settles the audio: sub-streams 0x80-0x88
// go to the AC-3 scan, 0x88-0x8F to the DTS scan, 0xA0-0xA8 are LPCM, whose
// byte 5 holds the rate code (48 or 96 kHz) and channels - 1.
TEST(MpegPsScan, PacketWalk) {
  const Bytes layer2 = audio(mpa(3, 2, 10, 1, 0));
  const Bytes mpeg1 = sized(pack(0x21) + system_header + pes(0xE0, video(352, 240), false) +
                                pes(0xC0, audio(mpa(3, 1, 9, 0, 0)), false),
                            26 + 4 + 1000) +
                      pes(0xC0, layer2, false) + Bytes(256);
  struct Case {
    const char *what;
    Bytes image;
    u32 width;
    std::vector<u32> audio;  // codec, sample rate, channels, bit rate, count
  } const cases[] = {
      {"video and layer II", stream({pes(0xE0, video(720, 576)), pes(0xC0, layer2)}), 720,
       {WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1}},
      {"first streams win",
       stream({pes(0xE1, video(352, 288)), pes(0xE0, video(720, 576)), pes(0xC1, audio(mpa(3, 1, 9, 0, 3))),
               pes(0xC0, layer2)}),
       352, {WAVE_FORMAT_MPEGLAYER3, 44100, 1, 128000, 1}},
      {"no PES header bits",
       stream({pes(0xE0, video(352, 288), true, 0x0F), pes(0xC0, audio(mpa(3, 1, 9, 0, 3)), true, 0x0F),
               pes(0xE0, video(720, 480)), pes(0xC0, layer2)}),
       720, {WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1}},
      {"audio without sync", stream({pes(0xC0, Bytes(64)), pes(0xC0, audio(mpa(3, 3, 2, 2, 0)))}), 0,
       {WAVE_FORMAT_MPEG, 32000, 2, 64000, 1}},
      {"MPEG-1", mpeg1, 352, {WAVE_FORMAT_MPEG_L2, 48000, 2, 192000, 1}},
      {"DTS 0x88", stream({pes(0xBD, sub_stream(0x88, dts(2, 8, 22)))}), 0, {WAVE_FORMAT_DTS, 44100, 2, 1411200, 1}},
      {"LPCM 96 kHz", stream({pes(0xBD, {0xA8, 1, 0, 4, 0x80, 0x15, 0x80, 0, 0})}), 0, {WAVE_FORMAT_PCM, 96000, 6, 0, 1}},
      {"LPCM code 2", stream({pes(0xBD, {0xA0, 1, 0, 4, 0x80, 0x20, 0x80, 0, 0})}), 0, {WAVE_FORMAT_PCM, 0, 1, 0, 1}},
      {"subpicture first",
       stream({pes(0xBD, sub_stream(0x20, {})), pes(0xC0, layer2), pes(0xBD, sub_stream(0x89, dts(9, 13, 24)))}), 0,
       {0, 0, 0, 0, 0}},
      {"length past the buffer", stream({patch(pes(0xE0, video(720, 576)), 4, {0xFF, 0xFF})}), 720, {0, 0, 0, 0, 0}},
  };
  for (const Case &c : cases) {
    const Scan s = scan_file(Mpeg_prescan, c.image);
    EXPECT_EQ(s.result, 1u) << c.what;
    EXPECT_EQ(s.record.video_width, c.width) << c.what;
    EXPECT_EQ(audio_fields(s.record), c.audio) << c.what;
    EXPECT_EQ(s.out.find("FOUND AIDIO !!!") != std::string::npos, c.audio[0] == WAVE_FORMAT_PCM) << c.what;
  }
  // An AC-3 sub-stream reaches the AC-3 scan less its payload's last two
  // bytes: a frame that fits only with them is not found.
  const Bytes frame = ac3(0x14, 0x40);  // 48 kHz, 192 kbit/s, 2/0
  EXPECT_EQ(audio_fields(scan_file(Mpeg_prescan, stream({pes(0xBD, sub_stream(0x80, frame))})).record),
            (std::vector<u32>{WAVE_FORMAT_AC3, 48000, 2, 192000, 1}));
  EXPECT_EQ(audio_fields(scan_file(Mpeg_prescan, stream({pes(0xBD, Bytes{0x80, 1, 0, 1} + Bytes(24) + frame + Bytes(1))}))
                             .record),
            (std::vector<u32>{0, 0, 0, 0, 0}));
}

// A file of `size` bytes with a sequence header of bit-rate value `bits`
// at the front and group-of-pictures headers {offset, h, m, s}.
Bytes timed(size_t size, std::initializer_list<std::array<u32, 4>> codes, u32 bits = 2500) {
  Bytes b = sized(pack(0x44) + pes(0xE0, seq(720, 576, 2, 3, bits)), size);
  for (const auto &c : codes) b = patch(b, c[0], gop(c[1], c[2], c[3]));
  return b;
}

// The play time is the whole seconds between the first time code of the
// file and the last one, found a 64 KiB block at a time from the end. When
// they are equal, or span more seconds than bytes remain, the size from the
// first code's block on is timed at the video bit rate (625000 bytes/s
// when variable).
TEST(MpegPsScan, PlayTimeFromTimeCodes) {
  struct Case {
    const char *what;
    Bytes image;
    u32 play_time;
  } const cases[] = {
      {"00:00:00 to 01:30:00", timed(200000, {{100, 0, 0, 0}, {150000, 1, 30, 0}}), 5400000},
      {"last before first", timed(200000, {{100, 1, 30, 0}, {150000, 0, 10, 0}}), 4800000},
      {"seconds", timed(200000, {{100, 0, 0, 7}, {190000, 0, 1, 59}}), 112000},
      {"block before last", timed(300000, {{100, 0, 0, 0}, {170000, 0, 20, 0}, {200000, 0, 30, 0}}), 1200000},
      {"equal codes: 376000 bytes at 125000 bytes/s", timed(441536, {{70000, 0, 0, 9}, {440000, 0, 0, 9}}), 3000},
      {"no codes", timed(441536, {}), 0},
      {"span beyond size: 90000 bytes at 50 bytes/s", timed(90000, {{100, 0, 0, 0}, {89000, 27, 46, 40}}, 1), 1800000},
      {"short file read from 0", timed(20000, {{100, 0, 0, 0}, {10000, 0, 0, 10}}, 10), 40000},
      {"variable rate", timed(1400000, {{100, 0, 0, 0}, {1399000, 0, 0, 0}}, 0x3FFFF), 2000},
  };
  for (const Case &c : cases) EXPECT_EQ(scan_file(Mpeg_prescan, c.image).record.play_time, c.play_time) << c.what;
}

// AC-3 channels by acmod, each optional field before lfeon taking its two
// bits (cmixlev for three front channels, surmixlev for a surround one,
// dsurmod for 2/0, whose value 2 prints "Dolby Digital"); any stream with
// lfeon reports six channels. No play time is read.
TEST(Ac3Scan, ChannelsFromAcmodAndLfe) {
  struct Case {
    u8 bsi;
    u32 channels;
    bool dolby;
  } const cases[] = {
      {0x00, 2, false}, {0x10, 6, false}, {0x20, 1, false}, {0x44, 6, false}, {0x50, 2, true},
      {0x48, 2, false}, {0x64, 6, false}, {0x78, 3, false}, {0x84, 6, false}, {0x98, 3, false},
      {0xA1, 6, false}, {0xBE, 4, false}, {0xC4, 6, false}, {0xE1, 6, false}, {0xFE, 5, false},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Ac3_prescan, ac3(0x0A, c.bsi));
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(s.record.audio[0].audio_channels, c.channels) << std::hex << int(c.bsi);
    EXPECT_EQ(s.out, c.dolby ? "Dolby Digital" : "") << std::hex << int(c.bsi);
    EXPECT_EQ(s.record.play_time, 0u);
  }
}

// Sample rate by fscod (3 reserved), bit rate by frmsizecod / 2 (past the
// table: 0).
TEST(Ac3Scan, SampleRateAndBitRate) {
  struct Case {
    u8 rate_byte;
    u32 sample_rate, bitrate;
  } const cases[] = {{0x00, 48000, 32000}, {0x4E, 44100, 112000}, {0x8F, 32000, 112000},
                     {0xC0, 0, 32000},     {0x25, 48000, 640000}, {0x26, 48000, 0}};
  for (const Case &c : cases) {
    const Scan s = scan(Ac3_prescan, ac3(c.rate_byte, 0x40));
    EXPECT_EQ(s.record.audio[0].audio_codec, WAVE_FORMAT_AC3);
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.sample_rate) << int(c.rate_byte);
    EXPECT_EQ(s.record.audio[0].audio_bitrate, c.bitrate) << int(c.rate_byte);
  }
}

// The first sync word must be followed by one more per 10000 bytes of
// data, at most four, all within 16 KiB of it, and leave room for its
// header; otherwise there is no stream and the record is untouched.
TEST(Ac3Scan, FurtherSyncWordsWithin16KiB) {
  std::vector<u32> every_frame;  // 448 kbit/s at 48 kHz: 1792 bytes a frame
  for (u32 p = 0; p < 1048576 - 7; p += 1792) every_frame.push_back(p);
  struct Case {
    u32 length;
    std::vector<u32> syncs;
    u32 result;
  } const cases[] = {
      {1048576, every_frame, 1},
      {1048576, {100}, 0},
      {1048576, {100, 4000, 8000, 12000, 16483}, 1},
      {1048576, {100, 4000, 8000, 12000, 16484}, 0},
      {9999, {100}, 1},
      {30000, {100, 200, 300}, 0},
      {30000, {100, 200, 300, 400}, 1},
      {10, {3}, 1},
      {10, {6}, 0},
      {1000, {}, 0},
  };
  for (const Case &c : cases) {
    Bytes data(c.length);
    for (u32 p : c.syncs) data = patch(data, p, sized(ac3(0x1C, 0x40), std::min<size_t>(7, c.length - p)));
    const Scan s = scan(Ac3_prescan, data);
    EXPECT_EQ(s.result, c.result) << c.length << " " << c.syncs.size();
    EXPECT_EQ(s.record.audio[0].audio_codec, c.result != 0 ? WAVE_FORMAT_AC3 : 0u);
  }
}

// DTS channels by AMODE (user-defined modes read 0), sample rate by SFREQ
// and bit rate by RATE (open, variable and lossless read 0); the header's
// ten bytes must lie in the buffer.
TEST(DtsScan, CoreHeaderFields) {
  struct Case {
    u32 amode, sfreq, rate, channels, sample_rate, bitrate;
  } const cases[] = {
      {9, 13, 24, 5, 48000, 1536000}, {15, 12, 28, 8, 24000, 3840000}, {0, 1, 0, 1, 8000, 32000},
      {5, 6, 9, 3, 11025, 320000},    {16, 0, 29, 0, 0, 0},            {63, 4, 31, 0, 0, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Dts_prescan, Bytes(5, 0x11) + dts(c.amode, c.sfreq, c.rate) + Bytes(5, 0x11));
    EXPECT_EQ(audio_fields(s.record), (std::vector<u32>{WAVE_FORMAT_DTS, c.sample_rate, c.channels, c.bitrate, 1}))
        << c.amode << " " << c.sfreq << " " << c.rate;
  }
  EXPECT_EQ(scan(Dts_prescan, sized(dts(9, 13, 24), 9)).result, 0u);
  EXPECT_EQ(scan(Dts_prescan, patch(dts(9, 13, 24), 3, {0}) + Bytes(1)).result, 0u);
}

}  // namespace
