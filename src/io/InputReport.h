// What reading an image found out about it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/RangeStatistics.h"

namespace project_lumen::io {

// What was found out about a file, to be told to the user. Filled step by step, so that after an
// exception it holds what was known by then.
struct InputReport {
  std::string format;              // "FITS", or what DetectImageFormat says; empty: not known yet
  std::string storedType;          // "uint8", "float32" and so on
  std::string equivalentType;      // FITS: likewise, of the type that holds the physical values
  std::vector<std::int64_t> axes;  // FITS: NAXISn; raster formats: columns, rows, channels
  // Why the FITS header in a TIFF file could not be read; empty when there was no difficulty.
  std::string metadataFault;
  // Of the stored samples, with the channels in stored order (blue first in colour TIFF and PNG);
  // empty until they have been read.
  std::optional<ImageRangeStatistics> range;
  std::uint64_t pages = 1;      // images in the file, of which the first is read
  std::uint64_t undefined = 0;  // FITS: NaN, or BLANK in integer data
  // FITS integers that their scaling puts above what float32 holds; they became 0.
  std::uint64_t tooLarge = 0;
};

}  // namespace project_lumen::io
