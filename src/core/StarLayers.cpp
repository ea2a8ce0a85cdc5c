#include "core/StarLayers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

#include <opencv2/core.hpp>

#include "common/Assertion.h"
#include "common/Vectorised.h"
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

template <typename T>
void ProtectPixels(const T* original, T* starless, std::size_t count) {
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
      starless[p + k] = static_cast<T>(finite ? blended : clampedOriginal[k]);
    }
  }
}

// The same for samples so far from white that the weight is exactly 0; vectorises.
template <typename T>
NEBULEX_VECTORISED void ProtectDarkSamples(const T* original, T* starless, std::size_t count) {
  constexpr double kWeight = 0.0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const double level = Clamp(o);
    // The product is kept for the sign of zero.
    const double blended = Clamp(Clamp(s) + kWeight * level);
    starless[i] = static_cast<T>(AreFinite(o, s) ? blended : level);
  }
}

// HighlightWeight answers with 0 up to here, and the unscreen layer suppresses nothing.
template <typename T>
constexpr T kDark = static_cast<T>(0.94);

// Of the samples' width, so that loops over both vectorise.
template <typename T>
using SampleFlag =
    std::conditional_t<sizeof(T) == sizeof(std::uint64_t), std::uint64_t, std::uint32_t>;

// Whether all samples are dark; no NaN is.
template <typename T>
NEBULEX_VECTORISED bool AreDark(const T* samples, std::size_t count) {
  SampleFlag<T> bright = 0;
  for (std::size_t i = 0; i < count; ++i) {
    bright |= static_cast<SampleFlag<T>>(!(samples[i] <= kDark<T>));
  }
  return bright == 0;
}

// Whether protection leaves all samples as they are, since the starless ones are dark and above 0
// and none is NaN or infinite; vectorises.
template <typename T>
NEBULEX_VECTORISED bool NeedNoProtection(const T* original, const T* starless, std::size_t count) {
  using Flag = SampleFlag<T>;
  Flag changing = 0;
  for (std::size_t i = 0; i < count; ++i) {
    changing |= static_cast<Flag>(!(starless[i] <= kDark<T>));
    changing |= static_cast<Flag>(!(starless[i] > 0));
    changing |= static_cast<Flag>(!(std::abs(original[i]) <= std::numeric_limits<T>::max()));
  }
  return changing == 0;
}

// Blocks of whole pixels that are judged together.
constexpr std::size_t kBlock = 64 * kPixel;

template <typename T>
void ProtectRow(const T* original, T* starless, std::size_t count) {
  for (std::size_t i = 0; i < count; i += kBlock) {
    const std::size_t size = std::min(kBlock, count - i);
    if (!NeedNoProtection(original + i, starless + i, size)) {
      const auto protect = AreDark(starless + i, size) ? ProtectDarkSamples<T> : ProtectPixels<T>;
      protect(original + i, starless + i, size);
    }
  }
}

template <typename T>
void Protect(const cv::Mat& original, cv::Mat& starless) {
  for (int r = 0; r < starless.rows; ++r) {
    ProtectRow(original.ptr<T>(r), starless.ptr<T>(r), SamplesPerRow(starless));
  }
}

template <typename T>
NEBULEX_VECTORISED void MaskRow(const T* original, const T* starless, T* output,
                                std::size_t count) {
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

// A difference of clamped samples so near to white that a small one makes the quotient explode; any
// larger one where it is not near.
double DifferenceNearWhite(double level, double base) {
  return level >= 0.995 ? level - base : 1.0;
}

constexpr double kLargestSuppressed = 0.0002;

// One choice after another instead of a condition of several parts, so that the loops vectorise.
template <typename T>
NEBULEX_VECTORISED void UnscreenRow(const T* original, const T* starless, T* output,
                                    std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const double level = Clamp(o);
    const double base = Clamp(s);
    double layer = Clamp((level - base) / std::max(1.0 - base, 1e-16));
    layer = base < level ? layer : 0.0;
    layer = DifferenceNearWhite(level, base) <= kLargestSuppressed ? 0.0 : layer;
    output[i] = static_cast<T>(AreFinite(o, s) ? layer : 0.0);
  }
}

template <typename T>
std::uint64_t CountSuppressedInBlock(const T* original, const T* starless, std::size_t count) {
  std::uint64_t suppressed = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const auto o = static_cast<double>(original[i]);
    const auto s = static_cast<double>(starless[i]);
    const double difference = DifferenceNearWhite(Clamp(o), Clamp(s));
    std::uint64_t counted = difference <= kLargestSuppressed ? 1 : 0;
    counted = difference > 0.0 ? counted : 0;
    suppressed += AreFinite(o, s) ? counted : 0;
  }
  return suppressed;
}

template <typename T>
std::uint64_t CountSuppressedInRow(const T* original, const T* starless, std::size_t count) {
  std::uint64_t suppressed = 0;
  for (std::size_t i = 0; i < count; i += kBlock) {
    const std::size_t size = std::min(kBlock, count - i);
    if (!AreDark(original + i, size)) {
      suppressed += CountSuppressedInBlock(original + i, starless + i, size);
    }
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

template <typename T>
bool IsDarkImage(const cv::Mat& image) {
  for (int r = 0; r < image.rows; ++r) {
    if (!AreDark(image.ptr<T>(r), SamplesPerRow(image))) {
      return false;
    }
  }
  return true;
}

}  // namespace

void ProtectStarlessHighlights(const cv::Mat& original, cv::Mat& starless) {
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

bool MayHaveSuppressedSamples(const cv::Mat& original) {
  NEBULEX_ASSERT("project_lumen::core::MayHaveSuppressedSamples",
                 original.depth() == CV_32F || original.depth() == CV_64F);
  return !(original.depth() == CV_64F ? IsDarkImage<double>(original)
                                      : IsDarkImage<float>(original));
}

std::string SuppressionWarning(std::uint64_t suppressed) {
  return "Warning: suppressed " + std::to_string(suppressed) +
         " near-saturated unscreen output sample(s). Additional unstable samples may remain. Check "
         "the input image for clipped or near-clipped highlights, especially channels with values "
         "at 1.0000.";
}

}  // namespace project_lumen::core
