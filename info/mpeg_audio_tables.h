// MPEG audio header tables: bit rates and sample rates of ISO 11172-3
// (MPEG-1) and ISO 13818-3 (MPEG-2 low sampling frequencies), and the
// frame length maps the search through the file uses.
//
// Frame header, four bytes big-endian:
//   AAAAAAAA AAABBCCD EEEEFFGH IIJJKLMM
//   A sync (all ones), B version (0 MPEG-2.5, 1 reserved, 2 MPEG-2,
//   3 MPEG-1), C layer (1 III, 2 II, 3 I, 0 reserved), D protection,
//   E bit rate index, F sample rate index, G padding, H private,
//   I channel mode (3 mono), J mode extension, K copyright, L original,
//   M emphasis.
#pragma once
#include <array>

#include "platform/mai_types.h"

// Bit rates in kbit/s by bit rate index. Index 0 is free format and 15 is
// forbidden; both read 0.
constexpr std::array<u32, 16> A1_L1_bitrate = {0,   32,  64,  96,  128, 160, 192, 224,
                                               256, 288, 320, 352, 384, 416, 448, 0};
constexpr std::array<u32, 16> A1_L2_bitrate = {0,   32,  48,  56,  64,  80,  96,  112,
                                               128, 160, 192, 224, 256, 320, 384, 0};
constexpr std::array<u32, 16> A1_L3_bitrate = {0,   32,  40,  48,  56,  64,  80,  96,
                                               112, 128, 160, 192, 224, 256, 320, 0};
constexpr std::array<u32, 16> A2_L1_bitrate = {0,   32,  48,  56,  64,  80,  96,  112,
                                               128, 144, 160, 176, 192, 224, 256, 0};
constexpr std::array<u32, 16> A2_L2_bitrate = {0,  8,  16, 24,  32,  40,  48,  56,
                                               64, 80, 96, 112, 128, 144, 160, 0};
constexpr std::array<u32, 16> A2_L3_bitrate = A2_L2_bitrate;
// MPEG-2.5 is an extension of MPEG-2 to half its sample rates; it keeps
// the MPEG-2 bit rates.
constexpr std::array<u32, 16> A25_L1_bitrate = A2_L1_bitrate;
constexpr std::array<u32, 16> A25_L2_bitrate = A2_L2_bitrate;
constexpr std::array<u32, 16> A25_L3_bitrate = A2_L3_bitrate;

// Sample rates in Hz by sample rate index (3 is reserved).
constexpr std::array<u32, 4> A1S = {44100, 48000, 32000, 0};
constexpr std::array<u32, 4> A2S = {22050, 24000, 16000, 0};
constexpr std::array<u32, 4> A25S = {11025, 12000, 8000, 0};

// Layer III bit rates for the search through the file: entries 0 to 15 the
// MPEG-2/2.5 row, 16 to 31 the MPEG-1 row. The search indexes it for layer
// II frames too, so those are averaged with layer III rates.
constexpr std::array<u16, 32> usBRMap = {
    0, 8,  16, 24, 32, 40, 48, 56, 64, 80,  96,  112, 128, 144, 160, 0,  // MPEG-2, MPEG-2.5
    0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0,  // MPEG-1
};

// Sample rates in rows of four: MPEG-2.5, MPEG-2, MPEG-1.
constexpr std::array<u16, 12> usSRMap = {
    11025, 12000, 8000,  0,  // MPEG-2.5
    22050, 24000, 16000, 0,  // MPEG-2
    44100, 48000, 32000, 0,  // MPEG-1
};

// Layer III frame lengths in bytes without the padding byte, by
// (version row * 4 + sample rate index) * 16 + bit rate index. A layer III
// frame carries 1152 samples in MPEG-1 and 576 in MPEG-2/2.5, so its length
// is 144000 * kbit/s / Hz and 72000 * kbit/s / Hz, rounded down.
constexpr std::array<u16, 12 * 16> usFLMap = {
    // MPEG-2.5
    0, 52, 104, 156, 208, 261, 313, 365, 417, 522, 626, 731, 835, 940, 1044, 0,     // 11025 Hz
    0, 48, 96, 144, 192, 240, 288, 336, 384, 480, 576, 672, 768, 864, 960, 0,       // 12000 Hz
    0, 72, 144, 216, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1296, 1440, 0,  // 8000 Hz
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                                 // reserved
    // MPEG-2
    0, 26, 52, 78, 104, 130, 156, 182, 208, 261, 313, 365, 417, 470, 522, 0,        // 22050 Hz
    0, 24, 48, 72, 96, 120, 144, 168, 192, 240, 288, 336, 384, 432, 480, 0,         // 24000 Hz
    0, 36, 72, 108, 144, 180, 216, 252, 288, 360, 432, 504, 576, 648, 720, 0,       // 16000 Hz
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                                 // reserved
    // MPEG-1
    0, 104, 130, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044, 0,    // 44100 Hz
    0, 96, 120, 144, 168, 192, 240, 288, 336, 384, 480, 576, 672, 768, 960, 0,      // 48000 Hz
    0, 144, 180, 216, 252, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1440, 0,  // 32000 Hz
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                                 // reserved
};

// Layer II frame lengths (1152 samples, 144000 * kbit/s / Hz rounded down),
// by (row * 4 + sample rate index) * 16 + bit rate index. Rows 0 to 3 serve
// MPEG-2 and MPEG-2.5 alike with the MPEG-2 sample rates and the MPEG-2
// layer III rates, so an MPEG-2.5 layer II frame is measured as MPEG-2;
// rows 4 to 7 are MPEG-1 with the MPEG-1 layer II rates.
constexpr std::array<u16, 8 * 16> usFLMap2 = {
    // MPEG-2 and MPEG-2.5
    0, 52, 104, 156, 208, 261, 313, 365, 417, 522, 626, 731, 835, 940, 1044, 0,      // 22050 Hz
    0, 48, 96, 144, 192, 240, 288, 336, 384, 480, 576, 672, 768, 864, 960, 0,        // 24000 Hz
    0, 72, 144, 216, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1296, 1440, 0,   // 16000 Hz
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                                  // reserved
    // MPEG-1
    0, 104, 156, 182, 208, 261, 313, 365, 417, 522, 626, 731, 835, 1044, 1253, 0,    // 44100 Hz
    0, 96, 144, 168, 192, 240, 288, 336, 384, 480, 576, 672, 768, 960, 1152, 0,      // 48000 Hz
    0, 144, 216, 252, 288, 360, 432, 504, 576, 720, 864, 1008, 1152, 1440, 1728, 0,  // 32000 Hz
    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                                  // reserved
};

// WAVE format tags by layer field (0 reserved, 1 III, 2 II, 3 I).
constexpr std::array<u32, 4> mpa_codec_by_layer = {0, 0x0055, 0x0051, 0x0050};
