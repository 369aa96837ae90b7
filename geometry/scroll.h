// Scrolling a picture's pixels in place, with wrap-around or a white fill,
// through a PictureEditor (4 bytes per pixel, rows rowBytes apart). This
// platform gives no editor, so the handlers only report; the shifting steps
// below work on any editor-shaped buffer.
#pragma once

#include <cstdint>

#include "pixels/picture_access.h"
#include "plugin/host_interface.h"

// Handlers of "ScrollHorizontalQVT(delta as integer, wrap as boolean,
// scrollmask as boolean) as boolean", "ScrollVerticalQVT(...)" and
// "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean,
// scrollmask as boolean) as boolean". Positive deltas move the content right
// or down.
unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                  unsigned char scrollmask);
unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                unsigned char scrollmask);
unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask);

// A short turn equivalent to `delta` on a line of `length` pixels (or rows):
// r = delta rem length (the sign of delta); with h = length div 2, r >= h
// becomes r - length, and then r <= -h becomes r + length. 0 means nothing
// moves; otherwise 0 < |r| < length. A positive r turns right (or down).
int32_t WrapOffset(int32_t delta, int32_t length);

// Row kernels; a pixel is 4 bytes.
// Turns a row of `width` pixels right by r (r > 0) or left by -r (r < 0),
// 0 < |r| < width, through `scratch` of at least `width` pixels.
void WrapRowPixels(uint8_t* row, int32_t width, int32_t r, uint8_t* scratch);
// Moves the row's pixels `delta` places right (delta > 0) or left (delta < 0),
// 0 < |delta| < width, and fills the vacated pixels with 0xFF bytes.
void ShiftRowPixels(uint8_t* row, int32_t width, int32_t delta);

// The shifting steps over an open editor. Each reports as its method does:
// the horizontal shift is true even when its scratch row cannot be allocated
// (nothing moves then); the vertical shift is false in that case.
bool ShiftEditorHorizontal(const PictureEditor& editor, int32_t delta, bool wrap);
bool ShiftEditorVertical(const PictureEditor& editor, int32_t delta, bool wrap);
// Sets every byte of the editor's H x rowBytes bytes to 0xFF.
void FillEditorWhite(const PictureEditor& editor);
