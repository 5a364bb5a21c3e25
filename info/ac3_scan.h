// DTS core stream scan, the companion of the AC-3 scan (Ac3_prescan is
// declared with the other scanners in media_info.h).
#pragma once
#include "info/media_info.h"

// Fills the first audio entry from the first DTS core frame header in
// `data`; 1 when one was found, else 0 (the record is then untouched).
u32 Dts_prescan(MAIOSFile *handle, const u8 *data, u32 length, MediaInfo *record);
