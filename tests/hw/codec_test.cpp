// WM9712 codec control on the virtual board: the register traffic of each
// operation, access by access, with what it prints and returns; its use of
// the mixer device itself (when it is opened and closed, the speaker, beep
// and reset requests), and what an absent or refusing mixer makes each
// operation print and leave behind.
#include <gtest/gtest.h>

#include "hw/audio_api.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

// Pieces of expected traffic (see expected_register_text).
const std::string R = "r26 r24 ";  // the power-down registers, read first
const std::string IDLE_MIX = "w18=e808 w0e=6080 w14=ad00 w10=e808 ";
const std::string DAC_ROUTED = "w18=4808 ", MIC_REFRESH = "w0e=2080 w14=5100 ";
const std::string HP_ON = "w26&bfff w24&fcff ", SPK_ON = "r4c w4c&fffd w26 w24&ffbf ";
const std::string OUTPUTS_DOWN = "w26|4000 w24|0040 ";
const std::string SPDIF_ON = "w3a=2000 r56 w56&ffdf w2a=0004 r5c w5c&ffef r4c w4c&ffdf ";
// Disabling S/PDIF clears the pin-sharing bit too.
const std::string SPDIF_OFF = "r56 w56&ffdf w2a=0410 r5c w5c|0010 r4c w4c|0020 ";
const std::string NO_OUTPUT = "Possible Output None..\n";
const std::string CLAMP = "speaker Volume clamping...\n";
std::string speaker_text(int v) { return format("\t\t\tSpeaker Volume = %d\n", v); }

struct Given {
  AUDIO_INPUT input = INPUT_DAC;
  std::vector<AUDIO_OUTPUT> outputs;
  u8 volume = 0;
};
struct Case {
  std::string name;
  Given given;
  std::function<s32()> op;
  std::string expected;
  std::string out;
  s32 result = 0;
  long opens = 1, closes = 1;  // the early returns leave the mixer open
};

// Each case from a fresh board brought into the given state, with the
// registers whose old value feeds a read-modify-write seeded all-clear and
// all-set, so that both the kept and the changed bits show.
void check(const std::vector<Case> &cases) {
  for (const Case &c : cases) {
    for (u16 pattern : {0x0000, 0xFFFF}) {
      SCOPED_TRACE(c.name + format(" (seeded 0x%04x)", pattern));
      board::reset();
      quietly([&] {
        audio_api_init();
        audio_device_input_select(c.given.input);
        for (AUDIO_OUTPUT o : c.given.outputs) audio_device_output_ctrl(o, 1);
        if (c.given.volume) audio_device_set_volume(c.given.volume);
      });
      for (u16 reg : {0x02, 0x04, 0x06, 0x20, 0x24, 0x26, 0x4C, 0x56, 0x5C}) seed(reg, pattern);
      const Outcome r = run(c.op);
      EXPECT_REGISTERS(r, c.expected);
      EXPECT_EQ(r.out, c.out);
      EXPECT_EQ(r.result, c.result);
      EXPECT_EQ(count(r.log, "mixer open"), c.opens);
      EXPECT_EQ(count(r.log, "mixer close"), c.closes);
    }
  }
}

Given with(std::vector<AUDIO_OUTPUT> outputs, u8 volume = 0, AUDIO_INPUT input = INPUT_DAC) {
  return {input, outputs, volume};
}
std::function<s32()> volume(u8 v) { return [v] { return audio_device_set_volume(v); }; }
std::function<s32()> output(AUDIO_OUTPUT o, u8 on) { return [o, on] { return audio_device_output_ctrl(o, on); }; }
std::function<s32()> mute(u8 on) { return [on] { return audio_device_mute(on); }; }
std::function<s32()> select_input(AUDIO_INPUT in) { return [in] { return audio_device_input_select(in); }; }

TEST(Codec, DefaultSetUpWritesEveryMixerRegisterOnce) {
  board::reset();
  const Outcome r = run(audio_api_init);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_REGISTERS(r, "w02=8000 w04=8000 w06=8000 w08=0f0f w0a=fff0 w0c=c000 w0e=6080 w10=e808 w12=8080 w14=ad00 "
                      "w16=8100 w18=e808 w1a=3000 w1c=8000 w20=0000 w22=0f0f");
}

