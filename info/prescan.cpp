// The prescan driver: reads the head of a file once, hands it to the
// scanner its extension names, derives the solution name and prints what
// it found.
#include "info/prescan.h"

#include <cstdio>
#include <cstring>

#include "info/extensions.h"
#include "info/media_info.h"
#include "platform/mai_engine.h"
#include "platform/mai_os.h"

namespace {

MediaInfo info;

void clear_record() {
  std::memset(&info, 0, sizeof info);
  info.video_seekable = 1;
}

void put_le32(u8 *p, u32 v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<u8>(v >> (8 * i));
}

// Runs the scanners the extension calls for over the head buffer. Each test
// stands alone: a later match overwrites the type of an earlier one.
u32 scan_head(const char *path, MAIOSFile *file, u8 *head) {
  u32 type = SOLUTION_NONE;
  const u32 len = PRESCAN_HEAD_SIZE;
  if (is_avi(path) || is_divx(path)) {
    if (Riff_prescan(file, head, len, &info) == 1)
      type = SOLUTION_AVI;
    else if (WM_prescan(file, head, len, &info) == 1)
      type = SOLUTION_ASF;
  }
  // A misnamed AVI or ASF file is still found: the two container scanners
  // back each other up in opposite orders.
  if (is_wmv(path) || is_wma(path) || is_asf(path)) {
    if (WM_prescan(file, head, len, &info) == 1)
      type = SOLUTION_ASF;
    else if (Riff_prescan(file, head, len, &info) == 1)
      type = SOLUTION_AVI;
  }
  if ((is_mpeg(path) || is_mpg(path) || is_vob(path)) && Mpeg_prescan(file, head, len, &info) == 1)
    type = SOLUTION_MPEG_PS;
  if (is_mp3(path) && Mpa_prescan(file, head, len, &info) == 1) type = SOLUTION_MPEG_AUDIO;
  if (is_ogg(path) && Ogg_prescan(file, head, len, &info) == 1) type = SOLUTION_OGG;
  if (is_ac3(path) && Ac3_prescan(file, head, len, &info) == 1) type = SOLUTION_AC3;
  if (is_wav(path) && Wav_prescan(file, head, len, &info) == 1) type = SOLUTION_WAV;
  if (is_flac(path) && Flac_prescan(file, head, len, &info) == 1) type = SOLUTION_FLAC;
  return type;
}

// Second chance for an .mp3 file whose head did not show MPEG audio: the
// frame search walks the file itself.
u32 mpeg_audio_fallback(const char *path) {
  std::printf("Mpa_prescan2 trying ... ");
  MAIOSFile *file = MAIOSFileOpenForRead(path);
  if (file == nullptr) return SOLUTION_NONE;
  u32 found = 0;
  if (file->status == 0) found = GetHeaderPosition(file, &info);
  MAIOSFileClose(file);
  if (found == 0) return SOLUTION_NONE;
  info.audio_count = 1;
  // The scanner left the audio data length in bits_per_sample. The
  // remainder term divides by the bit rate, not the byte rate: it counts
  // an eighth of the fraction of a second, and that is the expected result.
  const u32 rate = info.audio[0].audio_bitrate;
  const u32 byte_rate = rate / 8;
  if (byte_rate != 0) {
    const u32 length = info.bits_per_sample;
    info.play_time = (length / byte_rate) * 1000 + ((length % byte_rate) * 1000) / rate;
  }
  return SOLUTION_MPEG_AUDIO;
}

}  // namespace

MediaInfo *prescan_record() { return &info; }

u32 PMX_Prescan(const char *path, char *solution) {
  clear_record();
  MAIOSFile *file = MAIOSFileOpenForRead(path);
  if (file == nullptr) return MAIOS_FILE_OPEN_FAILED;
  if (file->status == MAIOS_FILE_OPEN_FAILED) return MAIOS_FILE_OPEN_FAILED;

  u8 *head = static_cast<u8 *>(MAIOSMemAlloc(PRESCAN_HEAD_SIZE));
  if (head == nullptr) std::printf("prescan memalloc  failed ");
  if (head != nullptr) {
    // Bytes past the end of a short file read as zero, so every scanner
    // sees the same buffer for the same file.
    const u32 got = MAIOSFileRead(file, head, PRESCAN_HEAD_SIZE);
    if (got < PRESCAN_HEAD_SIZE) std::memset(head + got, 0, PRESCAN_HEAD_SIZE - got);
  }

  clear_record();
  u64 size = 0;
  if (MAIOSFileGetSize(file, &size) == 0) info.file_size = static_cast<u32>(size);

  // Without a head buffer no scanner can look at the file.
  u32 type = head != nullptr ? scan_head(path, file, head) : SOLUTION_NONE;
  if (type == SOLUTION_MPEG_PS) info.video_seekable = 0;

  MAIOSMemFree(head);
  MAIOSFileClose(file);

  if (is_mp3(path) && type != SOLUTION_MPEG_AUDIO) type = mpeg_audio_fallback(path);

  if (type == SOLUTION_MPEG_AUDIO) {
    MAIOSFile *tags = MAIOSFileOpenForRead(path);
    if (tags != nullptr) {
      if (tags->status == 0) ID3_GetID3(tags, &info, path);
      MAIOSFileClose(tags);
      std::printf("ID3 Tag found ...");
    }
  }

  if (type == SOLUTION_NONE) std::printf("PMX_Prescan failed ");
  std::printf("Solution type=%d\n", static_cast<int>(type));
  Make_Solution_Name(&info, type);
  sp_strcat8(solution, info.solution_name);
  Info_Display(&info);
  return 0;
}

