// What is told of a result before and after it is written.
#pragma once

#include <cstdint>

namespace project_lumen::io {

// How a result will be stored.
struct OutputDescription {
  bool isFits = false;
  int bits = 0;          // raster formats: 8 or 16 a sample
  bool isLossy = false;  // compression changes the samples after they were quantised
  // FITS:
  int bitpix = -32;
  double white = 1.0;  // K of the source
  double bscale = 1.0;
  double bzero = 0.0;
  bool isFraction = false;  // the samples are fractions, not physical values
};

// What happened to the samples of a FITS result on their way into integers.
struct OutputReport {
  bool isQuantised = false;  // stored as integers
  std::uint64_t clipped = 0;
  std::uint64_t clippedAtUpperLimit = 0;
};

}  // namespace project_lumen::io
