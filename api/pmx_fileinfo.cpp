// Diagnostic printout of the open file's media types, as the engine
// reports them, and of the current video window.
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "api/pmx_internal.h"
#include "info/byte_order.h"
#include "platform/mai_engine.h"

namespace {

struct Name {
  u32 value;
  const char *text;
};

constexpr Name major_types[] = {
    {0, "MediaType is unspecified."},
    {1, "Audio MediaType"},
    {2, "Video MediaType"},
    {4, "Overlay MediaType"},
    {0x2000, "WAV Audio Stream."},
    {0x10000, "Muxed MediaType"},
    {0x10001, "MPEG MediaType"},
    {0x10003, "MPEG-1 Systems."},
    {0x10005, "MPEG-2 Program Stream."},
    {0x10009, "MPEG-2 Transport Stream."},
    {0x10010, " ASF Muxed Stream."},
    {0x10030, "ASF Stream with Windows Media data"},
    {0x10040, "AVI Muxed Stream."},
    {0x10080, "DIVX Stream."},
    {0x10180, "DIVX Stream."},
    {0x10280, "DIVX Stream."},
    {0x10480, "DIVX Stream."},
    {0x11000, "MP4 Muxed Stream."},
    {0x800000, "AMD Proprietary Stream."},
};

constexpr Name sub_types[] = {
    {0, "MediaSubType is unspecified."},
    {1, "MPEG Video "},
    {2, "MPEG-2 Video "},
    {5, "MPEG-4 Video "},
    {16, "MPEG Audio (layer unknown) "},
    {17, "MPEG Audio layer 1 "},
    {18, "MPEG Audio layer 2 "},
    {19, "MPEG Audio layer 3 "},
    {20, "MPEG Audio in MPEG-1 PES stream "},
    {21, "MPEG Audio in MPEG-2 PES stream "},
    {64, "Windows Media Video "},
    {65, "Windows Media Video V7 "},
    {66, "Windows Media Video V8 "},
    {67, "Windows Media Video V9 "},
    {68, "Windows Media Video V9 Advanced Profile "},
    {256, "Windows Media Audio "},
    {257, "Windows Media Audio (Pro) "},
    {512, "Dolby AC-3 Audio "},
    {513, "AC3 in MPEG-2 PES stream "},
    {514, "AC3 in ATSC stream "},
    {1024, "PCM Audio "},
    {1025, "AAC Audio "},
    {1026, "OGG Audio "},
    {0x8003, "MPEG Video in MPEG-1 PES stream "},
    {0x8004, "MPEG Video in MPEG-2 PES stream "},
    {0x10000, "Microsoft Bitmap "},
    {0x10001, "TIFF Video "},
    {0x20000, "JPEG Still Video or Motion JPEG Vide"},
    {0x40000, "Raw RGB Video "},
    {0x40001, "Raw RGB 8-bit Video "},
    {0x40002, "Raw RGB 555 (15-bit) Video"},
    {0x40003, "Raw RGB 565 (16-bit) Video "},
    {0x40004, "Raw RGB 888 (24-bit) Video "},
    {0x40005, "Raw RGB 8888 (32-bit) Video "},
    {0x80000, "Raw YUV Video "},
    {0x80001, "Raw YUV 4:1:1 Video "},
    {0x80002, "Raw YUV 4:2:0 Video "},
    {0x80003, "Raw YUV 4:2:2 Video "},
    {0x80004, "Raw YUV 4:4:4 Video "},
    {0x100000, "DIVX "},
    {0x10012C, "DIVX30 "},
    {0x100190, "DIVX40 "},
    {0x10019A, "DIVX41 "},
    {0x1001F4, "DIVX50 "},
    {0x200000, "XVID "},
};

// Frame rates in thousandths of a frame per second.
constexpr Name frame_rates[] = {
    {0, "NONE"},     {23976, "23.976"}, {24000, "24"},    {25000, "25"},    {29970, "29.97"},
    {30000, "30"},   {50000, "50"},     {59940, "59.94"}, {60000, "60"},
};

constexpr Name audio_type_flags[] = {{MAI_AUDIO_CBR, "CBR"}, {MAI_AUDIO_VBR, "VBR"}};
constexpr Name audio_mode_flags[] = {
    {MAI_AUDIOMODE_MS_STEREO, "MS Stereo."},
    {MAI_AUDIOMODE_INTENSITY, "MAI_AUDIOMODEFLAG_INTENSITYSTEREO"},
    {MAI_AUDIOMODE_JOINT, "Joint Stereo."},
    {MAI_AUDIOMODE_SBR, "Spectral Band Replication"},
};

struct DisplayFlag {
  u32 bit;
  const char *on;
  const char *off;
};

// The KEYCOLOR line is spaced differently when on; bit 3 has no line.
constexpr DisplayFlag display_flags[] = {
    {0x01, "ENABLE flag        : ON", "ENABLE flag        : OFF"},
    {0x02, "NOMIX flag         : ON", "NOMIX flag         : OFF"},
    {0x04, "CENTER flag        : ON", "CENTER flag        : OFF"},
    {0x10, "SOURCERECT flag    : ON", "SOURCERECT flag    : OFF"},
    {0x20, "DESTRECT flag      : ON", "DESTRECT flag      : OFF"},
    {0x40, "KEYCOLOR   flag    : ON", "KEYCOLOR flag      : OFF"},
    {0x80, "KEYMASK flag       : ON", "KEYMASK flag       : OFF"},
};

template <size_t N>
const char *lookup(const Name (&table)[N], u32 value) {
  for (const Name &n : table)
    if (n.value == value) return n.text;
  return nullptr;
}

int word(const u8 *record, u32 at) { return static_cast<int>(LittleEndian2int32u(record + at)); }
int half(const u8 *record, u32 at) { return LittleEndian2int16u(record + at); }

// The extra text is NUL-terminated inside the record; a record without the
// terminator prints only what lies inside it.
void print_extra(const char *format, const u8 *record, u32 at, u32 size) {
  std::array<char, MAI_VIDEO_MEDIATYPE_SIZE> text{};
  std::memcpy(text.data(), record + at, size - at);
  text[size - at] = '\0';
  std::printf(format, text.data());
}

}  // namespace

