#include "geometry/handlers.h"
#include "geometry/kernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <gdk/gdk.h>

#include "pixels/handlers.h"
#include "pixels/kernel_choice.h"
#include "plugin/host_calls.h"

namespace {

constexpr double kPi = 3.141592653589793;
// pi / 2 as the nearest double plus the remainder, so that pi / 2 - x keeps
// its precision when x is close to pi / 2.
constexpr double kHalfPiHigh = 1.5707963267948966;
constexpr double kHalfPiLow = 6.123233995736766e-17;

// Sine and cosine of 0 <= x <= pi / 4 by their Taylor series (Horner form in
// z = x * x), in plain double arithmetic, so that every processor and the C
// library in use give the same bits. The first term left out is below 1e-19.
double SinSmall(double x) {
  const double z = x * x;
  double p = 1.0 / 355687428096000.0;  // 1/17!
  p = -1.0 / 1307674368000.0 + z * p;  // -1/15!
  p = 1.0 / 6227020800.0 + z * p;      // 1/13!
  p = -1.0 / 39916800.0 + z * p;       // -1/11!
  p = 1.0 / 362880.0 + z * p;          // 1/9!
  p = -1.0 / 5040.0 + z * p;           // -1/7!
  p = 1.0 / 120.0 + z * p;             // 1/5!
  p = -1.0 / 6.0 + z * p;              // -1/3!
  return x + x * z * p;
}

double CosSmall(double x) {
  const double z = x * x;
  double p = -1.0 / 6402373705728000.0;  // -1/18!
  p = 1.0 / 20922789888000.0 + z * p;    // 1/16!
  p = -1.0 / 87178291200.0 + z * p;      // -1/14!
  p = 1.0 / 479001600.0 + z * p;         // 1/12!
  p = -1.0 / 3628800.0 + z * p;          // -1/10!
  p = 1.0 / 40320.0 + z * p;             // 1/8!
  p = -1.0 / 720.0 + z * p;              // -1/6!
  p = 1.0 / 24.0 + z * p;                // 1/4!
  p = -0.5 + z * p;                      // -1/2!
  return 1.0 + z * p;
}

// Sizes: a double truncated toward zero, if it fits a 32-bit count.
bool TruncSize(double v, int32_t* out) {
  if (!(v >= 1.0 && v < 2147483648.0)) return false;
  *out = static_cast<int32_t>(v);
  return true;
}

// Splits an offset into its whole shift floor(o) and the weight o - floor(o).
void SplitOffset(double o, int32_t* shift, double* weight) {
  const double n = std::floor(o);
  *shift = static_cast<int32_t>(n);
  *weight = o - n;
}

// Pass 2's shears of the `columns` columns of pass 1 for a `sourceWidth`-wide
// source: the offset starts at s * (W - 1) and falls by s per column;
// H2 = trunc(cos * H + s * W) + 1.
ColumnShear PassTwoShear(int32_t sourceWidth, int32_t columns, double s, uint32_t background) {
  std::vector<int32_t> shifts(static_cast<size_t>(columns));
  std::vector<double> weights(shifts.size());
  double offset = s * (sourceWidth - 1);
  for (size_t c = 0; c < shifts.size(); ++c, offset -= s) SplitOffset(offset, &shifts[c], &weights[c]);
  return ColumnShear(std::move(shifts), std::move(weights), background);
}

}  // namespace

void SinCosQuadrant(double x, double* sine, double* cosine) {
  if (x <= 0.7853981633974483) {
    *sine = SinSmall(x);
    *cosine = CosSmall(x);
  } else {
    const double y = (kHalfPiHigh - x) + kHalfPiLow;
    *sine = CosSmall(y);
    *cosine = SinSmall(y);
  }
}

bool ReduceAngle(double angle, double* reduced) {
  if (!std::isfinite(angle)) return false;
  double a = std::fmod(angle, 360.0);  // exact: the sign of angle, |a| < 360
  if (a < 0) a += 360.0;
  if (a >= 360.0) a = 0.0;  // a tiny negative angle plus 360 rounds to 360
  *reduced = a;
  return true;
}

