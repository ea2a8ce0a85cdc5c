#include "common/RangeStatistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <opencv2/core.hpp>

namespace project_lumen {
namespace {

TEST(RangeStatistics, CountsFiniteSamplesAndThoseOutsideTheFormat) {
  RangeStatistics statistics;
  for (const double value :
       {-255.0, 0.0, 51.0, 255.0, 510.0, static_cast<double>(NAN), static_cast<double>(INFINITY)}) {
    statistics.Add(value, 255.0);
  }
  EXPECT_EQ(statistics.samples, 7U);
  EXPECT_EQ(statistics.finite, 5U);
  EXPECT_EQ(statistics.belowZero, 1U);
  EXPECT_EQ(statistics.aboveOne, 1U);
  EXPECT_EQ(statistics.minimum, -255.0);
  EXPECT_EQ(statistics.maximum, 510.0);
}

TEST(DescribeRange, StatesEveryCountAndBothRanges) {
  RangeStatistics statistics;
  for (const double value : {-255.0, 0.0, 255.0, 510.0}) {
    statistics.Add(value, 255.0);
  }
  EXPECT_EQ(DescribeRange(statistics, 255.0),
            "scalar_samples=4 finite=4 nonfinite=0 physical_range=[-255,510] "
            "type_normalized_range=[-1,2] below_zero=1 (25%) above_one=1 (25%)");
}

TEST(DescribeRange, FiniteFreeImagesHaveNoRange) {
  RangeStatistics statistics;
  statistics.Add(NAN, 1.0);
  EXPECT_EQ(DescribeRange(statistics, 1.0),
            "scalar_samples=1 finite=0 nonfinite=1 physical_range=unavailable "
            "type_normalized_range=unavailable below_zero=0 (0%) above_one=0 (0%)");
}

TEST(DescribeRange, NoSamplesAtAllHaveNoPercentage) {
  EXPECT_EQ(DescribeRange(RangeStatistics{}, 1.0),
            "scalar_samples=0 finite=0 nonfinite=0 physical_range=unavailable "
            "type_normalized_range=unavailable below_zero=0 (0%) above_one=0 (0%)");
}

TEST(DescribeRange, NumbersHaveSeventeenDigits) {
  RangeStatistics statistics;
  statistics.Add(1.0, 255.0);
  statistics.Add(-0.1, 255.0);
  statistics.Add(2.0, 255.0);
  // 100/3 percent in binary is 33.333333333333336.
  EXPECT_EQ(DescribeRange(statistics, 255.0),
            "scalar_samples=3 finite=3 nonfinite=0 physical_range=[-0.10000000000000001,2] "
            "type_normalized_range=[-0.00039215686274509808,0.0078431372549019607] "
            "below_zero=1 (33.333333333333336%) above_one=0 (0%)");
}

TEST(MeasureRange, ChannelsAreCountedInStoredOrder) {
  const cv::Mat image = (cv::Mat_<cv::Vec3b>(1, 2) << cv::Vec3b(1, 2, 3), cv::Vec3b(4, 0, 255));
  const ImageRangeStatistics statistics = MeasureRange(image, 255.0);
  EXPECT_EQ(statistics.image.samples, 6U);
  EXPECT_EQ(statistics.image.minimum, 0.0);
  EXPECT_EQ(statistics.image.maximum, 255.0);
  ASSERT_EQ(statistics.channels.size(), 3U);
  EXPECT_EQ(statistics.channels[0].minimum, 1.0);
  EXPECT_EQ(statistics.channels[0].maximum, 4.0);
  EXPECT_EQ(statistics.channels[1].minimum, 0.0);
  EXPECT_EQ(statistics.channels[2].maximum, 255.0);
  EXPECT_EQ(statistics.channels[2].samples, 2U);
}

TEST(MeasureRange, ReadsRowsOfAnImageThatIsPartOfAnother) {
  cv::Mat whole(4, 4, CV_16UC1, cv::Scalar(9));
  whole(cv::Rect(1, 1, 2, 2)).setTo(cv::Scalar(5));
  const ImageRangeStatistics statistics = MeasureRange(whole(cv::Rect(1, 1, 2, 2)), 65535.0);
  EXPECT_EQ(statistics.image.samples, 4U);
  EXPECT_EQ(statistics.image.maximum, 5.0);
}

TEST(MeasureRange, FloatSamplesAreMeasuredUnscaled) {
  const cv::Mat image = (cv::Mat_<float>(1, 3) << -0.5F, 0.25F, 1.5F);
  const RangeStatistics statistics = MeasureRange(image, 1.0).image;
  EXPECT_EQ(statistics.minimum, -0.5);
  EXPECT_EQ(statistics.maximum, 1.5);
  EXPECT_EQ(statistics.belowZero, 1U);
  EXPECT_EQ(statistics.aboveOne, 1U);
}

}  // namespace
}  // namespace project_lumen
