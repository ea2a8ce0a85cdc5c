#include "studio/results/Blend.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen::studio {
namespace {

cv::Mat Samples(std::initializer_list<double> values) {
  cv::Mat samples(1, static_cast<int>(values.size()), CV_64F);
  std::copy(values.begin(), values.end(), samples.ptr<double>());
  return samples;
}

TEST(Blend, MixesTheStarsIn) {
  const cv::Mat blend =
      BlendStars(Samples({0.0, 0.25, 1.0, -0.5}), Samples({0.5, 0.5, 0.5, 0.5}), {0.5, 1.0});
  // 0 + 0.5 x 0.5 x 1; 0.25 + 0.25 x 0.75; 1 + 0.25 x 0; -0.5 + 0.25 x 1.5
  EXPECT_EQ(blend.at<double>(0), 0.25);
  EXPECT_EQ(blend.at<double>(1), 0.4375);
  EXPECT_EQ(blend.at<double>(2), 1.0);
  EXPECT_EQ(blend.at<double>(3), -0.125);
}

TEST(Blend, WithoutStarsIsTheStarlessImage) {
  const cv::Mat starless = Samples({0.1, 0.7, 0.999});
  const cv::Mat blend = BlendStars(starless, Samples({1.0, 0.3, 0.9}), {0.0, 2.0});
  EXPECT_EQ(cv::norm(blend, starless, cv::NORM_INF), 0.0);
}

TEST(Blend, TheCurveHoldsFaintStarsBack) {
  const cv::Mat blend = BlendStars(Samples({0.0, 0.0}), Samples({0.25, 1.0}), {1.0, 2.0});
  EXPECT_EQ(blend.at<double>(0), 0.0625);
  EXPECT_EQ(blend.at<double>(1), 1.0);
}

}  // namespace
}  // namespace project_lumen::studio
