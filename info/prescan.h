// The prescan as the media control API sees it: one call that inspects a
// file and names its solution, and read-only accessors of the result.
#pragma once
#include "platform/mai_types.h"

// Inspects `path` and appends the solution name to `solution` (which must
// hold 16 bytes). Returns 0 when the inspection ran, whether or not the
// file was recognised; otherwise the file layer's open status.
u32 PMX_Prescan(const char *path, char *solution);

u32 pmx_info_get_totaltime();
void pmx_info_video_seekable(u32 *seekable);
void pmx_info_getvideoinfo(u32 *width, u32 *height, float *aspect, float *frame_rate, float *bitrate);
void pmx_info_get_2audioinfo(u32 *multi_audio, u32 *audio_count);
void pmx_info_get_divxsubinfo(u32 *subtitle_count);
// `tag` receives the whole 512-byte tag block.
void pmx_info_getaudioinfo(u32 *bitrate, u16 *channels, u32 *sample_rate, u8 *tag);
// Fills the engine's stream information hint (40 bytes used, any alignment).
void pmx_info_get_maistreaminfo(u8 *info);

constexpr u32 MAI_STREAMINFO_BYTES = 40;
