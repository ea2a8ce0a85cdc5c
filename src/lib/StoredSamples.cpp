#include "lib/StoredSamples.h"

#include <cmath>
#include <stdexcept>

#include <opencv2/core.hpp>

#include "common/IntegerSamples.h"

namespace project_lumen::lib {
namespace {

bool IsInteger(int depth) {
  return depth == CV_8U || depth == CV_16U;
}

template <typename Normalised, typename Stored>
void StoreFloats(const cv::Mat& normalised, double white, cv::Mat& stored) {
  for (int r = 0; r < normalised.rows; ++r) {
    const auto* from = normalised.ptr<Normalised>(r);
    auto* to = stored.ptr<Stored>(r);
    const int count = normalised.cols * normalised.channels();
    bool isFinite = true;
    for (int i = 0; i < count; ++i) {
      to[i] = static_cast<Stored>(static_cast<double>(from[i]) * white);
      isFinite = isFinite && std::isfinite(to[i]);
    }
    if (!isFinite) {
      throw std::runtime_error("Processed value exceeds the floating-point type of the image.");
    }
  }
}

template <typename Normalised>
void StoreFloats(const cv::Mat& normalised, double white, cv::Mat& stored) {
  if (stored.depth() == CV_32F) {
    StoreFloats<Normalised, float>(normalised, white, stored);
  } else {
    StoreFloats<Normalised, double>(normalised, white, stored);
  }
}

}  // namespace

void StoreSamples(const cv::Mat& normalised, int depth, double white, cv::Mat& stored) {
  if (IsInteger(depth)) {
    QuantiseToIntegers(normalised, depth, stored);
    return;
  }
  stored.create(normalised.size(), CV_MAKETYPE(depth, normalised.channels()));
  if (normalised.depth() == CV_32F) {
    StoreFloats<float>(normalised, white, stored);
  } else {
    StoreFloats<double>(normalised, white, stored);
  }
}

cv::Mat ReadBackSamples(const cv::Mat& stored, double white) {
  cv::Mat values;
  if (IsInteger(stored.depth())) {
    NormaliseIntegers(stored, CV_64F, values);
    return values;
  }
  stored.convertTo(values, CV_64F);
  if (white != 1.0) {
    for (int r = 0; r < values.rows; ++r) {
      auto* samples = values.ptr<double>(r);
      for (int i = 0; i < values.cols * values.channels(); ++i) {
        samples[i] /= white;
      }
    }
  }
  return values;
}

}  // namespace project_lumen::lib
