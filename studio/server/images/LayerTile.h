// What is shown of an image and its results: tiles of 8 bits.
#pragma once

#include <memory>
#include <opencv2/core/mat.hpp>
#include <optional>
#include <string>
#include <vector>

#include "core/MtfStatistics.h"
#include "studio/images/PixelPyramid.h"

namespace project_lumen::studio {

constexpr int kTileSize = 256;

// The pictures that all layers of an image are made of; both have one size and as many channels.
struct LayerPictures {
  std::shared_ptr<const PixelPyramid> source;
  std::shared_ptr<const PixelPyramid> starless;  // null without a result
};

enum class Layer { kSource, kStarless, kMask, kUnscreen, kBlend };

std::optional<Layer> LayerOfName(std::string_view name);

struct TileLook {
  Layer layer = Layer::kSource;
  // The stretch of each channel; empty for none. The source's for every layer.
  std::vector<core::MtfChannelStats> stretch;
  double gain = 1.0;    // multiplies what is shown
  double amount = 1.0;  // of the stars in a blend, within [0, 1]
  double curve = 1.0;   // exponent of the unscreen layer, above 0
};

// Where a tile lies in its level; none where there is no such tile.
std::optional<cv::Rect> TileArea(cv::Size image, int level, int column, int row);

// A part of a level as it is shown: 8 bits, grey or in R, G, B order. A sample v becomes 255 v,
// held within [0, 255] and rounded to nearest.
//   source, starless: the stretched samples
//   mask: stretched source minus stretched starless, held within [0, 1]
//   unscreen: what, screened over the stretched starless samples, gives the stretched source, to
//     the power of `curve`
//   blend: starless + amount x unscreen^curve x (1 - starless), then the stretch
cv::Mat RenderLayer(const LayerPictures& pictures, const TileLook& look, int level,
                    const cv::Rect& area);

// The bytes of a PNG file of such a picture.
std::string EncodePng(const cv::Mat& picture);

}  // namespace project_lumen::studio
