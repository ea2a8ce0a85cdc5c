// What libtiff shows of TIFF images whose samples are not the colours themselves.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "io/tiff/TiffHandle.h"

namespace project_lumen::io {

// Palettes, YCbCr and grey of less than 8 bits, with 8 bits a sample.
class TiffColours {
 public:
  // `file` is open and outlives this. `isGrey`: one channel instead of three in BGR order.
  TiffColours(TiffHandle& file, bool isGrey);
  ~TiffColours();
  TiffColours(const TiffColours&) = delete;
  TiffColours& operator=(const TiffColours&) = delete;

  // Whether libtiff knows how to show the image.
  [[nodiscard]] bool IsUsable() const { return image_ != nullptr; }

  // Fills the rows from this row of the file on, as they lie in it: CV_8UC1 or CV_8UC3. False where
  // strips or tiles are damaged.
  bool Show(std::uint32_t firstRow, cv::Mat& rows);

 private:
  struct Shown;

  TiffHandle& file_;
  bool isGrey_;
  std::unique_ptr<Shown> image_;
  std::vector<std::uint32_t> pixels_;
};

}  // namespace project_lumen::io
