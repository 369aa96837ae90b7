// PictureMatrixQVT: kernel orientation, skipped cells, displacement and
// scale, rectangles, channel variants and the release of the previous result.
#include <cmath>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

Setting M(int32_t x, int32_t y, int32_t v) { return {"Matrix", {x, y}, v}; }
Setting D(int32_t v) { return {"Displacement", {}, v}; }
Setting S(double v) { return {"ScaleFactor", {}, v}; }

class MatrixFilter : public FilterTest {
 protected:
  ph::Ref Matrix(const ph::Ref& source, const std::vector<Setting>& s = {}) { return Make("PictureMatrixQVT", source, s); }
};

// The identity kernel within the clipped rectangle [l, r) x [t, b): the
// source two pixels inside its edges, black elsewhere.
std::vector<uint32_t> Framed(const std::vector<uint32_t>& src, int32_t w, int32_t h, int32_t l,
                             int32_t t, int32_t r, int32_t b) {
  return Generate(w, h, [&](int32_t x, int32_t y) {
    return x >= l + 2 && x < r - 2 && y >= t + 2 && y < b - 2 ? src[size_t(y) * w + x] : 0u;
  });
}

// A single cell (kx, ky) = 1 copies the pixel kx - 2 columns to the right and
// ky - 2 rows below (a correlation); nothing is computed in a two-pixel frame.
TEST_F(MatrixFilter, EachCellWeighsItsOwnNeighbour) {
  const int32_t w = 8, h = 7;
  const std::vector<uint32_t> src = RandomPixels(w * h, 5);
  ph::Ref p = Picture(w, h, src);
  EXPECT_EQ(RunOn(Matrix(p)), std::vector<uint32_t>(w * h, 0u));  // default cells
  for (int32_t k = 0; k < 25; ++k) {
    const int32_t kx = k % 5, ky = k / 5;
    EXPECT_EQ(RunOn(Matrix(p, {M(kx, ky, 1)})), Generate(w, h, [&](int32_t x, int32_t y) {
                return x < 2 || x >= w - 2 || y < 2 || y >= h - 2 ? 0u : src[size_t(y + ky - 2) * w + (x + kx - 2)];
              })) << "cell (" << kx << ", " << ky << ")";
  }
  // Narrower than five pixels: nothing is computed, and the run succeeds.
  EXPECT_EQ(RunOn(Matrix(Flat(4, 9, 0xFFFFFF), {M(2, 2, 1)})), std::vector<uint32_t>(36, 0u));
}

// The first computed pixel of a flat picture wide enough for whole vectors.
TEST_F(MatrixFilter, SumsAreDisplacedScaledTruncatedAndClamped) {
  std::vector<Setting> nine = {S(1.0 / 9.0)};
  for (int32_t i = 0; i < 9; ++i) nine.push_back(M(1 + i % 3, 1 + i / 3, 1));
  struct Case { uint32_t flat; std::vector<Setting> settings; uint32_t expected; };
  const Case cases[] = {
      {Grey(1), {M(2, 2, 254)}, Grey(254)},
      // 255 and above contribute nothing (counted, 255 would make 509 -> 255).
      {Grey(1), {M(2, 2, 254), M(0, 0, 255), M(4, 4, 1000), M(3, 3, INT32_MAX)}, Grey(254)},
      {Grey(1), {M(2, 2, 254), M(1, 1, -1)}, Grey(253)},  // negatives subtract
      // trunc(0.5 * 150) = 75, trunc(0.5 * 305) = 152, trunc(0.5 * 50) = 25.
      {Rgb(100, 255, 0), {M(2, 2, 1), D(50), S(0.5)}, Rgb(75, 152, 25)},
      {Rgb(100, 255, 0), {M(2, 2, 1), S(1.0 / 3.0)}, Rgb(33, 85, 0)},  // never rounded up
      {Rgb(100, 255, 0), {M(2, 2, 1), D(-101)}, Rgb(0, 154, 0)},       // per channel
      // 900 * (1/9) in plain double precision is 100.0.
      {Grey(100), nine, Grey(100)},
      // -16843009 * 255 = -(2^32 - 1): a wrapping 32-bit sum would give 1 + 200.
      {Rgb(255, 0, 1), {M(2, 2, -16843009), D(200)}, Rgb(0, 200, 0)},
      {Rgb(255, 0, 1), {M(2, 2, -1), D(INT32_MIN)}, 0},  // -D is beyond 32 bits
      {Rgb(255, 0, 1), {M(2, 2, 1), S(1e300)}, Rgb(255, 0, 255)},
      {Rgb(255, 0, 1), {M(2, 2, 1), S(-1e300)}, 0},
      {Rgb(255, 0, 1), {M(2, 2, 1), S(NAN)}, 0},  // not a number gives 0
  };
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(RunOn(Matrix(Flat(16, 5, cases[i].flat), cases[i].settings))[34], cases[i].expected) << "case " << i;
}

