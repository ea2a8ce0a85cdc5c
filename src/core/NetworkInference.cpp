#include "core/NetworkInference.h"

#include <cstddef>
#include <stdexcept>
#include <utility>

#include <opencv2/core.hpp>

#include "common/GridAlignedResample.h"
#include "core/FloatImageChannels.h"
#include "core/ImageConversion.h"
#include "core/SettingRules.h"
#include "core/TiledInference.h"

namespace project_lumen::core {
namespace {

constexpr std::int32_t kTileChannels = 3;
constexpr std::size_t kTileSamples = std::size_t{kWindow} * kWindow * kTileChannels;

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

}  // namespace

void CheckInference(std::int32_t stride, const TileInferenceFn& inferTile) {
  if (!inferTile) {
    throw std::invalid_argument("A tile inference callback is required.");
  }
  if (!IsWithinWindow(stride) || !IsEven(stride)) {
    throw std::invalid_argument("Stride must be positive, even, and at most 512.");
  }
}

void CheckUpsampling(std::int32_t width, std::int32_t height) {
  constexpr std::int32_t kLargestSide = 0x3FFFFFFF;
  if (width > kLargestSide || height > kLargestSide) {
    throw std::invalid_argument("Image dimensions exceed the 2x upsampling limit.");
  }
}

cv::Mat MakeWorkingImage(const cv::Mat& source, bool upsample) {
  const cv::Mat colour = source.channels() == 1 ? GrayToRgb(source) : source;
  return upsample ? UpsampleGridCubic2x(colour) : colour;
}

cv::Mat InferImage(const cv::Mat& image, std::int32_t stride, const TileInferenceFn& inferTile,
                   const RunControl& control, cv::Mat sum) {
  Image answer;
  return RunTiledInference(
      image, kWindow, stride,
      [&control](int done, int total) {
        ThrowIfStopRequested(control);
        return !control.progress || control.progress(done, total);
      },
      [&control, &inferTile, &answer](const cv::Mat& tile) {
        ThrowIfStopRequested(control);
        return InferTile(tile, inferTile, answer);
      },
      std::move(sum));
}

}  // namespace project_lumen::core
