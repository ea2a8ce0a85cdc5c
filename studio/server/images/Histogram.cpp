#include "studio/images/Histogram.h"

#include <algorithm>

#include "core/MtfTransfer.h"

namespace project_lumen::studio {

std::vector<std::vector<std::int64_t>> CountSamples(
    const MeasuredSamples& samples, int bins, const std::vector<core::MtfChannelStats>& stretch) {
  std::vector<std::vector<std::int64_t>> counts;
  for (std::size_t c = 0; c < samples.channels.size(); ++c) {
    std::vector<std::int64_t>& channel = counts.emplace_back(static_cast<std::size_t>(bins), 0);
    for (const float sample : samples.channels[c]) {
      double value = sample;
      if (!stretch.empty()) {
        value = core::MtfForward(stretch[c].midtones, value - stretch[c].shadows);
      }
      const double place = std::clamp(value * bins, 0.0, static_cast<double>(bins - 1));
      ++channel[static_cast<std::size_t>(place)];
    }
  }
  return counts;
}

}  // namespace project_lumen::studio
