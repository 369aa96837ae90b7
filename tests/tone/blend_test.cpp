// Blending, combining and tinting, through the host.
#include <cmath>

#include "tests/support/direct_calls.h"
#include "tests/support/pixels.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

using namespace testpix;

namespace {

class ToneBlend : public HostTest {
 protected:
  // The pixels of a global method's result, or an empty vector for nil.
  std::vector<uint32_t> Global(const std::string& name, std::vector<ph::Value> args) {
    ph::Value v = host().CallGlobal(name, std::move(args));
    return v.IsNil() ? std::vector<uint32_t>{} : host().Pixels(v.AsRef());
  }
  // The one pixel of a global method's result on 1 x 1 pictures.
  uint32_t One(const std::string& name, std::vector<ph::Value> args) {
    const std::vector<uint32_t> p = Global(name, std::move(args));
    return p.size() == 1 ? p[0] : 0xDEADBEEF;
  }
};

TEST_F(ToneBlend, WeightedBlendUsesTenBitFixedPoint) {
  ph::Ref a = Flat(1, 1, Rgb(200, 100, 0)), b = Flat(1, 1, Rgb(100, 100, 255));
  ph::Ref c = Flat(1, 1, Rgb(255, 3, 0)), d = Flat(1, 1, Rgb(255, 0, 0));
  auto low8 = [](int64_t v) { return static_cast<uint32_t>(((v % 256) + 256) % 256); };
  const std::pair<std::vector<ph::Value>, uint32_t> cases[] = {
      {{a, 0.5, b, 0.5}, Rgb(150, 100, 127)},  // (200 x 512 + 100 x 512) / 1024
      {{a, 1.0, b, 1.0}, Rgb(255, 200, 255)},  // 300 clamps to 255
      {{a, 0.3, b, 0.7}, Rgb(129, 99, 178)},   // 307 and 716: (100 x 1023) / 1024 = 99, not 100
      {{b, -0.1, a, 0.0}, Rgb(247, 247, 231)}, // -102: (100 x -102) / 1024 = -9 (toward zero), stored as 247
      {{a, std::nan(""), b, 1.0}, Rgb(100, 100, 255)},  // not a number weighs nothing
      {{c, 5000.0, d, 5000.0}, Rgb(255, 255, 0)},  // 255 x 5120000 x 2 leaves 32 bits; still clamps
      // -1e6 -> -1024000000: the low 8 bits of the exact quotients are stored.
      {{c, -1e6, d, 0.0}, Rgb(low8(-255000000), low8(-3000000), 0)},
      // Weights past the 32-bit range are held at its ends.
      {{c, 1e300, d, -1e300}, Rgb(low8((255LL * INT32_MAX + 255LL * INT32_MIN) / 1024), 255, 0)},
  };
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(One("BlendPicturesQVT", cases[i].first), cases[i].second) << i;
  const std::vector<uint32_t> sample = ph::SamplePixels(7, 5);
  ph::Ref s = Picture(7, 5, sample), flat = Flat(7, 5, 0x123456);
  EXPECT_EQ(Global("BlendPicturesQVT", {s, 1.0, flat, 0.0}), sample);
  EXPECT_EQ(Global("BlendPicturesQVT", {flat, 0.0, s, 1.0}), sample);
}

TEST_F(ToneBlend, MaskWeightsAreTheGreyOfTheMask) {
  ph::Ref s = Flat(1, 1, Rgb(255, 200, 0)), d = Flat(1, 1, Rgb(0, 100, 255));
  const std::pair<uint32_t, uint32_t> cases[] = {
      {Rgb(255, 255, 254), Rgb(1, 100, 254)},  // m = 254: 1/255 of the source shows
      {Grey(128), Rgb(127, 149, 128)},         // (200 x 127 + 100 x 128) / 255 = 149
      {0, Rgb(255, 200, 0)},
      {0xFFFFFF, Rgb(0, 100, 255)},
      {0xFF0000, Rgb(170, 166, 85)}};  // the hue is ignored: pure red is m = 85
  for (auto [mask, expected] : cases) EXPECT_EQ(One("BlendPicturesWithMaskQVT", {s, d, Flat(1, 1, mask)}), expected) << mask;
}

TEST_F(ToneBlend, CombineTakesRedBlueGreenArguments) {
  const std::vector<uint32_t> sample = ph::SamplePixels(9, 4);
  ph::Ref p = Picture(9, 4, sample);
  EXPECT_EQ(Global("CombinePicturesQVT", {p, p, p}), sample);
  // red from the first, blue from the second, green from the third.
  EXPECT_EQ(One("CombinePicturesQVT", {Flat(1, 1, Rgb(10, 20, 30)), Flat(1, 1, Rgb(40, 50, 60)), Flat(1, 1, Rgb(70, 80, 90))}),
            Rgb(10, 80, 60));
  // Foreign pictures are read through clones in any position (pictures of
  // different sizes are refused: see the sweep).
  ph::Ref a = Flat(4, 3, 0x808080), foreign = host().NewForeignPicture(4, 3, std::vector<uint32_t>(12, 0x102030));
  EXPECT_EQ(Global("BlendPicturesWithMaskQVT", {a, a, foreign}), std::vector<uint32_t>(12, 0x808080));
  EXPECT_EQ(Global("CombinePicturesQVT", {a, foreign, a}), std::vector<uint32_t>(12, 0x808030));
}

TEST_F(ToneBlend, TintMakesGreyAndColoursIt) {
  const std::vector<uint32_t> sample = ph::SamplePixels(8, 8);
  ph::Ref p = Picture(8, 8, sample);
  std::vector<uint32_t> reds;
  for (uint32_t c : sample) reds.push_back(Grey(R(c)));
  // The top 8 bits of both colours are ignored.
  for (auto [grey, sepia] : {std::pair{0xFF0000u, 0xFFFFFFu}, {0xABFF0000u, 0x01FFFFFFu}})
    EXPECT_EQ(Global("TintPictureQVT", {p, ph::Color{grey}, ph::Color{sepia}}), reds);
  EXPECT_EQ(Global("TintPictureQVT", {p, ph::Color{0x000000}, ph::Color{0xFFFFFF}}), std::vector<uint32_t>(64, 0));
  // 200 x 128/255 = 100.4 truncates to 100.
  EXPECT_EQ(One("TintPictureQVT", {Flat(1, 1, Rgb(200, 7, 9)), ph::Color{0xFF0000}, ph::Color{0xFF8000}}), Rgb(200, 100, 0));
  // A grey base summing to more than 255 pushes white into the clamp.
  EXPECT_EQ(One("TintPictureQVT", {Flat(1, 1, 0xFFFFFF), ph::Color{0x808080}, ph::Color{0xFF8000}}), Rgb(255, 192, 0));
}

}  // namespace
