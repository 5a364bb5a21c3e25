// Display aspect ratio of a picture, snapped to the ratios the player's
// video output knows. The AVI and ASF scans share it.
#pragma once
#include "platform/mai_types.h"

// The ratio width / height, snapped: below 1.0 (a portrait picture) the
// `current` value is kept; 1.0 up to 1.5 gives 4/3, up to 2.0 16/9, up to
// 2.22 gives 2.2, up to 2.3 gives 2.25, up to 2.5 gives 2.35; from 2.5 on
// the ratio itself. The 2.22 and 2.3 bounds are compared in double
// precision against the single-precision ratio, so a ratio whose float
// value is 2.3f (just below 2.3) still snaps to 2.25. Both sizes must be
// nonzero.
float snap_aspect_ratio(u32 width, u32 height, float current);