void media_type_print(const u8 *record) {
  std::printf("MediaType          : ");
  usleep(10);
  // An unknown major type prints nothing: the subtype label follows on the
  // same line.
  if (const char *text = lookup(major_types, LittleEndian2int32u(record + MAI_VMT_MAJOR))) std::puts(text);
  std::printf("MediaSubType       : ");
  const char *sub = lookup(sub_types, LittleEndian2int32u(record + MAI_VMT_SUBTYPE));
  std::puts(sub != nullptr ? sub : "Can't find video type");
}

void media_vedio_info_print(const u8 *r) {
  media_type_print(r);
  usleep(10);
  std::printf("FrameRate          : ");
  // A rate not in the list prints nothing, and the next label follows.
  if (const char *text = lookup(frame_rates, LittleEndian2int32u(r + MAI_VMT_FRAMERATE))) std::puts(text);
  std::printf("AverageBitrate     : %d\n", word(r, MAI_VMT_AVG_BITRATE));
  std::printf("MaxBitrate         : %d\n", word(r, MAI_VMT_MAX_BITRATE));
  std::printf("ImageWidth         : %d\n", word(r, MAI_VMT_WIDTH));
  std::printf("ImageHeight        : %d\n", word(r, MAI_VMT_HEIGHT));
  std::printf("ImagePARh          : %d\n", word(r, MAI_VMT_PAR_H));
  std::printf("ImagePARv          : %d\n", word(r, MAI_VMT_PAR_V));
  std::printf("Final ImageWidth   : %d\n", word(r, MAI_VMT_FINAL_WIDTH));
  std::printf("Final ImageHeight  : %d\n", word(r, MAI_VMT_FINAL_HEIGHT));
  std::printf("Final FinalPARh    : %d\n", word(r, MAI_VMT_FINAL_PAR_H));
  std::printf("Final FinalPARv    : %d\n", word(r, MAI_VMT_FINAL_PAR_V));
  std::printf("ImageMSubType      : %d\n", word(r, MAI_VMT_IMAGE_SUBTYPE));
  print_extra("ExtraInfo          : %s\n", r, MAI_VMT_EXTRA, MAI_VIDEO_MEDIATYPE_SIZE);
}

