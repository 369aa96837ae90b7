// The row kernels the filter classes' runs are made of, with their plain and
// fast forms, as the tests and benchmarks use them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "filters/filter_frame.h"

// --- 5 x 5 integer matrix ----------------------------------------------------

struct MatrixKernel {
  int32_t cells[25];     // row by row, cell (x, y) at 5 * y + x; cells of 255 or more set to 0
  int32_t displacement;  // added to each weighted sum
  double scale;          // multiplies the displaced sum
  uint32_t channels;     // kChannel* bits; unselected channels are written as 0
};

// The kernel cells as a run uses them: a cell of 255 or more contributes nothing.
void PrepareMatrixKernel(MatrixKernel& kernel, const int32_t cells[25]);

// Computes `count` result pixels of one row. rows[k] is source row y + k - 2
// (reader layout), pointing at the pixel two columns left of the first result.
void MatrixRow(const uint8_t* const rows[5], uint32_t* dst, int32_t count, const MatrixKernel& kernel);
// The same words, the sums in 32 bits when the cells allow and vectorised
// across pixels; with AVX2, cells of 16 bits take two products an
// instruction.
void MatrixRowFast(const uint8_t* const rows[5], uint32_t* dst, int32_t count, const MatrixKernel& kernel);

// --- Separable convolution ---------------------------------------------------

constexpr int32_t kMaxConvolutionTaps = 20;

struct SeparableKernel {
  double weights[kMaxConvolutionTaps];  // tap i applies at distance i - count / 2
  int32_t count;                        // 2..20
  uint32_t channels;                    // filtered channels; the others are copied
};

// Horizontal pass over `count` pixels: src is a reader-layout row at the pixel
// count / 2 columns left of the first result, dst the intermediate row (three
// bytes per pixel) at the first result.
void ConvolveRowHorizontal(const uint8_t* src, uint8_t* dst, int32_t count, const SeparableKernel& kernel);
void ConvolveRowHorizontalFast(const uint8_t* src, uint8_t* dst, int32_t count, const SeparableKernel& kernel);

// Vertical pass over a whole row: top is the intermediate row count / 2 rows
// above the result row, stride the intermediate's row length in bytes.
void ConvolveRowVertical(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t width,
                         const SeparableKernel& kernel);
// Fast variants of both passes: every sum is the plain one's, term by term in
// the same order, computed for many channel values side by side.
void ConvolveRowVerticalFast(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t width,
                             const SeparableKernel& kernel);

// Vertical pass over `rows` result rows: result row r (dst + r * dstWords)
// reads intermediate rows r .. r + count - 1 from top, as ConvolveRowVertical
// does for each. `scratch` holds ConvolutionScratchBytes(width, count) bytes;
// the fast form keeps there each intermediate row turned into doubles once,
// for all the result rows that read it.
size_t ConvolutionScratchBytes(int32_t width, int32_t count);
void ConvolveRowsVertical(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t dstWords, int32_t width,
                          int32_t rows, const SeparableKernel& kernel, void* scratch);
void ConvolveRowsVerticalFast(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t dstWords, int32_t width,
                              int32_t rows, const SeparableKernel& kernel, void* scratch);

// --- Colour matrix -------------------------------------------------------------

struct ColorMatrix {
  double weight[3][3];     // [output channel][input channel], red, green, blue
  double inputOffset[3];   // added to each input channel before weighting
  double outputOffset[3];  // added to each output channel after weighting
};

void ColorMatrixRow(const uint8_t* src, uint32_t* dst, int32_t count, const ColorMatrix& matrix);
void ColorMatrixRowFast(const uint8_t* src, uint32_t* dst, int32_t count, const ColorMatrix& matrix);

// --- Three-dimensional lookup table --------------------------------------------

constexpr int32_t kLutNodes = 18;  // per axis; a run uses nodes 0..15
constexpr int32_t kLutEntries = kLutNodes * kLutNodes * kLutNodes * 3;

// Entry x (0 red, 1 green, 2 blue) of node (r, g, b).
constexpr int32_t LutIndex(int32_t r, int32_t g, int32_t b, int32_t x) { return 972 * r + 54 * g + 3 * b + x; }

// Maps `count` pixels through the table by tetrahedral interpolation.
void Lut3DRow(const uint8_t* src, uint32_t* dst, int32_t count, const PackedDouble* table);

// Everything of the interpolation that does not depend on the table's
// values, worked out once per run. A component value v falls on a lower node
// v / 17 with a remainder v % 17; 255 is a class of its own, since there the
// upper node is held at 15. The 18 x 18 x 18 classes of (red, green, blue)
// each fix the tetrahedron, its four weights and the offsets of its corners
// B, C and D from corner A.
constexpr int32_t kLutClasses = 18 * 18 * 18;
struct Lut3DPlan {
  const PackedDouble* table;
  uint32_t axis[3][256];                      // per value: class part << 16 | offset of the lower node
  alignas(32) double weight[kLutClasses][4];  // of A, B, C, D
  int16_t corner[kLutClasses][4];             // offsets of B, C, D from A; the fourth unused
};
void PrepareLut3D(Lut3DPlan& plan, const PackedDouble* table);
// The same words as Lut3DRow: the same products and sums in double
// precision, the three channels of a pixel side by side in one vector.
void Lut3DRowFast(const uint8_t* src, uint32_t* dst, int32_t count, const Lut3DPlan& plan);

// --- Sepia -------------------------------------------------------------------------

struct SepiaWeights {
  int32_t red, green, blue;  // weights with 10 fraction bits
  int32_t tint[3];           // added to the luminance for red, green, blue
};

void SepiaRow(const uint8_t* src, uint32_t* dst, int32_t count, const SepiaWeights& weights);
// The same words, in 32 bits when the weights and tints allow.
void SepiaRowFast(const uint8_t* src, uint32_t* dst, int32_t count, const SepiaWeights& weights);

// --- Minimum and maximum finder ----------------------------------------------------

struct Extreme {
  int32_t x, y, value;
};

// Quantities: 0 red, 1 green, 2 blue, 3 the sum of the three.
struct MinMaxSearch {
  Extreme max[4];
  Extreme min[4];
};

// Every search at its start: no position, maxima 0, minima above any value.
void StartMinMaxSearch(MinMaxSearch& search);

// Walks one reader-layout row of `width` pixels at row y, left to right; a
// pixel replaces a held extreme only when strictly beyond it.
void MinMaxRow(const uint8_t* src, int32_t width, int32_t y, MinMaxSearch& search);
// The same search: the row's extremes first, then the first pixel that holds
// an extreme, only where the row beats what is held.
void MinMaxRowFast(const uint8_t* src, int32_t width, int32_t y, MinMaxSearch& search);
