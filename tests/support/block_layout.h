// The memory-block layouts of the exchange members, as the tests model them:
// by walking the pixels, not by the plug-in's arithmetic.
#pragma once

#include <cstdint>

namespace layout {

// One past the last byte a layout addresses: the w x h pixels row by row
// from `offset`, each cell `step` bytes after the one before, of which the
// pixel uses the first `used`. -1 when no block holds it: a negative offset
// or a step below 1, or a byte beyond `limit` (the walk stops there). No
// pixels address nothing beyond the offset.
inline int64_t End(int64_t offset, int64_t w, int64_t h, int64_t step, int64_t used, int64_t limit) {
  if (offset < 0 || step < 1 || offset > limit) return -1;
  int64_t end = offset;
  for (int64_t y = 0, at = offset; y < h && w > 0; ++y)
    for (int64_t x = 0; x < w; ++x, at += step)
      if ((end = at + used) > limit) return -1;
  return end;
}

}  // namespace layout
