// Frame header: sync word, version, layer, rates, padding and the frame
// size in bytes, plus the free-format and bit-rate-change bookkeeping.
#include <array>
#include <cstddef>

#include "direct/mpadec/mpadec.h"

int g_mpa_stream_changed = 0;

namespace {

// Bit rates in kbit/s by [low sampling frequencies][layer - 1][index];
// index 0 is free format and 15 is reserved.
constexpr std::array<std::array<std::array<u16, 15>, 3>, 2> kBitRates = {{
    {{
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    }},
    {{
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    }},
}};

constexpr std::array<int, 3> kMpeg1Rates = {44100, 48000, 32000};

}  // namespace

bool mpa_same_stream(u32 h, u32 reference) {
  return ((h ^ reference) & 0xFFFEFC00u) == 0;
}

int mpa_frame_samples(const MpaHeader *hd) {
  if (hd->layer == 1) return 384;
  if (hd->layer == 3 && hd->lsf) return 576;
  return 1152;
}

int mpa_parse_header(const MpaState *s, u32 h, MpaHeader *hd) {
  if ((h & 0xFFE00000u) != 0xFFE00000u) return -1;
  int version_bits = int((h >> 19) & 3);
  if (version_bits == 1) return -1;  // reserved version
  int layer_bits = int((h >> 17) & 3);
  if (layer_bits == 0) return -1;
  int rate_bits = int((h >> 10) & 3);
  if (rate_bits == 3) return -1;
  int b = int((h >> 12) & 15);
  if (b == 15) return -1;

  if (h & (1u << 20)) {
    hd->lsf = (h & (1u << 19)) ? 0 : 1;
    hd->mpeg25 = 0;
  } else {
    hd->lsf = 1;
    hd->mpeg25 = 1;
  }
  hd->layer = 4 - layer_bits;
  int down = hd->lsf + hd->mpeg25;
  hd->sample_rate = kMpeg1Rates[std::size_t(rate_bits)] >> down;
  hd->rate_index = rate_bits + 3 * down;
  hd->crc = (h & (1u << 16)) ? 0 : 1;
  hd->padding = int((h >> 9) & 1);
  hd->mode = int((h >> 6) & 3);
  hd->mode_ext = int((h >> 4) & 3);
  hd->emphasis = int(h & 3);
  hd->channels = hd->mode == 3 ? 1 : 2;
  hd->bitrate_index = b;

  int rate = hd->sample_rate;
  if (b != 0) {
    int kbps = kBitRates[std::size_t(hd->lsf)][std::size_t(hd->layer - 1)][std::size_t(b)];
    hd->bit_rate = kbps * 1000;
    if (hd->layer == 1)
      hd->frame_size = (12000 * kbps / rate + hd->padding) * 4;
    else if (hd->layer == 2)
      hd->frame_size = 144000 * kbps / rate + hd->padding;
    else
      hd->frame_size = 144000 * kbps / (rate << hd->lsf) + hd->padding;
  } else {
    if (s->free_size == 0) return 1;
    int size = int(s->free_size);
    hd->frame_size = size + (hd->layer == 1 ? 4 * hd->padding : hd->padding);
    if (hd->layer == 1)
      hd->bit_rate = int(s64(size) * rate / 48);
    else if (hd->layer == 2)
      hd->bit_rate = int(s64(size) * rate / 144);
    else
      hd->bit_rate = int(s64(size) * (rate << hd->lsf) / 144);
  }
  if (hd->frame_size > int(kMpaAssemblyBytes) || hd->frame_size < 4) return -1;
  return 0;
}

void mpa_commit_header(MpaState *s, const MpaHeader *hd) {
  if (hd->bitrate_index != s->bitrate_index) {
    if (s->bitrate_changes >= 11) s->vbr = 1;
    ++s->bitrate_changes;
    g_mpa_stream_changed = 1;
  }
  if (hd->mpeg25 != s->mpeg25) g_mpa_stream_changed = 1;
  s->bitrate_index = hd->bitrate_index;
  s->layer = hd->layer;
  s->lsf = hd->lsf;
  s->mpeg25 = hd->mpeg25;
  s->sample_rate = hd->sample_rate;
  s->rate_index = hd->rate_index;
  s->bit_rate = hd->bit_rate;
  s->crc = hd->crc;
  s->padding = hd->padding;
  s->mode = hd->mode;
  s->mode_ext = hd->mode_ext;
  s->emphasis = hd->emphasis;
  s->channels = hd->channels;
  s->frame_size = u32(hd->frame_size);
  if (hd->frame_size != 0) s->last_frame_size = u32(hd->frame_size);
}

bool mpa_check_crc(const MpaHeader *hd, const u8 *frame) {
  if (!hd->crc) return true;
  // Only layer III's protected span (the side information) is known before
  // the layer is decoded. In layers I and II it runs through the bit
  // allocation and scale factor selection; as a mismatch only counts (the
  // frame is decoded either way), those layers are not checked.
  if (hd->layer != 3) return true;
  u32 side = hd->lsf ? (hd->channels == 1 ? 9 : 17) : (hd->channels == 1 ? 17 : 32);
  if (u32(hd->frame_size) < 6 + side) return false;
  MpaBits b;
  mpa_bits_init(&b, frame + 2, 2);
  u16 crc = mpa_crc16_update(0xFFFF, &b, 16);
  mpa_bits_init(&b, frame + 6, side);
  crc = mpa_crc16_update(crc, &b, side * 8);
  return crc == u16((frame[4] << 8) | frame[5]);
}
