#include "core/StarLayers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"

namespace project_lumen::core {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

cv::Mat Protected(const cv::Mat& original, const cv::Mat& starless) {
  cv::Mat result = starless.clone();
  ProtectStarlessHighlights(original, result);
  return result;
}

// Both depths get the same tests; float32 results may differ from exact ones by rounding.
class StarLayers : public ::testing::TestWithParam<int> {
 protected:
  [[nodiscard]] cv::Mat One(double sample) const {
    return {1, 1, CV_MAKETYPE(GetParam(), 1), cv::Scalar(sample)};
  }
  [[nodiscard]] cv::Mat Colour(double red, double green, double blue) const {
    return {1, 1, CV_MAKETYPE(GetParam(), 3), cv::Scalar(red, green, blue)};
  }
  [[nodiscard]] double Mask(double original, double starless) const {
    return SampleAt(ComputeStarMask(One(original), One(starless)), 0, 0, 0);
  }
  double Unscreen(double original, double starless) {
    const cv::Mat layer =
        ComputeUnscreenStarLayer(One(original), One(starless),
                                 [this](const std::string& line) { reported.push_back(line); });
    EXPECT_EQ(layer.type(), One(0).type());
    return SampleAt(layer, 0, 0, 0);
  }
  [[nodiscard]] double Tolerance() const { return GetParam() == CV_32F ? 2e-7 : 1e-15; }

  std::vector<std::string> reported;
};

TEST_P(StarLayers, MaskIsThePlainDifference) {
  EXPECT_NEAR(Mask(0.5, 0.3), 0.2, Tolerance());
}

TEST_P(StarLayers, MaskIsZeroWhereTheStarlessImageIsBrighter) {
  EXPECT_EQ(Mask(0.3, 0.5), 0.0);
}

TEST_P(StarLayers, MaskClampsTheDifferenceAndNotTheInputs) {
  EXPECT_EQ(Mask(1.5, 0.25), 1.0);
  EXPECT_EQ(Mask(0.5, -0.25), 0.75);
  EXPECT_EQ(Mask(1.5, 1.25), 0.25);
  EXPECT_EQ(Mask(-0.25, -0.5), 0.25);
}

TEST_P(StarLayers, MaskIsZeroWhereASampleIsNotFinite) {
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(Mask(bad, 0.25), 0.0) << bad;
    EXPECT_EQ(Mask(0.25, bad), 0.0) << bad;
  }
}

TEST_P(StarLayers, UnscreenInvertsTheScreenBlend) {
  EXPECT_NEAR(Unscreen(0.5, 0.3), 0.2 / 0.7, Tolerance());
  EXPECT_NEAR(Unscreen(0.9, 0.0), 0.9, Tolerance());
}

TEST_P(StarLayers, UnscreenIsZeroWhereTheStarlessImageIsAsBright) {
  EXPECT_EQ(Unscreen(0.3, 0.5), 0.0);
  EXPECT_EQ(Unscreen(0.3, 0.3), 0.0);
  EXPECT_EQ(Unscreen(1.0, 1.0), 0.0);
  EXPECT_THAT(reported, IsEmpty());
}

TEST_P(StarLayers, UnscreenClampsTheInputs) {
  EXPECT_EQ(Unscreen(1.5, 0.25), 1.0);
  EXPECT_EQ(Unscreen(0.5, -0.25), 0.5);
  EXPECT_EQ(Unscreen(1.5, 1.25), 0.0);
  EXPECT_EQ(Unscreen(-0.25, -0.5), 0.0);
}

TEST_P(StarLayers, UnscreenIsZeroWhereASampleIsNotFinite) {
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    EXPECT_EQ(Unscreen(bad, 0.25), 0.0) << bad;
    EXPECT_EQ(Unscreen(0.25, bad), 0.0) << bad;
  }
  EXPECT_THAT(reported, IsEmpty());
}

