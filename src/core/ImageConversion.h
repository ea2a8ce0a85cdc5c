// The edge between the core's plain images and the matrices that it computes with.
#pragma once

#include <cstdint>

#include <opencv2/core/mat.hpp>

#include "core/Image.h"

namespace project_lumen::core {

// Checks the input and shows it as a matrix, CV_32FC3. An RGB image is not copied, so the matrix
// must not outlive the samples nor be written through; a grey image has its channel replicated.
// Throws std::invalid_argument, in this order: "Nebulex requires RGB or grayscale pixels at least
// 512x512.", "Image sample count does not match its dimensions.", "Image contains non-finite
// samples.". No sample is read before the size is known to be right.
cv::Mat ToWorkingMat(const ImageView& view);

// Copies a float32 matrix into an image. A matrix of another size than the target must be exactly
// twice as large each way and comes back to the small grid (DownsampleGrid2x); three channels
// become one, if one is asked for, with the weights 0.299, 0.587 and 0.114. That is OpenCV's
// float32 arithmetic, whose last bits may differ from those of RgbToGray.
Image ToImage(const cv::Mat& matrix, std::int32_t channels, cv::Size target);

// A matrix header over the samples, which are not copied and must not be written through it.
cv::Mat WrapSamples(const float* samples, std::int32_t width, std::int32_t height,
                    std::int32_t channels);

// A matrix header over an image's samples, which are not copied.
cv::Mat WrapSamples(Image& image);

}  // namespace project_lumen::core
