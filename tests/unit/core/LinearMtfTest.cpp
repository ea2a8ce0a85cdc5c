#include "core/LinearMtf.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

constexpr const char* kEmpty = "Cannot apply linear MTF to an empty image.";
constexpr const char* kType = "Linear MTF requires a float32 grayscale or RGB image.";
constexpr const char* kParameters = "Linear MTF channel parameters do not match the image.";

MtfChannelStats MakeStats(double shadows, double midtones) {
  return {.median = 0.0, .normalizedMad = 0.0, .shadows = shadows, .midtones = midtones};
}

TEST(ApplyLinearMtf, TransfersWhatLiesAboveTheShadows) {
  cv::Mat image = (cv::Mat_<float>(1, 3) << 0.25F, 0.5F, 0.75F);
  ApplyLinearMtf(image, {MakeStats(0.25, 0.25)});
  // 3x / (2x + 1) at x = 0, 1/4 and 1/2.
  EXPECT_EQ(image.at<float>(0, 0), 0.0F);
  EXPECT_EQ(image.at<float>(0, 1), 0.5F);
  EXPECT_EQ(image.at<float>(0, 2), 0.75F);
}

TEST(ApplyLinearMtf, ClipsAtTheShadowsAndAtOneAboveThem) {
  cv::Mat image = (cv::Mat_<float>(1, 5) << -3.0F, 0.0F, 0.1F, 1.25F, 9.0F);
  ApplyLinearMtf(image, {MakeStats(0.25, 0.3)});
  const cv::Mat expected = (cv::Mat_<float>(1, 5) << 0.0F, 0.0F, 0.0F, 1.0F, 1.0F);
  EXPECT_TRUE(AreEqual(image, expected));
}

TEST(ApplyLinearMtf, DoesNotRescaleByTheShadows) {
  cv::Mat image = (cv::Mat_<float>(1, 1) << 1.0F);
  ApplyLinearMtf(image, {MakeStats(0.25, 0.5)});
  EXPECT_EQ(image.at<float>(0, 0), 0.75F);
}

TEST(ApplyLinearMtf, UsesEveryChannelsOwnTransfer) {
  cv::Mat image(2, 2, CV_32FC3, cv::Scalar(0.5, 0.75, 0.25));
  ApplyLinearMtf(image, {MakeStats(0.0, 0.25), MakeStats(0.5, 0.25), MakeStats(0.25, 0.25)});
  EXPECT_TRUE(AreEqual(image, cv::Mat(2, 2, CV_32FC3, cv::Scalar(0.75, 0.5, 0.0))));
}

TEST(InvertLinearMtf, ReturnsToSampleUnitsWithoutClamping) {
  cv::Mat image = (cv::Mat_<float>(1, 5) << -1.0F, 0.0F, 0.75F, 1.0F, 2.0F);
  InvertLinearMtf(image, {MakeStats(0.25, 0.25)});
  const cv::Mat expected = (cv::Mat_<float>(1, 5) << 0.25F, 0.25F, 0.75F, 1.25F, 1.25F);
  EXPECT_TRUE(AreEqual(image, expected));
}

TEST(InvertLinearMtf, UndoesTheForwardTransferAboveTheShadows) {
  const std::vector<MtfChannelStats> stats = {MakeStats(0.0, 0.1), MakeStats(0.05, 0.3),
                                              MakeStats(0.1, 0.7)};
  const cv::Mat original = MakeNoise({20, 30}, CV_32FC3, 2, 0.1, 1.0);
  cv::Mat image = original.clone();
  ApplyLinearMtf(image, stats);
  InvertLinearMtf(image, stats);
  EXPECT_LE(cv::norm(image, original, cv::NORM_INF), 2e-6);
}

TEST(LinearMtf, WorksOnPartsOfAnImageAndLeavesTheRest) {
  cv::Mat whole = MakeNoise({9, 9}, CV_32FC3, 2);
  const cv::Mat before = whole.clone();
  cv::Mat part = whole(cv::Rect(2, 2, 4, 5));
  part.setTo(cv::Scalar::all(0.5));
  const std::vector<MtfChannelStats> stats(3, MakeStats(0.0, 0.25));
  ApplyLinearMtf(part, stats);
  EXPECT_TRUE(AreEqual(part, cv::Mat(5, 4, CV_32FC3, cv::Scalar::all(0.75))));
  before(cv::Rect(2, 2, 4, 5)).setTo(cv::Scalar::all(0.75));
  EXPECT_TRUE(AreEqual(whole, before));
}

TEST(ComputeShadowMask, MarksSamplesAtOrBelowTheShadows) {
  const cv::Mat image = (cv::Mat_<float>(1, 4) << -1.0F, 0.25F, 0.2500001F, 1.0F);
  const cv::Mat mask = ComputeShadowMask(image, {MakeStats(0.25, 0.5)});
  const cv::Mat expected = (cv::Mat_<std::uint8_t>(1, 4) << 255, 255, 0, 0);
  EXPECT_TRUE(AreEqual(mask, expected));
}

