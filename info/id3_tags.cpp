// ID3 tag reader: title and artist of an MP3 file into the tag block, as
// UTF-16LE "title - artist". An ID3v2 tag at the start of the file is read
// first (versions 2.2, 2.3 and 2.4); what it lacks comes from an ID3v1
// block in the last 128 bytes.
#include <algorithm>
#include <array>
#include <span>
#include <vector>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/tag_text.h"

namespace {

// ID3v2 tag header: "ID3", major version, revision, flags, and the size of
// everything behind the header as four 7-bit bytes.
constexpr u32 ID3V2_HEADER_SIZE = 10;
constexpr u8 ID3V2_UNSYNCHRONISATION = 0x80;
constexpr u8 ID3V2_EXTENDED_HEADER = 0x40;
constexpr u8 ID3V22_COMPRESSION = 0x40;  // version 2.2: the whole tag, no scheme defined
// At most this much of a tag is read; title and artist come early.
constexpr u32 ID3V2_READ_LIMIT = 64 * 1024;

// Frame format flags (second flag byte).
constexpr u8 V23_COMPRESSION = 0x80;
constexpr u8 V23_ENCRYPTION = 0x40;
constexpr u8 V23_GROUPING = 0x20;
constexpr u8 V24_GROUPING = 0x40;
constexpr u8 V24_COMPRESSION = 0x08;
constexpr u8 V24_ENCRYPTION = 0x04;
constexpr u8 V24_UNSYNCHRONISATION = 0x02;
constexpr u8 V24_DATA_LENGTH = 0x01;

// Text encodings of a text frame's first byte.
constexpr u8 ENC_LATIN1 = 0;
constexpr u8 ENC_UTF16 = 1;     // with a byte order mark
constexpr u8 ENC_UTF16BE = 2;
constexpr u8 ENC_UTF8 = 3;

// ID3v1: "TAG", title (30), artist (30), album (30), year, comment, genre.
constexpr u32 ID3V1_SIZE = 128;
constexpr u32 ID3V1_TITLE = 3;
constexpr u32 ID3V1_ARTIST = 33;
constexpr u32 ID3V1_FIELD = 30;

// A text as the tag holds it: its encoding and bytes.
struct TextField {
  u8 encoding = ENC_LATIN1;
  std::vector<u8> bytes;
};

struct Fields {
  TextField title;
  TextField artist;
};

u32 synchsafe(const u8 *p) {
  return (static_cast<u32>(p[0] & 0x7F) << 21) | (static_cast<u32>(p[1] & 0x7F) << 14) |
         (static_cast<u32>(p[2] & 0x7F) << 7) | static_cast<u32>(p[3] & 0x7F);
}

// Undoes unsynchronisation: the writer put a 0x00 behind every 0xFF that
// could be mistaken for a frame sync; drop each one.
std::vector<u8> resynchronise(std::span<const u8> data) {
  std::vector<u8> out;
  out.reserve(data.size());
  for (size_t i = 0; i < data.size(); ++i) {
    out.push_back(data[i]);
    if (data[i] == 0xFF && i + 1 < data.size() && data[i + 1] == 0x00) ++i;
  }
  return out;
}

// Calls `unit` with each UTF-16 code unit of the field's first string
// until it returns false. UTF-8 is left to the tag text writer.
template <typename Unit>
void for_each_unit(const TextField &f, Unit unit) {
  const std::vector<u8> &b = f.bytes;
  if (f.encoding == ENC_LATIN1) {
    for (u8 c : b) {
      if (c == 0 || !unit(static_cast<u16>(c))) return;
    }
    return;
  }
  if (f.encoding != ENC_UTF16 && f.encoding != ENC_UTF16BE) return;
  // UTF-16: a byte order mark chooses the order; without one (and always
  // for encoding 2) the text is big-endian.
  size_t i = 0;
  bool little = false;
  if (f.encoding == ENC_UTF16 && b.size() >= 2) {
    if (b[0] == 0xFF && b[1] == 0xFE) {
      little = true;
      i = 2;
    } else if (b[0] == 0xFE && b[1] == 0xFF) {
      i = 2;
    }
  }
  for (; i + 1 < b.size(); i += 2) {
    const u16 u = little ? LittleEndian2int16u(&b[i]) : BigEndian2int16u(&b[i]);
    if (u == 0 || !unit(u)) return;
  }
}

bool has_text(const TextField &f) {
  if (f.encoding == ENC_UTF8) return !f.bytes.empty() && f.bytes[0] != 0;
  bool any = false;
  for_each_unit(f, [&](u16) {
    any = true;
    return false;
  });
  return any;
}

void put_text(TagText &t, const TextField &f) {
  if (f.encoding == ENC_UTF8) {
    tag_text_put_utf8(t, f.bytes.data(), static_cast<u32>(f.bytes.size()));
    return;
  }
  for_each_unit(f, [&](u16 u) { return tag_text_put(t, u); });
}

// A text frame's body: the encoding byte, then the text.
void take_text(TextField &into, std::span<const u8> body) {
  if (has_text(into) || body.empty() || body[0] > ENC_UTF8) return;
  TextField f;
  f.encoding = body[0];
  f.bytes.assign(body.begin() + 1, body.end());
  if (has_text(f)) into = std::move(f);
}

// The frames of an ID3v2 tag body (behind the tag header, already
// resynchronised when the whole tag was unsynchronised).
void read_frames(std::span<const u8> tag, u32 major, bool all_unsynchronised, Fields &fields) {
  const bool v22 = major == 2;
  const u32 id_size = v22 ? 3 : 4;
  const u32 header_size = v22 ? 6 : 10;
  const std::array<const char *, 2> ids = v22 ? std::array<const char *, 2>{"TT2", "TP1"}
                                              : std::array<const char *, 2>{"TIT2", "TPE1"};
  size_t pos = 0;
  while (tag.size() - pos >= header_size) {
    const u8 *h = tag.data() + pos;
    // Padding, or anything that is no frame identifier, ends the frames.
    for (u32 i = 0; i < id_size; ++i) {
      const bool id_char = (h[i] >= 'A' && h[i] <= 'Z') || (h[i] >= '0' && h[i] <= '9');
      if (!id_char) return;
    }
    u32 size;
    if (v22)
      size = (static_cast<u32>(h[3]) << 16) | (static_cast<u32>(h[4]) << 8) | h[5];
    else if (major == 3)
      size = BigEndian2int32u(h + 4);
    else
      size = synchsafe(h + 4);
    const u8 format = v22 ? 0 : h[9];
    const size_t start = pos + header_size;
    const size_t end = start + std::min<size_t>(size, tag.size() - start);
    pos = end;

    const auto match = std::find_if(ids.begin(), ids.end(), [&](const char *id) {
      return std::equal(h, h + id_size, reinterpret_cast<const u8 *>(id));
    });
    if (match == ids.end()) continue;
    TextField &into = match == ids.begin() ? fields.title : fields.artist;

    std::span<const u8> body = tag.subspan(start, end - start);
    std::vector<u8> resynced;
    if (major == 3) {
      if ((format & (V23_COMPRESSION | V23_ENCRYPTION)) != 0) continue;
      if ((format & V23_GROUPING) != 0) body = body.subspan(std::min<size_t>(1, body.size()));
    } else if (major == 4) {
      if ((format & (V24_COMPRESSION | V24_ENCRYPTION)) != 0) continue;
      if (all_unsynchronised || (format & V24_UNSYNCHRONISATION) != 0) {
        resynced = resynchronise(body);
        body = resynced;
      }
      // Added to the frame header, in this order: group id, data length.
      size_t skip = 0;
      if ((format & V24_GROUPING) != 0) skip += 1;
      if ((format & V24_DATA_LENGTH) != 0) skip += 4;
      body = body.subspan(std::min(skip, body.size()));
    }
    take_text(into, body);
  }
}

void read_id3v2(MAIOSFile *file, u64 file_size, Fields &fields) {
  std::array<u8, ID3V2_HEADER_SIZE> header{};
  if (MAIOSFileSeek(file, 0, MAIOS_SEEK_SET) != 0) return;
  if (MAIOSFileRead(file, header.data(), ID3V2_HEADER_SIZE) != ID3V2_HEADER_SIZE) return;
  if (header[0] != 'I' || header[1] != 'D' || header[2] != '3') return;
  const u32 major = header[3];
  if (major < 2 || major > 4 || header[4] == 0xFF) return;
  for (u32 i = 6; i < 10; ++i)
    if (header[i] >= 0x80) return;
  const u8 flags = header[5];
  if (major == 2 && (flags & ID3V22_COMPRESSION) != 0) return;

  u64 size = synchsafe(&header[6]);
  size = std::min<u64>(size, ID3V2_READ_LIMIT);
  if (file_size > ID3V2_HEADER_SIZE) size = std::min<u64>(size, file_size - ID3V2_HEADER_SIZE);
  if (size == 0) return;
  std::vector<u8> tag(static_cast<size_t>(size));
  tag.resize(std::min<size_t>(MAIOSFileRead(file, tag.data(), static_cast<u32>(tag.size())), tag.size()));

  // Up to version 2.3 unsynchronisation covers the whole tag, frame
  // headers included; in 2.4 it is a property of each frame.
  const bool unsynchronised = (flags & ID3V2_UNSYNCHRONISATION) != 0;
  if (unsynchronised && major < 4) tag = resynchronise(tag);

  u64 frames = 0;
  if (major >= 3 && (flags & ID3V2_EXTENDED_HEADER) != 0) {
    if (tag.size() < 4) return;
    // 2.3: size of what follows the size field; 2.4: synchsafe, whole.
    frames = major == 3 ? 4 + u64{BigEndian2int32u(tag.data())} : synchsafe(tag.data());
    if (frames > tag.size()) return;
  }
  read_frames(std::span<const u8>(tag).subspan(static_cast<size_t>(frames)), major, unsynchronised && major == 4,
              fields);
}

// One 30-byte ID3v1 text: up to its first NUL, trailing blanks dropped.
void take_v1_text(TextField &into, const u8 *text) {
  if (has_text(into)) return;
  u32 n = 0;
  while (n < ID3V1_FIELD && text[n] != 0) ++n;
  while (n > 0 && text[n - 1] == ' ') --n;
  into.encoding = ENC_LATIN1;
  into.bytes.assign(text, text + n);
}

void read_id3v1(MAIOSFile *file, u64 file_size, Fields &fields) {
  if (file_size < ID3V1_SIZE) return;
  std::array<u8, ID3V1_SIZE> block{};
  if (MAIOSFileSeek(file, file_size - ID3V1_SIZE, MAIOS_SEEK_SET) != 0) return;
  if (MAIOSFileRead(file, block.data(), ID3V1_SIZE) != ID3V1_SIZE) return;
  if (block[0] != 'T' || block[1] != 'A' || block[2] != 'G') return;
  take_v1_text(fields.title, &block[ID3V1_TITLE]);
  take_v1_text(fields.artist, &block[ID3V1_ARTIST]);
}

}  // namespace

void ID3_GetID3(MAIOSFile *handle, MediaInfo *record, const char *) {
  if (handle == nullptr || handle->status != 0) return;
  u64 file_size = 0;
  if (MAIOSFileGetSize(handle, &file_size) != 0) file_size = 0;

  Fields fields;
  read_id3v2(handle, file_size, fields);
  if (!has_text(fields.title) || !has_text(fields.artist)) read_id3v1(handle, file_size, fields);
  if (!has_text(fields.title) && !has_text(fields.artist)) return;

  TagText text = tag_text_begin(record);
  put_text(text, fields.title);
  if (has_text(fields.artist)) {
    tag_text_separator(text);
    put_text(text, fields.artist);
  }
}
