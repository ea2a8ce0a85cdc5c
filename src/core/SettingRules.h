// What the settings of a run have to be. Who refuses one says so in words of its own.
#pragma once

#include <cmath>
#include <cstdint>

namespace project_lumen::core {

// Rows and columns of a tile.
inline constexpr std::int32_t kWindow = 512;

// A stride, in pixels, fits when it is both of these.
constexpr bool IsWithinWindow(std::int32_t stride) {
  return stride >= 1 && stride <= kWindow;
}
constexpr bool IsEven(std::int32_t stride) {
  return stride % 2 == 0;
}

// The shadows point as a multiple of the normalised MAD: it lies below the median.
inline bool IsShadowsMultiplier(double value) {
  return std::isfinite(value) && value < 0.0;
}

// The level that the stretch gives to the median.
inline bool IsTargetBackground(double value) {
  return value > 0.0 && value < 1.0;
}

}  // namespace project_lumen::core
