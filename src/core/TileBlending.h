// Weights that blend overlapping tile outputs without a seam: linear ramps that sum to exactly one
// over the tiles that cover a pixel, so no division by a weight sum follows.
#pragma once

#include <cstdint>

#include "core/TileGeometry.h"

namespace project_lumen::core {

// The central square of a tile that takes part in the blend, in pixels from the tile's origin. For
// strides of at least half a window it is the whole tile, otherwise it has a side of two strides.
struct BlendRegion {
  std::int32_t start = 0;
  std::int32_t side = 0;
};
BlendRegion ComputeBlendRegion(const TileGeometry& geometry);

// A tile's weight along one axis at position t = 0..N-1; a sample's weight is the product of the
// weights along both. `first` and `last` say whether the tile is the outermost one on that side;
// its outer half, which no neighbour overlaps, is flat at 1. Elsewhere, for S >= N/2, the weight
// rises from 0 at the tile's edge to 1 where the neighbour ends; for S < N/2 it rises from 0 at the
// blend region's edge to 1 at the tile's centre and is negative, and unused,
// outside it.
double TileBlendWeight(const TileGeometry& geometry, bool first, bool last, std::int32_t t);

}  // namespace project_lumen::core
