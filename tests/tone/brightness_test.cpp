// Brightness, contrast, custom curves, inversion and automatic levels,
// through the host.
#include <cmath>
#include <limits>
#include <map>

#include "tests/support/host_fixture.h"
#include "tests/support/pixels.h"

using namespace testpix;

namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// Every channel value once in each channel.
std::vector<uint32_t> AllLevels() {
  std::vector<uint32_t> v;
  for (uint32_t s = 0; s < 256; ++s) v.push_back(Rgb(s, 255 - s, (s * 7) & 0xFF));
  return v;
}

class Tone : public HostTest {
 protected:
  // The call's result on a picture of `pixels`, `width` wide; the result has
  // the picture's size and the picture is unchanged.
  std::vector<uint32_t> Apply(const std::vector<uint32_t>& pixels, int32_t width, const std::string& method,
                              std::vector<ph::Value> args = {}) {
    ph::Ref p = Picture(width, static_cast<int32_t>(pixels.size()) / width, pixels);
    ph::Ref out = AsPicture(host().Call(p, method, std::move(args)));
    if (!out) return {};
    EXPECT_EQ(std::pair(host().Width(out), host().Height(out)), std::pair(host().Width(p), host().Height(p)));
    EXPECT_EQ(host().Pixels(p), pixels) << "the source picture changed";
    return host().Pixels(out);
  }
};

TEST_F(Tone, WorkedExamplesTruncateClampAndWrap) {
  struct Case { const char* method; std::vector<ph::Value> args; std::vector<uint32_t> in, out; };
  const Case cases[] = {
      {"ChangeBrightnessAbsoluteQVT", {0.9}, Greys({10, 0, 250}), Greys({10, 0, 250})},  // truncated, not rounded
      {"ChangeBrightnessAbsoluteQVT", {-0.5}, Greys({10, 0, 250}), Greys({9, 0, 249})},
      {"ChangeBrightnessAbsoluteQVT", {255.0}, Greys({0, 128, 255}), Greys({255, 255, 255})},
      {"ChangeBrightnessAbsoluteQVT", {-255.0}, Greys({0, 128, 255}), Greys({0, 0, 0})},
      {"ChangeBrightnessAbsoluteQVT", {300.0, -3.5, 0.0}, {Grey(10)}, {Rgb(255, 6, 10)}},  // an amount per channel
      {"ChangeBrightnessAbsoluteQVT", {kNan, kInf, -kInf}, Greys({0, 200}), {Rgb(0, 255, 0), Rgb(0, 255, 0)}},
      {"ChangeBrightnessLinearQVT", {255.0}, Greys({0, 77, 255}), Greys({255, 255, 255})},
      {"ChangeBrightnessLinearQVT", {-255.0}, Greys({0, 77, 255}), Greys({0, 0, 0})},
      // d = 300: 0 gives 300, stored as 44. d = -300: 100 gives -17.6 -> -17 -> 239.
      {"ChangeBrightnessLinearQVT", {300.0, -300.0, 0.0}, {Rgb(0, 100, 255)}, {Rgb(44, 239, 255)}},
      // The top of the range is reached exactly: 255 for d >= 0, 255 + d for d < 0.
      {"ChangeBrightnessLinearQVT", {100.0, -100.0, 1.0}, {Grey(255)}, {Rgb(255, 155, 255)}},
      // 51 x 155/255 is 31 exactly, but the double product lies just below it.
      {"ChangeBrightnessLinearQVT", {-100.0}, Greys({51}), Greys({30})},
      // 100 x 191/255 + 64 = 138.9; 200 x 217.5/255 = 170.6; 10 x 254.75/255 + 0.25 = 10.24.
      {"ChangeBrightnessLinearQVT", {64.0, -37.5, 0.25}, {Rgb(100, 200, 10)}, {Rgb(138, 170, 10)}},
      {"ChangeBrightnessLinearQVT", {kNan}, Greys({0, 200}), Greys({0, 0})},
      {"ChangeBrightnessLinearQVT", {1e10}, Greys({0}), Greys({0})},  // 1e10 is a multiple of 256
      // Contrast pivots at 127; -0.5 halves the distance: 0 -> 63.5 -> 63, 255 -> 191.
      {"ChangeContrastQVT", {-1.0}, Greys({0, 127, 128, 255}), Greys({127, 127, 127, 127})},
      {"ChangeContrastQVT", {1.0}, Greys({0, 127, 128, 200}), Greys({0, 127, 129, 255})},
      {"ChangeContrastQVT", {-0.5, -0.5, 0.0}, {Rgb(0, 255, 200)}, {Rgb(63, 191, 200)}},
      {"ChangeCustomQVT", {2.0, -10.0}, Greys({3, 100, 200}), Greys({0, 190, 255})},
      {"ChangeCustomQVT", {0.5, 0.4}, Greys({3}), Greys({1})},  // 1.9 truncates to 1
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Apply(c.in, int32_t(c.in.size()), c.method, c.args), c.out) << c.method << " case " << &c - cases;
  }
  // Neutral amounts copy the picture.
  const std::vector<uint32_t> sample = ph::SamplePixels(13, 7);
  for (const char* method : {"ChangeBrightnessAbsoluteQVT", "ChangeBrightnessLinearQVT", "ChangeContrastQVT"})
    EXPECT_EQ(Apply(sample, 13, method, {0.0}), sample) << method;
  EXPECT_EQ(Apply(sample, 13, "ChangeCustomQVT", {1.0, 0.0}), sample);
  auto inverse = [](uint32_t s) { return 255 - s; };
  EXPECT_EQ(Apply(AllLevels(), 16, "ChangeCustomQVT", {-1.0, 255.0}), MapChannels(AllLevels(), inverse, inverse, inverse));
}

