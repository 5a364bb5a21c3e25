// AVI and WAV scans over hand-built RIFF images.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "info/byte_order.h"
#include "tests/info/image.h"

namespace {

Bytes id(const char *four) { return Bytes(four, four + 4); }
Bytes chunk(const char *four, const Bytes &data) { return id(four) + le(data.size(), 4) + data; }
Bytes list(const char *type, std::initializer_list<Bytes> items) { return chunk("LIST", id(type) + join(items)); }
Bytes avi(std::initializer_list<Bytes> top) { return chunk("RIFF", id("AVI ") + join(top)); }
Bytes hdrl(std::initializer_list<Bytes> items) { return avi({list("hdrl", items)}); }
Bytes avih(u32 frames) { return chunk("avih", patch(Bytes(56), 16, le(frames, 4))); }
// The 56-byte stream header, and what some writers put behind it.
Bytes strh(const char *type, const char *handler, u32 scale = 1, u32 rate = 25, u32 length = 50,
           const Bytes &behind = {}) {
  return chunk("strh", sized(id(type) + id(handler), 20) + le(scale, 4) + le(rate, 4) + le(0, 4) + le(length, 4) +
                           Bytes(20) + behind);
}
Bytes strf_video(u32 width, u32 height, u32 compression) {  // BITMAPINFOHEADER
  return chunk("strf", le(40, 4) + le(width, 4) + le(height, 4) + le(0x180001, 4) + le(compression, 4) + Bytes(20));
}
Bytes strf_audio(u32 tag) {  // WAVEFORMATEX: stereo, 44.1 kHz, 16000 bytes/s
  return chunk("strf", le(tag, 2) + le(2, 2) + le(44100, 4) + le(16000, 4) + le(0x100004, 4) + le(0, 2));
}
Bytes video(const char *codec, u32 width, u32 height, u32 scale = 1, u32 rate = 25, u32 length = 50) {
  return list("strl", {strh("vids", codec, scale, rate, length), strf_video(width, height, FourCC(id(codec).data()))});
}
const Bytes auds = strh("auds", "\0\0\0\0");
Bytes audio(u32 tag) { return list("strl", {auds, strf_audio(tag)}); }
// Two seconds of XVID 320x240 at 25 fps with one 128 kbit/s audio track.
Bytes clip(u32 audio_tag = WAVE_FORMAT_MPEGLAYER3) {
  return avi({list("hdrl", {avih(50), video("XVID", 320, 240), audio(audio_tag)}),
              list("movi", {chunk("00dc", Bytes(100, 0x11))}), chunk("idx1", Bytes(32))});
}
MediaInfo avi_record(const Bytes &image, MediaInfo start = start_record(1000000)) {
  return scan(Riff_prescan, image, start).record;
}

// Only RIFF "AVI " is taken; the video bit rate is the file's less 5000, the
// first track's and 8000 (AC-3: 4750), unsigned; the play time saturates.
TEST(RiffScan, RecognitionAndVideoBitRate) {
  const MediaInfo marked = start_record(7, 1234), other = avi_record(patch(clip(), 8, str("WAVE")), marked);
  EXPECT_EQ(std::memcmp(&other, &marked, sizeof marked), 0);
  expect_cuts(Riff_prescan,
              avi({list("INFO", {chunk("ISFT", Bytes(13, 'L'))}),
                   list("hdrl", {avih(50), video("XVID", 320, 240), audio(0x55), video("DXSB", 320, 240),
                                 list("odml", {chunk("dmlh", le(60, 4))})}),
                   chunk("idx1", Bytes(32))}),
              12);
  const Case cases[] = {  // file size, play time, video bit rate
      {"AC-3 track", clip(WAVE_FORMAT_AC3), {1000000, 2000, 3862250}},
      {"file too small: wraps", clip(), {1000, 2000, 0u - 137000u}},
      {"saturated", hdrl({video("XVID", 320, 240, 1000000, 1, 0xFFFFFFFF)}), {1000000, 0xFFFFFFFF, 0u - 12999u}},
  };
  for (const Case &c : cases) {
    const MediaInfo r = avi_record(c.image, start_record(c.want[0]));
    EXPECT_EQ((std::vector<u32>{c.want[0], r.play_time, r.video_bitrate}), c.want) << c.what;
  }
}

// The header list walk: where codec, size, frames and tracks come from.
TEST(RiffScan, HeaderListWalk) {
  const u32 XVID = fourcc("XVID"), DIB = fourcc("DIB ");
  const Bytes v = video("XVID", 320, 240);  // 50 frames: 2000 ms
  const Bytes len60 = video("XVID", 320, 240, 1, 25, 60), odml = list("odml", {chunk("dmlh", le(75, 4))});
  auto raw = [](u32 compression, const Bytes &behind) {
    return hdrl({avih(75), list("strl", {strh("vids", "DIB ", 1, 25, 60, behind), strf_video(1, 1, compression)})});
  };
  const Case cases[] = {  // codec, width, height, play time, audio and subtitle streams
      // A zero byte in the compression: the handler, and the size behind "strh".
      {"zero byte", raw(fourcc("YUY2") & 0xFFFFFF, le(640, 2) + le(0xFE20, 2)), {DIB, 640, 0u - 480u, 3000, 0, 0}},
      {"plain header", raw(0, {}), {DIB, 's' | 't' << 8, 'r' | 'f' << 8, 3000, 0, 0}},
      // The first video stream's codec and size, the last one's frame rate.
      {"subtitles",
       hdrl({avih(50), video("DX50", 720, 576), video("DXSB", 64, 48, 1000, 29970, 10), audio(0x55),
             video("DXSB", 64, 48, 1000, 29970, 10)}),
       {fourcc("DX50"), 720, 576, 1668, 1, 2}},
      // Frames: the last written of main header, first stream's length, OpenDML.
      {"OpenDML before", hdrl({avih(100), odml, len60}), {XVID, 320, 240, 2400, 0, 0}},
      {"main header last", hdrl({len60, avih(100)}), {XVID, 320, 240, 4000, 0, 0}},
      // A format is read by the stream header before it in its own list.
      {"format first", hdrl({list("strl", {strf_audio(0x55), auds})}), {0, 0, 0, 0, 0, 0}},
      {"header in another list", hdrl({audio(0x55), list("strl", {strf_audio(0x2000)})}), {0, 0, 0, 0, 1, 0}},
      // Lists end 8 bytes short: an "avih" in the last 8 bytes is not read.
      {"end of the header list", avi({list("hdrl", {v, chunk("avih", {})}), Bytes(16) + le(100, 4) + Bytes(44)}),
       {XVID, 320, 240, 2000, 0, 0}},
      // Odd "ISFT"/"IDIT" and top-level "strn" chunks have a pad byte.
      {"ISFT", hdrl({avih(50), chunk("ISFT", str("Lavf") + Bytes{0}), Bytes{0}, v}), {XVID, 320, 240, 2000, 0, 0}},
      {"strn", avi({chunk("LIST", str("strn") + Bytes{'a', 0, 'b'}), Bytes{0}, list("hdrl", {avih(50), v})}),
       {XVID, 320, 240, 2000, 0, 0}},
      // Zero headers are stepped over by 8, however long the run: no landing.
      {"4100 zeros", avi({Bytes(4100), list("hdrl", {avih(50), v})}), {0, 0, 0, 0, 0, 0}},
  };
  for (const Case &c : cases) {
    const MediaInfo r = avi_record(c.image);
    EXPECT_EQ((std::vector<u32>{r.video_codec, r.video_width, r.video_height, r.play_time, r.audio_count,
                                r.subtitle_count}),
              c.want)
        << c.what;
  }
}

// The ratio snaps to 4/3, 16/9, 2.2, 2.25 or 2.35 (2.22 and 2.3 compared in
// double precision), is kept from 2.5 on and left as it was when portrait.
TEST(RiffScan, AspectRatioSnapsToTheOutputsRatios) {
  const std::tuple<u32, u32, float> rows[] = {
      {149, 100, 4.0f / 3.0f}, {150, 100, 16.0f / 9.0f}, {221, 100, 2.2f}, {222, 100, 2.25f}, {230, 100, 2.25f},
      {231, 100, 2.35f},       {250, 100, 2.5f},         {240, 320, 0.5f}};
  MediaInfo start = start_record(1000000);
  start.aspect_ratio = 0.5f;
  for (const auto &[width, height, expected] : rows)
    EXPECT_EQ(avi_record(hdrl({avih(50), video("XVID", width, height)}), start).aspect_ratio, expected) << width;
}

// A canonical 44-byte WAV header: RIFF size, "fmt " chunk, "data" at 36.
Bytes wav(u32 riff, u32 tag, u32 byte_rate, u32 data, const char *fmt = "fmt ") {
  return str("RIFF") + le(riff, 4) + str("WAVE") + id(fmt) + le(16, 4) + le(tag, 2) + le(1, 2) + le(8000, 4) +
         le(byte_rate, 4) + le(0x100002, 4) + str("data") + le(data, 4);
}

// Data size over byte rate, in its absence the RIFF or the file size; "data"
// searched at 1047 places.
TEST(WavScan, PlayTimeFromTheSizesFound) {
  const Bytes listed = sized(patch(wav(100016, 1, 16000, 0), 36, str("LIST")), 2000);
  const Case cases[] = {  // format tag, play time; the file has 32016 bytes
      {"no data size", wav(16036, 1, 16000, 0), {1, 1002}},
      {"no sizes", patch(wav(0, 1, 16000, 0), 36, str("junk")), {1, 2000}},
      {"data past the last place searched", patch(listed, 36 + 1047, str("data") + le(8000, 4)), {1, 6250}},
      {"underscore format id", wav(8036, 2, 4096, 8000, "fmt_"), {2, 1953}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Wav_prescan, c.image, start_record(32016));
    EXPECT_EQ((std::vector<u32>{s.record.audio[0].audio_codec, s.record.play_time}), c.want) << c.what;
  }
  expect_cuts(Wav_prescan, wav(100, 1, 16000, 10), 12);
}

}  // namespace
