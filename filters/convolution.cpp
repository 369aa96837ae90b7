// PictureConvolutionQVT: a separable kernel of up to 20 weights, applied as a
// horizontal pass into an intermediate image (clamped to 0..255) and then a
// vertical pass into the result, on the colour channels the caller selects.
#include <cstddef>
#include <cstdlib>
#include <iterator>

#include "filters/filters.h"
#include "plugin/registration.h"

namespace {

#pragma pack(push, 4)
struct ConvolutionData {
  FilterPictures pictures;
  int32_t valueCount;
  double ver[kMaxConvolutionTaps];
  double hor[kMaxConvolutionTaps];
};
#pragma pack(pop)

#if defined(__i386__)
static_assert(sizeof(ConvolutionData) == 332);
static_assert(offsetof(ConvolutionData, valueCount) == 8);
static_assert(offsetof(ConvolutionData, ver) == 12);
static_assert(offsetof(ConvolutionData, hor) == 172);
#endif

ConvolutionData& Data(REALobjectStruct* instance) {
  return InstanceData<ConvolutionData>(instance, PictureConvolutionClass);
}

// Both passes over a W x H picture with h = n / 2. The horizontal pass fills
// columns h .. W - 2h of the intermediate image, the vertical pass rows
// h .. H - 2h of the result; both bounds keep every tap inside the picture
// for 2 <= n <= 20.
bool Convolve(const PictureReader& reader, PictureWriter& writer, const SeparableKernel& horizontal,
              const SeparableKernel& vertical) {
  const int32_t width = reader.width;
  const int32_t height = reader.height;
  const int32_t h = horizontal.count / 2;
  const int32_t stride = 3 * width;

  // Without the intermediate image the result stays all black.
  auto* intermediate = static_cast<uint8_t*>(
      std::calloc(static_cast<size_t>(height), static_cast<size_t>(stride)));
  if (!intermediate) return false;

  const int32_t columns = width - 3 * h + 1;  // h .. W - 2h
  if (columns > 0) {
    for (int32_t y = 0; y < height; ++y) {
      ConvolveRowHorizontal(ReaderRow(reader, y), intermediate + static_cast<size_t>(y) * stride + 3 * h,
                            columns, horizontal);
    }
  }
  for (int32_t y = h; y <= height - 2 * h; ++y) {
    ConvolveRowVertical(intermediate + static_cast<size_t>(y - h) * stride, stride,
                        WriterRow(writer, y), width, vertical);
  }
  std::free(intermediate);
  return true;
}

unsigned char Run(REALobjectStruct* instance, int32_t channels) {
  ConvolutionData& data = Data(instance);
  // Counts outside 2..20 would reach beyond the picture or the weights: the
  // run is refused and the previous result stays.
  const int32_t count = data.valueCount;
  if (count < 2 || count > kMaxConvolutionTaps) return 0;

  SeparableKernel horizontal, vertical;
  for (int32_t i = 0; i < kMaxConvolutionTaps; ++i) {
    horizontal.weights[i] = data.hor[i];
    vertical.weights[i] = data.ver[i];
  }
  horizontal.count = vertical.count = count;
  horizontal.channels = vertical.channels = static_cast<uint32_t>(channels) & kChannelsAll;

  return RunFilter(data.pictures, nullptr, ResultRelease::kOnNewResult,
                   [&](const PictureReader& reader, PictureWriter& writer, const FilterRegion&) {
                     return Convolve(reader, writer, horizontal, vertical);
                   });
}

void Construct(REALobjectStruct* instance) { Data(instance).valueCount = 3; }

void Close(REALobjectStruct* instance) { CloseFilterPictures(Data(instance).pictures); }

double GetVer(REALobjectStruct* instance, int32_t index) {
  if (static_cast<uint32_t>(index) >= kMaxConvolutionTaps) return 0.0;
  return Data(instance).ver[index];
}

void SetVer(REALobjectStruct* instance, int32_t index, double value) {
  if (static_cast<uint32_t>(index) >= kMaxConvolutionTaps) return;
  Data(instance).ver[index] = value;
}

double GetHor(REALobjectStruct* instance, int32_t index) {
  if (static_cast<uint32_t>(index) >= kMaxConvolutionTaps) return 0.0;
  return Data(instance).hor[index];
}

void SetHor(REALobjectStruct* instance, int32_t index, double value) {
  if (static_cast<uint32_t>(index) >= kMaxConvolutionTaps) return;
  Data(instance).hor[index] = value;
}

REALpropertyDefinition properties[] = {
    {nullptr, "SourcePicture", "Picture", 0, kStandardAccessor, kStandardAccessor,
     offsetof(ConvolutionData, pictures.source), {}},
    {nullptr, "DestinationPicture", "Picture", 0, kStandardAccessor, kStandardAccessor,
     offsetof(ConvolutionData, pictures.destination), {}},
    {nullptr, "ValueCount", "Integer", 0, kStandardAccessor, kStandardAccessor,
     offsetof(ConvolutionData, valueCount), {}},
};

REALmethodDefinition methods[] = {
    {FilterHandler(Close), nullptr, "Close", 0},
    {FilterHandler(Run), nullptr, "Run(channels as integer) as boolean", 0},
    {FilterHandler(GetVer), FilterHandler(SetVer), "Ver(index as integer) as double", 0},
    {FilterHandler(GetHor), FilterHandler(SetHor), "Hor(index as integer) as double", 0},
};

}  // namespace

REALclassDefinition PictureConvolutionClass = {
    kRecordVersion, "PictureConvolutionQVT", nullptr, sizeof(ConvolutionData), 0, Construct, Close,
    properties, std::size(properties), methods, std::size(methods), nullptr, 0, {}};

void ConvolveRowHorizontal(const uint8_t* src, uint8_t* dst, int32_t count,
                           const SeparableKernel& kernel) {
  const int32_t n = kernel.count;
  const int32_t h = n / 2;
  for (int32_t i = 0; i < count; ++i, src += 3, dst += 3) {
    for (int32_t c = 0; c < 3; ++c) {
      if (!(kernel.channels & (1u << c))) {
        dst[c] = src[3 * h + c];
        continue;
      }
      double sum = 0.0;
      for (int32_t t = 0; t < n; ++t) sum += kernel.weights[t] * src[3 * t + c];
      dst[c] = static_cast<uint8_t>(ComponentFromDouble(sum));
    }
  }
}

void ConvolveRowVertical(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t width,
                         const SeparableKernel& kernel) {
  const int32_t n = kernel.count;
  const int32_t h = n / 2;
  for (int32_t x = 0; x < width; ++x, top += 3) {
    uint32_t value[3];
    for (int32_t c = 0; c < 3; ++c) {
      if (!(kernel.channels & (1u << c))) {
        value[c] = top[static_cast<ptrdiff_t>(h) * stride + c];
        continue;
      }
      double sum = 0.0;
      for (int32_t t = 0; t < n; ++t) sum += kernel.weights[t] * top[static_cast<ptrdiff_t>(t) * stride + c];
      value[c] = ComponentFromDouble(sum);
    }
    dst[x] = PackRGB(value[0], value[1], value[2]);
  }
}
