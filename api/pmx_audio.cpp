// Audio controls: the codec's routing, volume, mute, 3D and microphone,
// the engine's five-band equaliser, track selection, and the media
// information that also prepares speed change.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "api/pmx_internal.h"
#include "hw/audio_api.h"
#include "info/prescan.h"
#include "platform/mai_engine.h"

namespace {

constexpr u32 EQ_PRESETS = 8;
// Presets 7 and 8 take the caller's bands.
constexpr u32 EQ_LAST_PRESET = 8;

// Band gains in steps, band 1 (lowest) to band 5. Row 7 (user) is never
// read: the caller's values take its place.
constexpr s8 preset_eq_table[EQ_PRESETS][PMX_EQ_BANDS] = {
    {0, 0, 0, 0, 0},     // normal
    {0, 0, 0, -1, -2},   // classic
    {1, -3, -1, 3, 5},   // rock
    {0, -3, 0, 1, 2},    // hip hop
    {-1, -1, 1, 1, 1},   // jazz
    {0, 1, -3, -2, 1},   // pop
    {-2, 0, 2, 1, -1},   // R&B
    {0, 0, 0, 0, 0},     // user
};

// Words of the engine's track selection block: the mask of the fields
// being set, then the enable flag of the first track and the four tracks.
constexpr u32 TRACK_MASK = 0, TRACK_ENABLE = 1, TRACK_FIRST = 2;
constexpr u32 TRACK_KINDS = 4;
constexpr u32 TRACK_WORDS = MAI_PARAM_TRACKS_SIZE / sizeof(u32);
static_assert(TRACK_WORDS * sizeof(u32) == MAI_PARAM_TRACKS_SIZE);

// The codec wrappers report -1; the API says 1.
s32 codec_result(s32 result) { return result < 0 ? PMX_FAILED : PMX_OK; }

u8 low_byte(u32 value) { return static_cast<u8>(value & 0xFF); }

// The display aspect ratio as small whole parts (4:3, 16:9, 37:20), the
// first denominator that gives the ratio within 0.1 %.
void aspect_parts(float aspect, u32 *h, u32 *v) {
  *h = 0;
  *v = 0;
  if (!(aspect > 0) || aspect > 100) return;
  constexpr u32 MAX_PART = 100;
  constexpr double TOLERANCE = 0.001;
  for (u32 den = 1; den <= MAX_PART; ++den) {
    const double num = std::round(static_cast<double>(aspect) * den);
    if (num < 1) continue;
    if (std::fabs(num / den - aspect) <= TOLERANCE * aspect) {
      *h = static_cast<u32>(num);
      *v = den;
      return;
    }
  }
  *h = static_cast<u32>(std::lround(static_cast<double>(aspect) * MAX_PART));
  *v = MAX_PART;
}

}  // namespace

s32 pmx_set_audio_device_init() { return codec_result(audio_api_init()); }

s32 pmx_set_volume(u32 volume) {
  const u8 v = low_byte(volume);
  if (v > AUDIO_VOLUME_MAX) return PMX_INVALID_ARG;
  return codec_result(audio_device_set_volume(v));
}

s32 pmx_set_audio_output_ctrl(s32 output, u32 on) {
  const u8 onoff = low_byte(on);
  // The next open chooses the S/PDIF pass-through solutions by this flag.
  if (output == OUTPUT_SPDIF) pmx.spdif = onoff != 0 ? 1 : 0;
  return codec_result(audio_device_output_ctrl(static_cast<AUDIO_OUTPUT>(output), onoff));
}

s32 pmx_set_audio_input_select(s32 input) {
  return codec_result(audio_device_input_select(static_cast<AUDIO_INPUT>(input)));
}

s32 pmx_set_audio_mute(u32 on) { return codec_result(audio_device_mute(low_byte(on))); }

s32 pmx_set_audio_3D_ctrl(u32 on, u32 depth, u32 bass, u32 treble) {
  return codec_result(audio_device_3D_ctrl(low_byte(on), low_byte(depth), low_byte(bass), low_byte(treble)));
}

u8 pmx_get_audio_output_state(s32 output) {
  return audio_device_get_output_state(static_cast<AUDIO_OUTPUT>(output));
}

