// The mirrored border around an image.
#pragma once

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "core/TileGeometry.h"

namespace project_lumen::core {

// Copies the image (CV_32FC3) into a matrix of the geometry's padded size and mirrors it outward
// without repeating the edge sample (… 2 1 | 0 1 2 …), corners in both directions. Throws
// cv::Exception (code -215) when the geometry is not the image's.
cv::Mat PadReflect101(const cv::Mat& image, const TileGeometry& geometry);

// Copies what that matrix holds in `area` into `part`, without the rest of it being made. `part`
// keeps its memory if it is a matrix of the area's size and the image's type already. The area lies
// within the padded size. Throws like PadReflect101.
void CopyPaddedArea(const cv::Mat& image, const TileGeometry& geometry, const cv::Rect& area,
                    cv::Mat& part);

}  // namespace project_lumen::core
