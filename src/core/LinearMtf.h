// The midtones transfer of a linear image before inference and its way back, in place.
//
// Images are float32 with 1 or 3 interleaved channels; `stats` has one record a channel. Arithmetic
// is in double precision, rounded once on storing. Every function throws std::invalid_argument:
// "Cannot apply linear MTF to an empty image.", "Linear MTF requires a float32 grayscale or RGB
// image." or "Linear MTF channel parameters do not match the image.".
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/MtfStatistics.h"

namespace project_lumen::core {

// Replaces x by MtfForward(midtones, x - shadows). The difference is not rescaled by 1 / (1 -
// shadows), because the balance is computed from median - shadows directly.
void ApplyLinearMtf(cv::Mat& image, const std::vector<MtfChannelStats>& stats);

// Replaces y by MtfInverse(midtones, y) + shadows, not clamped: results lie in [shadows, 1 +
// shadows].
void InvertLinearMtf(cv::Mat& image, const std::vector<MtfChannelStats>& stats);

// 255 where a sample is at or below its channel's shadows, so that the forward transfer clips it to
// 0; elsewhere 0. The mask is CV_8U with the image's size and channel count.
cv::Mat ComputeShadowMask(const cv::Mat& image, const std::vector<MtfChannelStats>& stats);

// Copies the samples of `source` into `output` wherever the mask is set. Throws
// std::invalid_argument "Linear MTF source does not match the output image." or "Linear MTF
// clipped-sample mask does not match the output image.".
void RestoreMaskedSamples(const cv::Mat& source, const cv::Mat& mask, cv::Mat& output);

}  // namespace project_lumen::core
