// From a normalised result image to the numbers that its FITS file stores, row by row.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "io/FitsImageInfo.h"
#include "io/FitsStorageValue.h"
#include "io/LinearOutputInfo.h"
#include "io/OutputRole.h"
#include "io/SourceImageInfo.h"

namespace project_lumen::io {

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

// Maps rows of a result to physical values. Keeps references to its arguments.
class PhysicalRows {
 public:
  // `linear` is null unless restored samples take the source's own values.
  PhysicalRows(const cv::Mat& image, double white, const LinearOutputInfo* linear)
      : image_(image), white_(white), linear_(linear) {}

  // The physical values of a row, all channels interleaved. Valid until the next call.
  const std::vector<double>& Row(int row);

 private:
  const cv::Mat& image_;
  double white_;
  const LinearOutputInfo* linear_;
  std::vector<double> values_;
};

}  // namespace project_lumen::io
