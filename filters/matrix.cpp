// PictureMatrixQVT: a 5 x 5 integer kernel applied to a picture. Each result
// pixel is trunc(ScaleFactor * (Displacement + weighted sum of the 25 source
// pixels around it)), clamped to 0..255, computed per colour channel.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define PICTURE_MATRIX_PAIRS 1
#endif

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

#if defined(PICTURE_MATRIX_PAIRS)
// The 25 cells as 13 pairs of 16-bit cells, each pair in one 32-bit word (the
// first cell in the low half) for vpmaddwd, which multiplies two 16-bit
// channel values by the pair and adds the two products in one 32-bit lane.
// Pairs 0 to 9 are the horizontal neighbours (kx, kx + 1) for kx = 0 and 2 of
// each row; pairs 10 and 11 the last column of rows 0 and 1, and of rows 2 and
// 3; pair 12 the last cell of row 4 with a 0.
struct CellPairs {
  int32_t words[13];
};

int32_t PairWord(int32_t first, int32_t second) {
  return static_cast<int32_t>((static_cast<uint32_t>(first) & 0xFFFFu) | (static_cast<uint32_t>(second) << 16));
}

// False when a cell does not fit 16 bits (cells above 254 are 0 already).
bool MakeCellPairs(const int32_t* cells, CellPairs& pairs) {
  for (int32_t i = 0; i < 25; ++i) {
    if (cells[i] < -32768) return false;
  }
  for (int32_t ky = 0; ky < 5; ++ky) {
    pairs.words[2 * ky] = PairWord(cells[5 * ky], cells[5 * ky + 1]);
    pairs.words[2 * ky + 1] = PairWord(cells[5 * ky + 2], cells[5 * ky + 3]);
  }
  pairs.words[10] = PairWord(cells[4], cells[9]);
  pairs.words[11] = PairWord(cells[14], cells[19]);
  pairs.words[12] = PairWord(cells[24], 0);
  return true;
}

// Sixteen bytes from p in both halves of a vector.
__attribute__((target("avx2"))) inline __m256i Bytes16(const uint8_t* p) {
  return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}

// The cell sums of the eight channel values from p[k] + j on: lane t takes
// value j + t, from p[k][j + t + o] and p[k][j + t + o + 3] for the
// horizontal pairs at o = 0 and 6, from p[k][j + t + 12] of two rows for the
// vertical ones. Reads the 16 bytes from p[k] + j + 12 at most.
__attribute__((target("avx2"))) inline __m256i PairedSums(const uint8_t* const p[5], const __m256i w[13], int32_t j) {
  // Bytes t and t + 3 of a 16-byte row piece, zero-extended to the two 16-bit
  // halves of lane t (t = 0..3 in the lower 128 bits, 4..7 in the upper).
  const __m256i across = _mm256_setr_epi8(0, -1, 3, -1, 1, -1, 4, -1, 2, -1, 5, -1, 3, -1, 6, -1,  //
                                          4, -1, 7, -1, 5, -1, 8, -1, 6, -1, 9, -1, 7, -1, 10, -1);
  // Bytes 2t and 2t + 1 of two interleaved row pieces, the same way.
  const __m256i down = _mm256_setr_epi8(0, -1, 1, -1, 2, -1, 3, -1, 4, -1, 5, -1, 6, -1, 7, -1,  //
                                        8, -1, 9, -1, 10, -1, 11, -1, 12, -1, 13, -1, 14, -1, 15, -1);
  __m256i rowSums[5];
  for (int32_t ky = 0; ky < 5; ++ky) {
    const __m256i left = _mm256_madd_epi16(_mm256_shuffle_epi8(Bytes16(p[ky] + j), across), w[2 * ky]);
    const __m256i right = _mm256_madd_epi16(_mm256_shuffle_epi8(Bytes16(p[ky] + j + 6), across), w[2 * ky + 1]);
    rowSums[ky] = _mm256_add_epi32(left, right);
  }
  const __m256i last01 =
      _mm256_shuffle_epi8(_mm256_unpacklo_epi8(Bytes16(p[0] + j + 12), Bytes16(p[1] + j + 12)), down);
  const __m256i last23 =
      _mm256_shuffle_epi8(_mm256_unpacklo_epi8(Bytes16(p[2] + j + 12), Bytes16(p[3] + j + 12)), down);
  const __m256i last4 = _mm256_shuffle_epi8(Bytes16(p[4] + j + 12), across);
  const __m256i last =
      _mm256_add_epi32(_mm256_add_epi32(_mm256_madd_epi16(last01, w[10]), _mm256_madd_epi16(last23, w[11])),
                       _mm256_madd_epi16(last4, w[12]));
  return _mm256_add_epi32(
      _mm256_add_epi32(_mm256_add_epi32(rowSums[0], rowSums[1]), _mm256_add_epi32(rowSums[2], rowSums[3])),
      _mm256_add_epi32(rowSums[4], last));
}

