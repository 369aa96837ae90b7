#include "tests/geometry/geometry_test_support.h"

#include <cstring>

#include "host/host_state.h"
#include "plugin/host_calls.h"

namespace geometry_test {

ReaderImage::ReaderImage(int32_t w, int32_t h, const std::vector<uint32_t>& pixels) {
  const int32_t rowBytes = (3 * w + 3) & ~3;
  bytes.assign(static_cast<size_t>(rowBytes) * h, 0xEE);
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      uint8_t* p = &bytes[static_cast<size_t>(y) * rowBytes + 3 * x];
      const uint32_t c = pixels[static_cast<size_t>(y) * w + x];
      p[0] = static_cast<uint8_t>(c >> 16);
      p[1] = static_cast<uint8_t>(c >> 8);
      p[2] = static_cast<uint8_t>(c);
    }
  }
  reader.rowBytes = rowBytes;
  reader.base = bytes.data();
  reader.width = w;
  reader.height = h;
}

WriterImage::WriterImage(int32_t w, int32_t h) { EXPECT_TRUE(NewPictureWriter(writer, w, h)); }

std::vector<uint32_t> WriterImage::Pixels() const {
  std::vector<uint32_t> out;
  for (int32_t y = 0; y < writer.height; ++y) {
    for (int32_t x = 0; x < writer.width; ++x) out.push_back(At(x, y));
  }
  return out;
}

namespace {

struct Hooks {
  bool refuseNewPictures = false;
  int failBuildsFrom = 0;
  int builds = 0;
} gHooks;

using NewPictureFn = void* (*)(int32_t, int32_t, int32_t);
using BuildFn = void* (*)(int32_t, int32_t, int32_t, void*, int32_t);

void* MaybeNewPicture(int32_t w, int32_t h, int32_t depth) {
  if (gHooks.refuseNewPictures) return nullptr;
  return reinterpret_cast<NewPictureFn>(ph::ResolveEntryPoint("newPicture"))(w, h, depth);
}

void* MaybeBuild(int32_t w, int32_t h, int32_t type, void* buffer, int32_t rowBytes) {
  ++gHooks.builds;
  if (gHooks.failBuildsFrom > 0 && gHooks.builds >= gHooks.failBuildsFrom) return nullptr;
  return reinterpret_cast<BuildFn>(ph::ResolveEntryPoint("REALBuildPictureFromBuffer"))(w, h, type, buffer,
                                                                                        rowBytes);
}

void* Resolve(const char* name) {
  if (!std::strcmp(name, "newPicture")) return reinterpret_cast<void*>(MaybeNewPicture);
  if (!std::strcmp(name, "REALBuildPictureFromBuffer")) return reinterpret_cast<void*>(MaybeBuild);
  return ph::ResolveEntryPoint(name);
}

}  // namespace

DirectCalls::DirectCalls(ph::Host& host) {
  // Any call through the host makes it the one whose services answer.
  host.Call(host.NewPicture(1, 1, std::vector<uint32_t>{0}), "CloneQVT");
  gResolver = Resolve;
  gHooks = Hooks{};
}

DirectCalls::~DirectCalls() { gHooks = Hooks{}; }
void DirectCalls::RefuseNewPictures(bool refuse) { gHooks.refuseNewPictures = refuse; }
void DirectCalls::FailBuildsFrom(int n) {
  gHooks.failBuildsFrom = n;
  gHooks.builds = 0;
}
int DirectCalls::Builds() const { return gHooks.builds; }

void SizeOf(REALpictureStruct* picture, int32_t* w, int32_t* h) {
  REALpictureDescription d{};
  REALLockPictureDescription(picture, &d);
  REALUnlockPictureDescription(picture);
  *w = d.width;
  *h = d.height;
}

void Release(REALpictureStruct* picture) {
  if (picture) REALUnlockObject(reinterpret_cast<REALobjectStruct*>(picture));
}

}  // namespace geometry_test
