#include "core/TileGeometry.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

constexpr const char* kTooSmall = "Image size is too small for the window!";
constexpr const char* kInvalid =
    "Invalid tile geometry: positive dimensions and stride within the window with even overlap are "
    "required.";
constexpr const char* kTooLarge = "Image dimensions exceed supported tiling limits.";
constexpr std::int32_t kMaximum = std::numeric_limits<std::int32_t>::max();

void ExpectRefused(std::int32_t width, std::int32_t height, std::int32_t window,
                   std::int32_t stride, const char* text) {
  ExpectThrows<std::invalid_argument>([&] { ComputeTileGeometry(width, height, window, stride); },
                                      text);
}

TEST(TileGeometry, OneWindowAtFullStrideIsOneTileWithoutMargin) {
  const TileGeometry geometry = ComputeTileGeometry(512, 512, 512, 512);
  EXPECT_EQ(geometry.margin, 0);
  EXPECT_EQ(geometry.paddedWidth, 512);
  EXPECT_EQ(geometry.paddedHeight, 512);
  EXPECT_EQ(geometry.rightPad, 0);
  EXPECT_EQ(geometry.bottomPad, 0);
  EXPECT_EQ(geometry.tileCount, 1);
}

TEST(TileGeometry, OneWindowAtHalfStrideIsFourTiles) {
  const TileGeometry geometry = ComputeTileGeometry(512, 512, 512, 256);
  EXPECT_EQ(geometry.margin, 128);
  EXPECT_EQ(geometry.paddedWidth, 768);
  EXPECT_EQ(geometry.paddedHeight, 768);
  EXPECT_EQ(geometry.tileCount, 4);
}

TEST(TileGeometry, RoundsTheImageUpToWholeStrides) {
  // 1000 rounds up to 1024 and 700 to 768; the margins of 128 come on both sides.
  const TileGeometry geometry = ComputeTileGeometry(1000, 700, 512, 256);
  EXPECT_EQ(geometry.width, 1000);
  EXPECT_EQ(geometry.height, 700);
  EXPECT_EQ(geometry.window, 512);
  EXPECT_EQ(geometry.stride, 256);
  EXPECT_EQ(geometry.margin, 128);
  EXPECT_EQ(geometry.paddedWidth, 1280);
  EXPECT_EQ(geometry.paddedHeight, 1024);
  EXPECT_EQ(geometry.leftPad, 128);
  EXPECT_EQ(geometry.rightPad, 152);
  EXPECT_EQ(geometry.topPad, 128);
  EXPECT_EQ(geometry.bottomPad, 196);
  EXPECT_EQ(geometry.tileCount, 4 * 3);
  EXPECT_EQ(geometry.LastTileX(), 768);
  EXPECT_EQ(geometry.LastTileY(), 512);
}

TEST(TileGeometry, StrideTwoHasTheLargestMargin) {
  const TileGeometry geometry = ComputeTileGeometry(513, 512, 512, 2);
  EXPECT_EQ(geometry.margin, 255);
  EXPECT_EQ(geometry.paddedWidth, 514 + 510);
  EXPECT_EQ(geometry.rightPad, 256);
  EXPECT_EQ(geometry.bottomPad, 255);
  EXPECT_EQ(geometry.tileCount, 257 * 256);
}

TEST(TileGeometry, OnePixelMoreThanAStrideAddsAWholeTile) {
  const TileGeometry geometry = ComputeTileGeometry(513, 512, 512, 512);
  EXPECT_EQ(geometry.paddedWidth, 1024);
  EXPECT_EQ(geometry.rightPad, 511);
  EXPECT_EQ(geometry.tileCount, 2);
}

TEST(TileGeometry, TilesEndAtThePaddedEdgeAndPadsStayInsideTheImage) {
  for (const std::int32_t window : {2, 16, 34}) {
    for (std::int32_t stride = 2; stride <= window; stride += 2) {
      for (std::int32_t width = window; width <= 3 * window + 1; ++width) {
        const TileGeometry geometry = ComputeTileGeometry(width, window, window, stride);
        ASSERT_EQ(geometry.LastTileX() % stride, 0);
        ASSERT_EQ(geometry.leftPad + width + geometry.rightPad, geometry.paddedWidth);
        ASSERT_EQ(geometry.topPad + window + geometry.bottomPad, geometry.paddedHeight);
        ASSERT_EQ((geometry.LastTileX() / stride + 1) * (geometry.LastTileY() / stride + 1),
                  geometry.tileCount);
        // A mirrored border as long as the image would need samples beyond its far edge.
        ASSERT_LT(geometry.leftPad, width);
        ASSERT_LT(geometry.rightPad, width);
        ASSERT_LT(geometry.bottomPad, window);
      }
    }
  }
}

TEST(TileGeometry, RefusesImagesSmallerThanTheWindow) {
  ExpectRefused(511, 4000, 512, 256, kTooSmall);
  ExpectRefused(4000, 511, 512, 256, kTooSmall);
  ExpectRefused(0, 0, 512, 256, kTooSmall);
}

TEST(TileGeometry, SizeIsCheckedBeforeTheStride) {
  ExpectRefused(100, 100, 512, 3, kTooSmall);
}

TEST(TileGeometry, RefusesImpossibleStridesAndSizes) {
  ExpectRefused(600, 600, 512, 0, kInvalid);
  ExpectRefused(600, 600, 512, -2, kInvalid);
  ExpectRefused(600, 600, 512, 514, kInvalid);
  ExpectRefused(600, 600, 512, 255, kInvalid);
  ExpectRefused(600, 600, 0, 0, kInvalid);
  ExpectRefused(600, 600, -2, 2, kInvalid);
  ExpectRefused(0, 600, 0, 2, kInvalid);
  ExpectRefused(-1, -1, -1, -1, kInvalid);
}

TEST(TileGeometry, RefusesSidesBeyondThe32BitLimit) {
  EXPECT_EQ(ComputeTileGeometry(kMaximum - 1024, 512, 512, 512).tileCount, 4194302);
  ExpectRefused(kMaximum - 1023, 512, 512, 512, kTooLarge);
  ExpectRefused(512, kMaximum - 1023, 512, 512, kTooLarge);
  ExpectRefused(kMaximum, kMaximum, kMaximum, 1, kTooLarge);
}

TEST(TileGeometry, RefusesMoreTilesThan32Bits) {
  // (92676 / 2 + 2)^2 = 46340^2 is below 2^31, 46341^2 above.
  EXPECT_EQ(ComputeTileGeometry(92676, 92676, 512, 2).tileCount, 46338 * 46338);
  ExpectRefused(92678, 92678, 512, 2, kTooLarge);
}

}  // namespace
}  // namespace project_lumen::core
