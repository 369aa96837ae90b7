// Scaling: box means, replication, the cubic rows, the choice of path and
// refusals.
#include <algorithm>

#include "geometry/handlers.h"
#include "geometry/kernels.h"
#include "tests/support/direct_calls.h"
#include "tests/support/images.h"
#include "tests/support/pixels.h"

using namespace testpix;
using testpix::B;
using testpix::G;
using testpix::R;

namespace {

TEST(GeometryScaleKernels, CubicWeightsAreTheHermitePair) {
  const std::pair<double, std::array<float, 4>> cases[] = {
      {0.0, {0, 1, 0, 0}}, {0.5, {0, 0.5f, 0.5f, 0}}, {0.25, {0, 0.84375f, 0.15625f, 0}}, {0.75, {0, 0.15625f, 0.84375f, 0}}};
  for (const auto& [u, expected] : cases) {
    float w[4];
    CubicWeights(u, w);
    EXPECT_EQ((std::array<float, 4>{w[0], w[1], w[2], w[3]}), expected) << u;
  }
}

// Box means against a per-pixel reference whose box starts at
// (x * srcW) div newW in exact integers. 30 -> 22 and 26 -> 46 are sizes where
// the double product would fall one short: (30 / 22) * 11 truncates to 14,
// not 15, and (26 / 46) * 23 to 12, not 13.
TEST(GeometryScaleKernels, BoxMatchesPerPixelMeans) {
  for (auto [sw, sh, dw, dh] : {std::array{7, 5, 3, 2}, {10, 9, 4, 6}, {9, 4, 6, 4}, {5, 3, 5, 7}, {6, 6, 1, 1}, {30, 30, 22, 22}, {26, 26, 46, 46}}) {
    const auto px = RandomPixels(sw * sh, static_cast<uint32_t>(sw * 31 + dw));
    ReaderImage src(sw, sh, px);
    WriterImage dst(dw, dh);
    ScaleBox(src.reader, dst.writer);
    const int bw = (sw + dw - 1) / dw, bh = (sh + dh - 1) / dh;
    for (int i = 0; i < dw * dh; ++i) {
      const int x = i % dw, y = i / dw;
      uint32_t sum[3] = {0, 0, 0};
      for (int j = 0; j < bw * bh; ++j)
        for (int k = 0; k < 3; ++k) sum[k] += testpix::Channel(px[size_t(y * sh / dh + j / bw) * sw + (x * sw / dw + j % bw)], k);
      const uint32_t n = uint32_t(bw * bh);
      ASSERT_EQ(dst.At(x, y), Rgb(sum[0] / n, sum[1] / n, sum[2] / n)) << sw << "x" << sh << " " << x << "," << y;
    }
  }
}

class GeometryScaleMethod : public HostTest {
 protected:
  std::vector<uint32_t> Scaled(const ph::Ref& pic, int32_t w, int32_t h, bool aa) {
    ph::Ref out = AsPicture(host().Call(pic, "ScaleQVT", {w, h, aa}));
    EXPECT_EQ(host().Width(out), w);
    EXPECT_EQ(host().Height(out), h);
    return out ? host().Pixels(out) : std::vector<uint32_t>{};
  }
};

TEST_F(GeometryScaleMethod, ReductionAveragesBlocksEitherWay) {
  // Blocks: the four quadrants, means truncated per channel.
  const std::vector<uint32_t> px = {
      Rgb(0, 0, 0), Rgb(1, 10, 255), Rgb(100, 0, 0), Rgb(101, 0, 0),
      Rgb(2, 20, 255), Rgb(3, 30, 254), Rgb(102, 0, 0), Rgb(104, 0, 1),
      Rgb(9, 9, 9), Rgb(9, 9, 9), Rgb(255, 255, 255), Rgb(255, 255, 255),
      Rgb(9, 9, 9), Rgb(10, 10, 10), Rgb(255, 255, 255), Rgb(0, 0, 0)};
  const std::vector<uint32_t> means = {Rgb(1, 15, 191), Rgb(101, 0, 0), Rgb(9, 9, 9), Rgb(191, 191, 191)};
  ph::Ref pic = Picture(4, 4, px);
  EXPECT_EQ(Scaled(pic, 2, 2, false), means);
  EXPECT_EQ(Scaled(pic, 2, 2, true), means);
  EXPECT_EQ(Scaled(pic, 4, 4, true), px);  // same size: 1 x 1 boxes
  // 4 x 4 to 8 x 2 with AntiAlias: the height shrinks, so boxes of 1 x 2.
  const auto wide = Scaled(pic, 8, 2, true);
  for (int i = 0; i < 16; ++i) {
    const uint32_t a = px[size_t(i / 8 * 2) * 4 + i % 8 / 2], b = px[size_t(i / 8 * 2 + 1) * 4 + i % 8 / 2];
    EXPECT_EQ(wide[i], Rgb((R(a) + R(b)) / 2, (G(a) + G(b)) / 2, (B(a) + B(b)) / 2)) << i;
  }
}

TEST_F(GeometryScaleMethod, EnlargementReplicatesOrInterpolates) {
  const std::vector<uint32_t> px = {0x102030, 0x405060, 0x708090, 0xA0B0C0};
  EXPECT_EQ(Scaled(Picture(2, 2, px), 4, 4, false),
            (std::vector<uint32_t>{px[0], px[0], px[1], px[1], px[0], px[0], px[1], px[1],
                                   px[2], px[2], px[3], px[3], px[2], px[2], px[3], px[3]}));
  // Red 0, 100, 200 to 6 x 2: the last column and the last row fade because
  // their outer taps fall outside the source.
  const auto cubic = Scaled(Picture(3, 1, {Rgb(0, 7, 255), Rgb(100, 7, 255), Rgb(200, 7, 255)}), 6, 2, true);
  const uint32_t red[2][6] = {{0, 50, 100, 150, 200, 100}, {0, 25, 50, 75, 100, 50}};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(cubic[i] >> 16, red[i / 6][i % 6]) << i;
  // Green 7 and blue 255 stay on the inner taps; the last column and row fade
  // (7 * 0.5 + 0.5 = 4, 255 * 0.5 + 0.5 = 128; 255 * 0.25 + 0.5 = 64 in the corner).
  EXPECT_EQ(cubic[0] & 0xFFFF, 0x07FFu);
  EXPECT_EQ(cubic[5] & 0xFFFF, 0x0480u);
  EXPECT_EQ(cubic[11] & 0xFF, 64u);
}

}  // namespace
