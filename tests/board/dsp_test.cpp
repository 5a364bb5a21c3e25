// The OSS PCM output /dev/dsp: configuration requests, the WAV capture, and
// the pacing of writes by the playing clock.
#include "tests/board/board_test_util.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

namespace boardtest {
namespace {

using Clock = std::chrono::steady_clock;
using ms = std::chrono::milliseconds;

constexpr unsigned long kReset = 0x20005000, kSync = 0x20005001, kSpeed = 0xC0045002, kStereo = 0xC0045003,
                        kGetBlkSize = 0xC0045004, kSetFmt = 0xC0045005, kChannels = 0xC0045006,
                        kProfile = 0x80045017, kGetODelay = 0x40045017;
constexpr int kU8 = 0x08, kS16 = 0x10;

int ask(int fd, unsigned long request, int value) {
  EXPECT_EQ(::ioctl(fd, request, &value), 0) << std::hex << request;
  return value;
}

// 16-bit stereo at 44100 Hz, as the light-and-sound sessions play.
void setup_cd(int fd) {
  ASSERT_EQ(::ioctl(fd, kReset), 0);
  ASSERT_EQ(ask(fd, kSetFmt, 16), kS16);
  ask(fd, kProfile, 0);
  ASSERT_EQ(ask(fd, kStereo, 1), 1);
  ASSERT_EQ(ask(fd, kSpeed, 44100), 44100);
}

std::vector<std::uint8_t> ramp(std::size_t n) {
  std::vector<std::uint8_t> pcm(n);
  for (std::size_t i = 0; i < n; ++i) pcm[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return pcm;
}

std::uint32_t le(const std::string &s, std::size_t at, std::size_t n) {
  std::uint32_t v = 0;
  std::memcpy(&v, s.data() + at, n);
  return v;
}

class Dsp : public BoardTest {};

TEST_F(Dsp, RequestsAnswerWhatTheCodecCanDo) {
  struct Case {
    unsigned long request;
    int asked, granted;
  };
  const Case cases[] = {
      {kSetFmt, 0, kU8},      // query: an open starts at unsigned 8-bit
      {kSetFmt, 0x20, kS16},  // big-endian 16-bit: the codec's own order instead
      {kStereo, 0, 0},        {kStereo, 5, 1},           {kChannels, 1, 1},
      {kChannels, 6, 2},      {kSpeed, 100, 8000},       // the codec's rate range
      {kSpeed, 96000, 48000}, {kSpeed, 22050, 22050},
  };
  {
    Fd fd("/dev/dsp", O_WRONLY);
    for (const Case &c : cases) EXPECT_EQ(ask(fd, c.request, c.asked), c.granted) << std::hex << c.request << " " << c.asked;
    board::reset();
    int zero = 0;
    EXPECT_EQ(call([&] { return ::ioctl(fd, kSpeed, &zero); }).error, EINVAL);
    EXPECT_EQ(call([&] { return ::ioctl(fd, kSetFmt, nullptr); }).error, EFAULT);
    EXPECT_EQ(call([&] { return ::ioctl(fd, 0xC004500BUL, &zero); }).error, EINVAL);
    // One open at a time.
    const Call second = call([] { return ::open("/dev/dsp", O_WRONLY); });
    EXPECT_EQ(second.error, EBUSY);
    setup_cd(fd);
    EXPECT_EQ(ask(fd, kGetBlkSize, 0), 4096);
    EXPECT_EQ(ask(fd, kGetODelay, -1), 0);  // nothing queued
  }
  EXPECT_THAT(board::log_lines(),
              ElementsAre("dsp ioctl 0xc0045002 invalid", "dsp ioctl 0xc0045005 null", "dsp ioctl 0xc004500b unsupported",
                          "dsp open busy", "dsp reset", "dsp setfmt 0x10 0x10", "dsp profile 0", "dsp stereo 1 1",
                          "dsp speed 44100 44100", "dsp blksize 4096", "dsp written 0", "dsp close"));
  Fd again("/dev/dsp", O_RDONLY);
  EXPECT_EQ(ask(again, kSetFmt, 0), kU8);  // the OSS defaults again
  std::uint8_t byte = 0;
  EXPECT_EQ(call([&] { return ::write(again, &byte, 1); }).error, EBADF);  // the access mode is kept
  EXPECT_EQ(::read(again, &byte, 1), 0);                                   // no recording
}

TEST_F(Dsp, CaptureToWavWithoutPacing) {
  const std::string path = temp_path("capture.wav");
  board::set_dsp_speed(0);
  board::set_dsp_capture(path);
  const auto pcm = ramp(1 << 20);
  {
    Fd fd("/dev/dsp", O_WRONLY);
    setup_cd(fd);
    ASSERT_EQ(::write(fd, pcm.data(), 1000), 1000);
    // While the device is open the header already counts what was written.
    const std::string partial = read_file(path);
    ASSERT_EQ(partial.size(), 44u + 1000u);
    EXPECT_EQ(le(partial, 40, 4), 1000u);
    const auto t0 = Clock::now();
    ASSERT_EQ(::write(fd, pcm.data() + 1000, pcm.size() - 1000), static_cast<ssize_t>(pcm.size() - 1000));
    EXPECT_LT(Clock::now() - t0, ms(500));  // everything plays at once
    EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  }
  const std::string wav = read_file(path);
  ASSERT_EQ(wav.size(), 44u + pcm.size());
  EXPECT_EQ(wav.substr(0, 4), "RIFF");
  EXPECT_EQ(le(wav, 4, 4), 36u + pcm.size());
  EXPECT_EQ(wav.substr(8, 8), "WAVEfmt ");
  const std::uint32_t fmt[] = {le(wav, 16, 4), le(wav, 20, 2), le(wav, 22, 2), le(wav, 24, 4),
                               le(wav, 28, 4), le(wav, 32, 2), le(wav, 34, 2)};
  EXPECT_THAT(fmt, ElementsAre(16u, 1u, 2u, 44100u, 176400u, 4u, 16u));  // PCM, 2 channels, rate, bytes/s, frame, bits
  EXPECT_EQ(wav.substr(36, 4), "data");
  EXPECT_EQ(le(wav, 40, 4), pcm.size());
  EXPECT_EQ(std::memcmp(wav.data() + 44, pcm.data(), pcm.size()), 0);
  const board::DspCapture c = board::dsp_capture();
  EXPECT_EQ(c.format, kS16);
  EXPECT_EQ(c.channels, 2);
  EXPECT_EQ(c.rate, 44100);
  EXPECT_EQ(c.pcm, pcm);
  const auto lines = board::log_lines();
  EXPECT_THAT(std::vector<std::string>(lines.end() - 2, lines.end()), ElementsAre("dsp written 1048576", "dsp close"));
  ::unlink(path.c_str());
}

TEST_F(Dsp, WritesArePacedByThePlayingClock) {
  // Four times real time: 705600 bytes a second. The device buffer holds
  // 65536 bytes, so the first write returns at once and the next one waits
  // until its 70560 bytes (0.1 s) have made room.
  board::set_dsp_speed(4);
  Fd fd("/dev/dsp", O_WRONLY);
  setup_cd(fd);
  const auto pcm = ramp(65536 + 70560);
  const auto t0 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 65536), 65536);
  const auto t1 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data() + 65536, 70560), 70560);
  const auto t2 = Clock::now();
  const int delay = ask(fd, kGetODelay, 0);
  const double since = std::chrono::duration<double>(Clock::now() - t0).count();
  EXPECT_LT(t1 - t0, ms(90));  // the first write did not wait
  EXPECT_GE(t2 - t0, ms(99));  // the second waited for its 0.1 s
  EXPECT_LT(t2 - t0, ms(2000));
  // At most a buffer still to play; at least what was written less what
  // can have played since; in whole frames.
  EXPECT_LE(delay, 65536);
  EXPECT_GE(delay, static_cast<int>(65536 + 70560 - since * 705600) - 4);
  EXPECT_EQ(delay % 4, 0);
  // The queue drains on its own, a sync waits for it, a reset drops it.
  std::this_thread::sleep_for(ms(20));
  EXPECT_LT(ask(fd, kGetODelay, 0), delay);
  ASSERT_EQ(::ioctl(fd, kReset), 0);
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  setup_cd(fd);
  board::set_dsp_speed(10);  // 1764000 bytes a second: 52920 bytes are 30 ms
  const auto t3 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 52920), 52920);
  ASSERT_EQ(::ioctl(fd, kSync), 0);
  EXPECT_GE(Clock::now() - t3, std::chrono::microseconds(29900));
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
}

