#include "core/ImageProcessing.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "common/GridAlignedResample.h"
#include "common/OutOfMemory.h"
#include "core/FiniteSamples.h"
#include "core/FixedLinearMtf.h"
#include "core/FloatImageChannels.h"
#include "core/NetworkInference.h"
#include "core/SampleRows.h"
#include "core/SettingRules.h"
#include "core/StarLayers.h"
#include "core/TileGeometry.h"

namespace project_lumen::core {
namespace {

void CheckSource(const cv::Mat& source, bool linear) {
  const bool isSound =
      !source.empty() && source.dims == 2 && (source.channels() == 1 || source.channels() == 3);
  if (linear && (!isSound || source.depth() != CV_64F)) {
    throw std::invalid_argument("Linear preparation requires a nonempty float64 input.");
  }
  if (!linear && (!isSound || source.depth() != CV_32F)) {
    throw std::invalid_argument("Star removal requires float32 grayscale or RGB samples.");
  }
}

void CheckFinite(const cv::Mat& image) {
  for (int r = 0; r < image.rows; ++r) {
    if (!AllFinite(image.ptr<float>(r), SamplesPerRow(image))) {
      throw std::invalid_argument("Image contains non-finite samples.");
    }
  }
}

// The starless image on the working grid, float32 RGB.
cv::Mat RemoveStarsFromDisplayData(const cv::Mat& source, const ProcessingSettings& settings,
                                   TileInferenceFn inferTile, const RunControl& control) {
  const cv::Mat working = MakeWorkingImage(source, settings.upsample);
  CheckFinite(working);
  ThrowIfStopRequested(control);
  cv::Mat starless = InferImage(working, settings.stride, inferTile, control);
  inferTile = nullptr;
  if (settings.protectHighlights) {
    ProtectStarlessHighlights(working, starless);
  }
  return starless;
}

// What the network makes of the stretched image.
cv::Mat InferStretched(const FixedLinearMtf& mtf, const ProcessingSettings& settings,
                       const TileInferenceFn& inferTile, const RunControl& control) {
  const cv::Mat stretched = mtf.Stretch();
  ThrowIfStopRequested(control);
  return InferImage(stretched, settings.stride, inferTile, control);
}

// The starless image on the working grid, float64 RGB, and the transfer of its channels.
cv::Mat RemoveStarsFromLinearData(const cv::Mat& source, const ProcessingSettings& settings,
                                  TileInferenceFn inferTile, const RunControl& control,
                                  const LinearReports& reports,
                                  std::vector<LinearChannelStats>& channels) {
  const FixedLinearMtf mtf =
      PrepareLinearInput(MakeWorkingImage(source, settings.upsample), settings.shadowsClipping,
                         settings.targetBackground, reports);
  channels = mtf.Channels();
  cv::Mat prediction = InferStretched(mtf, settings, inferTile, control);
  // On the way back to float64 memory is at its peak.
  inferTile = nullptr;
  cv::Mat starless = mtf.InvertLinearPrediction(prediction);
  prediction.release();
  if (settings.protectHighlights) {
    ProtectStarlessHighlights(mtf.Working(), starless);
  }
  return starless;
}

// From the working grid to the source's own, in its channels.
cv::Mat ToSourceGrid(cv::Mat starless, const cv::Mat& source) {
  if (starless.size() != source.size()) {
    starless = DownsampleGrid2x(starless, source.size());
  }
  return source.channels() == 1 ? RgbToGray(starless) : starless;
}

cv::Mat ProcessDisplayData(const cv::Mat& source, const ProcessingSettings& settings,
                           TileInferenceFn inferTile, const RunControl& control) {
  return ToSourceGrid(RemoveStarsFromDisplayData(source, settings, std::move(inferTile), control),
                      source);
}

cv::Mat ProcessLinearData(const cv::Mat& source, const ProcessingSettings& settings,
                          TileInferenceFn inferTile, const RunControl& control,
                          const LinearReports& reports) {
  std::vector<LinearChannelStats> channels;
  cv::Mat starless = ToSourceGrid(
      RemoveStarsFromLinearData(source, settings, std::move(inferTile), control, reports, channels),
      source);
  RestoreFinalLinearSamples(source, channels, starless, reports);
  return starless;
}

}  // namespace

void CheckImageSize(cv::Size size, const ProcessingSettings& settings) {
  if (settings.upsample) {
    CheckUpsampling(size.width, size.height);
  }
  const int factor = settings.upsample ? 2 : 1;
  ComputeTileGeometry(factor * size.width, factor * size.height, kWindow, settings.stride);
}

cv::Mat ProcessImage(const cv::Mat& source, const ProcessingSettings& settings,
                     TileInferenceFn inferTile, const RunControl& control,
                     const LinearReports& reports) {
  return WithBadAlloc([&] {
    CheckInference(settings.stride, inferTile);
    CheckSource(source, settings.linear);
    CheckImageSize(source.size(), settings);
    ThrowIfStopRequested(control);
    cv::Mat starless =
        settings.linear
            ? ProcessLinearData(source, settings, std::move(inferTile), control, reports)
            : ProcessDisplayData(source, settings, std::move(inferTile), control);
    ThrowIfStopRequested(control);
    return starless;
  });
}

}  // namespace project_lumen::core
