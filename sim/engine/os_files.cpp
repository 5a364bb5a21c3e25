// The OS layer's file functions: POSIX file descriptors behind the engine's
// file objects. A file object starts with its public status word; a file that
// cannot be opened is the one static object whose status is
// MAIOS_FILE_OPEN_FAILED, so callers always have a status to read.
#include "engine_internal.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>

namespace mai {
namespace {

struct FileObject {
  MAIOSFile pub;  // must stay first: callers read the status through it
  int fd;
};
static_assert(std::is_standard_layout_v<FileObject>);

FileObject g_open_failed{{MAIOS_FILE_OPEN_FAILED}, -1};

// The private object behind a public pointer; null for the failure object,
// for null, and for anything whose descriptor is gone.
FileObject *usable(MAIOSFile *file) {
  if (file == nullptr || file == &g_open_failed.pub) return nullptr;
  auto *object = reinterpret_cast<FileObject *>(file);
  return object->fd >= 0 ? object : nullptr;
}

}  // namespace
}  // namespace mai

using namespace mai;

MAI_EXPORT MAIOSFile *MAIOSFileOpenForRead(const char *path) {
  if (path == nullptr) return &g_open_failed.pub;
  int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return &g_open_failed.pub;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    ::close(fd);
    return &g_open_failed.pub;
  }
  auto *object = new (std::nothrow) FileObject{{0}, fd};
  if (object == nullptr) {
    ::close(fd);
    return nullptr;
  }
  return &object->pub;
}

MAI_EXPORT u32 MAIOSFileRead(MAIOSFile *file, void *buffer, u32 size) {
  FileObject *object = usable(file);
  if (object == nullptr || buffer == nullptr) return 0;
  // Pipes and slow devices hand data over in pieces: keep reading until the
  // request is met or the file ends.
  auto *out = static_cast<u8 *>(buffer);
  u32 done = 0;
  while (done < size) {
    ssize_t got = ::read(object->fd, out + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<u32>(got);
  }
  return done;
}

MAI_EXPORT u32 MAIOSFileSeek(MAIOSFile *file, u64 offset, u32 origin) {
  FileObject *object = usable(file);
  if (object == nullptr) return MAIOS_FILE_INVALID;
  int whence;
  switch (origin) {
    case MAIOS_SEEK_SET: whence = SEEK_SET; break;
    case MAIOS_SEEK_CUR: whence = SEEK_CUR; break;
    case MAIOS_SEEK_END: whence = SEEK_END; break;
    default: return MAIOS_FILE_SEEK_FAILED;
  }
  // Offsets from the current position or the end may be negative: the
  // 64-bit word carries them in two's complement.
  auto delta = static_cast<off_t>(static_cast<s64>(offset));
  if (::lseek(object->fd, delta, whence) < 0) return MAIOS_FILE_SEEK_FAILED;
  return 0;
}

MAI_EXPORT u32 MAIOSFileGetSize(MAIOSFile *file, u64 *size) {
  FileObject *object = usable(file);
  if (object == nullptr) return MAIOS_FILE_INVALID;
  struct stat st {};
  if (size == nullptr || ::fstat(object->fd, &st) != 0) return MAIOS_FILE_SIZE_FAILED;
  *size = static_cast<u64>(st.st_size);
  return 0;
}

MAI_EXPORT void MAIOSFileClose(MAIOSFile *file) {
  FileObject *object = usable(file);
  if (object == nullptr) return;
  ::close(object->fd);
  object->fd = -1;
  delete object;
}
