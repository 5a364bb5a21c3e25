// AVI and WAV scans over hand-built RIFF images. Ordinary encoder files are
// the corpus test's; these hold the walk to its quirks and to the buffer.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>

#include "info/byte_order.h"
#include "tests/info/image.h"

namespace {

Bytes id(const char *four) { return Bytes(four, four + 4); }
u32 code(const char *four) { return FourCC(reinterpret_cast<const u8 *>(four)); }
Bytes chunk(const char *four, const Bytes &data) { return id(four) + le(data.size(), 4) + data; }
Bytes join(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) b = b + p;
  return b;
}
Bytes list(const char *type, std::initializer_list<Bytes> items) { return chunk("LIST", id(type) + join(items)); }
Bytes avi(std::initializer_list<Bytes> top) { return chunk("RIFF", id("AVI ") + join(top)); }
Bytes avih(u32 frames) { return chunk("avih", patch(Bytes(56, 0), 16, le(frames, 4))); }
// The 56-byte stream header, and what some writers put behind it.
Bytes strh(const char *type, const char *handler, u32 scale = 1, u32 rate = 25, u32 length = 50,
           const Bytes &behind = {}) {
  return chunk("strh", sized(id(type) + id(handler), 20) + le(scale, 4) + le(rate, 4) + le(0, 4) + le(length, 4) +
                           Bytes(20, 0) + behind);
}
Bytes strf_video(u32 width, u32 height, u32 compression) {  // BITMAPINFOHEADER
  return chunk("strf", le(40, 4) + le(width, 4) + le(height, 4) + le(1, 2) + le(24, 2) + le(compression, 4) +
                           Bytes(20, 0));
}
Bytes strf_audio(u32 tag, u32 channels, u32 rate, u32 byte_rate) {  // WAVEFORMATEX
  return chunk("strf", le(tag, 2) + le(channels, 2) + le(rate, 4) + le(byte_rate, 4) + le(4, 2) + le(16, 2) + le(0, 2));
}
Bytes video(const char *codec, u32 width, u32 height, u32 scale = 1, u32 rate = 25, u32 length = 50,
            const char *type = "vids") {
  return list("strl", {strh(type, codec, scale, rate, length), strf_video(width, height, code(codec))});
}
Bytes audio(u32 tag, u32 channels = 2, u32 rate = 44100, u32 byte_rate = 16000) {
  return list("strl", {strh("auds", "\0\0\0\0", 1, rate, 0), strf_audio(tag, channels, rate, byte_rate)});
}
const Bytes movi = list("movi", {chunk("00dc", Bytes(100, 0x11)), chunk("01wb", Bytes(33, 0x22))});
// Two seconds of XVID 320x240 at 25 fps with one 128 kbit/s audio track.
Bytes clip(u32 audio_tag = WAVE_FORMAT_MPEGLAYER3) {
  return avi({list("hdrl", {avih(50), video("XVID", 320, 240), audio(audio_tag)}), movi, chunk("idx1", Bytes(32))});
}
MediaInfo avi_record(const Bytes &image, MediaInfo start = start_record(1000000)) {
  return scan(Riff_prescan, image, start).record;
}

// Only a RIFF file of form "AVI " is taken, and anything else leaves the
// record as it was; an AVI file without lists is still one.
TEST(RiffScan, RecognisesTheAviFormOnly) {
  const MediaInfo marked = start_record(7, 1234);
  for (const Bytes &image : {patch(clip(), 8, str("WAVE")), patch(clip(), 0, str("RIFX")), sized(clip(), 11), Bytes{}}) {
    const Scan s = scan(Riff_prescan, image, marked);
    EXPECT_EQ(s.result, 0u);
    EXPECT_EQ(std::memcmp(&s.record, &marked, sizeof marked), 0);
  }
  EXPECT_EQ(scan(Riff_prescan, avi({})).result, 1u);
}

