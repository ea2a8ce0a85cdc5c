#include "io/ImageWriter.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "common/Assertion.h"
#include "common/IntegerSamples.h"
#include "common/RowBands.h"
#include "io/files/PathSuffix.h"
#include "io/fits/FitsWriter.h"
#include "io/raster/RasterWriter.h"

namespace project_lumen::io {
namespace {

const SourceImageInfo* FitsSourceOrNull(const SourceImageInfo& source) {
  return source.isFits ? &source : nullptr;
}

cv::Mat ReadBackRaster(const cv::Mat& stored) {
  cv::Mat rgb;
  if (stored.channels() == 3) {
    cv::cvtColor(stored, rgb, cv::COLOR_BGR2RGB);
  } else {
    rgb = stored;
  }
  cv::Mat values;
  NormaliseIntegers(rgb, CV_64F, values);
  return values;
}

}  // namespace

void CheckOutputTarget(const OutputFile& file, cv::Size size) {
  if (IsFitsPath(file.path)) {
    CheckFitsTarget(file.path);
    return;
  }
  const int depth = OutputSampleDepth(file.path, file.source.storedDepth);
  CheckRasterTarget(file.path, size, CV_MAKETYPE(depth, file.source.isGrayscale ? 1 : 3));
}

OutputDescription DescribeOutput(const OutputFile& file) {
  if (IsFitsPath(file.path)) {
    return DescribeFitsOutput(FitsSourceOrNull(file.source), file.role);
  }
  const bool isDeep = OutputSampleDepth(file.path, file.source.storedDepth) == CV_16U;
  OutputDescription description;
  description.bits = isDeep ? 16 : 8;
  description.isLossy = IsLossyPath(file.path);
  return description;
}

bool CanReadBackFail(const std::string& path) {
  return IsFitsPath(path);
}

cv::Mat PrepareOutputImage(const OutputFile& file, const cv::Mat& image) {
  if (IsFitsPath(file.path)) {
    return image;
  }
  const int depth = OutputSampleDepth(file.path, file.source.storedDepth);
  const bool hasColours = image.channels() == 3;
  cv::Mat quantised(image.size(), CV_MAKETYPE(depth, image.channels()));
  cv::Mat rgb;
  ForEachRowBand(image, [&](const cv::Range& rows) {
    cv::Mat part = quantised.rowRange(rows);
    cv::Mat& converted = hasColours ? rgb : part;
    QuantiseToIntegers(image.rowRange(rows), depth, converted);
    if (hasColours) {
      // Not in place, where OpenCV makes a copy first.
      cv::cvtColor(rgb, part, cv::COLOR_RGB2BGR);
    }
  });
  return quantised;
}

cv::Mat ReadBackOutputImage(const OutputFile& file, const cv::Mat& prepared,
                            const cv::Range& rows) {
  const cv::Mat part = prepared.rowRange(rows);
  return IsFitsPath(file.path) ? PreviewFitsOutput(part, FitsSourceOrNull(file.source))
                               : ReadBackRaster(part);
}

ImageWriter::ImageWriter(OutputFile file, cv::Size size) : file_(std::move(file)), size_(size) {}

ImageWriter::~ImageWriter() = default;

void ImageWriter::Begin(const cv::Mat& rows) {
  if (IsFitsPath(file_.path)) {
    fits_ = std::make_unique<FitsWriter>(
        file_.path, FitsResult{size_, rows.channels(), file_.source.isGrayscale,
                               FitsSourceOrNull(file_.source), file_.role, file_.linear});
  } else {
    raster_ = std::make_unique<RasterWriter>(file_.path, size_, rows.type(),
                                             file_.source.astroTiffHeader);
  }
}

void ImageWriter::Append(const cv::Mat& rows) {
  if (!fits_ && !raster_) {
    Begin(rows);
  }
  if (fits_) {
    fits_->Append(rows);
  } else {
    raster_->Append(rows);
  }
}

OutputReport ImageWriter::Finish() {
  if (fits_) {
    return fits_->Finish();
  }
  NEBULEX_ASSERT("project_lumen::io::ImageWriter::Finish", raster_ != nullptr);
  raster_->Finish();
  return {};
}

}  // namespace project_lumen::io
