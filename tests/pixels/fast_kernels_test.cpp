// Every fast kernel against its plain reference on the same random inputs,
// byte for byte. Rows have widths on both sides of every vector width, and
// every buffer a kernel reads or writes ends where a page ends, with the next
// page inaccessible, so a kernel that touches one byte too many faults.
// Each case's number is in its failure message; kCases of each family run
// from a fixed seed.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "exchange/kernels.h"
#include "filters/kernels.h"
#include "geometry/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "pixels/pixel_math.h"
#include "tone/handlers.h"
#include "tone/kernels.h"
#include "tests/support/images.h"

namespace {

using testpix::GuardedBuffer;
using testpix::ReaderImage;
using testpix::WriterImage;

constexpr int kCases = 300;

class Random {
 public:
  explicit Random(uint32_t seed) : rng_(seed) {}
  int32_t Int(int32_t lo, int32_t hi) { return std::uniform_int_distribution<int32_t>(lo, hi)(rng_); }
  double Real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng_); }
  bool Chance(int percent) { return Int(0, 99) < percent; }
  void Fill(uint8_t* p, size_t n) {
    // Mostly random bytes, now and then long runs of the extremes.
    for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(rng_());
    if (Chance(20)) std::memset(p, Chance(50) ? 0 : 255, n / 2);
  }
  // Widths around every vector width, and now and then a long row.
  int32_t Width() { return Chance(85) ? Int(1, 70) : Int(71, 1100); }

 private:
  std::mt19937 rng_;
};

// Source rows of `width` pixels (reader layout) ending at a guard page.
struct SourceRow {
  GuardedBuffer buffer;
  SourceRow(Random& r, int32_t width) : buffer(3 * static_cast<size_t>(width)) { r.Fill(buffer.data(), buffer.size()); }
  const uint8_t* data() { return buffer.data(); }
};

// A reader of random bytes whose rows are `rowBytes` apart.
struct RandomImage : ReaderImage {
  RandomImage(Random& r, int32_t width, int32_t height, int32_t rowBytes) : ReaderImage(width, height, rowBytes) {
    r.Fill(buffer.data(), buffer.size());
  }
};

uint32_t* Words(uint8_t* d) { return reinterpret_cast<uint32_t*>(d); }

// Runs `plain` and `fast` into two destinations of `bytes` bytes, both filled
// with the same pattern first, and compares them.
void ExpectSameOutput(size_t bytes, const std::function<void(uint8_t*)>& plain,
                      const std::function<void(uint8_t*)>& fast) {
  GuardedBuffer a(bytes), b(bytes);
  std::memset(a.data(), 0xA5, bytes);
  std::memset(b.data(), 0xA5, bytes);
  plain(a.data());
  fast(b.data());
  ASSERT_EQ(a.bytes(), b.bytes());
}

TEST(FastKernels, RowConversionsAndMirror) {
  Random r(1);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow src(r, w);
    ExpectSameOutput(4 * w, [&](uint8_t* d) { Rgb24ToXrgbRow(src.data(), Words(d), w); },
                     [&](uint8_t* d) { Rgb24ToXrgbRowFast(src.data(), Words(d), w); });
    ExpectSameOutput(4 * w, [&](uint8_t* d) { Rgb24ToXrgbMirrorRow(src.data(), Words(d), w); },
                     [&](uint8_t* d) { Rgb24ToXrgbMirrorRowFast(src.data(), Words(d), w); });
  }
}

TEST(FastKernels, QuarterTurns) {
  Random r(2);
  for (int n = 0; n < 60; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Int(1, 90), h = r.Int(1, 90);
    RandomImage image(r, w, h, 3 * w + r.Int(0, 1) * 4);
    for (bool quarter : {true, false}) {
      WriterImage a(h, w), b(h, w);
      const ptrdiff_t rowWords = h;  // the destination is h wide
      // Rotate90's and Rotate270's placements.
      uint32_t* originA = quarter ? WriterRow(a.writer, w - 1) : WriterRow(a.writer, 0) + (h - 1);
      uint32_t* originB = quarter ? WriterRow(b.writer, w - 1) : WriterRow(b.writer, 0) + (h - 1);
      QuarterTurnPixels(image.reader, originA, quarter ? 1 : -1, quarter ? -rowWords : rowWords);
      QuarterTurnPixelsFast(image.reader, originB, quarter ? 1 : -1, quarter ? -rowWords : rowWords);
      ASSERT_EQ(a.buffer.bytes(), b.buffer.bytes());
    }
  }
}

