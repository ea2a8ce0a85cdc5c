#include "io/FitsStorageValue.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>

#include "io/FitsStorageType.h"

namespace project_lumen::io {
namespace {

// No double below 2^63 is above the largest int64, so the limit itself stands for all above it.
std::int64_t ToInteger(double value, double maximum) {
  return value >= maximum && maximum > 9e18 ? std::numeric_limits<std::int64_t>::max()
                                            : static_cast<std::int64_t>(value);
}

}  // namespace

void RequireIntegerScaling(const FitsImageInfo& info) {
  if (!std::isfinite(info.bscale) || info.bscale == 0.0 || !std::isfinite(info.bzero)) {
    throw std::invalid_argument("FITS integer output requires finite, nonzero source scaling.");
  }
}

std::int64_t EncodeStorageValue(double physical, const FitsImageInfo& info, ClipCount& clips) {
  RequireIntegerScaling(info);
  const std::optional<ValueRange> limits = PhysicalLimits(info.equivalentType);
  const double clamped = limits ? std::clamp(physical, limits->minimum, limits->maximum) : physical;
  const double storage = (clamped - info.bzero) / info.bscale;
  if (!std::isfinite(storage)) {
    throw std::invalid_argument("Processed FITS value cannot be encoded in source storage units.");
  }
  const double rounded = std::round(storage);
  const ValueRange stored = StorageLimits(info.bitpix);
  const bool above = rounded > stored.maximum || (info.bitpix == 64 && rounded == stored.maximum);
  const bool below = rounded < stored.minimum;
  const bool tooLarge = clamped < physical || (info.bscale > 0.0 ? above : below);
  if (tooLarge || clamped > physical || above || below) {
    ++clips.samples;
    clips.atUpperLimit += tooLarge ? 1U : 0U;
  }
  return ToInteger(std::clamp(rounded, stored.minimum, stored.maximum), stored.maximum);
}

double EncodeFloatValue(double physical, const FitsImageInfo& info) {
  if (!std::isfinite(physical)) {
    throw std::invalid_argument("Processed FITS output contains a non-finite sample.");
  }
  const double scaled = (physical - info.bzero) / info.bscale;
  const double stored =
      info.bitpix == -32 ? static_cast<double>(static_cast<float>(scaled)) : scaled;
  if (!std::isfinite(stored)) {
    throw std::invalid_argument(
        "Processed FITS physical value exceeds the source floating-point format.");
  }
  return stored;
}

double DecodeStorageValue(std::int64_t stored, const FitsImageInfo& info) {
  return DecodeFloatValue(static_cast<double>(stored), info);
}

double DecodeFloatValue(double stored, const FitsImageInfo& info) {
  return stored * info.bscale + info.bzero;
}

}  // namespace project_lumen::io
