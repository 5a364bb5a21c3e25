// The codec control's use of the mixer device itself: when it is opened and
// closed, the speaker and reset requests, and what a failing request prints
// and leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "hw/audio_api.h"
#include "sim/board/board.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

long count(const std::vector<std::string> &log, const std::string &line) {
  return std::count(log.begin(), log.end(), line);
}

std::vector<std::string> device_lines(const std::vector<std::string> &log) {
  std::vector<std::string> out;
  for (const auto &l : log)
    if (l.rfind("mixer read ", 0) != 0 && l.rfind("mixer write ", 0) != 0) out.push_back(l);
  return out;
}

// The mixer is opened at the start of each operation and closed at its
// end, except on the early returns that leave it open.
TEST(CodecDevice, OpenAndClose) {
  struct Case {
    const char *name;
    bool earphone;  // enabled before, at volume 20
    std::function<s32()> op;
    long opens, closes;
  };
  const Case cases[] = {
      {"set volume", true, [] { return audio_device_set_volume(25); }, 1, 1},
      {"set volume without output", false, [] { return audio_device_set_volume(25); }, 1, 0},
      {"set volume 41", true, [] { return audio_device_set_volume(41); }, 0, 0},
      {"mute without output", false, [] { return audio_device_mute(1); }, 0, 0},
      {"last output off", true, [] { return audio_device_output_ctrl(OUTPUT_EARPHONE, 0); }, 1, 0},
      // S/PDIF opens and closes its own descriptor inside the call.
      {"S/PDIF on", true, [] { return audio_device_output_ctrl(OUTPUT_SPDIF, 1); }, 2, 1},
      {"microphone invalid", true, [] { return audio_device_MIC_sensitivity(static_cast<MIC_SENSE>(3)); }, 1, 0},
      {"codec reset", true, WM9712_reset_test, 1, 1},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    board_fresh();
    quietly([&] {
      audio_api_init();
      if (c.earphone) audio_device_output_ctrl(OUTPUT_EARPHONE, 1);
      audio_device_set_volume(20);
    });
    const Outcome r = run(c.op);
    EXPECT_EQ(count(r.log, "mixer open"), c.opens) << joined(r.log);
    EXPECT_EQ(count(r.log, "mixer close"), c.closes) << joined(r.log);
  }
  EXPECT_EQ(run(WM9712_reset_test).log, (std::vector<std::string>{"mixer open", "mixer reset", "mixer close"}));
}

// The amplifier request goes out twice, around the GPIO that shuts the
// speaker down.
TEST(CodecDevice, SpeakerAmplifier) {
  board_fresh();
  quietly([] { audio_api_init(); });
  for (u8 on : {9, 0}) {
    const std::string request = on ? "mixer speaker on" : "mixer speaker off";
    const Outcome r = run([&] { return audio_device_output_ctrl(OUTPUT_SPEAKER, on); });
    std::vector<std::string> around;
    for (const auto &l : r.log)
      if (l.rfind("mixer speaker", 0) == 0) around.push_back(l);
      else if (l.rfind("mixer read 0x4c", 0) == 0 || l.rfind("mixer write 0x4c", 0) == 0) around.push_back(l.substr(0, 11));
    EXPECT_EQ(around, (std::vector<std::string>{request, "mixer read ", "mixer write", request}));
    EXPECT_EQ(r.out, on ? "Speaker ON \n" : "Speaker OFF \n");
    EXPECT_EQ(board::speaker_enabled(), on != 0);
  }
}

// A failing request is reported by the routine that issued it; the
// operation goes on with its other accesses.
TEST(CodecDevice, FailingRequests) {
  struct Case {
    const char *name;
    const char *failing;
    std::function<s32()> op;
    std::string out;
    s32 result;
    std::vector<std::string> registers;  // register lines that still happen
  };
  const std::string set_index = "WM9712_set_register : SNDCTL_SET_AC97_INDEX error\n";
  const std::string set_reg = "WM9712_set_register : SNDCTL_SET_AC97_REG error\n";
  auto three_d = [] { return audio_device_3D_ctrl(1, 5, 6, 7); };
  std::string init_rest;
  for (int i = 0; i < 13; ++i) init_rest += set_reg;
  const Case cases[] = {
      {"register index", "mixer:80026616", three_d,
       "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n3D ON...........\n" + set_index + set_index + set_index, 0, {}},
      {"register write", "mixer:80026615", three_d, "3D ON...........\n" + set_reg + set_reg + set_reg, 0,
       {"mixer read 0x20 0x0000"}},
      // A failed read gives 0xFFFF, which the operation then uses.
      {"register read", "mixer:40026614", three_d,
       "WM9712_get_register : SNDCTL_GET_AC97_REG error\n3D ON...........\n", 0,
       {"mixer write 0x22 0x0025", "mixer write 0x08 0x1607", "mixer write 0x20 0xffff"}},
      {"writes after the third", "mixer:80026615@3", audio_api_init, init_rest, 0,
       {"mixer write 0x02 0x8000", "mixer write 0x04 0x8000", "mixer write 0x06 0x8000"}},
      {"beep", "mixer:80026617", [] { return audio_device_beep_OnOff(1), beep_start(40); },
       "beep_start : SNDCTL_AC97_BEEP_START error\n", -1, {}},
      // The reset reports itself in the speaker request's words.
      {"reset", "mixer:80026619", WM9712_reset_test, "WM9712_reset_test : SNDCTL_AC97_SPEAKER_ENA error\n", -1, {}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    board_fresh();
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

// A refused amplifier request closes the mixer; the routing change then
// goes on against the closed descriptor and every access fails.
TEST(CodecDevice, FailingSpeakerRequest) {
  board_fresh();
  quietly([] { audio_api_init(); });
  ASSERT_TRUE(board::set_failing("mixer:80026618"));
  const Outcome r = run([] { return audio_device_output_ctrl(OUTPUT_SPEAKER, 1); });
  EXPECT_EQ(r.result, 0);
  const std::string set = "WM9712_set_register : SNDCTL_SET_AC97_INDEX error\n";
  std::string expected = "speaker_onoff : SNDCTL_AC97_SPEAKER_ENA error\n";
  for (int i = 0; i < 6; ++i) expected += set;
  EXPECT_EQ(r.out, expected + "WM9712_get_register : SNDCTL_SET_AC97_INDEX error\n" + set);
  EXPECT_EQ(register_lines(r.log).size(), 2u);  // 0x26 and 0x24 read before
  EXPECT_EQ(device_lines(r.log), (std::vector<std::string>{"mixer open", "mixer ioctl 0x80026618 failed", "mixer close"}));
  EXPECT_EQ(audio_device_get_output_state(OUTPUT_SPEAKER), 1);
}

}  // namespace
