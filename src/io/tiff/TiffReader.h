// Reads the first image of a TIFF file through libtiff, a few rows at a time.
#pragma once

#include <iosfwd>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

namespace project_lumen::io {

struct TiffImageInfo {
  int width = 0;  // upright, in pixels
  int height = 0;
  int type = 0;            // of the rows, as OpenCV counts types
  std::string storedType;  // "uint16", "float32", "uint12"
  // Whether the channels are those of a grey or an RGB image; false for CMYK, and where there are
  // extra samples.
  bool isGreyOrRgb = true;
};

// The samples as the file stores them, interleaved, colour in BGR order, upright, white at the top;
// strips, tiles and separate planes alike. Palettes, YCbCr and grey of less than 8 bits come as
// libtiff shows them, with 8 bits. Types that OpenCV does not have come as CV_64F.
//
// What stands in other tags and makes no sense does not matter: an image is unreadable when its
// strips or tiles cannot be decoded, not because its resolution is wrong.
class TiffReader {
 public:
  // `file` is open for binary reading, belongs to this alone and outlives it; `path` is for
  // messages. Throws std::invalid_argument:
  //   what FailToRead throws                       no TIFF, too large, claims more than the file
  //   can
  //                                                hold, colours or codings that are not read
  //   "Unsupported number of image channels: N"    palette with extra samples
  //   "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported."
  //                                                samples of other sizes than 1 to 16, 32, 64 bits
  // and std::bad_alloc.
  TiffReader(std::istream& file, const std::string& path);
  ~TiffReader();
  TiffReader(const TiffReader&) = delete;
  TiffReader& operator=(const TiffReader&) = delete;

  [[nodiscard]] const TiffImageInfo& Info() const;

  // The next `count` rows, or as many as are left; none behind the last. Throws what FailToRead
  // throws where strips or tiles are damaged or missing, and std::bad_alloc. An image that does not
  // lie upright in its file is read whole at first.
  cv::Mat ReadRows(int count);

 private:
  class Image;
  std::unique_ptr<Image> image_;
};

}  // namespace project_lumen::io
