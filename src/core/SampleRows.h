// Row arithmetic of interleaved images.
#pragma once

#include <cstddef>

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// Number of contiguous samples in a row: columns times channels.
inline std::size_t SamplesPerRow(const cv::Mat& image) {
  return static_cast<std::size_t>(image.cols) * static_cast<std::size_t>(image.channels());
}

}  // namespace project_lumen::core
