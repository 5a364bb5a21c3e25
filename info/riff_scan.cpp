// RIFF AVI scan.
// This build does not read the format yet: the scan answers "not this
// format", so such a file ends with solution type 0 instead of a guess.
#include "info/media_info.h"

u32 Riff_prescan(MAIOSFile *, const u8 *, u32, MediaInfo *) { return 0; }
