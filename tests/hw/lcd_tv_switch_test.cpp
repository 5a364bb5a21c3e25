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

TEST_F(OutputSwitch, OpenAndClose) {
  i2cdrv_absent(true);
  const Outcome absent = run(i2cdrv_open);
  EXPECT_EQ(absent.result, -1);
  EXPECT_EQ(absent.out, "ERROR: irdrv kernel module could not be opened\n");
  i2cdrv_absent(false);

  const Outcome r = run(i2cdrv_open);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.log, std::vector<std::string>{"i2cdrv open"});
  const std::string prefix = "i2cdrv Driver open Succes!! device number : ";
  ASSERT_EQ(r.out.rfind(prefix, 0), 0u) << r.out;
  const int fd = std::stoi(r.out.substr(prefix.size()));
  EXPECT_EQ(r.out, prefix + std::to_string(fd) + "\n");
  EXPECT_NE(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);  // opened without blocking
  const Outcome closed = run(i2cdrv_close);
  EXPECT_EQ(closed.result, 0);
  EXPECT_EQ(closed.log, std::vector<std::string>{"i2cdrv close"});
}

TEST_F(OutputSwitch, Requests) {
  struct Case {
    std::function<s32()> op;
    s32 result;
    const char *out;
    std::vector<std::string> requests;
  };
  auto v = [](void (*f)()) { return [f] { return f(), 0; }; };
  auto move = [](u32 x, u32 y) { return [x, y] { return TV_OutPositionMove(x, y); }; };
  const Case cases[] = {
      {v(LCD_Out), 0, "LCD__!!\n", {"i2cdrv ioctl 0x2000740b"}},
      {v(TV_Out_composite), 0, "TV__!!\n", {"i2cdrv ioctl 0x2000740c"}},
      {v(TV_Out_component), 0, "TV_Out_component!!\n", {"i2cdrv ioctl 0x2000740d"}},
      {move(88, 0), 0, "TV Screen X Position = 58 Y Position = 0 Move\n", {"i2cdrv ioctl 0x80147410 x=0x58 y=0x00"}},
      {move(172, 40), 0, "TV Screen X Position = ac Y Position = 28 Move\n", {"i2cdrv ioctl 0x80147410 x=0xac y=0x28"}},
      {move(87, 0), 1, "TV Screen X Position = 57 Y Position = 0 Move\nTV_OutPositionMove error\n", {}},
      {move(173, 0), 1, "TV Screen X Position = ad Y Position = 0 Move\nTV_OutPositionMove error\n", {}},
      {move(100, 41), 1, "TV Screen X Position = 64 Y Position = 29 Move\nTV_OutPositionMove error\n", {}},
      {move(100, 0xFFFFFFFF), 1, "TV Screen X Position = 64 Y Position = ffffffff Move\nTV_OutPositionMove error\n",
       {}},
      {[] { return i2c_Write(0x40, 0x12, 0xAB, 2); }, 0, "",
       {"i2cdrv ioctl 0x80147400 dev=0x40 sub=0x12 data=0xab nbytes=2"}},
  };
  quietly([] { i2cdrv_open(); });
  for (const Case &c : cases) {
    SCOPED_TRACE(c.out);
    const Outcome r = run(c.op);
    EXPECT_EQ(r.result, c.result);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(requests(r), c.requests);
  }
  close_driver();
}

// The driver's answers are not looked at: a refusing driver changes
// neither the text nor the results.
TEST_F(OutputSwitch, RefusedRequestsGoUnnoticed) {
  quietly([] { i2cdrv_open(); });
  ASSERT_TRUE(board::set_failing("i2cdrv"));
  EXPECT_EQ(run([] { return LCD_Out(), 0; }).out, "LCD__!!\n");
  const Outcome moved = run([] { return TV_OutPositionMove(100, 10); });
  EXPECT_EQ(moved.result, 0);
  EXPECT_EQ(moved.out, "TV Screen X Position = 64 Y Position = a Move\n");
  EXPECT_EQ(requests(moved), std::vector<std::string>{"i2cdrv ioctl 0x80147410 failed"});
  EXPECT_EQ(run([] { return i2c_Write(1, 2, 3, 1); }).result, 0);
  EXPECT_EQ(board::video_output(), board::VideoOutput::lcd);
  close_driver();
}

// With the driver closed the requests go to descriptor 0 and nothing
// reaches the encoder, not even another user given the same number.
TEST_F(OutputSwitch, ClosedDriver) {
  const Outcome opened = run(i2cdrv_open);
  const int number = std::stoi(opened.out.substr(opened.out.rfind(' ') + 1));
  quietly([] { i2cdrv_close(); });
  std::vector<int> others;
  for (int fd = -1; fd != number && others.size() < 64;) {
    fd = open("/dev/i2cdrv", O_RDWR);
    ASSERT_GE(fd, 0);
    others.push_back(fd);
  }
  ASSERT_EQ(others.back(), number);
  const Outcome r = run([] { return TV_Out_component(), 0; });
  EXPECT_EQ(r.out, "TV_Out_component!!\n");
  EXPECT_TRUE(r.log.empty()) << joined(r.log);
  EXPECT_EQ(board::video_output(), board::VideoOutput::lcd);
  for (int fd : others) close(fd);
}

}  // namespace
