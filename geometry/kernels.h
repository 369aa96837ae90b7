// The geometry subsystem's kernels, used by its handlers and by the tests and
// benchmarks. They work on open readers and writers (pixels/picture_access.h)
// or on their rows, and know nothing of the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pixels/picture_access.h"
#include "plugin/host_interface.h"

// ---- Right-angle turns and mirrors: exact pixel permutations ----------------
//
// Each kernel moves every pixel of an open reader (W x H) into a writer that
// the caller made with the result size (W x H, or H x W for the quarter
// turns); the kernels do not check sizes.

// Row kernels.
// Converts `width` reader pixels into writer words in reverse order:
// source pixel x goes to dst[width - 1 - x].
void Rgb24ToXrgbMirrorRow(const uint8_t* src, uint32_t* dst, int32_t width);
void Rgb24ToXrgbMirrorRowFast(const uint8_t* src, uint32_t* dst, int32_t width);
// Converts `count` reader pixels into writer words placed `dstStep` words
// apart (dstStep may be negative): source pixel i goes to dst[i * dstStep].
void Rgb24ToXrgbStridedRow(const uint8_t* src, uint32_t* dst, ptrdiff_t dstStep, int32_t count);

// The quarter turns' pixel moves: source pixel (x, y) goes to the word at
// origin + y * columnStep + x * pixelStep (columnStep is 1 or -1). The plain
// one walks the source in square tiles and moves each tile row with
// Rgb24ToXrgbStridedRow; the fast one converts a whole tile into a small
// buffer first and writes it out along destination rows.
void QuarterTurnPixels(const PictureReader& src, uint32_t* origin, ptrdiff_t columnStep, ptrdiff_t pixelStep);
void QuarterTurnPixelsFast(const PictureReader& src, uint32_t* origin, ptrdiff_t columnStep, ptrdiff_t pixelStep);

// Kernels: source pixel (x, y) goes to
void CopyBitmap(const PictureReader& src, PictureWriter& dst);  // (x, y); the identity, which no method uses
void HMirror(const PictureReader& src, PictureWriter& dst);     // (W - 1 - x, y)
void VMirror(const PictureReader& src, PictureWriter& dst);     // (x, H - 1 - y)
void Rotate90(const PictureReader& src, PictureWriter& dst);    // (y, W - 1 - x)
void Rotate180(const PictureReader& src, PictureWriter& dst);   // (W - 1 - x, H - 1 - y)
void Rotate270(const PictureReader& src, PictureWriter& dst);   // (H - 1 - y, x)

// ---- Rotation by any angle ---------------------------------------------------
//
// Whole quarter turns are exact; the residual angle (strictly between 0 and
// 90 degrees) is done by three shears, each pass reading what the one before
// made: host pictures, or, where they would give back the same bits, the
// passes' rows kept in memory (Rotate45InMemory).

// Reduces an angle in degrees into 0 <= a < 360 by an exact remainder.
// False for a not-a-number or infinite angle.
bool ReduceAngle(double angle, double* reduced);

// Sine and cosine of 0 <= x <= pi / 2 radians, computed by the library
// itself in plain double arithmetic (within an ulp or two of the exact values).
void SinCosQuadrant(double x, double* sine, double* cosine);

// The shear factors of a rotation by `angle` degrees: theta in radians,
// s = sin(theta), t = tan(theta / 2).
void ShearFactors(double angle, double* theta, double* s, double* t);

// Sizes of the three passes for a W x H picture: pass 1 is width1 x H, pass 2
// width1 x height2, pass 3 (the result) width3 x height2. False when a size
// is not a valid 32-bit count.
struct ShearSizes {
  int32_t width1, height2, width3;
};
bool ComputeShearSizes(int32_t width, int32_t height, double theta, double s, double t, ShearSizes* sizes);

// Rotates the reader's picture by 0 < angle < 90 degrees onto the background.
REALpictureStruct* Rotate45(const PictureReader& source, double angle, uint32_t background);

// True when a host picture on the same visual as `picture`'s drawable gives
// back every bit of a writer's words: a 24- or 32-bit TrueColor visual with
// 8 bits for each of red, green and blue where the words have them. On any
// other visual (15 or 16 bits, a palette, a picture without a drawable) a
// round trip through a host picture may change low bits.
bool KeepsEveryBit(REALpictureStruct* picture);

