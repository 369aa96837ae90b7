#include "cli/output.h"

#include <fcntl.h>
#include <jpeglib.h>
#include <png.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace ph {

namespace {

namespace fs = std::filesystem;

// --- Cleanup on interruption: plain arrays, read by a signal handler ---------

constexpr int kSlots = 8;
char gTemporary[kSlots][4096];  // empty: a free slot
volatile sig_atomic_t gChildren[64];

void OnSignal(int signal) {
  for (char* path : gTemporary) {
    if (path[0]) unlink(path);
  }
  for (volatile sig_atomic_t& child : gChildren) {
    if (child > 0) kill(static_cast<pid_t>(child), signal);
  }
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigaction(signal, &standard, nullptr);
  raise(signal);
}

// A file being written: registered for removal until Keep renames it.
class Temporary {
 public:
  explicit Temporary(const std::string& target) : target_(target) {
    const fs::path p(target);
    const fs::path folder = p.parent_path();
    std::error_code ec;
    if (!folder.empty() && !fs::create_directories(folder, ec) && ec) {
      throw HostError("cannot write " + target + ": cannot make the folder " + folder.string() + ": " + ec.message());
    }
    // The extension stays last: the host's savers choose the format by it.
    path_ =
        (folder / ("." + p.stem().string() + ".partial-" + std::to_string(getpid()) + p.extension().string())).string();
    for (slot_ = 0; slot_ < kSlots && gTemporary[slot_][0]; ++slot_) {
    }
    if (slot_ < kSlots && path_.size() < sizeof gTemporary[0])
      std::memcpy(gTemporary[slot_], path_.c_str(), path_.size() + 1);
  }
  ~Temporary() {
    if (!kept_) unlink(path_.c_str());
    if (slot_ < kSlots) gTemporary[slot_][0] = 0;
  }
  const std::string& path() const { return path_; }
  void Keep() {
    if (std::rename(path_.c_str(), target_.c_str()) != 0) {
      throw HostError("cannot write " + target_ + ": " + std::strerror(errno));
    }
    kept_ = true;
  }

 private:
  std::string target_, path_;
  int slot_ = kSlots;
  bool kept_ = false;
};

std::string Extension(const std::string& path) {
  std::string ext = fs::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return std::tolower(c); });
  return ext;
}

void Warn(const std::string& file, const std::string& what) {
  std::cerr << "picturehost: warning: " << file << ": " << what << "\n";
}

// --- JPEG ----------------------------------------------------------------------

struct JpegError {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
};

void JpegFail(j_common_ptr c) {
  auto* e = reinterpret_cast<JpegError*>(c->err);
  c->err->format_message(c, e->message);
  std::longjmp(e->jump, 1);
}

// Keeps the first warning's text; libjpeg counts them.
void JpegWarning(j_common_ptr c, int level) {
  auto* e = reinterpret_cast<JpegError*>(c->err);
  if (level < 0 && c->err->num_warnings++ == 0) c->err->format_message(c, e->message);
}

// False (and the reason) when the file is no JPEG this reader takes; the
// host's reader is asked then.
bool ReadJpeg(FILE* in, const std::string& path, std::vector<uint32_t>& pixels, int32_t& width, int32_t& height,
              std::string& problem) {
  jpeg_decompress_struct info{};
  JpegError error{};
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = JpegFail;
  error.manager.emit_message = JpegWarning;
  std::vector<uint8_t> row;
  if (setjmp(error.jump)) {
    problem = error.message;
    jpeg_destroy_decompress(&info);
    return false;
  }
  jpeg_create_decompress(&info);
  jpeg_stdio_src(&info, in);
  jpeg_read_header(&info, TRUE);
  if (info.jpeg_color_space == JCS_CMYK || info.jpeg_color_space == JCS_YCCK) {
    jpeg_destroy_decompress(&info);
    return false;
  }
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  width = static_cast<int32_t>(info.output_width);
  height = static_cast<int32_t>(info.output_height);
  if (width > 32767 || height > 32767 || int64_t{width} * height > (int64_t{1} << 27)) {
    jpeg_destroy_decompress(&info);
    throw HostError(path + ": a picture of " + std::to_string(width) + "x" + std::to_string(height) +
                    " is larger than the host makes (at most 32767 pixels a side and 134217728 pixels in all)");
  }
  pixels.assign(static_cast<size_t>(width) * height, 0);
  row.resize(static_cast<size_t>(width) * 3);
  while (info.output_scanline < info.output_height) {
    JSAMPROW rows[1] = {row.data()};
    const size_t y = info.output_scanline;
    jpeg_read_scanlines(&info, rows, 1);
    uint32_t* out = pixels.data() + y * width;
    for (int32_t x = 0; x < width; ++x) {
      out[x] = uint32_t{row[3 * x]} << 16 | uint32_t{row[3 * x + 1]} << 8 | row[3 * x + 2];
    }
  }
  jpeg_finish_decompress(&info);
  if (error.manager.num_warnings) Warn(path, std::string("the file is truncated or damaged (") + error.message + ")");
  jpeg_destroy_decompress(&info);
  return true;
}

