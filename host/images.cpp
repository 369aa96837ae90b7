// Host pictures as GDK pixmaps: making, drawing, reading back, loading from
// and saving to image files, and the built-in sample picture.
#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "host/host_state.h"

namespace ph {

namespace {

// X pixmaps are limited to 16-bit sizes; larger pictures are refused like an
// allocation failure of a real host.
constexpr int32_t kLargestSide = 32767;
constexpr int64_t kLargestArea = int64_t{1} << 27;

GdkColormap* Colormap() { return gdk_screen_get_system_colormap(gdk_screen_get_default()); }

bool FitsHost(int64_t width, int64_t height) {
  return width >= 1 && height >= 1 && width <= kLargestSide && height <= kLargestSide && width * height <= kLargestArea;
}

HostError TooLarge(const std::string& source, const std::string& size) {
  return HostError(source + ": a picture of " + size + " is larger than the host makes (at most " +
                   std::to_string(kLargestSide) + " pixels a side and " + std::to_string(kLargestArea) +
                   " pixels in all)");
}

// One side of sample:WxH: decimal digits only, read in 64 bits so that a huge
// size cannot wrap into a small one. Sizes beyond 64 bits come out as the
// largest value, which the size check then refuses.
bool ParseSide(const std::string& text, int64_t* side) {
  if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return false;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *side);
  if (ec == std::errc::result_out_of_range) *side = INT64_MAX;
  return end == text.data() + text.size();
}

// Decodes an image file through an incremental loader whose size-prepared
// signal comes as soon as the header is read: a picture larger than the host
// makes is refused there, before any pixel memory is allocated. A zero size
// is the loaders' way to stop; the write then fails and the file is not read
// further.
GdkPixbuf* DecodeWithinLimits(const std::string& path) {
  FILE* in = std::fopen(path.c_str(), "rb");
  if (!in) throw HostError("cannot read image " + path + ": " + std::strerror(errno));
  struct Announced {
    int width = 0, height = 0;
    bool tooLarge = false;
  } announced;
  GdkPixbufLoader* loader = gdk_pixbuf_loader_new();
  auto onSize = +[](GdkPixbufLoader* l, int width, int height, gpointer data) {
    auto* a = static_cast<Announced*>(data);
    a->width = width;
    a->height = height;
    if (!FitsHost(width, height)) {
      a->tooLarge = true;
      gdk_pixbuf_loader_set_size(l, 0, 0);
    }
  };
  g_signal_connect(loader, "size-prepared", G_CALLBACK(onSize), &announced);
  GError* error = nullptr;
  bool ok = true;
  guchar chunk[1 << 16];
  while (ok && !announced.tooLarge) {
    const size_t n = std::fread(chunk, 1, sizeof chunk, in);
    if (n == 0) break;
    ok = gdk_pixbuf_loader_write(loader, chunk, n, &error);
  }
  std::fclose(in);
  if (!gdk_pixbuf_loader_close(loader, error ? nullptr : &error)) ok = false;
  GdkPixbuf* pixbuf = ok && !announced.tooLarge ? gdk_pixbuf_loader_get_pixbuf(loader) : nullptr;
  if (pixbuf) g_object_ref(pixbuf);
  g_object_unref(loader);
  const std::string message = error ? error->message : "no picture in the file";
  if (error) g_error_free(error);
  if (announced.tooLarge) {
    throw TooLarge(path, std::to_string(announced.width) + "x" + std::to_string(announced.height));
  }
  if (!pixbuf) throw HostError("cannot read image " + path + ": " + message);
  return pixbuf;
}

}  // namespace

Object* Host::State::MakePicture(int32_t width, int32_t height, const char* service) {
  if (!FitsHost(width, height)) return nullptr;
  GdkColormap* colormap = Colormap();
  GdkPixmap* pixmap = gdk_pixmap_new(nullptr, width, height, gdk_colormap_get_visual(colormap)->depth);
  if (!pixmap) return nullptr;
  gdk_drawable_set_colormap(pixmap, colormap);
  Object* o = NewObject(ObjectKind::Picture, service);
  o->pixmap = pixmap;
  o->width = width;
  o->height = height;
  byHandle[o->handle] = o;
  return o;
}

