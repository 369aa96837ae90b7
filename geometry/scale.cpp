#include "geometry/handlers.h"
#include "geometry/kernels.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "plugin/host_calls.h"

namespace {

// The cubic convolution parameter; with 0 the outer taps weigh nothing and
// the inner pair is the cubic Hermite pair.
constexpr float kCubicA = 0.0f;

// (numerator * factor) div denominator for non-negative 32-bit values.
int32_t ScaledIndex(int32_t i, int32_t factor, int32_t denominator) {
  return static_cast<int32_t>(static_cast<int64_t>(i) * factor / denominator);
}

REALpictureStruct* ScaleBoxPicture(REALpictureStruct* picture, int32_t width, int32_t height) {
  return RenderFromReader(
      picture,
      [=](const PictureReader&) {
        return std::pair{width, height};
      },
      ChooseKernel(ScaleBox, ScaleBoxFast));
}

}  // namespace

// ---- Box path ------------------------------------------------------------

namespace {

// Sums in `Sum` (wide enough for boxW * boxH * 255) and divides per channel.
template <typename Sum>
void BoxMeanRowWith(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH, uint32_t* dst,
                    int32_t width) {
  const Sum count = static_cast<Sum>(boxW) * static_cast<Sum>(boxH);
  // The box start (x * srcW) div width, stepped as quotient and remainder.
  const int32_t stepWhole = srcW / width;
  const int32_t stepPart = srcW % width;
  int32_t start = 0, part = 0;
  for (int32_t x = 0; x < width; ++x) {
    const uint8_t* p = top + 3 * static_cast<ptrdiff_t>(start);
    if (count == 1) {
      dst[x] = ReaderPixel(p);
    } else {
      Sum r = 0, g = 0, b = 0;
      for (int32_t j = 0; j < boxH; ++j, p += rowBytes) {
        for (int32_t i = 0; i < 3 * boxW; i += 3) {
          r += p[i];
          g += p[i + 1];
          b += p[i + 2];
        }
      }
      dst[x] =
          PackRGB(static_cast<uint32_t>(r / count), static_cast<uint32_t>(g / count), static_cast<uint32_t>(b / count));
    }
    start += stepWhole;
    part += stepPart;
    if (part >= width) {
      part -= width;
      ++start;
    }
  }
}

}  // namespace

void BoxMeanRow(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH, uint32_t* dst,
                int32_t width) {
  if (static_cast<uint64_t>(boxW) * static_cast<uint64_t>(boxH) <= (uint64_t{1} << 24)) {
    BoxMeanRowWith<uint32_t>(top, rowBytes, srcW, boxW, boxH, dst, width);
  } else {
    BoxMeanRowWith<uint64_t>(top, rowBytes, srcW, boxW, boxH, dst, width);
  }
}

void ScaleBox(const PictureReader& src, PictureWriter& dst) {
  // ceil(srcW / newW) in integers; it equals the ceiling of the double ratio
  // for all 32-bit sizes.
  const int32_t boxW = static_cast<int32_t>((static_cast<int64_t>(src.width) + dst.width - 1) / dst.width);
  const int32_t boxH = static_cast<int32_t>((static_cast<int64_t>(src.height) + dst.height - 1) / dst.height);
  for (int32_t y = 0; y < dst.height; ++y) {
    const int32_t sy = ScaledIndex(y, src.height, dst.height);
    BoxMeanRow(ReaderRow(src, sy), src.rowBytes, src.width, boxW, boxH, WriterRow(dst, y), dst.width);
  }
}

// ---- Cubic path ----------------------------------------------------------

void CubicWeights(double u, float weights[4]) {
  const double a = kCubicA;
  const double u2 = u * u;
  const double u3 = u2 * u;
  weights[0] = static_cast<float>(a * u3 - 2.0 * a * u2 + a * u);
  weights[1] = static_cast<float>((a + 2.0) * u3 - (a + 3.0) * u2 + 1.0);
  weights[2] = static_cast<float>(-(a + 2.0) * u3 + (2.0 * a + 3.0) * u2 - a * u);
  weights[3] = static_cast<float>(a * u2 - a * u3);
}

