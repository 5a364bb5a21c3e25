// WM9712 3D and tone, microphone sensitivity, S/PDIF, power, register
// dumps, beep and the missing-mixer failures, on the virtual board.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "hw/audio_api.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

class CodecControl : public ::testing::Test {
 protected:
  void SetUp() override {
    board_fresh();
    quietly([] { audio_api_init(); });
  }
};

// One-shot operations: the register traffic, the text and the result, with
// the read-modify-write registers seeded all-clear and all-set.
TEST_F(CodecControl, SingleOperations) {
  struct Case {
    const char *name;
    std::function<s32()> op;
    Ops expected;
    std::string out;
    s32 result;
  };
  const std::string bad_mic = "audio_device_MIC_sensitivity -> Not valid parameter..\n";
  const Case cases[] = {
      // Only the low nibble of depth, bass and treble reaches the codec.
      {"3D on", [] { return audio_device_3D_ctrl(1, 0xFF, 0x3E, 0x21); },
       {rd(0x20), wr(0x22, 0x002F), wr(0x08, 0x1E01), wr_from(0x20, 0xFFFF, 0x2000)}, "3D ON...........\n", 0},
      {"3D off", [] { return audio_device_3D_ctrl(0, 0x0A, 0x07, 0x0C); },
       {rd(0x20), wr(0x22, 0x0000), wr(0x08, 0x0F0F), wr_from(0x20, 0xDFFF, 0)}, "3D OFF...........\n", 0},
      {"microphone high", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, {wr(0x1C, 0x0B0B)}, "", 0},
      {"microphone low", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_LOW); }, {wr(0x1C, 0x0202)}, "", 0},
      {"microphone 2", [] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(2)); }, {}, bad_mic, -1},
      {"microphone -1", [] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(-1)); }, {}, bad_mic, -1},
      {"S/PDIF enable", SPDIF_ENABLE,
       Ops{wr(0x3A, 0x2000)} + rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0004)} + rmw(0x5C, 0xFFEF, 0) + rmw(0x4C, 0xFFDF, 0),
       "", 0},
      {"S/PDIF disable", SPDIF_DISABLE,
       rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0410)} + rmw(0x5C, 0xFFFF, 0x0010) + rmw(0x4C, 0xFFFF, 0x0020), "", 0},
      {"register test", audio_device_test, {wr(0x0A, 0xAAA0)}, "", 0},
  };
  for (const Case &c : cases) {
    for (u16 pattern : {0x0000, 0xFFFF}) {
      SCOPED_TRACE(format("%s, seeded 0x%04x", c.name, pattern));
      for (u16 reg : {0x20, 0x4C, 0x56, 0x5C}) seed(reg, pattern);
      const Outcome r = run(c.op);
      EXPECT_REGISTERS(r, c.expected);
      EXPECT_EQ(r.out, c.out);
      EXPECT_EQ(r.result, c.result);
    }
  }
  // The S/PDIF routines keep no state of their own.
  EXPECT_EQ(audio_device_get_output_state(OUTPUT_SPDIF), 0);
}

// The two power registers are read back after the writes and printed.
TEST_F(CodecControl, PowerDownAndUp) {
  seed(0x26, 0x8A0F);
  const Outcome down = run([] { return powerdown_audio_device(3), 0; });
  EXPECT_REGISTERS(down, rmw(0x26, 0xFFFF, 0x0100) + Ops{wr(0x24, 0x1CCF), rd(0x26), rd(0x24)});
  const auto lines = register_lines(down.log);
  EXPECT_EQ(down.out, format("\nwm9712 PWDN 26h : 0x%4x\nwm9712 PWDN 24h : 0x%4x\n", read_value(lines, 0x26, 1),
                             read_value(lines, 0x24)));
  const Outcome up = run([] { return powerup_audio_device(), 0; });
  EXPECT_REGISTERS(up, (Ops{wr(0x26, 0x0000), wr(0x24, 0x0000), rd(0x26), rd(0x24)}));
}

// The dump's register list and labels, in order.
const std::pair<u16, const char *> DUMPED[] = {
    {0x02, "02h"}, {0x04, "04h"}, {0x06, "06h"}, {0x08, "08h"}, {0x0A, "0ah"}, {0x0C, "0ch"},
    {0x0E, "0eh"}, {0x10, "10h"}, {0x12, "12h"}, {0x14, "14h"}, {0x16, "16h"}, {0x18, "18h"},
    {0x1A, "1ah"}, {0x1C, "1ch"}, {0x20, "20h"}, {0x22, "22h"}, {0x24, "24h"}, {0x26, "26h"},
};

Ops dump_reads() {
  Ops ops;
  for (auto [reg, label] : DUMPED) ops.push_back(rd(reg));
  return ops;
}

std::string dump_text(const std::vector<std::string> &lines) {
  std::string s = "\n\n";
  for (auto [reg, label] : DUMPED) s += format("wm9712 %s : 0x%4x\n", label, read_value(lines, reg));
  return s + "\n";
}

