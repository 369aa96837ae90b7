#include "geometry/scroll.h"

#include <cstdlib>
#include <cstring>

#include "plugin/host_calls.h"

namespace {

constexpr size_t kPixelBytes = 4;

size_t Pixels(int32_t count) { return kPixelBytes * static_cast<size_t>(count); }

uint8_t* EditorRow(const PictureEditor& e, int32_t y) {
  return e.base + static_cast<ptrdiff_t>(y) * e.rowBytes;
}

size_t Rows(const PictureEditor& e, int32_t count) {
  return static_cast<size_t>(count) * static_cast<size_t>(e.rowBytes);
}

// An editor whose rows can be addressed as described: pixels, and rows that
// hold at least their pixels.
bool Usable(const PictureEditor& e) {
  return e.base && e.width >= 1 && e.height >= 1 &&
         static_cast<int64_t>(e.rowBytes) >= static_cast<int64_t>(kPixelBytes) * e.width;
}

int64_t Magnitude(int32_t delta) { return delta < 0 ? -static_cast<int64_t>(delta) : delta; }

bool ScrollPicture(REALpictureStruct* picture, int32_t delta, bool wrap, bool scrollmask,
                   bool horizontal) {
  if (!picture) return false;
  // The mask first, by the same method; the picture is left alone if that fails.
  if (scrollmask) {
    if (REALpictureStruct* mask = REALGetPictureMask(picture, false)) {
      const bool shifted = ScrollPicture(mask, delta, wrap, false, horizontal);
      REALUnlockObject(reinterpret_cast<REALobjectStruct*>(mask));
      if (!shifted) return false;
    }
  }
  if (delta == 0) return true;

  PictureEditor editor;
  // Without in-place access the horizontal scroll reports true, the vertical
  // one false.
  if (!GetPictureEditor(editor, picture)) return horizontal;
  const bool done = horizontal ? ShiftEditorHorizontal(editor, delta, wrap)
                               : ShiftEditorVertical(editor, delta, wrap);
  ClosePictureEditor(editor);
  return done;
}

}  // namespace

int32_t WrapOffset(int32_t delta, int32_t length) {
  if (length < 1) return 0;
  int32_t r = delta % length;
  const int32_t half = length / 2;
  if (r >= half) r -= length;
  if (r <= -half) r += length;
  return r;
}

void WrapRowPixels(uint8_t* row, int32_t width, int32_t r, uint8_t* scratch) {
  if (r > 0) {
    // The first width - r pixels are saved, the last r come to the front.
    const int32_t kept = width - r;
    std::memcpy(scratch, row, Pixels(kept));
    std::memmove(row, row + Pixels(kept), Pixels(r));
    std::memcpy(row + Pixels(r), scratch, Pixels(kept));
  } else if (r < 0) {
    // The first -r pixels are saved and go to the end.
    const int32_t moved = -r;
    std::memcpy(scratch, row, Pixels(moved));
    std::memmove(row, row + Pixels(moved), Pixels(width - moved));
    std::memcpy(row + Pixels(width - moved), scratch, Pixels(moved));
  }
}

void ShiftRowPixels(uint8_t* row, int32_t width, int32_t delta) {
  if (delta > 0) {
    std::memmove(row + Pixels(delta), row, Pixels(width - delta));
    std::memset(row, 0xFF, Pixels(delta));
  } else if (delta < 0) {
    const int32_t d = -delta;
    std::memmove(row, row + Pixels(d), Pixels(width - d));
    std::memset(row + Pixels(width - d), 0xFF, Pixels(d));
  }
}

void FillEditorWhite(const PictureEditor& editor) {
  std::memset(editor.base, 0xFF, Rows(editor, editor.height));
}

bool ShiftEditorHorizontal(const PictureEditor& editor, int32_t delta, bool wrap) {
  if (!Usable(editor)) return false;
  const int32_t width = editor.width;
  if (wrap) {
    const int32_t r = WrapOffset(delta, width);
    if (r == 0) return true;
    auto* scratch = static_cast<uint8_t*>(std::malloc(Pixels(width)));
    if (!scratch) return true;  // nothing moves, still reported as done
    for (int32_t y = 0; y < editor.height; ++y) WrapRowPixels(EditorRow(editor, y), width, r, scratch);
    std::free(scratch);
    return true;
  }
  if (delta == 0) return true;
  if (Magnitude(delta) >= width) {
    FillEditorWhite(editor);
    return true;
  }
  for (int32_t y = 0; y < editor.height; ++y) ShiftRowPixels(EditorRow(editor, y), width, delta);
  return true;
}

bool ShiftEditorVertical(const PictureEditor& editor, int32_t delta, bool wrap) {
  if (!Usable(editor)) return false;
  const int32_t height = editor.height;
  uint8_t* base = editor.base;
  if (wrap) {
    const int32_t r = WrapOffset(delta, height);
    if (r == 0) return true;
    // Down by r: the top height - r rows are saved and go below the bottom r.
    // Up by -r: the top -r rows are saved and go to the bottom.
    const int32_t saved = r > 0 ? height - r : -r;
    const int32_t rest = height - saved;
    auto* scratch = static_cast<uint8_t*>(std::malloc(Rows(editor, saved)));
    if (!scratch) return false;
    std::memcpy(scratch, base, Rows(editor, saved));
    std::memmove(base, base + Rows(editor, saved), Rows(editor, rest));
    std::memcpy(base + Rows(editor, rest), scratch, Rows(editor, saved));
    std::free(scratch);
    return true;
  }
  if (delta == 0) return true;
  if (Magnitude(delta) >= height) {
    FillEditorWhite(editor);
    return true;
  }
  if (delta > 0) {
    // One row at a time from the bottom, so nothing is overwritten unread.
    for (int32_t y = height - delta - 1; y >= 0; --y) {
      std::memcpy(EditorRow(editor, y + delta), EditorRow(editor, y), Rows(editor, 1));
    }
    std::memset(base, 0xFF, Rows(editor, delta));
  } else {
    const int32_t d = -delta;
    std::memmove(base, base + Rows(editor, d), Rows(editor, height - d));
    std::memset(base + Rows(editor, height - d), 0xFF, Rows(editor, d));
  }
  return true;
}

unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                  unsigned char scrollmask) {
  return ScrollPicture(picture, delta, wrap != 0, scrollmask != 0, true) ? 1 : 0;
}

unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                unsigned char scrollmask) {
  return ScrollPicture(picture, delta, wrap != 0, scrollmask != 0, false) ? 1 : 0;
}

unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask) {
  if (!ScrollHorizontalQVT(picture, deltaX, wrap, scrollmask)) return 0;
  return ScrollVerticalQVT(picture, deltaY, wrap, scrollmask);
}
