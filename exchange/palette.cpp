// The palette class PaletteQVT: a count and 256 colour words, filled by hand
// or by the factories, exposed as a memory block and turned into pictures of
// the depth the count needs.
#include <cstddef>
#include <cstring>
#include <iterator>

#include "exchange/handlers.h"
#include "exchange/kernels.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "plugin/registration.h"

namespace {

// The instance data of a palette, 1032 bytes on every platform.
#pragma pack(push, 4)
struct PaletteRecord {
  int32_t count;         // number of meaningful colours, 256 after construction
  int32_t reserved;      // -1 after construction, otherwise unused
  uint32_t colors[256];  // 0x00RRGGBB in machine byte order
};
#pragma pack(pop)

static_assert(sizeof(PaletteRecord) == 1032);
static_assert(offsetof(PaletteRecord, reserved) == 4);
static_assert(offsetof(PaletteRecord, colors) == 8);

PaletteRecord& Palette(REALobjectStruct* instance) { return InstanceData<PaletteRecord>(instance, PaletteClass); }

// Every index selects one of the 256 entries: only its low 8 bits count.
uint32_t EntryOf(int32_t index) { return static_cast<uint32_t>(index) & 0xFF; }

// A new palette made by the host (constructor run), or nil.
REALobjectStruct* NewPaletteInstance() { return REALnewInstance("PaletteQVT"); }

// A factory whose entry i is `colorOf(i)`.
template <typename ColorOf>
REALobjectStruct* NewRampPalette(ColorOf colorOf) {
  REALobjectStruct* instance = NewPaletteInstance();
  if (!instance) return nullptr;
  PaletteRecord& palette = Palette(instance);
  palette.count = 256;
  for (uint32_t i = 0; i < 256; ++i) palette.colors[i] = colorOf(i);
  return instance;
}

REALobjectStruct* NewTablePalette(const uint32_t* table) {
  REALobjectStruct* instance = NewPaletteInstance();
  if (!instance) return nullptr;
  PaletteRecord& palette = Palette(instance);
  palette.count = 256;
  std::memcpy(palette.colors, table, sizeof palette.colors);
  return instance;
}

// The number of distinct colours among the first `count` entries.
int32_t DistinctColorCount(const PaletteRecord& palette) {
  const int32_t n = palette.count > 256 ? 256 : palette.count;
  if (n <= 1) return n;
  // An entry counts once: only when no later entry repeats it.
  int32_t repeats = 0;
  for (int32_t i = 0; i < n - 1; ++i) {
    for (int32_t j = i + 1; j < n; ++j) {
      if (palette.colors[i] == palette.colors[j]) {
        ++repeats;
        break;
      }
    }
  }
  return n - repeats;
}

// 1, 2, 4 or 8 bits a pixel; 0 when the count allows none.
int32_t PictureDepthForCount(int32_t count) {
  if (count < 1 || count > 256) return 0;
  if (count <= 2) return 1;
  if (count <= 4) return 2;
  if (count <= 16) return 4;
  return 8;
}

// The 256 entries of the web palette.
void FillWebColors(uint32_t* colors) {
  // The 6 x 6 x 6 cube of the levels 0, 0x33, ... 0xFF from white down to
  // black; entries 216 to 255 stay black.
  for (uint32_t i = 0; i < 256; ++i) colors[i] = 0;
  for (uint32_t r = 0; r < 6; ++r) {
    for (uint32_t g = 0; g < 6; ++g) {
      for (uint32_t b = 0; b < 6; ++b) {
        colors[215 - (36 * r + 6 * g + b)] = (0x33 * r << 16) | (0x33 * g << 8) | (0x33 * b);
      }
    }
  }
}

void PaletteConstructor(REALobjectStruct* instance) {
  PaletteRecord& palette = Palette(instance);
  palette.count = 256;
  palette.reserved = -1;
}

// The palette holds no host objects: nothing to release, so "Close" and the
// destructor are empty.
void PaletteDestructor(REALobjectStruct*) {}

uint32_t GetPalColor(REALobjectStruct* instance, int32_t index) { return Palette(instance).colors[EntryOf(index)]; }

void SetPalColor(REALobjectStruct* instance, int32_t index, uint32_t color) {
  Palette(instance).colors[EntryOf(index)] = color;
}

// A view on the colour entries, not a copy: writing the block changes the
// palette, and the block must not outlive it.
REALmemoryBlockStruct* GetMemBlock(REALobjectStruct* instance) {
  return REALPtrToMemoryBlock(Palette(instance).colors);
}

int32_t CountColors(REALobjectStruct* instance) { return DistinctColorCount(Palette(instance)); }

// A picture of the depth the count needs; the colours themselves are not
// applied to it.
REALpictureStruct* NewPalPicture(REALobjectStruct* instance, int32_t width, int32_t height) {
  const int32_t depth = PictureDepthForCount(Palette(instance).count);
  if (depth == 0 || !FitsHostPicture(width, height)) return nullptr;
  return REALNewPicture(width, height, depth);
}

REALpropertyDefinition PaletteClassProperties[] = {
    {nullptr, "Count", "Integer", 0, kStandardAccessor, kStandardAccessor, offsetof(PaletteRecord, count), {}},
};

REALmethodDefinition PaletteClassMethods[] = {
    {HandlerAddress(GetPalColor), HandlerAddress(SetPalColor), "Col(i as integer) as color", 0},
    {HandlerAddress(GetMemBlock), nullptr, "Mem as Memoryblock", 0},
    {HandlerAddress(CountColors), nullptr, "CountColors as integer", 0},
    {HandlerAddress(PaletteDestructor), nullptr, "Close", 0},
    {HandlerAddress(NewPalPicture), nullptr, "NewPicture(width as integer,height as integer) as picture", 0},
};

}  // namespace

