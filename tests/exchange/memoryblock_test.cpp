// Pixels between pictures and memory blocks, through the emulated host: the
// byte layouts of the worked examples, round trips, and every refusal. The
// host's blocks are exactly as long as asked, so a read or write past the end
// shows up under the address sanitizer.
#include <cstdint>
#include <random>
#include <vector>

#include "exchange/memoryblock.h"
#include "tests/support/host_fixture.h"

namespace {

using Bytes = std::vector<uint8_t>;

class MemoryBlocks : public HostTest {
 protected:
  // (16, 32, 48) and (64, 80, 96) side by side.
  ph::Ref TwoPixels() { return Picture(2, 1, {0x102030, 0x405060}); }

  ph::Ref Block(const Bytes& bytes) { return host().NewMemoryBlock(bytes); }

  bool Copy(const ph::Ref& picture, const char* method, std::vector<ph::Value> args) {
    return host().Call(picture, method, std::move(args)).AsBool();
  }

  // A picture of random pixels, the same on every run.
  std::vector<uint32_t> RandomPixels(int32_t w, int32_t h, uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<uint32_t> p(static_cast<size_t>(w) * h);
    for (uint32_t& v : p) v = random() & 0xFFFFFF;
    return p;
  }
};

uint8_t R(uint32_t c) { return static_cast<uint8_t>(c >> 16); }
uint8_t G(uint32_t c) { return static_cast<uint8_t>(c >> 8); }
uint8_t B(uint32_t c) { return static_cast<uint8_t>(c); }

// --- Worked examples --------------------------------------------------------------

TEST_F(MemoryBlocks, RgbAtOffsetOneLeavesByteZero) {
  ph::Ref block = Block(Bytes(7, 0xAA));
  EXPECT_TRUE(Copy(TwoPixels(), "CopyRGBtoMemoryblockQVT", {block, 1}));
  EXPECT_EQ(host().Bytes(block), (Bytes{0xAA, 16, 32, 48, 64, 80, 96}));
}

TEST_F(MemoryBlocks, ArgbInBothByteOrders) {
  ph::Ref big = Block(Bytes(8, 0xAA));
  EXPECT_TRUE(Copy(TwoPixels(), "CopyARGBtoMemoryblockQVT", {big, 0, false, 255}));
  EXPECT_EQ(host().Bytes(big), (Bytes{255, 16, 32, 48, 255, 64, 80, 96}));

  ph::Ref little = Block(Bytes(8, 0xAA));
  EXPECT_TRUE(Copy(TwoPixels(), "CopyARGBtoMemoryblockQVT", {little, 0, true, 128}));
  EXPECT_EQ(host().Bytes(little), (Bytes{48, 32, 16, 128, 96, 80, 64, 128}));
}

TEST_F(MemoryBlocks, AlphaOutsideZeroTo255KeepsTheBlocksAlphaBytes) {
  for (int32_t alpha : {-1, 256, INT32_MIN}) {
    ph::Ref big = Block({1, 0, 0, 0, 2, 0, 0, 0});
    EXPECT_TRUE(Copy(TwoPixels(), "CopyARGBtoMemoryblockQVT", {big, 0, false, alpha}));
    EXPECT_EQ(host().Bytes(big), (Bytes{1, 16, 32, 48, 2, 64, 80, 96})) << alpha;

    ph::Ref little = Block({0, 0, 0, 1, 0, 0, 0, 2});
    EXPECT_TRUE(Copy(TwoPixels(), "CopyARGBtoMemoryblockQVT", {little, 0, true, alpha}));
    EXPECT_EQ(host().Bytes(little), (Bytes{48, 32, 16, 1, 96, 80, 64, 2})) << alpha;
  }
}

TEST_F(MemoryBlocks, GreenWithStrideFourReplacesTheGreensOfAnArgbBlock) {
  // A little-endian ARGB block (blue, green, red, alpha) of one picture ...
  ph::Ref block = Block(Bytes(8, 0));
  ASSERT_TRUE(Copy(TwoPixels(), "CopyARGBtoMemoryblockQVT", {block, 0, true, 200}));
  // ... gets the greens of another at bytes 1 and 5; nothing else changes.
  ph::Ref other = Picture(2, 1, {0x11AA22, 0x33BB44});
  EXPECT_TRUE(Copy(other, "CopyGtoMemoryblockQVT", {block, 1, 4}));
  EXPECT_EQ(host().Bytes(block), (Bytes{48, 0xAA, 16, 200, 96, 0xBB, 64, 200}));

  ph::Ref mixed = AsPicture(host().CallGlobal("MemoryblockARGBtoPictureQVT", {block, 0, 2, 1, true}));
  EXPECT_EQ(host().Pixels(mixed), (std::vector<uint32_t>{0x10AA30, 0x40BB60}));
}

TEST_F(MemoryBlocks, EachChannelGoesToTheFirstByteOfItsCell) {
  const std::vector<uint32_t> pixels = {0x102030, 0x405060, 0x708090};
  ph::Ref picture = Picture(3, 1, pixels);
  const char* methods[3] = {"CopyRtoMemoryblockQVT", "CopyGtoMemoryblockQVT", "CopyBtoMemoryblockQVT"};
  for (int channel = 0; channel < 3; ++channel) {
    // Stride 3 at offset 2: bytes 2, 5, 8; the block ends right after byte 8.
    ph::Ref block = Block(Bytes(9, 0xEE));
    EXPECT_TRUE(Copy(picture, methods[channel], {block, 2, 3}));
    Bytes expected(9, 0xEE);
    for (int x = 0; x < 3; ++x) {
      const uint32_t c = pixels[x];
      expected[2 + 3 * x] = channel == 0 ? R(c) : channel == 1 ? G(c) : B(c);
    }
    EXPECT_EQ(host().Bytes(block), expected) << methods[channel];
  }
}

TEST_F(MemoryBlocks, GreyWithStrideTwoReadsEverySecondByte) {
  ph::Ref block = Block({127, 1, 200, 2, 0});  // exactly (3 - 1) * 2 + 1 bytes
  ph::Ref picture = AsPicture(host().CallGlobal("MemoryblockGrayToPictureQVT", {block, 0, 3, 1, 2}));
  EXPECT_EQ(host().Width(picture), 3);
  EXPECT_EQ(host().Pixels(picture), (std::vector<uint32_t>{0x7F7F7F, 0xC8C8C8, 0x000000}));
}

TEST_F(MemoryBlocks, BuildFromRgbAndArgbLayouts) {
  ph::Ref rgb = Block({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  ph::Ref fromRgb = AsPicture(host().CallGlobal("MemoryblockRGBtoPictureQVT", {rgb, 1, 2, 2}));
  EXPECT_EQ(host().Pixels(fromRgb), (std::vector<uint32_t>{0x010203, 0x040506, 0x070809, 0x0A0B0C}));

  ph::Ref argb = Block({9, 1, 2, 3, 9, 4, 5, 6});
  ph::Ref big = AsPicture(host().CallGlobal("MemoryblockARGBtoPictureQVT", {argb, 0, 1, 2, false}));
  EXPECT_EQ(host().Pixels(big), (std::vector<uint32_t>{0x010203, 0x040506}));
  ph::Ref little = AsPicture(host().CallGlobal("MemoryblockARGBtoPictureQVT", {argb, 0, 2, 1, true}));
  EXPECT_EQ(host().Pixels(little), (std::vector<uint32_t>{0x020109, 0x050409}));
}

// --- Round trips ----------------------------------------------------------------------

TEST_F(MemoryBlocks, RoundTripsReproduceThePicture) {
  // An odd width, so that the reader's rows are padded.
  const int32_t w = 13, h = 7;
  const std::vector<uint32_t> pixels = RandomPixels(w, h, 7);
  ph::Ref picture = Picture(w, h, pixels);

  ph::Ref rgb = Block(Bytes(5 + 3 * w * h, 0));
  ASSERT_TRUE(Copy(picture, "CopyRGBtoMemoryblockQVT", {rgb, 5}));
  Bytes expected(5, 0);
  for (uint32_t c : pixels) expected.insert(expected.end(), {R(c), G(c), B(c)});
  EXPECT_EQ(host().Bytes(rgb), expected);
  EXPECT_EQ(host().Pixels(AsPicture(host().CallGlobal("MemoryblockRGBtoPictureQVT", {rgb, 5, w, h}))),
            pixels);

  for (bool littleEndian : {false, true}) {
    ph::Ref argb = Block(Bytes(4 * w * h, 0));
    ASSERT_TRUE(Copy(picture, "CopyARGBtoMemoryblockQVT", {argb, 0, littleEndian, 77}));
    ph::Ref back = AsPicture(
        host().CallGlobal("MemoryblockARGBtoPictureQVT", {argb, 0, w, h, littleEndian}));
    EXPECT_EQ(host().Pixels(back), pixels) << "little endian " << littleEndian;
  }

  // One channel at stride 1 comes back as a grey picture of that channel.
  ph::Ref reds = Block(Bytes(w * h, 0));
  ASSERT_TRUE(Copy(picture, "CopyRtoMemoryblockQVT", {reds, 0, 1}));
  ph::Ref grey = AsPicture(host().CallGlobal("MemoryblockGrayToPictureQVT", {reds, 0, w, h, 1}));
  std::vector<uint32_t> greys;
  for (uint32_t c : pixels) greys.push_back(R(c) * 0x010101u);
  EXPECT_EQ(host().Pixels(grey), greys);
}

// --- Refusals -----------------------------------------------------------------------

TEST_F(MemoryBlocks, CopiesRefuseShortBlocksAndBadArgumentsWithoutWriting) {
  ph::Ref picture = TwoPixels();
  struct Case {
    const char* method;
    std::vector<ph::Value> extra;  // after destination and offset
    int32_t needed;                // block bytes at offset 1
  };
  const std::vector<Case> cases = {
      {"CopyRGBtoMemoryblockQVT", {}, 7},
      {"CopyARGBtoMemoryblockQVT", {false, 255}, 9},
      {"CopyARGBtoMemoryblockQVT", {true, -1}, 9},
      {"CopyRtoMemoryblockQVT", {3}, 5},
      {"CopyGtoMemoryblockQVT", {4}, 6},
      {"CopyBtoMemoryblockQVT", {1}, 3},
  };
  for (const Case& c : cases) {
    auto call = [&](const ph::Ref& block, int32_t offset) {
      std::vector<ph::Value> args = {block, offset};
      args.insert(args.end(), c.extra.begin(), c.extra.end());
      return Copy(picture, c.method, args);
    };
    ph::Ref exact = Block(Bytes(c.needed, 0xAA));
    EXPECT_TRUE(call(exact, 1)) << c.method;
    ph::Ref shortBlock = Block(Bytes(c.needed - 1, 0xAA));
    EXPECT_FALSE(call(shortBlock, 1)) << c.method;
    EXPECT_EQ(host().Bytes(shortBlock), Bytes(c.needed - 1, 0xAA)) << c.method;
    ph::Ref big = Block(Bytes(64, 0xAA));
    EXPECT_FALSE(call(big, -1)) << c.method;
    EXPECT_FALSE(call(big, INT32_MAX)) << c.method;
    EXPECT_FALSE(call(ph::Ref(), 0)) << c.method;
    EXPECT_EQ(host().Bytes(big), Bytes(64, 0xAA)) << c.method;
  }
  // A pixel size below 1.
  ph::Ref block = Block(Bytes(64, 0xAA));
  for (const char* m : {"CopyRtoMemoryblockQVT", "CopyGtoMemoryblockQVT", "CopyBtoMemoryblockQVT"}) {
    EXPECT_FALSE(Copy(picture, m, {block, 0, 0})) << m;
    EXPECT_FALSE(Copy(picture, m, {block, 0, -3})) << m;
  }
  EXPECT_EQ(host().Bytes(block), Bytes(64, 0xAA));
  // A huge stride: the needed length is beyond 32 bits.
  EXPECT_FALSE(Copy(picture, "CopyRtoMemoryblockQVT", {block, 0, INT32_MAX}));
  // No picture.
  EXPECT_FALSE(Copy(ph::Ref(), "CopyRGBtoMemoryblockQVT", {block, 0}));
}

TEST_F(MemoryBlocks, BuildsRefuseShortBlocksAndBadArguments) {
  ph::Ref block = Block(Bytes(64, 0));
  auto rgb = [&](const ph::Ref& b, int32_t offset, int32_t w, int32_t h) {
    return host().CallGlobal("MemoryblockRGBtoPictureQVT", {b, offset, w, h});
  };
  auto argb = [&](const ph::Ref& b, int32_t offset, int32_t w, int32_t h) {
    return host().CallGlobal("MemoryblockARGBtoPictureQVT", {b, offset, w, h, true});
  };
  auto grey = [&](const ph::Ref& b, int32_t offset, int32_t w, int32_t h, int32_t stride) {
    return host().CallGlobal("MemoryblockGrayToPictureQVT", {b, offset, w, h, stride});
  };
  EXPECT_TRUE(rgb(block, 0, 0, 1).IsNil());
  EXPECT_TRUE(rgb(block, 0, 1, -1).IsNil());
  EXPECT_TRUE(rgb(block, -1, 1, 1).IsNil());
  EXPECT_TRUE(rgb(ph::Ref(), 0, 1, 1).IsNil());
  EXPECT_TRUE(grey(block, 0, 2, 2, 0).IsNil());
  EXPECT_TRUE(grey(block, 0, 2, 2, -1).IsNil());

  // One byte short of each layout's need.
  ph::Ref twelve = Block(Bytes(12, 0));
  EXPECT_FALSE(rgb(twelve, 0, 2, 2).IsNil());
  EXPECT_TRUE(rgb(twelve, 1, 2, 2).IsNil());
  EXPECT_FALSE(argb(twelve, 4, 2, 1).IsNil());
  EXPECT_TRUE(argb(twelve, 5, 2, 1).IsNil());
  EXPECT_FALSE(grey(twelve, 1, 3, 2, 2).IsNil());  // 1 + 5 * 2 + 1 = 12
  EXPECT_TRUE(grey(twelve, 2, 3, 2, 2).IsNil());
  EXPECT_TRUE(argb(twelve, INT32_MAX, 1, 1).IsNil());

  // Sizes whose byte count wraps to a small number in 32 bits.
  EXPECT_TRUE(argb(block, 0, 65536, 16384).IsNil());  // 4 * 2^30 = 2^32
  EXPECT_TRUE(grey(block, 0, 2, 1, INT32_MAX).IsNil());
  EXPECT_TRUE(rgb(block, 0, INT32_MAX, INT32_MAX).IsNil());
}

TEST(MemoryBlockHandlers, NilPictureOrBlockIsRefusedBeforeAnyHostCall) {
  int placeholder = 0;
  auto* someBlock = reinterpret_cast<REALmemoryBlockStruct*>(&placeholder);
  EXPECT_EQ(CopyRGBtoMemoryblock(nullptr, someBlock, 0), 0);
  EXPECT_EQ(CopyRGBXtoMemoryblock(nullptr, someBlock, 0, 1, 0), 0);
  EXPECT_EQ(CopyBtoMemoryblock(nullptr, someBlock, 0, 1), 0);
  EXPECT_EQ(MemoryblockRGBtoPicture(nullptr, 0, 1, 1), nullptr);
  EXPECT_EQ(MemoryblockGrayToPicture(someBlock, 0, 1, 1, 0), nullptr);
}

}  // namespace
