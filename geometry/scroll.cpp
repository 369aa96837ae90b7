// Scrolling moves a picture's pixels in place, through a picture editor.
// This platform never grants one (GetPictureEditor always fails), so the
// shifting itself is not built here: nothing moves, and the handlers report
// what a refused editor means.
#include "geometry/handlers.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"

namespace {

// The mask first, by the same method; when that reports false the picture is
// left alone. Then true when there is nothing to move (delta 0); otherwise,
// without in-place access, the horizontal scroll reports true and the
// vertical one false.
bool ScrollPicture(REALpictureStruct* picture, int32_t delta, bool scrollmask, bool horizontal) {
  if (!picture) return false;
  if (scrollmask) {
    if (REALpictureStruct* mask = REALGetPictureMask(picture, false)) {
      const bool shifted = ScrollPicture(mask, delta, false, horizontal);
      REALUnlockObject(AsObject(mask));
      if (!shifted) return false;
    }
  }
  if (delta == 0) return true;
  PictureEditor editor;
  const bool editable = GetPictureEditor(editor, picture);
  ClosePictureEditor(editor);
  return !editable && horizontal;
}

}  // namespace

unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t delta, unsigned char, unsigned char scrollmask) {
  return ScrollPicture(picture, delta, scrollmask != 0, true) ? 1 : 0;
}

unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char, unsigned char scrollmask) {
  return ScrollPicture(picture, delta, scrollmask != 0, false) ? 1 : 0;
}

unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask) {
  if (!ScrollHorizontalQVT(picture, deltaX, wrap, scrollmask)) return 0;
  return ScrollVerticalQVT(picture, deltaY, wrap, scrollmask);
}
