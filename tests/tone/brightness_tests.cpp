// Brightness, contrast, custom curves and inversion, through the host.
#include <cmath>
#include <limits>

#include "tests/tone/tone_test_support.h"

using namespace tone_test;

namespace {

class ToneBrightness : public HostTest {
 protected:
  // One pixel per value of `values` in every channel, then the call's result.
  std::vector<uint32_t> Apply(const std::vector<uint32_t>& pixels, int32_t width, const std::string& method,
                              std::vector<ph::Value> args) {
    ph::Ref p = Picture(width, static_cast<int32_t>(pixels.size()) / width, pixels);
    ph::Ref out = AsPicture(host().Call(p, method, std::move(args)));
    if (!out) return {};
    EXPECT_EQ(host().Width(out), host().Width(p));
    EXPECT_EQ(host().Height(out), host().Height(p));
    EXPECT_EQ(host().Pixels(p), pixels) << "the source picture changed";
    return host().Pixels(out);
  }
  // Channel value s of every channel, for s in `levels`.
  static std::vector<uint32_t> Greys(std::vector<uint32_t> levels) {
    for (uint32_t& v : levels) v = Rgb(v, v, v);
    return levels;
  }
  static std::vector<uint32_t> AllLevels() {
    std::vector<uint32_t> v;
    for (uint32_t s = 0; s < 256; ++s) v.push_back(Rgb(s, 255 - s, (s * 7) & 0xFF));
    return v;
  }
};

TEST_F(ToneBrightness, NeutralAmountsCopyThePicture) {
  const std::vector<uint32_t> sample = ph::SamplePixels(13, 7);
  EXPECT_EQ(Apply(sample, 13, "ChangeBrightnessAbsoluteQVT", {0.0}), sample);
  EXPECT_EQ(Apply(sample, 13, "ChangeBrightnessLinearQVT", {0.0}), sample);
  EXPECT_EQ(Apply(sample, 13, "ChangeContrastQVT", {0.0}), sample);
  EXPECT_EQ(Apply(sample, 13, "ChangeCustomQVT", {1.0, 0.0}), sample);
  EXPECT_EQ(Apply(sample, 13, "ChangeBrightnessAbsoluteQVT", {0.0, 0.0, 0.0}), sample);
}

TEST_F(ToneBrightness, AbsoluteTruncatesAndClamps) {
  EXPECT_EQ(Apply(Greys({10, 0, 250}), 3, "ChangeBrightnessAbsoluteQVT", {0.9}), Greys({10, 0, 250}));
  EXPECT_EQ(Apply(Greys({10, 0, 250}), 3, "ChangeBrightnessAbsoluteQVT", {-0.5}), Greys({9, 0, 249}));
  EXPECT_EQ(Apply(Greys({0, 128, 255}), 3, "ChangeBrightnessAbsoluteQVT", {255.0}), Greys({255, 255, 255}));
  EXPECT_EQ(Apply(Greys({0, 128, 255}), 3, "ChangeBrightnessAbsoluteQVT", {-255.0}), Greys({0, 0, 0}));
  // Each channel has its own amount.
  EXPECT_EQ(Apply({Rgb(10, 10, 10)}, 1, "ChangeBrightnessAbsoluteQVT", {300.0, -3.5, 0.0}),
            (std::vector<uint32_t>{Rgb(255, 6, 10)}));
}

TEST_F(ToneBrightness, LinearMapsRangesAndWrapsBeyondThem) {
  EXPECT_EQ(Apply(Greys({0, 77, 255}), 3, "ChangeBrightnessLinearQVT", {255.0}), Greys({255, 255, 255}));
  EXPECT_EQ(Apply(Greys({0, 77, 255}), 3, "ChangeBrightnessLinearQVT", {-255.0}), Greys({0, 0, 0}));
  // d = 300: 0 gives 300, stored as 44. d = -300: 100 gives -17.6 -> -17 -> 239.
  EXPECT_EQ(Apply({Rgb(0, 100, 255)}, 1, "ChangeBrightnessLinearQVT", {300.0, -300.0, 0.0}),
            (std::vector<uint32_t>{Rgb(44, 239, 255)}));
  // 0 takes the brightening branch (offset 0, factor 1); the top of the range
  // is reached exactly: 255 for d >= 0, 255 + d for d < 0.
  EXPECT_EQ(Apply({Rgb(255, 255, 255)}, 1, "ChangeBrightnessLinearQVT", {100.0, -100.0, 1.0}),
            (std::vector<uint32_t>{Rgb(255, 155, 255)}));
  // 51 × 155/255 is 31 exactly, but the double product lies just below it
  // (30.999999999999996) and truncates to 30.
  EXPECT_EQ(Apply(Greys({51}), 1, "ChangeBrightnessLinearQVT", {-100.0}), Greys({30}));
}

TEST_F(ToneBrightness, LinearMatchesPerPixelDoubleArithmetic) {
  for (double d : {-200.0, -37.5, 0.25, 64.0, 199.9}) {
    auto f = [d](uint32_t s) {
      const double factor = (255.0 - std::fabs(d)) / 255.0;
      const double v = s * factor + (d >= 0 ? d : 0.0);
      return static_cast<uint32_t>(static_cast<int32_t>(v)) & 0xFF;
    };
    EXPECT_EQ(Apply(AllLevels(), 16, "ChangeBrightnessLinearQVT", {d}), MapChannels(AllLevels(), f, f, f)) << d;
  }
}

TEST_F(ToneBrightness, ContrastPivotsAt127) {
  EXPECT_EQ(Apply(Greys({0, 127, 128, 255}), 4, "ChangeContrastQVT", {-1.0}), Greys({127, 127, 127, 127}));
  EXPECT_EQ(Apply(Greys({0, 127, 128, 200}), 4, "ChangeContrastQVT", {1.0}), Greys({0, 127, 129, 255}));
  // -0.5 halves the distance: 0 -> 63.5 -> 63, 255 -> 191.
  EXPECT_EQ(Apply({Rgb(0, 255, 200)}, 1, "ChangeContrastQVT", {-0.5, -0.5, 0.0}),
            (std::vector<uint32_t>{Rgb(63, 191, 200)}));
}

TEST_F(ToneBrightness, CustomCurveClampsBothEnds) {
  EXPECT_EQ(Apply(Greys({3, 100, 200}), 3, "ChangeCustomQVT", {2.0, -10.0}), Greys({0, 190, 255}));
  auto inverse = [](uint32_t s) { return 255 - s; };
  EXPECT_EQ(Apply(AllLevels(), 16, "ChangeCustomQVT", {-1.0, 255.0}), MapChannels(AllLevels(), inverse, inverse, inverse));
  // 0.5 × 3 + 0.4 = 1.9 truncates to 1.
  EXPECT_EQ(Apply(Greys({3}), 1, "ChangeCustomQVT", {0.5, 0.4}), Greys({1}));
}

TEST_F(ToneBrightness, UnusualAmountsStayInsideTheRules) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_EQ(Apply(Greys({0, 200}), 2, "ChangeBrightnessAbsoluteQVT", {nan, inf, -inf}),
            (std::vector<uint32_t>{Rgb(0, 255, 0), Rgb(0, 255, 0)}));
  EXPECT_EQ(Apply(Greys({0, 200}), 2, "ChangeBrightnessLinearQVT", {nan}), Greys({0, 0}));
  // 1e10 + s × (255 - 1e10) / 255 at s = 0 is 1e10, a multiple of 256.
  EXPECT_EQ(Apply(Greys({0}), 1, "ChangeBrightnessLinearQVT", {1e10}), Greys({0}));
}

