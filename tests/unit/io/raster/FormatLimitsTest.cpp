#include "io/raster/FormatLimits.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <string>

namespace project_lumen::io {
namespace {

TEST(FormatObstacle, SidesBeyondAFormatsLimitAreOne) {
  struct Case {
    std::string path;
    int longest;
    std::string name;
  };
  for (const Case& format : {Case{"a.jpg", 65'500, "JPEG"}, Case{"a.JPEG", 65'500, "JPEG"},
                             Case{"a.png", 1'000'000, "PNG"}, Case{"a.webp", 16'383, "WebP"}}) {
    const std::string obstacle = format.name + " holds at most " + std::to_string(format.longest) +
                                 " pixels a side; choose TIFF or FITS";
    EXPECT_EQ(FormatObstacle(format.path, {format.longest, 1}, CV_8UC3), "");
    EXPECT_EQ(FormatObstacle(format.path, {1, format.longest}, CV_8UC3), "");
    EXPECT_EQ(FormatObstacle(format.path, {format.longest + 1, 1}, CV_8UC3), obstacle);
    EXPECT_EQ(FormatObstacle(format.path, {1, format.longest + 1}, CV_8UC3), obstacle);
  }
}

TEST(FormatObstacle, BmpHasALimitForItsBytes) {
  EXPECT_EQ(FormatObstacle("a.bmp", {25'000, 25'000}, CV_8UC3), "");
  EXPECT_EQ(FormatObstacle("a.bmp", {30'000, 30'000}, CV_8UC3),
            "BMP holds at most 2 GB; choose TIFF or FITS");
}

TEST(FormatObstacle, TiffHoldsAnyImage) {
  EXPECT_EQ(FormatObstacle("a.tif", {1'048'576, 1'048'576}, CV_16UC3), "");
}

}  // namespace
}  // namespace project_lumen::io