namespace {

// Where the pixels of a sheared line go: writer words `step` words apart,
// or reader pixels one after another.
struct WordLine {
  uint32_t* dst;
  ptrdiff_t step;
  bool Row() const { return step == 1; }
  void Fill(int64_t i, uint32_t background) const { dst[i * step] = background; }
  void Put(int64_t i, int32_t r, int32_t g, int32_t b) const {
    dst[i * step] = PackRGB(static_cast<uint32_t>(r), static_cast<uint32_t>(g), static_cast<uint32_t>(b));
  }
};
struct ByteLine {
  uint8_t* dst;
  bool Row() const { return true; }
  void Fill(int64_t i, uint32_t background) const {
    Put(i, static_cast<int32_t>(RedOf(background)), static_cast<int32_t>(GreenOf(background)),
        static_cast<int32_t>(BlueOf(background)));
  }
  void Put(int64_t i, int32_t r, int32_t g, int32_t b) const {
    dst[3 * i] = static_cast<uint8_t>(r);
    dst[3 * i + 1] = static_cast<uint8_t>(g);
    dst[3 * i + 2] = static_cast<uint8_t>(b);
  }
};

template <typename Line>
void SkewLineTo(const uint8_t* src, ptrdiff_t srcStep, int32_t length, const Line& dst, int32_t dstLength,
                int32_t shift, double weight, uint32_t background) {
  for (int32_t i = 0; i < dstLength; ++i) dst.Fill(i, background);

  const int32_t bR = static_cast<int32_t>(RedOf(background));
  const int32_t bG = static_cast<int32_t>(GreenOf(background));
  const int32_t bB = static_cast<int32_t>(BlueOf(background));
  const int32_t bwR = static_cast<int32_t>(bR * weight);
  const int32_t bwG = static_cast<int32_t>(bG * weight);
  const int32_t bwB = static_cast<int32_t>(bB * weight);

  // Each output pixel keeps what its source pixel does not pass on (p - left)
  // and receives what the previous one passed on (prev).
  int32_t prevR = bwR, prevG = bwG, prevB = bwB;
  int64_t pos = shift;
  for (int32_t i = 0; i < length; ++i, src += srcStep, ++pos) {
    const int32_t r = src[0], g = src[1], b = src[2];
    const int32_t leftR = static_cast<int32_t>(r * weight);
    const int32_t leftG = static_cast<int32_t>(g * weight);
    const int32_t leftB = static_cast<int32_t>(b * weight);
    if (pos >= 0 && pos < dstLength) dst.Put(pos, r - leftR + prevR, g - leftG + prevG, b - leftB + prevB);
    prevR = leftR;
    prevG = leftG;
    prevB = leftB;
  }
  if (pos >= 0 && pos < dstLength) dst.Put(pos, bR - bwR + prevR, bG - bwG + prevG, bB - bwB + prevB);
}

}  // namespace

void SkewLine(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
              int32_t dstLength, int32_t shift, double weight, uint32_t background) {
  SkewLineTo(src, srcStep, length, WordLine{dst, dstStep}, dstLength, shift, weight, background);
}

void SkewRow(const uint8_t* src, int32_t length, uint8_t* dst, int32_t dstLength, int32_t shift, double weight,
             uint32_t background) {
  SkewLineTo(src, 3, length, ByteLine{dst}, dstLength, shift, weight, background);
}

void HorzSkew(const PictureReader& src, int32_t srcRow, PictureWriter& dst, int32_t dstRow, int32_t offset,
              double weight, uint32_t background) {
  ChooseKernel(SkewLine, SkewLineFast)(ReaderRow(src, srcRow), 3, src.width, WriterRow(dst, dstRow), 1, dst.width,
                                       offset, weight, background);
}

void VertSkew(const PictureReader& src, PictureWriter& dst, int32_t column, int32_t offset, double weight,
              uint32_t background) {
  SkewLine(src.base + 3 * static_cast<ptrdiff_t>(column), src.rowBytes, src.height, WriterRow(dst, 0) + column,
           dst.rowBytes / 4, dst.height, offset, weight, background);
}

void BlendColumnRow(const uint8_t* row, const uint8_t* above, const ColumnShear& shear, int32_t from, int32_t to,
                    uint8_t* out) {
  for (int32_t k = 3 * from; k < 3 * to; ++k) {
    const double w = shear.weights[k / 3];
    out[k - 3 * from] =
        static_cast<uint8_t>(row[k] - static_cast<int32_t>(row[k] * w) + static_cast<int32_t>(above[k] * w));
  }
}

bool BlendColumns(const PictureReader& src, const ColumnShear& shear, MemoryReader& blended) {
  blended.Release();
  const uint64_t rowBytes = 3 * static_cast<uint64_t>(src.width);
  const uint64_t size = rowBytes * (static_cast<uint64_t>(src.height) + 1) + kShiftSlack;
  if (size > INT32_MAX) return false;
  blended.rows = static_cast<uint8_t*>(CallocPixels(static_cast<size_t>(size)));
  if (!blended.rows) return false;
  blended.reader.base = blended.rows;
  blended.reader.rowBytes = static_cast<int32_t>(rowBytes);
  blended.reader.width = src.width;
  blended.reader.height = src.height + 1;
  const auto blend = ChooseKernel(BlendColumnRow, BlendColumnRowFast);
  const uint8_t* background = shear.background.data();
  for (int32_t i = 0; i <= src.height; ++i)
    blend(i < src.height ? ReaderRow(src, i) : background, i > 0 ? ReaderRow(src, i - 1) : background, shear, 0,
          src.width, blended.rows + static_cast<ptrdiff_t>(i) * blended.reader.rowBytes);
  return true;
}

