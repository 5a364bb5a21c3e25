// File name extension tests. Each compares the last characters of the name
// with "." and its extension: the dot exactly, letters in either case,
// digits exactly. A name shorter than the suffix never matches.
#pragma once
#include "platform/mai_types.h"

u32 is_avi(const char *name);
u32 is_divx(const char *name);
u32 is_wmv(const char *name);
u32 is_wma(const char *name);
u32 is_asf(const char *name);
u32 is_mpeg(const char *name);
u32 is_mpg(const char *name);
u32 is_vob(const char *name);
u32 is_mp3(const char *name);
u32 is_ogg(const char *name);
u32 is_ac3(const char *name);
u32 is_wav(const char *name);
u32 is_flac(const char *name);
u32 is_mp4(const char *name);
u32 is_m1v(const char *name);
u32 is_m2v(const char *name);
u32 is_m4v(const char *name);
u32 is_dat(const char *name);
