// The star layers in bands of rows, from the starless image as it is stored, rounding and all, so
// that the stored image and its layers belong together exactly. Rows flow from top to bottom;
// neither the stored starless image nor the source in float64 nor a layer ever exists whole.
#pragma once

#include <cstdint>
#include <functional>

#include <opencv2/core/mat.hpp>
#include <opencv2/core/types.hpp>

namespace project_lumen::core {

struct LayerInputs {
  // The image with its stars, CV_32F or CV_64F with 1 or 3 channels, normalised.
  const cv::Mat& source;
  // Rows of the starless image as stored: CV_64F, normalised, the source's columns and channels.
  std::function<cv::Mat(const cv::Range& rows)> storedRows;
  // Whether `storedRows` may throw, so that every row has to be tried before anything is written.
  bool canStoredRowsFail = true;
};

enum class StarLayer {
  kMask,      // ComputeStarMask
  kUnscreen,  // ComputeUnscreenStarLayer
};

// Looks at all rows that matter before anything is written, so that what `storedRows` throws comes
// now. Returns how many samples the unscreen layer will suppress, 0 unless `wantUnscreen`. Throws
// std::bad_alloc when memory runs out.
std::uint64_t CheckLayerInputs(const LayerInputs& inputs, bool wantUnscreen);

// Hands the layer to `take`, a band of consecutive rows at a time: CV_64F, the source's channels.
// The rows are valid during the call. Throws std::bad_alloc when memory runs out; what `storedRows`
// and `take` throw passes through.
void ComputeLayer(const LayerInputs& inputs, StarLayer layer,
                  const std::function<void(const cv::Mat& part, const cv::Range& rows)>& take);

}  // namespace project_lumen::core
