#include "info/extensions.h"

#include <cstring>

namespace {

// `suffix` is lower case: a letter of the name matches in either case,
// anything else (the dot, digits) must be the same byte.
u32 ends_with(const char *name, const char *suffix) {
  const size_t n = std::strlen(name);
  const size_t k = std::strlen(suffix);
  if (n < k) return 0;
  const char *tail = name + (n - k);
  for (size_t i = 0; i < k; ++i) {
    char c = tail[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != suffix[i]) return 0;
  }
  return 1;
}

}  // namespace

u32 is_avi(const char *name) { return ends_with(name, ".avi"); }
u32 is_divx(const char *name) { return ends_with(name, ".divx"); }
u32 is_wmv(const char *name) { return ends_with(name, ".wmv"); }
u32 is_wma(const char *name) { return ends_with(name, ".wma"); }
u32 is_asf(const char *name) { return ends_with(name, ".asf"); }
u32 is_mpeg(const char *name) { return ends_with(name, ".mpeg"); }
u32 is_mpg(const char *name) { return ends_with(name, ".mpg"); }
u32 is_vob(const char *name) { return ends_with(name, ".vob"); }
u32 is_mp3(const char *name) { return ends_with(name, ".mp3"); }
u32 is_ogg(const char *name) { return ends_with(name, ".ogg"); }
u32 is_ac3(const char *name) { return ends_with(name, ".ac3"); }
u32 is_wav(const char *name) { return ends_with(name, ".wav"); }
u32 is_flac(const char *name) { return ends_with(name, ".flac"); }
u32 is_mp4(const char *name) { return ends_with(name, ".mp4"); }
u32 is_m1v(const char *name) { return ends_with(name, ".m1v"); }
u32 is_m2v(const char *name) { return ends_with(name, ".m2v"); }
u32 is_m4v(const char *name) { return ends_with(name, ".m4v"); }
u32 is_dat(const char *name) { return ends_with(name, ".dat"); }
