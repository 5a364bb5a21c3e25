// ID3 tag reader over hand-built ID3v2.2/2.3/2.4 and ID3v1 tags, and the
// tags of encoder-made files.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "info/media_info.h"
#include "info/prescan.h"
#include "tests/support/fixtures.h"

namespace {

using Bytes = std::vector<u8>;

Bytes operator+(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
Bytes str(const std::string &s) { return Bytes(s.begin(), s.end()); }
Bytes be(u32 v, int n) {
  Bytes b;
  for (int i = n - 1; i >= 0; --i) b.push_back(static_cast<u8>(v >> (8 * i)));
  return b;
}
Bytes synchsafe(u32 v) { return {u8((v >> 21) & 0x7F), u8((v >> 14) & 0x7F), u8((v >> 7) & 0x7F), u8(v & 0x7F)}; }
// The writer's unsynchronisation: a 0x00 after every 0xFF.
Bytes unsync(const Bytes &in) {
  Bytes out;
  for (u8 c : in) {
    out.push_back(c);
    if (c == 0xFF) out.push_back(0);
  }
  return out;
}
// A frame of the tag version `major` (2, 3 or 4).
Bytes frame(u32 major, const std::string &id, const Bytes &body, u8 format = 0) {
  if (major == 2) return str(id) + be(static_cast<u32>(body.size()), 3) + body;
  return str(id) + (major == 3 ? be(static_cast<u32>(body.size()), 4) : synchsafe(static_cast<u32>(body.size()))) +
         Bytes{0, format} + body;
}
Bytes tag(u32 major, const Bytes &body, u8 flags = 0) {
  return Bytes{'I', 'D', '3', u8(major), 0, flags} + synchsafe(static_cast<u32>(body.size())) + body;
}
Bytes v1(const std::string &title, const std::string &artist, u8 pad) {
  Bytes b = str("TAG") + str(title);
  b.resize(33, pad);
  b = b + str(artist);
  b.resize(128, pad);
  return b;
}
const Bytes audio(400, 0x55);

std::u16string read_tags(const Bytes &file, MediaInfo *out = nullptr) {
  static int serial = 0;
  const std::string path = fixtures::temp_file("id3_" + std::to_string(++serial) + ".mp3", file);
  MediaInfo r{};
  MAIOSFile *f = MAIOSFileOpenForRead(path.c_str());
  ID3_GetID3(f, &r, path.c_str());
  MAIOSFileClose(f);
  std::u16string text;
  for (u32 i = 0; i + 1 < TAG_INFO_SIZE && (r.tag_info[i] | r.tag_info[i + 1]) != 0; i += 2)
    text.push_back(static_cast<char16_t>(r.tag_info[i] | (r.tag_info[i + 1] << 8)));
  if (out != nullptr) *out = r;
  return text;
}

TEST(Id3Tags, Version2FramesAndEncodings) {
  const Bytes artist3 = frame(3, "TPE1", Bytes{0} + str("Band"));
  const Bytes artist4 = frame(4, "TPE1", Bytes{3} + str("Band"));
  struct Case {
    Bytes file;
    std::u16string text;
    const char *what;
  };
  const Case cases[] = {
      {tag(2, frame(2, "TT2", Bytes{0} + str("Song")) + frame(2, "TP1", Bytes{0} + str("Band"))), u"Song - Band",
       "2.2"},
      {tag(3, frame(3, "TIT2", Bytes{0, 'C', 'a', 'f', 0xE9}) + artist3), u"Caf\u00e9 - Band", "ISO-8859-1"},
      {tag(3, frame(3, "TIT2", Bytes{1, 0xFF, 0xFE, 0xDC, 0, 0xAC, 0x20, 0, 0, 'x', 0}) + artist3), u"\u00dc\u20ac - Band",
       "UTF-16 little-endian mark, first string only"},
      {tag(3, frame(3, "TIT2", Bytes{1, 0xFE, 0xFF, 0, 0xDC, 0x20, 0xAC}) + artist3), u"\u00dc\u20ac - Band",
       "UTF-16 big-endian mark"},
      {tag(4, frame(4, "TIT2", Bytes{2, 0x20, 0xAC, 0, 'A'}) + artist4), u"\u20acA - Band", "UTF-16BE"},
      {tag(4, frame(4, "TIT2", Bytes{3, 0xC3, 0x9C, 0xE2, 0x82, 0xAC, 0}) + artist4), u"\u00dc\u20ac - Band", "UTF-8"},
      {tag(4, frame(4, "TALB", Bytes{0} + Bytes(200, 'a')) + frame(4, "TIT2", Bytes{0} + str("Song")) + artist4),
       u"Song - Band", "2.4 frame sizes are synchsafe"},
      {tag(3, unsync(frame(3, "TIT2", Bytes{0, 0xFF, 0xE0}) + frame(3, "TXXX", Bytes(255, 0xFF)) + artist3), 0x80),
       u"\u00ff\u00e0 - Band", "2.3 tag unsynchronised, frame sizes too"},
      {tag(4, frame(4, "TIT2", unsync(synchsafe(3) + Bytes{0, 0xFF, 0xE0}), 0x03) + artist4), u"\u00ff\u00e0 - Band",
       "2.4 frame unsynchronised, with data length"},
      {tag(4, frame(4, "TIT2", unsync(Bytes{0, 0xFF, 0xE0})) + artist4, 0x80), u"\u00ff\u00e0 - Band",
       "2.4 tag flag: every frame unsynchronised"},
      {tag(3, be(6, 4) + Bytes(6, 0) + frame(3, "TIT2", Bytes{0} + str("Song")) + artist3, 0x40), u"Song - Band",
       "2.3 extended header"},
      {tag(4, synchsafe(6) + Bytes{1, 0} + frame(4, "TIT2", Bytes{0} + str("Song")) + artist4, 0x40), u"Song - Band",
       "2.4 extended header"},
      {tag(3, frame(3, "TIT2", Bytes{7, 0} + str("Song"), 0x20) + artist3), u"Song - Band", "2.3 group byte"},
      {tag(3, frame(3, "TIT2", Bytes{0, 'Z', 'Z', 'Z'} + str("zz"), 0x80) + frame(3, "TIT2", Bytes{0} + str("Two")) + artist3),
       u"Two - Band", "compressed frame passed over"},
      {tag(4, frame(4, "TIT2", Bytes{4} + str("Song")) + artist4), u"Band", "unknown encoding"},
      {tag(3, frame(3, "TIT2", Bytes{0} + str("Song")) + Bytes(20, 0) + artist3), u"Song", "padding ends the frames"},
      {tag(3, frame(3, "TPE1", Bytes{0} + str("Band"))), u"Band", "artist alone"},
      {tag(3, Bytes(10, 0)), u"", "only padding"},
  };
  for (const Case &c : cases) EXPECT_TRUE(read_tags(c.file + audio) == c.text) << c.what;
}

TEST(Id3Tags, Version1AtTheEnd) {
  EXPECT_TRUE(read_tags(audio + v1("Song", "Band", ' ')) == u"Song - Band");
  EXPECT_TRUE(read_tags(audio + v1("Song  \xE9", "Band", 0)) == u"Song  \u00e9 - Band");
  // What an ID3v2 tag lacks comes from the ID3v1 block.
  const Bytes v2_title = tag(3, frame(3, "TIT2", Bytes{0} + str("Song")));
  EXPECT_TRUE(read_tags(v2_title + audio + v1("Old Song", "Old Band", 0)) == u"Song - Old Band");
  EXPECT_TRUE(read_tags(audio + v1("", "", ' ')) == u"");
  Bytes no_tag = audio + v1("Song", "Band", 0);
  no_tag[no_tag.size() - 128] = 'X';
  EXPECT_TRUE(read_tags(no_tag) == u"");
  EXPECT_TRUE(read_tags(v1("Song", "Band", 0)) == u"Song - Band");  // the file is only the block
}

TEST(Id3Tags, BoundedAndDamagedInput) {
  // The text stops at 256 bytes and stays terminated.
  MediaInfo r{};
  const std::u16string long_text =
      read_tags(tag(3, frame(3, "TIT2", Bytes{0} + Bytes(300, 'x')) + frame(3, "TPE1", Bytes{0} + str("Band"))), &r);
  EXPECT_EQ(long_text, std::u16string(128, u'x'));
  EXPECT_EQ(r.tag_info[256] | r.tag_info[257], 0);
  // A tag larger than what is read: frames at its start are still found.
  EXPECT_TRUE(read_tags(tag(3, frame(3, "TIT2", Bytes{0} + str("Song")) + Bytes(100000, 0))) == u"Song");
  // Sizes past the end of the file, cut frames, frames that overrun.
  const Bytes cut = tag(4, frame(4, "TIT2", Bytes{0} + str("Song")));
  const std::vector<Bytes> damaged = {
      Bytes{'I', 'D', '3', 3, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F} + frame(3, "TIT2", Bytes{0} + str("Song")),
      Bytes(cut.begin(), cut.end() - 2),
      tag(3, str("TIT2") + be(0xFFFFFFFF, 4) + Bytes{0, 0, 0} + str("Song")),
      tag(3, be(0xFFFFFFF0, 4) + Bytes(6, 0), 0x40),
      tag(2, frame(2, "TT2", Bytes{1, 0xFF})),
      {'I', 'D', '3'},
      {},
  };
  const std::u16string expected[] = {u"Song", u"So", u"Song", u"", u"", u"", u""};
  for (size_t i = 0; i < damaged.size(); ++i) EXPECT_TRUE(read_tags(damaged[i]) == expected[i]) << i;
  MediaInfo untouched{};
  ID3_GetID3(nullptr, &untouched, "");
  EXPECT_EQ(untouched.tag_info[0], 0);
}

TEST(Id3Tags, EncoderFilesAgreeWithFfprobe) {
  for (const char *name : {"mpeg1_44k_cbr_id3v23.mp3", "mpeg2_22k_vbr_id3v24.mp3", "mpeg25_11k_cbr_id3v1.mp3",
                           "tone.mp3"}) {
    const std::string path = fixtures::media(name);
    ASSERT_FALSE(path.empty());
    const std::string title = fixtures::ffprobe_value(path, "format_tags=title");
    const std::string artist = fixtures::ffprobe_value(path, "format_tags=artist");
    const std::string both = title + (title.size() >= 2 && !artist.empty() ? " - " : "") + artist;
    std::u16string expected(both.begin(), both.end());
    // Through the whole prescan: the tag block reaches the accessor.
    std::array<char, 16> solution{};
    testing::internal::CaptureStdout();
    PMX_Prescan(path.c_str(), solution.data());
    testing::internal::GetCapturedStdout();
    std::array<u8, TAG_INFO_SIZE> block{};
    u32 rate = 0, sample_rate = 0;
    u16 channels = 0;
    pmx_info_getaudioinfo(&rate, &channels, &sample_rate, block.data());
    std::u16string text;
    for (u32 i = 0; block[i] | block[i + 1]; i += 2) text.push_back(static_cast<char16_t>(block[i] | (block[i + 1] << 8)));
    EXPECT_TRUE(text == expected) << name << ": " << both;
    EXPECT_EQ(std::string(name) == "tone.mp3", both.empty()) << name;
  }
}

}  // namespace
