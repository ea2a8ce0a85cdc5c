#include "core/NetworkInference.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "common/GridAlignedResample.h"

namespace project_lumen::core {
namespace {

Image Identity(ImageView tile) {
  return {.samples = {tile.data, tile.data + tile.sampleCount},
          .width = tile.width,
          .height = tile.height,
          .channels = tile.channels};
}

TEST(CheckInference, WantsACallbackAndThenAStride) {
  ExpectThrows<std::invalid_argument>([] { CheckInference(3, nullptr); },
                                      "A tile inference callback is required.");
  for (const std::int32_t stride : {0, -2, 1, 511, 514}) {
    ExpectThrows<std::invalid_argument>([stride] { CheckInference(stride, Identity); },
                                        "Stride must be positive, even, and at most 512.");
  }
  EXPECT_NO_THROW(CheckInference(2, Identity));
  EXPECT_NO_THROW(CheckInference(512, Identity));
}

TEST(CheckUpsampling, RefusesSidesWhoseDoubleIsNoInt32) {
  constexpr const char* kText = "Image dimensions exceed the 2x upsampling limit.";
  ExpectThrows<std::invalid_argument>([] { CheckUpsampling(1073741824, 1); }, kText);
  ExpectThrows<std::invalid_argument>([] { CheckUpsampling(1, 1073741824); }, kText);
  EXPECT_NO_THROW(CheckUpsampling(1073741823, 1073741823));
}

TEST(MakeWorkingImage, SharesAColourImageOnItsOwnGrid) {
  for (const int type : {CV_32FC3, CV_64FC3}) {
    const cv::Mat source = MakeNoise({6, 5}, type, 1);
    EXPECT_EQ(MakeWorkingImage(source, false).data, source.data);
  }
}

TEST(MakeWorkingImage, RepeatsGreyInThreeChannels) {
  for (const int depth : {CV_32F, CV_64F}) {
    const cv::Mat source = MakeNoise({6, 5}, CV_MAKETYPE(depth, 1), 1);
    const cv::Mat working = MakeWorkingImage(source, false);
    ASSERT_EQ(working.type(), CV_MAKETYPE(depth, 3));
    for (int k = 0; k < 3; ++k) {
      cv::Mat plane;
      cv::extractChannel(working, plane, k);
      EXPECT_TRUE(AreEqual(plane, source));
    }
  }
}

TEST(MakeWorkingImage, DoublesTheGrid) {
  const cv::Mat source = MakeNoise({6, 5}, CV_64FC3, 1);
  EXPECT_TRUE(AreEqual(MakeWorkingImage(source, true), UpsampleGridCubic2x(source)));
  const cv::Mat grey = MakeNoise({6, 5}, CV_32FC1, 1);
  EXPECT_EQ(MakeWorkingImage(grey, true).size(), cv::Size(12, 10));
  EXPECT_EQ(MakeWorkingImage(grey, true).channels(), 3);
}

TEST(InferImage, PutsTheResultWhereTheCallerWantsIt) {
  const cv::Mat image = MakeNoise({512, 512}, CV_32FC3, 1);
  const cv::Mat place(image.size(), CV_32FC3, cv::Scalar::all(0.0));
  EXPECT_EQ(InferImage(image, 512, Identity, {}, place).data, place.data);
  EXPECT_TRUE(AreEqual(place, image));
}

TEST(InferImage, RefusesAnswersThatAreNoTile) {
  const cv::Mat image = MakeNoise({512, 512}, CV_32FC3, 1);
  const auto shortened = [](ImageView tile) {
    Image answer = Identity(tile);
    answer.samples.pop_back();
    return answer;
  };
  ExpectThrows<std::runtime_error>([&] { InferImage(image, 512, shortened, {}); },
                                   "Inference returned an invalid image buffer.");
}

TEST(InferImage, AsksForAStopBeforeEveryTileAndReport) {
  const cv::Mat image = MakeNoise({1024, 512}, CV_32FC3, 1);
  int polls = 0;
  InferImage(image, 512, Identity, {.stopRequested = [&polls] {
               ++polls;
               return false;
             }});
  EXPECT_EQ(polls, 5);  // the start, and two for each of two tiles
}

}  // namespace
}  // namespace project_lumen::core
