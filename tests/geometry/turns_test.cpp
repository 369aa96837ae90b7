// Right-angle turns and mirrors: exact permutations of the pixels.
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

}  // namespace

TEST(GeometryTurnKernels, MatchPixelMapping) {
  for (auto [w, h] : {std::pair{1, 1}, {3, 1}, {2, 2}, {37, 70}, {70, 37}, {1, 65}, {65, 1}, {64, 64}}) {
    const auto px = RandomPixels(w * h, static_cast<uint32_t>(w * 1000 + h));
    for (const Turn& t : kTurns) {
      if (!t.kernel) continue;
      EXPECT_EQ(RunKernel(t, w, h, px), Mapped(t, w, h, px)) << t.method << " " << w << "x" << h;
    }
  }
}
