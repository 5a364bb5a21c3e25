// Output hardware on the virtual board: the WM9712 codec and the LCD/TV switch.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "hw/audio_api.h"
#include "hw/lcd_tv_switch.h"
#include "sim/board/board.h"

namespace {

using Lines = std::vector<std::string>;

std::string format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *fmt, ...) {
  char buf[512];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  va_end(ap);
  return buf;
}
// The lines of a log starting with one of the prefixes, one a line.
std::string only(const Lines &log, std::initializer_list<const char *> prefixes) {
  std::string s;
  for (const auto &l : log)
    if (std::any_of(prefixes.begin(), prefixes.end(), [&](const char *p) { return l.starts_with(p); })) s += l + "\n";
  return s;
}

struct Outcome {
  s32 result;
  std::string out;  // what it printed
  Lines log;        // board events it caused
};
Outcome run(const std::function<s32()> &op) {
  const size_t mark = board::log_lines().size();
  testing::internal::CaptureStdout();
  const s32 result = op();
  fflush(stdout);
  const std::string out = testing::internal::GetCapturedStdout();
  Lines log = board::log_lines();
  log.erase(log.begin(), log.begin() + std::ptrdiff_t(std::min(mark, log.size())));
  return {result, out, log};
}
void quietly(const std::function<void()> &steps) { run([&] { return steps(), 0; }); }
void fresh() {
  board::reset();
  quietly([] { audio_api_init(); });
}

// Puts a value into a codec register through the driver's own requests.
void seed(u16 reg, u16 value) {
  const int fd = open("/dev/mixer", O_RDWR);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(ioctl(fd, 0x80026616, &reg), 0);
  EXPECT_EQ(ioctl(fd, 0x80026615, &value), 0);
  close(fd);
}

// Expected register traffic against a log, one word per access: "r26" a
// read of 0x26 (its value taken from the access at the same place),
// "w04=0d0d" a write, "w26&bfff|0100" a write of the value last read from
// 0x26 with the bits of 0xbfff kept and those of 0x0100 set (both optional).
void expect_traffic(const Lines &log, const std::string &words) {
  std::istringstream in(words);
  std::istringstream actual(only(log, {"mixer read ", "mixer write "}));
  std::map<unsigned, unsigned> last;
  std::string expected, w, line;
  while (in >> w) {
    unsigned reg = 0, value = 0, keep = 0xFFFF, set = 0;
    std::sscanf(w.c_str(), "%*c%2x", &reg);
    const char *rest = w.c_str() + std::min<size_t>(w.size(), 3);
    if (w[0] == 'r') {
      if (std::getline(actual, line)) std::sscanf(line.c_str(), "mixer read 0x%*x 0x%x", &value);
      last[reg] = value;
    } else {
      std::getline(actual, line);
      if (std::sscanf(rest, "=%x", &value) != 1) {
        std::sscanf(rest, "&%x", &keep);
        if (const char *bar = std::strchr(rest, '|')) std::sscanf(bar, "|%x", &set);
        value = (last[reg] & keep) | set;
      }
    }
    expected += format("mixer %s 0x%02x 0x%04x\n", w[0] == 'r' ? "read" : "write", reg, value);
  }
  EXPECT_EQ(only(log, {"mixer read ", "mixer write "}), expected);
}

// Pieces of expected traffic.
const std::string R = "r26 r24 ";  // the power-down registers, read first
const std::string IDLE_MIX = "w18=e808 w0e=6080 w14=ad00 w10=e808 ";
const std::string DAC_ROUTED = "w18=4808 ", MIC_REFRESH = "w0e=2080 w14=5100 ";
const std::string HP_ON = "w26&bfff w24&fcff ", SPK_ON = "r4c w4c&fffd w26 w24&ffbf ";
const std::string OUTPUTS_DOWN = "w26|4000 w24|0040 ";
const std::string NO_OUTPUT = "Possible Output None..\n", CLAMP = "speaker Volume clamping...\n";
std::string speaker(int v) { return format("\t\t\tSpeaker Volume = %d\n", v); }

std::function<s32()> volume(u8 v) { return [v] { return audio_device_set_volume(v); }; }
std::function<s32()> output(AUDIO_OUTPUT o, u8 on) { return [o, on] { return audio_device_output_ctrl(o, on); }; }
std::function<s32()> mute(u8 on) { return [on] { return audio_device_mute(on); }; }
std::function<s32()> input(AUDIO_INPUT in) { return [in] { return audio_device_input_select(in); }; }

