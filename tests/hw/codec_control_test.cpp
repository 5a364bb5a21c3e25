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

TEST_F(CodecControl, ThreeDAndTone) {
  struct Case {
    u8 on, depth, bass, treble;
    Ops expected;
    std::string out;
  };
  // Only the low nibble of depth, bass and treble reaches the codec.
  const Case cases[] = {
      {1, 0x0A, 0x07, 0x0C, {rd(0x20), wr(0x22, 0x002A), wr(0x08, 0x170C), wr_from(0x20, 0xFFFF, 0x2000)},
       "3D ON...........\n"},
      {1, 0xFF, 0x3E, 0x21, {rd(0x20), wr(0x22, 0x002F), wr(0x08, 0x1E01), wr_from(0x20, 0xFFFF, 0x2000)},
       "3D ON...........\n"},
      {1, 0, 0, 0, {rd(0x20), wr(0x22, 0x0020), wr(0x08, 0x1000), wr_from(0x20, 0xFFFF, 0x2000)}, "3D ON...........\n"},
      {0, 0x0A, 0x07, 0x0C, {rd(0x20), wr(0x22, 0x0000), wr(0x08, 0x0F0F), wr_from(0x20, 0xDFFF, 0)},
       "3D OFF...........\n"},
  };
  for (const Case &c : cases) {
    for (u16 pattern : {0x0000, 0xFFFF}) {
      SCOPED_TRACE(format("on %d depth %d bass %d treble %d, 0x20 = 0x%04x", c.on, c.depth, c.bass, c.treble, pattern));
      seed(0x20, pattern);
      const Outcome r = run([&] { return audio_device_3D_ctrl(c.on, c.depth, c.bass, c.treble); });
      EXPECT_REGISTERS(r, c.expected);
      EXPECT_EQ(r.out, c.out);
      EXPECT_EQ(r.result, 0);
    }
  }
}

TEST_F(CodecControl, MicrophoneSensitivity) {
  struct Case {
    int sense;
    Ops expected;
    std::string out;
    s32 result;
  };
  const Case cases[] = {
      {MIC_SENSITIVITY_HIGH, {wr(0x1C, 0x0B0B)}, "", 0},
      {MIC_SENSITIVITY_LOW, {wr(0x1C, 0x0202)}, "", 0},
      {2, {}, "audio_device_MIC_sensitivity -> Not valid parameter..\n", -1},
      {-1, {}, "audio_device_MIC_sensitivity -> Not valid parameter..\n", -1},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(format("sense %d", c.sense));
    const Outcome r = run([&] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(c.sense)); });
    EXPECT_REGISTERS(r, c.expected);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.result, c.result);
  }
}

TEST_F(CodecControl, SpdifEnableAndDisable) {
  const Ops enable = Ops{wr(0x3A, 0x2000)} + rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0004)} + rmw(0x5C, 0xFFEF, 0) +
                     rmw(0x4C, 0xFFDF, 0);
  const Ops disable = rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0410)} + rmw(0x5C, 0xFFFF, 0x0010) + rmw(0x4C, 0xFFFF, 0x0020);
  for (u16 pattern : {0x0000, 0xFFFF}) {
    SCOPED_TRACE(format("seeded 0x%04x", pattern));
    for (u16 reg : {0x4C, 0x56, 0x5C}) seed(reg, pattern);
    const Outcome on = run(SPDIF_ENABLE);
    EXPECT_REGISTERS(on, enable);
    EXPECT_EQ(on.out, "");
    EXPECT_EQ(on.result, 0);
    for (u16 reg : {0x4C, 0x56, 0x5C}) seed(reg, pattern);
    const Outcome off = run(SPDIF_DISABLE);
    EXPECT_REGISTERS(off, disable);
    EXPECT_EQ(off.out, "");
    EXPECT_EQ(off.result, 0);
  }
  // The routines keep no state of their own.
  EXPECT_EQ(audio_device_get_output_state(OUTPUT_SPDIF), 0);
}

TEST_F(CodecControl, PowerDownAndUp) {
  struct Case {
    const char *name;
    std::function<void()> op;
    Ops writes;
    unsigned reads_of_26_before;  // reads of 0x26 among the writes
  };
  const Case cases[] = {
      {"down", [] { powerdown_audio_device(3); }, rmw(0x26, 0xFFFF, 0x0100) + Ops{wr(0x24, 0x1CCF)}, 1},
      {"up", [] { powerup_audio_device(); }, {wr(0x26, 0x0000), wr(0x24, 0x0000)}, 0},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    seed(0x26, 0x8A0F);
    const Outcome r = run_void(c.op);
    // The two registers are read back after the writes and printed.
    EXPECT_REGISTERS(r, c.writes + Ops{rd(0x26), rd(0x24)});
    const auto lines = register_lines(r.log);
    EXPECT_EQ(r.out, format("\nwm9712 PWDN 26h : 0x%4x\nwm9712 PWDN 24h : 0x%4x\n",
                            read_value(lines, 0x26, c.reads_of_26_before), read_value(lines, 0x24)));
  }
}

TEST_F(CodecControl, RegisterTestWritesTheBeepRegister) {
  const Outcome r = run(audio_device_test);
  EXPECT_REGISTERS(r, (Ops{wr(0x0A, 0xAAA0)}));
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.result, 0);
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