// A reader over pixels in memory rather than over a host picture; it frees
// its rows when it goes out of scope.
struct MemoryReader {
  PictureReader reader;
  uint8_t* rows = nullptr;

  MemoryReader() = default;
  MemoryReader(const MemoryReader&) = delete;
  MemoryReader& operator=(const MemoryReader&) = delete;
  ~MemoryReader() { Release(); }
  void Release();
};
// Opens `memory` on the writer's pixels as reader rows (each word's red,
// green and blue; its top byte dropped, as a host picture drops it), made in
// the writer's buffer, which the memory reader takes over.
void ReadWriterPixels(PictureWriter& writer, MemoryReader& memory);
// Converts `width` writer words into reader pixels, also in place (dst ==
// src as bytes); writes the row's 3 * width bytes and nothing beyond.
void XrgbToRgb24Row(const uint32_t* src, uint8_t* dst, int32_t width);

// Rotate45 where a host picture would give back the same bits: the passes
// stay in memory (pass 1 blended for pass 2, pass 2 made a band of rows at a
// time and at once sheared by pass 3), and only the result is rendered.
// ShearInMemory fills a new writer `result` (false, with nothing kept, when
// a size is not valid or memory is short); Rotate45InMemory renders it.
bool ShearInMemory(const PictureReader& source, double angle, uint32_t background, PictureWriter& result);
REALpictureStruct* Rotate45InMemory(const PictureReader& source, double angle, uint32_t background);

// The three shear passes. `source` is the picture given to Rotate45 (its size
// sets the pass sizes), `current` the picture this pass reads.
REALpictureStruct* Rotate45part1(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);
REALpictureStruct* Rotate45part2(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);
REALpictureStruct* Rotate45part3(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);

// Shears row `srcRow` of the reader into row `dstRow` of the writer (column
// `column` into the same column), shifted by `offset` pixels and blended with
// its neighbour by `weight` (0 <= weight < 1).
void HorzSkew(const PictureReader& src, int32_t srcRow, PictureWriter& dst, int32_t dstRow, int32_t offset,
              double weight, uint32_t background);
// Pass 2 is made a row at a time (below); VertSkew, one column at a time, is
// the reference the rows are tested against and is not used by the passes.
void VertSkew(const PictureReader& src, PictureWriter& dst, int32_t column, int32_t offset, double weight,
              uint32_t background);

// Pass 2, columns sheared down each by its own shift and weight, in two
// steps. First every pixel of pass 1 (H rows P(0) .. P(H - 1)) is blended
// with the one above it: blended row i, 0 <= i <= H, holds P(i) less the
// part it passes on plus the part P(i - 1) passes on, P(-1) and P(H) being
// the background. Then row y of pass 2 holds, in column c, pixel c of
// blended row y - shifts[c], or the background where that row is outside
// 0 .. H: a copy. Together they give each column what VertSkew(src, ..., c,
// shifts[c], weights[c], background) gives it. The shifts never grow from one
// column to the next (pass 2's fall), so columns of one shift come in runs.
constexpr int32_t kPieceColumns = 5;  // pieces of runs: at most 15 bytes
constexpr int32_t kShiftSlack = 16;   // bytes the fast copy may touch past a row
struct ColumnShear {
  std::vector<int32_t> shifts;
  std::vector<double> weights;
  // Each channel value's exact multiplier (see the fast variants below), 3
  // per column, 0 for the columns listed in `inexact`, which have none.
  std::vector<uint16_t> multipliers;
  std::vector<int32_t> inexact;
  // The first column of each piece: the runs of one shift cut into pieces
  // of at most kPieceColumns columns; then the width.
  std::vector<int32_t> pieces;
  // A row of the background as reader pixels, kShiftSlack bytes longer.
  std::vector<uint8_t> background;
  ColumnShear(std::vector<int32_t> columnShifts, std::vector<double> columnWeights, uint32_t color);
};
// The first step for one row: columns from .. to - 1 of `row` blended with
// those of `above` (both start at column 0) into out[0] .. out[3 * (to -
// from) - 1].
void BlendColumnRow(const uint8_t* row, const uint8_t* above, const ColumnShear& shear, int32_t from, int32_t to,
                    uint8_t* out);