// Each operation from the given state (outputs, volume, input), with the
// registers it rewrites seeded all-clear and all-set.
TEST(Codec, RegisterTrafficPerOperation) {
  using O = std::vector<AUDIO_OUTPUT>;
  const O hp{OUTPUT_EARPHONE}, spk{OUTPUT_SPEAKER}, line{OUTPUT_LINEOUT}, spdif{OUTPUT_SPDIF};
  const O all{OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT};
  const std::string line_on = R + "w26 w24&fc77 " + IDLE_MIX + "w02=0000";
  const struct {
    const char *name;
    std::function<s32()> op;
    std::string traffic, out;
    O outputs = {};
    u8 volume = 0;
    AUDIO_INPUT in = INPUT_DAC;
    s32 result = 0;
    long opens = 1, closes = 1;  // the early returns leave the mixer open
  } cases[] = {
      {"no input", input(INPUT_DISABLE), "r24 r26 " + IDLE_MIX + "w26|0100 w24|0405", "input state : 0 \n\n"},
      {"DAC", input(INPUT_DAC), "r24 r26 w18=4808 w0e=6080 w14=ad00 w10=e808 w1a=3000 w1c=8000 w26&fdff w24|1c05",
       "input state : 1 \n\n"},
      // The microphone writes 0x2000 to 0x0E here, 0x2080 when re-routed.
      {"microphone", input(INPUT_MIC),
       "r24 r26 w18=e808 w0e=2000 w14=5100 w10=e808 w1a=4800 w1c=0f0f w26&feff w24&e3fe|0004", "input state : 2 \n\n"},
      {"line / FM", input(INPUT_LINE_FM),
       "r24 r26 w18=e808 w0e=6080 w14=ad00 w10=4202 w1a=0404 w1c=0000 w26&feff w24&e7fb|0401", "input state : 3 \n\n"},
      {"unknown input", input(static_cast<AUDIO_INPUT>(7)), "r24 r26 w26 w24", "input state : 7 \n\n"},
      // Volume 0 powers the outputs down; the DAC level takes over below 10.
      {"volume 0", volume(0), R + OUTPUTS_DOWN, "", hp},
      {"earphone 5", volume(5), R + "w18=4b0b " + HP_ON + "w04=2323", "", hp},
      {"speaker 35", volume(35), R + "w18=4808 w26 w24&ffbf w06=0404", speaker(35), spk},
      {"line 5", volume(5), R + "w18=4b0b w02=0000", "", line},
      // Set-volume clamps the speaker to 0x0004 from 36 (routing: 0x0404).
      {"all three 36", volume(36), R + DAC_ROUTED + HP_ON + "w04=0404 w26&bfff w24&fcbf w06=0004 w02=0000",
       speaker(36) + CLAMP, all},
      {"microphone re-routed", volume(5), R + MIC_REFRESH + HP_ON + "w04=2323", "", hp, 0, INPUT_MIC},
      {"line re-routed", volume(25), R + "w10=4202 w14=ad00 " + HP_ON + "w04=0d0d", "", hp, 0, INPUT_LINE_FM},
      {"41 refused", volume(41), "", "Warning : Volume range -> 0 to 40\n", hp, 20, INPUT_DAC, -1, 0, 0},
      {"S/PDIF is no volume output", volume(25), R, "audio_device_set_volume : " + NO_OUTPUT, spdif, 0, INPUT_DAC,
       0, 1, 0},
      {"earphone on", output(OUTPUT_EARPHONE, 1), R + HP_ON + IDLE_MIX + "r04 w04|8000", ""},
      {"earphone off", output(OUTPUT_EARPHONE, 0), R + "w26|4000 w24 " + IDLE_MIX, "", hp},
      {"speaker on", output(OUTPUT_SPEAKER, 1), R + SPK_ON + IDLE_MIX + "r06 w06|8000", "Speaker ON \n"},
      {"speaker off", output(OUTPUT_SPEAKER, 0), R + "r4c w4c|0002 w26 w24|0040 " + IDLE_MIX, "Speaker OFF \n", spk},
      {"line on", output(OUTPUT_LINEOUT, 1), line_on, ""},
      {"line off is line on", output(OUTPUT_LINEOUT, 0), line_on, ""},
      {"line while S/PDIF is on", output(OUTPUT_LINEOUT, 1), R + "w26 w24|0388 " + IDLE_MIX, "", spdif},
      // S/PDIF opens and closes a descriptor of its own inside the call;
      // disabling it clears the pin-sharing bit too.
      {"S/PDIF on", output(OUTPUT_SPDIF, 1), R + "w3a=2000 r56 w56&ffdf w2a=0004 r5c w5c&ffef r4c w4c&ffdf", "", {},
       0, INPUT_DAC, 0, 2, 1},
      {"S/PDIF off", output(OUTPUT_SPDIF, 0), R + "r56 w56&ffdf w2a=0410 r5c w5c|0010 r4c w4c|0020", "", spdif, 0,
       INPUT_DAC, 0, 2, 1},
      {"all off", output(OUTPUT_DISABLE, 1), R + "w26 w24 " + IDLE_MIX, "", all},
      // At a volume the outputs are re-routed and set to it.
      {"speaker on at 36", output(OUTPUT_SPEAKER, 1), R + SPK_ON + DAC_ROUTED + "w06=0404",
       "Speaker ON \n" + speaker(36) + CLAMP, {}, 36},
      {"last output off at 25", output(OUTPUT_EARPHONE, 0), R + "w26|4000 w24",
       "audio_device_output_ctrl : " + NO_OUTPUT, hp, 25, INPUT_DAC, 0, 1, 0},
      {"mute", mute(1), R + OUTPUTS_DOWN, "", all, 25},
      // Un-mute keeps the attenuation the volume registers hold; at volume 0
      // it re-routes with the DAC level of step 0.
      {"un-mute", mute(0), R + DAC_ROUTED + HP_ON + "r04 w04&7fff w26&bfff w24&fcbf r06 w06&7fff w02=0000", "", all,
       25},
      {"un-mute line at 0", mute(0), R + "w18=5010 w02=0000", "", line},
      {"mute with only S/PDIF", mute(1), "", "audio_device_mute : " + NO_OUTPUT, spdif, 25, INPUT_DAC, -1, 0, 0},
      // Only the low nibble of 3D depth, bass and treble reaches the codec.
      {"3D on", [] { return audio_device_3D_ctrl(1, 0xFF, 0x3E, 0x21); }, "r20 w22=002f w08=1e01 w20|2000",
       "3D ON...........\n"},
      {"3D off", [] { return audio_device_3D_ctrl(0, 0x0A, 0x07, 0x0C); }, "r20 w22=0000 w08=0f0f w20&dfff",
       "3D OFF...........\n"},
      {"microphone high", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, "w1c=0b0b", ""},
      {"microphone low", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_LOW); }, "w1c=0202", ""},
      {"microphone 2", [] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(2)); }, "",
       "audio_device_MIC_sensitivity -> Not valid parameter..\n", {}, 0, INPUT_DAC, -1, 1, 0},
      {"register test", audio_device_test, "w0a=aaa0", ""},
      {"default set-up", audio_api_init, "w02=8000 w04=8000 w06=8000 w08=0f0f w0a=fff0 w0c=c000 w0e=6080 w10=e808 "
                                         "w12=8080 w14=ad00 w16=8100 w18=e808 w1a=3000 w1c=8000 w20=0000 w22=0f0f", ""},
      // The power registers are read back after the writes and printed.
      {"power up", [] { return powerup_audio_device(), 0; }, "w26=0000 w24=0000 r26 r24",
       "\nwm9712 PWDN 26h : 0x   f\nwm9712 PWDN 24h : 0x   0\n"},
  };
  for (const auto &c : cases) {
    for (u16 pattern : {0x0000, 0xFFFF}) {
      SCOPED_TRACE(c.name + format(" (seeded 0x%04x)", pattern));
      board::reset();
      quietly([&] {
        audio_api_init();
        audio_device_input_select(c.in);
        for (AUDIO_OUTPUT o : c.outputs) audio_device_output_ctrl(o, 1);
        if (c.volume) audio_device_set_volume(c.volume);
      });
      for (u16 reg : {0x02, 0x04, 0x06, 0x20, 0x24, 0x26, 0x4C, 0x56, 0x5C}) seed(reg, pattern);
      const Outcome r = run(c.op);
      expect_traffic(r.log, c.traffic);
      EXPECT_EQ(std::make_tuple(r.out, r.result, std::count(r.log.begin(), r.log.end(), "mixer open"),
                                std::count(r.log.begin(), r.log.end(), "mixer close")),
                std::make_tuple(c.out, c.result, c.opens, c.closes));
    }
  }
}

