#include "io/RowSink.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

namespace project_lumen::io {
namespace {

cv::Mat Ramp() {
  return (cv::Mat_<float>(3, 2) << 1, 2, 3, 4, 5, 6);
}

TEST(WholeImage, BandsBecomeOneImage) {
  const cv::Mat ramp = Ramp();
  WholeImage whole;
  whole.Begin(ramp.size(), ramp.type());
  whole.Take(ramp.rowRange(0, 1));
  whole.Take(ramp.rowRange(1, 3));
  EXPECT_EQ(cv::norm(whole.Release(), ramp, cv::NORM_INF), 0.0);
}

TEST(WholeImage, ABandOfAllRowsIsKeptWithoutACopy) {
  const cv::Mat ramp = Ramp();
  WholeImage whole;
  whole.Begin(ramp.size(), ramp.type());
  whole.Take(ramp);
  EXPECT_EQ(whole.Release().data, ramp.data);
}

TEST(WholeImage, BeginForgetsWhatCameBefore) {
  WholeImage whole;
  whole.Begin({2, 3}, CV_32FC1);
  whole.Take(Ramp().rowRange(0, 2));
  whole.Begin({2, 1}, CV_32FC1);
  whole.Take(Ramp().rowRange(2, 3));
  EXPECT_EQ(whole.Release().at<float>(0, 1), 6.0F);
}

TEST(WholeImage, AnImageThatIsNotWholeIsNotHandedOut) {
  WholeImage whole;
  whole.Begin({2, 3}, CV_32FC1);
  whole.Take(Ramp().rowRange(0, 2));
  EXPECT_THROW(whole.Release(), cv::Exception);
}

TEST(WholeImage, RowsThatDoNotFitAreRefused) {
  WholeImage whole;
  whole.Begin({2, 3}, CV_32FC1);
  EXPECT_THROW(whole.Take(cv::Mat::zeros(1, 3, CV_32FC1)), cv::Exception);
  EXPECT_THROW(whole.Take(cv::Mat::zeros(1, 2, CV_64FC1)), cv::Exception);
  whole.Take(Ramp().rowRange(0, 2));
  EXPECT_THROW(whole.Take(Ramp().rowRange(0, 2)), cv::Exception);
}

}  // namespace
}  // namespace project_lumen::io
