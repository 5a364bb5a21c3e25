// DTS core header scan (the AC-3 scan's companion).
#include "fuzz/head_scan.h"
#include "info/ac3_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Dts_prescan);
  return 0;
}
