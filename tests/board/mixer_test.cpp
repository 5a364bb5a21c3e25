// The WM9712 codec behind /dev/mixer: power-on register values, the
// index/read/write requests and their log lines, read-only and status bits,
// the codec resets, speaker and beep.
#include "tests/board/board_test_util.h"

namespace boardtest {
namespace {

class Mixer : public BoardTest {};

struct RegisterValue {
  std::uint8_t index;
  std::uint16_t value;
};

TEST_F(Mixer, PowerOnValuesReadThroughTheDevice) {
  // From the WM9712 register map.
  const RegisterValue expected[] = {
      {0x00, 0x6174}, {0x02, 0x8000}, {0x04, 0x8000}, {0x06, 0x8000}, {0x08, 0x0F0F},
      {0x0A, 0xAAA0}, {0x0C, 0xC008}, {0x0E, 0x6808}, {0x10, 0xE808}, {0x12, 0xAAA0},
      {0x14, 0xAD00}, {0x16, 0x8000}, {0x18, 0xE808}, {0x1A, 0x3000}, {0x1C, 0x8000},
      {0x1E, 0x0000}, {0x20, 0x0000}, {0x22, 0x0000}, {0x24, 0x0000}, {0x26, 0x000F},
      {0x28, 0x0405}, {0x2A, 0x0410}, {0x2C, 0xBB80}, {0x2E, 0xBB80}, {0x32, 0xBB80},
      {0x3A, 0x2000}, {0x4C, 0xF83E}, {0x4E, 0xFFFF}, {0x56, 0xF83E}, {0x58, 0x0008},
      {0x5C, 0x0000}, {0x60, 0xB032}, {0x62, 0x3E00}, {0x76, 0x0006}, {0x78, 0x0001},
      {0x7C, 0x574D}, {0x7E, 0x4C12},
  };
  Fd fd("/dev/mixer", O_RDWR);
  ASSERT_GE(fd, 0);
  for (const auto &[index, value] : expected) {
    EXPECT_EQ(ac97_read(fd, index), value) << "register 0x" << std::hex << int(index);
  }
  // The in-process view agrees with the device for every register.
  for (int index = 0; index <= 0x7E; index += 2) {
    EXPECT_EQ(board::mixer_register(static_cast<std::uint8_t>(index)),
              ac97_read(fd, static_cast<std::uint8_t>(index)));
  }
}

TEST_F(Mixer, IndexIsFoldedIntoReadAndWriteLines) {
  {
    Fd fd("/dev/mixer", O_RDWR);
    ac97_write(fd, 0x04, 0x0E0E);
    EXPECT_EQ(ac97_read(fd, 0x04), 0x0E0E);
    EXPECT_EQ(ac97_read(fd, 0x26), 0x000F);
  }
  EXPECT_THAT(board::log_lines(),
              ElementsAre("mixer open", "mixer write 0x04 0x0e0e", "mixer read 0x04 0x0e0e",
                          "mixer read 0x26 0x000f", "mixer close"));
}

TEST_F(Mixer, RegistersBelongToTheCodecNotTheDescriptor) {
  {
    Fd fd("/dev/mixer", O_RDWR);
    ac97_write(fd, 0x18, 0x4808);
    ac97_write(fd, 0x22, 0x002F);
  }
  Fd again("/dev/mixer", O_RDWR);
  EXPECT_EQ(ac97_read(again, 0x18), 0x4808);
  EXPECT_EQ(ac97_read(again, 0x22), 0x002F);
  // The selected index is the driver's: a second descriptor reads it.
  Fd other("/dev/mixer", O_RDONLY);
  EXPECT_EQ(ioctl16(again, kAc97Index, 0x18), 0);
  std::uint16_t value = 0;
  EXPECT_EQ(::ioctl(other, kAc97Read, &value), 0);
  EXPECT_EQ(value, 0x4808);
}

struct WriteCase {
  std::uint8_t index;
  std::uint16_t written;
  std::uint16_t read_back;
  const char *why;
};

TEST_F(Mixer, ReadOnlyAndStatusBits) {
  const WriteCase cases[] = {
      {0x7C, 0x1234, 0x574D, "vendor id is read-only"},
      {0x7E, 0x0000, 0x4C12, "vendor id is read-only"},
      {0x28, 0xFFFF, 0x0405, "extended audio id is read-only"},
      {0x26, 0x0000, 0x000F, "all sections ready"},
      {0x26, 0x0100, 0x010E, "PR0: ADC not ready"},
      {0x26, 0x0300, 0x030C, "PR0+PR1: ADC and DAC not ready"},
      {0x26, 0x0400, 0x040B, "PR2: analogue mixer not ready"},
      {0x26, 0x0800, 0x0803, "PR3: mixer and reference not ready"},
      {0x26, 0x4000, 0x400F, "PR6 (headphone) leaves the status alone"},
      {0x26, 0x400F, 0x400F, "status bits cannot be written"},
      {0x24, 0x1CCF, 0x1CCF, "power-down 1 is plain read/write"},
      {0x4C, 0xF81C, 0xF81C, "GPIO configuration is read/write"},
  };
  Fd fd("/dev/mixer", O_RDWR);
  for (const WriteCase &c : cases) {
    ac97_write(fd, c.index, c.written);
    EXPECT_EQ(ac97_read(fd, c.index), c.read_back) << c.why;
  }
}

TEST_F(Mixer, WritingTheResetRegisterRestoresPowerOn) {
  Fd fd("/dev/mixer", O_RDWR);
  ac97_write(fd, 0x04, 0x1234);
  ac97_write(fd, 0x26, 0x4100);
  ac97_write(fd, 0x00, 0x0000);
  EXPECT_EQ(ac97_read(fd, 0x04), 0x8000);
  EXPECT_EQ(ac97_read(fd, 0x26), 0x000F);
}

TEST_F(Mixer, ResetRequestTakesANullArgument) {
  Fd fd("/dev/mixer", O_RDWR);
  ac97_write(fd, 0x02, 0x0000);
  ac97_write(fd, 0x1C, 0x0F0F);
  EXPECT_EQ(::ioctl(fd, kAc97Reset, nullptr), 0);
  EXPECT_EQ(board::mixer_register(0x02), 0x8000);
  EXPECT_EQ(board::mixer_register(0x1C), 0x8000);
  const auto lines = board::log_lines();
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines.back(), "mixer reset");
}

TEST_F(Mixer, SpeakerAndBeep) {
  Fd fd("/dev/mixer", O_RDWR);
  EXPECT_FALSE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Speaker, 1), 0);
  EXPECT_TRUE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Speaker, 0), 0);
  EXPECT_FALSE(board::speaker_enabled());
  EXPECT_EQ(ioctl16(fd, kAc97Beep, 100), 0);
  fd.close();
  EXPECT_THAT(board::log_lines(), ElementsAre("mixer open", "mixer speaker on", "mixer speaker off",
                                              "mixer beep 100", "mixer close"));
}