// Four sums made values as MatrixValues does for a scale other than 1:
// displaced and scaled in double, then clamped (not-a-number to 0: the
// maximum with 0 comes first and gives its second operand for it) and
// truncated.
__attribute__((target("avx2"))) inline __m128i ScaledValues(__m128i sums, __m256d displacement, __m256d scale) {
  const __m256d v = _mm256_mul_pd(scale, _mm256_add_pd(displacement, _mm256_cvtepi32_pd(sums)));
  return _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(v, _mm256_setzero_pd()), _mm256_set1_pd(255.0)));
}

// The kernel as PairedMatrixRow's steps take it.
struct PairedKernel {
  __m256i pairs[13];  // each cell pair in every lane
  bool scaled;        // the scale is not 1
  __m256d displacement;
  __m256d scale;
  __m256i low, high, shift;  // with a scale of 1: the sums' clamp, and the displacement
  __m128i mask;              // the words' bits of the chosen channels
};

// The words of the eight pixels whose channel values start at p[k] + j.
__attribute__((target("avx2"))) inline void PairedEight(const uint8_t* const p[5], int32_t j, const PairedKernel& k,
                                                        uint32_t* out) {
  // Pixel t's red, green and blue bytes (3t, 3t + 1, 3t + 2) as the word
  // 0x00RRGGBB.
  const __m128i toWords = _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
  __m128i values[6];
  for (int32_t v = 0; v < 3; ++v) {
    const __m256i sums = PairedSums(p, k.pairs, j + 8 * v);
    if (k.scaled) {
      values[2 * v] = ScaledValues(_mm256_castsi256_si128(sums), k.displacement, k.scale);
      values[2 * v + 1] = ScaledValues(_mm256_extracti128_si256(sums, 1), k.displacement, k.scale);
    } else {
      const __m256i shifted = _mm256_add_epi32(_mm256_min_epi32(_mm256_max_epi32(sums, k.low), k.high), k.shift);
      values[2 * v] = _mm256_castsi256_si128(shifted);
      values[2 * v + 1] = _mm256_extracti128_si256(shifted, 1);
    }
  }
  const __m128i bytes0 = _mm_packus_epi16(_mm_packs_epi32(values[0], values[1]), _mm_packs_epi32(values[2], values[3]));
  const __m128i half = _mm_packs_epi32(values[4], values[5]);
  const __m128i bytes1 = _mm_packus_epi16(half, half);
  const __m128i low = _mm_and_si128(_mm_shuffle_epi8(bytes0, toWords), k.mask);
  const __m128i high = _mm_and_si128(_mm_shuffle_epi8(_mm_alignr_epi8(bytes1, bytes0, 12), toWords), k.mask);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), low);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), high);
}

