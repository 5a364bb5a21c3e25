// MPEG audio scans over hand-built frames: the header decoders, the head
// buffer scan, and the search through the file that stands in for it.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

#include "info/mpeg_audio.h"
#include "tests/info/image.h"

namespace {

// Header field values: version, layer (counting down), channel mode.
constexpr u32 V25 = 0, V_RES = 1, V2 = 2, V1 = 3, L3 = 1, L2 = 2, L1 = 3, JOINT = 1, MONO = 3;
struct Hdr {
  u32 version = V1, layer = L3, rate = 9, sr = 0, mode = 0, padding = 0, emphasis = 0;
};
Bytes hdr(const Hdr &h) {
  return {0xFF, u8(0xE1 | h.version << 3 | h.layer << 1), u8(h.rate << 4 | h.sr << 2 | h.padding << 1),
          u8(h.mode << 6 | h.emphasis)};
}
// `count` frames of `length` bytes: a header and zeros.
Bytes frames(const Hdr &h, u32 length, u32 count) {
  Bytes b;
  for (u32 i = 0; i < count; ++i) b = b + sized(hdr(h), length);
  return b;
}
Bytes id3v2(u32 major, u32 size) {
  return Bytes{'I', 'D', '3', u8(major), 0, 0} + Bytes{u8(size >> 21 & 0x7F), u8(size >> 14 & 0x7F),
                                                      u8(size >> 7 & 0x7F), u8(size & 0x7F)};
}
Bytes xing(u32 flags, u32 count, u32 bytes) {
  return str("Xing") + be(flags, 4) + (flags & 1 ? be(count, 4) : Bytes{}) + (flags & 2 ? be(bytes, 4) : Bytes{});
}
// `length` bytes with a header every 400 bytes.
Bytes synced(const Hdr &h, size_t length) { return sized(frames(h, 400, 10), length); }

Scan search(const Bytes &file) {
  const std::string path = fixtures::temp_file("search.mp3", file);
  MAIOSFile *handle = MAIOSFileOpenForRead(path.c_str());
  Scan s{0, start_record(static_cast<u32>(file.size())), ""};
  s.result = GetHeaderPosition(handle, &s.record);
  MAIOSFileClose(handle);
  return s;
}

// Validity, frame length and codec tag of a header as the search reads it:
// layer I is refused, MPEG-2.5 layer II is measured at the MPEG-2 rates,
// and layer II bit rates are read from the layer III table. Only an ID3
// version 2.3 tag with a clean synchsafe size has a size.
TEST(MpegAudioHeader, ValidityAndFrameLength) {
  struct Case {
    Bytes bytes;
    u32 valid, length, tag;
  } const cases[] = {
      {hdr({}), 1, 417, 0x55},  // 144000 * 128 / 44100
      {hdr({.padding = 1}), 1, 418, 0x55},
      {hdr({.version = V2, .rate = 14, .sr = 2}), 1, 720, 0x55},  // 72000 * 160 / 16000
      {hdr({.version = V25, .rate = 8, .sr = 1, .padding = 1}), 1, 385, 0x55},
      {hdr({.layer = L2, .rate = 14, .sr = 1}), 1, 1152, 0x51},  // 144000 * 384 / 48000
      {hdr({.version = V25, .layer = L2, .rate = 8}), 1, 417, 0x51},
      {hdr({.layer = L1}), 0, 0, 0x50},
      {{0xFE, 0xFB, 0x90, 0}, 0, 417, 0x55},
      {{0xFF, 0xDB, 0x90, 0}, 0, 417, 0x55},
      {hdr({.layer = 0}), 0, 0, 0},
      {hdr({.version = V_RES}), 0, 0, 0x55},
      {hdr({.rate = 0}), 0, 0, 0x55},
      {hdr({.rate = 15}), 0, 0, 0x55},
      {hdr({.sr = 3}), 0, 0, 0x55},
  };
  for (const Case &c : cases) {
    MediaInfo r{};
    EXPECT_EQ(CheckValidHeader(c.bytes.data()), c.valid) << GetHeaderInfo(c.bytes.data());
    EXPECT_EQ(GetFrameSize(&r, c.bytes.data()), c.length) << GetHeaderInfo(c.bytes.data());
    EXPECT_EQ(r.audio[0].audio_codec, c.tag) << GetHeaderInfo(c.bytes.data());
  }
  EXPECT_EQ(GetBitrate(hdr({.layer = L2, .rate = 14}).data()), 320u);
  EXPECT_EQ(CheckID3V2Tag(Bytes{'I', 'D', '3', 3, 0, 0xFF, 1, 2, 3, 4}), (1u << 21) | (2u << 14) | (3u << 7) | 4u);
  for (const Bytes &no : {id3v2(4, 0x800), id3v2(2, 0x800), patch(id3v2(3, 0x800), 4, {0xFF}),
                          patch(id3v2(3, 0x800), 7, {0x80}), sized(id3v2(3, 0x800), 9)})
    EXPECT_EQ(CheckID3V2Tag(no), 0u);
}

// The head scan describes the first header with the tables of its own
// version and layer; a reserved version or layer, or free format, is no
// stream. The whole file is timed at that rate.
TEST(MpegAudioHeadScan, FirstHeaderDecoded) {
  struct Case {
    Hdr h;
    u32 result, tag, bitrate, rate, channels, play_time;
  } const cases[] = {
      {{}, 1, 0x55, 128000, 44100, 2, 10000},
      {{.layer = L1, .rate = 14}, 1, 0x50, 448000, 44100, 2, 2107},
      {{.version = V2, .layer = L1, .rate = 14, .sr = 2}, 1, 0x50, 256000, 16000, 2, 5000},
      {{.layer = L2, .rate = 14, .sr = 1}, 1, 0x51, 384000, 48000, 2, 3041},
      {{.version = V25, .rate = 1, .sr = 2, .mode = MONO}, 1, 0x55, 8000, 8000, 1, 160000},
      {{.version = V_RES}, 0, 0x55, 0, 0, 0, 0},
      {{.layer = 0}, 0, 0, 0, 0, 0, 0},
      {{.rate = 0}, 0, 0x55, 0, 44100, 2, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Mpa_prescan, synced(c.h, 4000), start_record(160000));
    const AudioStreamInfo &a = s.record.audio[0];
    EXPECT_EQ(std::vector<u32>({s.result, a.audio_codec, a.audio_bitrate, a.audio_sample_rate, a.audio_channels,
                                s.record.play_time, s.record.audio_count}),
              std::vector<u32>({c.result, c.tag, c.bitrate, c.rate, c.channels, c.play_time, c.result}))
        << c.bitrate;
  }
}

// The stream is confirmed by further sync patterns, one per 1000 bytes of
// buffer and at most 128, each at least four bytes before the end; frame
// lengths are not checked.
TEST(MpegAudioHeadScan, ConfirmationCountsSyncsNotFrames) {
  struct Case {
    size_t length;
    u32 syncs;    // placed 7 bytes apart
    size_t last;  // where the last one goes, when not 7 bytes on
    u32 result;
  } const cases[] = {
      {999, 1, 0, 1},     {5000, 6, 0, 1},        {5000, 5, 0, 0},       {1999, 2, 1995, 1},
      {1999, 2, 1996, 0}, {200000, 129, 0, 1},    {200000, 128, 0, 0},
  };
  for (const Case &c : cases) {
    Bytes b = patch(Bytes(c.length), 0, hdr({}));
    for (u32 i = 1; i < c.syncs; ++i) b = patch(b, i + 1 == c.syncs && c.last != 0 ? c.last : i * 7, {0xFF, 0xE0});
    EXPECT_EQ(scan(Mpa_prescan, b, start_record(1000000)).result, c.result) << c.length << " " << c.syncs;
  }
  EXPECT_EQ(scan(Mpa_prescan, Bytes{0, 0, 0xFF, 0xFB, 0x90}, start_record(100000)).result, 0u);
}

// An ID3v2 tag of any version in front is skipped whole, a sync inside it
// too; a tag header without room for its size is no stream.
TEST(MpegAudioHeadScan, LeadingId3v2TagIsSkipped) {
  for (u32 major : {2u, 3u, 4u, 9u}) {
    const Bytes b = sized(patch(id3v2(major, 300), 100, hdr({.version = V2, .sr = 1})), 310) + frames({.sr = 2}, 400, 8);
    const Scan s = scan(Mpa_prescan, b, start_record(100000));
    EXPECT_EQ(s.result, 1u) << major;
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, 32000u) << major;
  }
  EXPECT_EQ(scan(Mpa_prescan, Bytes{'I', 'D', '3', 3, 0xFF, 0xFB, 0x90}).result, 0u);
}

