// The registration tables and the registration sequence. The records are
// static, writable data: the host keeps pointers to them for the life of the
// process and writes the instance-data offset into each class record.
#include <iterator>

#include "exchange/exchange.h"
#include "filters/filters.h"
#include "geometry/handlers.h"
#include "pixels/handlers.h"
#include "plugin/registration.h"
#include "tone/handlers.h"

namespace {

template <typename Fn>
void* Handler(Fn* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace

// Extension of the host class "graphics".
REALmethodDefinition graphicsMethods[] = {
    {Handler(Paintdesktop), nullptr, "PaintDesktopQVT", 0},
};

// Extension of the host class "Picture", in the order of its method list.
REALmethodDefinition PictureExtensionMethods[] = {
    {Handler(ScrollVerticalQVT), nullptr,
     "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(ScrollHorizontalQVT), nullptr,
     "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(ScrollQVT), nullptr,
     "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {Handler(HasMaskQVT), nullptr, "HasMaskQVT as boolean", 0},
    {Handler(ChangeBrightnessAbsoluteQVT3), nullptr,
     "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture", 0},
    {Handler(ChangeBrightnessLinearQVT3), nullptr,
     "ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture", 0},
    {Handler(ChangeBrightnessAbsoluteQVT1), nullptr, "ChangeBrightnessAbsoluteQVT(x as double) as picture", 0},
    {Handler(ChangeBrightnessLinearQVT1), nullptr, "ChangeBrightnessLinearQVT(x as double) as picture", 0},
    {Handler(ChangeCustomQVT), nullptr, "ChangeCustomQVT(a as double, b as double) as picture", 0},
    {Handler(ChangeContrastQVT1), nullptr, "ChangeContrastQVT(x as double) as picture", 0},
    {Handler(ChangeContrastQVT3), nullptr, "ChangeContrastQVT(xr as double, xg as double, xb as double) as picture", 0},
    {Handler(rbGetPalette), Handler(rbSetPalette), "PaletteQVT as PaletteQVT", 0},
    {Handler(PictureDataType), nullptr, "DataTypeQVT as integer", 0},
    {Handler(PictureDataHandle), nullptr, "DataHandleQVT as integer", 0},
    {Handler(ClonePictureToHBITMAP), nullptr, "MakeHBITMAPQVT as integer", 0},
    {Handler(InvertQVT), nullptr,
     "InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture", 0},
    {Handler(Rotate90QVT), nullptr, "Rotate90QVT as picture", 0},
    {Handler(Rotate180QVT), nullptr, "Rotate180QVT as picture", 0},
    {Handler(Rotate270QVT), nullptr, "Rotate270QVT as picture", 0},
    {Handler(RotateQVT), nullptr, "RotateQVT(angle as double,background as color) as picture", 0},
    {Handler(VMirrorQVT), nullptr, "VMirrorQVT as picture", 0},
    {Handler(HMirrorQVT), nullptr, "HMirrorQVT as picture", 0},
    {Handler(CloneQVT), nullptr, "CloneQVT as picture", 0},
    {Handler(BitmapQVT), nullptr, "BitmapQVT as picture", 0},
    {Handler(ScaleQVT), nullptr,
     "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture", 0},
    {Handler(GetEmbeddedMaskQVT), Handler(SetEmbeddedMaskQVT), "EmbeddedMaskQVT(swap as boolean) as picture", 0},
    {Handler(PichandlePicture), nullptr, "PicHandleQVT as picture", 0},
    {Handler(AutoLevelQVT), nullptr, "AutoLevelQVT as picture", 0},
    {Handler(PichandlePictureData), nullptr, "PicHandleDataQVT as string", 0},
    {Handler(CountColorQVT), nullptr, "CountColorQVT(col as color) as integer", 0},
    {Handler(CountColorsQVT), nullptr,
     "CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)",
     0},
    {Handler(TransformColorsQVT), nullptr,
     "TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture", 0},
    {Handler(CopyRGBtoMemoryblock), nullptr,
     "CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean", 0},
    {Handler(CopyRGBXtoMemoryblock), nullptr,
     "CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean",
     0},
    {Handler(CopyRtoMemoryblock), nullptr,
     "CopyRtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
    {Handler(CopyGtoMemoryblock), nullptr,
     "CopyGtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
    {Handler(CopyBtoMemoryblock), nullptr,
     "CopyBtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
};

// Global methods, in registration order.
REALmethodDefinition GlobalMethods[] = {
    {Handler(MemoryblockRGBtoPicture), nullptr,
     "MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture",
     0},
    {Handler(MemoryblockARGBtoPicture), nullptr,
     "MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture",
     0},
    {Handler(MemoryblockGrayToPicture), nullptr,
     "MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture",
     0},
    {Handler(BuildPictureWithPicHandleData), nullptr, "BuildPictureWithPicHandleDataQVT(data as string) as picture", 0},
    {Handler(BuildPictureWithGWorldHandle), nullptr,
     "BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture", 0},
    {Handler(NewGrayPalette), nullptr, "NewGrayPaletteQVT as PaletteQVT", 0},
    {Handler(NewWebPalette), nullptr, "NewWebPaletteQVT as PaletteQVT", 0},
    {Handler(NewRedPalette), nullptr, "NewRedPaletteQVT as PaletteQVT", 0},
    {Handler(NewGreenPalette), nullptr, "NewGreenPaletteQVT as PaletteQVT", 0},
    {Handler(NewBluePalette), nullptr, "NewBluePaletteQVT as PaletteQVT", 0},
    {Handler(NewSystemPalette), nullptr, "NewSystemPaletteQVT as PaletteQVT", 0},
    {Handler(NewWindowsPalette), nullptr, "NewWindowsPaletteQVT as PaletteQVT", 0},
    {Handler(NewPalmPalette), nullptr, "NewPalmPaletteQVT as PaletteQVT", 0},
    {Handler(NewRBPalette), nullptr, "NewPaletteQVT(count as integer) as PaletteQVT", 0},
    {Handler(BinaryStringtoPicture), nullptr, "BinaryStringtoPictureQVT(data as String) as Picture", 0},
    {Handler(PicturetoBinaryString), nullptr, "PicturetoBinaryStringQVT(p as picture) as string", 0},
    {Handler(CombinePicturesQVT), nullptr,
     "CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture", 0},
    {Handler(BlendPicturesQVT), nullptr,
     "BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture",
     0},
    {Handler(BlendPicturesWithMaskQVT), nullptr,
     "BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture", 0},
    {Handler(TintPictureQVT), nullptr,
     "TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture", 0},
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
  REALRegisterClass(&PictureSepiaClass);
  REALRegisterClass(&PictureConvolutionClass);
  REALRegisterClass(&Lut3DClass);
  REALRegisterClass(&PaletteClass);
  REALRegisterClass(&PictureMatrixClass);
  REALRegisterClass(&PictureMatrixClass3D);
  REALRegisterClassExtension(&graphicseClass);
  REALRegisterClassExtension(&PictureExtensionClass);
  for (uint32_t i = 0; i < GlobalMethodCount; ++i) REALRegisterMethod(&GlobalMethods[i]);
  // Last: the minimum and maximum finder.
  REALRegisterClass(&FindMinMaxClass);
}
