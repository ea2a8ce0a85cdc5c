// The way of an image through the core: from its normalised samples to the same image without its
// stars. The layers of the stars follow from what is stored of it, see core/LayerBands.h.
//
// Nothing is kept between calls, and every callback runs on the caller's thread.
#pragma once

#include <cstdint>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

#include "core/Image.h"
#include "core/LinearPreparation.h"
#include "core/RunControl.h"

namespace project_lumen::core {

struct ProcessingSettings {
  std::int32_t stride = 256;       // pixels between tiles: even, 2..512
  bool linear = false;             // stretch linear data before inference and return it after
  double shadowsClipping = -2.8;   // finite, negative: multiple of the normalised MAD
  double targetBackground = 0.25;  // level of the stretched median, within (0, 1)
  bool protectHighlights = true;   // put back near-white highlights that hardly changed
  bool upsample = false;           // infer on a doubled grid and come back to the source's
};

// Finds out before any work whether an image of `size` pixels can be processed. Throws
// std::invalid_argument "Image dimensions exceed the 2x upsampling limit." and what
// ComputeTileGeometry throws for the working grid.
void CheckImageSize(cv::Size size, const ProcessingSettings& settings);

// Takes the stars out of an image. `source` has float32 samples, float64 ones for linear data, in
// one channel (grey) or three (RGB), normalised so that 1.0 is white; it stays the caller's and as
// it is. The result is a matrix of its own with the source's size and type.
//
// A grey image is processed as RGB. Highlights are protected on the working grid, against the
// source before its stretch. Linear samples that the stretch tells nothing of
// (LinearChannelStats::Restores) come back from the source, bit for bit.
//
// `inferTile` is let go of, with all it owns, as soon as the last tile is inferred. A stop is asked
// for at the start, when the working image is prepared, before each tile and progress report, and
// at the end.
//
// Throws std::invalid_argument: what CheckInference throws; "Linear preparation requires a nonempty
// float64 input." or "Star removal requires float32 grayscale or RGB samples."; what CheckImageSize
// and FixedLinearMtf throw; "Image contains non-finite samples.". std::runtime_error "Inference
// returned an invalid image buffer." and "Inference returned non-finite samples.". Cancelled.
// std::bad_alloc when memory runs out. cv::Exception for an image whose rows cannot be doubled.
// Exceptions of the callbacks pass through, but for OpenCV's own lack of memory, which is
// std::bad_alloc too.
cv::Mat ProcessImage(const cv::Mat& source, const ProcessingSettings& settings,
                     TileInferenceFn inferTile, const RunControl& control,
                     const LinearReports& reports);

}  // namespace project_lumen::core
