#include "core/TileGeometry.h"

#include <limits>
#include <stdexcept>

namespace project_lumen::core {
namespace {

constexpr std::int64_t kMaximum = std::numeric_limits<std::int32_t>::max();

void CheckGeometry(std::int32_t width, std::int32_t height, std::int32_t window,
                   std::int32_t stride) {
  if (width < window || height < window) {
    throw std::invalid_argument("Image size is too small for the window!");
  }
  if (width <= 0 || height <= 0 || window <= 0 || stride <= 0 || stride > window ||
      (window - stride) % 2 != 0) {
    throw std::invalid_argument(
        "Invalid tile geometry: positive dimensions and stride within the window with even overlap "
        "are required.");
  }
  const std::int64_t largestSide = kMaximum - 2 * std::int64_t{window};
  const std::int64_t tileEstimate =
      (std::int64_t{height} / stride + 2) * (std::int64_t{width} / stride + 2);
  if (width > largestSide || height > largestSide || tileEstimate > kMaximum) {
    throw std::invalid_argument("Image dimensions exceed supported tiling limits.");
  }
}

std::int32_t RoundUp(std::int32_t length, std::int32_t stride) {
  const std::int32_t excess = length % stride;
  return excess == 0 ? length : length + (stride - excess);
}

}  // namespace

TileGeometry ComputeTileGeometry(std::int32_t width, std::int32_t height, std::int32_t window,
                                 std::int32_t stride) {
  CheckGeometry(width, height, window, stride);
  const std::int32_t margin = (window - stride) / 2;
  const std::int32_t innerWidth = RoundUp(width, stride);
  const std::int32_t innerHeight = RoundUp(height, stride);
  return {.width = width,
          .height = height,
          .window = window,
          .stride = stride,
          .margin = margin,
          .paddedWidth = innerWidth + 2 * margin,
          .paddedHeight = innerHeight + 2 * margin,
          .leftPad = margin,
          .rightPad = innerWidth + margin - width,
          .topPad = margin,
          .bottomPad = innerHeight + margin - height,
          .tileCount = (innerWidth / stride) * (innerHeight / stride)};
}

}  // namespace project_lumen::core
