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
constexpr u32 V25 = 0, V_RES = 1, V2 = 2, L3 = 1, L2 = 2, L1 = 3, JOINT = 1, MONO = 3;
struct Hdr {
  u32 version = 3, layer = L3, rate = 9, sr = 0, mode = 0, padding = 0, emphasis = 0;
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
  return Bytes{'I', 'D', '3', u8(major), 0, 0, u8(size >> 21 & 0x7F), u8(size >> 14 & 0x7F), u8(size >> 7 & 0x7F),
               u8(size & 0x7F)};
}
Bytes xing(u32 flags, u32 count, u32 bytes) {
  return str("Xing") + be(flags, 4) + (flags & 1 ? be(count, 4) : Bytes{}) + (flags & 2 ? be(bytes, 4) : Bytes{});
}
// 4000 bytes with a header every 400.
Bytes synced(const Hdr &h) { return frames(h, 400, 10); }

Scan search(const Bytes &file) {
  const std::string path = fixtures::temp_file("search.mp3", file);
  MAIOSFile *handle = MAIOSFileOpenForRead(path.c_str());
  Scan s{0, start_record(static_cast<u32>(file.size())), ""};
  s.result = GetHeaderPosition(handle, &s.record);
  MAIOSFileClose(handle);
  return s;
}
// What a scan found: result, codec, bit rate, sample rate, channels.
std::vector<u32> found(const Scan &s) {
  const AudioStreamInfo &a = s.record.audio[0];
  return {s.result, a.audio_codec, a.audio_bitrate, a.audio_sample_rate, a.audio_channels};
}

// The head scan describes the first header with the tables of its own
// version and layer and times the whole file (160000 bytes) at that rate;
// a reserved version or layer, or free format, is no stream. An ID3v2 tag
// of any version in front is skipped whole, a sync inside it too. The
// stream is confirmed by further sync patterns, one per 1000 bytes of
// buffer and at most 128, each at least four bytes before the end; frame
// lengths are not checked.
TEST(MpegAudioHeadScan, FirstHeaderDecoded) {
  auto tagged = [](u32 major) {
    return sized(patch(id3v2(major, 300), 100, hdr({.version = V2, .sr = 1})), 310) + frames({.sr = 2}, 400, 8);
  };
  // `syncs` sync patterns 7 bytes apart from the start, the last at `last`.
  auto syncs = [](size_t length, u32 count, size_t last = 0) {
    Bytes b = patch(Bytes(length), 0, hdr({}));
    for (u32 i = 1; i < count; ++i) b = patch(b, i + 1 == count && last != 0 ? last : i * 7, {0xFF, 0xE0});
    return b;
  };
  const Case cases[] = {  // result, codec, bit rate, sample rate, channels, play time
      {"layer I", synced({.layer = L1, .rate = 14}), {1, 0x50, 448000, 44100, 2, 2107}},
      {"MPEG-2 layer I", synced({.version = V2, .layer = L1, .rate = 14, .sr = 2}), {1, 0x50, 256000, 16000, 2, 5000}},
      {"layer II", synced({.layer = L2, .rate = 14, .sr = 1}), {1, 0x51, 384000, 48000, 2, 3041}},
      {"MPEG-2.5", synced({.version = V25, .rate = 1, .sr = 2, .mode = MONO}), {1, 0x55, 8000, 8000, 1, 160000}},
      {"reserved version", synced({.version = V_RES}), {0, 0x55, 0, 0, 0, 0}},
      {"reserved layer", synced({.layer = 0}), {0, 0, 0, 0, 0, 0}},
      {"free format", synced({.rate = 0}), {0, 0x55, 0, 44100, 2, 0}},
      {"ID3v2.2 tag", tagged(2), {1, 0x55, 128000, 32000, 2, 10000}},
      {"tag of version 9", tagged(9), {1, 0x55, 128000, 32000, 2, 10000}},
      {"tag without room for its size", {'I', 'D', '3', 3, 0xFF, 0xFB, 0x90}, {0, 0, 0, 0, 0, 0}},
      {"999 bytes, one sync", syncs(999, 1), {1, 0x55, 128000, 44100, 2, 10000}},
      {"5000 bytes, six syncs", syncs(5000, 6), {1, 0x55, 128000, 44100, 2, 10000}},
      {"5000 bytes, five syncs", syncs(5000, 5), {0, 0, 0, 0, 0, 0}},
      {"last sync 4 bytes from the end", syncs(1999, 2, 1995), {1, 0x55, 128000, 44100, 2, 10000}},
      {"last sync 3 bytes from the end", syncs(1999, 2, 1996), {0, 0, 0, 0, 0, 0}},
      {"at most 128 further syncs", syncs(200000, 129), {1, 0x55, 128000, 44100, 2, 10000}},
      {"127 further syncs", syncs(200000, 128), {0, 0, 0, 0, 0, 0}},
      {"header cut", {0, 0, 0xFF, 0xFB, 0x90}, {0, 0, 0, 0, 0, 0}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Mpa_prescan, c.image, start_record(160000));
    const AudioStreamInfo &a = s.record.audio[0];
    EXPECT_EQ((std::vector<u32>{s.result, a.audio_codec, a.audio_bitrate, a.audio_sample_rate, a.audio_channels,
                                s.record.play_time}),
              c.want)
        << c.what;
    EXPECT_EQ(s.record.audio_count, c.want[0]) << c.what;
  }
}

