#include "geometry/handlers.h"
#include "geometry/kernels.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

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

void SkewLine(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
              int32_t dstLength, int32_t shift, double weight, uint32_t background) {
  for (int32_t i = 0; i < dstLength; ++i) dst[i * dstStep] = background;

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
    if (pos >= 0 && pos < dstLength) {
      dst[pos * dstStep] = PackRGB(static_cast<uint32_t>(r - leftR + prevR), static_cast<uint32_t>(g - leftG + prevG),
                                   static_cast<uint32_t>(b - leftB + prevB));
    }
    prevR = leftR;
    prevG = leftG;
    prevB = leftB;
  }
  if (pos >= 0 && pos < dstLength) {
    dst[pos * dstStep] = PackRGB(static_cast<uint32_t>(bR - bwR + prevR), static_cast<uint32_t>(bG - bwG + prevG),
                                 static_cast<uint32_t>(bB - bwB + prevB));
  }
}

void HorzSkew(const PictureReader& src, PictureWriter& dst, int32_t row, int32_t offset, double weight,
              uint32_t background) {
  ChooseKernel(SkewLine, SkewLineFast)(ReaderRow(src, row), 3, src.width, WriterRow(dst, row), 1, dst.width, offset,
                                       weight, background);
}

void VertSkew(const PictureReader& src, PictureWriter& dst, int32_t column, int32_t offset, double weight,
              uint32_t background) {
  SkewLine(src.base + 3 * static_cast<ptrdiff_t>(column), src.rowBytes, src.height, WriterRow(dst, 0) + column,
           dst.rowBytes / 4, dst.height, offset, weight, background);
}

namespace {

// The blocked column pass's frame: the columns first + 0 .. count - 1 of
// the writer filled with the background, and each column's parts of the
// background, bw, which also start its carried part, prev.
void StartColumns(PictureWriter& dst, int32_t first, int32_t count, const double* weights, uint32_t background,
                  int32_t b[3], int32_t bw[][3], int32_t prev[][3]) {
  for (int32_t y = 0; y < dst.height; ++y) {
    uint32_t* row = WriterRow(dst, y) + first;
    for (int32_t j = 0; j < count; ++j) row[j] = background;
  }
  b[0] = static_cast<int32_t>(RedOf(background));
  b[1] = static_cast<int32_t>(GreenOf(background));
  b[2] = static_cast<int32_t>(BlueOf(background));
  for (int32_t j = 0; j < count; ++j) {
    for (int c = 0; c < 3; ++c) prev[j][c] = bw[j][c] = static_cast<int32_t>(b[c] * weights[j]);
  }
}

// A pixel of a sheared column, dropped when its row lies outside the writer.
inline void PutColumnPixel(PictureWriter& dst, int32_t column, int64_t row, const int32_t rgb[3]) {
  if (row >= 0 && row < dst.height) {
    WriterRow(dst, static_cast<int32_t>(row))[column] =
        PackRGB(static_cast<uint32_t>(rgb[0]), static_cast<uint32_t>(rgb[1]), static_cast<uint32_t>(rgb[2]));
  }
}

// Below each column's last source pixel (row shifts[j] + height): the
// background less its passed part plus the part the last pixel passed on.
void PutColumnEnds(PictureWriter& dst, int32_t first, int32_t count, const int32_t* shifts, int32_t height,
                   const int32_t b[3], const int32_t bw[][3], const int32_t prev[][3]) {
  for (int32_t j = 0; j < count; ++j) {
    const int32_t rgb[3] = {b[0] - bw[j][0] + prev[j][0], b[1] - bw[j][1] + prev[j][1], b[2] - bw[j][2] + prev[j][2]};
    PutColumnPixel(dst, first + j, static_cast<int64_t>(shifts[j]) + height, rgb);
  }
}

}  // namespace

void VertSkewColumns(const PictureReader& src, PictureWriter& dst, int32_t first, int32_t count, const int32_t* shifts,
                     const double* weights, uint32_t background) {
  int32_t b[3], bw[kColumnBlock][3], prev[kColumnBlock][3];
  StartColumns(dst, first, count, weights, background, b, bw, prev);
  for (int32_t i = 0; i < src.height; ++i) {
    const uint8_t* p = ReaderRow(src, i) + 3 * static_cast<ptrdiff_t>(first);
    for (int32_t j = 0; j < count; ++j, p += 3) {
      int32_t out[3];
      for (int c = 0; c < 3; ++c) {
        const auto left = static_cast<int32_t>(p[c] * weights[j]);
        out[c] = p[c] - left + prev[j][c];
        prev[j][c] = left;
      }
      PutColumnPixel(dst, first + j, static_cast<int64_t>(shifts[j]) + i, out);
    }
  }
  PutColumnEnds(dst, first, count, shifts, src.height, b, bw, prev);
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
    HorzSkew(current, writer, k, shift, weight, background);
  }
  return true;
}

