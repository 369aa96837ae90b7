// PictureMatrixQVT: a 5 x 5 integer kernel applied to a picture. Each result
// pixel is trunc(ScaleFactor * (Displacement + weighted sum of the 25 source
// pixels around it)), clamped to 0..255, computed per colour channel.
#include <algorithm>
#include <cstddef>
#include <iterator>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
struct MatrixData {
  FilterPictures pictures;
  FilterRectangle rectangle;
  int32_t displacement;
  double scaleFactor;
  int32_t cells[25];  // cell (x, y) at 5 * y + x
};
#pragma pack(pop)

#if defined(__i386__)
static_assert(sizeof(MatrixData) == 136);
static_assert(offsetof(MatrixData, pictures.destination) == 4);
static_assert(offsetof(MatrixData, rectangle.minX) == 8);
static_assert(offsetof(MatrixData, rectangle.maxY) == 20);
static_assert(offsetof(MatrixData, displacement) == 24);
static_assert(offsetof(MatrixData, scaleFactor) == 28);
static_assert(offsetof(MatrixData, cells) == 36);
#endif

MatrixData& Data(REALobjectStruct* instance) { return InstanceData<MatrixData>(instance, PictureMatrixClass); }

// Displacement, then scale, then truncation toward zero and the clamp. With a
// scale of exactly 1.0 no floating point is needed.
uint32_t MatrixValue(int64_t sum, const MatrixKernel& kernel) {
  const int64_t displaced = kernel.displacement + sum;
  if (kernel.scale == 1.0) return ClampByte(displaced);
  return ClampByte(kernel.scale * static_cast<double>(displaced));
}

bool RunMatrix(REALobjectStruct* instance, uint32_t channels) {
  MatrixData& data = Data(instance);
  MatrixKernel kernel;
  PrepareMatrixKernel(kernel, data.cells);
  kernel.displacement = data.displacement;
  kernel.scale = data.scaleFactor;
  kernel.channels = channels;

  return RunFilter(data.pictures, &data.rectangle, ResultRelease::kBeforeChecks,
                   [&kernel](const PictureReader& reader, PictureWriter& writer, const FilterRegion& region) {
                     // The neighbourhood stays inside the region: a two-pixel
                     // frame along its inner edge is not computed.
                     const int32_t left = region.left + 2;
                     const int32_t right = region.right - 2;
                     if (right <= left) return true;
                     const auto kernelRow = ChooseKernel(MatrixRow, MatrixRowFast);
                     for (int32_t y = region.top + 2; y < region.bottom - 2; ++y) {
                       const uint8_t* rows[5];
                       for (int32_t k = 0; k < 5; ++k) rows[k] = ReaderRow(reader, y + k - 2) + 3 * (left - 2);
                       kernelRow(rows, WriterRow(writer, y) + left, right - left, kernel);
                     }
                     return true;
                   });
}

unsigned char Run(REALobjectStruct* instance) { return RunMatrix(instance, kChannelsAll); }
unsigned char RunR(REALobjectStruct* instance) { return RunMatrix(instance, kChannelRed); }
unsigned char RunG(REALobjectStruct* instance) { return RunMatrix(instance, kChannelGreen); }
unsigned char RunB(REALobjectStruct* instance) { return RunMatrix(instance, kChannelBlue); }

unsigned char RunRGB(REALobjectStruct* instance, unsigned char red, unsigned char green, unsigned char blue) {
  return RunMatrix(instance, (red ? kChannelRed : 0) | (green ? kChannelGreen : 0) | (blue ? kChannelBlue : 0));
}

// Handler of "RunRGB(red as boolean, green as boolean, blue as boolean)": with
// no channel chosen nothing happens at all, not even the release of the result.
unsigned char RunChannels(REALobjectStruct* instance, unsigned char red, unsigned char green, unsigned char blue) {
  const int chosen = (red != 0) + (green != 0) + (blue != 0);
  if (chosen == 0) return 0;
  if (chosen == 3) return Run(instance);
  if (chosen == 1) return red ? RunR(instance) : green ? RunG(instance) : RunB(instance);
  return RunRGB(instance, red, green, blue);
}

void Construct(REALobjectStruct* instance) { Data(instance).scaleFactor = 1.0; }

void Close(REALobjectStruct* instance) { CloseFilterPictures(Data(instance).pictures); }

double GetScaleFactor(REALobjectStruct* instance, int32_t) { return Data(instance).scaleFactor; }

void SetScaleFactor(REALobjectStruct* instance, int32_t, double value) { Data(instance).scaleFactor = value; }

int32_t GetCell(REALobjectStruct* instance, int32_t x, int32_t y) {
  if (static_cast<uint32_t>(x) > 4 || static_cast<uint32_t>(y) > 4) return 0;
  return Data(instance).cells[5 * y + x];
}

void SetCell(REALobjectStruct* instance, int32_t x, int32_t y, int32_t value) {
  if (static_cast<uint32_t>(x) > 4 || static_cast<uint32_t>(y) > 4) return;
  Data(instance).cells[5 * y + x] = value;
}

REALpropertyDefinition properties[] = {
    FILTER_PICTURE_PROPERTIES(MatrixData),
    FILTER_FIELD("Displacement", "Integer", offsetof(MatrixData, displacement)),
    {nullptr, "ScaleFactor", "Double", 0, HandlerAddress(GetScaleFactor), HandlerAddress(SetScaleFactor), 0, {}},
    FILTER_RECTANGLE_PROPERTIES(MatrixData),
};

