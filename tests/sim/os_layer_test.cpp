// The engine's OS layer: files, events, memory and strings.
#include "sim_test_util.h"
#include "tests/support/fixtures.h"

#include <chrono>
#include <sys/stat.h>
#include <unistd.h>

using namespace simtest;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

std::vector<u8> pattern(size_t n) {
  std::vector<u8> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<u8>(i * 7 + 3);
  return v;
}

TEST(FileLayer, ReadAndSeek) {
  const auto bytes = pattern(1000);
  MAIOSFile *f = MAIOSFileOpenForRead(fixtures::temp_file("read.bin", bytes).c_str());
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(f->status, 0u);
  u64 size = 0;
  EXPECT_EQ(MAIOSFileGetSize(f, &size), 0u);
  EXPECT_EQ(size, 1000u);
  // Everything, then a short count, then zero.
  std::vector<u8> buf(600);
  ASSERT_EQ(MAIOSFileRead(f, buf.data(), 600), 600u);
  EXPECT_TRUE(std::equal(buf.begin(), buf.end(), bytes.begin()));
  ASSERT_EQ(MAIOSFileRead(f, buf.data(), 600), 400u);
  EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + 400, bytes.begin() + 600));
  EXPECT_EQ(MAIOSFileRead(f, buf.data(), 600), 0u);
  struct Step {
    s64 offset;
    u32 origin;
    size_t expect_at;  // position of the byte read after the seek; each read moves on by one
  };
  const Step steps[] = {
      {10, MAIOS_SEEK_SET, 10}, {5, MAIOS_SEEK_CUR, 16}, {-1, MAIOS_SEEK_END, 999}, {-500, MAIOS_SEEK_CUR, 500},
  };
  for (const Step &s : steps) {
    SCOPED_TRACE(testing::Message() << "offset " << s.offset << " origin " << s.origin);
    ASSERT_EQ(MAIOSFileSeek(f, static_cast<u64>(s.offset), s.origin), 0u);
    u8 b = 0;
    ASSERT_EQ(MAIOSFileRead(f, &b, 1), 1u);
    EXPECT_EQ(b, bytes[s.expect_at]);
  }
  EXPECT_NE(MAIOSFileSeek(f, static_cast<u64>(-1), MAIOS_SEEK_SET), 0u);  // before the start
  EXPECT_NE(MAIOSFileSeek(f, 0, 3), 0u);                                  // no such origin
  MAIOSFileClose(f);
}

TEST(FileLayer, UnopenableFilesShareTheFailureObject) {
  const std::string dir = ::testing::TempDir();
  const std::string missing = dir + "/no-such-file-" + std::to_string(::getpid());
  MAIOSFile *a = MAIOSFileOpenForRead(missing.c_str());
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->status, MAIOS_FILE_OPEN_FAILED);
  EXPECT_EQ(MAIOSFileOpenForRead(dir.c_str()), a);  // a directory is no file
  EXPECT_EQ(MAIOSFileOpenForRead(nullptr), a);
  u8 byte;
  u64 size;
  for (MAIOSFile *f : {a, static_cast<MAIOSFile *>(nullptr)}) {
    EXPECT_EQ(MAIOSFileRead(f, &byte, 1), 0u);
    EXPECT_NE(MAIOSFileSeek(f, 0, MAIOS_SEEK_SET), 0u);
    EXPECT_NE(MAIOSFileGetSize(f, &size), 0u);
    MAIOSFileClose(f);  // no-op: the object stays for the next failure
  }
  EXPECT_EQ(MAIOSFileOpenForRead(missing.c_str())->status, MAIOS_FILE_OPEN_FAILED);
}

