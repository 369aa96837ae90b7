// Stride kernels, block lengths and the palette tables, tested directly on
// buffers. Block buffers end at a page boundary followed by an
// inaccessible page, so a kernel that touches one byte too many faults.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include "exchange/memoryblock.h"
#include "exchange/palette.h"

namespace {

// `size` bytes whose last byte is the last byte before a guard page.
class GuardedBytes {
 public:
  explicit GuardedBytes(size_t size, uint8_t fill = 0xEE) : size_(size) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    pages_ = (size + page - 1) / page + 1;
    map_ = static_cast<uint8_t*>(
        mmap(nullptr, pages_ * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(map_ + (pages_ - 1) * page, page, PROT_NONE);
    data_ = map_ + (pages_ - 1) * page - size;
    std::memset(data_, fill, size);
  }
  ~GuardedBytes() { munmap(map_, pages_ * static_cast<size_t>(sysconf(_SC_PAGESIZE))); }
  uint8_t* data() { return data_; }
  std::vector<uint8_t> bytes() const { return {data_, data_ + size_}; }

 private:
  size_t size_;
  size_t pages_;
  uint8_t* map_;
  uint8_t* data_;
};

TEST(BlockKernels, OneChannelWithAStrideEndsOnASingleByte) {
  // Three pixels, stride 4: the last cell is one byte, right at the guard.
  const uint8_t row[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
  for (int channel = 0; channel < 3; ++channel) {
    GuardedBytes block(9, 0xEE);
    Rgb24ChannelToStrideRow(row, block.data(), 3, channel, 4);
    std::vector<uint8_t> expected(9, 0xEE);
    for (int x = 0; x < 3; ++x) expected[4 * x] = row[3 * x + channel];
    EXPECT_EQ(block.bytes(), expected) << "channel " << channel;
  }
  GuardedBytes tight(3);
  Rgb24ChannelToStrideRow(row, tight.data(), 3, 1, 1);
  EXPECT_EQ(tight.bytes(), (std::vector<uint8_t>{2, 5, 8}));
}

TEST(BlockKernels, BuildRowsReadOnlyTheirBytes) {
  GuardedBytes argb(8);
  const uint8_t big[8] = {1, 16, 32, 48, 2, 64, 80, 96};
  std::memcpy(argb.data(), big, 8);
  uint32_t words[2] = {0xFFFFFFFF, 0xFFFFFFFF};
  ArgbToXrgbRow(argb.data(), words, 2, false);
  EXPECT_EQ(words[0], 0x00102030u);
  EXPECT_EQ(words[1], 0x00405060u);
  ArgbToXrgbRow(argb.data(), words, 2, true);
  EXPECT_EQ(words[0], 0x00201001u);  // blue 1, green 16, red 32
  EXPECT_EQ(words[1], 0x00504002u);

  GuardedBytes grey(5);
  const uint8_t g[5] = {127, 9, 0, 9, 255};
  std::memcpy(grey.data(), g, 5);
  uint32_t greys[3];
  GrayStrideToXrgbRow(grey.data(), greys, 3, 2);
  EXPECT_EQ(greys[0], 0x007F7F7Fu);
  EXPECT_EQ(greys[1], 0x00000000u);
  EXPECT_EQ(greys[2], 0x00FFFFFFu);
}

TEST(BlockLength, NeededBytesOfEachLayout) {
  EXPECT_EQ(BlockBytesNeeded(1, 2, 1, 3, 3), 7);        // RGB at offset 1
  EXPECT_EQ(BlockBytesNeeded(0, 2, 1, 4, 4), 8);        // ARGB
  EXPECT_EQ(BlockBytesNeeded(1, 3, 1, 4, 1), 10);       // one channel: 1 + 2 * 4 + 1
  EXPECT_EQ(BlockBytesNeeded(0, 3, 2, 2, 1), 11);       // grey, stride 2: (6 - 1) * 2 + 1
  EXPECT_EQ(BlockBytesNeeded(5, 0, 7, 3, 3), 5);        // no pixels
  EXPECT_EQ(BlockBytesNeeded(-1, 1, 1, 3, 3), -1);
  EXPECT_EQ(BlockBytesNeeded(0, 1, 1, 0, 1), -1);
}

TEST(BlockLength, NoWrapAroundIn32Or64Bits) {
  // 65536 x 16384 x 4 is 2^32: zero in 32-bit arithmetic.
  EXPECT_EQ(BlockBytesNeeded(0, 65536, 16384, 4, 4), int64_t{1} << 32);
  EXPECT_EQ(BlockBytesNeeded(INT32_MAX, 1, 1, 3, 3), int64_t{INT32_MAX} + 3);
  // (2^62 - 2^32) pixels times a stride near 2^31 does not fit in 64 bits.
  EXPECT_EQ(BlockBytesNeeded(0, INT32_MAX, INT32_MAX, INT32_MAX, 1), -1);
  // Just below 2^64 is still out of the signed range; 2^62 is not.
  EXPECT_EQ(BlockBytesNeeded(0, INT32_MAX, INT32_MAX, 4, 4), -1);
  EXPECT_EQ(BlockBytesNeeded(0, INT32_MAX, INT32_MAX, 1, 1), int64_t{INT32_MAX} * INT32_MAX);
}

// --- Palettes ----------------------------------------------------------------------

uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }

TEST(PaletteTables, PalmFollowsItsCubeWalk) {
  // Rebuilt here from the rule: red, then blue, then green (fastest) over the
  // six levels FF down to 00, blue first from FF CC 99 and then 66 33 00.
  std::vector<uint32_t> expected;
  const uint32_t levels[6] = {0xFF, 0xCC, 0x99, 0x66, 0x33, 0x00};
  for (int half = 0; half < 2; ++half) {
    for (uint32_t r : levels) {
      for (int bi = 0; bi < 3; ++bi) {
        for (uint32_t g : levels) expected.push_back(Rgb(r, g, levels[3 * half + bi]));
      }
    }
  }
  expected.pop_back();  // black is left out
  for (uint32_t grey : {0x11, 0x22, 0x44, 0x55, 0x77, 0x88, 0xAA, 0xBB, 0xDD, 0xEE}) {
    expected.push_back(Rgb(grey, grey, grey));
  }
  for (uint32_t c : {0xCCCCCCu, 0x880000u, 0x880088u, 0x008800u, 0x008888u}) expected.push_back(c);
  expected.resize(256, 0);
  EXPECT_EQ(std::vector<uint32_t>(PalmColors, PalmColors + 256), expected);

  EXPECT_EQ(PalmColors[0], 0xFFFFFFu);
  EXPECT_EQ(PalmColors[1], 0xFFCCFFu);
  EXPECT_EQ(PalmColors[6], 0xFFFFCCu);
  EXPECT_EQ(PalmColors[18], 0xCCFFFFu);
  EXPECT_EQ(PalmColors[107], 0x000099u);
  EXPECT_EQ(PalmColors[108], 0xFFFF66u);
  EXPECT_EQ(PalmColors[125], 0xFF0000u);
  EXPECT_EQ(PalmColors[214], 0x003300u);
}

TEST(PaletteTables, WindowsColoursAreDistinctWithTheirBlockBoundaries) {
  EXPECT_EQ(std::set<uint32_t>(WinColors, WinColors + 256).size(), 256u);
  const std::pair<int, uint32_t> checks[] = {
      {0, 0xFFFFFF},   {29, 0xA4C8F0},  {30, 0x939393},  {40, 0xF5F5F5},  {41, 0x031303},
      {64, 0xEEFFEE},  {65, 0x030313},  {88, 0xEEEEFF},  {89, 0x131303},  {112, 0xFFFFEE},
      {113, 0x0D0313}, {136, 0xF9EEFF}, {137, 0x031313}, {160, 0xEEFFFF}, {161, 0x120A03},
      {184, 0xFDF6EE}, {185, 0x130303}, {208, 0xFFEEEE}, {209, 0x120C08}, {231, 0xFCF6F3},
      {232, 0x121418}, {240, 0xE3E5E8}, {241, 0x10140F}, {250, 0xE5E8E3}, {251, 0x0B0404},
      {253, 0xFFFBF0}, {255, 0x000000}};
  for (auto [index, colour] : checks) EXPECT_EQ(WinColors[index], colour) << "entry " << index;
  for (uint32_t c : WinColors) EXPECT_EQ(c >> 24, 0u);
}

TEST(PaletteKernels, DistinctCountOverTheFirstCountEntries) {
  PaletteRecord p{};
  p.count = 256;
  EXPECT_EQ(DistinctColorCount(p), 1);  // 256 blacks
  p.count = 1;
  EXPECT_EQ(DistinctColorCount(p), 1);
  p.count = 0;
  EXPECT_EQ(DistinctColorCount(p), 0);
  p.count = -5;
  EXPECT_EQ(DistinctColorCount(p), -5);  // 1 or less is answered as it is

  // 1, 2, 1, 3, 2 then black beyond: the first five hold three colours.
  const uint32_t values[5] = {1, 2, 1, 3, 2};
  std::memcpy(p.colors, values, sizeof values);
  p.count = 5;
  EXPECT_EQ(DistinctColorCount(p), 3);
  p.count = 6;
  EXPECT_EQ(DistinctColorCount(p), 4);  // entry 5 adds black
  // Colours differing only in the top byte are different words.
  p.colors[5] = 0x01000001;
  EXPECT_EQ(DistinctColorCount(p), 4);
  p.colors[5] = 0;
  for (int i = 0; i < 256; ++i) p.colors[i] = static_cast<uint32_t>(i);
  p.count = 300;  // only 256 entries exist
  EXPECT_EQ(DistinctColorCount(p), 256);
}

}  // namespace