// The dump text for the values the register lines of one dump show.
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
  const auto lines = register_lines(r.log);
  EXPECT_EQ(r.out, dump_text(lines));
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.out.rfind("\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x   1\nwm9712 06h : 0x  12\nwm9712 08h : 0x 123\n"
                       "wm9712 0ah : 0x1234\nwm9712 0ch : 0xabcd\n", 0),
            0u)
      << r.out;
  EXPECT_EQ(r.out.find("1eh"), std::string::npos);
}

TEST_F(CodecControl, CheckRegisterDumpsOnlyOnADifference) {
  seed(0x04, 0x0303);
  seed(0x18, 0x4808);
  const Outcome quiet = run(WM9712_check_register);
  EXPECT_REGISTERS(quiet, (Ops{rd(0x04), rd(0x18)}));
  EXPECT_EQ(quiet.out, "");
  EXPECT_EQ(quiet.result, 0);

  seed(0x18, 0x4809);
  const Outcome dac = run(WM9712_check_register);
  EXPECT_REGISTERS(dac, Ops{rd(0x04), rd(0x18)} + dump_reads());
  const auto lines = register_lines(dac.log);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(dac.out, dump_text({lines.begin() + 2, lines.end()}));
}

// The dump opens the mixer itself and so takes over the shared descriptor;
// closing it leaves the check reading through a closed descriptor, which
// fails and shows as a difference, so a second dump follows.
TEST_F(CodecControl, CheckRegisterAfterAnEarphoneDifference) {
  seed(0x04, 0x0304);
  seed(0x18, 0x4808);
  const Outcome r = run(WM9712_check_register);
  EXPECT_REGISTERS(r, Ops{rd(0x04)} + dump_reads() + dump_reads());
  const auto lines = register_lines(r.log);
  ASSERT_EQ(lines.size(), 37u);
  EXPECT_EQ(r.out, dump_text({lines.begin() + 1, lines.begin() + 19}) +
                       "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n" +
                       dump_text({lines.begin() + 19, lines.end()}));
  EXPECT_EQ(r.result, 0);
}

TEST_F(CodecControl, BeepNeedsPermission) {
  const Outcome refused = run([] { return beep_start(100); });
  EXPECT_EQ(refused.result, -1);
  EXPECT_EQ(refused.out, "");
  EXPECT_TRUE(refused.log.empty()) << joined(refused.log);

  ASSERT_EQ(audio_device_beep_OnOff(1), 0);
  EXPECT_EQ(audio_device_get_beep_state(), 1);
  const Outcome allowed = run([] { return beep_start(250); });
  EXPECT_EQ(allowed.result, 0);
  EXPECT_EQ(allowed.out, "");
  EXPECT_TRUE(register_lines(allowed.log).empty());
  EXPECT_FALSE(allowed.log.empty());

  ASSERT_EQ(audio_device_beep_OnOff(0), 0);
  EXPECT_EQ(audio_device_get_beep_state(), 0);
  EXPECT_TRUE(run([] { return beep_start(100); }).log.empty());
}

// Every operation that opens the mixer names itself when it cannot.
TEST_F(CodecControl, MissingMixer) {
  struct Case {
    const char *name;
    std::function<s32()> op;
    bool returns_value;
  };
  auto v = [](std::function<void()> f) {
    return [f] {
      f();
      return -1;
    };
  };
  const Case cases[] = {
      {"audio_api_init", audio_api_init, true},
      {"beep_start", [] { return beep_start(10); }, true},
      {"SPDIF_ENABLE", SPDIF_ENABLE, true},
      {"SPDIF_DISABLE", SPDIF_DISABLE, true},
      {"audio_device_set_volume", [] { return audio_device_set_volume(20); }, true},
      {"audio_device_mute", [] { return audio_device_mute(1); }, true},
      {"audio_device_output_ctrl", [] { return audio_device_output_ctrl(OUTPUT_EARPHONE, 1); }, true},
      {"audio_device_input_select", [] { return audio_device_input_select(INPUT_DAC); }, true},
      {"audio_device_3D_ctrl", [] { return audio_device_3D_ctrl(1, 2, 3, 4); }, true},
      {"audio_device_MIC_sensitivity", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, true},
      {"audio_device_test", audio_device_test, true},
      {"powerdown_audio_device", v([] { powerdown_audio_device(0); }), false},
      {"powerup_audio_device", v(powerup_audio_device), false},
      {"WM9712_printf_register", WM9712_printf_register, true},
      {"WM9712_check_register", WM9712_check_register, true},
      {"WM9712_reset_test", WM9712_reset_test, true},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    board_fresh();
    quietly([] {
      audio_api_init();
      audio_device_input_select(INPUT_DAC);
      audio_device_output_ctrl(OUTPUT_EARPHONE, 1);
      audio_device_set_volume(12);
      audio_device_beep_OnOff(1);
    });
    mixer_absent(true);
    const Outcome r = run(c.op);
    EXPECT_EQ(r.out, format("%s ->Error: cannot open Mixer device.\n", c.name));
    if (c.returns_value) {
      EXPECT_EQ(r.result, -1);
    }
    EXPECT_TRUE(register_lines(r.log).empty()) << joined(r.log);
    mixer_absent(false);
  }
}

}  // namespace
