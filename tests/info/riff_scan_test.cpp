// AVI and WAV scans over hand-built RIFF images. Ordinary encoder files are
// the corpus test's; these hold the walk to its quirks and to the buffer.
#include <gtest/gtest.h>

#include <cstring>

#include "info/byte_order.h"
#include "tests/info/image.h"

namespace {

Bytes id(const char *four) { return Bytes(four, four + 4); }
Bytes chunk(const char *four, const Bytes &data) { return id(four) + le(data.size(), 4) + data; }
Bytes join(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) b = b + p;
  return b;
}
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
Bytes video(const char *codec, u32 width, u32 height, u32 scale = 1, u32 rate = 25, u32 length = 50,
            const char *type = "vids") {
  return list("strl", {strh(type, codec, scale, rate, length), strf_video(width, height, FourCC(id(codec).data()))});
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

// Only a RIFF file of form "AVI " is taken; anything else leaves the record
// as it was. Every cut of a file, and chunk sizes far past the buffer, end
// the walk inside the buffer.
TEST(RiffScan, RecognitionAndDamagedImages) {
  const MediaInfo marked = start_record(7, 1234);
  for (const Bytes &image : {patch(clip(), 8, str("WAVE")), patch(clip(), 0, str("RIFX"))}) {
    const Scan s = scan(Riff_prescan, image, marked);
    EXPECT_EQ(s.result, 0u);
    EXPECT_EQ(std::memcmp(&s.record, &marked, sizeof marked), 0);
  }
  const Bytes whole = avi({list("INFO", {chunk("ISFT", Bytes(13, 'L'))}),
                           list("hdrl", {avih(50), video("XVID", 320, 240), audio(0x55), audio(0x2000),
                                         video("DXSB", 320, 240), list("odml", {chunk("dmlh", le(60, 4))})}),
                           chunk("idx1", Bytes(32))});
  ASSERT_EQ(avi_record(whole).play_time, 2400u);
  for (size_t n = 0; n <= whole.size(); ++n) {
    const Scan s = scan(Riff_prescan, sized(whole, n));
    EXPECT_EQ(s.result, n >= 12 ? 1u : 0u) << n;
    EXPECT_LE(s.record.audio_count, 2u) << n;
  }
  for (size_t at = 12; at + 8 <= whole.size(); ++at)
    for (u32 size : {0xFFFFFFFFu, 0xFFFFFFF8u, 0x80000000u, 0xFFFFFFF4u})
      EXPECT_EQ(scan(Riff_prescan, patch(whole, at, le(size, 4))).result, 1u) << at;
}

// The video bit rate is the file's rate less 5000 bit/s for the container,
// the first audio track's rate and 8000 bit/s for its framing (4750 for
// AC-3), in unsigned arithmetic; a play time beyond a word is held at the
// largest; without a time scale there is neither.
TEST(RiffScan, PlayTimeAndVideoBitRate) {
  struct Row {
    const char *what;
    Bytes image;
    u32 file_size, play_time, bitrate;
  } const rows[] = {
      {"MP3 track", clip(), 1000000, 2000, 3859000},
      {"AC-3 track", clip(WAVE_FORMAT_AC3), 1000000, 2000, 3862250},
      {"file too small: wraps", clip(), 1000, 2000, 0u - 137000u},
      {"no time scale", hdrl({avih(50), video("XVID", 720, 576, 0), audio(0x55)}), 1000000, 0, 0},
      {"saturated", hdrl({video("XVID", 320, 240, 1000000, 1, 0xFFFFFFFF)}), 1000000, 0xFFFFFFFF, 0u - 12999u},
  };
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(row.image, start_record(row.file_size));
    EXPECT_EQ(r.play_time, row.play_time) << row.what;
    EXPECT_EQ(r.video_bitrate, row.bitrate) << row.what;
    EXPECT_FLOAT_EQ(r.aspect_ratio, 4.0f / 3.0f) << row.what;
  }
  EXPECT_FLOAT_EQ(avi_record(clip()).video_bits_per_pixel, 3859000.0f / (320.0f * 240.0f * 25.0f));
  EXPECT_EQ(avi_record(rows[3].image).video_bits_per_pixel, 0.0f);
}

