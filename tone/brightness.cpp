// Brightness, contrast, custom curves and inversion.
//
// Every output channel depends only on the same channel of the same source
// pixel, so each method builds one 256-entry table per channel, once per call,
// with exactly the arithmetic of the method's per-pixel formula, and the
// pixel work is a table lookup. The tables hold the very values the
// per-pixel formula would give.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "pixels/pixel_math.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

uint8_t TruncateLow8(double v) {
  if (!std::isfinite(v)) return 0;
  // fmod is exact, so this is the true remainder of the truncated value.
  double r = std::fmod(std::trunc(v), 256.0);
  if (r < 0.0) r += 256.0;
  return static_cast<uint8_t>(static_cast<int32_t>(r));
}

void AbsBrightnessTable(double d, uint8_t table[256]) {
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampByte(static_cast<double>(s) + d);
}

void LinBrightnessTable(double d, uint8_t table[256]) {
  // Factor and offset once per channel; 0 counts as a brightening amount.
  const double factor = (255.0 - std::fabs(d)) / 255.0;
  const double offset = d < 0.0 ? 0.0 : d;
  for (int32_t s = 0; s < 256; ++s) table[s] = TruncateLow8(static_cast<double>(s) * factor + offset);
}

void ContrastTable(double d, uint8_t table[256]) {
  const double slope = 1.0 + d;
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampByte((static_cast<double>(s) - 127.0) * slope + 127.0);
}

void LinearCurveTable(double a, double b, uint8_t table[256]) {
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampByte(static_cast<double>(s) * a + b);
}

void ChannelTableRow(const uint8_t* src, uint32_t* dst, int32_t width, const ChannelMap& map) {
  const uint8_t *red = map.table[0], *green = map.table[1], *blue = map.table[2];
  for (int32_t x = 0; x < width; ++x, src += 3) dst[x] = PackRGB(red[src[0]], green[src[1]], blue[src[2]]);
}

// ---- Tables as lines ---------------------------------------------------------
//
// Most tables are a straight line clamped to 0..255. Such a table is computed
// instead of looked up: (s * slope + offset) >> 16 in 32-bit integers, then
// clamped, vectorises, and a lookup does not. The line is fitted to the
// table's own 256 entries and then checked against all of them, so the words
// are the table's whatever arithmetic made the table.

namespace {

constexpr int64_t kUnbounded = int64_t{1} << 60;

// For a slope, the offsets that give every entry lie in [*low, *high]:
// entry v needs v << 16 <= s * slope + offset < (v + 1) << 16, except that 0
// also takes anything below and 255 anything above.
void OffsetRange(const uint8_t table[256], int64_t slope, int64_t* low, int64_t* high) {
  *low = -kUnbounded;
  *high = kUnbounded;
  for (int64_t s = 0; s < 256; ++s) {
    const int64_t v = table[s];
    if (v > 0) *low = std::max(*low, (v << 16) - s * slope);
    if (v < 255) *high = std::min(*high, (v << 16) + 65535 - s * slope);
  }
}

int32_t LineValue(int32_t s, const TableLine& line) {
  return static_cast<int32_t>(ClampByte((s * line.slope + line.offset) >> 16));  // an arithmetic shift: floor
}

}  // namespace

bool FitTableLine(const uint8_t table[256], TableLine* line) {
  // The width of the offset range, high - low, is a concave function of the
  // slope (a minimum of lines less a maximum of lines): a ternary search finds
  // its largest value, and a line exists when that is not negative.
  constexpr int64_t kSlopeLimit = int64_t{1} << 23;  // keeps 255 * slope in 32 bits
  auto width = [&](int64_t slope) {
    int64_t low, high;
    OffsetRange(table, slope, &low, &high);
    return high - low;
  };
  int64_t a = -kSlopeLimit, b = kSlopeLimit;
  while (b - a > 2) {
    const int64_t m1 = a + (b - a) / 3, m2 = b - (b - a) / 3;
    if (width(m1) < width(m2)) {
      a = m1 + 1;
    } else {
      b = m2;
    }
  }
  int64_t slope = a;
  for (int64_t m = a + 1; m <= b; ++m)
    if (width(m) > width(slope)) slope = m;
  int64_t low, high;
  OffsetRange(table, slope, &low, &high);
  if (high < low) return false;
  // Any offset in the range will do; one that keeps every sum in 32 bits.
  const int64_t offset = low > -kUnbounded ? low : high < kUnbounded ? high : 0;
  if (offset + 255 * std::max<int64_t>(slope, 0) > INT32_MAX ||
      offset + 255 * std::min<int64_t>(slope, 0) < INT32_MIN || offset > INT32_MAX || offset < INT32_MIN) {
    return false;
  }
  line->slope = static_cast<int32_t>(slope);
  line->offset = static_cast<int32_t>(offset);
  for (int32_t s = 0; s < 256; ++s)
    if (LineValue(s, *line) != table[s]) return false;
  return true;
}

