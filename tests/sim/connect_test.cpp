// Connecting files: solution names against containers, the engine's own
// choice, and the failures.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

using namespace simtest;

namespace {

// The solution the engine says it uses ("debug show config").
std::string solution_in_use(const Engine &e) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(e.debug("debug show config"), MAI_OK);
  std::string out = testing::internal::GetCapturedStdout();
  const std::string label = "solution     : ";
  size_t at = out.find(label);
  if (at == std::string::npos) return "";
  at += label.size();
  return out.substr(at, out.find(' ', at) - at);
}

TEST(Connect, SolutionsAgainstContainers) {
  struct Case {
    std::string path;
    const char *solution;  // null: the engine chooses
    u32 status;
    const char *in_use;  // solution reported after connecting
  };
  auto media = fixtures::media;
  const std::vector<u8> junk(4096, 0x5A);
  const std::string text = "This is a plain text file, not a media file.\n";
  const Case cases[] = {
      // The engine's own choice follows container and codecs.
      {media("xvid_mp3.avi"), nullptr, MAI_OK, "avimpv4_mp3"},
      {media("xvid_ac3.avi"), nullptr, MAI_OK, "avimpv4_ac3"},
      {media("divx5_mp3.avi"), nullptr, MAI_OK, "divx_mp3"},
      {media("divx3_mp2.avi"), nullptr, MAI_OK, "divx_mpa"},
      {media("mpeg2_ac3.mpg"), nullptr, MAI_OK, "mpegps_ac3"},
      {media("wmv2_wma.wmv"), nullptr, MAI_OK, "wmt8"},
      {media("tone.wma"), nullptr, MAI_OK, "wma"},
      {media("tone.mp2"), nullptr, MAI_OK, "mpa"},
      {media("tone.flac"), nullptr, MAI_OK, "flac"},
      {media("tone.ogg"), nullptr, MAI_OK, "ogg"},
      {media("tone.wav"), nullptr, MAI_OK, "pcm"},
      // Named solutions: the family must match the container; the prefix
      // "pmi_" is accepted and dropped.
      {media("xvid_mp3.avi"), "pmi_avimpv4_mp3", MAI_OK, "avimpv4_mp3"},
      {media("xvid_ac3.avi"), "avimpv4_spdif", MAI_OK, "avimpv4_spdif"},
      {media("xvid_mp3.avi"), "_mp3", MAI_OK, "_mp3"},
      {media("mpeg1_mp2.mpg"), "mpegps_mpa3", MAI_OK, "mpegps_mpa3"},
      {media("wmv2_wma.wmv"), "pmi_wmt78", MAI_OK, "wmt78"},
      {media("xvid_mp3.avi"), "mp3", MAI_E_UNKNOWNFORMAT, nullptr},
      {media("mpeg2_mp2.mpg"), "divx_mpa", MAI_E_UNKNOWNFORMAT, nullptr},
      {media("tone.flac"), "pcm", MAI_E_UNKNOWNFORMAT, nullptr},
      // Containers the engine has no parser for.
      {media("clip.mp4"), nullptr, MAI_E_UNKNOWNFORMAT, nullptr},
      {media("clip.mkv"), "avimpv4", MAI_E_UNKNOWNFORMAT, nullptr},
      // Names the engine does not know at all.
      {media("xvid_mp3.avi"), "avimpv4_aac", MAI_E_UNSUPPORTED, nullptr},
      {media("xvid_mp3.avi"), "pmi_", MAI_E_UNSUPPORTED, nullptr},
      {media("xvid_mp3.avi"), "", MAI_E_UNSUPPORTED, nullptr},
      {media("tone.mp3"), "pmi_pmi_mp3", MAI_E_UNSUPPORTED, nullptr},
      // Files that are missing or no media.
      {testing::TempDir() + "/pmx-missing.avi", "avimpv4_mp3", MAI_E_FILENOTFOUND, nullptr},
      {fixtures::temp_file("junk.avi", junk), nullptr, MAI_E_OPENFAILED, nullptr},
      // A .txt name would let libavformat take the text for ANSI art.
      {fixtures::temp_file("notes.txt", std::vector<u8>(text.begin(), text.end())), "mp3", MAI_E_OPENFAILED, nullptr},
      {fixtures::temp_file("empty.mp3", {}), nullptr, MAI_E_OPENFAILED, nullptr},
      {testing::TempDir(), nullptr, MAI_E_OPENFAILED, nullptr},
  };
  Engine e;
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << c.path << " with " << (c.solution ? c.solution : "(null)"));
    if (c.path.empty()) continue;  // optional encoder missing
    ASSERT_EQ(e.connect(c.path, c.solution), c.status);
    if (c.status != MAI_OK) {
      EXPECT_EQ(e.state(), MAI_STATE_IDLE);
      continue;
    }
    EXPECT_EQ(e.state(), MAI_STATE_READY);
    EXPECT_EQ(solution_in_use(e), c.in_use);
    EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
    EXPECT_EQ(e.state(), MAI_STATE_IDLE);
  }
}