// --- Automatic levels ----------------------------------------------------------

TEST_F(Tone, AutoLevelThresholdsUseSinglePrecisionFractionsInDouble) {
  // 200 pixels: dark count 0 (0.99999998 truncated), so one pixel at level 0
  // leaves lo = 0; all others white put hi at 254. (0, 0, 99) keeps its blue:
  // 99 x 255 / 254 = 99.4. A dark count of 1 would make lo = hi = 254 and
  // turn that blue to 0.
  std::vector<uint32_t> p200(200, 0xFFFFFF);
  p200[57] = Rgb(0, 0, 99);
  EXPECT_EQ(Apply(p200, 20, "AutoLevelQVT"), p200);
  // 1000 pixels: dark count 4 (not 5, which single-precision products give).
  // Five pixels at level 0 exceed it, so lo stays 0 ...
  std::vector<uint32_t> p1000(1000, 0xFFFFFF);
  for (int i : {0, 100, 200, 300}) p1000[i] = 0;
  p1000[999] = Rgb(0, 0, 99);
  EXPECT_EQ(Apply(p1000, 40, "AutoLevelQVT"), p1000);
  // ... while with only four the count is reached: lo = hi = 254.
  p1000[0] = 0xFFFFFF;
  std::vector<uint32_t> want = p1000;
  want[999] = 0;
  EXPECT_EQ(Apply(p1000, 40, "AutoLevelQVT"), want);
}

TEST_F(Tone, AutoLevelStretchesEvenlySpreadLevelsFrom0To253) {
  // One pixel for each luminance level 0..255, found among near-grey colours.
  std::map<int32_t, uint32_t> byLevel;
  for (uint32_t v = 0; v < 256; ++v) {
    for (uint32_t dv : {0u, 1u, 2u}) {
      for (uint32_t c : {Rgb(v, v, std::min(255u, v + dv)), Rgb(std::min(255u, v + dv), std::min(255u, v + 1), v)}) {
        byLevel.emplace(static_cast<int32_t>(0.177 * R(c) + 0.813 * G(c) + 0.01 * B(c)), c);
      }
    }
  }
  ASSERT_EQ(byLevel.size(), 256u);
  std::vector<uint32_t> pixels;
  for (auto& [level, c] : byLevel) pixels.push_back(c);
  // N = 256: dark count 1, bright count 254, so lo = 0 and hi = 253.
  auto stretch = [](uint32_t s) { return s > 253 ? 255u : s * 255 / 253; };
  EXPECT_EQ(Apply(pixels, 16, "AutoLevelQVT"), MapChannels(pixels, stretch, stretch, stretch));
}

}  // namespace
