// WM9712 routing, volume, mute and input selection: the register traffic
// of each operation on the virtual board, access by access.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "hw/audio_api.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

// Registers whose old value feeds a read-modify-write, seeded before the
// operation so that both the kept and the changed bits show.
const u16 SEEDED[] = {0x02, 0x04, 0x06, 0x20, 0x24, 0x26, 0x4C, 0x56, 0x5C};

const Ops READ_26_24 = {rd(0x26), rd(0x24)};
const Ops IDLE_MIX = {wr(0x18, 0xE808), wr(0x0E, 0x6080), wr(0x14, 0xAD00), wr(0x10, 0xE808)};
const Ops DAC_ROUTED = {wr(0x18, 0x4808)};
const Ops MIC_REFRESH = {wr(0x0E, 0x2080), wr(0x14, 0x5100)};
const Ops LINE_REFRESH = {wr(0x10, 0x4202), wr(0x14, 0xAD00)};
const Ops HP_ON = {wr_from(0x26, 0xBFFF, 0), wr_from(0x24, 0xFCFF, 0)};
const Ops SPK_ON = rmw(0x4C, 0xFFFD, 0) + Ops{wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFBF, 0)};
const std::string NO_OUTPUT = "Possible Output None..\n";
const std::string CLAMP = "speaker Volume clamping...\n";

struct Given {
  AUDIO_INPUT input = INPUT_DAC;
  std::vector<AUDIO_OUTPUT> outputs;
  u8 volume = 0;
};

struct Case {
  std::string name;
  Given given;
  std::function<s32()> op;
  Ops expected;
  std::string out;
  s32 result = 0;
};

// Each case from a fresh board brought into the given state, on two seed
// patterns: the register traffic, the text and the result.
void check(const std::vector<Case> &cases) {
  for (const Case &c : cases) {
    for (u16 pattern : {0x0000, 0xFFFF}) {
      SCOPED_TRACE(c.name + format(" (seeded 0x%04x)", pattern));
      board_fresh();
      quietly([&] {
        audio_api_init();
        audio_device_input_select(c.given.input);
        for (AUDIO_OUTPUT o : c.given.outputs) audio_device_output_ctrl(o, 1);
        if (c.given.volume) audio_device_set_volume(c.given.volume);
      });
      for (u16 reg : SEEDED) seed(reg, pattern);
      const Outcome r = run(c.op);
      EXPECT_REGISTERS(r, c.expected);
      EXPECT_EQ(r.out, c.out);
      EXPECT_EQ(r.result, c.result);
    }
  }
}

std::function<s32()> volume(u8 v) { return [v] { return audio_device_set_volume(v); }; }
std::function<s32()> output(AUDIO_OUTPUT o, u8 on) { return [o, on] { return audio_device_output_ctrl(o, on); }; }
std::function<s32()> mute(u8 on) { return [on] { return audio_device_mute(on); }; }
std::function<s32()> select(AUDIO_INPUT in) { return [in] { return audio_device_input_select(in); }; }
std::string speaker_text(int v) { return format("\t\t\tSpeaker Volume = %d\n", v); }

TEST(Codec, DefaultSetUpWritesEveryMixerRegisterOnce) {
  board_fresh();
  const Outcome r = run(audio_api_init);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_REGISTERS(r, (Ops{wr(0x02, 0x8000), wr(0x04, 0x8000), wr(0x06, 0x8000), wr(0x08, 0x0F0F),
                           wr(0x0A, 0xFFF0), wr(0x0C, 0xC000), wr(0x0E, 0x6080), wr(0x10, 0xE808),
                           wr(0x12, 0x8080), wr(0x14, 0xAD00), wr(0x16, 0x8100), wr(0x18, 0xE808),
                           wr(0x1A, 0x3000), wr(0x1C, 0x8000), wr(0x20, 0x0000), wr(0x22, 0x0F0F)}));
}

