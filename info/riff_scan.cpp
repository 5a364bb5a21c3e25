// RIFF AVI scan. The header list ("hdrl") at the front of an AVI file holds
// the main header ("avih"), one stream list ("strl") per stream with its
// stream header ("strh") and stream format ("strf"), and optionally the
// OpenDML extension list ("odml"). The scan walks those lists in the head
// buffer and fills the video and audio fields of the record; the movie
// data and the index are stepped over.
//
// RIFF chunk layout: identifier (4 bytes), size (u32, the bytes after the
// size field), data. A "LIST" chunk carries its list type in the first 4
// data bytes and its sub-chunks after that. All numbers are little-endian.
#include <optional>
#include <span>

#include "info/aspect_ratio.h"
#include "info/byte_order.h"
#include "info/media_info.h"
#include "info/zero_run.h"

namespace {

constexpr u32 CHUNK_HEADER = 8;  // identifier and size
constexpr u32 LIST_HEADER = 12;  // "LIST", size and list type
constexpr u32 FORM_TYPE_AT = 8;
constexpr u32 FIRST_CHUNK_AT = 12;

// "avih" main header: total frames of the file.
constexpr u32 AVIH_TOTAL_FRAMES = 16;
// "strh" stream header.
constexpr u32 STRH_TYPE = 0;
constexpr u32 STRH_HANDLER = 4;
constexpr u32 STRH_SCALE = 20;
constexpr u32 STRH_RATE = 24;
constexpr u32 STRH_LENGTH = 32;
// Just past the 56 bytes of a stream header. Writers that leave the
// compression of a video stream empty are read for the picture size here,
// as signed 16-bit values.
constexpr u32 STRH_WIDTH = 56;
constexpr u32 STRH_HEIGHT = 58;
// "strf" of a video stream: a BITMAPINFOHEADER.
constexpr u32 BMP_WIDTH = 4;
constexpr u32 BMP_HEIGHT = 8;
constexpr u32 BMP_COMPRESSION = 16;
// "strf" of an audio stream: a WAVEFORMATEX.
constexpr u32 WAVE_FORMAT_TAG = 0;
constexpr u32 WAVE_CHANNELS = 2;
constexpr u32 WAVE_SAMPLE_RATE = 4;
constexpr u32 WAVE_BYTE_RATE = 8;
constexpr u32 WAVE_FIELDS_END = 12;
// "dmlh" inside "odml": total frames of all RIFF parts of the file.
constexpr u32 DMLH_TOTAL_FRAMES = 0;

// Bit rate kept back from the whole-file rate for the container's own
// overhead and for the audio track's framing; AC-3 framing costs less.
constexpr u32 CONTAINER_OVERHEAD_BPS = 5000;
constexpr u32 AUDIO_OVERHEAD_BPS = 8000;
constexpr u32 AC3_AUDIO_OVERHEAD_BPS = 4750;

// The head buffer and what the walk has gathered so far. Positions are
// 64-bit so that a huge chunk size cannot wrap a position back into the
// buffer: every step moves forward.
struct Walk {
  std::span<const u8> head;
  MediaInfo *record;
  u32 total_frames;
  u32 audio_streams;
};

bool fits(const Walk &w, u64 at, u64 bytes) { return at <= w.head.size() && bytes <= w.head.size() - at; }
const u8 *at(const Walk &w, u64 pos) { return w.head.data() + pos; }

struct Chunk {
  u32 id;
  u32 size;
};

// The chunk header at `pos`, or nothing when it does not lie whole in the
// buffer: such a chunk ends the list it is in.
std::optional<Chunk> chunk_at(const Walk &w, u64 pos) {
  if (!fits(w, pos, CHUNK_HEADER)) return std::nullopt;
  return Chunk{FourCC(at(w, pos)), LittleEndian2int32u(at(w, pos + 4))};
}

// A header of eight zero bytes names no chunk of interest and is stepped
// over by its own 8 bytes, without effect, by every walk below; in zero
// fill the walks would take one such step after another. This gives the
// position of the first header from `pos` on, in steps of 8 bytes, that
// is not all zero (or that does not lie whole in the buffer): every header
// skipped lies whole in the buffer before the first nonzero byte.
u64 past_zero_headers(const Walk &w, u64 pos) {
  const u32 from = static_cast<u32>(pos);
  const u32 nonzero = first_nonzero(w.head.data(), from, static_cast<u32>(w.head.size()));
  return pos + (nonzero - from) / CHUNK_HEADER * CHUNK_HEADER;
}

bool zero_header(const Chunk &c) { return c.id == 0 && c.size == 0; }

// The list type of the "LIST" chunk at `pos`, if it lies in the buffer.
std::optional<u32> list_type_at(const Walk &w, u64 pos) {
  if (!fits(w, pos + CHUNK_HEADER, 4)) return std::nullopt;
  return FourCC(at(w, pos + CHUNK_HEADER));
}

bool has_zero_byte(u32 code) {
  return (code & 0xFFu) == 0 || (code & 0xFF00u) == 0 || (code & 0xFF0000u) == 0 || (code & 0xFF000000u) == 0;
}

u32 s16_field(const Walk &w, u64 pos) {
  return static_cast<u32>(static_cast<s32>(static_cast<s16>(LittleEndian2int16u(at(w, pos)))));
}

// A float truncated to an unsigned word; a value beyond the word's range
// is held at the largest word rather than left undefined.
u32 truncate_to_u32(float v) {
  if (!(v > 0.0f)) return 0;
  if (v >= 4294967296.0f) return 0xFFFFFFFFu;
  return static_cast<u32>(v);
}

// Video stream format. The codec and picture size are those of the first
// video stream; the frame rate is that of the last one with a time scale
// (a subtitle stream included). False when the fields leave the buffer.
bool video_format(Walk &w, u64 strh, u64 strf) {
  if (!fits(w, strf, BMP_COMPRESSION + 4) || !fits(w, strh, STRH_LENGTH + 4)) return false;
  MediaInfo *r = w.record;
  const u32 compression = FourCC(at(w, strf + BMP_COMPRESSION));
  if (has_zero_byte(compression)) {
    // Uncompressed (BI_RGB is 0) or a numeric format: the stream header's
    // handler names the codec.
    if (r->video_codec == 0) {
      if (!fits(w, strh, STRH_HEIGHT + 2)) return false;
      r->video_codec = FourCC(at(w, strh + STRH_HANDLER));
      r->video_width = s16_field(w, strh + STRH_WIDTH);
      r->video_height = s16_field(w, strh + STRH_HEIGHT);
    }
  } else {
    if (r->video_codec == 0) {
      r->video_codec = compression;
      r->video_width = LittleEndian2int32u(at(w, strf + BMP_WIDTH));
      r->video_height = LittleEndian2int32u(at(w, strf + BMP_HEIGHT));
      // The stream's own length counts the frames of this stream.
      w.total_frames = LittleEndian2int32u(at(w, strh + STRH_LENGTH));
    }
    if (compression == fourcc("DXSB")) ++r->subtitle_count;
  }
  const u32 scale = LittleEndian2int32u(at(w, strh + STRH_SCALE));
  const u32 rate = LittleEndian2int32u(at(w, strh + STRH_RATE));
  if (scale != 0) r->frame_rate = static_cast<float>(rate) / static_cast<float>(scale);
  return true;
}

// Audio stream format: one record entry per audio stream, in file order.
// Streams beyond the record's entries are counted but not described.
bool audio_format(Walk &w, u64 strf) {
  if (!fits(w, strf, WAVE_FIELDS_END)) return false;
  MediaInfo *r = w.record;
  const u32 n = w.audio_streams;
  if (n < MAX_AUDIO_STREAMS && r->audio[n].audio_codec == 0) {
    AudioStreamInfo &a = r->audio[n];
    a.audio_codec = LittleEndian2int16u(at(w, strf + WAVE_FORMAT_TAG));
    a.audio_channels = LittleEndian2int16u(at(w, strf + WAVE_CHANNELS));
    a.audio_sample_rate = LittleEndian2int32u(at(w, strf + WAVE_SAMPLE_RATE));
    a.audio_bitrate = LittleEndian2int32u(at(w, strf + WAVE_BYTE_RATE)) * 8;
  }
  w.audio_streams = n + 1;
  r->audio_count = w.audio_streams;
  return true;
}

// A "strf" chunk, read according to the type in its stream header.
bool stream_format(Walk &w, u64 strh, u64 strf) {
  if (!fits(w, strh, STRH_TYPE + 4)) return false;
  const u32 type = FourCC(at(w, strh + STRH_TYPE));
  if (type == fourcc("vids") || type == fourcc("iavs")) return video_format(w, strh, strf);
  if (type == fourcc("auds")) return audio_format(w, strf);
  return true;  // text, MIDI and other streams carry nothing for the record
}

// Sub-chunks of a stream list, from `pos` while below `end`. A format
// chunk before any stream header has nothing to be read by and is skipped.
void walk_strl(Walk &w, u64 pos, u64 end) {
  std::optional<u64> strh;
  while (pos < end) {
    const std::optional<Chunk> c = chunk_at(w, pos);
    if (!c) return;
    if (zero_header(*c)) {
      pos = past_zero_headers(w, pos);
      continue;
    }
    const u64 data = pos + CHUNK_HEADER;
    if (c->id == fourcc("strh")) {
      strh = data;
    } else if (c->id == fourcc("strf") && strh) {
      if (!stream_format(w, *strh, data)) return;
    }
    pos = data + c->size;
  }
}

// Sub-chunks of the OpenDML list: its "dmlh" counts the frames of every
// RIFF part of a file larger than the first part; the last one counts.
void walk_odml(Walk &w, u64 pos, u64 end) {
  while (pos < end) {
    const std::optional<Chunk> c = chunk_at(w, pos);
    if (!c) return;
    if (zero_header(*c)) {
      pos = past_zero_headers(w, pos);
      continue;
    }
    const u64 data = pos + CHUNK_HEADER;
    if (c->id == fourcc("dmlh")) {
      if (!fits(w, data + DMLH_TOTAL_FRAMES, 4)) return;
      w.total_frames = LittleEndian2int32u(at(w, data + DMLH_TOTAL_FRAMES));
    }
    pos = data + c->size;
  }
}

// Sub-chunks of the header list. Each list is walked up to its start plus
// its size, which is 8 bytes short of its true end: a sub-chunk in the last
// 8 bytes of a list is not visited.
void walk_hdrl(Walk &w, u64 pos, u64 end) {
  while (pos < end) {
    const std::optional<Chunk> c = chunk_at(w, pos);
    if (!c) return;
    if (zero_header(*c)) {
      pos = past_zero_headers(w, pos);
      continue;
    }
    const u64 data = pos + CHUNK_HEADER;
    const u64 bound = pos + c->size;
    u64 next = data + c->size;
    if (c->id == fourcc("avih")) {
      if (!fits(w, data + AVIH_TOTAL_FRAMES, 4)) return;
      w.total_frames = LittleEndian2int32u(at(w, data + AVIH_TOTAL_FRAMES));
    } else if (c->id == fourcc("LIST")) {
      const std::optional<u32> type = list_type_at(w, pos);
      if (!type) return;
      if (*type == fourcc("strl")) walk_strl(w, pos + LIST_HEADER, bound);
      else if (*type == fourcc("odml")) walk_odml(w, pos + LIST_HEADER, bound);
    } else if ((c->id == fourcc("ISFT") || c->id == fourcc("IDIT")) && (c->size & 1) != 0) {
      ++next;  // the pad byte that keeps chunks at even offsets
    }
    pos = next;
  }
}

// Play time, video bit rate, aspect ratio and bits per pixel from what the
// header lists gave, in single precision.
void derive_video_figures(const Walk &w) {
  MediaInfo *r = w.record;
  if (r->frame_rate != 0.0f) {
    const float seconds = static_cast<float>(w.total_frames) / r->frame_rate;
    r->play_time = truncate_to_u32(seconds * 1000.0f);
  }
  if (r->play_time != 0) {
    // The whole file's rate, less the container's and the first audio
    // track's share. Unsigned: a small file with a rich audio track wraps.
    const u32 total_bits = truncate_to_u32(static_cast<float>(r->file_size) * 8.0f);
    const float seconds = static_cast<float>(r->play_time) / 1000.0f;
    const u32 overall = truncate_to_u32(static_cast<float>(total_bits) / seconds);
    const u32 audio_overhead =
        r->audio[0].audio_codec == WAVE_FORMAT_AC3 ? AC3_AUDIO_OVERHEAD_BPS : AUDIO_OVERHEAD_BPS;
    r->video_bitrate = overall - CONTAINER_OVERHEAD_BPS - r->audio[0].audio_bitrate - audio_overhead;
  }
  if (r->video_height != 0 && r->video_width != 0) {
    r->aspect_ratio = snap_aspect_ratio(r->video_width, r->video_height, r->aspect_ratio);
    if (r->frame_rate != 0.0f) {
      const float pixels_per_second =
          static_cast<float>(r->video_width) * static_cast<float>(r->video_height) * r->frame_rate;
      r->video_bits_per_pixel = static_cast<float>(r->video_bitrate) / pixels_per_second;
    }
  }
}

}  // namespace

