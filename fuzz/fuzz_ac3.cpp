// AC-3 head buffer scan.
#include "fuzz/head_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Ac3_prescan);
  return 0;
}
