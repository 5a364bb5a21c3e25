// MPEG audio frame header decoders and the pieces of the frame search
// through the file. The head scan (Mpa_prescan) and the search through
// the file (GetHeaderPosition) are declared with the other scanners in
// media_info.h.
#pragma once
#include <span>

#include "info/media_info.h"
#include "platform/mai_types.h"

// The search through the file works on blocks of this size.
constexpr u32 MPA_BLOCK_SIZE = 2048;

// Samples per frame of layer III (and of the Xing/VBRI frame counts).
constexpr u32 MPA_SAMPLES_MPEG1 = 1152;
constexpr u32 MPA_SAMPLES_MPEG2 = 576;

// Header fields of the four bytes at `h` (see mpeg_audio_tables.h).
constexpr u32 mpa_version(const u8 *h) { return (h[1] >> 3) & 3; }
constexpr u32 mpa_layer(const u8 *h) { return (h[1] >> 1) & 3; }
constexpr u32 mpa_bitrate_index(const u8 *h) { return h[2] >> 4; }
constexpr u32 mpa_sample_rate_index(const u8 *h) { return (h[2] >> 2) & 3; }
constexpr u32 mpa_padding(const u8 *h) { return (h[2] >> 1) & 1; }
constexpr u32 mpa_channel_mode(const u8 *h) { return h[3] >> 6; }
constexpr u32 MPA_VERSION_25 = 0;
constexpr u32 MPA_VERSION_RESERVED = 1;
constexpr u32 MPA_VERSION_2 = 2;
constexpr u32 MPA_VERSION_1 = 3;
constexpr u32 MPA_LAYER_III = 1;
constexpr u32 MPA_LAYER_II = 2;
constexpr u32 MPA_LAYER_I = 3;
constexpr u32 MPA_MODE_MONO = 3;

// Two frame headers belong to the same stream when they agree on version,
// layer, sample rate index, private bit and emphasis.
constexpr u32 MPA_SAME_STREAM_MASK = 0x1E0D03;

// True at a frame sync: 0xFF, then a byte with its top three bits set.
constexpr bool mpa_sync(const u8 *p) { return p[0] == 0xFF && (p[1] & 0xE0) == 0xE0; }

// The four header bytes as one big-endian word.
u32 GetHeaderInfo(const u8 *header);
// 1 for a layer II or III header with a usable version, bit rate index and
// sample rate index; 0 otherwise (layer I is refused).
u32 CheckValidHeader(const u8 *header);
// Layer III bit rate in kbit/s from usBRMap (layer II frames too).
u32 GetBitrate(const u8 *header);
// Sample rate in Hz from usSRMap.
u32 GetSamplingRate(const u8 *header);
// 1 for a mono frame, else 2.
u32 GetChannels(const u8 *header);
// The layer field: 1 III, 2 II, 3 I.
u32 GetLayerDescription(const u8 *header);
// Stores the codec tag of the header's layer in the first audio entry and
// returns the frame length in bytes (padding included) from usFLMap for
// layer III and usFLMap2 for layer II; 0 for layer I.
u32 GetFrameSize(MediaInfo *record, const u8 *header);
// Offset of a Xing or VBRI tag from the frame header: the tag follows the
// layer III side information (17 or 32 bytes in MPEG-1, 9 or 17 in MPEG-2
// and 2.5, for mono and the rest) behind the 4-byte header.
u32 mpa_vbr_tag_offset(const u8 *header);
// The frame count of a VBRI header, or of a Xing header whose flags say it
// carries one, in the frame that starts `frame`; 0 when there is none or
// it does not fit. `samples` receives the samples per frame.
u32 DecodeVBRHeader(std::span<const u8> frame, u32 *samples);
// Size of an ID3 version 2.3 tag at the start of `bytes` (synchsafe, the
// 10-byte tag header not counted); 0 for anything else.
u32 CheckID3V2Tag(std::span<const u8> bytes);
// Play time in milliseconds of `bytes` bytes at `bitrate` bit/s, in 32-bit
// arithmetic. The fraction of a second is divided by the bit rate, not the
// byte rate, and so counts an eighth of its value: that is the figure the
// player shows. 0 below 8 bit/s.
u32 mpa_play_time(u32 bytes, u32 bitrate);

// Searches at most 1440 bytes of `block` as it stands for a header that
// agrees with `reference` and is followed one frame later by a valid
// header; returns the two frames' usBRMap bit rates added, or 0. Reads
// the file only when the second header lies past the block.
u32 SearchTwoHeader(MAIOSFile *handle, MediaInfo *record, std::span<u8, MPA_BLOCK_SIZE> block, u32 reference);
// Opens `path`, searches it with GetHeaderPosition and on success sets
// audio_count and the play time from the data length and bit rate.
// Returns what the search returned.
u32 Mpa_prescan2(MediaInfo *record, const char *path);
