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
using namespace std::chrono_literals;

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

class Dsp : public BoardTest {};

// Each open starts at U8 mono 8000 Hz; requests grant what the codec can do
// and are logged as asked and granted; bad arguments, unknown requests and
// a second open are refused; the access mode is kept; reads give nothing.
TEST_F(Dsp, RequestsAnswerWhatTheCodecCanDo) {
  const struct {
    unsigned long request;
    int asked, granted;
  } cases[] = {
      {kSetFmt, 0, kU8},      {kSetFmt, 0x20, kS16},  // a query; big-endian 16-bit gets the codec's own order
      {kStereo, 0, 0},        {kStereo, 5, 1},        {kChannels, 1, 1}, {kChannels, 6, 2},
      {kSpeed, 100, 8000},    {kSpeed, 96000, 48000}, {kSpeed, 22050, 22050},
  };
  {
    Fd fd("/dev/dsp", O_WRONLY);
    for (const auto &c : cases)
      EXPECT_EQ(ask(fd, c.request, c.asked), c.granted) << std::hex << c.request << " " << c.asked;
    board::reset();
    int zero = 0;
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, kSpeed, &zero); }), EINVAL);
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, kSetFmt, nullptr); }), EFAULT);
    EXPECT_EQ(error_of([&] { return ::ioctl(fd, 0xC004500BUL, &zero); }), EINVAL);
    EXPECT_EQ(error_of([] { return ::open("/dev/dsp", O_WRONLY); }), EBUSY);
    setup_cd(fd);
    EXPECT_EQ(ask(fd, kGetBlkSize, 0), 4096);
    EXPECT_EQ(ask(fd, kGetODelay, -1), 0);  // nothing queued
  }
  EXPECT_THAT(board::log_lines(),
              ElementsAre("dsp ioctl 0xc0045002 invalid", "dsp ioctl 0xc0045005 null",
                          "dsp ioctl 0xc004500b unsupported",
                          "dsp open busy", "dsp reset", "dsp setfmt 0x10 0x10", "dsp profile 0", "dsp stereo 1 1",
                          "dsp speed 44100 44100", "dsp blksize 4096", "dsp written 0", "dsp close"));
  Fd again("/dev/dsp", O_RDONLY);
  EXPECT_EQ(ask(again, kSetFmt, 0), kU8);
  std::uint8_t byte = 0;
  EXPECT_EQ(error_of([&] { return ::write(again, &byte, 1); }), EBADF);
  EXPECT_EQ(::read(again, &byte, 1), 0);
}

std::uint32_t le(const std::string &s, std::size_t at, std::size_t n) {
  std::uint32_t v = 0;
  std::memcpy(&v, s.data() + at, n);
  return v;
}

// Without pacing everything plays at once; the capture file is a WAV file in
// the format of the first write whose sizes are right while the device is
// still open; the in-memory capture and the close line agree.
TEST_F(Dsp, CaptureToWavWithoutPacing) {
  const std::string path = temp_path("capture.wav");
  board::set_dsp_speed(0);
  board::set_dsp_capture(path);
  const auto pcm = ramp(1 << 20);
  {
    Fd fd("/dev/dsp", O_WRONLY);
    setup_cd(fd);
    ASSERT_EQ(::write(fd, pcm.data(), 1000), 1000);
    const std::string partial = read_file(path);
    ASSERT_EQ(partial.size(), 44u + 1000u);
    EXPECT_EQ(le(partial, 40, 4), 1000u);
    const auto t0 = Clock::now();
    ASSERT_EQ(::write(fd, pcm.data() + 1000, pcm.size() - 1000), static_cast<ssize_t>(pcm.size() - 1000));
    EXPECT_LT(Clock::now() - t0, 2s);  // paced, it would take 6 s
    EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  }
  const std::string wav = read_file(path);
  ASSERT_EQ(wav.size(), 44u + pcm.size());
  EXPECT_EQ(wav.substr(0, 4) + wav.substr(8, 8) + wav.substr(36, 4), "RIFFWAVEfmt data");
  // RIFF size, fmt size, PCM, channels, rate, bytes per second, frame, bits, data size.
  const std::uint32_t header[] = {le(wav, 4, 4),  le(wav, 16, 4), le(wav, 20, 2), le(wav, 22, 2), le(wav, 24, 4),
                                  le(wav, 28, 4), le(wav, 32, 2), le(wav, 34, 2), le(wav, 40, 4)};
  EXPECT_THAT(header, ElementsAre(36u + pcm.size(), 16u, 1u, 2u, 44100u, 176400u, 4u, 16u, pcm.size()));
  EXPECT_EQ(std::memcmp(wav.data() + 44, pcm.data(), pcm.size()), 0);
  EXPECT_EQ(board::dsp_capture().pcm, pcm);
  EXPECT_EQ(board::log_lines().end()[-2], "dsp written 1048576");
  ::unlink(path.c_str());
}

