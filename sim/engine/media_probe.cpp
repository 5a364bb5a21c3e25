// Probing a file at connect time and the media type records built from it.
//
// libavformat opens and inspects the file; everything the engine later
// reports (media type records, duration, start time, key frames, the
// engine's own solution choice) is taken from it here, once, and the format
// context is closed again. The playback clock never reads the file.
#include "engine_internal.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/pixdesc.h>
}

namespace mai {
namespace {

constexpr AVRational MS{1, 1000};
constexpr u32 EXTRA_TEXT_SIZE = 64;     // both records end 64 bytes after their text
constexpr int SCAN_PACKETS = 400;       // packets read to learn frame-level facts
constexpr u32 SCAN_AUDIO_FRAMES = 64;   // enough MPEG audio frames to judge VBR
constexpr u32 PACK_SEARCH_BYTES = 65536;

// ---- MPEG audio frame headers ----
// Bit rates in kbit/s by index: MPEG-1 layers 1, 2, 3, then MPEG-2/2.5
// layer 1, then MPEG-2/2.5 layers 2 and 3.
constexpr u16 kMpaKbps[5][15] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
};

struct MpaHeader {
  u32 layer = 0, kbps = 0, mode = 0, emphasis = 0;
};

// Frame header: 11 sync bits, version (2), layer (2), CRC bit; bit rate
// index (4), sample rate index (2), padding, private; mode (2), mode
// extension (2), copyright, original, emphasis (2).
bool parse_mpa_header(const u8 *p, MpaHeader &h) {
  if (p[0] != 0xFF || (p[1] & 0xE0) != 0xE0) return false;
  u32 version = (p[1] >> 3) & 3, layer_bits = (p[1] >> 1) & 3;
  u32 rate_index = p[2] >> 4, sr_index = (p[2] >> 2) & 3;
  if (version == 1 || layer_bits == 0 || rate_index == 15 || sr_index == 3) return false;
  h.layer = 4 - layer_bits;
  u32 row = version == 3 ? h.layer - 1 : (h.layer == 1 ? 3 : 4);
  h.kbps = kMpaKbps[row][rate_index];
  h.mode = p[3] >> 6;
  h.emphasis = p[3] & 3;
  return true;
}

// Facts learnt from the first packets of a stream.
struct ScanStats {
  u32 packets = 0, max_packet = 0;
  u32 mpa_frames = 0, min_kbps = ~0u, max_kbps = 0;
  bool joint_stereo = false;
  MpaHeader first;
};

bool is_mpeg_audio(AVCodecID id) {
  return id == AV_CODEC_ID_MP1 || id == AV_CODEC_ID_MP2 || id == AV_CODEC_ID_MP3;
}
bool is_pcm(AVCodecID id) {
  return id >= AV_CODEC_ID_FIRST_AUDIO && id < AV_CODEC_ID_ADPCM_IMA_QT;
}

void scan_mpa_packet(const AVPacket &pkt, ScanStats &st) {
  // In a program stream a packet may start inside a frame: take the first
  // header found in it.
  for (int i = 0; i + 4 <= pkt.size; ++i) {
    MpaHeader h;
    if (!parse_mpa_header(pkt.data + i, h)) continue;
    if (h.kbps != 0) {  // free format frames say nothing about the rate
      st.min_kbps = std::min(st.min_kbps, h.kbps);
      st.max_kbps = std::max(st.max_kbps, h.kbps);
    }
    if (st.mpa_frames == 0) st.first = h;
    if (h.mode == 1) st.joint_stereo = true;
    ++st.mpa_frames;
    return;
  }
}

void scan_packets(AVFormatContext *fc, std::vector<ScanStats> &stats) {
  AVPacket *pkt = av_packet_alloc();
  if (pkt == nullptr) return;
  for (int n = 0; n < SCAN_PACKETS && av_read_frame(fc, pkt) >= 0; ++n) {
    auto index = static_cast<u32>(pkt->stream_index);
    if (index < stats.size()) {
      ScanStats &st = stats[index];
      ++st.packets;
      st.max_packet = std::max(st.max_packet, static_cast<u32>(pkt->size));
      AVCodecID id = fc->streams[index]->codecpar->codec_id;
      if (is_mpeg_audio(id) && st.mpa_frames < SCAN_AUDIO_FRAMES) scan_mpa_packet(*pkt, st);
    }
    av_packet_unref(pkt);
  }
  av_packet_free(&pkt);
}

// The first pack header tells MPEG-1 system streams ('0010' after the start
// code) from MPEG-2 program streams ('01').
bool mpeg2_pack_header(const char *path) {
  MAIOSFile *file = MAIOSFileOpenForRead(path);
  if (file == nullptr || file->status != 0) return false;
  std::vector<u8> head(PACK_SEARCH_BYTES);
  u32 got = MAIOSFileRead(file, head.data(), PACK_SEARCH_BYTES);
  MAIOSFileClose(file);
  for (u32 i = 0; i + 4 < got; ++i)
    if (head[i] == 0 && head[i + 1] == 0 && head[i + 2] == 1 && head[i + 3] == 0xBA)
      return (head[i + 4] & 0xC0) == 0x40;
  return false;
}

u32 upper_tag(u32 tag) {
  u32 out = 0;
  for (u32 i = 0; i < 4; ++i)
    out |= static_cast<u32>(std::toupper(static_cast<int>((tag >> (8 * i)) & 0xFF))) << (8 * i);
  return out;
}
constexpr u32 fourcc(const char (&s)[5]) {
  return static_cast<u32>(static_cast<u8>(s[0])) | static_cast<u32>(static_cast<u8>(s[1])) << 8 |
         static_cast<u32>(static_cast<u8>(s[2])) << 16 |
         static_cast<u32>(static_cast<u8>(s[3])) << 24;
}

u32 video_subtype(const AVCodecParameters *par, Family family) {
  const bool ps = family == Family::mpegps;
  const u32 tag = upper_tag(par->codec_tag);
  switch (par->codec_id) {
    case AV_CODEC_ID_MPEG1VIDEO: return ps ? MAI_SUB_MPEG_VIDEO_PES1 : MAI_SUB_MPEG1_VIDEO;
    case AV_CODEC_ID_MPEG2VIDEO: return ps ? MAI_SUB_MPEG_VIDEO_PES2 : MAI_SUB_MPEG2_VIDEO;
    case AV_CODEC_ID_MPEG4:
      if (tag == fourcc("XVID")) return MAI_SUB_XVID;
      if (tag == fourcc("DX50") || tag == fourcc("DIV5")) return MAI_SUB_DIVX5;
      if (tag == fourcc("DIVX") || tag == fourcc("DVX4")) return MAI_SUB_DIVX4;
      return MAI_SUB_MPEG4_VIDEO;
    case AV_CODEC_ID_MSMPEG4V3: return MAI_SUB_DIVX3;
    case AV_CODEC_ID_MSMPEG4V1:
    case AV_CODEC_ID_MSMPEG4V2: return MAI_SUB_DIVX;
    case AV_CODEC_ID_WMV1: return MAI_SUB_WMV7;
    case AV_CODEC_ID_WMV2: return MAI_SUB_WMV8;
    case AV_CODEC_ID_WMV3: return MAI_SUB_WMV9;
    case AV_CODEC_ID_VC1: return MAI_SUB_WMV9_ADVANCED;
    case AV_CODEC_ID_MJPEG: return MAI_SUB_MJPEG;
    case AV_CODEC_ID_BMP: return MAI_SUB_BITMAP;
    case AV_CODEC_ID_RAWVIDEO: {
      const AVPixFmtDescriptor *d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(par->format));
      return d != nullptr && (d->flags & AV_PIX_FMT_FLAG_RGB) ? MAI_SUB_RGB : MAI_SUB_YUV;
    }
    default: return 0;
  }
}

