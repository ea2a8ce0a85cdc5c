#include "io/DecodedSizeLimit.h"

#include <gtest/gtest.h>

#include <limits>
#include <opencv2/core.hpp>

namespace project_lumen::io {
namespace {

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;

TEST(LargestDecodedSize, Is64MebibytesForSmallFiles) {
  EXPECT_EQ(LargestDecodedSize(0), 64 * kMebibyte);
  EXPECT_EQ(LargestDecodedSize(16384), 64 * kMebibyte);
}

TEST(LargestDecodedSize, GrowsWithTheFileBeyondThat) {
  EXPECT_EQ(LargestDecodedSize(16385), 64 * kMebibyte + 4096);
  EXPECT_EQ(LargestDecodedSize(kMebibyte), 4096 * kMebibyte);
}

TEST(LargestDecodedSize, DoesNotOverflow) {
  EXPECT_EQ(LargestDecodedSize(std::uint64_t{1} << 60U), std::numeric_limits<std::uint64_t>::max());
}

TEST(DecodedSizeLimit, APictureOfThatSizeIsCreatedAndALargerOneIsNot) {
  const DecodedSizeLimit limit(12);
  EXPECT_EQ(cv::Mat(2, 2, CV_8UC3).total(), 4U);
  EXPECT_THROW(cv::Mat(2, 2, CV_16UC3), cv::Exception);
  EXPECT_THROW(cv::Mat(13, 1, CV_8UC1), cv::Exception);
}

TEST(DecodedSizeLimit, SizesBeyond64BitsAreTooLarge) {
  const DecodedSizeLimit limit(std::numeric_limits<std::uint64_t>::max() / 2);
  EXPECT_THROW(cv::Mat(std::numeric_limits<int>::max(), std::numeric_limits<int>::max(), CV_64FC4),
               cv::Exception);
}

TEST(DecodedSizeLimit, PicturesOutliveIt) {
  cv::Mat picture;
  {
    const DecodedSizeLimit limit(100);
    picture = cv::Mat(1, 3, CV_8UC1, cv::Scalar(7));
  }
  EXPECT_EQ(cv::sum(picture)[0], 21.0);
}

TEST(DecodedSizeLimit, ItEndsWithItsScope) {
  { const DecodedSizeLimit limit(1); }
  EXPECT_EQ(cv::Mat(3, 3, CV_8UC1).total(), 9U);
}

}  // namespace
}  // namespace project_lumen::io
