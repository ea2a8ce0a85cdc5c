// What was read, for those who write results in the source's own terms.
#pragma once

#include <string>

#include "io/fits/FitsImageInfo.h"

namespace project_lumen::io {

struct SourceImageInfo {
  bool isFits = false;
  FitsImageInfo fits;           // filled only when isFits
  std::string astroTiffHeader;  // FITS header text found in a TIFF input; else empty
  int storedDepth = -1;         // OpenCV depth of a decoded TIFF or PNG; -1 for FITS
  bool isGrayscale = false;     // one channel, or three equal ones
  double fixedDivisor = 1.0;    // K: normalised = stored / K
};

}  // namespace project_lumen::io
