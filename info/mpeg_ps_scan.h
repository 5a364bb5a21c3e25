// The pieces of the MPEG program stream scan that read one elementary
// stream header: the video sequence header and the MPEG audio frame header.
// Mpeg_prescan (media_info.h) uses them on the payload of PES packets.
#pragma once
#include "info/media_info.h"

// Reads the first video sequence header (00 00 01 B3) found at positions
// 0 to length - 8 of `data` into the record's video fields. 1 when found.
// A header whose fields would run past `length` is not taken.
u32 Mpegv_prescan(MAIOSFile *handle, const u8 *data, u32 length, MediaInfo *record);

// Describes the first MPEG audio frame header (sync FF Ex) at positions 0 to
// length - 4 of `data` in audio[0] and sets audio_count. Always 1.
u32 Mpega_prescan(MAIOSFile *handle, const u8 *data, u32 length, MediaInfo *record);
