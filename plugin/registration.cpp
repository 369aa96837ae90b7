// The registration tables and the registration sequence. The records are
// static, writable data: the host keeps pointers to them for the life of the
// process and writes the instance-data offset into each class record.
#include <iterator>

#include "geometry/geometry.h"
#include "pixels/picture_access.h"
#include "plugin/registration.h"

namespace {

template <typename Fn>
void* Handler(Fn* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace

// Extension of the host class "graphics".
REALmethodDefinition graphicsMethods[] = {
};

// Extension of the host class "Picture", in the order of its method list.
REALmethodDefinition PictureExtensionMethods[] = {
    {Handler(ScrollVerticalQVT), nullptr,
     "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(ScrollHorizontalQVT), nullptr,
     "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(ScrollQVT), nullptr,
     "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(static_cast<PictureTurn>(Rotate90)), nullptr, "Rotate90QVT as picture", 0},
    {Handler(static_cast<PictureTurn>(Rotate180)), nullptr, "Rotate180QVT as picture", 0},
    {Handler(static_cast<PictureTurn>(Rotate270)), nullptr, "Rotate270QVT as picture", 0},
    {Handler(Rotate), nullptr, "RotateQVT(angle as double,background as color) as picture", 0},
    {Handler(static_cast<PictureTurn>(VMirror)), nullptr, "VMirrorQVT as picture", 0},
    {Handler(static_cast<PictureTurn>(HMirror)), nullptr, "HMirrorQVT as picture", 0},
    {Handler(ClonePicture), nullptr, "CloneQVT as picture", 0},
    {Handler(BitmapPicture), nullptr, "BitmapQVT as picture", 0},
    {Handler(ScalePicture), nullptr,
     "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture", 0},
};

// Global methods, in registration order.
REALmethodDefinition GlobalMethods[] = {
};
const uint32_t GlobalMethodCount = sizeof GlobalMethods / sizeof(REALmethodDefinition);

REALclassDefinition graphicseClass = {
    kRecordVersion, "graphics", nullptr, 0, 0, nullptr, nullptr, nullptr, 0,
    graphicsMethods, sizeof graphicsMethods / sizeof(REALmethodDefinition), nullptr, 0, {}};

REALclassDefinition PictureExtensionClass = {
    kRecordVersion, "Picture", nullptr, 0, 0, nullptr, nullptr, nullptr, 0,
    PictureExtensionMethods, std::size(PictureExtensionMethods), nullptr, 0, {}};

void PluginEntry() {
  PluginStart("Picture");
  // Classes: sepia, convolution, lookup table, palette, matrix, matrix 3D.
  REALRegisterClassExtension(&graphicseClass);
  REALRegisterClassExtension(&PictureExtensionClass);
  for (uint32_t i = 0; i < GlobalMethodCount; ++i) REALRegisterMethod(&GlobalMethods[i]);
  // Last: the minimum and maximum finder.
}
