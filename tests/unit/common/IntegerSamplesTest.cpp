#include "common/IntegerSamples.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <opencv2/core.hpp>

namespace project_lumen {
namespace {

TEST(IntegerSamples, WhiteIsTheGreatestValueOfTheType) {
  EXPECT_EQ(IntegerWhite(CV_8U), 255.0);
  EXPECT_EQ(IntegerWhite(CV_16U), 65535.0);
  EXPECT_THROW(IntegerWhite(CV_16S), cv::Exception);
}

TEST(IntegerSamples, EverySampleComesBackThroughEitherFloatingType) {
  for (const int depth : {CV_32F, CV_64F}) {
    cv::Mat stored(256, 256, CV_16UC1);
    for (int i = 0; i < 65536; ++i) {
      stored.at<std::uint16_t>(i / 256, i % 256) = static_cast<std::uint16_t>(i);
    }
    cv::Mat normalised;
    NormaliseIntegers(stored, depth, normalised);
    cv::Mat back;
    QuantiseToIntegers(normalised, CV_16U, back);
    EXPECT_EQ(cv::norm(stored, back, cv::NORM_INF), 0.0);
  }
}

TEST(IntegerSamples, BlackIsZeroAndWhiteIsOne) {
  const cv::Mat stored = (cv::Mat_<std::uint8_t>(1, 3) << 0, 51, 255);
  cv::Mat normalised;
  NormaliseIntegers(stored, CV_64F, normalised);
  EXPECT_EQ(normalised.at<double>(0), 0.0);
  EXPECT_NEAR(normalised.at<double>(1), 0.2, 1e-15);
  EXPECT_EQ(normalised.at<double>(2), 1.0);
}

TEST(IntegerSamples, SamplesAreRoundedToTheNearestAndHeldWithinTheRange) {
  const cv::Mat normalised =
      (cv::Mat_<double>(1, 6) << -0.1, 1.1, 100.4 / 255, 100.6 / 255, 0.5 / 255, 1.5 / 255);
  cv::Mat stored;
  QuantiseToIntegers(normalised, CV_8U, stored);
  const cv::Mat expected = (cv::Mat_<std::uint8_t>(1, 6) << 0, 255, 100, 101, 0, 2);
  EXPECT_EQ(cv::norm(stored, expected, cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace project_lumen
