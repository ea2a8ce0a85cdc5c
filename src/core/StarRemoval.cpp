#include "core/StarRemoval.h"

#include <cstddef>
#include <functional>
#include <locale>
#include <sstream>
#include <vector>

#include <opencv2/core.hpp>

#include "common/OutOfMemory.h"
#include "core/ImageConversion.h"
#include "core/LinearMtf.h"
#include "core/MtfStatistics.h"
#include "core/NetworkInference.h"
#include "core/RunControl.h"
#include "core/StarLayers.h"

namespace project_lumen::core {
namespace {

RunControl ControlOf(const StarRemovalCallbacks& callbacks) {
  RunControl control;
  if (callbacks.progress) {
    control.progress = std::cref(callbacks.progress);
  }
  if (callbacks.stopRequested) {
    control.stopRequested = std::cref(callbacks.stopRequested);
  }
  return control;
}

// The float32 RGB image that inference runs on, on the input's grid or the doubled one.
cv::Mat PrepareWorkingImage(const ImageView& input, const StarRemovalOptions& options,
                            const StarRemovalCallbacks& callbacks) {
  if (options.upsample2x) {
    CheckUpsampling(input.width, input.height);
  }
  cv::Mat working = MakeWorkingImage(ToWorkingMat(input), options.upsample2x);
  if (options.upsample2x) {
    ThrowIfStopRequested(callbacks);
  }
  return working;
}

void ReportTransfer(const std::vector<MtfChannelStats>& stats,
                    const StarRemovalCallbacks& callbacks) {
  if (!callbacks.log) {
    return;
  }
  callbacks.log("Applying automatic MTF for linear input:");
  for (std::size_t c = 0; c < stats.size(); ++c) {
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << "  channel " << c + 1 << ": median=" << stats[c].median
         << ", normalized MAD=" << stats[c].normalizedMad << ", shadows=" << stats[c].shadows
         << ", midtones=" << stats[c].midtones;
    callbacks.log(line.str());
  }
}

// Stretches linear data for the network and returns its output, which lies in `sum` as InferImage
// has it, to linear values. Samples that the stretch clips come back from the original.
cv::Mat InferLinearImage(const cv::Mat& original, const StarRemovalOptions& options,
                         const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks,
                         const cv::Mat& sum) {
  const std::vector<MtfChannelStats> stats =
      ComputeMtfStatistics(original, options.shadowsClipping, options.targetBackground);
  const cv::Mat shadowMask = ComputeShadowMask(original, stats);
  cv::Mat stretched = original.clone();
  ApplyLinearMtf(stretched, stats);
  ReportTransfer(stats, callbacks);
  cv::Mat starless = InferImage(stretched, options.stride, inferTile, ControlOf(callbacks), sum);
  stretched.release();
  InvertLinearMtf(starless, stats);
  RestoreMaskedSamples(original, shadowMask, starless);
  return starless;
}

// The starless image on the working grid, in `sum` as InferImage has it.
cv::Mat ComputeStarless(const cv::Mat& original, const StarRemovalOptions& options,
                        const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks,
                        const cv::Mat& sum = cv::Mat()) {
  cv::Mat starless =
      options.linearMtf
          ? InferLinearImage(original, options, inferTile, callbacks, sum)
          : InferImage(original, options.stride, inferTile, ControlOf(callbacks), sum);
  if (options.protectHighlights) {
    ProtectStarlessHighlights(original, starless);
  }
  return starless;
}

// An image of black samples.
Image MakeImage(const ImageView& like) {
  return {.samples = std::vector<float>(like.sampleCount),
          .width = like.width,
          .height = like.height,
          .channels = like.channels};
}

// The starless image on the input's grid and in its channels.
Image MakeStarless(const ImageView& input, const StarRemovalOptions& options,
                   const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks) {
  cv::Mat original = PrepareWorkingImage(input, options, callbacks);
  const cv::Size size(input.width, input.height);
  if (original.size() == size && input.channels == original.channels()) {
    Image image = MakeImage(input);
    ComputeStarless(original, options, inferTile, callbacks, WrapSamples(image));
    ThrowIfStopRequested(callbacks);
    return image;
  }
  const cv::Mat starless = ComputeStarless(original, options, inferTile, callbacks);
  original.release();
  ThrowIfStopRequested(callbacks);
  return ToImage(starless, input.channels, size);
}

void ComputeLayers(const ImageView& input, const StarRemovalOptions& options,
                   const StarRemovalCallbacks& callbacks, StarRemovalResult& result) {
  const cv::Size size(input.width, input.height);
  const cv::Mat original = WrapSamples(input.data, input.width, input.height, input.channels);
  const cv::Mat starless = WrapSamples(result.starless);
  if (options.computeStarMask) {
    result.starMask = ToImage(ComputeStarMask(original, starless), input.channels, size);
  }
  if (options.computeUnscreen) {
    result.unscreen =
        ToImage(ComputeUnscreenStarLayer(original, starless, callbacks.log), input.channels, size);
  }
}

}  // namespace

void ThrowIfStopRequested(const StarRemovalCallbacks& callbacks) {
  ThrowIfStopRequested(ControlOf(callbacks));
}

StarRemovalResult RemoveStars(const ImageView& input, const StarRemovalOptions& options,
                              const TileInferenceFn& inferTile,
                              const StarRemovalCallbacks& callbacks) {
  return WithBadAlloc([&] {
    CheckInference(options.stride, inferTile);
    ThrowIfStopRequested(callbacks);
    StarRemovalResult result;
    result.starless = MakeStarless(input, options, inferTile, callbacks);
    ComputeLayers(input, options, callbacks, result);
    ThrowIfStopRequested(callbacks);
    return result;
  });
}

}  // namespace project_lumen::core
