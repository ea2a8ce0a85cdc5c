// How an image is cut into overlapping tiles.
#pragma once

#include <cstdint>

namespace project_lumen::core {

// Tiles of N = window pixels a side lie S = stride pixels apart on the image mirrored outward by
// the pads. The image begins at (leftPad, topPad); the last tile ends at the padded edge. All
// values are pixels, except the count.
struct TileGeometry {
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::int32_t window = 0;
  std::int32_t stride = 0;
  std::int32_t margin = 0;        // M = (N - S) / 2
  std::int32_t paddedWidth = 0;   // the width rounded up to a multiple of S, plus 2M
  std::int32_t paddedHeight = 0;  // likewise
  std::int32_t leftPad = 0;       // M
  std::int32_t rightPad = 0;      // what remains of paddedWidth
  std::int32_t topPad = 0;        // M
  std::int32_t bottomPad = 0;     // what remains of paddedHeight
  std::int32_t tileCount = 0;

  // Origin of the last tile column and row; the first is 0.
  [[nodiscard]] std::int32_t LastTileX() const { return paddedWidth - window; }
  [[nodiscard]] std::int32_t LastTileY() const { return paddedHeight - window; }
};

// Lays the tiles over an image of width x height pixels. Every pad is smaller than the window, and
// so than the image.
//
// Throws std::invalid_argument, in this order: "Image size is too small for the window!" when the
// image does not hold one window; "Invalid tile geometry: positive dimensions and stride within the
// window with even overlap are required."; "Image dimensions exceed supported tiling limits." when
// padded sizes or the tile count would leave 32 bits.
TileGeometry ComputeTileGeometry(std::int32_t width, std::int32_t height, std::int32_t window,
                                 std::int32_t stride);

}  // namespace project_lumen::core