TEST_P(StarLayers, UnscreenSuppressesTinyDifferencesNearWhite) {
  EXPECT_EQ(Unscreen(1.0, 0.9999), 0.0);
  EXPECT_THAT(
      reported,
      ElementsAre("Warning: suppressed 1 near-saturated unscreen output sample(s). Additional "
                  "unstable samples may remain. Check the input image for clipped or near-clipped "
                  "highlights, especially channels with values at 1.0000."));
}

TEST_P(StarLayers, UnscreenKeepsLargerDifferencesNearWhite) {
  EXPECT_EQ(Unscreen(1.0, 0.99), 1.0);
  EXPECT_NEAR(Unscreen(0.996, 0.9957), 0.0003 / 0.0043, 100 * Tolerance());
  EXPECT_THAT(reported, IsEmpty());
}

TEST_P(StarLayers, UnscreenKeepsTinyDifferencesBelowWhite) {
  EXPECT_NEAR(Unscreen(0.99, 0.9899), 0.0001 / 0.0101, 100 * Tolerance());
  EXPECT_THAT(reported, IsEmpty());
}

TEST_P(StarLayers, UnscreenCountsSuppressedSamplesOfAllRowsAndChannels) {
  cv::Mat original(4, 5, CV_MAKETYPE(GetParam(), 3), cv::Scalar::all(1.0));
  cv::Mat starless(4, 5, CV_MAKETYPE(GetParam(), 3), cv::Scalar(0.9999, 0.5, 1.0));
  starless.row(2).setTo(cv::Scalar(0.5, 0.9999, 0.9999));
  std::vector<std::string> lines;
  ComputeUnscreenStarLayer(original, starless,
                           [&lines](const std::string& line) { lines.push_back(line); });
  // 15 first channels outside row 2, and two channels of its five pixels.
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], ::testing::StartsWith("Warning: suppressed 25 near-saturated "));
}

TEST_P(StarLayers, NothingIsSuppressedFarFromWhite) {
  cv::Mat original(3, 70, CV_MAKETYPE(GetParam(), 3), cv::Scalar::all(0.5));
  EXPECT_FALSE(MayHaveSuppressedSamples(original));
  original.row(2).col(69).setTo(cv::Scalar(0.5, 0.5, 0.995));
  EXPECT_TRUE(MayHaveSuppressedSamples(original));
}

TEST_P(StarLayers, UnscreenNeedsNoLog) {
  const cv::Mat layer = ComputeUnscreenStarLayer(One(1.0), One(0.9999), nullptr);
  EXPECT_EQ(SampleAt(layer, 0, 0, 0), 0.0);
}

TEST_P(StarLayers, ScreenBlendOfTheLayerRebuildsTheOriginal) {
  const cv::Mat starless = MakeNoise({40, 30}, CV_MAKETYPE(GetParam(), 3), 3, 0.0, 0.9);
  const cv::Mat original = starless + 0.1 * MakeNoise({40, 30}, CV_MAKETYPE(GetParam(), 3), 4);
  const cv::Mat layer = ComputeUnscreenStarLayer(original, starless, nullptr);
  const cv::Mat rebuilt = starless + layer.mul(cv::Scalar::all(1.0) - starless);
  EXPECT_LE(cv::norm(rebuilt, original, cv::NORM_INF), 4 * Tolerance());
}

TEST_P(StarLayers, ReadImagesThatArePartsOfOthers) {
  const cv::Mat a = MakeNoise({20, 20}, CV_MAKETYPE(GetParam(), 3), 5);
  const cv::Mat b = MakeNoise({20, 20}, CV_MAKETYPE(GetParam(), 3), 6);
  const cv::Mat partA = a(cv::Rect(3, 2, 7, 9));
  const cv::Mat partB = b(cv::Rect(1, 5, 7, 9));
  EXPECT_TRUE(
      AreEqual(ComputeStarMask(partA, partB), ComputeStarMask(partA.clone(), partB.clone())));
  EXPECT_TRUE(AreEqual(ComputeUnscreenStarLayer(partA, partB, nullptr),
                       ComputeUnscreenStarLayer(partA.clone(), partB.clone(), nullptr)));
  EXPECT_TRUE(AreEqual(Protected(partA, partB), Protected(partA.clone(), partB.clone())));
}

