// Samples of 8 and 16 bits and the normalised ones that they stand for: white, the greatest value
// of the type, is 1. The one place that says how they become each other.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen {

// The white of an OpenCV depth: 255 for CV_8U, 65535 for CV_16U.
double IntegerWhite(int depth);

// stored / white, in the floating depth `depth` (CV_32F or CV_64F); `normalised` is made anew
// unless it has that size and type.
void NormaliseIntegers(const cv::Mat& stored, int depth, cv::Mat& normalised);

// normalised * white in the integer depth `depth`, rounded to the nearest (halves to the even one)
// and held within the range of the type; `stored` as above.
void QuantiseToIntegers(const cv::Mat& normalised, int depth, cv::Mat& stored);

}  // namespace project_lumen