// The first step for a picture: the H + 1 blended rows of `src` in `blended`
// (rows 3 * width bytes apart, kShiftSlack bytes more after the last); false
// when the buffer cannot be had.
bool BlendColumns(const PictureReader& src, const ColumnShear& shear, MemoryReader& blended);
// Blended rows 0 .. height - 1 of the columns from `first` on, in blocks of
// `blockRows` rows `blockBytes` apart, rows `rowBytes` apart within a block;
// column c of a row at Row(i) + 3 * (c - first).
struct BlendedRows {
  const uint8_t* base;
  int32_t rowBytes;
  int32_t blockRows;
  ptrdiff_t blockBytes;
  int32_t height;
  int32_t first;
  const uint8_t* Row(int32_t i) const {
    return base + static_cast<ptrdiff_t>(i / blockRows) * blockBytes + static_cast<ptrdiff_t>(i % blockRows) * rowBytes;
  }
};
// The second step: rows top .. top + rows - 1 (any rows), columns from ..
// to - 1 (from `first` on), into `out` (rows `outRowBytes` apart, column c at
// out + 3 * c).
void ShiftColumns(const BlendedRows& blended, int32_t top, int32_t rows, const ColumnShear& shear, uint8_t* out,
                  ptrdiff_t outRowBytes, int32_t from, int32_t to);

// The line kernel behind both shears. `src` steps `srcStep` bytes per pixel
// over `length` reader pixels; `dst` steps `dstStep` words over `dstLength`
// writer pixels. The whole destination line becomes the background, then
// source pixel i, blended with the part `weight` of pixel i - 1 (the
// background before the first), lands at shift + i when that is inside the
// line, and the background blended with the last pixel's part at shift + length.
void SkewLine(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
              int32_t dstLength, int32_t shift, double weight, uint32_t background);
// The same along a row into reader pixels, `dst` 3 * dstLength bytes.
void SkewRow(const uint8_t* src, int32_t length, uint8_t* dst, int32_t dstLength, int32_t shift, double weight,
             uint32_t background);

// Fast variants: the same pixels. What a channel value passes on to its
// neighbour, trunc(value * weight), is (value * m) >> 16 for a 16-bit m
// checked on all 256 values once per line (or column); lines are then
// blended as bytes many at a time. A weight with no such m (weight 1 is one)
// uses a table of the 256 products. Only the pixels of a row that no source
// pixel reaches are filled with the background.
void SkewLineFast(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
                  int32_t dstLength, int32_t shift, double weight, uint32_t background);
void SkewRowFast(const uint8_t* src, int32_t length, uint8_t* dst, int32_t dstLength, int32_t shift, double weight,
                 uint32_t background);
// The first step's fast variant blends whole rows as bytes (the columns
// without a multiplier one by one afterwards). The second's copies each
// piece as one 16-byte move a row, so it may read up to kShiftSlack bytes
// past the pixels of a blended row it reads, and write up to kShiftSlack
// bytes past column to - 1 of a row (pieces go from left to right, each
// writing over what the one before wrote past its end).
void BlendColumnRowFast(const uint8_t* row, const uint8_t* above, const ColumnShear& shear, int32_t from, int32_t to,
                        uint8_t* out);
void ShiftColumnsFast(const BlendedRows& blended, int32_t top, int32_t rows, const ColumnShear& shear, uint8_t* out,
                      ptrdiff_t outRowBytes, int32_t from, int32_t to);

// ---- Scaling -----------------------------------------------------------------
//
// A box mean for reductions and plain enlargements, separable cubic
// interpolation for enlargements in both directions with AntiAlias.

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
inline uint32_t Divide(uint32_t n, BoxDivider divider) { return static_cast<uint32_t>((n * divider.multiplier) >> 32); }

// One destination row of the box path: for each of the `width` destination
// columns, sums per channel the `boxW` x `boxH` reader pixels whose top-left
// is column (x * srcW) div width of the row at `top` (rows `rowBytes` apart)
// and writes the truncated means.
void BoxMeanRow(const uint8_t* top, int32_t rowBytes, int32_t srcW, int32_t boxW, int32_t boxH, uint32_t* dst,
                int32_t width);

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
void CubicRowPass(const float* buffer, int32_t srcW, const CubicTable& columns, uint32_t* dst, int32_t width);

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
  int32_t wide = 0;              // columns 0 .. wide - 1 may read a fourth value past each tap
  int32_t* offsets = nullptr;    // 2 per destination column
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
