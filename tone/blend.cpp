// Blending, combining and tinting: global methods that make one new picture
// from one, two or three host pictures of equal size.
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "pixels/kernel_choice.h"
#include "pixels/picture_access.h"
#include "pixels/pixel_math.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

namespace {

// A blended channel: above 255 gives 255; a negative value keeps its low
// 8 bits (the two's-complement wrap of the exact value).
inline uint32_t StoreBlended(int64_t v) {
  if (v > 255) return 255;
  return static_cast<uint32_t>(v) & 0xFF;
}

inline int64_t BlendChannel(uint32_t s, uint32_t d, int64_t ws, int64_t wd) {
  // Division truncates toward zero, also for negative sums.
  return (static_cast<int64_t>(s) * ws + static_cast<int64_t>(d) * wd) / 1024;
}

inline uint32_t TintChannel(double v) { return v > 255.0 ? 255 : static_cast<uint32_t>(static_cast<int32_t>(v)); }

}  // namespace

void BlendRow(const uint8_t* source, const uint8_t* dest, uint32_t* dst, int32_t width, int32_t ws, int32_t wd) {
  // Sums are formed in 64 bits: 255 × (ws + wd) leaves the 32-bit range for
  // weights beyond about 8224, and the rules above then still hold exactly.
  for (int32_t x = 0; x < width; ++x, source += 3, dest += 3) {
    dst[x] = PackRGB(StoreBlended(BlendChannel(source[0], dest[0], ws, wd)),
                     StoreBlended(BlendChannel(source[1], dest[1], ws, wd)),
                     StoreBlended(BlendChannel(source[2], dest[2], ws, wd)));
  }
}

void BlendMaskRow(const uint8_t* source, const uint8_t* dest, const uint8_t* mask, uint32_t* dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x, source += 3, dest += 3, mask += 3) {
    const uint32_t m = (static_cast<uint32_t>(mask[0]) + mask[1] + mask[2]) / 3;
    const uint32_t keep = 255 - m;
    // At most 255 × 255 / 255, so never above 255.
    dst[x] = PackRGB((source[0] * keep + dest[0] * m) / 255, (source[1] * keep + dest[1] * m) / 255,
                     (source[2] * keep + dest[2] * m) / 255);
  }
}

void CombineRow(const uint8_t* red, const uint8_t* green, const uint8_t* blue, uint32_t* dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) dst[x] = PackRGB(red[3 * x], green[3 * x + 1], blue[3 * x + 2]);
}

// 32-bit arithmetic whenever 255 * (|ws| + |wd|) fits in it, which covers
// every weight from -8000 % to 8000 %; the plain kernel otherwise.
PICTURE_VECTOR_CLONES
void BlendRowFast(const uint8_t* __restrict source, const uint8_t* __restrict dest, uint32_t* __restrict dst,
                  int32_t width, int32_t ws, int32_t wd) {
  constexpr int64_t kLimit = INT32_MAX / 255;
  const int64_t magnitude = (ws < 0 ? -int64_t{ws} : ws) + (wd < 0 ? -int64_t{wd} : wd);
  if (magnitude > kLimit) {
    BlendRow(source, dest, dst, width, ws, wd);
    return;
  }
  for (int32_t x = 0; x < width; ++x) {
    uint32_t word = 0;
    for (int32_t c = 0; c < 3; ++c) {
      const int32_t v = (source[3 * x + c] * ws + dest[3 * x + c] * wd) / 1024;  // toward zero
      word |= (v > 255 ? 255u : static_cast<uint32_t>(v) & 0xFF) << (16 - 8 * c);
    }
    dst[x] = word;
  }
}

PICTURE_VECTOR_CLONES
void BlendMaskRowFast(const uint8_t* __restrict source, const uint8_t* __restrict dest, const uint8_t* __restrict mask,
                      uint32_t* __restrict dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const uint32_t m = (uint32_t{mask[3 * x]} + mask[3 * x + 1] + mask[3 * x + 2]) / 3;
    const uint32_t keep = 255 - m;
    uint32_t word = 0;
    for (int32_t c = 0; c < 3; ++c) word |= ((source[3 * x + c] * keep + dest[3 * x + c] * m) / 255) << (16 - 8 * c);
    dst[x] = word;
  }
}

