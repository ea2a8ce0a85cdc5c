// What writing a result needs to know of a linear run.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core/mat.hpp>

namespace project_lumen::io {

struct LinearOutputInfo {
  struct Channel {
    double shadows = 0.0;   // normalised; source samples at or below it were restored
    bool constant = false;  // every sample of the channel is restored
  };

  double divisor = 1.0;            // K, the source's fixed divisor
  std::uint64_t upperClipped = 0;  // source samples above K, held at K
  std::vector<Channel> channels;
  cv::Mat sourceSamples;  // float64, 1 or 3 interleaved channels on the input grid, normalised,
                          // at most 1
};

}  // namespace project_lumen::io
