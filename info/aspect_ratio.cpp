// Aspect ratio snapping of the container scans.
#include "info/aspect_ratio.h"

float snap_aspect_ratio(u32 width, u32 height, float current) {
  const float r = static_cast<float>(width) / static_cast<float>(height);
  const double wide = r;
  if (r < 1.0f) return current;
  if (r < 1.5f) return 4.0f / 3.0f;
  if (r < 2.0f) return 16.0f / 9.0f;
  if (wide < 2.22) return 2.2f;
  if (wide < 2.3) return 2.25f;
  if (r < 2.5f) return 2.35f;
  return r;
}
