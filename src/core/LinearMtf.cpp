#include "core/LinearMtf.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "core/MtfTransfer.h"
#include "core/SampleRows.h"

namespace project_lumen::core {
namespace {

void CheckRequest(const cv::Mat& image, const std::vector<MtfChannelStats>& stats) {
  CheckMtfImage(image);
  if (stats.size() != static_cast<std::size_t>(image.channels())) {
    throw std::invalid_argument("Linear MTF channel parameters do not match the image.");
  }
}

// Replaces every sample x by transfer(x, its channel's statistics).
template <typename Transfer>
void TransformSamples(cv::Mat& image, const std::vector<MtfChannelStats>& stats,
                      Transfer transfer) {
  const std::size_t count = SamplesPerRow(image);
  for (int r = 0; r < image.rows; ++r) {
    auto* row = image.ptr<float>(r);
    for (std::size_t i = 0; i < count; i += stats.size()) {
      for (std::size_t k = 0; k < stats.size(); ++k) {
        row[i + k] = static_cast<float>(transfer(static_cast<double>(row[i + k]), stats[k]));
      }
    }
  }
}

}  // namespace

void ApplyLinearMtf(cv::Mat& image, const std::vector<MtfChannelStats>& stats) {
  CheckRequest(image, stats);
  TransformSamples(image, stats, [](double x, const MtfChannelStats& channel) {
    return MtfForward(channel.midtones, x - channel.shadows);
  });
}

void InvertLinearMtf(cv::Mat& image, const std::vector<MtfChannelStats>& stats) {
  CheckRequest(image, stats);
  TransformSamples(image, stats, [](double y, const MtfChannelStats& channel) {
    return MtfInverse(channel.midtones, y) + channel.shadows;
  });
}

cv::Mat ComputeShadowMask(const cv::Mat& image, const std::vector<MtfChannelStats>& stats) {
  CheckRequest(image, stats);
  cv::Mat mask(image.size(), CV_MAKETYPE(CV_8U, image.channels()));
  const std::size_t count = SamplesPerRow(image);
  for (int r = 0; r < image.rows; ++r) {
    const auto* row = image.ptr<float>(r);
    auto* maskRow = mask.ptr<std::uint8_t>(r);
    for (std::size_t i = 0; i < count; i += stats.size()) {
      for (std::size_t k = 0; k < stats.size(); ++k) {
        maskRow[i + k] = stats[k].Clips(static_cast<double>(row[i + k])) ? 255 : 0;
      }
    }
  }
  return mask;
}

void RestoreMaskedSamples(const cv::Mat& source, const cv::Mat& mask, cv::Mat& output) {
  CheckMtfImage(output);
  if (source.size() != output.size() || source.type() != output.type()) {
    throw std::invalid_argument("Linear MTF source does not match the output image.");
  }
  if (mask.size() != output.size() || mask.depth() != CV_8U ||
      mask.channels() != output.channels()) {
    throw std::invalid_argument("Linear MTF clipped-sample mask does not match the output image.");
  }
  const std::size_t count = SamplesPerRow(output);
  for (int r = 0; r < output.rows; ++r) {
    const auto* sourceRow = source.ptr<float>(r);
    const auto* maskRow = mask.ptr<std::uint8_t>(r);
    auto* outputRow = output.ptr<float>(r);
    for (std::size_t i = 0; i < count; ++i) {
      outputRow[i] = maskRow[i] != 0 ? sourceRow[i] : outputRow[i];
    }
  }
}

}  // namespace project_lumen::core
