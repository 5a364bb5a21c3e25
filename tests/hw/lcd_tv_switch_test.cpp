// LCD/TV output switch: the requests reaching the board driver and the
// position range.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "hw/lcd_tv_switch.h"
#include "sim/board/board.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

class OutputSwitch : public ::testing::Test {
 protected:
  void SetUp() override { board_fresh(); }
};

// Closing twice would close descriptor 0, so each test closes what it opened.
void close_driver() { quietly([] { i2cdrv_close(); }); }

std::vector<std::string> requests(const Outcome &r) { return lines_starting(r.log, "i2cdrv ioctl"); }

TEST_F(OutputSwitch, OpenReportsTheDescriptor) {
  const Outcome r = run(i2cdrv_open);
  EXPECT_EQ(r.result, 0);
  const std::string prefix = "i2cdrv Driver open Succes!! device number : ";
  ASSERT_EQ(r.out.rfind(prefix, 0), 0u) << r.out;
  size_t digits = 0;
  const int fd = std::stoi(r.out.substr(prefix.size()), &digits);
  EXPECT_EQ(r.out.substr(prefix.size() + digits), "\n");
  EXPECT_GE(fd, 0);
  // Opened without blocking.
  const int flags = fcntl(fd, F_GETFL);
  EXPECT_NE(flags, -1);
  EXPECT_NE(flags & O_NONBLOCK, 0);
  EXPECT_EQ(run(i2cdrv_close).result, 0);
}

TEST_F(OutputSwitch, OpenFailsWithoutTheDriver) {
  i2cdrv_absent(true);
  const Outcome r = run(i2cdrv_open);
  EXPECT_EQ(r.result, -1);
  EXPECT_EQ(r.out, "ERROR: irdrv kernel module could not be opened\n");
  i2cdrv_absent(false);
}

TEST_F(OutputSwitch, OutputSelection) {
  struct Case {
    const char *name;
    void (*op)();
    const char *out;
    const char *request;
  };
  const Case cases[] = {
      {"LCD", LCD_Out, "LCD__!!\n", "i2cdrv ioctl 0x2000740b"},
      {"composite", TV_Out_composite, "TV__!!\n", "i2cdrv ioctl 0x2000740c"},
      {"component", TV_Out_component, "TV_Out_component!!\n", "i2cdrv ioctl 0x2000740d"},
  };
  quietly([] { i2cdrv_open(); });
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome r = run_void(c.op);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(requests(r), std::vector<std::string>{c.request});
  }
  close_driver();
}

TEST_F(OutputSwitch, TvPosition) {
  struct Case {
    u32 x, y;
    s32 result;
    const char *out;
    std::vector<std::string> requests;
  };
  const Case cases[] = {
      {88, 0, 0, "TV Screen X Position = 58 Y Position = 0 Move\n", {"i2cdrv ioctl 0x80147410 x=0x58 y=0x00"}},
      {172, 40, 0, "TV Screen X Position = ac Y Position = 28 Move\n", {"i2cdrv ioctl 0x80147410 x=0xac y=0x28"}},
      {130, 17, 0, "TV Screen X Position = 82 Y Position = 11 Move\n", {"i2cdrv ioctl 0x80147410 x=0x82 y=0x11"}},
      {87, 0, 1, "TV Screen X Position = 57 Y Position = 0 Move\nTV_OutPositionMove error\n", {}},
      {173, 0, 1, "TV Screen X Position = ad Y Position = 0 Move\nTV_OutPositionMove error\n", {}},
      {100, 41, 1, "TV Screen X Position = 64 Y Position = 29 Move\nTV_OutPositionMove error\n", {}},
      {0xFFFFFFFF, 0, 1, "TV Screen X Position = ffffffff Y Position = 0 Move\nTV_OutPositionMove error\n", {}},
      {100, 0xFFFFFFFF, 1, "TV Screen X Position = 64 Y Position = ffffffff Move\nTV_OutPositionMove error\n", {}},
  };
  quietly([] { i2cdrv_open(); });
  for (const Case &c : cases) {
    SCOPED_TRACE(format("(%u, %u)", c.x, c.y));
    const Outcome r = run([&] { return TV_OutPositionMove(c.x, c.y); });
    EXPECT_EQ(r.result, c.result);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(requests(r), c.requests);
  }
  close_driver();
}

TEST_F(OutputSwitch, OpenAndCloseReachTheDriver) {
  const Outcome opened = run(i2cdrv_open);
  EXPECT_EQ(opened.log, std::vector<std::string>{"i2cdrv open"});
  const Outcome closed = run(i2cdrv_close);
  EXPECT_EQ(closed.result, 0);
  EXPECT_EQ(closed.out, "");
  EXPECT_EQ(closed.log, std::vector<std::string>{"i2cdrv close"});
}

TEST_F(OutputSwitch, RawWrite) {
  quietly([] { i2cdrv_open(); });
  const Outcome r = run([] { return i2c_Write(0x40, 0x12, 0xAB, 2); });
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(requests(r), std::vector<std::string>{"i2cdrv ioctl 0x80147400 dev=0x40 sub=0x12 data=0xab nbytes=2"});
  const auto writes = board::i2c_writes();
  ASSERT_EQ(writes.size(), 1u);
  EXPECT_EQ(writes[0].dev, 0x40u);
  EXPECT_EQ(writes[0].sub, 0x12u);
  EXPECT_EQ(writes[0].data, 0xABu);
  EXPECT_EQ(writes[0].nbytes, 2u);
  close_driver();
}

// The driver's answers are not looked at: a refusing driver changes
// neither the text nor the results.
TEST_F(OutputSwitch, RefusedRequestsGoUnnoticed) {
  quietly([] { i2cdrv_open(); });
  ASSERT_TRUE(board::set_failing("i2cdrv"));
  EXPECT_EQ(run_void(LCD_Out).out, "LCD__!!\n");
  EXPECT_EQ(run_void(TV_Out_composite).out, "TV__!!\n");
  EXPECT_EQ(run_void(TV_Out_component).out, "TV_Out_component!!\n");
  const Outcome moved = run([] { return TV_OutPositionMove(100, 10); });
  EXPECT_EQ(moved.result, 0);
  EXPECT_EQ(moved.out, "TV Screen X Position = 64 Y Position = a Move\n");
  EXPECT_EQ(requests(moved), std::vector<std::string>{"i2cdrv ioctl 0x80147410 failed"});
  EXPECT_EQ(run([] { return i2c_Write(1, 2, 3, 1); }).result, 0);
  EXPECT_EQ(board::video_output(), board::VideoOutput::lcd);
  close_driver();
}

// With the driver closed the requests go to descriptor 0 and nothing
// reaches the encoder.
TEST_F(OutputSwitch, ClosedDriver) {
  const Outcome opened = run(i2cdrv_open);
  const int number = std::stoi(opened.out.substr(opened.out.rfind(' ') + 1));
  quietly([] { i2cdrv_close(); });
  // Another user of the driver gets the number just given back; the
  // closed switch must not reach it.
  std::vector<int> others;
  for (int fd = -1; fd != number && others.size() < 64;) {
    fd = open("/dev/i2cdrv", O_RDWR);
    ASSERT_GE(fd, 0);
    others.push_back(fd);
  }
  ASSERT_EQ(others.back(), number);
  const Outcome r = run_void(TV_Out_component);
  EXPECT_EQ(r.out, "TV_Out_component!!\n");
  EXPECT_TRUE(r.log.empty()) << joined(r.log);
  EXPECT_EQ(board::video_output(), board::VideoOutput::lcd);
  for (int fd : others) close(fd);
}

}  // namespace
