// The results on their way from the working grid to the files.
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>
#include <string>

#include "cli/Nebulex2/LayerBands.h"
#include "common/Diagnostics.h"
#include "io/LinearOutputInfo.h"
#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::cli {

// Brings the starless image from the working grid to the input's grid and channels (one for a
// grayscale source) and lets `restoreLinear` put source samples back. `upsampled`: it is on the
// doubled grid.
cv::Mat PrepareFinalStarless(cv::Mat starless, bool upsampled, bool grayscaleSource,
                             const std::function<void(cv::Mat&)>& restoreLinear);

// Where results come from and where their records go: what writing needs to know of the run.
struct OutputContext {
  const io::SourceImageInfo& source;
  const io::LinearOutputInfo* linear;  // null unless the run is linear
  const DiagnosticsSink& sink;
};

// The image ready for WriteOutputImage at `path`: one channel for a grayscale source; for a display
// format quantised to the depth of OutputSampleDepth (white is 255 or 65535, out-of-range samples
// saturate) and in BGR order; for FITS in floating point. With `downsample` the even samples of the
// image are taken first.
cv::Mat PrepareOutputImage(const std::string& path, const cv::Mat& image, bool downsample,
                           const io::SourceImageInfo& source);

// Writes one prepared image and says so in information records.
void WriteOutputImage(const std::string& path, const cv::Mat& prepared, io::OutputRole role,
                      const OutputContext& context);

// Rows of the main image as they will be read back from the file at `path`: CV_64F, normalised.
// `prepared` is the whole image, ready for WriteOutputImage at that path.
cv::Mat ReadBackOutputRows(const std::string& path, const cv::Mat& prepared, const cv::Range& rows,
                           const OutputContext& context);

// The star mask or the unscreen layer in `prepared`, ready for WriteOutputImage at `path`. The
// memory of `prepared` is used again if it has the layer's size and type.
void PrepareLayer(const std::string& path, const LayerInputs& inputs, io::OutputRole role,
                  const io::SourceImageInfo& source, cv::Mat& prepared);

}  // namespace project_lumen::cli
