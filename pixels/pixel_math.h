// Small arithmetic shared by the kernels: channel clamps and the 10-bit
// fixed-point weights of the blending and sepia kernels.
#pragma once

#include <cstdint>

// An integer channel value held to 0..255.
inline uint32_t ClampByte(int64_t value) {
  return value < 0 ? 0u : value > 255 ? 255u : static_cast<uint32_t>(value);
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