u32 Riff_prescan(MAIOSFile *, const u8 *buffer, u32 length, MediaInfo *record) {
  if (buffer == nullptr || length < FIRST_CHUNK_AT) return 0;
  if (FourCC(buffer) != fourcc("RIFF") || FourCC(buffer + FORM_TYPE_AT) != fourcc("AVI ")) return 0;

  Walk w{std::span<const u8>(buffer, length), record, 0, 0};
  // Top-level chunks: the header list, the "INFO" list, junk, the movie
  // list and the index. A chunk reaching past the buffer ends the walk.
  u64 pos = FIRST_CHUNK_AT;
  while (pos < length) {
    const std::optional<Chunk> c = chunk_at(w, pos);
    if (!c) break;
    if (zero_header(*c)) {
      pos = past_zero_headers(w, pos);
      continue;
    }
    const u64 end = pos + c->size;
    u64 next = end + CHUNK_HEADER;
    if (c->id == fourcc("LIST")) {
      const std::optional<u32> type = list_type_at(w, pos);
      if (!type) break;
      if (*type == fourcc("hdrl")) walk_hdrl(w, pos + LIST_HEADER, end);
      else if (*type == fourcc("strn") && (c->size & 1) != 0) ++next;  // pad byte
      // "INFO" (tags) and "movi" (the frames) are stepped over whole.
    }
    pos = next;
  }
  derive_video_figures(w);
  return 1;
}
