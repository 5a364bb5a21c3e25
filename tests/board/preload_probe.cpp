// A plain program for the preload test, knowing nothing of the virtual board:
// it reads and writes codec registers and sets the clock as a program on the
// board does. Exit status 0 when the clock was set and the host clock stayed.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>

int main() {
  const int fd = open("/dev/mixer", O_RDWR);
  std::uint16_t index = 0x26, value = 0x0E0E;
  ioctl(fd, 0x80026616, &index);
  ioctl(fd, 0x40026614, &value);
  index = 0x04;
  ioctl(fd, 0x80026616, &index);
  ioctl(fd, 0x80026615, &value);
  ioctl(fd, 0x40026614, &value);
  close(fd);
  const timeval start_of_day{1130806860, 0};
  return settimeofday(&start_of_day, nullptr) == 0 && std::time(nullptr) > 1577836800 ? 0 : 1;  // not back in 2005
}