void ShiftColumns(const BlendedRows& blended, int32_t top, int32_t rows, const ColumnShear& shear, uint8_t* out,
                  ptrdiff_t outRowBytes, int32_t from, int32_t to) {
  for (int32_t y = 0; y < rows; ++y, out += outRowBytes) {
    for (int32_t c = from; c < to; ++c) {
      const int64_t i = int64_t{top} + y - shear.shifts[c];
      const uint8_t* p = i >= 0 && i < blended.height
                             ? blended.Row(static_cast<int32_t>(i)) + 3 * static_cast<ptrdiff_t>(c - blended.first)
                             : shear.background.data() + 3 * static_cast<ptrdiff_t>(c);
      for (int k = 0; k < 3; ++k) out[3 * c + k] = p[k];
    }
  }
}

namespace {

// The writer of shear pass 1, 2 or 3 for `source`, reading `current`; false
// when a size is not valid or the writer cannot be made.
bool NewPassWriter(PictureWriter& writer, int pass, const PictureReader& source, const PictureReader& current,
                   double theta, double s, double t) {
  ShearSizes sizes;
  if (!ComputeShearSizes(source.width, source.height, theta, s, t, &sizes)) return false;
  if (pass == 2) return NewPictureWriter(writer, current.width, sizes.height2);
  return NewPictureWriter(writer, pass == 1 ? sizes.width1 : sizes.width3, current.height);
}

// Passes 1 and 3: rows sheared horizontally. Pass 1 shears row k by
// (k + 0.5) * t, W1 = W + trunc(t * H); pass 3 by an offset starting at
// -t * s * (W - 1) and growing by t per row, W3 = trunc(cos * W + s * H) + 1.
bool ShearRows(PictureWriter& writer, int pass, const PictureReader& source, const PictureReader& current,
               uint32_t background, double theta, double s, double t) {
  if (!NewPassWriter(writer, pass, source, current, theta, s, t)) return false;
  double offset = -t * s * (source.width - 1);
  for (int32_t k = 0; k < current.height; ++k, offset += t) {
    int32_t shift;
    double weight;
    SplitOffset(pass == 1 ? (k + 0.5) * t : offset, &shift, &weight);
    HorzSkew(current, k, writer, k, shift, weight, background);
  }
  return true;
}

// Pass 2: columns sheared vertically, from pass 1's blended rows.
bool ShearColumns(PictureWriter& writer, const PictureReader& source, const PictureReader& current, uint32_t background,
                  double theta, double s, double t) {
  const ColumnShear shear = PassTwoShear(source.width, current.width, s, background);
  MemoryReader blended;
  if (!NewPassWriter(writer, 2, source, current, theta, s, t) || !BlendColumns(current, shear, blended)) return false;
  std::vector<uint8_t> row(3 * static_cast<size_t>(current.width) + kShiftSlack);
  const BlendedRows rows{blended.rows, blended.reader.rowBytes, blended.reader.height, 0, blended.reader.height, 0};
  const auto shift = ChooseKernel(ShiftColumns, ShiftColumnsFast);
  const auto words = ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast);
  for (int32_t y = 0; y < writer.height; ++y) {
    shift(rows, y, 1, shear, row.data(), 0, 0, current.width);
    words(row.data(), WriterRow(writer, y), writer.width);
  }
  return true;
}

REALpictureStruct* Rendered(bool made, PictureWriter& writer) { return made ? RenderPictureWriter(writer) : nullptr; }

}  // namespace

REALpictureStruct* Rotate45part1(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t) {
  PictureWriter writer;
  return Rendered(ShearRows(writer, 1, source, current, background, theta, s, t), writer);
}

REALpictureStruct* Rotate45part2(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t) {
  PictureWriter writer;
  return Rendered(ShearColumns(writer, source, current, background, theta, s, t), writer);
}

REALpictureStruct* Rotate45part3(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t) {
  PictureWriter writer;
  return Rendered(ShearRows(writer, 3, source, current, background, theta, s, t), writer);
}

void ShearFactors(double angle, double* theta, double* s, double* t) {
  *theta = angle * kPi / 180.0;
  double cosine, halfSine, halfCosine;
  SinCosQuadrant(*theta, s, &cosine);
  SinCosQuadrant(0.5 * *theta, &halfSine, &halfCosine);
  *t = halfSine / halfCosine;
}

bool ComputeShearSizes(int32_t width, int32_t height, double theta, double s, double t, ShearSizes* sizes) {
  double sine, cosine;
  SinCosQuadrant(theta, &sine, &cosine);
  return TruncSize(static_cast<double>(width) + std::trunc(t * height), &sizes->width1) &&
         TruncSize(std::trunc(cosine * height + s * width) + 1.0, &sizes->height2) &&
         TruncSize(std::trunc(cosine * width + s * height) + 1.0, &sizes->width3);
}

