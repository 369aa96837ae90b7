// Helpers shared by the geometry tests: pixel buffers laid out like a reader
// (3 bytes per pixel, padded rows) and direct calls of the handlers linked
// into the test program, with host services that can be made to fail.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "pixels/picture_access.h"
#include "tests/support/host_fixture.h"

namespace geometry_test {

inline uint32_t Rgb(uint32_t r, uint32_t g, uint32_t b) { return (r << 16) | (g << 8) | b; }

inline std::vector<uint32_t> RandomPixels(int32_t w, int32_t h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint32_t> px(static_cast<size_t>(w) * h);
  for (uint32_t& p : px) p = rng() & 0xFFFFFF;
  return px;
}

// A reader over a test-owned copy of `pixels`: rows padded to 4 bytes with
// 0xEE bytes, so a kernel that took padding for pixels would show it.
struct ReaderImage {
  std::vector<uint8_t> bytes;
  PictureReader reader{};
  ReaderImage(int32_t w, int32_t h, const std::vector<uint32_t>& pixels);
};

// A writer of the given size, freed at the end; At reads a word.
struct WriterImage {
  PictureWriter writer{};
  WriterImage(int32_t w, int32_t h);
  ~WriterImage() { FreePictureWriter(writer); }
  uint32_t At(int32_t x, int32_t y) const { return WriterRow(writer, y)[x]; }
  std::vector<uint32_t> Pixels() const;
};

// Direct calls: while alive, the handlers linked into the test program reach
// the shared host, except that "newPicture" can be refused (a foreign picture
// is then unreadable, its clone cannot be made) and that
// "REALBuildPictureFromBuffer" can be made to fail from its n-th call on.
class DirectCalls {
 public:
  explicit DirectCalls(ph::Host& host);
  ~DirectCalls();
  void RefuseNewPictures(bool refuse);
  void FailBuildsFrom(int n);  // 0: never
  int Builds() const;          // builds asked for so far
};

// Size of a picture handle, through the test program's own host calls.
void SizeOf(REALpictureStruct* picture, int32_t* w, int32_t* h);
void Release(REALpictureStruct* picture);

}  // namespace geometry_test
