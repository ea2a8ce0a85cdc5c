// Writes TIFF files through libtiff, a few rows at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <opencv2/core/mat.hpp>

namespace project_lumen::io {

// Whether an image of this size and type, with the longest description, might need more than the
// 4 GiB of a classic TIFF file even if LZW makes it larger, so that it is written as BigTIFF.
bool NeedsBigTiff(cv::Size size, int type);

// One image with LZW compression and horizontal differences (TIFF 6.0, sections 13 and 14), in
// strips of at most 8 KiB or one row; BigTIFF where NeedsBigTiff says so.
class TiffWriter {
 public:
  // `descriptor` is an empty file, open for reading and writing, and stays the caller's. `type` is
  // CV_8UC1, CV_8UC3, CV_16UC1 or CV_16UC3. Throws what Append throws.
  TiffWriter(int descriptor, cv::Size size, int type);
  // Without Finish the file is not complete.
  ~TiffWriter();
  TiffWriter(const TiffWriter&) = delete;
  TiffWriter& operator=(const TiffWriter&) = delete;

  // The next rows, colour in BGR order. Throws std::system_error with the reason why the file could
  // not be written, and std::bad_alloc.
  void Append(const cv::Mat& rows);

  // Writes the directory after the last row. Throws what Append throws.
  void Finish();

 private:
  struct Output;
  std::unique_ptr<Output> output_;
};

}  // namespace project_lumen::io
