#include "core/ImageConversion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

constexpr const char* kShape = "Nebulex requires RGB or grayscale pixels at least 512x512.";
constexpr const char* kCount = "Image sample count does not match its dimensions.";
constexpr const char* kFinite = "Image contains non-finite samples.";

ImageView ViewOf(const std::vector<float>& samples, std::int32_t width, std::int32_t height,
                 std::int32_t channels) {
  return {samples.data(), samples.size(), width, height, channels};
}

void ExpectRefused(const ImageView& view, const char* text) {
  ExpectThrows<std::invalid_argument>([&view] { ToWorkingMat(view); }, text);
}

TEST(ToWorkingMat, ShowsAColourImageWithoutACopy) {
  std::vector<float> samples(std::size_t{600} * 512 * 3);
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i] = static_cast<float>(i);
  }
  const cv::Mat working = ToWorkingMat(ViewOf(samples, 600, 512, 3));
  ASSERT_EQ(working.type(), CV_32FC3);
  ASSERT_EQ(working.size(), cv::Size(600, 512));
  EXPECT_EQ(working.at<cv::Vec3f>(0, 1), cv::Vec3f(3, 4, 5));
  EXPECT_EQ(working.at<cv::Vec3f>(1, 0), cv::Vec3f(1800, 1801, 1802));
  EXPECT_EQ(working.ptr<float>(), samples.data());
}

TEST(ToWorkingMat, ReplicatesTheChannelOfAGreyImage) {
  std::vector<float> samples(std::size_t{512} * 512, 0.25F);
  samples[513] = 0.75F;
  const cv::Mat working = ToWorkingMat(ViewOf(samples, 512, 512, 1));
  ASSERT_EQ(working.type(), CV_32FC3);
  EXPECT_EQ(working.at<cv::Vec3f>(0, 0), cv::Vec3f(0.25F, 0.25F, 0.25F));
  EXPECT_EQ(working.at<cv::Vec3f>(1, 1), cv::Vec3f(0.75F, 0.75F, 0.75F));
}

TEST(ToWorkingMat, RefusesMissingSmallAndOddlyChannelledImages) {
  const std::vector<float> sample(3);
  ExpectRefused({nullptr, 786432, 512, 512, 3}, kShape);
  ExpectRefused(ViewOf(sample, 511, 4000, 3), kShape);
  ExpectRefused(ViewOf(sample, 4000, 511, 3), kShape);
  ExpectRefused(ViewOf(sample, -512, -512, 1), kShape);
  for (const std::int32_t channels : {-1, 0, 2, 4}) {
    ExpectRefused(ViewOf(sample, 512, 512, channels), kShape);
  }
}

TEST(ToWorkingMat, RefusesASampleTooManyOrTooFew) {
  const std::vector<float> samples(std::size_t{512} * 512 * 3 + 1);
  for (const std::int32_t channels : {1, 3}) {
    const auto right = std::uint64_t{512} * 512 * static_cast<std::uint64_t>(channels);
    EXPECT_NO_THROW(ToWorkingMat({samples.data(), right, 512, 512, channels}));
    ExpectRefused({samples.data(), right - 1, 512, 512, channels}, kCount);
    ExpectRefused({samples.data(), right + 1, 512, 512, channels}, kCount);
  }
}

TEST(ToWorkingMat, RefusesClaimedSizesWithoutReadingASample) {
  constexpr std::int32_t kMaximum = std::numeric_limits<std::int32_t>::max();
  const std::vector<float> samples(3);
  ExpectRefused(ViewOf(samples, kMaximum, kMaximum, 3), kCount);
  ExpectRefused({samples.data(), std::numeric_limits<std::uint64_t>::max(), 512, 512, 3}, kCount);
}

TEST(ToWorkingMat, RefusesSamplesThatAreNotFinite) {
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
        -std::numeric_limits<float>::infinity()}) {
    for (const std::size_t position : {std::size_t{0}, std::size_t{1234}, std::size_t{786431}}) {
      std::vector<float> samples(786432, 0.5F);
      samples[position] = bad;
      ExpectRefused(ViewOf(samples, 512, 512, 3), kFinite);
    }
  }
}

TEST(ToImage, CopiesRowByRow) {
  const cv::Mat whole = (cv::Mat_<float>(3, 3) << 1, 2, 3, 4, 5, 6, 7, 8, 9);
  const Image image = ToImage(whole(cv::Rect(1, 1, 2, 2)), 1, {2, 2});
  EXPECT_EQ(image.width, 2);
  EXPECT_EQ(image.height, 2);
  EXPECT_EQ(image.channels, 1);
  EXPECT_EQ(image.samples, (std::vector<float>{5, 6, 8, 9}));
}

TEST(ToImage, KeepsInterleavedChannels) {
  const cv::Mat matrix(1, 2, CV_32FC3, cv::Scalar(0.25, 0.5, 0.75));
  EXPECT_EQ(ToImage(matrix, 3, {2, 1}).samples,
            (std::vector<float>{0.25F, 0.5F, 0.75F, 0.25F, 0.5F, 0.75F}));
}

TEST(ToImage, ReturnsFromTheDoubledGrid) {
  const cv::Mat matrix = (cv::Mat_<float>(2, 4) << 1, 2, 3, 4, 5, 6, 7, 8);
  const Image image = ToImage(matrix, 1, {2, 1});
  EXPECT_EQ(image.width, 2);
  EXPECT_EQ(image.height, 1);
  EXPECT_EQ(image.samples, (std::vector<float>{1, 3}));
}

TEST(ToImage, WeighsColoursIntoGrey) {
  const cv::Mat matrix(1, 1, CV_32FC3, cv::Scalar(1.0, 0.5, 0.25));
  const Image image = ToImage(matrix, 1, {1, 1});
  ASSERT_EQ(image.samples.size(), 1U);
  EXPECT_EQ(image.channels, 1);
  EXPECT_NEAR(image.samples[0], 0.299 + 0.587 * 0.5 + 0.114 * 0.25, 1e-7);
}

TEST(ToImage, RefusesOtherSizes) {
  ExpectAssertion(
      [] {
        ToImage(cv::Mat(4, 4, CV_32FC1, cv::Scalar(0)), 1, {3, 2});
      },
      "project_lumen::DownsampleGrid2x",
      "source.cols % 2 == 0 && source.rows % 2 == 0 && "
      "target == cv::Size(source.cols / 2, source.rows / 2)");
}

}  // namespace
}  // namespace project_lumen::core