PICTURE_VECTOR_CLONES
void CombineRowFast(const uint8_t* __restrict red, const uint8_t* __restrict green, const uint8_t* __restrict blue,
                    uint32_t* __restrict dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    dst[x] = (uint32_t{red[3 * x]} << 16) | (uint32_t{green[3 * x + 1]} << 8) | blue[3 * x + 2];
  }
}

TintWeights MakeTintWeights(uint32_t greyBase, uint32_t sepiaBase) {
  return TintWeights{RedOf(greyBase) / 255.0,  GreenOf(greyBase) / 255.0,  BlueOf(greyBase) / 255.0,
                     RedOf(sepiaBase) / 255.0, GreenOf(sepiaBase) / 255.0, BlueOf(sepiaBase) / 255.0};
}

void TintRow(const uint8_t* src, uint32_t* dst, int32_t width, const TintWeights& w) {
  for (int32_t x = 0; x < width; ++x, src += 3) {
    const double y = w.wr * src[0] + w.wg * src[1] + w.wb * src[2];
    dst[x] = PackRGB(TintChannel(y * w.tr), TintChannel(y * w.tg), TintChannel(y * w.tb));
  }
}

// Vectorised across pixels; every pixel's arithmetic is the plain kernel's,
// operation for operation.
PICTURE_VECTOR_CLONES
void TintRowFast(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width, const TintWeights& w) {
  const double wr = w.wr, wg = w.wg, wb = w.wb, tr = w.tr, tg = w.tg, tb = w.tb;
  for (int32_t x = 0; x < width; ++x) {
    const double y = wr * src[3 * x] + wg * src[3 * x + 1] + wb * src[3 * x + 2];
    const double r = y * tr, g = y * tg, b = y * tb;
    const uint32_t cr = r > 255.0 ? 255u : static_cast<uint32_t>(static_cast<int32_t>(r));
    const uint32_t cg = g > 255.0 ? 255u : static_cast<uint32_t>(static_cast<int32_t>(g));
    const uint32_t cb = b > 255.0 ? 255u : static_cast<uint32_t>(static_cast<int32_t>(b));
    dst[x] = (cr << 16) | (cg << 8) | cb;
  }
}

REALpictureStruct* BlendPicture(REALpictureStruct* source, double sourcepercent, REALpictureStruct* dest,
                                double destpercent) {
  const int32_t ws = FixedWeight(sourcepercent);
  const int32_t wd = FixedWeight(destpercent);
  const auto kernel = ChooseKernel(BlendRow, BlendRowFast);
  return RenderFromReaders<2>({source, dest}, [ws, wd, kernel](const auto& rows, uint32_t* dst, int32_t width) {
    kernel(rows[0], rows[1], dst, width, ws, wd);
  });
}

REALpictureStruct* BlendPictureMask(REALpictureStruct* source, REALpictureStruct* dest, REALpictureStruct* mask) {
  const auto kernel = ChooseKernel(BlendMaskRow, BlendMaskRowFast);
  return RenderFromReaders<3>({source, dest, mask}, [kernel](const auto& rows, uint32_t* dst, int32_t width) {
    kernel(rows[0], rows[1], rows[2], dst, width);
  });
}

REALpictureStruct* CombinePicturesQVT(REALpictureStruct* red, REALpictureStruct* blue, REALpictureStruct* green) {
  // Parameters come red, blue, green; the pictures are read red, green, blue.
  const auto kernel = ChooseKernel(CombineRow, CombineRowFast);
  return RenderFromReaders<3>({red, green, blue}, [kernel](const auto& rows, uint32_t* dst, int32_t width) {
    kernel(rows[0], rows[1], rows[2], dst, width);
  });
}

REALpictureStruct* TintPicture(REALpictureStruct* source, uint32_t greyBase, uint32_t sepiaBase) {
  const TintWeights weights = MakeTintWeights(greyBase, sepiaBase);
  const auto kernel = ChooseKernel(TintRow, TintRowFast);
  return RenderFromReaders<1>({source}, [&weights, kernel](const auto& rows, uint32_t* dst, int32_t width) {
    kernel(rows[0], dst, width, weights);
  });
}