TEST(ComputeShadowMask, ComparesInDoublePrecision) {
  // 0.1 as float32 lies above 0.1 as float64.
  const cv::Mat image = (cv::Mat_<float>(1, 1) << 0.1F);
  EXPECT_EQ(ComputeShadowMask(image, {MakeStats(0.1, 0.5)}).at<std::uint8_t>(0, 0), 0);
}

TEST(ComputeShadowMask, HasTheChannelsOfTheImage) {
  const cv::Mat image(2, 3, CV_32FC3, cv::Scalar(0.1, 0.2, 0.3));
  const cv::Mat mask =
      ComputeShadowMask(image, {MakeStats(0.2, 0.5), MakeStats(0.1, 0.5), MakeStats(0.5, 0.5)});
  EXPECT_TRUE(AreEqual(mask, cv::Mat(2, 3, CV_8UC3, cv::Scalar(255, 0, 255))));
}

TEST(RestoreMaskedSamples, CopiesMarkedSamplesOnly) {
  const cv::Mat source(1, 2, CV_32FC3, cv::Scalar(0.1, 0.2, 0.3));
  cv::Mat output(1, 2, CV_32FC3, cv::Scalar(0.7, 0.8, 0.9));
  RestoreMaskedSamples(source, cv::Mat(1, 2, CV_8UC3, cv::Scalar(255, 0, 255)), output);
  EXPECT_TRUE(AreEqual(output, cv::Mat(1, 2, CV_32FC3, cv::Scalar(0.1, 0.8, 0.3))));
}

TEST(RestoreMaskedSamples, RefusesAnotherSource) {
  constexpr const char* kText = "Linear MTF source does not match the output image.";
  cv::Mat output(2, 2, CV_32FC3, cv::Scalar::all(0));
  const cv::Mat mask(2, 2, CV_8UC3, cv::Scalar::all(0));
  for (const cv::Mat& source :
       {cv::Mat(2, 3, CV_32FC3), cv::Mat(2, 2, CV_32FC1), cv::Mat(2, 2, CV_64FC3), cv::Mat()}) {
    ExpectThrows<std::invalid_argument>([&] { RestoreMaskedSamples(source, mask, output); }, kText);
  }
}

TEST(RestoreMaskedSamples, RefusesAnotherMask) {
  constexpr const char* kText = "Linear MTF clipped-sample mask does not match the output image.";
  cv::Mat output(2, 2, CV_32FC3, cv::Scalar::all(0));
  const cv::Mat source = output.clone();
  for (const cv::Mat& mask :
       {cv::Mat(2, 3, CV_8UC3), cv::Mat(2, 2, CV_8UC1), cv::Mat(2, 2, CV_8SC3), cv::Mat()}) {
    ExpectThrows<std::invalid_argument>([&] { RestoreMaskedSamples(source, mask, output); }, kText);
  }
}

// Forward transfer, inverse transfer and shadow mask refuse the same images.
class RefusedMtfImage : public ::testing::TestWithParam<
                            std::function<void(cv::Mat&, const std::vector<MtfChannelStats>&)>> {
 protected:
  static void ExpectRefused(cv::Mat image, std::size_t records, const char* text) {
    const std::vector<MtfChannelStats> stats(records);
    ExpectThrows<std::invalid_argument>([&] { GetParam()(image, stats); }, text);
  }
};

TEST_P(RefusedMtfImage, WithoutSamples) {
  ExpectRefused(cv::Mat(), 1, kEmpty);
}

TEST_P(RefusedMtfImage, OfAnotherTypeBeforeTheRecordsAreCounted) {
  ExpectRefused(cv::Mat(2, 2, CV_64FC1, cv::Scalar(0)), 3, kType);
  ExpectRefused(cv::Mat(2, 2, CV_16UC3, cv::Scalar::all(0)), 3, kType);
  ExpectRefused(cv::Mat(2, 2, CV_32FC2, cv::Scalar::all(0)), 2, kType);
}

TEST_P(RefusedMtfImage, WithAnotherNumberOfRecords) {
  ExpectRefused(cv::Mat(2, 2, CV_32FC3, cv::Scalar::all(0)), 1, kParameters);
  ExpectRefused(cv::Mat(2, 2, CV_32FC1, cv::Scalar(0)), 3, kParameters);
  ExpectRefused(cv::Mat(2, 2, CV_32FC1, cv::Scalar(0)), 0, kParameters);
}

INSTANTIATE_TEST_SUITE_P(Functions, RefusedMtfImage,
                         ::testing::Values(ApplyLinearMtf, InvertLinearMtf, ComputeShadowMask));

}  // namespace
}  // namespace project_lumen::core
