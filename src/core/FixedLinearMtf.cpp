#include "core/FixedLinearMtf.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>

#include "core/ChannelSamples.h"
#include "core/MtfTransfer.h"
#include "core/SampleRows.h"
#include "core/SettingRules.h"

namespace project_lumen::core {
namespace {

void CheckLinearImage(const cv::Mat& image) {
  if (image.empty() || image.dims != 2 || image.depth() != CV_64F ||
      (image.channels() != 1 && image.channels() != 3)) {
    throw std::invalid_argument("Fixed linear MTF requires a float64 mono or RGB image.");
  }
}

void CheckOptions(double divisor, double shadowsClipping, double targetBackground) {
  if (!std::isfinite(divisor) || divisor <= 0.0) {
    throw std::invalid_argument("Linear input requires a finite positive sample-format divisor.");
  }
  if (!IsShadowsMultiplier(shadowsClipping) || !IsTargetBackground(targetBackground)) {
    throw std::invalid_argument(
        "Linear MTF requires a negative shadows multiplier and target between 0 and 1.");
  }
}

double WorkingSample(double source, double divisor) {
  return std::min(source / divisor, 1.0);
}

// Lists the channel's working samples and notes what is told by their range.
void CollectWorkingSamples(const cv::Mat& source, std::size_t channel, double divisor,
                           LinearChannelStats& stats, std::vector<double>& working) {
  double least = std::numeric_limits<double>::infinity();
  double greatest = -least;
  CollectChannel(source, channel, working, [&](double x) {
    const double quotient = x / divisor;
    if (!std::isfinite(x) || !std::isfinite(quotient)) {
      throw std::invalid_argument(
          "Linear input contains a non-finite sample or unrepresentable conversion.");
    }
    stats.aboveOne += quotient > 1.0 ? 1U : 0U;
    const double sample = WorkingSample(x, divisor);
    least = std::min(least, sample);
    greatest = std::max(greatest, sample);
    return sample;
  });
  stats.constant = least == greatest;
}

LinearChannelStats MeasureLinearChannel(const cv::Mat& source, std::size_t channel, double divisor,
                                        double shadowsClipping, double targetBackground,
                                        std::vector<double>& working) {
  LinearChannelStats stats;
  CollectWorkingSamples(source, channel, divisor, stats, working);
  static_cast<MtfChannelStats&>(stats) = MeasureChannel(working, shadowsClipping, targetBackground);
  return stats;
}

void CheckInvertible(const LinearChannelStats& stats, std::size_t channel) {
  const bool invertible = std::isfinite(stats.normalizedMad) && std::isfinite(stats.midtones) &&
                          stats.midtones > 0.0 && stats.midtones < 1.0;
  if (!stats.constant && !invertible) {
    throw std::invalid_argument("Linear input has a non-invertible MTF background in channel " +
                                std::to_string(channel + 1) +
                                ". Normalize or prepare the image upstream.");
  }
}

cv::Mat MakeWorking(const cv::Mat& source, double divisor,
                    const std::vector<LinearChannelStats>& channels) {
  const bool capped = std::any_of(channels.begin(), channels.end(),
                                  [](const LinearChannelStats& c) { return c.aboveOne != 0; });
  if (divisor == 1.0 && !capped) {
    return source;
  }
  cv::Mat working(source.size(), source.type());
  const std::size_t count = SamplesPerRow(source);
  for (int r = 0; r < source.rows; ++r) {
    const auto* row = source.ptr<double>(r);
    auto* workingRow = working.ptr<double>(r);
    for (std::size_t i = 0; i < count; ++i) {
      workingRow[i] = WorkingSample(row[i], divisor);
    }
  }
  return working;
}

void CountClipped(const cv::Mat& working, std::vector<LinearChannelStats>& channels) {
  const std::size_t count = SamplesPerRow(working);
  for (int r = 0; r < working.rows; ++r) {
    const auto* row = working.ptr<double>(r);
    for (std::size_t i = 0; i < count; i += channels.size()) {
      for (std::size_t k = 0; k < channels.size(); ++k) {
        channels[k].atOrBelowShadows += channels[k].Clips(row[i + k]) ? 1U : 0U;
      }
    }
  }
}

}  // namespace

std::vector<RestoredSamples> RestoreSamples(const cv::Mat& source,
                                            const std::vector<LinearChannelStats>& channels,
                                            cv::Mat& image) {
  std::vector<RestoredSamples> counts(static_cast<std::size_t>(source.channels()));
  const std::size_t count = SamplesPerRow(source);
  for (int r = 0; r < source.rows; ++r) {
    const auto* sourceRow = source.ptr<double>(r);
    auto* row = image.ptr<double>(r);
    for (std::size_t i = 0; i < count; i += counts.size()) {
      for (std::size_t k = 0; k < counts.size(); ++k) {
        const double sample = sourceRow[i + k];
        const bool restored = channels[k].Restores(sample);
        const bool inShadows = channels[k].Clips(sample);
        row[i + k] = restored ? sample : row[i + k];
        counts[k].inShadows += inShadows ? 1U : 0U;
        counts[k].alsoConstant += restored && !inShadows ? 1U : 0U;
      }
    }
  }
  return counts;
}

FixedLinearMtf::FixedLinearMtf(const cv::Mat& source, double divisor, double shadowsClipping,
                               double targetBackground) {
  CheckLinearImage(source);
  CheckOptions(divisor, shadowsClipping, targetBackground);
  channels_.resize(static_cast<std::size_t>(source.channels()));
  std::vector<double> working;
  for (std::size_t c = 0; c < channels_.size(); ++c) {
    channels_[c] =
        MeasureLinearChannel(source, c, divisor, shadowsClipping, targetBackground, working);
    CheckInvertible(channels_[c], c);
  }
  // The list goes before the working image comes.
  working = std::vector<double>();
  working_ = MakeWorking(source, divisor, channels_);
  CountClipped(working_, channels_);
}

cv::Mat FixedLinearMtf::Stretch() const {
  cv::Mat stretched(working_.size(), CV_MAKETYPE(CV_32F, working_.channels()));
  const std::size_t count = SamplesPerRow(working_);
  for (int r = 0; r < working_.rows; ++r) {
    const auto* row = working_.ptr<double>(r);
    auto* output = stretched.ptr<float>(r);
    for (std::size_t i = 0; i < count; i += channels_.size()) {
      for (std::size_t k = 0; k < channels_.size(); ++k) {
        const LinearChannelStats& stats = channels_[k];
        output[i + k] =
            stats.constant
                ? 0.0F
                : static_cast<float>(MtfForward(stats.midtones, row[i + k] - stats.shadows));
      }
    }
  }
  return stretched;
}

cv::Mat FixedLinearMtf::InvertLinearPrediction(const cv::Mat& prediction) const {
  if (prediction.size() != working_.size() || prediction.channels() != working_.channels() ||
      (prediction.depth() != CV_32F && prediction.depth() != CV_64F)) {
    throw std::invalid_argument("Linear MTF prediction does not match the prepared image.");
  }
  cv::Mat result;
  prediction.convertTo(result, CV_64F);
  const std::size_t count = SamplesPerRow(working_);
  for (int r = 0; r < result.rows; ++r) {
    auto* row = result.ptr<double>(r);
    for (std::size_t i = 0; i < count; i += channels_.size()) {
      for (std::size_t k = 0; k < channels_.size(); ++k) {
        const LinearChannelStats& stats = channels_[k];
        if (stats.constant) {
          continue;
        }
        if (!std::isfinite(row[i + k])) {
          throw std::invalid_argument("Linear MTF inference returned a non-finite sample.");
        }
        row[i + k] = MtfInverse(stats.midtones, row[i + k]) + stats.shadows;
      }
    }
  }
  RestoreWorkingSamples(result);
  return result;
}

void FixedLinearMtf::RestoreWorkingSamples(cv::Mat& image) const {
  CheckLinearImage(image);
  if (image.size() != working_.size() || image.type() != working_.type()) {
    throw std::invalid_argument("Linear MTF output does not match the prepared image.");
  }
  RestoreSamples(working_, channels_, image);
}

}  // namespace project_lumen::core
