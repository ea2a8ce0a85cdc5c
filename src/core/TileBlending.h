// Weights that blend overlapping tile outputs without a seam: linear ramps that sum to exactly one
// over the tiles that cover a pixel, so no division by a weight sum follows.
#pragma once

#include <cstdint>

#include "core/TileGeometry.h"

namespace project_lumen::core {

// The central square of a tile that takes part in the blend, in pixels from the tile's origin. For
// strides of at least half a window it is the whole tile, otherwise it has a side of two strides.
struct KeptSquare {
  std::int32_t start = 0;
  std::int32_t side = 0;
};
KeptSquare ComputeKeptSquare(const TileGeometry& geometry);

// The factor that one axis gives to a tile's weight at position t = 0..N-1 along it. `first` and
// `last` say whether the tile is the outermost one on that side; its outer half, which no neighbour
// overlaps, is flat at 1. Elsewhere, for S >= N/2, the factor rises from 0 at the tile's edge to 1
// where the neighbour ends; for S < N/2 it rises from 0 at the kept square's edge to 1 at the
// tile's centre and is negative, and unused, outside the kept square.
double TileBlendFactor(const TileGeometry& geometry, bool first, bool last, std::int32_t t);

// Weight of the sample (column, row) of the tile with its origin at (tileX, tileY) of the padded
// image: the product of both axes' factors.
double TileBlendWeight(const TileGeometry& geometry, std::int32_t tileX, std::int32_t tileY,
                       std::int32_t column, std::int32_t row);

}  // namespace project_lumen::core