TEST_P(StarLayers, ProtectionLeavesMidGreyPixels) {
  const cv::Mat starless = Colour(0.3, 0.5, 0.4);
  EXPECT_TRUE(AreEqual(Protected(Colour(0.3005, 0.5, 0.4), starless), starless));
}

TEST_P(StarLayers, ProtectionClampsWhatItLeaves) {
  const cv::Mat output = Protected(Colour(0.5, 0.5, 0.5), Colour(-0.5, 0.5, 0.25));
  EXPECT_TRUE(AreEqual(output, Colour(0.0, 0.5, 0.25)));
  EXPECT_TRUE(
      AreEqual(Protected(Colour(0.5, 0.5, 0.5), Colour(1.5, 0.25, 0.25)), Colour(1.0, 0.25, 0.25)));
}

TEST_P(StarLayers, ProtectionKeepsWhite) {
  const cv::Mat white = Colour(1.0, 1.0, 1.0);
  EXPECT_TRUE(AreEqual(Protected(white, white), white));
}

TEST_P(StarLayers, ProtectionBlendsAgreeingHighlightsByBothWeights) {
  // Brightness 0.995 lies 0.01 above the highlight centre: logistic(10). The mean difference is
  // (0.003 + 0 + 0) / 3 = 0.001, the agreement centre: logistic(0) = 1/2.
  const cv::Mat output = Protected(Colour(0.998, 0.9, 0.8), Colour(0.995, 0.9, 0.8));
  const double weight = 0.5 / (1.0 + std::exp(-10.0));
  EXPECT_NEAR(SampleAt(output, 0, 0, 0), 0.995 + weight * 0.003, 2 * Tolerance());
  EXPECT_NEAR(SampleAt(output, 0, 0, 1), 0.9, Tolerance());
  EXPECT_NEAR(SampleAt(output, 0, 0, 2), 0.8, Tolerance());
}

TEST_P(StarLayers, ProtectionWeighsByTheBrightestStarlessChannel) {
  // Brightness 0.985 in the last channel: logistic(0); difference 0.0003 / 3: logistic(0.9).
  const cv::Mat output = Protected(Colour(0.5003, 0.1, 0.985), Colour(0.5, 0.1, 0.985));
  const double weight = 0.5 / (1.0 + std::exp(-0.9));
  EXPECT_NEAR(SampleAt(output, 0, 0, 0), 0.5 + weight * 0.0003, 1e-3 * 0.0003 + Tolerance());
}

TEST_P(StarLayers, ProtectionIgnoresRemovedStars) {
  // The starless pixel is bright, but a whole star was taken out of it: |difference| 0.05 lies more
  // than 40 steps beyond agreement.
  const cv::Mat starless = Colour(1.0, 0.9, 0.9);
  EXPECT_TRUE(AreEqual(Protected(Colour(1.0, 0.975, 0.975), starless), starless));
}

TEST_P(StarLayers, ProtectionShowsTheClampedOriginalWhereASampleIsNotFinite) {
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    const cv::Mat output = Protected(Colour(1.5, 0.25, -0.5), Colour(bad, bad, bad));
    EXPECT_TRUE(AreEqual(output, Colour(1.0, 0.25, 0.0))) << bad;
  }
  const cv::Mat fromOriginal =
      Protected(Colour(kInfinity, -kInfinity, kNan), Colour(0.25, 0.25, 0.25));
  EXPECT_EQ(SampleAt(fromOriginal, 0, 0, 0), 1.0);
  EXPECT_EQ(SampleAt(fromOriginal, 0, 0, 1), 0.0);
  EXPECT_TRUE(std::isnan(SampleAt(fromOriginal, 0, 0, 2)));
}

