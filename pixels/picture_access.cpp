#include "pixels/picture_access.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "pixels/handlers.h"
#include "pixels/kernel_choice.h"
#include "plugin/host_calls.h"

namespace {

// The pixbuf's own release call, so that the library needs nothing of GObject.
void ReleasePixbuf(GdkPixbuf* pixbuf) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  gdk_pixbuf_unref(pixbuf);
#pragma GCC diagnostic pop
}

// Copies the drawable of a locked type-6 picture into a new pixbuf and points
// the reader at it. False when GDK gives no pixels.
bool CopyDrawable(PictureReader& reader) {
  const REALpictureDescription& d = reader.description;
  if (d.pictureType != kPictureTypeGdkDrawable || !d.pictureData) return false;
  // GDK fills a pixbuf of ours, rows padded to 4 bytes as its own would be,
  // whose memory comes in large pages where it is large.
  if (d.width < 1 || d.height < 1) return false;
  const size_t rowBytes = (3 * static_cast<size_t>(d.width) + 3) & ~size_t{3};
  if (rowBytes * static_cast<size_t>(d.height) > INT32_MAX) return false;
  auto* pixels = static_cast<guchar*>(CallocPixels(rowBytes * static_cast<size_t>(d.height)));
  if (!pixels) return false;
  GdkPixbuf* pixbuf = gdk_pixbuf_new_from_data(pixels, GDK_COLORSPACE_RGB, FALSE, 8, d.width, d.height,
                                               static_cast<int>(rowBytes),
                                               [](guchar* data, gpointer) { std::free(data); }, nullptr);
  if (!pixbuf) {
    std::free(pixels);
    return false;
  }
  if (!gdk_pixbuf_get_from_drawable(pixbuf, static_cast<GdkDrawable*>(d.pictureData), nullptr, 0, 0, 0, 0, d.width,
                                    d.height)) {
    ReleasePixbuf(pixbuf);
    return false;
  }
  reader.base = pixels;
  reader.pixbuf = pixbuf;
  reader.width = d.width;
  reader.height = d.height;
  reader.rowBytes = static_cast<int32_t>(rowBytes);
  return true;
}

}  // namespace

void* CallocPixels(size_t bytes) {
  void* buffer = std::calloc(1, bytes);
  // Every 4 KB page of a fresh buffer costs a fault when it is first written;
  // one large page covers 512 of them. Buffers this large are mapped afresh,
  // untouched but for the allocator's header in their first page.
  constexpr size_t kLarge = size_t{4} << 20;
  if (buffer && bytes >= kLarge) {
    const uintptr_t page = reinterpret_cast<uintptr_t>(buffer) & ~uintptr_t{4095};
    madvise(reinterpret_cast<void*>(page), reinterpret_cast<uintptr_t>(buffer) + bytes - page, MADV_HUGEPAGE);
  }
  return buffer;
}

bool LockPictureReader(PictureReader& reader, REALpictureStruct* picture, bool allowClone) {
  reader.Release();
  if (picture) {
    REALLockPictureDescription(picture, &reader.description);
    reader.picture = picture;
    if (CopyDrawable(reader)) return true;
    reader.Release();
  }
  if (!allowClone) return false;

  // Pictures whose own pixels cannot be copied are read through a 32-bit
  // clone drawn by the host (ClonePicture); one retry, never more.
  REALpictureStruct* clone = ClonePicture(picture);
  if (!clone) return false;
  const bool read = LockPictureReader(reader, clone, false);
  reader.clone = clone;  // released with the reader, also when it could not be read
  if (!read) reader.Release();
  return read;
}

bool GetPictureReader(PictureReader& reader, REALpictureStruct* picture) {
  return LockPictureReader(reader, picture, true);
}

