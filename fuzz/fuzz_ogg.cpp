// Ogg scan: the page walk, the comment search and the tail read through
// the in-memory file back into the head buffer.
#include "fuzz/head_scan.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  fuzz_head_scan(data, size, Ogg_prescan);
  return 0;
}