TEST_P(StarLayers, ProtectionLeavesTheFiniteChannelsOfAPixelWithNan) {
  const cv::Mat output = Protected(Colour(0.9995, 1.0, 0.5), Colour(0.999, 1.0, kNan));
  EXPECT_TRUE(AreEqual(output, Colour(0.999, 1.0, 0.5)));
}

INSTANTIATE_TEST_SUITE_P(Depths, StarLayers, ::testing::Values(CV_32F, CV_64F));

constexpr const char* kSamePair =
    "(original.depth() == CV_32F || original.depth() == CV_64F) && "
    "original.type() == starless.type() && original.size() == starless.size()";
constexpr const char* kSameColourPair =
    "(original.depth() == CV_32F || original.depth() == CV_64F) && original.channels() == 3 && "
    "original.type() == starless.type() && original.size() == starless.size()";

struct Pair {
  cv::Mat original;
  cv::Mat starless;
};

std::vector<Pair> UnequalPairs() {
  const cv::Mat image(4, 4, CV_32FC3, cv::Scalar::all(0));
  return {{cv::Mat(), cv::Mat()},
          {cv::Mat(4, 4, CV_8UC3), cv::Mat(4, 4, CV_8UC3)},
          {image, cv::Mat(4, 4, CV_64FC3)},
          {image, cv::Mat(4, 4, CV_32FC1)},
          {image, cv::Mat(4, 5, CV_32FC3)}};
}

TEST(ComputeStarMask, RefusesImagesThatDoNotFit) {
  for (const Pair& pair : UnequalPairs()) {
    ExpectAssertion([&] { ComputeStarMask(pair.original, pair.starless); },
                    "project_lumen::core::ComputeStarMask", kSamePair);
  }
}

TEST(ComputeUnscreenStarLayer, RefusesImagesThatDoNotFit) {
  for (const Pair& pair : UnequalPairs()) {
    ExpectAssertion([&] { ComputeUnscreenStarLayer(pair.original, pair.starless, nullptr); },
                    "project_lumen::core::ComputeUnscreenStarLayer", kSamePair);
  }
}

TEST(ProtectStarlessHighlights, RefusesImagesThatDoNotFit) {
  std::vector<Pair> pairs = UnequalPairs();
  pairs.push_back({cv::Mat(4, 4, CV_32FC1), cv::Mat(4, 4, CV_32FC1)});
  for (const Pair& pair : pairs) {
    ExpectAssertion([&] { Protected(pair.original, pair.starless); },
                    "project_lumen::core::ProtectStarlessHighlights", kSameColourPair);
  }
}

// --- Many samples at once: the definitions, one sample after another ---

double Limited(double x) {
  return std::isnan(x) ? x : std::min(std::max(x, 0.0), 1.0);
}

double LogisticByDefinition(double x) {
  return x >= 40 ? 1.0 : x <= -40 ? 0.0 : 1.0 / (1.0 + std::exp(-x));
}

// Of a pixel whose samples are finite.
double WeightByDefinition(const cv::Vec3d& original, const cv::Vec3d& starless) {
  double brightness = 0.0;
  double difference = 0.0;
  for (int k = 0; k < 3; ++k) {
    brightness = std::max(brightness, Limited(starless[k]));
    difference += std::abs(Limited(starless[k]) - Limited(original[k]));
  }
  return LogisticByDefinition((0.001 - difference / 3.0) * 1000) *
         LogisticByDefinition((brightness - 0.985) * 1000);
}

bool HasOddSample(const cv::Vec3d& pixel) {
  return !std::isfinite(pixel[0] + pixel[1] + pixel[2]);
}

// Pairs of pixels all over the range and a little beyond it, the same in both depths: stretches of
// dark and of bright ones, and some that are not finite.
struct Pixels {
  std::vector<cv::Vec3f> original;
  std::vector<cv::Vec3f> starless;
};

