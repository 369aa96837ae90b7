// PictureMatrix3DQVT and PictureSepiaQVT: the per-pixel colour rules with
// their exact arithmetic, unused cells and rectangles.
#include <cmath>

#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

Setting C(int32_t x, int32_t y, double v) { return {"Matrix", {x, y}, v}; }
const std::vector<Setting> kIdentity = {C(0, 0, 1), C(1, 1, 1), C(2, 2, 1)};

std::vector<Setting> With(std::vector<Setting> a, const std::vector<Setting>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class Matrix3D : public FilterTest {};

TEST_F(Matrix3D, CellsWeighOffsetAndClampEachChannel) {
  const std::vector<uint32_t> four = {Rgb(5, 100, 200), Rgb(10, 0, 255), Rgb(200, 50, 0), Grey(9)};
  std::vector<Setting> grey, unused = {C(3, 3, 500)};
  for (int32_t j = 0; j < 3; ++j) grey = With(grey, {C(0, j, 0.25), C(1, j, 0.5), C(2, j, 0.25)});
  for (int32_t i = 0; i < 5; ++i) unused = With(unused, {C(4, i, 1000.0 + i), C(i, 4, -1000.0 - i)});
  struct Case { std::vector<uint32_t> src; std::vector<Setting> settings; std::vector<uint32_t> expected; };
  const Case cases[] = {
      {four, {}, {0, 0, 0, 0}},
      {four, kIdentity, four},
      {four, With(kIdentity, unused), four},  // cells beyond the 4 x 4 offsets change nothing
      {{Rgb(1, 2, 2)}, grey, {Grey(1)}},  // 0.25 + 1.0 + 0.5 = 1.75 -> 1
      // Row j is output channel j, column i input channel i: red and blue swapped.
      {four, {C(2, 0, 1), C(1, 1, 1), C(0, 2, 1)}, {Rgb(200, 100, 5), Rgb(255, 0, 10), Rgb(0, 50, 200), Grey(9)}},
      // Input offset of red, -10.
      {four, With(kIdentity, {C(3, 0, -10)}), {Rgb(0, 100, 200), Rgb(0, 0, 255), Rgb(190, 50, 0), Rgb(0, 9, 9)}},
      // The input offset is weighted: red = 2 * (green + 0.5).
      {four, {C(1, 0, 2), C(3, 1, 0.5), C(1, 1, 1), C(2, 2, 1)},
       {Rgb(201, 100, 200), Rgb(1, 0, 255), Rgb(101, 50, 0), Rgb(19, 9, 9)}},
      // Output offsets after weighting: +300 on red, -0.5 on blue (199.5 -> 199, -0.5 -> 0).
      {four, With(kIdentity, {C(0, 3, 300), C(2, 3, -0.5)}),
       {Rgb(255, 100, 199), Rgb(255, 0, 254), Rgb(255, 50, 0), Rgb(255, 9, 8)}},
      // Not a number gives 0, infinity 255.
      {{Rgb(10, 20, 30)}, With(kIdentity, {C(1, 0, NAN), C(2, 3, INFINITY)}), {Rgb(0, 20, 255)}},
  };
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(RunOn(Make("PictureMatrix3DQVT", Picture(int32_t(cases[i].src.size()), 1, cases[i].src), cases[i].settings)),
              cases[i].expected) << "case " << i;
}

class Sepia : public FilterTest {};

Setting F(const char* channel, double v) { return {std::string("Factor") + channel, {}, v}; }
Setting T(const char* channel, int32_t v) { return {std::string("Sepia") + channel, {}, v}; }
std::vector<Setting> Weights(double r, double g, double b) { return {F("Red", r), F("Green", g), F("Blue", b)}; }

TEST_F(Sepia, LuminanceInTenBitFixedPointPlusTints) {
  struct Case { std::vector<Setting> settings; uint32_t colour, expected; };
  const std::vector<Setting> tint10 = {T("Red", 10), T("Green", 10), T("Blue", 10)};
  const Case cases[] = {
      // Defaults 306 + 601 + 116 = 1023: white is 255 * 1023 / 1024 = 254.
      {{}, 0xFFFFFF, Grey(254)},
      {{}, Grey(100), Grey(99)},
      {{}, Rgb(255, 0, 0), Grey(76)},
      {{}, Rgb(0, 255, 0), Grey(149)},
      {{}, Rgb(0, 0, 255), Grey(28)},
      {{}, Rgb(0, 230, 0), Grey(134)},  // 230 * 601; the untruncated 601.088 gives 135
      // Each Factor property weighs its own channel.
      {Weights(1, 0, 0), Rgb(10, 100, 200), Grey(10)},
      {Weights(0, 1, 0), Rgb(10, 100, 200), Grey(100)},
      {Weights(0, 0, 1), Rgb(10, 100, 200), Grey(200)},
      {Weights(0, 0, 0.5), Rgb(10, 100, 200), Grey(100)},
      {Weights(0, 0.9999, 0), 0xFFFFFF, Grey(254)},  // 1023.9 -> 1023
      // Negative sums truncate toward zero: -1500 / 1024 is -1, not -2.
      {With(Weights(-6.0 / 1024, 0, 0), tint10), Rgb(250, 0, 0), Grey(9)},
      {With(Weights(-1023.0 / 1024, 0, 0), tint10), Rgb(1, 0, 0), Grey(10)},
      // Tints are added and clamped, also at the ends of the 32-bit range.
      {{T("Red", 40), T("Green", 20), T("Blue", -20)}, Grey(100), Rgb(139, 119, 79)},
      {{T("Red", 300), T("Green", INT32_MAX), T("Blue", INT32_MIN)}, 0xFFFFFF, Rgb(255, 255, 0)},
      // Weights beyond the range clamp instead of wrapping; NaN weighs nothing.
      {Weights(1e300, 0, 0), Rgb(1, 50, 50), Grey(255)},
      {Weights(1e300, 0, 0), Rgb(0, 50, 50), 0},
      {Weights(-1e300, 0, 0), Rgb(1, 0, 0), 0},
      {Weights(1e6, 1e6, 0), Rgb(255, 255, 0), Grey(255)},  // the sum wraps in 32 bits
      {Weights(NAN, 1, 0), Rgb(200, 30, 0), Grey(30)},
  };
  for (size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(RunOn(Make("PictureSepiaQVT", Flat(1, 1, cases[i].colour), cases[i].settings))[0], cases[i].expected) << "case " << i;
  ph::Ref o = Make("PictureSepiaQVT", {}, {F("Blue", 0.5)});
  EXPECT_EQ(host().GetProperty(o, "FactorRed").AsDouble(), 0.299);
  EXPECT_EQ(host().GetProperty(o, "FactorGreen").AsDouble(), 0.587);
  EXPECT_EQ(host().GetProperty(o, "FactorBlue").AsDouble(), 0.5);
}

}  // namespace
