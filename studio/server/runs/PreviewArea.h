// The part of an image that a preview is made of.
#pragma once

#include <opencv2/core/types.hpp>

namespace project_lumen::studio {

constexpr int kSmallestPreview = 512;
constexpr int kLargestPreview = 2048;

// What is visible, made at least kSmallestPreview and at most kLargestPreview pixels wide and high
// about its centre, as far as the image reaches, and moved into the image. `visible` may lie
// anywhere.
cv::Rect PreviewArea(const cv::Rect2d& visible, cv::Size image);

}  // namespace project_lumen::studio
