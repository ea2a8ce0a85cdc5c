// Channel conversions of floating-point images, in 32 and 64 bits.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen::cli {

// Luma of an RGB image, 0.299 R + 0.587 G + 0.114 B (ITU-R BT.601), as a one-channel image of the
// same depth (CV_32F or CV_64F).
cv::Mat RgbToGray(const cv::Mat& rgb);

// A one-channel image of any depth as three identical channels.
cv::Mat GrayToRgb(const cv::Mat& gray);

// Whether the three channels of an image are equal in every pixel.
bool HasEqualChannels(const cv::Mat& rgb);

}  // namespace project_lumen::cli
