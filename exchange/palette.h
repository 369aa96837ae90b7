// The palette class PaletteQVT: a count and 256 colour words, filled by hand
// or by the factories, exposed as a memory block and turned into pictures of
// the depth the count needs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "plugin/host_interface.h"

// The instance data of a palette, 1032 bytes on every platform.
#pragma pack(push, 4)
struct PaletteRecord {
  int32_t count;        // number of meaningful colours, 256 after construction
  int32_t reserved;     // -1 after construction, otherwise unused
  uint32_t colors[256]; // 0x00RRGGBB in machine byte order
};
#pragma pack(pop)

static_assert(sizeof(PaletteRecord) == 1032);
static_assert(offsetof(PaletteRecord, reserved) == 4);
static_assert(offsetof(PaletteRecord, colors) == 8);

extern REALclassDefinition PaletteClass;

extern const uint32_t WinColors[256];
extern const uint32_t PalmColors[256];

// Class members.
void PaletteConstructor(REALobjectStruct* instance);
void PaletteDestructor(REALobjectStruct* instance);
uint32_t GetPalColor(REALobjectStruct* instance, int32_t index);
void SetPalColor(REALobjectStruct* instance, int32_t index, uint32_t color);
REALmemoryBlockStruct* GetMemBlock(REALobjectStruct* instance);
int32_t CountColors(REALobjectStruct* instance);
REALpictureStruct* NewPalPicture(REALobjectStruct* instance, int32_t width, int32_t height);

// Global factories.
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

// Kernels on the record, shared by the handlers and the tests.
int32_t DistinctColorCount(const PaletteRecord& palette);
int32_t PictureDepthForCount(int32_t count);  // 1, 2, 4 or 8; 0 when the count allows none
void FillWebColors(uint32_t* colors);        // 256 entries
