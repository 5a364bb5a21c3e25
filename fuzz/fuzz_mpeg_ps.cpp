// MPEG program stream scan: the packet walk over the head buffer and the
// time-code reads through the in-memory file; the sequence and audio
// header readers on their own as well.
#include <vector>

#include "fuzz/head_scan.h"
#include "info/mpeg_ps_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Mpeg_prescan);
  const std::vector<u8> exact(data, data + size);
  MediaInfo record{};
  Mpegv_prescan(nullptr, exact.data(), static_cast<u32>(exact.size()), &record);
  Mpega_prescan(nullptr, exact.data(), static_cast<u32>(exact.size()), &record);
  return 0;
}
