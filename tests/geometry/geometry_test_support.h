// Helpers shared by the geometry tests: pixel buffers laid out like a reader
// (3 bytes per pixel, padded rows) and a writer, and handles for direct calls.
#pragma once

#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "tests/support/direct_calls.h"
#include "tests/support/pixels.h"

namespace geometry_test {

using testpix::Grey;
using testpix::Rgb;

inline std::vector<uint32_t> RandomPixels(int32_t w, int32_t h, uint32_t seed) { return testpix::RandomPixels(size_t(w) * h, seed); }

// A reader over a test-owned copy of `pixels`: rows padded to 4 bytes with
// 0xEE bytes, so a kernel that took padding for pixels would show it.
struct ReaderImage {
  std::vector<uint8_t> bytes;
  PictureReader reader{};
  ReaderImage(int32_t w, int32_t h, const std::vector<uint32_t>& pixels) {
    const int32_t rowBytes = (3 * w + 3) & ~3;
    bytes.assign(size_t(rowBytes) * h, 0xEE);
    for (int32_t i = 0; i < w * h; ++i) {
      uint8_t* p = &bytes[size_t(i / w) * rowBytes + 3 * (i % w)];
      p[0] = uint8_t(pixels[i] >> 16), p[1] = uint8_t(pixels[i] >> 8), p[2] = uint8_t(pixels[i]);
    }
    reader.rowBytes = rowBytes, reader.base = bytes.data(), reader.width = w, reader.height = h;
  }
};

// A writer of the given size.
struct WriterImage {
  PictureWriter writer{};
  WriterImage(int32_t w, int32_t h) { EXPECT_TRUE(NewPictureWriter(writer, w, h)); }
  uint32_t At(int32_t x, int32_t y) const { return WriterRow(writer, y)[x]; }
  std::vector<uint32_t> Pixels() const {
    std::vector<uint32_t> out;
    for (int32_t i = 0; i < writer.width * writer.height; ++i) out.push_back(At(i % writer.width, i / writer.width));
    return out;
  }
};

inline REALpictureStruct* Handle(const ph::Ref& r) { return static_cast<REALpictureStruct*>(r.handle()); }

// Releases a picture a direct call returned.
inline void Release(REALpictureStruct* picture) {
  if (picture) REALUnlockObject(reinterpret_cast<REALobjectStruct*>(picture));
}

}  // namespace geometry_test
