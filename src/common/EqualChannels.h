// The test that an image of three channels is grey.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen {

// Whether the three channels of an image, of any depth, are equal in every pixel.
bool HasEqualChannels(const cv::Mat& image);

}  // namespace project_lumen
