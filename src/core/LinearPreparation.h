// Linear data on its way into the network and back: what is done to it and what is told of it.
#pragma once

#include <functional>
#include <vector>

#include <opencv2/core/mat.hpp>

#include "common/RangeStatistics.h"
#include "core/FixedLinearMtf.h"

namespace project_lumen::core {

// What is found out about linear data. Each is told at most once, in this order, on the thread of
// the run; each may be empty.
struct LinearReports {
  // Range of the working image, all channels together, if samples above 1 are about to be capped.
  std::function<void(const RangeStatistics&)> aboveOne = nullptr;
  // The transfer of each of the three channels of the working image.
  std::function<void(const std::vector<LinearChannelStats>&)> transfer = nullptr;
  // What came back from the source at the end, for each of the source's channels.
  std::function<void(const std::vector<RestoredSamples>&)> restored = nullptr;
};

// Measures the working image (float64, three channels, normalised) and chooses its transfer, which
// keeps it. Throws std::invalid_argument "Linear preparation requires a nonempty float64 input."
// and what FixedLinearMtf throws.
FixedLinearMtf PrepareLinearInput(const cv::Mat& working, double shadowsClipping,
                                  double targetBackground, const LinearReports& reports);

// The last step on the source's grid: source samples that come back take the place of the result's.
// Throws cv::Exception (code -215) unless both have one type and size.
void RestoreFinalLinearSamples(const cv::Mat& sourceOutput,
                               const std::vector<LinearChannelStats>& channels, cv::Mat& image,
                               const LinearReports& reports);

}  // namespace project_lumen::core