// At half real time (88200 bytes a second) a write returns once what it
// queued fits in the 65536-byte buffer: the first at once, the second when
// its 8820 bytes (0.1 s) have made room. GETODELAY tells what is still
// queued, in whole frames; the queue drains on its own, a sync waits for
// it and a reset drops it.
TEST_F(Dsp, WritesArePacedByThePlayingClock) {
  board::set_dsp_speed(0.5);
  Fd fd("/dev/dsp", O_WRONLY);
  setup_cd(fd);
  const auto pcm = ramp(65536 + 8820);
  const auto t0 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 65536), 65536);
  const auto t1 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data() + 65536, 8820), 8820);
  const auto t2 = Clock::now();
  const int delay = ask(fd, kGetODelay, 0);
  const double since = std::chrono::duration<double>(Clock::now() - t0).count();
  EXPECT_LT(t1 - t0, 400ms);  // waiting for its own sound would take 743 ms
  EXPECT_GE(t2 - t0, 99ms);
  EXPECT_LT(t2 - t0, 5s);
  EXPECT_LE(delay, 65536);
  EXPECT_GE(delay, static_cast<int>(65536 + 8820 - since * 88200) - 4);
  EXPECT_EQ(delay % 4, 0);
  std::this_thread::sleep_for(20ms);
  EXPECT_LT(ask(fd, kGetODelay, 0), delay);
  ASSERT_EQ(::ioctl(fd, kReset), 0);
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
  setup_cd(fd);
  board::set_dsp_speed(10);  // 1764000 bytes a second: 52920 bytes are 30 ms
  const auto t3 = Clock::now();
  ASSERT_EQ(::write(fd, pcm.data(), 52920), 52920);
  ASSERT_EQ(::ioctl(fd, kSync), 0);
  EXPECT_GE(Clock::now() - t3, 29900us);
  EXPECT_EQ(ask(fd, kGetODelay, -1), 0);
}

// Non-blocking writes take what fits in the buffer, then EAGAIN. The OSS
// defaults played ten thousand times slower: nothing drains meanwhile.
TEST_F(Dsp, NonBlockingWritesTakeWhatFits) {
  board::set_dsp_speed(0.0001);
  Fd fd("/dev/dsp", O_WRONLY | O_NONBLOCK);
  const auto pcm = ramp(100000);
  EXPECT_EQ(::write(fd, pcm.data(), pcm.size()), 65536);
  EXPECT_EQ(error_of([&] { return ::write(fd, pcm.data(), 4096); }), EAGAIN);
  EXPECT_EQ(board::dsp_capture().bytes, 65536u);
}

// A writer thread blocked in the board and a control thread asking for the
// delay and finally resetting meet without a race: every byte is counted.
TEST_F(Dsp, WriterThreadAndControlThreadMeet) {
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
    std::this_thread::sleep_for(2ms);
  }
  stop = true;
  writer.join();
  EXPECT_EQ(::ioctl(fd, kReset), 0);
  EXPECT_EQ(board::dsp_capture().bytes, static_cast<std::uint64_t>(written.load()));
}

}  // namespace
}  // namespace boardtest
