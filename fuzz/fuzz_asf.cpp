// ASF scan.
#include "fuzz/head_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, WM_prescan);
  return 0;
}