REALpictureStruct* Rotate45(const PictureReader& source, double angle, uint32_t background) {
  double theta, s, t;
  ShearFactors(angle, &theta, &s, &t);
  // Each pass reads the picture of the one before, released once read.
  REALpictureStruct* pass2 = ReadHeldPicture(
      Rotate45part1(source, source, background, theta, s, t),
      [&](const PictureReader& pass1) { return Rotate45part2(source, pass1, background, theta, s, t); });
  return ReadHeldPicture(pass2, [&](const PictureReader& pass2Reader) {
    return Rotate45part3(source, pass2Reader, background, theta, s, t);
  });
}

bool KeepsEveryBit(REALpictureStruct* picture) {
  REALpictureDescription description{};
  REALLockPictureDescription(picture, &description);
  REALUnlockPictureDescription(picture);
  if (description.pictureType != kPictureTypeGdkDrawable || !description.pictureData) return false;
  GdkVisual* visual = gdk_drawable_get_visual(static_cast<GdkDrawable*>(description.pictureData));
  if (!visual || gdk_visual_get_visual_type(visual) != GDK_VISUAL_TRUE_COLOR) return false;
  const gint depth = gdk_visual_get_depth(visual);
  if (depth != 24 && depth != 32) return false;
  // Red, green and blue each 8 bits, where the host puts them.
  const guint32 expected[3] = {0xFF0000, 0x00FF00, 0x0000FF};
  guint32 masks[3];
  gint shift, precision[3];
  gdk_visual_get_red_pixel_details(visual, &masks[0], &shift, &precision[0]);
  gdk_visual_get_green_pixel_details(visual, &masks[1], &shift, &precision[1]);
  gdk_visual_get_blue_pixel_details(visual, &masks[2], &shift, &precision[2]);
  for (int c = 0; c < 3; ++c)
    if (masks[c] != expected[c] || precision[c] != 8) return false;
  return true;
}

void MemoryReader::Release() {
  reader.Release();
  std::free(rows);
  rows = nullptr;
}

void ReadWriterPixels(PictureWriter& writer, MemoryReader& memory) {
  memory.Release();
  // The rows are made in the writer's own buffer, from the first row on: a
  // row's 3-byte pixels start no later than its words, so every word is
  // read before its bytes are written over.
  const int32_t rowBytes = 3 * writer.width;
  for (int32_t y = 0; y < writer.height; ++y)
    XrgbToRgb24Row(WriterRow(writer, y), writer.buffer + static_cast<ptrdiff_t>(y) * rowBytes, writer.width);
  memory.rows = writer.buffer;
  memory.reader.base = writer.buffer;
  memory.reader.rowBytes = rowBytes;
  memory.reader.width = writer.width;
  memory.reader.height = writer.height;
  writer.buffer = nullptr;  // now the memory reader's
  writer.Release();
}

namespace {

// Pass 2 is made in bands of kBandRows rows, a strip of kBandColumns columns
// at a time, so that the blended pixels it copies stay in the nearest cache.
constexpr int32_t kBandRows = 128;
constexpr int32_t kBandColumns = 64;

// Pass 1's blended rows kept in strips of kBandColumns columns and blocks of
// kBandRows rows: a block holds its rows of every strip, strip after strip,
// each strip's rows 3 * kBandColumns bytes apart (the last strip padded).
// So one band of pass 2 copies a few pieces of memory in order, and the
// blocks are done with, block after block, as the bands go down.
struct BlendedStrips {
  static constexpr int32_t kStripBytes = 3 * kBandColumns;
  uint8_t* base = nullptr;
  int32_t width = 0;
  int32_t rows = 0;  // H + 1
  ptrdiff_t blockBytes = 0;

