// What every model of the command line shares: it sends an image through the core and says in
// records what the core finds out.
#pragma once

#include <functional>
#include <opencv2/core/mat.hpp>
#include <vector>

#include "common/Diagnostics.h"
#include "core/ImageProcessing.h"

namespace project_lumen::cli {

class DLModelBase {
 public:
  explicit DLModelBase(DiagnosticsSink sink) : sink_(sink) {}
  virtual ~DLModelBase() = default;
  DLModelBase(const DLModelBase&) = delete;
  DLModelBase& operator=(const DLModelBase&) = delete;

  // Scale 2.0 upsamples on the same grid (UpsampleGridCubic2x), scale 0.5 takes the even samples
  // back (DownsampleGrid2x). Any other scale is an assertion failure.
  static cv::Mat RescaleImage(const cv::Mat& image, double scale);

 protected:
  // core::ProcessImage, with records of the linear preparation and of the samples restored at its
  // end. `fixedDivisor` is the source's K, for shadows in physical units.
  cv::Mat ProcessImage(const cv::Mat& source, double fixedDivisor,
                       const core::ProcessingSettings& settings, core::TileInferenceFn inferTile,
                       const std::function<bool(int, int)>& progress);

  [[nodiscard]] const DiagnosticsSink& Sink() const { return sink_; }
  // The transfer of each channel of the working image; empty unless a linear image was processed.
  [[nodiscard]] const std::vector<core::LinearChannelStats>& LinearChannels() const {
    return linearChannels_;
  }

 private:
  DiagnosticsSink sink_;
  std::vector<core::LinearChannelStats> linearChannels_;
};

}  // namespace project_lumen::cli
