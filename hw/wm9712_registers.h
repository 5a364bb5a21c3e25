// WM9712 AC97 codec: the register indices, bits and values this board uses,
// and the private requests of the Au1200 sound driver behind "/dev/mixer".
//
// All codec registers are 16 bits wide at even AC97 indices. The names
// follow the role each register plays on this board (which output a mixer
// drives depends on the board wiring: the headphone jack hangs on the
// headphone mixer, the small speaker on the mono output, the line out on
// LOUT2/ROUT2).
#pragma once
#include "platform/mai_types.h"

// ---- Sound driver requests on "/dev/mixer" ----
// Type character 'f' (0x66), numbers 20 to 25, argument size 2 (a u16),
// encoded the MIPS way: direction in bits 29-31 (1 none, 2 read, 4 write),
// size in bits 16-28, type in bits 8-15, number in bits 0-7. The numbers are
// spelt out because the host's _IOR/_IOW macros encode directions
// differently from the board's kernel.
constexpr u32 SNDCTL_GET_AC97_REG = 0x40026614;      // _IOR('f', 20, u16): read the selected register
constexpr u32 SNDCTL_SET_AC97_REG = 0x80026615;      // _IOW('f', 21, u16): write the selected register
constexpr u32 SNDCTL_SET_AC97_INDEX = 0x80026616;    // _IOW('f', 22, u16): select a register index
constexpr u32 SNDCTL_AC97_BEEP_START = 0x80026617;   // _IOW('f', 23, u16): beep for n milliseconds
constexpr u32 SNDCTL_AC97_SPEAKER_ENA = 0x80026618;  // _IOW('f', 24, u16): speaker amplifier on/off
constexpr u32 SNDCTL_AC97_CODEC_RESET = 0x80026619;  // _IOW('f', 25, u16): codec reset test, null argument

// ---- Register indices ----
constexpr u16 AC97_LINE_OUT_VOL = 0x02;     // LOUT2/ROUT2 volume: the line out
constexpr u16 AC97_HEADPHONE_VOL = 0x04;    // HPL/HPR volume: the earphone jack
constexpr u16 AC97_SPEAKER_VOL = 0x06;      // mono output volume: the built-in speaker
constexpr u16 AC97_MASTER_TONE = 0x08;      // bass and treble of the DAC path
constexpr u16 AC97_PC_BEEP_VOL = 0x0A;      // PC beep input to the mixers
constexpr u16 AC97_PHONE_VOL = 0x0C;        // phone input volume
constexpr u16 AC97_MIC_VOL = 0x0E;          // microphone to the mixers
constexpr u16 AC97_LINE_IN_VOL = 0x10;      // line input (FM radio) to the mixers
constexpr u16 AC97_AUX_DAC_VOL = 0x12;      // auxiliary DAC volume
constexpr u16 AC97_MIC_ROUTING = 0x14;      // microphone sidetone routing
constexpr u16 AC97_OUT3_MIXER = 0x16;       // OUT3 mixer
constexpr u16 AC97_DAC_VOL = 0x18;          // PCM DAC to the mixers, 5-bit level per channel
constexpr u16 AC97_RECORD_SELECT = 0x1A;    // ADC record source
constexpr u16 AC97_RECORD_GAIN = 0x1C;      // ADC record gain (microphone sensitivity)
constexpr u16 AC97_GENERAL_PURPOSE = 0x20;  // general purpose: 3D enable
constexpr u16 AC97_3D_CONTROL = 0x22;       // 3D stereo enhancement
constexpr u16 WM9712_POWERDOWN_1 = 0x24;    // vendor power-down register ("PWDN 24h")
constexpr u16 AC97_POWERDOWN = 0x26;        // standard power-down control/status ("PWDN 26h")
constexpr u16 AC97_EXT_AUDIO_CTRL = 0x2A;   // extended audio status/control: S/PDIF enable and slots
constexpr u16 AC97_SPDIF_CTRL = 0x3A;       // S/PDIF control: sample rate and channel status
constexpr u16 WM9712_GPIO_CONFIG = 0x4C;    // GPIO pin direction (1 = input)
constexpr u16 WM9712_GPIO_SHARING = 0x56;   // GPIO pin sharing with other functions
constexpr u16 WM9712_ADD_FUNC_2 = 0x5C;     // additional functions

// ---- Values and bits ----
// Volume registers (0x02, 0x04, 0x06): bit 15 mutes the output, the
// attenuation is 6 bits per channel, left in bits 8-13, right in bits 0-5.
constexpr u16 AC97_MUTE = 0x8000;
constexpr u16 AC97_VOL_MASK = 0x3F;
constexpr u16 AC97_LINE_OUT_FULL = 0x0000;     // line out: unmuted, 0 dB
constexpr u16 SPEAKER_CLAMP_VOLUME = 0x0004;   // speaker limit written by set-volume
constexpr u16 SPEAKER_CLAMP_ROUTING = 0x0404;  // speaker limit written by output routing
constexpr u8 SPEAKER_CLAMP_FROM = 36;          // volume steps from which the speaker is held

