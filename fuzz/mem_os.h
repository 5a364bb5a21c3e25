// An in-memory stand-in for the engine's OS layer, so scanners that seek
// and read through a file handle can be fuzzed without files.
#pragma once
#include <cstddef>

#include "platform/mai_os.h"

// A file handle over `size` bytes at `data` (not copied; keep them alive).
MAIOSFile *mem_file_open(const u8 *data, size_t size);
