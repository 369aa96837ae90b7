#include "geometry/scale.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "pixels/kernel_choice.h"

#include "plugin/host_calls.h"

namespace {

// The cubic convolution parameter; with 0 the outer taps weigh nothing and
// the inner pair is the cubic Hermite pair.
constexpr float kCubicA = 0.0f;

// (numerator * factor) div denominator for non-negative 32-bit values.
int32_t ScaledIndex(int32_t i, int32_t factor, int32_t denominator) {
  return static_cast<int32_t>(static_cast<int64_t>(i) * factor / denominator);
}

uint32_t ClampChannel(double acc) {
  if (acc <= 0.0) return 0;
  if (acc >= 255.0) return 255;
  return static_cast<uint32_t>(acc);
}

REALpictureStruct* ScaleBoxPicture(REALpictureStruct* picture, int32_t width, int32_t height) {
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, width, height)) {
    ClosePictureReader(reader);
    return nullptr;
  }
  ChooseKernel(ScaleBox, ScaleBoxFast)(reader, writer);
  REALpictureStruct* result = RenderPictureWriter(writer);
  ClosePictureReader(reader);
  return result;
}

}  // namespace

// ---- Box path ------------------------------------------------------------

namespace {

// Sums in `Sum` (wide enough for boxW * boxH * 255) and divides per channel.
template <typename Sum>
void BoxMeanRowWith(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH,
                    uint32_t* dst, int32_t width) {
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
      dst[x] = PackRGB(static_cast<uint32_t>(r / count), static_cast<uint32_t>(g / count),
                       static_cast<uint32_t>(b / count));
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

void BoxMeanRow(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH,
                uint32_t* dst, int32_t width) {
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
  const int32_t boxH =
      static_cast<int32_t>((static_cast<int64_t>(src.height) + dst.height - 1) / dst.height);
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
  table.index = static_cast<int32_t*>(std::calloc(static_cast<size_t>(newLength), sizeof(int32_t)));
  table.weights = static_cast<float*>(std::calloc(static_cast<size_t>(newLength), 4 * sizeof(float)));
  if (!table.index || !table.weights) {
    FreeCubicTable(table);
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

void FreeCubicTable(CubicTable& table) {
  std::free(table.index);
  std::free(table.weights);
  table.index = nullptr;
  table.weights = nullptr;
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

void CubicRowPass(const float* buffer, int32_t srcW, const CubicTable& columns, uint32_t* dst,
                  int32_t width) {
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
    dst[x] = PackRGB(ClampChannel(r), ClampChannel(g), ClampChannel(b));
  }
}

bool ScaleCubic(const PictureReader& src, int32_t width, int32_t height, REALpictureStruct** result) {
  *result = nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, width, height)) return false;
  CubicTable columns, rows;
  float* buffer = static_cast<float*>(std::calloc(3 * static_cast<size_t>(src.width), sizeof(float)));
  if (!buffer || !MakeCubicTable(columns, src.width, width) || !MakeCubicTable(rows, src.height, height)) {
    std::free(buffer);
    FreeCubicTable(columns);
    FreeCubicTable(rows);
    FreePictureWriter(writer);
    return false;
  }
  const auto columnPass = ChooseKernel(CubicColumnPass, CubicColumnPassFast);
  for (int32_t y = 0; y < height; ++y) {
    columnPass(src, rows.index[y], rows.weights + 4 * static_cast<ptrdiff_t>(y), buffer);
    CubicRowPass(buffer, src.width, columns, WriterRow(writer, y), width);
  }
  std::free(buffer);
  FreeCubicTable(columns);
  FreeCubicTable(rows);
  *result = RenderPictureWriter(writer);
  return true;
}

// ---- Handler -------------------------------------------------------------

REALpictureStruct* ScalePicture(REALpictureStruct* picture, int32_t width, int32_t height,
                                unsigned char antiAlias) {
  if (!picture) return nullptr;
  if (antiAlias) {
    // The cubic path only for an enlargement in both directions.
    REALpictureDescription description{};
    REALLockPictureDescription(picture, &description);
    const bool grows = width > description.width && height > description.height;
    REALUnlockPictureDescription(picture);
    if (grows) {
      PictureReader reader;
      if (GetPictureReader(reader, picture)) {
        REALpictureStruct* result = nullptr;
        ScaleCubic(reader, width, height, &result);
        ClosePictureReader(reader);
        if (result) return result;
      }
    }
  }
  return ScaleBoxPicture(picture, width, height);
}

// ---- Fast variants ---------------------------------------------------------

// With m = floor(2^40 / d) + 1 = (2^40 + e) / d, 1 <= e <= d, n * m / 2^40 is
// n / d + n * e / (d * 2^40), and the second term stays below 1 / d while
// n * e < 2^40, which n <= 255 * d and d <= 1024 ensure: the floor is n div d.
BoxDivider MakeBoxDivider(uint32_t count) { return BoxDivider{((uint64_t{1} << 40) / count) + 1}; }

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

// One destination row of the box path from column sums.
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

}  // namespace

void ScaleBoxFast(const PictureReader& src, PictureWriter& dst) {
  const int32_t boxW = static_cast<int32_t>((static_cast<int64_t>(src.width) + dst.width - 1) / dst.width);
  const int32_t boxH =
      static_cast<int32_t>((static_cast<int64_t>(src.height) + dst.height - 1) / dst.height);
  const uint64_t count = static_cast<uint64_t>(boxW) * static_cast<uint64_t>(boxH);
  std::vector<uint32_t> sums;
  const bool summed = count > 1 && count <= kMaxDividerCount;
  if (summed) sums.resize(3 * static_cast<size_t>(src.width));
  const BoxDivider divider = MakeBoxDivider(summed ? static_cast<uint32_t>(count) : 1);
  int32_t previous = -1;
  for (int32_t y = 0; y < dst.height; ++y) {
    const int32_t sy = ScaledIndex(y, src.height, dst.height);
    if (sy == previous) {
      // The same box rows as the row above: the same pixels.
      std::memcpy(WriterRow(dst, y), WriterRow(dst, y - 1), static_cast<size_t>(dst.rowBytes));
    } else if (summed) {
      StartSums(sums.data(), ReaderRow(src, sy), 3 * src.width);
      for (int32_t j = 1; j < boxH; ++j) AddRow(sums.data(), ReaderRow(src, sy + j), 3 * src.width);
      BoxMeanRowFromSums(sums.data(), src.width, boxW, divider, WriterRow(dst, y), dst.width);
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

// The same sums, vectorised across the row.
void CubicColumnPassFast(const PictureReader& src, int32_t index, const float weights[4], float* buffer) {
  const int32_t entries = 3 * src.width;
  std::memset(buffer, 0, sizeof(float) * static_cast<size_t>(entries));
  for (int32_t k = 0; k < 4; ++k) {
    const int32_t row = index - 1 + k;
    if (row < 0 || row >= src.height || weights[k] == 0.0f) continue;
    CubicAddRow(buffer, ReaderRow(src, row), entries, weights[k]);
  }
}