// Image subtype: the decoded picture's layout, in the raw RGB/YUV subtype
// codes (RGB 8/555/565/888/8888 are 0x40001..0x40005, YUV 4:1:1/4:2:0/
// 4:2:2/4:4:4 are 0x80001..0x80004).
u32 image_subtype(int format) {
  switch (static_cast<AVPixelFormat>(format)) {
    case AV_PIX_FMT_NONE: return 0;
    case AV_PIX_FMT_PAL8: case AV_PIX_FMT_RGB8: case AV_PIX_FMT_BGR8: return 0x40001;
    case AV_PIX_FMT_RGB555LE: case AV_PIX_FMT_RGB555BE: case AV_PIX_FMT_BGR555LE:
    case AV_PIX_FMT_BGR555BE: return 0x40002;
    case AV_PIX_FMT_RGB565LE: case AV_PIX_FMT_RGB565BE: case AV_PIX_FMT_BGR565LE:
    case AV_PIX_FMT_BGR565BE: return 0x40003;
    case AV_PIX_FMT_RGB24: case AV_PIX_FMT_BGR24: return 0x40004;
    case AV_PIX_FMT_RGBA: case AV_PIX_FMT_BGRA: case AV_PIX_FMT_ARGB: case AV_PIX_FMT_ABGR:
    case AV_PIX_FMT_RGB0: case AV_PIX_FMT_BGR0: return 0x40005;
    case AV_PIX_FMT_YUV411P: case AV_PIX_FMT_UYYVYY411: return 0x80001;
    case AV_PIX_FMT_YUV420P: case AV_PIX_FMT_YUVJ420P: case AV_PIX_FMT_NV12: return 0x80002;
    case AV_PIX_FMT_YUV422P: case AV_PIX_FMT_YUVJ422P: case AV_PIX_FMT_YUYV422:
    case AV_PIX_FMT_UYVY422: return 0x80003;
    case AV_PIX_FMT_YUV444P: case AV_PIX_FMT_YUVJ444P: return 0x80004;
    default: {
      const AVPixFmtDescriptor *d = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(format));
      return d != nullptr && (d->flags & AV_PIX_FMT_FLAG_RGB) ? MAI_SUB_RGB : MAI_SUB_YUV;
    }
  }
}