TEST(Connect, SecondConnectionAndBadHandles) {
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("tone.mp3")), MAI_OK);
  EXPECT_EQ(e.connect(fixtures::media("tone.wav")), MAI_E_ALREADYCONNECTED);
  EXPECT_EQ(solution_in_use(e), "mp3");  // the first is kept
  EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_E_NOTCONNECTED);
  EXPECT_EQ(MAIengine_AutoConnect(e.h, nullptr, 0, nullptr, 1, 0), MAI_E_INVALIDARG);
  const std::string path = fixtures::media("tone.mp3");
  for (u32 bad : {0u, e.h + 1000u}) {
    EXPECT_EQ(MAIengine_AutoConnect(bad, nullptr, 0, path.c_str(), 1, 0), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_Disconnect(bad, 0), MAI_E_INVALIDARG);
  }
}

TEST(Connect, ReleaseDisconnectsAndFreesTheHandle) {
  std::vector<u32> handles;
  for (u32 h = 0; MAIengine_Create(&h) == MAI_OK; h = 0) {
    ASSERT_NE(h, 0u);
    handles.push_back(h);
    ASSERT_LT(handles.size(), 64u) << "the instance table never ran out";
  }
  ASSERT_FALSE(handles.empty());
  const u32 h = handles.back();
  ASSERT_EQ(MAIengine_AutoConnect(h, nullptr, 0, fixtures::media("tone.mp3").c_str(), 1, 0), MAI_OK);
  EXPECT_EQ(MAIengine_Release(h), MAI_OK);
  u32 state = 0;
  EXPECT_EQ(MAIengine_GetState(h, &state, nullptr), MAI_E_INVALIDARG);  // gone
  EXPECT_EQ(MAIengine_Release(h), MAI_E_INVALIDARG);
  u32 again = 0;
  EXPECT_EQ(MAIengine_Create(&again), MAI_OK);  // the slot is free again
  EXPECT_EQ(MAIengine_GetState(again, &state, nullptr), MAI_OK);
  EXPECT_EQ(state, MAI_STATE_IDLE);
  handles.back() = again;
  for (u32 x : handles) EXPECT_EQ(MAIengine_Release(x), MAI_OK);
}

TEST(Connect, ProgramMayEndWithoutReleasing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::string path = fixtures::media("tone.wav");
  EXPECT_EXIT(
      {
        u32 h = 0;
        MAIengine_Create(&h);
        MAIengine_AutoConnect(h, nullptr, 0, path.c_str(), 1, 0);
        MAIengine_SendCommand(h, MAI_CMD_PLAY, MAI_RATE_NORMAL, 0, 0, 0, MAI_WAIT_FOREVER);
        MAIengine_WaitForState(h, MAI_STATE_PLAYING, 5000);
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
