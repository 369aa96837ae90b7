// Colour counting and remapping, and embedded masks, through the host.
#include <algorithm>
#include <cstring>

#include "plugin/host_calls.h"
#include "tests/tone/tone_test_support.h"
#include "tone/tone.h"

using namespace tone_test;

namespace {

class ToneColours : public HostTest {
 protected:
  // Counter i of a histogram block, read as a little-endian word.
  static uint32_t Counter(const std::vector<uint8_t>& block, int i) {
    return block[4 * i] | block[4 * i + 1] << 8 | block[4 * i + 2] << 16 | static_cast<uint32_t>(block[4 * i + 3]) << 24;
  }
  struct Histograms {
    std::vector<uint8_t> red, blue, green;
    int32_t count;
  };
  Histograms CountColors(const ph::Ref& p) {
    ph::Value red{ph::Ref()}, blue{ph::Ref()}, green{ph::Ref()}, count{int32_t{7}};
    host().Call(p, "CountColorsQVT",
                {ph::Value::ByRef(&red), ph::Value::ByRef(&blue), ph::Value::ByRef(&green), ph::Value::ByRef(&count)});
    EXPECT_FALSE(red.IsNil() || blue.IsNil() || green.IsNil());
    if (red.IsNil() || blue.IsNil() || green.IsNil()) return {{}, {}, {}, count.AsInt()};
    return {host().Bytes(red.AsRef()), host().Bytes(blue.AsRef()), host().Bytes(green.AsRef()), count.AsInt()};
  }
  ph::Ref Table(uint8_t (*f)(int)) {
    std::vector<uint8_t> t(256);
    for (int i = 0; i < 256; ++i) t[i] = f(i);
    return host().NewMemoryBlock(t);
  }
};

TEST_F(ToneColours, CountColorMatchesWholeWords) {
  EXPECT_EQ(host().Call(Flat(10, 10, 0xFFFFFF), "CountColorQVT", {ph::Color{0xFFFFFF}}).AsInt(), 100);
  // Black pixels put together are 0, not 0xFF000000.
  EXPECT_EQ(host().Call(Flat(10, 10, 0), "CountColorQVT", {ph::Color{0xFF000000}}).AsInt(), 0);
  EXPECT_EQ(host().Call(Flat(10, 10, 0), "CountColorQVT", {ph::Color{0}}).AsInt(), 100);
  const std::vector<uint32_t> sample = ph::SamplePixels(31, 17);
  ph::Ref p = Picture(31, 17, sample);
  for (uint32_t c : {sample[0], sample[200], sample[526], 0x010203u}) {
    EXPECT_EQ(host().Call(p, "CountColorQVT", {ph::Color{c}}).AsInt(), std::count(sample.begin(), sample.end(), c)) << c;
  }
}

TEST_F(ToneColours, CountColorsBuildsChannelHistograms) {
  Histograms h = CountColors(Flat(10, 10, Rgb(1, 2, 3)));
  EXPECT_EQ(h.count, 100);
  ASSERT_EQ(h.red.size(), 1024u);
  ASSERT_EQ(h.blue.size(), 1024u);
  ASSERT_EQ(h.green.size(), 1024u);
  EXPECT_EQ(std::vector<uint8_t>(h.red.begin() + 4, h.red.begin() + 8), (std::vector<uint8_t>{100, 0, 0, 0}));
  for (int i = 0; i < 256; ++i) {
    EXPECT_EQ(Counter(h.red, i), i == 1 ? 100u : 0u) << i;
    EXPECT_EQ(Counter(h.green, i), i == 2 ? 100u : 0u) << i;
    EXPECT_EQ(Counter(h.blue, i), i == 3 ? 100u : 0u) << i;
  }

  const std::vector<uint32_t> sample = ph::SamplePixels(40, 30);
  h = CountColors(Picture(40, 30, sample));
  EXPECT_EQ(h.count, 1200);
  uint32_t sums[3] = {};
  for (int i = 0; i < 256; ++i) {
    sums[0] += Counter(h.red, i);
    sums[1] += Counter(h.green, i);
    sums[2] += Counter(h.blue, i);
    EXPECT_EQ(Counter(h.green, i), std::count_if(sample.begin(), sample.end(), [i](uint32_t c) { return G(c) == uint32_t(i); }));
  }
  EXPECT_EQ(sums[0], 1200u);
  EXPECT_EQ(sums[1], 1200u);
  EXPECT_EQ(sums[2], 1200u);
}

TEST_F(ToneColours, CountColorsReleasesThePreviousBlocks) {
  ph::Ref oldRed = host().NewMemoryBlock(16), oldBlue = host().NewMemoryBlock(2048);
  ph::Value red{oldRed}, blue{oldBlue}, green{ph::Ref()}, count{int32_t{0}};
  host().Call(Flat(3, 2, 0x0A0B0C), "CountColorsQVT",
              {ph::Value::ByRef(&red), ph::Value::ByRef(&blue), ph::Value::ByRef(&green), ph::Value::ByRef(&count)});
  EXPECT_EQ(host().References(oldRed), 1) << "only the test's own reference is left";
  EXPECT_EQ(host().References(oldBlue), 1);
  ASSERT_FALSE(red.IsNil());
  EXPECT_NE(red.AsRef().get(), oldRed.get());
  EXPECT_EQ(host().Bytes(blue.AsRef()).size(), 1024u);
  EXPECT_EQ(Counter(host().Bytes(blue.AsRef()), 0x0C), 6u);
  EXPECT_EQ(count.AsInt(), 6);
}

TEST_F(ToneColours, CountColorsOnAnUnreadablePicture) {
  DirectCalls direct(host());
  direct.RefuseNewPictures(true);  // the foreign picture's clone cannot be made
  ph::Ref foreign = host().NewForeignPicture(2, 2, std::vector<uint32_t>(4, 0));
  ph::Ref oldRed = host().NewMemoryBlock(8), oldGreen = host().NewMemoryBlock(8);
  ph::Ref r = oldRed, g = oldGreen;  // references handed to the plug-in
  auto* red = static_cast<REALmemoryBlockStruct*>(r.handle());
  auto* green = static_cast<REALmemoryBlockStruct*>(g.handle());
  r.Release();
  g.Release();
  REALmemoryBlockStruct* blue = nullptr;
  int32_t count = 5;
  CountColorsQVT(static_cast<REALpictureStruct*>(foreign.handle()), &red, &blue, &green, &count);
  EXPECT_EQ(count, -1);
  EXPECT_EQ(red, nullptr);
  EXPECT_EQ(blue, nullptr);
  EXPECT_EQ(green, nullptr);
  EXPECT_EQ(host().References(oldRed), 1);
  EXPECT_EQ(host().References(oldGreen), 1);
  EXPECT_EQ(CountColorQVT(static_cast<REALpictureStruct*>(foreign.handle()), 0), -1);
}

TEST_F(ToneColours, TransformColorsMapsEachChannelThroughItsTable) {
  const std::vector<uint32_t> sample = ph::SamplePixels(11, 9);
  ph::Ref p = Picture(11, 9, sample);
  ph::Ref identity = Table([](int i) { return uint8_t(i); });
  ph::Ref zeros = Table([](int) { return uint8_t(0); });
  ph::Ref inverse = Table([](int i) { return uint8_t(255 - i); });
  ph::Ref half = Table([](int i) { return uint8_t(i / 2); });
  auto call = [&](const ph::Ref& a, const ph::Ref& b, const ph::Ref& c) {
    return host().Pixels(AsPicture(host().Call(p, "TransformColorsQVT", {a, b, c})));
  };
  EXPECT_EQ(call(identity, identity, identity), sample);
  auto id = [](uint32_t s) { return s; };
  auto zero = [](uint32_t) { return 0u; };
  EXPECT_EQ(call(zeros, identity, identity), MapChannels(sample, zero, id, id));
  // Arguments are red, blue, green: the second table acts on blue.
  EXPECT_EQ(call(half, inverse, zeros),
            MapChannels(sample, [](uint32_t s) { return s / 2; }, zero, [](uint32_t s) { return 255 - s; }));
  EXPECT_EQ(host().Pixels(p), sample);
}

TEST_F(ToneColours, TransformColorsRefusesMissingOrShortTables) {
  ph::Ref p = Flat(2, 2, Rgb(255, 255, 255));
  ph::Ref full = host().NewMemoryBlock(256);
  ph::Ref shortBlock = host().NewMemoryBlock(255);
  const ph::Value nil{ph::Ref()};
  EXPECT_TRUE(host().Call(p, "TransformColorsQVT", {full, full, shortBlock}).IsNil());
  EXPECT_TRUE(host().Call(p, "TransformColorsQVT", {shortBlock, full, full}).IsNil());
  EXPECT_TRUE(host().Call(p, "TransformColorsQVT", {full, nil, full}).IsNil());
  // A histogram block is read as bytes: byte 255 is the top byte of counter 63.
  std::vector<uint8_t> histogram(1024, 0);
  histogram[255] = 0x42;
  ph::Ref h = host().NewMemoryBlock(histogram);
  EXPECT_EQ(host().Pixels(AsPicture(host().Call(p, "TransformColorsQVT", {h, full, h}))),
            std::vector<uint32_t>(4, Rgb(0x42, 0x42, 0)));
}

TEST_F(ToneColours, EmbeddedMaskIsFullEverywhere) {
  ph::Ref p = Picture(5, 3, ph::SamplePixels(5, 3));
  ph::Ref white = AsPicture(host().Call(p, "EmbeddedMaskQVT", {false}));
  ph::Ref black = AsPicture(host().Call(p, "EmbeddedMaskQVT", {true}));
  ASSERT_TRUE(white && black);
  EXPECT_EQ(host().Width(white), 5);
  EXPECT_EQ(host().Height(white), 3);
  EXPECT_EQ(host().Pixels(white), std::vector<uint32_t>(15, 0xFFFFFF));
  EXPECT_EQ(host().Pixels(black), std::vector<uint32_t>(15, 0));
}

TEST_F(ToneColours, AssigningAnEmbeddedMaskChangesNothing) {
  const std::vector<uint32_t> sample = ph::SamplePixels(6, 4);
  ph::Ref p = Picture(6, 4, sample);
  for (const ph::Ref& m : {ph::Ref(), Flat(2, 2, 0x808080), Flat(6, 4, 0), Flat(9, 9, 0xFFFFFF)}) {
    host().Assign(p, "EmbeddedMaskQVT", {false}, m);
    host().Assign(p, "EmbeddedMaskQVT", {true}, m);
    EXPECT_EQ(host().Pixels(p), sample);
  }
}

TEST_F(ToneColours, HasMaskAsksWithoutMakingOne) {
  ph::Ref p = Flat(4, 4, 0x123456);
  EXPECT_FALSE(host().Call(p, "HasMaskQVT").AsBool());
  EXPECT_FALSE(host().Call(p, "HasMaskQVT").AsBool()) << "asking made a mask";
  ph::Ref mask = Flat(4, 4, 0xFFFFFF);
  host().SetMask(p, mask);
  const int32_t before = host().References(mask);
  EXPECT_TRUE(host().Call(p, "HasMaskQVT").AsBool());
  EXPECT_EQ(host().References(mask), before) << "the mask handle was not released";
  host().SetMask(p, ph::Ref());
}

}  // namespace
