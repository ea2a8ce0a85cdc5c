#include "common/RangeStatistics.h"

#include <algorithm>

#include <opencv2/core.hpp>

#include "common/NumberText.h"

namespace project_lumen {
namespace {

std::string DescribeInterval(double minimum, double maximum) {
  return "[" + FormatReal(minimum) + "," + FormatReal(maximum) + "]";
}

std::string DescribeShare(std::uint64_t count, double percentPerSample) {
  return std::to_string(count) + " (" + FormatReal(static_cast<double>(count) * percentPerSample) +
         "%)";
}

}  // namespace

void RangeStatistics::Merge(const RangeStatistics& other) {
  samples += other.samples;
  finite += other.finite;
  belowZero += other.belowZero;
  aboveOne += other.aboveOne;
  minimum = std::min(minimum, other.minimum);
  maximum = std::max(maximum, other.maximum);
}

std::string DescribeRange(const RangeStatistics& statistics, double divisor) {
  const double percentPerSample =
      statistics.samples == 0 ? 0.0 : 100.0 / static_cast<double>(statistics.samples);
  std::string text = "scalar_samples=" + std::to_string(statistics.samples) +
                     " finite=" + std::to_string(statistics.finite) +
                     " nonfinite=" + std::to_string(statistics.samples - statistics.finite);
  if (statistics.finite != 0) {
    text += " physical_range=" + DescribeInterval(statistics.minimum, statistics.maximum) +
            " type_normalized_range=" +
            DescribeInterval(statistics.minimum / divisor, statistics.maximum / divisor);
  } else {
    text += " physical_range=unavailable type_normalized_range=unavailable";
  }
  return text + " below_zero=" + DescribeShare(statistics.belowZero, percentPerSample) +
         " above_one=" + DescribeShare(statistics.aboveOne, percentPerSample);
}

ImageRangeStatistics MeasureRange(const cv::Mat& image, double divisor) {
  ImageRangeStatistics result;
  const auto channelCount = static_cast<std::size_t>(image.channels());
  result.channels.resize(channelCount);
  cv::Mat row;
  for (int r = 0; r < image.rows; ++r) {
    image.row(r).convertTo(row, CV_64F);
    const auto* samples = row.ptr<double>();
    const std::size_t count = static_cast<std::size_t>(image.cols) * channelCount;
    for (std::size_t i = 0; i < count; i += channelCount) {
      for (std::size_t c = 0; c < channelCount; ++c) {
        result.channels[c].Add(samples[i + c], divisor);
      }
    }
  }
  for (const RangeStatistics& channel : result.channels) {
    result.image.Merge(channel);
  }
  return result;
}

}  // namespace project_lumen
