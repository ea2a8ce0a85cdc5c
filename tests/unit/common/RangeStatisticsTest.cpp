#include "common/RangeStatistics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
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

// Sample by sample, as the statistics are defined.
ImageRangeStatistics MeasureOneByOne(const cv::Mat& image, double divisor) {
  ImageRangeStatistics result;
  const auto channels = static_cast<std::size_t>(image.channels());
  result.channels.resize(channels);
  cv::Mat values;
  image.convertTo(values, CV_64F);
  for (int r = 0; r < values.rows; ++r) {
    const std::size_t count = static_cast<std::size_t>(values.cols) * channels;
    for (std::size_t i = 0; i < count; ++i) {
      result.channels[i % channels].Add(values.ptr<double>(r)[i], divisor);
      result.image.Add(values.ptr<double>(r)[i], divisor);
    }
  }
  return result;
}

void ExpectEqual(const RangeStatistics& a, const RangeStatistics& b) {
  EXPECT_EQ(a.samples, b.samples);
  EXPECT_EQ(a.finite, b.finite);
  EXPECT_EQ(a.belowZero, b.belowZero);
  EXPECT_EQ(a.aboveOne, b.aboveOne);
  EXPECT_EQ(a.minimum, b.minimum);
  EXPECT_EQ(a.maximum, b.maximum);
}

// Widths around the groups in which integers are looked at; the extrema lie in the last column too.
TEST(MeasureRange, UnsignedIntegersAreMeasuredSampleBySample) {
  for (const int depth : {CV_8U, CV_16U}) {
    const double white = depth == CV_8U ? 255.0 : 65535.0;
    for (const int channels : {1, 2, 3, 4, 5}) {
      for (const int columns : {1, 7, 16, 47, 48, 49, 97}) {
        cv::Mat image(3, columns, CV_MAKETYPE(depth, channels));
        cv::RNG random(static_cast<std::uint64_t>(columns * 8 + channels));
        random.fill(image, cv::RNG::UNIFORM, 1.0, white);
        image.at<std::uint8_t>(2, columns * static_cast<int>(image.elemSize()) - 1) = 0;
        // A divisor below the largest sample makes samples above one.
        for (const double divisor : {white, white / 2}) {
          const ImageRangeStatistics measured = MeasureRange(image, divisor);
          const ImageRangeStatistics expected = MeasureOneByOne(image, divisor);
          ExpectEqual(measured.image, expected.image);
          ASSERT_EQ(measured.channels.size(), expected.channels.size());
          for (std::size_t c = 0; c < measured.channels.size(); ++c) {
            ExpectEqual(measured.channels[c], expected.channels[c]);
          }
        }
      }
    }
  }
}

}  // namespace
}  // namespace project_lumen
