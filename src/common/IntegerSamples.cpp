#include "common/IntegerSamples.h"

#include <opencv2/core.hpp>

#include "common/Assertion.h"

namespace project_lumen {

double IntegerWhite(int depth) {
  NEBULEX_ASSERT("project_lumen::IntegerWhite", depth == CV_8U || depth == CV_16U);
  return depth == CV_8U ? 255.0 : 65535.0;
}

void NormaliseIntegers(const cv::Mat& stored, int depth, cv::Mat& normalised) {
  stored.convertTo(normalised, depth, 1.0 / IntegerWhite(stored.depth()), 0.0);
}

void QuantiseToIntegers(const cv::Mat& normalised, int depth, cv::Mat& stored) {
  normalised.convertTo(stored, depth, IntegerWhite(depth), 0.0);
}

}  // namespace project_lumen
