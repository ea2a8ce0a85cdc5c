#include "studio/images/LayerTile.h"

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <utility>

#include "core/MtfTransfer.h"
#include "core/StarLayers.h"
#include "studio/results/Blend.h"

namespace project_lumen::studio {
namespace {

void Stretch(cv::Mat& samples, const std::vector<core::MtfChannelStats>& channels) {
  if (channels.empty()) {
    return;
  }
  for (int r = 0; r < samples.rows; ++r) {
    auto* row = samples.ptr<float>(r);
    const std::size_t count = static_cast<std::size_t>(samples.cols) * channels.size();
    for (std::size_t i = 0; i < count; i += channels.size()) {
      for (std::size_t c = 0; c < channels.size(); ++c) {
        row[i + c] = static_cast<float>(core::MtfForward(
            channels[c].midtones, static_cast<double>(row[i + c]) - channels[c].shadows));
      }
    }
  }
}

cv::Mat ReadStretched(const PixelPyramid& picture, const TileLook& look, int level,
                      const cv::Rect& area) {
  cv::Mat samples = picture.Read(level, area);
  Stretch(samples, look.stretch);
  return samples;
}

cv::Mat RenderBlend(const LayerPictures& pictures, const TileLook& look, int level,
                    const cv::Rect& area) {
  cv::Mat starless;
  pictures.starless->Read(level, area).convertTo(starless, CV_64F);
  cv::Mat source;
  pictures.source->Read(level, area).convertTo(source, CV_64F);
  const cv::Mat unscreen = core::ComputeUnscreenStarLayer(source, starless, nullptr);
  cv::Mat blend;
  BlendStars(starless, unscreen, {look.amount, look.curve}).convertTo(blend, CV_32F);
  Stretch(blend, look.stretch);
  return blend;
}

cv::Mat RenderSamples(const LayerPictures& pictures, const TileLook& look, int level,
                      const cv::Rect& area) {
  if (look.layer == Layer::kSource) {
    return ReadStretched(*pictures.source, look, level, area);
  }
  if (look.layer == Layer::kStarless) {
    return ReadStretched(*pictures.starless, look, level, area);
  }
  if (look.layer == Layer::kBlend) {
    return RenderBlend(pictures, look, level, area);
  }
  const cv::Mat source = ReadStretched(*pictures.source, look, level, area);
  const cv::Mat starless = ReadStretched(*pictures.starless, look, level, area);
  if (look.layer == Layer::kMask) {
    return core::ComputeStarMask(source, starless);
  }
  cv::Mat unscreen = core::ComputeUnscreenStarLayer(source, starless, nullptr);
  if (look.curve != 1.0) {
    cv::pow(unscreen, look.curve, unscreen);
  }
  return unscreen;
}

}  // namespace

std::optional<Layer> LayerOfName(std::string_view name) {
  constexpr std::pair<std::string_view, Layer> kNames[] = {{"source", Layer::kSource},
                                                           {"starless", Layer::kStarless},
                                                           {"mask", Layer::kMask},
                                                           {"unscreen", Layer::kUnscreen},
                                                           {"blend", Layer::kBlend}};
  for (const auto& [known, layer] : kNames) {
    if (known == name) {
      return layer;
    }
  }
  return std::nullopt;
}

std::optional<cv::Rect> TileArea(cv::Size image, int level, int column, int row) {
  if (level < 0 || level > HighestLevel(image)) {
    return std::nullopt;
  }
  const cv::Size size = LevelSize(image, level);
  // Compared by division, since products of what a request says could be too large.
  if (column < 0 || row < 0 || column > (size.width - 1) / kTileSize ||
      row > (size.height - 1) / kTileSize) {
    return std::nullopt;
  }
  const cv::Rect tile(column * kTileSize, row * kTileSize, kTileSize, kTileSize);
  return tile & cv::Rect({}, size);
}

cv::Mat RenderLayer(const LayerPictures& pictures, const TileLook& look, int level,
                    const cv::Rect& area) {
  constexpr double kWhite = 255.0;
  cv::Mat picture;
  RenderSamples(pictures, look, level, area).convertTo(picture, CV_8U, kWhite * look.gain);
  return picture;
}

std::string EncodePng(const cv::Mat& picture) {
  cv::Mat ordered = picture;
  if (picture.channels() == 3) {
    cv::cvtColor(picture, ordered, cv::COLOR_RGB2BGR);
  }
  std::vector<unsigned char> bytes;
  // Without parameters OpenCV compresses for speed, which noise makes smaller, too, than level 1.
  cv::imencode(".png", ordered, bytes);
  return {bytes.begin(), bytes.end()};
}

}  // namespace project_lumen::studio