TEST(Codec, InputSelection) {
  check({
      {"no input", {}, select_input(INPUT_DISABLE), "r24 r26 " + IDLE_MIX + "w26|0100 w24|0405",
       "input state : 0 \n\n"},
      {"DAC", {}, select_input(INPUT_DAC),
       "r24 r26 w18=4808 w0e=6080 w14=ad00 w10=e808 w1a=3000 w1c=8000 w26&fdff w24|1c05", "input state : 1 \n\n"},
      // The microphone writes 0x2000 to 0x0E here, 0x2080 when re-routed.
      {"microphone", {}, select_input(INPUT_MIC),
       "r24 r26 w18=e808 w0e=2000 w14=5100 w10=e808 w1a=4800 w1c=0f0f w26&feff w24&e3fe|0004", "input state : 2 \n\n"},
      {"line / FM", {}, select_input(INPUT_LINE_FM),
       "r24 r26 w18=e808 w0e=6080 w14=ad00 w10=4202 w1a=0404 w1c=0000 w26&feff w24&e7fb|0401", "input state : 3 \n\n"},
      {"unknown input", {}, select_input(static_cast<AUDIO_INPUT>(7)), "r24 r26 w26 w24", "input state : 7 \n\n"},
  });
}

TEST(Codec, Volume) {
  const Given hp = with({OUTPUT_EARPHONE}), spk = with({OUTPUT_SPEAKER});
  const std::string spk_ops = R + "w18=4808 w26 w24&ffbf w06=";
  check({
      // Volume 0 powers the outputs down whatever is enabled.
      {"earphone 0", hp, volume(0), R + OUTPUTS_DOWN, ""},
      // The DAC level takes over below step 10.
      {"earphone 5", hp, volume(5), R + "w18=4b0b " + HP_ON + "w04=2323", ""},
      {"speaker 35", spk, volume(35), spk_ops + "0404", speaker_text(35)},
      // Set-volume clamps the speaker to 0x0004 (routing uses 0x0404).
      {"speaker 36 clamps", spk, volume(36), spk_ops + "0004", speaker_text(36) + CLAMP},
      {"line 5", with({OUTPUT_LINEOUT}), volume(5), R + "w18=4b0b w02=0000", ""},
      {"all three 36", with({OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}), volume(36),
       R + DAC_ROUTED + HP_ON + "w04=0404 w26&bfff w24&fcbf w06=0004 w02=0000", speaker_text(36) + CLAMP},
      // Only the DAC has a level of its own for the quiet steps.
      {"microphone re-routed", with({OUTPUT_EARPHONE}, 0, INPUT_MIC), volume(5), R + MIC_REFRESH + HP_ON + "w04=2323",
       ""},
      {"line re-routed", with({OUTPUT_EARPHONE}, 0, INPUT_LINE_FM), volume(25),
       R + "w10=4202 w14=ad00 " + HP_ON + "w04=0d0d", ""},
      {"41 refused", with({OUTPUT_EARPHONE}, 20), volume(41), "", "Warning : Volume range -> 0 to 40\n", -1, 0, 0},
      {"no output", {}, volume(25), R, "audio_device_set_volume : " + NO_OUTPUT, 0, 1, 0},
      {"S/PDIF is no volume output", with({OUTPUT_SPDIF}), volume(25), R,
       "audio_device_set_volume : " + NO_OUTPUT, 0, 1, 0},
  });
}

