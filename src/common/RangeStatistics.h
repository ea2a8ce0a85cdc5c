// Counts and extrema of stored samples, and their text in the diagnostics.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace project_lumen {

// Statistics of stored (physical) samples. "Below zero" and "above one" judge the sample after
// division by the fixed divisor K of its storage type; K is finite and positive.
struct RangeStatistics {
  std::uint64_t samples = 0;
  std::uint64_t finite = 0;
  std::uint64_t belowZero = 0;
  std::uint64_t aboveOne = 0;
  double minimum = std::numeric_limits<double>::infinity();
  double maximum = -std::numeric_limits<double>::infinity();

  // Counts one sample; only finite samples reach the extrema and the range counts.
  void Add(double value, double divisor) {
    ++samples;
    if (!std::isfinite(value)) {
      return;
    }
    ++finite;
    const double normalized = value / divisor;
    belowZero += normalized < 0.0 ? 1U : 0U;
    aboveOne += normalized > 1.0 ? 1U : 0U;
    minimum = value < minimum ? value : minimum;
    maximum = value > maximum ? value : maximum;
  }

  // Adds the statistics of other samples with the same divisor.
  void Merge(const RangeStatistics& other);
};

// "scalar_samples=… finite=… nonfinite=… physical_range=[…,…] type_normalized_range=[…,…]
// below_zero=… (…%) above_one=… (…%)", on one line, with 17 significant digits.
std::string DescribeRange(const RangeStatistics& statistics, double divisor);

// Statistics of a whole image and of each of its channels.
struct ImageRangeStatistics {
  RangeStatistics image;
  std::vector<RangeStatistics> channels;
};

// Measures an interleaved image of any depth and channel count, unscaled.
ImageRangeStatistics MeasureRange(const cv::Mat& image, double divisor);

}  // namespace project_lumen
