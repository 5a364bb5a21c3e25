// The media info record that the prescan fills, the solution types, the
// codec tags the scanners store, and the scanner entry points. Private to
// the inspection unit: the API reads the record only through prescan.h.
#pragma once
#include "platform/mai_os.h"
#include "platform/mai_types.h"

constexpr u32 MAX_AUDIO_STREAMS = 8;
constexpr u32 CODEC_NAME_SIZE = 16;
constexpr u32 TAG_INFO_SIZE = 512;
constexpr u32 SOLUTION_NAME_SIZE = 16;
// The prescan inspects the first MiB of a file.
constexpr u32 PRESCAN_HEAD_SIZE = 0x100000;

struct AudioStreamInfo {
  u32 audio_codec;                       // WAVE format tag, or "fLaC"
  char audio_codec_name[CODEC_NAME_SIZE];
  u32 audio_bitrate;                     // bits per second
  u32 audio_channels;
  u32 audio_sample_rate;                 // Hz
};

struct MediaInfo {
  u32 file_size;
  u32 play_time;                         // milliseconds
  u32 video_codec;                       // FOURCC word, 5551/5552 for MPEG-1/2 video
  char video_codec_name[CODEC_NAME_SIZE];
  u32 video_bitrate;
  u32 video_vbr;
  u32 video_width;
  u32 video_height;
  float aspect_ratio;
  float frame_rate;
  float video_bits_per_pixel;
  u32 video_seekable;
  u32 subtitle_count;
  AudioStreamInfo audio[MAX_AUDIO_STREAMS];
  u32 audio_count;
  u32 multi_audio;
  u32 bits_per_sample;                   // FLAC sample width; MPEG audio fall-back: data length
  u8 tag_info[TAG_INFO_SIZE];            // UTF-16LE "title - artist", NUL-terminated
  char solution_name[SOLUTION_NAME_SIZE];
};

// Which scanner recognised the file.
enum SolutionType : u32 {
  SOLUTION_NONE = 0,
  SOLUTION_AVI = 1,
  SOLUTION_MPEG_PS = 2,
  SOLUTION_ASF = 3,
  SOLUTION_MPEG_AUDIO = 4,
  SOLUTION_OGG = 5,
  SOLUTION_AC3 = 6,
  SOLUTION_WAV = 7,
  SOLUTION_FLAC = 8,
};

// Audio codec tags (WAVE format tags) as the scanners store them.
constexpr u32 WAVE_FORMAT_PCM = 0x0001;
constexpr u32 WAVE_FORMAT_ADPCM = 0x0002;
constexpr u32 WAVE_FORMAT_DVI_ADPCM = 0x0011;
constexpr u32 WAVE_FORMAT_MPEG = 0x0050;
constexpr u32 WAVE_FORMAT_MPEG_L2 = 0x0051;
constexpr u32 WAVE_FORMAT_MPEGLAYER3 = 0x0055;
constexpr u32 WAVE_FORMAT_AAC = 0x00FF;
constexpr u32 WAVE_FORMAT_WMA1 = 0x0160;
constexpr u32 WAVE_FORMAT_WMA2 = 0x0161;
constexpr u32 WAVE_FORMAT_WMA3 = 0x0162;
constexpr u32 WAVE_FORMAT_WMA_LOSSLESS = 0x0163;
constexpr u32 WAVE_FORMAT_AC3 = 0x2000;
constexpr u32 WAVE_FORMAT_DTS = 0x2001;
constexpr u32 WAVE_FORMAT_VORBIS1 = 0x674F;
constexpr u32 WAVE_FORMAT_VORBIS2 = 0x6750;
constexpr u32 WAVE_FORMAT_VORBIS3 = 0x6751;
constexpr u32 WAVE_FORMAT_VORBIS1P = 0x676F;
constexpr u32 WAVE_FORMAT_VORBIS2P = 0x6770;
constexpr u32 WAVE_FORMAT_VORBIS3P = 0x6771;
constexpr u32 AUDIO_CODEC_FLAC = 0x664C6143;  // "fLaC" read as one word
// Video codec values of MPEG program streams.
constexpr u32 VIDEO_CODEC_MPEG1 = 5551;
constexpr u32 VIDEO_CODEC_MPEG2 = 5552;

// Format scanners over the head buffer: 1 when the buffer held the format.
u32 Riff_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
u32 Wav_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
u32 WM_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
// The program stream scan overwrites the buffer while it reads time codes.
u32 Mpeg_prescan(MAIOSFile *handle, u8 *buffer, u32 length, MediaInfo *record);
u32 Mpa_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
// The Ogg scan reads the end of the file into the buffer.
u32 Ogg_prescan(MAIOSFile *handle, u8 *buffer, u32 length, MediaInfo *record);
u32 Flac_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
u32 Ac3_prescan(MAIOSFile *handle, const u8 *buffer, u32 length, MediaInfo *record);
// MPEG audio search through the file itself: nonzero when frames were found.
u32 GetHeaderPosition(MAIOSFile *handle, MediaInfo *record);
// Title and artist of the file's ID3 tags into tag_info. Never fails.
void ID3_GetID3(MAIOSFile *handle, MediaInfo *record, const char *path);

// Derives the solution name (and the codec display names) from the record.
u32 Make_Solution_Name(MediaInfo *record, u32 solution_type);
void Info_Display(const MediaInfo *record);

// The record of the last prescan (for the scanners' tests and the driver).
MediaInfo *prescan_record();
