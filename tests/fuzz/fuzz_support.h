// Shared by the fuzz targets: the emulated host with the plug-in loaded, a
// reader that turns the fuzzer's bytes into values, and the accounting check
// that turns every problem the host reports into a crash.
//
// The same target code runs under libFuzzer (clang build) and under the
// corpus replay of the ordinary test build (replay_main.cpp).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "host/host.h"

namespace fuzz {

// Starts the display and loads the plug-in; safe to call more than once.
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
  size_t remaining() const { return size_ - at_; }

  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  bool Bool() { return Byte() & 1; }
  uint16_t U16() { return static_cast<uint16_t>(Byte() | Byte() << 8); }
  uint32_t U32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t{Byte()} << (8 * i);
    return v;
  }
  int32_t I32() { return static_cast<int32_t>(U32()); }
  double Double() {
    uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) bits |= uint64_t{Byte()} << (8 * i);
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  // An index below `count` (count > 0).
  size_t Below(size_t count) { return count <= 256 ? Byte() % count : U16() % count; }
  template <typename T, size_t N>
  const T& Pick(const T (&table)[N]) {
    return table[Below(N)];
  }
  template <typename T>
  const T& Pick(const std::vector<T>& table) {
    return table[Below(table.size())];
  }
  // Up to `n` of the remaining bytes.
  std::span<const uint8_t> Take(size_t n) {
    const size_t k = n < remaining() ? n : remaining();
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

}  // namespace fuzz
