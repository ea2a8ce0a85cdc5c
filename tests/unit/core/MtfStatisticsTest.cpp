#include "core/MtfStatistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "core/MtfTransfer.h"

namespace project_lumen::core {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

// The same statistics by full sorting, from the values in stored order.
double SortedMedian(std::vector<float> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  if (values.size() % 2 == 1) {
    return values[half];
  }
  return 0.5 * (double{values[half - 1]} + double{values[half]});
}

MtfChannelStats SortedStatistics(const cv::Mat& image, int channel, double clipping,
                                 double target) {
  std::vector<float> values;
  for (int r = 0; r < image.rows; ++r) {
    for (int c = 0; c < image.cols; ++c) {
      values.push_back(static_cast<float>(SampleAt(image, r, c, channel)));
    }
  }
  MtfChannelStats stats;
  stats.median = SortedMedian(values);
  for (float& value : values) {
    value = static_cast<float>(std::fabs(double{value} - stats.median));
  }
  stats.normalizedMad = SortedMedian(values) * 1.4826;
  const double shadows = stats.median + clipping * stats.normalizedMad;
  stats.shadows = stats.normalizedMad == 0.0 ? 0.0 : std::max(0.0, std::min(1.0, shadows));
  // The balance that takes d to the target solves target = forward(m, d) for m.
  const double d = stats.median - stats.shadows;
  stats.midtones = d <= 0.0   ? 0.0
                   : d >= 1.0 ? 1.0
                              : d * (1 - target) / (d + target - 2 * target * d);
  return stats;
}

TEST(ChannelMedian, IsTheMiddleOfAnOddCount) {
  std::vector<float> values = {5.0F, 1.0F, 4.0F, 2.0F, 3.0F};
  EXPECT_EQ(ChannelMedian(values), 3.0);
}

TEST(ChannelMedian, IsTheMeanOfTheMiddlePairOfAnEvenCount) {
  std::vector<float> values = {0.4F, 0.1F, 0.3F, 0.2F};
  EXPECT_EQ(ChannelMedian(values), (double{0.2F} + double{0.3F}) / 2.0);
}

TEST(ChannelMedian, OfOneOrTwoValues) {
  std::vector<float> one = {7.0F};
  EXPECT_EQ(ChannelMedian(one), 7.0);
  std::vector<float> two = {3.0F, 1.0F};
  EXPECT_EQ(ChannelMedian(two), 2.0);
}

TEST(ChannelMedian, OfRepeatedValues) {
  std::vector<float> values = {2.0F, 1.0F, 2.0F, 2.0F, 9.0F, 2.0F};
  EXPECT_EQ(ChannelMedian(values), 2.0);
}

TEST(ChannelMedian, AddsTheMiddlePairInDoublePrecision) {
  const float largest = std::numeric_limits<float>::max();
  std::vector<float> values = {largest, largest};
  EXPECT_EQ(ChannelMedian(values), double{largest});
}

TEST(ChannelMedian, HoldsTheSumOfLargeDoubles) {
  const double largest = std::numeric_limits<double>::max();
  std::vector<double> values = {largest, largest};
  EXPECT_EQ(ChannelMedian(values), largest);
}

TEST(ChannelMedian, EqualsTheSortedMedianOfRandomValues) {
  for (int count = 1; count <= 200; ++count) {
    const cv::Mat noise = MakeNoise({count, 1}, CV_32FC1, static_cast<unsigned>(count), -1.0, 1.0);
    std::vector<float> values(noise.begin<float>(), noise.end<float>());
    const double expected = SortedMedian(values);
    ASSERT_EQ(ChannelMedian(values), expected) << count;
  }
}

TEST(ChannelMedian, RanksNanAboveEveryNumber) {
  const auto nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<float> few = {nan, 3.0F, 1.0F, 2.0F, nan};
  EXPECT_EQ(ChannelMedian(few), 3.0);
  std::vector<float> many(1000, nan);
  many[500] = 1.0F;
  EXPECT_TRUE(std::isnan(ChannelMedian(many)));
}

TEST(ChannelMedian, RefusesAnEmptyList) {
  std::vector<float> values;
  ExpectThrows<std::invalid_argument>(
      [&values] { ChannelMedian(values); },
      "Cannot calculate MTF statistics for an empty image channel.");
}

TEST(ComputeMtfStatistics, MatchesAHandWorkedChannel) {
  // Median 0.3, deviations 0.2 0.1 0 0.1 0.4, their median 0.1; shadows 0.3 - 0.148260.
  const cv::Mat image = (cv::Mat_<float>(1, 5) << 0.1F, 0.2F, 0.3F, 0.4F, 0.7F);
  const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(image, -1.0, 0.25);
  ASSERT_EQ(stats.size(), 1U);
  EXPECT_NEAR(stats[0].median, 0.3, 1e-7);
  EXPECT_NEAR(stats[0].normalizedMad, 0.14826, 1e-7);
  EXPECT_NEAR(stats[0].shadows, 0.15174, 2e-7);
  // d = 0.14826: -0.75 d / (-0.5 d - 0.25) = 0.111195 / 0.32413.
  EXPECT_NEAR(stats[0].midtones, 0.111195 / 0.32413, 1e-6);
}

TEST(ComputeMtfStatistics, MapsTheMedianToTheTarget) {
  // Median 0.1 and normalised MAD 0.01: shadows 0.072, so the median lies 0.028 above.
  const auto deviation = static_cast<float>(0.01 / 1.4826);
  const cv::Mat image = (cv::Mat_<float>(1, 5) << 0.1F - 2 * deviation, 0.1F - deviation, 0.1F,
                         0.1F + deviation, 0.1F + 2 * deviation);
  const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(image, -2.8, 0.25);
  EXPECT_NEAR(stats[0].normalizedMad, 0.01, 1e-7);
  EXPECT_NEAR(stats[0].shadows, 0.072, 2e-7);
  EXPECT_NEAR(MtfForward(stats[0].midtones, stats[0].median - stats[0].shadows), 0.25, 1e-14);
}

TEST(ComputeMtfStatistics, AConstantChannelHasNoShadows) {
  const cv::Mat image(6, 5, CV_32FC1, cv::Scalar(0.5));
  const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(image, -2.8, 0.25);
  EXPECT_EQ(stats[0].median, 0.5);
  EXPECT_EQ(stats[0].normalizedMad, 0.0);
  EXPECT_EQ(stats[0].shadows, 0.0);
  EXPECT_NEAR(stats[0].midtones, 0.75, 1e-15);
}

TEST(ComputeMtfStatistics, ShadowsStayWithinTheUnitRange) {
  const cv::Mat wide = (cv::Mat_<float>(1, 3) << 0.0F, 0.1F, 0.5F);
  EXPECT_EQ(ComputeMtfStatistics(wide, -100.0, 0.25)[0].shadows, 0.0);
  const cv::Mat bright = (cv::Mat_<float>(1, 3) << 4.9F, 5.0F, 5.1F);
  const MtfChannelStats stats = ComputeMtfStatistics(bright, -1.0, 0.25)[0];
  EXPECT_EQ(stats.shadows, 1.0);
  EXPECT_EQ(stats.midtones, 1.0);
}

TEST(ComputeMtfStatistics, EqualsTheSortedStatisticsOfRandomImages) {
  for (const cv::Size size : {cv::Size(1, 1), cv::Size(2, 1), cv::Size(7, 5), cv::Size(40, 33)}) {
    for (const int channels : {1, 3}) {
      const cv::Mat image = MakeNoise(size, CV_32FC(channels), 9, -0.1, 1.1);
      const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(image, -1.3, 0.2);
      ASSERT_EQ(stats.size(), static_cast<std::size_t>(channels));
      for (int k = 0; k < channels; ++k) {
        const MtfChannelStats& found = stats[static_cast<std::size_t>(k)];
        const MtfChannelStats expected = SortedStatistics(image, k, -1.3, 0.2);
        EXPECT_EQ(found.median, expected.median) << size;
        EXPECT_EQ(found.normalizedMad, expected.normalizedMad) << size;
        EXPECT_EQ(found.shadows, expected.shadows) << size;
        EXPECT_NEAR(found.midtones, expected.midtones, 1e-15) << size;
      }
    }
  }
}

TEST(ComputeMtfStatistics, ReadsOnlyTheImageWhenItIsPartOfAnother) {
  const cv::Mat whole = MakeNoise({30, 30}, CV_32FC3, 10);
  const cv::Mat part = whole(cv::Rect(3, 4, 11, 12));
  const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(part, -2.8, 0.25);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(stats[static_cast<std::size_t>(k)].median,
              SortedStatistics(part, k, -2.8, 0.25).median);
  }
}

