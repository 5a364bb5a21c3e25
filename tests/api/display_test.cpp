// Video display control on the host engine and the virtual board: the
// automatic fit, position and size, colour through the media acceleration
// engine, and the output switch.
#include <array>
#include <string>
#include <vector>

#include "hw/lcd_tv_switch.h"
#include "sim/board/board.h"
#include "tests/api/api_fixture.h"

namespace {

using namespace api_test;

class Display : public ApiTest {
 protected:
  void SetUp() override {
    board::reset();
    ApiTest::SetUp();
  }
  void TearDown() override {
    ApiTest::TearDown();
    board::reset();
  }
};

std::array<u32, PMX_DISPLAY_WORDS> engine_display() {
  std::array<u32, PMX_DISPLAY_WORDS> block{};
  EXPECT_EQ(MAIengine_GetParam(pmx.engine.load(), MAI_PARAM_DISPLAY, block.data(), MAI_PARAM_DISPLAY_SIZE), 0u);
  return block;
}

// x, y, width, height and the chosen flags of the engine's display block.
using Window = std::array<u32, 5>;
Window window(u32 flags = DISPLAY_CENTER | DISPLAY_POSITION | DISPLAY_DESTRECT) {
  const auto b = engine_display();
  return {b[DISPLAY_X], b[DISPLAY_Y], b[DISPLAY_WIDTH], b[DISPLAY_HEIGHT], b[DISPLAY_FLAGS] & flags};
}

bool logged(const std::string &line) {
  for (const std::string &l : board::log_lines())
    if (l == line) return true;
  return false;
}

// The engine's aspect parts that the fit pairs: the final picture's
// horizontal part and the coded image's vertical part.
std::pair<u32, u32> engine_aspect_parts() {
  std::array<u8, MAI_VIDEO_MEDIATYPE_SIZE> rec{};
  EXPECT_EQ(MAIengine_GetVideoMediaType(pmx.engine.load(), rec.data(), 0), 0u);
  return {LittleEndian2int32u(rec.data() + MAI_VMT_FINAL_PAR_H), LittleEndian2int32u(rec.data() + MAI_VMT_PAR_V)};
}

TEST_F(Display, AutomaticFit) {
  struct Case {
    const char *file;
    u32 tv_out;
    u32 width, height;          // the prescan's picture size
    u32 aspect_h, aspect_v;     // what the engine reports for the file
    u32 fit_width, fit_height;
  };
  const Case cases[] = {
      // Square pixels, 4:3 picture: the engine says 4 and 1.
      {"xvid_mp3.avi", 0, 320, 240, 4, 1, 480, 90},     // h = 240 / 4, then full width
      {"xvid_mp3.avi", 0, 480, 272, 4, 1, 480, 68},     // not wider than the LCD
      {"xvid_mp3.avi", 0, 640, 480, 4, 1, 480, 90},     // wider: w = 4 x 640
      {"xvid_mp3.avi", 0, 100, 1000, 4, 1, 108, 272},   // tall: full height
      {"xvid_mp3.avi", 1, 320, 240, 4, 1, 640, 120},
      {"xvid_mp3.avi", 1, 720, 576, 4, 1, 640, 128},
      {"xvid_mp3.avi", 0, 0, 0, 4, 1, 0, 272},          // no size known
      // 352x240 with 10:11 pixels shown at 4:3: the engine says 4 and 11.
      {"ntsc_wide.avi", 0, 352, 240, 4, 11, 145, 272},  // h = 11 x 240 / 4
      {"ntsc_wide.avi", 1, 352, 240, 4, 11, 256, 480},
      {"ntsc_wide.avi", 0, 2000, 240, 4, 11, 480, 158}, // w = 727
  };
  for (const Case &c : cases) {
    script_avi(c.width, c.height);
    ASSERT_EQ(open(fixtures::media(c.file)), PMX_OK) << c.file;
    EXPECT_EQ(engine_aspect_parts(), std::make_pair(c.aspect_h, c.aspect_v)) << c.file;
    pmx.tv_out = c.tv_out;
    // A position set before is given up.
    run([] { return pmx_set_video_pos(33, 44); });
    std::string out;
    EXPECT_EQ(run(media_setvideo_auto_display, &out), 0u);
    const std::string what = std::string(c.file) + " " + std::to_string(c.width) + "x" + std::to_string(c.height) +
                             (c.tv_out ? " tv" : " lcd");
    const std::string limits = c.tv_out ? "max xsize =640,max ysize =480 \n" : "max xsize =480,max ysize =272 \n";
    EXPECT_EQ(out, limits + "dstXsize[" + std::to_string(c.fit_width) + "],dstYsize[" +
                       std::to_string(c.fit_height) + "]\n")
        << what;
    EXPECT_EQ(window(DISPLAY_DESTRECT | DISPLAY_CENTER),
              (Window{0, 0, c.fit_width, c.fit_height, DISPLAY_DESTRECT | DISPLAY_CENTER}))
        << what;
    run(pmx_close);
  }
}

TEST_F(Display, AutomaticFitStatuses) {
  // Without a file: 11 as it is, 10 once translated.
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_NOTCONNECTED);
  EXPECT_EQ(pmx_set_video_autosize(), PMX_NO_FILE_OPEN);
  // A file without video.
  ASSERT_EQ(open(fixtures::media("tone.wav")), PMX_OK);
  std::string out;
  EXPECT_EQ(run(media_setvideo_auto_display, &out), MAI_E_NOSTREAM);
  EXPECT_EQ(out, "max xsize =480,max ysize =272 \nMai Get Video info failed: 9\n");
  EXPECT_EQ(run(pmx_set_video_autosize), PMX_UNKNOWN);
  run(pmx_close);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(media_setvideo_auto_display(), MAI_E_FAIL);
  EXPECT_EQ(pmx_set_video_autosize(), PMX_UNKNOWN);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
}

