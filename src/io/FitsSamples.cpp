#include "io/FitsSamples.h"

#include <cstddef>

#include <opencv2/core.hpp>

namespace project_lumen::io {

FitsStorage StorageFor(const SourceImageInfo* source, OutputRole role) {
  FitsStorage storage;
  if (source == nullptr) {
    return storage;
  }
  const FitsImageInfo& fits = source->fits;
  storage.format.bitpix = fits.bitpix;
  storage.format.equivalentType = fits.equivalentType;
  storage.hasScaling = true;
  const bool isFraction = role == OutputRole::kUnscreen && fits.bitpix < 0;
  if (!isFraction) {
    storage.format.bscale = fits.bscale;
    storage.format.bzero = fits.bzero;
    storage.white = fits.fixedDivisor;
  }
  return storage;
}

const std::vector<double>& PhysicalRows::Row(int row) {
  const auto channels = static_cast<std::size_t>(image_.channels());
  values_.resize(static_cast<std::size_t>(image_.cols) * channels);
  cv::Mat target(1, image_.cols, CV_MAKETYPE(CV_64F, image_.channels()), values_.data());
  image_.row(row).convertTo(target, CV_64F);
  for (double& value : values_) {
    value *= white_;
  }
  if (linear_ != nullptr) {
    const auto* source = linear_->sourceSamples.ptr<double>(row);
    for (std::size_t i = 0; i < values_.size(); ++i) {
      const LinearOutputInfo::Channel& channel = linear_->channels[i % channels];
      if (channel.constant || channel.shadows >= source[i]) {
        values_[i] = source[i] * white_;
      }
    }
  }
  return values_;
}

}  // namespace project_lumen::io
