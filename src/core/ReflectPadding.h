// The mirrored border around an image.
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "core/TileGeometry.h"

namespace project_lumen::core {

// Copies an area of the padded image into `part`: the image (CV_32FC3) mirrored outward to the
// geometry's padded size without repeating the edge sample (… 2 1 | 0 1 2 …), corners in both
// directions. The padded image is never made whole. `part` keeps its memory if it is a matrix of
// the area's size and the image's type already. The area lies within the padded size. Throws
// cv::Exception (code -215) when the geometry is not the image's.
void PadReflect101(const cv::Mat& image, const TileGeometry& geometry, const cv::Rect& area,
                   cv::Mat& part);

}  // namespace project_lumen::core
