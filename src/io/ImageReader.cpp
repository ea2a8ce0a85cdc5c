#include "io/ImageReader.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

#include "common/EqualChannels.h"
#include "common/IntegerSamples.h"
#include "common/RowBands.h"
#include "io/files/InputPath.h"
#include "io/files/PathSuffix.h"
#include "io/files/UnreadableImage.h"
#include "io/fits/FitsReader.h"
#include "io/raster/RasterReader.h"
#include "io/raster/RasterStorageType.h"

namespace project_lumen::io {
namespace {

[[noreturn]] void RefuseChannels(int channels) {
  throw std::invalid_argument("Unsupported number of image channels: " + std::to_string(channels));
}

bool IsGrayscale(const cv::Mat& stored) {
  switch (stored.channels()) {
    case 1:
      return true;
    case 3:
      return HasEqualChannels(stored);
    default:
      RefuseChannels(stored.channels());
  }
}

void ReadFits(const std::string& path, ReadMode mode, RowSink& rows,
              ImageDescription& description) {
  SourceImageInfo& source = description.source;
  source.isFits = true;
  const cv::Mat image =
      ReadFitsImage(path, mode == ReadMode::kLinear, source.fits, description.report);
  source.fixedDivisor = source.fits.fixedDivisor;
  if (image.empty()) {
    FailToRead(path);
  }
  source.isGrayscale = IsGrayscale(image);
  rows.Begin(image.size(), image.type());
  rows.Take(image);
}

void DescribeStored(const RasterInfo& raster, const cv::Mat& stored,
                    ImageDescription& description) {
  const double divisor = RasterStorageTypeOf(stored.depth()).divisor;
  description.source.astroTiffHeader = raster.astroTiffHeader;
  description.source.storedDepth = stored.depth();
  description.source.fixedDivisor = divisor;
  InputReport& report = description.report;
  report.metadataFault = raster.astroTiffProblem;
  report.pages = raster.pages;
  report.format = raster.format;
  report.storedType = raster.storedType;
  report.axes = {stored.cols, stored.rows, stored.channels()};
  report.range = MeasureRange(stored, divisor);
}

void RequireSupportedDepth(const cv::Mat& stored) {
  if (stored.depth() != CV_8U && stored.depth() != CV_16U) {
    throw std::invalid_argument(
        "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
}

// Normalises the stored samples, a band at a time, in R, G, B order.
void HandOnNormalised(const cv::Mat& stored, ReadMode mode, RowSink& rows) {
  const int depth = mode == ReadMode::kLinear ? CV_64F : CV_32F;
  rows.Begin(stored.size(), CV_MAKETYPE(depth, stored.channels()));
  ForEachRowBand(stored, [&](const cv::Range& band) {
    cv::Mat ordered;
    if (stored.channels() == 3) {
      cv::cvtColor(stored.rowRange(band), ordered, cv::COLOR_BGR2RGB);
    } else {
      ordered = stored.rowRange(band);
    }
    cv::Mat normalised;
    NormaliseIntegers(ordered, depth, normalised);
    rows.Take(normalised);
  });
}

void ReadRaster(const std::string& path, ReadMode mode, RowSink& rows,
                ImageDescription& description) {
  RasterReader reader(path);
  const cv::Mat stored = reader.ReadRows(reader.Info().height);
  DescribeStored(reader.Info(), stored, description);
  if (!reader.Info().isGreyOrRgb) {
    RefuseChannels(stored.channels());
  }
  description.source.isGrayscale = IsGrayscale(stored);
  RequireSupportedDepth(stored);
  HandOnNormalised(stored, mode, rows);
}

}  // namespace

void ReadImage(const std::string& path, ReadMode mode, RowSink& rows,
               ImageDescription& description) {
  CheckInputPath(path);
  if (IsFitsPath(path)) {
    ReadFits(path, mode, rows, description);
  } else {
    ReadRaster(path, mode, rows, description);
  }
}

}  // namespace project_lumen::io
