// The handlers of the palettes and data exchange subsystem, named after the
// methods they register.
#pragma once

#include <cstdint>

#include "plugin/host_interface.h"

// The palette class PaletteQVT.
extern REALclassDefinition PaletteClass;

// Global palette factories.
REALobjectStruct* NewGrayPalette();
REALobjectStruct* NewRedPalette();
REALobjectStruct* NewGreenPalette();
REALobjectStruct* NewBluePalette();
REALobjectStruct* NewWebPalette();
REALobjectStruct* NewWindowsPalette();
REALobjectStruct* NewPalmPalette();
REALobjectStruct* NewSystemPalette();
REALobjectStruct* NewRBPalette(int32_t count);

// The Picture property "PaletteQVT": pictures carry no palette here.
REALobjectStruct* rbGetPalette(REALpictureStruct* picture);
void rbSetPalette(REALpictureStruct* picture, REALobjectStruct* palette);

// Picture extension methods: the picture's pixels into a block.
unsigned char CopyRGBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset);
unsigned char CopyRGBXtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                    unsigned char littleEndian, int32_t alphaValue);
unsigned char CopyRtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize);
unsigned char CopyGtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize);
unsigned char CopyBtoMemoryblock(REALpictureStruct* picture, REALmemoryBlockStruct* destination, int32_t offset,
                                 int32_t pixelByteSize);

// Global methods: a new picture from a block.
REALpictureStruct* MemoryblockRGBtoPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                           int32_t height);
REALpictureStruct* MemoryblockARGBtoPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                            int32_t height, unsigned char littleEndian);
REALpictureStruct* MemoryblockGrayToPicture(REALmemoryBlockStruct* source, int32_t offset, int32_t width,
                                            int32_t height, int32_t pixelByteSize);

// The "PPIC" binary string form of a picture.
REALstringStruct* PicturetoBinaryString(REALpictureStruct* picture);
REALpictureStruct* BinaryStringtoPicture(REALstringStruct* data);

// Native picture handles: on GTK 2 only the type and the handle word answer.
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
