// Native picture handles. On GTK 2 only the picture type and its handle can
// be asked for; the handle methods of other platforms answer nil, 0 or
// nothing.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

int32_t PictureDataType(REALpictureStruct* picture);
int32_t PictureDataHandle(REALpictureStruct* picture);
REALpictureStruct* PichandlePicture(REALpictureStruct* picture);
REALstringStruct* PichandlePictureData(REALpictureStruct* picture);
int32_t ClonePictureToHBITMAP(REALpictureStruct* picture);
REALpictureStruct* BuildPictureWithPicHandleData(REALstringStruct* data);
REALpictureStruct* BuildPictureWithGWorldHandle(int32_t handle, unsigned char byPassOwnership);
void Paintdesktop(REALgraphicsStruct* graphics);

// Exported for code that selects a graphics port by name; does nothing here.
extern "C" __attribute__((visibility("default"))) void SelectGraphics(REALgraphicsStruct* graphics);
