// Ogg and FLAC scans over hand-built Ogg pages (Vorbis identification and
// comment headers, Ogg media stream headers) and FLAC metadata blocks
// (STREAMINFO, APPLICATION, VORBIS_COMMENT).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "info/byte_order.h"
#include "info/vorbis_comment.h"
#include "tests/support/fixtures.h"

namespace {

using Bytes = std::vector<u8>;
void add(Bytes &b, const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); }
void add(Bytes &b, const std::string &text) { b.insert(b.end(), text.begin(), text.end()); }
void le(Bytes &b, u64 v, int n) {
  for (int i = 0; i < n; ++i) b.push_back(i < 8 ? static_cast<u8>(v >> (8 * i)) : 0);
}
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) add(b, p);
  return b;
}
Bytes sized(Bytes b, size_t n, u8 fill = 0) {
  b.resize(n, fill);
  return b;
}

// The tag block's UTF-16 text up to its NUL.
std::u16string tag_text(const MediaInfo &r) {
  std::u16string s;
  for (u32 i = 0; i + 1 < TAG_INFO_SIZE && (r.tag_info[i] | r.tag_info[i + 1]) != 0; i += 2)
    s.push_back(static_cast<char16_t>(r.tag_info[i] | (r.tag_info[i + 1] << 8)));
  return s;
}
std::u16string widen(const std::string &s) { return std::u16string(s.begin(), s.end()); }

// An Ogg page holding whole packets, each with its own lacing values.
Bytes page(u64 granule, const std::vector<Bytes> &packets) {
  Bytes b, lacing, data;
  add(b, std::string("OggS\0\0", 6));
  le(b, granule, 8);
  le(b, 0, 12);  // serial, sequence, CRC: not read
  for (const Bytes &p : packets) {
    for (size_t n = p.size(); ; n -= 255) {
      lacing.push_back(static_cast<u8>(n < 255 ? n : 255));
      if (n < 255) break;
    }
    add(data, p);
  }
  b.push_back(static_cast<u8>(lacing.size()));
  add(b, lacing);
  add(b, data);
  return b;
}
// Vorbis identification header: version, channels, rate, maximum, nominal
// and minimum bit rates, block sizes, framing.
Bytes vorbis_id(u32 channels, u32 rate, u32 nominal) {
  Bytes b{1, 'v', 'o', 'r', 'b', 'i', 's', 0, 0, 0, 0, static_cast<u8>(channels)};
  le(b, rate, 4);
  le(b, 0, 4);
  le(b, nominal, 4);
  le(b, 0, 4);
  add(b, Bytes{0xB8, 1});
  return b;
}
// Vendor, comments each behind a 32-bit length; Ogg ends with the framing bit.
Bytes comment_list(const std::vector<std::string> &comments, bool framing = true) {
  Bytes b;
  le(b, 3, 4);
  add(b, std::string("pmx"));
  le(b, comments.size(), 4);
  for (const std::string &c : comments) {
    le(b, c.size(), 4);
    add(b, c);
  }
  if (framing) b.push_back(1);
  return b;
}
Bytes vorbis_headers(const std::vector<std::string> &comments) {
  Bytes comment{3, 'v', 'o', 'r', 'b', 'i', 's'}, setup{5, 'v', 'o', 'r', 'b', 'i', 's'};
  add(comment, comment_list(comments));
  add(setup, Bytes(40, 'B'));
  return page(0, {comment, setup});
}
// Ogg media stream header: type 1, stream type, subtype, size, time unit,
// samples per unit, default length, buffer size, bits per sample, padding,
// then width and height, or channels, block align and bytes per second.
Bytes ogm(const char *kind, const char *subtype, u64 unit, u64 per_unit, u32 a, u32 b) {
  Bytes h{1};
  add(h, sized(Bytes(kind, kind + 5), 8));
  add(h, Bytes(subtype, subtype + 4));
  le(h, 0x38, 4);
  le(h, unit, 8);
  le(h, per_unit, 8);
  le(h, 0, 12);
  le(h, a, 4);
  le(h, b, 4);
  return h;
}
Bytes noise(size_t n) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i) b[i] = static_cast<u8>(0x11 + i % 200);
  return b;
}
Bytes vorbis_file(u32 rate, u32 nominal, u64 granule, const std::vector<std::string> &comments = {}) {
  Bytes b = page(0, {vorbis_id(2, rate, nominal)});
  add(b, vorbis_headers(comments));
  add(b, page(granule / 2, {noise(200)}));
  add(b, page(granule, {noise(200)}));
  return b;
}

