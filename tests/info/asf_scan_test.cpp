// ASF scan over hand-built object images. The scan does not walk objects:
// it searches the head buffer for GUIDs and reads fields at fixed distances
// from them, so these cases place GUIDs at the edges of the searched ranges
// and cut objects at the end of the buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "info/byte_order.h"
#include "tests/info/image.h"

namespace {

// A GUID as written, "aaaaaaaa-bbbb-cccc-tail", as it lies in the file.
Bytes guid(u32 a, u32 b, u32 c, u64 tail) { return le(a, 4) + le(b, 2) + le(c, 2) + be(tail, 8); }
const Bytes HEADER = guid(0x75B22630, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
const Bytes FILE_PROPERTIES = guid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365);
const Bytes CONTENT_DESCRIPTION = guid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
const Bytes STREAM_PROPERTIES = guid(0xB7DC0791, 0xA9B7, 0x11CF, 0x8EE600C00C205365);
const Bytes AUDIO_MEDIA = guid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);
const Bytes VIDEO_MEDIA = guid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);

Bytes object(const Bytes &id, const Bytes &body) { return id + le(body.size() + 24, 8) + body; }
Bytes header_object(std::initializer_list<Bytes> children) {
  Bytes b = le(children.size(), 4) + Bytes{1, 2};
  for (const Bytes &c : children) b = b + c;
  return object(HEADER, b);
}
// Play duration in 100 ns units (preroll included), preroll in ms.
Bytes file_properties(u64 duration, u64 preroll) {
  return object(FILE_PROPERTIES, Bytes(40, 0xF1) + le(duration, 8) + le(duration, 8) + le(preroll, 8) + Bytes(16));
}
Bytes utf16(const std::string &text) {  // with its terminating null
  Bytes b;
  for (char c : text) b = b + le(static_cast<u8>(c), 2);
  return b + le(0, 2);
}
Bytes content_description(const Bytes &title, const Bytes &author) {
  return object(CONTENT_DESCRIPTION, le(title.size(), 2) + le(author.size(), 2) + Bytes(6) + title + author);
}
Bytes stream_properties(const Bytes &type, const Bytes &data) {
  return object(STREAM_PROPERTIES, type + Bytes(16, 0xEC) + le(0, 8) + le(data.size(), 4) + Bytes(10) + data);
}
Bytes audio_stream(u32 tag, u32 channels, u32 rate, u32 byte_rate) {  // WAVEFORMATEX
  return stream_properties(AUDIO_MEDIA, le(tag, 2) + le(channels, 2) + le(rate, 4) + le(byte_rate, 4) + le(4, 2) +
                                            le(16, 2) + le(0, 2));
}
// Encoded size, a flag byte, the format size, then a BITMAPINFOHEADER.
Bytes video_stream(u32 width, u32 height, const char *compression) {
  return stream_properties(VIDEO_MEDIA, le(width + 1, 4) + le(height + 1, 4) + Bytes{2} + le(40, 2) + le(40, 4) +
                                            le(width, 4) + le(height, 4) + le(1, 2) + le(24, 2) +
                                            Bytes(compression, compression + 4) + Bytes(20));
}
// Packet bytes behind the header: the audio type is searched for only in
// the first quarter of the buffer.
Bytes asf(std::initializer_list<Bytes> children) { return header_object(children) + Bytes(1024, 0x82); }
const Bytes SEPARATOR = {0x20, 0, 0x2D, 0, 0x20, 0};

Scan asf_scan(const Bytes &image, u32 file_size = 1000000) {
  return scan(WM_prescan, image, start_record(file_size));
}

// A file is ASF when the Header Object's GUID lies anywhere up to 128
// bytes before the end of the buffer; otherwise the record is untouched
// and nothing is printed.
TEST(AsfScan, HeaderObjectSearchRange) {
  const Bytes typical = asf({audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000)});
  const Case cases[] = {  // result
      {"typical", typical, {1}},         {"another GUID", patch(typical, 3, {0x74}), {0}},
      {"at 0 of 128", sized(HEADER, 128), {1}}, {"at 0 of 127", sized(HEADER, 127), {0}},
      {"at 37 of 165", sized(Bytes(37, 0xAB) + HEADER, 165), {1}},
      {"at 37 of 164", sized(Bytes(37, 0xAB) + HEADER, 164), {0}},
  };
  const MediaInfo marked = start_record(5000, 77);
  for (const Case &c : cases) {
    const Scan s = scan(WM_prescan, c.image, marked);
    EXPECT_EQ(s.result, c.want[0]) << c.what;
    if (s.result == 0) {
      EXPECT_EQ(std::memcmp(&s.record, &marked, sizeof marked), 0) << c.what;
      EXPECT_EQ(s.out, "") << c.what;
    }
  }
}

