#include "core/ReflectPadding.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

// Position of the sample that a mirror without repeated edges shows at position i of a line.
int Mirrored(int i, int length) {
  while (i < 0 || i >= length) {
    i = i < 0 ? -i : 2 * (length - 1) - i;
  }
  return i;
}

// All of the padded image.
cv::Mat Padded(const cv::Mat& image, const TileGeometry& geometry) {
  cv::Mat padded;
  PadReflect101(image, geometry, {0, 0, geometry.paddedWidth, geometry.paddedHeight}, padded);
  return padded;
}

TEST(PadReflect101, MirrorsALineWithoutRepeatingItsEdge) {
  // Window 4, stride 2: a margin of 1; the width 5 rounds up to 6, so the right pad is 2.
  const TileGeometry geometry = ComputeTileGeometry(5, 4, 4, 2);
  cv::Mat image(4, 5, CV_32FC3);
  for (int r = 0; r < 4; ++r) {
    for (int c = 0; c < 5; ++c) {
      const auto level = static_cast<float>(10 * r + c);
      image.at<cv::Vec3f>(r, c) = {level, level + 100, level + 200};
    }
  }
  const cv::Mat padded = Padded(image, geometry);
  const std::vector<std::vector<int>> expected = {
      {11, 10, 11, 12, 13, 14, 13, 12}, {1, 0, 1, 2, 3, 4, 3, 2},
      {11, 10, 11, 12, 13, 14, 13, 12}, {21, 20, 21, 22, 23, 24, 23, 22},
      {31, 30, 31, 32, 33, 34, 33, 32}, {21, 20, 21, 22, 23, 24, 23, 22}};
  ASSERT_EQ(padded.size(), cv::Size(8, 6));
  ASSERT_EQ(padded.type(), CV_32FC3);
  for (int r = 0; r < 6; ++r) {
    for (int c = 0; c < 8; ++c) {
      const auto level =
          static_cast<float>(expected[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)]);
      EXPECT_EQ(padded.at<cv::Vec3f>(r, c), cv::Vec3f(level, level + 100, level + 200))
          << r << ", " << c;
    }
  }
}

// width, height, window, stride
class PaddedImage : public ::testing::TestWithParam<std::tuple<int, int, int, int>> {};

TEST_P(PaddedImage, ShowsTheMirroredSampleAtEveryPosition) {
  const auto [width, height, window, stride] = GetParam();
  const TileGeometry geometry = ComputeTileGeometry(width, height, window, stride);
  const cv::Mat image = MakeNoise({width, height}, CV_32FC3, 5);
  const cv::Mat padded = Padded(image, geometry);
  ASSERT_EQ(padded.size(), cv::Size(geometry.paddedWidth, geometry.paddedHeight));
  for (int r = 0; r < padded.rows; ++r) {
    for (int c = 0; c < padded.cols; ++c) {
      ASSERT_EQ(padded.at<cv::Vec3f>(r, c),
                image.at<cv::Vec3f>(Mirrored(r - geometry.margin, height),
                                    Mirrored(c - geometry.margin, width)))
          << r << ", " << c;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Geometries, PaddedImage,
                         ::testing::Values(std::tuple(513, 512, 512, 512),
                                           std::tuple(512, 513, 512, 2),
                                           std::tuple(700, 530, 512, 256),
                                           std::tuple(513, 514, 512, 384),
                                           std::tuple(16, 16, 16, 2), std::tuple(17, 16, 16, 16),
                                           std::tuple(17, 19, 16, 14), std::tuple(16, 16, 16, 16),
                                           std::tuple(2, 3, 2, 2), std::tuple(1, 1, 1, 1)));

TEST(PadReflect101, MirrorsAPartOfAnImageAtThePartsOwnEdges) {
  const cv::Mat whole = MakeNoise({40, 40}, CV_32FC3, 6);
  const cv::Mat part = whole(cv::Rect(7, 9, 17, 16));
  const TileGeometry geometry = ComputeTileGeometry(17, 16, 16, 4);
  EXPECT_TRUE(AreEqual(Padded(part, geometry), Padded(part.clone(), geometry)));
}

// Areas at every corner, along every edge, inside the image, and beyond it altogether.
TEST(PadReflect101, CopiesAnyPartOfThePaddedImage) {
  const TileGeometry geometry = ComputeTileGeometry(17, 19, 16, 2);
  const cv::Mat image = MakeNoise({17, 19}, CV_32FC3, 7);
  const cv::Mat padded = Padded(image, geometry);
  cv::Mat part;
  for (int y = 0; y + 5 <= padded.rows; ++y) {
    for (int x = 0; x + 6 <= padded.cols; ++x) {
      const cv::Rect area(x, y, 6, 5);
      PadReflect101(image, geometry, area, part);
      ASSERT_TRUE(AreEqual(part, padded(area))) << x << ", " << y;
    }
  }
}

TEST(PadReflect101, KeepsTheMemoryOfAPartOfTheRightSize) {
  const TileGeometry geometry = ComputeTileGeometry(17, 16, 16, 4);
  cv::Mat part(16, 16, CV_32FC3);
  const uchar* memory = part.data;
  PadReflect101(MakeNoise({17, 16}, CV_32FC3, 8), geometry, {4, 0, 16, 16}, part);
  EXPECT_EQ(part.data, memory);
}

TEST(PadReflect101, RefusesTheGeometryOfAnotherImage) {
  const TileGeometry geometry = ComputeTileGeometry(17, 16, 16, 4);
  ExpectAssertion([&] { Padded(cv::Mat(16, 16, CV_32FC3), geometry); },
                  "project_lumen::core::PadReflect101",
                  "image.type() == CV_32FC3 && image.cols == geometry.width && "
                  "image.rows == geometry.height");
}

}  // namespace
}  // namespace project_lumen::core