void media_audio_info_print(const u8 *r) {
  media_type_print(r);
  usleep(10);
  const char *type = lookup(audio_type_flags, LittleEndian2int32u(r + MAI_AMT_TYPE_FLAGS));
  std::printf("MediaType flags    : %s\n", type != nullptr ? type : "UNKNOWN");
  const char *mode = lookup(audio_mode_flags, LittleEndian2int32u(r + MAI_AMT_MODE_FLAGS));
  std::printf("Audio Mode flag    : %s\n", mode != nullptr ? mode : "UNKNOWN");
  std::printf("SamplesPerSec      : %d\n", word(r, MAI_AMT_SAMPLE_RATE));
  std::printf("BitsPerSample      : %d\n", half(r, MAI_AMT_BITS));
  std::printf("Channels           : %d\n", half(r, MAI_AMT_CHANNELS));
  std::printf("Bitrate            : %d\n", word(r, MAI_AMT_BITRATE));
  std::printf("Framesize          : %d\n", word(r, MAI_AMT_FRAME_SIZE));
  std::printf("Duration           : %d\n", word(r, MAI_AMT_DURATION));
  std::printf("MaxBufSize         : %d\n", word(r, MAI_AMT_MAX_BUFFER));
  std::printf("Layer              : %d\n", half(r, MAI_AMT_LAYER));
  std::printf("Emphasis           : %d\n", half(r, MAI_AMT_EMPHASIS));
  std::printf("MaxBitrate         : %d\n", word(r, MAI_AMT_MAX_BITRATE));
  print_extra("pucExtraInfo       : [%s]\n", r, MAI_AMT_EXTRA, MAI_AUDIO_MEDIATYPE_SIZE);
}

void media_display_info_print(u32 engine) {
  if (engine == 0) return;
  u32 block[PMX_DISPLAY_WORDS] = {};
  MAIengine_GetParam(engine, MAI_PARAM_DISPLAY, block, MAI_PARAM_DISPLAY_SIZE);
  std::puts("\n\t[CURRENT DISPLAY SETTING INFORMATION]\n");
  std::printf("Xpos               : %d\n", static_cast<int>(block[DISPLAY_X]));
  std::printf("Ypos               : %d\n", static_cast<int>(block[DISPLAY_Y]));
  std::printf("X Size             : %d\n", static_cast<int>(block[DISPLAY_WIDTH]));
  std::printf("Y Size             : %d\n", static_cast<int>(block[DISPLAY_HEIGHT]));
  const u32 flags = block[DISPLAY_FLAGS];
  std::puts(flags == 0 ? "NONE flag          : ON" : "NONE flag          : OFF");
  for (const DisplayFlag &f : display_flags) std::puts((flags & f.bit) != 0 ? f.on : f.off);
}

void pmx_print_fileinfo() {
  const u32 engine = pmx.engine.load();
  std::puts("\n\t[FILE INFORMATION]");

  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> video{};
  u32 status = MAIengine_GetVideoMediaType(engine, video.data(), 0);
  if (status != 0) std::printf("Mai Get Video info failed: %d\n", static_cast<int>(status));
  std::puts("\n\t[video source info]\n");
  media_vedio_info_print(video.data());

  std::array<u8, MAI_AUDIO_MEDIATYPE_SIZE> audio{};
  status = MAIengine_GetAudioMediaType(engine, audio.data(), 0);
  if (status != 0) std::printf("Mai Get Audio info failed: %d\n", static_cast<int>(status));
  std::puts("\n\t[audio source info]\n");
  media_audio_info_print(audio.data());
  media_display_info_print(engine);
}
