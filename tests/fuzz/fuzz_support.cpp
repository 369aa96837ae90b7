#include "tests/fuzz/fuzz_support.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace fuzz {

namespace {

ph::Host* gHost = nullptr;

}  // namespace

void Start() {
  if (gHost) return;
  std::string error;
  if (!ph::EnsureDisplay(&error)) {
    std::fprintf(stderr, "fuzz: %s\n", error.c_str());
    std::exit(1);
  }
  ph::HostOptions options;
  options.pluginPath = PICTURE_PLUGIN_PATH;
  gHost = new ph::Host(options);
  for (const std::string& p : gHost->TakeProblems()) Fail("registration: " + p);
}

ph::Host& TheHost() {
  if (!gHost) Start();
  return *gHost;
}

void Fail(const std::string& what) {
  std::fprintf(stderr, "fuzz failure: %s\n", what.c_str());
  std::fflush(stderr);
  std::abort();
}

void ExpectNoProblems(const std::string& after) {
  for (const std::string& p : TheHost().TakeProblems()) Fail("after " + after + ": " + p);
}

void ExpectClean(uint64_t mark, const std::string& after) {
  ExpectNoProblems(after);
  for (const std::string& p : TheHost().LeaksSince(mark)) Fail("after " + after + ": leak: " + p);
}

int32_t AdversarialInt(Input& in) {
  static const int32_t kTable[] = {
      0, 1, -1, 2, 3, 4, 5, 7, 8, 16, 17, 19, 20, 21, 24, 25, 31, 32, 63, 64, 127, 128, 255, 256, 257,
      1023, 1024, 4095, 32767, 32768, 65535, 65536, -2, -3, -255, -256, -32768, 1 << 24,
      0x40000000, 0x3FFFFFFF, 0x7FFFFFF0, std::numeric_limits<int32_t>::max(),
      std::numeric_limits<int32_t>::max() - 1, std::numeric_limits<int32_t>::min(),
      std::numeric_limits<int32_t>::min() + 1, static_cast<int32_t>(0x80000010u), 0x55555555,
      static_cast<int32_t>(0xAAAAAAAAu)};
  switch (in.Byte() % 4) {
    case 0:
    case 1: return in.Pick(kTable);
    case 2: return static_cast<int8_t>(in.Byte());  // small, either sign
    default: return in.I32();
  }
}

double AdversarialDouble(Input& in) {
  static const double kTable[] = {
      0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 2.0, 0.1, 1.0 / 9.0, 45.0, 90.0, 180.0, 270.0, 360.0, -90.0,
      -360.0, 359.9999999, 1e-300, -1e-300, 4.9e-324, 100.0, 255.0, 256.0, -255.0, 1024.0, 65536.0,
      2147483647.0, 2147483648.0, -2147483648.0, -2147483649.0, 4294967296.0, 9.3e18, -9.3e18,
      1e300, -1e300, std::numeric_limits<double>::max(), -std::numeric_limits<double>::max(),
      std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
      std::numeric_limits<double>::quiet_NaN(), -std::numeric_limits<double>::quiet_NaN()};
  switch (in.Byte() % 4) {
    case 0:
    case 1: return in.Pick(kTable);
    case 2: return static_cast<int8_t>(in.Byte()) / 4.0;
    default: return in.Double();
  }
}

uint32_t AdversarialColor(Input& in) {
  static const uint32_t kTable[] = {0x000000,   0xFFFFFF,   0x808080,   0xFF0000,   0x00FF00,
                                    0x0000FF,   0xFF000000, 0xFFFFFFFF, 0x80808080, 0x01000000,
                                    0x7F123456, 0x00555555, 0x00FFFFFE};
  return in.Bool() ? in.Pick(kTable) : in.U32();
}

void FillFrom(std::span<const uint8_t> seed, uint8_t* out, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    out[i] = seed.empty() ? static_cast<uint8_t>(i * 37 + (i >> 8)) : static_cast<uint8_t>(seed[i % seed.size()] + i / seed.size());
  }
}

}  // namespace fuzz