// The power registers are read back after the writes and printed; the ready
// bits of 0x26 follow its power-down bits.
TEST(Codec, PowerDown) {
  fresh();
  seed(0x26, 0x8A0F);
  const Outcome down = run([] { return powerdown_audio_device(3), 0; });
  EXPECT_EQ(only(down.log, {"mixer read", "mixer write"}),
            "mixer read 0x26 0x8a01\nmixer write 0x26 0x8b01\nmixer write 0x24 0x1ccf\nmixer read 0x26 0x8b00\n"
            "mixer read 0x24 0x1ccf\n");
  EXPECT_EQ(down.out, "\nwm9712 PWDN 26h : 0x8b00\nwm9712 PWDN 24h : 0x1ccf\n");
}

// The dump prints "%4x"; the check dumps when earphone level or DAC routing differ.
TEST(Codec, RegisterDumps) {
  fresh();
  std::string reads;
  for (u16 reg = 0x02; reg <= 0x26; reg += 2) reads += reg == 0x1E ? "" : format(" r%02x", reg);
  // The dump of the 18 reads from the `from`th on.
  const auto dump = [](const Lines &log, size_t from) {
    std::istringstream in(only(log, {"mixer read "}));
    std::string line, text = "\n\n";
    for (size_t i = 0; std::getline(in, line); ++i) {
      unsigned reg = 0, v = 0;
      if (i >= from && i < from + 18 && sscanf(line.c_str(), "mixer read 0x%x 0x%x", &reg, &v) == 2)
        text += format("wm9712 %02xh : 0x%4x\n", reg, v);
    }
    return text + "\n";
  };
  const u16 values[] = {0x0000, 0x0001, 0x0012, 0x0123, 0x1234, 0xABCD};
  for (unsigned i = 0; i < 6; ++i) seed(u16(2 + 2 * i), values[i]);
  const Outcome r = run(WM9712_printf_register);
  expect_traffic(r.log, reads);
  EXPECT_EQ(r.out, dump(r.log, 0));
  EXPECT_TRUE(r.out.starts_with("\n\nwm9712 02h : 0x   0\nwm9712 04h : 0x   1\nwm9712 06h : 0x  12\n"
                                "wm9712 08h : 0x 123\nwm9712 0ah : 0x1234\nwm9712 0ch : 0xabcd\n"))
      << r.out;

  seed(0x04, 0x0303);
  seed(0x18, 0x4808);
  const Outcome quiet = run(WM9712_check_register);
  expect_traffic(quiet.log, "r04 r18");
  EXPECT_EQ(quiet.out, "");
  seed(0x18, 0x4809);
  const Outcome dac = run(WM9712_check_register);
  expect_traffic(dac.log, "r04 r18" + reads);
  EXPECT_EQ(dac.out, dump(dac.log, 2));
  // After an earphone difference the dump closes the shared descriptor; the
  // check then reads through it, which shows as a difference: a second dump.
  seed(0x04, 0x0304);
  seed(0x18, 0x4808);
  const Outcome hp = run(WM9712_check_register);
  expect_traffic(hp.log, "r04" + reads + reads);
  EXPECT_EQ(hp.out, dump(hp.log, 1) + "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n" + dump(hp.log, 19));
  EXPECT_EQ(hp.result, 0);
}

