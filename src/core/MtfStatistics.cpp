#include "core/MtfStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/ChannelSamples.h"
#include "core/MiddleValues.h"
#include "core/MtfTransfer.h"
#include "core/SettingRules.h"

namespace project_lumen::core {
namespace {

void CheckOptions(double shadowsClipping, double targetBackground) {
  if (!IsTargetBackground(targetBackground)) {
    throw std::invalid_argument("Target background must be finite and strictly between 0 and 1.");
  }
  if (!IsShadowsMultiplier(shadowsClipping)) {
    throw std::invalid_argument(
        "Shadows clipping must be a finite negative normalized-MAD multiplier.");
  }
}

template <typename T>
void ReplaceByDeviations(std::vector<T>& values, double median) {
  for (T& value : values) {
    value = static_cast<T>(std::abs(static_cast<double>(value) - median));
  }
}

double ShadowsPoint(double median, double normalizedMad, double shadowsClipping) {
  return normalizedMad > 0.0 ? std::clamp(median + shadowsClipping * normalizedMad, 0.0, 1.0) : 0.0;
}

}  // namespace

template <typename T>
double ChannelMedian(std::vector<T>& values) {
  if (values.empty()) {
    throw std::invalid_argument("Cannot calculate MTF statistics for an empty image channel.");
  }
  const MiddleValues<T> found = SelectMiddle(values);
  const auto middle = static_cast<double>(found.middle);
  // Halved before they are added, so that the sum of two large values cannot overflow.
  return values.size() % 2 != 0 ? middle : static_cast<double>(found.below) / 2.0 + middle / 2.0;
}

void ChooseTransfer(MtfChannelStats& stats, double shadowsClipping, double targetBackground) {
  stats.shadows = ShadowsPoint(stats.median, stats.normalizedMad, shadowsClipping);
  stats.midtones = MtfForward(targetBackground, stats.median - stats.shadows);
}

template <typename T>
MtfChannelStats MeasureChannel(std::vector<T>& samples, double shadowsClipping,
                               double targetBackground) {
  // What makes the median absolute deviation of normally distributed samples their standard
  // deviation.
  constexpr double kMadNormalization = 1.4826;
  MtfChannelStats stats;
  stats.median = ChannelMedian(samples);
  ReplaceByDeviations(samples, stats.median);
  stats.normalizedMad = ChannelMedian(samples) * kMadNormalization;
  ChooseTransfer(stats, shadowsClipping, targetBackground);
  return stats;
}

template double ChannelMedian(std::vector<float>&);
template double ChannelMedian(std::vector<double>&);
template MtfChannelStats MeasureChannel(std::vector<float>&, double, double);
template MtfChannelStats MeasureChannel(std::vector<double>&, double, double);

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
  std::vector<float> samples;
  for (std::size_t channel = 0; channel < result.size(); ++channel) {
    CollectChannel(image, channel, samples, std::identity{});
    result[channel] = MeasureChannel(samples, shadowsClipping, targetBackground);
  }
  return result;
}

}  // namespace project_lumen::core
