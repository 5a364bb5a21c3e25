// WM9712 codec control over the sound driver's private AC97 requests.
//
// A register is reached in two steps: SNDCTL_SET_AC97_INDEX selects it, then
// SNDCTL_SET_AC97_REG or SNDCTL_GET_AC97_REG moves its 16-bit value. The
// state record remembers what was asked for (volume, mute, enabled outputs,
// input source) so that a later volume, mute or routing change can re-apply
// the whole routing; registers are never read back into it.
#include "hw/audio_api.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "hw/wm9712_registers.h"

namespace {

struct AudioDevice {
  s32 devfd;            // "/dev/mixer" while open, else stale
  u8 volume_status;     // last volume set, 0..40
  u8 mute_status;       // last mute request
  u8 beep_status;       // beeps permitted
  u8 hp_mixer_stat;     // earphone output enabled
  u8 mono_mixer_stat;   // speaker output enabled
  u8 line_mixer_stat;   // line output enabled
  u8 spdif_stat;        // S/PDIF output enabled
  u8 input_status;      // current AUDIO_INPUT
  u8 effect_3D_status;  // 3D effect on
};

AudioDevice audio_dev;

const char MIXER_DEVICE[] = "/dev/mixer";

// Attenuation per volume step: 6-bit codec attenuation, 0 loudest.
const u8 VolumeTable[41] = {63, 63, 50, 45, 40, 35, 33, 31, 30, 29, 28, 27, 26, 25,
                            24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14, 13, 12, 11,
                            10, 9,  8,  7,  6,  5,  5,  4,  4,  3,  3,  2,  1};

// DAC level for the quiet steps 0..9 while the DAC feeds the mixers.
const u8 DAC_Volume[10] = {16, 15, 14, 13, 12, 11, 10, 9, 9, 8};

void print_open_error(const char *who) { printf("%s ->Error: cannot open Mixer device.\n", who); }

bool any_analogue_output() {
  return audio_dev.hp_mixer_stat || audio_dev.mono_mixer_stat || audio_dev.line_mixer_stat;
}

// Same 6-bit attenuation on both channels of a volume register.
u16 stereo_volume_word(u8 volume) {
  const u16 v = VolumeTable[volume] & AC97_VOL_MASK;
  return static_cast<u16>(v | (v << 8));
}

// The idle mixing set: no extra source reaches the output mixers.
void write_idle_mixing() {
  WM9712_set_register(AC97_DAC_VOL, DAC_VOL_IDLE);
  WM9712_set_register(AC97_MIC_VOL, MIC_VOL_IDLE);
  WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_IDLE);
  WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_IDLE);
}

// Re-applies the mixing gains of the current input source. For the DAC at
// the quiet volume steps the attenuation moves into the DAC level itself,
// since the output drivers' steps are too coarse down there.
void refresh_routing() {
  switch (audio_dev.input_status) {
    case INPUT_DAC:
      if (audio_dev.volume_status < DAC_LEVEL_BELOW) {
        const u16 d = DAC_Volume[audio_dev.volume_status] & DAC_VOL_MASK;
        WM9712_set_register(AC97_DAC_VOL, static_cast<u16>(d | (d << 8) | DAC_TO_SPEAKER_MUTE));
      } else {
        WM9712_set_register(AC97_DAC_VOL, DAC_VOL_ROUTED);
      }
      break;
    case INPUT_MIC:
      WM9712_set_register(AC97_MIC_VOL, MIC_VOL_REFRESH);
      WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_SIDETONE);
      break;
    case INPUT_LINE_FM:
      WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_ROUTED);
      WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_IDLE);
      break;
    default:
      write_idle_mixing();
      break;
  }
}

void update_register(u16 addr, u16 keep, u16 set) {
  WM9712_set_register(addr, static_cast<u16>((WM9712_get_register(addr) & keep) | set));
}

}  // namespace

// ---- Register access ----

s32 WM9712_set_register(u16 addr, u16 data) {
  if (ioctl(audio_dev.devfd, SNDCTL_SET_AC97_INDEX, &addr) < 0) {
    printf("%s : SNDCTL_SET_AC97_INDEX error\n", __func__);
    return -1;
  }
  if (ioctl(audio_dev.devfd, SNDCTL_SET_AC97_REG, &data) < 0) {
    printf("%s : SNDCTL_SET_AC97_REG error\n", __func__);
    return -1;
  }
  return 0;
}

