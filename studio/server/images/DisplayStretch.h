// The stretch that linear images are shown with. It is for the eye only: nothing of it is written.
#pragma once

#include <opencv2/core/mat.hpp>
#include <vector>

#include "core/MtfStatistics.h"
#include "studio/images/PixelPyramid.h"

namespace project_lumen::studio {

// The program's own defaults.
struct StretchSettings {
  double shadowsClipping = -2.8;   // finite, negative: multiple of the normalised MAD
  double targetBackground = 0.25;  // within (0, 1)
};

// A regular grid of an image's pixels, all of them where it has no more than kMostMeasured.
constexpr std::int64_t kMostMeasured = std::int64_t{1} << 22U;
struct MeasuredSamples {
  std::vector<std::vector<float>> channels;
  bool isSampled = false;
};
MeasuredSamples MeasureSamples(const PixelPyramid& image);

// Median, deviation and transfer of each channel, as the program chooses them for linear data.
std::vector<core::MtfChannelStats> MeasureStretch(const PixelPyramid& image,
                                                  const StretchSettings& settings);

// The same channels with the transfer that other settings choose.
std::vector<core::MtfChannelStats> WithSettings(std::vector<core::MtfChannelStats> channels,
                                                const StretchSettings& settings);

// Whether an image with these channels looks like one that has not been stretched: its sky, the
// median of every channel, is nearer to black than any stretch leaves it.
bool LooksLinear(const std::vector<core::MtfChannelStats>& channels);
// Below this.
constexpr double kLinearMedian = 0.05;

}  // namespace project_lumen::studio
