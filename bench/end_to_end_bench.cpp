// Every handler end to end through the emulated host, on a 4000 x 3000 and a
// 640 x 480 picture, with the library's reads and the host's builds of each
// call measured apart; and, in a mode of its own, how one call's time and
// memory grow with the picture's size.
//
// "e2e/<method>/<size>" times one call as a REALbasic program makes it: the
// host's call machinery, the plug-in's handler (its reads of the pictures and
// its kernels), the pictures the host builds, and the release of the result.
// Its label names the picture work the call implies; "host/<work>/<size>" does
// that work alone, through the same reader and writer functions the handlers
// use but with no pixel work, and reports the seconds per call spent in the
// reads (counter read_s: the library's reader opening and closing, by
// whatever route it reads) and in the builds (build_s: the host turning
// writers into pictures, and releasing them):
//   call        a call of a method that does nothing with pixels (its time
//               is the call machinery; no split)
//   read-write  one picture read, one result of the same size built
//   read2-write, read3-write   two or three pictures read, one result built
//   read        one picture read, nothing built
//   write       one result built from nothing
//   rotate30    the reads and results of the three shear passes
//   rotate30-direct   one read and the result of a rotation by 30 degrees
//   scale-half, scale-double   one read, one result of the new size
//   clone       the host's own drawing (ClonePicture is all host work: build)
// Filling the writer buffer a result is built from is the plug-in's work and
// is in neither counter.
//
// picture_bench --scaling METHOD WxH CALLS runs CALLS calls of one method on
// a fresh picture in this process alone, and prints one JSON line: the wall
// time of each call, the CPU time all the calls took in this process and in
// the X server (less disturbed by other load than wall time), and the peak
// memory the calls add to this process and to the X server (the pixmaps live
// there) over what each had before the first call (peak resident set, VmHWM,
// after resetting it through clear_refs).
//
// "read/<route>/<size>" times one picture read alone, into the reader's
// layout (3 bytes a pixel, rows padded to 4 bytes), side by side for the
// ways its pixels can be fetched: "gdk" (the reader, through
// gdk_pixbuf_get_from_drawable), "shared-1m" (one new MIT-SHM XImage of about
// 1 MB a read, filled a band of rows at a time), "shared-whole" (one new
// shared image of the whole picture), "shared-1m-kept" (the 1 MB shared image
// made once and kept), "xgetimage" (one XGetImage of the whole picture).
// Every route's bytes are checked against the reader's once; the shared and
// XGetImage routes need a 24-bit TrueColor screen with 8-bit masks.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <sstream>
#include <unistd.h>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "bench/bench_pictures.h"
#include "geometry/kernels.h"
#include "host/host.h"
#include "host/host_state.h"
#include "pixels/handlers.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"

// Xlib's macros (None, Bool, ...) clash with the host's names: after them.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <gdk/gdkx.h>
#include <sys/shm.h>

