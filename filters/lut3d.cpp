// PictureLut3DQVT: every pixel's colour through a three-dimensional lookup
// table. Node (r, g, b) holds the output colour for the input (17 r, 17 g,
// 17 b); colours between nodes are interpolated inside one of the six
// tetrahedra that split each cell of the grid.
#include <cstddef>
#include <iterator>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/pixel_math.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
struct Lut3DData {
  FilterPictures pictures;
  FilterRectangle rectangle;
  double table[kLutEntries];  // entry (r, g, b, x) at LutIndex(r, g, b, x)
};
#pragma pack(pop)

#if defined(__i386__)
static_assert(sizeof(Lut3DData) == 139992);
static_assert(offsetof(Lut3DData, pictures.destination) == 4);
static_assert(offsetof(Lut3DData, rectangle.minX) == 8);
static_assert(offsetof(Lut3DData, rectangle.maxY) == 20);
static_assert(offsetof(Lut3DData, table) == 24);
#endif

Lut3DData& Data(REALobjectStruct* instance) { return InstanceData<Lut3DData>(instance, Lut3DClass); }

bool InRange(int32_t r, int32_t g, int32_t b, int32_t x) {
  return static_cast<uint32_t>(r) < kLutNodes && static_cast<uint32_t>(g) < kLutNodes &&
         static_cast<uint32_t>(b) < kLutNodes && static_cast<uint32_t>(x) < 3;
}

unsigned char Run(REALobjectStruct* instance) {
  Lut3DData& data = Data(instance);
  const PackedDouble* table = data.table;
  return RunRowFilter(data.pictures, &data.rectangle, ResultRelease::kBeforeChecks,
                      [table](const uint8_t* src, uint32_t* dst, int32_t count) { Lut3DRow(src, dst, count, table); });
}

void Close(REALobjectStruct* instance) { CloseFilterPictures(Data(instance).pictures); }

// The constructor leaves the table all 0.0 as the host zeroed it.
void Construct(REALobjectStruct*) {}

double GetEntry(REALobjectStruct* instance, int32_t r, int32_t g, int32_t b, int32_t x) {
  return InRange(r, g, b, x) ? Data(instance).table[LutIndex(r, g, b, x)] : 0.0;
}

void SetEntry(REALobjectStruct* instance, int32_t r, int32_t g, int32_t b, int32_t x, double value) {
  if (InRange(r, g, b, x)) Data(instance).table[LutIndex(r, g, b, x)] = value;
}

REALpropertyDefinition properties[] = {
    FILTER_PICTURE_PROPERTIES(Lut3DData),
    FILTER_RECTANGLE_PROPERTIES(Lut3DData),
};

REALmethodDefinition methods[] = {
    {HandlerAddress(Close), nullptr, "Close", 0},
    {HandlerAddress(Run), nullptr, "Run as boolean", 0},
    {HandlerAddress(GetEntry), HandlerAddress(SetEntry),
     "Table(r as integer, g as integer, b as integer, x as integer) as double", 0},
};

}  // namespace

REALclassDefinition Lut3DClass = {
    kRecordVersion, "PictureLut3DQVT",     nullptr, sizeof(Lut3DData),  0,       Construct, Close,
    properties,     std::size(properties), methods, std::size(methods), nullptr, 0,         {}};

void Lut3DRow(const uint8_t* src, uint32_t* dst, int32_t count, const PackedDouble* table) {
  constexpr int32_t kR = LutIndex(1, 0, 0, 0);  // steps between neighbouring nodes
  constexpr int32_t kG = LutIndex(0, 1, 0, 0);
  constexpr int32_t kB = LutIndex(0, 0, 1, 0);
  for (int32_t i = 0; i < count; ++i, src += 3) {
    // The cell: lower node index and fraction per axis; the upper node is
    // held at 15, where the fraction is 0.
    const int32_t r = src[0], g = src[1], b = src[2];
    const int32_t r0 = r / 17, g0 = g / 17, b0 = b / 17;
    const int32_t rStep = r0 < 15 ? kR : 0;
    const int32_t gStep = g0 < 15 ? kG : 0;
    const int32_t bStep = b0 < 15 ? kB : 0;
    const double fr = static_cast<double>(r - 17 * r0) / 17.0;
    const double fg = static_cast<double>(g - 17 * g0) / 17.0;
    const double fb = static_cast<double>(b - 17 * b0) / 17.0;

    // The tetrahedron: the axes ordered by their fractions, first >= second
    // >= third, walking from the lower corner A one axis at a time to D.
    int32_t firstStep, secondStep;
    double f1, f2, f3;
    if (fr <= fg) {
      if (fb <= fg) {
        if (fb <= fr) {  // g >= r >= b
          firstStep = gStep, secondStep = rStep, f1 = fg, f2 = fr, f3 = fb;
        } else {  // g >= b > r
          firstStep = gStep, secondStep = bStep, f1 = fg, f2 = fb, f3 = fr;
        }
      } else {  // b > g >= r
        firstStep = bStep, secondStep = gStep, f1 = fb, f2 = fg, f3 = fr;
      }
    } else {
      if (fg <= fb) {
        if (fr <= fb) {  // b >= r > g
          firstStep = bStep, secondStep = rStep, f1 = fb, f2 = fr, f3 = fg;
        } else {  // r > b >= g
          firstStep = rStep, secondStep = bStep, f1 = fr, f2 = fb, f3 = fg;
        }
      } else {  // r > g > b
        firstStep = rStep, secondStep = gStep, f1 = fr, f2 = fg, f3 = fb;
      }
    }
    const int32_t a = LutIndex(r0, g0, b0, 0);
    const int32_t bNode = a + firstStep;
    const int32_t c = bNode + secondStep;
    const int32_t d = a + rStep + gStep + bStep;
    const double wA = 1.0 - f1, wB = f1 - f2, wC = f2 - f3, wD = f3;

    uint32_t out[3];
    for (int32_t k = 0; k < 3; ++k) {
      out[k] = ClampByte(wA * table[a + k] + wB * table[bNode + k] + wC * table[c + k] + wD * table[d + k]);
    }
    dst[i] = PackRGB(out[0], out[1], out[2]);
  }
}