// The inversion rectangle: `inside(x, y)` pixels are inverted, all others black.
std::vector<uint32_t> InvertedInside(const std::vector<uint32_t>& src, int32_t w, bool (*inside)(int32_t, int32_t)) {
  std::vector<uint32_t> out(src.size(), 0);
  for (size_t i = 0; i < src.size(); ++i)
    if (inside(static_cast<int32_t>(i) % w, static_cast<int32_t>(i) / w)) out[i] = src[i] ^ 0xFFFFFF;
  return out;
}

TEST_F(ToneBrightness, InvertLeavesBlackOutsideTheClippedRectangle) {
  const std::vector<uint32_t> src = ph::SamplePixels(20, 20);
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {-5, -5, 10, 10}),
            InvertedInside(src, 20, [](int32_t x, int32_t y) { return x < 5 && y < 5; }));
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {0, 0, 20, 20}), InvertedInside(src, 20, [](int32_t, int32_t) { return true; }));
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {3, 17, 4, 100}),
            InvertedInside(src, 20, [](int32_t x, int32_t y) { return x >= 3 && x < 7 && y >= 17; }));
  const std::vector<uint32_t> black(400, 0);
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {0, 0, 0, 0}), black);
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {25, 0, 10, 10}), black);
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {5, 5, -3, 10}), black);
  // Right and bottom are formed from the arguments without overflowing.
  const int32_t big = std::numeric_limits<int32_t>::max();
  const int32_t small = std::numeric_limits<int32_t>::min();
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {-10, -10, big, big}), InvertedInside(src, 20, [](int32_t, int32_t) { return true; }));
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {big, big, big, big}), black);
  EXPECT_EQ(Apply(src, 20, "InvertQVT", {small, small, big, big}), black);
}

}  // namespace