u32 audio_subtype(AVCodecID id, const Media &m) {
  const bool ps = m.family == Family::mpegps;
  switch (id) {
    case AV_CODEC_ID_MP1:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3:
      if (ps) return m.mpeg2_pack ? MAI_SUB_MPEG_AUDIO_PES2 : MAI_SUB_MPEG_AUDIO_PES1;
      return id == AV_CODEC_ID_MP1 ? MAI_SUB_MPEG_L1
             : id == AV_CODEC_ID_MP2 ? MAI_SUB_MPEG_L2 : MAI_SUB_MPEG_L3;
    case AV_CODEC_ID_MP3ADU:
    case AV_CODEC_ID_MP3ON4: return MAI_SUB_MPEG_AUDIO;
    case AV_CODEC_ID_AC3: return ps ? MAI_SUB_AC3_PES : MAI_SUB_AC3;
    case AV_CODEC_ID_AAC:
    case AV_CODEC_ID_AAC_LATM: return MAI_SUB_AAC;
    case AV_CODEC_ID_VORBIS: return MAI_SUB_OGG;
    case AV_CODEC_ID_WMAV1:
    case AV_CODEC_ID_WMAV2: return MAI_SUB_WMA;
    case AV_CODEC_ID_WMAPRO: return MAI_SUB_WMA_PRO;
    default: return is_pcm(id) ? MAI_SUB_PCM : 0;
  }
}

u32 to_u32(s64 v) { return v <= 0 ? 0 : v >= 0xFFFFFFFFll ? 0xFFFFFFFFu : static_cast<u32>(v); }

// MPEG-1/2 video headers carry 0x3FFFF (in 400 bit/s units) for "variable".
u32 video_bit_rate(const AVCodecParameters *par) {
  if ((par->codec_id == AV_CODEC_ID_MPEG1VIDEO || par->codec_id == AV_CODEC_ID_MPEG2VIDEO) &&
      par->bit_rate == 0x3FFFFll * 400)
    return 0;
  return to_u32(par->bit_rate);
}

