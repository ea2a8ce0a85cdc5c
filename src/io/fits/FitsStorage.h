// How FITS images store samples: the types, what their numbers stand for, and what a result of each
// role is stored as.
//
// Physical values: physical = stored * BSCALE + BZERO (FITS standard 4.0, section 4.4.2.5). Types
// are named by codes: 8, 16, 32, 64, -32, -64 as in BITPIX (table 8), and 10, 20, 40, 80 for int8,
// uint16, uint32, uint64, which are stored with an offset in BZERO.
#pragma once

#include <cstdint>
#include <optional>

#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"
#include "io/fits/FitsImageInfo.h"

namespace project_lumen::io {

// --- Types ---

// "uint8", "int16", "float32", … for a code; "unknown" for any other.
const char* FitsTypeName(int code);

// The fixed divisor K: the largest value of the equivalent type for integer storage, 2^63 for both
// 64-bit types, 1 for float storage and for scaled integers (a floating equivalent type).
double FitsFixedDivisor(int bitpix, int equivalentType);

struct ValueRange {
  double minimum;
  double maximum;
};

// Physical limits of an integer type of up to 32 bits; none for all others.
std::optional<ValueRange> PhysicalLimits(int equivalentType);

// --- Values ---

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

// --- Results ---

// How samples of one role are stored: the source's storage with the scaling that the role gets, and
// the factor between normalised samples and physical values.
struct FitsStorage {
  FitsImageInfo format;     // BITPIX, equivalent type, BSCALE and BZERO of the result
  double white = 1.0;       // physical value of the normalised sample 1.0
  bool hasScaling = false;  // BSCALE and BZERO are written

  [[nodiscard]] bool IsInteger() const { return format.bitpix > 0; }
};

// `source` is null when the input was not FITS: float32 without scaling.
FitsStorage StorageFor(const SourceImageInfo* source, OutputRole role);

}  // namespace project_lumen::io
