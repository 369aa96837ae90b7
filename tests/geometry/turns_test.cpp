// Right-angle turns and mirrors: exact permutations, sizes, and refusals.
#include "geometry/handlers.h"
#include "geometry/kernels.h"
#include "tests/support/direct_calls.h"
#include "tests/support/images.h"
#include "tests/support/pixels.h"

using namespace testpix;

namespace {

using Kernel = void (*)(const PictureReader&, PictureWriter&);

struct Turn {
  const char* method;
  Kernel kernel;
  bool swaps;
  // Where source pixel (x, y) of a w x h picture lands.
  std::pair<int32_t, int32_t> (*map)(int32_t x, int32_t y, int32_t w, int32_t h);
};

const Turn kTurns[] = {
    // ClonePicture is drawn by the host: no kernel of ours, checked through the host only.
    {"CloneQVT", nullptr, false, [](int32_t x, int32_t y, int32_t, int32_t) { return std::pair{x, y}; }},
    {"HMirrorQVT", HMirror, false, [](int32_t x, int32_t y, int32_t w, int32_t) { return std::pair{w - 1 - x, y}; }},
    {"VMirrorQVT", VMirror, false, [](int32_t x, int32_t y, int32_t, int32_t h) { return std::pair{x, h - 1 - y}; }},
    {"Rotate90QVT", Rotate90, true, [](int32_t x, int32_t y, int32_t w, int32_t) { return std::pair{y, w - 1 - x}; }},
    {"Rotate180QVT", Rotate180, false, [](int32_t x, int32_t y, int32_t w, int32_t h) { return std::pair{w - 1 - x, h - 1 - y}; }},
    {"Rotate270QVT", Rotate270, true, [](int32_t x, int32_t y, int32_t, int32_t h) { return std::pair{h - 1 - y, x}; }},
};

std::vector<uint32_t> RunKernel(const Turn& t, int32_t w, int32_t h, const std::vector<uint32_t>& px) {
  ReaderImage src(w, h, px);
  WriterImage dst(t.swaps ? h : w, t.swaps ? w : h);
  t.kernel(src.reader, dst.writer);
  return dst.Pixels();
}

// The mapping applied pixel by pixel: 1 x 1, odd sizes, pictures larger than
// a tile and padded reader rows.
std::vector<uint32_t> Mapped(const Turn& t, int32_t w, int32_t h, const std::vector<uint32_t>& px) {
  std::vector<uint32_t> expected(px.size());
  for (int32_t i = 0; i < w * h; ++i) {
    const auto [dx, dy] = t.map(i % w, i / w, w, h);
    expected[size_t(dy) * (t.swaps ? h : w) + dx] = px[i];
  }
  return expected;
}

TEST(GeometryTurnKernels, MatchPixelMapping) {
  for (auto [w, h] : {std::pair{1, 1}, {3, 1}, {2, 2}, {37, 70}, {70, 37}, {1, 65}, {65, 1}, {64, 64}}) {
    const auto px = RandomPixels(w * h, static_cast<uint32_t>(w * 1000 + h));
    for (const Turn& t : kTurns) {
      if (!t.kernel) continue;
      EXPECT_EQ(RunKernel(t, w, h, px), Mapped(t, w, h, px)) << t.method << " " << w << "x" << h;
    }
  }
}

class GeometryTurnMethods : public HostTest {};

// Through the host: a new picture of the turned size, also of a picture that
// is no drawable (read through its clone); the receiver unchanged.
TEST_F(GeometryTurnMethods, ResultsThroughTheHost) {
  const auto px = RandomPixels(5 * 3, 7);
  ph::Ref pic = Picture(5, 3, px), foreign = host().NewForeignPicture(5, 3, px);
  for (const Turn& t : kTurns) {
    for (const ph::Ref& source : {pic, foreign}) {
      ph::Ref out = AsPicture(host().Call(source, t.method));
      EXPECT_NE(out.handle(), source.handle()) << t.method;
      EXPECT_EQ(host().Width(out), t.swaps ? 3 : 5) << t.method;
      EXPECT_EQ(host().Pixels(out), Mapped(t, 5, 3, px)) << t.method;
    }
  }
  EXPECT_EQ(host().Pixels(pic), px);
  // No clone of the foreign picture, or no picture from the host: nil.
  DirectCalls direct(host());
  for (PictureTurn handler : std::initializer_list<PictureTurn>{Rotate90, Rotate180, Rotate270, HMirror, VMirror}) {
    direct.RefuseNewPictures(true);
    EXPECT_EQ(handler(Handle(foreign)), nullptr);
    direct.RefuseNewPictures(false);
    direct.FailBuildsFrom(1);
    EXPECT_EQ(handler(Handle(pic)), nullptr);
    direct.FailBuildsFrom(0);
  }
}

}  // namespace