TEST(FastKernels, ChannelTables) {
  Random r(3);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow src(r, w);
    ChannelTables t;
    uint8_t* tables[3] = {t.red, t.green, t.blue};
    const bool shifts = r.Chance(30);  // brightness and inversion only, all three shifts
    for (uint8_t* table : tables) {
      switch (shifts ? r.Int(0, 1) * 6 : r.Int(0, 6)) {
        case 0: AbsBrightnessTable(r.Real(-300, 300), table); break;
        case 1: LinBrightnessTable(r.Real(-300, 300), table); break;
        case 2: ContrastTable(r.Real(-3, 3), table); break;
        case 3: LinearCurveTable(r.Real(-4, 4), r.Real(-300, 300), table); break;
        case 4: LevelsTable({r.Int(0, 255), r.Int(0, 255)}, table); break;
        case 5: for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(r.Int(0, 255)); break;
        default: for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(255 - s); break;
      }
    }
    const ChannelMap map = MakeChannelMap(t.red, t.green, t.blue);
    ExpectSameOutput(4 * w, [&](uint8_t* d) { ChannelTableRow(src.data(), Words(d), w, map); },
                     [&](uint8_t* d) { ChannelTableRowFast(src.data(), Words(d), w, map); });
  }
}

// The tables of the tone methods are lines, and those of absolute brightness
// and inversion shifts, so the fast paths are the ones they take; a table of
// random values is neither, and is looked up.
TEST(FastKernels, TableLines) {
  Random r(4);
  TableLine line;
  TableShift shift;
  uint8_t table[256];
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    AbsBrightnessTable(r.Real(-300, 300), table);
    EXPECT_TRUE(FitTableLine(table, &line));
    ContrastTable(r.Real(-1, 1), table);
    EXPECT_TRUE(FitTableLine(table, &line));
    LinearCurveTable(r.Real(-2, 2), r.Real(-100, 300), table);
    EXPECT_TRUE(FitTableLine(table, &line));
    for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(255 - s);
    EXPECT_TRUE(FitTableLine(table, &line));
    EXPECT_TRUE(FitTableShift(table, &shift));
    AbsBrightnessTable(r.Real(-300, 300), table);
    EXPECT_TRUE(FitTableShift(table, &shift));
  }
  LinBrightnessTable(100, table);
  EXPECT_FALSE(FitTableShift(table, &shift));
  for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(s * 7);
  EXPECT_FALSE(FitTableLine(table, &line));
}

TEST(FastKernels, BlendsCombineTintSepia) {
  Random r(5);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow a(r, w), b(r, w), m(r, w);
    // Weights around 100 % and, now and then, beyond the 32-bit path.
    const int32_t ws = r.Chance(80) ? FixedWeight(r.Real(-3, 3)) : FixedWeight(r.Real(-3e6, 3e6));
    const int32_t wd = r.Chance(80) ? FixedWeight(r.Real(-3, 3)) : FixedWeight(r.Real(-3e6, 3e6));
    ExpectSameOutput(4 * w, [&](uint8_t* d) { BlendRow(a.data(), b.data(), Words(d), w, ws, wd); },
                     [&](uint8_t* d) { BlendRowFast(a.data(), b.data(), Words(d), w, ws, wd); });
    ExpectSameOutput(4 * w, [&](uint8_t* d) { BlendMaskRow(a.data(), b.data(), m.data(), Words(d), w); },
                     [&](uint8_t* d) { BlendMaskRowFast(a.data(), b.data(), m.data(), Words(d), w); });
    ExpectSameOutput(4 * w, [&](uint8_t* d) { CombineRow(a.data(), b.data(), m.data(), Words(d), w); },
                     [&](uint8_t* d) { CombineRowFast(a.data(), b.data(), m.data(), Words(d), w); });
    const TintWeights tint =
        MakeTintWeights(static_cast<uint32_t>(r.Int(0, 0xFFFFFF)), static_cast<uint32_t>(r.Int(0, 0xFFFFFF)));
    ExpectSameOutput(4 * w, [&](uint8_t* d) { TintRow(a.data(), Words(d), w, tint); },
                     [&](uint8_t* d) { TintRowFast(a.data(), Words(d), w, tint); });
    const double range = r.Chance(80) ? 2 : 1e7;
    SepiaWeights sepia = {FixedWeight(r.Real(-range, range)), FixedWeight(r.Real(-range, range)),
                          FixedWeight(r.Real(-range, range)),
                          {r.Int(-300, 300), r.Int(-300, 300), r.Chance(90) ? r.Int(-300, 300) : INT32_MIN}};
    ExpectSameOutput(4 * w, [&](uint8_t* d) { SepiaRow(a.data(), Words(d), w, sepia); },
                     [&](uint8_t* d) { SepiaRowFast(a.data(), Words(d), w, sepia); });
  }
}