  BlendedStrips(int32_t columns, int32_t height)
      : width(columns),
        rows(height + 1),
        blockBytes(ptrdiff_t{(columns + kBandColumns - 1) / kBandColumns} * kBandRows * kStripBytes) {}
  uint64_t Bytes() const {
    return static_cast<uint64_t>((rows + kBandRows - 1) / kBandRows) * static_cast<uint64_t>(blockBytes) + kShiftSlack;
  }
  // Row i of the strip from column `first` (a multiple of kBandColumns).
  uint8_t* Row(int32_t first, int32_t i) const {
    return base + static_cast<ptrdiff_t>(i / kBandRows) * blockBytes +
           (static_cast<ptrdiff_t>(first / kBandColumns) * kBandRows + i % kBandRows) * kStripBytes;
  }
  // The strip as blended rows.
  BlendedRows Strip(int32_t first) const { return {Row(first, 0), kStripBytes, kBandRows, blockBytes, rows, first}; }
};

// Where the blended rows go in the result's buffer: as far in as needed so
// that no band of the result is written over blocks that a later band still
// copies (a band copies rows from its first row less the largest shift on).
// The offset in bytes; the buffer's size is the larger of the result's and
// this offset plus the blended rows'.
uint64_t BlendedOffset(const BlendedStrips& strips, const ColumnShear& shear, int32_t resultHeight,
                       int32_t resultRowBytes) {
  uint64_t offset = 0;
  for (int64_t end = kBandRows; end < resultHeight; end += kBandRows) {
    const int64_t live = std::clamp<int64_t>(end - shear.shifts[0], 0, strips.rows);
    const int64_t written = end * resultRowBytes, kept = live / kBandRows * strips.blockBytes;
    offset = std::max<uint64_t>(offset, static_cast<uint64_t>(std::max<int64_t>(0, written - kept)));
  }
  return (offset + 63) & ~uint64_t{63};
}

// Pass 1 a row at a time, each row at once blended with the one before it
// into the strips.
bool BlendedPassOne(const PictureReader& source, const ColumnShear& shear, double t, uint32_t background,
                    const BlendedStrips& strips) {
  const int32_t width = strips.width;
  const size_t rowBytes = 3 * static_cast<size_t>(width);
  const std::unique_ptr<uint8_t, decltype(&std::free)> rows(static_cast<uint8_t*>(CallocPixels(2 * rowBytes)),
                                                            &std::free);
  if (!rows) return false;
  uint8_t *row = rows.get(), *above = row + rowBytes;
  const auto skew = ChooseKernel(SkewRow, SkewRowFast);
  const auto blend = ChooseKernel(BlendColumnRow, BlendColumnRowFast);
  for (int32_t k = 0; k <= source.height; ++k, std::swap(row, above)) {
    if (k < source.height) {
      int32_t shift;
      double weight;
      SplitOffset((k + 0.5) * t, &shift, &weight);
      skew(ReaderRow(source, k), source.width, row, width, shift, weight, background);
    }
    for (int32_t first = 0; first < width; first += kBandColumns)
      blend(k < source.height ? row : shear.background.data(), k > 0 ? above : shear.background.data(), shear, first,
            std::min(first + kBandColumns, width), strips.Row(first, k));
  }
  return true;
}

// Passes 2 and 3 from the strips into `result`, a band of kBandRows rows at
// a time; false when there is no memory for the band.
bool ShiftColumnsThenShearRows(const BlendedStrips& strips, const ColumnShear& shear, int32_t sourceWidth, double s,
                               double t, PictureWriter& result) {
  const uint32_t background = PackRGB(shear.background[0], shear.background[1], shear.background[2]);
  PictureReader band;  // rows spaced for the fast kernel's slack
  band.rowBytes = 3 * strips.width + kShiftSlack;
  band.width = strips.width;
  const std::unique_ptr<uint8_t, decltype(&std::free)> rows(
      static_cast<uint8_t*>(CallocPixels(static_cast<size_t>(band.rowBytes) * kBandRows)), &std::free);
  if (!rows) return false;
  band.base = rows.get();
  const auto shift = ChooseKernel(ShiftColumns, ShiftColumnsFast);
  double offset = -t * s * (sourceWidth - 1);
  for (int32_t top = 0; top < result.height; top += kBandRows) {
    band.height = std::min(kBandRows, result.height - top);
    for (int32_t first = 0; first < strips.width; first += kBandColumns)
      shift(strips.Strip(first), top, band.height, shear, rows.get(), band.rowBytes, first,
            std::min(first + kBandColumns, strips.width));
    for (int32_t y = 0; y < band.height; ++y, offset += t) {
      int32_t shift;
      double weight;
      SplitOffset(offset, &shift, &weight);
      HorzSkew(band, y, result, top + y, shift, weight, background);
    }
  }
  return true;
}

}  // namespace

bool ShearInMemory(const PictureReader& source, double angle, uint32_t background, PictureWriter& result) {
  double theta, s, t;
  ShearFactors(angle, &theta, &s, &t);
  ShearSizes sizes;
  if (!ComputeShearSizes(source.width, source.height, theta, s, t, &sizes) ||
      !FitsHostPicture(sizes.width1, source.height) || !FitsHostPicture(sizes.width3, sizes.height2))
    return false;
  // Pass 2 never exists whole: pass 1 is kept blended (see ColumnShear), in
  // the result's own buffer, and each band of pass 2's rows is copied from
  // it and at once sheared by pass 3 into the result.
  const ColumnShear shear = PassTwoShear(source.width, sizes.width1, s, background);
  BlendedStrips strips(sizes.width1, source.height);
  const uint64_t offset = BlendedOffset(strips, shear, sizes.height2, 4 * sizes.width3);
  if (!NewPictureWriter(result, sizes.width3, sizes.height2, offset + strips.Bytes())) return false;
  strips.base = result.buffer + offset;
  if (BlendedPassOne(source, shear, t, background, strips) &&
      ShiftColumnsThenShearRows(strips, shear, source.width, s, t, result))
    return true;
  result.Release();
  return false;
}

REALpictureStruct* Rotate45InMemory(const PictureReader& source, double angle, uint32_t background) {
  PictureWriter result;
  return ShearInMemory(source, angle, background, result) ? RenderPictureWriter(result) : nullptr;
}

