// FLAC scan: the metadata walk and the comment search.
#include "fuzz/head_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Flac_prescan);
  return 0;
}