REALclassDefinition PaletteClass = {kRecordVersion,
                                    "PaletteQVT",
                                    nullptr,
                                    sizeof(PaletteRecord),
                                    0,
                                    PaletteConstructor,
                                    PaletteDestructor,
                                    PaletteClassProperties,
                                    std::size(PaletteClassProperties),
                                    PaletteClassMethods,
                                    std::size(PaletteClassMethods),
                                    nullptr,
                                    0,
                                    {}};

// A fixed table of 256 distinct colours: named colours, greys, and ramps of
// twelve shades and twelve tints of each hue.
// clang-format off
constexpr uint32_t WinColors[256] = {
    // 0-29: named colours
    0xFFFFFF, 0x808080, 0x800000, 0x808000, 0x008000, 0x008080, 0x000080, 0x800080,
    0x808040, 0x004040, 0x0080FF, 0x004080, 0x4000FF, 0x804000, 0xC0C0C0, 0xFF0000,
    0xFFFF00, 0x00FF00, 0x00FFFF, 0x0000FF, 0xFF00FF, 0xFFFF80, 0x00FF80, 0x80FFFF,
    0x8080FF, 0xFF0080, 0xFF8040, 0xC0DCC0, 0xA6CAF0, 0xA4C8F0,
    // 30-40: greys
    0x939393, 0x9D9D9D, 0xA7A7A7, 0xB0B0B0, 0xBABABA, 0xC4C4C4, 0xCECECE, 0xD7D7D7,
    0xE1E1E1, 0xEBEBEB, 0xF5F5F5,
    // 41-64: green ramp
    0x031303, 0x062706, 0x093A09, 0x0C4E0C, 0x0F620F, 0x127512, 0x158915, 0x189C18,
    0x1BB01B, 0x1EC41E, 0x21D721, 0x24EB24, 0x38FF38, 0x49FF49, 0x59FF59, 0x6AFF6A,
    0x7AFF7A, 0x8BFF8B, 0x9BFF9B, 0xACFFAC, 0xBCFFBC, 0xCDFFCD, 0xDDFFDD, 0xEEFFEE,
    // 65-88: blue ramp
    0x030313, 0x060627, 0x09093A, 0x0C0C4E, 0x0F0F62, 0x121275, 0x151589, 0x18189C,
    0x1B1BB0, 0x1E1EC4, 0x2121D7, 0x2424EB, 0x3838FF, 0x4949FF, 0x5959FF, 0x6A6AFF,
    0x7A7AFF, 0x8B8BFF, 0x9B9BFF, 0xACACFF, 0xBCBCFF, 0xCDCDFF, 0xDDDDFF, 0xEEEEFF,
    // 89-112: yellow ramp
    0x131303, 0x272706, 0x3A3A09, 0x4E4E0C, 0x62620F, 0x757512, 0x898915, 0x9C9C18,
    0xB0B01B, 0xC4C41E, 0xD7D721, 0xEBEB24, 0xFFFF38, 0xFFFF49, 0xFFFF59, 0xFFFF6A,
    0xFFFF7A, 0xFFFF8B, 0xFFFF9B, 0xFFFFAC, 0xFFFFBC, 0xFFFFCD, 0xFFFFDD, 0xFFFFEE,
    // 113-136: violet ramp
    0x0D0313, 0x1B0627, 0x29093A, 0x370C4E, 0x450F62, 0x531275, 0x601589, 0x6E189C,
    0x7C1BB0, 0x8A1EC4, 0x9821D7, 0xA624EB, 0xB938FF, 0xBF49FF, 0xC559FF, 0xCB6AFF,
    0xD07AFF, 0xD68BFF, 0xDC9BFF, 0xE2ACFF, 0xE7BCFF, 0xEDCDFF, 0xF3DDFF, 0xF9EEFF,
    // 137-160: cyan ramp
    0x031313, 0x062727, 0x093A3A, 0x0C4E4E, 0x0F6262, 0x127575, 0x158989, 0x189C9C,
    0x1BB0B0, 0x1EC4C4, 0x21D7D7, 0x24EBEB, 0x38FFFF, 0x49FFFF, 0x59FFFF, 0x6AFFFF,
    0x7AFFFF, 0x8BFFFF, 0x9BFFFF, 0xACFFFF, 0xBCFFFF, 0xCDFFFF, 0xDDFFFF, 0xEEFFFF,
    // 161-184: orange ramp
    0x120A03, 0x241506, 0x372009, 0x492B0C, 0x5C350F, 0x6E4012, 0x814B15, 0x935618,
    0xA6601B, 0xB86B1E, 0xCB7621, 0xDD8124, 0xF19438, 0xF29D49, 0xF3A659, 0xF4AF6A,
    0xF5B87A, 0xF6C18B, 0xF8C99B, 0xF9D2AC, 0xFADBBC, 0xFBE4CD, 0xFCEDDD, 0xFDF6EE,
    // 185-208: red ramp
    0x130303, 0x270606, 0x3A0909, 0x4E0C0C, 0x620F0F, 0x751212, 0x891515, 0x9C1818,
    0xB01B1B, 0xC41E1E, 0xD72121, 0xEB2424, 0xFF3838, 0xFF4949, 0xFF5959, 0xFF6A6A,
    0xFF7A7A, 0xFF8B8B, 0xFF9B9B, 0xFFACAC, 0xFFBCBC, 0xFFCDCD, 0xFFDDDD, 0xFFEEEE,
    // 209-231: brown ramp
    0x120C08, 0x251810, 0x382419, 0x4A3021, 0x5D3C29, 0x704832, 0x82543A, 0x956042,
    0xA86C4B, 0xBA7853, 0xCD845B, 0xE2986F, 0xE4A17B, 0xE7A987, 0xE9B293, 0xEBBA9F,
    0xEEC3AB, 0xF0CBB7, 0xF3D4C3, 0xF5DCCF, 0xF7E5DB, 0xFAEDE7, 0xFCF6F3,
    // 232-240: blue-grey ramp
    0x121418, 0x242830, 0x363C48, 0x485060, 0x757D8E, 0x9197A5, 0xACB1BB, 0xC8CBD2,
    0xE3E5E8,
    // 241-250: green-grey ramp
    0x10140F, 0x21281E, 0x323C2D, 0x42503C, 0x53644B, 0x7D8E75, 0x97A591, 0xB1BBAC,
    0xCBD2C8, 0xE5E8E3,
    // 251-255: last entries
    0x0B0404, 0x72837C, 0xFFFBF0, 0xA0A0A4, 0x000000,
};

