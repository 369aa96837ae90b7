// The handlers of the palettes and data exchange subsystem, named after the
// methods they register.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// The palette class PaletteQVT.
extern REALclassDefinition PaletteQVTClass;

// Global palette factories.
REALobjectStruct* NewGrayPaletteQVT();
REALobjectStruct* NewRedPaletteQVT();
REALobjectStruct* NewGreenPaletteQVT();
REALobjectStruct* NewBluePaletteQVT();
REALobjectStruct* NewWebPaletteQVT();
REALobjectStruct* NewWindowsPaletteQVT();
REALobjectStruct* NewPalmPaletteQVT();
REALobjectStruct* NewSystemPaletteQVT();
REALobjectStruct* NewPaletteQVT(int32_t count);

// The Picture property "PaletteQVT": pictures carry no palette here.
REALobjectStruct* GetPaletteQVT(REALpictureStruct* picture);
void SetPaletteQVT(REALpictureStruct* picture, REALobjectStruct* palette);

// Picture extension methods: the picture's pixels into a block.
unsigned char CopyRGBtoMemoryblockQVT(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                      int32_t offset);
unsigned char CopyARGBtoMemoryblockQVT(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                       int32_t offset, unsigned char littleEndian, int32_t alphaValue);
unsigned char CopyRtoMemoryblockQVT(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                    int32_t offset, int32_t pixelByteSize);
unsigned char CopyGtoMemoryblockQVT(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                    int32_t offset, int32_t pixelByteSize);
unsigned char CopyBtoMemoryblockQVT(REALpictureStruct* picture, REALmemoryBlockStruct* destination,
                                    int32_t offset, int32_t pixelByteSize);

// Global methods: a new picture from a block.
REALpictureStruct* MemoryblockRGBtoPictureQVT(REALmemoryBlockStruct* source, int32_t offset,
                                              int32_t width, int32_t height);
REALpictureStruct* MemoryblockARGBtoPictureQVT(REALmemoryBlockStruct* source, int32_t offset,
                                               int32_t width, int32_t height, unsigned char littleEndian);
REALpictureStruct* MemoryblockGrayToPictureQVT(REALmemoryBlockStruct* source, int32_t offset,
                                               int32_t width, int32_t height, int32_t pixelByteSize);

// The "PPIC" binary string form of a picture.
REALstringStruct* PicturetoBinaryStringQVT(REALpictureStruct* picture);
REALpictureStruct* BinaryStringtoPictureQVT(REALstringStruct* data);

// Native picture handles: on GTK 2 only the type and the handle word answer.
int32_t DataTypeQVT(REALpictureStruct* picture);
int32_t DataHandleQVT(REALpictureStruct* picture);
REALpictureStruct* PicHandleQVT(REALpictureStruct* picture);
REALstringStruct* PicHandleDataQVT(REALpictureStruct* picture);
int32_t MakeHBITMAPQVT(REALpictureStruct* picture);
REALpictureStruct* BuildPictureWithPicHandleDataQVT(REALstringStruct* data);
REALpictureStruct* BuildPictureWithGWorldHandleQVT(int32_t handle, unsigned char byPassOwnership);
void PaintDesktopQVT(REALgraphicsStruct* graphics);

// Exported for code that selects a graphics port by name; does nothing here.
extern "C" __attribute__((visibility("default"))) void SelectGraphics(REALgraphicsStruct* graphics);
