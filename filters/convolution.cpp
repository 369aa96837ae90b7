// PictureConvolutionQVT: a separable kernel of up to 20 weights, applied as a
// horizontal pass into an intermediate image (clamped to 0..255) and then a
// vertical pass into the result, on the colour channels the caller selects.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "filters/handlers.h"
#include "filters/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "plugin/registration.h"

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define PICTURE_CONVOLUTION_AVX2 1
#endif

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

  // The vertical pass's scratch shares the intermediate image's allocation,
  // after it at a 64-byte boundary. Without them the result stays all black.
  const size_t imageBytes = (static_cast<size_t>(height) * static_cast<size_t>(stride) + 63) & ~size_t{63};
  auto* intermediate = static_cast<uint8_t*>(CallocPixels(imageBytes + ConvolutionScratchBytes(width, vertical.count)));
  if (!intermediate) return false;

  const int32_t columns = width - 3 * h + 1;  // h .. W - 2h
  const auto rowPass = ChooseKernel(ConvolveRowHorizontal, ConvolveRowHorizontalFast);
  const auto columnPass = ChooseKernel(ConvolveRowsVertical, ConvolveRowsVerticalFast);
  if (columns > 0) {
    for (int32_t y = 0; y < height; ++y) {
      rowPass(ReaderRow(reader, y), intermediate + static_cast<size_t>(y) * stride + 3 * h, columns, horizontal);
    }
  }
  const int32_t rows = height - 3 * h + 1;  // h .. H - 2h
  if (rows > 0) {
    columnPass(intermediate, stride, WriterRow(writer, h), writer.rowBytes / 4, width, rows, vertical,
               intermediate + imageBytes);
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
    FILTER_PICTURE_PROPERTIES(ConvolutionData),
    FILTER_FIELD("ValueCount", "Integer", offsetof(ConvolutionData, valueCount)),
};

REALmethodDefinition methods[] = {
    {HandlerAddress(Close), nullptr, "Close", 0},
    {HandlerAddress(Run), nullptr, "Run(channels as integer) as boolean", 0},
    {HandlerAddress(GetVer), HandlerAddress(SetVer), "Ver(index as integer) as double", 0},
    {HandlerAddress(GetHor), HandlerAddress(SetHor), "Hor(index as integer) as double", 0},
};

}  // namespace

REALclassDefinition PictureConvolutionClass = {
    kRecordVersion, "PictureConvolutionQVT", nullptr, sizeof(ConvolutionData), 0,       Construct, Close,
    properties,     std::size(properties),   methods, std::size(methods),      nullptr, 0,         {}};

void ConvolveRowHorizontal(const uint8_t* src, uint8_t* dst, int32_t count, const SeparableKernel& kernel) {
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
      dst[c] = static_cast<uint8_t>(ClampByte(sum));
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
      value[c] = ClampByte(sum);
    }
    dst[x] = PackRGB(value[0], value[1], value[2]);
  }
}

void ConvolveRowsVertical(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t dstWords, int32_t width,
                          int32_t rows, const SeparableKernel& kernel, void*) {
  for (int32_t r = 0; r < rows; ++r) {
    ConvolveRowVertical(top + static_cast<ptrdiff_t>(r) * stride, stride, dst + static_cast<ptrdiff_t>(r) * dstWords,
                        width, kernel);
  }
}

