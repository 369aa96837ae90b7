// Free rotation: angle reduction, the line shear, pass and result sizes,
// background and blending, release of every intermediate picture.
#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include <gdk/gdk.h>

#include "geometry/handlers.h"
#include "geometry/kernels.h"
#include "tests/support/direct_calls.h"
#include "tests/support/images.h"
#include "tests/support/pixels.h"

using namespace testpix;

namespace {

// The remainder of a whole number |v| >= 2^53 modulo 360, from its binary
// form m * 2^e: (m mod 360) * (2^e mod 360) mod 360.
double WholeRemainder360(double v) {
  int e;
  const double frac = std::frexp(std::fabs(v), &e);
  uint64_t m = static_cast<uint64_t>(std::ldexp(frac, 53));
  uint64_t p = 1;
  for (int i = 0; i < e - 53; ++i) p = p * 2 % 360;
  const uint64_t r = (m % 360) * p % 360;
  return v < 0 && r ? 360.0 - r : static_cast<double>(r);
}

TEST(GeometryRotateAngle, ReductionEndsAndIsExact) {
  const std::pair<double, double> cases[] = {{720, 0}, {-360, 0}, {-90, 270}, {450, 90}, {-1e-20, 0}, {359.5, 359.5},
                                             {-0.25, 359.75}, {30, 30}, {1e300, WholeRemainder360(1e300)},
                                             {-1e300, WholeRemainder360(-1e300)}, {1e20, WholeRemainder360(1e20)},
                                             {-3.0e17, WholeRemainder360(-3.0e17)}};
  for (auto [v, expected] : cases) {
    double a = -1;
    EXPECT_TRUE(ReduceAngle(v, &a) && a == expected) << v << " gives " << a;
  }
  double a;
  for (double v : {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()})
    EXPECT_FALSE(ReduceAngle(v, &a));
}

// Background (200, 100, 0), weight 0.5, pixels (100, 50, 255) and (11, 0, 7):
// bw = (100, 50, 0); pixel 0 keeps (50, 25, 128) and passes on (50, 25, 127),
// pixel 1 keeps (6, 0, 4) and passes on (5, 0, 3).
TEST(GeometryRotateShear, LineBlendsWithNeighbourAndBackground) {
  const uint32_t bg = Rgb(200, 100, 0);
  const uint32_t p0 = Rgb(150, 75, 128), p1 = Rgb(56, 25, 131), tail = Rgb(105, 50, 3);
  ReaderImage row(2, 1, {Rgb(100, 50, 255), Rgb(11, 0, 7)});
  ReaderImage column(1, 2, {Rgb(100, 50, 255), Rgb(11, 0, 7)});
  const std::pair<int32_t, std::vector<uint32_t>> cases[] = {
      {1, {bg, p0, p1, tail, bg, bg}}, {-1, {p1, tail, bg, bg, bg, bg}},
      {4, {bg, bg, bg, bg, p0, p1}},   {-3, {bg, bg, bg, bg, bg, bg}}};
  for (const auto& [shift, expected] : cases) {
    WriterImage h(6, 1), v(1, 6);
    HorzSkew(row.reader, 0, h.writer, 0, shift, 0.5, bg);
    VertSkew(column.reader, v.writer, 0, shift, 0.5, bg);
    EXPECT_TRUE(h.Pixels() == expected && v.Pixels() == expected) << shift;
  }
  WriterImage plain(4, 1);  // weight 0: a plain shifted copy, the background after it
  HorzSkew(row.reader, 0, plain.writer, 0, 1, 0.0, 0xFF00FFFF);  // the word is written unchanged
  EXPECT_EQ(plain.Pixels(), (std::vector<uint32_t>{0xFF00FFFF, Rgb(100, 50, 255), Rgb(11, 0, 7), 0x00FFFF}));
}

// Pass 2's rows give every column what VertSkew gives it, for shifts that
// put columns partly or wholly above or below the rows made (they never
// grow from one column to the next, as pass 2's do).
TEST(GeometryRotateShear, ColumnRowsMatchSingleColumns) {
  std::mt19937 rng(42);
  const int32_t w = 70, h = 13, height = 30;
  ReaderImage src(w, h, RandomPixels(w * h, 1));
  WriterImage single(w, height);
  std::vector<int32_t> shifts(w);
  std::vector<double> weights(w);
  int32_t shift = 40;
  for (int32_t k = 0; k < w; ++k) {
    shifts[k] = shift -= static_cast<int32_t>(rng() % 3), weights[k] = (rng() % 1000) / 1000.0;
    VertSkew(src.reader, single.writer, k, shifts[k], weights[k], 0x8899AA);
  }
  const ColumnShear shear(shifts, weights, 0x8899AA);
  MemoryReader blended;
  ASSERT_TRUE(BlendColumns(src.reader, shear, blended));
  std::vector<uint32_t> made;
  std::vector<uint8_t> rows(3 * w * height);
  ShiftColumns({blended.rows, 3 * w, h + 1, 0, h + 1, 0}, 0, height, shear, rows.data(), 3 * w, 0, w);
  for (size_t k = 0; k < rows.size(); k += 3) made.push_back(ReaderPixel(&rows[k]));
  EXPECT_EQ(made, single.Pixels());
}

class GeometryRotateMethod : public HostTest {
 protected:
  ph::Ref Rotated(const ph::Ref& pic, double angle, uint32_t bg = 0xFFFFFF) {
    return AsPicture(host().Call(pic, "RotateQVT", {angle, ph::Color{bg}}));
  }
};

// Each pass on its own, with t = s = 1/2 and cos = 1/2 (theta = 60 degrees)
// on a 3 x 2 source of greys and a grey background of 100, worked by hand:
// pass 1 shifts rows by 0.25 and 0.75; pass 2 shifts columns by 1, 0.5, 0
// and -0.5 into 3 rows; pass 3 shifts rows by -0.5, 0 and 0.5 into 3 columns.
TEST_F(GeometryRotateMethod, EachPassShearsByItsOffsets) {
  const uint32_t bg = Grey(100);
  const auto p1 = testpix::Greys({25, 150, 80, 85, 125, 150, 25, 100});                        // 4 x 2
  const auto p2 = testpix::Greys({100, 125, 80, 92, 25, 150, 25, 100, 125, 125, 100, 100});    // 4 x 3
  const auto p3 = testpix::Greys({113, 102, 86, 25, 150, 25, 113, 125, 112});                  // 3 x 3
  ReaderImage source(3, 2, testpix::Greys({0, 200, 40, 200, 0, 100})), pass1(4, 2, p1), pass2(4, 3, p2);
  DirectCalls direct(host());
  const double theta = M_PI / 3;
  const std::tuple<REALpictureStruct*, int32_t, std::vector<uint32_t>> cases[] = {
      {Rotate45part1(source.reader, source.reader, bg, theta, 0.5, 0.5), 4, p1},
      {Rotate45part2(source.reader, pass1.reader, bg, theta, 0.5, 0.5), 4, p2},
      {Rotate45part3(source.reader, pass2.reader, bg, theta, 0.5, 0.5), 3, p3}};
  for (const auto& [picture, width, expected] : cases) {
    ph::Ref pass = direct.Adopt(picture);
    EXPECT_EQ(std::pair(host().Width(pass), host().Pixels(pass)), std::pair(width, expected));
  }
}

// Result sizes; for 100 x 50 at 30 degrees the passes are 113 x 50, 113 x 94
// and 112 x 94.
TEST_F(GeometryRotateMethod, ResultSizesAndExactTurns) {
  double theta, s, t;
  ShearFactors(30, &theta, &s, &t);
  ShearSizes sizes;
  ASSERT_TRUE(ComputeShearSizes(100, 50, theta, s, t, &sizes));
  EXPECT_EQ(std::tuple(sizes.width1, sizes.height2, sizes.width3), std::tuple(113, 94, 112));
  struct Case { int32_t w, h; double angle; int32_t rw, rh; };
  for (Case c : {Case{100, 50, 30, 112, 94}, Case{100, 100, 45, 142, 142}, Case{1, 1, 45, 2, 2},
                 Case{100, 50, 0.5, 101, 51}, Case{100, 50, 90.5, 51, 101}, Case{100, 50, -330, 112, 94}}) {
    ph::Ref out = Rotated(Flat(c.w, c.h, 0), c.angle);
    EXPECT_EQ(std::pair(host().Width(out), host().Height(out)), std::pair(c.rw, c.rh)) << c.angle;
  }
  // Exact multiples of 90 degrees are the turns, without blending.
  const auto px = RandomPixels(5 * 3, 3);
  ph::Ref pic = Picture(5, 3, px);
  const std::pair<double, const char*> turns[] = {
      {0, "CloneQVT"},       {360, "CloneQVT"},      {-360, "CloneQVT"},    {720, "CloneQVT"},
      {-1e-20, "CloneQVT"},  {90, "Rotate90QVT"},    {-270, "Rotate90QVT"}, {450, "Rotate90QVT"},
      {180, "Rotate180QVT"}, {-180, "Rotate180QVT"}, {270, "Rotate270QVT"}, {-90, "Rotate270QVT"}};
  for (auto [angle, method] : turns) {
    ph::Ref out = Rotated(pic, angle, 0x123456), expected = AsPicture(host().Call(pic, method));
    EXPECT_NE(out.handle(), pic.handle());
    EXPECT_EQ(host().Width(out), host().Width(expected)) << angle;
    EXPECT_EQ(host().Pixels(out), host().Pixels(expected)) << angle;
  }
  EXPECT_EQ(host().Pixels(pic), px);
}

// A 60 x 30 picture, left half one colour and right half another, against the
// ideal rotation about the centres: pixels 2 or more pixels inside a half hold
// exactly its colour, pixels 2 or more outside the picture exactly the
// background.
TEST_F(GeometryRotateMethod, MatchesGeometricRotation) {
  const uint32_t bg = Rgb(18, 52, 86), left = Rgb(240, 10, 130), right = Rgb(30, 200, 250);
  const int32_t w = 60, h = 30;
  std::vector<uint32_t> px(size_t(w) * h);
  for (size_t i = 0; i < px.size(); ++i) px[i] = int32_t(i % w) < w / 2 ? left : right;
  ph::Ref pic = Picture(w, h, px);
  for (double angle : {30.0, 45.0, 200.0, 300.0, -70.0}) {
    ph::Ref out = Rotated(pic, angle, bg);
    const int32_t rw = host().Width(out), rh = host().Height(out);
    const auto got = host().Pixels(out);
    const double th = angle * M_PI / 180, c = std::cos(th), s = std::sin(th);
    for (int32_t y = 0; y < rh; ++y) {
      for (int32_t x = 0; x < rw; ++x) {
        const double u = x - (rw - 1) / 2.0, v = y - (rh - 1) / 2.0;
        const double sx = u * c - v * s + (w - 1) / 2.0, sy = u * s + v * c + (h - 1) / 2.0;
        // Distance inside the picture (negative outside) and from the middle line.
        const double inside = std::min({sx + 0.5, w - 0.5 - sx, sy + 0.5, h - 0.5 - sy});
        const uint32_t p = got[size_t(y) * rw + x];
        if (inside <= -2) {
          ASSERT_EQ(p, bg) << angle << " at " << x << "," << y;
        } else if (inside >= 2 && std::fabs(sx - (w / 2 - 0.5)) >= 2) {
          ASSERT_EQ(p, sx < w / 2 - 0.5 ? left : right) << angle << " at " << x << "," << y;
        }
      }
    }
  }
}

TEST_F(GeometryRotateMethod, TinyResidualAddsOneBackgroundRowAndColumn) {
  const auto px = RandomPixels(7 * 5, 5);
  ph::Ref pic = Picture(7, 5, px);
  const auto quarter = testpix::QuarterTurn(px, 7, 5);  // 5 x 7
  ph::Ref out = Rotated(pic, 90.0000001, 0x0000FF);
  ASSERT_EQ(host().Width(out), 6);
  ASSERT_EQ(host().Height(out), 8);
  std::vector<uint32_t> expected(48, 0x0000FF);
  for (int32_t i = 0; i < 35; ++i) expected[size_t(i / 5) * 6 + i % 5] = quarter[i];
  EXPECT_EQ(host().Pixels(out), expected);
}

// Also the two routes: where host pictures keep every bit (a 24- or 32-bit
// screen) only the result is built, on other screens (a 16-bit one) every
// pass as well; either way the bytes are those of the passes through host
// pictures, which on a 16-bit screen differ from the passes kept in memory.
TEST_F(GeometryRotateMethod, BadInputGivesNilAndReleasesEverything) {
  // Not-a-number and infinite angles, and nil pictures, are in the sweep.
  ph::Ref pic = Picture(9, 6, RandomPixels(9 * 6, 7));
  EXPECT_EQ(host().Width(Rotated(pic, 1e300)), host().Width(Rotated(pic, WholeRemainder360(1e300))));

  DirectCalls direct(host());
  auto* handle = Handle(pic);
  const uint32_t bg = 0xA5123457;
  const bool exact = KeepsEveryBit(handle);
  const int depth = gdk_visual_get_depth(gdk_visual_get_system());
  EXPECT_EQ(exact, depth == 24 || depth == 32);
  auto throughHost = [&](double angle, const ph::Ref& from) {
    const char* turns[] = {"CloneQVT", "Rotate90QVT", "Rotate180QVT", "Rotate270QVT"};
    const ph::Ref turned = AsPicture(host().Call(from, turns[int(angle / 90)]));
    PictureReader reader;
    GetPictureReader(reader, Handle(turned));
    REALpictureStruct* out = Rotate45(reader, std::fmod(angle, 90), bg);
    reader.Release();  // before the host is called again
    return host().Pixels(direct.Adopt(out));
  };
  // A failed pass, or a failed turn before the passes: nothing may stay held.
  for (double angle : {30.0, 120.0, 200.0, 300.0}) {
    const int builds = exact ? 1 : angle < 90 ? 3 : 4;
    for (int n = 1; n <= builds; ++n) {
      direct.FailBuildsFrom(n);
      EXPECT_EQ(Rotate(handle, angle, bg), nullptr) << angle << " " << n;
    }
    direct.FailBuildsFrom(0);
    ph::Ref ok = direct.Adopt(Rotate(handle, angle, bg));
    EXPECT_EQ(direct.Builds(), builds);
    EXPECT_EQ(host().Pixels(ok), throughHost(angle, pic)) << angle;
  }
  // In memory, passes 2 and 3 go in bands of rows: here three (the last one
  // short) over two blocks of columns.
  ph::Ref banded = Picture(70, 150, RandomPixels(70 * 150, 8));
  PictureReader source;
  ASSERT_TRUE(GetPictureReader(source, Handle(banded)));
  const ph::Ref inMemory = direct.Adopt(Rotate45InMemory(source, 30, bg));
  source.Release();
  EXPECT_EQ(host().Height(inMemory), 165);
  EXPECT_EQ(host().Pixels(inMemory) == throughHost(30, banded), exact);
  // 32767 x 12 sheared by 10 degrees: the first pass would be 32767 +
  // trunc(tan 5 * 12) = 32768 wide, so nothing is turned or built (the result,
  // 32272 wide, would fit).
  ph::Ref wide = Flat(32767, 12, 0x808080), tall = Flat(12, 32767, 0x808080);
  direct.FailBuildsFrom(0);
  for (auto [p, angle] : {std::pair{&wide, 10.0}, {&wide, 190.0}, {&tall, 100.0}, {&tall, 280.0}})
    EXPECT_EQ(Rotate(Handle(*p), angle, 0), nullptr) << angle;
  EXPECT_EQ(direct.Builds(), 0);
  ph::Ref foreign = host().NewForeignPicture(4, 3, std::vector<uint32_t>(12, 0x808080));
  EXPECT_EQ(host().Width(Rotated(foreign, 30)), 5);  // read through its clone
  direct.RefuseNewPictures(true);
  for (double angle : {0.0, 30.0, 90.0, 120.0}) EXPECT_EQ(Rotate(Handle(foreign), angle, 0), nullptr) << angle;
}

}  // namespace