TEST(FastKernels, ColourMatrixAndLookupTable) {
  Random r(6);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow src(r, w);
    ColorMatrix m{};
    for (auto& row : m.weight)
      for (double& v : row) v = r.Real(-2, 2);
    const bool offsets = r.Chance(50);
    for (int c = 0; c < 3; ++c) {
      m.inputOffset[c] = offsets ? r.Real(-100, 100) : 0.0;
      m.outputOffset[c] = offsets ? r.Real(-100, 100) : 0.0;
    }
    if (r.Chance(10)) m.weight[r.Int(0, 2)][r.Int(0, 2)] = std::numeric_limits<double>::quiet_NaN();
    if (r.Chance(10)) m.weight[r.Int(0, 2)][r.Int(0, 2)] = -std::numeric_limits<double>::infinity();
    ExpectSameOutput(4 * w, [&](uint8_t* d) { ColorMatrixRow(src.data(), Words(d), w, m); },
                     [&](uint8_t* d) { ColorMatrixRowFast(src.data(), Words(d), w, m); });
    // A 3D table ending at the guard page: entries around 0..255; now and
    // then infinite at every node a run must not read (16 and 17 on any
    // axis), and not a number at one node.
    GuardedBuffer lut(kLutEntries * sizeof(double));
    auto* entries = reinterpret_cast<double*>(lut.data());
    const bool spoil = r.Chance(30);
    for (int32_t i = 0; i < kLutEntries; ++i)
      entries[i] = spoil && (i / 972 > 15 || i / 54 % 18 > 15 || i / 3 % 18 > 15) ? HUGE_VAL : r.Real(-30, 285);
    if (r.Chance(20)) entries[r.Int(0, kLutEntries - 1)] = std::nan("");
    const auto plan = std::make_unique<Lut3DPlan>();
    PrepareLut3D(*plan, entries);
    ExpectSameOutput(4 * w, [&](uint8_t* d) { Lut3DRow(src.data(), Words(d), w, entries); },
                     [&](uint8_t* d) { Lut3DRowFast(src.data(), Words(d), w, *plan); });
  }
}

TEST(FastKernels, MatrixFilterRows) {
  Random r(7);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t count = r.Width();
    const int32_t w = count + 4;
    RandomImage image(r, w, 5, 3 * w + 4 * r.Int(0, 1));
    const uint8_t* rows[5];
    for (int k = 0; k < 5; ++k) rows[k] = ReaderRow(image.reader, k);
    int32_t cells[25];
    const int32_t reach = r.Chance(60) ? 50 : r.Chance(75) ? 40000 : INT32_MAX / 4;  // 16-bit cells, 32-bit, 64-bit sums
    for (int32_t& c : cells) c = r.Chance(30) ? 0 : r.Int(-reach, reach);
    MatrixKernel kernel;
    PrepareMatrixKernel(kernel, cells);
    kernel.displacement = r.Chance(50) ? 0 : r.Int(-1000, 1000);
    kernel.scale = r.Chance(30) ? 1.0 : r.Real(-0.1, 0.1);
    kernel.channels = static_cast<uint32_t>(r.Int(0, 7));
    ExpectSameOutput(4 * count,
                     [&](uint8_t* d) { MatrixRow(rows, Words(d), count, kernel); },
                     [&](uint8_t* d) { MatrixRowFast(rows, Words(d), count, kernel); });
  }
}

