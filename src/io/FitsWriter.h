// Writes results as FITS images.
#pragma once

#include <string>

#include <opencv2/core/mat.hpp>

#include "common/Diagnostics.h"
#include "io/LinearOutputInfo.h"
#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::io {

// Finds out early whether an output can be written to this path: throws what WriteFitsOutput throws
// for its folder and for what lies there now. Leaves nothing behind.
void CheckFitsTarget(const std::string& path);

// Writes a result as a new FITS file with one image, gzip-compressed where the path ends in ".gz".
// The file is written beside its target and renamed over it once complete.
//
// `image`: float32 or float64, one channel or three interleaved (R, G, B), normalised so that 1.0
// is K. For a grayscale source one plane is written, the first channel. `source` is null unless the
// input was FITS; then storage type, scaling, cube layout and header cards of the source are kept,
// and samples become physical values:
//   main: sample * K; in a linear run samples at or below the shadows point, and constant channels,
//     take the source's own value;
//   difference: sample * K;
//   unscreen: the sample itself for float storage, sample * K for integer storage.
// Without a FITS source the samples are stored as they are, in float32. `linear` is null unless the
// run is linear.
//
// Throws std::invalid_argument with the user's message; the target is then as it was.
void WriteFitsOutput(const std::string& path, const cv::Mat& image, bool isGrayscale,
                     const SourceImageInfo* source, OutputRole role, const LinearOutputInfo* linear,
                     const DiagnosticsSink& sink);

// The main result as it would read back from the written file: float64, normalised, the image's
// size and channels. Throws as WriteFitsOutput does for samples that cannot be stored.
cv::Mat PreviewFitsOutput(const cv::Mat& image, const SourceImageInfo* source,
                          const LinearOutputInfo* linear);

}  // namespace project_lumen::io
