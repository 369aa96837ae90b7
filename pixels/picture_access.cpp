#include "pixels/picture_access.h"

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>
#include <gdk/gdkx.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
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

// Copies the drawable of a locked type-6 picture into a new pixbuf through
// GDK. False when GDK gives no pixels.
GdkPixbuf* CopyThroughGdk(GdkDrawable* drawable, int32_t width, int32_t height) {
  return gdk_pixbuf_get_from_drawable(nullptr, drawable, nullptr, 0, 0, 0, 0, width, height);
}

// True when the image's pixels are 32-bit words 0x??RRGGBB in the
// processor's byte order: a 24-bit TrueColor visual with 8-bit masks. Only
// there is the shared-image conversion known to give GDK's bytes; every
// other screen is read through GDK.
bool WordsAreXrgb(const GdkVisual* visual, const XImage& image) {
  return visual->type == GDK_VISUAL_TRUE_COLOR && visual->depth == 24 && image.depth == 24 &&
         image.bits_per_pixel == 32 && image.byte_order == LSBFirst && image.red_mask == 0xFF0000 &&
         image.green_mask == 0xFF00 && image.blue_mask == 0xFF;
}

// Reads the drawable through one shared-memory XImage of about `bandBytes`
// (at least one row), a band of rows at a time, into a new pixbuf of GDK's
// own layout. Nil, with nothing held, when the screen's pixels are no
// 0x??RRGGBB words, the server offers no shared memory or refuses it.
//
// The segment is marked for removal once the server has answered the first
// fetch (it has attached by then, or never will) or as soon as anything
// fails before, so that it disappears with the last detach, also when the
// process ends halfway. All X errors are trapped; the one synchronisation
// at the end reports them.
GdkPixbuf* CopyThroughSharedImage(GdkDrawable* drawable, int32_t width, int32_t height, int32_t bandBytes) {
  GdkVisual* visual = gdk_drawable_get_visual(drawable);
  Display* display = GDK_DRAWABLE_XDISPLAY(drawable);
  if (width < 1 || height < 1 || !visual || visual->depth != gdk_drawable_get_depth(drawable) ||
      !XShmQueryExtension(display))
    return nullptr;
  const auto rows = static_cast<int32_t>(std::clamp<int64_t>(bandBytes / (4 * int64_t{width}), 1, height));
  XShmSegmentInfo info{0, -1, nullptr, False};
  XImage* image = XShmCreateImage(display, gdk_x11_visual_get_xvisual(visual), static_cast<unsigned>(visual->depth),
                                  ZPixmap, nullptr, &info, static_cast<unsigned>(width), static_cast<unsigned>(rows));
  if (!image) return nullptr;
  if (WordsAreXrgb(visual, *image))
    info.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(image->bytes_per_line) * rows, IPC_CREAT | 0600);
  bool removed = info.shmid < 0;
  if (!removed) {
    void* address = shmat(info.shmid, nullptr, 0);
    if (address != reinterpret_cast<void*>(-1)) info.shmaddr = image->data = static_cast<char*>(address);
  }
  GdkPixbuf* pixbuf = info.shmaddr ? gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height) : nullptr;
  if (pixbuf) {
    guchar* pixels = gdk_pixbuf_get_pixels(pixbuf);
    const intptr_t stride = gdk_pixbuf_get_rowstride(pixbuf);
    gdk_error_trap_push();
    XShmAttach(display, &info);
    bool got = true;
    for (int32_t y = 0; got && y < height; y += rows) {
      image->height = std::min(rows, height - y);  // the segment holds at least as many
      got = XShmGetImage(display, gdk_x11_drawable_get_xid(drawable), image, 0, y, AllPlanes) != 0;
      if (!removed) {
        shmctl(info.shmid, IPC_RMID, nullptr);
        removed = true;
      }
      for (int32_t i = 0; got && i < image->height; ++i) {
        XrgbToRgb24Row(reinterpret_cast<const uint8_t*>(image->data) + intptr_t{i} * image->bytes_per_line,
                       pixels + (y + i) * stride, width);
      }
    }
    XShmDetach(display, &info);
    if ((gdk_error_trap_pop() != 0) | !got) {
      ReleasePixbuf(pixbuf);
      pixbuf = nullptr;
    }
  }
  if (!removed) shmctl(info.shmid, IPC_RMID, nullptr);
  if (info.shmaddr) shmdt(info.shmaddr);
  image->data = nullptr;  // not Xlib's allocation
  XDestroyImage(image);
  return pixbuf;
}