// Beep permission, reset, and the amplifier request twice around the speaker GPIO.
TEST(Codec, DeviceRequests) {
  fresh();
  const Outcome refused = run([] { return beep_start(100); });
  EXPECT_EQ(std::make_tuple(refused.result, refused.log), std::make_tuple(-1, Lines{}));
  ASSERT_EQ(audio_device_beep_OnOff(1), 0);
  const Outcome allowed = run([] { return beep_start(65535); });
  EXPECT_EQ(std::make_tuple(allowed.result, allowed.log),
            std::make_tuple(0, Lines{"mixer open", "mixer beep 65535", "mixer close"}));
  ASSERT_EQ(audio_device_beep_OnOff(0), 0);
  EXPECT_TRUE(run([] { return beep_start(100); }).log.empty());
  EXPECT_EQ(run(WM9712_reset_test).log, (Lines{"mixer open", "mixer reset", "mixer close"}));
  for (u8 on : {9, 0}) {
    const std::string request = on ? "mixer speaker on\n" : "mixer speaker off\n";
    const Outcome r = run([&] { return audio_device_output_ctrl(OUTPUT_SPEAKER, on); });
    EXPECT_EQ(only(r.log, {"mixer speaker", "mixer write 0x4c"}),
              request + (on ? "mixer write 0x4c 0xf83c\n" : "mixer write 0x4c 0xf83e\n") + request);
    EXPECT_EQ(board::speaker_enabled(), on != 0);
  }
}

