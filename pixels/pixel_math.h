// Small arithmetic shared by the kernels: channel clamps and the 10-bit
// fixed-point weights of the blending and sepia kernels.
#pragma once

#include <cstdint>

// An integer channel value held to 0..255.
inline uint32_t ClampByte(int64_t value) {
  return value < 0 ? 0u : value > 255 ? 255u : static_cast<uint32_t>(value);
}

// A channel value from a double: above 255 gives 255, below 0 gives 0, NaN
// gives 0, anything else is truncated toward zero.
inline uint8_t ClampTruncate(double v) {
  if (v > 255.0) return 255;
  if (v < 0.0) return 0;
  if (!(v == v)) return 0;  // NaN passes neither test
  return static_cast<uint8_t>(static_cast<int32_t>(v));
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
