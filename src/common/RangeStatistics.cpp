#include "common/RangeStatistics.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

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

// Extrema of each channel of unsigned integers, the smallest and largest before any sample. Whole
// groups of pixels side by side vectorise.
template <typename T>
struct IntegerExtrema {
  static constexpr std::size_t kLanes = 48;  // a multiple of every channel count up to 4
  std::array<T, kLanes> minimum;
  std::array<T, kLanes> maximum;

  IntegerExtrema() {
    minimum.fill(std::numeric_limits<T>::max());
    maximum.fill(std::numeric_limits<T>::min());
  }
  void Add(std::size_t lane, T sample) {
    minimum[lane] = std::min(minimum[lane], sample);
    maximum[lane] = std::max(maximum[lane], sample);
  }
  void AddRow(const T* samples, std::size_t count) {
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
      for (std::size_t lane = 0; lane < kLanes; ++lane) {
        Add(lane, samples[i + lane]);
      }
    }
    for (std::size_t lane = 0; i + lane < count; ++lane) {
      Add(lane, samples[i + lane]);
    }
  }
};

// Statistics of unsigned integers none of which is above the divisor; none otherwise. All that is
// counted follows from the extrema then.
template <typename T>
std::optional<std::vector<RangeStatistics>> MeasureUnsigned(const cv::Mat& image, double divisor) {
  const auto channelCount = static_cast<std::size_t>(image.channels());
  IntegerExtrema<T> extrema;
  for (int r = 0; r < image.rows; ++r) {
    extrema.AddRow(image.ptr<T>(r), static_cast<std::size_t>(image.cols) * channelCount);
  }
  const T largest = *std::max_element(extrema.maximum.begin(), extrema.maximum.end());
  if (static_cast<double>(largest) / divisor > 1.0) {
    return std::nullopt;
  }
  std::vector<RangeStatistics> channels(channelCount);
  for (std::size_t lane = 0; lane < extrema.kLanes; ++lane) {
    RangeStatistics& channel = channels[lane % channelCount];
    channel.samples = channel.finite = image.total();
    channel.minimum = std::min<double>(channel.minimum, extrema.minimum[lane]);
    channel.maximum = std::max<double>(channel.maximum, extrema.maximum[lane]);
  }
  return channels;
}

std::vector<RangeStatistics> MeasureAny(const cv::Mat& image, double divisor) {
  const auto channelCount = static_cast<std::size_t>(image.channels());
  std::vector<RangeStatistics> channels(channelCount);
  cv::Mat row;
  for (int r = 0; r < image.rows; ++r) {
    image.row(r).convertTo(row, CV_64F);
    const auto* samples = row.ptr<double>();
    const std::size_t count = static_cast<std::size_t>(image.cols) * channelCount;
    for (std::size_t i = 0; i < count; i += channelCount) {
      for (std::size_t c = 0; c < channelCount; ++c) {
        channels[c].Add(samples[i + c], divisor);
      }
    }
  }
  return channels;
}

std::vector<RangeStatistics> MeasureChannels(const cv::Mat& image, double divisor) {
  std::optional<std::vector<RangeStatistics>> channels;
  const bool fitsLanes = !image.empty() && image.channels() <= 4;
  if (fitsLanes && image.depth() == CV_8U) {
    channels = MeasureUnsigned<std::uint8_t>(image, divisor);
  } else if (fitsLanes && image.depth() == CV_16U) {
    channels = MeasureUnsigned<std::uint16_t>(image, divisor);
  }
  return channels ? *std::move(channels) : MeasureAny(image, divisor);
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
  result.channels = MeasureChannels(image, divisor);
  for (const RangeStatistics& channel : result.channels) {
    result.image.Merge(channel);
  }
  return result;
}

}  // namespace project_lumen