namespace {

constexpr int32_t kConvolutionBlock = 768;  // channel values per block (256 pixels)

// sums[j] += weight * p[j * pStep]... for the channel values of one block;
// every sum takes its terms in tap order, as the plain kernels add them.
PICTURE_VECTOR_CLONES
void AddTap(double* __restrict sums, const uint8_t* __restrict p, int32_t n, double weight) {
  for (int32_t j = 0; j < n; ++j) sums[j] = sums[j] + weight * p[j];
}

PICTURE_VECTOR_CLONES
void Components(const double* __restrict sums, uint8_t* __restrict out, int32_t n) {
  for (int32_t j = 0; j < n; ++j) out[j] = static_cast<uint8_t>(ClampByte(sums[j]));
}

// Weights that are all multiples of one power of two, w = k / 2^e with small
// integers k: then every product and every partial sum of the plain kernel is
// exact in a double (below 2^34 units of 2^-e, far inside 53 bits), so its
// sum is exactly S / 2^e with the integer S = sum of k * value, and the
// channel value is 0 for S <= 0, 255 for S >= 255 * 2^e, else S >> e. The
// integers k and the shift e, when the weights are such.
struct DyadicWeights {
  bool exact = false;
  bool narrow = false;  // every partial sum fits in 16 bits
  int32_t shift = 0;
  int32_t k[kMaxConvolutionTaps] = {};
};

DyadicWeights FindDyadicWeights(const SeparableKernel& kernel) {
  DyadicWeights d;
  // A weight that is k / 2^e for some e up to 16 is whole times 2^16 (a
  // product that is exact): real weights are told apart at once.
  for (int32_t t = 0; t < kernel.count; ++t) {
    const double scaled = kernel.weights[t] * 65536.0;
    if (scaled != std::trunc(scaled)) return d;
  }
  for (int32_t e = 0; e <= 16; ++e) {
    int64_t magnitude = 0;
    bool whole = true;
    for (int32_t t = 0; t < kernel.count && whole; ++t) {
      const double scaled = kernel.weights[t] * static_cast<double>(1 << e);  // exact: a power of two
      whole = std::fabs(scaled) <= double{1 << 20} && scaled == std::trunc(scaled);
      if (whole) {
        d.k[t] = static_cast<int32_t>(scaled);
        magnitude += d.k[t] < 0 ? -int64_t{d.k[t]} : d.k[t];
      }
    }
    if (whole && magnitude * 255 <= INT32_MAX) {
      d.exact = true;
      d.narrow = magnitude * 255 <= INT16_MAX;
      d.shift = e;
      return d;
    }
  }
  return d;
}

PICTURE_VECTOR_CLONES
void AddWholeTap(int32_t* __restrict sums, const uint8_t* __restrict p, int32_t n, int32_t k) {
  for (int32_t j = 0; j < n; ++j) sums[j] += k * p[j];
}

// The channel value of the exact sum S / 2^shift: 0 for S <= 0, 255 from
// 255 * 2^shift up, else S >> shift.
inline uint8_t DyadicComponent(int32_t sum, int32_t shift) {
  const int32_t v = sum >= (255 << shift) ? 255 : sum >> shift;
  return static_cast<uint8_t>(sum > 0 ? v : 0);
}

template <typename Sum>
PICTURE_VECTOR_CLONES void DyadicComponents(const Sum* __restrict sums, uint8_t* __restrict out, int32_t n,
                                            int32_t shift) {
  for (int32_t j = 0; j < n; ++j) out[j] = DyadicComponent(sums[j], shift);
}

// The same in 16 bits, twice the values per instruction, when 255 times the
// numerators' magnitudes fits there.
PICTURE_VECTOR_CLONES
void AddWholeTap16(int16_t* __restrict sums, const uint8_t* __restrict p, int32_t n, int16_t k) {
  for (int32_t j = 0; j < n; ++j) sums[j] = static_cast<int16_t>(sums[j] + k * p[j]);
}

// Short kernels in 16 bits with every tap in one pass, the sums kept in
// registers: the same integer sums, so the same values.
template <int32_t Taps>
PICTURE_VECTOR_CLONES void NarrowSumsOf(const uint8_t* __restrict first, ptrdiff_t tapStep, int32_t n,
                                        const int32_t* __restrict k, int32_t shift, uint8_t* __restrict out) {
  int16_t weights[Taps];
  for (int32_t t = 0; t < Taps; ++t) weights[t] = static_cast<int16_t>(k[t]);
  for (int32_t j = 0; j < n; ++j) {
    int16_t sum = 0;
    for (int32_t t = 0; t < Taps; ++t) sum = static_cast<int16_t>(sum + weights[t] * first[j + t * tapStep]);
    out[j] = DyadicComponent(sum, shift);
  }
}

using NarrowSums = void (*)(const uint8_t*, ptrdiff_t, int32_t, const int32_t*, int32_t, uint8_t*);
constexpr NarrowSums kNarrowSums[] = {nullptr,         nullptr,         NarrowSumsOf<2>, NarrowSumsOf<3>,
                                      NarrowSumsOf<4>, NarrowSumsOf<5>, NarrowSumsOf<6>, NarrowSumsOf<7>};

void DyadicSums(const uint8_t* first, ptrdiff_t tapStep, int32_t n, int32_t taps, const int32_t* k, int32_t shift,
                bool narrow, uint8_t* out) {
  if (narrow && taps < static_cast<int32_t>(std::size(kNarrowSums))) {
    kNarrowSums[taps](first, tapStep, n, k, shift, out);
    return;
  }
  if (narrow) {
    int16_t sums[kConvolutionBlock] = {};
    for (int32_t t = 0; t < taps; ++t) AddWholeTap16(sums, first + t * tapStep, n, static_cast<int16_t>(k[t]));
    DyadicComponents(sums, out, n, shift);
    return;
  }
  int32_t sums[kConvolutionBlock] = {};
  for (int32_t t = 0; t < taps; ++t) AddWholeTap(sums, first + t * tapStep, n, k[t]);
  DyadicComponents(sums, out, n, shift);
}

// The filtered channel values of one block: `first` is the first tap's
// channel value, taps `tapStep` bytes apart.
void FilterBlock(const uint8_t* first, ptrdiff_t tapStep, int32_t n, const SeparableKernel& kernel,
                 const DyadicWeights& dyadic, uint8_t* out) {
  if (dyadic.exact) {
    DyadicSums(first, tapStep, n, kernel.count, dyadic.k, dyadic.shift, dyadic.narrow, out);
    return;
  }
  double sums[kConvolutionBlock];
  for (int32_t j = 0; j < n; ++j) sums[j] = 0.0;
  for (int32_t t = 0; t < kernel.count; ++t) AddTap(sums, first + t * tapStep, n, kernel.weights[t]);
  Components(sums, out, n);
}

#if PICTURE_CONVOLUTION_AVX2
// Real weights on AVX2 processors: four doubles a vector, 32 channel values
// (eight vectors) a step, the count of taps fixed at compile time so that a
// short kernel's weights stay in registers. Every sum is the plain kernel's,
// term by term: the products w * v in double, added in tap order. The first
// product starts the sum instead of 0.0 + w * v; the two differ only in the
// sign of a zero sum, which gives 0 either way.
#define PICTURE_AVX2 __attribute__((target("avx2")))

constexpr int32_t kStepVectors = 8;
constexpr int32_t kAvx2Step = 4 * kStepVectors;

// Four channel values as doubles.
PICTURE_AVX2 inline __m256d FourDoubles(const uint8_t* p) {
  int32_t bytes;
  std::memcpy(&bytes, p, sizeof bytes);
  return _mm256_cvtepi32_pd(_mm_cvtepu8_epi32(_mm_cvtsi32_si128(bytes)));
}

// Four sums truncated after the minimum with 255. The minimum keeps its
// second operand, the sum, when that is NaN; truncation gives INT32_MIN for
// NaN and for anything below the 32-bit range, so with the saturating packs
// below every sum becomes ClampByte's value: 255 from 255 up (infinity too),
// 0 for NaN and for everything below 1.
PICTURE_AVX2 inline __m128i FourTruncated(__m256d sum) {
  return _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_set1_pd(255.0), sum));
}

