// What is made of an image and its starless counterpart: protected highlights, the star mask, and
// the "unscreen" star layer.
//
// Images are float32 or float64, rows x columns x 1 or 3 interleaved channels, nominally in [0, 1];
// both have one type and size, which the result shares. All arithmetic is in double precision;
// float32 results are rounded once. clamp(x) limits to [0, 1] and passes NaN on. Bad samples never
// fail. Images that do not fit raise cv::Exception (code -215) in the function's name.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// Pulls a starless pixel back to the original where it is itself near white and has hardly changed:
// (1 - w) starless + w original on clamped samples. The weight w is the product of two logistic
// curves of steepness 1000: one of the brightest starless channel around 0.985, one of the mean
// difference of the channels around 0.001. Where either sample is not finite the result is
// clamp(original). Images have 3 channels; the result takes the place of the starless image.
void ProtectStarlessHighlights(const cv::Mat& original, cv::Mat& starless);

// clamp(original - starless) a sample; 0 where either is not finite.
cv::Mat ComputeStarMask(const cv::Mat& original, const cv::Mat& starless);

// The layer that, screen-blended over the starless image, rebuilds the original: on clamped samples
// clamp((original - starless) / (1 - starless)), from original = 1 - (1 - starless) (1 - layer). 0
// where either is not finite or starless >= original.
//
// Where the original is at least 0.995 and the difference at most 0.0002 the quotient would
// explode: the sample is suppressed to 0. If there are such samples, `log`, which may be empty,
// gets SuppressionWarning of their count.
cv::Mat ComputeUnscreenStarLayer(const cv::Mat& original, const cv::Mat& starless,
                                 const std::function<void(const std::string&)>& log);

// The number of samples that ComputeUnscreenStarLayer suppresses.
std::uint64_t CountSuppressedSamples(const cv::Mat& original, const cv::Mat& starless);

// False where none can be suppressed, whatever the starless image holds.
bool MayHaveSuppressedSamples(const cv::Mat& original);

// The line that tells of suppressed samples.
std::string SuppressionWarning(std::uint64_t suppressed);

}  // namespace project_lumen::core
