// Solution naming: the engine builds its pipeline from a short name that
// says which container parser and which decoders a file needs. The name is
// derived from the media info record after the scanners have filled it.
#include <array>
#include <cstring>

#include "info/byte_order.h"
#include "info/media_info.h"
#include "platform/mai_os.h"

namespace {

enum class Edit : u8 { none, set, append };

struct VideoRow {
  u32 fourcc;
  const char *display;
  Edit edit;
  const char *name;
};

struct AudioRow {
  u32 tag;
  const char *display;
  u8 cls;  // AVI audio class: 1 MPEG audio, 2 AC-3, 3 DTS, 0 other
  Edit edit;
  const char *name;
};

// AVI video: the DivX family and Xvid have solutions; the rest do not.
constexpr VideoRow avi_video[] = {
    {fourcc("DIV3"), "Div3 Low", Edit::set, "divx"},      {fourcc("div3"), "Div3 Low", Edit::set, "divx"},
    {fourcc("DIV4"), "Div3 Fast", Edit::set, "divx"},     {fourcc("div4"), "Div3 Fast", Edit::set, "divx"},
    {fourcc("DIVX"), "DivX", Edit::set, "divx"},          {fourcc("divx"), "DivX", Edit::set, "divx"},
    {fourcc("DVX4"), "DivX", Edit::set, "divx"},          {fourcc("dvx4"), "DivX", Edit::set, "divx"},
    {fourcc("DX50"), "Dx50", Edit::set, "divx"},          {fourcc("dx50"), "Dx50", Edit::set, "divx"},
    {fourcc("DIV5"), "Dx50", Edit::set, "divx"},          {fourcc("div5"), "Dx50", Edit::set, "divx"},
    {fourcc("MP43"), "MsMpeg4-V3", Edit::set, "divx"},    {fourcc("mp43"), "MsMpeg4-V3", Edit::set, "divx"},
    {fourcc("XVID"), "Xvid", Edit::set, "avimpv4"},       {fourcc("xvid"), "Xvid", Edit::set, "avimpv4"},
    {fourcc("WMV3"), "Wmv9", Edit::set, "aviwmv"},        {fourcc("wmv3"), "Wmv9", Edit::set, "aviwmv"},
    {fourcc("WMV2"), "Wmv8", Edit::set, "unknown"},       {fourcc("wmv2"), "Wmv8", Edit::set, "unknown"},
    {fourcc("WMV1"), "Wmv7", Edit::set, "unknown"},       {fourcc("wmv1"), "Wmv7", Edit::set, "unknown"},
    {fourcc("MP42"), "MsMpeg4-V2", Edit::set, "unknown"}, {fourcc("mp42"), "MsMpeg4-V2", Edit::set, "unknown"},
    {fourcc("MP41"), "MsMpeg4-V1", Edit::set, "unknown"}, {fourcc("mp41"), "MsMpeg4-V1", Edit::set, "unknown"},
    {fourcc("VSSH"), "H.264", Edit::set, "unknown"},      {fourcc("vssh"), "H.264", Edit::set, "unknown"},
    {fourcc("3IVX"), "Mpeg4", Edit::set, "unknown"},      {fourcc("3ivx"), "Mpeg4", Edit::set, "unknown"},
    {fourcc("3IV2"), "Mpeg4", Edit::set, "unknown"},      {fourcc("3iv2"), "Mpeg4", Edit::set, "unknown"},
    {fourcc("3IV1"), "Mpeg4", Edit::set, "unknown"},      {fourcc("3iv1"), "Mpeg4", Edit::set, "unknown"},
};

// AVI audio: only the first track edits the name; every track gets a class.
constexpr AudioRow avi_audio[] = {
    {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 1, Edit::append, "_mp3"},
    {WAVE_FORMAT_MPEG, "Mpeg1/2 L1", 1, Edit::append, "_mpa"},
    {WAVE_FORMAT_MPEG_L2, "Mpeg1/2 L2", 1, Edit::append, "_mpa"},
    {WAVE_FORMAT_AC3, "Ac-3", 2, Edit::append, "_ac3"},
    {WAVE_FORMAT_DTS, "Dts", 3, Edit::append, "_dts"},
    {WAVE_FORMAT_PCM, "Pcm", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_AAC, "Aac", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_WMA1, "Wma7", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_WMA2, "Wma8", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_WMA3, "Wma9", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS1, "Vorbis1", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS2, "Vorbis2", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS3, "Vorbis3", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS1P, "Vorbis1+", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS2P, "Vorbis1+", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_VORBIS3P, "Vorbis1+", 0, Edit::set, "unknown"},
};

// MPEG program stream audio. DTS has a display name but no suffix.
constexpr AudioRow ps_audio[] = {
    {WAVE_FORMAT_MPEG_L2, "Mpeg1/2 L2", 0, Edit::append, "_mpa"},
    {WAVE_FORMAT_MPEG, "Mpeg1/2 L1", 0, Edit::append, "_mpa"},
    {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 0, Edit::append, "_mpa3"},
    {WAVE_FORMAT_PCM, "Pcm", 0, Edit::append, "_pcm"},
    {WAVE_FORMAT_AC3, "Ac-3", 0, Edit::append, "_ac3"},
    {WAVE_FORMAT_DTS, "Dts", 0, Edit::none, ""},
};

constexpr VideoRow asf_video[] = {
    {fourcc("WMV3"), "Wmv9", Edit::set, "wmt"},          {fourcc("wmv3"), "Wmv9", Edit::set, "wmt"},
    {fourcc("WMV2"), "Wmv8", Edit::set, "wmt8"},         {fourcc("wmv2"), "Wmv8", Edit::set, "wmt8"},
    {fourcc("WMV1"), "Wmv7", Edit::set, "wmt78"},        {fourcc("wmv1"), "Wmv7", Edit::set, "wmt78"},
    {fourcc("MP43"), "MsMpeg4-V3", Edit::set, "wmt78"},  {fourcc("mp43"), "MsMpeg4-V3", Edit::set, "wmt78"},
    {fourcc("MP42"), "MsMpeg4-V2", Edit::set, "wmt78"},  {fourcc("mp42"), "MsMpeg4-V2", Edit::set, "wmt78"},
    {fourcc("MP41"), "MsMpeg4-V1", Edit::set, "wmt78"},  {fourcc("mp41"), "MsMpeg4-V1", Edit::set, "wmt78"},
    {fourcc("MPG4"), "MsMpeg4", Edit::set, "unknown"},   {fourcc("mpg4"), "MsMpeg4", Edit::set, "unknown"},
};

// Only the second Windows Media audio version has a solution.
constexpr AudioRow asf_audio[] = {
    {WAVE_FORMAT_WMA2, "MsAudio2", 0, Edit::none, ""},
    {WAVE_FORMAT_WMA1, "MsAudio1", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_WMA3, "MsAudio3", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_WMA_LOSSLESS, "MsAudio2 Loseless", 0, Edit::set, "unknown"},
};

// MPEG audio without video, then with video (which has no solution).
constexpr AudioRow mpa_audio[] = {
    {WAVE_FORMAT_MPEG, "Mpeg1/2 L1", 0, Edit::append, "mpa"},
    {WAVE_FORMAT_MPEG_L2, "Mpeg1/2 L2", 0, Edit::append, "mpa"},
    {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 0, Edit::append, "mp3"},
};
constexpr AudioRow mpa_audio_with_video[] = {
    {WAVE_FORMAT_MPEG, "Mpeg1/2 L1", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_MPEG_L2, "Mpeg1/2 L2", 0, Edit::set, "unknown"},
    {WAVE_FORMAT_MPEGLAYER3, "Mpeg1/2 L3", 0, Edit::set, "unknown"},
};

// WAV without video: PCM and MS ADPCM play as "pcm".
constexpr AudioRow wav_audio[] = {
    {WAVE_FORMAT_PCM, "Pcm", 0, Edit::append, "pcm"},
    {WAVE_FORMAT_ADPCM, "MsAdpcm", 0, Edit::append, "pcm"},
    {WAVE_FORMAT_DVI_ADPCM, "Dvi-Pcm", 0, Edit::append, "unknown"},
};

struct Builder {
  char name[SOLUTION_NAME_SIZE];
  void apply(Edit edit, const char *text) {
    if (edit == Edit::set) sp_strcpy8(name, text);
    if (edit == Edit::append) sp_strcat8(name, text);
  }
};

template <size_t N>
const VideoRow *find_video(const VideoRow (&rows)[N], u32 fourcc_word) {
  for (const VideoRow &row : rows)
    if (row.fourcc == fourcc_word) return &row;
  return nullptr;
}

template <size_t N>
const AudioRow *find_audio(const AudioRow (&rows)[N], u32 tag) {
  for (const AudioRow &row : rows)
    if (row.tag == tag) return &row;
  return nullptr;
}

void set_codec_name(char (&field)[CODEC_NAME_SIZE], const char *text) {
  std::strncpy(field, text, CODEC_NAME_SIZE - 1);
  field[CODEC_NAME_SIZE - 1] = '\0';
}

// Applies a video row: display name into the record, edit of the name.
template <size_t N>
void name_video(MediaInfo *r, Builder &b, const VideoRow (&rows)[N]) {
  if (const VideoRow *row = find_video(rows, r->video_codec)) {
    set_codec_name(r->video_codec_name, row->display);
    b.apply(row->edit, row->name);
  }
}

// Applies the first audio entry's row; the display name goes to entry 1.
template <size_t N>
void name_first_audio(MediaInfo *r, Builder &b, const AudioRow (&rows)[N]) {
  if (const AudioRow *row = find_audio(rows, r->audio[0].audio_codec)) {
    set_codec_name(r->audio[0].audio_codec_name, row->display);
    b.apply(row->edit, row->name);
  }
}

using AudioClasses = std::array<u8, MAX_AUDIO_STREAMS>;

void name_avi(MediaInfo *r, Builder &b, AudioClasses &cls) {
  name_video(r, b, avi_video);
  const u32 n = r->audio_count < MAX_AUDIO_STREAMS ? r->audio_count : MAX_AUDIO_STREAMS;
  for (u32 i = 0; i < n; ++i) {
    const AudioRow *row = find_audio(avi_audio, r->audio[i].audio_codec);
    if (row == nullptr) continue;
    set_codec_name(r->audio[i].audio_codec_name, row->display);
    cls[i] = row->cls;
    if (i == 0) b.apply(row->edit, row->name);
  }
}

// Several AVI tracks of one audio class can be switched between on the fly.
// The classes are only known when the tracks were named; a file without a
// play time leaves them all 0, and so alike.
void decide_multi_audio(MediaInfo *r, const AudioClasses &cls) {
  r->multi_audio = 0;
  if (r->audio_count < 2 || r->audio_count > MAX_AUDIO_STREAMS) return;
  r->multi_audio = 1;
  for (u32 i = 1; i < r->audio_count; ++i)
    if (cls[i] != cls[0]) r->multi_audio = 0;
}

void name_mpeg_ps(MediaInfo *r, Builder &b) {
  if (r->video_codec == VIDEO_CODEC_MPEG1 || r->video_codec == VIDEO_CODEC_MPEG2) {
    set_codec_name(r->video_codec_name, r->video_codec == VIDEO_CODEC_MPEG1 ? "Mpeg1" : "Mpeg2");
    b.apply(Edit::set, "mpegps");
  }
  name_first_audio(r, b, ps_audio);
}

void name_asf(MediaInfo *r, Builder &b) {
  name_video(r, b, asf_video);
  if (r->video_codec == 0) b.apply(Edit::append, "wma");
  name_first_audio(r, b, asf_audio);
}

// Ogg and AC-3 files: one audio solution, none with video.
void name_single_audio(MediaInfo *r, Builder &b, const char *solution, const char *display) {
  b.apply(r->video_codec != 0 ? Edit::set : Edit::append, r->video_codec != 0 ? "unknown" : solution);
  set_codec_name(r->audio[0].audio_codec_name, display);
}

void name_wav(MediaInfo *r, Builder &b) {
  if (r->video_codec != 0) {
    b.apply(Edit::set, "unknown");
    set_codec_name(r->audio[0].audio_codec_name, "Pcm");
    return;
  }
  if (const AudioRow *row = find_audio(wav_audio, r->audio[0].audio_codec)) {
    set_codec_name(r->audio[0].audio_codec_name, row->display);
    b.apply(row->edit, row->name);
  } else {
    set_codec_name(r->audio[0].audio_codec_name, "??? PCM");
    b.apply(Edit::append, "unknown");
  }
}

// The engine's FLAC decoder takes 16-bit samples only.
void name_flac(MediaInfo *r, Builder &b) {
  if (r->video_codec == 0 && r->bits_per_sample == 16)
    b.apply(Edit::append, "flac");
  else
    b.apply(Edit::set, "unknown");
  set_codec_name(r->audio[0].audio_codec_name, "Flac");
}

}  // namespace

u32 Make_Solution_Name(MediaInfo *r, u32 type) {
  Builder b{};
  AudioClasses cls{};
  if (r->play_time == 0) {
    // A file whose duration could not be found is never handed to the
    // engine with a real solution.
    b.apply(Edit::set, "unknown");
  } else {
    switch (type) {
      case SOLUTION_AVI: name_avi(r, b, cls); break;
      case SOLUTION_MPEG_PS: name_mpeg_ps(r, b); break;
      case SOLUTION_ASF: name_asf(r, b); break;
      case SOLUTION_MPEG_AUDIO:
        if (r->video_codec != 0)
          name_first_audio(r, b, mpa_audio_with_video);
        else
          name_first_audio(r, b, mpa_audio);
        break;
      case SOLUTION_OGG: name_single_audio(r, b, "ogg", "Ogg Vorbis"); break;
      case SOLUTION_AC3: name_single_audio(r, b, "ac3", "Ac-3"); break;
      case SOLUTION_WAV: name_wav(r, b); break;
      case SOLUTION_FLAC: name_flac(r, b); break;
      default: break;
    }
  }
  sp_strcat8(r->solution_name, b.name);
  if (type == SOLUTION_AVI) decide_multi_audio(r, cls);
  return 1;
}