// The 16 channel values of four vectors of sums, stored at out (only the
// first `count` of them when fewer than 16 are wanted).
PICTURE_AVX2 inline void StoreSixteen(const __m256d s[4], uint8_t* out, int32_t count) {
  const __m128i low = _mm_packs_epi32(FourTruncated(s[0]), FourTruncated(s[1]));
  const __m128i high = _mm_packs_epi32(FourTruncated(s[2]), FourTruncated(s[3]));
  const __m128i bytes = _mm_packus_epi16(low, high);
  if (count >= 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    return;
  }
  alignas(16) uint8_t part[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(part), bytes);
  std::memcpy(out, part, static_cast<size_t>(count));
}

// n channel values as doubles at v, and zeros for a step's worth after them:
// the last step of a row reads up to 31 values beyond it, for results it
// drops.
PICTURE_AVX2 void RowToDoubles(const uint8_t* p, double* v, int32_t n) {
  int32_t i = 0;
  for (; i + 16 <= n; i += 16) {
    for (int32_t k = 0; k < 16; k += 4) _mm256_storeu_pd(v + i + k, FourDoubles(p + i + k));
  }
  for (; i + 4 <= n; i += 4) _mm256_storeu_pd(v + i, FourDoubles(p + i));
  for (; i < n; ++i) v[i] = p[i];
  for (; i < n + kAvx2Step; ++i) v[i] = 0.0;
}

