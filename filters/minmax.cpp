// PictureMinMaxQVT: the smallest and largest red, green, blue and sum of a
// picture, and the first pixel (in reading order) that has each. The results
// are the object's 24 Integer properties; every Find method writes only the
// triples of its own searches.
#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <utility>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
// One quantity's two triples: the maximum, then the minimum.
struct ExtremePair {
  Extreme max;
  Extreme min;
};

struct MinMaxData {
  ExtremePair quantity[4];  // red, green, blue, sum
};
#pragma pack(pop)

static_assert(sizeof(MinMaxData) == 96);
static_assert(offsetof(MinMaxData, quantity[0].min.x) == 12);
static_assert(offsetof(MinMaxData, quantity[1].max.x) == 24);
static_assert(offsetof(MinMaxData, quantity[3].max.x) == 72);
static_assert(offsetof(MinMaxData, quantity[3].min.value) == 92);

MinMaxData& Data(REALobjectStruct* instance) { return InstanceData<MinMaxData>(instance, FindMinMaxClass); }

// Searches, as bits: the maximum of quantity q is bit q, its minimum bit 4 + q.
constexpr uint32_t kMax = 1, kMin = 16;
constexpr uint32_t kRed = 0, kGreen = 1, kBlue = 2, kSum = 3;
constexpr uint32_t Both(uint32_t quantity) { return (kMax | kMin) << quantity; }
constexpr uint32_t kAllMinima = 0xF0, kAllSearches = 0xFF;

// The values a search reports when the picture cannot be read.
void ResetSearch(MinMaxSearch& search) {
  for (int32_t q = 0; q < 4; ++q) {
    search.max[q] = {-1, -1, 0};
    search.min[q] = {-1, -1, 255};
  }
}

unsigned char Find(REALobjectStruct* instance, REALpictureStruct* picture, uint32_t searches) {
  MinMaxSearch search;
  PictureReader reader;
  const bool read = picture && GetPictureReader(reader, picture);
  if (read) {
    StartMinMaxSearch(search);
    const auto row = ChooseKernel(MinMaxRow, MinMaxRowFast);
    for (int32_t y = 0; y < reader.height; ++y) row(ReaderRow(reader, y), reader.width, y, search);
  } else {
    ResetSearch(search);
  }

  MinMaxData& data = Data(instance);
  for (int32_t q = 0; q < 4; ++q) {
    if (searches & (kMax << q)) data.quantity[q].max = search.max[q];
    if (searches & (kMin << q)) data.quantity[q].min = search.min[q];
  }
  return read;
}

// One handler per Find method, each named after the searches it makes.
using O = REALobjectStruct*;
using P = REALpictureStruct*;
unsigned char FindMinMaxAll(O o, P p) { return Find(o, p, kAllSearches); }
unsigned char FindMinMaxRed(O o, P p) { return Find(o, p, Both(kRed)); }
unsigned char FindMinMaxGreen(O o, P p) { return Find(o, p, Both(kGreen)); }
unsigned char FindMinMaxBlue(O o, P p) { return Find(o, p, Both(kBlue)); }
unsigned char FindMinMaxSum(O o, P p) { return Find(o, p, Both(kSum)); }
unsigned char FindMinRed(O o, P p) { return Find(o, p, kMin << kRed); }
unsigned char FindMinGreen(O o, P p) { return Find(o, p, kMin << kGreen); }
unsigned char FindMinBlue(O o, P p) { return Find(o, p, kMin << kBlue); }
unsigned char FindMinSum(O o, P p) { return Find(o, p, kMin << kSum); }
unsigned char FindMinAll(O o, P p) { return Find(o, p, kAllMinima); }
// "FindMaxRed" and its kind make both searches of their quantity, like "FindRed".
unsigned char FindMaxRed(O o, P p) { return Find(o, p, Both(kRed)); }
unsigned char FindMaxGreen(O o, P p) { return Find(o, p, Both(kGreen)); }
unsigned char FindMaxBlue(O o, P p) { return Find(o, p, Both(kBlue)); }
unsigned char FindMaxSum(O o, P p) { return Find(o, p, Both(kSum)); }
unsigned char FindMaxAll(O o, P p) { return Find(o, p, kAllSearches); }

// The object holds no pictures: constructor, destructor and Close do nothing.
void Nothing(REALobjectStruct*) {}

#define MINMAX_PROPERTY(name, field) FILTER_FIELD(name, "Integer", offsetof(MinMaxData, field))

// The six properties of quantity q: its maximum's X, Y and value, then its
// minimum's.
#define MINMAX_QUANTITY(name, q)                                                                           \
  MINMAX_PROPERTY(name "MaxX", quantity[q].max.x), MINMAX_PROPERTY(name "MaxY", quantity[q].max.y),        \
      MINMAX_PROPERTY(name "Max", quantity[q].max.value), MINMAX_PROPERTY(name "MinX", quantity[q].min.x), \
      MINMAX_PROPERTY(name "MinY", quantity[q].min.y), MINMAX_PROPERTY(name "Min", quantity[q].min.value)

REALpropertyDefinition properties[] = {
    MINMAX_QUANTITY("Red", 0),
    MINMAX_QUANTITY("Green", 1),
    MINMAX_QUANTITY("Blue", 2),
    MINMAX_QUANTITY("Sum", 3),
};

