#include "cli/Nebulex2/Nebulex2Input.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <stdexcept>
#include <utility>

#include "cli/DLModelBase.h"
#include "cli/FloatImageChannels.h"
#include "common/NumberText.h"
#include "common/PathSuffix.h"
#include "common/RangeStatistics.h"
#include "common/RowBands.h"
#include "io/AstroTiff.h"
#include "io/DisplayReader.h"
#include "io/FitsReader.h"
#include "io/ImageFormat.h"
#include "io/InputPath.h"

namespace project_lumen::cli {
namespace {

// What a display format's stored depth means.
struct StoredType {
  const char* name;
  double divisor;  // K
};

StoredType StoredTypeOf(int depth) {
  switch (depth) {
    case CV_8U:
      return {"uint8", 255.0};
    case CV_16U:
      return {"uint16", 65535.0};
    case CV_8S:
      return {"int8", 1.0};
    case CV_16S:
      return {"int16", 1.0};
    case CV_32S:
      return {"int32", 1.0};
    case CV_32F:
      return {"float32", 1.0};
    default:
      return {"float64", 1.0};
  }
}

void RequireDecoded(const cv::Mat& image, const std::string& path) {
  if (image.empty()) {
    throw std::invalid_argument(
        "Unable to read input image: " + path +
        ". Check that the file is a readable TIFF/TIF, PNG, or supported FITS image.");
  }
}

std::string ReadAstroTiffHeaderOrWarn(const std::string& path, const DiagnosticsSink& sink) {
  try {
    return io::ReadAstroTiffHeader(path);
  } catch (const std::invalid_argument& error) {
    EmitWarning(
        sink, WarningKind::kOutputFidelity,
        std::string("Unable to inspect AstroTIFF metadata; continuing without preservation. ") +
            error.what());
    return {};
  }
}

void ReportDisplayInput(const std::string& path, const cv::Mat& stored, bool linear,
                        const DiagnosticsSink& sink) {
  const StoredType type = StoredTypeOf(stored.depth());
  EmitInfo(sink, "input_format",
           "format=" + io::DetectImageFormat(path) + " stored=" + type.name +
               " width=" + std::to_string(stored.cols) + " height=" + std::to_string(stored.rows) +
               " channels=" + std::to_string(stored.channels()));
  const ImageRangeStatistics range = MeasureRange(stored, type.divisor);
  EmitInfo(sink, "input_range", DescribeRange(range.image, type.divisor));
  for (std::size_t i = 0; i < range.channels.size(); ++i) {
    EmitInfo(
        sink, "channel_range",
        "channel=" + std::to_string(i + 1) + " " + DescribeRange(range.channels[i], type.divisor));
  }
  EmitInfo(sink, "input_conversion",
           "fixed divisor K=" + FormatReal(type.divisor) +
               "; offset=0; linear=" + (linear ? "1" : "0") + "; no observed-range rescaling; " +
               (linear ? "MTF/inverse=float64; inference=float32" : "inference=float32 (no MTF)"));
}

// The stored samples, in BGR order where a display format has colours, or in RGB order from FITS.
cv::Mat ReadStored(const std::string& path, bool linear, const DiagnosticsSink& sink,
                   io::SourceImageInfo& info) {
  if (IsFitsPath(path)) {
    io::FitsImage fits = io::ReadFitsImage(path, linear, sink);
    info.isFits = true;
    info.fits = std::move(fits.info);
    info.fixedDivisor = info.fits.fixedDivisor;
    RequireDecoded(fits.image, path);
    return fits.image;
  }
  cv::Mat stored = io::ReadDisplayImage(path);
  if (!stored.empty() && IsTiffPath(path)) {
    info.astroTiffHeader = ReadAstroTiffHeaderOrWarn(path, sink);
  }
  RequireDecoded(stored, path);
  info.storedDepth = stored.depth();
  info.fixedDivisor = StoredTypeOf(stored.depth()).divisor;
  ReportDisplayInput(path, stored, linear, sink);
  return stored;
}

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

// The factor from stored to normalised samples. The FITS reader has divided by K already.
double NormalisingScale(const cv::Mat& stored, bool isFits) {
  if (isFits) {
    return 1.0;
  }
  if (stored.depth() != CV_8U && stored.depth() != CV_16U) {
    throw std::invalid_argument(
        "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.");
  }
  return 1.0 / StoredTypeOf(stored.depth()).divisor;
}

cv::Mat ToRgb(const cv::Mat& stored, bool isFits) {
  if (stored.channels() == 1) {
    return GrayToRgb(stored);
  }
  if (isFits) {
    return stored;
  }
  cv::Mat rgb;
  cv::cvtColor(stored, rgb, cv::COLOR_BGR2RGB);
  return rgb;
}

// Three channels in RGB order, normalised.
cv::Mat ToWorkingImage(const cv::Mat& stored, bool isFits, bool linear) {
  const double scale = NormalisingScale(stored, isFits);
  const int type = linear ? CV_64FC3 : CV_32FC3;
  if (isFits && stored.type() == type) {
    return stored;
  }
  cv::Mat image(stored.size(), type);
  ForEachRowBand(stored, [&](const cv::Range& rows) {
    cv::Mat part = image.rowRange(rows);
    ToRgb(stored.rowRange(rows), isFits).convertTo(part, type, scale, 0.0);
  });
  return image;
}

cv::Mat SourceSamplesOf(const cv::Mat& image, bool isGrayscale) {
  if (!isGrayscale) {
    return image;
  }
  cv::Mat plane;
  cv::extractChannel(image, plane, 0);
  return plane;
}

}  // namespace

LoadedInput LoadInputImage(const std::string& path, bool upsample, bool linear,
                           const DiagnosticsSink& sink) {
  EmitInfo(sink, "input", "Reading " + path);
  io::CheckInputPath(path);
  LoadedInput input;
  cv::Mat stored = ReadStored(path, linear, sink, input.info);
  input.info.isGrayscale = IsGrayscale(stored);
  input.image = ToWorkingImage(stored, input.info.isFits, linear);
  stored.release();
  input.sourceSamples = SourceSamplesOf(input.image, input.info.isGrayscale);
  EmitInfo(sink, "input_geometry",
           "width=" + std::to_string(input.image.cols) +
               " height=" + std::to_string(input.image.rows) +
               " interpretation=" + (input.info.isGrayscale ? "grayscale" : "RGB"));
  if (upsample) {
    EmitInfo(sink, "intermediate_sampling",
             "2x grid-aligned cubic upsampling; output selects original grid samples without "
             "averaging");
    input.image = DLModelBase::RescaleImage(input.image, 2.0);
  }
  return input;
}

}  // namespace project_lumen::cli
