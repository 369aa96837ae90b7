// Rotation by any angle: whole quarter turns are exact, the residual angle
// (strictly between 0 and 90 degrees) is done by three shears, each pass
// producing a host picture that the next pass reads back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pixels/picture_access.h"
#include "plugin/host_interface.h"

// Handler of "RotateQVT(angle as double,background as color) as picture".
// Angles are in degrees, positive counterclockwise as displayed.
REALpictureStruct* Rotate(REALpictureStruct* picture, double angle, uint32_t background);

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

// The three shear passes. `source` is the picture given to Rotate45 (its size
// sets the pass sizes), `current` the picture this pass reads.
REALpictureStruct* Rotate45part1(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);
REALpictureStruct* Rotate45part2(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);
REALpictureStruct* Rotate45part3(const PictureReader& source, const PictureReader& current, uint32_t background,
                                 double theta, double s, double t);

// Shears row `row` (column `column`) of the reader into the same row (column)
// of the writer, shifted by `offset` pixels and blended with its neighbour by
// `weight` (0 <= weight < 1).
void HorzSkew(const PictureReader& src, PictureWriter& dst, int32_t row, int32_t offset, double weight,
              uint32_t background);
void VertSkew(const PictureReader& src, PictureWriter& dst, int32_t column, int32_t offset,
              double weight, uint32_t background);

// VertSkew for `count` (at most kColumnBlock) neighbouring columns from
// `first` at once, column first + j with shifts[j] and weights[j]; the result
// is the same as count calls of VertSkew, but rows are read and written in
// order.
constexpr int32_t kColumnBlock = 64;
void VertSkewColumns(const PictureReader& src, PictureWriter& dst, int32_t first, int32_t count,
                     const int32_t* shifts, const double* weights, uint32_t background);

// The line kernel behind both shears. `src` steps `srcStep` bytes per pixel
// over `length` reader pixels; `dst` steps `dstStep` words over `dstLength`
// writer pixels. The whole destination line becomes the background, then
// source pixel i, blended with the part `weight` of pixel i - 1 (the
// background before the first), lands at shift + i when that is inside the
// line, and the background blended with the last pixel's part at shift + length.
void SkewLine(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
              int32_t dstLength, int32_t shift, double weight, uint32_t background);

// Fast variants: the same pixels. What a channel value passes on to its
// neighbour, trunc(value * weight), is looked up in a table of the 256
// products made once per line (or column), and only the pixels that no
// source pixel reaches are filled with the background.
void SkewLineFast(const uint8_t* src, ptrdiff_t srcStep, int32_t length, uint32_t* dst, ptrdiff_t dstStep,
                  int32_t dstLength, int32_t shift, double weight, uint32_t background);
void VertSkewColumnsFast(const PictureReader& src, PictureWriter& dst, int32_t first, int32_t count,
                         const int32_t* shifts, const double* weights, uint32_t background);
