// ASF scan over hand-built object images.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "tests/support/fixtures.h"

namespace {

using Bytes = std::vector<u8>;

// ---- ASF image builders --------------------------------------------------

void put(Bytes &b, const Bytes &more) { b.insert(b.end(), more.begin(), more.end()); }
Bytes le16(u32 v) { return {static_cast<u8>(v), static_cast<u8>(v >> 8)}; }
Bytes le32(u32 v) { return {static_cast<u8>(v), static_cast<u8>(v >> 8), static_cast<u8>(v >> 16), static_cast<u8>(v >> 24)}; }
Bytes le64(u64 v) {
  Bytes b = le32(static_cast<u32>(v));
  put(b, le32(static_cast<u32>(v >> 32)));
  return b;
}
Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) put(b, p);
  return b;
}

// Object and stream type GUIDs as they lie in a file.
const Bytes HEADER_OBJECT = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                             0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const Bytes FILE_PROPERTIES = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                               0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
const Bytes CONTENT_DESCRIPTION = {0x33, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                   0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const Bytes STREAM_PROPERTIES = {0x91, 0x07, 0xDC, 0xB7, 0xB7, 0xA9, 0xCF, 0x11,
                                 0x8E, 0xE6, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
const Bytes AUDIO_MEDIA = {0x40, 0x9E, 0x69, 0xF8, 0x4D, 0x5B, 0xCF, 0x11,
                           0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B};
const Bytes VIDEO_MEDIA = {0xC0, 0xEF, 0x19, 0xBC, 0x4D, 0x5B, 0xCF, 0x11,
                           0xA8, 0xFD, 0x00, 0x80, 0x5F, 0x5C, 0x44, 0x2B};

Bytes object(const Bytes &guid, const Bytes &body) { return cat({guid, le64(body.size() + 24), body}); }

Bytes header_object(std::initializer_list<Bytes> children) {
  const Bytes kids = cat(children);
  return object(HEADER_OBJECT, cat({le32(static_cast<u32>(children.size())), Bytes{1, 2}, kids}));
}

// Play duration in 100 ns units (preroll included), preroll in ms.
Bytes file_properties(u64 duration, u64 preroll_ms) {
  return object(FILE_PROPERTIES, cat({Bytes(16, 0xF1), le64(123456), le64(0), le64(10), le64(duration),
                                      le64(duration), le64(preroll_ms), le32(2), le32(3200), le32(3200), le32(0)}));
}

// UTF-16LE text with its terminating null.
Bytes utf16(const std::string &text) {
  Bytes b;
  for (char c : text) put(b, le16(static_cast<u8>(c)));
  put(b, le16(0));
  return b;
}

Bytes content_description(const Bytes &title, const Bytes &author) {
  return object(CONTENT_DESCRIPTION, cat({le16(static_cast<u32>(title.size())), le16(static_cast<u32>(author.size())),
                                          le16(0), le16(0), le16(0), title, author}));
}

Bytes stream_properties(const Bytes &type, const Bytes &type_data, u32 number) {
  return object(STREAM_PROPERTIES, cat({type, Bytes(16, 0xEC), le64(0), le32(static_cast<u32>(type_data.size())),
                                        le32(0), le16(number), le32(0), type_data}));
}

// WAVEFORMATEX.
Bytes audio_stream(u32 tag, u32 channels, u32 rate, u32 byte_rate, u32 number = 1) {
  return stream_properties(
      AUDIO_MEDIA, cat({le16(tag), le16(channels), le32(rate), le32(byte_rate), le16(4), le16(16), le16(0)}), number);
}

// Encoded size, flags, format size, then a BITMAPINFOHEADER.
Bytes video_stream(u32 width, u32 height, const char *compression, u32 number = 2) {
  const Bytes bmp = cat({le32(40), le32(width), le32(height), le16(1), le16(24),
                         Bytes(compression, compression + 4), Bytes(20, 0)});
  return stream_properties(VIDEO_MEDIA, cat({le32(width + 1), le32(height + 1), Bytes{2}, le16(40), bmp}), number);
}

// A header object and packet bytes behind it: the audio stream type is
// searched for only in the first quarter of the buffer.
Bytes asf(std::initializer_list<Bytes> children) { return cat({header_object(children), Bytes(1024, 0x82)}); }

// A two-second WMV: 320x240 WMV2 and 128 kbit/s stereo WMA2, preroll 3 s.
Bytes wmv() {
  return asf({file_properties(50000000, 3000), content_description(utf16("Song"), utf16("Band")),
              audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000), video_stream(320, 240, "WMV2")});
}

// ---- running the scan ----------------------------------------------------

struct Scan {
  u32 result;
  MediaInfo record;
  std::string out;
};

// The image in a buffer of exactly its size (or zero-padded to `length`).
Scan scan(const Bytes &image, u32 file_size = 1000000, MediaInfo start = {}, size_t length = 0) {
  Bytes exact(image);
  if (length != 0) exact.resize(length, 0);
  exact.shrink_to_fit();
  start.file_size = file_size;
  Scan s{0, start, ""};
  testing::internal::CaptureStdout();
  s.result = WM_prescan(nullptr, exact.data(), static_cast<u32>(exact.size()), &s.record);
  s.out = testing::internal::GetCapturedStdout();
  return s;
}

// `object` placed so that its byte `mark` lies at `position` of the image.
Bytes placed(const Bytes &object, size_t mark, size_t position) {
  Bytes b = header_object({});
  b.resize(position - mark, 0x5A);
  put(b, object);
  return b;
}

// ---- recognition ---------------------------------------------------------

TEST(AsfScan, RefusesBuffersWithoutHeaderObject) {
  Bytes other = wmv();
  other[3] ^= 0x01;
  MediaInfo marked{};
  marked.play_time = 77;
  for (const Bytes &image : {other, Bytes{}, Bytes(HEADER_OBJECT)}) {
    const Scan s = scan(image, 5000, marked);
    EXPECT_EQ(s.result, 0u);
    marked.file_size = 5000;
    EXPECT_EQ(std::memcmp(&s.record, &marked, sizeof marked), 0);
    EXPECT_EQ(s.out, "");
  }
}

// The Header Object is accepted anywhere up to 128 bytes before the end.
TEST(AsfScan, HeaderObjectSearchRange) {
  struct Row {
    size_t at, length;
    u32 result;
  } const rows[] = {{0, 128, 1}, {0, 127, 0}, {37, 165, 1}, {37, 164, 0}, {1000, 4096, 1}, {3969, 4096, 0}};
  for (const Row &row : rows) {
    Bytes image(row.at, 0xAB);
    put(image, HEADER_OBJECT);
    EXPECT_EQ(scan(image, 0, {}, row.length).result, row.result) << row.at << " in " << row.length;
  }
}

TEST(AsfScan, TypicalWmv) {
  const Scan s = scan(wmv(), 1000000);
  ASSERT_EQ(s.result, 1u);
  const MediaInfo &r = s.record;
  EXPECT_EQ(r.play_time, 2000u);  // 5 s of duration less 3 s of preroll
  EXPECT_EQ(r.video_codec, fourcc("WMV2"));
  EXPECT_EQ(r.video_width, 320u);  // the bitmap's, not the encoded size
  EXPECT_EQ(r.video_height, 240u);
  EXPECT_EQ(r.video_bitrate, 8000000u / 2000u * 1000u);
  EXPECT_FLOAT_EQ(r.aspect_ratio, 4.0f / 3.0f);
  EXPECT_EQ(r.audio_count, 1u);
  EXPECT_EQ(r.audio[0].audio_codec, WAVE_FORMAT_WMA2);
  EXPECT_EQ(r.audio[0].audio_channels, 2u);
  EXPECT_EQ(r.audio[0].audio_sample_rate, 44100u);
  EXPECT_EQ(r.audio[0].audio_bitrate, 128000u);
  // Not read from ASF.
  EXPECT_EQ(r.frame_rate, 0.0f);
  EXPECT_EQ(r.video_bits_per_pixel, 0.0f);
  EXPECT_EQ(r.subtitle_count, 0u);
  EXPECT_EQ(s.out, "Taille0[10], Taille1[10]\n");
}

TEST(AsfScan, PlayTimeIsDurationLessPreroll) {
  struct Row {
    u64 duration;  // 100 ns
    u64 preroll;   // ms
    u32 play_time;
  } const rows[] = {
      {90ull * 60 * 10000000, 3100, 5396900},           // 90 minutes
      {20469999, 0, 2046},                              // whole milliseconds only
      {10000000, 3000, static_cast<u32>(1000 - 3000)},  // preroll longer: wraps
      {((1ull << 32) + 5000) * 10000, 0, 5000},         // kept as a 32-bit word
      {50000000, (7ull << 32) + 1000, 4000},            // the preroll's low word
  };
  for (const Row &row : rows) {
    const Scan s = scan(asf({file_properties(row.duration, row.preroll)}));
    EXPECT_EQ(s.record.play_time, row.play_time) << row.duration << " " << row.preroll;
  }
}

// ---- title and author ----------------------------------------------------

Bytes tag_block(const Bytes &start) {
  Bytes b(TAG_INFO_SIZE, 0);
  std::copy(start.begin(), start.end(), b.begin());
  return b;
}

Bytes prefix(const Bytes &b, size_t n) { return Bytes(b.begin(), b.begin() + static_cast<long>(n)); }
const Bytes SEPARATOR = {0x20, 0x00, 0x2D, 0x00, 0x20, 0x00};

TEST(AsfScan, TitleAndAuthorCopying) {
  const Bytes title10 = utf16("Tune");      // 10 bytes with the null
  const Bytes author8 = utf16("Art");       // 8 bytes
  const Bytes title200 = utf16(std::string(99, 'T'));
  const Bytes author300 = utf16(std::string(149, 'A'));
  struct Row {
    const char *what;
    Bytes title, author;
    Bytes expected;
  } const rows[] = {
      {"separator over the null", title10, author8, cat({prefix(title10, 8), SEPARATOR, author8})},
      {"empty title", utf16(""), author8, cat({le16(0), author8})},
      {"no title", {}, author8, author8},
      {"no author", title10, {}, cat({prefix(title10, 8), SEPARATOR})},
      {"long title cut", title200, author8, cat({prefix(title200, 126), SEPARATOR, author8})},
      {"long author cut", title10, author300, cat({prefix(title10, 8), SEPARATOR, prefix(author300, 128)})},
      {"both cut", title200, author300, cat({prefix(title200, 126), SEPARATOR, prefix(author300, 128)})},
      {"odd title", Bytes{'a', 'b', 'c'}, author8, cat({Bytes{'a'}, SEPARATOR, author8})},
  };
  for (const Row &row : rows) {
    const Scan s = scan(asf({content_description(row.title, row.author)}));
    const Bytes got(s.record.tag_info, s.record.tag_info + TAG_INFO_SIZE);
    EXPECT_EQ(got, tag_block(row.expected)) << row.what;
    EXPECT_EQ(s.out, "Taille0[" + std::to_string(row.title.size()) + "], Taille1[" +
                         std::to_string(row.author.size()) + "]\n")
        << row.what;
  }
}

// ---- stream types --------------------------------------------------------

TEST(AsfScan, AudioStreamFields) {
  const Scan s = scan(asf({audio_stream(WAVE_FORMAT_WMA1, 0x0102, 22050, 4000),
                           audio_stream(WAVE_FORMAT_WMA3, 6, 48000, 24000, 2)}));
  const MediaInfo &r = s.record;
  EXPECT_EQ(r.audio_count, 1u);  // the first stream only
  EXPECT_EQ(r.audio[0].audio_codec, WAVE_FORMAT_WMA1);
  EXPECT_EQ(r.audio[0].audio_channels, 2u);  // the low byte of the channel field
  EXPECT_EQ(r.audio[0].audio_sample_rate, 22050u);
  EXPECT_EQ(r.audio[0].audio_bitrate, 32000u);
  EXPECT_EQ(r.audio[1].audio_codec, 0u);
  EXPECT_EQ(r.video_codec, 0u);
  EXPECT_EQ(r.video_bitrate, 0u);
}

// A stream type counts only when first found at 65532 or before; the audio
// type is besides searched only in the first quarter of the buffer.
TEST(AsfScan, StreamTypeSearchBounds) {
  constexpr size_t TYPE_AT = 24;  // the type GUID's place in its object
  const Bytes audio = audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000);
  const Bytes video = video_stream(640, 480, "WMV3");
  struct Row {
    const char *what;
    bool is_video;
    size_t at, length;
    bool found;
  } const rows[] = {
      {"audio at 65532", false, 65532, PRESCAN_HEAD_SIZE, true},
      {"audio at 65533", false, 65533, PRESCAN_HEAD_SIZE, false},
      {"video at 65532", true, 65532, PRESCAN_HEAD_SIZE, true},
      {"video at 65533", true, 65533, PRESCAN_HEAD_SIZE, false},
      {"audio at a quarter less 4", false, 996, 4000, true},
      {"audio past a quarter less 4", false, 997, 4000, false},
      {"video past a quarter", true, 2000, 4000, true},
  };
  for (const Row &row : rows) {
    const Bytes image = placed(row.is_video ? video : audio, TYPE_AT, row.at);
    const Scan s = scan(image, 1000000, {}, row.length);
    EXPECT_EQ(s.result, 1u) << row.what;
    if (row.is_video) {
      EXPECT_EQ(s.record.video_codec, row.found ? fourcc("WMV3") : 0u) << row.what;
      EXPECT_EQ(s.record.video_width, row.found ? 640u : 0u) << row.what;
    } else {
      EXPECT_EQ(s.record.audio_count, row.found ? 1u : 0u) << row.what;
      EXPECT_EQ(s.record.audio[0].audio_sample_rate, row.found ? 44100u : 0u) << row.what;
    }
  }
}