struct Scan {
  u32 found = 0;
  MediaInfo record{};
  std::string out;
};
using Scanner = u32 (*)(MAIOSFile *, u8 *, u32, MediaInfo *);
u32 flac_scan(MAIOSFile *f, u8 *b, u32 n, MediaInfo *r) { return Flac_prescan(f, b, n, r); }

// The whole image is the file; the head buffer is exactly the image (reads
// past it are caught under the address sanitizer), or `head` bytes of it,
// zero padded, as the driver reads 1 MiB.
Scan scan(Scanner scanner, const Bytes &image, size_t head_size = 0, u32 audio_count = 0) {
  const std::string path = fixtures::temp_file("scan.img", image);
  MAIOSFile *file = MAIOSFileOpenForRead(path.c_str());
  Bytes head = sized(image, head_size != 0 ? head_size : image.size());
  Scan s;
  s.record.file_size = static_cast<u32>(image.size());
  s.record.audio_count = audio_count;
  testing::internal::CaptureStdout();
  s.found = scanner(file, head.data(), static_cast<u32>(head.size()), &s.record);
  s.out = testing::internal::GetCapturedStdout();
  MAIOSFileClose(file);
  return s;
}
u32 float_ms(u32 granule, u32 rate) { return u32(float(granule) * 1000.0f / float(rate)); }

TEST(OggScan, StreamHeaders) {
  struct Case {
    const char *what;
    Bytes image;
    u32 video, width, height;
    float fps;
    u32 codec, rate, channels, bitrate;
  };
  const Case cases[] = {
      {"Vorbis", vorbis_file(44100, 128000, 88200), 0, 0, 0, 0, WAVE_FORMAT_VORBIS1, 44100, 2, 128000},
      {"Ogg media", cat({page(0, {ogm("video", "DX50", 400000, 1, 640, 352)}),
                               page(0, {ogm("audio", "\1\0\0\0", 10000000, 48000, 6, 24000)}), page(96000, {noise(300)})}),
       fourcc("DX50"), 640, 352, 25.0f, WAVE_FORMAT_VORBIS1, 48000, 6, 192000},
      {"no time unit", sized(page(0, {ogm("video", "XVID", 0, 1, 320, 240)}), 300), fourcc("XVID"), 320, 240, 0.0f, 0,
       0, 0, 0},
      // The header offsets assume a one-segment page: an identification
      // header sharing its page goes unseen.
      {"two segments", sized(page(0, {vorbis_id(2, 44100, 128000), noise(20)}), 300), 0, 0, 0, 0, 0, 0, 0, 0},
      {"too short to walk", sized(page(0, {vorbis_id(2, 44100, 128000)}), 100), 0, 0, 0, 0, 0, 0, 0, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Ogg_prescan, c.image);
    const MediaInfo &r = s.record;
    EXPECT_EQ(s.found, 1u) << c.what;
    EXPECT_EQ(std::vector<u32>({r.video_codec, r.video_width, r.video_height, r.audio[0].audio_codec,
                                r.audio[0].audio_sample_rate, r.audio[0].audio_channels, r.audio[0].audio_bitrate,
                                r.audio_count}),
              std::vector<u32>({c.video, c.width, c.height, c.codec, c.rate, c.channels, c.bitrate, 1}))
        << c.what;
    EXPECT_FLOAT_EQ(r.frame_rate, c.fps) << c.what;
  }
  EXPECT_EQ(scan(Ogg_prescan, sized(vorbis_file(44100, 0, 1), 3)).found, 0u);
}