TEST_F(Display, PositionAndSize) {
  EXPECT_EQ(pmx_set_video_pos(1, 2), PMX_NO_FILE_OPEN);
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NO_FILE_OPEN);
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  ASSERT_EQ(run(media_setvideo_auto_display), 0u);  // 480 x 90, centred

  struct Case {
    bool size;  // else position
    u32 a, b;
    const char *printed;
    u32 x, y, width, height;  // the engine's block afterwards
  };
  const Case cases[] = {
      {false, 10, 20, "video pos : xsize =480,ysize = 90\n", 10, 20, 480, 90},
      {true, 200, 100, "", 10, 20, 200, 100},
      // The TV's limits, on the LCD too.
      {true, 641, 50, " media_set_videoscale() warning MAX_WIDTH=[640] width:[641]\n", 10, 20, 200, 50},  // the width is kept
      {true, 300, 481, " media_set_videoscale() warning _MAX_HEIGHT=[480] height:[481]\n", 10, 20, 300, 50},
      {true, 0, 0,
       " media_set_videoscale() warning MAX_WIDTH=[640] width:[0]\n"
       " media_set_videoscale() warning _MAX_HEIGHT=[480] height:[0]\n",
       10, 20, 300, 50},
      {false, 5000, 0, "video pos : xsize =300,ysize = 50\n", 5000, 0, 300, 50},
  };
  for (const Case &c : cases) {
    std::string out;
    const s32 status = run([&] { return c.size ? pmx_set_video_size(c.a, c.b) : pmx_set_video_pos(c.a, c.b); }, &out);
    const std::string what = std::string(c.size ? "size " : "pos ") + std::to_string(c.a) + "," + std::to_string(c.b);
    EXPECT_EQ(status, PMX_OK) << what;
    EXPECT_EQ(out, c.printed) << what;
    // Placed from the corner: no centring, destination and position set.
    EXPECT_EQ(window(), (Window{c.x, c.y, c.width, c.height, DISPLAY_POSITION | DISPLAY_DESTRECT})) << what;
  }
  run(pmx_close);
  ASSERT_EQ(pmx_release(), PMX_OK);
  EXPECT_EQ(pmx_set_video_pos(1, 2), PMX_NOT_INITIALIZED);
  EXPECT_EQ(pmx_set_video_size(100, 100), PMX_NOT_INITIALIZED);
  ASSERT_EQ(pmx_init(on_error, on_eos), PMX_OK);
}