// A Xing header gives the bit rate as bytes per frame (the byte count, or
// the file size) times the sample rate over 144, for MPEG-2 too; the frame
// count is taken to 24 bits; the header must lie whole in the file and in
// the buffer, else the frame header's rate stays. Every cut of the buffer is
// read only as far as it goes.
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
    const Bytes b = sized(patch(synced(c.h), c.tag, xing(c.flags, c.count, c.bytes)), c.length);
    const Scan s = scan(Mpa_prescan, b, start_record(c.file_size));
    EXPECT_EQ(s.record.audio[0].audio_bitrate, c.bitrate) << c.flags << " " << c.count << " " << c.file_size;
  }
  const Bytes whole = patch(synced({}), 36, xing(0x0F, 1000, 500000));
  for (size_t n = 0; n <= whole.size(); ++n) {
    const Scan s = scan(Mpa_prescan, sized(whole, n), start_record(600000));
    EXPECT_EQ(s.result, n >= 4 ? 1u : 0u) << n;
    EXPECT_EQ(s.record.audio[0].audio_bitrate, n < 4 ? 0u : n < 156 ? 128000u : 153125u) << n;
  }
}

// The search takes a valid header (layer II or III, no free format, no
// reserved field) followed one frame later by a valid one of the same
// stream (version, layer, sample rate and emphasis agree; the channel mode
// need not), then averages the pairs found at sampled places with the layer
// III rates, so layer II at 384 kbit/s reads 320 (and MPEG-2.5 layer II is
// measured at the MPEG-2 rates); the rounds scan the block as it stands, so
// ten 128 kbit/s frames at the start set the rate of a file that is mostly
// 320 kbit/s. A Xing or VBRI frame count gives the mean rate instead: bytes
// per frame times the sample rate over the bytes of samples per frame, and
// under one byte a frame there is no stream.
TEST(MpegAudioSearch, ChainedFramesAndVbrHeaders) {
  auto unchained = [](const Hdr &second) {
    Bytes b;
    for (u32 i = 0; i < 20; ++i) b = b + sized(hdr({}), 417) + sized(hdr(second), 417);
    return b + frames({.sr = 1}, 384, 100);
  };
  // A frame with a VBR tag at `at`, then a stream the search must not reach.
  auto vbr = [](const Hdr &h, size_t at, const Bytes &tag, size_t size) {
    return patch(Bytes(size - 4170), 0, hdr(h) + Bytes(at - 4) + tag) + frames({}, 417, 10);
  };
  auto vbri = [](u32 count) { return str("VBRI") + Bytes(10) + be(count, 4); };
  const Case cases[] = {  // result, codec, bit rate, sample rate, channels
      {"layer III", frames({}, 417, 120), {1, 0x55, 128000, 44100, 2}},
      {"layer II", frames({.layer = L2, .rate = 14, .sr = 1}, 1152, 120), {1, 0x51, 320000, 48000, 2}},
      {"MPEG-2", frames({.version = V2, .rate = 8, .mode = JOINT}, 208, 120), {1, 0x55, 64000, 22050, 2}},
      {"MPEG-2.5", frames({.version = V25, .rate = 4, .sr = 2, .mode = MONO}, 288, 120), {1, 0x55, 32000, 8000, 1}},
      {"padding", frames({.rate = 12, .padding = 1}, 732, 120), {1, 0x55, 224000, 44100, 2}},
      {"the block as it stands", frames({}, 417, 10) + frames({.rate = 14}, 1044, 200), {1, 0x55, 128000, 44100, 2}},
      {"other sample rate", unchained({.sr = 2}), {1, 0x55, 128000, 48000, 2}},
      {"other version", unchained({.version = V2}), {1, 0x55, 128000, 48000, 2}},
      {"other layer", unchained({.layer = L2}), {1, 0x55, 128000, 48000, 2}},
      {"other emphasis", unchained({.emphasis = 1}), {1, 0x55, 128000, 48000, 2}},
      {"other channel mode", unchained({.mode = JOINT}), {1, 0x55, 128000, 44100, 2}},
      {"MPEG-2.5 layer II, measured as MPEG-2", frames({.version = V25, .layer = L2, .rate = 8}, 417, 120),
       {1, 0x51, 64000, 11025, 2}},
      {"layer I is refused", frames({.layer = L1}, 384, 120), {0, 0, 0, 0, 0}},
      {"reserved version", frames({.version = V_RES}, 417, 120), {0, 0, 0, 0, 0}},
      {"free format", frames({.rate = 0}, 417, 120), {0, 0, 0, 0, 0}},
      {"bit rate 15", frames({.rate = 15}, 417, 120), {0, 0, 0, 0, 0}},
      {"sample rate 3", frames({.sr = 3}, 417, 120), {0, 0, 0, 0, 0}},
      {"Xing: 400 * 44100 / 144", vbr({}, 36, xing(1, 500, 0), 200000), {1, 0x55, 122500, 44100, 2}},
      {"VBRI: 200 * 22050 / 72", vbr({.version = V2}, 21, vbri(100), 20000), {1, 0x55, 61250, 22050, 2}},
      {"MPEG-2.5 mono", vbr({.version = V25, .sr = 2, .mode = MONO}, 13, xing(1, 50, 0), 5000),
       {1, 0x55, 11111, 8000, 1}},
      {"layer II VBRI", vbr({.layer = L2}, 36, vbri(1000), 400000), {1, 0x51, 122500, 44100, 2}},
      {"under a byte a frame", vbr({.version = V25, .sr = 2}, 21, xing(1, 100000, 0), 8000), {0, 0x55, 0, 8000, 2}},
  };
  for (const Case &c : cases) {
    const Scan s = search(c.image);
    EXPECT_EQ(found(s), c.want) << c.what;
    EXPECT_EQ(s.record.bits_per_sample, c.want[1] != 0 ? c.image.size() : 0u) << c.what;
  }
}

