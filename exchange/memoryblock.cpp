// Pixels between pictures and memory blocks in fixed byte layouts. Pixel
// (x, y) of a W-pixel-wide picture starts at offset + (y * W + x) * S, rows
// without padding:
//   RGB              S = 3: red, green, blue
//   ARGB big-endian  S = 4: alpha, red, green, blue
//   ARGB little      S = 4: blue, green, red, alpha
//   one channel      S = PixelByteSize: the channel in the cell's first byte
#include <cstring>

#include "exchange/handlers.h"
#include "exchange/kernels.h"

#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"

// --- Row kernels ------------------------------------------------------------------

void Rgb24ToBlockRgbRow(const uint8_t* src, uint8_t* dst, int32_t width) {
  std::memcpy(dst, src, 3 * static_cast<size_t>(width));
}

void Rgb24ToArgbRow(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian, uint32_t alphaValue) {
  // Byte positions of alpha, red, green, blue within a 4-byte cell.
  const int a = littleEndian ? 3 : 0;
  const int r = littleEndian ? 2 : 1;
  const int g = littleEndian ? 1 : 2;
  const int b = littleEndian ? 0 : 3;
  const bool writeAlpha = alphaValue <= 255;
  for (int32_t x = 0; x < width; ++x, src += 3, dst += 4) {
    if (writeAlpha) dst[a] = static_cast<uint8_t>(alphaValue);
    dst[r] = src[0];
    dst[g] = src[1];
    dst[b] = src[2];
  }
}

void Rgb24ChannelToStrideRow(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel, int32_t stride) {
  src += channel;
  for (int32_t x = 0; x < width; ++x, src += 3) {
    *dst = *src;
    // The last cell of the block may be a single byte: step only between cells.
    if (x + 1 < width) dst += stride;
  }
}

void ArgbToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian) {
  const int r = littleEndian ? 2 : 1;
  const int g = littleEndian ? 1 : 2;
  const int b = littleEndian ? 0 : 3;
  for (int32_t x = 0; x < width; ++x, src += 4) dst[x] = PackRGB(src[r], src[g], src[b]);
}

void GrayStrideToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride) {
  for (int32_t x = 0; x < width; ++x) {
    const uint32_t grey = *src;
    dst[x] = PackRGB(grey, grey, grey);
    if (x + 1 < width) src += stride;
  }
}

namespace {

// Cells are written and read as little-endian words (x86 byte order).
PICTURE_VECTOR_CLONES
void Rgb24ToArgbWords(const uint8_t* __restrict src, uint8_t* __restrict dst, int32_t width, bool littleEndian,
                      uint32_t alpha) {
  const auto fill = static_cast<uint8_t>(alpha);
  if (littleEndian) {  // blue, green, red, alpha
    SpreadPixels(
        src, dst, width, fill,
        [](ByteVector16 in, ByteVector16 a) {
          return __builtin_shufflevector(in, a, 2, 1, 0, 16, 5, 4, 3, 16, 8, 7, 6, 16, 11, 10, 9, 16);
        },
        [alpha](const uint8_t* p) { return (alpha << 24) | ReaderPixel(p); });
  } else {  // alpha, red, green, blue
    SpreadPixels(
        src, dst, width, fill,
        [](ByteVector16 in, ByteVector16 a) {
          return __builtin_shufflevector(in, a, 16, 0, 1, 2, 16, 3, 4, 5, 16, 6, 7, 8, 16, 9, 10, 11);
        },
        [alpha](const uint8_t* p) {
          return alpha | (uint32_t{p[0]} << 8) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 24);
        });
  }
}

PICTURE_VECTOR_CLONES
void ArgbWordsToXrgb(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width, bool littleEndian) {
  if (littleEndian) {
    for (int32_t x = 0; x < width; ++x) {
      dst[x] = (uint32_t{src[4 * x + 2]} << 16) | (uint32_t{src[4 * x + 1]} << 8) | src[4 * x];
    }
  } else {
    for (int32_t x = 0; x < width; ++x) {
      dst[x] = (uint32_t{src[4 * x + 1]} << 16) | (uint32_t{src[4 * x + 2]} << 8) | src[4 * x + 3];
    }
  }
}

PICTURE_VECTOR_CLONES
void ChannelBytes(const uint8_t* __restrict src, uint8_t* __restrict dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) dst[x] = src[3 * x];
}

PICTURE_VECTOR_CLONES
void GreyBytesToXrgb(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) dst[x] = uint32_t{src[x]} * 0x010101u;
}

}  // namespace

void Rgb24ToArgbRowFast(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian, uint32_t alphaValue) {
  if (alphaValue > 255) {
    Rgb24ToArgbRow(src, dst, width, littleEndian, alphaValue);
    return;
  }
  Rgb24ToArgbWords(src, dst, width, littleEndian, alphaValue);
}

void Rgb24ChannelToStrideRowFast(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel, int32_t stride) {
  if (stride != 1) {
    Rgb24ChannelToStrideRow(src, dst, width, channel, stride);
    return;
  }
  ChannelBytes(src + channel, dst, width);
}

void ArgbToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian) {
  ArgbWordsToXrgb(src, dst, width, littleEndian);
}

void GrayStrideToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride) {
  if (stride != 1) {
    GrayStrideToXrgbRow(src, dst, width, stride);
    return;
  }
  GreyBytesToXrgb(src, dst, width);
}

