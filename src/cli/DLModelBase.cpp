#include "cli/DLModelBase.h"

#include <cstdint>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>

#include "common/Assertion.h"
#include "common/GridAlignedResample.h"
#include "common/NumberText.h"
#include "common/RangeStatistics.h"

namespace project_lumen::cli {
namespace {

void WarnOfClippedWorkingSamples(const DiagnosticsSink& sink, const cv::Mat& working) {
  constexpr double kNormalised = 1.0;
  const RangeStatistics range = MeasureRange(working, kNormalised).image;
  if (range.aboveOne > 0) {
    EmitWarning(
        sink, WarningKind::kDataLoss,
        "Pre-MTF working-grid samples above 1 are clipped. " + DescribeRange(range, kNormalised));
  }
}

// How many samples of one channel went back to their source values.
struct RestoredCount {
  std::uint64_t shadow = 0;
  std::uint64_t additionalConstant = 0;
};

RestoredCount RestoreChannel(const cv::Mat& source, cv::Mat& image, int channel,
                             const core::LinearChannelStats& stats, bool restoreShadows) {
  RestoredCount count;
  const int step = source.channels();
  for (int r = 0; r < source.rows; ++r) {
    const auto* from = source.ptr<double>(r) + channel;
    auto* to = image.ptr<double>(r) + channel;
    for (int c = 0; c < source.cols; ++c, from += step, to += step) {
      const bool inShadow = stats.shadows >= *from;
      if (stats.constant || (restoreShadows && inShadow)) {
        *to = *from;
        count.shadow += inShadow ? 1U : 0U;
        count.additionalConstant += inShadow ? 0U : 1U;
      }
    }
  }
  return count;
}

}  // namespace

cv::Mat DLModelBase::RescaleImage(const cv::Mat& image, double scale) {
  NEBULEX_ASSERT("project_lumen::cli::DLModelBase::RescaleImage", scale == 2.0 || scale == 0.5);
  if (scale == 2.0) {
    return UpsampleGridCubic2x(image);
  }
  return DownsampleGrid2x(image, cv::Size(image.cols / 2, image.rows / 2));
}

void DLModelBase::PrepareLinearInput(const LinearSettings& settings, const cv::Mat& working,
                                     const cv::Mat& sourceSamples, double fixedDivisor) {
  settings_ = settings;
  mtf_.reset();
  channels_.clear();
  prepared_.release();
  sourceOutput_.release();
  if (!settings.linear) {
    EmitInfo(sink_, "linear_mtf", "disabled; no automatic stretch or inverse transform");
    return;
  }
  if (working.empty() || working.depth() != CV_64F) {
    throw std::invalid_argument("Linear preparation requires a nonempty float64 input.");
  }
  WarnOfClippedWorkingSamples(sink_, working);
  // The input is normalised already.
  constexpr double kWorkingDivisor = 1.0;
  mtf_.emplace(working, kWorkingDivisor, settings.shadowsClipping, settings.targetBackground);
  channels_ = mtf_->Channels();
  prepared_ = mtf_->Stretch();
  sourceOutput_ = sourceSamples;
  ReportLinearChannels(fixedDivisor);
}

void DLModelBase::ReportLinearChannels(double fixedDivisor) const {
  int number = 0;
  for (const core::LinearChannelStats& stats : channels_) {
    ++number;
    EmitInfo(sink_, "linear_mtf",
             "channel=" + std::to_string(number) + " median=" + FormatReal(stats.median) +
                 " normalized_MAD=" + FormatReal(stats.normalizedMad) +
                 " shadows=" + FormatReal(stats.shadows) +
                 " physical_shadows=" + FormatReal(stats.shadows * fixedDivisor) +
                 " midtones=" + FormatReal(stats.midtones) +
                 " shadows_multiplier=" + FormatReal(settings_.shadowsClipping) +
                 " target_background=" + FormatReal(settings_.targetBackground) +
                 " working_grid_clipped=" + std::to_string(stats.atOrBelowShadows) + " constant=" +
                 (stats.constant ? "1" : "0") + "; MTF/inverse=float64; inference=float32");
  }
}

void DLModelBase::RestoreFinalLinearSamples(cv::Mat& image) const {
  if (!settings_.linear) {
    return;
  }
  const cv::Mat& sourceOutput = sourceOutput_;
  NEBULEX_ASSERT("project_lumen::cli::DLModelBase::RestoreFinalLinearSamples",
                 image.type() == sourceOutput.type() && image.size() == sourceOutput.size());
  for (int channel = 0; channel < sourceOutput.channels(); ++channel) {
    const auto& stats = channels_[static_cast<std::size_t>(channel)];
    const RestoredCount count =
        RestoreChannel(sourceOutput, image, channel, stats, settings_.restoreShadows);
    if (settings_.restoreShadows) {
      EmitInfo(sink_, "shadow_restoration",
               "final_source_grid channel=" + std::to_string(channel + 1) +
                   " restored_shadow_samples=" + std::to_string(count.shadow) +
                   " additional_constant_samples=" + std::to_string(count.additionalConstant));
    }
  }
}

}  // namespace project_lumen::cli
