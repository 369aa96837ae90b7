// Right-angle turns and mirrors: exact permutations, sizes, round trips.
#include <string>

#include "geometry/turns.h"
#include "tests/geometry/geometry_test_support.h"

using namespace geometry_test;

namespace {

using Kernel = void (*)(const PictureReader&, PictureWriter&);

struct Turn {
  const char* method;
  Kernel kernel;
  bool swaps;
  // Where source pixel (x, y) of a w x h picture lands.
  void (*map)(int32_t x, int32_t y, int32_t w, int32_t h, int32_t* dx, int32_t* dy);
};

const Turn kTurns[] = {
    {"CloneQVT", CopyBitmap, false, [](int32_t x, int32_t y, int32_t, int32_t, int32_t* dx, int32_t* dy) { *dx = x, *dy = y; }},
    {"HMirrorQVT", HMirror, false, [](int32_t x, int32_t y, int32_t w, int32_t, int32_t* dx, int32_t* dy) { *dx = w - 1 - x, *dy = y; }},
    {"VMirrorQVT", VMirror, false, [](int32_t x, int32_t y, int32_t, int32_t h, int32_t* dx, int32_t* dy) { *dx = x, *dy = h - 1 - y; }},
    {"Rotate90QVT", Rotate90, true, [](int32_t x, int32_t y, int32_t w, int32_t, int32_t* dx, int32_t* dy) { *dx = y, *dy = w - 1 - x; }},
    {"Rotate180QVT", Rotate180, false, [](int32_t x, int32_t y, int32_t w, int32_t h, int32_t* dx, int32_t* dy) { *dx = w - 1 - x, *dy = h - 1 - y; }},
    {"Rotate270QVT", Rotate270, true, [](int32_t x, int32_t y, int32_t, int32_t h, int32_t* dx, int32_t* dy) { *dx = h - 1 - y, *dy = x; }},
};

std::vector<uint32_t> RunKernel(const Turn& t, int32_t w, int32_t h, const std::vector<uint32_t>& px) {
  ReaderImage src(w, h, px);
  WriterImage dst(t.swaps ? h : w, t.swaps ? w : h);
  t.kernel(src.reader, dst.writer);
  return dst.Pixels();
}

constexpr uint32_t A = 0x102030, B = 0x405060, C = 0x708090, D = 0xA0B0C0;

// The screen-level cases: 3 x 1 "A B C" and 2 x 2 "A B / C D".
TEST(GeometryTurnKernels, SmallPermutations) {
  const std::vector<std::vector<uint32_t>> row = {
      {A, B, C}, {C, B, A}, {A, B, C}, {C, B, A}, {C, B, A}, {A, B, C}};
  const std::vector<std::vector<uint32_t>> square = {
      {A, B, C, D}, {B, A, D, C}, {C, D, A, B}, {B, D, A, C}, {D, C, B, A}, {C, A, D, B}};
  for (size_t i = 0; i < std::size(kTurns); ++i) {
    EXPECT_EQ(RunKernel(kTurns[i], 3, 1, {A, B, C}), row[i]) << kTurns[i].method;
    EXPECT_EQ(RunKernel(kTurns[i], 2, 2, {A, B, C, D}), square[i]) << kTurns[i].method;
  }
}

// Pictures larger than a tile, with odd sizes and padded reader rows, against
// the mapping applied pixel by pixel.
TEST(GeometryTurnKernels, MatchPixelMapping) {
  for (auto [w, h] : {std::pair{37, 70}, {70, 37}, {1, 65}, {65, 1}, {64, 64}}) {
    const auto px = RandomPixels(w, h, static_cast<uint32_t>(w * 1000 + h));
    for (const Turn& t : kTurns) {
      const int32_t dw = t.swaps ? h : w;
      std::vector<uint32_t> expected(px.size());
      for (int32_t y = 0; y < h; ++y) {
        for (int32_t x = 0; x < w; ++x) {
          int32_t dx, dy;
          t.map(x, y, w, h, &dx, &dy);
          expected[static_cast<size_t>(dy) * dw + dx] = px[static_cast<size_t>(y) * w + x];
        }
      }
      EXPECT_EQ(RunKernel(t, w, h, px), expected) << t.method << " " << w << "x" << h;
    }
  }
}

class GeometryTurnMethods : public HostTest {};

TEST_F(GeometryTurnMethods, ResultsAndRoundTripsThroughTheHost) {
  const auto px = RandomPixels(5, 3, 7);
  ph::Ref pic = Picture(5, 3, px), one = Flat(1, 1, 0xABCDEF);
  for (const Turn& t : kTurns) {
    ph::Ref out = AsPicture(host().Call(pic, t.method));
    EXPECT_NE(out.handle(), pic.handle()) << t.method;
    EXPECT_EQ(host().Width(out), t.swaps ? 3 : 5) << t.method;
    EXPECT_EQ(host().Height(out), t.swaps ? 5 : 3) << t.method;
    EXPECT_EQ(host().Pixels(out), RunKernel(t, 5, 3, px)) << t.method;
    EXPECT_EQ(host().Pixels(AsPicture(host().Call(one, t.method))), std::vector<uint32_t>{0xABCDEF});
  }
  EXPECT_EQ(host().Pixels(pic), px);  // the receiver is never changed
  const std::pair<const char*, const char*> trips[] = {{"Rotate90QVT", "Rotate270QVT"}, {"Rotate270QVT", "Rotate90QVT"},
                                                      {"Rotate180QVT", "Rotate180QVT"}, {"HMirrorQVT", "HMirrorQVT"},
                                                      {"VMirrorQVT", "VMirrorQVT"}};
  for (auto [first, second] : trips) {
    ph::Ref back = AsPicture(host().Call(AsPicture(host().Call(pic, first)), second));
    EXPECT_EQ(host().Width(back), 5);
    EXPECT_EQ(host().Pixels(back), px) << first << " then " << second;
  }
}

TEST_F(GeometryTurnMethods, BadReceiversGiveNil) {
  ph::Ref foreign = host().NewForeignPicture(2, 2, std::vector<uint32_t>{A, B, C, D}), pic = Flat(3, 2, A);
  for (const Turn& t : kTurns) {
    // A foreign picture is read through its clone (nil pictures are in the sweep).
    EXPECT_EQ(host().Pixels(AsPicture(host().Call(foreign, t.method))), RunKernel(t, 2, 2, {A, B, C, D}));
  }
  DirectCalls direct(host());
  const PictureTurn handlers[] = {Rotate90, Rotate180, Rotate270, HMirror, VMirror};
  for (PictureTurn handler : handlers) {
    direct.RefuseNewPictures(true);  // no clone: the foreign picture is unreadable
    EXPECT_EQ(handler(Handle(foreign)), nullptr);
    direct.RefuseNewPictures(false);
    direct.FailBuildsFrom(1);  // the host makes no picture from the buffer
    EXPECT_EQ(handler(Handle(pic)), nullptr);
    direct.FailBuildsFrom(0);
  }
}

}  // namespace