// A Xing header gives the bit rate as bytes per frame (the byte count, or
// the file size) times the sample rate over 144, for MPEG-2 too; the frame
// count is taken to 24 bits; the header must lie whole in the file and in
// the buffer, else the frame header's rate stays.
TEST(MpegAudioHeadScan, XingBitRate) {
  struct Case {
    Hdr h;
    size_t tag, length;
    u32 flags, count, bytes, file_size, bitrate;
  } const cases[] = {
      {{}, 36, 4000, 0x03, 1000, 500000, 600000, 153125},
      {{}, 36, 4000, 0x01, 1000, 0, 400000, 122500},
      {{}, 36, 4000, 0x03, 0x01000010, 160000, 600000, 3062500},
      {{.mode = MONO}, 21, 4000, 0x03, 100, 20000, 600000, 61250},
      {{.version = V2}, 21, 4000, 0x03, 100, 20000, 600000, 30625},
      {{}, 36, 4000, 0x02, 0, 20000, 600000, 128000},
      {{}, 36, 4000, 0x0F, 1000, 500000, 155, 128000},  // with its TOC and quality, 120 bytes from 36
      {{}, 36, 4000, 0x0F, 1000, 500000, 156, 153125},
      {{}, 36, 48, 0x01, 1000, 0, 600000, 183750},  // the count is the buffer's last word
      {{}, 36, 47, 0x01, 1000, 0, 600000, 128000},
  };
  for (const Case &c : cases) {
    const Bytes b = sized(patch(synced(c.h, 4000), c.tag, xing(c.flags, c.count, c.bytes)), c.length);
    const Scan s = scan(Mpa_prescan, b, start_record(c.file_size));
    EXPECT_EQ(s.record.audio[0].audio_bitrate, c.bitrate) << c.flags << " " << c.count << " " << c.file_size;
  }
}

