// One channel of an interleaved image as a list.
#pragma once

#include <cstddef>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// Lists map(sample) for every sample of a channel, in row order. The image's samples are of type T;
// the list keeps its memory.
template <typename T, typename Map>
void CollectChannel(const cv::Mat& image, std::size_t channel, std::vector<T>& values, Map map) {
  const auto channels = static_cast<std::size_t>(image.channels());
  const auto columns = static_cast<std::size_t>(image.cols);
  values.resize(image.total());
  T* value = values.data();
  for (int r = 0; r < image.rows; ++r) {
    const T* row = image.ptr<T>(r) + channel;
    for (std::size_t c = 0; c < columns; ++c) {
      value[c] = map(row[c * channels]);
    }
    value += columns;
  }
}

}  // namespace project_lumen::core
