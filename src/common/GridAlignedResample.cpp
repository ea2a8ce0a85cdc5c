#include "common/GridAlignedResample.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen {
namespace {

// The cubic kernel with a = -0.75 at the distances 0.5 and 1.5.
constexpr double kNearWeight = 0.59375;
constexpr double kFarWeight = 0.09375;

// The value halfway between `left` and `right`.
template <typename T>
T Midpoint(T farLeft, T left, T right, T farRight) {
  const double value = kNearWeight * (static_cast<double>(left) + static_cast<double>(right)) -
                       kFarWeight * (static_cast<double>(farLeft) + static_cast<double>(farRight));
  const bool flat = farLeft == left && left == right && right == farRight;
  return flat ? left : static_cast<T>(value);
}

// Spreads one source row over the even columns and fills the odd ones.
template <typename T>
void UpsampleRow(const T* source, int columns, std::size_t channels, T* output) {
  for (int c = 0; c < columns; ++c) {
    const T* farLeft = source + static_cast<std::size_t>(std::max(c - 1, 0)) * channels;
    const T* left = source + static_cast<std::size_t>(c) * channels;
    const T* right = source + static_cast<std::size_t>(std::min(c + 1, columns - 1)) * channels;
    const T* farRight = source + static_cast<std::size_t>(std::min(c + 2, columns - 1)) * channels;
    T* even = output + 2 * static_cast<std::size_t>(c) * channels;
    T* odd = even + channels;
    for (std::size_t k = 0; k < channels; ++k) {
      even[k] = left[k];
      odd[k] = Midpoint(farLeft[k], left[k], right[k], farRight[k]);
    }
  }
}

template <typename T>
void FillRowBetween(const T* farAbove, const T* above, const T* below, const T* farBelow,
                    std::size_t count, T* output) {
  for (std::size_t i = 0; i < count; ++i) {
    output[i] = Midpoint(farAbove[i], above[i], below[i], farBelow[i]);
  }
}

template <typename T>
cv::Mat Upsample(const cv::Mat& source) {
  cv::Mat output(2 * source.rows, 2 * source.cols, source.type());
  const auto channels = static_cast<std::size_t>(source.channels());
  for (int r = 0; r < source.rows; ++r) {
    UpsampleRow(source.ptr<T>(r), source.cols, channels, output.ptr<T>(2 * r));
  }
  const std::size_t count = static_cast<std::size_t>(output.cols) * channels;
  const int last = source.rows - 1;
  for (int r = 0; r < source.rows; ++r) {
    FillRowBetween(output.ptr<T>(2 * std::max(r - 1, 0)), output.ptr<T>(2 * r),
                   output.ptr<T>(2 * std::min(r + 1, last)),
                   output.ptr<T>(2 * std::min(r + 2, last)), count, output.ptr<T>(2 * r + 1));
  }
  return output;
}

template <typename T>
cv::Mat Downsample(const cv::Mat& source, cv::Size target) {
  cv::Mat output(target, source.type());
  const auto channels = static_cast<std::size_t>(source.channels());
  for (int r = 0; r < target.height; ++r) {
    const T* input = source.ptr<T>(2 * r);
    T* result = output.ptr<T>(r);
    for (int c = 0; c < target.width; ++c) {
      result = std::copy_n(input, channels, result);
      input += 2 * channels;
    }
  }
  return output;
}

}  // namespace

cv::Mat UpsampleGridCubic2x(const cv::Mat& source) {
  constexpr const char* kFunction = "project_lumen::UpsampleGridCubic2x";
  NEBULEX_ASSERT(kFunction, !source.empty() && source.dims == 2 &&
                                (source.depth() == CV_32F || source.depth() == CV_64F));
  NEBULEX_ASSERT(kFunction,
                 source.rows <= std::numeric_limits<int>::max() / 2 &&
                     source.cols <= std::numeric_limits<int>::max() / (2 * source.channels()));
  return source.depth() == CV_64F ? Upsample<double>(source) : Upsample<float>(source);
}

cv::Mat DownsampleGrid2x(const cv::Mat& source, cv::Size target) {
  constexpr const char* kFunction = "project_lumen::DownsampleGrid2x";
  NEBULEX_ASSERT(kFunction, !source.empty() && source.dims == 2 &&
                                (source.depth() == CV_32F || source.depth() == CV_64F));
  NEBULEX_ASSERT(kFunction, source.cols <= std::numeric_limits<int>::max() / source.channels());
  NEBULEX_ASSERT(kFunction, source.cols % 2 == 0 && source.rows % 2 == 0 &&
                                target == cv::Size(source.cols / 2, source.rows / 2));
  return source.depth() == CV_64F ? Downsample<double>(source, target)
                                  : Downsample<float>(source, target);
}

}  // namespace project_lumen
