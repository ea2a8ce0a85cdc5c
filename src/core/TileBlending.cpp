#include "core/TileBlending.h"

#include <algorithm>

namespace project_lumen::core {

BlendRegion ComputeBlendRegion(const TileGeometry& geometry) {
  const std::int32_t halfStride = geometry.stride / 2;
  return {.start = std::max(0, geometry.margin - halfStride),
          .side = std::min(geometry.window, 2 * (halfStride - geometry.margin) + geometry.window)};
}

double TileBlendWeight(const TileGeometry& geometry, bool first, bool last, std::int32_t t) {
  const std::int32_t half = geometry.window / 2;
  const std::int32_t overlap = geometry.window - geometry.stride;
  if (overlap == 0 || (first && t <= half) || (last && t >= half)) {
    return 1.0;
  }
  const std::int32_t distance = std::min(t, geometry.window - t);
  if (geometry.stride >= half) {
    return static_cast<double>(std::min(distance, overlap)) / overlap;
  }
  return static_cast<double>(distance - (half - geometry.stride)) / geometry.stride;
}

}  // namespace project_lumen::core
