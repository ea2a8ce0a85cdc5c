#include "cli/Nebulex2/LayerBands.h"

#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/StarLayers.h"
#include "support/LargeAllocations.h"

namespace project_lumen::cli {
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

cv::Mat WholeLayer(const LayerInputs& inputs, io::OutputRole role) {
  cv::Mat layer(inputs.source.size(), CV_MAKETYPE(CV_64F, inputs.source.channels()));
  ComputeLayer(inputs, role, [&layer](const cv::Mat& part, const cv::Range& rows) {
    part.copyTo(layer.rowRange(rows));
  });
  return layer;
}

bool AreEqual(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && cv::norm(a, b, cv::NORM_INF) == 0.0;
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
    EXPECT_TRUE(AreEqual(WholeLayer(inputs, io::OutputRole::kDifference),
                         core::ComputeStarMask(original, starless)));
    EXPECT_TRUE(AreEqual(WholeLayer(inputs, io::OutputRole::kUnscreen),
                         core::ComputeUnscreenStarLayer(original, starless, nullptr)));
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
  ComputeLayer(InputsOf(source, starless), io::OutputRole::kDifference,
               [&seen](const cv::Mat&, const cv::Range& rows) { seen.push_back(rows); });
  EXPECT_EQ(seen, (std::vector<cv::Range>{{0, 32}, {32, 64}, {64, 65}}));
}

TEST(ComputeLayer, ComesFromTheStarlessImageAsReadBack) {
  const cv::Mat source(1, 1, CV_32FC3, cv::Scalar(0.5, 0.5, 0.5));
  const cv::Mat starless(1, 1, CV_64FC3, cv::Scalar(0.25, 0.25, 0.25));
  const LayerInputs inputs = InputsOf(source, starless);
  EXPECT_EQ(WholeLayer(inputs, io::OutputRole::kDifference).at<cv::Vec3d>(0),
            cv::Vec3d(0.25, 0.25, 0.25));
  EXPECT_NEAR(WholeLayer(inputs, io::OutputRole::kUnscreen).at<cv::Vec3d>(0)[1], 1.0 / 3.0, 1e-15);
}

TEST(CheckLayerInputs, SuppressedSamplesOfAllBandsAreOneDataLossWarningEvenWhenQuiet) {
  std::ostringstream records;
  cv::Mat source(65, 1024, CV_64FC1, cv::Scalar(0.5));
  cv::Mat starless(65, 1024, CV_64FC1, cv::Scalar(0.5));
  for (const int row : {0, 33, 64}) {
    source.at<double>(row, 7) = 1.0;
    starless.at<double>(row, 7) = 0.9999;
  }
  CheckLayerInputs(InputsOf(source, starless), true, {true, false, records});
  EXPECT_EQ(records.str(),
            "Warning [data_loss]: suppressed 3 near-saturated unscreen output sample(s). "
            "Additional unstable samples may remain. Check the input image for clipped or "
            "near-clipped highlights, especially channels with values at 1.0000.\n");
}

TEST(CheckLayerInputs, SaysNothingWithoutAnUnscreenLayer) {
  std::ostringstream records;
  const cv::Mat source(2, 2, CV_64FC1, cv::Scalar(1.0));
  const cv::Mat starless(2, 2, CV_64FC1, cv::Scalar(0.9999));
  CheckLayerInputs(InputsOf(source, starless), false, {false, false, records});
  EXPECT_EQ(records.str(), "");
}

TEST(CheckLayerInputs, PassesOnWhatReadingBackThrowsInTheLastRow) {
  std::ostringstream records;
  const cv::Mat source(65, 1024, CV_32FC1, cv::Scalar(0.5));
  const LayerInputs inputs{source, [](const cv::Range& rows) -> cv::Mat {
                             if (rows.end == 65) {
                               throw std::invalid_argument("no");
                             }
                             return {rows.size(), 1024, CV_64FC1, cv::Scalar(0.5)};
                           }};
  EXPECT_THROW(CheckLayerInputs(inputs, false, {false, false, records}), std::invalid_argument);
}

TEST(CheckLayerInputs, ReadsNoDarkRowsBackWhereThatCannotFail) {
  std::ostringstream records;
  cv::Mat source(96, 1024, CV_32FC1, cv::Scalar(0.5));
  source.at<float>(40, 1023) = 1.0F;
  std::vector<cv::Range> seen;
  const LayerInputs inputs{source,
                           [&seen](const cv::Range& rows) -> cv::Mat {
                             seen.push_back(rows);
                             return {rows.size(), 1024, CV_64FC1, cv::Scalar(0.9999)};
                           },
                           false};
  CheckLayerInputs(inputs, false, {false, false, records});
  EXPECT_TRUE(seen.empty());
  CheckLayerInputs(inputs, true, {false, false, records});
  EXPECT_EQ(seen, (std::vector<cv::Range>{{32, 64}}));
  EXPECT_NE(records.str().find("suppressed 1 near-saturated"), std::string::npos);
}

// Neither the source in float64 nor the starless image as read back nor the layer exists whole.
TEST(ComputeLayer, AllocatesNothingOfTheImagesSize) {
  const cv::Mat source(1024, 1024, CV_32FC3, cv::Scalar::all(0.5));
  const LayerInputs inputs{source, [](const cv::Range& rows) {
                             return cv::Mat(rows.size(), 1024, CV_64FC3, cv::Scalar::all(0.25));
                           }};
  std::ostringstream records;
  const LargeAllocations large(source.total());
  CheckLayerInputs(inputs, true, {false, false, records});
  ComputeLayer(inputs, io::OutputRole::kUnscreen, [](const cv::Mat&, const cv::Range&) {});
  ComputeLayer(inputs, io::OutputRole::kDifference, [](const cv::Mat&, const cv::Range&) {});
  EXPECT_TRUE(large.Sizes().empty());
}

}  // namespace
}  // namespace project_lumen::cli
