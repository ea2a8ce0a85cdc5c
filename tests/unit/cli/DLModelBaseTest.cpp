#include "cli/DLModelBase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <opencv2/core.hpp>
#include <sstream>
#include <stdexcept>
#include <string>

namespace project_lumen::cli {
namespace {

// Opens the preparation to the tests.
class Model : public DLModelBase {
 public:
  explicit Model(std::ostringstream& stream) : DLModelBase({false, false, stream}) {}
  void Prepare(bool linear, const cv::Mat& working, const cv::Mat& source, double divisor = 65535.0,
               bool restoreShadows = true) {
    PrepareLinearInput({.linear = linear,
                        .shadowsClipping = -2.8,
                        .targetBackground = 0.25,
                        .restoreShadows = restoreShadows},
                       working, source, divisor);
  }
  using DLModelBase::IsLinear;
  using DLModelBase::LinearMtf;
  using DLModelBase::Prepared;
};

struct Fixture {
  std::ostringstream records;
  Model model{records};
};

// One row with the channel values 1/8, 2/8, 3/8, 4/8, 5/8: median 3/8, deviations 1/8 (median of
// 0, 1/8, 1/8, 2/8, 2/8).
cv::Mat Ramp() {
  return (cv::Mat_<double>(1, 5) << 0.125, 0.25, 0.375, 0.5, 0.625);
}

std::string MessageOfAssertion(const std::function<void()>& call) {
  try {
    call();
  } catch (const cv::Exception& error) {
    return error.func + ": " + error.err;
  }
  return "no assertion";
}

TEST(RescaleImage, TwoAndOneHalfReturnToTheSameSamples) {
  const cv::Mat image = (cv::Mat_<float>(2, 3) << 0.1F, 0.7F, 0.3F, 0.9F, 0.2F, 0.4F);
  const cv::Mat doubled = DLModelBase::RescaleImage(image, 2.0);
  EXPECT_EQ(doubled.size(), cv::Size(6, 4));
  const cv::Mat back = DLModelBase::RescaleImage(doubled, 0.5);
  EXPECT_EQ(cv::norm(back, image, cv::NORM_INF), 0.0);
}

TEST(RescaleImage, EveryOtherScaleIsRefused) {
  for (const double scale : {1.0, 4.0, 0.0, -2.0, std::nan("")}) {
    EXPECT_EQ(MessageOfAssertion([scale] { DLModelBase::RescaleImage(Ramp(), scale); }),
              "project_lumen::cli::DLModelBase::RescaleImage: scale == 2.0 || scale == 0.5");
  }
}

TEST(PrepareLinearInput, SaysSoWhenTheRunIsNotLinear) {
  Fixture fixture;
  fixture.model.Prepare(false, cv::Mat(), cv::Mat());
  EXPECT_EQ(fixture.records.str(),
            "Info [linear_mtf]: disabled; no automatic stretch or inverse transform\n");
  EXPECT_FALSE(fixture.model.IsLinear());
  EXPECT_TRUE(fixture.model.Prepared().empty());
}

TEST(PrepareLinearInput, NeedsANonemptyFloat64Image) {
  for (const cv::Mat& working : {cv::Mat(), cv::Mat(2, 2, CV_32FC3, cv::Scalar::all(0.5))}) {
    Fixture fixture;
    try {
      fixture.model.Prepare(true, working, working);
      ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& error) {
      EXPECT_STREQ(error.what(), "Linear preparation requires a nonempty float64 input.");
    }
  }
}

// median 0.375; normalised MAD 0.125 * 1.4826 = 0.185325; the shadows point 0.375 - 2.8 * 0.185325
// is negative and clamps to 0; midtones (0.25 - 1) * 0.375 / ((0.5 - 1) * 0.375 - 0.25) = 9/14.
TEST(PrepareLinearInput, ReportsEachChannelWithSeventeenDigits) {
  Fixture fixture;
  fixture.model.Prepare(true, Ramp(), Ramp());
  EXPECT_EQ(
      fixture.records.str(),
      "Info [linear_mtf]: channel=1 median=0.375 normalized_MAD=0.18532499999999999 shadows=0 "
      "physical_shadows=0 midtones=0.6428571428571429 "
      "shadows_multiplier=-2.7999999999999998 target_background=0.25 "
      "working_grid_clipped=0 constant=0; MTF/inverse=float64; inference=float32\n");
  EXPECT_TRUE(fixture.model.IsLinear());
  EXPECT_EQ(fixture.model.Prepared().type(), CV_32FC1);
}

// A constant channel has no spread: shadows 0, midtones 0.75 * 0.5 / (0.25 + 0.25) = 0.75.
TEST(PrepareLinearInput, ConstantChannelIsFlaggedAndPreparedAsZero) {
  Fixture fixture;
  const cv::Mat flat(3, 4, CV_64FC1, cv::Scalar(0.5));
  fixture.model.Prepare(true, flat, flat);
  EXPECT_EQ(fixture.records.str(),
            "Info [linear_mtf]: channel=1 median=0.5 normalized_MAD=0 shadows=0 "
            "physical_shadows=0 midtones=0.75 shadows_multiplier=-2.7999999999999998 "
            "target_background=0.25 working_grid_clipped=0 constant=1; MTF/inverse=float64; "
            "inference=float32\n");
  EXPECT_EQ(cv::countNonZero(fixture.model.Prepared()), 0);
}

TEST(PrepareLinearInput, ReportsThreeChannelsCountedFromOne) {
  Fixture fixture;
  const cv::Mat planes[] = {Ramp(), cv::Mat(Ramp() * 0.5), cv::Mat(Ramp() * 0.25)};
  cv::Mat image;
  cv::merge(planes, 3, image);
  fixture.model.Prepare(true, image, image);
  const std::string text = fixture.records.str();
  EXPECT_NE(text.find("channel=1 median=0.375 "), std::string::npos);
  EXPECT_NE(text.find("channel=2 median=0.1875 "), std::string::npos);
  EXPECT_NE(text.find("channel=3 median=0.09375 "), std::string::npos);
  EXPECT_EQ(text.find("channel=0"), std::string::npos);
}

TEST(PrepareLinearInput, SamplesAboveOneGiveOneDataLossWarningAndAreCapped) {
  Fixture fixture;
  const cv::Mat image = (cv::Mat_<double>(1, 4) << 0.25, 0.5, 0.75, 1.5);
  fixture.model.Prepare(true, image, image);
  const std::string text = fixture.records.str();
  EXPECT_EQ(text.substr(0, text.find('\n')),
            "Warning [data_loss]: Pre-MTF working-grid samples above 1 are clipped. "
            "scalar_samples=4 finite=4 nonfinite=0 physical_range=[0.25,1.5] "
            "type_normalized_range=[0.25,1.5] below_zero=0 (0%) above_one=1 (25%)");
  EXPECT_EQ(text.find("Warning", 1), std::string::npos);
  EXPECT_EQ(fixture.model.LinearMtf().Working().at<double>(3), 1.0);
}

TEST(PrepareLinearInput, PhysicalShadowsAreInUnitsOfTheSource) {
  Fixture fixture;
  // median 0.5, deviations all 1/64 but the median's own 0: MAD 1/64 = 0.015625, normalised
  // 0.023165625, shadows 0.5 - 2.8 * 0.023165625 = 0.43513625.
  const cv::Mat image = (cv::Mat_<double>(1, 5) << 0.484375, 0.484375, 0.5, 0.515625, 0.515625);
  fixture.model.Prepare(true, image, image, 1000.0);
  const std::string text = fixture.records.str();
  const std::string key = " physical_shadows=";
  EXPECT_NEAR(std::stod(text.substr(text.find(key) + key.size())), 435.13625, 1e-9);
}

TEST(RestoreFinalLinearSamples, DoesNothingUnlessTheRunIsLinear) {
  Fixture fixture;
  fixture.model.Prepare(false, cv::Mat(), cv::Mat());
  fixture.records.str("");
  cv::Mat image(2, 2, CV_32FC3, cv::Scalar::all(0.5));
  fixture.model.RestoreFinalLinearSamples(image);
  EXPECT_EQ(fixture.records.str(), "");
  EXPECT_EQ(image.at<cv::Vec3f>(0), cv::Vec3f(0.5F, 0.5F, 0.5F));
}

TEST(RestoreFinalLinearSamples, ShadowSamplesComeBackFromTheSource) {
  Fixture fixture;
  const cv::Mat source =
      (cv::Mat_<double>(1, 7) << -0.25, 0.25, 0.484375, 0.5, 0.5, 0.515625, 0.75);
  // median 0.5, deviations 0.75, 0.25, 0.015625, 0, 0, 0.015625, 0.25: MAD 0.015625, shadows
  // 0.43513625; the first two samples lie below it.
  fixture.model.Prepare(true, source, source);
  fixture.records.str("");
  cv::Mat image(1, 7, CV_64FC1, cv::Scalar(0.875));
  fixture.model.RestoreFinalLinearSamples(image);
  const cv::Mat expected =
      (cv::Mat_<double>(1, 7) << -0.25, 0.25, 0.875, 0.875, 0.875, 0.875, 0.875);
  EXPECT_EQ(cv::norm(image, expected, cv::NORM_INF), 0.0);
  EXPECT_EQ(fixture.records.str(),
            "Info [shadow_restoration]: final_source_grid channel=1 restored_shadow_samples=2 "
            "additional_constant_samples=0\n");
}

TEST(RestoreFinalLinearSamples, ConstantChannelsComeBackWholeAndAreCountedApart) {
  Fixture fixture;
  const cv::Mat flat(2, 3, CV_64FC1, cv::Scalar(0.5));
  fixture.model.Prepare(true, flat, flat);
  fixture.records.str("");
  cv::Mat image(2, 3, CV_64FC1, cv::Scalar(0.1));
  fixture.model.RestoreFinalLinearSamples(image);
  EXPECT_EQ(cv::norm(image, flat, cv::NORM_INF), 0.0);
  EXPECT_EQ(fixture.records.str(),
            "Info [shadow_restoration]: final_source_grid channel=1 restored_shadow_samples=0 "
            "additional_constant_samples=6\n");
}

TEST(RestoreFinalLinearSamples, WithoutShadowRestorationOnlyConstantChannelsReturnSilently) {
  Fixture fixture;
  const cv::Mat varying = Ramp();
  fixture.model.Prepare(true, varying, varying, 65535.0, false);
  fixture.records.str("");
  cv::Mat image(1, 5, CV_64FC1, cv::Scalar(0.9));
  fixture.model.RestoreFinalLinearSamples(image);
  EXPECT_EQ(cv::norm(image, cv::Mat(1, 5, CV_64FC1, cv::Scalar(0.9)), cv::NORM_INF), 0.0);
  EXPECT_EQ(fixture.records.str(), "");
}

TEST(RestoreFinalLinearSamples, AnotherTypeOrSizeIsRefused) {
  Fixture fixture;
  fixture.model.Prepare(true, Ramp(), Ramp());
  const std::string expected =
      "project_lumen::cli::DLModelBase::RestoreFinalLinearSamples: image.type() == "
      "sourceOutput.type() && image.size() == sourceOutput.size()";
  cv::Mat wrongType(1, 5, CV_32FC1, cv::Scalar(0));
  EXPECT_EQ(MessageOfAssertion([&] { fixture.model.RestoreFinalLinearSamples(wrongType); }),
            expected);
  cv::Mat wrongSize(1, 6, CV_64FC1, cv::Scalar(0));
  EXPECT_EQ(MessageOfAssertion([&] { fixture.model.RestoreFinalLinearSamples(wrongSize); }),
            expected);
}

}  // namespace
}  // namespace project_lumen::cli