TEST(FastKernels, ConvolutionPasses) {
  Random r(8);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    SeparableKernel k{};
    k.count = r.Int(2, kMaxConvolutionTaps);
    // Real weights (tenths, whose sums fall near whole numbers, where the
    // order of the additions shows; infinite or NaN now and then), or weights
    // k / 2^e (the integer path) now and then with numerators too large for it.
    const int kind = r.Int(0, 3);
    const int32_t e = r.Int(0, 12);
    const int32_t reach = kind == 2 && r.Chance(30) ? (1 << 22) : r.Chance(50) ? (2 << e) : (16 << e) / k.count;
    for (int32_t t = 0; t < k.count; ++t) {
      k.weights[t] = r.Chance(10) ? (r.Chance(85) ? 0.0 : r.Chance(50) ? NAN : r.Chance(50) ? INFINITY : -INFINITY)
                     : kind == 0 ? r.Real(-1, 1)
                     : kind == 3 ? r.Int(-10, 10) / 10.0
                                 : r.Int(-reach, reach) / static_cast<double>(1 << e);
    }
    k.channels = static_cast<uint32_t>(r.Int(0, 7));
    const int32_t count = r.Width();
    SourceRow src(r, count + k.count - 1);  // the last tap of the last result ends the row
    ExpectSameOutput(3 * count, [&](uint8_t* d) { ConvolveRowHorizontal(src.data(), d, count, k); },
                     [&](uint8_t* d) { ConvolveRowHorizontalFast(src.data(), d, count, k); });
    // One result row, or several sharing their intermediate rows.
    const int32_t stride = 3 * count + 3 * r.Int(0, 2), rows = r.Int(1, 3);
    RandomImage column(r, count, k.count + rows - 1, stride);
    std::vector<uint8_t> scratch(ConvolutionScratchBytes(count, k.count));
    ExpectSameOutput(
        4 * count * rows,
        [&](uint8_t* d) { ConvolveRowsVertical(column.buffer.data(), stride, Words(d), count, count, rows, k, nullptr); },
        [&](uint8_t* d) {
          ConvolveRowsVerticalFast(column.buffer.data(), stride, Words(d), count, count, rows, k, scratch.data());
        });
  }
}

TEST(FastKernels, CountsHistogramsAndExtremes) {
  Random r(9);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow src(r, w);
    const uint32_t col = r.Chance(50) ? ReaderPixel(src.data() + 3 * r.Int(0, w - 1)) : static_cast<uint32_t>(r.Int(0, 0xFFFFFF));
    EXPECT_EQ(CountColorRow(src.data(), w, col), CountColorRowFast(src.data(), w, col));

    // Counts are added to what the histogram holds.
    uint32_t plain[256], fast[256];
    for (uint32_t& count : plain) count = static_cast<uint32_t>(r.Int(0, 1000));
    std::memcpy(fast, plain, sizeof fast);
    LuminanceHistogramRow(src.data(), w, plain);
    LuminanceHistogramRowFast(src.data(), w, fast);
    EXPECT_EQ(0, std::memcmp(plain, fast, sizeof plain));

    // A search over several rows, each continuing what the last one held.
    MinMaxSearch a, b;
    StartMinMaxSearch(a);
    StartMinMaxSearch(b);
    for (int32_t y = 0; y < 4; ++y) {
      SourceRow row(r, w);
      MinMaxRow(row.data(), w, y, a);
      MinMaxRowFast(row.data(), w, y, b);
      for (int q = 0; q < 4; ++q) {
        EXPECT_EQ(a.max[q].value, b.max[q].value);
        EXPECT_EQ(a.max[q].x, b.max[q].x);
        EXPECT_EQ(a.max[q].y, b.max[q].y);
        EXPECT_EQ(a.min[q].value, b.min[q].value);
        EXPECT_EQ(a.min[q].x, b.min[q].x);
        EXPECT_EQ(a.min[q].y, b.min[q].y);
      }
    }
  }
}