TEST(OggScan, PlayTime) {
  // 1.5 MiB: the last MiB is read; a page starting in its last 100 bytes
  // is not looked at.
  Bytes large = sized(vorbis_file(44100, 128000, 44100), 1536 * 1024, 'U');
  add(large, page(441000, {noise(300)}));
  add(large, page(882000, {noise(40)}));
  // Filler up to 40000 bytes, then a last page with `granule`.
  auto padded = [](u32 nominal, u64 granule) {
    Bytes b = sized(page(0, {vorbis_id(2, 44100, nominal)}), 39700, 'w');
    if (granule != 0) add(b, page(granule, {noise(200)}));
    return sized(b, 40000, 'w');
  };
  struct Case {
    const char *what;
    Bytes image;
    size_t head;
    u32 play_time;
  };
  const Case cases[] = {
      {"last page", vorbis_file(44100, 128000, 136710), 0, 3100},
      {"last MiB", large, PRESCAN_HEAD_SIZE, 10000},
      // Under 1 MiB the tail seek lands past the end: the head holds it all.
      {"short file", vorbis_file(22050, 0, 165375), PRESCAN_HEAD_SIZE, float_ms(165375, 22050)},
      {"low 32 bits", vorbis_file(48000, 0, (u64{1} << 32) + 96000), 0, 2000},
      {"single precision", vorbis_file(44100, 0, 16777217), 0, float_ms(16777216, 44100)},
      // A second or less: 40000 bytes at 16000 bytes/s, and the remainder
      // 8000 divided by the bit rate, not the byte rate: 2000 + 62.
      {"1000 ms", padded(128000, 44100), 0, 2062},
      {"1001 ms", padded(128000, 44145), 0, 1001},
      {"no last page", padded(128000, 0), 0, 2062},
      {"no bit rate", padded(0, 22050), 0, 500},
      {"bit rate below 8", padded(7, 22050), 0, 500},
  };
  for (const Case &c : cases) EXPECT_EQ(scan(Ogg_prescan, c.image, c.head).record.play_time, c.play_time) << c.what;
}

TEST(VorbisComment, TitleAndArtist) {
  auto text = [](const std::string &s) { return sized(Bytes(s.begin(), s.end()), s.size() + 16); };
  const std::string z(1, '\0');
  struct Case {
    const char *what;
    Bytes data;
    std::u16string tag;
  };
  const Case cases[] = {
      // A value ends at a zero pair, its text at its first zero byte.
      {"plain", text("TITLE=abc" + z + "ARTIST=xyz"), u"abc - xyz"},
      // In a comment list the next length word's low byte comes along, and
      // the framing bit after the last comment; a low byte of 0 ends it.
      {"comment list", comment_list({"TITLE=abc", "ARTIST=xyz"}), u"abc\x0A - xyz\x01"},
      {"next comment of 256", comment_list({"TITLE=abc", std::string(256, 'D'), "ARTIST=xyz"}), u"abc - xyz\x01"},
      {"artist only", text("ARTIST=xyz"), u"xyz"},
      {"title of 2 bytes", text("TITLE=a" + z + "ARTIST=xyz"), u"axyz"},  // separator needs 3 bytes
      {"utf-8", text("TITLE=\xC3\xA9t\xE2\x82\xAC \xC1\x41"), u"\u00E9t\u20AC A"},  // no continuation checks
      {"zero as continuation", text("TITLE=\xC3" + z + "x"), u"\u00C0x"},  // only a zero pair ends the value
      {"FLAC frame sync", text("TITLE=ab\xFF\xF8rest"), u"ab\uFE32est"},  // ends only a FLAC value
      {"128-byte value", text("TITLE=" + std::string(200, 'T')), widen(std::string(128, 'T'))},
      {"256-byte text", text("TITLE=" + std::string(120, 'T') + z + "ARTIST=" + std::string(120, 'A')),
       widen(std::string(120, 'T') + " - AAAAA")},
      // "TITLE=" may start 8 bytes before the end at the latest.
      {"at the end", Bytes{'x', 'T', 'I', 'T', 'L', 'E', '=', 'a', 'b'}, u"ab"},
      {"too near the end", Bytes{'x', 'x', 'T', 'I', 'T', 'L', 'E', '=', 'a'}, u""},
      // The search stops at the '=' of a name: "ARTIST=" reaches one byte
      // further, to the last byte but one.
      {"artist at the end", Bytes{'x', 'A', 'R', 'T', 'I', 'S', 'T', '=', 'a'}, u"a"},
      {"artist too near the end", Bytes{'x', 'x', 'A', 'R', 'T', 'I', 'S', 'T', '='}, u""},
  };
  for (const Case &c : cases) {
    MediaInfo r{};
    Vorbis_comment_search(c.data.data(), u32(c.data.size()), &r, CommentSource::Ogg);
    EXPECT_EQ(tag_text(r), c.tag) << c.what;
  }
}

