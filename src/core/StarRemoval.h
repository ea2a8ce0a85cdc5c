// The star-removal pipeline: from an image to the same image without its stars, with the stars on
// request as a mask and as a layer.
//
// It knows no files and no network: tiles go out through a callback, and so do progress, stop
// requests and messages. Nothing is kept between calls. Every callback runs on the caller's thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "core/Image.h"

namespace project_lumen::core {

struct StarRemovalOptions {
  std::int32_t stride = 256;       // pixels between tiles: even, 2..512
  bool linearMtf = false;          // stretch linear data before inference and return it after
  double shadowsClipping = -2.8;   // finite, negative: multiple of the normalised MAD
  double targetBackground = 0.25;  // level of the stretched median, within (0, 1)
  bool protectHighlights = true;   // put back near-white highlights that hardly changed
  bool computeStarMask = false;
  bool computeUnscreen = false;
  bool upsample2x = false;  // infer on a doubled grid and come back to the input's
};

// Each may be empty.
struct StarRemovalCallbacks {
  // Gets (tiles done, total tiles); returning false stops the run.
  std::function<bool(int, int)> progress = nullptr;
  // Polled; returning true stops the run.
  std::function<bool()> stopRequested = nullptr;
  // Gets human-readable lines.
  std::function<void(const std::string&)> log = nullptr;
};

// The layers are empty images unless requested.
struct StarRemovalResult {
  Image starless;
  Image starMask;  // clamp(input - starless)
  Image unscreen;  // input = starless + unscreen * (1 - starless)
};

// Throws Cancelled if `stopRequested` is set and returns true.
void ThrowIfStopRequested(const StarRemovalCallbacks& callbacks);

// Takes the stars out of an image of at least 512 x 512 pixels with finite samples, grey or RGB.
// Results have the input's size and channels. A grey image is processed as RGB. The layers compare
// the input as given with the final starless image, on the input's grid.
//
// `stopRequested` is polled at the start, after upsampling, before each tile and progress report,
// and before and after the results are made. With `linearMtf`, `log` gets the chosen transfer: one
// line, and one for each of the three channels.
//
// Nothing is returned on failure. What can be thrown, all of it derived from std::exception:
//
// - std::invalid_argument for a request that cannot be met, in this order: "A tile inference
// callback
//   is required.", "Stride must be positive, even, and at most 512.", "Image dimensions exceed the
//   2x upsampling limit.", "Nebulex requires RGB or grayscale pixels at least 512x512.", "Image
//   sample count does not match its dimensions.", "Image contains non-finite samples."; with
//   `linearMtf` "Target background must be finite and strictly between 0 and 1." and "Shadows
//   clipping must be a finite negative normalized-MAD multiplier."; "Image dimensions exceed
//   supported tiling limits.";
// - std::runtime_error "Inference returned an invalid image buffer." and "Inference returned
//   non-finite samples.";
// - Cancelled when a callback stops the run;
// - std::bad_alloc when memory runs out;
// - OpenCV's cv::Exception when an image cannot be doubled because its rows would have more than
//   2147483647 samples.
//
// Exceptions of the callbacks pass through, but for OpenCV's own lack of memory, which is
// std::bad_alloc too.
StarRemovalResult RemoveStars(const ImageView& input, const StarRemovalOptions& options,
                              const TileInferenceFn& inferTile,
                              const StarRemovalCallbacks& callbacks);

}  // namespace project_lumen::core
