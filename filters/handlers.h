// The filter classes' records, registered by PluginEntry.
#pragma once

#include "plugin/host_interface.h"

extern REALclassDefinition PictureSepiaClass;
extern REALclassDefinition PictureConvolutionClass;
extern REALclassDefinition Lut3DClass;
extern REALclassDefinition PictureMatrixClass;
extern REALclassDefinition PictureMatrixClass3D;
extern REALclassDefinition FindMinMaxClass;