// An absent mixer (no item): each operation names itself. A failing request is
// reported by its routine; the operation goes on and closes the mixer.
TEST(Codec, AbsentOrFailingMixer) {
  const auto absent = [](const char *name) { return format("%s ->Error: cannot open Mixer device.\n", name); };
  const std::string set_index = "WM9712_set_register : SNDCTL_SET_AC97_INDEX error\n";
  const std::string set_reg = "WM9712_set_register : SNDCTL_SET_AC97_REG error\n";
  const std::string get_index = "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n", on = "3D ON...........\n";
  const auto three_d = [] { return audio_device_3D_ctrl(1, 5, 6, 7); };
  const struct {
    const char *failing;
    std::function<s32()> op;
    std::string out;
    s32 result = -1;
    std::string registers = "";  // the register accesses that still happen
  } cases[] = {
      {"", [] { return beep_start(10); }, absent("beep_start")}, {"", SPDIF_ENABLE, absent("SPDIF_ENABLE")},
      {"", SPDIF_DISABLE, absent("SPDIF_DISABLE")}, {"", volume(20), absent("audio_device_set_volume")},
      {"", mute(1), absent("audio_device_mute")}, {"", three_d, absent("audio_device_3D_ctrl")},
      {"", output(OUTPUT_EARPHONE, 1), absent("audio_device_output_ctrl")},
      {"", input(INPUT_DAC), absent("audio_device_input_select")},
      {"", [] { return audio_device_MIC_sensitivity(MIC_SENSITIVITY_HIGH); }, absent("audio_device_MIC_sensitivity")},
      {"", audio_device_test, absent("audio_device_test")}, {"", audio_api_init, absent("audio_api_init")},
      {"", [] { return powerdown_audio_device(0), -1; }, absent("powerdown_audio_device")},
      {"", [] { return powerup_audio_device(), -1; }, absent("powerup_audio_device")},
      {"", WM9712_printf_register, absent("WM9712_printf_register")},
      {"", WM9712_check_register, absent("WM9712_check_register")},
      {"", WM9712_reset_test, absent("WM9712_reset_test")},
      {"mixer:80026616", three_d, get_index + on + set_index + set_index + set_index, 0},
      {"mixer:80026615", three_d, on + set_reg + set_reg + set_reg, 0, "mixer read 0x20 0x0000\n"},
      // A failed read gives 0xFFFF, which the operation then uses.
      {"mixer:40026614", three_d, "WM9712_get_register : SNDCTL_GET_AC97_REG error\n" + on, 0,
       "mixer write 0x22 0x0025\nmixer write 0x08 0x1607\nmixer write 0x20 0xffff\n"},
      {"mixer:80026617", [] { return beep_start(40); }, "beep_start : SNDCTL_AC97_BEEP_START error\n"},
      // The reset reports itself in the speaker request's words.
      {"mixer:80026619", WM9712_reset_test, "WM9712_reset_test : SNDCTL_AC97_SPEAKER_ENA error\n"},
      // A refused amplifier request closes the mixer; the routing goes on
      // against the closed descriptor and every access fails.
      {"mixer:80026618", output(OUTPUT_SPEAKER, 1),
       "speaker_onoff : SNDCTL_AC97_SPEAKER_ENA error\n" + set_index + set_index + set_index + set_index + set_index +
           set_index + get_index + set_index,
       0, "mixer read 0x26 0x000f\nmixer read 0x24 0x0000\n"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.out);
    board::reset();
    quietly([] { audio_api_init(), audio_device_beep_OnOff(1); });
    if (*c.failing == '\0') {
      quietly([] { audio_device_output_ctrl(OUTPUT_EARPHONE, 1), audio_device_set_volume(12); });
      board::set_absent("mixer");
    }
    ASSERT_TRUE(*c.failing == '\0' || board::set_failing(c.failing));
    const Outcome r = run(c.op);
    EXPECT_EQ(std::make_tuple(r.out, r.result, only(r.log, {"mixer read", "mixer write"})),
              std::make_tuple(c.out, c.result, c.registers));
    EXPECT_EQ(only(r.log, {"mixer open", "mixer close"}),
              *c.failing != '\0' ? "mixer open\nmixer close\n" : "mixer open absent\n");
  }
}