u16 WM9712_get_register(u16 addr) {
  if (ioctl(audio_dev.devfd, SNDCTL_SET_AC97_INDEX, &addr) < 0) {
    printf("%s : SNDCTL_SET_AC97_INDEX error\n", __func__);
    return 0xFFFF;
  }
  u16 data = 0;
  if (ioctl(audio_dev.devfd, SNDCTL_GET_AC97_REG, &data) != 0) {
    printf("%s : SNDCTL_GET_AC97_REG error\n", __func__);
    return 0xFFFF;
  }
  return data;
}

s32 audio_mixer_open() {
  audio_dev.devfd = open(MIXER_DEVICE, O_RDWR);
  return audio_dev.devfd < 0 ? -1 : 0;
}

s32 audio_mixer_close() {
  close(audio_dev.devfd);
  return 0;
}

s32 audio_api_init() {
  std::memset(&audio_dev, 0, sizeof audio_dev);
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  audio_device_init();
  audio_mixer_close();
  return 0;
}

s32 beep_start(u16 milisec) {
  if (!audio_dev.beep_status) return -1;
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  if (ioctl(audio_dev.devfd, SNDCTL_AC97_BEEP_START, &milisec) < 0) {
    printf("%s : SNDCTL_AC97_BEEP_START error\n", __func__);
    audio_mixer_close();
    return -1;
  }
  audio_mixer_close();
  return 0;
}

// The speaker amplifier is switched twice by the driver, around the GPIO
// line that holds it in shutdown.
s32 speaker_onoff(u16 onoff) {
  if (ioctl(audio_dev.devfd, SNDCTL_AC97_SPEAKER_ENA, &onoff) < 0) {
    printf("%s : SNDCTL_AC97_SPEAKER_ENA error\n", __func__);
    audio_mixer_close();
    return -1;
  }
  if (onoff) {
    update_register(WM9712_GPIO_CONFIG, static_cast<u16>(~GPIO1_SPEAKER_OFF), 0);
    printf("Speaker ON \n");
  } else {
    update_register(WM9712_GPIO_CONFIG, 0xFFFF, GPIO1_SPEAKER_OFF);
    printf("Speaker OFF \n");
  }
  if (ioctl(audio_dev.devfd, SNDCTL_AC97_SPEAKER_ENA, &onoff) < 0) {
    printf("%s : SNDCTL_AC97_SPEAKER_ENA error\n", __func__);
    audio_mixer_close();
    return -1;
  }
  return 0;
}

s32 SPDIF_ENABLE() {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  WM9712_set_register(AC97_SPDIF_CTRL, SPDIF_CTRL_48K);
  update_register(WM9712_GPIO_SHARING, static_cast<u16>(~GPIO_SHARING_SPDIF), 0);
  WM9712_set_register(AC97_EXT_AUDIO_CTRL, EXT_AUDIO_SPDIF_ON);
  update_register(WM9712_ADD_FUNC_2, static_cast<u16>(~ADD_FUNC_2_SPDIF_OFF), 0);
  update_register(WM9712_GPIO_CONFIG, static_cast<u16>(~GPIO5_SPDIF_PIN), 0);
  audio_mixer_close();
  return 0;
}

// The pin-sharing bit is cleared here as well as on enable.
s32 SPDIF_DISABLE() {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  update_register(WM9712_GPIO_SHARING, static_cast<u16>(~GPIO_SHARING_SPDIF), 0);
  WM9712_set_register(AC97_EXT_AUDIO_CTRL, EXT_AUDIO_SPDIF_OFF);
  update_register(WM9712_ADD_FUNC_2, 0xFFFF, ADD_FUNC_2_SPDIF_OFF);
  update_register(WM9712_GPIO_CONFIG, 0xFFFF, GPIO5_SPDIF_PIN);
  audio_mixer_close();
  return 0;
}

s32 audio_device_init() {
  WM9712_set_register(AC97_LINE_OUT_VOL, LINE_OUT_INIT);
  WM9712_set_register(AC97_HEADPHONE_VOL, HEADPHONE_INIT);
  WM9712_set_register(AC97_SPEAKER_VOL, SPEAKER_INIT);
  WM9712_set_register(AC97_MASTER_TONE, TONE_FLAT);
  WM9712_set_register(AC97_PC_BEEP_VOL, PC_BEEP_INIT);
  WM9712_set_register(AC97_PHONE_VOL, PHONE_INIT);
  WM9712_set_register(AC97_MIC_VOL, MIC_VOL_IDLE);
  WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_IDLE);
  WM9712_set_register(AC97_AUX_DAC_VOL, AUX_DAC_INIT);
  WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_IDLE);
  WM9712_set_register(AC97_OUT3_MIXER, OUT3_MIXER_INIT);
  WM9712_set_register(AC97_DAC_VOL, DAC_VOL_IDLE);
  WM9712_set_register(AC97_RECORD_SELECT, RECORD_SELECT_DAC);
  WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_DAC);
  WM9712_set_register(AC97_GENERAL_PURPOSE, GENERAL_PURPOSE_INIT);
  WM9712_set_register(AC97_3D_CONTROL, AC97_3D_DEFAULT);
  return 0;
}

