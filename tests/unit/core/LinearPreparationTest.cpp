#include "core/LinearPreparation.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

constexpr double kClipping = -2.8;
constexpr double kTarget = 0.25;

// Notes the reports in their order.
struct Listener {
  std::vector<std::string> order;
  RangeStatistics range;
  std::vector<LinearChannelStats> channels;
  std::vector<RestoredSamples> restored;

  LinearReports Reports() {
    return {.aboveOne =
                [this](const RangeStatistics& found) {
                  order.emplace_back("above one");
                  range = found;
                },
            .transfer =
                [this](const std::vector<LinearChannelStats>& found) {
                  order.emplace_back("transfer");
                  channels = found;
                },
            .restored =
                [this](const std::vector<RestoredSamples>& found) {
                  order.emplace_back("restored");
                  restored = found;
                }};
  }
};

TEST(PrepareLinearInput, NeedsANonemptyFloat64Image) {
  for (const cv::Mat& working : {cv::Mat(), cv::Mat(2, 2, CV_32FC3, cv::Scalar::all(0.5))}) {
    ExpectThrows<std::invalid_argument>(
        [&working] { PrepareLinearInput(working, kClipping, kTarget, {}); },
        "Linear preparation requires a nonempty float64 input.");
  }
}

// Channel values 1/8 to 5/8: median 3/8, deviations 1/8 (median of 0, 1/8, 1/8, 2/8, 2/8), so the
// normalised MAD is 0.185325; the shadows point 0.375 - 2.8 * 0.185325 is negative and clamps to 0;
// midtones (0.25 - 1) * 0.375 / ((0.5 - 1) * 0.375 - 0.25) = 9/14.
TEST(PrepareLinearInput, ReportsTheTransferAlone) {
  Listener listener;
  const cv::Mat ramp = (cv::Mat_<double>(1, 5) << 0.125, 0.25, 0.375, 0.5, 0.625);
  PrepareLinearInput(ramp, kClipping, kTarget, listener.Reports());
  EXPECT_EQ(listener.order, std::vector<std::string>{"transfer"});
  ASSERT_EQ(listener.channels.size(), 1U);
  EXPECT_EQ(listener.channels[0].median, 0.375);
  EXPECT_DOUBLE_EQ(listener.channels[0].normalizedMad, 0.185325);
  EXPECT_EQ(listener.channels[0].shadows, 0.0);
  EXPECT_DOUBLE_EQ(listener.channels[0].midtones, 9.0 / 14.0);
}

TEST(PrepareLinearInput, ReportsTheRangeBeforeSamplesAboveOneAreCapped) {
  Listener listener;
  const cv::Mat image = (cv::Mat_<double>(1, 4) << 0.25, 0.5, 0.75, 1.5);
  const FixedLinearMtf mtf = PrepareLinearInput(image, kClipping, kTarget, listener.Reports());
  EXPECT_EQ(listener.order, (std::vector<std::string>{"above one", "transfer"}));
  EXPECT_EQ(listener.range.samples, 4U);
  EXPECT_EQ(listener.range.aboveOne, 1U);
  EXPECT_EQ(listener.range.maximum, 1.5);
  EXPECT_EQ(mtf.Working().at<double>(3), 1.0);
}

TEST(PrepareLinearInput, ReportsTheRangeEvenOfAnImageThatIsRefused) {
  Listener listener;
  const cv::Mat image = (cv::Mat_<double>(1, 5) << 1.0, 2.0, 3.0, 0.5, 0.6);
  ExpectThrows<std::invalid_argument>(
      [&] { PrepareLinearInput(image, kClipping, kTarget, listener.Reports()); },
      "Linear input has a non-invertible MTF background in channel 1. Normalize or prepare the "
      "image upstream.");
  EXPECT_EQ(listener.order, std::vector<std::string>{"above one"});
}

TEST(PrepareLinearInput, NeedsNoListener) {
  const cv::Mat image = (cv::Mat_<double>(1, 4) << 0.25, 0.5, 0.75, 1.5);
  EXPECT_NO_THROW(PrepareLinearInput(image, kClipping, kTarget, {}));
}

// median 0.5, deviations 0.75, 0.25, 0.015625, 0, 0, 0.015625, 0.25: MAD 0.015625, shadows
// 0.43513625; the first two samples lie below it.
TEST(RestoreFinalLinearSamples, BringsShadowsBackAndReportsThem) {
  Listener listener;
  const cv::Mat source =
      (cv::Mat_<double>(1, 7) << -0.25, 0.25, 0.484375, 0.5, 0.5, 0.515625, 0.75);
  const FixedLinearMtf mtf = PrepareLinearInput(source, kClipping, kTarget, {});
  cv::Mat image(1, 7, CV_64FC1, cv::Scalar(0.875));
  RestoreFinalLinearSamples(source, mtf.Channels(), image, listener.Reports());
  const cv::Mat expected =
      (cv::Mat_<double>(1, 7) << -0.25, 0.25, 0.875, 0.875, 0.875, 0.875, 0.875);
  EXPECT_TRUE(AreEqual(image, expected));
  EXPECT_EQ(listener.order, std::vector<std::string>{"restored"});
  ASSERT_EQ(listener.restored.size(), 1U);
  EXPECT_EQ(listener.restored[0].inShadows, 2U);
  EXPECT_EQ(listener.restored[0].alsoConstant, 0U);
}

TEST(RestoreFinalLinearSamples, ConstantChannelsComeBackWholeAndAreCountedApart) {
  Listener listener;
  const cv::Mat flat(2, 3, CV_64FC1, cv::Scalar(0.5));
  const FixedLinearMtf mtf = PrepareLinearInput(flat, kClipping, kTarget, {});
  cv::Mat image(2, 3, CV_64FC1, cv::Scalar(0.1));
  RestoreFinalLinearSamples(flat, mtf.Channels(), image, listener.Reports());
  EXPECT_TRUE(AreEqual(image, flat));
  ASSERT_EQ(listener.restored.size(), 1U);
  EXPECT_EQ(listener.restored[0].inShadows, 0U);
  EXPECT_EQ(listener.restored[0].alsoConstant, 6U);
}

TEST(RestoreFinalLinearSamples, AnotherTypeOrSizeIsRefused) {
  const cv::Mat source(1, 5, CV_64FC1, cv::Scalar(0.5));
  for (cv::Mat image : {cv::Mat(1, 5, CV_32FC1), cv::Mat(1, 6, CV_64FC1)}) {
    ExpectAssertion([&] { RestoreFinalLinearSamples(source, {}, image, {}); },
                    "project_lumen::core::RestoreFinalLinearSamples",
                    "image.type() == sourceOutput.type() && image.size() == sourceOutput.size()");
  }
}

}  // namespace
}  // namespace project_lumen::core
