// The midtones transfer of a linear image in double precision: prepares the image for inference and
// brings the network's output back to linear values.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "core/MtfStatistics.h"

namespace project_lumen::core {

// One channel's transfer and what it does to the channel. Working samples are source samples
// divided by the white of their format and capped at 1; median, deviation and shadows are in their
// units.
struct LinearChannelStats : MtfChannelStats {
  bool constant = false;               // all working samples are equal
  std::uint64_t aboveOne = 0;          // samples above 1 after division, capped
  std::uint64_t atOrBelowShadows = 0;  // working samples that the transfer clips to 0

  // Whether a sample comes back as it was, whatever the network makes of it: the transfer tells
  // nothing of it.
  [[nodiscard]] bool Restores(double sample) const { return constant || Clips(sample); }
};

// How many samples of one channel came back.
struct RestoredSamples {
  std::uint64_t inShadows = 0;     // at or below the shadows point
  std::uint64_t alsoConstant = 0;  // further ones, of a constant channel
};

// Replaces samples of an image by those of `source` that come back (LinearChannelStats::Restores),
// and counts them for each channel. Both are float64 with one size and as many channels, at most as
// many as there are records.
std::vector<RestoredSamples> RestoreSamples(const cv::Mat& source,
                                            const std::vector<LinearChannelStats>& channels,
                                            cv::Mat& image);

// Keeps one float64 matrix, the working image; the stretched image is made on demand.
class FixedLinearMtf {
 public:
  // Measures a float64 source with 1 or 3 interleaved channels. `divisor` is the white of its
  // format; `shadowsClipping` is a negative multiple of the normalised MAD; `targetBackground`,
  // within (0, 1), is the level that the transfer gives to the median.
  //
  // The working image shares the source's samples when division and cap change none of them, so the
  // source must not be modified while the object lives.
  //
  // Throws std::invalid_argument, in this order: "Fixed linear MTF requires a float64 mono or RGB
  // image."; "Linear input requires a finite positive sample-format divisor."; "Linear MTF requires
  // a negative shadows multiplier and target between 0 and 1."; then for each channel "Linear input
  // contains a non-finite sample or unrepresentable conversion."; "Linear input has a
  // non-invertible MTF background in channel N. Normalize or prepare the image upstream.", N
  // counted from 1.
  FixedLinearMtf(const cv::Mat& source, double divisor, double shadowsClipping,
                 double targetBackground);

  // One record a channel.
  [[nodiscard]] const std::vector<LinearChannelStats>& Channels() const { return channels_; }

  // The working image, float64: min(source / divisor, 1).
  [[nodiscard]] const cv::Mat& Working() const { return working_; }

  // The image for inference, rounded to float32: MtfForward(midtones, working - shadows), 0 in a
  // constant channel.
  [[nodiscard]] cv::Mat Stretch() const;

  // The network's output, float32 or float64, brought back to linear values in a new float64 image:
  // MtfInverse(midtones, y) + shadows, not clamped, and then RestoreWorkingSamples.
  //
  // Throws std::invalid_argument "Linear MTF prediction does not match the prepared image." and,
  // outside constant channels, "Linear MTF inference returned a non-finite sample.".
  [[nodiscard]] cv::Mat InvertLinearPrediction(const cv::Mat& prediction) const;

  // Replaces the samples of a float64 image by the working samples that come back. Throws
  // std::invalid_argument "Fixed linear MTF requires a float64 mono or RGB image." and "Linear MTF
  // output does not match the prepared image.".
  void RestoreWorkingSamples(cv::Mat& image) const;

 private:
  cv::Mat working_;
  std::vector<LinearChannelStats> channels_;
};

}  // namespace project_lumen::core