namespace {

// The block length a layout needs: offset + (pixels - 1) * stride + lastCell,
// where the last pixel needs only `lastCell` bytes of its cell (the whole cell
// for RGB and ARGB, one byte for the one-channel layouts); just `offset` when
// there are no pixels. -1 when the length does not fit in 64 bits.
int64_t BlockBytesNeeded(int32_t offset, int32_t width, int32_t height, int32_t stride, int32_t lastCell) {
  if (offset < 0 || width < 0 || height < 0 || stride < 1 || lastCell < 0) return -1;
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  if (pixels == 0) return offset;
  uint64_t span = 0;
  if (__builtin_mul_overflow(pixels - 1, static_cast<uint64_t>(stride), &span)) return -1;
  // offset and lastCell are below 2^31 each; the sum must stay a signed 64-bit value.
  const uint64_t tail = static_cast<uint64_t>(offset) + static_cast<uint64_t>(lastCell);
  if (span > static_cast<uint64_t>(INT64_MAX) - tail) return -1;
  return static_cast<int64_t>(span + tail);
}

// The block's bytes when it holds at least `needed` bytes, else null.
uint8_t* BlockBytes(REALmemoryBlockStruct* block, int64_t needed) {
  if (needed < 0) return nullptr;
  const int32_t size = REALMemoryBlockGetSize(block);
  if (size < 0 || needed > size) return nullptr;
  return static_cast<uint8_t*>(REALMemoryBlockGetPtr(block));
}

// Copies the picture row by row into the block: row y at offset + y * W * stride.
// The length the layout needs is checked against the block before anything is
// written; a short block refuses the whole call.
template <typename RowKernel>
unsigned char CopyToBlock(REALpictureStruct* picture, REALmemoryBlockStruct* block, int32_t offset, int32_t stride,
                          int32_t lastCell, RowKernel rowKernel) {
  if (!picture || !block || offset < 0 || stride < 1) return 0;
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return 0;
  uint8_t* data = BlockBytes(block, BlockBytesNeeded(offset, reader.width, reader.height, stride, lastCell));
  if (data) {
    const size_t blockRowBytes = static_cast<size_t>(reader.width) * static_cast<size_t>(stride);
    uint8_t* start = data + offset;
    for (int32_t y = 0; y < reader.height; ++y) {
      rowKernel(ReaderRow(reader, y), start + static_cast<size_t>(y) * blockRowBytes, reader.width);
    }
  }
  return data ? 1 : 0;
}

// Builds a width x height picture from the block, row y read at
// offset + y * width * stride, after checking the block's length.
template <typename RowKernel>
REALpictureStruct* BuildFromBlock(REALmemoryBlockStruct* block, int32_t offset, int32_t width, int32_t height,
                                  int32_t stride, int32_t lastCell, RowKernel rowKernel) {
  if (!block || width < 1 || height < 1 || offset < 0 || stride < 1) return nullptr;
  const uint8_t* data = BlockBytes(block, BlockBytesNeeded(offset, width, height, stride, lastCell));
  if (!data) return nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, width, height)) return nullptr;
  const size_t blockRowBytes = static_cast<size_t>(width) * static_cast<size_t>(stride);
  const uint8_t* start = data + offset;
  for (int32_t y = 0; y < height; ++y) {
    rowKernel(start + static_cast<size_t>(y) * blockRowBytes, WriterRow(writer, y), width);
  }
  return RenderPictureWriter(writer);
}

unsigned char CopyChannel(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                          int32_t pixelByteSize, int32_t channel) {
  const auto kernel = ChooseKernel(Rgb24ChannelToStrideRow, Rgb24ChannelToStrideRowFast);
  return CopyToBlock(
      picture, destination, offset, pixelByteSize, 1,
      [&](const uint8_t* src, uint8_t* dst, int32_t width) { kernel(src, dst, width, channel, pixelByteSize); });
}

}  // namespace

// --- Handlers ---------------------------------------------------------------------------

unsigned char CopyRGBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset) {
  return CopyToBlock(picture, destination, offset, 3, 3, Rgb24ToBlockRgbRow);
}

unsigned char CopyRGBXtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                    unsigned char littleEndian, int32_t alphaValue) {
  const auto kernel = ChooseKernel(Rgb24ToArgbRow, Rgb24ToArgbRowFast);
  return CopyToBlock(picture, destination, offset, 4, 4, [&](const uint8_t* src, uint8_t* dst, int32_t width) {
    kernel(src, dst, width, littleEndian != 0, static_cast<uint32_t>(alphaValue));
  });
}

unsigned char CopyRtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize) {
  return CopyChannel(picture, destination, offset, pixelByteSize, 0);
}

unsigned char CopyGtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize) {
  return CopyChannel(picture, destination, offset, pixelByteSize, 1);
}

unsigned char CopyBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize) {
  return CopyChannel(picture, destination, offset, pixelByteSize, 2);
}

REALpictureStruct* MemoryblockRGBtoPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                           int32_t height) {
  return BuildFromBlock(source, offset, width, height, 3, 3, ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast));
}

REALpictureStruct* MemoryblockARGBtoPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                            int32_t height, unsigned char littleEndian) {
  const auto kernel = ChooseKernel(ArgbToXrgbRow, ArgbToXrgbRowFast);
  return BuildFromBlock(source, offset, width, height, 4, 4,
                        [&](const uint8_t* src, uint32_t* dst, int32_t w) { kernel(src, dst, w, littleEndian != 0); });
}

REALpictureStruct* MemoryblockGrayToPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                            int32_t height, int32_t pixelByteSize) {
  const auto kernel = ChooseKernel(GrayStrideToXrgbRow, GrayStrideToXrgbRowFast);
  return BuildFromBlock(source, offset, width, height, pixelByteSize, 1,
                        [&](const uint8_t* src, uint32_t* dst, int32_t w) { kernel(src, dst, w, pixelByteSize); });
}