TEST_F(Display, ColourGoesToTheMediaAccelerationEngine) {
  constexpr std::array<u32, 12> base = {1136, 0, 1634, 1104, 4497, 4928, 1280, 2065, 0, 61969, 2169, 61107};
  struct Case {
    u32 r, g, b;
    u32 red, green, blue;  // the three gains sent
  };
  const Case cases[] = {
      {50, 50, 50, 1136, 1104, 1280}, {25, 75, 60, 1036, 1204, 1320}, {101, 5000, 0xFFFFFFFF, 1336, 1304, 1480},
  };
  for (const Case &c : cases) {
    std::string out;
    EXPECT_EQ(run([&] { return pmx_set_video_color(c.r, c.g, c.b); }, &out), PMX_OK);
    EXPECT_EQ(out, "");
    std::array<u32, 12> expected = base;
    expected[0] = c.red;
    expected[3] = c.green;
    expected[6] = c.blue;
    ASSERT_FALSE(board::mae_conversions().empty());
    EXPECT_EQ(board::mae_conversions().back(), expected) << c.r << "," << c.g << "," << c.b;
  }
  // Opened and closed for every request.
  EXPECT_TRUE(logged("mae close"));

  board::set_absent("mae");
  std::string out;
  EXPECT_EQ(run([] { return pmx_set_video_color(50, 50, 50); }, &out), PMX_OPEN_FAILED);
  EXPECT_EQ(out, "pmx_set_video_color: Failed to open mae_driver: -1\n");
  board::set_absent("");
  board::set_failing("mae");
  const size_t sent = board::mae_conversions().size();
  EXPECT_EQ(run([] { return pmx_set_video_color(50, 50, 50); }, &out), PMX_FAILED);
  EXPECT_EQ(out, "pmx_set_video_color: Failed to send AU1XXXMAE_CSC: -1\n");
  EXPECT_EQ(board::mae_conversions().size(), sent);
}

TEST_F(Display, DirectionSwitchesTheOutput) {
  struct Case {
    u32 direction;
    board::VideoOutput output;
    u32 tv_out;
    const char *request;
    const char *printed;
  };
  const Case cases[] = {
      {2, board::VideoOutput::composite, 1, "i2cdrv ioctl 0x2000740c", "TV__!!\n"},
      {1, board::VideoOutput::lcd, 0, "i2cdrv ioctl 0x2000740b", "LCD__!!\n"},
      {3, board::VideoOutput::composite, 1, "i2cdrv ioctl 0x2000740c", "TV__!!\n"},
      {4, board::VideoOutput::component, 1, "i2cdrv ioctl 0x2000740d", "TV_Out_component!!\n"},
      {5, board::VideoOutput::lcd, 0, "i2cdrv ioctl 0x2000740b", "LCD__!!\n"},
      {6, board::VideoOutput::lcd, 0, "i2cdrv ioctl 0x2000740b", "LCD__!!\n"},
  };
  for (const Case &c : cases) {
    board::reset();
    pmx.running = 1;
    pmx.display_set = 1;
    std::string out;
    EXPECT_EQ(run([&] { return pmx_set_video_direction(c.direction); }, &out), PMX_OK) << c.direction;
    EXPECT_TRUE(has(out, "i2cdrv Driver open Succes!! device number : ")) << out;
    EXPECT_TRUE(has(out, c.printed)) << c.direction << "\n" << out;
    EXPECT_EQ(board::video_output(), c.output) << c.direction;
    EXPECT_EQ(pmx.tv_out, c.tv_out) << c.direction;
    EXPECT_EQ(board::log_lines(), (std::vector<std::string>{"i2cdrv open", c.request, "i2cdrv close"}))
        << c.direction;
    EXPECT_EQ(pmx.running.load(), 0);
    EXPECT_EQ(pmx.display_set, 0);
  }
}

