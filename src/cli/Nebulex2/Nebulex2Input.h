// The input image as the processing takes it.
#pragma once

#include <opencv2/core/mat.hpp>
#include <string>

#include "common/Diagnostics.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::cli {

struct LoadedInput {
  // Stored sample / K, float32, or float64 for a linear run: one channel for a grayscale source,
  // else three in RGB order.
  cv::Mat sourceSamples;
  io::SourceImageInfo info;
};

// Reads, checks and normalises the image at `path`, and describes it in information records. The
// divisor K depends on the storage type alone: 255, 65535, or that of the FITS storage type. Throws
// std::invalid_argument with the whole message for everything that cannot be read.
LoadedInput LoadInputImage(const std::string& path, bool upsample, bool linear,
                           const DiagnosticsSink& sink);

}  // namespace project_lumen::cli
