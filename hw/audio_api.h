// Control of the board's WM9712 AC97 codec through the OSS mixer
// "/dev/mixer": output routing, input source, volume, mute, 3D and tone,
// microphone sensitivity, S/PDIF, beep, power and register dumps.
//
// Every operation but the register routines, speaker_onoff and
// audio_device_init opens the mixer itself and closes it again; results are
// 0 for success and -1 for failure unless noted. Callers serialise calls:
// one descriptor is shared by all operations.
#pragma once
#include "platform/mai_types.h"

enum AUDIO_OUTPUT : s32 {
  OUTPUT_DISABLE = 0,
  OUTPUT_EARPHONE = 1,
  OUTPUT_SPEAKER = 2,
  OUTPUT_LINEOUT = 3,
  OUTPUT_SPDIF = 4,
};

enum AUDIO_INPUT : s32 {
  INPUT_DISABLE = 0,
  INPUT_DAC = 1,
  INPUT_MIC = 2,
  INPUT_LINE_FM = 3,
};

enum MIC_SENSE : s32 {
  MIC_SENSITIVITY_LOW = 0,
  MIC_SENSITIVITY_HIGH = 1,
};

// Volume scale of audio_device_set_volume: 0 (silent) to 40.
constexpr u8 AUDIO_VOLUME_MAX = 40;

// ---- Register access (mixer must be open) ----
s32 WM9712_set_register(u16 addr, u16 data);
u16 WM9712_get_register(u16 addr);  // 0xFFFF on failure

s32 audio_mixer_open();
s32 audio_mixer_close();

// Zeroes the state (outputs off, volume 0, no input, beep not permitted)
// and writes the default registers. Run once before anything else.
s32 audio_api_init();

s32 beep_start(u16 milisec);  // -1 without a device call until beep is permitted
s32 speaker_onoff(u16 onoff);  // mixer must be open
s32 SPDIF_ENABLE();
s32 SPDIF_DISABLE();
s32 audio_device_init();  // mixer must be open

s32 audio_device_set_volume(u8 Volume);  // 0..40; 0 powers the outputs down
s32 audio_device_mute(u8 OnOff);
s32 audio_device_output_ctrl(AUDIO_OUTPUT output_param, u8 OnOff);
s32 audio_device_input_select(AUDIO_INPUT input_param);
s32 audio_device_3D_ctrl(u8 OnOff, u8 ucdepth, u8 ucbass, u8 uctreble);
s32 audio_device_MIC_sensitivity(MIC_SENSE sense);

u8 audio_device_get_volume();
u8 audio_device_get_mute_state();
u8 audio_device_get_input_state();
u8 audio_device_get_beep_state();
u8 audio_device_get_output_state(AUDIO_OUTPUT output_param);  // 0 for 0 and above 4
s32 audio_device_beep_OnOff(u8 OnOff);  // permits beeps; touches no register

s32 audio_device_test();
void powerdown_audio_device(u8 pwdn_dev);  // argument ignored
void powerup_audio_device();

s32 WM9712_printf_register();
s32 WM9712_check_register();
s32 WM9712_reset_test();
