// Reading of raster formats: TIFF, PNG and the others that OpenCV decodes by itself.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

namespace project_lumen::io {

class TiffReader;

// What was found out about a file beside its samples.
struct RasterInfo {
  std::string format;  // as DetectImageFormat names it
  int width = 0;       // pixels
  int height = 0;
  int type = 0;                  // of the rows, as OpenCV counts types
  std::string storedType;        // "uint8", "uint16", "float32", …
  bool isGreyOrRgb = true;       // whether three channels are the colours of an RGB image
  std::uint64_t pages = 1;       // images in the file, of which the first is read
  std::string astroTiffHeader;   // empty when there is none
  std::string astroTiffProblem;  // why there is none although the path is that of a TIFF file
};

// One image file, opened once. The samples come as the file stores them: interleaved, colour in BGR
// order, no gamma, colour profile or range applied. Palettes and depths below 8 bits are expanded.
// TIFF orientation is applied; that of EXIF data in JPEG and PNG files is not.
//
// A TIFF file is decoded as its rows are asked for, any other when it is opened.
class RasterReader {
 public:
  // Throws std::invalid_argument:
  //   what FailToRead throws for what is none of the formats, cannot be read, is cut off, is
  //   damaged
  //     in a way that the decoder notices, claims more than 2^20 pixels a side or 2^30 in all or
  //     more than a file of its size can hold, or has colours that are not read
  //   "Unsupported number of image channels: N"    TIFF palette with extra samples
  //   "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported."
  //     OpenEXR, Radiance HDR, PFM; TIFF with samples of unusual sizes
  // and std::bad_alloc. Decoders of OpenCV may write to standard error.
  explicit RasterReader(const std::string& path);
  ~RasterReader();
  RasterReader(const RasterReader&) = delete;
  RasterReader& operator=(const RasterReader&) = delete;

  [[nodiscard]] const RasterInfo& Info() const { return info_; }

  // The next `count` rows, from the top, or as many as are left; none behind the last. Throws what
  // FailToRead throws where a TIFF file is damaged, and std::bad_alloc.
  cv::Mat ReadRows(int count);

 private:
  void ReadMetadata(const std::string& path);

  std::ifstream file_;
  RasterInfo info_;
  std::unique_ptr<TiffReader> tiff_;
  cv::Mat whole_;  // where no TIFF is read
  int next_ = 0;
};

}  // namespace project_lumen::io