#undef MINMAX_QUANTITY

#undef MINMAX_PROPERTY

REALmethodDefinition methods[] = {
    {HandlerAddress(FindMinMaxAll), nullptr, "FindAll(p as picture) as boolean", 0},
    {HandlerAddress(FindMinMaxRed), nullptr, "FindRed(p as picture) as boolean", 0},
    {HandlerAddress(FindMinMaxGreen), nullptr, "FindGreen(p as picture) as boolean", 0},
    {HandlerAddress(FindMinMaxBlue), nullptr, "FindBlue(p as picture) as boolean", 0},
    {HandlerAddress(FindMinMaxSum), nullptr, "FindSum(p as picture) as boolean", 0},
    {HandlerAddress(FindMinRed), nullptr, "FindMinRed(p as picture) as boolean", 0},
    {HandlerAddress(FindMinGreen), nullptr, "FindMinGreen(p as picture) as boolean", 0},
    {HandlerAddress(FindMinBlue), nullptr, "FindMinBlue(p as picture) as boolean", 0},
    {HandlerAddress(FindMinSum), nullptr, "FindMinSum(p as picture) as boolean", 0},
    {HandlerAddress(FindMinAll), nullptr, "FindMinAll(p as picture) as boolean", 0},
    {HandlerAddress(FindMaxRed), nullptr, "FindMaxRed(p as picture) as boolean", 0},
    {HandlerAddress(FindMaxGreen), nullptr, "FindMaxGreen(p as picture) as boolean", 0},
    {HandlerAddress(FindMaxBlue), nullptr, "FindMaxBlue(p as picture) as boolean", 0},
    {HandlerAddress(FindMaxSum), nullptr, "FindMaxSum(p as picture) as boolean", 0},
    {HandlerAddress(FindMaxAll), nullptr, "FindMaxAll(p as picture) as boolean", 0},
    {HandlerAddress(Nothing), nullptr, "Close", 0},
};

}  // namespace

REALclassDefinition FindMinMaxClass = {
    kRecordVersion, "PictureMinMaxQVT",    nullptr, sizeof(MinMaxData), 0,       Nothing, Nothing,
    properties,     std::size(properties), methods, std::size(methods), nullptr, 0,       {}};

void StartMinMaxSearch(MinMaxSearch& search) {
  ResetSearch(search);
  search.min[3].value = 3 * 255 + 1;  // above every sum: the first pixel replaces it
}

void MinMaxRow(const uint8_t* src, int32_t width, int32_t y, MinMaxSearch& search) {
  for (int32_t x = 0; x < width; ++x, src += 3) {
    const int32_t value[4] = {src[0], src[1], src[2], src[0] + src[1] + src[2]};
    for (int32_t q = 0; q < 4; ++q) {
      if (value[q] > search.max[q].value) search.max[q] = {x, y, value[q]};
      if (value[q] < search.min[q].value) search.min[q] = {x, y, value[q]};
    }
  }
}

namespace {

// The largest and smallest red, green, blue and sum of a row.
PICTURE_VECTOR_CLONES
void RowExtremes(const uint8_t* __restrict src, int32_t width, int32_t largest[4], int32_t smallest[4]) {
  int32_t hr = 0, hg = 0, hb = 0, hs = 0;
  int32_t lr = 255, lg = 255, lb = 255, ls = 3 * 255;
  for (int32_t x = 0; x < width; ++x) {
    const int32_t r = src[3 * x], g = src[3 * x + 1], b = src[3 * x + 2], s = r + g + b;
    hr = std::max(hr, r), hg = std::max(hg, g), hb = std::max(hb, b), hs = std::max(hs, s);
    lr = std::min(lr, r), lg = std::min(lg, g), lb = std::min(lb, b), ls = std::min(ls, s);
  }
  largest[0] = hr, largest[1] = hg, largest[2] = hb, largest[3] = hs;
  smallest[0] = lr, smallest[1] = lg, smallest[2] = lb, smallest[3] = ls;
}

int32_t Quantity(const uint8_t* p, int32_t q) { return q < 3 ? p[q] : p[0] + p[1] + p[2]; }

// The first pixel of the row whose quantity q is `value` (one exists).
int32_t FirstWith(const uint8_t* src, int32_t width, int32_t q, int32_t value) {
  for (int32_t x = 0; x < width; ++x)
    if (Quantity(src + 3 * x, q) == value) return x;
  return 0;
}

}  // namespace

// Walking the row pixel by pixel, a held maximum ends as the row's largest
// value, at its first pixel, when that is strictly larger, and is kept
// otherwise; likewise the minimum. So only those rows are walked again.
void MinMaxRowFast(const uint8_t* src, int32_t width, int32_t y, MinMaxSearch& search) {
  if (width <= 0) return;
  int32_t largest[4], smallest[4];
  RowExtremes(src, width, largest, smallest);
  for (int32_t q = 0; q < 4; ++q) {
    if (largest[q] > search.max[q].value) search.max[q] = {FirstWith(src, width, q, largest[q]), y, largest[q]};
    if (smallest[q] < search.min[q].value) search.min[q] = {FirstWith(src, width, q, smallest[q]), y, smallest[q]};
  }
}
