#include "lib/StoredSamples.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>
#include <stdexcept>

namespace project_lumen::lib {
namespace {

TEST(StoredSamples, FloatsAreMultipliedByWhiteAndRoundedOnce) {
  const cv::Mat normalised = (cv::Mat_<double>(1, 2) << 0.1, 1.0 / 3);
  cv::Mat stored;
  StoreSamples(normalised, CV_32F, 3.0, stored);
  EXPECT_EQ(stored.at<float>(0), 0.3F);
  EXPECT_EQ(stored.at<float>(1), 1.0F);
  StoreSamples(normalised, CV_64F, 1.0, stored);
  EXPECT_EQ(stored.at<double>(1), 1.0 / 3);
}

TEST(StoredSamples, AreReadBackAsTheyWereStored) {
  const cv::Mat normalised = (cv::Mat_<float>(1, 2) << 0.25F, 0.501F);
  cv::Mat stored;
  StoreSamples(normalised, CV_8U, 255.0, stored);
  const cv::Mat back = ReadBackSamples(stored, 255.0);
  EXPECT_EQ(back.at<double>(0), 64.0 * (1.0 / 255.0));
  EXPECT_EQ(back.at<double>(1), 128.0 * (1.0 / 255.0));
  StoreSamples(normalised, CV_32F, 1000.0, stored);
  EXPECT_EQ(ReadBackSamples(stored, 1000.0).at<double>(0), 0.25);
}

TEST(StoredSamples, ThatDoNotFitAreAnError) {
  const cv::Mat normalised(1, 1, CV_64FC1, cv::Scalar(1e39));
  cv::Mat stored;
  EXPECT_THROW(StoreSamples(normalised, CV_32F, 1.0, stored), std::runtime_error);
  EXPECT_NO_THROW(StoreSamples(normalised, CV_64F, 1.0, stored));
}

}  // namespace
}  // namespace project_lumen::lib
