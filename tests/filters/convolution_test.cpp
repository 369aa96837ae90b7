// PictureConvolutionQVT: tap positions and the region they allow, the clamp
// between the passes, and channel selection. (Refused counts and failed runs
// that keep the previous result are pinned by the sweep.)
#include "tests/filters/filter_test_support.h"

using namespace filter_test;

namespace {

class Convolution : public FilterTest {
 protected:
  ph::Ref Kernel(const ph::Ref& source, int32_t n, const std::vector<double>& hor,
                 const std::vector<double>& ver) {
    ph::Ref o = Make("PictureConvolutionQVT", source);
    if (n) Set(o, "ValueCount", n);  // 0 keeps the constructor's count
    for (int32_t i = 0; i < int32_t(hor.size()); ++i) Apply(o, {{"Hor", {i}, hor[i]}});
    for (int32_t i = 0; i < int32_t(ver.size()); ++i) Apply(o, {{"Ver", {i}, ver[i]}});
    return o;
  }
};

// A weight 1 at tap h + dx horizontally and h + dy vertically, h = n / 2,
// copies source pixel (x + dx, y + dy) into columns h .. W - 2h and rows
// h .. H - 2h: even counts lean left and up, and the right and bottom
// margins are 2h wide.
TEST_F(Convolution, TapsAndRegionFollowTheCentreAtHalfTheCount) {
  struct Case { int32_t n, w, h; std::vector<int32_t> shifts; };
  const Case cases[] = {{2, 9, 8, {-1, 0}},           {3, 9, 8, {-1, 0, 1}},
                        {4, 11, 9, {-2, -1, 0, 1}},   {5, 11, 9, {-2, 0, 2}},
                        {20, 34, 33, {-10, 0, 9}}};
  for (const Case& c : cases) {
    const int32_t h = c.n / 2;
    const std::vector<uint32_t> src = RandomPixels(c.w * c.h, 17 + c.n);
    ph::Ref p = Picture(c.w, c.h, src);
    for (int32_t shift : c.shifts) {
      for (auto [dx, dy] : {std::pair{shift, 0}, std::pair{0, shift}}) {
        std::vector<double> hor(c.n, 0.0), ver(c.n, 0.0);
        hor[h + dx] = ver[h + dy] = 1.0;
        EXPECT_EQ(RunOn(Kernel(p, c.n, hor, ver), "Run", {7}), Generate(c.w, c.h, [&](int32_t x, int32_t y) {
                    if (x < h || x > c.w - 2 * h || y < h || y > c.h - 2 * h) return 0u;
                    return src[size_t(y + dy) * c.w + (x + dx)];
                  })) << "n " << c.n << " dx " << dx << " dy " << dy;
      }
    }
  }
  // Too small for any column (W < 3h): black, and still true.
  EXPECT_EQ(RunOn(Kernel(Flat(5, 9, 0xFFFFFF), 5, {0, 0, 1}, {0, 0, 1}), "Run", {7}),
            std::vector<uint32_t>(45, 0u));
}

TEST_F(Convolution, HorizontalResultIsClampedAndTruncatedBeforeTheVerticalPass) {
  struct Case { uint32_t flat; std::vector<double> hor, ver; uint32_t expected; };
  const Case cases[] = {
      {Grey(200), {}, {}, 0},                          // default weights: black
      {Grey(100), {1, 1, 1}, {0, 0.5, 0}, Grey(127)},  // 300 -> 255, then 127 (not 150)
      {Grey(100), {0, -1, 0}, {0, -1, 0}, 0},          // -100 -> 0, and -0 is 0 (not 100)
      {Grey(255), {0.5, 0.5, 0.5}, {0, 1, 0}, Grey(255)},
      {Grey(10), {0.25, 0.25, 0.25}, {0, 1, 0}, Grey(7)},     // 7.5 -> 7
      {Grey(10), {0.25, 0.25, 0.25}, {0, 0.99, 0}, Grey(6)},  // then 6.93 -> 6
  };
  for (const Case& c : cases)
    EXPECT_EQ(RunOn(Kernel(Flat(7, 7, c.flat), 3, c.hor, c.ver), "Run", {7})[3 * 7 + 3], c.expected);
}

}  // namespace