bool MakeCubicTable(CubicTable& table, int32_t srcLength, int32_t newLength) {
  table.Release();
  table.index = static_cast<int32_t*>(std::calloc(static_cast<size_t>(newLength), sizeof(int32_t)));
  table.weights = static_cast<float*>(std::calloc(static_cast<size_t>(newLength), 4 * sizeof(float)));
  if (!table.index || !table.weights) {
    table.Release();
    return false;
  }
  for (int32_t i = 0; i < newLength; ++i) {
    const int64_t position = static_cast<int64_t>(i) * srcLength;
    table.index[i] = static_cast<int32_t>(position / newLength);
    const double u = static_cast<double>(position % newLength) / newLength;
    CubicWeights(u, table.weights + 4 * static_cast<ptrdiff_t>(i));
  }
  return true;
}

void CubicTable::Release() {
  std::free(index);
  std::free(weights);
  index = nullptr;
  weights = nullptr;
}

void CubicColumnPass(const PictureReader& src, int32_t index, const float weights[4], float* buffer) {
  const int32_t entries = 3 * src.width;
  for (int32_t i = 0; i < entries; ++i) buffer[i] = 0.0f;
  // Taps are added in order, each sum rounded to float. A tap whose weight is
  // zero would add +0 to a non-negative sum, so leaving it out changes no bit.
  for (int32_t k = 0; k < 4; ++k) {
    const int32_t row = index - 1 + k;
    if (row < 0 || row >= src.height || weights[k] == 0.0f) continue;
    const double w = weights[k];
    const uint8_t* p = ReaderRow(src, row);
    for (int32_t i = 0; i < entries; ++i) {
      buffer[i] = static_cast<float>(static_cast<double>(buffer[i]) + w * p[i]);
    }
  }
}

void CubicRowPass(const float* buffer, int32_t srcW, const CubicTable& columns, uint32_t* dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const float* w = columns.weights + 4 * static_cast<ptrdiff_t>(x);
    const int32_t first = columns.index[x] - 1;
    double r = 0.5, g = 0.5, b = 0.5;
    for (int32_t k = 0; k < 4; ++k) {
      const int32_t c = first + k;
      if (c < 0 || c >= srcW) continue;
      const double wk = w[k];
      const float* v = buffer + 3 * static_cast<ptrdiff_t>(c);
      r += wk * v[0];
      g += wk * v[1];
      b += wk * v[2];
    }
    dst[x] = PackRGB(ClampByte(r), ClampByte(g), ClampByte(b));
  }
}

bool ScaleCubic(const PictureReader& src, PictureWriter& dst) {
  CubicTable columns, rows;
  const std::unique_ptr<float, decltype(&std::free)> buffer(
      static_cast<float*>(std::calloc(3 * static_cast<size_t>(src.width), sizeof(float))), &std::free);
  if (!buffer || !MakeCubicTable(columns, src.width, dst.width) || !MakeCubicTable(rows, src.height, dst.height)) {
    return false;
  }
  const auto columnPass = ChooseKernel(CubicColumnPass, CubicColumnPassFast);
  CubicRowPlan plan;
  const bool planned = !PlainKernels() && MakeCubicRowPlan(plan, columns, src.width, dst.width);
  for (int32_t y = 0; y < dst.height; ++y) {
    columnPass(src, rows.index[y], rows.weights + 4 * static_cast<ptrdiff_t>(y), buffer.get());
    if (planned) {
      CubicRowPassFast(buffer.get(), plan, WriterRow(dst, y));
    } else {
      CubicRowPass(buffer.get(), src.width, columns, WriterRow(dst, y), dst.width);
    }
  }
  return true;
}

// ---- Handler -------------------------------------------------------------

