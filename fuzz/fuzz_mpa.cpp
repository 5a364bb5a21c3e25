// MPEG audio head buffer scan.
#include "fuzz/head_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Mpa_prescan);
  return 0;
}
