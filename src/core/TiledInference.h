// Inference on an image of any size, tile by tile.
#pragma once

#include <cstdint>
#include <functional>

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// Cuts the image (CV_32FC3, rows x columns, at least one window each way) into window x window
// tiles `stride` pixels apart, runs `inferTile` on each and blends the outputs (TileBlending.h).
// Window and stride are even in this system. The result has the image's size and type; it is added
// to `sum` where that is a matrix of this size and type, all zero, so that a caller can say where
// the result lies.
//
// Tiles go column by column, each from top to bottom, strictly one after another. A tile is handed
// out as a continuous copy of its own; its output must be CV_32FC3, window x window and finite. A
// tile of one finite colour is its own output and is not handed out.
//
// `progress`, which may be empty, gets (0, tile count) before the first tile and (tiles done, tile
// count) after each; returning false throws Cancelled.
//
// Throws std::invalid_argument "Tiled inference requires float32 RGB pixels.", "Invalid inference
// window or stride.", and what ComputeTileGeometry throws; std::runtime_error "Inference returned
// an invalid tile shape or type." and "Inference returned non-finite samples.";
// std::bad_function_call when a tile needs an empty `inferTile`. Exceptions of the callbacks pass
// through.
cv::Mat RunTiledInference(const cv::Mat& image, std::int32_t window, std::int32_t stride,
                          const std::function<bool(int, int)>& progress,
                          const std::function<cv::Mat(const cv::Mat&)>& inferTile,
                          cv::Mat sum = cv::Mat());

}  // namespace project_lumen::core
