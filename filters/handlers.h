// The filter classes' records, registered by PluginEntry.
#pragma once

#include "plugin/host_interface.h"

extern REALclassDefinition PictureSepiaQVTClass;
extern REALclassDefinition PictureConvolutionQVTClass;
extern REALclassDefinition PictureLut3DQVTClass;
extern REALclassDefinition PictureMatrixQVTClass;
extern REALclassDefinition PictureMatrix3DQVTClass;
extern REALclassDefinition PictureMinMaxQVTClass;