void WriteJpeg(FILE* out, const std::vector<uint32_t>& pixels, int32_t width, int32_t height, int32_t quality) {
  jpeg_compress_struct info{};
  JpegError error{};
  info.err = jpeg_std_error(&error.manager);
  error.manager.error_exit = JpegFail;
  std::vector<uint8_t> row(static_cast<size_t>(width) * 3);
  if (setjmp(error.jump)) {
    jpeg_destroy_compress(&info);
    throw HostError(std::string("JPEG: ") + error.message);
  }
  jpeg_create_compress(&info);
  jpeg_stdio_dest(&info, out);
  info.image_width = static_cast<JDIMENSION>(width);
  info.image_height = static_cast<JDIMENSION>(height);
  info.input_components = 3;
  info.in_color_space = JCS_RGB;
  jpeg_set_defaults(&info);
  jpeg_set_quality(&info, quality < 0 ? 75 : quality, TRUE);
  jpeg_start_compress(&info, TRUE);
  while (info.next_scanline < info.image_height) {
    const uint32_t* in = pixels.data() + static_cast<size_t>(info.next_scanline) * width;
    for (int32_t x = 0; x < width; ++x) {
      row[3 * x] = (in[x] >> 16) & 0xFF;
      row[3 * x + 1] = (in[x] >> 8) & 0xFF;
      row[3 * x + 2] = in[x] & 0xFF;
    }
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&info, rows, 1);
  }
  jpeg_finish_compress(&info);
  jpeg_destroy_compress(&info);
}

// --- PNG -------------------------------------------------------------------------

void PngFail(png_structp png, png_const_charp message) {
  std::strncpy(static_cast<char*>(png_get_error_ptr(png)), message, 255);
  png_longjmp(png, 1);
}
void PngWarning(png_structp, png_const_charp) {}

bool ReadPng(FILE* in, const std::string& path, std::vector<uint32_t>& pixels, int32_t& width, int32_t& height,
             std::string& problem) {
  char message[256] = "";
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, message, PngFail, PngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return false;
  }
  std::vector<uint8_t> image;
  std::vector<png_bytep> rows;
  if (setjmp(png_jmpbuf(png))) {
    problem = message;
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_init_io(png, in);
  png_set_user_limits(png, 32767, 32767);
  png_read_info(png, info);
  width = static_cast<int32_t>(png_get_image_width(png, info));
  height = static_cast<int32_t>(png_get_image_height(png, info));
  if (int64_t{width} * height > (int64_t{1} << 27)) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw HostError(path + ": a picture of " + std::to_string(width) + "x" + std::to_string(height) +
                    " is larger than the host makes (at most 32767 pixels a side and 134217728 pixels in all)");
  }
  const int type = png_get_color_type(png, info);
  const bool alpha = (type & PNG_COLOR_MASK_ALPHA) || png_get_valid(png, info, PNG_INFO_tRNS);
  png_set_strip_16(png);
  png_set_packing(png);
  png_set_expand(png);
  png_set_strip_alpha(png);
  if (type == PNG_COLOR_TYPE_GRAY || type == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  const size_t stride = png_get_rowbytes(png, info);
  image.resize(stride * height);
  rows.resize(static_cast<size_t>(height));
  for (int32_t y = 0; y < height; ++y) rows[y] = image.data() + stride * y;
  png_read_image(png, rows.data());
  png_read_end(png, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  pixels.resize(static_cast<size_t>(width) * height);
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* p = rows[y];
    for (int32_t x = 0; x < width; ++x, p += 3) {
      pixels[static_cast<size_t>(y) * width + x] = uint32_t{p[0]} << 16 | uint32_t{p[1]} << 8 | p[2];
    }
  }
  if (alpha) Warn(path, "its transparency is dropped (host pictures have none; --mask gives a picture a mask)");
  return true;
}

