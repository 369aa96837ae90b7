// Pixels between pictures and memory blocks in fixed byte layouts. Pixel
// (x, y) of a W-pixel-wide picture starts at offset + (y * W + x) * S, rows
// without padding:
//   RGB              S = 3: red, green, blue
//   ARGB big-endian  S = 4: alpha, red, green, blue
//   ARGB little      S = 4: blue, green, red, alpha
//   one channel      S = PixelByteSize: the channel in the cell's first byte
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// Picture extension methods: the picture's pixels into a block.
unsigned char CopyRGBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                   int32_t offset);
unsigned char CopyRGBXtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                    int32_t offset, unsigned char littleEndian, int32_t alphaValue);
unsigned char CopyRtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                 int32_t offset, int32_t pixelByteSize);
unsigned char CopyGtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                 int32_t offset, int32_t pixelByteSize);
unsigned char CopyBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                 int32_t offset, int32_t pixelByteSize);

// Global methods: a new picture from a block.
REALpictureStruct* MemoryblockRGBtoPicture(REALmemoryBlockStruct* source, int32_t offset,
                                           int32_t width, int32_t height);
REALpictureStruct* MemoryblockARGBtoPicture(REALmemoryBlockStruct* source, int32_t offset,
                                            int32_t width, int32_t height, unsigned char littleEndian);
REALpictureStruct* MemoryblockGrayToPicture(REALmemoryBlockStruct* source, int32_t offset,
                                            int32_t width, int32_t height, int32_t pixelByteSize);

// The block length a layout needs: offset + (pixels - 1) * stride + lastCell,
// where the last pixel needs only `lastCell` bytes of its cell (the whole cell
// for RGB and ARGB, one byte for the one-channel layouts); just `offset` when
// there are no pixels. -1 when the length does not fit in 64 bits.
int64_t BlockBytesNeeded(int32_t offset, int32_t width, int32_t height, int32_t stride,
                         int32_t lastCell);

// Row kernels. `src` is a reader row (3 bytes per pixel), `dst` a writer row
// (0x00RRGGBB words) or a block row.
void Rgb24ToBlockRgbRow(const uint8_t* src, uint8_t* dst, int32_t width);
// alphaValue above 255 (taken as unsigned) leaves the block's alpha bytes.
void Rgb24ToArgbRow(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian,
                    uint32_t alphaValue);
// channel 0 red, 1 green, 2 blue; one byte every `stride` bytes.
void Rgb24ChannelToStrideRow(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel,
                             int32_t stride);
void ArgbToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian);
void GrayStrideToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride);

// Fast variants: the same bytes. The common layouts (alpha written, one byte
// per grey or channel cell) are loops the compiler vectorises; the others go
// to the plain kernels.
void Rgb24ToArgbRowFast(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian,
                        uint32_t alphaValue);
void Rgb24ChannelToStrideRowFast(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel,
                                 int32_t stride);
void ArgbToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian);
void GrayStrideToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride);