namespace {

PICTURE_VECTOR_CLONES
void LineChannelRow(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width, TableLine red,
                    TableLine green, TableLine blue) {
  for (int32_t x = 0; x < width; ++x) {
    int32_t r = (src[3 * x] * red.slope + red.offset) >> 16;
    int32_t g = (src[3 * x + 1] * green.slope + green.offset) >> 16;
    int32_t b = (src[3 * x + 2] * blue.slope + blue.offset) >> 16;
    r = r < 0 ? 0 : r > 255 ? 255 : r;
    g = g < 0 ? 0 : g > 255 ? 255 : g;
    b = b < 0 ? 0 : b > 255 ? 255 : b;
    dst[x] = (static_cast<uint32_t>(r) << 16) | (static_cast<uint32_t>(g) << 8) | static_cast<uint32_t>(b);
  }
}

// A shift is three byte operations on the channel bytes of a word, which
// vector units do 16 bytes (or more) at once: s ^ flip, then
// min(v, 255 - up) + up (an addition of up >= 0 that stops at 255), then
// max(v, down) - down (a subtraction of down >= 0 that stops at 0). Each
// operation is left out where no channel needs it.
struct ShiftBytes {
  ByteVector16 flip, limit, up, down;
};

template <bool kFlip, bool kUp, bool kDown>
PICTURE_VECTOR_CLONES void ShiftRow(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width,
                                    const ShiftBytes& bytes, const ChannelMap& map) {
  const ByteVector16 flip = bytes.flip, limit = bytes.limit, up = bytes.up, down = bytes.down;
  const uint8_t *red = map.table[0], *green = map.table[1], *blue = map.table[2];
  SpreadPixels(
      src, reinterpret_cast<uint8_t*>(dst), width, 0,
      [&](ByteVector16 in, ByteVector16 zero) {
        ByteVector16 v = __builtin_shufflevector(in, zero, 2, 1, 0, 16, 5, 4, 3, 16, 8, 7, 6, 16, 11, 10, 9, 16);
        if (kFlip) v ^= flip;
        if (kUp) v = (v < limit ? v : limit) + up;
        if (kDown) v = (v > down ? v : down) - down;
        return v;
      },
      [&](const uint8_t* p) { return PackRGB(red[p[0]], green[p[1]], blue[p[2]]); });
}

void ShiftChannelRow(const uint8_t* src, uint32_t* dst, int32_t width, const ChannelMap& map) {
  ShiftBytes bytes = {};
  __builtin_memset(&bytes.limit, 255, sizeof bytes.limit);
  bool flip = false, up = false, down = false;
  for (int32_t c = 0; c < 3; ++c) {
    const TableShift& shift = map.shift[c];
    const auto u = static_cast<uint8_t>(shift.amount > 0 ? shift.amount : 0);
    const auto d = static_cast<uint8_t>(shift.amount < 0 ? -shift.amount : 0);
    flip = flip || shift.flip, up = up || u, down = down || d;
    for (int32_t byte = 2 - c; byte < 16; byte += 4) {  // red in byte 2 of each word, blue in byte 0
      bytes.flip[byte] = shift.flip;
      bytes.limit[byte] = static_cast<uint8_t>(255 - u);
      bytes.up[byte] = u;
      bytes.down[byte] = d;
    }
  }
  using Row = void (*)(const uint8_t*, uint32_t*, int32_t, const ShiftBytes&, const ChannelMap&);
  static constexpr Row kRows[8] = {ShiftRow<false, false, false>, ShiftRow<false, false, true>,
                                   ShiftRow<false, true, false>,  ShiftRow<false, true, true>,
                                   ShiftRow<true, false, false>,  ShiftRow<true, false, true>,
                                   ShiftRow<true, true, false>,   ShiftRow<true, true, true>};
  kRows[4 * flip + 2 * up + down](src, dst, width, bytes, map);
}

}  // namespace

bool FitTableShift(const uint8_t table[256], TableShift* shift) {
  for (const int32_t flip : {0, 255}) {
    // The amount from the first entry not clamped: at s ^ flip = 0, or 255.
    const int32_t first = table[flip], last = table[255 ^ flip];
    const int32_t amount = first > 0 ? first : last < 255 ? last - 255 : 0;
    bool fits = true;
    for (int32_t s = 0; s < 256 && fits; ++s) fits = ClampByte((s ^ flip) + amount) == table[s];
    if (fits) {
      *shift = {static_cast<uint8_t>(flip), amount};
      return true;
    }
  }
  return false;
}

