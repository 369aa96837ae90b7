// PictureLut3DQVT: every pixel's colour through a three-dimensional lookup
// table. Node (r, g, b) holds the output colour for the input (17 r, 17 g,
// 17 b); colours between nodes are interpolated inside one of the six
// tetrahedra that split each cell of the grid.
#include <cstddef>
#include <cstring>
#include <iterator>
#include <memory>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
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
  if (PlainKernels()) {
    return RunRowFilter(data.pictures, &data.rectangle, ResultRelease::kBeforeChecks,
                        [table](const uint8_t* src, uint32_t* dst, int32_t count) { Lut3DRow(src, dst, count, table); });
  }
  // The plan is about 240 KB: on the heap, made once per run.
  const std::unique_ptr<Lut3DPlan> plan(new Lut3DPlan);
  PrepareLut3D(*plan, table);
  const Lut3DPlan& p = *plan;
  return RunRowFilter(data.pictures, &data.rectangle, ResultRelease::kBeforeChecks,
                      [&p](const uint8_t* src, uint32_t* dst, int32_t count) { Lut3DRowFast(src, dst, count, p); });
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

namespace {

constexpr int32_t kR = LutIndex(1, 0, 0, 0);  // steps between neighbouring nodes
constexpr int32_t kG = LutIndex(0, 1, 0, 0);
constexpr int32_t kB = LutIndex(0, 0, 1, 0);

// One pixel's tetrahedron: the offsets of corners B, C and D from corner A,
// and the weights of A, B, C and D.
struct Tetrahedron {
  int32_t b, c, d;
  double weight[4];
};

// qr, qg, qb: the components' remainders above their lower nodes (0..16);
// rStep, gStep, bStep: the step to the upper node on each axis, 0 where the
// upper node is held at 15 (there the remainder is 0).
Tetrahedron FindTetrahedron(int32_t qr, int32_t qg, int32_t qb, int32_t rStep, int32_t gStep, int32_t bStep) {
  const double fr = static_cast<double>(qr) / 17.0;
  const double fg = static_cast<double>(qg) / 17.0;
  const double fb = static_cast<double>(qb) / 17.0;
  // The axes ordered by their fractions, first >= second >= third, walking
  // from the lower corner A one axis at a time to D.
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
  return {firstStep, firstStep + secondStep, rStep + gStep + bStep, {1.0 - f1, f1 - f2, f2 - f3, f3}};
}

// The upper node is held at 15, where the remainder is 0.
int32_t Step(int32_t lowerNode, int32_t step) { return lowerNode < 15 ? step : 0; }

}  // namespace

void Lut3DRow(const uint8_t* src, uint32_t* dst, int32_t count, const PackedDouble* table) {
  for (int32_t i = 0; i < count; ++i, src += 3) {
    const int32_t r = src[0], g = src[1], b = src[2];
    const int32_t r0 = r / 17, g0 = g / 17, b0 = b / 17;
    const Tetrahedron t =
        FindTetrahedron(r - 17 * r0, g - 17 * g0, b - 17 * b0, Step(r0, kR), Step(g0, kG), Step(b0, kB));
    const int32_t a = LutIndex(r0, g0, b0, 0);
    const double* w = t.weight;
    uint32_t out[3];
    for (int32_t k = 0; k < 3; ++k) {
      out[k] = ClampByte(w[0] * table[a + k] + w[1] * table[a + t.b + k] + w[2] * table[a + t.c + k] +
                         w[3] * table[a + t.d + k]);
    }
    dst[i] = PackRGB(out[0], out[1], out[2]);
  }
}

void PrepareLut3D(Lut3DPlan& plan, const PackedDouble* table) {
  plan.table = table;
  // A value's class on its axis: its remainder, or 17 for 255.
  constexpr int32_t kClassScale[3] = {18 * 18, 18, 1};
  constexpr int32_t kNodeStep[3] = {kR, kG, kB};
  for (int32_t axis = 0; axis < 3; ++axis) {
    for (int32_t v = 0; v < 256; ++v) {
      const uint32_t cls = static_cast<uint32_t>(v == 255 ? 17 : v % 17);
      plan.axis[axis][v] = cls * kClassScale[axis] << 16 | static_cast<uint32_t>(v / 17 * kNodeStep[axis]);
    }
  }
  for (int32_t cr = 0; cr < 18; ++cr) {
    for (int32_t cg = 0; cg < 18; ++cg) {
      for (int32_t cb = 0; cb < 18; ++cb) {
        // Class 17 is the value 255: remainder 0, no upper step.
        const Tetrahedron t = FindTetrahedron(cr % 17, cg % 17, cb % 17, cr < 17 ? kR : 0, cg < 17 ? kG : 0,
                                              cb < 17 ? kB : 0);
        const int32_t cls = (cr * 18 + cg) * 18 + cb;
        std::memcpy(plan.weight[cls], t.weight, sizeof t.weight);
        plan.corner[cls][0] = static_cast<int16_t>(t.b);
        plan.corner[cls][1] = static_cast<int16_t>(t.c);
        plan.corner[cls][2] = static_cast<int16_t>(t.d);
        plan.corner[cls][3] = 0;
      }
    }
  }
}

namespace {

typedef double Doubles4 __attribute__((vector_size(32)));
typedef int64_t Mask4 __attribute__((vector_size(32)));
typedef int32_t Ints4 __attribute__((vector_size(16)));
typedef uint8_t Bytes16 __attribute__((vector_size(16)));

// A node's three entries and the next node's first (unused): the table goes
// on for two more nodes past node 15 on every axis, so the fourth is there.
struct Node {
  Doubles4 v;
  explicit Node(const PackedDouble* entry) { std::memcpy(&v, entry, sizeof v); }
};

}  // namespace

PICTURE_VECTOR_CLONES
void Lut3DRowFast(const uint8_t* src, uint32_t* dst, int32_t count, const Lut3DPlan& plan) {
  const PackedDouble* table = plan.table;
  const Doubles4 top = {255.0, 255.0, 255.0, 255.0}, zero = {0.0, 0.0, 0.0, 0.0};
  for (int32_t i = 0; i < count; ++i, src += 3) {
    const uint32_t key = plan.axis[0][src[0]] + plan.axis[1][src[1]] + plan.axis[2][src[2]];
    const uint32_t cls = key >> 16;
    const PackedDouble* a = table + (key & 0xFFFF);
    const double* w = plan.weight[cls];
    const int16_t* corner = plan.corner[cls];
    // The sum in the plain kernel's order: A, B, C, D.
    const Doubles4 v = w[0] * Node(a).v + w[1] * Node(a + corner[0]).v + w[2] * Node(a + corner[1]).v +
                       w[3] * Node(a + corner[2]).v;
    // Clamped as ClampByte does: 255 and above give 255, NaN and below 0 give 0.
    const Mask4 high = v >= top, positive = v > zero;
    const Doubles4 clamped = positive ? (high ? top : v) : zero;
    // The low bytes of the three values (0..255) into bytes 2, 1 and 0 of the
    // word; byte 3 is a high byte of the first value, 0.
    Bytes16 bytes;
    const Ints4 values = __builtin_convertvector(clamped, Ints4);
    std::memcpy(&bytes, &values, sizeof bytes);
    const Bytes16 word = __builtin_shufflevector(bytes, bytes, 8, 4, 0, 3, 8, 4, 0, 3, 8, 4, 0, 3, 8, 4, 0, 3);
    std::memcpy(dst + i, &word, sizeof dst[i]);
  }
}
