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

struct ConnectCase {
  const char *fixture;
  const char *solution;  // null: the engine chooses
  u32 status;
  const char *in_use;    // solution reported after connecting
};

const ConnectCase kCases[] = {
    // The engine's own choice follows container and codecs.
    {"xvid_mp3.avi", nullptr, MAI_OK, "avimpv4_mp3"},
    {"xvid_ac3.avi", nullptr, MAI_OK, "avimpv4_ac3"},
    {"divx5_mp3.avi", nullptr, MAI_OK, "divx_mp3"},
    {"divx3_mp2.avi", nullptr, MAI_OK, "divx_mpa"},
    {"mpeg2_mp2.mpg", nullptr, MAI_OK, "mpegps_mpa"},
    {"mpeg2_ac3.mpg", nullptr, MAI_OK, "mpegps_ac3"},
    {"wmv2_wma.wmv", nullptr, MAI_OK, "wmt8"},
    {"tone.wma", nullptr, MAI_OK, "wma"},
    {"tone.mp3", nullptr, MAI_OK, "mp3"},
    {"tone.mp2", nullptr, MAI_OK, "mpa"},
    {"tone.flac", nullptr, MAI_OK, "flac"},
    {"tone.ac3", nullptr, MAI_OK, "ac3"},
    {"tone.ogg", nullptr, MAI_OK, "ogg"},
    {"tone.wav", nullptr, MAI_OK, "pcm"},
    // Containers the engine has no parser for.
    {"clip.mp4", nullptr, MAI_E_UNKNOWNFORMAT, nullptr},
    {"clip.mkv", nullptr, MAI_E_UNKNOWNFORMAT, nullptr},
    {"clip.mp4", "avimpv4", MAI_E_UNKNOWNFORMAT, nullptr},
    // Named solutions: the family must match the container; the prefix
    // "pmi_" is accepted and dropped.
    {"xvid_mp3.avi", "avimpv4_mp3", MAI_OK, "avimpv4_mp3"},
    {"xvid_mp3.avi", "pmi_avimpv4_mp3", MAI_OK, "avimpv4_mp3"},
    {"xvid_ac3.avi", "avimpv4_spdif", MAI_OK, "avimpv4_spdif"},
    {"xvid_mp3.avi", "_mp3", MAI_OK, "_mp3"},
    {"mpeg1_mp2.mpg", "mpegps_mpa3", MAI_OK, "mpegps_mpa3"},
    {"wmv2_wma.wmv", "pmi_wmt78", MAI_OK, "wmt78"},
    {"tone.wav", "pcm", MAI_OK, "pcm"},
    {"tone_8k_mono.wav", "pmi_pcm", MAI_OK, "pcm"},
    {"xvid_mp3.avi", "mp3", MAI_E_UNKNOWNFORMAT, nullptr},
    {"mpeg2_mp2.mpg", "divx_mpa", MAI_E_UNKNOWNFORMAT, nullptr},
    {"tone.mp3", "flac", MAI_E_UNKNOWNFORMAT, nullptr},
    {"tone.flac", "pcm", MAI_E_UNKNOWNFORMAT, nullptr},
    {"wmv2_wma.wmv", "avimpv4", MAI_E_UNKNOWNFORMAT, nullptr},
    // Names the engine does not know at all.
    {"xvid_mp3.avi", "avimpv4_aac", MAI_E_UNSUPPORTED, nullptr},
    {"xvid_mp3.avi", "mpegps_dts", MAI_E_UNSUPPORTED, nullptr},
    {"xvid_mp3.avi", "pmi_", MAI_E_UNSUPPORTED, nullptr},
    {"xvid_mp3.avi", "", MAI_E_UNSUPPORTED, nullptr},
    {"tone.mp3", "pmi_pmi_mp3", MAI_E_UNSUPPORTED, nullptr},
};

TEST(Connect, SolutionsAgainstContainers) {
  Engine e;
  for (const ConnectCase &c : kCases) {
    SCOPED_TRACE(testing::Message() << c.fixture << " with " << (c.solution ? c.solution : "(null)"));
    const std::string path = fixtures::media(c.fixture);
    if (path.empty()) continue;  // optional encoder missing
    ASSERT_EQ(e.connect(path, c.solution), c.status);
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

TEST(Connect, MissingFileIsNotFound) {
  Engine e;
  const std::string missing = testing::TempDir() + "/pmx-missing.avi";
  EXPECT_EQ(e.connect(missing), MAI_E_FILENOTFOUND);
  EXPECT_EQ(e.connect(missing, "avimpv4_mp3"), MAI_E_FILENOTFOUND);
  EXPECT_EQ(e.state(), MAI_STATE_IDLE);
}

TEST(Connect, NonMediaFilesFailToOpen) {
  Engine e;
  const std::vector<u8> junk(4096, 0x5A);
  const std::string text = "This is a plain text file, not a media file.\n";
  const std::vector<u8> text_bytes(text.begin(), text.end());
  // A .txt name would let libavformat take the text for ANSI art.
  for (const std::string &path : {fixtures::temp_file("junk.avi", junk),
                                  fixtures::temp_file("notes.txt", text_bytes),
                                  fixtures::temp_file("empty.mp3", {})}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(e.connect(path), MAI_E_OPENFAILED);
    EXPECT_EQ(e.connect(path, "mp3"), MAI_E_OPENFAILED);
  }
  EXPECT_EQ(e.connect(testing::TempDir()), MAI_E_OPENFAILED);  // a directory
}

TEST(Connect, SecondConnectionIsRefusedAndFirstKept) {
  Engine e;
  ASSERT_EQ(e.connect(fixtures::media("tone.mp3")), MAI_OK);
  EXPECT_EQ(e.connect(fixtures::media("tone.wav")), MAI_E_ALREADYCONNECTED);
  EXPECT_EQ(solution_in_use(e), "mp3");
  EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_OK);
  EXPECT_EQ(MAIengine_Disconnect(e.h, 0), MAI_E_NOTCONNECTED);
  EXPECT_EQ(e.connect(fixtures::media("tone.wav")), MAI_OK);
  EXPECT_EQ(solution_in_use(e), "pcm");
}

TEST(Connect, ArgumentChecks) {
  Engine e;
  EXPECT_EQ(MAIengine_AutoConnect(e.h, nullptr, 0, nullptr, 1, 0), MAI_E_INVALIDARG);
  const std::string path = fixtures::media("tone.mp3");
  for (u32 bad : {0u, e.h + 1000u}) {
    EXPECT_EQ(MAIengine_AutoConnect(bad, nullptr, 0, path.c_str(), 1, 0), MAI_E_INVALIDARG);
    EXPECT_EQ(MAIengine_Disconnect(bad, 0), MAI_E_INVALIDARG);
  }
}

TEST(Connect, ReleaseDisconnectsAndFreesTheHandle) {
  std::vector<u32> handles;
  for (;;) {
    u32 h = 0;
    if (MAIengine_Create(&h) != MAI_OK) break;
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
