// ID3 tag reader over hand-built ID3v2.2/2.3/2.4 and ID3v1 tags.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/info/image.h"

namespace {

Bytes synchsafe(u32 v) { return {u8(v >> 21 & 0x7F), u8(v >> 14 & 0x7F), u8(v >> 7 & 0x7F), u8(v & 0x7F)}; }
// The writer's unsynchronisation: a 0x00 after every 0xFF.
Bytes unsync(const Bytes &in) {
  Bytes out;
  for (u8 c : in) out = c == 0xFF ? out + Bytes{c, 0} : out + Bytes{c};
  return out;
}
// A frame of tag version `major` (2, 3 or 4).
Bytes frame(u32 major, const char *id, const Bytes &body, u8 format = 0) {
  if (major == 2) return str(id) + be(body.size(), 3) + body;
  return str(id) + (major == 3 ? be(body.size(), 4) : synchsafe(u32(body.size()))) + Bytes{0, format} + body;
}
Bytes tag(u32 major, const Bytes &body, u8 flags = 0) {
  return Bytes{'I', 'D', '3', u8(major), 0, flags} + synchsafe(u32(body.size())) + body;
}
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

// Frames of each version and text encoding, unsynchronised, behind extended
// headers, with format flags, reach the tag block as "title - artist".
TEST(Id3Tags, Version2FramesAndEncodings) {
  const Bytes artist3 = frame(3, "TPE1", latin("Band"));
  const Bytes artist4 = frame(4, "TPE1", Bytes{3} + str("Band"));
  const Bytes ff_e0 = {0, 0xFF, 0xE0};
  const std::pair<Bytes, std::u16string> cases[] = {
      {tag(2, frame(2, "TT2", Bytes{0, 'C', 'a', 'f', 0xE9}) + frame(2, "TP1", latin("Band"))), u"Caf\u00e9 - Band"},
      {tag(3, frame(3, "TIT2", Bytes{1, 0xFF, 0xFE, 0xDC, 0, 0xAC, 0x20, 0, 0, 'x', 0}) + artist3),
       u"\u00dc\u20ac - Band"},  // the first string only
      {tag(4, frame(4, "TIT2", Bytes{2, 0x20, 0xAC, 0, 'A'}) + artist4), u"\u20acA - Band"},
      {tag(4, frame(4, "TALB", Bytes(201, 'a')) + frame(4, "TIT2", latin("Song")) + artist4), u"Song - Band"},
      // A 2.3 tag's unsynchronisation covers the frame sizes too.
      {tag(3, unsync(frame(3, "TIT2", ff_e0) + frame(3, "TXXX", Bytes(255, 0xFF)) + artist3), 0x80),
       u"\u00ff\u00e0 - Band"},
      {tag(4, frame(4, "TIT2", unsync(synchsafe(3) + ff_e0), 0x03) + artist4), u"\u00ff\u00e0 - Band"},
      {tag(4, frame(4, "TIT2", unsync(ff_e0)) + artist4, 0x80), u"\u00ff\u00e0 - Band"},
      {tag(3, be(6, 4) + Bytes(6) + frame(3, "TIT2", latin("Song")) + artist3, 0x40), u"Song - Band"},
      {tag(3, frame(3, "TIT2", Bytes{7} + latin("Song"), 0x20) + artist3), u"Song - Band"},  // group byte
      {tag(3, frame(3, "TIT2", latin("ZZZzz"), 0x80) + frame(3, "TIT2", latin("Two")) + artist3), u"Two - Band"},
      {tag(4, frame(4, "TIT2", Bytes{4} + str("Song")) + artist4), u"Band"},  // unknown encoding
      {tag(3, frame(3, "TIT2", latin("Song")) + Bytes(20) + artist3), u"Song"},  // padding ends the frames
  };
  for (const auto &[file, text] : cases) EXPECT_EQ(read_tags(file + audio), text) << file.size();
}

// ID3v1 gives what ID3v2 lacks (up to a NUL, trailing blanks dropped); bad
// sizes and cut frames are read as far as they go; 256 bytes at most.
TEST(Id3Tags, Version1AndDamagedInput) {
  const Bytes cut = tag(4, frame(4, "TIT2", latin("Song")));
  const std::pair<Bytes, std::u16string> cases[] = {
      {audio + v1("Song  \xE9", "Band", ' '), u"Song  \u00e9 - Band"},
      {tag(3, frame(3, "TIT2", latin("Song"))) + audio + v1("Old Song", "Old Band", 0), u"Song - Old Band"},
      {v1("Song", "Band", 0), u"Song - Band"},  // the file is only the block
      {Bytes{'I', 'D', '3', 3, 0, 0, 0x7F, 0x7F, 0x7F, 0x7F} + frame(3, "TIT2", latin("Song")), u"Song"},
      {sized(cut, cut.size() - 2), u"So"},
      {tag(3, str("TIT2") + be(0xFFFFFFFF, 4) + Bytes{0, 0, 0} + str("Song")), u"Song"},
      {tag(3, be(0xFFFFFFF0, 4) + Bytes(6), 0x40), u""},
      {tag(2, frame(2, "TT2", Bytes{1, 0xFF})), u""},
      {tag(3, frame(3, "TIT2", latin("") + Bytes(300, 'x')) + frame(3, "TPE1", latin("Band"))),
       std::u16string(128, 'x')},
  };
  for (const auto &[file, text] : cases) EXPECT_EQ(read_tags(file), text) << file.size();
}

}  // namespace
