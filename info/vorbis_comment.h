// Title and artist from Vorbis comments, shared by the Ogg and FLAC scans.
//
// A Vorbis comment list is a vendor string and then "NAME=value" strings,
// each behind a 32-bit length. The search does not parse that structure: it
// walks the raw bytes for "TITLE=" and "ARTIST=" (letters in either case)
// and takes each value up to a terminator pair, so it works the same on an
// Ogg comment header and on a FLAC VORBIS_COMMENT block, wherever either
// sits in the head buffer.
#pragma once
#include "info/media_info.h"

// Where the comments come from. A FLAC value also ends where a FLAC audio
// frame starts (FF F8), and the FLAC scan reports what it finds on stdout.
enum class CommentSource { Ogg, Flac };

// At most this many bytes of a value are taken.
constexpr u32 COMMENT_VALUE_LIMIT = 128;

// Walks buffer positions 0 to length - 8 and writes "title - artist" as
// UTF-16LE into the record's tag block (through tag_text.h). A value ends
// at a 00 00 pair (FLAC: or an FF F8 pair), after 128 bytes, or at the end
// of the buffer; its text then ends at its first zero byte.
void Vorbis_comment_search(const u8 *buffer, u32 length, MediaInfo *record, CommentSource source);