TEST(Codec, InputSelection) {
  const Ops rd_24_26 = {rd(0x24), rd(0x26)};
  check({
      {"no input", {}, select(INPUT_DISABLE),
       rd_24_26 + IDLE_MIX + Ops{wr_from(0x26, 0xFFFF, 0x0100), wr_from(0x24, 0xFFFF, 0x0405)}, "input state : 0 \n\n"},
      {"DAC", {}, select(INPUT_DAC),
       rd_24_26 + Ops{wr(0x18, 0x4808), wr(0x0E, 0x6080), wr(0x14, 0xAD00), wr(0x10, 0xE808), wr(0x1A, 0x3000),
                      wr(0x1C, 0x8000), wr_from(0x26, 0xFDFF, 0), wr_from(0x24, 0xFFFF, 0x1C05)},
       "input state : 1 \n\n"},
      // The microphone writes 0x2000 to 0x0E here, 0x2080 when re-routed.
      {"microphone", {}, select(INPUT_MIC),
       rd_24_26 + Ops{wr(0x18, 0xE808), wr(0x0E, 0x2000), wr(0x14, 0x5100), wr(0x10, 0xE808), wr(0x1A, 0x4800),
                      wr(0x1C, 0x0F0F), wr_from(0x26, 0xFEFF, 0), wr_from(0x24, 0xE3FE, 0x0004)},
       "input state : 2 \n\n"},
      {"line / FM", {}, select(INPUT_LINE_FM),
       rd_24_26 + Ops{wr(0x18, 0xE808), wr(0x0E, 0x6080), wr(0x14, 0xAD00), wr(0x10, 0x4202), wr(0x1A, 0x0404),
                      wr(0x1C, 0x0000), wr_from(0x26, 0xFEFF, 0), wr_from(0x24, 0xE7FB, 0x0401)},
       "input state : 3 \n\n"},
      {"unknown input", {}, select(static_cast<AUDIO_INPUT>(7)),
       rd_24_26 + Ops{wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFFF, 0)}, "input state : 7 \n\n"},
  });
}

TEST(Codec, Volume) {
  const Given hp{INPUT_DAC, {OUTPUT_EARPHONE}, 0};
  const Given spk{INPUT_DAC, {OUTPUT_SPEAKER}, 0};
  auto hp_ops = [](u16 dac, u16 word) { return READ_26_24 + Ops{wr(0x18, dac)} + HP_ON + Ops{wr(0x04, word)}; };
  auto spk_ops = [](u16 dac, u16 word) {
    return READ_26_24 + Ops{wr(0x18, dac), wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFBF, 0), wr(0x06, word)};
  };
  const Ops hp_25 = HP_ON + Ops{wr(0x04, 0x0D0D)};
  check({
      // Volume 0 powers the outputs down whatever is enabled.
      {"earphone 0", hp, volume(0),
       READ_26_24 + Ops{wr_from(0x26, 0xFFFF, 0x4000), wr_from(0x24, 0xFFFF, 0x0040)}, ""},
      // The DAC level takes over below step 10.
      {"earphone 5", hp, volume(5), hp_ops(0x4B0B, 0x2323), ""},
      {"earphone 25", hp, volume(25), hp_ops(0x4808, 0x0D0D), ""},
      {"speaker 35", spk, volume(35), spk_ops(0x4808, 0x0404), speaker_text(35)},
      // Set-volume clamps the speaker to 0x0004 (routing uses 0x0404).
      {"speaker 36 clamps", spk, volume(36), spk_ops(0x4808, 0x0004), speaker_text(36) + CLAMP},
      {"line 5", {INPUT_DAC, {OUTPUT_LINEOUT}, 0}, volume(5), READ_26_24 + Ops{wr(0x18, 0x4B0B), wr(0x02, 0)}, ""},
      {"all three 36",
       {INPUT_DAC, {OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}, 0},
       volume(36),
       READ_26_24 + DAC_ROUTED + HP_ON + Ops{wr(0x04, 0x0404), wr_from(0x26, 0xBFFF, 0), wr_from(0x24, 0xFCBF, 0),
                                             wr(0x06, 0x0004), wr(0x02, 0x0000)},
       speaker_text(36) + CLAMP},
      {"microphone re-routed", {INPUT_MIC, {OUTPUT_EARPHONE}, 0}, volume(25), READ_26_24 + MIC_REFRESH + hp_25, ""},
      {"microphone at 5 keeps its routing", {INPUT_MIC, {OUTPUT_EARPHONE}, 0}, volume(5),
       READ_26_24 + MIC_REFRESH + HP_ON + Ops{wr(0x04, 0x2323)}, ""},
      {"line re-routed", {INPUT_LINE_FM, {OUTPUT_EARPHONE}, 0}, volume(25), READ_26_24 + LINE_REFRESH + hp_25, ""},
      {"41 refused", {INPUT_DAC, {OUTPUT_EARPHONE}, 20}, volume(41), {}, "Warning : Volume range -> 0 to 40\n", -1},
      {"no output", {}, volume(25), READ_26_24, "audio_device_set_volume : " + NO_OUTPUT},
      {"S/PDIF is no volume output", {INPUT_DAC, {OUTPUT_SPDIF}, 0}, volume(25), READ_26_24,
       "audio_device_set_volume : " + NO_OUTPUT},
  });
}

