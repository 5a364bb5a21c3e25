#include "fuzz/mem_os.h"

#include <cstdlib>
#include <cstring>

namespace {

struct MemFile {
  MAIOSFile head;  // status word first, as the layer promises
  const u8 *data;
  u64 size;
  u64 pos;
};

MAIOSFile open_failed{MAIOS_FILE_OPEN_FAILED};

MemFile *as_mem(MAIOSFile *f) { return reinterpret_cast<MemFile *>(f); }

}  // namespace

MAIOSFile *mem_file_open(const u8 *data, size_t size) {
  MemFile *f = new MemFile{{0}, data, size, 0};
  return &f->head;
}

extern "C" {

MAIOSFile *MAIOSFileOpenForRead(const char *) { return &open_failed; }

u32 MAIOSFileRead(MAIOSFile *file, void *buffer, u32 size) {
  if (file == nullptr || file == &open_failed) return 0;
  MemFile *f = as_mem(file);
  if (f->pos >= f->size) return 0;
  const u64 left = f->size - f->pos;
  const u32 n = left < size ? static_cast<u32>(left) : size;
  std::memcpy(buffer, f->data + f->pos, n);
  f->pos += n;
  return n;
}

u32 MAIOSFileSeek(MAIOSFile *file, u64 offset, u32 origin) {
  if (file == nullptr || file == &open_failed) return MAIOS_FILE_INVALID;
  MemFile *f = as_mem(file);
  const u64 base = origin == MAIOS_SEEK_CUR ? f->pos : origin == MAIOS_SEEK_END ? f->size : 0;
  f->pos = base + offset;  // past the end is allowed; reads then return 0
  return 0;
}

u32 MAIOSFileGetSize(MAIOSFile *file, u64 *size) {
  if (file == nullptr || file == &open_failed) return MAIOS_FILE_INVALID;
  *size = as_mem(file)->size;
  return 0;
}

void MAIOSFileClose(MAIOSFile *file) {
  if (file == nullptr || file == &open_failed) return;
  delete as_mem(file);
}

void *MAIOSMemAlloc(u32 size) { return std::malloc(size); }
void MAIOSMemFree(void *memory) { std::free(memory); }

u32 MAIOSEventCreate(u32, u32, const char *, u32) { return 0; }
u32 MAIOSEventDestroy(u32) { return MAIOS_EVENT_INVALID; }
u32 MAIOSEventSignal(u32) { return MAIOS_EVENT_INVALID; }
u32 MAIOSEventWait(u32, u32) { return MAIOS_EVENT_INVALID; }

char *sp_strcpy8(char *destination, const char *source) { return std::strcpy(destination, source); }
char *sp_strcat8(char *destination, const char *source) { return std::strcat(destination, source); }

}  // extern "C"
