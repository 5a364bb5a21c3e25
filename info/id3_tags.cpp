// ID3 tag reader: title and artist of an MP3 file into the tag block.
// This build reads no tags yet; the tag block stays empty.
#include "info/media_info.h"

void ID3_GetID3(MAIOSFile *, MediaInfo *, const char *) {}
