#include "cli/Nebulex2/LayerBands.h"

#include <cstdint>
#include <opencv2/core.hpp>

#include "common/RowBands.h"
#include "core/StarLayers.h"

namespace project_lumen::cli {
namespace {

// Calls `use` with the source's rows in float64, those of the starless image, and their place,
// where `isNeeded` says so of the source's rows.
template <typename IsNeeded, typename Use>
void ForEachBand(const LayerInputs& inputs, IsNeeded isNeeded, Use use) {
  cv::Mat original;
  ForEachRowBand(inputs.source, [&](const cv::Range& rows) {
    const cv::Mat part = inputs.source.rowRange(rows);
    if (isNeeded(part)) {
      part.convertTo(original, CV_64F);
      use(original, inputs.readBack(rows), rows);
    }
  });
}

}  // namespace

void CheckLayerInputs(const LayerInputs& inputs, bool wantUnscreen, const DiagnosticsSink& sink) {
  const auto isNeeded = [&](const cv::Mat& source) {
    return inputs.canReadBackFail || (wantUnscreen && core::MayHaveSuppressedSamples(source));
  };
  std::uint64_t suppressed = 0;
  ForEachBand(inputs, isNeeded,
              [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range&) {
                suppressed += wantUnscreen ? core::CountSuppressedSamples(original, starless) : 0;
              });
  if (suppressed > 0) {
    EmitWarning(sink, WarningKind::kDataLoss, core::SuppressionWarning(suppressed));
  }
}

void ComputeLayer(const LayerInputs& inputs, io::OutputRole role,
                  const std::function<void(const cv::Mat& layer, const cv::Range& rows)>& take) {
  ForEachBand(
      inputs, [](const cv::Mat&) { return true; },
      [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range& rows) {
        take(role == io::OutputRole::kUnscreen
                 ? core::ComputeUnscreenStarLayer(original, starless, nullptr)
                 : core::ComputeStarMask(original, starless),
             rows);
      });
}

}  // namespace project_lumen::cli
