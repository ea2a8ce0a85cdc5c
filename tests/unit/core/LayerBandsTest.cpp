#include "core/LayerBands.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "core/StarLayers.h"
#include "support/LargeAllocations.h"

namespace project_lumen::core {
namespace {

cv::Mat RandomImage(cv::Size size, int type, std::uint64_t seed) {
  cv::Mat image(size, type);
  cv::RNG random(seed);
  random.fill(image, cv::RNG::UNIFORM, 0.0, 1.0);
  return image;
}

// Inputs whose starless image is at hand as a whole.
LayerInputs InputsOf(const cv::Mat& source, const cv::Mat& starless) {
  return {source, [&starless](const cv::Range& rows) { return starless.rowRange(rows); }};
}

cv::Mat WholeLayer(const LayerInputs& inputs, StarLayer kind) {
  cv::Mat layer(inputs.source.size(), CV_MAKETYPE(CV_64F, inputs.source.channels()));
  ComputeLayer(inputs, kind, [&layer](const cv::Mat& part, const cv::Range& rows) {
    part.copyTo(layer.rowRange(rows));
  });
  return layer;
}

// Heights around those of a band, among them a last band of one row and a single row; a width
// beyond what a band holds.
class LayerBands : public testing::TestWithParam<cv::Size> {};

TEST_P(LayerBands, EqualTheLayersOfTheWholeImage) {
  for (const int channels : {1, 3}) {
    const cv::Mat source = RandomImage(GetParam(), CV_32FC(channels), 1);
    const cv::Mat starless = RandomImage(GetParam(), CV_64FC(channels), 2);
    cv::Mat original;
    source.convertTo(original, CV_64F);
    const LayerInputs inputs = InputsOf(source, starless);
    EXPECT_TRUE(
        AreEqual(WholeLayer(inputs, StarLayer::kMask), ComputeStarMask(original, starless)));
    EXPECT_TRUE(AreEqual(WholeLayer(inputs, StarLayer::kUnscreen),
                         ComputeUnscreenStarLayer(original, starless, nullptr)));
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, LayerBands,
                         testing::Values(cv::Size(1024, 1), cv::Size(1024, 31), cv::Size(1024, 32),
                                         cv::Size(1024, 33), cv::Size(1024, 65), cv::Size(701, 131),
                                         cv::Size(40000, 3)));

TEST(ComputeLayer, BandsFollowEachOtherAndTheLastMayBeOneRow) {
  // 32 rows of 1024 samples are a band.
  const cv::Mat source(65, 1024, CV_32FC1, cv::Scalar(0.5));
  const cv::Mat starless(65, 1024, CV_64FC1, cv::Scalar(0.25));
  std::vector<cv::Range> seen;
  ComputeLayer(InputsOf(source, starless), StarLayer::kMask,
               [&seen](const cv::Mat&, const cv::Range& rows) { seen.push_back(rows); });
  EXPECT_EQ(seen, (std::vector<cv::Range>{{0, 32}, {32, 64}, {64, 65}}));
}

TEST(ComputeLayer, ComesFromTheStarlessImageAsReadBack) {
  const cv::Mat source(1, 1, CV_32FC3, cv::Scalar(0.5, 0.5, 0.5));
  const cv::Mat starless(1, 1, CV_64FC3, cv::Scalar(0.25, 0.25, 0.25));
  const LayerInputs inputs = InputsOf(source, starless);
  EXPECT_EQ(WholeLayer(inputs, StarLayer::kMask).at<cv::Vec3d>(0), cv::Vec3d(0.25, 0.25, 0.25));
  EXPECT_NEAR(WholeLayer(inputs, StarLayer::kUnscreen).at<cv::Vec3d>(0)[1], 1.0 / 3.0, 1e-15);
}

TEST(CheckLayerInputs, CountsSuppressedSamplesOfAllBands) {
  cv::Mat source(65, 1024, CV_64FC1, cv::Scalar(0.5));
  cv::Mat starless(65, 1024, CV_64FC1, cv::Scalar(0.5));
  for (const int row : {0, 33, 64}) {
    source.at<double>(row, 7) = 1.0;
    starless.at<double>(row, 7) = 0.9999;
  }
  EXPECT_EQ(CheckLayerInputs(InputsOf(source, starless), true), 3U);
}

TEST(CheckLayerInputs, CountsNothingWithoutAnUnscreenLayer) {
  const cv::Mat source(2, 2, CV_64FC1, cv::Scalar(1.0));
  const cv::Mat starless(2, 2, CV_64FC1, cv::Scalar(0.9999));
  EXPECT_EQ(CheckLayerInputs(InputsOf(source, starless), false), 0U);
}

TEST(CheckLayerInputs, PassesOnWhatReadingBackThrowsInTheLastRow) {
  const cv::Mat source(65, 1024, CV_32FC1, cv::Scalar(0.5));
  const LayerInputs inputs{source, [](const cv::Range& rows) -> cv::Mat {
                             if (rows.end == 65) {
                               throw std::invalid_argument("no");
                             }
                             return {rows.size(), 1024, CV_64FC1, cv::Scalar(0.5)};
                           }};
  EXPECT_THROW(CheckLayerInputs(inputs, false), std::invalid_argument);
}

TEST(ComputeLayer, LackOfMemoryIsBadAllocWhoeverFeelsIt) {
  const cv::Mat source(1, 1, CV_32FC1, cv::Scalar(0.5));
  const LayerInputs inputs{source, [](const cv::Range&) -> cv::Mat {
                             throw cv::Exception(cv::Error::StsNoMem, "no memory", "f", "f.cpp", 1);
                           }};
  EXPECT_THROW(ComputeLayer(inputs, StarLayer::kMask, [](const cv::Mat&, const cv::Range&) {}),
               std::bad_alloc);
  EXPECT_THROW(CheckLayerInputs(inputs, false), std::bad_alloc);
}

TEST(CheckLayerInputs, ReadsNoDarkRowsBackWhereThatCannotFail) {
  cv::Mat source(96, 1024, CV_32FC1, cv::Scalar(0.5));
  source.at<float>(40, 1023) = 1.0F;
  std::vector<cv::Range> seen;
  const LayerInputs inputs{source,
                           [&seen](const cv::Range& rows) -> cv::Mat {
                             seen.push_back(rows);
                             return {rows.size(), 1024, CV_64FC1, cv::Scalar(0.9999)};
                           },
                           false};
  EXPECT_EQ(CheckLayerInputs(inputs, false), 0U);
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(CheckLayerInputs(inputs, true), 1U);
  EXPECT_EQ(seen, (std::vector<cv::Range>{{32, 64}}));
}

// Neither the source in float64 nor the starless image as read back nor the layer exists whole.
TEST(ComputeLayer, AllocatesNothingOfTheImagesSize) {
  const cv::Mat source(1024, 1024, CV_32FC3, cv::Scalar::all(0.5));
  const LayerInputs inputs{source, [](const cv::Range& rows) {
                             return cv::Mat(rows.size(), 1024, CV_64FC3, cv::Scalar::all(0.25));
                           }};
  const LargeAllocations large(source.total());
  CheckLayerInputs(inputs, true);
  ComputeLayer(inputs, StarLayer::kUnscreen, [](const cv::Mat&, const cv::Range&) {});
  ComputeLayer(inputs, StarLayer::kMask, [](const cv::Mat&, const cv::Range&) {});
  EXPECT_TRUE(large.Sizes().empty());
}

}  // namespace
}  // namespace project_lumen::core