// The play time is the duration less the preroll, in unsigned words; the
// video bit rate is whole bits per millisecond of the file's size, whose
// bit count is a 32-bit word, times 1000.
TEST(AsfScan, PlayTimeAndVideoBitRate) {
  struct Row {
    const char *what;
    u64 duration, preroll;
    u32 file_size, play_time, bitrate;
  } const rows[] = {
      {"whole milliseconds", 20469999, 0, 1000000, 2046, 3910000},
      {"longer preroll wraps", 10000000, 3000, 1000000, 0u - 2000u, 0},
      {"whole bits per millisecond", 20000000, 0, 1000249, 2000, 4000000},
      {"600 MiB: the bit count wraps", 20000000, 0, 629145600, 2000, 369098000},
  };
  for (const Row &row : rows) {
    const Scan s = asf_scan(asf({file_properties(row.duration, row.preroll), video_stream(720, 576, "WMV3")}),
                            row.file_size);
    EXPECT_EQ(s.record.play_time, row.play_time) << row.what;
    EXPECT_EQ(s.record.video_bitrate, row.bitrate) << row.what;
    EXPECT_FLOAT_EQ(s.record.aspect_ratio, 4.0f / 3.0f) << row.what;
  }
  // Without a play time there is no bit rate (and no division by zero).
  EXPECT_EQ(asf_scan(asf({video_stream(720, 576, "WMV3")})).record.video_bitrate, 0u);
}

// Title and author go to the tag block as UTF-16LE "title - author": the
// separator takes the place of the title's null, each text is cut at 128
// bytes, and the author is read behind the whole title; a text cut by the
// end of the buffer is copied as far as it goes. The lengths are printed.
TEST(AsfScan, TitleAndAuthor) {
  const Bytes title = utf16("Tune"), author = utf16("Art");  // 10 and 8 bytes
  const Bytes long_title = utf16(std::string(99, 'T')), long_author = utf16(std::string(149, 'A'));
  auto cd = [](const Bytes &t, const Bytes &a) { return asf({content_description(t, a)}); };
  // Far enough in that the Header Object's search range reaches the end.
  const Bytes cut = header_object({}) + Bytes(128) + content_description(title, author);
  struct Row {
    const char *what;
    Bytes image, expected;
    const char *printed;
  } const rows[] = {
      {"both", cd(title, author), sized(title, 8) + SEPARATOR + author, "Taille0[10], Taille1[8]\n"},
      {"empty title", cd(utf16(""), author), le(0, 2) + author, "Taille0[2], Taille1[8]\n"},
      {"no title", cd({}, author), author, "Taille0[0], Taille1[8]\n"},
      {"no author", cd(title, {}), sized(title, 8) + SEPARATOR, "Taille0[10], Taille1[0]\n"},
      {"odd title", cd({'a', 'b', 'c'}, author), Bytes{'a'} + SEPARATOR + author, "Taille0[3], Taille1[8]\n"},
      {"long title", cd(long_title, author), sized(long_title, 126) + SEPARATOR + author, "Taille0[200], Taille1[8]\n"},
      {"long author", cd(title, long_author), sized(title, 8) + SEPARATOR + sized(long_author, 128),
       "Taille0[10], Taille1[300]\n"},
      {"author cut", sized(cut, cut.size() - 5), sized(title, 8) + SEPARATOR + Bytes{'A', 0, 'r'},
       "Taille0[10], Taille1[8]\n"},
      {"title cut", sized(cut, cut.size() - 13), Bytes{'T', 0, 'u'} + SEPARATOR, "Taille0[10], Taille1[8]\n"},
  };
  for (const Row &row : rows) {
    const Scan s = asf_scan(row.image);
    EXPECT_EQ(Bytes(s.record.tag_info, s.record.tag_info + TAG_INFO_SIZE), sized(row.expected, TAG_INFO_SIZE))
        << row.what;
    EXPECT_EQ(s.out, row.printed) << row.what;
  }
}