TEST(FileLayer, ReadCollectsPiecesFromAPipe) {
  const std::string fifo = ::testing::TempDir() + "/pmx-fifo-" + std::to_string(::getpid());
  ::unlink(fifo.c_str());
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const auto bytes = pattern(300);
  std::thread writer([&] {
    FILE *w = std::fopen(fifo.c_str(), "wb");
    ASSERT_NE(w, nullptr);
    for (int piece = 0; piece < 3; ++piece) {
      std::fwrite(bytes.data() + piece * 100, 1, 100, w);
      std::fflush(w);
      std::this_thread::sleep_for(milliseconds(20));
    }
    std::fclose(w);
  });
  MAIOSFile *f = MAIOSFileOpenForRead(fifo.c_str());
  ASSERT_NE(f, nullptr);
  std::vector<u8> buf(300);
  EXPECT_EQ(MAIOSFileRead(f, buf.data(), 300), 300u);
  EXPECT_EQ(buf, bytes);
  MAIOSFileClose(f);
  writer.join();
  ::unlink(fifo.c_str());
}

TEST(Events, AutoResetSemantics) {
  struct Case {
    const char *what;
    u32 initial;
    int signals;
    std::vector<std::pair<u32, u32>> waits;  // wait time, expected result
  };
  const u32 T = MAIOS_EVENT_TIMEOUT;
  const Case cases[] = {
      {"signals do not count up", 0, 3, {{10, 0}, {10, T}}},
      {"a poll takes the signal", 0, 1, {{0, 0}, {10, T}}},
      {"a poll succeeds without a signal", 0, 0, {{0, 0}, {10, T}}},
      {"created signaled", 1, 0, {{10, 0}, {10, T}}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.what);
    const u32 h = MAIOSEventCreate(0, c.initial, "test", 11);
    ASSERT_NE(h, 0u);
    for (int i = 0; i < c.signals; ++i) EXPECT_EQ(MAIOSEventSignal(h), 0u);
    for (auto [ms, expected] : c.waits) EXPECT_EQ(MAIOSEventWait(h, ms), expected);
    MAIOSEventDestroy(h);
  }
}

TEST(Events, TimedAndForeverWaits) {
  const u32 h = MAIOSEventCreate(0, 0, "test", 11);
  auto t0 = steady_clock::now();
  EXPECT_EQ(MAIOSEventWait(h, 60), MAIOS_EVENT_TIMEOUT);
  EXPECT_GE(steady_clock::now() - t0, milliseconds(60));
  t0 = steady_clock::now();
  std::thread signaller([&] {
    std::this_thread::sleep_for(milliseconds(30));
    MAIOSEventSignal(h);
  });
  EXPECT_EQ(MAIOSEventWait(h, MAIOS_WAIT_FOREVER), 0u);
  EXPECT_GE(steady_clock::now() - t0, milliseconds(30));
  signaller.join();
  EXPECT_EQ(MAIOSEventDestroy(h), 0u);
  for (u32 bad : {0u, 100000u, h}) {  // including the destroyed one
    EXPECT_NE(MAIOSEventSignal(bad), 0u) << bad;
    EXPECT_NE(MAIOSEventWait(bad, 0), 0u) << bad;
    EXPECT_NE(MAIOSEventDestroy(bad), 0u) << bad;
  }
}

TEST(Events, TableRunsOutAndRecovers) {
  std::vector<u32> made;
  for (u32 h; made.size() < 10000 && (h = MAIOSEventCreate(0, 0, "fill", 0)) != 0;) made.push_back(h);
  ASSERT_LT(made.size(), 10000u) << "the table never ran out";
  EXPECT_GE(made.size(), 8u);
  std::vector<u32> sorted = made;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "handle reused";
  EXPECT_EQ(MAIOSEventDestroy(made[3]), 0u);
  made[3] = MAIOSEventCreate(0, 0, "again", 0);
  EXPECT_NE(made[3], 0u);
  for (u32 h : made) EXPECT_EQ(MAIOSEventDestroy(h), 0u);
}

TEST(OsHelpers, MemoryAndStrings) {
  auto *p = static_cast<char *>(MAIOSMemAlloc(64));
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(sp_strcpy8(p, "mpegps"), p);
  EXPECT_EQ(sp_strcat8(p, "_mpa3"), p);
  EXPECT_STREQ(p, "mpegps_mpa3");
  EXPECT_EQ(sp_strcpy8(p, "ac3"), p);  // replaces, does not append
  EXPECT_STREQ(p, "ac3");
  MAIOSMemFree(p);
  MAIOSMemFree(nullptr);
}

}  // namespace
