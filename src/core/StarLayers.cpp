#include "core/StarLayers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

#include <opencv2/core.hpp>

#include "common/Assertion.h"
#include "core/SampleRows.h"

namespace project_lumen::core {
namespace {

// NaN fails both comparisons and passes through.
double Clamp(double x) {
  const double raised = x < 0.0 ? 0.0 : x;
  return raised > 1.0 ? 1.0 : raised;
}

// 1 / (1 + exp(-x)), flat where float64 would not tell the difference.
double Logistic(double x) {
  constexpr double kFlatFrom = 40.0;
  if (x >= kFlatFrom) {
    return 1.0;
  }
  if (x <= -kFlatFrom) {
    return 0.0;
  }
  return 1.0 / (1.0 + std::exp(-x));
}

constexpr double kSteepness = 1000.0;
constexpr std::size_t kPixel = 3;
using Pixel = std::array<double, kPixel>;

// Near 1 for a starless pixel whose brightest channel is near white.
double HighlightWeight(const Pixel& starless) {
  const double brightness = Clamp(std::max({0.0, starless[0], starless[1], starless[2]}));
  return std::isfinite(brightness) ? Logistic((brightness - 0.985) * kSteepness) : 1.0;
}

// Near 1 where both pixels agree to about a thousandth.
double AgreementWeight(const Pixel& original, const Pixel& starless) {
  const double difference =
      (std::abs(starless[0] - original[0]) + std::abs(starless[1] - original[1]) +
       std::abs(starless[2] - original[2])) /
      3.0;
  return std::isfinite(difference) ? Logistic((0.001 - std::abs(difference)) * kSteepness) : 0.0;
}

double ProtectionWeight(const Pixel& original, const Pixel& starless) {
  const double highlight = HighlightWeight(starless);
  // Most pixels end here and never pay for the second exponential.
  return highlight == 0.0 ? 0.0 : Clamp(AgreementWeight(original, starless) * highlight);
}

// A difference with itself is 0 but for NaN and infinities; two of them make one comparison.
bool AreFinite(double a, double b) {
  return (a - a) + (b - b) == 0.0;
}

// `output` may be `starless`, here and below.
template <typename T>
void ProtectPixels(const T* original, const T* starless, T* output, std::size_t count) {
  for (std::size_t p = 0; p < count; p += kPixel) {
    Pixel clampedOriginal{};
    Pixel clampedStarless{};
    for (std::size_t k = 0; k < kPixel; ++k) {
      clampedOriginal[k] = Clamp(static_cast<double>(original[p + k]));
      clampedStarless[k] = Clamp(static_cast<double>(starless[p + k]));
    }
    const double weight = ProtectionWeight(clampedOriginal, clampedStarless);
    for (std::size_t k = 0; k < kPixel; ++k) {
      const bool finite = std::isfinite(original[p + k]) && std::isfinite(starless[p + k]);
      const double blended =
          Clamp((1.0 - weight) * clampedStarless[k] + weight * clampedOriginal[k]);
      output[p + k] = static_cast<T>(finite ? blended : clampedOriginal[k]);
    }
  }
}

// The same for samples so far from white that the weight is exactly 0; vectorises.
template <typename T>
void ProtectDarkSamples(const T* original, const T* starless, T* output, std::size_t count) {
  constexpr double kWeight = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const double level = Clamp(o);
    // The product is kept for the sign of zero.
    const double blended = Clamp(Clamp(s) + kWeight * level);
    output[i] = static_cast<T>(AreFinite(o, s) ? blended : level);
  }
}

// Whether all samples are below what HighlightWeight answers with 0; no NaN is.
template <typename T>
bool AreDark(const T* starless, std::size_t count) {
  constexpr T kDark = static_cast<T>(0.94);
  unsigned bright = 0;
  for (std::size_t i = 0; i < count; ++i) {
    bright |= static_cast<unsigned>(!(starless[i] <= kDark));
  }
  return bright == 0;
}

template <typename T>
void ProtectRow(const T* original, const T* starless, T* output, std::size_t count) {
  constexpr std::size_t kBlock = 64 * kPixel;
  for (std::size_t i = 0; i < count; i += kBlock) {
    const std::size_t size = std::min(kBlock, count - i);
    const auto protect = AreDark(starless + i, size) ? ProtectDarkSamples<T> : ProtectPixels<T>;
    protect(original + i, starless + i, output + i, size);
  }
}

template <typename T>
void Protect(const cv::Mat& original, cv::Mat& starless) {
  for (int r = 0; r < starless.rows; ++r) {
    ProtectRow(original.ptr<T>(r), starless.ptr<T>(r), starless.ptr<T>(r), SamplesPerRow(starless));
  }
}

template <typename T>
void MaskRow(const T* original, const T* starless, T* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    output[i] = static_cast<T>(AreFinite(o, s) ? Clamp(o - s) : 0.0);
  }
}

