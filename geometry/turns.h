// Right-angle turns and mirrors: exact pixel permutations.
//
// Each kernel moves every pixel of an open reader (W x H) into a writer that
// the caller made with the result size (W x H, or H x W for the quarter
// turns); the kernels do not check sizes. Each handler opens the reader,
// makes the writer, runs its kernel and returns the rendered picture, or nil.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pixels/picture_access.h"
#include "plugin/host_interface.h"

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
void QuarterTurnPixelsFast(const PictureReader& src, uint32_t* origin, ptrdiff_t columnStep,
                           ptrdiff_t pixelStep);

// Kernels: source pixel (x, y) goes to
void CopyBitmap(const PictureReader& src, PictureWriter& dst);  // (x, y)
void HMirror(const PictureReader& src, PictureWriter& dst);     // (W - 1 - x, y)
void VMirror(const PictureReader& src, PictureWriter& dst);     // (x, H - 1 - y)
void Rotate90(const PictureReader& src, PictureWriter& dst);    // (y, W - 1 - x)
void Rotate180(const PictureReader& src, PictureWriter& dst);   // (W - 1 - x, H - 1 - y)
void Rotate270(const PictureReader& src, PictureWriter& dst);   // (H - 1 - y, x)

// The handler type of the five methods; the handlers share their names with
// the kernels, so registration picks them with this type.
using PictureTurn = REALpictureStruct* (*)(REALpictureStruct*);

// Handlers of "Rotate90QVT as picture", "Rotate180QVT as picture",
// "Rotate270QVT as picture", "HMirrorQVT as picture", "VMirrorQVT as picture".
REALpictureStruct* Rotate90(REALpictureStruct* picture);
REALpictureStruct* Rotate180(REALpictureStruct* picture);
REALpictureStruct* Rotate270(REALpictureStruct* picture);
REALpictureStruct* HMirror(REALpictureStruct* picture);
REALpictureStruct* VMirror(REALpictureStruct* picture);
