// ASF scan over hand-built objects, GUIDs at the edges of the searched ranges.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "info/byte_order.h"
#include "tests/info/image.h"

namespace {

// A GUID as written, "aaaaaaaa-bbbb-cccc-tail", as it lies in the file.
Bytes guid(u32 a, u32 b, u32 c, u64 tail) { return le(a, 4) + le(b, 2) + le(c, 2) + be(tail, 8); }
const Bytes HEADER = guid(0x75B22630, 0x668E, 0x11CF, 0xA6D900AA0062CE6C);
const Bytes VIDEO_MEDIA = guid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B);

Bytes object(const Bytes &id, const Bytes &body) { return id + le(body.size() + 24, 8) + body; }
Bytes header_object(std::initializer_list<Bytes> children) {
  return object(HEADER, le(children.size(), 4) + Bytes{1, 2} + join(children));
}
// Play duration in 100 ns units (preroll included), preroll in ms.
Bytes file_properties(u64 duration, u64 preroll) {
  return object(guid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365),
                Bytes(40, 0xF1) + le(duration, 8) + le(duration, 8) + le(preroll, 8) + Bytes(16));
}
Bytes utf16(const std::string &text) {  // with its terminating null
  Bytes b;
  for (char c : text) b = b + le(static_cast<u8>(c), 2);
  return b + le(0, 2);
}
Bytes content_description(const Bytes &title, const Bytes &author) {
  return object(guid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C),
                le(title.size(), 2) + le(author.size(), 2) + Bytes(6) + title + author);
}
Bytes stream_properties(const Bytes &type, const Bytes &data) {
  return object(guid(0xB7DC0791, 0xA9B7, 0x11CF, 0x8EE600C00C205365),
                type + Bytes(16, 0xEC) + le(0, 8) + le(data.size(), 4) + Bytes(10) + data);
}
Bytes audio_stream(u32 tag, u32 channels, u32 rate, u32 byte_rate) {  // WAVEFORMATEX
  return stream_properties(guid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B),
                           le(tag, 2) + le(channels, 2) + le(rate, 4) + le(byte_rate, 4) + le(0x100004, 6));
}
// Encoded size, a flag byte, the format size, then a BITMAPINFOHEADER.
Bytes video_stream(u32 width, u32 height, const char *compression) {
  return stream_properties(VIDEO_MEDIA, le(width + 1, 4) + le(height + 1, 4) + Bytes{2} + le(40, 2) + le(40, 4) +
                                            le(width, 4) + le(height, 4) + le(1, 2) + le(24, 2) +
                                            Bytes(compression, compression + 4) + Bytes(20));
}
Bytes asf(std::initializer_list<Bytes> children) { return header_object(children) + Bytes(1024, 0x82); }
const Bytes SEPARATOR = {0x20, 0, 0x2D, 0, 0x20, 0};

Scan asf_scan(const Bytes &b, u32 file_size = 1000000) { return scan(WM_prescan, b, start_record(file_size)); }

// The header up to 128 bytes before the end; play time and video bit rate in
// unsigned words, whole milliseconds and whole bits per millisecond.
TEST(AsfScan, RecognitionPlayTimeAndVideoBitRate) {
  const MediaInfo marked = start_record(5000, 77);
  const Scan s = scan(WM_prescan, sized(Bytes(37, 0xAB) + HEADER, 164), marked);
  EXPECT_TRUE(s.result == 0 && s.out.empty() && std::memcmp(&s.record, &marked, sizeof marked) == 0);
  expect_cuts(WM_prescan,
              asf({file_properties(50000000, 3000), content_description(utf16("Song"), utf16("Band")),
                   audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000), video_stream(320, 240, "WMV2")}),
              128);
  const Bytes v = video_stream(720, 576, "WMV3");
  const Case cases[] = {  // file size, play time, video bit rate
      {"whole milliseconds", asf({file_properties(20469999, 0), v}), {1000000, 2046, 3910000}},
      {"longer preroll wraps", asf({file_properties(10000000, 3000), v}), {1000000, 0u - 2000u, 0}},
      {"whole bits per millisecond", asf({file_properties(20000000, 0), v}), {1000249, 2000, 4000000}},
      {"600 MiB: the bit count wraps", asf({file_properties(20000000, 0), v}), {629145600, 2000, 369098000}},
  };
  for (const Case &c : cases) {
    const MediaInfo r = asf_scan(c.image, c.want[0]).record;
    EXPECT_EQ((std::vector<u32>{c.want[0], r.play_time, r.video_bitrate}), c.want) << c.what;
  }
}

// "title - author": the separator over the title's null, texts cut at 128
// bytes, the author behind the whole title; the lengths printed.
TEST(AsfScan, TitleAndAuthor) {
  const Bytes title = utf16("Tune"), author = utf16("Art");  // 10 and 8 bytes
  const Bytes long_title = utf16(std::string(99, 'T')), long_author = utf16(std::string(149, 'A'));
  auto cd = [](const Bytes &t, const Bytes &a) { return asf({content_description(t, a)}); };
  const Bytes cut = header_object({}) + Bytes(128) + content_description(title, author);
  const std::tuple<const char *, Bytes, Bytes> rows[] = {
      {"empty title", cd(utf16(""), author), le(0, 2) + author},
      {"odd title", cd({'a', 'b', 'c'}, author), Bytes{'a'} + SEPARATOR + author},
      {"long texts", cd(long_title, long_author), sized(long_title, 126) + SEPARATOR + sized(long_author, 128)},
      {"author cut", sized(cut, cut.size() - 5), sized(title, 8) + SEPARATOR + Bytes{'A', 0, 'r'}},
  };
  for (const auto &[what, image, expected] : rows) {
    const MediaInfo r = asf_scan(image).record;
    EXPECT_EQ(Bytes(r.tag_info, r.tag_info + TAG_INFO_SIZE), sized(expected, TAG_INFO_SIZE)) << what;
  }
  EXPECT_EQ(asf_scan(std::get<1>(rows[2])).out, "Taille0[200], Taille1[300]\n");
}

// Stream types first found up to 65532 (audio: a quarter of the buffer less
// 4); one audio stream, its channel count's low byte.
TEST(AsfScan, StreamTypeSearch) {
  const Bytes audio = audio_stream(WAVE_FORMAT_WMA2, 2, 44100, 16000);
  const Bytes video = video_stream(640, 480, "WMV3");
  auto placed = [](const Bytes &object, size_t at, size_t length) {
    return sized(sized(header_object({}), at - 24, 0x5A) + object, length);
  };
  const Case cases[] = {  // video codec, audio tracks, sample rate, channels
      {"audio at 65533", placed(audio, 65533, PRESCAN_HEAD_SIZE), {0, 0, 0, 0}},
      {"video at 65533", placed(video, 65533, PRESCAN_HEAD_SIZE), {0, 0, 0, 0}},
      {"audio past a quarter less 4", placed(audio, 997, 4000), {0, 0, 0, 0}},
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

}  // namespace
