// MPEG audio frame header decoders shared by the head scan and the search
// through the file.
#include "info/byte_order.h"
#include "info/mpeg_audio.h"
#include "info/mpeg_audio_tables.h"

namespace {

// Row of the version in usSRMap and usFLMap: MPEG-2.5, MPEG-2, MPEG-1.
// The reserved version has no row.
constexpr u32 NO_ROW = 0xFFFFFFFFu;
constexpr u32 version_row(u32 version) {
  switch (version) {
    case MPA_VERSION_25: return 0;
    case MPA_VERSION_2: return 1;
    case MPA_VERSION_1: return 2;
    default: return NO_ROW;
  }
}

constexpr u32 XING_HAS_FRAMES = 0x01;

}  // namespace

u32 GetHeaderInfo(const u8 *header) { return BigEndian2int32u(header); }

u32 CheckValidHeader(const u8 *header) {
  if (header[0] < 0xFF) return 0;
  if ((header[1] & 0xE0) != 0xE0) return 0;
  if (mpa_version(header) == MPA_VERSION_RESERVED) return 0;
  const u32 layer = mpa_layer(header);
  if (layer != MPA_LAYER_III && layer != MPA_LAYER_II) return 0;
  const u32 rate = mpa_bitrate_index(header);
  if (rate == 0 || rate == 15) return 0;
  if (mpa_sample_rate_index(header) == 3) return 0;
  return 1;
}

u32 GetBitrate(const u8 *header) {
  const u32 row = mpa_version(header) == MPA_VERSION_1 ? 16 : 0;
  return usBRMap[row + mpa_bitrate_index(header)];
}

u32 GetSamplingRate(const u8 *header) {
  const u32 row = version_row(mpa_version(header));
  if (row == NO_ROW) return 0;
  return usSRMap[row * 4 + mpa_sample_rate_index(header)];
}

u32 GetChannels(const u8 *header) { return mpa_channel_mode(header) == MPA_MODE_MONO ? 1 : 2; }

u32 GetLayerDescription(const u8 *header) { return mpa_layer(header); }

u32 GetFrameSize(MediaInfo *record, const u8 *header) {
  const u32 layer = mpa_layer(header);
  if (layer == 0) return 0;
  record->audio[0].audio_codec = mpa_codec_by_layer[layer];
  const u32 row = version_row(mpa_version(header));
  if (row == NO_ROW) return 0;
  const u32 column = mpa_bitrate_index(header);
  const u32 sr = mpa_sample_rate_index(header);
  const u32 padding = mpa_padding(header);
  if (layer == MPA_LAYER_III) return usFLMap[(row * 4 + sr) * 16 + column] + padding;
  if (layer == MPA_LAYER_II) {
    // MPEG-2.5 layer II shares the MPEG-2 rows.
    const u32 row2 = mpa_version(header) == MPA_VERSION_1 ? 1 : 0;
    return usFLMap2[(row2 * 4 + sr) * 16 + column] + padding;
  }
  return 0;
}

u32 mpa_vbr_tag_offset(const u8 *header) {
  const bool mono = mpa_channel_mode(header) == MPA_MODE_MONO;
  if (mpa_version(header) == MPA_VERSION_1) return mono ? 4 + 17 : 4 + 32;
  return mono ? 4 + 9 : 4 + 17;
}

u32 DecodeVBRHeader(std::span<const u8> frame, u32 *samples) {
  if (frame.size() < 4) return 0;
  const u8 *header = frame.data();
  *samples = mpa_version(header) == MPA_VERSION_1 ? MPA_SAMPLES_MPEG1 : MPA_SAMPLES_MPEG2;
  const u32 at = mpa_vbr_tag_offset(header);
  if (frame.size() < at + 4) return 0;
  const u8 *tag = header + at;
  // VBRI (Fraunhofer): tag, version 2, delay 2, quality 2, bytes 4, frames 4.
  if (FourCC(tag) == fourcc("VBRI")) {
    if (frame.size() < at + 18) return 0;
    return BigEndian2int32u(tag + 14);
  }
  // Xing: tag, 32-bit flags (frames, bytes, TOC, quality), then the fields
  // the flags announce, frames first.
  if (FourCC(tag) == fourcc("Xing")) {
    if (frame.size() < at + 12) return 0;
    if ((tag[7] & XING_HAS_FRAMES) == 0) return 0;
    return BigEndian2int32u(tag + 8);
  }
  return 0;
}

u32 CheckID3V2Tag(std::span<const u8> bytes) {
  // "ID3", major version, revision, flags, four size bytes of 7 bits each.
  if (bytes.size() < 10) return 0;
  if (bytes[0] != 'I' || bytes[1] != 'D' || bytes[2] != '3') return 0;
  if (bytes[3] != 3 || bytes[4] == 0xFF) return 0;
  for (u32 i = 6; i < 10; ++i)
    if (bytes[i] >= 0x80) return 0;
  return (static_cast<u32>(bytes[6]) << 21) | (static_cast<u32>(bytes[7]) << 14) |
         (static_cast<u32>(bytes[8]) << 7) | static_cast<u32>(bytes[9]);
}

u32 mpa_play_time(u32 bytes, u32 bitrate) {
  const u32 byte_rate = bitrate / 8;
  if (byte_rate == 0) return 0;
  return (bytes / byte_rate) * 1000 + ((bytes % byte_rate) * 1000) / bitrate;
}