// Play time from the frames and the frame rate; the video bit rate is the
// file's rate less 5000 bit/s for the container, the first audio track's
// rate and 8000 bit/s for its framing (4750 for AC-3), in unsigned
// arithmetic; a millisecond count beyond a word is held at the largest.
TEST(RiffScan, PlayTimeAndVideoBitRate) {
  struct Row {
    const char *what;
    Bytes image;
    u32 file_size, play_time, bitrate;
  } const rows[] = {
      {"MP3 track", clip(), 1000000, 2000, 3859000},
      {"AC-3 track", clip(WAVE_FORMAT_AC3), 1000000, 2000, 3862250},
      {"file too small: wraps", clip(), 1000, 2000, 0u - 137000u},
      {"no time scale", avi({list("hdrl", {avih(50), video("XVID", 720, 576, 0), audio(0x55)})}), 1000000, 0, 0},
      {"saturated", avi({list("hdrl", {video("XVID", 320, 240, 1000000, 1, 0xFFFFFFFF)})}), 1000000, 0xFFFFFFFF,
       0u - 12999u},
  };
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(row.image, start_record(row.file_size));
    EXPECT_EQ(r.play_time, row.play_time) << row.what;
    EXPECT_EQ(r.video_bitrate, row.bitrate) << row.what;
    EXPECT_FLOAT_EQ(r.aspect_ratio, 4.0f / 3.0f) << row.what;
  }
  const MediaInfo r = avi_record(clip());
  EXPECT_FLOAT_EQ(r.frame_rate, 25.0f);
  EXPECT_FLOAT_EQ(r.video_bits_per_pixel, 3859000.0f / (320.0f * 240.0f * 25.0f));
  EXPECT_EQ(avi_record(rows[3].image).video_bits_per_pixel, 0.0f);
}

// Without a compression code (a zero byte in it), the codec is the stream
// header's handler and the picture size the two signed 16-bit words just
// behind the 56-byte stream header; for a plain header those are the next
// chunk's identifier.
TEST(RiffScan, UncompressedVideoReadsBehindTheStreamHeader) {
  struct Row {
    u32 compression;
    Bytes behind;
    u32 width, height;
  } const rows[] = {
      {0, le(640, 2) + le(480, 2), 640, 480},
      {code("YUY2") & 0x00FFFFFF, le(8, 2) + le(6, 2), 8, 6},
      {3, le(640, 2) + le(0xFE20, 2), 640, 0u - 480u},  // a bottom-up picture
      {0, {}, 's' | 't' << 8, 'r' | 'f' << 8},
  };
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(avi(
        {list("hdrl", {avih(75), list("strl", {strh("vids", "DIB ", 1, 25, 50, row.behind), strf_video(1, 1, row.compression)})})}));
    EXPECT_EQ(r.video_codec, fourcc("DIB ")) << row.compression;
    EXPECT_EQ(r.video_width, row.width) << row.compression;
    EXPECT_EQ(r.video_height, row.height) << row.compression;
    EXPECT_EQ(r.play_time, 3000u);  // the main header's frames: the stream length does not count
  }
}

// Codec and size are the first video stream's; "DXSB" streams are counted
// as subtitles; the frame rate is the last video stream's.
TEST(RiffScan, SubtitleStreamsAndStreamTypes) {
  const Bytes image = avi({list("hdrl", {avih(50), video("DX50", 720, 576), video("DXSB", 640, 480, 1000, 29970, 10),
                                         audio(0x55), video("DXSB", 320, 200, 1000, 29970, 10)})});
  const MediaInfo r = avi_record(image);
  EXPECT_EQ(r.subtitle_count, 2u);
  EXPECT_EQ(r.video_codec, fourcc("DX50"));
  EXPECT_EQ(r.video_width, 720u);
  EXPECT_FLOAT_EQ(r.frame_rate, 29.97f);
  EXPECT_EQ(r.play_time, 1668u);  // 50 frames at 29.97 fps
  EXPECT_EQ(r.audio_count, 1u);
  for (const char *type : {"iavs", "txts", "VIDS"}) {
    const MediaInfo t = avi_record(avi({list("hdrl", {avih(50), video("XVID", 320, 240, 1, 25, 50, type)})}));
    EXPECT_EQ(t.video_codec, type[0] == 'i' ? fourcc("XVID") : 0u) << type;
  }
}

