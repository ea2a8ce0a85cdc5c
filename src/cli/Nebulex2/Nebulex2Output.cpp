#include "cli/Nebulex2/Nebulex2Output.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "cli/DLModelBase.h"
#include "cli/FloatImageChannels.h"
#include "common/PathSuffix.h"
#include "common/RowBands.h"
#include "io/DisplayWriter.h"
#include "io/FitsWriter.h"

namespace project_lumen::cli {
namespace {

double WhiteOf(int depth) {
  return depth == CV_16U ? 65535.0 : 255.0;
}

const io::SourceImageInfo* FitsSourceOrNull(const io::SourceImageInfo& source) {
  return source.isFits ? &source : nullptr;
}

io::LinearOutputInfo RowsOf(const io::LinearOutputInfo& linear, const cv::Range& rows) {
  io::LinearOutputInfo part = linear;
  part.sourceSamples = linear.sourceSamples.rowRange(rows);
  return part;
}

}  // namespace

cv::Mat PrepareFinalStarless(cv::Mat starless, bool upsampled, bool grayscaleSource,
                             const std::function<void(cv::Mat&)>& restoreLinear) {
  if (upsampled) {
    starless = DLModelBase::RescaleImage(starless, 0.5);
  }
  if (grayscaleSource && starless.channels() == 3) {
    starless = RgbToGray(starless);
  }
  restoreLinear(starless);
  return starless;
}

cv::Mat PrepareOutputImage(const std::string& path, const cv::Mat& image, bool downsample,
                           const io::SourceImageInfo& source) {
  cv::Mat prepared = downsample ? DLModelBase::RescaleImage(image, 0.5) : image;
  if (source.isGrayscale && prepared.channels() == 3) {
    prepared = RgbToGray(prepared);
  }
  if (IsFitsPath(path)) {
    return prepared;
  }
  const int depth = io::OutputSampleDepth(path, source.storedDepth);
  cv::Mat quantised(prepared.size(), CV_MAKETYPE(depth, prepared.channels()));
  cv::Mat rgb;
  ForEachRowBand(prepared, [&](const cv::Range& rows) {
    cv::Mat part = quantised.rowRange(rows);
    cv::Mat& converted = source.isGrayscale ? part : rgb;
    prepared.rowRange(rows).convertTo(converted, depth, WhiteOf(depth), 0.0);
    if (!source.isGrayscale) {
      // Not in place, where OpenCV makes a copy first.
      cv::cvtColor(rgb, part, cv::COLOR_RGB2BGR);
    }
  });
  return quantised;
}

void WriteOutputImage(const std::string& path, const cv::Mat& prepared, io::OutputRole role,
                      const OutputContext& context) {
  EmitInfo(context.sink, "output", "Writing " + path);
  if (IsFitsPath(path)) {
    io::WriteFitsOutput(path, prepared, context.source.isGrayscale,
                        FitsSourceOrNull(context.source), role, context.linear, context.sink);
    return;
  }
  EmitInfo(context.sink, "output_conversion",
           "display-format export; depth=" + std::to_string(8 * prepared.elemSize1()) +
               " bits; normalized display values, not physical FITS units");
  io::WriteDisplayImage(path, prepared, context.source.astroTiffHeader);
}

cv::Mat ReadBackOutputRows(const std::string& path, const cv::Mat& prepared, const cv::Range& rows,
                           const OutputContext& context) {
  const cv::Mat part = prepared.rowRange(rows);
  if (IsFitsPath(path)) {
    const io::SourceImageInfo* source = FitsSourceOrNull(context.source);
    if (context.linear == nullptr) {
      return io::PreviewFitsOutput(part, source, nullptr);
    }
    const io::LinearOutputInfo linear = RowsOf(*context.linear, rows);
    return io::PreviewFitsOutput(part, source, &linear);
  }
  cv::Mat rgb;
  if (part.channels() == 3) {
    cv::cvtColor(part, rgb, cv::COLOR_BGR2RGB);
  } else {
    rgb = part;
  }
  cv::Mat values;
  rgb.convertTo(values, CV_64F, 1.0 / WhiteOf(part.depth()), 0.0);
  return values;
}

void PrepareLayer(const std::string& path, const LayerInputs& inputs, io::OutputRole role,
                  const io::SourceImageInfo& source, cv::Mat& prepared) {
  ComputeLayer(inputs, role, [&](const cv::Mat& layer, const cv::Range& rows) {
    const cv::Mat part = PrepareOutputImage(path, layer, false, source);
    prepared.create(inputs.source.size(), part.type());
    part.copyTo(prepared.rowRange(rows));
  });
}

}  // namespace project_lumen::cli
