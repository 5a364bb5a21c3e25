// A plain program for the preload test: it knows nothing of the virtual
// board and talks to the codec and the clock as a program on the board does.
// Exit status 0 when the calls behaved as on the board and the host clock is
// where it was.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

int main() {
  int failures = 0;
  const int fd = open("/dev/mixer", O_RDWR);
  if (fd >= 0) {
    std::uint16_t index = 0x26, value = 0;
    if (ioctl(fd, 0x80026616, &index) != 0 || ioctl(fd, 0x40026614, &value) != 0) ++failures;
    std::printf("0x26 = 0x%04x\n", value);
    index = 0x04;
    value = 0x0E0E;
    ioctl(fd, 0x80026616, &index);
    if (ioctl(fd, 0x80026615, &value) != 0) std::printf("write failed: errno %d\n", errno);
    value = 0;
    ioctl(fd, 0x40026614, &value);
    std::printf("0x04 = 0x%04x\n", value);
    close(fd);
  } else {
    std::printf("no mixer: errno %d\n", errno);
  }
  const timeval start_of_day{1130806860, 0};
  const int set = settimeofday(&start_of_day, nullptr);
  std::printf("settimeofday %d\n", set);
  if (set != 0) ++failures;
  if (std::time(nullptr) < 1577836800) ++failures;  // the host clock moved
  return failures == 0 ? 0 : 1;
}