u8 pmx_get_audio_input_state() { return audio_device_get_input_state(); }

u8 pmx_get_volume() { return audio_device_get_volume(); }

s32 pmx_set_MIC_sensitivity(s32 sense) {
  return codec_result(audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(sense)));
}

s32 pmx_set_EQ(u32 preset, s8 *bands) {
  if (preset > EQ_LAST_PRESET || bands == nullptr) return PMX_INVALID_ARG;
  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_FAILED;

  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> block{};
  u32 status = MAIengine_GetParam(engine, MAI_PARAM_EQUALIZER, block.data(), MAI_PARAM_EQUALIZER_SIZE);
  if (status != 0) return pmx_translate(status);

  std::array<s8, PMX_EQ_BANDS> gains{};
  for (u32 i = 0; i < PMX_EQ_BANDS; ++i) {
    if (preset < PMX_EQ_USER) {
      gains[i] = preset_eq_table[preset][i];
    } else {
      bands[i] = std::clamp<s8>(bands[i], -PMX_EQ_GAIN_MAX, PMX_EQ_GAIN_MAX);
      gains[i] = bands[i];
    }
    block[i] = static_cast<u8>(gains[i]);
  }
  std::printf("PMX set EQ\nband1= %d\nband2= %d\nband3= %d\nband4= %d\nband5= %d\n", gains[0], gains[1], gains[2],
              gains[3], gains[4]);
  status = MAIengine_SetParam(engine, MAI_PARAM_EQUALIZER, block.data(), MAI_PARAM_EQUALIZER_SIZE);
  return pmx_translate(status);
}

s32 pmx_get_EQ_band_value(s8 *bands) {
  if (bands == nullptr) return PMX_INVALID_ARG;
  const u32 engine = pmx.engine.load();
  if (engine == 0) return PMX_FAILED;
  std::array<u8, MAI_PARAM_EQUALIZER_SIZE> block{};
  const u32 status = MAIengine_GetParam(engine, MAI_PARAM_EQUALIZER, block.data(), MAI_PARAM_EQUALIZER_SIZE);
  if (status != 0) return pmx_translate(status);
  for (u32 i = 0; i < PMX_EQ_BANDS; ++i) bands[i] = static_cast<s8>(block[i]);
  return PMX_OK;
}

s32 pmx_set_track_selection(u32 kind, u32 number) {
  const u32 engine = pmx.engine.load();
  std::array<u32, TRACK_WORDS> block{};
  const u32 status = MAIengine_GetParam(engine, MAI_PARAM_TRACKS, block.data(), MAI_PARAM_TRACKS_SIZE);
  if (kind < TRACK_KINDS) {
    block[TRACK_MASK] |= 1u << kind;
    if (kind == 0) block[TRACK_ENABLE] = number != 0 ? 1 : 0;
    block[TRACK_FIRST + kind] = number;
  }
  // An unknown kind writes the block back unchanged.
  if (status == 0) MAIengine_SetParam(engine, MAI_PARAM_TRACKS, block.data(), MAI_PARAM_TRACKS_SIZE);
  return PMX_OK;
}

s32 pmx_get_media_info(PmxMediaInfo *info) {
  if (pmx.is_open.load() == 0) return PMX_NO_FILE_OPEN;
  if (info == nullptr) return PMX_INVALID_ARG;
  std::memset(info, 0, sizeof *info);

  pmx_info_getvideoinfo(&info->video_width, &info->video_height, &info->video_aspect, &info->video_frame_rate,
                        &info->video_bitrate);
  aspect_parts(info->video_aspect, &info->video_par_h, &info->video_par_v);
  pmx_info_getaudioinfo(&info->audio_bitrate, &info->audio_channels, &info->audio_sample_rate, info->tag);

  for (u32 i = 0; i < SRC_TABLE_SIZE; ++i) {
    if (SRC_Table[i] != info->audio_sample_rate) continue;
    pmx.normal_speed_index = i;
    pmx.speed_index = i;
    std::printf("current_src_order[%d]\n", static_cast<int>(i));
    break;
  }
  // Index 0 means "not known": the lowest rate gets no speed change.
  if (pmx.speed_index == 0) std::puts("NOT SUPPORT AUDIO TRICK MODE !!");
  return PMX_OK;
}