TEST(FastKernels, MemoryBlockRows) {
  Random r(10);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width();
    SourceRow src(r, w);
    const bool little = r.Chance(50);
    const uint32_t alpha = r.Chance(80) ? static_cast<uint32_t>(r.Int(0, 255)) : 256u + r.Int(0, 5);
    ExpectSameOutput(4 * w, [&](uint8_t* d) { Rgb24ToArgbRow(src.data(), d, w, little, alpha); },
                     [&](uint8_t* d) { Rgb24ToArgbRowFast(src.data(), d, w, little, alpha); });
    const int32_t stride = r.Chance(60) ? 1 : r.Int(2, 5), channel = r.Int(0, 2);
    ExpectSameOutput(static_cast<size_t>(w - 1) * stride + 1,
                     [&](uint8_t* d) { Rgb24ChannelToStrideRow(src.data(), d, w, channel, stride); },
                     [&](uint8_t* d) { Rgb24ChannelToStrideRowFast(src.data(), d, w, channel, stride); });
    GuardedBuffer argb(4 * static_cast<size_t>(w));
    r.Fill(argb.data(), argb.size());
    ExpectSameOutput(4 * w, [&](uint8_t* d) { ArgbToXrgbRow(argb.data(), Words(d), w, little); },
                     [&](uint8_t* d) { ArgbToXrgbRowFast(argb.data(), Words(d), w, little); });
    GuardedBuffer grey(static_cast<size_t>(w - 1) * stride + 1);
    r.Fill(grey.data(), grey.size());
    ExpectSameOutput(
        4 * w, [&](uint8_t* d) { GrayStrideToXrgbRow(grey.data(), Words(d), w, stride); },
        [&](uint8_t* d) { GrayStrideToXrgbRowFast(grey.data(), Words(d), w, stride); });
  }
}

TEST(FastKernels, Shears) {
  Random r(11);
  for (int n = 0; n < kCases; ++n) {
    SCOPED_TRACE(n);
    const int32_t length = r.Int(0, 600), dstLength = r.Int(1, 700);  // rows of more than one blended chunk
    const int32_t shift = r.Int(-650, 750);
    const double weight = r.Chance(10) ? 0.0 : r.Chance(10) ? 1.0 : r.Real(0, 1);  // 1: no exact multiplier
    const uint32_t background = static_cast<uint32_t>(r.Int(0, 0xFFFFFF));
    SourceRow src(r, std::max(length, 1));
    ExpectSameOutput(
        4 * static_cast<size_t>(dstLength),
        [&](uint8_t* d) {
          SkewLine(src.data(), 3, length, Words(d), 1, dstLength, shift, weight, background);
        },
        [&](uint8_t* d) {
          SkewLineFast(src.data(), 3, length, Words(d), 1, dstLength, shift, weight, background);
        });
    ExpectSameOutput(
        3 * static_cast<size_t>(dstLength),
        [&](uint8_t* d) { SkewRow(src.data(), length, d, dstLength, shift, weight, background); },
        [&](uint8_t* d) { SkewRowFast(src.data(), length, d, dstLength, shift, weight, background); });
  }
  // Pass 2's two steps: rows blended with the row above, by weights that
  // now and then have no exact multiplier; columns shifted down by shifts
  // that fall by 0 .. 2 per column, bands of rows from above the first
  // column to below the last, from all columns or from a strip of them. The
  // fast copy may touch kShiftSlack bytes past a row: the rows have them, and
  // only the columns asked for are compared.
  for (int n = 0; n < 60; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Width(), h = r.Int(1, 60);
    RandomImage image(r, w, h, 3 * w);
    std::vector<int32_t> shifts(w);
    std::vector<double> weights(w);
    int32_t shift = r.Int(-20, 90);
    for (int32_t j = 0; j < w; ++j) shifts[j] = shift -= r.Int(0, 2), weights[j] = r.Chance(2) ? 1.0 : r.Real(0, 1);
    const ColumnShear shear(shifts, weights, static_cast<uint32_t>(r.Int(0, 0xFFFFFF)));
    SourceRow above(r, w);
    const int32_t left = r.Int(0, w - 1), right = r.Int(left + 1, w);
    ExpectSameOutput(
        3 * static_cast<size_t>(right - left),
        [&](uint8_t* d) { BlendColumnRow(image.reader.base, above.data(), shear, left, right, d); },
        [&](uint8_t* d) { BlendColumnRowFast(image.reader.base, above.data(), shear, left, right, d); });
    // Blended rows of the columns from `first` on, in blocks with gaps
    // between them.
    const int32_t first = r.Chance(50) ? 0 : r.Int(0, w - 1), blockRows = r.Int(1, h);
    const int32_t rowBytes = 3 * (w - first) + 4 * r.Int(0, 1), blocks = (h + blockRows - 1) / blockRows;
    const ptrdiff_t blockBytes = ptrdiff_t{blockRows} * rowBytes + r.Int(0, 50);
    GuardedBuffer rows(blocks * blockBytes + kShiftSlack);
    r.Fill(rows.data(), rows.size());
    const BlendedRows blended{rows.data(), rowBytes, blockRows, blockBytes, h, first};
    for (int k = 0; k < 20; ++k) {
      const int32_t top = r.Int(shifts.back() - 8, shifts[0] + h + 2), count = r.Int(1, 8);
      const int32_t from = r.Int(first, w - 1), to = r.Int(from + 1, w);
      SCOPED_TRACE(top);
      const ptrdiff_t outRowBytes = 3 * w + kShiftSlack;
      std::vector<uint8_t> a(outRowBytes * count, 0xA5), b = a;
      ShiftColumns(blended, top, count, shear, a.data(), outRowBytes, from, to);
      ShiftColumnsFast(blended, top, count, shear, b.data(), outRowBytes, from, to);
      for (int32_t y = 0; y < count; ++y)
        ASSERT_TRUE(std::equal(&a[y * outRowBytes], &a[y * outRowBytes + 3 * to], &b[y * outRowBytes])) << y;
    }
  }
}