TEST_F(MatrixFilter, RectangleIsClippedToThePicture) {
  const int32_t w = 14, h = 9;
  const std::vector<uint32_t> src = ph::SamplePixels(w, h);
  ph::Ref o = Matrix(Picture(w, h, src), {M(2, 2, 1)});
  struct Case {
    int32_t minX, minY, maxX, maxY;    // as set
    int32_t left, top, right, bottom;  // as clipped
  };
  const Case cases[] = {
      {3, 0, 8, 0, 3, 0, 8, h},     // MaxX = MinX + 5: one column, x = 5
      {3, 0, 0, 0, 3, 0, w, h},     // MaxX 0: up to the right edge
      {3, 0, 3, 0, 3, 0, w, h},     // MaxX <= MinX: the same
      {3, 0, 100, 0, 3, 0, w, h},   // MaxX beyond the picture: cut
      {0, 1, 0, 6, 0, 1, w, 6},     // MaxY = MinY + 5: one row, y = 3
      {-4, -3, 9, 0, 0, 0, 9, h},   // negative MinX, MinY count as 0
      {-4, 0, -2, 0, 0, 0, w, h},   // ... also against MaxX
      {20, 0, 0, 0, w, 0, w, h},    // MinX beyond the picture: nothing
  };
  for (const Case& c : cases) {
    Apply(o, {{"MinX", {}, c.minX}, {"MinY", {}, c.minY}, {"MaxX", {}, c.maxX}, {"MaxY", {}, c.maxY}});
    EXPECT_EQ(RunOn(o), Framed(src, w, h, c.left, c.top, c.right, c.bottom))
        << c.minX << " " << c.minY << " " << c.maxX << " " << c.maxY;
  }
}

TEST_F(MatrixFilter, RunRGBComputesOnlyTheChosenChannels) {
  std::vector<Setting> blur = {S(1.0 / 16.0)};
  for (int32_t i = 0; i < 9; ++i) blur.push_back(M(1 + i % 3, 1 + i / 3, (1 + i % 3 % 2) * (1 + i / 3 % 2)));
  ph::Ref o = Matrix(Picture(10, 8, ph::SamplePixels(10, 8)), blur);
  const std::vector<uint32_t> all = RunOn(o);
  for (uint32_t flags = 1; flags < 8; ++flags) {
    auto keep = [&](int k) { return [=](uint32_t v) { return flags >> k & 1 ? v : 0u; }; };
    EXPECT_EQ(RunOn(o, "RunRGB", {bool(flags & 1), bool(flags & 2), bool(flags & 4)}), MapChannels(all, keep(0), keep(1), keep(2)))
        << flags;
  }
  // No channel: false at once, without even releasing the previous result
  // (a nil source would make any other run release it).
  const ph::Ref before = Destination(o);
  Set(o, "SourcePicture", ph::Ref{});
  EXPECT_FALSE(Call(o, "RunRGB", {false, false, false}));
  EXPECT_EQ(Destination(o).get(), before.get());
  EXPECT_FALSE(Call(o, "RunRGB", {false, true, false}));
  EXPECT_FALSE(Destination(o));
}

}  // namespace