s64 cpb_max_bit_rate(const AVStream *st) {
  const AVCPBProperties *cpb = nullptr;
#if LIBAVFORMAT_VERSION_INT < AV_VERSION_INT(60, 15, 100)
  size_t size = 0;
  cpb = reinterpret_cast<const AVCPBProperties *>(
      av_stream_get_side_data(st, AV_PKT_DATA_CPB_PROPERTIES, &size));
#else
  const AVPacketSideData *sd = av_packet_side_data_get(
      st->codecpar->coded_side_data, st->codecpar->nb_coded_side_data, AV_PKT_DATA_CPB_PROPERTIES);
  if (sd != nullptr) cpb = reinterpret_cast<const AVCPBProperties *>(sd->data);
#endif
  return cpb != nullptr ? cpb->max_bitrate : 0;
}

void put_text(u8 *rec, u32 offset, const StreamDesc &d) {
  char text[EXTRA_TEXT_SIZE];
  char tag[5] = {};
  bool printable = d.tag != 0;
  for (u32 i = 0; i < 4; ++i) {
    tag[i] = static_cast<char>((d.tag >> (8 * i)) & 0xFF);
    if (!std::isprint(static_cast<unsigned char>(tag[i]))) printable = false;
  }
  if (printable)
    std::snprintf(text, sizeof text, "%s [%s]", d.codec_long.c_str(), tag);
  else
    std::snprintf(text, sizeof text, "%s", d.codec_long.c_str());
  std::memcpy(rec + offset, text, std::strlen(text) + 1);
}

u32 stream_duration_ms(const AVStream *st, const Media &m) {
  if (st->duration != AV_NOPTS_VALUE && st->duration > 0)
    return to_u32(av_rescale_q(st->duration, st->time_base, MS));
  return m.duration_ms;
}

void fill_video(StreamDesc &d, const AVStream *st, const Media &m, u32 bit_rate) {
  const AVCodecParameters *par = st->codecpar;
  u8 *rec = d.record.data();
  put_u32(rec, 0, MAI_VIDEO_MEDIATYPE_SIZE);
  put_u32(rec, MAI_VMT_MAJOR, MAI_MAJOR_VIDEO);
  put_u32(rec, MAI_VMT_SUBTYPE, video_subtype(par, m.family));
  AVRational fps = st->avg_frame_rate.num > 0 && st->avg_frame_rate.den > 0 ? st->avg_frame_rate
                                                                            : st->r_frame_rate;
  u32 milli_fps = fps.num > 0 && fps.den > 0
                      ? static_cast<u32>(std::llround(fps.num * 1000.0 / fps.den))
                      : 0;
  put_u32(rec, MAI_VMT_FRAMERATE, milli_fps);
  put_u32(rec, MAI_VMT_IMAGE_SUBTYPE, image_subtype(par->format));
  put_u32(rec, MAI_VMT_WIDTH, d.width);
  put_u32(rec, MAI_VMT_HEIGHT, d.height);
  AVRational sar = st->sample_aspect_ratio.num > 0 ? st->sample_aspect_ratio
                                                   : par->sample_aspect_ratio;
  if (sar.num <= 0 || sar.den <= 0) sar = {1, 1};
  put_u32(rec, MAI_VMT_PAR_H, static_cast<u32>(sar.num));
  put_u32(rec, MAI_VMT_PAR_V, static_cast<u32>(sar.den));
  // The picture as shown: square pixels of the same height, and its
  // display aspect ratio.
  u32 final_width = static_cast<u32>(std::llround(static_cast<double>(d.width) * sar.num / sar.den));
  put_u32(rec, MAI_VMT_FINAL_WIDTH, final_width);
  put_u32(rec, MAI_VMT_FINAL_HEIGHT, d.height);
  int dar_num = 0, dar_den = 0;
  if (d.width != 0 && d.height != 0)
    av_reduce(&dar_num, &dar_den, static_cast<s64>(d.width) * sar.num,
              static_cast<s64>(d.height) * sar.den, 1 << 30);
  put_u32(rec, MAI_VMT_FINAL_PAR_H, static_cast<u32>(dar_num));
  put_u32(rec, MAI_VMT_FINAL_PAR_V, static_cast<u32>(dar_den));
  put_u32(rec, MAI_VMT_AVG_BITRATE, bit_rate);
  s64 max_rate = cpb_max_bit_rate(st);
  put_u32(rec, MAI_VMT_MAX_BITRATE, max_rate > 0 ? to_u32(max_rate) : bit_rate);
  put_text(rec, MAI_VMT_EXTRA, d);
}

