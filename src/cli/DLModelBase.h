// What every model of the command line shares: resampling by two, and the preparation and
// restoration of linear data.
#pragma once

#include <opencv2/core/mat.hpp>
#include <optional>
#include <vector>

#include "common/Diagnostics.h"
#include "core/FixedLinearMtf.h"

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

  // The last step of a linear run on the final grid: source samples take the place of results where
  // the stretch had clipped them (at or below the channel's shadows point) and in constant
  // channels. Does nothing unless the run is linear. The image must have the type and size of the
  // source samples, or an assertion fails.
  void RestoreFinalLinearSamples(cv::Mat& image) const;

 protected:
  // What the linear preparation is told.
  struct LinearSettings {
    bool linear = false;
    double shadowsClipping = 0.0;
    double targetBackground = 0.0;
    bool restoreShadows = false;
  };

  // Builds the prepared float32 image from the normalised float64 `working` image (1.0 is white,
  // physical value / `fixedDivisor`), or notes that the run is not linear. `sourceSamples` is the
  // normalised source on the final grid. Throws std::invalid_argument.
  void PrepareLinearInput(const LinearSettings& settings, const cv::Mat& working,
                          const cv::Mat& sourceSamples, double fixedDivisor);

  [[nodiscard]] const DiagnosticsSink& Sink() const { return sink_; }
  [[nodiscard]] bool IsLinear() const { return settings_.linear; }
  [[nodiscard]] core::FixedLinearMtf& LinearMtf() { return *mtf_; }
  // One record a channel, from the preparation of a linear run on.
  [[nodiscard]] const std::vector<core::LinearChannelStats>& LinearChannels() const {
    return channels_;
  }
  // Lets go of the transfer with its samples of the working grid; the final restoration needs its
  // records only.
  void DropLinearMtf() { mtf_.reset(); }
  // The stretched image for the network; empty unless the run is linear.
  [[nodiscard]] cv::Mat& Prepared() { return prepared_; }

 private:
  void ReportLinearChannels(double fixedDivisor) const;

  DiagnosticsSink sink_;
  LinearSettings settings_;
  std::optional<core::FixedLinearMtf> mtf_;
  std::vector<core::LinearChannelStats> channels_;
  cv::Mat prepared_;
  cv::Mat sourceOutput_;
};

}  // namespace project_lumen::cli
