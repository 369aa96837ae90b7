// Small arithmetic shared by the kernels: channel clamps and the 10-bit
// fixed-point weights of the blending and sepia kernels.
#pragma once

#include <cstdint>
#include <type_traits>

// A channel value held to 0..255. An integer is compared in its own width
// (so a 32-bit value stays 32-bit in a vectorised loop).
template <typename Int>
inline uint32_t ClampByte(Int value) {
  static_assert(std::is_integral_v<Int>);
  return value < 0 ? 0u : value > 255 ? 255u : static_cast<uint32_t>(value);
}

// A double is truncated toward zero; not-a-number gives 0. Written as selects
// on the double, so that loops over it vectorise.
inline uint32_t ClampByte(double value) {
  double v = value >= 255.0 ? 255.0 : value;
  v = value > 0.0 ? v : 0.0;
  return static_cast<uint32_t>(static_cast<int32_t>(v));
}

// A weight as a fixed-point number with 10 fraction bits, truncated toward
// zero and held to the 32-bit range; NaN gives 0.
inline int32_t FixedWeight(double weight) {
  const double fixed = weight * 1024.0;
  if (fixed != fixed) return 0;
  if (fixed >= 2147483647.0) return INT32_MAX;
  if (fixed <= -2147483648.0) return INT32_MIN;
  return static_cast<int32_t>(fixed);
}
