// Grey images as colour images and back, in 32 and 64 bits.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// Luma of an RGB image, 0.299 R + 0.587 G + 0.114 B (ITU-R BT.601), as a one-channel image of the
// same depth (CV_32F or CV_64F). Computed in double precision and rounded once. Throws
// cv::Exception (code -215) for another image.
cv::Mat RgbToGray(const cv::Mat& rgb);

// A one-channel image as three identical channels. Throws cv::Exception (code -215) for an image
// with more.
cv::Mat GrayToRgb(const cv::Mat& gray);

}  // namespace project_lumen::core
