#include "tests/fuzz/fuzz_support.h"

#include <cstdio>
#include <cstdlib>

#include "tests/support/api_table.h"

namespace fuzz {

void Start() { TheHost(); }

ph::Host& TheHost() {
  static ph::Host* host = [] {
    std::string error;
    if (!ph::EnsureDisplay(&error)) {
      std::fprintf(stderr, "fuzz: %s\n", error.c_str());
      std::exit(1);
    }
    ph::HostOptions options;
    options.pluginPath = PICTURE_PLUGIN_PATH;
    auto* h = new ph::Host(options);
    for (const std::string& p : h->TakeProblems()) Fail("registration: " + p);
    api::Members(*h);
    return h;
  }();
  return *host;
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

void FillFrom(std::span<const uint8_t> seed, uint8_t* out, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    out[i] = seed.empty() ? static_cast<uint8_t>(i * 37 + (i >> 8)) : static_cast<uint8_t>(seed[i % seed.size()] + i / seed.size());
  }
}

std::vector<uint32_t> Pixels(std::span<const uint8_t> seed, size_t n) {
  std::vector<uint8_t> bytes(3 * n);
  FillFrom(seed, bytes.data(), bytes.size());
  std::vector<uint32_t> pixels(n);
  for (size_t i = 0; i < n; ++i) pixels[i] = uint32_t{bytes[3 * i]} << 16 | uint32_t{bytes[3 * i + 1]} << 8 | bytes[3 * i + 2];
  return pixels;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::Start();
  return 0;
}
