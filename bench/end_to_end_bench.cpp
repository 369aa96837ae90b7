// Geometry timings on a 4000 x 3000 sample picture, end to end through the
// emulated host, and the host's share of each: reading the pixmap into a
// reader and building result pictures from writers, with no pixel work.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "geometry/rotate.h"
#include "host/host.h"
#include "host/host_state.h"
#include "pixels/picture_access.h"
#include "plugin/host_calls.h"

namespace {

constexpr int32_t kWidth = 4000, kHeight = 3000;

ph::Host& BenchHost() {
  static ph::Host* host = [] {
    ph::HostOptions options;
    options.pluginPath = PICTURE_PLUGIN_PATH;
    return new ph::Host(options);
  }();
  return *host;
}

const ph::Ref& Sample() {
  static ph::Ref sample = BenchHost().NewPicture(kWidth, kHeight, ph::SamplePixels(kWidth, kHeight));
  return sample;
}

// The plug-in code linked into this program reaches the same host.
void UseHostDirectly() {
  BenchHost().Call(Sample(), "BitmapQVT");
  gResolver = [](const char* name) { return ph::ResolveEntryPoint(name); };
}

void Check(benchmark::State& state, const ph::Value& v) {
  if (v.IsNil()) state.SkipWithError("the method returned nil");
}

void BM_RotateQVT30(benchmark::State& state) {
  for (auto _ : state) Check(state, BenchHost().Call(Sample(), "RotateQVT", {30.0, ph::Color{0xFFFFFF}}));
}

void BM_ScaleQVT(benchmark::State& state) {
  const int32_t w = static_cast<int32_t>(state.range(0)), h = static_cast<int32_t>(state.range(1));
  const bool antiAlias = state.range(2) != 0;
  for (auto _ : state) Check(state, BenchHost().Call(Sample(), "ScaleQVT", {w, h, antiAlias}));
}

void BM_CloneQVT(benchmark::State& state) {
  for (auto _ : state) Check(state, BenchHost().Call(Sample(), "CloneQVT"));
}

// Reads `picture` into a reader and renders an untouched writer of w x h:
// the host's work around one pass. Returns the new picture.
REALpictureStruct* ReadAndRender(REALpictureStruct* picture, int32_t w, int32_t h) {
  PictureReader reader;
  PictureWriter writer;
  if (!GetPictureReader(reader, picture)) return nullptr;
  REALpictureStruct* out = NewPictureWriter(writer, w, h) ? RenderPictureWriter(writer) : nullptr;
  ClosePictureReader(reader);
  return out;
}

void Release(REALpictureStruct* p) { REALUnlockObject(reinterpret_cast<REALobjectStruct*>(p)); }

// The host's share of one scaling: one read of the source, one result.
void BM_HostShareScale(benchmark::State& state) {
  UseHostDirectly();
  auto* source = static_cast<REALpictureStruct*>(Sample().handle());
  for (auto _ : state) {
    REALpictureStruct* out = ReadAndRender(source, static_cast<int32_t>(state.range(0)),
                                           static_cast<int32_t>(state.range(1)));
    if (!out) state.SkipWithError("no picture");
    Release(out);
  }
}

// The host's share of RotateQVT(30): the source and the first two passes are
// read, and the three passes are built, at the sizes the rotation uses.
void BM_HostShareRotate30(benchmark::State& state) {
  UseHostDirectly();
  double theta, s, t;
  ShearFactors(30, &theta, &s, &t);
  ShearSizes sizes;
  ComputeShearSizes(kWidth, kHeight, theta, s, t, &sizes);
  auto* source = static_cast<REALpictureStruct*>(Sample().handle());
  for (auto _ : state) {
    REALpictureStruct* pass1 = ReadAndRender(source, sizes.width1, kHeight);
    REALpictureStruct* pass2 = ReadAndRender(pass1, sizes.width1, sizes.height2);
    Release(pass1);
    REALpictureStruct* pass3 = ReadAndRender(pass2, sizes.width3, sizes.height2);
    Release(pass2);
    if (!pass3) state.SkipWithError("no picture");
    Release(pass3);
  }
}

}  // namespace

BENCHMARK(BM_RotateQVT30)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_HostShareRotate30)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ScaleQVT)
    ->ArgNames({"w", "h", "aa"})
    ->Args({kWidth / 2, kHeight / 2, 1})
    ->Args({kWidth / 2, kHeight / 2, 0})
    ->Args({kWidth * 2, kHeight * 2, 1})
    ->Args({kWidth * 2, kHeight * 2, 0})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_HostShareScale)
    ->ArgNames({"w", "h"})
    ->Args({kWidth / 2, kHeight / 2})
    ->Args({kWidth * 2, kHeight * 2})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_CloneQVT)->Unit(benchmark::kMillisecond)->Iterations(3);

BENCHMARK_MAIN();
