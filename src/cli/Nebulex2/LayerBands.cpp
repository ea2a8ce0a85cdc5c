#include "cli/Nebulex2/LayerBands.h"

#include <cstdint>
#include <opencv2/core.hpp>

#include "common/RowBands.h"
#include "core/StarLayers.h"

namespace project_lumen::cli {
namespace {

// Calls `use` with the source's rows in float64, those of the starless image, and their place.
template <typename Use>
void ForEachBand(const LayerInputs& inputs, Use use) {
  cv::Mat original;
  ForEachRowBand(inputs.source, [&](const cv::Range& rows) {
    inputs.source.rowRange(rows).convertTo(original, CV_64F);
    use(original, inputs.readBack(rows), rows);
  });
}

}  // namespace

void CheckLayerInputs(const LayerInputs& inputs, bool wantUnscreen, const DiagnosticsSink& sink) {
  std::uint64_t suppressed = 0;
  ForEachBand(inputs, [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range&) {
    suppressed += wantUnscreen ? core::CountSuppressedSamples(original, starless) : 0;
  });
  if (suppressed > 0) {
    EmitWarning(sink, WarningKind::kDataLoss, core::SuppressionWarning(suppressed));
  }
}

void ComputeLayer(const LayerInputs& inputs, io::OutputRole role,
                  const std::function<void(const cv::Mat& layer, const cv::Range& rows)>& take) {
  ForEachBand(inputs, [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range& rows) {
    take(role == io::OutputRole::kUnscreen
             ? core::ComputeUnscreenStarLayer(original, starless, nullptr)
             : core::ComputeStarMask(original, starless),
         rows);
  });
}

}  // namespace project_lumen::cli