namespace {

// False when a shear pass of the rotation (`turns` quarter turns first, then
// shears by `residual`) would make a picture larger than a host picture can
// be; the result would be nil, so neither the turn nor any pass is worth
// making. The sizes come from the picture's description, before anything is
// read.
bool ShearPassesFit(REALpictureStruct* picture, int turns, double residual) {
  REALpictureDescription description{};
  REALLockPictureDescription(picture, &description);
  REALUnlockPictureDescription(picture);
  const bool across = turns % 2 == 1;
  const int32_t width = across ? description.height : description.width;
  const int32_t height = across ? description.width : description.height;
  double theta, s, t;
  ShearFactors(residual, &theta, &s, &t);
  ShearSizes sizes;
  // Sizes that cannot be worked out are left to the passes to refuse.
  if (!ComputeShearSizes(width, height, theta, s, t, &sizes)) return true;
  return FitsHostPicture(sizes.width1, height) && FitsHostPicture(sizes.width1, sizes.height2) &&
         FitsHostPicture(sizes.width3, sizes.height2);
}

}  // namespace

REALpictureStruct* Rotate(REALpictureStruct* picture, double angle, uint32_t background) {
  if (!picture) return nullptr;
  double a;
  if (!ReduceAngle(angle, &a)) return nullptr;

  if (a == 0.0) return ClonePicture(picture);
  if (a == 90.0) return Rotate90(picture);
  if (a == 180.0) return Rotate180(picture);
  if (a == 270.0) return Rotate270(picture);

  // One exact turn, then the residual (strictly between 0 and 90 degrees;
  // a - 90, a - 180 and a - 270 are exact here).
  const int turns = (a > 90.0) + (a > 180.0) + (a > 270.0);
  const double residual = a - 90.0 * turns;
  if (!ShearPassesFit(picture, turns, residual)) return nullptr;
  if (!KeepsEveryBit(picture)) {
    // Every pass goes through a host picture. The turned picture is a new
    // one; an unturned one gets a reference of its own.
    using Turn = REALpictureStruct* (*)(REALpictureStruct*);
    constexpr Turn kTurns[] = {BitmapPicture, Rotate90, Rotate180, Rotate270};
    return ReadHeldPicture(kTurns[turns](picture),
                           [&](const PictureReader& turned) { return Rotate45(turned, residual, background); });
  }
  // Host pictures would give back every bit: the turn and the passes stay in
  // memory, and only the result becomes a host picture.
  return ReadHeldPicture(BitmapPicture(picture), [&](const PictureReader& source) -> REALpictureStruct* {
    if (turns == 0) return Rotate45InMemory(source, residual, background);
    using TurnKernel = void (*)(const PictureReader&, PictureWriter&);
    constexpr TurnKernel kTurnKernels[] = {nullptr, Rotate90, Rotate180, Rotate270};
    const bool across = turns % 2 == 1;
    PictureWriter writer;
    if (!NewPictureWriter(writer, across ? source.height : source.width, across ? source.width : source.height))
      return nullptr;
    kTurnKernels[turns](source, writer);
    MemoryReader turned;
    ReadWriterPixels(writer, turned);
    return Rotate45InMemory(turned.reader, residual, background);
  });
}

// The byte shuffle needs SSSE3's pshufb to be one instruction: without the
// AVX2 clone it is byte by byte.
PICTURE_VECTOR_CLONES
void XrgbToRgb24Row(const uint32_t* src, uint8_t* dst, int32_t width) {
  // Four words at a time: their red, green and blue bytes make 12 bytes.
  // Nothing beyond the row's 3 * width bytes is written, so the rows can be
  // made in place (a row's bytes start no later than its words) or anywhere
  // else.
  int32_t x = 0;
  for (; x + 4 <= width; x += 4) {
    ByteVector16 in;
    __builtin_memcpy(&in, src + x, sizeof in);
    const ByteVector16 out = __builtin_shufflevector(in, in, 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 0, 0, 0, 0);
    __builtin_memcpy(dst + 3 * static_cast<ptrdiff_t>(x), &out, 12);
  }
  for (; x < width; ++x) {
    const uint32_t word = src[x];
    dst[3 * x] = static_cast<uint8_t>(RedOf(word));
    dst[3 * x + 1] = static_cast<uint8_t>(GreenOf(word));
    dst[3 * x + 2] = static_cast<uint8_t>(BlueOf(word));
  }
}

