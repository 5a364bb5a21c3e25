// Byte images and scans for the scanner tests. A head-buffer scanner gets a
// buffer of exactly the image's size: ASan catches reads past its length.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "info/media_info.h"
#include "platform/mai_os.h"
#include "tests/support/fixtures.h"

using Bytes = std::vector<u8>;

inline Bytes operator+(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}
inline Bytes le(u64 v, int n) {
  Bytes b;
  for (int i = 0; i < n; ++i) b.push_back(static_cast<u8>(v >> (8 * i)));
  return b;
}
inline Bytes be(u64 v, int n) {
  Bytes b;
  for (int i = n - 1; i >= 0; --i) b.push_back(static_cast<u8>(v >> (8 * i)));
  return b;
}
inline Bytes join(std::initializer_list<Bytes> parts) {
  Bytes b;
  for (const Bytes &p : parts) b = b + p;
  return b;
}
inline Bytes str(std::string_view s) { return Bytes(s.begin(), s.end()); }
inline Bytes sized(Bytes b, size_t n, u8 fill = 0) {
  b.resize(n, fill);
  return b;
}
// `b` with `p` written over it from `at` on (growing it with zeros).
inline Bytes patch(Bytes b, size_t at, const Bytes &p) {
  if (b.size() < at + p.size()) b.resize(at + p.size(), 0);
  std::copy(p.begin(), p.end(), b.begin() + static_cast<long>(at));
  return b;
}

// The UTF-16LE text of the record's tag block, up to its 16-bit NUL.
inline std::u16string tag_text(const MediaInfo &r) {
  std::u16string s;
  for (u32 i = 0; i + 1 < TAG_INFO_SIZE && (r.tag_info[i] | r.tag_info[i + 1]) != 0; i += 2)
    s.push_back(static_cast<char16_t>(r.tag_info[i] | (r.tag_info[i + 1] << 8)));
  return s;
}
inline std::u16string widen(std::string_view s) { return std::u16string(s.begin(), s.end()); }

inline MediaInfo start_record(u32 file_size, u32 play_time = 0) {
  MediaInfo r{};
  r.file_size = file_size;
  r.play_time = play_time;
  return r;
}

// A table row: what it shows, its input, the fields expected.
struct Case {
  const char *what;
  Bytes image;
  std::vector<u32> want;
};

struct Scan {
  u32 result = 0;
  MediaInfo record{};
  std::string out;  // what the scanner printed
};

// A scan of `image` in a buffer of its size; with `file` also the file behind
// the handle, the buffer `head` bytes (0: the image's) zero-filled past it.
template <typename Scanner>
Scan scan(Scanner scanner, const Bytes &image, MediaInfo start = {}, bool file = false, size_t head = 0) {
  MAIOSFile *handle = file ? MAIOSFileOpenForRead(fixtures::temp_file("scan.img", image).c_str()) : nullptr;
  if (file) start.file_size = static_cast<u32>(image.size());
  Bytes buffer(head != 0 ? head : image.size(), 0);
  std::copy_n(image.begin(), std::min(buffer.size(), image.size()), buffer.begin());
  Scan s{0, start, ""};
  testing::internal::CaptureStdout();
  s.result = scanner(handle, buffer.data(), static_cast<u32>(buffer.size()), &s.record);
  s.out = testing::internal::GetCapturedStdout();
  if (handle != nullptr) MAIOSFileClose(handle);
  return s;
}
template <typename Scanner>
Scan scan_file(Scanner scanner, const Bytes &image, size_t head = 0, MediaInfo start = {}) {
  return scan(scanner, image, start, true, head);
}

// Every cut of `whole` is read only as far as it goes, recognised from `from` on.
template <typename Scanner>
void expect_cuts(Scanner scanner, const Bytes &whole, size_t from, bool file = false, MediaInfo start = {}) {
  for (size_t n = 0; n <= whole.size(); ++n) {
    const Bytes cut = sized(whole, n);
    EXPECT_EQ(scan(scanner, cut, start, file).result, n >= from ? 1u : 0u) << n;
  }
}
