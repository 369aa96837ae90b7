// Every pixel kernel alone on a 4000 x 3000 picture (a reader-layout source,
// a writer-layout destination, both allocated once), beside the same
// operation in OpenCV on the same picture, single-threaded.
//
// Benchmarks are named "<kind>/<operation>": kind "ours" runs the kernels the
// library uses (fast variants where they exist), "plain" the plain reference
// kernels, "opencv" the OpenCV equivalent; "memory/limit" is the plain
// 3-byte to 4-byte row conversion every pointwise kernel is compared with.
// Throughput counts the pixels of the source picture (items_per_second).
#include <array>
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <string>
#include <vector>

#include "bench/bench_pictures.h"
#include "exchange/kernels.h"
#include "filters/kernels.h"
#include "geometry/kernels.h"
#include "pixels/kernel_choice.h"
#include "pixels/pixel_math.h"
#include "tone/handlers.h"
#include "tone/kernels.h"

namespace {

using bench::kHeight;
using bench::kWidth;
using bench::ReaderImage;
using bench::WriterImage;

struct Pictures {
  ReaderImage source{kWidth, kHeight, bench::BenchPixels(kWidth, kHeight, 0)};
  ReaderImage second{kWidth, kHeight, bench::BenchPixels(kWidth, kHeight, 1)};
  ReaderImage third{kWidth, kHeight, bench::BenchPixels(kWidth, kHeight, 2)};
  WriterImage result{kWidth, kHeight};
  WriterImage turned{kHeight, kWidth};
  std::vector<uint8_t> block = std::vector<uint8_t>(static_cast<size_t>(kWidth) * kHeight * 4, 1);

