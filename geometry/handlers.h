// The geometry subsystem's handlers, registered as Picture extension methods
// under their own names: right-angle turns and mirrors, rotation by any
// angle, scaling, scrolling. The picture methods return a new picture, or nil
// when they cannot do their work.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// "Rotate90QVT as picture", "Rotate180QVT as picture", "Rotate270 as
// picture", "HMirror as picture", "VMirror as picture". They overload
// the names of their kernels (geometry/kernels.h), so registration picks
// them with this type.
using PictureTurn = REALpictureStruct* (*)(REALpictureStruct*);
REALpictureStruct* Rotate90(REALpictureStruct* picture);
REALpictureStruct* Rotate180(REALpictureStruct* picture);
REALpictureStruct* Rotate270(REALpictureStruct* picture);
REALpictureStruct* HMirror(REALpictureStruct* picture);
REALpictureStruct* VMirror(REALpictureStruct* picture);

// "RotateQVT(angle as double,background as color) as picture". Angles are in
// degrees, positive counterclockwise as displayed.
REALpictureStruct* Rotate(REALpictureStruct* picture, double angle, uint32_t background);

// "ScalePicture(width as integer, height as integer, AntiAlias as boolean) as
// picture".
REALpictureStruct* ScalePicture(REALpictureStruct* picture, int32_t width, int32_t height, unsigned char antiAlias);

// "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as
// boolean) as boolean", "ScrollVerticalQVT(...)" and "ScrollQVT(deltaX as
// integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as
// boolean". Positive deltas would move the content right or down.
unsigned char ScrollHorizontalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                  unsigned char scrollmask);
unsigned char ScrollVerticalQVT(REALpictureStruct* picture, int32_t delta, unsigned char wrap,
                                unsigned char scrollmask);
unsigned char ScrollQVT(REALpictureStruct* picture, int32_t deltaX, int32_t deltaY, unsigned char wrap,
                        unsigned char scrollmask);
