// The WM9712 codec behind /dev/mixer: power-on values, the index/read/write
// requests and their log lines, read-only and status bits, the resets,
// speaker, beep and refused requests.
#include "tests/board/board_test_util.h"

namespace boardtest {
namespace {

class Mixer : public BoardTest {};

TEST_F(Mixer, PowerOnValuesAndTheLogLines) {
  // The registers the codec control depends on.
  const std::pair<std::uint8_t, std::uint16_t> expected[] = {
      {0x00, 0x6174}, {0x04, 0x8000}, {0x0A, 0xAAA0}, {0x18, 0xE808}, {0x26, 0x000F},
      {0x2A, 0x0410}, {0x4C, 0xF83E}, {0x56, 0xF83E}, {0x7C, 0x574D}, {0x7E, 0x4C12},
  };
  {
    Fd fd("/dev/mixer", O_RDWR);
    ASSERT_GE(fd, 0);
    for (const auto &[index, value] : expected) EXPECT_EQ(ac97_read(fd, index), value) << int(index);
    // The in-process view agrees with the device for every register.
    for (int index = 0; index <= 0x7E; index += 2) {
      EXPECT_EQ(board::mixer_register(static_cast<std::uint8_t>(index)), ac97_read(fd, static_cast<std::uint8_t>(index)));
    }
    board::reset();
    ac97_write(fd, 0x04, 0x0E0E);
    EXPECT_EQ(ac97_read(fd, 0x04), 0x0E0E);
    // The selected index is the driver's, not the descriptor's.
    Fd other("/dev/mixer", O_RDONLY);
    EXPECT_EQ(ioctl16(fd, kAc97Index, 0x26), 0);
    std::uint16_t value = 0;
    EXPECT_EQ(::ioctl(other, kAc97Read, &value), 0);
    EXPECT_EQ(value, 0x000F);
  }
  // The index is folded into the read and write lines.
  EXPECT_THAT(board::log_lines(), ElementsAre("mixer write 0x04 0x0e0e", "mixer read 0x04 0x0e0e", "mixer open",
                                              "mixer read 0x26 0x000f", "mixer close", "mixer close"));
  Fd again("/dev/mixer", O_RDWR);
  EXPECT_EQ(ac97_read(again, 0x04), 0x0E0E);  // registers outlive the descriptor
}

TEST_F(Mixer, ReadOnlyAndStatusBits) {
  struct Case {
    std::uint8_t index;
    std::uint16_t written, read_back;
    const char *why;
  };
  const Case cases[] = {
      {0x7C, 0x1234, 0x574D, "vendor id is read-only"},
      {0x28, 0xFFFF, 0x0405, "extended audio id is read-only"},
      {0x26, 0x0300, 0x030C, "PR0+PR1: ADC and DAC not ready"},
      {0x26, 0x0400, 0x040B, "PR2: analogue mixer not ready"},
      {0x26, 0x0800, 0x0803, "PR3: mixer and reference not ready"},
      {0x26, 0x4000, 0x400F, "PR6 (headphone) leaves the status alone"},
      {0x26, 0x400F, 0x400F, "status bits cannot be written"},
      {0x24, 0x1CCF, 0x1CCF, "power-down 1 is plain read/write"},
  };
  Fd fd("/dev/mixer", O_RDWR);
  for (const Case &c : cases) {
    ac97_write(fd, c.index, c.written);
    EXPECT_EQ(ac97_read(fd, c.index), c.read_back) << c.why;
  }
}

TEST_F(Mixer, ResetsSpeakerAndBeep) {
  Fd fd("/dev/mixer", O_RDWR);
  ac97_write(fd, 0x04, 0x1234);
  ac97_write(fd, 0x26, 0x4100);
  ac97_write(fd, 0x00, 0x0000);  // writing the reset register
  EXPECT_EQ(ac97_read(fd, 0x04), 0x8000);
  EXPECT_EQ(ac97_read(fd, 0x26), 0x000F);
  ac97_write(fd, 0x1C, 0x0F0F);
  board::reset();
  EXPECT_EQ(::ioctl(fd, kAc97Reset, nullptr), 0);  // the reset request takes no argument
  EXPECT_EQ(board::mixer_register(0x1C), 0x8000);
  EXPECT_FALSE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Speaker, 1), 0);
  EXPECT_TRUE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Speaker, 0), 0);
  EXPECT_FALSE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Beep, 100), 0);
  EXPECT_THAT(board::log_lines(), ElementsAre("mixer reset", "mixer speaker on", "mixer speaker off", "mixer beep 100"));
}

TEST_F(Mixer, RefusedRequests) {
  struct Case {
    unsigned long request;
    bool null_arg;
    std::uint16_t value;
    int error;
    const char *line;
  };
  const Case cases[] = {
      {kAc97Index, false, 0x80, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {kAc97Index, false, 0x03, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {kAc97Write, true, 0, EFAULT, "mixer ioctl 0x80026615 null"},
      {kAc97Read, true, 0, EFAULT, "mixer ioctl 0x40026614 null"},
      {0x40044d00, false, 0, EINVAL, "mixer ioctl 0x40044d00 unsupported"},  // OSS volume read
  };
  Fd fd("/dev/mixer", O_RDWR);
  // A refused index keeps the selection.
  EXPECT_EQ(ioctl16(fd, kAc97Index, 0x7C), 0);
  EXPECT_EQ(ioctl16(fd, kAc97Index, 0x7F), -1);
  std::uint16_t value = 0;
  EXPECT_EQ(::ioctl(fd, kAc97Read, &value), 0);
  EXPECT_EQ(value, 0x574D);
  for (const Case &c : cases) {
    board::reset();
    std::uint16_t value = c.value;
    const Call r = call([&] { return ::ioctl(fd, c.request, c.null_arg ? nullptr : &value); });
    EXPECT_EQ(r.result, -1) << c.line;
    EXPECT_EQ(r.error, c.error) << c.line;
    EXPECT_THAT(board::log_lines(), ElementsAre(c.line));
  }
}

}  // namespace
}  // namespace boardtest