// The Palm table: a 6 x 6 x 6 colour cube walked red, blue, green (green
// fastest), without black, then greys and a few extra colours.
const uint32_t PalmColors[256] = {
    // 0-107: red, blue FF CC 99, green (fastest) FF down to 00
    0xFFFFFF, 0xFFCCFF, 0xFF99FF, 0xFF66FF, 0xFF33FF, 0xFF00FF, 0xFFFFCC, 0xFFCCCC,
    0xFF99CC, 0xFF66CC, 0xFF33CC, 0xFF00CC, 0xFFFF99, 0xFFCC99, 0xFF9999, 0xFF6699,
    0xFF3399, 0xFF0099, 0xCCFFFF, 0xCCCCFF, 0xCC99FF, 0xCC66FF, 0xCC33FF, 0xCC00FF,
    0xCCFFCC, 0xCCCCCC, 0xCC99CC, 0xCC66CC, 0xCC33CC, 0xCC00CC, 0xCCFF99, 0xCCCC99,
    0xCC9999, 0xCC6699, 0xCC3399, 0xCC0099, 0x99FFFF, 0x99CCFF, 0x9999FF, 0x9966FF,
    0x9933FF, 0x9900FF, 0x99FFCC, 0x99CCCC, 0x9999CC, 0x9966CC, 0x9933CC, 0x9900CC,
    0x99FF99, 0x99CC99, 0x999999, 0x996699, 0x993399, 0x990099, 0x66FFFF, 0x66CCFF,
    0x6699FF, 0x6666FF, 0x6633FF, 0x6600FF, 0x66FFCC, 0x66CCCC, 0x6699CC, 0x6666CC,
    0x6633CC, 0x6600CC, 0x66FF99, 0x66CC99, 0x669999, 0x666699, 0x663399, 0x660099,
    0x33FFFF, 0x33CCFF, 0x3399FF, 0x3366FF, 0x3333FF, 0x3300FF, 0x33FFCC, 0x33CCCC,
    0x3399CC, 0x3366CC, 0x3333CC, 0x3300CC, 0x33FF99, 0x33CC99, 0x339999, 0x336699,
    0x333399, 0x330099, 0x00FFFF, 0x00CCFF, 0x0099FF, 0x0066FF, 0x0033FF, 0x0000FF,
    0x00FFCC, 0x00CCCC, 0x0099CC, 0x0066CC, 0x0033CC, 0x0000CC, 0x00FF99, 0x00CC99,
    0x009999, 0x006699, 0x003399, 0x000099,
    // 108-214: the same walk with blue 66 33 00, without black
    0xFFFF66, 0xFFCC66, 0xFF9966, 0xFF6666, 0xFF3366, 0xFF0066, 0xFFFF33, 0xFFCC33,
    0xFF9933, 0xFF6633, 0xFF3333, 0xFF0033, 0xFFFF00, 0xFFCC00, 0xFF9900, 0xFF6600,
    0xFF3300, 0xFF0000, 0xCCFF66, 0xCCCC66, 0xCC9966, 0xCC6666, 0xCC3366, 0xCC0066,
    0xCCFF33, 0xCCCC33, 0xCC9933, 0xCC6633, 0xCC3333, 0xCC0033, 0xCCFF00, 0xCCCC00,
    0xCC9900, 0xCC6600, 0xCC3300, 0xCC0000, 0x99FF66, 0x99CC66, 0x999966, 0x996666,
    0x993366, 0x990066, 0x99FF33, 0x99CC33, 0x999933, 0x996633, 0x993333, 0x990033,
    0x99FF00, 0x99CC00, 0x999900, 0x996600, 0x993300, 0x990000, 0x66FF66, 0x66CC66,
    0x669966, 0x666666, 0x663366, 0x660066, 0x66FF33, 0x66CC33, 0x669933, 0x666633,
    0x663333, 0x660033, 0x66FF00, 0x66CC00, 0x669900, 0x666600, 0x663300, 0x660000,
    0x33FF66, 0x33CC66, 0x339966, 0x336666, 0x333366, 0x330066, 0x33FF33, 0x33CC33,
    0x339933, 0x336633, 0x333333, 0x330033, 0x33FF00, 0x33CC00, 0x339900, 0x336600,
    0x333300, 0x330000, 0x00FF66, 0x00CC66, 0x009966, 0x006666, 0x003366, 0x000066,
    0x00FF33, 0x00CC33, 0x009933, 0x006633, 0x003333, 0x000033, 0x00FF00, 0x00CC00,
    0x009900, 0x006600, 0x003300,
    // 215-224: greys
    0x111111, 0x222222, 0x444444, 0x555555, 0x777777, 0x888888, 0xAAAAAA, 0xBBBBBB,
    0xDDDDDD, 0xEEEEEE,
    // 225-229: extra colours
    0xCCCCCC, 0x880000, 0x880088, 0x008800, 0x008888,
    // 230-255: unused, black
    0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000,
    0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000,
    0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000, 0x000000,
    0x000000, 0x000000,
};
// clang-format on