// Horizontal pass over `total` channel values: each block of the row is
// turned into doubles once, and every tap reads those.
template <int32_t Taps>
PICTURE_AVX2 void HorizontalRealAvx2(const uint8_t* src, uint8_t* dst, int32_t total, const double* weights) {
  constexpr int32_t kReach = 3 * (Taps - 1);
  alignas(32) double v[kConvolutionBlock + kReach + kAvx2Step];
  __m256d w[Taps];
  for (int32_t t = 0; t < Taps; ++t) w[t] = _mm256_set1_pd(weights[t]);
  for (int32_t j0 = 0; j0 < total; j0 += kConvolutionBlock) {
    const int32_t n = std::min(kConvolutionBlock, total - j0);
    RowToDoubles(src + j0, v, n + kReach);
    for (int32_t j = 0; j < n; j += kAvx2Step) {
      __m256d s[kStepVectors];
      for (int32_t k = 0; k < kStepVectors; ++k) s[k] = _mm256_mul_pd(w[0], _mm256_load_pd(v + j + 4 * k));
      for (int32_t t = 1; t < Taps; ++t) {
        for (int32_t k = 0; k < kStepVectors; ++k) {
          s[k] = _mm256_add_pd(s[k], _mm256_mul_pd(w[t], _mm256_loadu_pd(v + j + 3 * t + 4 * k)));
        }
      }
      for (int32_t q = 0; q < kStepVectors && 4 * q < n - j; q += 4) {
        StoreSixteen(s + q, dst + j0 + j + 4 * q, n - j - 4 * q);
      }
    }
  }
}

// Doubles per row of the vertical pass's ring: the row's channel values and
// room for the last step's reads beyond them.
constexpr size_t RingRowLength(int32_t width) {
  return ((3 * static_cast<size_t>(width) + 3) & ~size_t{3}) + kAvx2Step;
}

// Vertical pass over several result rows. Intermediate row i is turned into
// doubles once, into row i % Taps of the ring, where the Taps result rows
// that read it find it.
template <int32_t Taps>
PICTURE_AVX2 void VerticalRingAvx2(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t dstWords, int32_t width,
                                   int32_t rows, const SeparableKernel& kernel, double* ring) {
  const int32_t total = 3 * width;
  const size_t length = RingRowLength(width);
  __m256d w[Taps];
  for (int32_t t = 0; t < Taps; ++t) w[t] = _mm256_set1_pd(kernel.weights[t]);
  for (int32_t i = 0; i < Taps - 1; ++i)
    RowToDoubles(top + static_cast<ptrdiff_t>(i) * stride, ring + i * length, total);
  alignas(16) uint8_t values[kConvolutionBlock];
  for (int32_t r = 0; r < rows; ++r) {
    const int32_t last = r + Taps - 1;
    RowToDoubles(top + static_cast<ptrdiff_t>(last) * stride, ring + (last % Taps) * length, total);
    const double* p[Taps];
    for (int32_t t = 0; t < Taps; ++t) p[t] = ring + ((r + t) % Taps) * length;
    const uint8_t* centre = top + static_cast<ptrdiff_t>(r + Taps / 2) * stride;
    uint32_t* out = dst + static_cast<ptrdiff_t>(r) * dstWords;
    for (int32_t j0 = 0; j0 < total; j0 += kConvolutionBlock) {
      const int32_t n = std::min(kConvolutionBlock, total - j0);
      for (int32_t j = 0; j < n; j += kAvx2Step) {
        __m256d s[kStepVectors];
        for (int32_t k = 0; k < kStepVectors; ++k) s[k] = _mm256_mul_pd(w[0], _mm256_loadu_pd(p[0] + j0 + j + 4 * k));
        for (int32_t t = 1; t < Taps; ++t) {
          for (int32_t k = 0; k < kStepVectors; ++k) {
            s[k] = _mm256_add_pd(s[k], _mm256_mul_pd(w[t], _mm256_loadu_pd(p[t] + j0 + j + 4 * k)));
          }
        }
        for (int32_t q = 0; q < kStepVectors && 4 * q < n - j; q += 4) {
          StoreSixteen(s + q, values + j + 4 * q, n - j - 4 * q);
        }
      }
      for (int32_t c = 0; c < 3; ++c) {
        if (kernel.channels & (1u << c)) continue;
        for (int32_t j = c; j < n; j += 3) values[j] = centre[j0 + j];
      }
      Rgb24ToXrgbRowFast(values, out + j0 / 3, n / 3);
    }
  }
}

