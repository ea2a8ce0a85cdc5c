// The sample types of FITS images: names, fixed divisors and limits in one table.
#pragma once

#include <optional>

namespace project_lumen::io {

struct ValueRange {
  double minimum;
  double maximum;
};

// "uint8", "int16", "float32", … for a BITPIX or an equivalent type; "unknown" for any other code.
// Codes: 8, 16, 32, 64, -32, -64 as in BITPIX (FITS standard 4.0, table 8), and 10, 20, 40, 80 for
// int8, uint16, uint32, uint64, which are stored with an offset in BZERO (section 4.4.2.5).
const char* FitsTypeName(int code);

// The fixed divisor K: the largest value of the equivalent type for integer storage, 2^63 for both
// 64-bit types, 1 for float storage and for scaled integers (a floating equivalent type).
double FitsFixedDivisor(int bitpix, int equivalentType);

// Physical limits of an integer type of up to 32 bits; none for all others.
std::optional<ValueRange> PhysicalLimits(int equivalentType);

// Limits of the stored integers of a BITPIX above 0. Those of 64 bits are [-2^63, 2^63], since no
// double lies between 2^63 - 1024 and 2^63.
ValueRange StorageLimits(int bitpix);

}  // namespace project_lumen::io