namespace {

ph::Host& BenchHost() {
  static ph::Host* host = [] {
    std::string error;
    if (!ph::EnsureDisplay(&error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      std::exit(1);
    }
    ph::HostOptions options;
    options.pluginPath = PICTURE_PLUGIN_PATH;
    auto* h = new ph::Host(options);
    // The reader and writer code linked into this program reaches the same host.
    gResolver = [](const char* name) { return ph::ResolveEntryPoint(name); };
    return h;
  }();
  return *host;
}

// The pictures, blocks and filter instances of one size, made once.
struct Inputs {
  int32_t width, height;
  ph::Ref source, second, third;
  ph::Ref redTable, greenTable, blueTable;
  ph::Ref outBlock;  // large enough for every copy out
  ph::Ref rgbBlock, argbBlock, greyBlock;
  ph::Ref binary;
  ph::Ref sepia, convolution, lut3d, matrix, matrix3d, minmax;
};

std::vector<uint8_t> Bytes(const std::vector<uint32_t>& pixels, int stride, int order) {
  std::vector<uint8_t> out(pixels.size() * stride);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const uint32_t p = pixels[i];
    uint8_t* o = out.data() + i * stride;
    if (order == 3) {
      o[0] = static_cast<uint8_t>(p >> 16), o[1] = static_cast<uint8_t>(p >> 8), o[2] = static_cast<uint8_t>(p);
    } else if (order == 4) {
      o[0] = 255, o[1] = static_cast<uint8_t>(p >> 16), o[2] = static_cast<uint8_t>(p >> 8), o[3] = static_cast<uint8_t>(p);
    } else {
      o[0] = static_cast<uint8_t>(p >> 8);
    }
  }
  return out;
}

// The separable filter 1 4 6 4 1 (/16) both ways, on `source`.
ph::Ref NewConvolution(ph::Host& host, const ph::Ref& source) {
  ph::Ref c = host.NewInstance("PictureConvolutionQVT");
  host.SetProperty(c, "SourcePicture", source);
  host.SetProperty(c, "ValueCount", int32_t{5});
  const double taps[5] = {1 / 16.0, 4 / 16.0, 6 / 16.0, 4 / 16.0, 1 / 16.0};
  for (int32_t i = 0; i < 5; ++i) {
    host.AssignMethod(c, "Hor", {i}, taps[i]);
    host.AssignMethod(c, "Ver", {i}, taps[i]);
  }
  return c;
}

Inputs& InputsFor(int32_t width, int32_t height) {
  static std::map<int32_t, Inputs*> made;
  Inputs*& in = made[width];
  if (in) return *in;
  ph::Host& host = BenchHost();
  in = new Inputs;
  in->width = width;
  in->height = height;
  const std::vector<uint32_t> pixels = bench::BenchPixels(width, height, 0);
  in->source = host.NewPicture(width, height, pixels);
  in->second = host.NewPicture(width, height, bench::BenchPixels(width, height, 1));
  in->third = host.NewPicture(width, height, bench::BenchPixels(width, height, 2));

  std::vector<uint8_t> table(256);
  for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(s * 7);
  in->redTable = host.NewMemoryBlock(table);
  for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(255 - s);
  in->greenTable = host.NewMemoryBlock(table);
  for (int s = 0; s < 256; ++s) table[s] = static_cast<uint8_t>(s / 2);
  in->blueTable = host.NewMemoryBlock(table);

  in->outBlock = host.NewMemoryBlock(4 * width * height);
  in->rgbBlock = host.NewMemoryBlock(Bytes(pixels, 3, 3));
  in->argbBlock = host.NewMemoryBlock(Bytes(pixels, 4, 4));
  in->greyBlock = host.NewMemoryBlock(Bytes(pixels, 1, 1));
  in->binary = host.CallGlobal("PicturetoBinaryStringQVT", {in->source}).AsRef();

  in->sepia = host.NewInstance("PictureSepiaQVT");
  host.SetProperty(in->sepia, "SourcePicture", in->source);
  host.SetProperty(in->sepia, "SepiaRed", int32_t{40});
  host.SetProperty(in->sepia, "SepiaGreen", int32_t{20});
  host.SetProperty(in->sepia, "SepiaBlue", int32_t{-20});

  in->convolution = NewConvolution(host, in->source);

  in->lut3d = host.NewInstance("PictureLut3DQVT");
  host.SetProperty(in->lut3d, "SourcePicture", in->source);
  for (int32_t r = 0; r < 16; ++r)
    for (int32_t g = 0; g < 16; ++g)
      for (int32_t b = 0; b < 16; ++b) {
        host.AssignMethod(in->lut3d, "Table", {r, g, b, int32_t{0}}, 17.0 * g);
        host.AssignMethod(in->lut3d, "Table", {r, g, b, int32_t{1}}, 17.0 * b);
        host.AssignMethod(in->lut3d, "Table", {r, g, b, int32_t{2}}, 17.0 * r);
      }

  in->matrix = host.NewInstance("PictureMatrixQVT");
  host.SetProperty(in->matrix, "SourcePicture", in->source);
  host.SetProperty(in->matrix, "ScaleFactor", 1.0 / 273.0);
  const int32_t cells[25] = {1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 7, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1};
  for (int32_t i = 0; i < 25; ++i) host.AssignMethod(in->matrix, "Matrix", {i % 5, i / 5}, cells[i]);

  in->matrix3d = host.NewInstance("PictureMatrix3DQVT");
  host.SetProperty(in->matrix3d, "SourcePicture", in->source);
  const double m[4][3] = {{0.8, 0.1, 0.05}, {0.15, 0.85, 0.1}, {0.05, 0.05, 0.85}, {0, 0, 0}};
  for (int32_t i = 0; i < 3; ++i)
    for (int32_t j = 0; j < 3; ++j) host.AssignMethod(in->matrix3d, "Matrix", {i, j}, m[i][j]);
  host.AssignMethod(in->matrix3d, "Matrix", {int32_t{0}, int32_t{3}}, 10.0);

  in->minmax = host.NewInstance("PictureMinMaxQVT");
  return *in;
}

// ---- Host shares ------------------------------------------------------------------

REALpictureStruct* Handle(const ph::Ref& r) { return static_cast<REALpictureStruct*>(r.handle()); }
void Release(REALpictureStruct* p) {
  if (p) REALUnlockObject(reinterpret_cast<REALobjectStruct*>(p));
}

// The seconds one host-work iteration spends in the library's reads (opening
// and closing readers) and in the host's builds (turning writers into pictures,
// cloning, releasing results), each timed on its own clock; the rest of the
// iteration (filling the writer buffers) is not counted.
struct Split {
  double read = 0, build = 0;
  template <typename F>
  auto Time(double* into, F f) {
    const auto start = std::chrono::steady_clock::now();
    if constexpr (std::is_void_v<decltype(f())>) {
      f();
      *into += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    } else {
      auto r = f();
      *into += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      return r;
    }
  }
};

// A writer of w x h filled with picture-like content (the plug-in's work, untimed).
void FilledWriter(PictureWriter& writer, int32_t w, int32_t h) {
  NewPictureWriter(writer, w, h);
  for (int32_t y = 0; y < h; ++y) {
    uint32_t* row = WriterRow(writer, y);
    for (int32_t x = 0; x < w; ++x) row[x] = static_cast<uint32_t>(x * 0x010203 + y * 0x030201) & 0xFFFFFF;
  }
}

// Reads `count` pictures with the library's own reader and builds one w x h
// result (none when w is 0), as a handler does: the readers are closed before
// the host builds.
REALpictureStruct* ReadAndBuild(Split& split, REALpictureStruct* const* pictures, int count, int32_t w, int32_t h) {
  split.Time(&split.read, [&] {
    PictureReader readers[3];
    for (int i = 0; i < count; ++i) GetPictureReader(readers[i], pictures[i]);
  });
  if (w == 0) return nullptr;
  PictureWriter writer;
  FilledWriter(writer, w, h);
  return split.Time(&split.build, [&] { return RenderPictureWriter(writer); });
}

void HostShare(benchmark::State& state, const std::string& work, int32_t width, int32_t height) {
  Inputs& in = InputsFor(width, height);
  REALpictureStruct* const pictures[3] = {Handle(in.source), Handle(in.second), Handle(in.third)};
  Split split;
  auto release = [&](REALpictureStruct* p) { split.Time(&split.build, [&] { Release(p); }); };
  for (auto _ : state) {
    if (work == "call") {
      benchmark::DoNotOptimize(BenchHost().Call(in.source, "HasMaskQVT"));
    } else if (work == "read-write" || work == "read2-write" || work == "read3-write" || work == "read") {
      const int count = work == "read2-write" ? 2 : work == "read3-write" ? 3 : 1;
      release(ReadAndBuild(split, pictures, count, work == "read" ? 0 : width, height));
    } else if (work == "write") {
      release(ReadAndBuild(split, pictures, 0, width, height));
    } else if (work == "scale-half") {
      release(ReadAndBuild(split, pictures, 1, width / 2, height / 2));
    } else if (work == "scale-double") {
      release(ReadAndBuild(split, pictures, 1, width * 2, height * 2));
    } else if (work == "rotate30" || work == "rotate30-direct") {
      double theta, s, t;
      ShearFactors(30, &theta, &s, &t);
      ShearSizes sizes;
      ComputeShearSizes(width, height, theta, s, t, &sizes);
      if (work == "rotate30-direct") {
        release(ReadAndBuild(split, pictures, 1, sizes.width3, sizes.height2));
      } else {
        REALpictureStruct* pass1 = ReadAndBuild(split, pictures, 1, sizes.width1, height);
        REALpictureStruct* pass2 = ReadAndBuild(split, &pass1, 1, sizes.width1, sizes.height2);
        release(pass1);
        REALpictureStruct* pass3 = ReadAndBuild(split, &pass2, 1, sizes.width3, sizes.height2);
        release(pass2);
        release(pass3);
      }
    } else if (work == "clone") {
      release(split.Time(&split.build, [&] { return ClonePicture(pictures[0]); }));
    }
  }
  // Seconds per iteration; the benchmark's own time is the whole iteration.
  state.counters["read_s"] = benchmark::Counter(split.read, benchmark::Counter::kAvgIterations);
  state.counters["build_s"] = benchmark::Counter(split.build, benchmark::Counter::kAvgIterations);
}

// ---- Reads alone ---------------------------------------------------------------------

// A shared-memory XImage of `rows` rows, attached by the server; the segment
// is marked for removal as soon as both sides hold it.
struct SharedBand {
  Display* display;
  int32_t rows;
  XShmSegmentInfo info{0, -1, nullptr, False};
  XImage* image;
  SharedBand(Display* d, int32_t width, int32_t r) : display(d), rows(r) {
    image = XShmCreateImage(d, DefaultVisual(d, DefaultScreen(d)), 24, ZPixmap, nullptr, &info, width, rows);
    info.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(image->bytes_per_line) * rows, IPC_CREAT | 0600);
    info.shmaddr = image->data = static_cast<char*>(shmat(info.shmid, nullptr, 0));
    XShmAttach(d, &info);
    XSync(d, False);
    shmctl(info.shmid, IPC_RMID, nullptr);
  }
  ~SharedBand() {
    XShmDetach(display, &info);
    XSync(display, False);
    shmdt(info.shmaddr);
    image->data = nullptr;
    XDestroyImage(image);
  }
  void Read(Drawable drawable, int32_t width, int32_t height, uint8_t* out, int32_t rowBytes) {
    for (int32_t y = 0; y < height; y += rows) {
      image->height = std::min(rows, height - y);
      XShmGetImage(display, drawable, image, 0, y, AllPlanes);
      for (int32_t i = 0; i < image->height; ++i)
        XrgbToRgb24Row(reinterpret_cast<const uint32_t*>(image->data + i * image->bytes_per_line),
                       out + static_cast<size_t>(y + i) * rowBytes, width);
    }
  }
};