TEST(RiffScan, HeaderListWalk) {
  const u32 XVID = fourcc("XVID"), DIB = fourcc("DIB ");
  const Bytes v = video("XVID", 320, 240);  // 50 frames: 2000 ms
  const Bytes len60 = video("XVID", 320, 240, 1, 25, 60);
  const Bytes odml = list("odml", {chunk("dmlh", le(75, 4))});
  const Bytes junk = chunk("JUNK", {});
  auto raw = [](u32 compression, const Bytes &behind) {
    return hdrl({avih(75), list("strl", {strh("vids", "DIB ", 1, 25, 60, behind), strf_video(1, 1, compression)})});
  };
  Bytes ten = avih(50);
  for (u32 i = 0; i < 10; ++i) ten = ten + audio(0x100 + i);
  const Case cases[] = {  // codec, width, height, play time, audio and subtitle streams
      // Without a compression code (a zero byte in it) the handler names the
      // codec and the size is two signed 16-bit words behind the stream
      // header (for a plain header, the next chunk's identifier); only the
      // main header's frames count.
      {"RGB", raw(0, le(640, 2) + le(480, 2)), {DIB, 640, 480, 3000, 0, 0}},
      {"zero byte", raw(FourCC(str("YUY2").data()) & 0xFFFFFF, le(8, 2) + le(6, 2)), {DIB, 8, 6, 3000, 0, 0}},
      {"bottom-up", raw(3, le(640, 2) + le(0xFE20, 2)), {DIB, 640, 0u - 480u, 3000, 0, 0}},
      {"plain header", raw(0, {}), {DIB, 's' | 't' << 8, 'r' | 'f' << 8, 3000, 0, 0}},
      // Codec and size are the first video stream's, the frame rate the last
      // one's; "DXSB" streams are subtitles; "iavs" is video too; audio
      // tracks past the eighth are counted.
      {"subtitles",
       hdrl({avih(50), video("DX50", 720, 576), video("DXSB", 64, 48, 1000, 29970, 10), audio(0x55),
             video("DXSB", 64, 48, 1000, 29970, 10)}),
       {fourcc("DX50"), 720, 576, 1668, 1, 2}},
      {"iavs", hdrl({avih(50), video("XVID", 320, 240, 1, 25, 50, "iavs")}), {XVID, 320, 240, 2000, 0, 0}},
      {"text stream", hdrl({avih(50), video("XVID", 320, 240, 1, 25, 50, "txts")}), {0, 0, 0, 0, 0, 0}},
      {"ten tracks", avi({chunk("LIST", id("hdrl") + ten)}), {0, 0, 0, 0, 10, 0}},
      // The frames timed are the last written, in file order, of the main
      // header's, the first compressed stream's length and OpenDML's.
      {"stream length", hdrl({avih(100), len60}), {XVID, 320, 240, 2400, 0, 0}},
      {"OpenDML after", hdrl({avih(100), len60, odml}), {XVID, 320, 240, 3000, 0, 0}},
      {"OpenDML before", hdrl({avih(100), odml, len60}), {XVID, 320, 240, 2400, 0, 0}},
      {"main header last", hdrl({len60, avih(100)}), {XVID, 320, 240, 4000, 0, 0}},
      // A format is read by the stream header before it in its own list.
      {"format first", hdrl({list("strl", {strf_audio(0x55), auds})}), {0, 0, 0, 0, 0, 0}},
      {"header in another list", hdrl({audio(0x55), list("strl", {strf_audio(0x2000)})}), {0, 0, 0, 0, 1, 0}},
      // A list is walked to its start plus its size, 8 bytes short of its
      // end: a chunk in its last 8 bytes is not read (an empty format; an
      // empty "avih" that would read 100 frames from the next chunk).
      {"end of a stream list", avi({list("hdrl", {v, list("strl", {auds, chunk("strf", {})})}), Bytes(24)}),
       {XVID, 320, 240, 2000, 0, 0}},
      {"control", avi({list("hdrl", {v, list("strl", {auds, chunk("strf", {}), junk})}), Bytes(24)}),
       {XVID, 320, 240, 2000, 1, 0}},
      {"end of the header list", avi({list("hdrl", {v, chunk("avih", {})}), Bytes(16) + le(100, 4) + Bytes(44)}),
       {XVID, 320, 240, 2000, 0, 0}},
      {"control", avi({list("hdrl", {v, chunk("avih", {}), junk}), Bytes(8) + le(100, 4) + Bytes(52)}),
       {XVID, 320, 240, 4000, 0, 0}},
      // Odd "ISFT" and "IDIT" chunks in the header list and odd top-level
      // "strn" lists have a pad byte; other odd chunks do not.
      {"ISFT", hdrl({avih(50), chunk("ISFT", str("Lavf") + Bytes{0}), Bytes{0}, v}), {XVID, 320, 240, 2000, 0, 0}},
      {"JUNK", hdrl({avih(50), chunk("JUNK", Bytes(5)), v}), {XVID, 320, 240, 2000, 0, 0}},
      {"strn", avi({chunk("LIST", str("strn") + Bytes{'a', 0, 'b'}), Bytes{0}, list("hdrl", {avih(50), v})}),
       {XVID, 320, 240, 2000, 0, 0}},
      // A header of eight zero bytes is stepped over by 8 bytes, however long
      // the run (a short file's head buffer ends in one): what follows is read
      // only where the steps land on it; a run to the end ends the walk.
      {"4104 zeros", avi({Bytes(4104), list("hdrl", {avih(50), v})}), {XVID, 320, 240, 2000, 0, 0}},
      {"4100 zeros", avi({Bytes(4100), list("hdrl", {avih(50), v})}), {0, 0, 0, 0, 0, 0}},
      {"8 zeros in a list", hdrl({Bytes(8), avih(50), v}), {XVID, 320, 240, 2000, 0, 0}},
      {"12 zeros in a list", hdrl({Bytes(12), avih(50), v}), {0, 0, 0, 0, 0, 0}},
      {"zeros to the end", sized(clip(), clip().size() + 4103), {XVID, 320, 240, 2000, 1, 0}},
  };
  for (const Case &c : cases) {
    const MediaInfo r = avi_record(c.image);
    EXPECT_EQ((std::vector<u32>{r.video_codec, r.video_width, r.video_height, r.play_time, r.audio_count,
                                r.subtitle_count}),
              c.want)
        << c.what;
  }
}

