// Native picture handles. On GTK 2 only the picture type and its handle can
// be asked for; the handle methods of other platforms answer nil, 0 or
// nothing.
#include "exchange/handlers.h"

#include "plugin/host_calls.h"

namespace {

// The description the host fills when the picture is locked. Without a lock
// entry point the host fills nothing, and the zeroed description answers
// type 0, handle 0.
REALpictureDescription DescriptionOf(REALpictureStruct* picture) {
  REALpictureDescription description{};
  REALLockPictureDescription(picture, &description);
  REALUnlockPictureDescription(picture);
  return description;
}

}  // namespace

int32_t PictureDataType(REALpictureStruct* picture) {
  if (!picture) return -1;
  return DescriptionOf(picture).pictureType;
}

// The handle word as a 32-bit integer: on a 64-bit build only the address's
// low 32 bits fit in the host's integer.
int32_t PictureDataHandle(REALpictureStruct* picture) {
  if (!picture) return -1;
  const auto address = reinterpret_cast<uintptr_t>(DescriptionOf(picture).pictureData);
  return static_cast<int32_t>(static_cast<uint32_t>(address));
}

REALpictureStruct* PichandlePicture(REALpictureStruct*) { return nullptr; }

REALstringStruct* PichandlePictureData(REALpictureStruct*) { return nullptr; }

int32_t ClonePictureToHBITMAP(REALpictureStruct*) { return 0; }

REALpictureStruct* BuildPictureWithPicHandleData(REALstringStruct*) { return nullptr; }

REALpictureStruct* BuildPictureWithGWorldHandle(int32_t, unsigned char) { return nullptr; }

void Paintdesktop(REALgraphicsStruct*) {}

extern "C" void SelectGraphics(REALgraphicsStruct*) {}