// MatrixRowFast's words, eight pixels a step. A row has 3 * count + 12 bytes
// from rows[k]; a step reads 44 bytes from its first channel value on.
__attribute__((target("avx2"))) void PairedMatrixRow(const uint8_t* const rows[5], uint32_t* dst, int32_t count,
                                                     const CellPairs& pairs, const MatrixKernel& kernel) {
  PairedKernel k;
  for (int32_t i = 0; i < 13; ++i) k.pairs[i] = _mm256_set1_epi32(pairs.words[i]);
  k.scaled = kernel.scale != 1.0;
  k.displacement = _mm256_set1_pd(kernel.displacement);
  k.scale = _mm256_set1_pd(kernel.scale);
  // With a scale of 1 the values need no floating point: a sum is held to
  // -D..255 - D (as far as 32 bits reach) and D added, which gives 0..255.
  // Only for D = INT32_MIN is -D beyond 32 bits; every sum then gives
  // INT32_MAX + D = -1, which the packing into bytes makes the right 0.
  const int64_t d = kernel.displacement;
  k.low = _mm256_set1_epi32(static_cast<int32_t>(std::min<int64_t>(-d, INT32_MAX)));
  k.high = _mm256_set1_epi32(static_cast<int32_t>(std::min<int64_t>(255 - d, INT32_MAX)));
  k.shift = _mm256_set1_epi32(kernel.displacement);
  k.mask = _mm_set1_epi32(static_cast<int32_t>((kernel.channels & kChannelRed ? 0xFF0000u : 0) |
                                               (kernel.channels & kChannelGreen ? 0x00FF00u : 0) |
                                               (kernel.channels & kChannelBlue ? 0x0000FFu : 0)));
  int32_t i = 0;
  for (; 3 * i + 44 <= 3 * count + 12; i += 8) PairedEight(rows, 3 * i, k, dst + i);
  if (i >= count) return;
  // Fewer than 11 pixels are left: they are made from copies of their bytes,
  // with zeros behind for two whole steps (68 bytes).
  uint8_t copies[5][80] = {};
  const uint8_t* p[5];
  for (int32_t r = 0; r < 5; ++r) {
    std::memcpy(copies[r], rows[r] + 3 * i, 3 * static_cast<size_t>(count - i) + 12);
    p[r] = copies[r];
  }
  uint32_t words[16];
  PairedEight(p, 0, k, words);
  if (count - i > 8) PairedEight(p, 24, k, words + 8);
  std::memcpy(dst + i, words, sizeof(uint32_t) * static_cast<size_t>(count - i));
}
#endif

}  // namespace

// Channel values side by side: the sum of result channel value j over a
// block is the sum of cell * (channel value j + 3 * kx of row ky), exact in
// 32 bits when 255 times the cells' magnitudes fits; the plain kernel
// otherwise. A 32-bit sum and the displacement (a 32-bit value too) are exact
// as doubles, so the displaced sum is the plain kernel's 64-bit one. Where
// every cell fits 16 bits and the processor has AVX2, vpmaddwd forms the
// products two at a time (PairedMatrixRow): a channel value of at most 255
// times a 16-bit cell, and the sum of two such, cannot leave a 32-bit lane,
// and the bound on the magnitudes keeps every partial sum exact too.
void MatrixRowFast(const uint8_t* const rows[5], uint32_t* dst, int32_t count, const MatrixKernel& kernel) {
  int64_t magnitude = 0;
  for (int32_t cell : kernel.cells) magnitude += cell < 0 ? -int64_t{cell} : cell;
  if (magnitude > INT32_MAX / 255) {
    MatrixRow(rows, dst, count, kernel);
    return;
  }
#if defined(PICTURE_MATRIX_PAIRS)
  CellPairs pairs;
  if (MakeCellPairs(kernel.cells, pairs) && __builtin_cpu_supports("avx2")) {
    PairedMatrixRow(rows, dst, count, pairs, kernel);
    return;
  }
#endif
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
