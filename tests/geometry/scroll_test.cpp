// Scrolling: the shifting steps on a buffer laid out like an editor.
#include <cstring>

#include "geometry/scroll.h"
#include "tests/geometry/geometry_test_support.h"

using namespace geometry_test;

namespace {

constexpr uint32_t kWhite = 0xFFFFFFFF;
constexpr uint32_t kPad = 0x5A5A5A5A;

// A W x H editor over 4-byte pixels with two padding words per row.
struct EditorImage {
  int32_t w, h, stride;
  std::vector<uint32_t> words;
  PictureEditor editor{};
  EditorImage(int32_t w_, int32_t h_) : w(w_), h(h_), stride(w_ + 2), words(size_t(stride) * h_, kPad) {
    for (int32_t i = 0; i < w * h; ++i) At(i % w, i / w) = uint32_t(i / w * 1000 + i % w);
    editor.rowBytes = 4 * stride, editor.base = reinterpret_cast<uint8_t*>(words.data()), editor.width = w, editor.height = h;
  }
  uint32_t& At(int32_t x, int32_t y) { return words[size_t(y) * stride + x]; }
};

// What a scroll by (dx, dy) must leave at (x, y): the original pixel that
// came from (x - dx, y - dy), wrapped or white when it came from outside.
uint32_t Expected(const EditorImage& e, int32_t x, int32_t y, int64_t dx, int64_t dy, bool wrap) {
  int64_t sx = x - dx, sy = y - dy;
  if (wrap) {
    sx = ((sx % e.w) + e.w) % e.w;
    sy = ((sy % e.h) + e.h) % e.h;
  } else if (sx < 0 || sx >= e.w || sy < 0 || sy >= e.h) {
    return kWhite;
  }
  return uint32_t(sy * 1000 + sx);
}

void ExpectScrolled(EditorImage& e, int32_t dx, int32_t dy, bool wrap) {
  // Vertical shifts move whole rows, padding included; filled rows are white
  // to their end.
  const bool allWhite = !wrap && (std::abs(int64_t{dx}) >= e.w || std::abs(int64_t{dy}) >= e.h);
  for (int32_t y = 0; y < e.h; ++y) {
    const bool rowFilled = allWhite || (!wrap && (y - int64_t{dy} < 0 || y - int64_t{dy} >= e.h));
    for (int32_t x = 0; x < e.stride; ++x) {
      const uint32_t expected = x >= e.w ? (rowFilled ? kWhite : kPad) : Expected(e, x, y, dx, dy, wrap);
      ASSERT_EQ(e.At(x, y), expected) << "d=" << dx << "," << dy << " wrap=" << wrap << " at " << x << "," << y;
    }
  }
}

TEST(GeometryScrollKernels, ShiftsInBothDirections) {
  for (bool wrap : {true, false}) {
    for (int32_t d : {7, -3, 23, 2, -2, 1, -9, 10, -10, 11, 40, INT32_MIN, INT32_MAX}) {
      EditorImage across(10, 3), down(3, 10);
      EXPECT_TRUE(ShiftEditorHorizontal(across.editor, d, wrap));
      ExpectScrolled(across, d, 0, wrap);
      EXPECT_TRUE(ShiftEditorVertical(down.editor, d, wrap));
      ExpectScrolled(down, 0, d, wrap);
    }
  }
  EditorImage flat(6, 1);  // one row high: unchanged by any wrapped delta
  for (int32_t d : {1, -1, 5, 12345}) ShiftEditorVertical(flat.editor, d, true), ExpectScrolled(flat, 0, 0, true);
}

// The handlers' reports on this platform, which has no in-place access, are
// pinned by the sweep: horizontal scrolls report true, vertical ones only for
// delta 0, and nothing moves.

}  // namespace