namespace {

// trunc(v * weight) for every channel value v, as the plain kernels form it.
void PassedParts(double weight, int32_t part[256]) {
  for (int32_t v = 0; v < 256; ++v) part[v] = static_cast<int32_t>(v * weight);
}

// A multiplier m with (v * m) >> 16 == part[v] = trunc(v * weight) for every
// channel value v (PassedParts), found by trying the two nearest to
// weight * 2^16 on all 256 values; false when neither is exact (the table is
// used then).
bool ExactMultiplier(double weight, const int32_t part[256], uint16_t* multiplier) {
  const double scaled = weight * 65536.0;  // exact: a power of two
  for (const double candidate : {std::ceil(scaled), std::floor(scaled)}) {
    if (!(candidate >= 0.0 && candidate <= 65535.0)) continue;
    const auto m = static_cast<uint32_t>(candidate);
    int32_t v = 0;
    while (v < 256 && static_cast<int32_t>((v * m) >> 16) == part[v]) ++v;
    if (v == 256) {
      *multiplier = static_cast<uint16_t>(m);
      return true;
    }
  }
  return false;
}

// The blend of `n` reader bytes with the bytes one pixel before them:
// out[k] = in[k] - part(in[k]) + part(in[k - 3]), part(v) = (v * m) >> 16.
// in[-3] .. in[-1] must be readable.
PICTURE_VECTOR_CLONES
void BlendWithPrevious(const uint8_t* __restrict in, uint8_t* __restrict out, int32_t n, uint16_t m) {
  for (int32_t k = 0; k < n; ++k) {
    const uint16_t v = in[k], p = in[k - 3];
    const auto vPart = static_cast<uint16_t>((static_cast<uint32_t>(v) * m) >> 16);
    const auto pPart = static_cast<uint16_t>((static_cast<uint32_t>(p) * m) >> 16);
    out[k] = static_cast<uint8_t>(v - vPart + pPart);
  }
}

// The blend of `n` reader bytes, each with its own multiplier m[k], with the
// bytes above them: out[k] = in[k] - part(in[k]) + part(above[k]),
// part(v) = (v * m[k]) >> 16.
PICTURE_VECTOR_CLONES
void BlendRows(const uint8_t* __restrict in, const uint8_t* __restrict above, const uint16_t* __restrict m,
               uint8_t* __restrict out, int32_t n) {
  for (int32_t k = 0; k < n; ++k) {
    const uint32_t v = in[k], u = above[k];
    out[k] = static_cast<uint8_t>(v - ((v * m[k]) >> 16) + ((u * m[k]) >> 16));
  }
}

// Pixels a blended row is made of at a time.
constexpr int32_t kBlendChunk = 256;

}  // namespace

namespace {

// A row's blended bytes for the pixels from i on: spread into words, or
// placed as they are.
void PutBlended(const WordLine& line, int64_t i, const uint8_t* bytes, int32_t count) {
  Rgb24ToXrgbRowFast(bytes, line.dst + i, count);
}
void PutBlended(const ByteLine& line, int64_t i, const uint8_t* bytes, int32_t count) {
  std::memcpy(line.dst + 3 * i, bytes, 3 * static_cast<size_t>(count));
}

template <typename Line>
void SkewLineFastTo(const uint8_t* src, ptrdiff_t srcStep, int32_t length, const Line& dst, int32_t dstLength,
                    int32_t shift, double weight, uint32_t background) {
  int32_t part[256];
  PassedParts(weight, part);
  const int32_t bR = static_cast<int32_t>(RedOf(background));
  const int32_t bG = static_cast<int32_t>(GreenOf(background));
  const int32_t bB = static_cast<int32_t>(BlueOf(background));
  const int32_t bwR = static_cast<int32_t>(bR * weight);
  const int32_t bwG = static_cast<int32_t>(bG * weight);
  const int32_t bwB = static_cast<int32_t>(bB * weight);

  // Source pixel i lands at shift + i, the background's last part at
  // shift + length; every other pixel of the line is the background.
  const int64_t reached = int64_t{shift};
  const int64_t end = int64_t{shift} + length;  // the last pixel written
  for (int64_t i = 0; i < std::min<int64_t>(reached, dstLength); ++i) dst.Fill(i, background);
  for (int64_t i = std::max<int64_t>(end + 1, 0); i < dstLength; ++i) dst.Fill(i, background);

  // The source pixels that land inside the line: begin <= i < stop.
  const int64_t begin = std::max<int64_t>(0, -reached);
  const int64_t stop = std::min<int64_t>(length, int64_t{dstLength} - reached);
  int32_t prevR = bwR, prevG = bwG, prevB = bwB;
  uint16_t m;
  if (srcStep == 3 && dst.Row() && begin < stop && ExactMultiplier(weight, part, &m)) {
    // Along a row with an exact multiplier: the pixels after the first are
    // blended as bytes a chunk at a time and put in place.
    int64_t i = begin;
    if (i == 0) {
      const int32_t r = src[0], g = src[1], b = src[2];
      dst.Put(reached, r - part[r] + bwR, g - part[g] + bwG, b - part[b] + bwB);
      ++i;
    }
    uint8_t blended[3 * kBlendChunk];
    for (int32_t count; i < stop; i += count) {
      count = static_cast<int32_t>(std::min<int64_t>(kBlendChunk, stop - i));
      BlendWithPrevious(src + 3 * i, blended, 3 * count, m);
      PutBlended(dst, reached + i, blended, count);
    }
  } else {
    if (begin > 0 && begin <= length) {
      const uint8_t* p = src + (begin - 1) * srcStep;
      prevR = part[p[0]], prevG = part[p[1]], prevB = part[p[2]];
    }
    for (int64_t i = begin; i < stop; ++i) {
      const uint8_t* p = src + i * srcStep;
      const int32_t r = p[0], g = p[1], b = p[2];
      const int32_t leftR = part[r], leftG = part[g], leftB = part[b];
      dst.Put(reached + i, r - leftR + prevR, g - leftG + prevG, b - leftB + prevB);
      prevR = leftR, prevG = leftG, prevB = leftB;
    }
  }
  if (end >= 0 && end < dstLength) {
    if (length > 0) {
      const uint8_t* p = src + static_cast<ptrdiff_t>(length - 1) * srcStep;
      prevR = part[p[0]], prevG = part[p[1]], prevB = part[p[2]];
    }
    dst.Put(end, bR - bwR + prevR, bG - bwG + prevG, bB - bwB + prevB);
  }
}

}  // namespace