// DAC to mixers (0x18): bit 15 DAC to headphone mixer mute, bit 14 DAC to
// speaker mixer mute, bit 13 DAC to mono mixer mute, 5-bit level per
// channel (0x08 = 0 dB).
constexpr u16 DAC_VOL_MASK = 0x1F;
constexpr u16 DAC_TO_SPEAKER_MUTE = 0x4000;
constexpr u16 DAC_VOL_ROUTED = 0x4808;  // DAC to headphone and mono mixers at 0 dB
constexpr u8 DAC_LEVEL_BELOW = 10;      // volume steps under this use the DAC level table

// The "idle" mixing set: every extra path muted or at its default.
constexpr u16 DAC_VOL_IDLE = 0xE808;
constexpr u16 MIC_VOL_IDLE = 0x6080;
constexpr u16 MIC_ROUTING_IDLE = 0xAD00;
constexpr u16 LINE_IN_VOL_IDLE = 0xE808;

// Per input source (0x0E, 0x14, 0x10, 0x1A, 0x1C).
constexpr u16 MIC_VOL_SELECTED = 0x2000;  // microphone to mixers when the input is chosen
constexpr u16 MIC_VOL_REFRESH = 0x2080;   // the same path with the 20 dB boost, on re-routing
constexpr u16 MIC_ROUTING_SIDETONE = 0x5100;
constexpr u16 LINE_IN_VOL_ROUTED = 0x4202;
constexpr u16 RECORD_SELECT_DAC = 0x3000;
constexpr u16 RECORD_SELECT_MIC = 0x4800;
constexpr u16 RECORD_SELECT_LINE = 0x0404;
constexpr u16 RECORD_GAIN_DAC = 0x8000;   // ADC muted
constexpr u16 RECORD_GAIN_MIC = 0x0F0F;
constexpr u16 RECORD_GAIN_LINE = 0x0000;
constexpr u16 RECORD_GAIN_MIC_HIGH = 0x0B0B;
constexpr u16 RECORD_GAIN_MIC_LOW = 0x0202;

// Power-down control (0x26): PR0 input mux and ADCs, PR1 DACs, PR6
// headphone amplifier (the analogue outputs).
constexpr u16 AC97_PD_PR0_ADC = 0x0100;
constexpr u16 AC97_PD_PR1_DAC = 0x0200;
constexpr u16 AC97_PD_PR6_OUTPUTS = 0x4000;

// Vendor power-down register 1 (0x24).
constexpr u16 PD1_HEADPHONE = 0x0300;  // headphone left/right drivers
constexpr u16 PD1_SPEAKER = 0x0040;    // mono (speaker) driver
constexpr u16 PD1_LINE_OUT = 0x0388;   // line out drivers and their mixer
constexpr u16 PD1_INPUT_NONE_SET = 0x0405;
constexpr u16 PD1_INPUT_DAC_SET = 0x1C05;
constexpr u16 PD1_INPUT_MIC_SET = 0x0004;
constexpr u16 PD1_INPUT_MIC_KEEP = 0xE3FE;
constexpr u16 PD1_INPUT_LINE_KEEP = 0xE7FB;
constexpr u16 PD1_INPUT_LINE_SET = 0x0401;
constexpr u16 PD1_SLEEP = 0x1CCF;      // power-down setting of the whole codec

// Tone (0x08): bass in bits 8-11, treble in bits 0-3, bit 12 bass cut-off.
constexpr u16 TONE_FLAT = 0x0F0F;
constexpr u16 TONE_BASS_CUTOFF = 0x1000;
constexpr u16 TONE_NIBBLE = 0x0F;

// 3D (0x20 bit 13 enables it; 0x22 depth in bits 0-3, bit 5 upper cut-off).
constexpr u16 AC97_GP_3D_ENABLE = 0x2000;
constexpr u16 AC97_3D_UPPER_CUTOFF = 0x0020;
constexpr u16 AC97_3D_DEPTH_MASK = 0x000F;
constexpr u16 AC97_3D_DEFAULT = 0x0F0F;

// S/PDIF: 48 kHz in the control register, the enable bit (and the slot
// assignment used while disabled) in the extended control register, the
// GPIO5 pin taken over as S/PDIF output.
constexpr u16 SPDIF_CTRL_48K = 0x2000;
constexpr u16 EXT_AUDIO_SPDIF_ON = 0x0004;
constexpr u16 EXT_AUDIO_SPDIF_OFF = 0x0410;
constexpr u16 GPIO_SHARING_SPDIF = 0x0020;
constexpr u16 ADD_FUNC_2_SPDIF_OFF = 0x0010;
constexpr u16 GPIO5_SPDIF_PIN = 0x0020;

// GPIO1 drives the speaker amplifier's shutdown (set = speaker off).
constexpr u16 GPIO1_SPEAKER_OFF = 0x0002;

// Default set-up: the last written value of each register, in write order.
constexpr u16 LINE_OUT_INIT = AC97_MUTE;
constexpr u16 HEADPHONE_INIT = AC97_MUTE;
constexpr u16 SPEAKER_INIT = AC97_MUTE;
constexpr u16 PC_BEEP_INIT = 0xFFF0;
constexpr u16 PC_BEEP_TEST = 0xAAA0;
constexpr u16 PHONE_INIT = 0xC000;
constexpr u16 AUX_DAC_INIT = 0x8080;
constexpr u16 OUT3_MIXER_INIT = 0x8100;
constexpr u16 GENERAL_PURPOSE_INIT = 0x0000;
