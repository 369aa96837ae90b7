// The tone subsystem's kernels, used by its handlers and by the tests and
// benchmarks. They know nothing of pictures or of the host: they take a
// reader row (3 bytes red, green, blue per pixel), a writer row (words
// 0x00RRGGBB) and the width, or build the tables the rows are mapped through.
#pragma once

#include <cstdint>

// ---- Brightness, contrast, custom curves, inversion (brightness.cpp) --------

// A 256-entry table per channel: the new value of every channel value.
struct ChannelTables {
  uint8_t red[256];
  uint8_t green[256];
  uint8_t blue[256];
};

// The low 8 bits of v truncated toward zero, for any finite v (the exact
// value modulo 256, as a two's-complement integer of enough bits would hold
// it). NaN and infinities give 0.
uint8_t TruncateLow8(double v);

// The channel curves, one table entry per source value s.
void AbsBrightnessTable(double d, uint8_t table[256]);
void LinBrightnessTable(double d, uint8_t table[256]);
void ContrastTable(double d, uint8_t table[256]);
void LinearCurveTable(double a, double b, uint8_t table[256]);

// A table as a clamped line: table[s] == clamp((s * slope + offset) >> 16)
// for every s, the arithmetic in 32 bits. False when no such line exists.
struct TableLine {
  int32_t slope;
  int32_t offset;
};
bool FitTableLine(const uint8_t table[256], TableLine* line);

// A table as a shift: table[s] == clamp((s ^ flip) + amount) for every s,
// flip 0 or 255, amount -255..255. Absolute brightness with any amount is
// one (the truncation of s + d is s + floor(d) wherever it is not clamped),
// inversion another. False when the table is no shift.
struct TableShift {
  uint8_t flip;
  int32_t amount;
};
bool FitTableShift(const uint8_t table[256], TableShift* shift);

// Three tables, red, green and blue, and how the fast kernel maps a row
// through them, worked out once per call (MakeChannelMap).
struct ChannelMap {
  const uint8_t* table[3];
  enum class Form { kLookup, kLines, kShifts } form;
  TableLine line[3];
  TableShift shift[3];
};
ChannelMap MakeChannelMap(const uint8_t* red, const uint8_t* green, const uint8_t* blue);

// Maps `width` reader pixels through the three tables into writer words.
void ChannelTableRow(const uint8_t* src, uint32_t* dst, int32_t width, const ChannelMap& map);
// The same words. Tables that are shifts (absolute brightness, inversion)
// are the row conversion plus three byte operations; clamped straight lines
// (linear brightness, contrast, curves, levels) are computed in fixed point;
// any other table is looked up.
void ChannelTableRowFast(const uint8_t* src, uint32_t* dst, int32_t width, const ChannelMap& map);

// ---- Automatic levels (autolevel.cpp) ----------------------------------------

// Adds the luminance level of each of `width` reader pixels to `histogram`.
void LuminanceHistogramRow(const uint8_t* src, int32_t width, uint32_t histogram[256]);
void LuminanceHistogramRowFast(const uint8_t* src, int32_t width, uint32_t histogram[256]);

// The dark and bright levels chosen from a luminance histogram.
struct LevelPair {
  int32_t lo;
  int32_t hi;
};
LevelPair ChooseLevels(const uint32_t histogram[256]);
// The stretch of lo..hi onto 0..255 (a threshold at lo when hi equals lo).
void LevelsTable(LevelPair levels, uint8_t table[256]);

// ---- Blending, combining, tinting (blend.cpp) --------------------------------

// The rows of the blends and of the combination. Each Fast variant gives the
// same words (the blend in 32 bits when the weights allow).
void BlendRow(const uint8_t* source, const uint8_t* dest, uint32_t* dst, int32_t width, int32_t ws, int32_t wd);
void BlendRowFast(const uint8_t* source, const uint8_t* dest, uint32_t* dst, int32_t width, int32_t ws, int32_t wd);
void BlendMaskRow(const uint8_t* source, const uint8_t* dest, const uint8_t* mask, uint32_t* dst, int32_t width);
void BlendMaskRowFast(const uint8_t* source, const uint8_t* dest, const uint8_t* mask, uint32_t* dst, int32_t width);
void CombineRow(const uint8_t* red, const uint8_t* green, const uint8_t* blue, uint32_t* dst, int32_t width);
void CombineRowFast(const uint8_t* red, const uint8_t* green, const uint8_t* blue, uint32_t* dst, int32_t width);

// The six fractions of a tint, each a channel of its colour divided by 255.
struct TintWeights {
  double wr, wg, wb;  // grey base
  double tr, tg, tb;  // sepia base
};
TintWeights MakeTintWeights(uint32_t greyBase, uint32_t sepiaBase);
void TintRow(const uint8_t* src, uint32_t* dst, int32_t width, const TintWeights& w);
void TintRowFast(const uint8_t* src, uint32_t* dst, int32_t width, const TintWeights& w);

// ---- Colour counting (colours.cpp) -------------------------------------------

// The number of the `width` reader pixels whose colour 0x00RRGGBB is `col`.
uint32_t CountColorRow(const uint8_t* src, int32_t width, uint32_t col);
uint32_t CountColorRowFast(const uint8_t* src, int32_t width, uint32_t col);
// Adds each of the `width` reader pixels to the three channel histograms.
void ChannelHistogramRow(const uint8_t* src, int32_t width, uint32_t red[256], uint32_t green[256], uint32_t blue[256]);