// The frames timed are the last written, in file order, of the main
// header's, the first compressed video stream's length and the OpenDML
// header's.
TEST(RiffScan, FrameCountPrecedence) {
  const Bytes len60 = video("XVID", 320, 240, 1, 25, 60);
  const Bytes odml = list("odml", {chunk("dmlh", le(75, 4))});
  struct Row {
    const char *what;
    Bytes hdrl;
    u32 frames;
  } const rows[] = {
      {"stream length replaces", list("hdrl", {avih(100), len60}), 60},
      {"uncompressed stream keeps",
       list("hdrl", {avih(100), list("strl", {strh("vids", "DIB ", 1, 25, 60, le(320, 2) + le(240, 2)),
                                              strf_video(320, 240, 0)})}),
       100},
      {"OpenDML after the stream", list("hdrl", {avih(100), len60, odml}), 75},
      {"OpenDML before the stream", list("hdrl", {avih(100), odml, len60}), 60},
      {"last OpenDML header", list("hdrl", {avih(100), len60, list("odml", {chunk("dmlh", le(75, 4)), chunk("dmlh", le(90, 4))})}), 90},
      {"main header last", list("hdrl", {len60, avih(100)}), 100},
      {"second stream ignored", list("hdrl", {avih(100), len60, video("DX50", 320, 240, 1, 25, 20)}), 60},
  };
  for (const Row &row : rows) EXPECT_EQ(avi_record(avi({row.hdrl})).play_time, row.frames * 40) << row.what;
}

// The ratio is snapped to 4/3, 16/9, 2.2, 2.25 or 2.35; from 2.5 it stays;
// a portrait picture, or one without a size, keeps the value before. The
// 2.22 and 2.3 bounds are compared in double precision, so 230x100, whose
// float ratio lies just below 2.3, still gives 2.25.
TEST(RiffScan, AspectRatioSnapsToTheOutputsRatios) {
  struct Row {
    u32 width, height;
    float expected;
  } const rows[] = {
      {100, 100, 4.0f / 3.0f}, {149, 100, 4.0f / 3.0f}, {150, 100, 16.0f / 9.0f}, {200, 100, 2.2f},
      {221, 100, 2.2f},        {222, 100, 2.25f},      {230, 100, 2.25f},        {231, 100, 2.35f},
      {250, 100, 2.5f},        {640, 240, 640.0f / 240.0f}, {240, 320, 0.5f},   {320, 0, 0.5f},
  };
  MediaInfo start = start_record(1000000);
  start.aspect_ratio = 0.5f;
  for (const Row &row : rows) {
    const Bytes image = avi({list("hdrl", {avih(50), video("XVID", row.width, row.height)})});
    EXPECT_EQ(avi_record(image, start).aspect_ratio, row.expected)
        << row.width << "x" << row.height;
  }
}

// Audio entries in file order, interleaved with video; eight are described
// and further tracks only counted; an entry already holding a codec is kept.
TEST(RiffScan, AudioTracks) {
  Bytes items = avih(50) + audio(0x100) + video("XVID", 320, 240) + audio(0x2000, 6, 48000, 56000);
  for (u32 i = 2; i < 10; ++i) items = items + audio(0x100 + i);
  MediaInfo start = start_record(1000000);
  start.audio[1].audio_codec = 0x1234;
  const MediaInfo r = avi_record(avi({chunk("LIST", id("hdrl") + items)}), start);
  EXPECT_EQ(r.audio_count, 10u);
  EXPECT_EQ(r.audio[0].audio_codec, 0x100u);
  EXPECT_EQ(r.audio[0].audio_bitrate, 128000u);
  EXPECT_EQ(r.audio[1].audio_codec, 0x1234u);
  EXPECT_EQ(r.audio[1].audio_channels, 0u);
  for (u32 i = 2; i < MAX_AUDIO_STREAMS; ++i) EXPECT_EQ(r.audio[i].audio_codec, 0x100 + i);
}

// A format chunk is read by the stream header before it in its own list.
TEST(RiffScan, FormatWithoutItsStreamHeaderIsSkipped) {
  struct Row {
    const char *what;
    Bytes hdrl;
    u32 audio_count;
  } const rows[] = {
      {"format first", list("hdrl", {list("strl", {strf_audio(0x55, 2, 44100, 16000), strh("auds", "\0\0\0\0")})}), 0},
      {"header in the previous list", list("hdrl", {audio(0x55), list("strl", {strf_audio(0x2000, 2, 48000, 24000)})}),
       1},
      {"two formats under one header",
       list("hdrl", {list("strl", {strh("auds", "\0\0\0\0"), strf_audio(0x55, 2, 44100, 16000),
                                   strf_audio(0x50, 2, 44100, 16000)})}),
       2},
  };
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(avi({row.hdrl}));
    EXPECT_EQ(r.audio_count, row.audio_count) << row.what;
    EXPECT_EQ(r.audio[0].audio_codec, row.audio_count != 0 ? 0x55u : 0u) << row.what;
  }
}