TEST(Codec, Outputs) {
  const std::string line_on = R + "w26 w24&fc77 " + IDLE_MIX + "w02=0000";
  check({
      {"earphone on", with({}), output(OUTPUT_EARPHONE, 1), R + HP_ON + IDLE_MIX + "r04 w04|8000", ""},
      {"earphone off", with({OUTPUT_EARPHONE}), output(OUTPUT_EARPHONE, 0), R + "w26|4000 w24 " + IDLE_MIX, ""},
      {"speaker on", with({}), output(OUTPUT_SPEAKER, 1), R + SPK_ON + IDLE_MIX + "r06 w06|8000", "Speaker ON \n"},
      {"speaker off", with({OUTPUT_SPEAKER}), output(OUTPUT_SPEAKER, 0), R + "r4c w4c|0002 w26 w24|0040 " + IDLE_MIX,
       "Speaker OFF \n"},
      {"line on", with({}), output(OUTPUT_LINEOUT, 1), line_on, ""},
      {"line off is line on", with({}), output(OUTPUT_LINEOUT, 0), line_on, ""},
      {"line while S/PDIF is on", with({OUTPUT_SPDIF}), output(OUTPUT_LINEOUT, 1), R + "w26 w24|0388 " + IDLE_MIX, ""},
      // S/PDIF opens and closes a descriptor of its own inside the call.
      {"S/PDIF on", with({}), output(OUTPUT_SPDIF, 1), R + SPDIF_ON, "", 0, 2, 1},
      {"S/PDIF off", with({OUTPUT_SPDIF}), output(OUTPUT_SPDIF, 0), R + SPDIF_OFF, "", 0, 2, 1},
      {"all off", with({OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}), output(OUTPUT_DISABLE, 1),
       R + "w26 w24 " + IDLE_MIX, ""},
      // At a volume the output is re-routed and set to it.
      {"earphone on at 25", with({}, 25), output(OUTPUT_EARPHONE, 1), R + HP_ON + DAC_ROUTED + "w04=0d0d", ""},
      // Routing holds the speaker at 0x0404, not at set-volume's 0x0004.
      {"speaker on at 36", with({}, 36), output(OUTPUT_SPEAKER, 1), R + SPK_ON + DAC_ROUTED + "w06=0404",
       "Speaker ON \n" + speaker_text(36) + CLAMP},
      {"earphone on beside the speaker at 5", with({OUTPUT_SPEAKER}, 5), output(OUTPUT_EARPHONE, 1),
       R + HP_ON + "w18=4b0b w04=2323 w06=2323", speaker_text(5)},
      {"last output off at 25", with({OUTPUT_EARPHONE}, 25), output(OUTPUT_EARPHONE, 0), R + "w26|4000 w24",
       "audio_device_output_ctrl : " + NO_OUTPUT, 0, 1, 0},
  });
}

TEST(Codec, MuteAndUnmute) {
  const Given all = with({OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}, 25);
  check({
      {"mute", all, mute(1), R + OUTPUTS_DOWN, ""},
      // Un-mute keeps the attenuation the volume registers hold.
      {"un-mute", all, mute(0), R + DAC_ROUTED + HP_ON + "r04 w04&7fff w26&bfff w24&fcbf r06 w06&7fff w02=0000", ""},
      {"un-mute speaker, microphone", with({OUTPUT_SPEAKER}, 25, INPUT_MIC), mute(0),
       R + MIC_REFRESH + "w26 w24&ffbf r06 w06&7fff", ""},
      // Re-routing at volume 0 still uses the DAC level of step 0.
      {"un-mute line at 0", with({OUTPUT_LINEOUT}), mute(0), R + "w18=5010 w02=0000", ""},
      {"mute with only S/PDIF", with({OUTPUT_SPDIF}, 25), mute(1), "", "audio_device_mute : " + NO_OUTPUT, -1,
       0, 0},
  });
}

// Only the low nibble of 3D depth, bass and treble reaches the codec.
TEST(Codec, OneShotOperations) {
  check({
      {"3D on", {}, [] { return audio_device_3D_ctrl(1, 0xFF, 0x3E, 0x21); }, "r20 w22=002f w08=1e01 w20|2000",
       "3D ON...........\n"},
      {"3D off", {}, [] { return audio_device_3D_ctrl(0, 0x0A, 0x07, 0x0C); }, "r20 w22=0000 w08=0f0f w20&dfff",
       "3D OFF...........\n"},
      {"microphone high", {}, [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, "w1c=0b0b", ""},
      {"microphone low", {}, [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_LOW); }, "w1c=0202", ""},
      {"microphone 2", {}, [] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(2)); }, "",
       "audio_device_MIC_sensitivity -> Not valid parameter..\n", -1, 1, 0},
      {"register test", {}, audio_device_test, "w0a=aaa0", ""},
  });
}

