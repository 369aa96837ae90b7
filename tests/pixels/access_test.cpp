// Readers, writers, cloning and BitmapQVT. The reader and writer are driven
// directly (the test program carries the plug-in's code, connected to the
// shared host's entry points) so their layouts can be checked byte by byte.
#include <glib-object.h>
#include <gtest/gtest.h>

#include <cstring>

#include "host/host_state.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"
#include "tests/support/host_fixture.h"

namespace {

class PixelAccess : public HostTest {
 protected:
  void SetUp() override {
    HostTest::SetUp();
    gResolver = [](const char* name) { return ph::ResolveEntryPoint(name); };
  }

  static REALpictureStruct* Handle(const ph::Ref& r) { return static_cast<REALpictureStruct*>(r.handle()); }
};

// Counts how often a pixbuf is finalised.
void CountFinalised(gpointer counter, GObject*) { ++*static_cast<int*>(counter); }

TEST_F(PixelAccess, ReaderLayoutAndStride) {
  // 1 x 1: one row padded to 4 bytes.
  ph::Ref one = Flat(1, 1, 0xFF0000);
  PictureReader r;
  ASSERT_TRUE(GetPictureReader(r, Handle(one)));
  EXPECT_EQ(r.rowBytes, 4);
  EXPECT_EQ(r.width, 1);
  EXPECT_EQ(r.height, 1);
  EXPECT_EQ(r.base[0], 0xFF);
  EXPECT_EQ(r.base[1], 0);
  EXPECT_EQ(r.base[2], 0);
  ClosePictureReader(r);

  // 5 x 2: 15 bytes rounded up to 16; pixel (4, 1) at base + 28.
  std::vector<uint32_t> pixels(10);
  for (uint32_t i = 0; i < 10; ++i) pixels[i] = 0x010203 * (i + 1);
  ph::Ref five = Picture(5, 2, pixels);
  ASSERT_TRUE(GetPictureReader(r, Handle(five)));
  EXPECT_EQ(r.rowBytes, 16);
  EXPECT_EQ(r.base + 28, ReaderRow(r, 1) + 3 * 4);
  EXPECT_EQ(ReaderPixel(r.base + 28), pixels[9]);
  for (int32_t y = 0; y < 2; ++y) {
    for (int32_t x = 0; x < 5; ++x) EXPECT_EQ(ReaderPixel(ReaderRow(r, y) + 3 * x), pixels[5 * y + x]);
  }
  ClosePictureReader(r);
}

TEST_F(PixelAccess, WriterLayoutAndRendering) {
  PictureWriter w;
  ASSERT_TRUE(NewPictureWriter(w, 1, 1));
  EXPECT_EQ(w.rowBytes, 4);
  EXPECT_EQ(w.buffer, w.base);
  FreePictureWriter(w);
  EXPECT_EQ(w.buffer, nullptr);

  ASSERT_TRUE(NewPictureWriter(w, 5, 2));
  EXPECT_EQ(w.rowBytes, 20);
  // The buffer is zero-filled, including the spare row.
  for (int i = 0; i < 20 * 3; ++i) ASSERT_EQ(w.buffer[i], 0) << i;
  EXPECT_EQ(reinterpret_cast<uint8_t*>(WriterRow(w, 1) + 4), w.base + 36);

  // A red reader pixel becomes the bytes 00 00 FF 00, the word 0x00FF0000.
  const uint8_t red[3] = {0xFF, 0, 0};
  Rgb24ToXrgbRow(red, WriterRow(w, 1) + 4, 1);
  const uint8_t expected[4] = {0x00, 0x00, 0xFF, 0x00};
  EXPECT_EQ(std::memcmp(w.base + 36, expected, 4), 0);
  WriterRow(w, 0)[0] = 0x123456;

  ph::Ref made = ph::Ref::Adopt(host().state().Find(RenderPictureWriter(w), "test"));
  ASSERT_TRUE(made);
  EXPECT_EQ(w.buffer, nullptr);
  std::vector<uint32_t> expectedPixels(10, 0);
  expectedPixels[0] = 0x123456;
  expectedPixels[9] = 0xFF0000;
  EXPECT_EQ(host().Pixels(made), expectedPixels);
}

TEST_F(PixelAccess, WritersRefuseSizesTheyCannotHold) {
  PictureWriter w;
  const int32_t refused[][2] = {{0, 5}, {5, 0}, {5, -1}, {-3, 4}, {INT32_MIN, 1},
                                // (height + 1) * width * 4 must fit a 32-bit byte count
                                {65536, 8192}, {16384, 32767}, {INT32_MAX, INT32_MAX}};
  for (const auto& size : refused) {
    EXPECT_FALSE(NewPictureWriter(w, size[0], size[1])) << size[0] << " x " << size[1];
    EXPECT_EQ(w.buffer, nullptr);
    EXPECT_EQ(w.width, 0);
  }
}

TEST_F(PixelAccess, ReaderHoldsOneLockAndReleasesItsPixbufOnce) {
  ph::Ref p = Flat(3, 2, 0x00FF00);
  PictureReader r;
  ASSERT_TRUE(GetPictureReader(r, Handle(p)));
  EXPECT_EQ(host().Locks(p), 1);
  EXPECT_EQ(r.clone, nullptr);
  int finalised = 0;
  g_object_weak_ref(G_OBJECT(r.pixbuf), CountFinalised, &finalised);
  ClosePictureReader(r);
  EXPECT_EQ(finalised, 1);
  EXPECT_EQ(host().Locks(p), 0);
  EXPECT_EQ(r.picture, nullptr);
  EXPECT_EQ(r.pixbuf, nullptr);
  // Closing again changes nothing: every handle was cleared.
  ClosePictureReader(r);
  EXPECT_EQ(host().Locks(p), 0);
}

TEST_F(PixelAccess, NilPictureOpensNoReader) {
  PictureReader r;
  EXPECT_FALSE(GetPictureReader(r, nullptr));
  PictureReader zero{};
  EXPECT_EQ(std::memcmp(&r, &zero, sizeof r), 0);
}

TEST_F(PixelAccess, PictureThatIsNoDrawableIsReadThroughAClone) {
  const std::vector<uint32_t> pixels = {0x112233, 0x445566, 0x778899, 0xAABBCC};
  ph::Ref foreign = host().NewForeignPicture(2, 2, pixels);
  PictureReader r;
  EXPECT_FALSE(LockPictureReader(r, Handle(foreign), false));
  EXPECT_EQ(host().Locks(foreign), 0);

  ASSERT_TRUE(GetPictureReader(r, Handle(foreign)));
  ASSERT_NE(r.clone, nullptr);
  EXPECT_EQ(r.picture, r.clone);
  EXPECT_EQ(host().Locks(foreign), 0) << "the picture itself is unlocked once the clone is made";
  for (int32_t y = 0; y < 2; ++y) {
    for (int32_t x = 0; x < 2; ++x) EXPECT_EQ(ReaderPixel(ReaderRow(r, y) + 3 * x), pixels[2 * y + x]);
  }
  ClosePictureReader(r);  // releases the clone: the accounting check finds no leak
  EXPECT_EQ(r.clone, nullptr);
}

TEST_F(PixelAccess, EditorsAreNeverAvailable) {
  ph::Ref p = Flat(2, 2, 0);
  PictureEditor e;
  std::memset(&e, 0xAB, sizeof e);
  EXPECT_FALSE(GetPictureEditor(e, Handle(p)));
  PictureEditor zero{};
  EXPECT_EQ(std::memcmp(&e, &zero, sizeof e), 0);
  EXPECT_EQ(host().Locks(p), 0);
}

using CloneAndBitmap = HostTest;

TEST_F(CloneAndBitmap, CloneIsANewPictureWithTheSamePixels) {
  const std::vector<uint32_t> pixels = ph::SamplePixels(37, 23);
  ph::Ref p = Picture(37, 23, pixels);
  ph::Ref c = AsPicture(host().Call(p, "CloneQVT"));
  ASSERT_TRUE(c);
  EXPECT_NE(c.get(), p.get());
  EXPECT_EQ(host().Width(c), 37);
  EXPECT_EQ(host().Height(c), 23);
  EXPECT_EQ(host().Depth(c), 32);
  EXPECT_EQ(host().Pixels(c), pixels);
  EXPECT_EQ(host().References(p), 1);

  // A picture the plug-in cannot copy directly clones the same way.
  ph::Ref foreign = host().NewForeignPicture(37, 23, pixels);
  ph::Ref fc = AsPicture(host().Call(foreign, "CloneQVT"));
  ASSERT_TRUE(fc);
  EXPECT_EQ(host().Pixels(fc), pixels);
}

TEST_F(CloneAndBitmap, BitmapIsTheSamePictureWithAReferenceOfItsOwn) {
  ph::Ref p = Flat(4, 3, 0x336699);
  ph::Value b = host().Call(p, "BitmapQVT");
  ASSERT_FALSE(b.IsNil());
  EXPECT_EQ(b.AsRef().get(), p.get());
  EXPECT_EQ(host().References(p), 2);
}

TEST_F(CloneAndBitmap, NilGivesNil) {
  // A nil receiver reaches the handlers as a null handle.
  for (const char* method : {"CloneQVT", "BitmapQVT"}) {
    EXPECT_TRUE(host().Call(ph::Ref(), method).IsNil()) << method;
  }
}

}  // namespace
