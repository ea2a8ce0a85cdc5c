// The star layers in bands of rows, so that neither the starless image as read back nor the source
// in float64 ever exists whole.
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>

#include "common/Diagnostics.h"
#include "io/OutputRole.h"

namespace project_lumen::cli {

struct LayerInputs {
  // On the input's grid, CV_32F or CV_64F, normalised.
  const cv::Mat& source;
  // Rows of the starless image as they will be read from its file: CV_64F, the source's channels.
  std::function<cv::Mat(const cv::Range& rows)> readBack;
  // Whether `readBack` may throw, so that every row has to be tried before anything is written.
  bool canReadBackFail = true;
};

// Looks at all rows that matter before anything is written: what `readBack` throws comes now, and
// with `wantUnscreen` the samples that the unscreen layer suppresses go out as one data-loss
// warning.
void CheckLayerInputs(const LayerInputs& inputs, bool wantUnscreen, const DiagnosticsSink& sink);

// Hands the star mask (role kDifference) or the unscreen layer (role kUnscreen) to `take`, a band
// of consecutive rows at a time, from top to bottom: CV_64F, the source's channels. The rows are
// valid during the call.
void ComputeLayer(const LayerInputs& inputs, io::OutputRole role,
                  const std::function<void(const cv::Mat& layer, const cv::Range& rows)>& take);

}  // namespace project_lumen::cli
