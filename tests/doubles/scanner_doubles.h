// Scripted stand-ins for the container scanners, for tests of the prescan
// driver and of file opening that need a scanner's verdict without its
// format: the stand-in says whether it recognised the file and what it
// wrote into the record.
#pragma once
#include <functional>
#include <string>
#include <vector>

#include "info/media_info.h"

namespace doubles {

struct Scanner {
  u32 result = 0;                        // what the scan returns
  std::function<void(MediaInfo *)> fill; // what it writes when it recognises
};

extern Scanner riff, asf, mpa, header_position;
extern int id3_calls;
// Names of the scanners called, in order.
extern std::vector<std::string> calls;

void reset();

}  // namespace doubles
