// Shared by the fuzz targets: the emulated host with the plug-in loaded, a
// reader that turns the fuzzer's bytes into values, and the accounting check
// that turns every problem the host reports into a crash.
//
// The same target code runs under libFuzzer (clang build) and under the
// corpus replay of the ordinary test build (replay_main.cpp).
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/host.h"

namespace fuzz {

// Starts the display and loads the plug-in; safe to call more than once.
// Every target's LLVMFuzzerInitialize (defined here) calls it.
void Start();
ph::Host& TheHost();

// Reports the failure with the call that was running and aborts, so that
// libFuzzer keeps the input and the replay test fails.
[[noreturn]] void Fail(const std::string& what);

// Aborts when the host has recorded any accounting problem (double release,
// unknown handle, picture left locked).
void ExpectNoProblems(const std::string& after);
// The same, and also when an object made since `mark` is still referenced.
void ExpectClean(uint64_t mark, const std::string& after);

// The fuzzer's bytes, read front to back. Reading past the end gives zeros,
// so every input decodes to something.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return at_ >= size_; }

  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  bool Bool() { return Byte() & 1; }
  // `n` bytes, little-endian.
  uint64_t Bits(int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i) v |= uint64_t{Byte()} << (8 * i);
    return v;
  }
  uint16_t U16() { return static_cast<uint16_t>(Bits(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Bits(4)); }
  int32_t I32() { return static_cast<int32_t>(U32()); }
  double Double() { return std::bit_cast<double>(Bits(8)); }
  // An index below `count` (count > 0).
  size_t Below(size_t count) { return count <= 256 ? Byte() % count : U16() % count; }
  template <typename T>
  const T& Pick(const std::vector<T>& table) {
    return table[Below(table.size())];
  }
  // Up to `n` of the remaining bytes.
  std::span<const uint8_t> Take(size_t n) {
    const size_t k = std::min(n, size_ - at_);
    std::span<const uint8_t> s(data_ + at_, k);
    at_ += k;
    return s;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

// Fills `out` with bytes drawn from `seed` repeated (or a fixed pattern when
// it is empty), so that large blocks need only a few input bytes.
void FillFrom(std::span<const uint8_t> seed, uint8_t* out, size_t n);
// `n` pixels of three bytes each drawn the same way.
std::vector<uint32_t> Pixels(std::span<const uint8_t> seed, size_t n);

}  // namespace fuzz
