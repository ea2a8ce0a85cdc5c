#include "io/raster/RasterReader.h"

#include <algorithm>
#include <opencv2/core.hpp>
#include <stdexcept>

#include "common/PlatformFiles.h"
#include "common/Utf8Path.h"
#include "io/files/PathSuffix.h"
#include "io/files/UnreadableImage.h"
#include "io/raster/ImageFormat.h"
#include "io/raster/RasterDecoder.h"
#include "io/raster/RasterStorageType.h"
#include "io/tiff/AstroTiff.h"
#include "io/tiff/TiffLayout.h"
#include "io/tiff/TiffReader.h"

namespace project_lumen::io {
RasterReader::RasterReader(const std::string& path)
    : file_(FromUtf8(OpenablePath(path)), std::ios::binary) {
  const ImageFormat format = IdentifyImageFormat(file_);
  info_.format = NameOf(format);
  if (format == ImageFormat::kFloatingPoint) {
    throw std::invalid_argument(
        "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
  ReadMetadata(path);
  if (format == ImageFormat::kTiff) {
    info_.pages = CountTiffPages(file_);
    tiff_ = std::make_unique<TiffReader>(file_, path);
    info_.width = tiff_->Info().width;
    info_.height = tiff_->Info().height;
    info_.type = tiff_->Info().type;
    info_.storedType = tiff_->Info().storedType;
    info_.isGreyOrRgb = tiff_->Info().isGreyOrRgb;
    return;
  }
  whole_ = DecodeImage(format, file_, path);
  if (whole_.empty()) {
    FailToRead(path);
  }
  info_.width = whole_.cols;
  info_.height = whole_.rows;
  info_.type = whole_.type();
  info_.storedType = RasterStorageTypeOf(whole_.depth()).name;
}

RasterReader::~RasterReader() = default;

// Whatever the file holds: its path says what it should be.
void RasterReader::ReadMetadata(const std::string& path) {
  if (!IsTiffPath(path)) {
    return;
  }
  try {
    info_.astroTiffHeader = ReadAstroTiffHeader(file_, path);
  } catch (const std::invalid_argument& error) {
    info_.astroTiffProblem = error.what();
  }
}

cv::Mat RasterReader::ReadRows(int count) {
  if (tiff_) {
    return tiff_->ReadRows(count);
  }
  const int first = next_;
  next_ += std::clamp(count, 0, whole_.rows - first);
  return whole_.rowRange(first, next_);
}

}  // namespace project_lumen::io