REALpictureStruct* ScalePicture(REALpictureStruct* picture, int32_t width, int32_t height, unsigned char antiAlias) {
  if (!picture || !FitsHostPicture(width, height)) return nullptr;
  if (antiAlias) {
    // The cubic path only for an enlargement in both directions; the box
    // path when it cannot be taken.
    REALpictureDescription description{};
    REALLockPictureDescription(picture, &description);
    const bool grows = width > description.width && height > description.height;
    REALUnlockPictureDescription(picture);
    if (grows) {
      PictureReader reader;
      PictureWriter writer;
      if (GetPictureReader(reader, picture) && NewPictureWriter(writer, width, height) && ScaleCubic(reader, writer)) {
        reader.Release();  // the source's copy is not needed while the host builds
        if (REALpictureStruct* result = RenderPictureWriter(writer)) return result;
      }
    }
  }
  return ScaleBoxPicture(picture, width, height);
}

// ---- Fast variants ---------------------------------------------------------

// With m = floor(2^32 / d) + 1 = (2^32 + e) / d, 1 <= e <= d, n * m / 2^32 is
// n / d + n * e / (d * 2^32), and the second term stays below 1 / d while
// n * e < 2^32, which n <= 255 * d and d <= 1024 ensure (n * e < 2^28): the
// floor is n div d.
BoxDivider MakeBoxDivider(uint32_t count) { return BoxDivider{((uint64_t{1} << 32) / count) + 1}; }

namespace {

// Per-column channel sums of `rows` rows from `top`: sums[j] for the j-th
// byte of the row (3 per pixel).
PICTURE_VECTOR_CLONES
void AddRow(uint32_t* __restrict sums, const uint8_t* __restrict row, int32_t n) {
  for (int32_t j = 0; j < n; ++j) sums[j] += row[j];
}

PICTURE_VECTOR_CLONES
void StartSums(uint32_t* __restrict sums, const uint8_t* __restrict row, int32_t n) {
  for (int32_t j = 0; j < n; ++j) sums[j] = row[j];
}

// One destination row of the box path from column sums, adding up columns
// box by box.
void BoxMeanRowFromSums(const uint32_t* sums, int32_t srcW, int32_t boxW, BoxDivider divider, uint32_t* dst,
                        int32_t width) {
  const int32_t stepWhole = srcW / width;
  const int32_t stepPart = srcW % width;
  int32_t start = 0, part = 0;
  for (int32_t x = 0; x < width; ++x) {
    const uint32_t* s = sums + 3 * static_cast<ptrdiff_t>(start);
    uint32_t r = 0, g = 0, b = 0;
    for (int32_t i = 0; i < 3 * boxW; i += 3) {
      r += s[i];
      g += s[i + 1];
      b += s[i + 2];
    }
    dst[x] = PackRGB(Divide(r, divider), Divide(g, divider), Divide(b, divider));
    start += stepWhole;
    part += stepPart;
    if (part >= width) {
      part -= width;
      ++start;
    }
  }
}

// Narrow boxes are added up at every column of the row at once, which
// vectorises, and divided the same way; the destination then picks the means
// at its box starts. A box of boxW columns costs boxW additions per channel
// value this way, so wide boxes add up box by box instead.
constexpr int32_t kWidestVectorBox = 6;

PICTURE_VECTOR_CLONES
void AddColumns(uint32_t* __restrict boxSums, const uint32_t* __restrict sums, int32_t n) {
  for (int32_t j = 0; j < n; ++j) boxSums[j] += sums[j];
}

// The means of boxes two columns wide: the last addition and the division in
// one pass.
PICTURE_VECTOR_CLONES
void DividePairSums(const uint32_t* __restrict sums, const uint32_t* __restrict nextSums, uint8_t* __restrict means,
                    int32_t n, uint32_t multiplier) {
  for (int32_t j = 0; j < n; ++j) {
    means[j] = static_cast<uint8_t>((static_cast<uint64_t>(sums[j] + nextSums[j]) * multiplier) >> 32);
  }
}

PICTURE_VECTOR_CLONES
void DivideSums(const uint32_t* __restrict sums, uint8_t* __restrict means, int32_t n, uint32_t multiplier) {
  for (int32_t j = 0; j < n; ++j) {
    means[j] = static_cast<uint8_t>((static_cast<uint64_t>(sums[j]) * multiplier) >> 32);
  }
}

// The means of 2 x 2 boxes straight from the two source rows: sums of four
// bytes fit in 16 bits, and the division by 4 is a shift.
PICTURE_VECTOR_CLONES
void SquareMeans(const uint8_t* __restrict top, const uint8_t* __restrict bottom, uint8_t* __restrict means,
                 int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    const auto sum = static_cast<uint16_t>(top[j] + top[j + 3] + bottom[j] + bottom[j + 3]);
    means[j] = static_cast<uint8_t>(sum >> 2);
  }
}