struct RefusedCase {
  unsigned long request;
  bool null_arg;
  std::uint16_t value;
  int error;
  const char *line;
};

TEST_F(Mixer, RefusedRequests) {
  const RefusedCase cases[] = {
      {kAc97Index, false, 0x81, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {kAc97Index, false, 0x80, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {kAc97Index, false, 0x03, EINVAL, "mixer ioctl 0x80026616 invalid"},
      {kAc97Write, true, 0, EFAULT, "mixer ioctl 0x80026615 null"},
      {kAc97Read, true, 0, EFAULT, "mixer ioctl 0x40026614 null"},
      {kAc97Speaker, true, 0, EFAULT, "mixer ioctl 0x80026618 null"},
      {0x40044d00, false, 0, EINVAL, "mixer ioctl 0x40044d00 unsupported"},  // OSS volume read
  };
  Fd fd("/dev/mixer", O_RDWR);
  ac97_write(fd, 0x04, 0x0303);
  for (const RefusedCase &c : cases) {
    board::reset();
    std::uint16_t value = c.value;
    const Call r = call([&] { return ::ioctl(fd, c.request, c.null_arg ? nullptr : &value); });
    EXPECT_EQ(r.result, -1) << c.line;
    EXPECT_EQ(r.error, c.error) << c.line;
    EXPECT_THAT(board::log_lines(), ElementsAre(c.line));
  }
}

TEST_F(Mixer, RefusedIndexKeepsTheSelection) {
  Fd fd("/dev/mixer", O_RDWR);
  EXPECT_EQ(ioctl16(fd, kAc97Index, 0x7C), 0);
  EXPECT_EQ(ioctl16(fd, kAc97Index, 0x7F), -1);
  std::uint16_t value = 0;
  EXPECT_EQ(::ioctl(fd, kAc97Read, &value), 0);
  EXPECT_EQ(value, 0x574D);
}

}  // namespace
}  // namespace boardtest
