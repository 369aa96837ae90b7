// Pictures shared by the benchmarks: the built-in sample picture with a little
// noise on every channel (as a camera picture has; it keeps data-dependent
// branches honest).
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "host/host.h"
#include "tests/support/images.h"

namespace bench {

constexpr int32_t kWidth = 4000, kHeight = 3000;
constexpr int32_t kSmallWidth = 640, kSmallHeight = 480;

// The benchmark picture as host colours 0x00RRGGBB; `variant` gives other
// pictures of the same size (the second and third operand of blends).
inline std::vector<uint32_t> BenchPixels(int32_t width, int32_t height, uint32_t variant = 0) {
  const std::vector<uint32_t> sample = ph::SamplePixels(width, height);
  std::vector<uint32_t> pixels(sample.size());
  std::mt19937 rng(1234 + variant);
  for (size_t i = 0; i < pixels.size(); ++i) {
    uint32_t p = sample[i];
    if (variant == 1) p = ~p & 0xFFFFFF;                 // the negative
    if (variant == 2) p = sample[sample.size() - 1 - i];  // upside down
    uint32_t out = 0;
    for (int shift = 0; shift < 24; shift += 8) {
      int32_t c = static_cast<int32_t>((p >> shift) & 0xFF) + static_cast<int32_t>(rng() % 13) - 6;
      c = c < 0 ? 0 : c > 255 ? 255 : c;
      out |= static_cast<uint32_t>(c) << shift;
    }
    pixels[i] = out;
  }
  return pixels;
}

// Readers and writers over memory of their own, allocated (and touched) once,
// so that a kernel benchmark measures the kernel and not the first touch of
// new pages.
using testpix::ReaderImage;
using testpix::WriterImage;

}  // namespace bench