void SkewLineFast(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
                  int32_t dstLength, int32_t shift, double weight, uint32_t background) {
  SkewLineFastTo(src, srcStep, length, WordLine{dst, dstStep}, dstLength, shift, weight, background);
}

void SkewRowFast(const uint8_t* src, int32_t length, uint8_t* dst, int32_t dstLength, int32_t shift, double weight,
                 uint32_t background) {
  SkewLineFastTo(src, 3, length, ByteLine{dst}, dstLength, shift, weight, background);
}

ColumnShear::ColumnShear(std::vector<int32_t> columnShifts, std::vector<double> columnWeights, uint32_t color)
    : shifts(std::move(columnShifts)), weights(std::move(columnWeights)), multipliers(3 * shifts.size()) {
  const int32_t width = static_cast<int32_t>(shifts.size());
  for (int32_t c = 0; c < width; ++c) {
    int32_t part[256];
    PassedParts(weights[c], part);
    uint16_t m = 0;
    if (!ExactMultiplier(weights[c], part, &m)) inexact.push_back(c);
    multipliers[3 * c] = multipliers[3 * c + 1] = multipliers[3 * c + 2] = m;
    if (c == 0 || shifts[c] != shifts[c - 1] || c - pieces.back() == kPieceColumns) pieces.push_back(c);
  }
  pieces.push_back(width);
  background.resize(3 * shifts.size() + kShiftSlack);
  for (size_t k = 0; k + 3 <= background.size(); k += 3) {
    background[k] = static_cast<uint8_t>(RedOf(color));
    background[k + 1] = static_cast<uint8_t>(GreenOf(color));
    background[k + 2] = static_cast<uint8_t>(BlueOf(color));
  }
}

void BlendColumnRowFast(const uint8_t* row, const uint8_t* above, const ColumnShear& shear, int32_t from, int32_t to,
                        uint8_t* out) {
  const ptrdiff_t first = 3 * static_cast<ptrdiff_t>(from);
  BlendRows(row + first, above + first, shear.multipliers.data() + first, out, 3 * (to - from));
  for (auto c = std::lower_bound(shear.inexact.begin(), shear.inexact.end(), from); c != shear.inexact.end() && *c < to;
       ++c)
    BlendColumnRow(row, above, shear, *c, *c + 1, out + 3 * static_cast<ptrdiff_t>(*c - from));
}

void ShiftColumnsFast(const BlendedRows& blended, int32_t top, int32_t rows, const ColumnShear& shear, uint8_t* out,
                      ptrdiff_t outRowBytes, int32_t from, int32_t to) {
  // Each piece of a run of one shift, at most kPieceColumns columns, is one
  // 16-byte move per row, down consecutive blended rows (block by block), or
  // the background row above and below them.
  const int32_t* piece = std::upper_bound(shear.pieces.data(), shear.pieces.data() + shear.pieces.size(), from) - 1;
  for (int32_t a = from; a < to; a = *++piece) {
    const int64_t shift = shear.shifts[a];
    // Rows lo .. hi - 1 read blended rows 0 .. H.
    const int64_t lo = std::clamp<int64_t>(shift - top, 0, rows);
    const int64_t hi = std::clamp<int64_t>(shift - top + blended.height, lo, rows);
    const uint8_t* const background = shear.background.data() + 3 * static_cast<ptrdiff_t>(a);
    uint8_t* o = out + 3 * static_cast<ptrdiff_t>(a);
    int64_t y = 0;
    for (; y < lo; ++y, o += outRowBytes) std::memcpy(o, background, 16);
    for (auto i = static_cast<int32_t>(top + y - shift); y < hi;) {
      const int64_t blockEnd = std::min<int64_t>(hi, y + blended.blockRows - i % blended.blockRows);
      const uint8_t* p = blended.Row(i) + 3 * static_cast<ptrdiff_t>(a - blended.first);
      for (; y < blockEnd; ++y, ++i, o += outRowBytes, p += blended.rowBytes) std::memcpy(o, p, 16);
    }
    for (; y < rows; ++y, o += outRowBytes) std::memcpy(o, background, 16);
  }
}