// Boxes that start every `step` columns. A pixel's three means are read as
// one little-endian word (red in its low byte; the fourth byte, the next
// value or the spare byte at the end of `means`, drops out) and turned
// around into 0x00RRGGBB.
PICTURE_VECTOR_CLONES
void PickRegularMeans(const uint8_t* __restrict means, int32_t step, uint32_t* __restrict dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    uint32_t word;
    std::memcpy(&word, means + 3 * static_cast<ptrdiff_t>(step) * x, sizeof word);
    dst[x] = __builtin_bswap32(word) >> 8;
  }
}

// Picks the destination row's means out of `means` (the mean of the box at
// every start column), as PickRegularMeans reads them.
void PickMeans(const uint8_t* means, int32_t srcW, uint32_t* dst, int32_t width) {
  const int32_t stepWhole = srcW / width;
  const int32_t stepPart = srcW % width;
  if (stepPart == 0) {
    PickRegularMeans(means, stepWhole, dst, width);
    return;
  }
  int32_t start = 0, part = 0;
  for (int32_t x = 0; x < width; ++x) {
    uint32_t word;
    std::memcpy(&word, means + 3 * static_cast<ptrdiff_t>(start), sizeof word);
    dst[x] = __builtin_bswap32(word) >> 8;
    start += stepWhole;
    part += stepPart;
    if (part >= width) {
      part -= width;
      ++start;
    }
  }
}

// `boxSums` holds 3 * srcW values, `means` one more. Every box lies inside the
// row: the last start, (width - 1) * srcW div width, is srcW - boxW.
void NarrowBoxMeanRowFromSums(const uint32_t* sums, int32_t srcW, int32_t boxW, BoxDivider divider, uint32_t* boxSums,
                              uint8_t* means, uint32_t* dst, int32_t width) {
  const int32_t n = 3 * (srcW - boxW + 1);
  const auto multiplier = static_cast<uint32_t>(divider.multiplier);
  if (boxW == 1) {
    DivideSums(sums, means, n, multiplier);
  } else {
    const uint32_t* first = sums;
    if (boxW > 2) {
      std::memcpy(boxSums, sums, sizeof(uint32_t) * static_cast<size_t>(n));
      for (int32_t i = 1; i < boxW - 1; ++i) AddColumns(boxSums, sums + 3 * i, n);
      first = boxSums;
    }
    DividePairSums(first, sums + 3 * (boxW - 1), means, n, multiplier);
  }
  PickMeans(means, srcW, dst, width);
}

}  // namespace