// ---- Volume, mute and routing ----

// Volume 0 is silence by powering the outputs down, not by attenuation.
// With no analogue output enabled the call stops early and leaves the mixer
// open. From step 36 the speaker is held at one level to protect it.
s32 audio_device_set_volume(u8 Volume) {
  if (Volume > AUDIO_VOLUME_MAX) {
    printf("Warning : Volume range -> 0 to 40\n");
    return -1;
  }
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  u16 pd = WM9712_get_register(AC97_POWERDOWN);
  u16 pd1 = WM9712_get_register(WM9712_POWERDOWN_1);
  audio_dev.volume_status = Volume;

  if (Volume == 0) {
    WM9712_set_register(AC97_POWERDOWN, pd | AC97_PD_PR6_OUTPUTS);
    WM9712_set_register(WM9712_POWERDOWN_1, pd1 | PD1_SPEAKER);
    audio_mixer_close();
    return 0;
  }
  if (!any_analogue_output()) {
    printf("%s : Possible Output None..\n", __func__);
    return 0;
  }

  refresh_routing();
  const u16 word = stereo_volume_word(Volume);

  if (audio_dev.hp_mixer_stat) {
    pd &= static_cast<u16>(~AC97_PD_PR6_OUTPUTS);
    pd1 &= static_cast<u16>(~PD1_HEADPHONE);
    WM9712_set_register(AC97_POWERDOWN, pd);
    WM9712_set_register(WM9712_POWERDOWN_1, pd1);
    WM9712_set_register(AC97_HEADPHONE_VOL, word);
  }
  if (audio_dev.mono_mixer_stat) {
    WM9712_set_register(AC97_POWERDOWN, pd);
    pd1 &= static_cast<u16>(~PD1_SPEAKER);
    WM9712_set_register(WM9712_POWERDOWN_1, pd1);
    printf("\t\t\tSpeaker Volume = %d\n", Volume);
    if (Volume >= SPEAKER_CLAMP_FROM) {
      printf("speaker Volume clamping...\n");
      WM9712_set_register(AC97_SPEAKER_VOL, SPEAKER_CLAMP_VOLUME);
    } else {
      WM9712_set_register(AC97_SPEAKER_VOL, word);
    }
  }
  if (audio_dev.line_mixer_stat) WM9712_set_register(AC97_LINE_OUT_VOL, AC97_LINE_OUT_FULL);
  audio_mixer_close();
  return 0;
}

// Mute powers the outputs down; un-mute re-applies the routing and clears
// the mute bits while keeping the attenuation the registers hold.
s32 audio_device_mute(u8 OnOff) {
  if (!any_analogue_output()) {
    printf("%s : Possible Output None..\n", __func__);
    return -1;
  }
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  audio_dev.mute_status = OnOff;
  u16 pd = WM9712_get_register(AC97_POWERDOWN);
  u16 pd1 = WM9712_get_register(WM9712_POWERDOWN_1);

  if (OnOff) {
    WM9712_set_register(AC97_POWERDOWN, pd | AC97_PD_PR6_OUTPUTS);
    WM9712_set_register(WM9712_POWERDOWN_1, pd1 | PD1_SPEAKER);
  } else {
    refresh_routing();
    if (audio_dev.hp_mixer_stat) {
      pd &= static_cast<u16>(~AC97_PD_PR6_OUTPUTS);
      pd1 &= static_cast<u16>(~PD1_HEADPHONE);
      WM9712_set_register(AC97_POWERDOWN, pd);
      WM9712_set_register(WM9712_POWERDOWN_1, pd1);
      update_register(AC97_HEADPHONE_VOL, static_cast<u16>(~AC97_MUTE), 0);
    }
    if (audio_dev.mono_mixer_stat) {
      WM9712_set_register(AC97_POWERDOWN, pd);
      pd1 &= static_cast<u16>(~PD1_SPEAKER);
      WM9712_set_register(WM9712_POWERDOWN_1, pd1);
      update_register(AC97_SPEAKER_VOL, static_cast<u16>(~AC97_MUTE), 0);
    }
    if (audio_dev.line_mixer_stat) WM9712_set_register(AC97_LINE_OUT_VOL, AC97_LINE_OUT_FULL);
  }
  audio_mixer_close();
  return 0;
}