// A stream type counts only when first found at 65532 or before; the audio
// type besides only up to a quarter of the buffer less 4. The first copy of
// a type GUID is taken, wherever it lies; of several audio streams only the
// first is described, and of its channel count only the low byte is read.
TEST(AsfScan, StreamTypeSearch) {
  const Bytes audio = audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000);
  const Bytes video = video_stream(640, 480, "WMV3");
  // The stream object placed so that its type GUID (at 24) lies at `at`.
  auto placed = [](const Bytes &object, size_t at, size_t length) {
    return sized(sized(header_object({}), at - 24, 0x5A) + object, length);
  };
  const u32 WMV3 = fourcc("WMV3");
  const Case cases[] = {  // video codec, audio tracks, sample rate, channels
      {"audio at 65532", placed(audio, 65532, PRESCAN_HEAD_SIZE), {0, 1, 44100, 2}},
      {"audio at 65533", placed(audio, 65533, PRESCAN_HEAD_SIZE), {0, 0, 0, 0}},
      {"video at 65532", placed(video, 65532, PRESCAN_HEAD_SIZE), {WMV3, 0, 0, 0}},
      {"video at 65533", placed(video, 65533, PRESCAN_HEAD_SIZE), {0, 0, 0, 0}},
      {"audio at a quarter less 4", placed(audio, 996, 4000), {0, 1, 44100, 2}},
      {"audio past it", placed(audio, 997, 4000), {0, 0, 0, 0}},
      {"video past a quarter", placed(video, 2000, 4000), {WMV3, 0, 0, 0}},
      {"a stray video type first",
       patch(sized(header_object({}), 100) + VIDEO_MEDIA, 100 + 81, str("XYZW")) + Bytes(100) + video,
       {fourcc("XYZW"), 0, 0, 0}},
      {"two audio streams",
       asf({audio_stream(WAVE_FORMAT_WMA1, 0x0102, 22050, 4000), audio_stream(WAVE_FORMAT_WMA3, 6, 48000, 24000)}),
       {0, 1, 22050, 2}},
  };
  for (const Case &c : cases) {
    const MediaInfo r = asf_scan(c.image).record;
    EXPECT_EQ((std::vector<u32>{r.video_codec, r.audio_count, r.audio[0].audio_sample_rate, r.audio[0].audio_channels}),
              c.want)
        << c.what;
  }
}

// Every cut reads only what is there: an object whose fields do not all
// fit counts as absent.
TEST(AsfScan, TruncatedImages) {
  const Bytes whole = asf({file_properties(50000000, 3000), content_description(utf16("Song"), utf16("Band")),
                           audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000), video_stream(320, 240, "WMV2")});
  for (size_t n = 0; n <= whole.size(); ++n) {
    const Scan s = asf_scan(sized(whole, n));
    EXPECT_EQ(s.result, n >= 128 ? 1u : 0u) << n;
    EXPECT_TRUE(s.record.video_codec == 0 || s.record.video_codec == fourcc("WMV2")) << n;
  }
  const Bytes front = header_object({}) + Bytes(128);
  const Bytes fp = file_properties(50000000, 3000), video = video_stream(320, 240, "WMV3");
  const Case cases[] = {  // play time, video codec
      {"preroll complete", front + sized(fp, 84), {2000, 0}},
      {"preroll cut", front + sized(fp, 83), {0, 0}},
      {"compression complete", front + sized(video, 24 + 85), {0, fourcc("WMV3")}},
      {"compression cut", front + sized(video, 24 + 84), {0, 0}},
  };
  for (const Case &c : cases) {
    const Scan s = asf_scan(c.image);
    EXPECT_EQ((std::vector<u32>{s.result, s.record.play_time, s.record.video_codec}),
              (std::vector<u32>{1, c.want[0], c.want[1]}))
        << c.what;
  }
}

}  // namespace