void ScaleBoxFast(const PictureReader& src, PictureWriter& dst) {
  const int32_t boxW = static_cast<int32_t>((static_cast<int64_t>(src.width) + dst.width - 1) / dst.width);
  const int32_t boxH = static_cast<int32_t>((static_cast<int64_t>(src.height) + dst.height - 1) / dst.height);
  const uint64_t count = static_cast<uint64_t>(boxW) * static_cast<uint64_t>(boxH);
  const bool summed = count > 1 && count <= kMaxDividerCount;
  const bool narrow = summed && boxW <= kWidestVectorBox;
  const size_t values = 3 * static_cast<size_t>(src.width);
  std::vector<uint32_t> sums(summed ? values : 0), boxSums(narrow ? values : 0);
  std::vector<uint8_t> means(narrow ? values + 1 : 0);  // a spare byte for PickRegularMeans
  const BoxDivider divider = MakeBoxDivider(summed ? static_cast<uint32_t>(count) : 1);
  int32_t previous = -1;
  for (int32_t y = 0; y < dst.height; ++y) {
    const int32_t sy = ScaledIndex(y, src.height, dst.height);
    if (sy == previous) {
      // The same box rows as the row above: the same pixels.
      std::memcpy(WriterRow(dst, y), WriterRow(dst, y - 1), static_cast<size_t>(dst.rowBytes));
    } else if (boxW == 2 && boxH == 2) {
      SquareMeans(ReaderRow(src, sy), ReaderRow(src, sy + 1), means.data(), 3 * (src.width - 1));
      PickMeans(means.data(), src.width, WriterRow(dst, y), dst.width);
    } else if (summed) {
      StartSums(sums.data(), ReaderRow(src, sy), 3 * src.width);
      for (int32_t j = 1; j < boxH; ++j) AddRow(sums.data(), ReaderRow(src, sy + j), 3 * src.width);
      if (narrow) {
        NarrowBoxMeanRowFromSums(sums.data(), src.width, boxW, divider, boxSums.data(), means.data(), WriterRow(dst, y),
                                 dst.width);
      } else {
        BoxMeanRowFromSums(sums.data(), src.width, boxW, divider, WriterRow(dst, y), dst.width);
      }
    } else {
      BoxMeanRow(ReaderRow(src, sy), src.rowBytes, src.width, boxW, boxH, WriterRow(dst, y), dst.width);
    }
    previous = sy;
  }
}

PICTURE_VECTOR_CLONES
void CubicAddRow(float* __restrict buffer, const uint8_t* __restrict p, int32_t n, double w) {
  for (int32_t i = 0; i < n; ++i) buffer[i] = static_cast<float>(static_cast<double>(buffer[i]) + w * p[i]);
}

// Two taps in one pass: the first added to a zero sum and rounded to float,
// then the second, as the plain pass adds them.
PICTURE_VECTOR_CLONES
void CubicTwoRows(float* __restrict buffer, const uint8_t* __restrict p, const uint8_t* __restrict q, int32_t n,
                  double w, double v) {
  for (int32_t i = 0; i < n; ++i) {
    const auto first = static_cast<float>(0.0 + w * p[i]);
    buffer[i] = static_cast<float>(static_cast<double>(first) + v * q[i]);
  }
}

// The same sums, vectorised across the row; two taps (the cubic Hermite
// pair inside the picture) in one pass.
void CubicColumnPassFast(const PictureReader& src, int32_t index, const float weights[4], float* buffer) {
  const int32_t entries = 3 * src.width;
  int32_t taps[4], active = 0;
  for (int32_t k = 0; k < 4; ++k) {
    const int32_t row = index - 1 + k;
    if (row >= 0 && row < src.height && weights[k] != 0.0f) taps[active++] = k;
  }
  if (active == 2) {
    CubicTwoRows(buffer, ReaderRow(src, index - 1 + taps[0]), ReaderRow(src, index - 1 + taps[1]), entries,
                 weights[taps[0]], weights[taps[1]]);
    return;
  }
  std::memset(buffer, 0, sizeof(float) * static_cast<size_t>(entries));
  for (int32_t t = 0; t < active; ++t) {
    CubicAddRow(buffer, ReaderRow(src, index - 1 + taps[t]), entries, weights[taps[t]]);
  }
}

