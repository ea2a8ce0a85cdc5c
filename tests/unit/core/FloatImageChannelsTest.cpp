#include "core/FloatImageChannels.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen::core {
namespace {

TEST(RgbToGray, WeighsRedGreenAndBlueInDouble) {
  const cv::Mat rgb = (cv::Mat_<cv::Vec3d>(1, 4) << cv::Vec3d(1, 0, 0), cv::Vec3d(0, 1, 0),
                       cv::Vec3d(0, 0, 1), cv::Vec3d(-2, 0.5, 4));
  const cv::Mat gray = RgbToGray(rgb);
  ASSERT_EQ(gray.type(), CV_64FC1);
  EXPECT_DOUBLE_EQ(gray.at<double>(0), 0.299);
  EXPECT_DOUBLE_EQ(gray.at<double>(1), 0.587);
  EXPECT_DOUBLE_EQ(gray.at<double>(2), 0.114);
  EXPECT_DOUBLE_EQ(gray.at<double>(3), -0.598 + 0.2935 + 0.456);
}

TEST(RgbToGray, KeepsFloat32) {
  const cv::Mat rgb = (cv::Mat_<cv::Vec3f>(2, 1) << cv::Vec3f(1, 1, 1), cv::Vec3f(0.5F, 0.25F, 0));
  const cv::Mat gray = RgbToGray(rgb);
  ASSERT_EQ(gray.type(), CV_32FC1);
  EXPECT_FLOAT_EQ(gray.at<float>(0), 1.0F);
  EXPECT_FLOAT_EQ(gray.at<float>(1), 0.29625F);
}

TEST(RgbToGray, RefusesIntegersAndOneChannel) {
  EXPECT_THROW(RgbToGray(cv::Mat(2, 2, CV_8UC3, cv::Scalar::all(1))), cv::Exception);
  EXPECT_THROW(RgbToGray(cv::Mat(2, 2, CV_32FC1, cv::Scalar::all(1))), cv::Exception);
}

TEST(GrayToRgb, RepeatsTheChannelInEveryDepth) {
  for (const int depth : {CV_8U, CV_16U, CV_32F, CV_64F}) {
    cv::Mat gray = (cv::Mat_<double>(1, 2) << 3, 200);
    gray.convertTo(gray, depth);
    cv::Mat rgb = GrayToRgb(gray);
    ASSERT_EQ(rgb.type(), CV_MAKETYPE(depth, 3));
    rgb.convertTo(rgb, CV_64F);
    EXPECT_EQ(rgb.at<cv::Vec3d>(0), cv::Vec3d(3, 3, 3));
    EXPECT_EQ(rgb.at<cv::Vec3d>(1), cv::Vec3d(200, 200, 200));
  }
}

}  // namespace
}  // namespace project_lumen::core
