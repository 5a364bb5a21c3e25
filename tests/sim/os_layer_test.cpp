// The engine's OS layer: files and events.
#include "sim_test_util.h"

#include <unistd.h>

using namespace simtest;

namespace {

// Seeks go from the start, the current position or the end, with negative
// offsets; reads come short at the end, then give nothing.
TEST(FileLayer, ReadAndSeek) {
  std::vector<u8> bytes(1000), buf(600);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<u8>(i * 7 + 3);
  MAIOSFile *f = MAIOSFileOpenForRead(fixtures::temp_file("read.bin", bytes).c_str());
  ASSERT_EQ(f->status, 0u);
  // Offset, origin, and where the next byte comes from (each read moves on one).
  const std::tuple<s64, u32, size_t> steps[] = {
      {10, MAIOS_SEEK_SET, 10}, {5, MAIOS_SEEK_CUR, 16}, {-1, MAIOS_SEEK_END, 999}, {-500, MAIOS_SEEK_CUR, 500}};
  for (const auto &[offset, origin, at] : steps) {
    ASSERT_EQ(MAIOSFileSeek(f, static_cast<u64>(offset), origin), 0u) << offset;
    ASSERT_EQ(MAIOSFileRead(f, buf.data(), 1), 1u);
    EXPECT_EQ(buf[0], bytes[at]) << offset;
  }
  EXPECT_EQ(MAIOSFileRead(f, buf.data(), 600), 499u);
  EXPECT_EQ(MAIOSFileRead(f, buf.data(), 600), 0u);
  EXPECT_NE(MAIOSFileSeek(f, static_cast<u64>(-1), MAIOS_SEEK_SET), 0u);  // before the start
  EXPECT_NE(MAIOSFileSeek(f, 0, 3), 0u);                                  // no such origin
  MAIOSFileClose(f);
}

// Missing files, directories and null names all give the one failure object
// (status MAIOS_FILE_OPEN_FAILED), which every call refuses and close keeps.
TEST(FileLayer, UnopenableFilesShareTheFailureObject) {
  const std::string dir = ::testing::TempDir(), missing = dir + "/no-such-file-" + std::to_string(::getpid());
  MAIOSFile *a = MAIOSFileOpenForRead(missing.c_str());
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->status, MAIOS_FILE_OPEN_FAILED);
  EXPECT_EQ(MAIOSFileOpenForRead(dir.c_str()), a);
  EXPECT_EQ(MAIOSFileOpenForRead(nullptr), a);
  u8 byte;
  u64 size;
  for (MAIOSFile *f : {a, static_cast<MAIOSFile *>(nullptr)}) {
    EXPECT_EQ(MAIOSFileRead(f, &byte, 1), 0u);
    EXPECT_NE(MAIOSFileSeek(f, 0, MAIOS_SEEK_SET), 0u);
    EXPECT_NE(MAIOSFileGetSize(f, &size), 0u);
    MAIOSFileClose(f);
  }
  EXPECT_EQ(MAIOSFileOpenForRead(missing.c_str())->status, MAIOS_FILE_OPEN_FAILED);
}

// Events reset when a wait takes them and do not count signals; a poll (0 ms)
// always succeeds and takes a pending signal.
TEST(Events, AutoResetSemantics) {
  const u32 T = MAIOS_EVENT_TIMEOUT;
  const std::tuple<u32, int, std::vector<std::pair<u32, u32>>> cases[] = {  // initial, signals, (wait ms, result)...
      {0, 3, {{10, 0}, {10, T}}},  // signals do not count up
      {0, 1, {{0, 0}, {10, T}}},   // a poll takes the signal
      {0, 0, {{0, 0}, {10, T}}},   // a poll succeeds without one
      {1, 0, {{10, 0}, {10, T}}},  // created signaled
  };
  for (const auto &[initial, signals, waits] : cases) {
    const u32 h = MAIOSEventCreate(0, initial, "test", 11);
    ASSERT_NE(h, 0u);
    for (int i = 0; i < signals; ++i) EXPECT_EQ(MAIOSEventSignal(h), 0u);
    for (auto [ms, result] : waits) EXPECT_EQ(MAIOSEventWait(h, ms), result) << initial << " " << signals << " " << ms;
    MAIOSEventDestroy(h);
  }
}

// A timed wait lasts its time; a forever wait ends at a signal from another
// thread; the table runs out, never hands out a live handle twice, takes a
// destroyed slot again and refuses destroyed and unknown handles.
TEST(Events, WaitsAndTheHandleTable) {
  std::vector<u32> made;
  for (u32 h; made.size() < 10000 && (h = MAIOSEventCreate(0, 0, "fill", 0)) != 0;) made.push_back(h);
  ASSERT_LT(made.size(), 10000u) << "the table never ran out";
  ASSERT_GE(made.size(), 8u);
  std::vector<u32> sorted = made;
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(std::adjacent_find(sorted.begin(), sorted.end()), sorted.end()) << "handle reused";
  const u32 h = made[3];
  auto t0 = Clock::now();
  EXPECT_EQ(MAIOSEventWait(h, 60), MAIOS_EVENT_TIMEOUT);
  EXPECT_GE(Clock::now() - t0, 60ms);
  t0 = Clock::now();
  std::thread signaller([&] {
    std::this_thread::sleep_for(30ms);
    MAIOSEventSignal(h);
  });
  EXPECT_EQ(MAIOSEventWait(h, MAIOS_WAIT_FOREVER), 0u);
  EXPECT_GE(Clock::now() - t0, 30ms);
  signaller.join();
  EXPECT_EQ(MAIOSEventDestroy(h), 0u);
  for (u32 bad : {0u, 100000u, h}) {
    EXPECT_NE(MAIOSEventSignal(bad), 0u) << bad;
    EXPECT_NE(MAIOSEventWait(bad, 0), 0u) << bad;
    EXPECT_NE(MAIOSEventDestroy(bad), 0u) << bad;
  }
  made[3] = MAIOSEventCreate(0, 0, "again", 0);
  EXPECT_NE(made[3], 0u);
  for (u32 x : made) EXPECT_EQ(MAIOSEventDestroy(x), 0u);
}

}  // namespace
