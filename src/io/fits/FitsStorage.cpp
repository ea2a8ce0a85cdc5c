#include "io/fits/FitsStorage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace project_lumen::io {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

struct StorageType {
  int code;
  const char* name;
  double divisor;
  std::optional<ValueRange> limits;
};

constexpr std::array<StorageType, 10> kStorageTypes{{
    {-64, "float64", 1.0, std::nullopt},
    {-32, "float32", 1.0, std::nullopt},
    {8, "uint8", 255.0, ValueRange{0.0, 255.0}},
    {10, "int8", 127.0, ValueRange{-128.0, 127.0}},
    {16, "int16", 32767.0, ValueRange{-32768.0, 32767.0}},
    {20, "uint16", 65535.0, ValueRange{0.0, 65535.0}},
    {32, "int32", 2147483647.0, ValueRange{-2147483648.0, 2147483647.0}},
    {40, "uint32", 4294967295.0, ValueRange{0.0, 4294967295.0}},
    {64, "int64", kTwoTo63, std::nullopt},
    {80, "uint64", kTwoTo63, std::nullopt},
}};

const StorageType* FindStorageType(int code) {
  const auto* found = std::find_if(kStorageTypes.begin(), kStorageTypes.end(),
                                   [code](const StorageType& type) { return type.code == code; });
  return found == kStorageTypes.end() ? nullptr : found;
}

// Limits of the stored integers of a BITPIX above 0. Those of 64 bits are [-2^63, 2^63], since no
// double lies between 2^63 - 1024 and 2^63.
ValueRange StorageLimits(int bitpix) {
  switch (bitpix) {
    case 8:
      return {0.0, 255.0};
    case 16:
      return {-32768.0, 32767.0};
    case 32:
      return {-2147483648.0, 2147483647.0};
    default:
      return {-kTwoTo63, kTwoTo63};
  }
}

// No double below 2^63 is above the largest int64, so the limit itself stands for all above it.
std::int64_t ToInteger(double value, double maximum) {
  return value >= maximum && maximum > 9e18 ? std::numeric_limits<std::int64_t>::max()
                                            : static_cast<std::int64_t>(value);
}

}  // namespace

const char* FitsTypeName(int code) {
  const StorageType* type = FindStorageType(code);
  return type == nullptr ? "unknown" : type->name;
}

double FitsFixedDivisor(int bitpix, int equivalentType) {
  const StorageType* type = FindStorageType(equivalentType);
  return bitpix < 0 || type == nullptr ? 1.0 : type->divisor;
}

std::optional<ValueRange> PhysicalLimits(int equivalentType) {
  const StorageType* type = FindStorageType(equivalentType);
  return type == nullptr ? std::nullopt : type->limits;
}

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

}  // namespace project_lumen::io
