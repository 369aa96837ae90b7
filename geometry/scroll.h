// Scrolling a picture's pixels in place, with wrap-around or a white fill.
#pragma once

#include <cstdint>

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