Pixels MakePixels(int count) {
  Pixels pixels;
  cv::RNG random(20240607);
  for (int i = 0; i < count; ++i) {
    const double level = (i / 150) % 2 == 0 ? 0.3 : 0.97;
    cv::Vec3f starless;
    cv::Vec3f original;
    for (int k = 0; k < 3; ++k) {
      starless[k] = static_cast<float>(level + random.uniform(-0.35, 0.05));
      original[k] = static_cast<float>(starless[k] + random.uniform(-0.0004, 0.0008));
    }
    if (i % 61 == 7) {
      original[i % 3] = static_cast<float>(i % 2 == 0 ? kNan : -kInfinity);
    }
    if (i % 67 == 7) {
      starless[i % 3] = static_cast<float>(i % 2 == 0 ? kNan : kInfinity);
    }
    pixels.original.push_back(original);
    pixels.starless.push_back(starless);
  }
  return pixels;
}

cv::Mat RowOf(const std::vector<cv::Vec3f>& pixels, int depth) {
  cv::Mat row;
  cv::Mat(pixels).reshape(3, 1).convertTo(row, depth);
  return row;
}

TEST_P(StarLayers, ProtectionOfLongRowsFollowsItsDefinition) {
  const Pixels pixels = MakePixels(1001);
  cv::Mat starless = RowOf(pixels.starless, GetParam());
  ProtectStarlessHighlights(RowOf(pixels.original, GetParam()), starless);
  for (int i = 0; i < starless.cols; ++i) {
    const cv::Vec3d o = pixels.original[static_cast<std::size_t>(i)];
    const cv::Vec3d s = pixels.starless[static_cast<std::size_t>(i)];
    for (int k = 0; k < 3; ++k) {
      const double result = SampleAt(starless, 0, i, k);
      if (!std::isfinite(o[k]) || !std::isfinite(s[k])) {
        // What is not finite becomes the limited original, NaN or a number.
        if (std::isnan(o[k])) {
          EXPECT_TRUE(std::isnan(result)) << i;
        } else {
          EXPECT_NEAR(result, Limited(o[k]), Tolerance()) << i;
        }
      } else if (!HasOddSample(o) && !HasOddSample(s)) {
        const double w = WeightByDefinition(o, s);
        EXPECT_NEAR(result, (1 - w) * Limited(s[k]) + w * Limited(o[k]), Tolerance()) << i;
      }
    }
  }
}

TEST_P(StarLayers, UnscreenAndItsCountOnLongRowsFollowTheirDefinition) {
  const Pixels pixels = MakePixels(1001);
  const cv::Mat original = RowOf(pixels.original, GetParam());
  const cv::Mat starless = RowOf(pixels.starless, GetParam());
  const cv::Mat layer = ComputeUnscreenStarLayer(original, starless, nullptr);
  std::uint64_t suppressed = 0;
  for (int i = 0; i < layer.cols; ++i) {
    for (int k = 0; k < 3; ++k) {
      const double o = pixels.original[static_cast<std::size_t>(i)][k];
      const double s = pixels.starless[static_cast<std::size_t>(i)][k];
      double expected = 0.0;
      if (std::isfinite(o) && std::isfinite(s) && Limited(s) < Limited(o)) {
        const bool isSuppressed = Limited(o) >= 0.995 && Limited(o) - Limited(s) <= 0.0002;
        suppressed += isSuppressed ? 1 : 0;
        expected = isSuppressed
                       ? 0.0
                       : Limited((Limited(o) - Limited(s)) / std::max(1.0 - Limited(s), 1e-16));
      }
      EXPECT_NEAR(SampleAt(layer, 0, i, k), expected, Tolerance()) << i;
    }
  }
  EXPECT_GT(suppressed, 0U);
  EXPECT_EQ(CountSuppressedSamples(original, starless), suppressed);
}

}  // namespace
}  // namespace project_lumen::core