// --- Factories --------------------------------------------------------------------

REALobjectStruct* NewGrayPalette() {
  return NewRampPalette([](uint32_t i) { return (i << 16) | (i << 8) | i; });
}

REALobjectStruct* NewRedPalette() {
  return NewRampPalette([](uint32_t i) { return i << 16; });
}

REALobjectStruct* NewGreenPalette() {
  return NewRampPalette([](uint32_t i) { return i << 8; });
}

REALobjectStruct* NewBluePalette() {
  return NewRampPalette([](uint32_t i) { return i; });
}

REALobjectStruct* NewWebPalette() {
  REALobjectStruct* instance = NewPaletteInstance();
  if (!instance) return nullptr;
  PaletteRecord& palette = Palette(instance);
  palette.count = 256;
  FillWebColors(palette.colors);
  return instance;
}

REALobjectStruct* NewWindowsPalette() { return NewTablePalette(WinColors); }

REALobjectStruct* NewPalmPalette() { return NewTablePalette(PalmColors); }

// There is no system palette on this platform.
REALobjectStruct* NewSystemPalette() { return nullptr; }

// `count` palette entries as given (any value), all black.
REALobjectStruct* NewRBPalette(int32_t count) {
  REALobjectStruct* instance = NewPaletteInstance();
  if (!instance) return nullptr;
  Palette(instance).count = count;
  return instance;
}

REALobjectStruct* rbGetPalette(REALpictureStruct*) { return nullptr; }

void rbSetPalette(REALpictureStruct*, REALobjectStruct*) {}