// Line out and S/PDIF share the codec's output path: with S/PDIF on, line
// out stays off whatever is asked. S/PDIF itself is switched by its own
// routines, which open and close the mixer themselves; the call returns
// right after them without writing the power-down copies back.
s32 audio_device_output_ctrl(AUDIO_OUTPUT output_param, u8 OnOff) {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  u16 pd = WM9712_get_register(AC97_POWERDOWN);
  u16 pd1 = WM9712_get_register(WM9712_POWERDOWN_1);

  switch (output_param) {
    case OUTPUT_DISABLE:
      audio_dev.hp_mixer_stat = 0;
      audio_dev.mono_mixer_stat = 0;
      audio_dev.line_mixer_stat = 0;
      break;
    case OUTPUT_EARPHONE:
      if (OnOff) {
        audio_dev.hp_mixer_stat = 1;
        pd &= static_cast<u16>(~AC97_PD_PR6_OUTPUTS);
        pd1 &= static_cast<u16>(~PD1_HEADPHONE);
      } else {
        audio_dev.hp_mixer_stat = 0;
        pd |= AC97_PD_PR6_OUTPUTS;
      }
      break;
    case OUTPUT_SPEAKER:
      audio_dev.mono_mixer_stat = OnOff ? 1 : 0;
      if (OnOff)
        pd1 &= static_cast<u16>(~PD1_SPEAKER);
      else
        pd1 |= PD1_SPEAKER;
      speaker_onoff(OnOff);
      break;
    case OUTPUT_LINEOUT:
      if (audio_dev.spdif_stat) {
        audio_dev.line_mixer_stat = 0;
        pd1 |= PD1_LINE_OUT;
      } else {
        audio_dev.line_mixer_stat = 1;
        pd1 &= static_cast<u16>(~PD1_LINE_OUT);
      }
      break;
    case OUTPUT_SPDIF:
      if (OnOff) {
        SPDIF_ENABLE();
        audio_dev.spdif_stat = 1;
        audio_dev.line_mixer_stat = 0;
      } else {
        SPDIF_DISABLE();
        audio_dev.spdif_stat = 0;
        audio_dev.line_mixer_stat = 1;
      }
      return 0;
    default:
      break;
  }

  WM9712_set_register(AC97_POWERDOWN, pd);
  WM9712_set_register(WM9712_POWERDOWN_1, pd1);

  if (audio_dev.volume_status) {
    if (!any_analogue_output()) {
      printf("%s : Possible Output None..\n", __func__);
      return 0;
    }
    refresh_routing();
    const u16 word = stereo_volume_word(audio_dev.volume_status);
    if (audio_dev.hp_mixer_stat) WM9712_set_register(AC97_HEADPHONE_VOL, word);
    if (audio_dev.mono_mixer_stat) {
      printf("\t\t\tSpeaker Volume = %d\n", audio_dev.volume_status);
      if (audio_dev.volume_status >= SPEAKER_CLAMP_FROM) {
        printf("speaker Volume clamping...\n");
        WM9712_set_register(AC97_SPEAKER_VOL, SPEAKER_CLAMP_ROUTING);
      } else {
        WM9712_set_register(AC97_SPEAKER_VOL, word);
      }
    }
  } else {
    write_idle_mixing();
    if (audio_dev.hp_mixer_stat) update_register(AC97_HEADPHONE_VOL, 0xFFFF, AC97_MUTE);
    if (audio_dev.mono_mixer_stat) update_register(AC97_SPEAKER_VOL, 0xFFFF, AC97_MUTE);
  }
  if (audio_dev.line_mixer_stat) WM9712_set_register(AC97_LINE_OUT_VOL, AC97_LINE_OUT_FULL);
  audio_mixer_close();
  return 0;
}