// Copies the drawable of a locked type-6 picture into a new pixbuf by `route`
// and points the reader at it. False when the route gives no pixels.
bool CopyDrawable(PictureReader& reader, DrawableRoute route, int32_t bandBytes) {
  const REALpictureDescription& d = reader.description;
  if (d.pictureType != kPictureTypeGdkDrawable || !d.pictureData) return false;
  auto* drawable = static_cast<GdkDrawable*>(d.pictureData);
  if (route == DrawableRoute::kAuto && PlainKernels()) route = DrawableRoute::kGdk;
  GdkPixbuf* pixbuf = nullptr;
  if (route != DrawableRoute::kGdk) pixbuf = CopyThroughSharedImage(drawable, d.width, d.height, bandBytes);
  if (!pixbuf && route != DrawableRoute::kSharedImage) pixbuf = CopyThroughGdk(drawable, d.width, d.height);
  if (!pixbuf) return false;
  guchar* pixels = gdk_pixbuf_get_pixels(pixbuf);
  if (!pixels) {
    ReleasePixbuf(pixbuf);
    return false;
  }
  reader.base = pixels;
  reader.pixbuf = pixbuf;
  reader.width = d.width;
  reader.height = d.height;
  reader.rowBytes = gdk_pixbuf_get_rowstride(pixbuf);
  return true;
}

}  // namespace

bool LockPictureReaderVia(PictureReader& reader, REALpictureStruct* picture, DrawableRoute route, int32_t bandBytes) {
  reader.Release();
  if (picture) {
    REALLockPictureDescription(picture, &reader.description);
    reader.picture = picture;
    if (CopyDrawable(reader, route, bandBytes)) return true;
    reader.Release();
  }
  return false;
}

bool LockPictureReader(PictureReader& reader, REALpictureStruct* picture, bool allowClone) {
  if (LockPictureReaderVia(reader, picture, DrawableRoute::kAuto, kReadBandBytes)) return true;
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

bool NewPictureWriter(PictureWriter& writer, int32_t width, int32_t height) {
  writer.Release();
  if (!FitsHostPicture(width, height)) return false;
  // (height + 1) rows of 4 * width bytes must be a 32-bit byte count.
  const uint64_t rowBytes = 4 * static_cast<uint64_t>(width);
  const uint64_t size = rowBytes * (static_cast<uint64_t>(height) + 1);
  if (size > INT32_MAX) return false;
  auto* buffer = static_cast<uint8_t*>(std::calloc(1, static_cast<size_t>(size)));
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

void XrgbToRgb24Row(const uint8_t* __restrict src, uint8_t* __restrict dst, int32_t width) {
  int32_t x = 0;
  for (; x + 4 <= width; x += 4) {
    ByteVector16 in;
    __builtin_memcpy(&in, src + 4 * static_cast<intptr_t>(x), sizeof in);
    const ByteVector16 out = __builtin_shufflevector(in, in, 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, 3, 7, 11, 15);
    __builtin_memcpy(dst + 3 * static_cast<intptr_t>(x), &out, 12);
  }
  for (; x < width; ++x) {
    dst[3 * x] = src[4 * x + 2];
    dst[3 * x + 1] = src[4 * x + 1];
    dst[3 * x + 2] = src[4 * x];
  }
}