// The search takes a header followed one frame later by a valid one of the
// same stream, then averages the pairs found at sampled places with the
// layer III rates, so layer II at 384 kbit/s reads 320. The sampled rounds
// scan the block as it stands: ten 128 kbit/s frames at the start set the
// rate of a file that is mostly 320 kbit/s.
TEST(MpegAudioSearch, ChainedFramesAveragedWithLayerThreeRates) {
  struct Case {
    Hdr h;
    u32 length, tag, bitrate, rate, channels;
  } const cases[] = {
      {{}, 417, 0x55, 128000, 44100, 2},
      {{.layer = L2, .rate = 14, .sr = 1}, 1152, 0x51, 320000, 48000, 2},
      {{.version = V2, .rate = 8, .mode = JOINT}, 208, 0x55, 64000, 22050, 2},
      {{.version = V25, .rate = 4, .sr = 2, .mode = MONO}, 288, 0x55, 32000, 8000, 1},
      {{.rate = 12, .padding = 1}, 732, 0x55, 224000, 44100, 2},
  };
  for (const Case &c : cases) {
    const Scan s = search(frames(c.h, c.length, 120));
    const AudioStreamInfo &a = s.record.audio[0];
    EXPECT_EQ(std::vector<u32>({s.result, a.audio_codec, a.audio_bitrate, a.audio_sample_rate, a.audio_channels,
                                s.record.bits_per_sample}),
              std::vector<u32>({1, c.tag, c.bitrate, c.rate, c.channels, c.length * 120}))
        << c.length;
  }
  EXPECT_EQ(search(frames({}, 417, 10) + frames({.rate = 14}, 1044, 200)).record.audio[0].audio_bitrate, 128000u);
}

