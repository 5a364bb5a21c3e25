// The console's direct playback test: a WAV file is read into memory and
// played through the direct playback driver, outside the engine.
//   mode 0 (wav_init)   asks for the file, loads it, initialises WAV playback
//   mode 1 (wav_play)   plays the loaded image
//   mode 2 (wav_stop)   stops the playback
//   mode 3 (wav_deinit) deinitialises and drops the image
// Each step prints the driver's result code.
#include <cstdio>
#include <cstdlib>

#include "api/pmx_api.h"
#include "console/console.h"
#include "direct/direct_play.h"

namespace {

// The file image being played; it stays in place while a playback runs.
struct DirectTest {
  u8 *image = nullptr;
  u32 size = 0;
};

DirectTest direct_test;

void drop_image() {
  std::free(direct_test.image);
  direct_test.image = nullptr;
  direct_test.size = 0;
}

// Reads the whole file; false after printing why not.
bool load_image(const char *path) {
  FILE *f = std::fopen(path, "rb");
  if (f == nullptr) {
    std::printf("cannot open %s\n", path);
    return false;
  }
  u8 *image = nullptr;
  u32 size = 0;
  bool ok = std::fseek(f, 0, SEEK_END) == 0;
  const long end = ok ? std::ftell(f) : -1;
  ok = ok && end > 0 && static_cast<unsigned long>(end) <= 0xFFFFFFFFul && std::fseek(f, 0, SEEK_SET) == 0;
  if (ok) {
    size = static_cast<u32>(end);
    image = static_cast<u8 *>(std::malloc(size));
    ok = image != nullptr && std::fread(image, 1, size, f) == size;
  }
  std::fclose(f);
  if (!ok) {
    std::free(image);
    std::printf("cannot read %s\n", path);
    return false;
  }
  drop_image();
  direct_test.image = image;
  direct_test.size = size;
  std::printf("loaded %s: %u bytes\n", path, static_cast<unsigned>(size));
  return true;
}

}  // namespace

void direct_play_test(int mode) {
  switch (mode) {
    case 0: {
      std::printf("wav filename? ");
      get_input(buf);
      // A running playback keeps its image; the driver reports it busy.
      if (pmx_is_direct_playing() == 0 && !load_image(buf)) return;
      std::printf("pmx_init_direct_play = %d\n", pmx_init_direct_play(PMX_DIRECT_WAV));
      break;
    }
    case 1:
      std::printf("pmx_direct_play = %d\n", pmx_direct_play(direct_test.image, direct_test.size));
      break;
    case 2:
      std::printf("pmx_direct_stop = %d\n", pmx_direct_stop());
      break;
    case 3:
      // Deinitialisation ends a running playback first, so the image is free.
      std::printf("pmx_deinit_direct_play = %d\n", pmx_deinit_direct_play());
      drop_image();
      break;
    default:
      std::printf("direct play test: unknown mode %d\n", mode);
      break;
  }
}