bool MakeCubicRowPlan(CubicRowPlan& plan, const CubicTable& columns, int32_t srcW, int32_t width) {
  plan.Release();
  for (int32_t x = 0; x < width; ++x) {
    const float* w = columns.weights + 4 * static_cast<ptrdiff_t>(x);
    if (w[0] != 0.0f || w[3] != 0.0f) return false;
  }
  plan.offsets = static_cast<int32_t*>(std::malloc(2 * sizeof(int32_t) * static_cast<size_t>(width)));
  plan.nearWeights = static_cast<float*>(std::malloc(3 * sizeof(float) * static_cast<size_t>(width)));
  plan.farWeights = static_cast<float*>(std::malloc(3 * sizeof(float) * static_cast<size_t>(width)));
  if (!plan.offsets || !plan.nearWeights || !plan.farWeights) {
    plan.Release();
    return false;
  }
  plan.width = width;
  plan.wide = 0;
  for (int32_t x = 0; x < width; ++x) {
    const int32_t index = columns.index[x];
    const bool inside = index + 1 < srcW;
    const float* w = columns.weights + 4 * static_cast<ptrdiff_t>(x);
    plan.offsets[2 * x] = 3 * index;
    plan.offsets[2 * x + 1] = 3 * (inside ? index + 1 : index);
    for (int32_t c = 0; c < 3; ++c) {
      plan.nearWeights[3 * static_cast<ptrdiff_t>(x) + c] = w[1];
      plan.farWeights[3 * static_cast<ptrdiff_t>(x) + c] = inside ? w[2] : 0.0f;
    }
    if (plan.offsets[2 * x + 1] + 4 <= 3 * srcW) plan.wide = x + 1;
  }
  return true;
}

void CubicRowPlan::Release() {
  std::free(offsets);
  std::free(nearWeights);
  std::free(farWeights);
  width = wide = 0;
  offsets = nullptr;
  nearWeights = farWeights = nullptr;
}

namespace {

constexpr int32_t kCubicBlock = 256;  // destination columns per block

// 0.5 + near weight * near value + far weight * far value, in that order,
// for `n` channel values, held to 0..255 and truncated as ClampByte does.
PICTURE_VECTOR_CLONES
void CubicTwoTaps(const float* __restrict nearWeights, const float* __restrict nearValues,
                  const float* __restrict farWeights, const float* __restrict farValues, uint8_t* __restrict out,
                  int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    double acc = 0.5 + static_cast<double>(nearWeights[j]) * nearValues[j];
    acc = acc + static_cast<double>(farWeights[j]) * farValues[j];
    double v = acc >= 255.0 ? 255.0 : acc;
    v = acc > 0.0 ? v : 0.0;
    out[j] = static_cast<uint8_t>(static_cast<int32_t>(v));
  }
}

}  // namespace

void CubicRowPassFast(const float* buffer, const CubicRowPlan& plan, uint32_t* dst) {
  // One spare value each: a pixel's three values are copied as four, the
  // fourth overwritten by the next pixel's.
  float nearValues[3 * kCubicBlock + 1], farValues[3 * kCubicBlock + 1];
  uint8_t out[3 * kCubicBlock];
  for (int32_t x0 = 0; x0 < plan.width; x0 += kCubicBlock) {
    const int32_t n = std::min(kCubicBlock, plan.width - x0);
    const int32_t* offsets = plan.offsets + 2 * static_cast<ptrdiff_t>(x0);
    const int32_t wide = std::clamp(plan.wide - x0, 0, n);
    for (int32_t i = 0; i < wide; ++i) {
      std::memcpy(nearValues + 3 * i, buffer + offsets[2 * i], 4 * sizeof(float));
      std::memcpy(farValues + 3 * i, buffer + offsets[2 * i + 1], 4 * sizeof(float));
    }
    for (int32_t i = wide; i < n; ++i) {
      std::memcpy(nearValues + 3 * i, buffer + offsets[2 * i], 3 * sizeof(float));
      std::memcpy(farValues + 3 * i, buffer + offsets[2 * i + 1], 3 * sizeof(float));
    }
    CubicTwoTaps(plan.nearWeights + 3 * static_cast<ptrdiff_t>(x0), nearValues,
                 plan.farWeights + 3 * static_cast<ptrdiff_t>(x0), farValues, out, 3 * n);
    Rgb24ToXrgbRowFast(out, dst + x0, n);
  }
}
