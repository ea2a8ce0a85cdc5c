#include "common/EqualChannels.h"

#include <cstdint>
#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen {
namespace {

template <typename Sample>
bool RowsHaveEqualChannels(const cv::Mat& image) {
  for (int r = 0; r < image.rows; ++r) {
    const auto* sample = image.ptr<Sample>(r);
    for (int c = 0; c < image.cols; ++c, sample += 3) {
      if (sample[0] != sample[1] || sample[0] != sample[2]) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace

bool HasEqualChannels(const cv::Mat& image) {
  NEBULEX_ASSERT("project_lumen::HasEqualChannels", image.channels() == 3);
  if (image.depth() == CV_32F) {
    return RowsHaveEqualChannels<float>(image);
  }
  if (image.depth() == CV_64F) {
    return RowsHaveEqualChannels<double>(image);
  }
  // Integers are equal when their bits are, signed or not.
  switch (image.elemSize1()) {
    case 1:
      return RowsHaveEqualChannels<std::uint8_t>(image);
    case 2:
      return RowsHaveEqualChannels<std::uint16_t>(image);
    default:
      return RowsHaveEqualChannels<std::uint32_t>(image);
  }
}

}  // namespace project_lumen
