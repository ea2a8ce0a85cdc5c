// How results become samples of the caller's type.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen::lib {

// Normalised rows (CV_32F or CV_64F) as samples of `depth`: multiplied by `white` and rounded.
// Throws std::runtime_error for a sample that does not fit into float32.
void StoreSamples(const cv::Mat& normalised, int depth, double white, cv::Mat& stored);

// The normalised samples, CV_64F, that somebody who reads `stored` will find.
cv::Mat ReadBackSamples(const cv::Mat& stored, double white);

}  // namespace project_lumen::lib
