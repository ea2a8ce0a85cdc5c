// Reads FITS images.
#pragma once

#include <optional>
#include <string>

#include <opencv2/core/mat.hpp>

#include "common/Diagnostics.h"
#include "common/RangeStatistics.h"
#include "io/FitsImageInfo.h"

namespace project_lumen::io {

struct FitsImage {
  cv::Mat image;  // one channel, or three in R, G, B order; float32, float64 for linear reading
  FitsImageInfo info;
};

// Reads the first image of two or three axes from a FITS file, plain or gzip-compressed, and
// divides it by the fixed divisor K of its storage type (see FitsStorageType.h). FITS row 1 becomes
// row 0.
//
// Without `linear`, integer samples are rounded to float32 and multiplied by 1/K; float samples
// must lie in [0,1]. With `linear`, samples are divided by K in float64 and held at 1 at most, with
// a data_loss warning; negatives stay.
//
// Throws std::invalid_argument with the user's message: when a step of CFITSIO fails, no supported
// image exists, the header claims more pixels than the file can hold, a sample is not finite or
// undefined (BLANK), float samples leave [0,1], or a cube is no RGB image.
FitsImage ReadFitsImage(const std::string& path, bool linear, const DiagnosticsSink& sink);

// The test of float samples without `linear`. Throws std::invalid_argument when no sample is
// finite, or when a finite one lies outside [0,1]; header extrema only explain the message.
void CheckNormalizedFloatSamples(const RangeStatistics& samples, std::optional<double> dataMin,
                                 std::optional<double> dataMax, const std::string& path);

}  // namespace project_lumen::io
