// Scaling: a box mean for reductions and plain enlargements, separable cubic
// interpolation for enlargements in both directions with AntiAlias.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pixels/picture_access.h"
#include "plugin/host_interface.h"

// Handler of "ScaleQVT(width as integer, height as integer, AntiAlias as
// boolean) as picture".
REALpictureStruct* ScalePicture(REALpictureStruct* picture, int32_t width, int32_t height,
                                unsigned char antiAlias);

// Box path: every destination pixel is the truncated mean of the same-sized
// box of source pixels; the box of destination (x, y) starts at source
// ((x * srcW) div newW, (y * srcH) div newH).
void ScaleBox(const PictureReader& src, PictureWriter& dst);
// The same pixels, faster: each destination row sums its source rows into
// per-column sums once and then adds up columns; division by the box size is
// a multiplication (BoxDivider); a destination row whose source row is the
// previous one's is copied.
void ScaleBoxFast(const PictureReader& src, PictureWriter& dst);

// Division by a box size `count` (1 <= count <= kMaxDividerCount) as a
// multiplication and a shift: Divide(n, MakeBoxDivider(count)) == n / count
// for every 0 <= n <= 255 * count (a test checks every such n). For
// count >= 2 the multiplier fits in 32 bits, so that a vector of 32-bit sums
// divides with 32 x 32 -> 64-bit products.
constexpr uint32_t kMaxDividerCount = 1024;
struct BoxDivider {
  uint64_t multiplier;
};
BoxDivider MakeBoxDivider(uint32_t count);
inline uint32_t Divide(uint32_t n, BoxDivider divider) {
  return static_cast<uint32_t>((n * divider.multiplier) >> 32);
}

// One destination row of the box path: for each of the `width` destination
// columns, sums per channel the `boxW` x `boxH` reader pixels whose top-left
// is column (x * srcW) div width of the row at `top` (rows `rowBytes` apart)
// and writes the truncated means.
void BoxMeanRow(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH,
                uint32_t* dst, int32_t width);

// The cubic interpolation tables of one direction: for destination position
// i of `newLength`, the source index (i * srcLength) div newLength and the
// four tap weights (index - 1 ... index + 2), each rounded once to float.
// A table owns its arrays and frees them when it goes out of scope.
struct CubicTable {
  int32_t* index = nullptr;
  float* weights = nullptr;  // 4 per position

  CubicTable() = default;
  CubicTable(const CubicTable&) = delete;
  CubicTable& operator=(const CubicTable&) = delete;
  ~CubicTable() { Release(); }
  void Release();
};
bool MakeCubicTable(CubicTable& table, int32_t srcLength, int32_t newLength);
// The four weights for the fraction u (0 <= u < 1).
void CubicWeights(double u, float weights[4]);

// Cubic path kernels. The vertical pass fills a float buffer, three channel
// values (red, green, blue) per source column, from the four source rows
// around `index`; rows outside 0 ... srcH - 1 are skipped.
void CubicColumnPass(const PictureReader& src, int32_t index, const float weights[4], float* buffer);
void CubicColumnPassFast(const PictureReader& src, int32_t index, const float weights[4], float* buffer);
// The horizontal pass interpolates the buffer (`srcW` columns) at every
// destination column and writes the clamped, truncated words.
void CubicRowPass(const float* buffer, int32_t srcW, const CubicTable& columns, uint32_t* dst,
                  int32_t width);

// The horizontal pass faster, for tables whose outer taps (index - 1 and
// index + 2) all weigh zero, as the cubic Hermite pair has them: such a tap
// adds +0 to a sum of at least 0.5 and changes no bit, so two taps remain,
// and a tap past the last column weighs zero in the same way. The plan holds
// the taps' buffer offsets and their weights repeated for the three channel
// values, and frees them when it goes out of scope; Make returns false
// (nothing allocated) when the table has outer weights or memory is short,
// and the plain pass is used then.
struct CubicRowPlan {
  int32_t width = 0;
  int32_t wide = 0;            // columns 0 .. wide - 1 may read a fourth value past each tap
  int32_t* offsets = nullptr;  // 2 per destination column
  float* nearWeights = nullptr;  // 3 per destination column, one per channel value
  float* farWeights = nullptr;

  CubicRowPlan() = default;
  CubicRowPlan(const CubicRowPlan&) = delete;
  CubicRowPlan& operator=(const CubicRowPlan&) = delete;
  ~CubicRowPlan() { Release(); }
  void Release();
};
bool MakeCubicRowPlan(CubicRowPlan& plan, const CubicTable& columns, int32_t srcW, int32_t width);
void CubicRowPassFast(const float* buffer, const CubicRowPlan& plan, uint32_t* dst);

// Cubic path: fills `dst`, a writer of the result size; false when a table
// or the buffer cannot be had.
bool ScaleCubic(const PictureReader& src, PictureWriter& dst);
