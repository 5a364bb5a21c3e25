// The API's module state record and the helpers its parts share. Only the
// api/ sources include this.
#pragma once
#include <atomic>

#include "api/pmx_api.h"
#include "platform/mai_types.h"

constexpr u32 PMX_DISPLAY_WORDS = 14;
// Words of the engine's video display parameter block.
constexpr u32 DISPLAY_FLAGS = 0, DISPLAY_X = 6, DISPLAY_Y = 7, DISPLAY_WIDTH = 8, DISPLAY_HEIGHT = 9;
// Flags of word 0 of the display block.
constexpr u32 DISPLAY_ENABLE = 0x1, DISPLAY_NOMIX = 0x2, DISPLAY_CENTER = 0x4,
              DISPLAY_POSITION = 0x8, DISPLAY_SOURCERECT = 0x10, DISPLAY_DESTRECT = 0x20,
              DISPLAY_KEYCOLOR = 0x40, DISPLAY_KEYMASK = 0x80;
// Solution prefix mode of pmx_set_support: connect by hand with "pmi_".
constexpr u32 PMX_SUPPORT_PMI = 1;

// Output sample rates the engine's resampler can play, in Hz. Speed change
// steps through them; index 0 doubles as "rate not known".
inline constexpr u32 SRC_Table[] = {8000,  11025, 12000, 16000, 22050,  24000,  32000,
                                    44100, 48000, 64000, 88200, 96000, 176400, 192000};
constexpr u32 SRC_TABLE_SIZE = sizeof SRC_Table / sizeof SRC_Table[0];

// The engine calls back on its own threads: every field those callbacks
// touch is atomic, and the console thread only polls them.
struct PmxRecord {
  std::atomic<u32> engine{0};
  std::atomic<u32> event{0};
  std::atomic<u8> is_open{0};
  std::atomic<u8> at_eos{0};
  u8 display_set = 0;
  std::atomic<u8> running{0};
  u8 subtype_pending = 0;
  u32 support = 0;
  std::atomic<u8> unsupported{0};
  std::atomic<u32> state{0};
  u32 tv_out = 0;
  u32 display[PMX_DISPLAY_WORDS] = {};
  u64 time_base = 0;
  u8 spdif = 0;
  u32 speed_index = 0;
  u32 normal_speed_index = 0;
};

// Video media subtype of the open file, read again after every open; the
// time computation depends on it.
extern u32 eMSubtype;

extern PmxRecord pmx;

// Writes a little-endian word into an engine record at any alignment.
inline void put_le32(u8 *p, u32 v) {
  for (u32 i = 0; i < 4; ++i) p[i] = static_cast<u8>(v >> (8 * i));
}
extern std::atomic<PmxCallback> pmx_error_cb;
extern std::atomic<PmxCallback> pmx_eos_cb;

// Fills the engine-to-API translation table.
void pmx_fill_error_table();
// Sends the play command at a speed code's rate; `reverse` plays backwards.
s32 media_play(u32 speed_code, u32 reverse);
// Stop the engine's transport; used by close and by stop.
s32 media_stop();
// Stop, disconnect and mark closed.
s32 media_close();

// Fits the picture to the screen of the current output, keeping its shape.
// Returns the engine status untranslated: 1 without an engine, 11 without a
// file.
u32 media_setvideo_auto_display();

// The engine callbacks registered at initialisation.
u32 mai_err_cb(void *context, u32 code, u32 detail);
u32 mai_prog_cb(u32 kind, const u32 *record);

// The printers of pmx_print_fileinfo, in the order it uses them.
void media_type_print(const u8 *record);
void media_vedio_info_print(const u8 *record);
void media_audio_info_print(const u8 *record);
void media_display_info_print(u32 engine);
