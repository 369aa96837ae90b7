// PictureMatrix3DQVT: every pixel's colour through an affine colour matrix.
// Cell (i, j) of the 5 x 5 double matrix weighs input channel i in output
// channel j; cell (3, i) is added to input channel i first, cell (j, 3) to
// output channel j last. Cell (3, 3) and the fifth row and column are stored
// but not used.
#include <cstddef>
#include <iterator>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
struct Matrix3DData {
  FilterPictures pictures;
  FilterRectangle rectangle;
  double cells[25];  // cell (x, y) at 5 * y + x
};
#pragma pack(pop)

#if defined(__i386__)
static_assert(sizeof(Matrix3DData) == 224);
static_assert(offsetof(Matrix3DData, rectangle.minX) == 8);
static_assert(offsetof(Matrix3DData, rectangle.maxY) == 20);
static_assert(offsetof(Matrix3DData, cells) == 24);
#endif

Matrix3DData& Data(REALobjectStruct* instance) { return InstanceData<Matrix3DData>(instance, PictureMatrixClass3D); }

bool InRange(int32_t x, int32_t y) { return static_cast<uint32_t>(x) <= 4 && static_cast<uint32_t>(y) <= 4; }

unsigned char Run(REALobjectStruct* instance) {
  Matrix3DData& data = Data(instance);
  ColorMatrix matrix;
  for (int32_t i = 0; i < 3; ++i) {
    for (int32_t j = 0; j < 3; ++j) matrix.weight[j][i] = data.cells[5 * j + i];
    matrix.inputOffset[i] = data.cells[5 * i + 3];
    matrix.outputOffset[i] = data.cells[15 + i];
  }
  const auto row = ChooseKernel(ColorMatrixRow, ColorMatrixRowFast);
  return RunRowFilter(data.pictures, &data.rectangle, ResultRelease::kBeforeChecks,
                      [&](const uint8_t* src, uint32_t* dst, int32_t count) { row(src, dst, count, matrix); });
}

void Close(REALobjectStruct* instance) { CloseFilterPictures(Data(instance).pictures); }

// The constructor leaves every cell 0.0 as the host zeroed it.
void Construct(REALobjectStruct*) {}

double GetCell(REALobjectStruct* instance, int32_t x, int32_t y) {
  return InRange(x, y) ? Data(instance).cells[5 * y + x] : 0.0;
}

void SetCell(REALobjectStruct* instance, int32_t x, int32_t y, double value) {
  if (InRange(x, y)) Data(instance).cells[5 * y + x] = value;
}

REALpropertyDefinition properties[] = {
    FILTER_PICTURE_PROPERTIES(Matrix3DData),
    FILTER_RECTANGLE_PROPERTIES(Matrix3DData),
};

REALmethodDefinition methods[] = {
    {HandlerAddress(Close), nullptr, "Close", 0},
    {HandlerAddress(Run), nullptr, "Run as boolean", 0},
    {HandlerAddress(GetCell), HandlerAddress(SetCell), "Matrix(x as integer, y as integer) as double", 0},
};

bool HasOffsets(const ColorMatrix& m) {
  for (int32_t c = 0; c < 3; ++c)
    if (m.inputOffset[c] != 0.0 || m.outputOffset[c] != 0.0) return true;
  return false;
}

// Each output channel is the sum of its three products, in the order red,
// green, blue, plus its output offset. Offsets of exactly 0 change nothing and
// are skipped.
template <bool kOffsets>
void MapRow(const uint8_t* src, uint32_t* dst, int32_t count, const ColorMatrix& m) {
  for (int32_t i = 0; i < count; ++i, src += 3) {
    double in[3] = {static_cast<double>(src[0]), static_cast<double>(src[1]), static_cast<double>(src[2])};
    if (kOffsets) {
      for (int32_t c = 0; c < 3; ++c) in[c] += m.inputOffset[c];
    }
    uint32_t out[3];
    for (int32_t j = 0; j < 3; ++j) {
      double value = m.weight[j][0] * in[0] + m.weight[j][1] * in[1] + m.weight[j][2] * in[2];
      if (kOffsets) value += m.outputOffset[j];
      out[j] = ClampByte(value);
    }
    dst[i] = PackRGB(out[0], out[1], out[2]);
  }
}

}  // namespace

REALclassDefinition PictureMatrixClass3D = {
    kRecordVersion, "PictureMatrix3DQVT",  nullptr, sizeof(Matrix3DData), 0,       Construct, Close,
    properties,     std::size(properties), methods, std::size(methods),   nullptr, 0,         {}};

void ColorMatrixRow(const uint8_t* src, uint32_t* dst, int32_t count, const ColorMatrix& matrix) {
  if (HasOffsets(matrix)) MapRow<true>(src, dst, count, matrix);
  else MapRow<false>(src, dst, count, matrix);
}

namespace {

// The offsets' additions are left out when all are 0, as in MapRow.
template <bool kOffsets>
PICTURE_VECTOR_CLONES void MapRowFast(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t count,
                                      const ColorMatrix& m) {
  const double w00 = m.weight[0][0], w01 = m.weight[0][1], w02 = m.weight[0][2];
  const double w10 = m.weight[1][0], w11 = m.weight[1][1], w12 = m.weight[1][2];
  const double w20 = m.weight[2][0], w21 = m.weight[2][1], w22 = m.weight[2][2];
  const double i0 = m.inputOffset[0], i1 = m.inputOffset[1], i2 = m.inputOffset[2];
  const double o0 = m.outputOffset[0], o1 = m.outputOffset[1], o2 = m.outputOffset[2];
  for (int32_t i = 0; i < count; ++i) {
    double r = src[3 * i], g = src[3 * i + 1], b = src[3 * i + 2];
    if (kOffsets) {
      r += i0;
      g += i1;
      b += i2;
    }
    double vr = w00 * r + w01 * g + w02 * b, vg = w10 * r + w11 * g + w12 * b, vb = w20 * r + w21 * g + w22 * b;
    if (kOffsets) {
      vr += o0;
      vg += o1;
      vb += o2;
    }
    dst[i] = (ClampByte(vr) << 16) | (ClampByte(vg) << 8) | ClampByte(vb);
  }
}

}  // namespace

// Vectorised across pixels; each pixel's sums are the plain kernel's.
void ColorMatrixRowFast(const uint8_t* src, uint32_t* dst, int32_t count, const ColorMatrix& matrix) {
  if (HasOffsets(matrix)) MapRowFast<true>(src, dst, count, matrix);
  else MapRowFast<false>(src, dst, count, matrix);
}
