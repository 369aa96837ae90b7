// Row kernels on buffers that end at a page boundary (a read or write one
// byte too far faults), and the number conversions behind the decisions.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "tests/tone/tone_test_support.h"
#include "tone/tone.h"

using namespace tone_test;

namespace {

// `bytes` bytes whose last byte is the last of a page followed by an
// inaccessible page.
class PageEnd {
 public:
  explicit PageEnd(size_t bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    pages_ = (bytes + page - 1) / page + 1;
    base_ = static_cast<uint8_t*>(mmap(nullptr, pages_ * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(base_ + (pages_ - 1) * page, page, PROT_NONE);
    data_ = base_ + (pages_ - 1) * page - bytes;
    size_ = pages_ * page;
  }
  ~PageEnd() { munmap(base_, size_); }
  PageEnd(const PageEnd&) = delete;
  PageEnd& operator=(const PageEnd&) = delete;
  uint8_t* data() { return data_; }
  uint32_t* words() { return reinterpret_cast<uint32_t*>(data_); }

 private:
  uint8_t* base_;
  uint8_t* data_;
  size_t pages_, size_;
};

// Fills a reader row of `width` pixels (r, g, b) = (3x + 1, 255 - 5x, 7x).
void FillRow(PageEnd& row, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    row.data()[3 * x] = static_cast<uint8_t>(3 * x + 1);
    row.data()[3 * x + 1] = static_cast<uint8_t>(255 - 5 * x);
    row.data()[3 * x + 2] = static_cast<uint8_t>(7 * x);
  }
}

TEST(ToneKernels, RowsStayInsideTheirBuffers) {
  for (int32_t width : {1, 2, 3, 5, 17}) {
    const size_t bytes = 3 * static_cast<size_t>(width);
    PageEnd a(bytes), b(bytes), c(bytes);
    FillRow(a, width);
    FillRow(b, width);
    FillRow(c, width);
    PageEnd dst(4 * static_cast<size_t>(width));
    uint8_t table[256];
    for (int i = 0; i < 256; ++i) table[i] = static_cast<uint8_t>(i ^ 0x55);

    ChannelTableRow(a.data(), dst.words(), width, table, table, table);
    EXPECT_EQ(dst.words()[width - 1], Rgb(a.data()[3 * width - 3] ^ 0x55, a.data()[3 * width - 2] ^ 0x55,
                                          a.data()[3 * width - 1] ^ 0x55));
    CombineRow(a.data(), b.data(), c.data(), dst.words(), width);
    BlendRow(a.data(), b.data(), dst.words(), width, 1024, 0);
    EXPECT_EQ(dst.words()[width - 1], Rgb(a.data()[3 * width - 3], a.data()[3 * width - 2], a.data()[3 * width - 1]));
    BlendMaskRow(a.data(), b.data(), c.data(), dst.words(), width);
    TintRow(a.data(), dst.words(), width, MakeTintWeights(0xFFFFFF, 0xFFFFFF));

    uint32_t h1[256] = {}, h2[256] = {}, h3[256] = {};
    LuminanceHistogramRow(a.data(), width, h1);
    ChannelHistogramRow(a.data(), width, h1, h2, h3);
    EXPECT_EQ(CountColorRow(a.data(), width, Rgb(1, 255, 0)), 1u);
  }
}

TEST(ToneKernels, WeightsAndWrapsOfExtremeNumbers) {
  EXPECT_EQ(FixedWeight(1e300), std::numeric_limits<int32_t>::max());
  EXPECT_EQ(FixedWeight(-1e300), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(FixedWeight(std::nan("")), 0);

  // The low 8 bits of the truncated value, whatever its size: 2^40 is a
  // multiple of 256.
  EXPECT_EQ(TruncateLow8(300.7), 44);
  EXPECT_EQ(TruncateLow8(-17.6), 239);
  EXPECT_EQ(TruncateLow8(1099511627776.0 + 44.9), 44);
  EXPECT_EQ(TruncateLow8(-1099511627776.0 - 17.6), 239);
  EXPECT_EQ(TruncateLow8(std::numeric_limits<double>::infinity()), 0);
}

}  // namespace