void PictureReader::Release() {
  if (pixbuf) ReleasePixbuf(pixbuf);
  if (picture) REALUnlockPictureDescription(picture);
  if (clone) REALUnlockObject(AsObject(clone));
  rowBytes = width = height = 0;
  base = nullptr;
  picture = clone = nullptr;
  description = {};
  pixbuf = nullptr;
}

bool GetPictureEditor(PictureEditor& editor, REALpictureStruct*) {
  editor = {};
  return false;
}

void ClosePictureEditor(PictureEditor& editor) {
  if (editor.picture) {
    REALUnlockPictureDescription(editor.picture);
    editor.picture = nullptr;
  }
  if (editor.clone) {
    REALUnlockObject(AsObject(editor.clone));
    editor.clone = nullptr;
  }
}

bool NewPictureWriter(PictureWriter& writer, int32_t width, int32_t height, uint64_t bytes) {
  writer.Release();
  if (!FitsHostPicture(width, height)) return false;
  // (height + 1) rows of 4 * width bytes must be a 32-bit byte count.
  const uint64_t rowBytes = 4 * static_cast<uint64_t>(width);
  const uint64_t size = std::max(rowBytes * (static_cast<uint64_t>(height) + 1), bytes);
  if (size > INT32_MAX) return false;
  auto* buffer = static_cast<uint8_t*>(CallocPixels(static_cast<size_t>(size)));
  if (!buffer) return false;
  writer.width = width;
  writer.height = height;
  writer.rowBytes = static_cast<int32_t>(rowBytes);
  writer.base = buffer;
  writer.buffer = buffer;
  return true;
}

REALpictureStruct* RenderPictureWriter(PictureWriter& writer) {
  REALpictureStruct* picture = nullptr;
  if (writer.buffer) {
    picture =
        REALBuildPictureFromBuffer(writer.width, writer.height, kRBPixelTypeXRGB32, writer.buffer, writer.rowBytes);
  }
  writer.Release();
  return picture;
}

void PictureWriter::Release() {
  std::free(buffer);
  rowBytes = width = height = 0;
  base = buffer = nullptr;
}

HeldPicture::~HeldPicture() {
  if (picture_) REALUnlockObject(AsObject(picture_));
}

REALpictureStruct* ClonePicture(REALpictureStruct* picture) {
  if (!picture) return nullptr;
  REALpictureDescription description{};
  REALLockPictureDescription(picture, &description);
  REALpictureStruct* copy = REALNewPicture(description.width, description.height, 32);
  if (copy) {
    if (REALgraphicsStruct* graphics = REALGetPictureGraphics(copy)) {
      const RB::Rect whole{0, 0, static_cast<int16_t>(description.height), static_cast<int16_t>(description.width)};
      REALDrawPicturePrimitive(graphics, picture, &whole, 0);
      REALUnlockObject(AsObject(graphics));
    }
  }
  REALUnlockPictureDescription(picture);
  return copy;
}

REALpictureStruct* BitmapPicture(REALpictureStruct* picture) {
  if (!picture) return nullptr;
  REALLockObject(AsObject(picture));
  return picture;
}

void Rgb24ToXrgbRow(const uint8_t* src, uint32_t* dst, int32_t width) {
  for (int32_t x = 0; x < width; ++x, src += 3) dst[x] = ReaderPixel(src);
}

// The same conversion, four pixels at a time: one byte shuffle puts each
// pixel's red, green and blue into the bytes 2, 1 and 0 of a little-endian
// word and zero into byte 3.
PICTURE_VECTOR_CLONES
void Rgb24ToXrgbRowFast(const uint8_t* __restrict src, uint32_t* __restrict dst, int32_t width) {
  SpreadPixels(
      src, reinterpret_cast<uint8_t*>(dst), width, 0,
      [](ByteVector16 in, ByteVector16 zero) {
        return __builtin_shufflevector(in, zero, 2, 1, 0, 16, 5, 4, 3, 16, 8, 7, 6, 16, 11, 10, 9, 16);
      },
      ReaderPixel);
}
