// The registration tables and the registration sequence. The records are
// static, writable data: the host keeps pointers to them for the life of the
// process and writes the instance-data offset into each class record.
#include <iterator>

#include "exchange/handlers.h"
#include "filters/handlers.h"
#include "geometry/handlers.h"
#include "pixels/handlers.h"
#include "plugin/registration.h"
#include "tone/handlers.h"

// Extension of the host class "graphics".
REALmethodDefinition graphicsMethods[] = {
    {HandlerAddress(Paintdesktop), nullptr, "PaintDesktopQVT", 0},
};

// Extension of the host class "Picture", in the order of its method list.
REALmethodDefinition PictureExtensionMethods[] = {
    {HandlerAddress(ScrollVerticalQVT), nullptr,
     "ScrollVerticalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {HandlerAddress(ScrollHorizontalQVT), nullptr,
     "ScrollHorizontalQVT(delta as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {HandlerAddress(ScrollQVT), nullptr,
     "ScrollQVT(deltaX as integer, deltaY as integer, wrap as boolean, scrollmask as boolean) as boolean", 0},
    {HandlerAddress(HasMaskPicture), nullptr, "HasMaskQVT as boolean", 0},
    {HandlerAddress(AbsBrightnessPicture3), nullptr,
     "ChangeBrightnessAbsoluteQVT(r as double, g as double, b as double) as picture", 0},
    {HandlerAddress(LinBrightnessPicture3), nullptr,
     "ChangeBrightnessLinearQVT(r as double, g as double, b as double) as picture", 0},
    {HandlerAddress(AbsBrightnessPicture1), nullptr, "ChangeBrightnessAbsoluteQVT(x as double) as picture", 0},
    {HandlerAddress(LinBrightnessPicture1), nullptr, "ChangeBrightnessLinearQVT(x as double) as picture", 0},
    {HandlerAddress(TransformPicture), nullptr, "ChangeCustomQVT(a as double, b as double) as picture", 0},
    {HandlerAddress(ContrastPicture1), nullptr, "ChangeContrastQVT(x as double) as picture", 0},
    {HandlerAddress(ContrastPicture3), nullptr,
     "ChangeContrastQVT(xr as double, xg as double, xb as double) as picture", 0},
    {HandlerAddress(rbGetPalette), HandlerAddress(rbSetPalette), "PaletteQVT as PaletteQVT", 0},
    {HandlerAddress(PictureDataType), nullptr, "DataTypeQVT as integer", 0},
    {HandlerAddress(PictureDataHandle), nullptr, "DataHandleQVT as integer", 0},
    {HandlerAddress(ClonePictureToHBITMAP), nullptr, "MakeHBITMAPQVT as integer", 0},
    {HandlerAddress(InvertPicture), nullptr,
     "InvertQVT(left as integer,top as integer,width as integer,height as integer) as picture", 0},
    {HandlerAddress(static_cast<PictureTurn>(Rotate90)), nullptr, "Rotate90QVT as picture", 0},
    {HandlerAddress(static_cast<PictureTurn>(Rotate180)), nullptr, "Rotate180QVT as picture", 0},
    {HandlerAddress(static_cast<PictureTurn>(Rotate270)), nullptr, "Rotate270QVT as picture", 0},
    {HandlerAddress(Rotate), nullptr, "RotateQVT(angle as double,background as color) as picture", 0},
    {HandlerAddress(static_cast<PictureTurn>(VMirror)), nullptr, "VMirrorQVT as picture", 0},
    {HandlerAddress(static_cast<PictureTurn>(HMirror)), nullptr, "HMirrorQVT as picture", 0},
    {HandlerAddress(ClonePicture), nullptr, "CloneQVT as picture", 0},
    {HandlerAddress(BitmapPicture), nullptr, "BitmapQVT as picture", 0},
    {HandlerAddress(ScalePicture), nullptr,
     "ScaleQVT(width as integer, height as integer, AntiAlias as boolean) as picture", 0},
    {HandlerAddress(GetEmbededMask), HandlerAddress(SetEmbededMask), "EmbeddedMaskQVT(swap as boolean) as picture", 0},
    {HandlerAddress(PichandlePicture), nullptr, "PicHandleQVT as picture", 0},
    {HandlerAddress(AutoLevelPicture), nullptr, "AutoLevelQVT as picture", 0},
    {HandlerAddress(PichandlePictureData), nullptr, "PicHandleDataQVT as string", 0},
    {HandlerAddress(CountColorQVT), nullptr, "CountColorQVT(col as color) as integer", 0},
    {HandlerAddress(CountColorsQVT), nullptr,
     "CountColorsQVT(byref red as memoryblock, byref blue as memoryblock, byref green as memoryblock, byref count as integer)",
     0},
    {HandlerAddress(TransformColorsQVT), nullptr,
     "TransformColorsQVT(red as memoryblock, blue as memoryblock, green as memoryblock) as picture", 0},
    {HandlerAddress(CopyRGBtoMemoryblock), nullptr,
     "CopyRGBtoMemoryblockQVT(destination as memoryblock, offset as integer) as boolean", 0},
    {HandlerAddress(CopyRGBXtoMemoryblock), nullptr,
     "CopyARGBtoMemoryblockQVT(destination as memoryblock, offset as integer, LittleEndian as boolean, AlphaValue as integer) as boolean",
     0},
    {HandlerAddress(CopyRtoMemoryblock), nullptr,
     "CopyRtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
    {HandlerAddress(CopyGtoMemoryblock), nullptr,
     "CopyGtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
    {HandlerAddress(CopyBtoMemoryblock), nullptr,
     "CopyBtoMemoryblockQVT(destination as memoryblock, offset as integer, PixelByteSize as integer) as boolean", 0},
};

// Global methods, in registration order.
REALmethodDefinition GlobalMethods[] = {
    {HandlerAddress(MemoryblockRGBtoPicture), nullptr,
     "MemoryblockRGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer) as picture",
     0},
    {HandlerAddress(MemoryblockARGBtoPicture), nullptr,
     "MemoryblockARGBtoPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, LittleEndian as boolean) as picture",
     0},
    {HandlerAddress(MemoryblockGrayToPicture), nullptr,
     "MemoryblockGrayToPictureQVT(source as memoryblock, offset as integer, width as integer, height as integer, PixelByteSize as integer) as picture",
     0},
    {HandlerAddress(BuildPictureWithPicHandleData), nullptr,
     "BuildPictureWithPicHandleDataQVT(data as string) as picture", 0},
    {HandlerAddress(BuildPictureWithGWorldHandle), nullptr,
     "BuildPictureWithGWorldHandleQVT(handle as integer, ByPassOwernerShip as boolean) as picture", 0},
    {HandlerAddress(NewGrayPalette), nullptr, "NewGrayPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewWebPalette), nullptr, "NewWebPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewRedPalette), nullptr, "NewRedPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewGreenPalette), nullptr, "NewGreenPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewBluePalette), nullptr, "NewBluePaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewSystemPalette), nullptr, "NewSystemPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewWindowsPalette), nullptr, "NewWindowsPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewPalmPalette), nullptr, "NewPalmPaletteQVT as PaletteQVT", 0},
    {HandlerAddress(NewRBPalette), nullptr, "NewPaletteQVT(count as integer) as PaletteQVT", 0},
    {HandlerAddress(BinaryStringtoPicture), nullptr, "BinaryStringtoPictureQVT(data as String) as Picture", 0},
    {HandlerAddress(PicturetoBinaryString), nullptr, "PicturetoBinaryStringQVT(p as picture) as string", 0},
    {HandlerAddress(CombinePicturesQVT), nullptr,
     "CombinePicturesQVT(red as picture, blue as picture, green as picture) as picture", 0},
    {HandlerAddress(BlendPicture), nullptr,
     "BlendPicturesQVT(source as picture, sourcepercent as double, dest as picture, destpercent as double) as picture",
     0},
    {HandlerAddress(BlendPictureMask), nullptr,
     "BlendPicturesWithMaskQVT(source as picture, dest as picture, mask as picture) as picture", 0},
    {HandlerAddress(TintPicture), nullptr,
     "TintPictureQVT(source as picture, GreyBase as color, SepiaBase as color) as picture", 0},
};
const uint32_t GlobalMethodCount = sizeof GlobalMethods / sizeof(REALmethodDefinition);

REALclassDefinition graphicseClass = {kRecordVersion,
                                      "graphics",
                                      nullptr,
                                      0,
                                      0,
                                      nullptr,
                                      nullptr,
                                      nullptr,
                                      0,
                                      graphicsMethods,
                                      sizeof graphicsMethods / sizeof(REALmethodDefinition),
                                      nullptr,
                                      0,
                                      {}};

REALclassDefinition PictureExtensionClass = {kRecordVersion,
                                             "Picture",
                                             nullptr,
                                             0,
                                             0,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             0,
                                             PictureExtensionMethods,
                                             std::size(PictureExtensionMethods),
                                             nullptr,
                                             0,
                                             {}};

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
