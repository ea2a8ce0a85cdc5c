// Reads FITS images.
#pragma once

#include <optional>
#include <string>

#include <opencv2/core/mat.hpp>

#include "common/RangeStatistics.h"
#include "io/InputReport.h"
#include "io/fits/FitsImageInfo.h"

namespace project_lumen::io {

// Reads the first image of two or three axes from a FITS file, plain or gzip-compressed, and
// divides it by the fixed divisor K of its storage type (see FitsStorage.h). FITS row 1 becomes
// row 0. Returns one channel, or three in R, G, B order; float32, float64 for linear reading.
// `info` and `report` are filled as things become known, so they tell something after an exception
// too.
//
// Without `linear`, integer samples are rounded to float32 and multiplied by 1/K; one that float32
// cannot hold becomes 0, and report.tooLarge counts those above 0. Integers outside [0,1] are kept
// here, but highlight protection and storage clip them later. Float samples must lie in [0,1]. With
// `linear`, samples are divided by K in float64 and held at 1 at most, which info.upperClipped
// counts; negatives stay.
//
// Throws std::invalid_argument with the user's message: when a step of CFITSIO fails, no supported
// image exists, the header claims more pixels than the file can hold, a sample is not finite or
// undefined (BLANK), float samples leave [0,1], or a cube is no RGB image.
cv::Mat ReadFitsImage(const std::string& path, bool linear, FitsImageInfo& info,
                      InputReport& report);

// The test of float samples without `linear`. Throws std::invalid_argument when no sample is
// finite, or when a finite one lies outside [0,1]; header extrema only explain the message.
void CheckNormalizedFloatSamples(const RangeStatistics& samples, std::optional<double> dataMin,
                                 std::optional<double> dataMax, const std::string& path);

}  // namespace project_lumen::io