TEST(OggScan, CommentsOnlyForVorbis) {
  // The artist runs on through the framing bit and the setup header to the
  // zero pair after the next page's capture pattern.
  const Scan s = scan(Ogg_prescan, vorbis_file(44100, 0, 88200, {"TITLE=abc", "ARTIST=xyz"}));
  EXPECT_EQ(tag_text(s.record), u"abc\x0A - xyz\x01\x05vorbis" + std::u16string(40, u'B') + u"OggS");
  EXPECT_EQ(s.out, "");
  Bytes ogm_file = page(0, {ogm("video", "DX50", 400000, 1, 640, 352)});
  add(ogm_file, sized(vorbis_headers({"TITLE=abc"}), 300));
  EXPECT_EQ(tag_text(scan(Ogg_prescan, ogm_file).record), u"");
}

Bytes block(bool last, u32 type, const Bytes &data) {
  const u32 h = (last ? 0x80000000u : 0) | type << 24 | u32(data.size());
  Bytes b{u8(h >> 24), u8(h >> 16), u8(h >> 8), u8(h)};
  add(b, data);
  return b;
}
// STREAMINFO: block and frame sizes, then rate (20 bits), channels - 1 (3),
// bits - 1 (5), samples (36), MD5. Sizes and MD5 hold no word that a
// creeping walk could take for a block header.
Bytes streaminfo(u32 rate, u32 channels, u32 bits, u64 samples, bool last = false) {
  Bytes d(10, 0x12);
  const u64 v = u64{rate} << 44 | u64{channels - 1} << 41 | u64{bits - 1} << 36 | samples;
  for (int i = 7; i >= 0; --i) d.push_back(u8(v >> (8 * i)));
  return block(last, 0, sized(d, 34, 0x11));
}
Bytes flac(std::initializer_list<Bytes> blocks) { return cat({Bytes{'f', 'L', 'a', 'C'}, cat(blocks)}); }
Bytes frames(size_t n) { return sized(Bytes{0xFF, 0xF8, 0x69, 0x08}, n, 0x5A); }