TEST(Codec, Outputs) {
  auto with = [](std::vector<AUDIO_OUTPUT> o, u8 v = 0, AUDIO_INPUT in = INPUT_DAC) { return Given{in, o, v}; };
  const Ops keep_26_24 = {wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFFF, 0)};
  const Ops line_pd = {wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFC77, 0)};
  const Ops line_on = READ_26_24 + line_pd + IDLE_MIX + Ops{wr(0x02, 0)};
  const Ops spdif_blocks_line = READ_26_24 + Ops{wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFFF, 0x0388)} + IDLE_MIX;
  check({
      {"earphone on", with({}), output(OUTPUT_EARPHONE, 1), READ_26_24 + HP_ON + IDLE_MIX + rmw(0x04, 0xFFFF, 0x8000), ""},
      {"earphone off", with({OUTPUT_EARPHONE}), output(OUTPUT_EARPHONE, 0),
       READ_26_24 + Ops{wr_from(0x26, 0xFFFF, 0x4000), wr_from(0x24, 0xFFFF, 0)} + IDLE_MIX, ""},
      {"speaker on", with({}), output(OUTPUT_SPEAKER, 1), READ_26_24 + SPK_ON + IDLE_MIX + rmw(0x06, 0xFFFF, 0x8000),
       "Speaker ON \n"},
      {"speaker off", with({OUTPUT_SPEAKER}), output(OUTPUT_SPEAKER, 0),
       READ_26_24 + rmw(0x4C, 0xFFFF, 0x0002) + Ops{wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFFF, 0x0040)} + IDLE_MIX,
       "Speaker OFF \n"},
      {"line on", with({}), output(OUTPUT_LINEOUT, 1), line_on, ""},
      {"line off is line on", with({}), output(OUTPUT_LINEOUT, 0), line_on, ""},
      {"line while S/PDIF is on", with({OUTPUT_SPDIF}), output(OUTPUT_LINEOUT, 1), spdif_blocks_line, ""},
      {"S/PDIF on", with({}), output(OUTPUT_SPDIF, 1),
       READ_26_24 + Ops{wr(0x3A, 0x2000)} + rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0004)} + rmw(0x5C, 0xFFEF, 0) +
           rmw(0x4C, 0xFFDF, 0),
       ""},
      // Disabling clears the pin-sharing bit too.
      {"S/PDIF off", with({OUTPUT_SPDIF}), output(OUTPUT_SPDIF, 0),
       READ_26_24 + rmw(0x56, 0xFFDF, 0) + Ops{wr(0x2A, 0x0410)} + rmw(0x5C, 0xFFFF, 0x0010) + rmw(0x4C, 0xFFFF, 0x0020),
       ""},
      {"all off", with({OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}), output(OUTPUT_DISABLE, 1),
       READ_26_24 + keep_26_24 + IDLE_MIX, ""},
      {"unknown output", with({OUTPUT_EARPHONE}), output(static_cast<AUDIO_OUTPUT>(7), 1),
       READ_26_24 + keep_26_24 + IDLE_MIX + rmw(0x04, 0xFFFF, 0x8000), ""},
      // At a volume the output is re-routed and set to it.
      {"earphone on at 25", with({}, 25), output(OUTPUT_EARPHONE, 1),
       READ_26_24 + HP_ON + DAC_ROUTED + Ops{wr(0x04, 0x0D0D)}, ""},
      // Routing holds the speaker at 0x0404, not at set-volume's 0x0004.
      {"speaker on at 36", with({}, 36), output(OUTPUT_SPEAKER, 1),
       READ_26_24 + SPK_ON + DAC_ROUTED + Ops{wr(0x06, 0x0404)}, "Speaker ON \n" + speaker_text(36) + CLAMP},
      {"earphone on beside the speaker at 5", with({OUTPUT_SPEAKER}, 5), output(OUTPUT_EARPHONE, 1),
       READ_26_24 + HP_ON + Ops{wr(0x18, 0x4B0B), wr(0x04, 0x2323), wr(0x06, 0x2323)}, speaker_text(5)},
      {"last output off at 25", with({OUTPUT_EARPHONE}, 25), output(OUTPUT_EARPHONE, 0),
       READ_26_24 + Ops{wr_from(0x26, 0xFFFF, 0x4000), wr_from(0x24, 0xFFFF, 0)}, "audio_device_output_ctrl : " + NO_OUTPUT},
  });
}

