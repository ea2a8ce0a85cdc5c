// Between physical values and the numbers that a FITS file stores:
// physical = stored * BSCALE + BZERO (FITS standard 4.0, section 4.4.2.5).
#pragma once

#include <cstdint>

#include "io/FitsImageInfo.h"

namespace project_lumen::io {

// Samples that did not fit the source's storage and were held at its limits.
struct ClipCount {
  std::uint64_t samples = 0;
  std::uint64_t atUpperLimit = 0;  // of these, physical values that were too large
};

// Throws std::invalid_argument "FITS integer output requires finite, nonzero source scaling."
void RequireIntegerScaling(const FitsImageInfo& info);

// The integer to store for a physical value: clamped to the limits of the equivalent type, scaled,
// rounded half away from zero, and held within the limits of BITPIX. A value that either limit
// changes is counted once. Throws std::invalid_argument for scaling that RequireIntegerScaling
// refuses, and "Processed FITS value cannot be encoded in source storage units." when the scaled
// value is not finite.
std::int64_t EncodeStorageValue(double physical, const FitsImageInfo& info, ClipCount& clips);

// The floating-point number to store for a physical value: scaled, and rounded to float32 for
// BITPIX -32. Throws std::invalid_argument "Processed FITS output contains a non-finite sample."
// or, when the stored number would not be finite, "Processed FITS physical value exceeds the source
// floating-point format."
double EncodeFloatValue(double physical, const FitsImageInfo& info);

// The physical values of stored numbers.
double DecodeStorageValue(std::int64_t stored, const FitsImageInfo& info);
double DecodeFloatValue(double stored, const FitsImageInfo& info);

}  // namespace project_lumen::io