void ExpectRefused(const cv::Mat& image, double clipping, double target, const char* text) {
  ExpectThrows<std::invalid_argument>([&] { ComputeMtfStatistics(image, clipping, target); }, text);
}

TEST(ComputeMtfStatistics, RefusesAnEmptyImage) {
  ExpectRefused(cv::Mat(), -2.8, 0.25, "Cannot apply linear MTF to an empty image.");
}

TEST(ComputeMtfStatistics, RefusesOtherTypesBeforeTheOptions) {
  constexpr const char* kText = "Linear MTF requires a float32 grayscale or RGB image.";
  ExpectRefused(cv::Mat(2, 2, CV_64FC3, cv::Scalar::all(0)), 0.0, 0.0, kText);
  ExpectRefused(cv::Mat(2, 2, CV_8UC1, cv::Scalar::all(0)), -2.8, 0.25, kText);
  ExpectRefused(cv::Mat(2, 2, CV_32FC2, cv::Scalar::all(0)), -2.8, 0.25, kText);
  ExpectRefused(cv::Mat(2, 2, CV_32FC4, cv::Scalar::all(0)), -2.8, 0.25, kText);
}

TEST(ComputeMtfStatistics, RefusesTargetsOutsideTheUnitRangeBeforeTheClipping) {
  const cv::Mat image(2, 2, CV_32FC1, cv::Scalar(0.5));
  for (const double target : {0.0, 1.0, -0.1, 1.1, kNan, kInfinity}) {
    ExpectRefused(image, 0.0, target,
                  "Target background must be finite and strictly between 0 and 1.");
  }
}

TEST(ComputeMtfStatistics, RefusesClippingThatIsNotNegative) {
  const cv::Mat image(2, 2, CV_32FC1, cv::Scalar(0.5));
  for (const double clipping : {0.0, 1.0, kNan, kInfinity, -kInfinity}) {
    ExpectRefused(image, clipping, 0.25,
                  "Shadows clipping must be a finite negative normalized-MAD multiplier.");
  }
}

}  // namespace
}  // namespace project_lumen::core