// The first copy of a stream type GUID is taken, wherever it lies (say in
// a text): its fields are read at their fixed distances from it.
TEST(AsfScan, FirstMatchOfAStreamTypeCounts) {
  Bytes image = header_object({});
  put(image, Bytes(40, 0));
  const size_t stray = image.size();
  put(image, VIDEO_MEDIA);
  put(image, Bytes(100, 0));
  image[stray + 81] = 'X';
  image[stray + 82] = 'Y';
  image[stray + 83] = 'Z';
  image[stray + 84] = 'W';
  put(image, video_stream(320, 240, "WMV1"));
  const Scan s = scan(image);
  EXPECT_EQ(s.record.video_codec, fourcc("XYZW"));
}

TEST(AsfScan, VideoBitRate) {
  struct Row {
    u32 file_size;
    u32 bitrate;
  } const rows[] = {
      {1000000, 4000000},      // 8,000,000 bits over 2000 ms
      {1000249, 4000000},      // whole bits per millisecond only
      {629145600, 369098000},  // 600 MiB: 5,033,164,800 bits wrap to 738,197,504
  };
  for (const Row &row : rows) {
    const Scan s = scan(asf({file_properties(20000000, 0), video_stream(320, 240, "WMV3")}), row.file_size);
    EXPECT_EQ(s.record.video_bitrate, row.bitrate) << row.file_size;
  }
  // Without a play time there is no bit rate (and no division by zero).
  const Scan s = scan(asf({video_stream(720, 576, "WMV3")}));
  EXPECT_EQ(s.result, 1u);
  EXPECT_EQ(s.record.play_time, 0u);
  EXPECT_EQ(s.record.video_bitrate, 0u);
  EXPECT_FLOAT_EQ(s.record.aspect_ratio, 4.0f / 3.0f);
}

