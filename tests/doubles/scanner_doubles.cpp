#include "tests/doubles/scanner_doubles.h"

namespace doubles {

Scanner riff, asf, mpa, header_position;
int id3_calls = 0;
std::vector<std::string> calls;

void reset() {
  riff = asf = mpa = header_position = Scanner{};
  id3_calls = 0;
  calls.clear();
}

namespace {
u32 run(Scanner &s, const char *name, MediaInfo *r) {
  calls.emplace_back(name);
  if (s.result != 0 && s.fill) s.fill(r);
  return s.result;
}
}  // namespace

}  // namespace doubles

u32 Riff_prescan(MAIOSFile *, const u8 *, u32, MediaInfo *r) { return doubles::run(doubles::riff, "riff", r); }
u32 WM_prescan(MAIOSFile *, const u8 *, u32, MediaInfo *r) { return doubles::run(doubles::asf, "asf", r); }
u32 Mpa_prescan(MAIOSFile *, const u8 *, u32, MediaInfo *r) { return doubles::run(doubles::mpa, "mpa", r); }
u32 GetHeaderPosition(MAIOSFile *, MediaInfo *r) {
  return doubles::run(doubles::header_position, "header_position", r);
}
void ID3_GetID3(MAIOSFile *, MediaInfo *, const char *) {
  doubles::calls.emplace_back("id3");
  ++doubles::id3_calls;
}
