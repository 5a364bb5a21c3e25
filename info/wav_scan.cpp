// WAV header scan. A WAVE file is read at fixed positions: the format
// chunk is expected right after the form type, and the data chunk is
// searched for behind it, byte by byte.
#include "info/byte_order.h"
#include "info/media_info.h"

namespace {

constexpr u32 RIFF_SIZE_AT = 4;
constexpr u32 FORM_TYPE_AT = 8;
constexpr u32 FMT_ID_AT = 12;
constexpr u32 FMT_SIZE_AT = 16;
constexpr u32 FORMAT_TAG_AT = 20;
constexpr u32 CHANNELS_AT = 22;
constexpr u32 SAMPLE_RATE_AT = 24;
constexpr u32 BYTE_RATE_AT = 28;
constexpr u32 DATA_SEARCH_AFTER_FMT = 36;
constexpr u32 DATA_SEARCH_POSITIONS = 1047;

}  // namespace

u32 Wav_prescan(MAIOSFile *, const u8 *buf, u32 length, MediaInfo *r) {
  if (buf == nullptr || length < FMT_ID_AT) return 0;
  if (FourCC(buf) != fourcc("RIFF")) return 0;
  u32 riff_size = LittleEndian2int32u(buf + RIFF_SIZE_AT);
  if (riff_size == 0) riff_size = r->file_size;
  if (FourCC(buf + FORM_TYPE_AT) != fourcc("WAVE")) return 0;

  u32 fmt_size = 0, tag = 0, channels = 0, sample_rate = 0, byte_rate = 0;
  u32 search = FMT_ID_AT;
  if (length >= DATA_SEARCH_AFTER_FMT) {
    const u32 id = FourCC(buf + FMT_ID_AT);
    if (id == fourcc("fmt ") || id == fourcc("fmt_")) {
      fmt_size = LittleEndian2int32u(buf + FMT_SIZE_AT);
      tag = LittleEndian2int16u(buf + FORMAT_TAG_AT);
      channels = LittleEndian2int16u(buf + CHANNELS_AT);
      sample_rate = LittleEndian2int32u(buf + SAMPLE_RATE_AT);
      byte_rate = LittleEndian2int32u(buf + BYTE_RATE_AT);
      search = DATA_SEARCH_AFTER_FMT;
    }
  }

  // The "data" identifier and its size word must both lie in the buffer.
  u32 data_size = riff_size - fmt_size;
  for (u32 p = search; p < search + DATA_SEARCH_POSITIONS && p + 8 <= length; ++p) {
    if (FourCC(buf + p) == fourcc("data")) {
      data_size = LittleEndian2int32u(buf + p + 4);
      break;
    }
  }

  AudioStreamInfo &a = r->audio[0];
  a.audio_codec = tag;
  a.audio_channels = channels;
  a.audio_sample_rate = sample_rate;
  a.audio_bitrate = byte_rate * 8;
  if (data_size == 0) data_size = riff_size;
  r->audio_count = 1;

  // Whole seconds first, so the millisecond part cannot overflow. A byte
  // rate of 0 gives no play time (and so no solution) instead of a trap.
  if (byte_rate != 0)
    r->play_time = (data_size / byte_rate) * 1000 + ((data_size % byte_rate) * 1000) / byte_rate;
  return 1;
}