// ---- damaged and truncated images -----------------------------------------

// Every cut reads only what is there: an object whose fields do not fit is
// absent, and a text is copied as far as the buffer goes.
TEST(AsfScan, EveryTruncationIsReadSafely) {
  const Bytes whole = wmv();
  for (size_t n = 0; n <= whole.size(); ++n) {
    const Scan s = scan(prefix(whole, n));
    EXPECT_EQ(s.result, n >= 128 ? 1u : 0u) << n;
    EXPECT_TRUE(s.record.video_codec == 0 || s.record.video_codec == fourcc("WMV2")) << n;
  }
}

TEST(AsfScan, ObjectsCutByTheBufferEnd) {
  const Bytes fp = file_properties(50000000, 3000);
  const Bytes cd = content_description(utf16("Tune"), utf16("Art"));
  const Bytes video = video_stream(320, 240, "WMV3");
  // Far enough in that the Header Object's search range reaches the end.
  const Bytes front = cat({header_object({}), Bytes(128, 0)});
  // (The audio type is searched in the first quarter only, so its fields
  // always lie in the buffer.)
  struct Row {
    const char *what;
    Bytes image;
    u32 play_time, video_codec;
    Bytes tag;
  } const rows[] = {
      {"preroll complete", cat({front, prefix(fp, 84)}), 2000, 0, {}},
      {"preroll cut", cat({front, prefix(fp, 83)}), 0, 0, {}},
      {"compression complete", cat({front, prefix(video, 24 + 85)}), 0, fourcc("WMV3"), {}},
      {"compression cut", cat({front, prefix(video, 24 + 84)}), 0, 0, {}},
      {"author cut", cat({front, prefix(cd, 34 + 10 + 3)}), 0, 0,
       cat({prefix(utf16("Tune"), 8), SEPARATOR, Bytes{'A', 0, 'r'}})},
      {"title cut", cat({front, prefix(cd, 34 + 5)}), 0, 0, cat({Bytes{'T', 0, 'u'}, SEPARATOR})},
  };
  for (const Row &row : rows) {
    const Scan s = scan(row.image);
    EXPECT_EQ(s.result, 1u) << row.what;
    EXPECT_EQ(s.record.play_time, row.play_time) << row.what;
    EXPECT_EQ(s.record.video_codec, row.video_codec) << row.what;
    const Bytes got(s.record.tag_info, s.record.tag_info + TAG_INFO_SIZE);
    EXPECT_EQ(got, tag_block(row.tag)) << row.what;
  }
}

}  // namespace
