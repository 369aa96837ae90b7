// The pixels subsystem's handlers, registered as Picture extension methods
// under their own names.
#pragma once

#include "plugin/host_interface.h"

// "CloneQVT as picture": a new 32-bit picture the host draws the picture
// into. "BitmapQVT as picture": the same picture with a reference of its own.
REALpictureStruct* ClonePicture(REALpictureStruct* picture);
REALpictureStruct* BitmapPicture(REALpictureStruct* picture);
