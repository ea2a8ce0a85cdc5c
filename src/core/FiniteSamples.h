// The test that samples are usable numbers.
#pragma once

#include <cmath>
#include <cstddef>
#include <limits>

namespace project_lumen::core {

// Whether none of the samples is NaN or infinite. One branch-free pass, so it vectorises.
inline bool AllFinite(const float* samples, std::size_t count) {
  unsigned bad = 0;
  for (std::size_t i = 0; i < count; ++i) {
    // The negated comparison also catches NaN.
    bad |= static_cast<unsigned>(!(std::abs(samples[i]) <= std::numeric_limits<float>::max()));
  }
  return bad == 0;
}

}  // namespace project_lumen::core
