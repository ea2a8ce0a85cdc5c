#include "core/StarRemoval.h"

#include <cstddef>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "common/GridAlignedResample.h"
#include "core/ImageConversion.h"
#include "core/LinearMtf.h"
#include "core/MtfStatistics.h"
#include "core/StarLayers.h"
#include "core/TiledInference.h"

namespace project_lumen::core {
namespace {

constexpr std::int32_t kWindow = 512;
constexpr std::int32_t kTileChannels = 3;
constexpr std::size_t kTileSamples = std::size_t{kWindow} * kWindow * kTileChannels;
constexpr std::int32_t kLargestUpsampledSide = 0x3FFFFFFF;

void CheckRequest(const StarRemovalOptions& options, const TileInferenceFn& inferTile) {
  if (!inferTile) {
    throw std::invalid_argument("A tile inference callback is required.");
  }
  if (options.stride < 1 || options.stride > kWindow || options.stride % 2 != 0) {
    throw std::invalid_argument("Stride must be positive, even, and at most 512.");
  }
}

// The float32 RGB image that inference runs on, on the input's grid or the doubled one.
cv::Mat MakeWorkingImage(const ImageView& input, const StarRemovalOptions& options,
                         const StarRemovalCallbacks& callbacks) {
  if (options.upsample2x &&
      (input.width > kLargestUpsampledSide || input.height > kLargestUpsampledSide)) {
    throw std::invalid_argument("Image dimensions exceed the 2x upsampling limit.");
  }
  cv::Mat working = ToWorkingMat(input);
  if (options.upsample2x) {
    working = UpsampleGridCubic2x(working);
    ThrowIfStopRequested(callbacks);
  }
  return working;
}

// Hands one tile to the callback as a plain image and takes its answer, which owns what is
// returned.
cv::Mat InferTile(const cv::Mat& tile, const TileInferenceFn& inferTile, Image& answer) {
  answer = inferTile({.data = tile.ptr<float>(),
                      .sampleCount = kTileSamples,
                      .width = kWindow,
                      .height = kWindow,
                      .channels = kTileChannels});
  if (answer.width != kWindow || answer.height != kWindow || answer.channels != kTileChannels ||
      answer.samples.size() != kTileSamples) {
    throw std::runtime_error("Inference returned an invalid image buffer.");
  }
  return WrapSamples(answer);
}

// Adds the network's output to `starless`, which is as AddTiledInference takes it.
void InferImage(const cv::Mat& image, const StarRemovalOptions& options,
                const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks,
                cv::Mat& starless) {
  Image answer;
  AddTiledInference(
      image, kWindow, options.stride,
      [&callbacks](int done, int total) {
        ThrowIfStopRequested(callbacks);
        return !callbacks.progress || callbacks.progress(done, total);
      },
      [&callbacks, &inferTile, &answer](const cv::Mat& tile) {
        ThrowIfStopRequested(callbacks);
        return InferTile(tile, inferTile, answer);
      },
      starless);
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

// Stretches linear data for the network and returns its output, which becomes `starless` as
// InferImage does it, to linear values. Samples that the stretch clips come back from the original.
void InferLinearImage(const cv::Mat& original, const StarRemovalOptions& options,
                      const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks,
                      cv::Mat& starless) {
  const std::vector<MtfChannelStats> stats =
      ComputeMtfStatistics(original, options.shadowsClipping, options.targetBackground);
  const cv::Mat shadowMask = ComputeShadowMask(original, stats);
  cv::Mat stretched = original.clone();
  ApplyLinearMtf(stretched, stats);
  ReportTransfer(stats, callbacks);
  InferImage(stretched, options, inferTile, callbacks, starless);
  stretched.release();
  InvertLinearMtf(starless, stats);
  RestoreMaskedSamples(original, shadowMask, starless);
}

// The starless image on the working grid, in `starless` as AddTiledInference takes it.
void ComputeStarless(const cv::Mat& original, const StarRemovalOptions& options,
                     const TileInferenceFn& inferTile, const StarRemovalCallbacks& callbacks,
                     cv::Mat& starless) {
  if (options.linearMtf) {
    InferLinearImage(original, options, inferTile, callbacks, starless);
  } else {
    InferImage(original, options, inferTile, callbacks, starless);
  }
  if (options.protectHighlights) {
    ProtectHighlightsInPlace(original, starless);
  }
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
  cv::Mat original = MakeWorkingImage(input, options, callbacks);
  const cv::Size size(input.width, input.height);
  if (original.size() == size && input.channels == kTileChannels) {
    Image image = MakeImage(input);
    cv::Mat starless = WrapSamples(image);
    ComputeStarless(original, options, inferTile, callbacks, starless);
    ThrowIfStopRequested(callbacks);
    return image;
  }
  cv::Mat starless;
  ComputeStarless(original, options, inferTile, callbacks, starless);
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
  if (callbacks.stopRequested && callbacks.stopRequested()) {
    throw Cancelled();
  }
}

StarRemovalResult RemoveStars(const ImageView& input, const StarRemovalOptions& options,
                              const TileInferenceFn& inferTile,
                              const StarRemovalCallbacks& callbacks) {
  CheckRequest(options, inferTile);
  ThrowIfStopRequested(callbacks);
  StarRemovalResult result;
  result.starless = MakeStarless(input, options, inferTile, callbacks);
  ComputeLayers(input, options, callbacks, result);
  ThrowIfStopRequested(callbacks);
  return result;
}

}  // namespace project_lumen::core