void WritePng(FILE* out, const std::vector<uint32_t>& pixels, int32_t width, int32_t height) {
  char message[256] = "";
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, message, PngFail, PngWarning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  std::vector<uint8_t> row(static_cast<size_t>(width) * 3);
  if (!info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw HostError(std::string("PNG: ") + (message[0] ? message : "out of memory"));
  }
  png_init_io(png, out);
  // For photographs the "up" filter alone at zlib level 5 gives smaller files
  // than trying every filter at level 6 (libpng's and GdkPixbuf's default),
  // in a quarter of the time.
  png_set_compression_level(png, 5);
  png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, PNG_COLOR_TYPE_RGB,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int32_t y = 0; y < height; ++y) {
    const uint32_t* in = pixels.data() + static_cast<size_t>(y) * width;
    for (int32_t x = 0; x < width; ++x) {
      row[3 * x] = (in[x] >> 16) & 0xFF;
      row[3 * x + 1] = (in[x] >> 8) & 0xFF;
      row[3 * x + 2] = in[x] & 0xFF;
    }
    png_write_row(png, row.data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
}

}  // namespace

const char* ImageFormats() { return ".png, .jpg, .jpeg, .bmp, .tif or .tiff"; }

bool IsImageName(const std::string& path) {
  const std::string ext = Extension(path);
  for (const char* known : {".png", ".jpg", ".jpeg", ".bmp", ".tif", ".tiff"}) {
    if (ext == known) return true;
  }
  return false;
}

Ref LoadImage(Host& host, const std::string& source) {
  if (source.rfind("sample:", 0) == 0) return host.LoadPicture(source);
  FILE* in = std::fopen(source.c_str(), "rb");
  if (!in) throw HostError("cannot read image " + source + ": " + std::strerror(errno));
  unsigned char magic[8] = {};
  const size_t n = std::fread(magic, 1, sizeof magic, in);
  std::rewind(in);
  const bool jpeg = n >= 3 && magic[0] == 0xFF && magic[1] == 0xD8 && magic[2] == 0xFF;
  const bool png = n == 8 && png_sig_cmp(magic, 0, 8) == 0;
  std::vector<uint32_t> pixels;
  int32_t width = 0, height = 0;
  std::string problem;
  bool read = false;
  try {
    read = jpeg  ? ReadJpeg(in, source, pixels, width, height, problem)
           : png ? ReadPng(in, source, pixels, width, height, problem)
                 : false;
  } catch (...) {
    std::fclose(in);
    throw;
  }
  std::fclose(in);
  if (read) return host.NewPicture(width, height, pixels);
  // Formats of their own, and files these readers refuse, go to the host's
  // reader, which takes what it can of a damaged file.
  if (!problem.empty()) Warn(source, "the file is truncated or damaged (" + problem + ")");
  return host.LoadPicture(source);
}

void SaveImage(Host& host, const Ref& picture, const std::string& path, int32_t quality) {
  const std::string ext = Extension(path);
  if (!IsImageName(path)) {
    throw HostError("cannot write " + path + ": the name must end in " + std::string(ImageFormats()));
  }
  if (!picture) throw HostError("cannot write " + path + ": not a picture");
  Temporary file(path);
  if (ext == ".png" || ext == ".jpg" || ext == ".jpeg") {
    const std::vector<uint32_t> pixels = host.Pixels(picture);
    const int32_t width = host.Width(picture), height = host.Height(picture);
    FILE* out = std::fopen(file.path().c_str(), "wb");
    if (!out) throw HostError("cannot write " + path + ": " + std::strerror(errno));
    try {
      if (ext == ".png") {
        WritePng(out, pixels, width, height);
      } else {
        WriteJpeg(out, pixels, width, height, quality);
      }
    } catch (...) {
      std::fclose(out);
      throw;
    }
    if (std::fclose(out) != 0) throw HostError("cannot write " + path + ": " + std::strerror(errno));
  } else {
    std::string error;
    if (!host.SavePicture(picture, file.path(), &error)) throw HostError(error);
  }
  file.Keep();
}

void WriteFileSafely(const std::string& path, const std::vector<uint8_t>& bytes) {
  Temporary file(path);
  FILE* out = std::fopen(file.path().c_str(), "wb");
  if (!out) throw HostError("cannot write " + path + ": " + std::strerror(errno));
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size();
  if (std::fclose(out) != 0 || !ok) throw HostError("cannot write " + path + ": " + std::strerror(errno));
  file.Keep();
}

void InstallInterruptCleanup() {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  for (int s : {SIGINT, SIGTERM, SIGHUP}) sigaction(s, &action, nullptr);
}

void AddChild(pid_t pid) {
  for (volatile sig_atomic_t& child : gChildren) {
    if (child == 0) {
      child = pid;
      return;
    }
  }
}

void RemoveChild(pid_t pid) {
  for (volatile sig_atomic_t& child : gChildren) {
    if (child == pid) child = 0;
  }
}

}  // namespace ph