// Chooses what feeds the mixers and the ADC, and powers the DACs or the
// ADC path accordingly. The microphone path is set here without its boost
// bit; the routing refresh sets it with the boost.
s32 audio_device_input_select(AUDIO_INPUT input_param) {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  audio_dev.input_status = static_cast<u8>(input_param);
  printf("input state : %d \n\n", static_cast<int>(input_param));
  u16 pd1 = WM9712_get_register(WM9712_POWERDOWN_1);
  u16 pd = WM9712_get_register(AC97_POWERDOWN);

  switch (input_param) {
    case INPUT_DISABLE:
      write_idle_mixing();
      pd |= AC97_PD_PR0_ADC;
      pd1 |= PD1_INPUT_NONE_SET;
      break;
    case INPUT_DAC:
      WM9712_set_register(AC97_DAC_VOL, DAC_VOL_ROUTED);
      WM9712_set_register(AC97_MIC_VOL, MIC_VOL_IDLE);
      WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_IDLE);
      WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_IDLE);
      WM9712_set_register(AC97_RECORD_SELECT, RECORD_SELECT_DAC);
      WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_DAC);
      pd &= static_cast<u16>(~AC97_PD_PR1_DAC);
      pd1 |= PD1_INPUT_DAC_SET;
      break;
    case INPUT_MIC:
      WM9712_set_register(AC97_DAC_VOL, DAC_VOL_IDLE);
      WM9712_set_register(AC97_MIC_VOL, MIC_VOL_SELECTED);
      WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_SIDETONE);
      WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_IDLE);
      WM9712_set_register(AC97_RECORD_SELECT, RECORD_SELECT_MIC);
      WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_MIC);
      pd &= static_cast<u16>(~AC97_PD_PR0_ADC);
      pd1 = static_cast<u16>((pd1 | PD1_INPUT_MIC_SET) & PD1_INPUT_MIC_KEEP);
      break;
    case INPUT_LINE_FM:
      WM9712_set_register(AC97_DAC_VOL, DAC_VOL_IDLE);
      WM9712_set_register(AC97_MIC_VOL, MIC_VOL_IDLE);
      WM9712_set_register(AC97_MIC_ROUTING, MIC_ROUTING_IDLE);
      WM9712_set_register(AC97_LINE_IN_VOL, LINE_IN_VOL_ROUTED);
      WM9712_set_register(AC97_RECORD_SELECT, RECORD_SELECT_LINE);
      WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_LINE);
      pd &= static_cast<u16>(~AC97_PD_PR0_ADC);
      pd1 = static_cast<u16>((pd1 & PD1_INPUT_LINE_KEEP) | PD1_INPUT_LINE_SET);
      break;
    default:
      break;
  }
  WM9712_set_register(AC97_POWERDOWN, pd);
  WM9712_set_register(WM9712_POWERDOWN_1, pd1);
  audio_mixer_close();
  return 0;
}

// 3D depth goes with the upper cut-off; the tone block takes bass and
// treble with the bass cut-off while 3D is on, and returns to flat after.
s32 audio_device_3D_ctrl(u8 OnOff, u8 ucdepth, u8 ucbass, u8 uctreble) {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  audio_dev.effect_3D_status = OnOff;
  const u16 gp = WM9712_get_register(AC97_GENERAL_PURPOSE);
  if (OnOff) {
    printf("3D ON...........\n");
    WM9712_set_register(AC97_3D_CONTROL, AC97_3D_UPPER_CUTOFF | (ucdepth & AC97_3D_DEPTH_MASK));
    WM9712_set_register(AC97_MASTER_TONE, static_cast<u16>(TONE_BASS_CUTOFF | ((ucbass & TONE_NIBBLE) << 8) |
                                                           (uctreble & TONE_NIBBLE)));
    WM9712_set_register(AC97_GENERAL_PURPOSE, gp | AC97_GP_3D_ENABLE);
  } else {
    printf("3D OFF...........\n");
    WM9712_set_register(AC97_3D_CONTROL, 0);
    WM9712_set_register(AC97_MASTER_TONE, TONE_FLAT);
    WM9712_set_register(AC97_GENERAL_PURPOSE, gp & static_cast<u16>(~AC97_GP_3D_ENABLE));
  }
  audio_mixer_close();
  return 0;
}

// An unknown sensitivity returns with the mixer still open.
s32 audio_device_MIC_sensitivity(MIC_SENSE sense) {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  switch (sense) {
    case MIC_SENSITIVITY_HIGH:
      WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_MIC_HIGH);
      break;
    case MIC_SENSITIVITY_LOW:
      WM9712_set_register(AC97_RECORD_GAIN, RECORD_GAIN_MIC_LOW);
      break;
    default:
      printf("%s -> Not valid parameter..\n", __func__);
      return -1;
  }
  audio_mixer_close();
  return 0;
}