void Info_Display(const MediaInfo *r) {
  std::puts("-General ------------------------");
  std::printf("\tFile size: %d\n", static_cast<int>(r->file_size));
  std::printf("\tPlay time: %d\n", static_cast<int>(r->play_time));
  if (r->video_codec != 0) {
    std::puts("-Video --------------------------");
    std::printf("\tCodec: 0x%x (%s)\n", r->video_codec, r->video_codec_name);
    std::printf("\tBitrate: %d\n", static_cast<int>(r->video_bitrate));
    std::printf("\tWidth: %d\n", static_cast<int>(r->video_width));
    std::printf("\tHeight: %d\n", static_cast<int>(r->video_height));
    std::printf("\tAspect_ratio: %1.2f\n", static_cast<double>(r->aspect_ratio));
    std::printf("\tFrame_rate: %3.2f\n", static_cast<double>(r->frame_rate));
  }
  if (r->audio[0].audio_codec == 0) return;
  // The count comes from the file; only eight entries exist.
  const u32 shown = r->audio_count < MAX_AUDIO_STREAMS ? r->audio_count : MAX_AUDIO_STREAMS;
  for (u32 i = 0; i < shown; ++i) {
    const AudioStreamInfo &a = r->audio[i];
    std::printf("-Audio[%d/%d] ---------------------\n", static_cast<int>(i + 1),
                static_cast<int>(r->audio_count));
    std::printf("\tCodec: 0x%x (%s)\n", a.audio_codec, a.audio_codec_name);
    std::printf("\tBitrate: %d\n", static_cast<int>(a.audio_bitrate));
    std::printf("\tChannel: %d\n", static_cast<int>(a.audio_channels));
    std::printf("\tSample_rate: %d\n", static_cast<int>(a.audio_sample_rate));
    if (a.audio_codec == AUDIO_CODEC_FLAC)
      std::printf("\tBitperSample: %d bit\n", static_cast<int>(r->bits_per_sample));
  }
  std::puts("-Divx Subtitle (DXSB) -----------");
  std::printf("\tTotal Subtitle Num: %d\n", static_cast<int>(r->subtitle_count));
  std::puts("-Multi Audio --------------------");
  std::printf("\tSupport: %s \n", r->multi_audio != 0 ? "ENABLE" : "DISABLE");
  std::puts("---------------------------------");
}

u32 pmx_info_get_totaltime() { return info.play_time; }

void pmx_info_video_seekable(u32 *seekable) { *seekable = info.video_seekable; }

void pmx_info_getvideoinfo(u32 *width, u32 *height, float *aspect, float *frame_rate, float *bitrate) {
  *width = info.video_width;
  *height = info.video_height;
  *aspect = info.aspect_ratio;
  *frame_rate = info.frame_rate;
  *bitrate = static_cast<float>(info.video_bitrate);  // unsigned: 2^31 and up stay positive
}

void pmx_info_get_2audioinfo(u32 *multi_audio, u32 *audio_count) {
  *multi_audio = info.multi_audio;
  *audio_count = info.audio_count;
}

void pmx_info_get_divxsubinfo(u32 *subtitle_count) { *subtitle_count = info.subtitle_count; }

void pmx_info_getaudioinfo(u32 *bitrate, u16 *channels, u32 *sample_rate, u8 *tag) {
  *bitrate = info.audio[0].audio_bitrate;
  *channels = static_cast<u16>(info.audio[0].audio_channels);
  *sample_rate = info.audio[0].audio_sample_rate;
  for (u32 i = 0; i < TAG_INFO_SIZE; ++i) tag[i] = info.tag_info[i];
}

void pmx_info_get_maistreaminfo(u8 *out) {
  if (out == nullptr) return;
  put_le32(out + 0, MAI_PARAM_STREAM_INFO_SIZE);
  if (info.audio[0].audio_codec == AUDIO_CODEC_FLAC) {
    out[4] = 4;
    out[5] = 4;
    out[6] = 0;
    out[7] = 0;
  }
  out[12] = 0;
  out[13] = 0;
  out[14] = 1;
  out[15] = 0;
  put_le32(out + 20, info.file_size);
  put_le32(out + 24, 0);
  put_le32(out + 28, info.play_time);
  put_le32(out + 32, 0);
  put_le32(out + 36, info.audio[0].audio_bitrate);
}
