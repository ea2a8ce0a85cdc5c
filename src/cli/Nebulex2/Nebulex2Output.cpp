#include "cli/Nebulex2/Nebulex2Output.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "cli/DLModelBase.h"
#include "cli/FloatImageChannels.h"
#include "common/PathSuffix.h"
#include "core/StarLayers.h"
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

cv::Mat ToFloat64(const cv::Mat& image) {
  if (image.depth() == CV_64F) {
    return image;
  }
  cv::Mat converted;
  image.convertTo(converted, CV_64F);
  return converted;
}

}  // namespace

FinalOutputs PrepareFinalNebulexOutputs(const cv::Mat& source, cv::Mat starless,
                                        const FinalOutputRequest& request,
                                        const std::function<void(cv::Mat&)>& restoreLinear,
                                        const DiagnosticsSink& sink,
                                        const std::function<cv::Mat(const cv::Mat&)>& readBack) {
  FinalOutputs outputs;
  outputs.starless = std::move(starless);
  if (request.upsampled) {
    outputs.starless = DLModelBase::RescaleImage(outputs.starless, 0.5);
  }
  if (request.grayscaleSource && outputs.starless.channels() == 3) {
    outputs.starless = RgbToGray(outputs.starless);
  }
  restoreLinear(outputs.starless);
  if (!request.wantMask && !request.wantUnscreen) {
    return outputs;
  }
  const cv::Mat stored = readBack(outputs.starless);
  const cv::Mat original = ToFloat64(source);
  if (request.wantMask) {
    outputs.mask = core::ComputeStarMask(original, stored);
  }
  if (request.wantUnscreen) {
    outputs.unscreen =
        core::ComputeUnscreenStarLayer(original, stored, [&sink](const std::string& message) {
          EmitWarning(sink, WarningKind::kDataLoss, message);
        });
  }
  return outputs;
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
  cv::Mat quantised;
  prepared.convertTo(quantised, depth, WhiteOf(depth), 0.0);
  if (!source.isGrayscale) {
    cv::cvtColor(quantised, quantised, cv::COLOR_RGB2BGR);
  }
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

cv::Mat ReadBackOutputImage(const std::string& path, const cv::Mat& image,
                            const OutputContext& context) {
  if (IsFitsPath(path)) {
    return io::PreviewFitsOutput(image, FitsSourceOrNull(context.source), context.linear);
  }
  cv::Mat stored = PrepareOutputImage(path, image, false, context.source);
  if (stored.channels() == 3) {
    cv::cvtColor(stored, stored, cv::COLOR_BGR2RGB);
  }
  cv::Mat values;
  stored.convertTo(values, CV_64F, 1.0 / WhiteOf(stored.depth()), 0.0);
  return values;
}

}  // namespace project_lumen::cli
