// How many stars come back.
#pragma once

#include <opencv2/core/mat.hpp>

namespace project_lumen::studio {

struct BlendSettings {
  double amount = 1.0;  // within [0, 1]
  double curve = 1.0;   // exponent of the unscreen layer, above 0; 1 leaves it as it is
};

// starless + amount x unscreen^curve x (1 - starless), a sample at a time in float64. Both images
// are float64 with one size and as many channels; the unscreen layer lies within [0, 1].
cv::Mat BlendStars(const cv::Mat& starless, const cv::Mat& unscreen, const BlendSettings& settings);

}  // namespace project_lumen::studio