// One read of the picture by `route` into a new buffer of the reader's
// layout, as the reader's pixbuf is new for every read; `check` gets a copy.
void ReadBy(const std::string& route, REALpictureStruct* picture, SharedBand* kept,
            std::vector<uint8_t>* check = nullptr) {
  if (route == "gdk") {
    PictureReader reader;
    GetPictureReader(reader, picture);
    if (check) check->assign(reader.base, reader.base + static_cast<size_t>(reader.rowBytes) * reader.height);
    for (int32_t y = 0; check && y < reader.height; ++y)  // padding aside
      std::memset(check->data() + static_cast<size_t>(y) * reader.rowBytes + 3 * reader.width, 0,
                  reader.rowBytes - 3 * reader.width);
    return;
  }
  REALpictureDescription d{};
  REALLockPictureDescription(picture, &d);
  const int32_t width = d.width, height = d.height, rowBytes = (3 * width + 3) & ~3;
  const std::unique_ptr<uint8_t[]> buffer(new uint8_t[static_cast<size_t>(rowBytes) * height]);
  uint8_t* const out = buffer.get();
  auto* drawable = static_cast<GdkDrawable*>(d.pictureData);
  Display* display = GDK_DRAWABLE_XDISPLAY(drawable);
  const Drawable xid = gdk_x11_drawable_get_xid(drawable);
  if (route == "xgetimage") {
    XImage* image = XGetImage(display, xid, 0, 0, width, height, AllPlanes, ZPixmap);
    for (int32_t y = 0; y < height; ++y)
      XrgbToRgb24Row(reinterpret_cast<const uint32_t*>(image->data + y * image->bytes_per_line),
                     out + static_cast<size_t>(y) * rowBytes, width);
    XDestroyImage(image);
  } else if (kept) {
    kept->Read(xid, width, height, out, rowBytes);
  } else {
    SharedBand band(display, width, route == "shared-whole" ? height : std::max(1, (1 << 20) / (4 * width)));
    band.Read(xid, width, height, out, rowBytes);
  }
  if (check) check->assign(out, out + static_cast<size_t>(rowBytes) * height);
  REALUnlockPictureDescription(picture);
}

