#include "cli/DLModelBase.h"

#include <opencv2/core.hpp>
#include <utility>

#include "common/Assertion.h"
#include "common/GridAlignedResample.h"
#include "core/LinearRecords.h"

namespace project_lumen::cli {

cv::Mat DLModelBase::RescaleImage(const cv::Mat& image, double scale) {
  NEBULEX_ASSERT("project_lumen::cli::DLModelBase::RescaleImage", scale == 2.0 || scale == 0.5);
  if (scale == 2.0) {
    return UpsampleGridCubic2x(image);
  }
  return DownsampleGrid2x(image, cv::Size(image.cols / 2, image.rows / 2));
}

cv::Mat DLModelBase::ProcessImage(const cv::Mat& source, double fixedDivisor,
                                  const core::ProcessingSettings& settings,
                                  core::TileInferenceFn inferTile,
                                  const std::function<bool(int, int)>& progress) {
  if (!settings.linear) {
    Emit(sink_, core::NotLinearRecord());
  }
  core::LinearReports reports = core::ReportsAsRecords(
      settings, fixedDivisor, [this](const Diagnostic& record) { Emit(sink_, record); });
  reports.transfer = [this, tell = std::move(reports.transfer)](
                         const std::vector<core::LinearChannelStats>& channels) {
    linearChannels_ = channels;
    tell(channels);
  };
  return core::ProcessImage(source, settings, std::move(inferTile), {.progress = progress},
                            reports);
}

}  // namespace project_lumen::cli