// The ratio is snapped to 4/3, 16/9, 2.2, 2.25 or 2.35, and from 2.5 on
// kept; a portrait picture, or one without a size, keeps the value before.
// The 2.22 and 2.3 bounds are compared in double precision, so 230x100,
// whose float ratio lies just below 2.3, still gives 2.25.
TEST(RiffScan, AspectRatioSnapsToTheOutputsRatios) {
  struct Row {
    u32 width, height;
    float expected;
  } const rows[] = {{100, 100, 4.0f / 3.0f}, {149, 100, 4.0f / 3.0f}, {150, 100, 16.0f / 9.0f}, {200, 100, 2.2f},
                    {221, 100, 2.2f},        {222, 100, 2.25f},       {230, 100, 2.25f},        {231, 100, 2.35f},
                    {250, 100, 2.5f},        {640, 240, 640.0f / 240.0f}, {240, 320, 0.5f},    {320, 0, 0.5f}};
  MediaInfo start = start_record(1000000);
  start.aspect_ratio = 0.5f;
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(hdrl({avih(50), video("XVID", row.width, row.height)}), start);
    EXPECT_EQ(r.aspect_ratio, row.expected) << row.width << "x" << row.height;
  }
}

// A canonical 44-byte WAV header: RIFF size, "fmt " chunk, "data" at 36.
Bytes wav(u32 riff, u32 tag, u32 byte_rate, u32 data, const char *fmt = "fmt ") {
  return str("RIFF") + le(riff, 4) + str("WAVE") + id(fmt) + le(16, 4) + le(tag, 2) + le(1, 2) + le(8000, 4) +
         le(byte_rate, 4) + le(0x100002, 4) + str("data") + le(data, 4);
}

// The WAV play time: data size over byte rate, whole seconds first (no
// overflow); a zero data size gives the RIFF size, a zero RIFF size the
// file size; without a "data" chunk within 1047 places of the search, the
// RIFF size less the format chunk's; no byte rate, no time. A header cut
// anywhere is read only as far as it goes.
TEST(WavScan, PlayTimeFromTheSizesFound) {
  const Bytes listed = sized(patch(wav(100016, 1, 16000, 0), 36, str("LIST")), 2000);
  const Case cases[] = {  // result, format tag, play time; the file has 32016 bytes
      {"large data", wav(0xFFFFFFF0, 1, 192000, 0xFFFFFF00), {1, 1, 22369620}},
      {"no data size", wav(16036, 1, 16000, 0), {1, 1, 1002}},
      {"no sizes", patch(wav(0, 1, 16000, 0), 36, str("junk")), {1, 1, 2000}},
      {"data at the last place searched", patch(listed, 36 + 1046, str("data") + le(8000, 4)), {1, 1, 500}},
      {"data one place further", patch(listed, 36 + 1047, str("data") + le(8000, 4)), {1, 1, 6250}},
      {"underscore format id", wav(8036, 2, 4096, 8000, "fmt_"), {1, 2, 1953}},
      {"no format chunk", patch(wav(5000, 1, 176400, 0), 12, str("LIST") + Bytes(4) + str("data") + le(4000, 4)),
       {1, 0, 0}},
      {"not WAVE", patch(wav(100, 1, 16000, 10), 8, str("AVI ")), {0, 0, 0}},
      {"RIFX", patch(wav(100, 1, 16000, 10), 0, str("RIFX")), {0, 0, 0}},
  };
  for (const Case &c : cases) {
    const Scan s = scan(Wav_prescan, c.image, start_record(32016));
    EXPECT_EQ((std::vector<u32>{s.result, s.record.audio[0].audio_codec, s.record.play_time}), c.want) << c.what;
  }
  for (size_t n = 0; n <= 44; ++n)
    EXPECT_EQ(scan(Wav_prescan, sized(wav(100, 1, 16000, 10), n)).result, n >= 12 ? 1u : 0u) << n;
}

}  // namespace
