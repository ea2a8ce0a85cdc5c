// The results on their way from the working grid to the files.
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>
#include <string>

#include "common/Diagnostics.h"
#include "io/LinearOutputInfo.h"
#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::cli {

// Normalised images on the input's grid; one channel for a grayscale source, else RGB. A layer that
// is not wanted is empty.
struct FinalOutputs {
  cv::Mat starless;
  cv::Mat mask;      // CV_64F
  cv::Mat unscreen;  // CV_64F
};

struct FinalOutputRequest {
  bool upsampled = false;        // the starless image is on the doubled grid
  bool grayscaleSource = false;  // results have one channel
  bool wantMask = false;
  bool wantUnscreen = false;
};

// Brings the starless image to the input's grid and channels, lets `restoreLinear` put source
// samples back, and computes the wanted layers from the source and from the starless image as
// `readBack` says it will be read from its file, so that file and layers belong together exactly.
// `source` is on the input's grid. Samples that the unscreen layer suppresses go out as a data-loss
// warning.
FinalOutputs PrepareFinalNebulexOutputs(const cv::Mat& source, cv::Mat starless,
                                        const FinalOutputRequest& request,
                                        const std::function<void(cv::Mat&)>& restoreLinear,
                                        const DiagnosticsSink& sink,
                                        const std::function<cv::Mat(const cv::Mat&)>& readBack);

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

// The main image as it will be read back from the file at `path`, CV_64F, normalised.
cv::Mat ReadBackOutputImage(const std::string& path, const cv::Mat& image,
                            const OutputContext& context);

}  // namespace project_lumen::cli
