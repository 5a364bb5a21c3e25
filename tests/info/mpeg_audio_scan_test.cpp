// MPEG audio scans (head buffer and search through the file) and the ID3
// tag reader over hand-built frames and tags.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "info/mpeg_audio.h"
#include "tests/info/image.h"

namespace {

// Header field values: version, layer (counting down).
constexpr u32 V25 = 0, V2 = 2, L3 = 1, L2 = 2, L1 = 3;
struct Hdr {
  u32 version = 3, layer = L3, rate = 9, sr = 0;
};
Bytes hdr(const Hdr &h) {
  return {0xFF, u8(0xE1 | h.version << 3 | h.layer << 1), u8(h.rate << 4 | h.sr << 2), 0};
}
Bytes frames(const Hdr &h, u32 length, u32 count) {  // each a header and zeros
  Bytes b;
  for (u32 i = 0; i < count; ++i) b = b + sized(hdr(h), length);
  return b;
}
Bytes synchsafe(u32 v) { return {u8(v >> 21 & 0x7F), u8(v >> 14 & 0x7F), u8(v >> 7 & 0x7F), u8(v & 0x7F)}; }
Bytes id3v2(u32 major, u32 size, u8 flags = 0) { return Bytes{'I', 'D', '3', u8(major), 0, flags} + synchsafe(size); }
Bytes xing(u32 flags, u32 count, u32 bytes) {
  return str("Xing") + be(flags, 4) + (flags & 1 ? be(count, 4) : Bytes{}) + (flags & 2 ? be(bytes, 4) : Bytes{});
}
Bytes synced(const Hdr &h) { return frames(h, 400, 10); }  // 4000 bytes, a header every 400

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

// The whole file timed with the eighth-of-a-second remainder; a tag of any
// version skipped; one further sync per 1000 bytes of buffer, at most 128.
TEST(MpegAudioHeadScan, FirstHeaderDecoded) {
  auto syncs = [](size_t length, u32 count) {  // `count` syncs 7 bytes apart
    Bytes b = patch(Bytes(length), 0, hdr({}));
    for (u32 i = 1; i < count; ++i) b = patch(b, i * 7, {0xFF, 0xE0});
    return b;
  };
  const Case cases[] = {  // result, codec, bit rate, sample rate, channels, play time
      {"layer I: 2.857 s", synced({.layer = L1, .rate = 14}), {1, 0x50, 448000, 44100, 2, 2107}},
      {"free format", synced({.rate = 0}), {0, 0x55, 0, 44100, 2, 0}},
      {"tag of version 9, a sync inside",
       sized(patch(id3v2(9, 300), 100, hdr({.version = V2, .sr = 1})), 310) + frames({.sr = 2}, 400, 8),
       {1, 0x55, 128000, 32000, 2, 10000}},
      {"5000 bytes, five syncs", syncs(5000, 5), {0, 0, 0, 0, 0, 0}},
      {"at most 128 further syncs", syncs(200000, 129), {1, 0x55, 128000, 44100, 2, 10000}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Mpa_prescan, c.image, start_record(160000));
    std::vector<u32> got = found(s);
    got.push_back(s.record.play_time);
    EXPECT_EQ(got, c.want) << c.what;
    EXPECT_EQ(s.record.audio_count, c.want[0]) << c.what;
  }
}

// Xing: bytes (or file size) per frame times the rate over 144, MPEG-2 too;
// the count to 24 bits; the header whole in the file and in the buffer.
TEST(MpegAudioHeadScan, XingBitRate) {
  auto at36 = [](u32 flags, u32 count, u32 bytes) { return patch(synced({}), 36, xing(flags, count, bytes)); };
  const Case cases[] = {  // file size, bit rate
      {"byte count", at36(0x03, 1000, 500000), {600000, 153125}},
      {"file size", at36(0x01, 1000, 0), {400000, 122500}},
      {"count to 24 bits", at36(0x03, 0x01000010, 160000), {600000, 3062500}},
      {"MPEG-2 over 144", patch(synced({.version = V2}), 21, xing(0x03, 100, 20000)), {600000, 30625}},
      {"TOC and quality past the file", at36(0x0F, 1000, 500000), {155, 128000}},
      {"past the buffer", sized(at36(0x0F, 1000, 500000), 155), {600000, 128000}},
  };
  for (const Case &c : cases)
    EXPECT_EQ(scan(Mpa_prescan, c.image, start_record(c.want[0])).record.audio[0].audio_bitrate, c.want[1]) << c.what;
  expect_cuts(Mpa_prescan, cases[0].image, 4, false, start_record(600000));
}

// Chained headers, then the rounds' mean in the block as it stands at layer
// III rates; the data behind a 2.3 tag; a budget of 10000 bytes.
TEST(MpegAudioSearch, ChainedFramesTagsAndBudget) {
  auto tagged = [](u32 major, u32 size, size_t planted) {  // a VBR frame at 22050 Hz planted
    return patch(sized(id3v2(major, size), size + 10), planted, hdr({.version = V2}) + Bytes(17) + xing(1, 10, 0)) +
           frames({.sr = 1}, 384, 100);
  };
  auto after = [](u32 runs, u32 garbage) {  // bytes of 0x00/0xFF runs, then of 0x55, before a stream
    Bytes b;
    for (u32 i = 0; i < runs; ++i) b.push_back((i / 3) % 2 ? 0xFF : 0x00);
    return sized(b, runs + garbage, 0x55) + frames({}, 417, 60);
  };
  const Case cases[] = {  // result, codec, bit rate, sample rate, channels, data length
      {"layer II at 384 reads 320", frames({.layer = L2, .rate = 14, .sr = 1}, 1152, 120),
       {1, 0x51, 320000, 48000, 2, 138240}},
      {"the block as it stands", frames({}, 417, 10) + frames({.rate = 14}, 1044, 200),
       {1, 0x55, 128000, 44100, 2, 212970}},
      {"MPEG-2.5 layer II, measured as MPEG-2", frames({.version = V25, .layer = L2, .rate = 8}, 417, 120),
       {1, 0x51, 64000, 11025, 2, 50040}},
      {"Xing: 400 * 44100 / 144", patch(Bytes(195830), 0, hdr({}) + Bytes(32) + xing(1, 500, 0)) + frames({}, 417, 10),
       {1, 0x55, 122500, 44100, 2, 200000}},
      {"tag sector, from 256 early", tagged(3, 4990, 4800), {1, 0x55, 1176000, 22050, 2, 38400}},
      {"2.4 tag", tagged(4, 290, 100), {1, 0x55, 1185187, 22050, 2, 38700}},
      {"10000 bytes", after(0, 10000), {0, 0, 0, 0, 0, 0}},
      {"runs and 9999 bytes", after(40000, 9999), {1, 0x55, 128000, 44100, 2, 75019}},
      {"1440 zeros: no pair in the rounds' window", Bytes(1440) + frames({}, 417, 120), {0, 0x55, 0, 44100, 2, 51480}},
      {"65539 zeros", Bytes(65539) + frames({}, 417, 120), {1, 0x55, 128000, 44100, 2, 115579}},
  };
  for (const Case &c : cases) {
    const Scan s = search(c.image);
    std::vector<u32> got = found(s);
    got.push_back(s.record.bits_per_sample);
    EXPECT_EQ(got, c.want) << c.what;
  }
}

Bytes unsync(const Bytes &in) {  // a 0x00 after every 0xFF
  Bytes out;
  for (u8 c : in) out = c == 0xFF ? out + Bytes{c, 0} : out + Bytes{c};
  return out;
}
Bytes frame(u32 major, const char *id, const Bytes &body, u8 format = 0) {
  if (major == 2) return str(id) + be(body.size(), 3) + body;
  return str(id) + (major == 3 ? be(body.size(), 4) : synchsafe(u32(body.size()))) + Bytes{0, format} + body;
}
Bytes tag(u32 major, const Bytes &body, u8 flags = 0) { return id3v2(major, u32(body.size()), flags) + body; }
Bytes latin(const char *text) { return Bytes{0} + str(text); }
Bytes v1(const std::string &title, const std::string &artist, u8 pad) {
  return sized(sized(str("TAG" + title), 33, pad) + str(artist), 128, pad);
}
const Bytes audio(400, 0x55);

std::u16string read_tags(const Bytes &file) {
  const std::string path = fixtures::temp_file("id3.mp3", file);
  MediaInfo r{};
  MAIOSFile *f = MAIOSFileOpenForRead(path.c_str());
  ID3_GetID3(f, &r, path.c_str());
  MAIOSFileClose(f);
  return tag_text(r);
}

// "title - artist" from ID3v2 frames (unsynchronisation of 2.3 over the
// frame sizes too), ID3v1 for what v2 lacks, 256 bytes at most.
TEST(Id3Tags, TitleAndArtist) {
  const Bytes artist3 = frame(3, "TPE1", latin("Band")), ff_e0 = {0, 0xFF, 0xE0};
  const std::pair<Bytes, std::u16string> cases[] = {
      {tag(2, frame(2, "TT2", Bytes{0, 'C', 'a', 'f', 0xE9}) + frame(2, "TP1", latin("Band"))), u"Caf\u00e9 - Band"},
      {tag(3, frame(3, "TIT2", Bytes{1, 0xFF, 0xFE, 0xDC, 0, 0xAC, 0x20, 0, 0, 'x', 0}) + artist3),
       u"\u00dc\u20ac - Band"},
      {tag(4, frame(4, "TIT2", Bytes{4} + str("Song")) + frame(4, "TPE1", Bytes{3} + str("Band"))), u"Band"},
      {tag(3, unsync(frame(3, "TIT2", ff_e0) + frame(3, "TXXX", Bytes(255, 0xFF)) + artist3), 0x80),
       u"\u00ff\u00e0 - Band"},
      {tag(3, frame(3, "TIT2", latin("Song"))) + audio + v1("Old Song", "Old Band", 0), u"Song - Old Band"},
      {tag(3, frame(3, "TIT2", latin("") + Bytes(300, 'x')) + artist3), std::u16string(128, 'x')},
  };
  for (const auto &[file, text] : cases) EXPECT_EQ(read_tags(file), text) << file.size();
}

}  // namespace
