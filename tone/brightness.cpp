// Brightness, contrast, custom curves and inversion.
//
// Every output channel depends only on the same channel of the same source
// pixel, so each method builds one 256-entry table per channel, once per call,
// with exactly the arithmetic the rule states, and the pixel work is a table
// lookup. The tables hold the very values the per-pixel formula would give.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "pixels/picture_access.h"
#include "tone/tone.h"

uint8_t ClampTruncate(double v) {
  if (v > 255.0) return 255;
  if (v < 0.0) return 0;
  if (!(v == v)) return 0;  // NaN passes neither test
  return static_cast<uint8_t>(static_cast<int32_t>(v));
}

uint8_t TruncateLow8(double v) {
  if (!std::isfinite(v)) return 0;
  // fmod is exact, so this is the true remainder of the truncated value.
  double r = std::fmod(std::trunc(v), 256.0);
  if (r < 0.0) r += 256.0;
  return static_cast<uint8_t>(static_cast<int32_t>(r));
}

void AbsBrightnessTable(double d, uint8_t table[256]) {
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampTruncate(static_cast<double>(s) + d);
}

void LinBrightnessTable(double d, uint8_t table[256]) {
  // Factor and offset once per channel; 0 counts as a brightening amount.
  const double factor = (255.0 - std::fabs(d)) / 255.0;
  const double offset = d < 0.0 ? 0.0 : d;
  for (int32_t s = 0; s < 256; ++s) table[s] = TruncateLow8(static_cast<double>(s) * factor + offset);
}

void ContrastTable(double d, uint8_t table[256]) {
  const double slope = 1.0 + d;
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampTruncate((static_cast<double>(s) - 127.0) * slope + 127.0);
}

void LinearCurveTable(double a, double b, uint8_t table[256]) {
  for (int32_t s = 0; s < 256; ++s) table[s] = ClampTruncate(static_cast<double>(s) * a + b);
}

void ChannelTableRow(const uint8_t* src, uint32_t* dst, int32_t width, const uint8_t* red,
                     const uint8_t* green, const uint8_t* blue) {
  for (int32_t x = 0; x < width; ++x, src += 3) dst[x] = PackRGB(red[src[0]], green[src[1]], blue[src[2]]);
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
  PictureReader reader;
  if (!GetPictureReader(reader, picture)) return nullptr;
  PictureWriter writer;
  if (!NewPictureWriter(writer, reader.width, reader.height)) {
    ClosePictureReader(reader);
    return nullptr;
  }

  const int64_t x0 = std::max<int64_t>(area.left, 0);
  const int64_t y0 = std::max<int64_t>(area.top, 0);
  const int64_t x1 = std::min<int64_t>(area.right, reader.width);
  const int64_t y1 = std::min<int64_t>(area.bottom, reader.height);
  if (x0 < x1) {
    for (int64_t y = y0; y < y1; ++y) {
      const int32_t row = static_cast<int32_t>(y);
      ChannelTableRow(ReaderRow(reader, row) + 3 * x0, WriterRow(writer, row) + x0, static_cast<int32_t>(x1 - x0),
                      tables.red, tables.green, tables.blue);
    }
  }

  REALpictureStruct* result = RenderPictureWriter(writer);
  ClosePictureReader(reader);
  return result;
}

}  // namespace

REALpictureStruct* AbsBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b) {
  ChannelTables tables;
  AbsBrightnessTable(r, tables.red);
  AbsBrightnessTable(g, tables.green);
  AbsBrightnessTable(b, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

REALpictureStruct* AbsBrightnessPicture1(REALpictureStruct* picture, double x) {
  return AbsBrightnessPicture3(picture, x, x, x);
}

REALpictureStruct* LinBrightnessPicture3(REALpictureStruct* picture, double r, double g, double b) {
  ChannelTables tables;
  LinBrightnessTable(r, tables.red);
  LinBrightnessTable(g, tables.green);
  LinBrightnessTable(b, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

REALpictureStruct* LinBrightnessPicture1(REALpictureStruct* picture, double x) {
  return LinBrightnessPicture3(picture, x, x, x);
}

REALpictureStruct* ContrastPicture3(REALpictureStruct* picture, double xr, double xg, double xb) {
  ChannelTables tables;
  ContrastTable(xr, tables.red);
  ContrastTable(xg, tables.green);
  ContrastTable(xb, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

REALpictureStruct* ContrastPicture1(REALpictureStruct* picture, double x) {
  return ContrastPicture3(picture, x, x, x);
}

REALpictureStruct* TransformPicture(REALpictureStruct* picture, double a, double b) {
  ChannelTables tables;
  LinearCurveTable(a, b, tables.red);
  std::copy(tables.red, tables.red + 256, tables.green);
  std::copy(tables.red, tables.red + 256, tables.blue);
  return MapPicture(picture, tables, kWholePicture);
}

REALpictureStruct* InvertPicture(REALpictureStruct* picture, int32_t left, int32_t top, int32_t width,
                                 int32_t height) {
  ChannelTables tables;
  for (int32_t s = 0; s < 256; ++s) {
    const auto inverse = static_cast<uint8_t>(255 - s);
    tables.red[s] = tables.green[s] = tables.blue[s] = inverse;
  }
  // Right and bottom come from the arguments before any clipping.
  const Area area{left, top, static_cast<int64_t>(left) + width, static_cast<int64_t>(top) + height};
  return MapPicture(picture, tables, area);
}
