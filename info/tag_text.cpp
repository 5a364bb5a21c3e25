#include "info/tag_text.h"

TagText tag_text_begin(MediaInfo *record) {
  record->tag_info[0] = 0;
  record->tag_info[1] = 0;
  return TagText{record, 0};
}

bool tag_text_put(TagText &t, u16 unit) {
  if (t.used + 2 > TAG_TEXT_LIMIT) return false;
  u8 *block = t.record->tag_info;
  block[t.used] = static_cast<u8>(unit);
  block[t.used + 1] = static_cast<u8>(unit >> 8);
  t.used += 2;
  // The terminator always follows; the block is twice the text limit.
  block[t.used] = 0;
  block[t.used + 1] = 0;
  return true;
}

void tag_text_separator(TagText &t) {
  if (t.used < 3) return;
  tag_text_put(t, ' ');
  tag_text_put(t, '-');
  tag_text_put(t, ' ');
}

void tag_text_put_utf8(TagText &t, const u8 *text, u32 length) {
  u32 i = 0;
  // A character whose continuation bytes lie past the end reads them as 0.
  auto next = [&](u32 at) -> u32 { return at < length ? text[at] : 0; };
  while (i < length && text[i] != 0) {
    const u32 lead = text[i];
    u32 unit;
    if (lead < 0x80) {
      unit = lead;
      i += 1;
    } else if ((lead & 0x20) == 0) {
      unit = ((lead & 0x1F) << 6) | (next(i + 1) & 0x3F);
      i += 2;
    } else {
      unit = ((lead & 0x0F) << 12) | ((next(i + 1) & 0x3F) << 6) | (next(i + 2) & 0x3F);
      i += 3;
    }
    if (!tag_text_put(t, static_cast<u16>(unit))) return;
  }
}