ChannelMap MakeChannelMap(const uint8_t* red, const uint8_t* green, const uint8_t* blue) {
  ChannelMap map = {{red, green, blue}, ChannelMap::Form::kLookup, {}, {}};
  bool shifts = true, lines = true;
  for (int32_t c = 0; c < 3; ++c) {
    shifts = shifts && FitTableShift(map.table[c], &map.shift[c]);
    lines = lines && FitTableLine(map.table[c], &map.line[c]);
  }
  map.form = shifts ? ChannelMap::Form::kShifts : lines ? ChannelMap::Form::kLines : ChannelMap::Form::kLookup;
  return map;
}

void ChannelTableRowFast(const uint8_t* src, uint32_t* dst, int32_t width, const ChannelMap& map) {
  switch (map.form) {
    case ChannelMap::Form::kShifts: ShiftChannelRow(src, dst, width, map); break;
    case ChannelMap::Form::kLines: LineChannelRow(src, dst, width, map.line[0], map.line[1], map.line[2]); break;
    case ChannelMap::Form::kLookup: ChannelTableRow(src, dst, width, map); break;
  }
}

namespace {

// A rectangle as the caller asked for it, right and bottom exclusive, before
// clipping to the picture. 64-bit so that left + width cannot overflow.
struct Area {
  int64_t left, top, right, bottom;
};

constexpr Area kWholePicture{0, 0, std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::max()};

// The frame of the five working handlers: a reader on the picture, a writer of
// its size, the tables applied to the pixels inside `area` (clipped to the
// picture), every other pixel left black.
REALpictureStruct* MapPicture(REALpictureStruct* picture, const ChannelTables& tables, Area area) {
  return RenderFromReader(picture, [&](const PictureReader& reader, PictureWriter& writer) {
    const int64_t x0 = std::max<int64_t>(area.left, 0);
    const int64_t y0 = std::max<int64_t>(area.top, 0);
    const int64_t x1 = std::min<int64_t>(area.right, reader.width);
    const int64_t y1 = std::min<int64_t>(area.bottom, reader.height);
    if (x0 >= x1) return;
    const auto kernel = ChooseKernel(ChannelTableRow, ChannelTableRowFast);
    const ChannelMap map = MakeChannelMap(tables.red, tables.green, tables.blue);
    for (int64_t y = y0; y < y1; ++y) {
      const int32_t row = static_cast<int32_t>(y);
      kernel(ReaderRow(reader, row) + 3 * x0, WriterRow(writer, row) + x0, static_cast<int32_t>(x1 - x0), map);
    }
  });
}

// Every pixel through one curve per channel, `table` made with the red,
// green and blue amounts.
REALpictureStruct* MapWholePicture(REALpictureStruct* picture, void (*table)(double, uint8_t*), double red,
                                   double green, double blue) {
  ChannelTables tables;
  table(red, tables.red);
  table(green, tables.green);
  table(blue, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

}  // namespace

REALpictureStruct* AbsBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b) {
  return MapWholePicture(picture, AbsBrightnessTable, r, g, b);
}

REALpictureStruct* AbsBrightnessPicture1(REALpictureStruct* picture, double x) {
  return AbsBrightnessPicture3(picture, x, x, x);
}

REALpictureStruct* LinBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b) {
  return MapWholePicture(picture, LinBrightnessTable, r, g, b);
}

REALpictureStruct* LinBrightnessPicture1(REALpictureStruct* picture, double x) {
  return LinBrightnessPicture3(picture, x, x, x);
}

REALpictureStruct* ContrastPicture3(REALpictureStruct* picture, double xr, double xg, double xb) {
  return MapWholePicture(picture, ContrastTable, xr, xg, xb);
}

REALpictureStruct* ContrastPicture1(REALpictureStruct* picture, double x) { return ContrastPicture3(picture, x, x, x); }

REALpictureStruct* TransformPicture(REALpictureStruct* picture, double a, double b) {
  ChannelTables tables;
  LinearCurveTable(a, b, tables.red);
  std::copy(tables.red, tables.red + 256, tables.green);
  std::copy(tables.red, tables.red + 256, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

REALpictureStruct* InvertPicture(REALpictureStruct* picture, int32_t left, int32_t top, int32_t width, int32_t height) {
  ChannelTables tables;
  for (int32_t s = 0; s < 256; ++s) {
    const auto inverse = static_cast<uint8_t>(255 - s);
    tables.red[s] = tables.green[s] = tables.blue[s] = inverse;
  }
  // Right and bottom come from the arguments before any clipping.
  const Area area{left, top, static_cast<int64_t>(left) + width, static_cast<int64_t>(top) + height};
  return MapPicture(picture, tables, area);
}
