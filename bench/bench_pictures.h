// Pictures shared by the benchmarks: the built-in sample picture with a little
// noise on every channel (as a camera picture has; it keeps data-dependent
// branches honest), laid out as a reader sees it and as a writer holds it.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "host/host.h"
#include "pixels/picture_access.h"

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

// A reader over memory of its own: 3 bytes per pixel, rows padded to 4 bytes.
struct ReaderImage {
  std::vector<uint8_t> bytes;
  PictureReader reader{};

  ReaderImage(int32_t width, int32_t height, const std::vector<uint32_t>& pixels) {
    const int32_t rowBytes = (3 * width + 3) & ~3;
    bytes.assign(static_cast<size_t>(rowBytes) * height, 0);
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* row = bytes.data() + static_cast<size_t>(y) * rowBytes;
      for (int32_t x = 0; x < width; ++x) {
        const uint32_t p = pixels[static_cast<size_t>(y) * width + x];
        row[3 * x] = static_cast<uint8_t>(p >> 16);
        row[3 * x + 1] = static_cast<uint8_t>(p >> 8);
        row[3 * x + 2] = static_cast<uint8_t>(p);
      }
    }
    reader.rowBytes = rowBytes;
    reader.base = bytes.data();
    reader.width = width;
    reader.height = height;
  }
  const uint8_t* Row(int32_t y) const { return ReaderRow(reader, y); }
};

// A writer over memory of its own, allocated (and touched) once, so that a
// kernel benchmark measures the kernel and not the first touch of new pages.
struct WriterImage {
  std::vector<uint32_t> words;
  PictureWriter writer{};

  WriterImage(int32_t width, int32_t height) {
    words.assign(static_cast<size_t>(width) * (height + 1), 0);
    writer.rowBytes = 4 * width;
    writer.base = reinterpret_cast<uint8_t*>(words.data());
    writer.width = width;
    writer.height = height;
  }
  uint32_t* Row(int32_t y) { return WriterRow(writer, y); }
};

}  // namespace bench