// Requests and texts; TV origin x 88..172, y 0..40; the driver's answers ignored.
TEST(OutputSwitch, Requests) {
  const auto move = [](u32 x, u32 y) { return [x, y] { return TV_OutPositionMove(x, y); }; };
  const std::string bad = " Move\nTV_OutPositionMove error\n";
  const std::tuple<std::function<s32()>, s32, std::string, std::string> cases[] = {
      {[] { return LCD_Out(), 0; }, 0, "LCD__!!\n", "i2cdrv ioctl 0x2000740b\n"},
      {[] { return TV_Out_composite(), 0; }, 0, "TV__!!\n", "i2cdrv ioctl 0x2000740c\n"},
      {[] { return TV_Out_component(), 0; }, 0, "TV_Out_component!!\n", "i2cdrv ioctl 0x2000740d\n"},
      {move(88, 0), 0, "TV Screen X Position = 58 Y Position = 0 Move\n", "i2cdrv ioctl 0x80147410 x=0x58 y=0x00\n"},
      {move(172, 40), 0, "TV Screen X Position = ac Y Position = 28 Move\n", "i2cdrv ioctl 0x80147410 x=0xac y=0x28\n"},
      {move(87, 0), 1, "TV Screen X Position = 57 Y Position = 0" + bad, ""},
      {move(173, 0), 1, "TV Screen X Position = ad Y Position = 0" + bad, ""},
      {move(100, 41), 1, "TV Screen X Position = 64 Y Position = 29" + bad, ""},
      {[] { return i2c_Write(0x40, 0x12, 0xAB, 2); }, 0, "",
       "i2cdrv ioctl 0x80147400 dev=0x40 sub=0x12 data=0xab nbytes=2\n"},
  };
  board::reset();
  quietly([] { i2cdrv_open(); });
  for (const auto &[op, result, out, requests] : cases) {
    const Outcome r = run(op);
    EXPECT_EQ(std::make_tuple(r.result, r.out, only(r.log, {"i2cdrv ioctl"})), std::make_tuple(result, out, requests));
  }
  ASSERT_TRUE(board::set_failing("i2cdrv"));
  const Outcome moved = run([] { return TV_OutPositionMove(100, 10); });
  EXPECT_EQ(std::make_tuple(moved.result, moved.out, only(moved.log, {"i2cdrv ioctl"})),
            std::make_tuple(0, "TV Screen X Position = 64 Y Position = a Move\n", "i2cdrv ioctl 0x80147410 failed\n"));
  EXPECT_EQ(run([] { return i2c_Write(1, 2, 3, 1); }).result, 0);
  quietly([] { i2cdrv_close(); });  // closing twice would close descriptor 0
}

// Once closed, requests go to descriptor 0, not to another user of the number.
TEST(OutputSwitch, OpenAndClose) {
  board::reset();
  const Outcome r = run(i2cdrv_open);
  const std::string prefix = "i2cdrv Driver open Succes!! device number : ";
  ASSERT_TRUE(r.out.starts_with(prefix)) << r.out;
  const int number = std::stoi(r.out.substr(prefix.size()));
  EXPECT_EQ(std::make_tuple(r.result, r.out, r.log),
            std::make_tuple(0, prefix + std::to_string(number) + "\n", Lines{"i2cdrv open"}));
  EXPECT_NE(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(run(i2cdrv_close).log, Lines{"i2cdrv close"});
  std::vector<int> others;
  for (int fd = -1; fd != number && others.size() < 64;) {
    ASSERT_GE(fd = open("/dev/i2cdrv", O_RDWR), 0);
    others.push_back(fd);
  }
  ASSERT_EQ(others.back(), number);
  const Outcome lost = run([] { return LCD_Out(), 0; });
  EXPECT_EQ(std::make_tuple(lost.out, lost.log), std::make_tuple("LCD__!!\n", Lines{}));
  for (int fd : others) close(fd);
}

}  // namespace
