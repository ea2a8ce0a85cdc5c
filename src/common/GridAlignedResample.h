// Exact 2x resampling on aligned grids: sample (r, c) of the small grid lies at (2r, 2c) of the
// large one, so going up and coming back returns every sample bit for bit.
//
// Images are two-dimensional matrices of float32 or float64 samples, rows x columns x any number of
// interleaved channels. No sample value fails: NaN and infinities pass through the arithmetic.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen {

// Doubles rows and columns. Even positions keep the source samples; odd positions lie halfway
// between two samples and are interpolated by cubic convolution with a = -0.75 (R. Keys, "Cubic
// convolution interpolation for digital image processing", 1981), along rows first and then along
// columns, in double precision. Samples beyond an edge repeat the edge sample. Four equal taps give
// that very value, so flat regions stay exact.
//
// Throws cv::Exception (code -215) for an empty matrix, another depth, more than two dimensions, or
// a size that cannot be doubled.
cv::Mat UpsampleGridCubic2x(const cv::Mat& source);

// Takes the samples at even positions, without averaging. `target` is exactly half the size of the
// source. Throws cv::Exception (code -215) for an empty matrix, another depth, more than two
// dimensions, an odd size, or another target.
cv::Mat DownsampleGrid2x(const cv::Mat& source, cv::Size target);

}  // namespace project_lumen
