// The mirrored border around an image.
#pragma once

#include <opencv2/core/mat.hpp>

#include "core/TileGeometry.h"

namespace project_lumen::core {

// Copies the image (CV_32FC3) into a matrix of the geometry's padded size and mirrors it outward
// without repeating the edge sample (… 2 1 | 0 1 2 …), corners in both directions. Throws
// cv::Exception (code -215) when the geometry is not the image's.
cv::Mat PadReflect101(const cv::Mat& image, const TileGeometry& geometry);

}  // namespace project_lumen::core
