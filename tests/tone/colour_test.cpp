// Colour counting and remapping and embedded masks, through the host; the
// histograms of `picturehost call` as a user runs it.
#include <algorithm>

#include "tests/support/direct_calls.h"
#include "tests/support/picturehost_run.h"
#include "tests/support/pixels.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

using namespace testpix;

namespace {

// Counter i of a histogram block, read as a little-endian word.
uint32_t Counter(const std::vector<uint8_t>& block, int i) {
  return block[4 * i] | block[4 * i + 1] << 8 | block[4 * i + 2] << 16 | uint32_t(block[4 * i + 3]) << 24;
}
// How many of `pixels` have `level` in channel k.
int32_t AtLevel(const std::vector<uint32_t>& pixels, int k, uint32_t level) {
  return std::count_if(pixels.begin(), pixels.end(), [&](uint32_t c) { return Channel(c, k) == level; });
}

class ToneColours : public HostTest {
 protected:
  int32_t CountColor(const ph::Ref& p, uint32_t c) { return host().Call(p, "CountColorQVT", {ph::Color{c}}).AsInt(); }
};

// New 1024-byte blocks of counters, the caller's previous blocks released,
// each channel counted from its own byte; arguments red, blue, green.
TEST_F(ToneColours, CountColorsBuildsChannelHistograms) {
  const std::vector<uint32_t> sample = ph::SamplePixels(40, 30);
  ph::Ref oldRed = host().NewMemoryBlock(16), oldBlue = host().NewMemoryBlock(2048);
  ph::Value red{oldRed}, blue{oldBlue}, green{ph::Ref()}, count{int32_t{7}};
  host().Call(Picture(40, 30, sample), "CountColorsQVT",
              {ph::Value::ByRef(&red), ph::Value::ByRef(&blue), ph::Value::ByRef(&green), ph::Value::ByRef(&count)});
  EXPECT_EQ(host().References(oldRed), 1) << "only the test's own reference is left";
  EXPECT_EQ(host().References(oldBlue), 1);
  ASSERT_FALSE(red.IsNil() || blue.IsNil() || green.IsNil());
  EXPECT_EQ(count.AsInt(), 1200);
  const std::vector<uint8_t> blocks[3] = {host().Bytes(red.AsRef()), host().Bytes(green.AsRef()), host().Bytes(blue.AsRef())};
  for (int k = 0; k < 3; ++k) {
    ASSERT_EQ(blocks[k].size(), 1024u) << k;
    for (int i = 0; i < 256; ++i) ASSERT_EQ(Counter(blocks[k], i), AtLevel(sample, k, i)) << "channel " << k << " level " << i;
  }

  // An unreadable picture: -1, every block released and set to nil.
  ph::Ref foreign = host().NewForeignPicture(2, 2, std::vector<uint32_t>(4, 0));
  DirectCalls direct(host());
  direct.RefuseNewPictures(true);  // the foreign picture's clone cannot be made
  ph::Ref r = oldRed, g = oldBlue;  // references handed to the plug-in
  auto* redBlock = static_cast<REALmemoryBlockStruct*>(r.handle());
  auto* greenBlock = static_cast<REALmemoryBlockStruct*>(g.handle());
  r.Release(), g.Release();
  REALmemoryBlockStruct* blueBlock = nullptr;
  int32_t n = 5;
  CountColorsQVT(Handle(foreign), &redBlock, &blueBlock, &greenBlock, &n);
  EXPECT_EQ(n, -1);
  EXPECT_TRUE(redBlock == nullptr && blueBlock == nullptr && greenBlock == nullptr);
  EXPECT_EQ(host().References(oldRed), 1);
  EXPECT_EQ(host().References(oldBlue), 1);
  EXPECT_EQ(CountColorQVT(Handle(foreign), 0), -1);
}

TEST_F(ToneColours, TransformColorsMapsEachChannelThroughItsTable) {
  const std::vector<uint32_t> sample = ph::SamplePixels(11, 9);
  ph::Ref p = Picture(11, 9, sample);
  auto table = [&](uint8_t (*f)(int)) {
    std::vector<uint8_t> t(256);
    for (int i = 0; i < 256; ++i) t[i] = f(i);
    return host().NewMemoryBlock(t);
  };
  ph::Ref identity = table([](int i) { return uint8_t(i); }), zeros = host().NewMemoryBlock(256);
  ph::Ref inverse = table([](int i) { return uint8_t(255 - i); }), half = table([](int i) { return uint8_t(i / 2); });
  auto call = [&](const ph::Ref& a, const ph::Ref& b, const ph::Ref& c) { return host().Call(p, "TransformColorsQVT", {a, b, c}); };
  EXPECT_EQ(host().Pixels(AsPicture(call(identity, identity, identity))), sample);
  // Arguments are red, blue, green: the second table acts on blue.
  EXPECT_EQ(host().Pixels(AsPicture(call(half, inverse, zeros))),
            MapChannels(sample, [](uint32_t s) { return s / 2; }, [](uint32_t) { return 0u; }, [](uint32_t s) { return 255 - s; }));
  EXPECT_EQ(host().Pixels(p), sample);
  // (Tables missing or one byte short are refused: see the sweep.)
  // A histogram block is read as bytes: byte 255 is the top byte of counter 63.
  std::vector<uint8_t> histogram(1024, 0);
  histogram[255] = 0x42;
  ph::Ref h = host().NewMemoryBlock(histogram);
  EXPECT_EQ(host().Pixels(AsPicture(host().Call(Flat(2, 2, 0xFFFFFF), "TransformColorsQVT", {h, identity, h}))),
            std::vector<uint32_t>(4, Rgb(0x42, 0x42, 255)));
}

// `picturehost call` writes byref histograms next to --out, one file a channel.
TEST(ToneCommandLine, HistogramsAreWrittenBesideTheOutput) {
  TempDir dir("tone-cli");
  const Outcome run = Picturehost(
      {"call", "--on", "sample:16x12", "CountColorsQVT", "zeros:0", "zeros:0", "zeros:0", "0", "--out", dir / "hist"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("count=192"), std::string::npos) << run.out;
  const std::vector<uint32_t> sample = ph::SamplePixels(16, 12);
  for (auto [channel, k] : {std::pair{"red", 0}, {"green", 1}, {"blue", 2}}) {
    const std::string bytes = Slurp(dir / (std::string("hist.") + channel));
    ASSERT_EQ(bytes.size(), 1024u) << channel;
    for (int i : {0, 128, 255}) EXPECT_EQ(Counter({bytes.begin(), bytes.end()}, i), AtLevel(sample, k, i)) << channel << " " << i;
  }
}

}  // namespace
