// Automatic levels: a dark and a bright level are taken from the luminance
// histogram so that about 0.5 % of the pixels lie below the one and above the
// other, and every channel is stretched from that pair onto 0..255.
//
// All arithmetic is plain double arithmetic (the same bits on every x86).
#include <cstdint>
#include <cstring>

#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

namespace {

// The luminance weights, exactly these double constants.
constexpr double kRedWeight = 0.177;
constexpr double kGreenWeight = 0.813;
constexpr double kBlueWeight = 0.01;

// The threshold fractions are single-precision constants, widened to double
// before they multiply the pixel count (0.004999999888241291 and
// 0.9950000047683716): 1000 pixels give the counts 4 and 995.
constexpr double kDarkFraction = static_cast<double>(0.005f);
constexpr double kBrightFraction = static_cast<double>(0.995f);

}  // namespace

void LuminanceHistogramRow(const uint8_t* src, int32_t width, uint32_t histogram[256]) {
  for (int32_t x = 0; x < width; ++x, src += 3) {
    const double l = kRedWeight * src[0] + kGreenWeight * src[1] + kBlueWeight * src[2];
    int32_t level = static_cast<int32_t>(l);
    if (level > 255) level = 255;  // the weights sum to 1; kept inside the table all the same
    ++histogram[level];
  }
}

namespace {

constexpr int32_t kLevelBlock = 256;  // pixels per block

// The levels of a block of pixels, the plain kernel's arithmetic vectorised
// across pixels.
PICTURE_VECTOR_CLONES
void LuminanceLevels(const uint8_t* __restrict src, int32_t* __restrict levels, int32_t n) {
  for (int32_t x = 0; x < n; ++x) {
    const double l = kRedWeight * src[3 * x] + kGreenWeight * src[3 * x + 1] + kBlueWeight * src[3 * x + 2];
    const auto level = static_cast<int32_t>(l);
    levels[x] = level > 255 ? 255 : level;
  }
}

}  // namespace

// The same histogram: the levels block by block, then counted into four
// histograms in turn, so that neighbours of the same level (most of a
// picture) do not wait on each other's count.
void LuminanceHistogramRowFast(const uint8_t* src, int32_t width, uint32_t histogram[256]) {
  uint32_t counts[4][256] = {};
  int32_t levels[kLevelBlock];
  for (int32_t x0 = 0; x0 < width; x0 += kLevelBlock) {
    const int32_t n = width - x0 < kLevelBlock ? width - x0 : kLevelBlock;
    LuminanceLevels(src + 3 * static_cast<ptrdiff_t>(x0), levels, n);
    int32_t i = 0;
    for (; i + 4 <= n; i += 4) {
      ++counts[0][levels[i]];
      ++counts[1][levels[i + 1]];
      ++counts[2][levels[i + 2]];
      ++counts[3][levels[i + 3]];
    }
    for (; i < n; ++i) ++counts[0][levels[i]];
  }
  for (int32_t k = 0; k < 256; ++k) histogram[k] += counts[0][k] + counts[1][k] + counts[2][k] + counts[3][k];
}

LevelPair ChooseLevels(const uint32_t histogram[256]) {
  uint64_t cum[256];
  uint64_t sum = 0;
  for (int32_t k = 0; k < 256; ++k) cum[k] = sum += histogram[k];
  const double n = static_cast<double>(cum[255]);
  const auto dark = static_cast<uint64_t>(n * kDarkFraction);
  const auto bright = static_cast<uint64_t>(n * kBrightFraction);

  // The last level whose cumulative count is within each threshold, 0 when
  // none is.
  LevelPair levels{0, 0};
  for (int32_t k = 0; k < 256; ++k) {
    if (cum[k] <= dark) levels.lo = k;
    if (cum[k] <= bright) levels.hi = k;
  }
  return levels;
}

void LevelsTable(LevelPair levels, uint8_t table[256]) {
  const int32_t lo = levels.lo;
  const int32_t hi = levels.hi;
  // hi == lo leaves no range to stretch: the table becomes a threshold at lo.
  const double factor = hi > lo ? 255.0 / static_cast<double>(hi - lo) : 0.0;
  for (int32_t s = 0; s < 256; ++s) {
    if (s < lo) {
      table[s] = 0;
    } else if (s > hi) {
      table[s] = 255;
    } else {
      table[s] = static_cast<uint8_t>(static_cast<int32_t>(static_cast<double>(s - lo) * factor));
    }
  }
}

REALpictureStruct* AutoLevelPicture(REALpictureStruct* picture) {
  return RenderFromReader(picture, [](const PictureReader& reader, PictureWriter& writer) {
    // First pass: the luminance histogram.
    uint32_t histogram[256];
    std::memset(histogram, 0, sizeof histogram);
    const auto histogramRow = ChooseKernel(LuminanceHistogramRow, LuminanceHistogramRowFast);
    for (int32_t y = 0; y < reader.height; ++y) histogramRow(ReaderRow(reader, y), reader.width, histogram);

    // Second pass: the same stretch for all three channels.
    uint8_t table[256];
    LevelsTable(ChooseLevels(histogram), table);
    const auto tableRow = ChooseKernel(ChannelTableRow, ChannelTableRowFast);
    const ChannelMap map = MakeChannelMap(table, table, table);
    for (int32_t y = 0; y < reader.height; ++y) tableRow(ReaderRow(reader, y), WriterRow(writer, y), reader.width, map);
  });
}