// The words are drawn in bands of 64 rows through one small RGB buffer: a
// copy of the whole picture would be fresh memory on every build, and on a
// large picture touching fresh pages costs more than the conversion itself.
void Host::State::DrawPixels(Object* picture, const uint32_t* pixels, int32_t rowWords) {
  const int32_t w = picture->width, h = picture->height;
  const int32_t band = std::min<int32_t>(h, 64);
  std::vector<guchar> rgb(static_cast<size_t>(w) * band * 3);
  GdkGC* gc = gdk_gc_new(picture->pixmap);
  for (int32_t y0 = 0; y0 < h; y0 += band) {
    const int32_t rows = std::min(band, h - y0);
    for (int32_t y = 0; y < rows; ++y) {
      const uint32_t* row = pixels + static_cast<size_t>(y0 + y) * rowWords;
      guchar* out = rgb.data() + static_cast<size_t>(y) * w * 3;
      for (int32_t x = 0; x < w; ++x) {
        out[3 * x] = (row[x] >> 16) & 0xFF;
        out[3 * x + 1] = (row[x] >> 8) & 0xFF;
        out[3 * x + 2] = row[x] & 0xFF;
      }
    }
    gdk_draw_rgb_image(picture->pixmap, gc, 0, y0, w, rows, GDK_RGB_DITHER_NONE, rgb.data(), w * 3);
  }
  g_object_unref(gc);
}

std::vector<uint32_t> Host::State::ReadPixels(const Object* picture) const {
  const int32_t w = picture->width, h = picture->height;
  std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
  GdkPixbuf* pixbuf = gdk_pixbuf_get_from_drawable(nullptr, picture->pixmap, Colormap(), 0, 0, 0, 0, w, h);
  if (!pixbuf) return pixels;
  const guchar* base = gdk_pixbuf_get_pixels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  for (int32_t y = 0; y < h; ++y) {
    const guchar* p = base + static_cast<size_t>(y) * stride;
    for (int32_t x = 0; x < w; ++x, p += channels) {
      pixels[static_cast<size_t>(y) * w + x] = (uint32_t{p[0]} << 16) | (uint32_t{p[1]} << 8) | p[2];
    }
  }
  g_object_unref(pixbuf);
  DiscardEvents();
  return pixels;
}

std::vector<uint32_t> SamplePixels(int32_t width, int32_t height) {
  // Four bands from top to bottom: a two-way colour gradient, colour bars,
  // a grey ramp with flat steps, and a pattern of sharp edges (checks and a
  // diagonal) over a flat dark area.
  std::vector<uint32_t> pixels(static_cast<size_t>(width) * height);
  const int32_t wd = std::max(width - 1, 1), hd = std::max(height - 1, 1);
  static const uint32_t kBars[8] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00, 0xFF00FF, 0xFF0000, 0x0000FF, 0x000000};
  for (int32_t y = 0; y < height; ++y) {
    const int32_t band = static_cast<int32_t>(int64_t{y} * 4 / height);
    for (int32_t x = 0; x < width; ++x) {
      uint32_t c;
      switch (band) {
        case 0: {
          const uint32_t r = static_cast<uint32_t>(int64_t{x} * 255 / wd);
          const uint32_t g = static_cast<uint32_t>(int64_t{y} * 255 / hd);
          c = (r << 16) | (g << 8) | (255 - r);
          break;
        }
        case 1: c = kBars[int64_t{x} * 8 / width]; break;
        case 2: {
          const uint32_t v = static_cast<uint32_t>((int64_t{x} * 8 / width) * 255 / 7);
          c = v * 0x010101;
          break;
        }
        default: {
          const bool check = ((x / 8) + (y / 8)) % 2 == 0;
          const bool above = int64_t{x} * height > int64_t{y} * width;
          c = x < width / 2 ? (check ? 0xE0E0E0 : 0x202020) : (above ? 0x3060C0 : 0x402010);
          break;
        }
      }
      pixels[static_cast<size_t>(y) * width + x] = c;
    }
  }
  return pixels;
}