// A pair whose second header differs in version, layer, sample rate or
// emphasis is passed over; the channel mode is not compared.
TEST(MpegAudioSearch, HeadersThatDoNotChainArePassedOver) {
  for (const Hdr second : {Hdr{.sr = 2}, Hdr{.version = V2}, Hdr{.layer = L2}, Hdr{.emphasis = 1}, Hdr{.mode = JOINT}}) {
    Bytes b;
    for (u32 i = 0; i < 20; ++i) b = b + sized(hdr({}), 417) + sized(hdr(second), 417);
    const Scan s = search(b + frames({.sr = 1}, 384, 100));
    EXPECT_EQ(s.result, 1u);
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, second.mode == JOINT ? 44100u : 48000u) << second.version;
  }
}

// A Xing or VBRI frame count gives the mean rate over the data: bytes per
// frame times the sample rate over the bytes of samples per frame; under
// one byte a frame there is no stream.
TEST(MpegAudioSearch, VbrHeadersGiveTheMeanRate) {
  struct Case {
    Hdr h;
    size_t tag;
    bool vbri;
    u32 count, file_size, result, bitrate, rate;
  } const cases[] = {
      {{}, 36, false, 500, 200000, 1, 122500, 44100},  // 400 * 44100 / 144
      {{.version = V2}, 21, true, 100, 20000, 1, 61250, 22050},  // 200 * 22050 / 72
      {{.version = V25, .sr = 2, .mode = MONO}, 13, false, 50, 5000, 1, 11111, 8000},
      {{.layer = L2}, 36, true, 1000, 400000, 1, 122500, 44100},
      {{.version = V25, .sr = 2}, 21, false, 100000, 8000, 0, 0, 8000},
  };
  for (const Case &c : cases) {
    const Bytes tag = c.vbri ? str("VBRI") + Bytes(10) + be(c.count, 4) : xing(1, c.count, 0);
    // A stream at the end that the search must not go on to.
    const Bytes b = patch(Bytes(c.file_size - 4170), 0, hdr(c.h) + sized(Bytes(), c.tag - 4) + tag) + frames({}, 417, 10);
    const Scan s = search(b);
    const AudioStreamInfo &a = s.record.audio[0];
    EXPECT_EQ(std::vector<u32>({s.result, a.audio_bitrate, a.audio_sample_rate, a.audio_codec, s.record.bits_per_sample}),
              std::vector<u32>({c.result, c.bitrate, c.rate, c.h.layer == L2 ? 0x51u : 0x55u,
                                c.file_size}))
        << c.count;
  }
}

// The data starts behind an ID3v2.3 tag: in the first block, in the slid
// block, or after a seek to its 512-byte sector with the offset taken
// within 256 bytes, up to 256 bytes early (a frame planted there is found).
// A version 2.4 tag is not skipped: its bytes count as data.
TEST(MpegAudioSearch, DataStartBehindAnId3v23Tag) {
  struct Case {
    u32 tag, planted, major, rate;  // data start tag + 10; a VBR frame at 22050 Hz planted
  } const cases[] = {
      {990, 0, 3, 48000},     {1526, 0, 3, 48000},    {1527, 0, 3, 48000}, {3062, 0, 3, 48000},
      {3063, 0, 3, 48000},    {70000, 0, 3, 48000},   {4990, 4800, 3, 22050},  // start 4608 + 392: from 4744
      {4990, 4700, 3, 48000}, {4096, 4100, 3, 48000},  // start 4096 + 10: from 4106
      {290, 100, 4, 22050},
  };
  for (const Case &c : cases) {
    Bytes b = sized(id3v2(c.major, c.tag), c.tag + 10);
    if (c.planted != 0) b = patch(b, c.planted, hdr({.version = V2}) + Bytes(17) + xing(1, 10, 0));
    const Bytes file = b + frames({.sr = 1}, 384, 100);
    const Scan s = search(file);
    EXPECT_EQ(s.result, 1u) << c.tag;
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.rate) << c.tag << " " << c.planted;
    EXPECT_EQ(s.record.bits_per_sample, file.size() - (c.major == 3 ? c.tag + 10 : 0)) << c.tag;
  }
}