TEST(FlacScan, StreamInfo) {
  struct Case {
    const char *what;
    u32 rate, channels, bits;
    u64 samples;
    u32 play_time, bitrate;
  };
  const u32 size = 4 + 38 + 4000;
  const Case cases[] = {
      // Whole seconds; bits per second = size / (seconds x 125) x 1000.
      {"3.9 s", 44100, 2, 16, 171990, 3000, size / 375 * 1000},
      {"24 bit 5.1", 96000, 6, 24, 96000 * 2, 2000, size / 250 * 1000},
      {"36-bit count", 48000, 8, 32, (u64{3} << 32) + 48000 * 5, 5000, size / 625 * 1000},  // high bits left out
      {"under 1 s", 44100, 1, 8, 22050, 0, 0},
      {"high bits only", 44100, 2, 16, u64{1} << 32, 0, 0},
      {"no sample rate", 0, 2, 16, 88200, 0, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(flac_scan, flac({streaminfo(c.rate, c.channels, c.bits, c.samples), frames(4000)}));
    const MediaInfo &r = s.record;
    EXPECT_EQ(s.found, 1u) << c.what;
    EXPECT_EQ(std::vector<u32>({r.audio[0].audio_codec, r.audio[0].audio_sample_rate, r.audio[0].audio_channels,
                                r.bits_per_sample, r.play_time, r.audio[0].audio_bitrate, r.audio_count}),
              std::vector<u32>({AUDIO_CODEC_FLAC, c.rate, c.channels, c.bits, c.play_time, c.bitrate, 1}))
        << c.what;
    EXPECT_EQ(s.out, ">>> vorbis comment found !!") << c.what;
  }
}

TEST(FlacScan, MetadataWalk) {
  // Application data of 0x01 bytes reads as nonempty blocks all along: the
  // walk creeps through it 5 bytes at a time from offset 4.
  auto app = [](size_t n, bool last = false) { return block(last, 2, Bytes(n, 1)); };
  const Bytes info = streaminfo(32000, 2, 16, 64000);
  struct Case {
    const char *what;
    Bytes image;
    u32 found;
  };
  const Case cases[] = {
      {"first", flac({info}), 1},
      {"after 16 bytes", flac({app(16), info}), 1},  // 8 + 16 = 4 + 4 x 5
      {"after 17 bytes", flac({app(17), info}), 0},
      {"after 18 bytes", flac({app(18), info}), 0},
      {"after an empty block", flac({block(false, 1, {}), Bytes(4, 1), info}), 1},  // steps 8
      {"behind the last block", flac({app(16, true), info}), 0},
      {"flagged last itself", flac({streaminfo(32000, 2, 16, 64000, true)}), 1},
      {"fields cut off", flac({sized(info, 21)}), 0},
      {"fields inside", flac({sized(info, 22)}), 1},
      {"not FLAC", Bytes{'f', 'L', 'a', 'c', 0, 0, 0, 34}, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(flac_scan, c.image);
    EXPECT_EQ(s.found, c.found) << c.what;
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.found * 32000) << c.what;
    EXPECT_EQ(s.out.empty(), c.found == 0) << c.what;
  }
}

// Zero bytes read as empty blocks that are not the last, stepped over 8
// bytes at a time: through a run of any length, and up to the end of the
// buffer, where the walk ends.
TEST(FlacScan, ZeroRuns) {
  const Bytes info = streaminfo(32000, 2, 16, 64000);
  struct Case {
    size_t gap;
    bool info;
    u32 found;
  };
  const Case cases[] = {
      {8, true, 1}, {16, true, 1}, {4096, true, 1}, {4, false, 0}, {7, false, 0}, {8, false, 0}, {11, false, 0},
      {12, false, 0}, {4099, false, 0},
  };
  for (const Case &c : cases) {
    const Scan s = scan(flac_scan, c.info ? flac({Bytes(c.gap, 0), info}) : flac({Bytes(c.gap, 0)}));
    EXPECT_EQ(s.found, c.found) << c.gap;
    EXPECT_EQ(s.record.audio[0].audio_sample_rate, c.found * 32000) << c.gap;
  }
}

TEST(FlacScan, Comments) {
  const Bytes comments = block(true, 4, comment_list({"TITLE=abc", "ARTIST=xyz"}, false));
  Scan s = scan(flac_scan, flac({streaminfo(44100, 2, 16, 88200), comments, frames(500)}));
  EXPECT_EQ(s.out, ">>> vorbis comment found !!>>> vorbis comment title found !!>>> vorbis comment artist found !!");
  EXPECT_EQ(tag_text(s.record), u"abc\x0A - xyz");  // the artist ends at the frame sync FF F8
  // With an audio count already set, the first other block leads straight
  // to the comments.
  s = scan(flac_scan, flac({block(false, 4, comment_list({"TITLE=abc"}, false)), streaminfo(44100, 2, 16, 88200)}), 0,
           1);
  EXPECT_EQ(s.found, 1u);
  EXPECT_EQ(s.record.audio[0].audio_codec, 0u);
  EXPECT_EQ(tag_text(s.record), u"abc");
}

}  // namespace
