#include "cli/DLModelBase.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <opencv2/core.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace project_lumen::cli {
namespace {

// Opens the processing to the tests.
class Model : public DLModelBase {
 public:
  explicit Model(std::ostringstream& stream) : DLModelBase({false, false, stream}) {}
  using DLModelBase::LinearChannels;
  using DLModelBase::ProcessImage;
};

struct Fixture {
  std::ostringstream records;
  Model model{records};

  // Each record by its code.
  std::vector<std::string> Codes() const {
    std::vector<std::string> codes;
    std::istringstream lines(records.str());
    for (std::string line; std::getline(lines, line);) {
      codes.push_back(line.substr(0, line.find(']') + 1));
    }
    return codes;
  }
};

core::Image Identity(core::ImageView tile) {
  return {.samples = {tile.data, tile.data + tile.sampleCount},
          .width = tile.width,
          .height = tile.height,
          .channels = tile.channels};
}

// A sky around 0.1, float64.
cv::Mat MakeSky(int channels) {
  cv::Mat sky(512, 512, CV_64FC(channels));
  cv::RNG random(3);
  random.fill(sky, cv::RNG::UNIFORM, 0.09, 0.11);
  return sky;
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
  const cv::Mat image(2, 2, CV_32FC1, cv::Scalar(0));
  for (const double scale : {1.0, 4.0, 0.0, -2.0, std::nan("")}) {
    EXPECT_EQ(MessageOfAssertion([&] { DLModelBase::RescaleImage(image, scale); }),
              "project_lumen::cli::DLModelBase::RescaleImage: scale == 2.0 || scale == 0.5");
  }
}

TEST(ProcessImage, SaysThatARunIsNotLinear) {
  Fixture fixture;
  cv::Mat sky;
  MakeSky(3).convertTo(sky, CV_32F);
  fixture.model.ProcessImage(sky, 65535.0, {.stride = 512}, Identity, nullptr);
  EXPECT_EQ(fixture.records.str(),
            "Info [linear_mtf]: disabled; no automatic stretch or inverse transform\n");
  EXPECT_TRUE(fixture.model.LinearChannels().empty());
}

TEST(ProcessImage, TellsALinearRunInItsOrder) {
  Fixture fixture;
  cv::Mat sky = MakeSky(3);
  sky.at<cv::Vec3d>(7, 9)[1] = 1.5;
  bool transferIsTold = false;
  fixture.model.ProcessImage(sky, 65535.0, {.stride = 512, .linear = true}, Identity,
                             [&](int, int) {
                               transferIsTold = fixture.Codes().size() == 4;
                               return true;
                             });
  EXPECT_TRUE(transferIsTold);
  EXPECT_EQ(fixture.Codes(), (std::vector<std::string>{
                                 "Warning [data_loss]", "Info [linear_mtf]", "Info [linear_mtf]",
                                 "Info [linear_mtf]", "Info [shadow_restoration]",
                                 "Info [shadow_restoration]", "Info [shadow_restoration]"}));
  EXPECT_EQ(fixture.model.LinearChannels().size(), 3U);
}

TEST(ProcessImage, AGreyLinearRunRestoresOneChannel) {
  Fixture fixture;
  fixture.model.ProcessImage(MakeSky(1), 65535.0, {.stride = 512, .linear = true}, Identity,
                             nullptr);
  EXPECT_EQ(fixture.Codes(),
            (std::vector<std::string>{"Info [linear_mtf]", "Info [linear_mtf]", "Info [linear_mtf]",
                                      "Info [shadow_restoration]"}));
}

}  // namespace
}  // namespace project_lumen::cli