// The getters report the requests, not the codec; a request refused
// before the mixer was opened records nothing.
TEST(Codec, StateFollowsTheRequests) {
  auto out = [](AUDIO_OUTPUT o, u8 on) { audio_device_output_ctrl(o, on); };
  const struct {
    const char *what;
    std::function<void()> request;
    std::vector<int> state;  // volume, mute, input, earphone, speaker, line, S/PDIF
  } steps[] = {
      {"earphone, speaker (7) on; line \"off\" turns it on",
       [&] { out(OUTPUT_EARPHONE, 1), out(OUTPUT_SPEAKER, 7), out(OUTPUT_LINEOUT, 0); }, {0, 0, 0, 1, 1, 1, 0}},
      {"S/PDIF on takes the line, line refused", [&] { out(OUTPUT_SPDIF, 1), out(OUTPUT_LINEOUT, 1); },
       {0, 0, 0, 1, 1, 0, 1}},
      {"microphone, volume 17, 41",
       [] { audio_device_input_select(INPUT_MIC), audio_device_set_volume(17), audio_device_set_volume(41); },
       {17, 0, 2, 1, 1, 0, 1}},
      {"mute 5", [] { audio_device_mute(5); }, {17, 5, 2, 1, 1, 0, 1}},
      {"no mixer", [&] {
         board::set_absent("mixer");
         audio_device_set_volume(30), audio_device_mute(0), audio_device_input_select(INPUT_LINE_FM);
         out(OUTPUT_SPEAKER, 0), board::set_absent("");
       }, {17, 5, 2, 1, 1, 0, 1}},
      {"all off leaves S/PDIF, mute refused, volume stored without output",
       [&] { out(OUTPUT_DISABLE, 1), audio_device_mute(0), audio_device_set_volume(33); }, {33, 5, 2, 0, 0, 0, 1}},
      {"S/PDIF off gives the line back; unknown input",
       [&] { out(OUTPUT_SPDIF, 0), audio_device_input_select(static_cast<AUDIO_INPUT>(9)); }, {33, 5, 9, 0, 0, 1, 0}},
      {"init forgets", [] { audio_api_init(); }, {0, 0, 0, 0, 0, 0, 0}},
  };
  board::reset();
  quietly([] { audio_api_init(); });
  for (const auto &s : steps) {
    SCOPED_TRACE(s.what);
    quietly(s.request);
    EXPECT_EQ(s.state, (std::vector<int>{audio_device_get_volume(), audio_device_get_mute_state(),
                                         audio_device_get_input_state(), audio_device_get_output_state(OUTPUT_EARPHONE),
                                         audio_device_get_output_state(OUTPUT_SPEAKER),
                                         audio_device_get_output_state(OUTPUT_LINEOUT),
                                         audio_device_get_output_state(OUTPUT_SPDIF)}));
    for (int none : {0, 255}) EXPECT_EQ(audio_device_get_output_state(static_cast<AUDIO_OUTPUT>(none)), 0);
  }
}

class CodecControl : public ::testing::Test {
 protected:
  void SetUp() override {
    board::reset();
    quietly([] { audio_api_init(); });
  }
};

// The two power registers are read back after the writes and printed; the
// ready bits of 0x26 follow its power-down bits.
TEST_F(CodecControl, PowerDownAndUp) {
  seed(0x26, 0x8A0F);
  const Outcome down = run([] { return powerdown_audio_device(3), 0; });
  EXPECT_EQ(joined(register_lines(down.log)),
            "mixer read 0x26 0x8a01\nmixer write 0x26 0x8b01\nmixer write 0x24 0x1ccf\nmixer read 0x26 0x8b00\n"
            "mixer read 0x24 0x1ccf\n");
  EXPECT_EQ(down.out, "\nwm9712 PWDN 26h : 0x8b00\nwm9712 PWDN 24h : 0x1ccf\n");
  const Outcome up = run([] { return powerup_audio_device(), 0; });
  EXPECT_REGISTERS(up, "w26=0000 w24=0000 r26 r24");
  EXPECT_EQ(up.out, "\nwm9712 PWDN 26h : 0x   f\nwm9712 PWDN 24h : 0x   0\n");
}

// The dumped registers, in order (0x1E left out).
const u16 DUMPED[] = {0x02, 0x04, 0x06, 0x08, 0x0A, 0x0C, 0x0E, 0x10, 0x12,
                      0x14, 0x16, 0x18, 0x1A, 0x1C, 0x20, 0x22, 0x24, 0x26};