// ---- State queries ----

u8 audio_device_get_volume() { return audio_dev.volume_status; }
u8 audio_device_get_mute_state() { return audio_dev.mute_status; }
u8 audio_device_get_input_state() { return audio_dev.input_status; }
u8 audio_device_get_beep_state() { return audio_dev.beep_status; }

u8 audio_device_get_output_state(AUDIO_OUTPUT output_param) {
  switch (output_param) {
    case OUTPUT_EARPHONE: return audio_dev.hp_mixer_stat;
    case OUTPUT_SPEAKER: return audio_dev.mono_mixer_stat;
    case OUTPUT_LINEOUT: return audio_dev.line_mixer_stat;
    case OUTPUT_SPDIF: return audio_dev.spdif_stat;
    default: return 0;
  }
}

s32 audio_device_beep_OnOff(u8 OnOff) {
  audio_dev.beep_status = OnOff;
  return 0;
}

// ---- Diagnosis and power ----

s32 audio_device_test() {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  WM9712_set_register(AC97_PC_BEEP_VOL, PC_BEEP_TEST);
  audio_mixer_close();
  return 0;
}

namespace {
void print_power_registers() {
  printf("\nwm9712 PWDN 26h : 0x%4x\n", WM9712_get_register(AC97_POWERDOWN));
  printf("wm9712 PWDN 24h : 0x%4x\n", WM9712_get_register(WM9712_POWERDOWN_1));
}
}  // namespace

void powerdown_audio_device(u8 pwdn_dev) {
  (void)pwdn_dev;
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return;
  }
  update_register(AC97_POWERDOWN, 0xFFFF, AC97_PD_PR0_ADC);
  WM9712_set_register(WM9712_POWERDOWN_1, PD1_SLEEP);
  print_power_registers();
  audio_mixer_close();
}

void powerup_audio_device() {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return;
  }
  WM9712_set_register(AC97_POWERDOWN, 0);
  WM9712_set_register(WM9712_POWERDOWN_1, 0);
  print_power_registers();
  audio_mixer_close();
}

// The mixer, tone, 3D and power registers; 1Eh is left out.
s32 WM9712_printf_register() {
  static const u16 dumped[] = {AC97_LINE_OUT_VOL, AC97_HEADPHONE_VOL, AC97_SPEAKER_VOL,   AC97_MASTER_TONE,
                               AC97_PC_BEEP_VOL,  AC97_PHONE_VOL,     AC97_MIC_VOL,       AC97_LINE_IN_VOL,
                               AC97_AUX_DAC_VOL,  AC97_MIC_ROUTING,   AC97_OUT3_MIXER,    AC97_DAC_VOL,
                               AC97_RECORD_SELECT, AC97_RECORD_GAIN,  AC97_GENERAL_PURPOSE, AC97_3D_CONTROL,
                               WM9712_POWERDOWN_1, AC97_POWERDOWN};
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  constexpr unsigned count = sizeof dumped / sizeof dumped[0];
  for (unsigned i = 0; i < count; ++i) {
    const u16 value = WM9712_get_register(dumped[i]);
    printf("%swm9712 %02xh : 0x%4x\n%s", i == 0 ? "\n\n" : "", dumped[i], value, i + 1 == count ? "\n" : "");
  }
  audio_mixer_close();
  return 0;
}

// Dumps the registers when either watched register has left its expected
// value: the earphone level 0x0303, or the DAC routed to the headphone and
// mono mixers at 0 dB. The dump opens the mixer itself.
s32 WM9712_check_register() {
  constexpr u16 HEADPHONE_EXPECTED = 0x0303;
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  if (WM9712_get_register(AC97_HEADPHONE_VOL) != HEADPHONE_EXPECTED) WM9712_printf_register();
  if (WM9712_get_register(AC97_DAC_VOL) != DAC_VOL_ROUTED) WM9712_printf_register();
  audio_mixer_close();
  return 0;
}

s32 WM9712_reset_test() {
  if (audio_mixer_open() < 0) {
    print_open_error(__func__);
    return -1;
  }
  s32 result = 0;
  if (ioctl(audio_dev.devfd, SNDCTL_AC97_CODEC_RESET, nullptr) < 0) {
    printf("%s : SNDCTL_AC97_SPEAKER_ENA error\n", __func__);
    result = -1;
  }
  audio_mixer_close();
  return result;
}