void fill_audio(StreamDesc &d, const AVStream *st, const Media &m, const ScanStats &scan,
                u32 single_stream_rate) {
  const AVCodecParameters *par = st->codecpar;
  const AVCodecID id = par->codec_id;
  u8 *rec = d.record.data();
  put_u32(rec, 0, MAI_AUDIO_MEDIATYPE_SIZE);
  put_u32(rec, MAI_AMT_MAJOR, MAI_MAJOR_AUDIO);
  put_u32(rec, MAI_AMT_SUBTYPE, audio_subtype(id, m));

  const bool mpa = is_mpeg_audio(id) && scan.mpa_frames > 0;
  // MPEG audio is VBR when its frames change bit rate; Vorbis and FLAC
  // frames always vary; everything else here runs at a constant rate.
  bool vbr = mpa ? scan.min_kbps != scan.max_kbps && scan.max_kbps != 0
                 : id == AV_CODEC_ID_VORBIS || id == AV_CODEC_ID_FLAC;
  put_u32(rec, MAI_AMT_TYPE_FLAGS, vbr ? MAI_AUDIO_VBR : MAI_AUDIO_CBR);
  u32 mode = 0;
  if (mpa && scan.joint_stereo) mode = MAI_AUDIOMODE_JOINT;
  if (id == AV_CODEC_ID_AAC && par->profile == FF_PROFILE_AAC_HE) mode = MAI_AUDIOMODE_SBR;
  put_u32(rec, MAI_AMT_MODE_FLAGS, mode);
  put_u32(rec, MAI_AMT_SAMPLE_RATE, d.sample_rate);

  // Lossy codecs decode to 16-bit samples on the board.
  u32 bits = 16;
  if (is_pcm(id) && av_get_bits_per_sample(id) > 0) bits = static_cast<u32>(av_get_bits_per_sample(id));
  else if (id == AV_CODEC_ID_FLAC && par->bits_per_raw_sample > 0)
    bits = static_cast<u32>(par->bits_per_raw_sample);
  put_u16(rec, MAI_AMT_BITS, bits);
  put_u16(rec, MAI_AMT_CHANNELS, d.channels);

  u32 rate = to_u32(par->bit_rate);
  if (rate == 0 && mpa && scan.max_kbps != 0) rate = (scan.min_kbps + scan.max_kbps) / 2 * 1000;
  if (rate == 0) rate = single_stream_rate;
  put_u32(rec, MAI_AMT_BITRATE, rate);
  // Frame size in samples; PCM has no frames and reports its block size.
  u32 frame = par->frame_size > 0 ? static_cast<u32>(par->frame_size) : 0;
  if (frame == 0 && id == AV_CODEC_ID_AC3) frame = 1536;  // 6 blocks of 256 samples
  if (frame == 0 && id == AV_CODEC_ID_FLAC && par->extradata_size >= 4)
    frame = static_cast<u32>(par->extradata[2]) << 8 | par->extradata[3];  // STREAMINFO max block
  if (frame == 0) frame = static_cast<u32>(std::max(par->block_align, 0));
  put_u32(rec, MAI_AMT_FRAME_SIZE, frame);
  put_u32(rec, MAI_AMT_DURATION, stream_duration_ms(st, m));
  put_u32(rec, MAI_AMT_MAX_BUFFER, scan.max_packet);
  u32 layer = id == AV_CODEC_ID_MP1 ? 1 : id == AV_CODEC_ID_MP2 ? 2 : id == AV_CODEC_ID_MP3 ? 3 : 0;
  if (mpa) layer = scan.first.layer;
  put_u16(rec, MAI_AMT_LAYER, layer);
  put_u16(rec, MAI_AMT_EMPHASIS, mpa ? scan.first.emphasis : 0);
  put_u32(rec, MAI_AMT_MAX_BITRATE, mpa && scan.max_kbps != 0 ? scan.max_kbps * 1000 : rate);
  put_text(rec, MAI_AMT_EXTRA, d);
}

