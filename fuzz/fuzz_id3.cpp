// ID3 tag reader: the input is the whole file.
#include "fuzz/mem_os.h"
#include "info/media_info.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  MediaInfo record{};
  MAIOSFile *file = mem_file_open(data, size);
  ID3_GetID3(file, &record, "fuzz.mp3");
  MAIOSFileClose(file);
  // The text is at most 256 bytes and always followed by a 16-bit NUL.
  bool terminated = false;
  for (u32 i = 0; i + 1 < 258 && !terminated; i += 2) terminated = (record.tag_info[i] | record.tag_info[i + 1]) == 0;
  if (!terminated) __builtin_trap();
  return 0;
}
