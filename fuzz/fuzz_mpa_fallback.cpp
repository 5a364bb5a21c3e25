// MPEG audio frame search through the file: the input is the whole file.
#include "fuzz/mem_os.h"
#include "info/media_info.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *data, size_t size) {
  MediaInfo record{};
  record.file_size = static_cast<u32>(size);
  MAIOSFile *file = mem_file_open(data, size);
  const u32 found = GetHeaderPosition(file, &record);
  MAIOSFileClose(file);
  // A found stream always has a bit rate the play time can divide by.
  if (found != 0 && record.audio[0].audio_bitrate == 0) __builtin_trap();
  return 0;
}
