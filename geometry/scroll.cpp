// Scrolling moves a picture's pixels in place, which needs a picture editor;
// this platform never grants one, so nothing moves (nor does the mask) and the
// handlers only report: true for a horizontal scroll, and for a vertical one
// only when its delta is 0.
#include "geometry/handlers.h"

unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t, unsigned char, unsigned char) {
  return picture ? 1 : 0;
}

unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char, unsigned char) {
  return picture && delta == 0 ? 1 : 0;
}

unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask) {
  if (!ScrollHorizontalQVT(picture, deltaX, wrap, scrollmask)) return 0;
  return ScrollVerticalQVT(picture, deltaY, wrap, scrollmask);
}
