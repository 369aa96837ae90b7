// The palette class and its factories through the emulated host, which puts
// each class's instance data at its own non-zero offset.
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/host_fixture.h"

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
  uint32_t Col(const ph::Ref& palette, int32_t i) {
    return host().CallMethod(palette, "Col", {i}).AsColor();
  }
  int32_t Count(const ph::Ref& palette) { return host().GetProperty(palette, "Count").AsInt(); }
  int32_t CountColors(const ph::Ref& palette) {
    return host().CallMethod(palette, "CountColors").AsInt();
  }
  ph::Value NewPicture(const ph::Ref& palette, int32_t w, int32_t h) {
    return host().CallMethod(palette, "NewPicture", {w, h});
  }
  std::vector<uint32_t> Entries(const ph::Ref& palette) {
    std::vector<uint32_t> e;
    for (int32_t i = 0; i < 256; ++i) e.push_back(Col(palette, i));
    return e;
  }
};

TEST_F(Palettes, NewPaletteHas256BlackEntries) {
  ph::Ref palette = host().NewInstance("PaletteQVT");
  EXPECT_EQ(Count(palette), 256);
  EXPECT_EQ(Entries(palette), std::vector<uint32_t>(256, 0));
  EXPECT_EQ(CountColors(palette), 1);
  // "Close" holds nothing to release: the palette stays usable.
  host().CallMethod(palette, "Close");
  EXPECT_EQ(Count(palette), 256);
  EXPECT_EQ(CountColors(palette), 1);
}

TEST_F(Palettes, RampFactories) {
  struct Ramp {
    const char* factory;
    uint32_t step;  // the colour of entry 1
  };
  for (const Ramp& r : {Ramp{"NewGrayPaletteQVT", 0x010101}, Ramp{"NewRedPaletteQVT", 0x010000},
                        Ramp{"NewGreenPaletteQVT", 0x000100}, Ramp{"NewBluePaletteQVT", 0x000001}}) {
    ph::Ref palette = Factory(r.factory);
    EXPECT_EQ(Count(palette), 256) << r.factory;
    const std::vector<uint32_t> entries = Entries(palette);
    for (uint32_t i = 0; i < 256; ++i) ASSERT_EQ(entries[i], i * r.step) << r.factory << " " << i;
    EXPECT_EQ(CountColors(palette), 256) << r.factory;
  }
}

TEST_F(Palettes, DistinctColoursOfTheFixedPalettes) {
  EXPECT_EQ(CountColors(Factory("NewWindowsPaletteQVT")), 256);
  EXPECT_EQ(CountColors(Factory("NewPalmPaletteQVT")), 230);
  EXPECT_EQ(CountColors(Factory("NewWebPaletteQVT")), 216);
  ph::Ref palm = Factory("NewPalmPaletteQVT");
  EXPECT_EQ(Col(palm, 0), 0xFFFFFFu);
  EXPECT_EQ(Col(palm, 229), 0x008888u);
  EXPECT_EQ(Col(palm, 230), 0u);
  ph::Ref windows = Factory("NewWindowsPaletteQVT");
  EXPECT_EQ(Col(windows, 14), 0xC0C0C0u);
  EXPECT_EQ(Col(windows, 254), 0xA0A0A4u);
}

TEST_F(Palettes, WebPaletteFromWhiteDownToBlack) {
  ph::Ref web = Factory("NewWebPaletteQVT");
  EXPECT_EQ(Count(web), 256);
  EXPECT_EQ(Col(web, 0), 0xFFFFFFu);
  EXPECT_EQ(Col(web, 1), 0xFFFFCCu);
  EXPECT_EQ(Col(web, 5), 0xFFFF00u);
  EXPECT_EQ(Col(web, 6), 0xFFCCFFu);
  for (int32_t i = 215; i < 256; ++i) EXPECT_EQ(Col(web, i), 0u) << i;
  // Entry 215 - (36 r + 6 g + b) is (51 r, 51 g, 51 b).
  for (uint32_t r = 0; r < 6; ++r) {
    for (uint32_t g = 0; g < 6; ++g) {
      for (uint32_t b = 0; b < 6; ++b) {
        const int32_t i = static_cast<int32_t>(215 - (36 * r + 6 * g + b));
        ASSERT_EQ(Col(web, i), (51 * r) << 16 | (51 * g) << 8 | (51 * b)) << i;
      }
    }
  }
}

