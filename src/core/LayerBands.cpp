#include "core/LayerBands.h"

#include <opencv2/core.hpp>

#include "common/OutOfMemory.h"
#include "common/RowBands.h"
#include "core/StarLayers.h"

namespace project_lumen::core {
namespace {

// Calls `use` with the source's rows in float64, those of the starless image, and their place,
// where `isNeeded` says so of the source's rows.
template <typename IsNeeded, typename Use>
void ForEachBand(const LayerInputs& inputs, IsNeeded isNeeded, Use use) {
  WithBadAlloc([&] {
    cv::Mat original;
    ForEachRowBand(inputs.source, [&](const cv::Range& rows) {
      const cv::Mat part = inputs.source.rowRange(rows);
      if (isNeeded(part)) {
        part.convertTo(original, CV_64F);
        use(original, inputs.storedRows(rows), rows);
      }
    });
  });
}

}  // namespace

std::uint64_t CheckLayerInputs(const LayerInputs& inputs, bool wantUnscreen) {
  const auto isNeeded = [&](const cv::Mat& source) {
    return inputs.canStoredRowsFail || (wantUnscreen && MayHaveSuppressedSamples(source));
  };
  std::uint64_t suppressed = 0;
  ForEachBand(inputs, isNeeded,
              [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range&) {
                suppressed += wantUnscreen ? CountSuppressedSamples(original, starless) : 0;
              });
  return suppressed;
}

void ComputeLayer(const LayerInputs& inputs, StarLayer layer,
                  const std::function<void(const cv::Mat& part, const cv::Range& rows)>& take) {
  ForEachBand(
      inputs, [](const cv::Mat&) { return true; },
      [&](const cv::Mat& original, const cv::Mat& starless, const cv::Range& rows) {
        take(layer == StarLayer::kUnscreen ? ComputeUnscreenStarLayer(original, starless, nullptr)
                                           : ComputeStarMask(original, starless),
             rows);
      });
}

}  // namespace project_lumen::core
