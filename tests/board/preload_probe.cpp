// A plain program for the preload test: it knows nothing of the virtual
// board and talks to the codec and the clock as a program on the board does.
// Exit status 0 when the clock was set and the host clock is where it was.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>

int main() {
  const int fd = open("/dev/mixer", O_RDWR);
  std::uint16_t index = 0x26, value = 0;
  ioctl(fd, 0x80026616, &index);
  ioctl(fd, 0x40026614, &value);
  std::printf("0x26 = 0x%04x\n", value);
  index = 0x04;
  value = 0x0E0E;
  ioctl(fd, 0x80026616, &index);
  ioctl(fd, 0x80026615, &value);
  ioctl(fd, 0x40026614, &value);
  std::printf("0x04 = 0x%04x\n", value);
  close(fd);
  const timeval start_of_day{1130806860, 0};
  const int set = settimeofday(&start_of_day, nullptr);
  std::printf("settimeofday %d\n", set);
  return set == 0 && std::time(nullptr) > 1577836800 ? 0 : 1;  // not moved back to 2005
}
