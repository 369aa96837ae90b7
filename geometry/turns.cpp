#include "geometry/handlers.h"
#include "geometry/kernels.h"

#include <algorithm>

#include "pixels/kernel_choice.h"

namespace {

// Quarter turns write the destination column by column. Walking the source in
// square tiles keeps the destination rows touched by one tile in cache; the
// order of the moves does not change any pixel.
constexpr int32_t kTile = 32;

// The frame shared by the five handlers: reader, writer of the result size,
// kernel, render. Nil when the picture cannot be read or the writer made.
REALpictureStruct* TurnPicture(REALpictureStruct* picture, void (*kernel)(const PictureReader&, PictureWriter&),
                               bool swapSize) {
  return RenderFromReader(
      picture,
      [swapSize](const PictureReader& r) {
        return swapSize ? std::pair{r.height, r.width} : std::pair{r.width, r.height};
      },
      kernel);
}

}  // namespace

void Rgb24ToXrgbMirrorRow(const uint8_t* src, uint32_t* dst, int32_t width) {
  uint32_t* out = dst + width;
  for (int32_t x = 0; x < width; ++x, src += 3) *--out = ReaderPixel(src);
}

void Rgb24ToXrgbStridedRow(const uint8_t* src, uint32_t* dst, ptrdiff_t dstStep, int32_t count) {
  for (int32_t i = 0; i < count; ++i, src += 3, dst += dstStep) *dst = ReaderPixel(src);
}

namespace {

PICTURE_VECTOR_CLONES
void ReverseWords(const uint32_t* __restrict in, uint32_t* __restrict out, int32_t n) {
  for (int32_t i = 0; i < n; ++i) out[n - 1 - i] = in[i];
}

}  // namespace

// Blocks of the row converted in order, then stored in reverse: both steps
// vectorise, the reversed conversion as one loop does not.
void Rgb24ToXrgbMirrorRowFast(const uint8_t* src, uint32_t* dst, int32_t width) {
  constexpr int32_t kBlock = 256;
  uint32_t words[kBlock];
  for (int32_t x0 = 0; x0 < width; x0 += kBlock) {
    const int32_t n = std::min(kBlock, width - x0);
    Rgb24ToXrgbRowFast(src + 3 * static_cast<ptrdiff_t>(x0), words, n);
    ReverseWords(words, dst + (width - x0 - n), n);
  }
}

// Moves every source pixel into the destination a tile at a time.
void QuarterTurnPixels(const PictureReader& src, uint32_t* origin, ptrdiff_t columnStep, ptrdiff_t pixelStep) {
  for (int32_t y0 = 0; y0 < src.height; y0 += kTile) {
    const int32_t y1 = std::min(src.height, y0 + kTile);
    for (int32_t x0 = 0; x0 < src.width; x0 += kTile) {
      const int32_t count = std::min(src.width - x0, kTile);
      for (int32_t y = y0; y < y1; ++y) {
        Rgb24ToXrgbStridedRow(ReaderRow(src, y) + 3 * static_cast<ptrdiff_t>(x0),
                              origin + y * columnStep + x0 * pixelStep, pixelStep, count);
      }
    }
  }
}

// Each tile is converted row by row into `tile`, then source column x0 + j
// of the tile (a destination row) is written out as one run of words. Tiles
// of 16 x 16 measured fastest here (against 8, 32, 64 and taller strips): 16
// source rows and 16 destination rows are streams the prefetchers follow,
// and a 16-word run is one cache line of the destination.
void QuarterTurnPixelsFast(const PictureReader& src, uint32_t* origin, ptrdiff_t columnStep, ptrdiff_t pixelStep) {
  constexpr int32_t kFastTile = 16;
  alignas(64) uint32_t tile[kFastTile][kFastTile];
  for (int32_t y0 = 0; y0 < src.height; y0 += kFastTile) {
    const int32_t rows = std::min(src.height - y0, kFastTile);
    for (int32_t x0 = 0; x0 < src.width; x0 += kFastTile) {
      const int32_t count = std::min(src.width - x0, kFastTile);
      for (int32_t i = 0; i < rows; ++i) {
        Rgb24ToXrgbRowFast(ReaderRow(src, y0 + i) + 3 * static_cast<ptrdiff_t>(x0), tile[i], count);
      }
      for (int32_t j = 0; j < count; ++j) {
        uint32_t* out = origin + y0 * columnStep + (x0 + j) * pixelStep;
        for (int32_t i = 0; i < rows; ++i) out[i * columnStep] = tile[i][j];
      }
    }
  }
}

void CopyBitmap(const PictureReader& src, PictureWriter& dst) {
  const auto row = ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast);
  for (int32_t y = 0; y < src.height; ++y) row(ReaderRow(src, y), WriterRow(dst, y), src.width);
}

void HMirror(const PictureReader& src, PictureWriter& dst) {
  const auto row = ChooseKernel(Rgb24ToXrgbMirrorRow, Rgb24ToXrgbMirrorRowFast);
  for (int32_t y = 0; y < src.height; ++y) row(ReaderRow(src, y), WriterRow(dst, y), src.width);
}

void VMirror(const PictureReader& src, PictureWriter& dst) {
  const auto row = ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast);
  for (int32_t y = 0; y < src.height; ++y) row(ReaderRow(src, y), WriterRow(dst, dst.height - 1 - y), src.width);
}

void Rotate90(const PictureReader& src, PictureWriter& dst) {
  // Source row y is destination column y, read from the bottom row upward.
  const ptrdiff_t rowWords = dst.rowBytes / 4;
  ChooseKernel(QuarterTurnPixels, QuarterTurnPixelsFast)(src, WriterRow(dst, dst.height - 1), 1, -rowWords);
}

void Rotate180(const PictureReader& src, PictureWriter& dst) {
  const auto row = ChooseKernel(Rgb24ToXrgbMirrorRow, Rgb24ToXrgbMirrorRowFast);
  for (int32_t y = 0; y < src.height; ++y) row(ReaderRow(src, y), WriterRow(dst, dst.height - 1 - y), src.width);
}

void Rotate270(const PictureReader& src, PictureWriter& dst) {
  // Source row y is destination column width - 1 - y, from the top row down.
  const ptrdiff_t rowWords = dst.rowBytes / 4;
  ChooseKernel(QuarterTurnPixels, QuarterTurnPixelsFast)(src, WriterRow(dst, 0) + (dst.width - 1), -1, rowWords);
}

REALpictureStruct* Rotate90(REALpictureStruct* picture) { return TurnPicture(picture, Rotate90, true); }

REALpictureStruct* Rotate180(REALpictureStruct* picture) { return TurnPicture(picture, Rotate180, false); }

REALpictureStruct* Rotate270(REALpictureStruct* picture) { return TurnPicture(picture, Rotate270, true); }

REALpictureStruct* HMirror(REALpictureStruct* picture) { return TurnPicture(picture, HMirror, false); }

REALpictureStruct* VMirror(REALpictureStruct* picture) { return TurnPicture(picture, VMirror, false); }