TEST_F(Display, DirectionRefusals) {
  board::reset();
  for (const u32 direction : {0u, 7u, 100u}) EXPECT_EQ(pmx_set_video_direction(direction), PMX_INVALID_ARG);
  for (const u32 state : {PMX_STATE_PLAYING, PMX_STATE_PAUSED}) {
    pmx.state = state;
    EXPECT_EQ(pmx_set_video_direction(2), PMX_WRONG_STATE);
  }
  EXPECT_TRUE(board::log_lines().empty());
  pmx.state = PMX_STATE_STOPPED;
  board::set_absent("i2cdrv");
  pmx.display_set = 1;
  std::string out;
  EXPECT_EQ(run([] { return pmx_set_video_direction(2); }, &out), PMX_FAILED);
  EXPECT_EQ(out, "ERROR: irdrv kernel module could not be opened\nTV Out Device Driver Open fail");
  EXPECT_EQ(pmx.display_set, 1);
  EXPECT_EQ(pmx.tv_out, 0u);
}

// After a switch the next play fits the picture to the new screen.
TEST_F(Display, NextPlayFitsTheNewScreen) {
  script_avi(320, 240);
  ASSERT_EQ(open(fixtures::media("xvid_mp3.avi")), PMX_OK);
  std::string out;
  ASSERT_EQ(run(pmx_play, &out), PMX_OK);
  EXPECT_TRUE(has(out, "max xsize =480,max ysize =272 \ndstXsize[480],dstYsize[90]\n")) << out;
  ASSERT_EQ(run(pmx_pause), PMX_OK);
  EXPECT_EQ(pmx_set_video_direction(4), PMX_WRONG_STATE);
  ASSERT_EQ(run(pmx_stop), PMX_OK);
  ASSERT_EQ(run([] { return pmx_set_video_direction(4); }), PMX_OK);
  ASSERT_EQ(run(pmx_play, &out), PMX_OK);
  EXPECT_TRUE(has(out, "max xsize =640,max ysize =480 \ndstXsize[640],dstYsize[120]\n")) << out;
}

TEST_F(Display, TvPosition) {
  board::reset();
  pmx.tv_out = 0;
  EXPECT_EQ(pmx_set_tvout_position(100, 20), PMX_WRONG_STATE);
  EXPECT_TRUE(board::log_lines().empty());

  pmx.tv_out = 1;
  std::string out;
  EXPECT_EQ(run([] { return pmx_set_tvout_position(100, 20); }, &out), PMX_OK);
  EXPECT_TRUE(has(out, "TV Screen X Position = 64 Y Position = 14 Move\n")) << out;
  EXPECT_EQ(board::log_lines(),
            (std::vector<std::string>{"i2cdrv open", "i2cdrv ioctl 0x80147410 x=0x64 y=0x14", "i2cdrv close"}));
  EXPECT_EQ(std::make_pair(board::tv_position().x, board::tv_position().y), std::make_pair(100u, 20u));

  // Refused by the switch: the driver is left open.
  board::reset();
  EXPECT_EQ(run([] { return pmx_set_tvout_position(87, 0); }, &out), PMX_FAILED);
  EXPECT_TRUE(has(out, "TV_OutPositionMove error\n")) << out;
  EXPECT_EQ(board::log_lines(), std::vector<std::string>{"i2cdrv open"});
  i2cdrv_close();

  board::set_absent("i2cdrv");
  EXPECT_EQ(run([] { return pmx_set_tvout_position(100, 20); }), PMX_FAILED);
}

}  // namespace
