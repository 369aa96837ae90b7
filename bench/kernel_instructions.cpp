// The kernels that trail OpenCV most, each run once on a small picture in a
// function of its own, beside OpenCV's equivalent, for counting instructions
// per pixel exactly (no timer, so noise does not enter):
//
//   valgrind --tool=callgrind --callgrind-out-file=ci.out build-bench/bench/picture_kernel_instructions
//   callgrind_annotate --inclusive=yes ci.out | grep Count_
//
// Each Count_ function's inclusive count divided by the pixel count printed
// at the start is the instructions per pixel. Every operation runs once
// before it is counted, so OpenCV's first-call set-up is not in the count.
#include <cstdint>
#include <cstdio>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <vector>

#include "bench/bench_pictures.h"
#include "filters/kernels.h"
#include "pixels/picture_access.h"
#include "pixels/pixel_math.h"
#include "tone/kernels.h"

namespace {

constexpr int32_t kW = 256, kH = 64;

struct Images {
  bench::ReaderImage source{kW, kH, bench::BenchPixels(kW, kH, 0)};
  bench::WriterImage result{kW, kH};
  std::vector<uint8_t> intermediate = std::vector<uint8_t>(static_cast<size_t>(kW) * 3 * kH);
  cv::Mat out;
  cv::Mat Source() const {
    return cv::Mat(kH, kW, CV_8UC3, source.reader.base, static_cast<size_t>(source.reader.rowBytes));
  }
};
Images* gImages;

template <typename Row>
void EachRow(Row row) {
  for (int32_t y = 0; y < kH; ++y) row(gImages->source.Row(y), gImages->result.Row(y), kW);
}

void OursTint() {
  const TintWeights w = MakeTintWeights(0x4C9640, 0xFFE0B0);
  EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { TintRowFast(s, d, n, w); });
}
void CvTint() {
  const cv::Matx33f m(0.3f, 0.59f, 0.11f, 0.264f, 0.5192f, 0.0968f, 0.207f, 0.4071f, 0.0759f);
  cv::transform(gImages->Source(), gImages->out, m);
}
void OursMatrix3D() {
  const ColorMatrix m = {{{0.8, 0.15, 0.05}, {0.1, 0.85, 0.05}, {0.05, 0.1, 0.85}}, {0, 0, 0}, {10, 5, -5}};
  EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { ColorMatrixRowFast(s, d, n, m); });
}
void CvMatrix3D() {
  const cv::Matx34f m(0.8f, 0.15f, 0.05f, 10, 0.1f, 0.85f, 0.05f, 5, 0.05f, 0.1f, 0.85f, -5);
  cv::transform(gImages->Source(), gImages->out, m);
}
const int32_t kCells[25] = {1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 7, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1};
void OursMatrix5x5() {
  MatrixKernel kernel;
  PrepareMatrixKernel(kernel, kCells);
  kernel.displacement = 0;
  kernel.scale = 1.0 / 273.0;
  kernel.channels = kChannelsAll;
  for (int32_t y = 2; y < kH - 2; ++y) {
    const uint8_t* rows[5];
    for (int32_t k = 0; k < 5; ++k) rows[k] = gImages->source.Row(y + k - 2);
    MatrixRowFast(rows, gImages->result.Row(y) + 2, kW - 4, kernel);
  }
}
void CvMatrix5x5() {
  cv::Mat k(5, 5, CV_32F);
  for (int i = 0; i < 25; ++i) k.at<float>(i / 5, i % 5) = static_cast<float>(kCells[i]) / 273.0f;
  cv::filter2D(gImages->Source(), gImages->out, -1, k);
}
void OursConvolution() {
  SeparableKernel k = {{0.1, 0.2, 0.4, 0.2, 0.1}, 5, kChannelsAll};
  const int32_t stride = 3 * kW, h = 2;
  uint8_t* mid = gImages->intermediate.data();
  for (int32_t y = 0; y < kH; ++y)
    ConvolveRowHorizontalFast(gImages->source.Row(y), mid + static_cast<size_t>(y) * stride + 3 * h, kW - 3 * h + 1, k);
  static std::vector<uint8_t> scratch(ConvolutionScratchBytes(kW, 5));
  ConvolveRowsVerticalFast(mid, stride, gImages->result.Row(h), kW, kW, kH - 3 * h + 1, k, scratch.data());
}
void CvConvolution() {
  const cv::Mat k = (cv::Mat_<double>(5, 1) << 0.1, 0.2, 0.4, 0.2, 0.1);
  cv::sepFilter2D(gImages->Source(), gImages->out, -1, k, k);
}
void OursLut3D() {
  static std::vector<double> lut(kLutEntries);
  for (int32_t i = 0; i < kLutEntries; ++i) lut[i] = 17.0 * (i / 54 % 18);
  static Lut3DPlan plan;
  PrepareLut3D(plan, lut.data());
  EachRow([&](const uint8_t* s, uint32_t* d, int32_t n) { Lut3DRowFast(s, d, n, plan); });
}
void Limit() { EachRow(Rgb24ToXrgbRowFast); }

}  // namespace

#define COUNT(name)                                    \
  __attribute__((noinline)) void Count_##name() {      \
    name();                                            \
    asm volatile("" ::: "memory");                     \
  }
COUNT(OursTint)
COUNT(CvTint)
COUNT(OursMatrix3D)
COUNT(CvMatrix3D)
COUNT(OursMatrix5x5)
COUNT(CvMatrix5x5)
COUNT(OursConvolution)
COUNT(CvConvolution)
COUNT(OursLut3D)
COUNT(Limit)

int main() {
  cv::setNumThreads(1);
  gImages = new Images;
  std::printf("pixels %d (%d x %d)\n", kW * kH, kW, kH);
  void (*const ops[])() = {OursTint, CvTint, OursMatrix3D, CvMatrix3D, OursMatrix5x5,
                           CvMatrix5x5, OursConvolution, CvConvolution, OursLut3D, Limit};
  for (auto op : ops) op();  // first calls: set-up, tables, page faults
  Count_OursTint();
  Count_CvTint();
  Count_OursMatrix3D();
  Count_CvMatrix3D();
  Count_OursMatrix5x5();
  Count_CvMatrix5x5();
  Count_OursConvolution();
  Count_CvConvolution();
  Count_OursLut3D();
  Count_Limit();
  return 0;
}