// Lists are walked to their start plus their size, 8 bytes short of their
// end: a chunk in the last 8 bytes of a header, stream or OpenDML list is
// not read, though the reading would land on real bytes.
TEST(RiffScan, ChunkInTheLastEightBytesOfAListIsNotRead) {
  const Bytes v = video("XVID", 320, 240);  // 2000 ms
  const Bytes strl_end = list("strl", {strh("auds", "\0\0\0\0"), chunk("strf", {})});
  struct Row {
    const char *what;
    Bytes image;
    u32 play_time, audio_count;
  } const rows[] = {
      {"stream list", avi({list("hdrl", {v, strl_end}), chunk("JUNK", Bytes(16))}), 2000, 0},
      {"stream list, control",
       avi({list("hdrl", {v, list("strl", {strh("auds", "\0\0\0\0"), chunk("strf", {}), chunk("JUNK", {})})}),
            chunk("JUNK", Bytes(16))}),
       2000, 1},
      // An empty "dmlh" would read the next identifier as 100 frames.
      {"OpenDML list", avi({list("hdrl", {v, list("odml", {chunk("dmlh", {})}), Bytes{100, 0, 0, 0, 0, 0, 0, 0}})}),
       2000, 0},
      // An empty "avih" would read 100 frames from the next top-level chunk.
      {"header list", avi({list("hdrl", {v, chunk("avih", {})}), chunk("JUNK", Bytes(8) + le(100, 4) + Bytes(44))}),
       2000, 0},
      {"header list, control",
       avi({list("hdrl", {v, chunk("avih", {}), chunk("JUNK", {})}), chunk("JUNK", le(100, 4) + Bytes(52))}), 4000, 0},
  };
  for (const Row &row : rows) {
    const MediaInfo r = avi_record(row.image);
    EXPECT_EQ(r.play_time, row.play_time) << row.what;
    EXPECT_EQ(r.audio_count, row.audio_count) << row.what;
  }
}

// Odd-sized "ISFT" and "IDIT" chunks in the header list and odd "strn"
// lists at the top are followed by a pad byte; other odd chunks are not;
// the "INFO" list is stepped over.
TEST(RiffScan, PadBytesAndSkippedChunks) {
  const Bytes v = video("XVID", 320, 240);
  const Bytes rows[] = {
      avi({list("hdrl", {avih(50), chunk("ISFT", str("Lavf") + Bytes{0}), Bytes{0}, v})}),
      avi({list("hdrl", {avih(50), chunk("IDIT", Bytes(25, 'x')), Bytes{0}, v})}),
      avi({list("hdrl", {avih(50), chunk("JUNK", Bytes(5)), v})}),
      avi({list("INFO", {chunk("ISFT", Bytes(14, 'L'))}), list("hdrl", {avih(50), v})}),
      avi({chunk("LIST", str("strn") + Bytes{'a', 0, 'b'}), Bytes{0}, list("hdrl", {avih(50), v})}),
      avi({chunk("LIST", str("abcd") + Bytes(3)), list("hdrl", {avih(50), v})}),
  };
  for (size_t i = 0; i < std::size(rows); ++i) EXPECT_EQ(avi_record(rows[i]).video_codec, fourcc("XVID")) << i;
}

