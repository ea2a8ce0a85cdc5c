// What writing a result needs to know of a linear run.
#pragma once

#include <cstdint>
#include <vector>

namespace project_lumen::io {

struct LinearOutputInfo {
  double divisor = 1.0;            // K, the source's fixed divisor
  std::uint64_t upperClipped = 0;  // source samples above K, held at K
  std::vector<double> shadows;     // of each channel, normalised; samples up to there were restored
};

}  // namespace project_lumen::io
