// Scrolling moves a picture's pixels in place, through a picture editor.
// This platform never grants one (GetPictureEditor always fails), so the
// shifting itself is not built here: nothing moves, nor does the mask, and
// the handlers report what a refused editor means.
#include "geometry/handlers.h"
#include "pixels/picture_access.h"

namespace {

// True when there is nothing to move (delta 0); otherwise the horizontal
// scroll reports true and the vertical one false, as without in-place access.
bool ScrollPicture(REALpictureStruct* picture, int32_t delta, bool horizontal) {
  if (!picture) return false;
  if (delta == 0) return true;
  PictureEditor editor;
  const bool editable = GetPictureEditor(editor, picture);
  ClosePictureEditor(editor);
  return !editable && horizontal;
}

}  // namespace

unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t delta, unsigned char, unsigned char) {
  return ScrollPicture(picture, delta, true) ? 1 : 0;
}

unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char, unsigned char) {
  return ScrollPicture(picture, delta, false) ? 1 : 0;
}

unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask) {
  if (!ScrollHorizontalQVT(picture, deltaX, wrap, scrollmask)) return 0;
  return ScrollVerticalQVT(picture, deltaY, wrap, scrollmask);
}
