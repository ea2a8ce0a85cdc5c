#include "core/TileBlending.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen::core {
namespace {

// Weight of the sample (column, row) of the tile with its origin at (tileX, tileY).
double WeightOf(const TileGeometry& geometry, std::int32_t tileX, std::int32_t tileY,
                std::int32_t column, std::int32_t row) {
  return TileBlendWeight(geometry, tileX == 0, tileX == geometry.LastTileX(), column) *
         TileBlendWeight(geometry, tileY == 0, tileY == geometry.LastTileY(), row);
}

TEST(TileBlendWeight, IsOneWhereTilesDoNotOverlap) {
  const TileGeometry geometry = ComputeTileGeometry(1024, 1024, 512, 512);
  for (const std::int32_t tile : {0, 512}) {
    for (const std::int32_t t : {0, 1, 255, 256, 511}) {
      EXPECT_EQ(WeightOf(geometry, tile, tile, t, 511 - t), 1.0);
    }
  }
}

TEST(TileBlendWeight, IsTheBilinearRampAtHalfStride) {
  // 1024 pixels at stride 256: the tiles at 256 and 512 are inner ones.
  const TileGeometry geometry = ComputeTileGeometry(1024, 1024, 512, 256);
  EXPECT_EQ(WeightOf(geometry, 256, 256, 256, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 256, 256, 64, 256), 0.25);
  EXPECT_EQ(WeightOf(geometry, 256, 512, 64, 384), 0.25 * 0.5);
  EXPECT_EQ(WeightOf(geometry, 512, 256, 511, 256), 1.0 / 256.0);
  EXPECT_EQ(WeightOf(geometry, 512, 256, 0, 256), 0.0);
}

TEST(TileBlendWeight, IsFlatOnTheOuterHalvesOfTheOutermostTiles) {
  const TileGeometry geometry = ComputeTileGeometry(1024, 1024, 512, 256);
  EXPECT_EQ(WeightOf(geometry, 0, 256, 0, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 0, 256, 256, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 0, 256, 320, 256), 0.75);
  EXPECT_EQ(WeightOf(geometry, 768, 256, 511, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 768, 256, 256, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 768, 256, 64, 256), 0.25);
  EXPECT_EQ(WeightOf(geometry, 256, 0, 256, 0), 1.0);
  EXPECT_EQ(WeightOf(geometry, 256, 768, 256, 511), 1.0);
}

TEST(TileBlendWeight, IsFlatInTheMiddleOfWideStrides) {
  // Overlap 128: a ramp over 128 pixels at either edge.
  const TileGeometry geometry = ComputeTileGeometry(1536, 1536, 512, 384);
  EXPECT_EQ(WeightOf(geometry, 384, 384, 32, 256), 0.25);
  EXPECT_EQ(WeightOf(geometry, 384, 384, 128, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 384, 384, 300, 384), 1.0);
  EXPECT_EQ(WeightOf(geometry, 384, 384, 448, 480), 0.5 * 0.25);
}

TEST(TileBlendWeight, RisesOverOneStrideWithinTheBlendRegionOfNarrowStrides) {
  // Stride 64: 0 at a distance of 192 from the edge, 1 at the centre.
  const TileGeometry geometry = ComputeTileGeometry(1024, 1024, 512, 64);
  EXPECT_EQ(WeightOf(geometry, 64, 64, 192, 256), 0.0);
  EXPECT_EQ(WeightOf(geometry, 64, 64, 208, 256), 0.25);
  EXPECT_EQ(WeightOf(geometry, 64, 64, 256, 256), 1.0);
  EXPECT_EQ(WeightOf(geometry, 64, 64, 288, 304), 0.5 * 0.25);
  EXPECT_EQ(WeightOf(geometry, 64, 64, 128, 256), -1.0);
}

TEST(TileBlendWeight, IsOneAllOverASingleTile) {
  const TileGeometry geometry = ComputeTileGeometry(16, 16, 16, 16);
  EXPECT_EQ(WeightOf(geometry, 0, 0, 0, 15), 1.0);
  EXPECT_EQ(WeightOf(geometry, 0, 0, 8, 8), 1.0);
}

TEST(TileBlendWeight, WeightsOfOverlappingTilesSumToOne) {
  for (const std::int32_t window : {16, 18}) {
    for (std::int32_t stride = 2; stride <= window; stride += 2) {
      const TileGeometry geometry = ComputeTileGeometry(3 * window + 5, window + 1, window, stride);
      const BlendRegion region = ComputeBlendRegion(geometry);
      cv::Mat sums(geometry.paddedHeight, geometry.paddedWidth, CV_64FC1, cv::Scalar(0.0));
      for (std::int32_t x = 0; x <= geometry.LastTileX(); x += stride) {
        for (std::int32_t y = 0; y <= geometry.LastTileY(); y += stride) {
          for (std::int32_t row = region.start; row < region.start + region.side; ++row) {
            for (std::int32_t column = region.start; column < region.start + region.side;
                 ++column) {
              sums.at<double>(y + row, x + column) += WeightOf(geometry, x, y, column, row);
            }
          }
        }
      }
      const cv::Rect inner(geometry.margin, geometry.margin, geometry.width, geometry.height);
      EXPECT_LE(
          cv::norm(sums(inner), cv::Mat(inner.size(), CV_64FC1, cv::Scalar(1.0)), cv::NORM_INF),
          1e-14)
          << "window " << window << " stride " << stride;
    }
  }
}

TEST(BlendRegion, IsTheWholeTileForStridesOfHalfAWindowAndMore) {
  for (const std::int32_t stride : {256, 258, 384, 512}) {
    const BlendRegion region = ComputeBlendRegion(ComputeTileGeometry(512, 512, 512, stride));
    EXPECT_EQ(region.start, 0);
    EXPECT_EQ(region.side, 512);
  }
}

TEST(BlendRegion, IsTwoStridesAroundTheCentreForNarrowStrides) {
  for (const std::int32_t stride : {2, 64, 128, 254}) {
    const BlendRegion region = ComputeBlendRegion(ComputeTileGeometry(512, 512, 512, stride));
    EXPECT_EQ(region.start, 256 - stride);
    EXPECT_EQ(region.side, 2 * stride);
  }
}

}  // namespace
}  // namespace project_lumen::core
