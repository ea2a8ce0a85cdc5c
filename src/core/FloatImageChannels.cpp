#include "core/FloatImageChannels.h"

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::core {
namespace {

template <typename Sample>
void WeighRows(const cv::Mat& rgb, cv::Mat& gray) {
  constexpr double kRed = 0.299;
  constexpr double kGreen = 0.587;
  constexpr double kBlue = 0.114;
  for (int r = 0; r < rgb.rows; ++r) {
    const auto* source = rgb.ptr<Sample>(r);
    auto* target = gray.ptr<Sample>(r);
    for (int c = 0; c < rgb.cols; ++c, source += 3) {
      target[c] = static_cast<Sample>(kRed * source[0] + kGreen * source[1] + kBlue * source[2]);
    }
  }
}

}  // namespace

cv::Mat RgbToGray(const cv::Mat& rgb) {
  NEBULEX_ASSERT("project_lumen::core::RgbToGray",
                 rgb.channels() == 3 && (rgb.depth() == CV_32F || rgb.depth() == CV_64F));
  cv::Mat gray(rgb.size(), CV_MAKETYPE(rgb.depth(), 1));
  if (rgb.depth() == CV_32F) {
    WeighRows<float>(rgb, gray);
  } else {
    WeighRows<double>(rgb, gray);
  }
  return gray;
}

cv::Mat GrayToRgb(const cv::Mat& gray) {
  NEBULEX_ASSERT("project_lumen::core::GrayToRgb", gray.channels() == 1);
  cv::Mat rgb;
  const cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, rgb);
  return rgb;
}

}  // namespace project_lumen::core
