// Automatic levels, through the host.
#include <map>

#include "tests/tone/tone_test_support.h"

using namespace tone_test;

namespace {

class ToneAutoLevel : public HostTest {
 protected:
  std::vector<uint32_t> Run(int32_t width, const std::vector<uint32_t>& pixels) {
    ph::Ref p = Picture(width, static_cast<int32_t>(pixels.size()) / width, pixels);
    ph::Ref out = AsPicture(host().Call(p, "AutoLevelQVT"));
    if (!out) return {};
    EXPECT_EQ(host().Pixels(p), pixels) << "the source picture changed";
    return host().Pixels(out);
  }
  std::vector<uint32_t> RunFlat(uint32_t colour) { return Run(10, std::vector<uint32_t>(100, colour)); }
};

// The luminance level of a pixel, as the rule states it.
int32_t Level(uint32_t c) { return static_cast<int32_t>(0.177 * R(c) + 0.813 * G(c) + 0.01 * B(c)); }

TEST_F(ToneAutoLevel, OnePixelIsThresholdedJustBelowItsLevel) {
  // L = 141 (141.65); both threshold counts are 0, so lo = hi = 140.
  EXPECT_EQ(Run(1, {Rgb(100, 150, 200)}), (std::vector<uint32_t>{Rgb(0, 255, 255)}));
  // L = 141 again; 140 itself is at the threshold and goes to 0.
  EXPECT_EQ(Run(1, {Rgb(140, 143, 0)}), (std::vector<uint32_t>{Rgb(0, 255, 0)}));
}

TEST_F(ToneAutoLevel, FlatColours) {
  for (uint32_t v : {1u, 3u, 4u, 128u, 255u}) EXPECT_EQ(RunFlat(Rgb(v, v, v)), std::vector<uint32_t>(100, 0xFFFFFF)) << v;
  EXPECT_EQ(RunFlat(0), std::vector<uint32_t>(100, 0));
  EXPECT_EQ(RunFlat(0xFF0000), std::vector<uint32_t>(100, 0xFF0000));
  EXPECT_EQ(RunFlat(Rgb(0, 0, 99)), std::vector<uint32_t>(100, Rgb(0, 0, 255)));
}

TEST_F(ToneAutoLevel, ThresholdCountsUseSinglePrecisionFractionsInDouble) {
  // 200 pixels: dark count 0 (0.99999998 truncated), so one pixel at level 0
  // leaves lo = 0; all others white put hi at 254. (0, 0, 99) keeps its blue:
  // 99 × 255 / 254 = 99.4. A dark count of 1 would make lo = hi = 254 and
  // turn that blue to 0.
  std::vector<uint32_t> p200(200, 0xFFFFFF);
  p200[57] = Rgb(0, 0, 99);
  std::vector<uint32_t> want200(200, 0xFFFFFF);
  want200[57] = Rgb(0, 0, 99);
  EXPECT_EQ(Run(20, p200), want200);

  // 1000 pixels: dark count 4 (not 5, which single-precision products give).
  // Five pixels at level 0 exceed it, so lo stays 0.
  std::vector<uint32_t> p1000(1000, 0xFFFFFF);
  for (int i : {0, 1, 2, 3}) p1000[i * 100] = 0;
  p1000[999] = Rgb(0, 0, 99);
  std::vector<uint32_t> want1000 = p1000;
  EXPECT_EQ(Run(40, p1000), want1000);

  // With only four dark pixels the count is reached: lo = hi = 254.
  p1000[999] = 0xFFFFFF;
  p1000[500] = Rgb(0, 0, 99);
  p1000[0] = 0xFFFFFF;
  std::vector<uint32_t> want = p1000;
  want[500] = 0;
  EXPECT_EQ(Run(40, p1000), want);
}

TEST_F(ToneAutoLevel, EvenlySpreadLevelsStretchFrom0To253) {
  // One pixel for each luminance level 0..255, found among near-grey colours.
  std::map<int32_t, uint32_t> byLevel;
  for (uint32_t v = 0; v < 256 && byLevel.size() < 256; ++v)
    for (uint32_t dv : {0u, 1u, 2u}) {
      const uint32_t c = Rgb(v, v, std::min(255u, v + dv));
      byLevel.emplace(Level(c), c);
      const uint32_t c2 = Rgb(std::min(255u, v + dv), std::min(255u, v + 1), v);
      byLevel.emplace(Level(c2), c2);
    }
  ASSERT_EQ(byLevel.size(), 256u);
  std::vector<uint32_t> pixels;
  for (auto& [level, c] : byLevel) pixels.push_back(c);
  // N = 256: dark count 1, bright count 254, so lo = 0 and hi = 253.
  auto stretch = [](uint32_t s) { return s > 253 ? 255u : s * 255 / 253; };
  EXPECT_EQ(Run(16, pixels), MapChannels(pixels, stretch, stretch, stretch));
}

}  // namespace