TEST_F(Dsp, NonBlockingWritesTakeWhatFits) {
  // The OSS defaults (8000 one-byte frames a second) played ten thousand
  // times slower: the buffer does not drain during the test.
  board::set_dsp_speed(0.0001);
  Fd fd("/dev/dsp", O_WRONLY | O_NONBLOCK);
  const auto pcm = ramp(100000);
  EXPECT_EQ(::write(fd, pcm.data(), pcm.size()), 65536);
  EXPECT_EQ(call([&] { return ::write(fd, pcm.data(), 4096); }).error, EAGAIN);
  EXPECT_EQ(board::dsp_capture().bytes, 65536u);
}

TEST_F(Dsp, WriterThreadAndControlThreadMeet) {
  // The session player writes from its worker while the console thread asks
  // for the delay and finally resets: every byte is accounted for.
  board::set_dsp_speed(20);
  Fd fd("/dev/dsp", O_WRONLY);
  setup_cd(fd);
  std::atomic<bool> stop{false};
  std::atomic<long> written{0};
  std::thread writer([&] {
    const auto piece = ramp(1024);
    for (int i = 0; i < 200 && !stop.load(); ++i) {
      const ssize_t n = ::write(fd, piece.data(), piece.size());
      if (n > 0) written += n;
    }
  });
  for (int i = 0; i < 20; ++i) {
    int delay = -1;
    EXPECT_EQ(::ioctl(fd, kGetODelay, &delay), 0);
    EXPECT_GE(delay, 0);
    std::this_thread::sleep_for(ms(2));
  }
  stop = true;
  writer.join();
  EXPECT_EQ(::ioctl(fd, kReset), 0);
  EXPECT_EQ(board::dsp_capture().bytes, static_cast<std::uint64_t>(written.load()));
}

}  // namespace
}  // namespace boardtest
