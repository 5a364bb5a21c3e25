// "/dev/mixer": the Wolfson WM9712 AC97 codec behind the Au1200's AC97
// controller, as the board's sound driver exposes it. Besides the OSS mixer
// requests the driver has private ones that select one of the codec's 64
// 16-bit registers (index 0x00..0x7E, even) and read or write it, start a
// beep, switch the speaker amplifier and reset the codec.
//
// The register file belongs to the codec, not to a descriptor: it keeps its
// values from one open to the next for the life of the process, and the
// selected index is the driver's (one for all descriptors).
#include "sim/board/board_internal.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>

namespace board::detail {
namespace {

// ---- WM9712 register map (AC97 names; the WM9712's use in comments) ----
namespace reg {
constexpr u8 kReset = 0x00;             // reads the codec's capabilities; any write resets the codec
constexpr u8 kMasterVolume = 0x02;      // LOUT2/ROUT2 volume
constexpr u8 kHeadphoneVolume = 0x04;   // HPOUTL/HPOUTR volume, bit 15 mute
constexpr u8 kMonoVolume = 0x06;        // MONOOUT volume, bit 15 mute
constexpr u8 kMasterTone = 0x08;        // bass bits 8-11, treble bits 0-3
constexpr u8 kPcBeepVolume = 0x0A;
constexpr u8 kPhoneVolume = 0x0C;
constexpr u8 kMicVolume = 0x0E;
constexpr u8 kLineInVolume = 0x10;
constexpr u8 kAuxDacVolume = 0x12;
constexpr u8 kSidetoneVolume = 0x14;
constexpr u8 kOut3Volume = 0x16;
constexpr u8 kDacVolume = 0x18;
constexpr u8 kRecordSelect = 0x1A;
constexpr u8 kRecordGain = 0x1C;
constexpr u8 kGeneralPurpose = 0x20;    // bit 13 3D enable
constexpr u8 k3dControl = 0x22;
constexpr u8 kPowerdown1 = 0x24;        // WM9712 power-down control of the mixers and outputs
constexpr u8 kPowerdown2 = 0x26;        // AC97 power-down control / status
constexpr u8 kExtAudioId = 0x28;
constexpr u8 kExtAudioControl = 0x2A;
constexpr u8 kDacRate = 0x2C;
constexpr u8 kAuxDacRate = 0x2E;
constexpr u8 kAdcRate = 0x32;
constexpr u8 kSpdifControl = 0x3A;
constexpr u8 kGpioConfig = 0x4C;
constexpr u8 kGpioPolarity = 0x4E;
constexpr u8 kGpioSticky = 0x50;
constexpr u8 kGpioWakeup = 0x52;
constexpr u8 kGpioStatus = 0x54;
constexpr u8 kGpioPinSharing = 0x56;
constexpr u8 kAdditionalFunction = 0x58;
constexpr u8 kAdditionalFunction2 = 0x5C;
constexpr u8 kAlcControl = 0x60;
constexpr u8 kAlcNoiseGate = 0x62;
constexpr u8 kAuxDacInput = 0x64;
constexpr u8 kDigitiser1 = 0x76;
constexpr u8 kDigitiser2 = 0x78;
constexpr u8 kDigitiserReadBack = 0x7A;
constexpr u8 kVendorId1 = 0x7C;          // "WM"
constexpr u8 kVendorId2 = 0x7E;          // "L", revision 0x12
}  // namespace reg

struct Register {
  u8 index;
  u16 power_on;    // value after power-on or reset (WM9712 register map)
  u16 read_only;   // bits a write cannot change
};

// Every register of the codec, in index order.
constexpr Register kRegisters[] = {
    {reg::kReset, 0x6174, 0xFFFF},
    {reg::kMasterVolume, 0x8000, 0},
    {reg::kHeadphoneVolume, 0x8000, 0},
    {reg::kMonoVolume, 0x8000, 0},
    {reg::kMasterTone, 0x0F0F, 0},
    {reg::kPcBeepVolume, 0xAAA0, 0},
    {reg::kPhoneVolume, 0xC008, 0},
    {reg::kMicVolume, 0x6808, 0},
    {reg::kLineInVolume, 0xE808, 0},
    {reg::kAuxDacVolume, 0xAAA0, 0},
    {reg::kSidetoneVolume, 0xAD00, 0},
    {reg::kOut3Volume, 0x8000, 0},
    {reg::kDacVolume, 0xE808, 0},
    {reg::kRecordSelect, 0x3000, 0},
    {reg::kRecordGain, 0x8000, 0},
    {0x1E, 0x0000, 0},
    {reg::kGeneralPurpose, 0x0000, 0},
    {reg::k3dControl, 0x0000, 0},
    {reg::kPowerdown1, 0x0000, 0},
    {reg::kPowerdown2, 0x000F, 0x000F},  // bits 0-3: ADC, DAC, analogue, reference ready
    {reg::kExtAudioId, 0x0405, 0xFFFF},
    {reg::kExtAudioControl, 0x0410, 0},
    {reg::kDacRate, 0xBB80, 0},          // 48000 Hz
    {reg::kAuxDacRate, 0xBB80, 0},
    {0x30, 0x0000, 0},
    {reg::kAdcRate, 0xBB80, 0},
    {0x34, 0x0000, 0},
    {0x36, 0x0000, 0},
    {0x38, 0x0000, 0},
    {reg::kSpdifControl, 0x2000, 0},
    {0x3C, 0x0000, 0},
    {0x3E, 0x0000, 0},
    {0x40, 0x0000, 0},
    {0x42, 0x0000, 0},
    {0x44, 0x0000, 0},
    {0x46, 0x0000, 0},
    {0x48, 0x0000, 0},
    {0x4A, 0x0000, 0},
    {reg::kGpioConfig, 0xF83E, 0},
    {reg::kGpioPolarity, 0xFFFF, 0},
    {reg::kGpioSticky, 0x0000, 0},
    {reg::kGpioWakeup, 0x0000, 0},
    {reg::kGpioStatus, 0x0000, 0},
    {reg::kGpioPinSharing, 0xF83E, 0},
    {reg::kAdditionalFunction, 0x0008, 0},
    {0x5A, 0x0000, 0},
    {reg::kAdditionalFunction2, 0x0000, 0},
    {0x5E, 0x0000, 0},
    {reg::kAlcControl, 0xB032, 0},
    {reg::kAlcNoiseGate, 0x3E00, 0},
    {reg::kAuxDacInput, 0x0000, 0},
    {0x66, 0x0000, 0},
    {0x68, 0x0000, 0},
    {0x6A, 0x0000, 0},
    {0x6C, 0x0000, 0},
    {0x6E, 0x0000, 0},
    {0x70, 0x0000, 0},
    {0x72, 0x0000, 0},
    {0x74, 0x0000, 0},
    {reg::kDigitiser1, 0x0006, 0},
    {reg::kDigitiser2, 0x0001, 0},
    {reg::kDigitiserReadBack, 0x0000, 0xFFFF},
    {reg::kVendorId1, 0x574D, 0xFFFF},
    {reg::kVendorId2, 0x4C12, 0xFFFF},
};
constexpr std::size_t kRegisterCount = std::size(kRegisters);
static_assert(kRegisterCount == 64);
constexpr bool in_index_order() {
  for (std::size_t i = 0; i < kRegisterCount; ++i) {
    if (kRegisters[i].index != 2 * i) return false;
  }
  return true;
}
static_assert(in_index_order(), "one entry per even index, in order");

// ---- The driver's private requests (type 'f', a 16-bit argument) ----
constexpr u32 kGetAc97Reg = ioc(IOC_READ, 'f', 20, 2);     // SNDCTL_GET_AC97_REG
constexpr u32 kSetAc97Reg = ioc(IOC_WRITE, 'f', 21, 2);    // SNDCTL_SET_AC97_REG
constexpr u32 kSetAc97Index = ioc(IOC_WRITE, 'f', 22, 2);  // SNDCTL_SET_AC97_INDEX
constexpr u32 kBeepStart = ioc(IOC_WRITE, 'f', 23, 2);     // SNDCTL_AC97_BEEP_START, milliseconds
constexpr u32 kSpeakerEnable = ioc(IOC_WRITE, 'f', 24, 2); // SNDCTL_AC97_SPEAKER_ENA, 0 off
constexpr u32 kCodecReset = ioc(IOC_WRITE, 'f', 25, 2);    // argument unused (may be null)
static_assert(kGetAc97Reg == 0x40026614 && kSetAc97Reg == 0x80026615 &&
              kSetAc97Index == 0x80026616 && kBeepStart == 0x80026617 &&
              kSpeakerEnable == 0x80026618 && kCodecReset == 0x80026619);

struct Mixer {
  std::array<u16, kRegisterCount> regs;
  u8 index;       // selected register
  bool speaker;   // speaker amplifier on
};

constexpr Mixer power_on_state() {
  Mixer m{};
  for (std::size_t i = 0; i < kRegisterCount; ++i) m.regs[i] = kRegisters[i].power_on;
  m.index = 0;
  m.speaker = false;
  return m;
}

Mixer g_mixer = power_on_state();

// Power-down/status: the ready bits follow the power-down bits PR0 (ADC),
// PR1 (DAC), PR2/PR3 (analogue mixer; PR3 also the reference).
u16 powerdown_with_status(u16 stored) {
  u16 ready = 0;
  if (!(stored & 0x0100)) ready |= 0x0001;
  if (!(stored & 0x0200)) ready |= 0x0002;
  if (!(stored & 0x0C00)) ready |= 0x0004;
  if (!(stored & 0x0800)) ready |= 0x0008;
  return static_cast<u16>((stored & 0xFFF0) | ready);
}

u16 read_register(u8 index) {
  const u16 stored = g_mixer.regs[index / 2];
  return index == reg::kPowerdown2 ? powerdown_with_status(stored) : stored;
}

void reset_registers() {
  for (std::size_t i = 0; i < kRegisterCount; ++i) g_mixer.regs[i] = kRegisters[i].power_on;
}

void write_register(u8 index, u16 value) {
  if (index == reg::kReset) {
    reset_registers();
    return;
  }
  const u16 keep = kRegisters[index / 2].read_only;
  u16 &r = g_mixer.regs[index / 2];
  r = static_cast<u16>((r & keep) | (value & ~keep));
}

u16 load16(const void *arg) {
  u16 v;
  std::memcpy(&v, arg, sizeof v);
  return v;
}

}  // namespace

int mixer_ioctl(u32 request, void *arg) {
  if (request == kCodecReset) {
    reset_registers();
    g_mixer.index = 0;
    log_event("mixer reset");
    return 0;
  }
  if (request != kGetAc97Reg && request != kSetAc97Reg && request != kSetAc97Index &&
      request != kBeepStart && request != kSpeakerEnable) {
    return reject(Device::mixer, request, "unsupported", EINVAL);
  }
  if (arg == nullptr) return reject(Device::mixer, request, "null", EFAULT);
  switch (request) {
    case kSetAc97Index: {
      const u16 index = load16(arg);
      if (index > 0x7E || (index & 1) != 0) return reject(Device::mixer, request, "invalid", EINVAL);
      g_mixer.index = static_cast<u8>(index);
      return 0;
    }
    case kSetAc97Reg: {
      const u16 value = load16(arg);
      log_event("mixer write 0x%02x 0x%04x", g_mixer.index, value);
      write_register(g_mixer.index, value);
      return 0;
    }
    case kGetAc97Reg: {
      const u16 value = read_register(g_mixer.index);
      std::memcpy(arg, &value, sizeof value);
      log_event("mixer read 0x%02x 0x%04x", g_mixer.index, value);
      return 0;
    }
    case kBeepStart:
      log_event("mixer beep %u", static_cast<unsigned>(load16(arg)));
      return 0;
    case kSpeakerEnable:
      g_mixer.speaker = load16(arg) != 0;
      log_event("mixer speaker %s", g_mixer.speaker ? "on" : "off");
      return 0;
  }
  return -EINVAL;
}

void mixer_power_on() { g_mixer = power_on_state(); }

u16 mixer_peek(u8 index) {
  if (index > 0x7E || (index & 1) != 0) return 0xFFFF;
  return read_register(index);
}

bool mixer_speaker() { return g_mixer.speaker; }

}  // namespace board::detail
