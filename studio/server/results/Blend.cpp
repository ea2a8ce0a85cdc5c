#include "studio/results/Blend.h"

#include <cmath>
#include <opencv2/core.hpp>

namespace project_lumen::studio {

cv::Mat BlendStars(const cv::Mat& starless, const cv::Mat& unscreen,
                   const BlendSettings& settings) {
  CV_Assert(starless.depth() == CV_64F && starless.type() == unscreen.type() &&
            starless.size() == unscreen.size());
  cv::Mat blend(starless.size(), starless.type());
  const auto count =
      static_cast<std::size_t>(starless.cols) * static_cast<std::size_t>(starless.channels());
  for (int r = 0; r < starless.rows; ++r) {
    const auto* below = starless.ptr<double>(r);
    const auto* stars = unscreen.ptr<double>(r);
    auto* result = blend.ptr<double>(r);
    for (std::size_t i = 0; i < count; ++i) {
      const double star = settings.curve == 1.0 ? stars[i] : std::pow(stars[i], settings.curve);
      result[i] = below[i] + settings.amount * star * (1.0 - below[i]);
    }
  }
  return blend;
}

}  // namespace project_lumen::studio
