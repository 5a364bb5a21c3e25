// LCD/TV output switch: the requests reaching the board driver, what each
// prints, the position range, and the driver's descriptor. (The switch as
// the control API uses it, and a missing driver, are the API tests'.)
#include <gtest/gtest.h>

#include "hw/lcd_tv_switch.h"
#include "tests/hw/hw_test_support.h"

using namespace hwtest;

namespace {

TEST(OutputSwitch, Requests) {
  auto move = [](u32 x, u32 y) { return [x, y] { return TV_OutPositionMove(x, y); }; };
  const std::string bad = "TV_OutPositionMove error\n";
  const struct {
    std::function<s32()> op;
    s32 result;
    std::string out;
    Lines requests;
  } cases[] = {
      {[] { return TV_Out_component(), 0; }, 0, "TV_Out_component!!\n", {"i2cdrv ioctl 0x2000740d"}},
      // The picture origin: x 88..172, y 0..40, printed in hexadecimal.
      {move(88, 0), 0, "TV Screen X Position = 58 Y Position = 0 Move\n", {"i2cdrv ioctl 0x80147410 x=0x58 y=0x00"}},
      {move(172, 40), 0, "TV Screen X Position = ac Y Position = 28 Move\n", {"i2cdrv ioctl 0x80147410 x=0xac y=0x28"}},
      {move(87, 0), 1, "TV Screen X Position = 57 Y Position = 0 Move\n" + bad, {}},
      {move(173, 0), 1, "TV Screen X Position = ad Y Position = 0 Move\n" + bad, {}},
      {move(100, 41), 1, "TV Screen X Position = 64 Y Position = 29 Move\n" + bad, {}},
      {move(100, 0xFFFFFFFF), 1, "TV Screen X Position = 64 Y Position = ffffffff Move\n" + bad, {}},
      {[] { return i2c_Write(0x40, 0x12, 0xAB, 2); }, 0, "",
       {"i2cdrv ioctl 0x80147400 dev=0x40 sub=0x12 data=0xab nbytes=2"}},
  };
  board::reset();
  quietly([] { i2cdrv_open(); });
  for (const auto &c : cases) {
    SCOPED_TRACE(c.out);
    const Outcome r = run(c.op);
    EXPECT_EQ(r.result, c.result);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(lines_starting(r.log, {"i2cdrv ioctl"}), c.requests);
  }
  // The driver's answers are not looked at: a refusing driver changes
  // neither the text nor the results.
  ASSERT_TRUE(board::set_failing("i2cdrv"));
  EXPECT_EQ(run([] { return LCD_Out(), 0; }).out, "LCD__!!\n");
  const Outcome moved = run([] { return TV_OutPositionMove(100, 10); });
  EXPECT_EQ(moved.result, 0);
  EXPECT_EQ(moved.out, "TV Screen X Position = 64 Y Position = a Move\n");
  EXPECT_EQ(lines_starting(moved.log, {"i2cdrv ioctl"}), Lines{"i2cdrv ioctl 0x80147410 failed"});
  EXPECT_EQ(run([] { return i2c_Write(1, 2, 3, 1); }).result, 0);
  quietly([] { i2cdrv_close(); });  // closing twice would close descriptor 0
}

// Opened without blocking and its number printed; once closed, requests go
// to descriptor 0 and reach nothing, not even another user of that number.
TEST(OutputSwitch, OpenAndClose) {
  board::reset();
  const Outcome r = run(i2cdrv_open);
  EXPECT_EQ(r.result, 0);
  EXPECT_EQ(r.log, Lines{"i2cdrv open"});
  const std::string prefix = "i2cdrv Driver open Succes!! device number : ";
  ASSERT_TRUE(r.out.starts_with(prefix)) << r.out;
  const int number = std::stoi(r.out.substr(prefix.size()));
  EXPECT_EQ(r.out, prefix + std::to_string(number) + "\n");
  EXPECT_NE(fcntl(number, F_GETFL) & O_NONBLOCK, 0);
  const Outcome closed = run(i2cdrv_close);
  EXPECT_EQ(closed.result, 0);
  EXPECT_EQ(closed.log, Lines{"i2cdrv close"});

  std::vector<int> others;
  for (int fd = -1; fd != number && others.size() < 64;) {
    fd = open("/dev/i2cdrv", O_RDWR);
    ASSERT_GE(fd, 0);
    others.push_back(fd);
  }
  ASSERT_EQ(others.back(), number);
  const Outcome lost = run([] { return LCD_Out(), 0; });
  EXPECT_EQ(lost.out, "LCD__!!\n");
  EXPECT_TRUE(lost.log.empty()) << joined(lost.log);
  for (int fd : others) close(fd);
}

}  // namespace