std::string dump_reads() {
  std::string reads;
  for (u16 reg : DUMPED) reads += format(" r%02x", reg);
  return reads;
}
// The dump of the registers read in `lines`.
std::string dump_text(const Lines &lines) {
  std::string s = "\n\n";
  for (u16 reg : DUMPED) s += format("wm9712 %02xh : 0x%4x\n", reg, read_value(lines, reg));
  return s + "\n";
}

// The dump prints what it reads, "%4x" padded with spaces; the check dumps
// only when the earphone level or the DAC routing differ from what it expects.
TEST_F(CodecControl, RegisterDumps) {
  const u16 values[] = {0x0000, 0x0001, 0x0012, 0x0123, 0x1234, 0xABCD};
  for (unsigned i = 0; i < 6; ++i) seed(DUMPED[i], values[i]);
  const Outcome r = run(WM9712_printf_register);
  EXPECT_REGISTERS(r, dump_reads());
  EXPECT_EQ(r.out, dump_text(register_lines(r.log)));
  EXPECT_TRUE(r.out.starts_with("\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x   1\nwm9712 06h : 0x  12\n"
                                "wm9712 08h : 0x 123\nwm9712 0ah : 0x1234\nwm9712 0ch : 0xabcd\n"))
      << r.out;

  seed(0x04, 0x0303);
  seed(0x18, 0x4808);
  const Outcome quiet = run(WM9712_check_register);
  EXPECT_REGISTERS(quiet, "r04 r18");
  EXPECT_EQ(quiet.out, "");
  seed(0x18, 0x4809);
  const Outcome dac = run(WM9712_check_register);
  EXPECT_REGISTERS(dac, "r04 r18" + dump_reads());
  EXPECT_EQ(dac.out, dump_text(register_lines(dac.log)));
  // After an earphone difference the dump takes over the shared descriptor
  // and closes it; the check then reads through the closed descriptor,
  // which shows as a difference, so a second dump follows.
  seed(0x04, 0x0304);
  seed(0x18, 0x4808);
  const Outcome hp = run(WM9712_check_register);
  EXPECT_REGISTERS(hp, "r04" + dump_reads() + dump_reads());
  const Lines lines = register_lines(hp.log);
  ASSERT_EQ(lines.size(), 37u);
  EXPECT_EQ(hp.out, dump_text({lines.begin() + 1, lines.begin() + 19}) +
                        "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n" +
                        dump_text({lines.begin() + 19, lines.end()}));
  EXPECT_EQ(hp.result, 0);
}

// The requests beside the registers: the beep needs the permission, the
// codec reset takes no argument, and the speaker amplifier request goes out
// twice, around the GPIO that shuts the speaker down.
TEST_F(CodecControl, DeviceRequests) {
  const Outcome refused = run([] { return beep_start(100); });
  EXPECT_EQ(refused.result, -1);
  EXPECT_TRUE(refused.log.empty()) << joined(refused.log);
  ASSERT_EQ(audio_device_beep_OnOff(1), 0);
  EXPECT_EQ(audio_device_get_beep_state(), 1);
  const Outcome allowed = run([] { return beep_start(65535); });
  EXPECT_EQ(allowed.result, 0);
  EXPECT_EQ(allowed.log, (Lines{"mixer open", "mixer beep 65535", "mixer close"}));
  ASSERT_EQ(audio_device_beep_OnOff(0), 0);
  EXPECT_TRUE(run([] { return beep_start(100); }).log.empty());
  EXPECT_EQ(run(WM9712_reset_test).log, (Lines{"mixer open", "mixer reset", "mixer close"}));
  for (u8 on : {9, 0}) {
    const std::string request = on ? "mixer speaker on" : "mixer speaker off";
    const Outcome r = run([&] { return audio_device_output_ctrl(OUTPUT_SPEAKER, on); });
    EXPECT_EQ(lines_starting(r.log, {"mixer speaker", "mixer write 0x4c"}),
              (Lines{request, on ? "mixer write 0x4c 0xf83c" : "mixer write 0x4c 0xf83e", request}));
    EXPECT_EQ(board::speaker_enabled(), on != 0);
  }
}