// A header of eight zero bytes is stepped over by 8 bytes, however long the
// run of zeros (a short file's head buffer ends in one): what follows is
// read only where the steps land on it, and a run to the end ends the walk.
TEST(RiffScan, ZeroRunsAreSteppedOverEightBytesAtATime) {
  const Bytes hdrl = list("hdrl", {avih(50), video("XVID", 320, 240)});
  for (size_t gap : {8u, 4096u, 4104u, 4u, 13u, 4099u}) {
    const bool read = gap % 8 == 0;
    EXPECT_EQ(avi_record(avi({Bytes(gap), hdrl})).video_codec, read ? fourcc("XVID") : 0u) << gap;
    const Bytes inner = avi({list("hdrl", {Bytes(gap), avih(50), video("XVID", 320, 240)})});
    EXPECT_EQ(avi_record(inner).video_codec, read ? fourcc("XVID") : 0u) << gap << " in the header list";
  }
  const MediaInfo plain = avi_record(clip());
  for (size_t tail : {1u, 8u, 9u, 4103u}) {
    const MediaInfo r = avi_record(sized(clip(), clip().size() + tail));
    EXPECT_EQ(std::memcmp(&r, &plain, sizeof r), 0) << tail;
  }
}

// Every cut of a file, and sizes that point far past the buffer, end the
// walk inside the buffer.
TEST(RiffScan, TruncatedAndDamagedImages) {
  const Bytes whole = avi({list("INFO", {chunk("ISFT", Bytes(13, 'L'))}),
                           list("hdrl", {avih(50), video("XVID", 320, 240), audio(0x55), audio(0x2000),
                                         video("DXSB", 320, 240, 1, 25, 5), list("odml", {chunk("dmlh", le(60, 4))})}),
                           movi, chunk("idx1", Bytes(32))});
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

// A canonical 44-byte WAV header: RIFF size, "fmt " chunk, "data" at 36.
Bytes wav(u32 riff, u32 tag, u32 byte_rate, u32 data, const char *fmt = "fmt ") {
  return str("RIFF") + le(riff, 4) + str("WAVE") + id(fmt) + le(16, 4) + le(tag, 2) + le(1, 2) + le(8000, 4) +
         le(byte_rate, 4) + le(2, 2) + le(16, 2) + str("data") + le(data, 4);
}

// The WAV play time: data size over byte rate, whole seconds first (no
// overflow); a zero data size gives the RIFF size, a zero RIFF size the
// file size; without a "data" chunk within 1047 places of the search, the
// RIFF size less the format chunk's; no byte rate, no time.
TEST(WavScan, PlayTimeFromTheSizesFound) {
  const Bytes listed = sized(patch(wav(100016, 1, 16000, 0), 36, str("LIST")), 2000);
  struct Row {
    const char *what;
    Bytes image;
    u32 file_size, result, tag, play_time;
  } const rows[] = {
      {"large data", wav(0xFFFFFFF0, 1, 192000, 0xFFFFFF00), 0, 1, 1, 22369620},
      {"no data size", wav(16036, 1, 16000, 0), 0, 1, 1, 1002},
      {"no sizes", patch(wav(0, 1, 16000, 0), 36, str("junk")), 32016, 1, 1, 2000},
      {"data at the last place searched", patch(listed, 36 + 1046, str("data") + le(8000, 4)), 0, 1, 1, 500},
      {"data one place further", patch(listed, 36 + 1047, str("data") + le(8000, 4)), 0, 1, 1, 6250},
      {"underscore format id", wav(8036, 2, 4096, 8000, "fmt_"), 0, 1, 2, 1953},
      {"no format chunk", patch(wav(5000, 1, 176400, 0), 12, str("LIST") + Bytes(4) + str("data") + le(4000, 4)), 0,
       1, 0, 0},
      {"not WAVE", patch(wav(100, 1, 16000, 10), 8, str("AVI ")), 0, 0, 0, 0},
      {"RIFX", patch(wav(100, 1, 16000, 10), 0, str("RIFX")), 0, 0, 0, 0},
  };
  for (const Row &row : rows) {
    const Scan s = scan(Wav_prescan, row.image, start_record(row.file_size));
    EXPECT_EQ(s.result, row.result) << row.what;
    EXPECT_EQ(s.record.audio[0].audio_codec, row.tag) << row.what;
    EXPECT_EQ(s.record.play_time, row.play_time) << row.what;
  }
  // A header cut anywhere is read only as far as it goes.
  for (size_t n = 0; n <= 44; ++n) EXPECT_EQ(scan(Wav_prescan, sized(wav(100, 1, 16000, 10), n)).result, n >= 12 ? 1u : 0u) << n;
}

}  // namespace
