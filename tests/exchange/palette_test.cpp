// The palette class and its factories through the emulated host, which puts
// each class's instance data at its own non-zero offset.
#include "exchange/kernels.h"
#include "tests/support/host_fixture.h"
#include "tests/support/pixels.h"

using testpix::Rgb;

namespace {

class Palettes : public HostTest {
 protected:
  ph::Ref Factory(const std::string& name, std::vector<ph::Value> args = {}) {
    ph::Value v = host().CallGlobal(name, std::move(args));
    if (v.IsNil()) {
      ADD_FAILURE() << name << " gave nil";
      return {};
    }
    EXPECT_EQ(host().ClassOf(v.AsRef()), "PaletteQVT");
    return v.AsRef();
  }
  uint32_t Col(const ph::Ref& palette, int32_t i) { return host().CallMethod(palette, "Col", {i}).AsColor(); }
  int32_t Count(const ph::Ref& palette) { return host().GetProperty(palette, "Count").AsInt(); }
  int32_t CountColors(const ph::Ref& palette) { return host().CallMethod(palette, "CountColors").AsInt(); }
  ph::Value NewPicture(const ph::Ref& palette, int32_t w, int32_t h) {
    return host().CallMethod(palette, "NewPicture", {w, h});
  }
};

TEST(PaletteTables, PalmFollowsItsCubeWalk) {
  // Red, then blue, then green (fastest) over the six levels FF down to 00,
  // blue first from FF CC 99 and then 66 33 00; black left out, then ten
  // greys and five colours.
  std::vector<uint32_t> expected;
  const uint32_t levels[6] = {0xFF, 0xCC, 0x99, 0x66, 0x33, 0x00};
  for (int half = 0; half < 2; ++half)
    for (uint32_t r : levels)
      for (int bi = 0; bi < 3; ++bi)
        for (uint32_t g : levels) expected.push_back(Rgb(r, g, levels[3 * half + bi]));
  expected.pop_back();
  for (uint32_t grey : {0x11, 0x22, 0x44, 0x55, 0x77, 0x88, 0xAA, 0xBB, 0xDD, 0xEE}) expected.push_back(Rgb(grey, grey, grey));
  for (uint32_t c : {0xCCCCCCu, 0x880000u, 0x880088u, 0x008800u, 0x008888u}) expected.push_back(c);
  expected.resize(256, 0);
  EXPECT_EQ(std::vector<uint32_t>(PalmColors, PalmColors + 256), expected);
}

TEST_F(Palettes, CountChoosesThePictureDepth) {
  ph::Ref three = Factory("NewPaletteQVT", {3});
  EXPECT_EQ(Count(three), 3);
  EXPECT_EQ(CountColors(three), 1);
  ph::Ref picture = AsPicture(NewPicture(three, 10, 7));
  EXPECT_EQ(std::tuple(host().Depth(picture), host().Width(picture), host().Height(picture)), std::tuple(2, 10, 7));
  // The count the host's accessor writes is the one the handlers read.
  for (auto [count, depth] : {std::pair{1, 1}, {2, 1}, {4, 2}, {5, 4}, {16, 4}, {17, 8}, {256, 8}}) {
    host().SetProperty(three, "Count", count);
    EXPECT_EQ(host().Depth(AsPicture(NewPicture(three, 3, 2))), depth) << count;
  }
}

}  // namespace
