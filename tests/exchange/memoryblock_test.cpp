// Pixels between pictures and memory blocks, through the emulated host: the
// byte layouts of the worked examples, round trips, and every refusal. The
// host's blocks are exactly as long as asked, so a read or write past the end
// shows up under the address sanitizer.
#include <tuple>

#include "tests/support/host_fixture.h"
#include "tests/support/pixels.h"

namespace {

using Bytes = std::vector<uint8_t>;

class MemoryBlocks : public HostTest {
 protected:
  // (16, 32, 48) and (64, 80, 96) side by side.
  ph::Ref TwoPixels() { return Picture(2, 1, {0x102030, 0x405060}); }
  // The block after `method` copied `picture` into a block of `before`.
  Bytes Copied(const ph::Ref& picture, const char* method, const Bytes& before, std::vector<ph::Value> args) {
    ph::Ref block = host().NewMemoryBlock(before);
    args.insert(args.begin(), block);
    EXPECT_TRUE(host().Call(picture, method, std::move(args)).AsBool()) << method;
    return host().Bytes(block);
  }
  std::vector<uint32_t> Built(const char* global, const Bytes& bytes, std::vector<ph::Value> args) {
    args.insert(args.begin(), host().NewMemoryBlock(bytes));
    return host().Pixels(AsPicture(host().CallGlobal(global, std::move(args))));
  }
};

TEST_F(MemoryBlocks, WorkedExamplesOfEachLayout) {
  ph::Ref two = TwoPixels();
  EXPECT_EQ(Copied(two, "CopyRGBtoMemoryblockQVT", Bytes(7, 0xAA), {1}), (Bytes{0xAA, 16, 32, 48, 64, 80, 96}));
  EXPECT_EQ(Copied(two, "CopyARGBtoMemoryblockQVT", Bytes(8, 0xAA), {0, false, 255}), (Bytes{255, 16, 32, 48, 255, 64, 80, 96}));
  EXPECT_EQ(Copied(two, "CopyARGBtoMemoryblockQVT", Bytes(8, 0xAA), {0, true, 128}), (Bytes{48, 32, 16, 128, 96, 80, 64, 128}));
  for (int32_t alpha : {-1, 256, INT32_MIN}) {  // the block's alpha bytes are kept
    EXPECT_EQ(Copied(two, "CopyARGBtoMemoryblockQVT", {1, 0, 0, 0, 2, 0, 0, 0}, {0, false, alpha}),
              (Bytes{1, 16, 32, 48, 2, 64, 80, 96})) << alpha;
    EXPECT_EQ(Copied(two, "CopyARGBtoMemoryblockQVT", {0, 0, 0, 1, 0, 0, 0, 2}, {0, true, alpha}),
              (Bytes{48, 32, 16, 1, 96, 80, 64, 2})) << alpha;
  }
  // Each channel to the first byte of its cell: stride 3 at offset 2 is bytes
  // 2, 5, 8, and the block ends right after byte 8.
  ph::Ref three = Picture(3, 1, {0x102030, 0x405060, 0x708090});
  const char* channels[3] = {"CopyRtoMemoryblockQVT", "CopyGtoMemoryblockQVT", "CopyBtoMemoryblockQVT"};
  for (uint8_t k = 0; k < 3; ++k) {
    const uint8_t v = uint8_t(0x10 + 0x10 * k);
    EXPECT_EQ(Copied(three, channels[k], Bytes(9, 0xEE), {2, 3}),
              (Bytes{0xEE, 0xEE, v, 0xEE, 0xEE, uint8_t(v + 0x30), 0xEE, 0xEE, uint8_t(v + 0x60)})) << channels[k];
  }
  EXPECT_EQ(Built("MemoryblockRGBtoPictureQVT", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {1, 2, 2}),
            (std::vector<uint32_t>{0x010203, 0x040506, 0x070809, 0x0A0B0C}));
  EXPECT_EQ(Built("MemoryblockARGBtoPictureQVT", {9, 1, 2, 3, 9, 4, 5, 6}, {0, 1, 2, false}),
            (std::vector<uint32_t>{0x010203, 0x040506}));
  EXPECT_EQ(Built("MemoryblockARGBtoPictureQVT", {9, 1, 2, 3, 9, 4, 5, 6}, {0, 2, 1, true}),
            (std::vector<uint32_t>{0x020109, 0x050409}));
  // Grey with stride 2 reads every second byte of exactly (3 - 1) * 2 + 1 bytes.
  EXPECT_EQ(Built("MemoryblockGrayToPictureQVT", {127, 1, 200, 2, 0}, {0, 3, 1, 2}),
            (std::vector<uint32_t>{0x7F7F7F, 0xC8C8C8, 0x000000}));
}

}  // namespace
