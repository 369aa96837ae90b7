// The row kernels of the memory-block and binary-string conversions, with
// their plain and fast forms, and the fixed palette table, as the tests and
// benchmarks use them.
#pragma once

#include <cstdint>

// Row kernels. `src` is a reader row (3 bytes per pixel), `dst` a writer row
// (0x00RRGGBB words) or a block row.
void Rgb24ToBlockRgbRow(const uint8_t* src, uint8_t* dst, int32_t width);
// alphaValue above 255 (taken as unsigned) leaves the block's alpha bytes.
void Rgb24ToArgbRow(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian, uint32_t alphaValue);
// channel 0 red, 1 green, 2 blue; one byte every `stride` bytes.
void Rgb24ChannelToStrideRow(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel, int32_t stride);
void ArgbToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian);
void GrayStrideToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride);

// Fast variants: the same bytes. The common layouts (alpha written, one byte
// per grey or channel cell) are loops the compiler vectorises; the others go
// to the plain kernels.
void Rgb24ToArgbRowFast(const uint8_t* src, uint8_t* dst, int32_t width, bool littleEndian, uint32_t alphaValue);
void Rgb24ChannelToStrideRowFast(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channel, int32_t stride);
void ArgbToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, bool littleEndian);
void GrayStrideToXrgbRowFast(const uint8_t* src, uint32_t* dst, int32_t width, int32_t stride);

// The Palm palette: a 6 x 6 x 6 colour cube walked red, blue, green (green
// fastest), without black, then greys and a few extra colours.
extern const uint32_t PalmColors[256];
