// Writing of raster formats: TIFF, PNG and whatever else OpenCV encodes.
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <string>

#include "io/RowSink.h"

namespace project_lumen::io {

class ReplacedFile;
class TiffWriter;

// The OpenCV depth of an output at this path. Lossless formats (.tif, .tiff, .png) keep a source's
// CV_8U or CV_16U and have CV_16U for every other `storedDepth` (-1 for FITS sources); other
// extensions have CV_8U. Throws std::out_of_range "invalid string position" for a path shorter than
// the suffix being looked at.
int OutputSampleDepth(const std::string& path, int storedDepth);

// Finds out early whether an image of this size and type can be written to this path: throws what
// OutputSampleDepth and RasterWriter throw for the path itself, its extension, its folder, what
// lies there now, and what the format can hold. Leaves nothing behind.
void CheckRasterTarget(const std::string& path, cv::Size size, int type);

// Writes one image of 8- or 16-bit unsigned samples, one channel or three in BGR order, in the
// format of the path's extension: TIFF with LZW compression, others as OpenCV does it by default. A
// TIFF file is BigTIFF where NeedsBigTiff says so, and gets `astroTiffHeader`, unless that is
// empty, adapted to the image's depth as its ImageDescription; other formats carry none.
//
// The file is complete or not there: a file that it replaces has to be one that may be written, and
// stays until the new one is written, checked and flushed (but see ReplacedFile for folders in
// which nothing can be created). Rows of a TIFF are written as they come; those of other formats
// are kept until Finish. OpenCV's encoders may write to standard error. Each function throws
// std::invalid_argument:
//   "Unable to write output image: PATH"                the image cannot be encoded
//   "Unable to write output image: PATH (REASON)"       the file cannot be written or replaced, or
//                                                       its format does not hold such an image
//   "AstroTIFF metadata preservation requires an 8-bit or 16-bit TIFF output."
//   what BuildAstroTiffOutputHeader and AppendAstroTiffMetadata throw
// OpenCV's own exception for an extension that it has no encoder for, and std::bad_alloc.
class RasterWriter {
 public:
  RasterWriter(const std::string& path, cv::Size size, int type,
               const std::string& astroTiffHeader = "");
  // Without Finish nothing is left behind.
  ~RasterWriter();
  RasterWriter(const RasterWriter&) = delete;
  RasterWriter& operator=(const RasterWriter&) = delete;

  // The next rows, from the top. Fails an assertion where they are not rows of this image.
  void Append(const cv::Mat& rows);

  // Completes the file and puts it in its place, after the last row; fails an assertion before
  // that. Nothing is left behind when it throws.
  void Finish();

 private:
  void Complete();

  std::string path_;
  cv::Size size_;
  int type_;
  int rowsTaken_ = 0;
  std::string description_;  // the TIFF's ImageDescription, empty for none
  std::unique_ptr<ReplacedFile> file_;
  std::unique_ptr<TiffWriter> tiff_;
  WholeImage image_;  // where no TIFF is written
};

}  // namespace project_lumen::io
