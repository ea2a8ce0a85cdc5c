#include "common/EqualChannels.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen {
namespace {

class HasEqualChannelsTest : public testing::TestWithParam<int> {};

TEST_P(HasEqualChannelsTest, OneDifferingSampleInAnyChannelIsFound) {
  for (int channel = 0; channel < 3; ++channel) {
    cv::Mat image(5, 7, CV_64FC3, cv::Scalar(9, 9, 9));
    image.convertTo(image, GetParam());
    EXPECT_TRUE(HasEqualChannels(image));
    cv::Mat pixel(1, 1, CV_64FC3, cv::Scalar(9, 9, 9));
    pixel.at<cv::Vec3d>(0)[channel] = 10;
    pixel.convertTo(pixel, GetParam());
    pixel.copyTo(image(cv::Rect(6, 4, 1, 1)));
    EXPECT_FALSE(HasEqualChannels(image)) << channel;
  }
}

INSTANTIATE_TEST_SUITE_P(Depths, HasEqualChannelsTest,
                         testing::Values(CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F));

}  // namespace
}  // namespace project_lumen