TEST_F(Palettes, IndexesUseTheirLowEightBits) {
  ph::Ref grey = Factory("NewGrayPaletteQVT");
  EXPECT_EQ(Col(grey, 256), 0u);
  EXPECT_EQ(Col(grey, -1), 0xFFFFFFu);
  EXPECT_EQ(Col(grey, 257), 0x010101u);
  EXPECT_EQ(Col(grey, INT32_MIN), 0u);

  host().AssignMethod(grey, "Col", {-1}, ph::Color{0x123456});
  EXPECT_EQ(Col(grey, 255), 0x123456u);
  host().AssignMethod(grey, "Col", {512 + 7}, ph::Color{0xABCDEF});
  EXPECT_EQ(Col(grey, 7), 0xABCDEFu);
  EXPECT_EQ(Col(grey, 6), 0x060606u);
  EXPECT_EQ(CountColors(grey), 256);
  host().AssignMethod(grey, "Col", {8}, ph::Color{0xABCDEF});
  EXPECT_EQ(CountColors(grey), 255);
}

TEST_F(Palettes, CountChoosesThePictureDepth) {
  ph::Ref three = Factory("NewPaletteQVT", {3});
  EXPECT_EQ(Count(three), 3);
  EXPECT_EQ(Entries(three), std::vector<uint32_t>(256, 0));
  EXPECT_EQ(CountColors(three), 1);
  ph::Ref picture = AsPicture(NewPicture(three, 10, 10));
  EXPECT_EQ(host().Depth(picture), 2);
  EXPECT_EQ(host().Width(picture), 10);
  EXPECT_EQ(host().Height(picture), 10);

  ph::Ref none = Factory("NewPaletteQVT", {0});
  EXPECT_TRUE(NewPicture(none, 10, 10).IsNil());
  EXPECT_EQ(CountColors(none), 0);
  ph::Ref tooMany = Factory("NewPaletteQVT", {300});
  EXPECT_EQ(Count(tooMany), 300);
  EXPECT_TRUE(NewPicture(tooMany, 10, 10).IsNil());

  // The count the host's accessor writes is the one the handlers read.
  const std::pair<int32_t, int32_t> depths[] = {{1, 1}, {2, 1}, {4, 2}, {5, 4}, {16, 4}, {17, 8}, {256, 8}};
  for (auto [count, depth] : depths) {
    host().SetProperty(three, "Count", count);
    EXPECT_EQ(host().Depth(AsPicture(NewPicture(three, 3, 2))), depth) << count;
  }
  host().SetProperty(three, "Count", -1);
  EXPECT_TRUE(NewPicture(three, 3, 2).IsNil());
}

TEST_F(Palettes, MemIsAViewOfTheColourEntries) {
  ph::Ref palette = Factory("NewGrayPaletteQVT");
  ph::Value mem = host().CallMethod(palette, "Mem");
  ASSERT_FALSE(mem.IsNil());
  const ph::Ref block = mem.AsRef();

  // Entry i is stored in machine order: blue, green, red, 0.
  std::vector<uint8_t> bytes = host().Bytes(block);
  ASSERT_GE(bytes.size(), 1024u);
  for (int i = 0; i < 256; ++i) {
    ASSERT_EQ(bytes[4 * i], i);
    ASSERT_EQ(bytes[4 * i + 3], 0);
  }
  host().AssignMethod(palette, "Col", {0}, ph::Color{0x112233});
  bytes = host().Bytes(block);
  EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), (std::vector<uint8_t>{0x33, 0x22, 0x11, 0}));

  // Writing the block changes the palette: a little-endian ARGB copy with
  // alpha 0 is exactly the layout of two colour entries.
  ph::Ref picture = Picture(2, 1, {0xA1B2C3, 0x0D0E0F});
  EXPECT_TRUE(host().Call(picture, "CopyARGBtoMemoryblockQVT", {block, 4, true, 0}).AsBool());
  EXPECT_EQ(Col(palette, 0), 0x112233u);
  EXPECT_EQ(Col(palette, 1), 0xA1B2C3u);
  EXPECT_EQ(Col(palette, 2), 0x0D0E0Fu);
  EXPECT_EQ(Col(palette, 3), 0x030303u);
}

TEST_F(Palettes, NoSystemPaletteAndNoPalettesOnPictures) {
  EXPECT_TRUE(host().CallGlobal("NewSystemPaletteQVT").IsNil());

  ph::Ref picture = Picture(2, 2, {1, 2, 3, 4});
  EXPECT_TRUE(host().Call(picture, "PaletteQVT").IsNil());
  ph::Ref palette = Factory("NewWebPaletteQVT");
  const int32_t references = host().References(palette);
  host().Assign(picture, "PaletteQVT", {}, palette);
  EXPECT_TRUE(host().Call(picture, "PaletteQVT").IsNil());
  EXPECT_EQ(host().References(palette), references);
  EXPECT_EQ(host().Pixels(picture), (std::vector<uint32_t>{1, 2, 3, 4}));
  EXPECT_EQ(Col(palette, 0), 0xFFFFFFu);
}

}  // namespace