Ref Host::LoadPicture(const std::string& source) {
  if (source.rfind("sample:", 0) == 0) {
    const std::string size = source.substr(7);
    const size_t x = size.find('x');
    int64_t w = 0, h = 0;
    if (x == std::string::npos || !ParseSide(size.substr(0, x), &w) || !ParseSide(size.substr(x + 1), &h) || w < 1 ||
        h < 1) {
      throw HostError("bad sample size in " + source + " (expected sample:WxH)");
    }
    if (!FitsHost(w, h)) throw TooLarge(source, size);
    const int32_t width = static_cast<int32_t>(w), height = static_cast<int32_t>(h);
    return NewPicture(width, height, SamplePixels(width, height));
  }
  GdkPixbuf* pixbuf = DecodeWithinLimits(source);
  const int w = gdk_pixbuf_get_width(pixbuf), h = gdk_pixbuf_get_height(pixbuf);
  if (!FitsHost(w, h)) {
    g_object_unref(pixbuf);
    throw TooLarge(source, std::to_string(w) + "x" + std::to_string(h));
  }
  const guchar* base = gdk_pixbuf_get_pixels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y) {
    const guchar* p = base + static_cast<size_t>(y) * stride;
    for (int x = 0; x < w; ++x, p += channels) {  // the alpha channel is dropped
      pixels[static_cast<size_t>(y) * w + x] = (uint32_t{p[0]} << 16) | (uint32_t{p[1]} << 8) | p[2];
    }
  }
  g_object_unref(pixbuf);
  return NewPicture(w, h, pixels);
}

bool Host::SavePicture(const Ref& picture, const std::string& path, std::string* error) const {
  if (!picture || picture.get()->kind != ObjectKind::Picture) {
    *error = "not a picture";
    return false;
  }
  std::string ext = path.substr(path.find_last_of('.') == std::string::npos ? path.size() : path.find_last_of('.') + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  const char* type = ext == "png"                      ? "png"
                     : ext == "bmp"                    ? "bmp"
                     : (ext == "jpg" || ext == "jpeg") ? "jpeg"
                     : (ext == "tif" || ext == "tiff") ? "tiff"
                                                       : nullptr;
  if (!type) {
    *error = "unknown image format for " + path + " (use .png, .bmp, .jpeg or .tiff)";
    return false;
  }
  // The folders of an output path are made as needed, as a user naming
  // thumbs/%n.png expects.
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  std::error_code made;
  if (!folder.empty() && !std::filesystem::create_directories(folder, made) && made) {
    *error = "cannot write " + path + ": cannot make the folder " + folder.string() + ": " + made.message();
    return false;
  }
  const std::vector<uint32_t> pixels = Pixels(picture);
  const int32_t w = picture.get()->width, h = picture.get()->height;
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, w, h);
  if (!pixbuf) {
    *error = "out of memory";
    return false;
  }
  guchar* base = gdk_pixbuf_get_pixels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  for (int32_t y = 0; y < h; ++y) {
    guchar* p = base + static_cast<size_t>(y) * stride;
    for (int32_t x = 0; x < w; ++x, p += 3) {
      const uint32_t c = pixels[static_cast<size_t>(y) * w + x];
      p[0] = (c >> 16) & 0xFF;
      p[1] = (c >> 8) & 0xFF;
      p[2] = c & 0xFF;
    }
  }
  GError* gerror = nullptr;
  const bool ok = gdk_pixbuf_save(pixbuf, path.c_str(), type, &gerror, nullptr);
  if (!ok) {
    *error = "cannot write " + path + ": " + (gerror ? gerror->message : "unknown error");
    if (gerror) g_error_free(gerror);
  }
  g_object_unref(pixbuf);
  return ok;
}

}  // namespace ph