// The data starts behind an ID3v2.3 tag: in the first block, in the slid
// block, or after a seek to its 512-byte sector with the offset taken
// within 256 bytes, up to 256 bytes early (a frame planted there is found).
// A version 2.4 tag is not skipped: its bytes count as data; nor is a tag
// with a revision of 0xFF or a size byte of 0x80 or more.
TEST(MpegAudioSearch, DataStartBehindAnId3v23Tag) {
  struct Case {
    u32 tag, planted, major, rate;  // data start tag + 10; a VBR frame at 22050 Hz planted
  } const cases[] = {
      {990, 0, 3, 48000}, {1527, 0, 3, 48000}, {3063, 0, 3, 48000}, {70000, 0, 3, 48000},
      {4990, 4800, 3, 22050}, {4990, 4700, 3, 48000},  // start 4608 + 392: from 4744
      {4096, 4100, 3, 48000}, {290, 100, 4, 22050},     // start 4096 + 10: from 4106
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
  EXPECT_EQ(CheckID3V2Tag(Bytes{'I', 'D', '3', 3, 0, 0xFF, 1, 2, 3, 4}), (1u << 21) | (2u << 14) | (3u << 7) | 4u);
  for (const Bytes &no : {id3v2(2, 0x800), patch(id3v2(3, 0x800), 4, {0xFF}), patch(id3v2(3, 0x800), 7, {0x80}),
                          sized(id3v2(3, 0x800), 9)})
    EXPECT_EQ(CheckID3V2Tag(no), 0u);
}

// The search gives up after 10000 bytes other than 0x00 and 0xFF, and at
// the end of the file. Zero bytes cost nothing and start no header: a run
// of any length across the places where the block slides on is passed
// over, and one to the end of the file ends the search.
TEST(MpegAudioSearch, BudgetZeroRunsAndTheFileEnd) {
  auto after = [](u32 runs, u32 garbage) {  // bytes of 0x00/0xFF runs, then of 0x55, before a stream
    Bytes b;
    for (u32 i = 0; i < runs; ++i) b.push_back((i / 3) % 2 ? 0xFF : 0x00);
    return sized(b, runs + garbage, 0x55) + frames({}, 417, 60);
  };
  const Case cases[] = {  // result
      {"9999 bytes", after(0, 9999), {1}},
      {"10000 bytes", after(0, 10000), {0}},
      {"runs and 9999 bytes", after(40000, 9999), {1}},
      {"runs and 10000 bytes", after(40000, 10000), {0}},
      {"runs", after(100000, 0), {1}},
      {"1537 zeros", Bytes(1537) + frames({}, 417, 120), {1}},
      {"2043 zeros", Bytes(2043) + frames({}, 417, 120), {1}},
      {"65539 zeros", Bytes(65539) + frames({}, 417, 120), {1}},
      {"empty", {}, {0}},
      {"a header at the end", {0xFF, 0xFB, 0x90}, {0}},
      {"0xFF bytes", Bytes(5000, 0xFF), {0}},
      {"zeros", Bytes(70000), {0}},
      {"a tag past the end", id3v2(3, 0x0FFFFFFF), {0}},
      {"zeros to a slide point", sized(Bytes{0x55}, 1536), {0}},
      {"zeros past it", sized(Bytes{0x55}, 2049), {0}},
  };
  for (const Case &c : cases) EXPECT_EQ(search(c.image).result, c.want[0]) << c.what;
}

// SearchTwoHeader looks at the first 1440 places of the block as it stands
// for a header of the reference's stream followed by any valid header one
// frame on, and gives their layer III rates added. A second header past
// 2043 is read from the file: the last 4 bytes move to the front and 1536
// bytes follow from the file position.
TEST(MpegAudioSearch, SearchTwoHeader) {
  auto block_of = [](size_t at, const Hdr &first, size_t next, const Hdr &second) {
    const Bytes v = patch(patch(Bytes(MPA_BLOCK_SIZE), at, hdr(first)), at + next, hdr(second));
    std::array<u8, MPA_BLOCK_SIZE> block{};
    std::memcpy(block.data(), v.data(), MPA_BLOCK_SIZE);
    return block;
  };
  const u32 reference = GetHeaderInfo(hdr({}).data());
  MediaInfo r{};
  auto block = block_of(0, {}, 417, {.rate = 14});
  EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, reference), 128u + 320u);
  block = block_of(1439, {}, 417, {});
  EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, reference), 256u);
  block = block_of(1440, {}, 417, {});
  EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, reference), 0u);
  block = block_of(100, {.sr = 1}, 384, {.sr = 1});
  EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, reference), 0u);
  block = block_of(100, {.rate = 14, .mode = MONO}, 1044, {.version = V2});
  EXPECT_EQ(SearchTwoHeader(nullptr, &r, block, reference), 320u + 80u);
  const Bytes file = patch(Bytes(4000), 396, hdr({.version = V2, .rate = 3}));
  const std::string path = fixtures::temp_file("two_header.bin", file);
  for (const u32 position : {0u, 1u}) {
    MAIOSFile *f = MAIOSFileOpenForRead(path.c_str());
    MAIOSFileSeek(f, position, MAIOS_SEEK_SET);
    block = block_of(1400, {.rate = 14}, 0, {.rate = 14});
    EXPECT_EQ(SearchTwoHeader(f, &r, block, reference), position == 0 ? 320u + 24u : 0u);
    MAIOSFileClose(f);
  }
}

}  // namespace