// ---- The engine's own solution choice ----
std::string avi_video_part(const StreamDesc *v, bool &ok) {
  if (v == nullptr) return "";
  const u32 tag = upper_tag(v->tag);
  switch (static_cast<AVCodecID>(v->codec_id)) {
    case AV_CODEC_ID_MPEG4:
      return tag == fourcc("DIVX") || tag == fourcc("DX50") || tag == fourcc("DIV5") ||
                     tag == fourcc("DVX4")
                 ? "divx"
                 : "avimpv4";
    case AV_CODEC_ID_MSMPEG4V3: return "divx";
    case AV_CODEC_ID_WMV3: return "aviwmv";
    default: ok = false; return "";
  }
}

std::string choose(const Media &m) {
  const StreamDesc *v = nullptr, *a = nullptr;
  for (const StreamDesc &d : m.streams) {
    if (d.video && v == nullptr) v = &d;
    if (!d.video && a == nullptr) a = &d;
  }
  auto vid = v ? static_cast<AVCodecID>(v->codec_id) : AV_CODEC_ID_NONE;
  auto aid = a ? static_cast<AVCodecID>(a->codec_id) : AV_CODEC_ID_NONE;
  bool ok = true;
  std::string name;
  switch (m.family) {
    case Family::avi:
      name = avi_video_part(v, ok);
      if (aid == AV_CODEC_ID_MP3) name += "_mp3";
      else if (aid == AV_CODEC_ID_MP2 || aid == AV_CODEC_ID_MP1) name += "_mpa";
      else if (aid == AV_CODEC_ID_AC3) name += "_ac3";
      else if (aid == AV_CODEC_ID_DTS) name += "_dts";
      else if (a != nullptr) ok = false;
      break;
    case Family::mpegps:
      ok = v == nullptr || vid == AV_CODEC_ID_MPEG1VIDEO || vid == AV_CODEC_ID_MPEG2VIDEO;
      name = "mpegps";
      if (aid == AV_CODEC_ID_MP2 || aid == AV_CODEC_ID_MP1) name += "_mpa";
      else if (aid == AV_CODEC_ID_MP3) name += "_mpa3";
      else if (aid == AV_CODEC_ID_AC3) name += "_ac3";
      else if (a != nullptr && is_pcm(aid)) name += "_pcm";
      else if (a != nullptr) ok = false;
      break;
    case Family::asf:
      if (vid == AV_CODEC_ID_WMV3 || vid == AV_CODEC_ID_VC1) name = "wmt";
      else if (vid == AV_CODEC_ID_WMV2) name = "wmt8";
      else if (vid == AV_CODEC_ID_WMV1 || vid == AV_CODEC_ID_MSMPEG4V1 ||
               vid == AV_CODEC_ID_MSMPEG4V2 || vid == AV_CODEC_ID_MSMPEG4V3)
        name = "wmt78";
      else if (v == nullptr) name = "wma";
      else ok = false;
      if (a != nullptr && aid != AV_CODEC_ID_WMAV1 && aid != AV_CODEC_ID_WMAV2 &&
          aid != AV_CODEC_ID_WMAPRO)
        ok = false;
      break;
    case Family::mpa:
      name = aid == AV_CODEC_ID_MP3 ? "mp3" : "mpa";
      ok = is_mpeg_audio(aid) && v == nullptr;
      break;
    case Family::ogg: name = "ogg"; ok = aid == AV_CODEC_ID_VORBIS && v == nullptr; break;
    case Family::ac3: name = "ac3"; ok = aid == AV_CODEC_ID_AC3; break;
    case Family::wav: name = "pcm"; ok = is_pcm(aid) || aid == AV_CODEC_ID_ADPCM_MS; break;
    case Family::flac: name = "flac"; ok = aid == AV_CODEC_ID_FLAC; break;
    case Family::none: ok = false; break;
  }
  if (!ok || solution_family(name.c_str(), nullptr) != m.family) return "";
  return name;
}

