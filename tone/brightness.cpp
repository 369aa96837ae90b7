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

void ChannelTableRow(const uint8_t* src, uint32_t* dst, int32_t width, const uint8_t* red, const uint8_t* green,
                     const uint8_t* blue) {
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

// The last three tables seen and what became of them; a frame passes the
// same tables for every row, so they are fitted once per call.
struct TablePlan {
  uint8_t tables[3][256];
  bool valid = false;
  bool lines = false;
  TableLine line[3];
};

}  // namespace

void ChannelTableRowFast(const uint8_t* src, uint32_t* dst, int32_t width, const uint8_t* red, const uint8_t* green,
                         const uint8_t* blue) {
  thread_local TablePlan plan;
  const uint8_t* tables[3] = {red, green, blue};
  bool same = plan.valid;
  for (int c = 0; c < 3 && same; ++c) same = std::memcmp(plan.tables[c], tables[c], 256) == 0;
  if (!same) {
    plan.lines = true;
    for (int c = 0; c < 3; ++c) {
      std::memcpy(plan.tables[c], tables[c], 256);
      plan.lines = plan.lines && FitTableLine(tables[c], &plan.line[c]);
    }
    plan.valid = true;
  }
  if (plan.lines) {
    LineChannelRow(src, dst, width, plan.line[0], plan.line[1], plan.line[2]);
  } else {
    ChannelTableRow(src, dst, width, red, green, blue);
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
    for (int64_t y = y0; y < y1; ++y) {
      const int32_t row = static_cast<int32_t>(y);
      kernel(ReaderRow(reader, row) + 3 * x0, WriterRow(writer, row) + x0, static_cast<int32_t>(x1 - x0), tables.red,
             tables.green, tables.blue);
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
