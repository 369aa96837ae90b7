// Readers and writers, driven directly (the test program carries the
// plug-in's code, connected to the shared host's entry points) so that their
// layouts can be checked byte by byte.
#include <glib-object.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/host_state.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "tests/support/direct_calls.h"

namespace {

class PixelAccess : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    gResolver = [](const char* name) { return ph::ResolveEntryPoint(name); };
  }
  // Every pixel of an open reader, row by row.
  static std::vector<uint32_t> Read(const PictureReader& r) {
    std::vector<uint32_t> pixels;
    for (int32_t i = 0; i < r.width * r.height; ++i) pixels.push_back(ReaderPixel(ReaderRow(r, i / r.width) + 3 * (i % r.width)));
    return pixels;
  }
};

// 5 x 2: three bytes a pixel, 15 bytes rounded up to 16; pixel (4, 1) at base + 28.
TEST_F(PixelAccess, ReaderRowsAreThreeBytesAPixelPaddedToFour) {
  std::vector<uint32_t> pixels(10);
  for (uint32_t i = 0; i < 10; ++i) pixels[i] = 0x010203 * (i + 1);
  ph::Ref five = Picture(5, 2, pixels);
  PictureReader r;
  ASSERT_TRUE(GetPictureReader(r, Handle(five)));
  EXPECT_EQ(std::tuple(r.rowBytes, r.width, r.height), std::tuple(16, 5, 2));
  EXPECT_EQ(r.base[28] << 16 | r.base[29] << 8 | r.base[30], int(pixels[9]));
  EXPECT_EQ(Read(r), pixels);
  r.Release();
}

// A writer starts black; a reader pixel becomes its 0x00RRGGBB word; the
// rendered picture takes the buffer. Sizes below 1 or above a host
// picture's 32767 a side, and sizes whose (height + 1) * width * 4 bytes
// leave 32 bits, are refused.
TEST_F(PixelAccess, WritersRenderTheirWordsAndRefuseSizesTheyCannotHold) {
  PictureWriter w;
  ASSERT_TRUE(NewPictureWriter(w, 5, 2));
  const uint8_t red[3] = {0xFF, 0, 0};
  Rgb24ToXrgbRow(red, WriterRow(w, 1) + 4, 1);
  WriterRow(w, 0)[0] = 0x123456;
  ph::Ref made = ph::Ref::Adopt(host().state().Find(RenderPictureWriter(w), "test"));
  EXPECT_EQ(w.buffer, nullptr);
  EXPECT_EQ(host().Pixels(made), (std::vector<uint32_t>{0x123456, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF0000}));
  for (auto [width, height] : {std::pair{0, 5}, {5, 0}, {5, -1}, {-3, 4}, {INT32_MIN, 1}, {32768, 1}, {2, 32768},
                               {16384, 32767}, {INT32_MAX, INT32_MAX}}) {
    EXPECT_FALSE(NewPictureWriter(w, width, height)) << width << " x " << height;
    EXPECT_TRUE(w.buffer == nullptr && w.width == 0);
  }
}

// Counts how often a pixbuf is finalised.
void CountFinalised(gpointer counter, GObject*) { ++*static_cast<int*>(counter); }

TEST_F(PixelAccess, ReaderHoldsOneLockAndReleasesItsPixbufOnce) {
  ph::Ref p = Flat(3, 2, 0x00FF00);
  PictureReader r;
  ASSERT_TRUE(GetPictureReader(r, Handle(p)));
  EXPECT_EQ(host().Locks(p), 1);
  EXPECT_EQ(r.clone, nullptr);
  int finalised = 0;
  g_object_weak_ref(G_OBJECT(r.pixbuf), CountFinalised, &finalised);
  r.Release();
  r.Release();  // again: every handle was cleared
  EXPECT_EQ(finalised, 1);
  EXPECT_EQ(host().Locks(p), 0);
  EXPECT_TRUE(r.picture == nullptr && r.pixbuf == nullptr);
  // No picture, no reader: left zeroed.
  const PictureReader zeroReader{};
  EXPECT_FALSE(GetPictureReader(r, nullptr));
  EXPECT_EQ(std::memcmp(&r, &zeroReader, sizeof r), 0);
}

using CloneAndBitmap = HostTest;

}  // namespace