void ReadAlone(benchmark::State& state, const std::string& route, int32_t width, int32_t height) {
  REALpictureStruct* picture = Handle(InputsFor(width, height).source);
  GdkVisual* visual = gdk_visual_get_system();
  if (route != "gdk" && !(visual->type == GDK_VISUAL_TRUE_COLOR && visual->depth == 24 &&
                          visual->red_mask == 0xFF0000 && visual->green_mask == 0xFF00 && visual->blue_mask == 0xFF)) {
    state.SkipWithError("the screen's pixels are no 0x00RRGGBB words");
    return;
  }
  std::unique_ptr<SharedBand> kept;
  if (route == "shared-1m-kept")
    kept = std::make_unique<SharedBand>(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()), width,
                                        std::max(1, (1 << 20) / (4 * width)));
  std::vector<uint8_t> reference, bytes;
  ReadBy("gdk", picture, nullptr, &reference);
  ReadBy(route, picture, kept.get(), &bytes);
  if (bytes != reference) state.SkipWithError("the route's bytes differ from the reader's");
  for (auto _ : state) ReadBy(route, picture, kept.get());
}

// ---- The calls ---------------------------------------------------------------------

struct Case {
  const char* name;
  const char* work;  // the host share it implies, besides "call"
  std::function<ph::Value(ph::Host&, Inputs&)> call;
};

