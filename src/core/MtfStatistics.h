// Statistics from which the midtones transfer of a linear image is chosen, a channel at a time.
#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

namespace project_lumen::core {

// One channel's statistics and the transfer chosen from them, in sample units.
struct MtfChannelStats {
  double median = 0.0;
  double normalizedMad = 0.0;  // median absolute deviation from the median, times 1.4826
  double shadows = 0.0;        // clipping point, in [0, 1]
  double midtones = 0.5;       // balance of the transfer, in [0, 1]

  // Whether the transfer clips this sample to 0.
  [[nodiscard]] bool Clips(double sample) const { return shadows >= sample; }
};

// Median of float or double values, in double precision: the element of rank n / 2, for an even
// count its mean with the largest value below that rank. The list is reordered. Throws
// std::invalid_argument "Cannot calculate MTF statistics for an empty image channel.".
template <typename T>
double ChannelMedian(std::vector<T>& values);

// Chooses the transfer from the median and the deviation that `stats` holds:
//   shadows = median + shadowsClipping * normalizedMad within [0, 1]; 0 when the deviation is 0
//   midtones = MtfForward(targetBackground, median - shadows)
void ChooseTransfer(MtfChannelStats& stats, double shadowsClipping, double targetBackground);

// Statistics of a channel's samples, float or double, and the transfer chosen from them. The list
// is used up: it is reordered, and its samples are replaced. Throws like ChannelMedian.
template <typename T>
MtfChannelStats MeasureChannel(std::vector<T>& samples, double shadowsClipping,
                               double targetBackground);

// Throws std::invalid_argument unless the image is non-empty ("Cannot apply linear MTF to an empty
// image.") and float32 with 1 or 3 channels ("Linear MTF requires a float32 grayscale or RGB
// image.").
void CheckMtfImage(const cv::Mat& image);

// Statistics of every channel of a float32 image with 1 or 3 interleaved channels.
// `shadowsClipping` is a finite negative multiple of the normalised MAD; `targetBackground`, within
// (0, 1), is the level that the transfer gives to the median.
//
// Throws std::invalid_argument as CheckMtfImage does, then "Target background must be finite and
// strictly between 0 and 1.", then "Shadows clipping must be a finite negative normalized-MAD
// multiplier.".
std::vector<MtfChannelStats> ComputeMtfStatistics(const cv::Mat& image, double shadowsClipping,
                                                  double targetBackground);

}  // namespace project_lumen::core
