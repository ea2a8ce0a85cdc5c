#include "core/ReflectPadding.h"

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::core {

cv::Mat PadReflect101(const cv::Mat& image, const TileGeometry& geometry) {
  NEBULEX_ASSERT("project_lumen::core::PadReflect101", image.type() == CV_32FC3 &&
                                                           image.cols == geometry.width &&
                                                           image.rows == geometry.height);
  cv::Mat padded;
  // Isolated: pixels beyond the edge of an image that is part of another are not the image's.
  cv::copyMakeBorder(image, padded, geometry.topPad, geometry.bottomPad, geometry.leftPad,
                     geometry.rightPad, cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
  return padded;
}

}  // namespace project_lumen::core