TEST(Codec, MuteAndUnmute) {
  const Given all{INPUT_DAC, {OUTPUT_EARPHONE, OUTPUT_SPEAKER, OUTPUT_LINEOUT}, 25};
  check({
      {"mute", all, mute(1), READ_26_24 + Ops{wr_from(0x26, 0xFFFF, 0x4000), wr_from(0x24, 0xFFFF, 0x0040)}, ""},
      // Un-mute keeps the attenuation the volume registers hold.
      {"un-mute", all, mute(0),
       READ_26_24 + DAC_ROUTED + HP_ON + rmw(0x04, 0x7FFF, 0) + Ops{wr_from(0x26, 0xBFFF, 0), wr_from(0x24, 0xFCBF, 0)} +
           rmw(0x06, 0x7FFF, 0) + Ops{wr(0x02, 0)},
       ""},
      {"un-mute speaker, microphone", {INPUT_MIC, {OUTPUT_SPEAKER}, 25}, mute(0),
       READ_26_24 + MIC_REFRESH + Ops{wr_from(0x26, 0xFFFF, 0), wr_from(0x24, 0xFFBF, 0)} + rmw(0x06, 0x7FFF, 0), ""},
      // Re-routing at volume 0 still uses the DAC level of step 0.
      {"un-mute line at 0", {INPUT_DAC, {OUTPUT_LINEOUT}, 0}, mute(0), READ_26_24 + Ops{wr(0x18, 0x5010), wr(0x02, 0)},
       ""},
      {"mute with only S/PDIF", {INPUT_DAC, {OUTPUT_SPDIF}, 25}, mute(1), {}, "audio_device_mute : " + NO_OUTPUT, -1},
  });
}

// The getters report the requests, not the codec; a request refused
// before the mixer was opened records nothing.
TEST(Codec, StateFollowsTheRequests) {
  struct Step {
    const char *what;
    std::function<void()> request;
    u8 volume, mute, input, hp, spk, line, spdif;
  };
  const Step steps[] = {
      {"earphone on", [] { audio_device_output_ctrl(OUTPUT_EARPHONE, 1); }, 0, 0, 0, 1, 0, 0, 0},
      {"speaker on (7)", [] { audio_device_output_ctrl(OUTPUT_SPEAKER, 7); }, 0, 0, 0, 1, 1, 0, 0},
      {"line \"off\" turns it on", [] { audio_device_output_ctrl(OUTPUT_LINEOUT, 0); }, 0, 0, 0, 1, 1, 1, 0},
      {"S/PDIF on takes the line", [] { audio_device_output_ctrl(OUTPUT_SPDIF, 1); }, 0, 0, 0, 1, 1, 0, 1},
      {"line refused", [] { audio_device_output_ctrl(OUTPUT_LINEOUT, 1); }, 0, 0, 0, 1, 1, 0, 1},
      {"microphone, volume 17, 41, mute 5",
       [] {
         audio_device_input_select(INPUT_MIC);
         audio_device_set_volume(17);
         audio_device_set_volume(41);
         audio_device_mute(5);
       },
       17, 5, 2, 1, 1, 0, 1},
      {"no mixer",
       [] {
         mixer_absent(true);
         audio_device_set_volume(30);
         audio_device_mute(0);
         audio_device_input_select(INPUT_LINE_FM);
         audio_device_output_ctrl(OUTPUT_SPEAKER, 0);
         mixer_absent(false);
       },
       17, 5, 2, 1, 1, 0, 1},
      {"all off leaves S/PDIF, mute refused",
       [] {
         audio_device_output_ctrl(OUTPUT_DISABLE, 1);
         audio_device_mute(0);
       },
       17, 5, 2, 0, 0, 0, 1},
      {"volume stored without output", [] { audio_device_set_volume(33); }, 33, 5, 2, 0, 0, 0, 1},
      {"S/PDIF off gives the line back", [] { audio_device_output_ctrl(OUTPUT_SPDIF, 0); }, 33, 5, 2, 0, 0, 1, 0},
      {"unknown input", [] { audio_device_input_select(static_cast<AUDIO_INPUT>(9)); }, 33, 5, 9, 0, 0, 1, 0},
      {"init forgets", [] { audio_api_init(); }, 0, 0, 0, 0, 0, 0, 0},
  };
  board_fresh();
  quietly([] { audio_api_init(); });
  for (const Step &s : steps) {
    SCOPED_TRACE(s.what);
    quietly(s.request);
    EXPECT_EQ(audio_device_get_volume(), s.volume);
    EXPECT_EQ(audio_device_get_mute_state(), s.mute);
    EXPECT_EQ(audio_device_get_input_state(), s.input);
    EXPECT_EQ(audio_device_get_output_state(OUTPUT_EARPHONE), s.hp);
    EXPECT_EQ(audio_device_get_output_state(OUTPUT_SPEAKER), s.spk);
    EXPECT_EQ(audio_device_get_output_state(OUTPUT_LINEOUT), s.line);
    EXPECT_EQ(audio_device_get_output_state(OUTPUT_SPDIF), s.spdif);
    for (int none : {0, 255}) EXPECT_EQ(audio_device_get_output_state(static_cast<AUDIO_OUTPUT>(none)), 0);
  }
}

}  // namespace