ph::Value Run(ph::Host& host, const ph::Ref& instance, std::vector<ph::Value> args = {}) {
  return host.CallMethod(instance, "Run", std::move(args));
}

std::vector<Case> Cases() {
  using ph::Color;
  using ph::Host;
  using ph::Value;
  return {
      {"CloneQVT", "clone", [](Host& h, Inputs& in) { return h.Call(in.source, "CloneQVT"); }},
      {"HMirrorQVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "HMirrorQVT"); }},
      {"VMirrorQVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "VMirrorQVT"); }},
      {"Rotate90QVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "Rotate90QVT"); }},
      {"Rotate180QVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "Rotate180QVT"); }},
      {"Rotate270QVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "Rotate270QVT"); }},
      {"RotateQVT(30)", "rotate30-direct",
       [](Host& h, Inputs& in) { return h.Call(in.source, "RotateQVT", {30.0, Color{0xFFFFFF}}); }},
      {"ScaleQVT(half)", "scale-half",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ScaleQVT", {in.width / 2, in.height / 2, true}); }},
      {"ScaleQVT(double)", "scale-double",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ScaleQVT", {in.width * 2, in.height * 2, false}); }},
      {"ScaleQVT(double,AntiAlias)", "scale-double",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ScaleQVT", {in.width * 2, in.height * 2, true}); }},
      {"ChangeBrightnessAbsoluteQVT", "read-write",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ChangeBrightnessAbsoluteQVT", {20.0}); }},
      {"ChangeBrightnessLinearQVT", "read-write",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ChangeBrightnessLinearQVT", {20.0, -10.0, 5.0}); }},
      {"ChangeContrastQVT", "read-write",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ChangeContrastQVT", {0.3}); }},
      {"ChangeCustomQVT", "read-write",
       [](Host& h, Inputs& in) { return h.Call(in.source, "ChangeCustomQVT", {1.2, -10.0}); }},
      {"InvertQVT", "read-write",
       [](Host& h, Inputs& in) { return h.Call(in.source, "InvertQVT", {0, 0, in.width, in.height}); }},
      {"AutoLevelQVT", "read-write", [](Host& h, Inputs& in) { return h.Call(in.source, "AutoLevelQVT"); }},
      {"TransformColorsQVT", "read-write",
       [](Host& h, Inputs& in) {
         return h.Call(in.source, "TransformColorsQVT", {in.redTable, in.blueTable, in.greenTable});
       }},
      {"CountColorQVT", "read",
       [](Host& h, Inputs& in) { return h.Call(in.source, "CountColorQVT", {Color{0x808080}}); }},
      {"CountColorsQVT", "read",
       [](Host& h, Inputs& in) {
         Value r{ph::Ref()}, b{ph::Ref()}, g{ph::Ref()}, n{int32_t{0}};
         h.Call(in.source, "CountColorsQVT", {Value::ByRef(&r), Value::ByRef(&b), Value::ByRef(&g), Value::ByRef(&n)});
         return n;
       }},
      {"BlendPicturesQVT", "read2-write",
       [](Host& h, Inputs& in) { return h.CallGlobal("BlendPicturesQVT", {in.source, 0.3, in.second, 0.7}); }},
      {"BlendPicturesWithMaskQVT", "read3-write",
       [](Host& h, Inputs& in) { return h.CallGlobal("BlendPicturesWithMaskQVT", {in.source, in.second, in.third}); }},
      {"CombinePicturesQVT", "read3-write",
       [](Host& h, Inputs& in) { return h.CallGlobal("CombinePicturesQVT", {in.source, in.second, in.third}); }},
      {"TintPictureQVT", "read-write",
       [](Host& h, Inputs& in) {
         return h.CallGlobal("TintPictureQVT", {in.source, Color{0x4C9640}, Color{0xFFE0B0}});
       }},
      {"PictureMatrixQVT.Run", "read-write", [](Host& h, Inputs& in) { return Run(h, in.matrix); }},
      {"PictureConvolutionQVT.Run", "read-write",
       [](Host& h, Inputs& in) { return Run(h, in.convolution, {int32_t{7}}); }},
      {"PictureMatrix3DQVT.Run", "read-write", [](Host& h, Inputs& in) { return Run(h, in.matrix3d); }},
      {"PictureLut3DQVT.Run", "read-write", [](Host& h, Inputs& in) { return Run(h, in.lut3d); }},
      {"PictureSepiaQVT.Run", "read-write", [](Host& h, Inputs& in) { return Run(h, in.sepia); }},
      {"PictureMinMaxQVT.FindAll", "read",
       [](Host& h, Inputs& in) { return h.CallMethod(in.minmax, "FindAll", {in.source}); }},
      {"CopyRGBtoMemoryblockQVT", "read",
       [](Host& h, Inputs& in) { return h.Call(in.source, "CopyRGBtoMemoryblockQVT", {in.outBlock, 0}); }},
      {"CopyARGBtoMemoryblockQVT", "read",
       [](Host& h, Inputs& in) {
         return h.Call(in.source, "CopyARGBtoMemoryblockQVT", {in.outBlock, 0, false, 255});
       }},
      {"CopyGtoMemoryblockQVT", "read",
       [](Host& h, Inputs& in) { return h.Call(in.source, "CopyGtoMemoryblockQVT", {in.outBlock, 0, 1}); }},
      {"MemoryblockRGBtoPictureQVT", "write",
       [](Host& h, Inputs& in) {
         return h.CallGlobal("MemoryblockRGBtoPictureQVT", {in.rgbBlock, 0, in.width, in.height});
       }},
      {"MemoryblockARGBtoPictureQVT", "write",
       [](Host& h, Inputs& in) {
         return h.CallGlobal("MemoryblockARGBtoPictureQVT", {in.argbBlock, 0, in.width, in.height, false});
       }},
      {"MemoryblockGrayToPictureQVT", "write",
       [](Host& h, Inputs& in) {
         return h.CallGlobal("MemoryblockGrayToPictureQVT", {in.greyBlock, 0, in.width, in.height, 1});
       }},
      {"PicturetoBinaryStringQVT", "read",
       [](Host& h, Inputs& in) { return h.CallGlobal("PicturetoBinaryStringQVT", {in.source}); }},
      {"BinaryStringtoPictureQVT", "write",
       [](Host& h, Inputs& in) { return h.CallGlobal("BinaryStringtoPictureQVT", {in.binary}); }},
  };
}

std::string SizeName(int32_t w, int32_t h) { return std::to_string(w) + "x" + std::to_string(h); }

void RegisterAll() {
  const int32_t sizes[2][2] = {{bench::kWidth, bench::kHeight}, {bench::kSmallWidth, bench::kSmallHeight}};
  for (const auto& size : sizes) {
    const int32_t w = size[0], h = size[1];
    const std::string suffix = "/" + SizeName(w, h);
    for (const Case& c : Cases()) {
      benchmark::RegisterBenchmark(("e2e/" + std::string(c.name) + suffix).c_str(),
                                   [c, w, h](benchmark::State& state) {
                                     ph::Host& host = BenchHost();
                                     Inputs& in = InputsFor(w, h);
                                     for (auto _ : state) {
                                       ph::Value v = c.call(host, in);
                                       if (v.IsNil()) state.SkipWithError("the method returned nil");
                                     }
                                     state.SetLabel(c.work);
                                   })
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.1);
    }
    for (const char* work : {"call", "read-write", "read2-write", "read3-write", "read", "write", "rotate30", "rotate30-direct",
                             "scale-half", "scale-double", "clone"}) {
      benchmark::RegisterBenchmark(("host/" + std::string(work) + suffix).c_str(),
                                   [work, w, h](benchmark::State& state) { HostShare(state, work, w, h); })
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.1);
    }
    for (const char* route : {"gdk", "shared-1m", "shared-whole", "shared-1m-kept", "xgetimage"}) {
      benchmark::RegisterBenchmark(("read/" + std::string(route) + suffix).c_str(),
                                   [route, w, h](benchmark::State& state) { ReadAlone(state, route, w, h); })
          ->Unit(benchmark::kMillisecond)
          ->MinTime(0.1);
    }
  }
}

// ---- Growth with size ----------------------------------------------------------------

// The methods whose growth is measured, by the names of their cases.
bool InScaling(const std::string& name) {
  return name == "RotateQVT(30)" || name == "ScaleQVT(half)" || name == "ScaleQVT(double)" || name == "InvertQVT" ||
         name == "PictureConvolutionQVT.Run";
}

// A field of /proc/PID/status in KiB ("VmHWM", "VmRSS"); -1 when unreadable.
long StatusKiB(const std::string& pid, const char* field) {
  std::ifstream f("/proc/" + pid + "/status");
  std::string line;
  const std::string key = std::string(field) + ":";
  while (std::getline(f, line))
    if (line.rfind(key, 0) == 0) return std::stol(line.substr(key.size()));
  return -1;
}

// A process's CPU time so far (user + system), in milliseconds; -1 if unreadable.
double CpuMs(const std::string& pid) {
  std::ifstream f("/proc/" + pid + "/stat");
  std::string text((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  const size_t end = text.rfind(')');  // the command name may hold spaces
  if (end == std::string::npos) return -1;
  std::istringstream fields(text.substr(end + 2));
  std::string skip;
  for (int i = 3; i < 14; ++i) fields >> skip;  // state .. cmajflt
  double user = -1, system = -1;
  fields >> user >> system;
  return user < 0 || system < 0 ? -1 : (user + system) * 1000.0 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// Resets a process's peak resident set to its present one; false when not allowed.
bool ResetPeak(const std::string& pid) {
  std::ofstream f("/proc/" + pid + "/clear_refs");
  f << "5";
  f.flush();
  return static_cast<bool>(f);
}

// The X server this process draws on, when it is an Xvfb started for it: a
// child (the host's own server) or a sibling (tools/with-xvfb.sh's); "" if none.
std::string XServerPid() {
  const std::string self = std::to_string(getpid()), parent = std::to_string(getppid());
  DIR* dir = opendir("/proc");
  std::string found;
  while (dirent* e = dir ? readdir(dir) : nullptr) {
    std::ifstream f(std::string("/proc/") + e->d_name + "/stat");
    std::string pid, comm, state, ppid;
    if (!(f >> pid >> comm >> state >> ppid) || comm != "(Xvfb)") continue;
    if (ppid == self || ppid == parent) found = pid;
  }
  if (dir) closedir(dir);
  return found;
}

int Scaling(const std::string& method, const std::string& size, int calls) {
  const Case* found = nullptr;
  static const std::vector<Case> cases = Cases();
  for (const Case& c : cases)
    if (method == c.name && InScaling(c.name)) found = &c;
  int32_t w = 0, h = 0;
  if (!found || std::sscanf(size.c_str(), "%dx%d", &w, &h) != 2 || w < 1 || h < 1 || calls < 1) {
    std::fprintf(stderr, "usage: picture_bench --scaling METHOD WxH CALLS (METHOD one of RotateQVT(30), "
                         "ScaleQVT(half), ScaleQVT(double), InvertQVT, PictureConvolutionQVT.Run)\n");
    return 2;
  }
  ph::Host& host = BenchHost();
  Inputs in;
  in.width = w;
  in.height = h;
  in.source = host.NewPicture(w, h, bench::BenchPixels(w, h, 0));
  in.convolution = NewConvolution(host, in.source);
  malloc_trim(0);  // what making the picture freed is not the calls' memory

  const std::string self = std::to_string(getpid()), server = XServerPid();
  const bool selfReset = ResetPeak(self), serverReset = !server.empty() && ResetPeak(server);
  const long selfBase = StatusKiB(self, "VmRSS"), serverBase = serverReset ? StatusKiB(server, "VmRSS") : -1;
  const double selfCpu = CpuMs(self), serverCpu = server.empty() ? -1 : CpuMs(server);
  std::ostringstream times;
  bool nil = false;
  for (int i = 0; i < calls; ++i) {
    const auto start = std::chrono::steady_clock::now();
    {
      ph::Value v = found->call(host, in);
      nil = nil || v.IsNil();
    }
    times << (i ? "," : "") << std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  }
  const double selfCpuUsed = CpuMs(self) - selfCpu, serverCpuUsed = server.empty() ? -1 : CpuMs(server) - serverCpu;
  const long selfPeak = selfReset ? StatusKiB(self, "VmHWM") : -1;
  const long serverPeak = serverReset ? StatusKiB(server, "VmHWM") : -1;
  std::printf("{\"method\": \"%s\", \"width\": %d, \"height\": %d, \"nil\": %s, \"ms\": [%s], "
              "\"cpu_ms\": %.0f, \"x_cpu_ms\": %.0f, \"peak_kib\": %ld, \"base_kib\": %ld, \"x_peak_kib\": %ld, "
              "\"x_base_kib\": %ld}\n",
              method.c_str(), w, h, nil ? "true" : "false", times.str().c_str(), selfCpuUsed, serverCpuUsed, selfPeak,
              selfBase, serverPeak, serverBase);
  return nil ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--scaling") return Scaling(argv[2], argv[3], std::atoi(argv[4]));
  RegisterAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