// Pass 2: columns sheared vertically, the offset starting at s * (W - 1) and
// falling by s per column; H2 = trunc(cos * H + s * W) + 1.
bool ShearColumns(PictureWriter& writer, const PictureReader& source, const PictureReader& current, uint32_t background,
                  double theta, double s, double t) {
  if (!NewPassWriter(writer, 2, source, current, theta, s, t)) return false;
  // Columns are sheared a block at a time, so that reading and writing go
  // along rows; each column gets exactly what VertSkew would give it.
  double offset = s * (source.width - 1);
  const auto columns = ChooseKernel(VertSkewColumns, VertSkewColumnsFast);
  int32_t shifts[kColumnBlock];
  double weights[kColumnBlock];
  for (int32_t k = 0; k < current.width; k += kColumnBlock) {
    const int32_t count = std::min(kColumnBlock, current.width - k);
    for (int32_t j = 0; j < count; ++j) {
      SplitOffset(offset, &shifts[j], &weights[j]);
      offset -= s;
    }
    columns(current, writer, k, count, shifts, weights, background);
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

REALpictureStruct* Rotate45InMemory(const PictureReader& source, double angle, uint32_t background) {
  double theta, s, t;
  ShearFactors(angle, &theta, &s, &t);
  PictureWriter writer;
  MemoryReader pass1, pass2;
  if (!ShearRows(writer, 1, source, source, background, theta, s, t)) return nullptr;
  ReadWriterPixels(writer, pass1);
  if (!ShearColumns(writer, source, pass1.reader, background, theta, s, t)) return nullptr;
  pass1.Release();
  ReadWriterPixels(writer, pass2);
  if (!ShearRows(writer, 3, source, pass2.reader, background, theta, s, t)) return nullptr;
  pass2.Release();  // not needed while the host builds the result
  return RenderPictureWriter(writer);
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
template <typename Part>
void PassedParts(double weight, Part part[256]) {
  for (int32_t v = 0; v < 256; ++v) part[v] = static_cast<Part>(static_cast<int32_t>(v * weight));
}

// A multiplier m with (v * m) >> 16 == trunc(v * weight) for every channel
// value v, found by trying the two nearest to weight * 2^16 on all 256
// values; false when neither is exact (the table is used then).
bool ExactMultiplier(double weight, uint16_t* multiplier) {
  const double scaled = weight * 65536.0;  // exact: a power of two
  for (const double candidate : {std::ceil(scaled), std::floor(scaled)}) {
    if (!(candidate >= 0.0 && candidate <= 65535.0)) continue;
    const auto m = static_cast<uint32_t>(candidate);
    int32_t v = 0;
    while (v < 256 && static_cast<int32_t>((v * m) >> 16) == static_cast<int32_t>(v * weight)) ++v;
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
// parts the bytes above them passed on: out[k] = in[k] - part + carried[k],
// part = (in[k] * m[k]) >> 16, which is carried on to the next row.
PICTURE_VECTOR_CLONES
void BlendColumns(const uint8_t* __restrict in, const uint16_t* __restrict m, uint16_t* __restrict carried,
                  uint8_t* __restrict out, int32_t n) {
  for (int32_t k = 0; k < n; ++k) {
    const uint16_t v = in[k];
    const auto part = static_cast<uint16_t>((static_cast<uint32_t>(v) * m[k]) >> 16);
    out[k] = static_cast<uint8_t>(v - part + carried[k]);
    carried[k] = part;
  }
}

// Pixels a blended row is made of at a time.
constexpr int32_t kBlendChunk = 256;

}  // namespace

void SkewLineFast(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
                  int32_t dstLength, int32_t shift, double weight, uint32_t background) {
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
  for (int64_t i = 0; i < std::min<int64_t>(reached, dstLength); ++i) dst[i * dstStep] = background;
  for (int64_t i = std::max<int64_t>(end + 1, 0); i < dstLength; ++i) dst[i * dstStep] = background;

  // The source pixels that land inside the line: begin <= i < stop.
  const int64_t begin = std::max<int64_t>(0, -reached);
  const int64_t stop = std::min<int64_t>(length, int64_t{dstLength} - reached);
  int32_t prevR = bwR, prevG = bwG, prevB = bwB;
  uint16_t m;
  if (srcStep == 3 && dstStep == 1 && begin < stop && ExactMultiplier(weight, &m)) {
    // Along a row with an exact multiplier: the pixels after the first are
    // blended as bytes a chunk at a time and spread into words.
    int64_t i = begin;
    if (i == 0) {
      const int32_t r = src[0], g = src[1], b = src[2];
      dst[reached] = PackRGB(static_cast<uint32_t>(r - part[r] + bwR), static_cast<uint32_t>(g - part[g] + bwG),
                             static_cast<uint32_t>(b - part[b] + bwB));
      ++i;
    }
    uint8_t blended[3 * kBlendChunk];
    for (int32_t count; i < stop; i += count) {
      count = static_cast<int32_t>(std::min<int64_t>(kBlendChunk, stop - i));
      BlendWithPrevious(src + 3 * i, blended, 3 * count, m);
      Rgb24ToXrgbRowFast(blended, dst + reached + i, count);
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
      dst[(reached + i) * dstStep] =
          PackRGB(static_cast<uint32_t>(r - leftR + prevR), static_cast<uint32_t>(g - leftG + prevG),
                  static_cast<uint32_t>(b - leftB + prevB));
      prevR = leftR, prevG = leftG, prevB = leftB;
    }
  }
  if (end >= 0 && end < dstLength) {
    if (length > 0) {
      const uint8_t* p = src + static_cast<ptrdiff_t>(length - 1) * srcStep;
      prevR = part[p[0]], prevG = part[p[1]], prevB = part[p[2]];
    }
    dst[end * dstStep] = PackRGB(static_cast<uint32_t>(bR - bwR + prevR), static_cast<uint32_t>(bG - bwG + prevG),
                                 static_cast<uint32_t>(bB - bwB + prevB));
  }
}

void VertSkewColumnsFast(const PictureReader& src, PictureWriter& dst, int32_t first, int32_t count,
                         const int32_t* shifts, const double* weights, uint32_t background) {
  int32_t b[3], bw[kColumnBlock][3], prev[kColumnBlock][3];
  StartColumns(dst, first, count, weights, background, b, bw, prev);
  uint16_t m[3 * kColumnBlock];
  int32_t exact = 0;
  while (exact < count && ExactMultiplier(weights[exact], &m[3 * exact])) {
    m[3 * exact + 1] = m[3 * exact + 2] = m[3 * exact];
    ++exact;
  }
  if (exact == count) {
    // Every column has an exact multiplier: a row of the block is blended
    // as bytes with the parts the row before passed on, then put in place.
    uint16_t carried[3 * kColumnBlock];
    uint8_t out[3 * kColumnBlock];
    for (int32_t j = 0; j < count; ++j)
      for (int c = 0; c < 3; ++c) carried[3 * j + c] = static_cast<uint16_t>(bw[j][c]);
    for (int32_t i = 0; i < src.height; ++i) {
      BlendColumns(ReaderRow(src, i) + 3 * static_cast<ptrdiff_t>(first), m, carried, out, 3 * count);
      for (int32_t j = 0; j < count; ++j) {
        const int64_t row = static_cast<int64_t>(shifts[j]) + i;
        if (row >= 0 && row < dst.height)
          WriterRow(dst, static_cast<int32_t>(row))[first + j] = ReaderPixel(out + 3 * j);
      }
    }
    for (int32_t j = 0; j < count; ++j)
      for (int c = 0; c < 3; ++c) prev[j][c] = carried[3 * j + c];
    PutColumnEnds(dst, first, count, shifts, src.height, b, bw, prev);
    return;
  }
  uint8_t part[kColumnBlock][256];  // a part of v is at most v
  for (int32_t j = 0; j < count; ++j) PassedParts(weights[j], part[j]);
  for (int32_t i = 0; i < src.height; ++i) {
    const uint8_t* p = ReaderRow(src, i) + 3 * static_cast<ptrdiff_t>(first);
    for (int32_t j = 0; j < count; ++j, p += 3) {
      int32_t out[3];
      for (int c = 0; c < 3; ++c) {
        const int32_t left = part[j][p[c]];
        out[c] = p[c] - left + prev[j][c];
        prev[j][c] = left;
      }
      PutColumnPixel(dst, first + j, static_cast<int64_t>(shifts[j]) + i, out);
    }
  }
  PutColumnEnds(dst, first, count, shifts, src.height, b, bw, prev);
}
