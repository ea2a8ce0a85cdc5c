#include "core/MtfStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/MiddleValues.h"
#include "core/MtfTransfer.h"

namespace project_lumen::core {
namespace {

void CheckOptions(double shadowsClipping, double targetBackground) {
  if (!std::isfinite(targetBackground) || targetBackground <= 0.0 || targetBackground >= 1.0) {
    throw std::invalid_argument("Target background must be finite and strictly between 0 and 1.");
  }
  if (!std::isfinite(shadowsClipping) || shadowsClipping >= 0.0) {
    throw std::invalid_argument(
        "Shadows clipping must be a finite negative normalized-MAD multiplier.");
  }
}

void CollectChannel(const cv::Mat& image, std::size_t channel, std::vector<float>& values) {
  const auto channels = static_cast<std::size_t>(image.channels());
  const auto columns = static_cast<std::size_t>(image.cols);
  values.resize(image.total());
  float* value = values.data();
  for (int r = 0; r < image.rows; ++r) {
    const float* row = image.ptr<float>(r) + channel;
    for (std::size_t c = 0; c < columns; ++c) {
      value[c] = row[c * channels];
    }
    value += columns;
  }
}

void ReplaceByDeviations(std::vector<float>& values, double median) {
  for (float& value : values) {
    value = static_cast<float>(std::abs(static_cast<double>(value) - median));
  }
}

}  // namespace

double ChannelMedian(std::vector<float>& values) {
  if (values.empty()) {
    throw std::invalid_argument("Cannot calculate MTF statistics for an empty image channel.");
  }
  const MiddleValues<float> found = SelectMiddle(values);
  if (values.size() % 2 != 0) {
    return found.middle;
  }
  return (static_cast<double>(found.below) + static_cast<double>(found.middle)) / 2.0;
}

double ShadowsPoint(double median, double normalizedMad, double shadowsClipping) {
  return normalizedMad > 0.0 ? std::clamp(median + shadowsClipping * normalizedMad, 0.0, 1.0) : 0.0;
}

void CheckMtfImage(const cv::Mat& image) {
  if (image.empty()) {
    throw std::invalid_argument("Cannot apply linear MTF to an empty image.");
  }
  if (image.dims != 2 || image.depth() != CV_32F ||
      (image.channels() != 1 && image.channels() != 3)) {
    throw std::invalid_argument("Linear MTF requires a float32 grayscale or RGB image.");
  }
}

std::vector<MtfChannelStats> ComputeMtfStatistics(const cv::Mat& image, double shadowsClipping,
                                                  double targetBackground) {
  CheckMtfImage(image);
  CheckOptions(shadowsClipping, targetBackground);
  std::vector<MtfChannelStats> result(static_cast<std::size_t>(image.channels()));
  std::vector<float> values;
  for (std::size_t channel = 0; channel < result.size(); ++channel) {
    MtfChannelStats& stats = result[channel];
    CollectChannel(image, channel, values);
    stats.median = ChannelMedian(values);
    ReplaceByDeviations(values, stats.median);
    stats.normalizedMad = ChannelMedian(values) * kMadNormalization;
    stats.shadows = ShadowsPoint(stats.median, stats.normalizedMad, shadowsClipping);
    stats.midtones = MtfForward(targetBackground, stats.median - stats.shadows);
  }
  return result;
}

}  // namespace project_lumen::core
