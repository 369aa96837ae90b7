// The tone subsystem's handlers, registered under their own names:
// brightness, contrast, custom curves and inversion; automatic levels;
// colour counting and remapping; embedded masks (Picture extension methods,
// the picture first); blending, combining and tinting (global methods).
// Picture methods return a new picture, or nil when they cannot do their work.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as
// picture" and "ChangeBrightnessAbsoluteQVT(x as double) as picture"; the
// same pair for ChangeBrightnessLinearQVT and ChangeContrastQVT (xr, xg, xb).
REALpictureStruct* AbsBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b);
REALpictureStruct* AbsBrightnessPicture1(REALpictureStruct* picture, double x);
REALpictureStruct* LinBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b);
REALpictureStruct* LinBrightnessPicture1(REALpictureStruct* picture, double x);
REALpictureStruct* ContrastPicture3(REALpictureStruct* picture, double xr, double xg, double xb);
REALpictureStruct* ContrastPicture1(REALpictureStruct* picture, double x);
// "ChangeCustomQVT(a as double, b as double) as picture".
REALpictureStruct* TransformPicture(REALpictureStruct* picture, double a, double b);
// "InvertPicture(left as integer,top as integer,width as integer,height as
// integer) as picture".
REALpictureStruct* InvertPicture(REALpictureStruct* picture, int32_t left, int32_t top, int32_t width, int32_t height);
// "AutoLevelQVT as picture".
REALpictureStruct* AutoLevelPicture(REALpictureStruct* picture);

// "CountColorQVT(col as color) as integer", "CountColorsQVT(byref red as
// memoryblock, byref blue as memoryblock, byref green as memoryblock, byref
// count as integer)", "TransformColorsQVT(red as memoryblock, blue as
// memoryblock, green as memoryblock) as picture".
int32_t CountColorQVT(REALpictureStruct* picture, uint32_t col);
void CountColorsQVT(REALpictureStruct* picture, REALmemoryBlockStruct** red, REALmemoryBlockStruct** blue,
                    REALmemoryBlockStruct** green, int32_t* count);
REALpictureStruct* TransformColorsQVT(REALpictureStruct* picture, REALmemoryBlockStruct* red,
                                      REALmemoryBlockStruct* blue, REALmemoryBlockStruct* green);

// "HasMaskQVT as boolean"; the getter and setter of "EmbeddedMaskQVT(swap as
// boolean) as picture".
unsigned char HasMaskPicture(REALpictureStruct* picture);
REALpictureStruct* GetEmbededMask(REALpictureStruct* picture, unsigned char swap);
void SetEmbededMask(REALpictureStruct* picture, unsigned char swap, REALpictureStruct* mask);

// "BlendPicture(source as picture, sourcepercent as double, dest as
// picture, destpercent as double) as picture", "BlendPictureMask(source
// as picture, dest as picture, mask as picture) as picture",
// "CombinePicturesQVT(red as picture, blue as picture, green as picture) as
// picture", "TintPicture(source as picture, GreyBase as color, SepiaBase as
// color) as picture".
REALpictureStruct* BlendPicture(REALpictureStruct* source, double sourcepercent, REALpictureStruct* dest,
                                double destpercent);
REALpictureStruct* BlendPictureMask(REALpictureStruct* source, REALpictureStruct* dest, REALpictureStruct* mask);
REALpictureStruct* CombinePicturesQVT(REALpictureStruct* red, REALpictureStruct* blue, REALpictureStruct* green);
REALpictureStruct* TintPicture(REALpictureStruct* source, uint32_t greyBase, uint32_t sepiaBase);