REALmethodDefinition methods[] = {
    {HandlerAddress(Close), nullptr, "Close", 0},
    {HandlerAddress(Run), nullptr, "Run as boolean", 0},
    {HandlerAddress(RunChannels), nullptr, "RunRGB(red as boolean, green as boolean, blue as boolean) as boolean", 0},
    {HandlerAddress(GetCell), HandlerAddress(SetCell), "Matrix(x as integer, y as integer) as integer", 0},
};

}  // namespace

REALclassDefinition PictureMatrixClass = {
    kRecordVersion, "PictureMatrixQVT",    nullptr, sizeof(MatrixData), 0,       Construct, Close,
    properties,     std::size(properties), methods, std::size(methods), nullptr, 0,         {}};

void PrepareMatrixKernel(MatrixKernel& kernel, const int32_t cells[25]) {
  for (int32_t i = 0; i < 25; ++i) kernel.cells[i] = cells[i] < 255 ? cells[i] : 0;
}

// Sums are formed in 64 bits, so no cell value can make them wrap; a sum
// beyond 0..255 clamps by its sign like any other.
void MatrixRow(const uint8_t* const rows[5], uint32_t* dst, int32_t count, const MatrixKernel& kernel) {
  for (int32_t i = 0; i < count; ++i) {
    int64_t red = 0, green = 0, blue = 0;
    for (int32_t ky = 0; ky < 5; ++ky) {
      const uint8_t* p = rows[ky] + 3 * i;
      for (int32_t kx = 0; kx < 5; ++kx, p += 3) {
        const int64_t cell = kernel.cells[5 * ky + kx];
        if (cell == 0) continue;
        red += cell * p[0];
        green += cell * p[1];
        blue += cell * p[2];
      }
    }
    uint32_t word = 0;
    if (kernel.channels & kChannelRed) word |= MatrixValue(red, kernel) << 16;
    if (kernel.channels & kChannelGreen) word |= MatrixValue(green, kernel) << 8;
    if (kernel.channels & kChannelBlue) word |= MatrixValue(blue, kernel);
    dst[i] = word;
  }
}

namespace {

constexpr int32_t kMatrixBlock = 256;  // result pixels per block

// ClampByte on a double that holds the displaced sum exactly: for a whole
// number it is the integer clamp, and it vectorises.
PICTURE_VECTOR_CLONES
void MatrixValues(const int32_t* __restrict sums, uint8_t* __restrict out, int32_t n, double displacement, double scale,
                  bool scaled) {
  for (int32_t j = 0; j < n; ++j) {
    const double displaced = displacement + static_cast<double>(sums[j]);  // exact: both below 2^32
    out[j] = static_cast<uint8_t>(ClampByte(scaled ? scale * displaced : displaced));
  }
}

// The 25-cell sums of a block of channel values: value j's neighbours in row
// ky are p[ky][j + 3 * kx]. All 25 products are added (a cell of 0 adds 0).
PICTURE_VECTOR_CLONES
void CellSums(const uint8_t* __restrict p0, const uint8_t* __restrict p1, const uint8_t* __restrict p2,
              const uint8_t* __restrict p3, const uint8_t* __restrict p4, const int32_t* __restrict cells,
              int32_t* __restrict sums, int32_t n) {
  const uint8_t* const rows[5] = {p0, p1, p2, p3, p4};
  for (int32_t j = 0; j < n; ++j) {
    int32_t sum = 0;
    for (int32_t ky = 0; ky < 5; ++ky) {
      for (int32_t kx = 0; kx < 5; ++kx) sum += cells[5 * ky + kx] * rows[ky][j + 3 * kx];
    }
    sums[j] = sum;
  }
}

}  // namespace

// Channel values side by side: the sum of result channel value j over a
// block is the sum of cell * (channel value j + 3 * kx of row ky), exact in
// 32 bits when 255 times the cells' magnitudes fits; the plain kernel
// otherwise. A 32-bit sum and the displacement (a 32-bit value too) are exact
// as doubles, so the displaced sum is the plain kernel's 64-bit one.
void MatrixRowFast(const uint8_t* const rows[5], uint32_t* dst, int32_t count, const MatrixKernel& kernel) {
  int64_t magnitude = 0;
  for (int32_t cell : kernel.cells) magnitude += cell < 0 ? -int64_t{cell} : cell;
  if (magnitude > INT32_MAX / 255) {
    MatrixRow(rows, dst, count, kernel);
    return;
  }
  const bool scaled = kernel.scale != 1.0;
  int32_t sums[3 * kMatrixBlock];
  uint8_t values[3 * kMatrixBlock];
  for (int32_t i0 = 0; i0 < count; i0 += kMatrixBlock) {
    const int32_t pixels = std::min(kMatrixBlock, count - i0);
    const int32_t n = 3 * pixels;
    const ptrdiff_t at = 3 * static_cast<ptrdiff_t>(i0);
    CellSums(rows[0] + at, rows[1] + at, rows[2] + at, rows[3] + at, rows[4] + at, kernel.cells, sums, n);
    MatrixValues(sums, values, n, kernel.displacement, kernel.scale, scaled);
    const uint32_t redMask = kernel.channels & kChannelRed ? 0xFF0000u : 0;
    const uint32_t greenMask = kernel.channels & kChannelGreen ? 0x00FF00u : 0;
    const uint32_t blueMask = kernel.channels & kChannelBlue ? 0x0000FFu : 0;
    const uint32_t mask = redMask | greenMask | blueMask;
    uint32_t* out = dst + i0;
    for (int32_t i = 0; i < pixels; ++i) {
      out[i] = ((uint32_t{values[3 * i]} << 16) | (uint32_t{values[3 * i + 1]} << 8) | values[3 * i + 2]) & mask;
    }
  }
}
