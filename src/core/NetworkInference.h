// The network's part of a run: what every path through the core shares from the working image to
// the network's output.
#pragma once

#include <cstdint>

#include <opencv2/core/mat.hpp>

#include "core/Image.h"
#include "core/RunControl.h"

namespace project_lumen::core {

// Throws std::invalid_argument "A tile inference callback is required." and "Stride must be
// positive, even, and at most 512.", in this order.
void CheckInference(std::int32_t stride, const TileInferenceFn& inferTile);

// Throws std::invalid_argument "Image dimensions exceed the 2x upsampling limit.".
void CheckUpsampling(std::int32_t width, std::int32_t height);

// The image that the network looks at, with three channels: a grey one has its channel replicated,
// and with `upsample` the grid is doubled (UpsampleGridCubic2x). Shares the source's samples where
// there is nothing to do. The source is float32 or float64 with 1 or 3 channels.
cv::Mat MakeWorkingImage(const cv::Mat& source, bool upsample);

// The network's output for a working image, CV_32FC3, as RunTiledInference makes it in `sum`, with
// windows of 512 pixels. A stop is asked for before every tile and every progress report.
//
// Throws what RunTiledInference throws, std::runtime_error "Inference returned an invalid image
// buffer." for an answer that is no tile, and Cancelled.
cv::Mat InferImage(const cv::Mat& image, std::int32_t stride, const TileInferenceFn& inferTile,
                   const RunControl& control, cv::Mat sum = cv::Mat());

}  // namespace project_lumen::core
