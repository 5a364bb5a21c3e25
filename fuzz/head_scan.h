// Shared body of the fuzz targets for scanners of the head buffer: the
// input is the buffer, exactly as long as the input, so any read past the
// length the scanner was given is caught. The file behind the handle holds
// the same bytes.
#pragma once
#include <cstring>
#include <vector>

#include "fuzz/mem_os.h"
#include "info/media_info.h"

template <typename Scan>
void fuzz_head_scan(const u8 *data, size_t size, Scan scan) {
  std::vector<u8> head(data, data + size);
  MediaInfo record{};
  record.video_seekable = 1;
  record.file_size = static_cast<u32>(size);
  MAIOSFile *file = mem_file_open(data, size);
  scan(file, head.data(), static_cast<u32>(head.size()), &record);
  MAIOSFileClose(file);
  // The record's texts must stay terminated inside their fields.
  if (std::memchr(record.solution_name, 0, sizeof record.solution_name) == nullptr) __builtin_trap();
}
