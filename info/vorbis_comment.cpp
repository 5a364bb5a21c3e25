#include "info/vorbis_comment.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "info/tag_text.h"

namespace {

constexpr std::string_view TITLE_KEY = "TITLE=";
constexpr std::string_view ARTIST_KEY = "ARTIST=";
// The walk stops this far before the end of the buffer.
constexpr u32 SEARCH_MARGIN = 8;

// A comment name: its letters in either case, the '=' exactly. The keys
// are shorter than the search margin, so they always fit.
bool key_at(const u8 *p, std::string_view key) {
  for (u32 i = 0; i < key.size(); ++i) {
    const u8 want = static_cast<u8>(key[i]);
    const bool letter = want >= 'A' && want <= 'Z';
    if (p[i] != want && !(letter && p[i] == want + ('a' - 'A'))) return false;
  }
  return true;
}

// Copies the value at `from` into the work buffer; the count copied.
u32 copy_value(const u8 *buf, u32 from, u32 length, CommentSource source,
               std::array<u8, COMMENT_VALUE_LIMIT> &work) {
  u32 n = 0;
  for (u32 at = from; n < work.size() && at < length; ++at) {
    if (at + 1 < length) {
      const u8 here = buf[at];
      const u8 next = buf[at + 1];
      if (here == 0x00 && next == 0x00) break;
      // A FLAC frame header starts with the sync bits FF F8.
      if (source == CommentSource::Flac && here == 0xFF && next == 0xF8) break;
    }
    work[n++] = buf[at];
  }
  return n;
}

}  // namespace

void Vorbis_comment_search(const u8 *buf, u32 length, MediaInfo *r, CommentSource source) {
  TagText text = tag_text_begin(r);
  if (buf == nullptr || length < SEARCH_MARGIN) return;
  const bool report = source == CommentSource::Flac;
  std::array<u8, COMMENT_VALUE_LIMIT> work{};
  // Names are looked for at positions 0 to `last`. Both end in '=', which
  // matches only itself, so the walk need only stop where an '=' closes
  // one of them: "ARTIST=" 6 bytes before it, "TITLE=" 5 bytes before.
  // Each '=' gives the two positions in increasing order, and a position
  // given twice (by two neighbouring '=') can hold only one of the names,
  // whose first letters differ, so the names are met in buffer order.
  const u32 last = length - SEARCH_MARGIN;
  const u32 title_eq = static_cast<u32>(TITLE_KEY.size()) - 1;
  const u32 artist_eq = static_cast<u32>(ARTIST_KEY.size()) - 1;
  const u32 eq_end = last + artist_eq + 1;  // past the last '=' that can count
  for (u32 eq = title_eq; eq < eq_end; ++eq) {
    const void *hit = std::memchr(buf + eq, '=', eq_end - eq);
    if (hit == nullptr) break;
    eq = static_cast<u32>(static_cast<const u8 *>(hit) - buf);
    if (eq >= artist_eq && key_at(buf + eq - artist_eq, ARTIST_KEY)) {
      if (report) std::printf(">>> vorbis comment artist found !!");
      tag_text_separator(text);
      const u32 n = copy_value(buf, eq + 1, length, source, work);
      tag_text_put_utf8(text, work.data(), n);
    }
    if (eq - title_eq <= last && key_at(buf + eq - title_eq, TITLE_KEY)) {
      if (report) std::printf(">>> vorbis comment title found !!");
      const u32 n = copy_value(buf, eq + 1, length, source, work);
      tag_text_put_utf8(text, work.data(), n);
    }
  }
}
