// Masks: whether the host keeps a mask picture for a picture, and the mask
// values held inside the picture's own pixels.
//
// The pixels a reader gives are red, green and blue only and carry no mask
// value, so every pixel counts as carrying the full mask value 255; and with no
// in-place pixel access on this platform, storing mask values changes nothing.
#include <cstdint>

#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "tone/handlers.h"

unsigned char HasMaskPicture(REALpictureStruct* picture) {
  if (!picture) return 0;
  // Asking must never make a mask.
  REALpictureStruct* mask = REALGetPictureMask(picture, false);
  if (!mask) return 0;
  REALUnlockObject(AsObject(mask));
  return 1;
}

REALpictureStruct* GetEmbededMask(REALpictureStruct* picture, unsigned char swap) {
  return RenderFromReader(picture, [swap](const PictureReader&, PictureWriter& writer) {
    // The mask value 255 shown as grey: white, or its complement black when
    // swapped. A new writer is already black.
    if (swap) return;
    for (int32_t y = 0; y < writer.height; ++y) {
      uint32_t* row = WriterRow(writer, y);
      for (int32_t x = 0; x < writer.width; ++x) row[x] = 0x00FFFFFF;
    }
  });
}

// The picture and the mask are read, the mask's reader closing first; both
// readers hold private copies of the pixels, and with no in-place access
// there is nothing through which a mask value could reach the picture: it
// stays unchanged.
void SetEmbededMask(REALpictureStruct* picture, unsigned char, REALpictureStruct* mask) {
  if (!mask) return;
  PictureReader pictureReader;
  if (!GetPictureReader(pictureReader, picture)) return;
  PictureReader maskReader;
  GetPictureReader(maskReader, mask);
}
