#include "core/TiledInference.h"

#include <array>
#include <cstddef>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "common/Vectorised.h"
#include "core/FiniteSamples.h"
#include "core/Image.h"
#include "core/ReflectPadding.h"
#include "core/TileBlending.h"
#include "core/TileGeometry.h"

namespace project_lumen::core {
namespace {

constexpr std::size_t kChannels = 3;

void CheckRequest(const cv::Mat& image, std::int32_t window, std::int32_t stride) {
  if (image.empty() || image.type() != CV_32FC3) {
    throw std::invalid_argument("Tiled inference requires float32 RGB pixels.");
  }
  if (window < 1 || stride < 1 || stride > window || (window - stride) % 2 != 0) {
    throw std::invalid_argument("Invalid inference window or stride.");
  }
}

void ReportProgress(const std::function<bool(int, int)>& progress, int done, int total) {
  if (progress && !progress(done, total)) {
    throw Cancelled();
  }
}

// Whether every pixel of a continuous tile has the finite colour of the first one. Comparing each
// sample with the pixel before it is enough, because equality carries over, and it vectorises.
bool IsUniform(const cv::Mat& tile) {
  const auto* first = tile.ptr<float>();
  if (!AllFinite(first, kChannels)) {
    return false;
  }
  const std::size_t count = static_cast<std::size_t>(tile.cols) * kChannels;
  for (int r = 0; r < tile.rows; ++r) {
    const auto* row = tile.ptr<float>(r);
    unsigned differing = 0;
    for (std::size_t k = 0; k < kChannels; ++k) {
      differing |= static_cast<unsigned>(row[k] != first[k]);
    }
    for (std::size_t i = kChannels; i < count; ++i) {
      differing |= static_cast<unsigned>(row[i] != row[i - kChannels]);
    }
    if (differing != 0) {
      return false;
    }
  }
  return true;
}

// A tile that a callback has kept stays as it is; otherwise its memory serves the next one.
void ReleaseIfShared(cv::Mat& tile) {
  if (tile.u != nullptr && tile.u->refcount > 1) {
    tile.release();
  }
}

void CheckOutput(const cv::Mat& output, std::int32_t window) {
  if (output.type() != CV_32FC3 || output.rows != window || output.cols != window) {
    throw std::runtime_error("Inference returned an invalid tile shape or type.");
  }
  const std::size_t count = static_cast<std::size_t>(window) * kChannels;
  for (int r = 0; r < window; ++r) {
    if (!AllFinite(output.ptr<float>(r), count)) {
      throw std::runtime_error("Inference returned non-finite samples.");
    }
  }
}

cv::Mat InferChecked(const cv::Mat& tile, const std::function<cv::Mat(const cv::Mat&)>& inferTile) {
  cv::Mat output = IsUniform(tile) ? tile : inferTile(tile);
  CheckOutput(output, tile.rows);
  return output;
}

// Adds a row of samples, each times its column's weight and the row's. That product is formed in
// double precision and rounded once.
NEBULEX_VECTORISED void AddWeightedRow(const float* output, const double* columnWeights,
                                       double rowWeight, std::size_t count, float* sum) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto weight = static_cast<float>(columnWeights[i] * rowWeight);
    const float weighted = output[i] * weight;
    sum[i] += weighted;
  }
}

// Adds weighted tile outputs into the accumulator. Weights are separable and depend on a tile's
// place only through being first or last along an axis, so four weight tables an axis serve all
// tiles.
class TileBlender {
 public:
  explicit TileBlender(const TileGeometry& geometry)
      : geometry_(geometry), region_(ComputeBlendRegion(geometry)) {
    for (const bool first : {false, true}) {
      for (const bool last : {false, true}) {
        FillTables(first, last);
      }
    }
  }

  // What lies beyond the image is dropped.
  void Add(const cv::Mat& output, int tileX, int tileY, cv::Mat& sum) const {
    const std::vector<double>& columnWeights =
        sampleWeights_[TableIndex(tileX == 0, tileX == geometry_.LastTileX())];
    const std::vector<double>& rowWeights =
        pixelWeights_[TableIndex(tileY == 0, tileY == geometry_.LastTileY())];
    const cv::Rect region(tileX + region_.start, tileY + region_.start, region_.side, region_.side);
    const cv::Rect image(geometry_.leftPad, geometry_.topPad, geometry_.width, geometry_.height);
    const cv::Rect area = region & image;
    const std::size_t skipped = static_cast<std::size_t>(area.x - region.x) * kChannels;
    const std::size_t count = static_cast<std::size_t>(area.width) * kChannels;
    for (int row = area.y; row < area.y + area.height; ++row) {
      AddWeightedRow(output.ptr<cv::Vec3f>(row - tileY, area.x - tileX)->val,
                     columnWeights.data() + skipped,
                     rowWeights[static_cast<std::size_t>(row - region.y)], count,
                     sum.ptr<cv::Vec3f>(row - image.y, area.x - image.x)->val);
    }
  }

 private:
  static std::size_t TableIndex(bool first, bool last) {
    return (first ? 1U : 0U) + (last ? 2U : 0U);
  }

  void FillTables(bool first, bool last) {
    std::vector<double>& pixels = pixelWeights_[TableIndex(first, last)];
    std::vector<double>& samples = sampleWeights_[TableIndex(first, last)];
    for (std::int32_t t = region_.start; t < region_.start + region_.side; ++t) {
      const double weight = TileBlendWeight(geometry_, first, last, t);
      pixels.push_back(weight);
      samples.insert(samples.end(), kChannels, weight);
    }
  }

  TileGeometry geometry_;
  BlendRegion region_;
  std::array<std::vector<double>, 4> pixelWeights_;   // one weight a pixel of the blend region
  std::array<std::vector<double>, 4> sampleWeights_;  // the same, one a sample of a row
};

}  // namespace

cv::Mat RunTiledInference(const cv::Mat& image, std::int32_t window, std::int32_t stride,
                          const std::function<bool(int, int)>& progress,
                          const std::function<cv::Mat(const cv::Mat&)>& inferTile, cv::Mat sum) {
  CheckRequest(image, window, stride);
  const TileGeometry geometry = ComputeTileGeometry(image.cols, image.rows, window, stride);
  ReportProgress(progress, 0, geometry.tileCount);

  if (sum.empty()) {
    sum = cv::Mat(image.size(), CV_32FC3, cv::Scalar::all(0.0));
  }
  const TileBlender blender(geometry);
  cv::Mat tile;
  int done = 0;
  for (int tileX = 0; tileX <= geometry.LastTileX(); tileX += stride) {
    for (int tileY = 0; tileY <= geometry.LastTileY(); tileY += stride) {
      ReleaseIfShared(tile);
      PadReflect101(image, geometry, {tileX, tileY, window, window}, tile);
      blender.Add(InferChecked(tile, inferTile), tileX, tileY, sum);
      ReportProgress(progress, ++done, geometry.tileCount);
    }
  }
  return sum;
}

}  // namespace project_lumen::core
