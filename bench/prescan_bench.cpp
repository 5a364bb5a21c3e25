// Inspects the whole corpus three ways in one process and compares:
//   ours   PMX_Prescan (head read, scanner, naming, printout to /dev/null)
//   lavf   FFmpeg's avformat_open_input + avformat_find_stream_info
//   floor  open, read the first MiB, close: the least any inspection costs
// Prints the median time per file of each, the totals, the two ratios
// (goal: lavf/ours >= 10, ours/floor <= 2) and our peak memory.
//   prescan_bench [repetitions]
extern "C" {
#include <libavformat/avformat.h>
}
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "info/prescan.h"
#include "tests/support/corpus.h"
#include "tests/support/fixtures.h"

namespace {

using Clock = std::chrono::steady_clock;

template <typename F>
double median_us(int repetitions, F work) {
  std::vector<double> times;
  for (int i = 0; i < repetitions; ++i) {
    const auto start = Clock::now();
    work();
    times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

void ours(const std::string &path) {
  std::array<char, 16> solution{};
  PMX_Prescan(path.c_str(), solution.data());
}

void lavf(const std::string &path) {
  AVFormatContext *ctx = nullptr;
  if (avformat_open_input(&ctx, path.c_str(), nullptr, nullptr) != 0) return;
  avformat_find_stream_info(ctx, nullptr);
  avformat_close_input(&ctx);
}

std::vector<char> floor_buffer(1 << 20);

void floor_read(const std::string &path) {
  const int fd = open(path.c_str(), O_RDONLY);
  if (fd < 0) return;
  size_t got = 0;
  while (got < floor_buffer.size()) {
    const ssize_t n = read(fd, floor_buffer.data() + got, floor_buffer.size() - got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  close(fd);
}

long max_rss_kib() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss;
}

}  // namespace

int main(int argc, char **argv) {
  const int repetitions = argc > 1 ? std::max(1, std::atoi(argv[1])) : 15;
  av_log_set_level(AV_LOG_QUIET);

  std::vector<std::string> names, paths;
  for (const fixtures::CorpusFile &f : fixtures::corpus) {
    const std::string path = fixtures::media(f.name);
    if (path.empty()) {
      std::fprintf(stderr, "cannot make %s\n", f.name);
      return 1;
    }
    names.emplace_back(f.name);
    paths.push_back(path);
    floor_read(path);  // warm the page cache: all three read cached files
  }

  // The prescan prints its findings; here they go to /dev/null.
  std::fflush(stdout);
  const int saved = dup(1);
  const int null_fd = open("/dev/null", O_WRONLY);
  dup2(null_fd, 1);

  const long rss_before = max_rss_kib();
  std::vector<double> t_ours, t_lavf, t_floor;
  for (const std::string &p : paths) t_ours.push_back(median_us(repetitions, [&] { ours(p); }));
  std::fflush(stdout);
  const long rss_ours = max_rss_kib();
  for (const std::string &p : paths) t_lavf.push_back(median_us(repetitions, [&] { lavf(p); }));
  for (const std::string &p : paths) t_floor.push_back(median_us(repetitions, [&] { floor_read(p); }));

  std::fflush(stdout);
  dup2(saved, 1);
  close(null_fd);
  close(saved);

  std::printf("%-28s %10s %10s %10s\n", "file (median us)", "ours", "lavf", "floor");
  double sum_ours = 0, sum_lavf = 0, sum_floor = 0;
  for (size_t i = 0; i < paths.size(); ++i) {
    std::printf("%-28s %10.1f %10.1f %10.1f\n", names[i].c_str(), t_ours[i], t_lavf[i], t_floor[i]);
    sum_ours += t_ours[i];
    sum_lavf += t_lavf[i];
    sum_floor += t_floor[i];
  }
  const double n = static_cast<double>(paths.size());
  std::printf("%-28s %10.1f %10.1f %10.1f\n", "mean per file", sum_ours / n, sum_lavf / n, sum_floor / n);
  std::printf("lavf / ours  = %.1f (goal >= 10)\n", sum_lavf / sum_ours);
  std::printf("ours / floor = %.2f (goal <= 2)\n", sum_ours / sum_floor);
  std::printf("peak memory: %ld KiB resident, %ld KiB more during our prescan\n", rss_ours,
              rss_ours - rss_before);
  return 0;
}
