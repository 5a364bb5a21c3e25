// The OSS PCM output /dev/dsp: the WAV capture and the pacing of writes by
// the playing clock.
#include "tests/board/board_test_util.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace boardtest {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

int ask(int fd, unsigned long request, int value) {
  EXPECT_EQ(::ioctl(fd, request, &value), 0) << std::hex << request;
  return value;
}

// 16-bit stereo at 44100 Hz: 176400 bytes a second at real time.
void setup_cd(int fd) {
  ASSERT_EQ(ask(fd, kSetFmt, 0x10), 0x10);
  ASSERT_EQ(ask(fd, kChannels, 2), 2);
  ASSERT_EQ(ask(fd, kSpeed, 44100), 44100);
}

std::vector<std::uint8_t> ramp(std::size_t n) {
  std::vector<std::uint8_t> pcm(n);
  for (std::size_t i = 0; i < n; ++i) pcm[i] = static_cast<std::uint8_t>(i * 7 + 3);
  return pcm;
}

class Dsp : public BoardTest {};

std::uint32_t le(const std::string &s, std::size_t at, std::size_t n) {
  std::uint32_t v = 0;
  std::memcpy(&v, s.data() + at, n);
  return v;
}

// Without pacing everything plays at once; the capture is a WAV file in the
// format of the first write, its sizes right while the device is still
// open; the in-memory capture and the close line agree.
TEST_F(Dsp, CaptureToWavWithoutPacing) {
  const std::string path = temp_path("capture.wav");
  board::set_dsp_speed(0);
  board::set_dsp_capture(path);
  const auto pcm = ramp(1 << 20);
  {
    Fd fd("/dev/dsp", O_WRONLY);
    setup_cd(fd);
    ASSERT_EQ(::write(fd, pcm.data(), 1000), 1000);
    EXPECT_EQ(le(read_file(path), 40, 4), 1000u);
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
// queued, in whole frames; a reset drops it, a sync waits for it.
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

// Non-blocking writes take what fits in the buffer, then EAGAIN.
TEST_F(Dsp, NonBlockingWritesTakeWhatFits) {
  board::set_dsp_speed(0.0001);  // nothing drains meanwhile
  Fd fd("/dev/dsp", O_WRONLY | O_NONBLOCK);
  const auto pcm = ramp(100000);
  EXPECT_EQ(::write(fd, pcm.data(), pcm.size()), 65536);
  EXPECT_EQ(error_of([&] { return ::write(fd, pcm.data(), 4096); }), EAGAIN);
  EXPECT_EQ(board::dsp_capture().bytes, 65536u);
}

}  // namespace
}  // namespace boardtest