void quiet_libav() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

struct FormatCloser {
  void operator()(AVFormatContext *fc) const { avformat_close_input(&fc); }
};

}  // namespace

u32 probe_media(const char *path, Media &m) {
  quiet_libav();
  m = Media{};
  m.path = path;
  // The "file:" protocol keeps names with colons from being taken as URLs.
  std::string url = std::string("file:") + path;
  AVFormatContext *raw = nullptr;
  if (avformat_open_input(&raw, url.c_str(), nullptr, nullptr) < 0) return MAI_E_OPENFAILED;
  std::unique_ptr<AVFormatContext, FormatCloser> fc(raw);

  // A container index is there right after the header was read; entries
  // added later would only cover the packets read so far.
  int video_index = av_find_best_stream(fc.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  std::vector<s64> key_ts;
  if (video_index >= 0) {
    AVStream *vst = fc->streams[video_index];
    int count = avformat_index_get_entries_count(vst);
    for (int i = 0; i < count; ++i) {
      const AVIndexEntry *e = avformat_index_get_entry(vst, i);
      if (e != nullptr && (e->flags & AVINDEX_KEYFRAME)) key_ts.push_back(e->timestamp);
    }
  }
  if (avformat_find_stream_info(fc.get(), nullptr) < 0) return MAI_E_OPENFAILED;

  m.container = fc->iformat->name;
  m.container_long = fc->iformat->long_name ? fc->iformat->long_name : fc->iformat->name;
  // Text files open as "tty" art: that is no media the engine plays.
  if (m.container == "tty") return MAI_E_OPENFAILED;
  m.family = container_family(m.container);
  if (MAIOSFile *file = MAIOSFileOpenForRead(path); file != nullptr) {
    if (file->status == 0) MAIOSFileGetSize(file, &m.file_size);
    MAIOSFileClose(file);
  }
  if (fc->duration != AV_NOPTS_VALUE && fc->duration > 0)
    m.duration_ms = to_u32((fc->duration + 500) / 1000);
  if (fc->start_time != AV_NOPTS_VALUE && fc->start_time > 0)
    m.start_ms = static_cast<u64>((fc->start_time + 500) / 1000);
  m.bit_rate = to_u32(fc->bit_rate);
  if (m.family == Family::mpegps) m.mpeg2_pack = mpeg2_pack_header(path);

  std::vector<ScanStats> scan(fc->nb_streams);
  scan_packets(fc.get(), scan);

  u32 other_rates = 0;
  size_t media_streams = 0;
  for (unsigned i = 0; i < fc->nb_streams; ++i) {
    const AVCodecParameters *par = fc->streams[i]->codecpar;
    if (par->codec_type != AVMEDIA_TYPE_VIDEO && par->codec_type != AVMEDIA_TYPE_AUDIO) continue;
    if (par->codec_type == AVMEDIA_TYPE_VIDEO && (fc->streams[i]->disposition & AV_DISPOSITION_ATTACHED_PIC))
      continue;  // cover art of an audio file
    ++media_streams;
    if (par->codec_type == AVMEDIA_TYPE_AUDIO) other_rates += to_u32(par->bit_rate);
  }
  if (media_streams == 0) return MAI_E_OPENFAILED;

  for (unsigned i = 0; i < fc->nb_streams; ++i) {
    const AVStream *st = fc->streams[i];
    const AVCodecParameters *par = st->codecpar;
    const bool video = par->codec_type == AVMEDIA_TYPE_VIDEO;
    if (!video && par->codec_type != AVMEDIA_TYPE_AUDIO) continue;
    if (video && (st->disposition & AV_DISPOSITION_ATTACHED_PIC)) continue;
    StreamDesc d;
    d.video = video;
    d.av_index = i;
    d.codec_id = static_cast<u32>(par->codec_id);
    d.tag = par->codec_tag;
    const AVCodecDescriptor *desc = avcodec_descriptor_get(par->codec_id);
    d.codec = desc ? desc->name : "unknown";
    d.codec_long = desc && desc->long_name ? desc->long_name : d.codec;
    if (video) {
      d.width = static_cast<u32>(std::max(par->width, 0));
      d.height = static_cast<u32>(std::max(par->height, 0));
      u32 rate = video_bit_rate(par);
      if (rate == 0 && m.bit_rate > other_rates) rate = m.bit_rate - other_rates;
      fill_video(d, st, m, rate);
    } else {
      d.sample_rate = static_cast<u32>(std::max(par->sample_rate, 0));
      d.channels = static_cast<u32>(std::max(par->ch_layout.nb_channels, 0));
      fill_audio(d, st, m, scan[i], media_streams == 1 ? m.bit_rate : 0);
      if (m.audio_rate == 0) m.audio_rate = d.sample_rate;
    }
    m.streams.push_back(std::move(d));
  }
  if (m.duration_ms == 0)
    for (unsigned i = 0; i < fc->nb_streams; ++i)
      m.duration_ms = std::max(m.duration_ms, stream_duration_ms(fc->streams[i], m));

  m.master = 0;
  for (u32 i = 0; i < m.streams.size(); ++i)
    if (!m.streams[i].video) { m.master = i; break; }

  if (video_index >= 0 && !key_ts.empty()) {
    const AVStream *vst = fc->streams[video_index];
    for (s64 ts : key_ts) {
      s64 ms = av_rescale_q(ts, vst->time_base, MS) - static_cast<s64>(m.start_ms);
      if (ms >= 0 && ms <= m.duration_ms) m.keys_ms.push_back(static_cast<u32>(ms));
    }
    std::sort(m.keys_ms.begin(), m.keys_ms.end());
    m.keys_ms.erase(std::unique(m.keys_ms.begin(), m.keys_ms.end()), m.keys_ms.end());
    m.keys_from_index = !m.keys_ms.empty();
  }
  if (!m.keys_from_index)  // one key per second
    for (u32 ms = 0; ms <= m.duration_ms; ms += 1000) m.keys_ms.push_back(ms);

  m.auto_solution = choose(m);
  return MAI_OK;
}

}  // namespace mai