// The search gives up after 10000 bytes other than 0x00 and 0xFF, and at
// the end of the file. Zero bytes cost nothing and start no header: a run
// of any length across the places where the block slides on is passed
// over, and one to the end of the file ends the search.
TEST(MpegAudioSearch, BudgetZeroRunsAndTheFileEnd) {
  struct Case {
    u32 runs, garbage, result;  // bytes of 0x00/0xFF runs, then of 0x55, before a stream
  } const cases[] = {{0, 9999, 1}, {0, 10000, 0}, {40000, 9999, 1}, {40000, 10000, 0}, {100000, 0, 1}};
  for (const Case &c : cases) {
    Bytes b;
    for (u32 i = 0; i < c.runs; ++i) b.push_back((i / 3) % 2 ? 0xFF : 0x00);
    EXPECT_EQ(search(sized(b, c.runs + c.garbage, 0x55) + frames({}, 417, 60)).result, c.result) << c.runs << " " << c.garbage;
  }
  for (size_t lead : {1u, 1536u, 1537u, 2043u, 2048u, 65539u}) {
    const Scan s = search(Bytes(lead) + frames({}, 417, 120));
    EXPECT_EQ(s.result, 1u) << lead;
    EXPECT_EQ(s.record.audio[0].audio_bitrate, 128000u) << lead;
  }
  for (const Bytes &f : {Bytes{}, Bytes{0xFF, 0xFB, 0x90}, Bytes(5000, 0xFF), Bytes(70000), id3v2(3, 0x0FFFFFFF),
                         sized(Bytes{0x55}, 1536), sized(Bytes{0x55}, 2049)})
    EXPECT_EQ(search(f).result, 0u) << f.size();
}

// SearchTwoHeader looks at the first 1440 places of the block as it stands
// for a header of the reference's stream followed by any valid header one
// frame on, and gives their layer III rates added. A second header past
// 2043 is read from the file: the last 4 bytes move to the front and 1536
// bytes follow from the file position.
TEST(MpegAudioSearch, SearchTwoHeader) {
  struct Case {
    size_t at;
    Hdr first;
    u32 next;
    Hdr second, reference;
    u32 sum;
  } const cases[] = {
      {0, {}, 417, {.rate = 14}, {}, 128 + 320},
      {1439, {}, 417, {}, {}, 256},
      {1440, {}, 417, {}, {}, 0},
      {100, {.sr = 1}, 384, {.sr = 1}, {}, 0},
      {100, {.rate = 14, .mode = MONO}, 1044, {.version = V2}, {}, 320 + 80},
      {100, {.layer = L2, .rate = 1}, 104, {}, {.layer = L2}, 32 + 128},
  };
  auto block_of = [](const Bytes &v) {
    std::array<u8, MPA_BLOCK_SIZE> block{};
    std::memcpy(block.data(), v.data(), MPA_BLOCK_SIZE);
    return block;
  };
  for (const Case &c : cases) {
    auto block = block_of(patch(patch(Bytes(MPA_BLOCK_SIZE), c.at, hdr(c.first)), c.at + c.next, hdr(c.second)));
    MediaInfo r{};
    EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, GetHeaderInfo(hdr(c.reference).data())), c.sum) << c.at;
  }
  const std::string path = fixtures::temp_file("two_header.bin", patch(Bytes(4000), 396, hdr({.version = V2, .rate = 3})));
  for (const u32 position : {0u, 1u}) {
    MAIOSFile *f = MAIOSFileOpenForRead(path.c_str());
    MAIOSFileSeek(f, position, MAIOS_SEEK_SET);
    auto block = block_of(patch(Bytes(MPA_BLOCK_SIZE), 1400, hdr({.rate = 14})));
    MediaInfo r{};
    EXPECT_EQ(SearchTwoHeader(f, &r, block, GetHeaderInfo(hdr({}).data())), position == 0 ? 320u + 24u : 0u);
    MAIOSFileClose(f);
  }
}

}  // namespace
