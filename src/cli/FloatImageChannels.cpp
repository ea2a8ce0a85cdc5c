#include "cli/FloatImageChannels.h"

#include <cstdint>
#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::cli {
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

template <typename Sample>
bool RowsHaveEqualChannels(const cv::Mat& rgb) {
  for (int r = 0; r < rgb.rows; ++r) {
    const auto* sample = rgb.ptr<Sample>(r);
    for (int c = 0; c < rgb.cols; ++c, sample += 3) {
      if (sample[0] != sample[1] || sample[0] != sample[2]) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

cv::Mat RgbToGray(const cv::Mat& rgb) {
  NEBULEX_ASSERT("project_lumen::cli::RgbToGray",
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
  NEBULEX_ASSERT("project_lumen::cli::GrayToRgb", gray.channels() == 1);
  cv::Mat rgb;
  const cv::Mat planes[] = {gray, gray, gray};
  cv::merge(planes, 3, rgb);
  return rgb;
}

bool HasEqualChannels(const cv::Mat& rgb) {
  NEBULEX_ASSERT("project_lumen::cli::HasEqualChannels", rgb.channels() == 3);
  if (rgb.depth() == CV_32F) {
    return RowsHaveEqualChannels<float>(rgb);
  }
  if (rgb.depth() == CV_64F) {
    return RowsHaveEqualChannels<double>(rgb);
  }
  // Integers are equal when their bits are, signed or not.
  switch (rgb.elemSize1()) {
    case 1:
      return RowsHaveEqualChannels<std::uint8_t>(rgb);
    case 2:
      return RowsHaveEqualChannels<std::uint16_t>(rgb);
    default:
      return RowsHaveEqualChannels<std::uint32_t>(rgb);
  }
}

}  // namespace project_lumen::cli
