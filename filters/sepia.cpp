// PictureSepiaQVT: a tinted monochrome picture. Each pixel's luminance is a
// weighted sum of its channels in fixed point with 10 fraction bits; a tint
// offset per channel is added to it.
#include <algorithm>
#include <cstddef>
#include <iterator>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
struct SepiaData {
  FilterPictures pictures;
  FilterRectangle rectangle;
  int32_t sepiaRed;
  int32_t sepiaGreen;
  int32_t sepiaBlue;
  double factorRed;
  double factorGreen;
  double factorBlue;
};
#pragma pack(pop)

#if defined(__i386__)
static_assert(sizeof(SepiaData) == 60);
static_assert(offsetof(SepiaData, pictures.destination) == 4);
static_assert(offsetof(SepiaData, rectangle.minX) == 8);
static_assert(offsetof(SepiaData, rectangle.maxY) == 20);
static_assert(offsetof(SepiaData, sepiaRed) == 24);
static_assert(offsetof(SepiaData, sepiaGreen) == 28);
static_assert(offsetof(SepiaData, sepiaBlue) == 32);
static_assert(offsetof(SepiaData, factorRed) == 36);
static_assert(offsetof(SepiaData, factorGreen) == 44);
static_assert(offsetof(SepiaData, factorBlue) == 52);
#endif

SepiaData& Data(REALobjectStruct* instance) { return InstanceData<SepiaData>(instance, PictureSepiaClass); }

unsigned char Run(REALobjectStruct* instance) {
  SepiaData& data = Data(instance);
  const SepiaWeights weights = {FixedWeight(data.factorRed),
                                FixedWeight(data.factorGreen),
                                FixedWeight(data.factorBlue),
                                {data.sepiaRed, data.sepiaGreen, data.sepiaBlue}};
  const auto row = ChooseKernel(SepiaRow, SepiaRowFast);
  return RunRowFilter(data.pictures, &data.rectangle, ResultRelease::kOnNewResult,
                      [&](const uint8_t* src, uint32_t* dst, int32_t count) { row(src, dst, count, weights); });
}

void Construct(REALobjectStruct* instance) {
  SepiaData& data = Data(instance);
  data.factorRed = 0.299;
  data.factorGreen = 0.587;
  data.factorBlue = 0.114;
}

void Close(REALobjectStruct* instance) { CloseFilterPictures(Data(instance).pictures); }

double GetFactorR(REALobjectStruct* instance, int32_t) { return Data(instance).factorRed; }
void SetFactorR(REALobjectStruct* instance, int32_t, double value) { Data(instance).factorRed = value; }
double GetFactorG(REALobjectStruct* instance, int32_t) { return Data(instance).factorGreen; }
void SetFactorG(REALobjectStruct* instance, int32_t, double value) { Data(instance).factorGreen = value; }
double GetFactorB(REALobjectStruct* instance, int32_t) { return Data(instance).factorBlue; }
void SetFactorB(REALobjectStruct* instance, int32_t, double value) { Data(instance).factorBlue = value; }

// Each Factor property reaches the weight of the channel it is named after.
REALpropertyDefinition properties[] = {
    FILTER_PICTURE_PROPERTIES(SepiaData),
    FILTER_RECTANGLE_PROPERTIES(SepiaData),
    FILTER_FIELD("SepiaRed", "Integer", offsetof(SepiaData, sepiaRed)),
    FILTER_FIELD("SepiaGreen", "Integer", offsetof(SepiaData, sepiaGreen)),
    FILTER_FIELD("SepiaBlue", "Integer", offsetof(SepiaData, sepiaBlue)),
    {nullptr, "FactorRed", "Double", 0, HandlerAddress(GetFactorR), HandlerAddress(SetFactorR), 0, {}},
    {nullptr, "FactorBlue", "Double", 0, HandlerAddress(GetFactorB), HandlerAddress(SetFactorB), 0, {}},
    {nullptr, "FactorGreen", "Double", 0, HandlerAddress(GetFactorG), HandlerAddress(SetFactorG), 0, {}},
};

REALmethodDefinition methods[] = {
    {HandlerAddress(Close), nullptr, "Close", 0},
    {HandlerAddress(Run), nullptr, "Run as boolean", 0},
};

}  // namespace

REALclassDefinition PictureSepiaClass = {
    kRecordVersion, "PictureSepiaQVT",     nullptr, sizeof(SepiaData),  0,       Construct, Close,
    properties,     std::size(properties), methods, std::size(methods), nullptr, 0,         {}};

// The luminance is formed in 64 bits, so no weight can make it wrap; the
// division truncates toward zero, also for a negative sum.
void SepiaRow(const uint8_t* src, uint32_t* dst, int32_t count, const SepiaWeights& weights) {
  for (int32_t i = 0; i < count; ++i, src += 3) {
    const int64_t sum =
        int64_t{src[0]} * weights.red + int64_t{src[1]} * weights.green + int64_t{src[2]} * weights.blue;
    const int64_t luminance = sum / 1024;
    dst[i] = PackRGB(ClampByte(weights.tint[0] + luminance), ClampByte(weights.tint[1] + luminance),
                     ClampByte(weights.tint[2] + luminance));
  }
}

// 32-bit arithmetic when 255 times the weights' magnitudes, and the tints
// beside the luminance, stay in its range: any weight up to 8192 (800 %) and
// any tint up to 2^30. The plain kernel otherwise.
PICTURE_VECTOR_CLONES
void SepiaRowFast(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t count, const SepiaWeights& weights) {
  auto magnitude = [](int32_t v) { return v < 0 ? -int64_t{v} : int64_t{v}; };
  const int64_t weightSum = magnitude(weights.red) + magnitude(weights.green) + magnitude(weights.blue);
  int64_t tintMax = 0;
  for (int32_t t : weights.tint) tintMax = std::max(tintMax, magnitude(t));
  if (weightSum > INT32_MAX / 255 || tintMax > (int64_t{1} << 30)) {
    SepiaRow(src, dst, count, weights);
    return;
  }
  const int32_t wr = weights.red, wg = weights.green, wb = weights.blue;
  const int32_t t0 = weights.tint[0], t1 = weights.tint[1], t2 = weights.tint[2];
  for (int32_t i = 0; i < count; ++i) {
    const int32_t luminance = (src[3 * i] * wr + src[3 * i + 1] * wg + src[3 * i + 2] * wb) / 1024;
    dst[i] = PackRGB(ClampByte(t0 + luminance), ClampByte(t1 + luminance), ClampByte(t2 + luminance));
  }
}
