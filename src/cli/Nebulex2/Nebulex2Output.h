// The results on their way to the files.
#pragma once

#include <opencv2/core/mat.hpp>

#include "common/Diagnostics.h"
#include "core/LayerBands.h"
#include "io/ImageWriter.h"

namespace project_lumen::cli {

// Writes one prepared image and says so in records.
void WriteOutputImage(const io::OutputFile& file, const cv::Mat& prepared,
                      const DiagnosticsSink& sink);

// Computes the star mask or the unscreen layer, whichever the file's role says, and prepares it for
// WriteOutputImage in `prepared`, whose memory is used again if it has the layer's size and type.
void PrepareLayer(const io::OutputFile& file, const core::LayerInputs& inputs, cv::Mat& prepared);

}  // namespace project_lumen::cli
