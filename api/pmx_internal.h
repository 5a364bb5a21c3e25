// The API's module state record and the helpers its parts share. Only the
// api/ sources include this.
#pragma once
#include <atomic>

#include "api/pmx_api.h"
#include "platform/mai_types.h"

constexpr u32 PMX_DISPLAY_WORDS = 14;
// Words of the engine's video display parameter block.
constexpr u32 DISPLAY_FLAGS = 0, DISPLAY_X = 6, DISPLAY_Y = 7, DISPLAY_WIDTH = 8, DISPLAY_HEIGHT = 9;
// Solution prefix mode of pmx_set_support: connect by hand with "pmi_".
constexpr u32 PMX_SUPPORT_PMI = 1;

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

extern PmxRecord pmx;
extern std::atomic<PmxCallback> pmx_error_cb;
extern std::atomic<PmxCallback> pmx_eos_cb;

// Fills the engine-to-API translation table.
void pmx_fill_error_table();
// Stop the engine's transport; used by close and by stop.
s32 media_stop();
// Stop, disconnect and mark closed.
s32 media_close();

// The engine callbacks registered at initialisation.
u32 mai_err_cb(void *context, u32 code, u32 detail);
u32 mai_prog_cb(u32 kind, const u32 *record);

// The printers of pmx_print_fileinfo, in the order it uses them.
void media_type_print(const u8 *record);
void media_vedio_info_print(const u8 *record);
void media_audio_info_print(const u8 *record);
void media_display_info_print(u32 engine);
