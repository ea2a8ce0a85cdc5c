#include "core/LinearPreparation.h"

#include <stdexcept>

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen::core {
namespace {

// The image is normalised already.
constexpr double kWhite = 1.0;

void ReportSamplesAboveOne(const cv::Mat& working, const LinearReports& reports) {
  if (!reports.aboveOne) {
    return;
  }
  const RangeStatistics range = MeasureRange(working, kWhite).image;
  if (range.aboveOne > 0) {
    reports.aboveOne(range);
  }
}

}  // namespace

FixedLinearMtf PrepareLinearInput(const cv::Mat& working, double shadowsClipping,
                                  double targetBackground, const LinearReports& reports) {
  if (working.empty() || working.depth() != CV_64F) {
    throw std::invalid_argument("Linear preparation requires a nonempty float64 input.");
  }
  ReportSamplesAboveOne(working, reports);
  FixedLinearMtf mtf(working, kWhite, shadowsClipping, targetBackground);
  if (reports.transfer) {
    reports.transfer(mtf.Channels());
  }
  return mtf;
}

void RestoreFinalLinearSamples(const cv::Mat& sourceOutput,
                               const std::vector<LinearChannelStats>& channels, cv::Mat& image,
                               const LinearReports& reports) {
  NEBULEX_ASSERT("project_lumen::core::RestoreFinalLinearSamples",
                 image.type() == sourceOutput.type() && image.size() == sourceOutput.size());
  const std::vector<RestoredSamples> restored = RestoreSamples(sourceOutput, channels, image);
  if (reports.restored) {
    reports.restored(restored);
  }
}

}  // namespace project_lumen::core