using HorizontalReal = void (*)(const uint8_t*, uint8_t*, int32_t, const double*);

template <int32_t... I>
constexpr auto HorizontalTable(std::integer_sequence<int32_t, I...>) {
  return std::array<HorizontalReal, sizeof...(I)>{HorizontalRealAvx2<I + 2>...};
}
// Entry count - 2 for 2..20 taps.
constexpr auto kHorizontalReal = HorizontalTable(std::make_integer_sequence<int32_t, kMaxConvolutionTaps - 1>());

using VerticalRing = void (*)(const uint8_t*, int32_t, uint32_t*, int32_t, int32_t, int32_t, const SeparableKernel&,
                              double*);
template <int32_t... I>
constexpr auto RingTable(std::integer_sequence<int32_t, I...>) {
  return std::array<VerticalRing, sizeof...(I)>{VerticalRingAvx2<I + 2>...};
}
constexpr auto kVerticalRing = RingTable(std::make_integer_sequence<int32_t, kMaxConvolutionTaps - 1>());

bool RealOnAvx2(const DyadicWeights& dyadic) {
  static const bool avx2 = __builtin_cpu_supports("avx2");
  return avx2 && !dyadic.exact;
}
#endif

}  // namespace

void ConvolveRowHorizontalFast(const uint8_t* src, uint8_t* dst, int32_t count, const SeparableKernel& kernel) {
  const int32_t h = kernel.count / 2;
  const int32_t total = 3 * count;
  const DyadicWeights dyadic = FindDyadicWeights(kernel);
#if PICTURE_CONVOLUTION_AVX2
  const bool real = RealOnAvx2(dyadic);
  if (real) kHorizontalReal[kernel.count - 2](src, dst, total, kernel.weights);
#else
  const bool real = false;
#endif
  for (int32_t j0 = 0; j0 < total; j0 += kConvolutionBlock) {
    const int32_t n = std::min(kConvolutionBlock, total - j0);
    if (!real) FilterBlock(src + j0, 3, n, kernel, dyadic, dst + j0);
    // Channels that are not filtered are copied from the centre tap.
    for (int32_t c = 0; c < 3; ++c) {
      if (kernel.channels & (1u << c)) continue;
      for (int32_t j = c; j < n; j += 3) dst[j0 + j] = src[j0 + 3 * h + j];
    }
  }
}

void ConvolveRowVerticalFast(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t width,
                             const SeparableKernel& kernel) {
  const int32_t h = kernel.count / 2;
  const int32_t total = 3 * width;
  const DyadicWeights dyadic = FindDyadicWeights(kernel);
  uint8_t values[kConvolutionBlock];
  for (int32_t j0 = 0; j0 < total; j0 += kConvolutionBlock) {
    const int32_t n = std::min(kConvolutionBlock, total - j0);
    FilterBlock(top + j0, stride, n, kernel, dyadic, values);
    for (int32_t c = 0; c < 3; ++c) {
      if (kernel.channels & (1u << c)) continue;
      for (int32_t j = c; j < n; j += 3) values[j] = top[static_cast<ptrdiff_t>(h) * stride + j0 + j];
    }
    Rgb24ToXrgbRowFast(values, dst + j0 / 3, n / 3);
  }
}

size_t ConvolutionScratchBytes(int32_t width, int32_t count) {
#if PICTURE_CONVOLUTION_AVX2
  return static_cast<size_t>(count) * RingRowLength(width) * sizeof(double);
#else
  (void)width, (void)count;
  return 0;
#endif
}

void ConvolveRowsVerticalFast(const uint8_t* top, int32_t stride, uint32_t* dst, int32_t dstWords, int32_t width,
                              int32_t rows, const SeparableKernel& kernel, void* scratch) {
#if PICTURE_CONVOLUTION_AVX2
  if (RealOnAvx2(FindDyadicWeights(kernel))) {
    kVerticalRing[kernel.count - 2](top, stride, dst, dstWords, width, rows, kernel, static_cast<double*>(scratch));
    return;
  }
#endif
  (void)scratch;
  for (int32_t r = 0; r < rows; ++r) {
    ConvolveRowVerticalFast(top + static_cast<ptrdiff_t>(r) * stride, stride,
                            dst + static_cast<ptrdiff_t>(r) * dstWords, width, kernel);
  }
}