using namespace mai;

namespace {

u32 media_type(u32 engine, void *record, u32 stream, bool video, const char *function) {
  Instance *in = lookup(engine);
  if (in == nullptr) return fail(nullptr, function, MAI_E_INVALIDARG);
  tracef(*in, TR_TRACE, "%s(%u, %p, %u)", function, engine, record, stream);
  if (record == nullptr) return fail(in, function, MAI_E_INVALIDARG);
  std::lock_guard lk(in->mu);
  if (!in->s.connected) return fail(in, function, MAI_E_NOTCONNECTED);
  if (in->s.faults.mediatype_status != 0) return fail(in, function, in->s.faults.mediatype_status);
  u32 n = 0;
  for (const StreamDesc &d : in->s.media.streams) {
    if (d.video != video) continue;
    if (n++ != stream) continue;
    std::memcpy(record, d.record.data(), video ? MAI_VIDEO_MEDIATYPE_SIZE : MAI_AUDIO_MEDIATYPE_SIZE);
    return MAI_OK;
  }
  return fail(in, function, MAI_E_NOSTREAM);
}

}  // namespace

MAI_EXPORT u32 MAIengine_GetVideoMediaType(u32 engine, void *record, u32 stream) {
  return media_type(engine, record, stream, true, "MAIengine_GetVideoMediaType");
}

MAI_EXPORT u32 MAIengine_GetAudioMediaType(u32 engine, void *record, u32 stream) {
  return media_type(engine, record, stream, false, "MAIengine_GetAudioMediaType");
}