template <typename T>
cv::Mat Mask(const cv::Mat& original, const cv::Mat& starless) {
  cv::Mat output(original.size(), original.type());
  for (int r = 0; r < output.rows; ++r) {
    MaskRow(original.ptr<T>(r), starless.ptr<T>(r), output.ptr<T>(r), SamplesPerRow(output));
  }
  return output;
}

// Whether the unscreen layer has no quotient for clamped samples that differ: near white it would
// explode. All conditions are computed, so the loops around it vectorise.
bool IsSuppressed(double level, double base) {
  const double difference = level - base;
  return static_cast<unsigned>(level >= 0.995) & static_cast<unsigned>(difference > 0.0) &
         static_cast<unsigned>(difference <= 0.0002);
}

template <typename T>
void UnscreenRow(const T* original, const T* starless, T* output, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const double level = Clamp(o);
    const double base = Clamp(s);
    const double quotient = Clamp((level - base) / std::max(1.0 - base, 1e-16));
    const double positive = base < level ? quotient : 0.0;
    const double stable = IsSuppressed(level, base) ? 0.0 : positive;
    output[i] = static_cast<T>(AreFinite(o, s) ? stable : 0.0);
  }
}

template <typename T>
std::uint64_t CountSuppressedInRow(const T* original, const T* starless, std::size_t count) {
  std::uint64_t suppressed = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const bool counts = static_cast<unsigned>(IsSuppressed(Clamp(o), Clamp(s))) &
                        static_cast<unsigned>(AreFinite(o, s));
    suppressed += counts ? 1U : 0U;
  }
  return suppressed;
}

template <typename T>
cv::Mat UnscreenLayer(const cv::Mat& original, const cv::Mat& starless) {
  cv::Mat output(original.size(), original.type());
  for (int r = 0; r < output.rows; ++r) {
    UnscreenRow(original.ptr<T>(r), starless.ptr<T>(r), output.ptr<T>(r), SamplesPerRow(output));
  }
  return output;
}

template <typename T>
std::uint64_t CountSuppressed(const cv::Mat& original, const cv::Mat& starless) {
  std::uint64_t suppressed = 0;
  for (int r = 0; r < original.rows; ++r) {
    suppressed +=
        CountSuppressedInRow(original.ptr<T>(r), starless.ptr<T>(r), SamplesPerRow(original));
  }
  return suppressed;
}

}  // namespace

cv::Mat ProtectStarlessHighlights(const cv::Mat& original, const cv::Mat& starless) {
  cv::Mat output = starless.clone();
  ProtectHighlightsInPlace(original, output);
  return output;
}

void ProtectHighlightsInPlace(const cv::Mat& original, cv::Mat& starless) {
  NEBULEX_ASSERT("project_lumen::core::ProtectStarlessHighlights",
                 (original.depth() == CV_32F || original.depth() == CV_64F) &&
                     original.channels() == 3 && original.type() == starless.type() &&
                     original.size() == starless.size());
  if (original.depth() == CV_64F) {
    Protect<double>(original, starless);
  } else {
    Protect<float>(original, starless);
  }
}

cv::Mat ComputeStarMask(const cv::Mat& original, const cv::Mat& starless) {
  NEBULEX_ASSERT("project_lumen::core::ComputeStarMask",
                 (original.depth() == CV_32F || original.depth() == CV_64F) &&
                     original.type() == starless.type() && original.size() == starless.size());
  return original.depth() == CV_64F ? Mask<double>(original, starless)
                                    : Mask<float>(original, starless);
}

cv::Mat ComputeUnscreenStarLayer(const cv::Mat& original, const cv::Mat& starless,
                                 const std::function<void(const std::string&)>& log) {
  NEBULEX_ASSERT("project_lumen::core::ComputeUnscreenStarLayer",
                 (original.depth() == CV_32F || original.depth() == CV_64F) &&
                     original.type() == starless.type() && original.size() == starless.size());
  const std::uint64_t suppressed = log ? CountSuppressedSamples(original, starless) : 0;
  if (suppressed > 0) {
    log(SuppressionWarning(suppressed));
  }
  return original.depth() == CV_64F ? UnscreenLayer<double>(original, starless)
                                    : UnscreenLayer<float>(original, starless);
}

std::uint64_t CountSuppressedSamples(const cv::Mat& original, const cv::Mat& starless) {
  NEBULEX_ASSERT("project_lumen::core::CountSuppressedSamples",
                 (original.depth() == CV_32F || original.depth() == CV_64F) &&
                     original.type() == starless.type() && original.size() == starless.size());
  return original.depth() == CV_64F ? CountSuppressed<double>(original, starless)
                                    : CountSuppressed<float>(original, starless);
}

std::string SuppressionWarning(std::uint64_t suppressed) {
  return "Warning: suppressed " + std::to_string(suppressed) +
         " near-saturated unscreen output sample(s). Additional unstable samples may remain. Check "
         "the input image for clipped or near-clipped highlights, especially channels with values "
         "at 1.0000.";
}

}  // namespace project_lumen::core