// Every operation that opens the mixer names itself when it cannot.
TEST_F(CodecControl, MissingMixer) {
  const std::pair<const char *, std::function<s32()>> cases[] = {
      {"beep_start", [] { return beep_start(10); }}, {"SPDIF_ENABLE", SPDIF_ENABLE}, {"SPDIF_DISABLE", SPDIF_DISABLE},
      {"audio_device_set_volume", [] { return audio_device_set_volume(20); }},
      {"audio_device_mute", [] { return audio_device_mute(1); }},
      {"audio_device_output_ctrl", [] { return audio_device_output_ctrl(OUTPUT_EARPHONE, 1); }},
      {"audio_device_input_select", [] { return audio_device_input_select(INPUT_DAC); }},
      {"audio_device_3D_ctrl", [] { return audio_device_3D_ctrl(1, 2, 3, 4); }},
      {"audio_device_MIC_sensitivity", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }},
      {"audio_device_test", audio_device_test},
      {"powerdown_audio_device", [] { return powerdown_audio_device(0), -1; }},
      {"powerup_audio_device", [] { return powerup_audio_device(), -1; }},
      {"WM9712_printf_register", WM9712_printf_register}, {"WM9712_check_register", WM9712_check_register},
      {"WM9712_reset_test", WM9712_reset_test}, {"audio_api_init", audio_api_init},  // last: it forgets the beep
  };
  quietly([] {
    audio_device_output_ctrl(OUTPUT_EARPHONE, 1);
    audio_device_set_volume(12);
    audio_device_beep_OnOff(1);
  });
  board::set_absent("mixer");
  for (const auto &[name, op] : cases) {
    SCOPED_TRACE(name);
    const Outcome r = run(op);
    EXPECT_EQ(r.out, format("%s ->Error: cannot open Mixer device.\n", name));
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.log, Lines{"mixer open absent"});
  }
  board::set_absent("");
}

// A failing request is reported by the routine that issued it; the
// operation goes on with its other accesses and still closes the mixer.
TEST(CodecDevice, FailingRequests) {
  const std::string set_index = "WM9712_set_register : SNDCTL_SET_AC97_INDEX error\n";
  const std::string set_reg = "WM9712_set_register : SNDCTL_SET_AC97_REG error\n";
  const std::string get_index = "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n", on = "3D ON...........\n";
  auto three_d = [] { return audio_device_3D_ctrl(1, 5, 6, 7); };
  const struct {
    const char *failing;
    std::function<s32()> op;
    std::string out;
    s32 result;
    Lines registers;  // register lines that still happen
  } cases[] = {
      {"mixer:80026616", three_d, get_index + on + set_index + set_index + set_index, 0, {}},
      {"mixer:80026615", three_d, on + set_reg + set_reg + set_reg, 0, {"mixer read 0x20 0x0000"}},
      // A failed read gives 0xFFFF, which the operation then uses.
      {"mixer:40026614", three_d, "WM9712_get_register : SNDCTL_GET_AC97_REG error\n" + on, 0,
       {"mixer write 0x22 0x0025", "mixer write 0x08 0x1607", "mixer write 0x20 0xffff"}},
      {"mixer:80026617", [] { return audio_device_beep_OnOff(1), beep_start(40); },
       "beep_start : SNDCTL_AC97_BEEP_START error\n", -1, {}},
      // The reset reports itself in the speaker request's words.
      {"mixer:80026619", WM9712_reset_test, "WM9712_reset_test : SNDCTL_AC97_SPEAKER_ENA error\n", -1, {}},
      // A refused amplifier request closes the mixer; the routing change
      // goes on against the closed descriptor and every access fails.
      {"mixer:80026618", [] { return audio_device_output_ctrl(OUTPUT_SPEAKER, 1); },
       "speaker_onoff : SNDCTL_AC97_SPEAKER_ENA error\n" + set_index + set_index + set_index + set_index + set_index +
           set_index + get_index + set_index,
       0, {"mixer read 0x26 0x000f", "mixer read 0x24 0x0000"}},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.failing);
    board::reset();
    quietly([] { audio_api_init(); });
    ASSERT_TRUE(board::set_failing(c.failing));
    const Outcome r = run(c.op);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.result, c.result);
    EXPECT_EQ(register_lines(r.log), c.registers);
    EXPECT_EQ(count(r.log, "mixer open"), 1);
    EXPECT_EQ(count(r.log, "mixer close"), 1);
  }
}

}  // namespace
