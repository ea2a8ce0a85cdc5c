// How often samples of each brightness occur.
#pragma once

#include <cstdint>
#include <vector>

#include "studio/images/DisplayStretch.h"

namespace project_lumen::studio {

// Counts of each channel in `bins` equal parts of [0, 1], after the channel's transfer where
// `stretch` has one for each; samples outside count in the first and the last part.
std::vector<std::vector<std::int64_t>> CountSamples(
    const MeasuredSamples& samples, int bins, const std::vector<core::MtfChannelStats>& stretch);

}  // namespace project_lumen::studio