TEST(FastKernels, Scaling) {
  Random r(12);
  for (int n = 0; n < 200; ++n) {
    SCOPED_TRACE(n);
    const int32_t w = r.Int(1, 70), h = r.Int(1, 50);
    // Tiny, any, or about half the size (exact halving and its neighbours
    // have paths of their own).
    const auto size = [&](int32_t from, int32_t most) {
      const int32_t mode = r.Int(0, 9);
      if (mode < 2) return r.Int(1, 3);
      if (mode < 5) return std::max(1, from / 2 + r.Int(-1, 1));
      return r.Int(1, most);
    };
    const int32_t nw = size(w, 150), nh = size(h, 100);
    RandomImage image(r, w, h, 3 * w + 4 * r.Int(0, 1));
    WriterImage a(nw, nh), b(nw, nh);
    ScaleBox(image.reader, a.writer);
    ScaleBoxFast(image.reader, b.writer);
    ASSERT_EQ(a.buffer.bytes(), b.buffer.bytes());

    float weights[4];
    CubicWeights(r.Real(0, 1), weights);
    const int32_t index = r.Int(0, h - 1);
    std::vector<float> pa(3 * static_cast<size_t>(w)), pb(3 * static_cast<size_t>(w));
    CubicColumnPass(image.reader, index, weights, pa.data());
    CubicColumnPassFast(image.reader, index, weights, pb.data());
    ASSERT_EQ(0, std::memcmp(pa.data(), pb.data(), pa.size() * sizeof(float)));

    // The horizontal pass on a column buffer of values around 0..255 (some
    // above, so that the clamp works), enlarging or not.
    const int32_t dw = r.Chance(30) ? r.Int(1, w) : r.Int(w, 4 * w + 70);
    GuardedBuffer columnBuffer(3 * sizeof(float) * static_cast<size_t>(w));
    auto* values = reinterpret_cast<float*>(columnBuffer.data());
    for (int32_t i = 0; i < 3 * w; ++i) values[i] = static_cast<float>(r.Real(0, 300));
    CubicTable columns;
    CubicRowPlan plan;
    ASSERT_TRUE(MakeCubicTable(columns, w, dw));
    ASSERT_TRUE(MakeCubicRowPlan(plan, columns, w, dw));
    ExpectSameOutput(
        4 * static_cast<size_t>(dw),
        [&](uint8_t* out) { CubicRowPass(values, w, columns, reinterpret_cast<uint32_t*>(out), dw); },
        [&](uint8_t* out) { CubicRowPassFast(values, plan, reinterpret_cast<uint32_t*>(out)); });
  }
}

// The division by a box size is a multiplication for every sum a box of up
// to kMaxDividerCount pixels can have.
TEST(FastKernels, BoxDividerIsExactDivision) {
  for (uint32_t count = 1; count <= kMaxDividerCount; ++count) {
    const BoxDivider divider = MakeBoxDivider(count);
    for (uint32_t sum = 0; sum <= 255 * count; ++sum) {
      if (Divide(sum, divider) != sum / count) FAIL() << sum << " / " << count;
    }
  }
}

TEST(FastKernels, PlainKernelsCanBeForced) {
  const bool before = PlainKernels();
  SetPlainKernels(true);
  EXPECT_EQ(ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast), &Rgb24ToXrgbRow);
  SetPlainKernels(false);
  EXPECT_EQ(ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast), &Rgb24ToXrgbRowFast);
  SetPlainKernels(before);
}

}  // namespace