  cv::Mat Source() const { return Mat(source); }
  static cv::Mat Mat(const ReaderImage& r) {
    return cv::Mat(r.reader.height, r.reader.width, CV_8UC3, r.reader.base, static_cast<size_t>(r.reader.rowBytes));
  }
};

Pictures& P() {
  static Pictures* pictures = new Pictures;
  return *pictures;
}

// OpenCV's destinations, allocated once like ours.
cv::Mat& Scratch(int index) {
  static cv::Mat mats[8];
  return mats[index];
}

// While set, the pointwise benchmarks work on the first row every time: the
// data stays in the cache, so the time is the kernel's arithmetic alone.
bool gInCache = false;
int32_t Y(int32_t y) { return gInCache ? 0 : y; }

// Rows of the source through a row kernel into the result.
template <typename RowKernel>
void EachRow(RowKernel kernel) {
  Pictures& p = P();
  for (int32_t y = 0; y < kHeight; ++y) kernel(p.source.Row(Y(y)), p.result.Row(Y(y)), kWidth);
}

void TablesRow(const ChannelTables& t) {
  const auto row = ChooseKernel(ChannelTableRow, ChannelTableRowFast);
  const ChannelMap map = MakeChannelMap(t.red, t.green, t.blue);  // once per call, as the handlers do
  EachRow([&](const uint8_t* s, uint32_t* d, int32_t w) { row(s, d, w, map); });
}

// ---- Geometry: shears for Rotate(30) ----------------------------------------

PictureWriter& RotationResult() {
  static PictureWriter result;
  return result;
}

// ---- Registration -------------------------------------------------------------

int64_t gPixels = int64_t{kWidth} * kHeight;

void Register(const std::string& name, std::function<void()> work, bool plain = false, bool inCache = false) {
  benchmark::RegisterBenchmark(name.c_str(), [work, plain, inCache](benchmark::State& state) {
    SetPlainKernels(plain);
    gInCache = inCache;
    for (auto _ : state) {
      work();
      benchmark::ClobberMemory();
    }
    gInCache = false;
    SetPlainKernels(false);
    state.SetItemsProcessed(state.iterations() * gPixels);
  })->Unit(benchmark::kMillisecond)->MinTime(0.2);
}

const char* const kPointwise[] = {"brightness", "brightness-linear", "contrast", "curves", "inversion", "remapping",
                                  "blend", "blend-mask", "combine", "tint", "matrix3d", "sepia"};

// One operation: our kernels (fast, then plain) beside OpenCV's equivalent;
// for the pointwise ones also our kernel on one row again and again
// ("cache/OP"), which shows how much of its time is arithmetic.
void Operation(const std::string& op, std::function<void()> ours, std::function<void()> opencv) {
  Register("ours/" + op, ours);
  Register("plain/" + op, ours, true);
  if (opencv) Register("opencv/" + op, opencv);
  for (const char* p : kPointwise)
    if (op == p) Register("cache/" + op, ours, false, true);
}

ChannelTables Tables(void (*make)(double, uint8_t*), double r, double g, double b) {
  ChannelTables t;
  make(r, t.red);
  make(g, t.green);
  make(b, t.blue);
  return t;
}

void RegisterAll() {
  cv::setNumThreads(1);
  Pictures& p = P();
  const cv::Mat src = p.Source();

  // The memory limit: one pass that only converts 3-byte rows to 4-byte
  // rows, as fast as it goes (the fast variant of the row conversion).
  Register("memory/limit", [] { EachRow(Rgb24ToXrgbRowFast); });
  Register("cache/limit", [] { EachRow(Rgb24ToXrgbRowFast); }, false, true);

  // -- Turns and mirrors
  Operation("copy", [] { EachRow(ChooseKernel(Rgb24ToXrgbRow, Rgb24ToXrgbRowFast)); },
            [src] { cv::cvtColor(src, Scratch(0), cv::COLOR_RGB2BGRA); });
  Operation("hmirror", [] { HMirror(P().source.reader, P().result.writer); },
            [src] { cv::flip(src, Scratch(0), 1); });
  Operation("vmirror", [] { VMirror(P().source.reader, P().result.writer); },
            [src] { cv::flip(src, Scratch(0), 0); });
  Operation("rotate180", [] { Rotate180(P().source.reader, P().result.writer); },
            [src] { cv::rotate(src, Scratch(0), cv::ROTATE_180); });
  Operation("rotate90", [] { Rotate90(P().source.reader, P().turned.writer); },
            [src] { cv::rotate(src, Scratch(0), cv::ROTATE_90_COUNTERCLOCKWISE); });
  Operation("rotate270", [] { Rotate270(P().source.reader, P().turned.writer); },
            [src] { cv::rotate(src, Scratch(0), cv::ROTATE_90_CLOCKWISE); });

  // -- Free rotation by 30 degrees: the three shears, as the library makes
  // them in memory (each call makes its own pass 1 and result).
  Operation(
      "rotate30", [] { ShearInMemory(P().source.reader, 30.0, 0xFFFFFF, RotationResult()); },
      [src] {
        double theta, s, t;
        ShearFactors(30.0, &theta, &s, &t);
        ShearSizes sizes;
        ComputeShearSizes(kWidth, kHeight, theta, s, t, &sizes);
        const cv::Point2f centre(kWidth / 2.0f, kHeight / 2.0f);
        cv::Mat m = cv::getRotationMatrix2D(centre, 30.0, 1.0);
        m.at<double>(0, 2) += sizes.width3 / 2.0 - centre.x;
        m.at<double>(1, 2) += sizes.height2 / 2.0 - centre.y;
        cv::warpAffine(src, Scratch(0), m, cv::Size(sizes.width3, sizes.height2), cv::INTER_LINEAR,
                       cv::BORDER_CONSTANT, cv::Scalar(255, 255, 255));
      });

  // -- Scaling
  static WriterImage half(kWidth / 2, kHeight / 2);
  static WriterImage twice(kWidth * 2, kHeight * 2);
  Operation("scale-box-half", [] { ChooseKernel(ScaleBox, ScaleBoxFast)(P().source.reader, half.writer); },
            [src] { cv::resize(src, Scratch(0), cv::Size(kWidth / 2, kHeight / 2), 0, 0, cv::INTER_AREA); });
  Operation("scale-box-double", [] { ChooseKernel(ScaleBox, ScaleBoxFast)(P().source.reader, twice.writer); },
            [src] { cv::resize(src, Scratch(1), cv::Size(kWidth * 2, kHeight * 2), 0, 0, cv::INTER_NEAREST); });
  Operation("scale-cubic-double", [] { ScaleCubic(P().source.reader, twice.writer); },
            [src] { cv::resize(src, Scratch(1), cv::Size(kWidth * 2, kHeight * 2), 0, 0, cv::INTER_CUBIC); });

  // -- Brightness, contrast, curves, inversion, levels: tables per channel.
  Operation("brightness", [] { TablesRow(Tables(AbsBrightnessTable, 20, 20, 20)); },
            [src] { src.convertTo(Scratch(0), CV_8U, 1.0, 20.0); });
  Operation("brightness-linear", [] { TablesRow(Tables(LinBrightnessTable, 20, 20, 20)); },
            [src] { src.convertTo(Scratch(0), CV_8U, 235.0 / 255.0, 20.0); });
  Operation("contrast", [] { TablesRow(Tables(ContrastTable, 0.3, 0.3, 0.3)); },
            [src] { src.convertTo(Scratch(0), CV_8U, 1.3, -0.3 * 127.0); });
  Operation("curves", [] {
    ChannelTables t;
    LinearCurveTable(1.2, -10, t.red);
    std::memcpy(t.green, t.red, 256);
    std::memcpy(t.blue, t.red, 256);
    TablesRow(t);
  }, [src] { src.convertTo(Scratch(0), CV_8U, 1.2, -10.0); });
  Operation("inversion", [] {
    ChannelTables t;
    for (int s = 0; s < 256; ++s) t.red[s] = t.green[s] = t.blue[s] = static_cast<uint8_t>(255 - s);
    TablesRow(t);
  }, [src] { cv::bitwise_not(src, Scratch(0)); });
  static cv::Mat lut3(1, 256, CV_8UC3);
  static ChannelTables remap;
  for (int s = 0; s < 256; ++s) {
    remap.red[s] = static_cast<uint8_t>(s * 7);
    remap.green[s] = static_cast<uint8_t>(255 - s);
    remap.blue[s] = static_cast<uint8_t>(s / 2);
    lut3.at<cv::Vec3b>(0, s) = cv::Vec3b(remap.red[s], remap.green[s], remap.blue[s]);
  }
  Operation("remapping", [] { TablesRow(remap); }, [src] { cv::LUT(src, lut3, Scratch(0)); });
  Operation(
      "autolevel",
      [] {
        Pictures& pp = P();
        uint32_t histogram[256] = {};
        const auto hist = ChooseKernel(LuminanceHistogramRow, LuminanceHistogramRowFast);
        for (int32_t y = 0; y < kHeight; ++y) hist(pp.source.Row(y), kWidth, histogram);
        ChannelTables t;
        LevelsTable(ChooseLevels(histogram), t.red);
        std::memcpy(t.green, t.red, 256);
        std::memcpy(t.blue, t.red, 256);
        TablesRow(t);
      },
      [src] {
        cv::cvtColor(src, Scratch(2), cv::COLOR_RGB2GRAY);
        const int channels[] = {0};
        const int size[] = {256};
        const float range[] = {0, 256};
        const float* ranges[] = {range};
        cv::calcHist(&Scratch(2), 1, channels, cv::Mat(), Scratch(3), 1, size, ranges);
        cv::Mat lut(1, 256, CV_8U);
        for (int s = 0; s < 256; ++s) lut.at<uint8_t>(s) = static_cast<uint8_t>(255 - s);
        cv::LUT(src, lut, Scratch(0));
      });

  // -- Blending, combining, tinting
  const cv::Mat second = Pictures::Mat(p.second), third = Pictures::Mat(p.third);
  Operation("blend", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(BlendRow, BlendRowFast);
    const int32_t ws = FixedWeight(0.3), wd = FixedWeight(0.7);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(Y(y)), pp.second.Row(Y(y)), pp.result.Row(Y(y)), kWidth, ws, wd);
  }, [src, second] { cv::addWeighted(src, 0.3, second, 0.7, 0.0, Scratch(0)); });
  static cv::Mat maskWeights, keepWeights;
  {
    cv::Mat grey;
    cv::cvtColor(third, grey, cv::COLOR_RGB2GRAY);
    grey.convertTo(maskWeights, CV_32F, 1.0 / 255.0);
    keepWeights = 1.0 - maskWeights;
  }
  Operation("blend-mask", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(BlendMaskRow, BlendMaskRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(Y(y)), pp.second.Row(Y(y)), pp.third.Row(Y(y)), pp.result.Row(Y(y)), kWidth);
  }, [src, second] { cv::blendLinear(src, second, keepWeights, maskWeights, Scratch(0)); });
  Operation("combine", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(CombineRow, CombineRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(Y(y)), pp.second.Row(Y(y)), pp.third.Row(Y(y)), pp.result.Row(Y(y)), kWidth);
  }, [src, second, third] {
    Scratch(0).create(kHeight, kWidth, CV_8UC3);
    const cv::Mat in[] = {src, second, third};
    const int fromTo[] = {0, 0, 4, 1, 8, 2};
    cv::mixChannels(in, 3, &Scratch(0), 1, fromTo, 3);
  });
  Operation("tint", [] {
    const TintWeights w = MakeTintWeights(0x4C9640, 0xFFE0B0);
    const auto row = ChooseKernel(TintRow, TintRowFast);
    EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { row(s, d, n, w); });
  }, [src] {
    const cv::Matx33f m(0.3f * 1.0f, 0.59f, 0.11f, 0.3f * 0.88f, 0.59f * 0.88f, 0.11f * 0.88f, 0.3f * 0.69f,
                        0.59f * 0.69f, 0.11f * 0.69f);
    cv::transform(src, Scratch(0), m);
  });

  // -- Colour counting
  Operation("count-color", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(CountColorRow, CountColorRowFast);
    uint32_t n = 0;
    for (int32_t y = 0; y < kHeight; ++y) n += row(pp.source.Row(y), kWidth, 0x808080);
    benchmark::DoNotOptimize(n);
  }, [src] {
    cv::inRange(src, cv::Scalar(128, 128, 128), cv::Scalar(128, 128, 128), Scratch(2));
    benchmark::DoNotOptimize(cv::countNonZero(Scratch(2)));
  });
  Operation("channel-histograms", [] {
    Pictures& pp = P();
    const auto row = ChannelHistogramRow;  // no fast variant
    uint32_t r[256] = {}, g[256] = {}, b[256] = {};
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(y), kWidth, r, g, b);
    benchmark::DoNotOptimize(r);
  }, [src] {
    const int size[] = {256};
    const float range[] = {0, 256};
    const float* ranges[] = {range};
    for (int c = 0; c < 3; ++c) cv::calcHist(&src, 1, &c, cv::Mat(), Scratch(3 + c), 1, size, ranges);
  });

  // -- Filter classes
  Operation("matrix5x5", [] {
    Pictures& pp = P();
    static const int32_t cells[25] = {1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 7, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1};
    MatrixKernel kernel;
    PrepareMatrixKernel(kernel, cells);
    kernel.displacement = 0;
    kernel.scale = 1.0 / 273.0;
    kernel.channels = kChannelsAll;
    const auto row = ChooseKernel(MatrixRow, MatrixRowFast);
    for (int32_t y = 2; y < kHeight - 2; ++y) {
      const uint8_t* rows[5];
      for (int32_t k = 0; k < 5; ++k) rows[k] = pp.source.Row(y + k - 2);
      row(rows, pp.result.Row(y) + 2, kWidth - 4, kernel);
    }
  }, [src] {
    cv::Mat k(5, 5, CV_32F);
    static const float cells[25] = {1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 7, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1};
    for (int i = 0; i < 25; ++i) k.at<float>(i / 5, i % 5) = cells[i] / 273.0f;
    cv::filter2D(src, Scratch(0), -1, k);
  });
  static std::vector<uint8_t> intermediate(static_cast<size_t>(kWidth) * 3 * kHeight);
  static std::vector<uint8_t> scratch(ConvolutionScratchBytes(kWidth, 5));
  // Both passes of a 5-tap convolution with the same weights both ways, and
  // OpenCV's separable filter with them.
  const auto convolution = [src](const std::string& name, std::array<double, 5> w) {
    Operation(name, [w] {
      Pictures& pp = P();
      SeparableKernel k;
      for (int i = 0; i < kMaxConvolutionTaps; ++i) k.weights[i] = i < 5 ? w[i] : 0.0;
      k.count = 5;
      k.channels = kChannelsAll;
      const auto hor = ChooseKernel(ConvolveRowHorizontal, ConvolveRowHorizontalFast);
      const auto ver = ChooseKernel(ConvolveRowsVertical, ConvolveRowsVerticalFast);
      const int32_t stride = 3 * kWidth, h = 2;
      for (int32_t y = 0; y < kHeight; ++y)
        hor(pp.source.Row(y), intermediate.data() + static_cast<size_t>(y) * stride + 3 * h, kWidth - 3 * h + 1, k);
      ver(intermediate.data(), stride, pp.result.Row(h), kWidth, kWidth, kHeight - 3 * h + 1, k, scratch.data());
    }, [src, w] {
      const cv::Mat k = (cv::Mat_<double>(5, 1) << w[0], w[1], w[2], w[3], w[4]);
      cv::sepFilter2D(src, Scratch(0), -1, k, k);
    });
  };
  convolution("convolution", {1 / 16.0, 4 / 16.0, 6 / 16.0, 4 / 16.0, 1 / 16.0});
  // Weights that are not multiples of a power of two: the double arithmetic
  // path.
  convolution("convolution-real", {0.1, 0.2, 0.4, 0.2, 0.1});
  Operation("matrix3d", [] {
    ColorMatrix m = {{{0.8, 0.15, 0.05}, {0.1, 0.85, 0.05}, {0.05, 0.1, 0.85}}, {0, 0, 0}, {10, 5, -5}};
    const auto row = ChooseKernel(ColorMatrixRow, ColorMatrixRowFast);
    EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { row(s, d, n, m); });
  }, [src] {
    const cv::Matx34f m(0.8f, 0.15f, 0.05f, 10, 0.1f, 0.85f, 0.05f, 5, 0.05f, 0.1f, 0.85f, -5);
    cv::transform(src, Scratch(0), m);
  });
  Operation("sepia", [] {
    const SepiaWeights w = {FixedWeight(0.299), FixedWeight(0.587), FixedWeight(0.114), {40, 20, -20}};
    const auto row = ChooseKernel(SepiaRow, SepiaRowFast);
    EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { row(s, d, n, w); });
  }, [src] {
    const cv::Matx34f m(0.299f, 0.587f, 0.114f, 40, 0.299f, 0.587f, 0.114f, 20, 0.299f, 0.587f, 0.114f, -20);
    cv::transform(src, Scratch(0), m);
  });
  static std::vector<double> lut(kLutEntries);
  for (int32_t r = 0; r < kLutNodes; ++r)
    for (int32_t g = 0; g < kLutNodes; ++g)
      for (int32_t b = 0; b < kLutNodes; ++b) {
        lut[LutIndex(r, g, b, 0)] = 17.0 * g;  // a channel swap, so that the table matters
        lut[LutIndex(r, g, b, 1)] = 17.0 * b;
        lut[LutIndex(r, g, b, 2)] = 17.0 * r;
      }
  Operation("lut3d", [] {
    if (PlainKernels()) {
      EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { Lut3DRow(s, d, n, lut.data()); });
      return;
    }
    static Lut3DPlan* plan = new Lut3DPlan;
    PrepareLut3D(*plan, lut.data());  // once per run, as the filter does
    EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { Lut3DRowFast(s, d, n, *plan); });
  }, nullptr);
  Operation("minmax", [] {
    Pictures& pp = P();
    MinMaxSearch search;
    StartMinMaxSearch(search);
    const auto row = ChooseKernel(MinMaxRow, MinMaxRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(y), kWidth, y, search);
    benchmark::DoNotOptimize(search);
  }, [src] {
    cv::split(src, &Scratch(2));
    double lo, hi;
    cv::Point a, b;
    for (int c = 0; c < 3; ++c) cv::minMaxLoc((&Scratch(2))[c], &lo, &hi, &a, &b);
  });

  // -- Memory-block exchange
  Operation("block-rgb-out", [] {
    Pictures& pp = P();
    for (int32_t y = 0; y < kHeight; ++y) Rgb24ToBlockRgbRow(pp.source.Row(y), pp.block.data() + static_cast<size_t>(y) * 3 * kWidth, kWidth);
  }, [src] { src.copyTo(Scratch(0)); });
  Operation("block-argb-out", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(Rgb24ToArgbRow, Rgb24ToArgbRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(y), pp.block.data() + static_cast<size_t>(y) * 4 * kWidth, kWidth, false, 255);
  }, [src] { cv::cvtColor(src, Scratch(0), cv::COLOR_RGB2RGBA); });
  Operation("block-channel-out", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(Rgb24ChannelToStrideRow, Rgb24ChannelToStrideRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.source.Row(y), pp.block.data() + static_cast<size_t>(y) * kWidth, kWidth, 1, 1);
  }, [src] { cv::extractChannel(src, Scratch(2), 1); });
  Operation("block-argb-in", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(ArgbToXrgbRow, ArgbToXrgbRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.block.data() + static_cast<size_t>(y) * 4 * kWidth, pp.result.Row(y), kWidth, false);
  }, [] {
    const cv::Mat in(kHeight, kWidth, CV_8UC4, P().block.data());
    cv::cvtColor(in, Scratch(0), cv::COLOR_RGBA2BGRA);
  });
  Operation("block-grey-in", [] {
    Pictures& pp = P();
    const auto row = ChooseKernel(GrayStrideToXrgbRow, GrayStrideToXrgbRowFast);
    for (int32_t y = 0; y < kHeight; ++y) row(pp.block.data() + static_cast<size_t>(y) * kWidth, pp.result.Row(y), kWidth, 1);
  }, [] {
    const cv::Mat in(kHeight, kWidth, CV_8UC1, P().block.data());
    cv::cvtColor(in, Scratch(0), cv::COLOR_GRAY2BGRA);
  });
}

}  // namespace

int main(int argc, char** argv) {
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
