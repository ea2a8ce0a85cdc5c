// An image in bands of rows, for work whose steps in between need not exist whole.
#pragma once

#include <algorithm>

#include <opencv2/core/mat.hpp>

namespace project_lumen {

// Few enough samples for those of a band to stay in the cache from one step to the next.
constexpr int kBandSamples = 1 << 15;

// Calls `use` with ranges of consecutive rows that cover the image from top to bottom. All have the
// same height, at least one row, but the last one, which may be lower.
template <typename Use>
void ForEachRowBand(const cv::Mat& image, Use use) {
  const int height = std::max(1, kBandSamples / (image.cols * image.channels()));
  for (int first = 0; first < image.rows; first += height) {
    use(cv::Range(first, std::min(first + height, image.rows)));
  }
}

}  // namespace project_lumen
