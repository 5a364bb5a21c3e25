// The text of the tag block: UTF-16LE, low byte first, "title - artist",
// at most 256 bytes of text followed by a 16-bit NUL. The Ogg, FLAC and
// ID3 readers write it the same way, so the console shows every format's
// tags alike.
#pragma once
#include "info/media_info.h"

constexpr u32 TAG_TEXT_LIMIT = 256;

struct TagText {
  MediaInfo *record;
  u32 used;  // bytes of text written
};

// Starts an empty text at the front of the record's tag block.
TagText tag_text_begin(MediaInfo *record);
// Appends one UTF-16 code unit; false when the text is full.
bool tag_text_put(TagText &t, u16 unit);
// Appends the " - " separator when the text so far is at least 3 bytes.
void tag_text_separator(TagText &t);
// Appends 8-bit text decoded by the player's UTF-8 rule: a byte below 0x80
// is one character; a lead byte with bit 5 clear takes 5 bits and 6 of the
// next byte; any other lead takes 4 bits and 6 of each of the next two.
// Continuation bytes are not checked. Stops at a zero byte or at `length`.
void tag_text_put_utf8(TagText &t, const u8 *text, u32 length);