TEST_F(CodecControl, RegisterDump) {
  // Values with every digit count, so the space padding of "%4x" shows.
  const u16 values[] = {0x0000, 0x0001, 0x0012, 0x0123, 0x1234, 0xABCD};
  unsigned i = 0;
  for (auto [reg, label] : DUMPED) seed(reg, values[i++ % 6]);
  const Outcome r = run(WM9712_printf_register);
  EXPECT_REGISTERS(r, dump_reads());
  EXPECT_EQ(r.out, dump_text(register_lines(r.log)));
  EXPECT_EQ(r.out.rfind("\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x   1\nwm9712 06h : 0x  12\nwm9712 08h : 0x 123\n"
                        "wm9712 0ah : 0x1234\nwm9712 0ch : 0xabcd\n", 0),
            0u)
      << r.out;
}

TEST_F(CodecControl, CheckRegisterDumpsOnlyOnADifference) {
  seed(0x04, 0x0303);
  seed(0x18, 0x4808);
  const Outcome quiet = run(WM9712_check_register);
  EXPECT_REGISTERS(quiet, (Ops{rd(0x04), rd(0x18)}));
  EXPECT_EQ(quiet.out, "");

  seed(0x18, 0x4809);
  const Outcome dac = run(WM9712_check_register);
  EXPECT_REGISTERS(dac, Ops{rd(0x04), rd(0x18)} + dump_reads());
  const auto lines = register_lines(dac.log);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(dac.out, dump_text({lines.begin() + 2, lines.end()}));

  // After an earphone difference the dump takes over the shared descriptor
  // and closes it; the check then reads through the closed descriptor,
  // which shows as a difference, so a second dump follows.
  seed(0x04, 0x0304);
  seed(0x18, 0x4808);
  const Outcome hp = run(WM9712_check_register);
  EXPECT_REGISTERS(hp, Ops{rd(0x04)} + dump_reads() + dump_reads());
  const auto hp_lines = register_lines(hp.log);
  ASSERT_EQ(hp_lines.size(), 37u);
  EXPECT_EQ(hp.out, dump_text({hp_lines.begin() + 1, hp_lines.begin() + 19}) +
                        "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n" +
                        dump_text({hp_lines.begin() + 19, hp_lines.end()}));
  EXPECT_EQ(hp.result, 0);
}

TEST_F(CodecControl, BeepNeedsPermission) {
  const Outcome refused = run([] { return beep_start(100); });
  EXPECT_EQ(refused.result, -1);
  EXPECT_TRUE(refused.log.empty()) << joined(refused.log);
  ASSERT_EQ(audio_device_beep_OnOff(1), 0);
  EXPECT_EQ(audio_device_get_beep_state(), 1);
  const Outcome allowed = run([] { return beep_start(65535); });
  EXPECT_EQ(allowed.result, 0);
  EXPECT_EQ(allowed.log, (std::vector<std::string>{"mixer open", "mixer beep 65535", "mixer close"}));
  ASSERT_EQ(audio_device_beep_OnOff(0), 0);
  EXPECT_EQ(audio_device_get_beep_state(), 0);
  EXPECT_TRUE(run([] { return beep_start(100); }).log.empty());
}

// Every operation that opens the mixer names itself when it cannot.
TEST_F(CodecControl, MissingMixer) {
  auto v = [](void (*f)()) { return [f] { return f(), -1; }; };
  const std::pair<const char *, std::function<s32()>> cases[] = {
      {"beep_start", [] { return beep_start(10); }},
      {"SPDIF_ENABLE", SPDIF_ENABLE},
      {"SPDIF_DISABLE", SPDIF_DISABLE},
      {"audio_device_set_volume", [] { return audio_device_set_volume(20); }},
      {"audio_device_mute", [] { return audio_device_mute(1); }},
      {"audio_device_output_ctrl", [] { return audio_device_output_ctrl(OUTPUT_EARPHONE, 1); }},
      {"audio_device_input_select", [] { return audio_device_input_select(INPUT_DAC); }},
      {"audio_device_3D_ctrl", [] { return audio_device_3D_ctrl(1, 2, 3, 4); }},
      {"audio_device_MIC_sensitivity", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }},
      {"audio_device_test", audio_device_test},
      {"powerdown_audio_device", [] { return powerdown_audio_device(0), -1; }},
      {"powerup_audio_device", v(powerup_audio_device)},
      {"WM9712_printf_register", WM9712_printf_register},
      {"WM9712_check_register", WM9712_check_register},
      {"WM9712_reset_test", WM9712_reset_test},
      {"audio_api_init", audio_api_init},  // last: it forgets the beep permission
  };
  quietly([] {
    audio_device_output_ctrl(OUTPUT_EARPHONE, 1);
    audio_device_set_volume(12);
    audio_device_beep_OnOff(1);
  });
  mixer_absent(true);
  for (const auto &[name, op] : cases) {
    SCOPED_TRACE(name);
    const Outcome r = run(op);
    EXPECT_EQ(r.out, format("%s ->Error: cannot open Mixer device.\n", name));
    EXPECT_EQ(r.result, -1);
    EXPECT_TRUE(register_lines(r.log).empty()) << joined(r.log);
  }
  mixer_absent(false);
}

}  // namespace
