// Ogg and FLAC scans and their Vorbis comment search over hand-built data.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "info/byte_order.h"
#include "info/vorbis_comment.h"
#include "tests/info/image.h"

namespace {

// An Ogg page of whole packets.
Bytes page(u64 granule, const std::vector<Bytes> &packets) {
  Bytes lacing, data;
  for (const Bytes &p : packets) {
    for (size_t n = p.size();; n -= 255) {
      lacing.push_back(static_cast<u8>(n < 255 ? n : 255));
      if (n < 255) break;
    }
    data = data + p;
  }
  return str("OggS") + Bytes(2) + le(granule, 8) + Bytes(12) + Bytes{u8(lacing.size())} + lacing + data;
}
Bytes vorbis_id(u32 channels, u32 rate, u32 nominal) {
  return Bytes{1} + str("vorbis") + le(0, 4) + Bytes{u8(channels)} + le(rate, 4) + le(0, 4) + le(nominal, 4) +
         le(0, 4) + Bytes{0xB8, 1};
}
// Vendor, then comments each behind a 32-bit length; Ogg adds a framing bit.
Bytes comment_list(const std::vector<std::string> &comments, bool framing = true) {
  Bytes b = le(3, 4) + str("pmx") + le(comments.size(), 4);
  for (const std::string &c : comments) b = b + le(c.size(), 4) + str(c);
  return framing ? b + Bytes{1} : b;
}
// Ogg media header: ... time unit, samples per unit ..., then width and
// height, or channels and bytes per second.
Bytes ogm(const char *kind, const char *subtype, u64 unit, u64 per_unit, u32 a, u32 b) {
  return Bytes{1} + sized(str(kind), 8) + Bytes(subtype, subtype + 4) + le(0x38, 4) + le(unit, 8) + le(per_unit, 8) +
         Bytes(12) + le(a, 4) + le(b, 4);
}
Bytes noise(size_t n) { return Bytes(n, 0x11); }
Bytes vorbis_file(u32 rate, u32 nominal, u64 granule, const std::vector<std::string> &comments = {}) {
  return page(0, {vorbis_id(2, rate, nominal)}) +
         page(0, {Bytes{3} + str("vorbis") + comment_list(comments), Bytes{5} + str("vorbis") + Bytes(40, 'B')}) +
         page(granule / 2, {noise(200)}) + page(granule, {noise(200)});
}

// Stream headers read as if each page held one segment; a Vorbis artist
// runs on to the zero pair after the next capture pattern.
TEST(OggScan, StreamHeadersAndComments) {
  const Bytes ogm_file = page(0, {ogm("video", "DX50", 400000, 1, 640, 352)}) +
                         page(0, {ogm("audio", "\1\0\0\0", 10000000, 48000, 6, 24000)}) + page(96000, {noise(300)});
  const MediaInfo r = scan_file(Ogg_prescan, ogm_file).record;
  const AudioStreamInfo &a = r.audio[0];
  EXPECT_EQ((std::vector<u32>{r.video_codec, r.video_width, r.video_height, u32(r.frame_rate * 1000), a.audio_codec,
                              a.audio_sample_rate, a.audio_channels, a.audio_bitrate}),
            (std::vector<u32>{fourcc("DX50"), 640, 352, 25000, WAVE_FORMAT_VORBIS1, 48000, 6, 192000}));
  const Bytes shared = sized(page(0, {vorbis_id(2, 44100, 128000), noise(20)}), 300);
  EXPECT_EQ(scan_file(Ogg_prescan, shared).record.audio[0].audio_codec, 0u);
  const Bytes whole = vorbis_file(44100, 0, 88200, {"TITLE=abc", "ARTIST=xyz"});
  const Scan s = scan_file(Ogg_prescan, whole);
  EXPECT_EQ(tag_text(s.record), u"abc\x0A - xyz\x01\x05vorbis" + std::u16string(40, u'B') + u"OggS");
  EXPECT_EQ(s.out, "");
  expect_cuts(Ogg_prescan, whole, 4, true);
}

// The last page's granule (low 32 bits, single precision) over the rate; a
// second or less is not believed: size over nominal bit rate.
TEST(OggScan, PlayTime) {
  const Bytes large = sized(vorbis_file(44100, 128000, 44100), 1536 * 1024, 'U') + page(441000, {noise(300)}) +
                      page(882000, {noise(40)});
  auto padded = [](u32 nominal, u64 granule) {  // 40000 bytes, a last page near the end
    const Bytes b = sized(page(0, {vorbis_id(2, 44100, nominal)}), 39700, 'w');
    return sized(b + page(granule, {noise(200)}), 40000, 'w');
  };
  const Case cases[] = {  // play time
      {"last MiB", large, {10000}},
      {"low 32 bits", vorbis_file(48000, 0, (u64{1} << 32) + 96000), {2000}},
      {"single precision: not 70081", vorbis_file(44100, 0, 3090616), {70082}},
      {"1000 ms: 40000 bytes at 16000 bytes/s", padded(128000, 44100), {2062}},
      {"bit rate below 8", padded(7, 22050), {500}},
  };
  for (const Case &c : cases)
    EXPECT_EQ(scan_file(Ogg_prescan, c.image, PRESCAN_HEAD_SIZE).record.play_time, c.want[0]) << c.what;
}

// "TITLE=" and "ARTIST=" values anywhere, up to a zero pair (FLAC: or FF
// F8), by the player's UTF-8 rule into "title - artist", 256 bytes at most.
TEST(VorbisComment, TitleAndArtist) {
  auto text = [](const std::string &s) { return sized(str(s), s.size() + 16); };
  const std::string z(1, '\0');
  const std::tuple<const char *, Bytes, std::u16string> cases[] = {
      // In a list the next length word's low byte comes along (0 ends it).
      {"next comment of 256", comment_list({"TITLE=abc", std::string(256, 'D'), "ARTIST=xyz"}), u"abc - xyz\x01"},
      {"title of 2 bytes: no separator", text("TITLE=a" + z + "ARTIST=xyz"), u"axyz"},
      {"utf-8 unchecked", text("TITLE=\xC3\xA9t\xE2\x82\xAC \xC1\x41"), u"\u00E9t\u20AC A"},
      {"zero as continuation", text("TITLE=\xC3" + z + "x"), u"\u00C0x"},
      {"FLAC sync in an Ogg value", text("TITLE=ab\xFF\xF8rest"), u"ab\uFE32est"},
      {"256-byte text", text("TITLE=" + std::string(120, 'T') + z + "ARTIST=" + std::string(120, 'A')),
       widen(std::string(120, 'T') + " - AAAAA")},
      {"\"TITLE=\" 7 bytes from the end", str("xxTITLE=a"), u""},
  };
  for (const auto &[what, data, tag] : cases) {
    MediaInfo r{};
    Vorbis_comment_search(data.data(), u32(data.size()), &r, CommentSource::Ogg);
    EXPECT_EQ(tag_text(r), tag) << what;
  }
}

Bytes block(bool last, u32 type, const Bytes &data) {
  return be((last ? 0x80000000u : 0) | type << 24 | u32(data.size()), 4) + data;
}
// STREAMINFO: rate (20 bits), channels - 1 (3), bits - 1 (5), samples (36).
Bytes streaminfo(u32 rate, u32 channels, u32 bits, u64 samples) {
  const u64 v = u64{rate} << 44 | u64{channels - 1} << 41 | u64{bits - 1} << 36 | samples;
  return block(false, 0, sized(Bytes(10, 0x12) + be(v, 8), 34, 0x11));
}
Bytes flac(std::initializer_list<Bytes> blocks) { return str("fLaC") + join(blocks); }
const Bytes audio_frames = sized(Bytes{0xFF, 0xF8, 0x69, 0x08}, 4000, 0x5A);

// Whole seconds of the low 32 bits of the sample count; STREAMINFO found by
// creeping through other blocks 5 bytes at a time (empty ones 8).
TEST(FlacScan, StreamInfoAndMetadataWalk) {
  auto app = [](size_t n) { return block(false, 2, Bytes(n, 1)); };
  const Bytes info = streaminfo(32000, 2, 16, 64000);
  const std::vector<u32> none(7, 0), found = {AUDIO_CODEC_FLAC, 32000, 2, 16, 2000, 0, 1};
  const Case cases[] = {  // codec, sample rate, channels, sample width, play time, bit rate, count
      {"3.9 s, 4042 bytes", flac({streaminfo(44100, 2, 16, 171990), audio_frames}),
       {AUDIO_CODEC_FLAC, 44100, 2, 16, 3000, 10000, 1}},
      {"high bits of the count left out", flac({streaminfo(48000, 8, 32, (u64{3} << 32) + 48000 * 5), audio_frames}),
       {AUDIO_CODEC_FLAC, 48000, 8, 32, 5000, 6000, 1}},
      {"after 21 bytes", flac({app(21), info}), found},  // 8 + 21 = 4 + 5 x 5
      {"after 12 bytes", flac({app(12), info}), none},
      {"after an empty block", flac({block(false, 1, {}), Bytes(4, 1), info}), found},
      {"4096 zero bytes", flac({Bytes(4096), info}), {AUDIO_CODEC_FLAC, 32000, 2, 16, 2000, 16000, 1}},
  };
  for (const Case &c : cases) {
    const Scan s = scan_file(Flac_prescan, c.image);
    const MediaInfo &r = s.record;
    const AudioStreamInfo &a = r.audio[0];
    EXPECT_EQ((std::vector<u32>{a.audio_codec, a.audio_sample_rate, a.audio_channels, r.bits_per_sample, r.play_time,
                                a.audio_bitrate, s.result}),
              c.want)
        << c.what;
    EXPECT_EQ(s.out, c.want[6] != 0 ? ">>> vorbis comment found !!" : "") << c.what;
  }
  expect_cuts(Flac_prescan, flac({info}), 26);
}

// The comments reported; with an audio count set, the first other block
// leads straight to them.
TEST(FlacScan, Comments) {
  const Bytes comments = block(true, 4, comment_list({"TITLE=abc", "ARTIST=xyz"}, false));
  Scan s = scan_file(Flac_prescan, flac({streaminfo(44100, 2, 16, 88200), comments, audio_frames}));
  EXPECT_EQ(s.out, ">>> vorbis comment found !!>>> vorbis comment title found !!>>> vorbis comment artist found !!");
  EXPECT_EQ(tag_text(s.record), u"abc\x0A - xyz");
  MediaInfo counted{};
  counted.audio_count = 1;
  s = scan_file(Flac_prescan,
                flac({block(false, 4, comment_list({"TITLE=abc"}, false)), streaminfo(44100, 2, 16, 88200)}), 0,
                counted);
  EXPECT_EQ((std::vector<u32>{s.result, s.record.audio[0].audio_codec}), (std::vector<u32>{1, 0}));
  EXPECT_EQ(tag_text(s.record), u"abc");
}

}  // namespace
