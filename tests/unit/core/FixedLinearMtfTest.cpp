#include "core/FixedLinearMtf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "core/MtfTransfer.h"

namespace project_lumen::core {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kClipping = -2.8;
constexpr double kTarget = 0.25;

FixedLinearMtf Prepare(const cv::Mat& source, double divisor = 1.0) {
  return {source, divisor, kClipping, kTarget};
}

// A dark sky: most samples near 0.1, some at both ends.
cv::Mat MakeLinearImage(cv::Size size, int channels, unsigned seed) {
  cv::Mat image = MakeNoise(size, CV_64FC(channels), seed, 0.09, 0.11);
  const cv::Mat stars = MakeNoise(size, CV_64FC(channels), seed + 1);
  for (int r = 0; r < image.rows; ++r) {
    auto* row = image.ptr<double>(r);
    const auto* star = stars.ptr<double>(r);
    for (int i = 0; i < image.cols * channels; ++i) {
      row[i] = star[i] > 0.95 ? star[i] : star[i] < 0.05 ? star[i] - 0.02 : row[i];
    }
  }
  return image;
}

double SortedMedian(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : values[half - 1] / 2 + values[half] / 2;
}

// The same statistics by full sorting.
LinearChannelStats SortedStatistics(const cv::Mat& source, int channel, double divisor) {
  LinearChannelStats stats;
  std::vector<double> working;
  for (int r = 0; r < source.rows; ++r) {
    for (int c = 0; c < source.cols; ++c) {
      const double x = SampleAt(source, r, c, channel);
      stats.aboveOne += x / divisor > 1 ? 1 : 0;
      working.push_back(x / divisor > 1 ? 1.0 : x / divisor);
    }
  }
  stats.constant = std::count(working.begin(), working.end(), working[0]) ==
                   static_cast<std::ptrdiff_t>(working.size());
  stats.median = SortedMedian(working);
  std::vector<double> deviations(working.size());
  std::transform(working.begin(), working.end(), deviations.begin(),
                 [&stats](double w) { return std::fabs(w - stats.median); });
  stats.normalizedMad = SortedMedian(deviations) * 1.4826;
  stats.shadows = stats.median + kClipping * stats.normalizedMad;
  stats.shadows = stats.shadows < 0 || stats.normalizedMad == 0 ? 0.0 : stats.shadows;
  const double d = stats.median - stats.shadows;
  stats.midtones = d * (1 - kTarget) / (d + kTarget - 2 * kTarget * d);
  for (const double w : working) {
    stats.atOrBelowShadows += w <= stats.shadows ? 1 : 0;
  }
  return stats;
}

void ExpectEqualStatistics(const LinearChannelStats& found, const LinearChannelStats& expected) {
  EXPECT_EQ(found.median, expected.median);
  EXPECT_EQ(found.normalizedMad, expected.normalizedMad);
  EXPECT_EQ(found.shadows, expected.shadows);
  EXPECT_NEAR(found.midtones, expected.midtones, 1e-15);
  EXPECT_EQ(found.constant, expected.constant);
  EXPECT_EQ(found.aboveOne, expected.aboveOne);
  EXPECT_EQ(found.atOrBelowShadows, expected.atOrBelowShadows);
}

TEST(FixedLinearMtf, MeasuresAHandWorkedChannel) {
  // Divided by 200: -0.1, 0.1, 0.2, 0.25, 0.3, 1 (capped). Even count: the median is
  // 0.2/2 + 0.25/2 = 0.225; deviations 0.325 0.125 0.025 0.025 0.075 0.775, in order 0.025 0.025
  // 0.075 0.125 0.325 0.775, their median 0.1; shadows 0.225 - 2.8 * 0.14826 < 0.
  const cv::Mat source = (cv::Mat_<double>(2, 3) << 50.0, -20.0, 20.0, 500.0, 40.0, 60.0);
  const FixedLinearMtf mtf = Prepare(source, 200.0);
  ASSERT_EQ(mtf.Channels().size(), 1U);
  const LinearChannelStats& stats = mtf.Channels()[0];
  EXPECT_NEAR(stats.median, 0.225, 1e-15);
  EXPECT_NEAR(stats.normalizedMad, 0.14826, 1e-15);
  EXPECT_EQ(stats.shadows, 0.0);
  // 0.75 * 0.225 / (0.5 * 0.225 + 0.25)
  EXPECT_NEAR(stats.midtones, 0.16875 / 0.3625, 1e-15);
  EXPECT_FALSE(stats.constant);
  EXPECT_EQ(stats.aboveOne, 1U);
  EXPECT_EQ(stats.atOrBelowShadows, 1U);
}

TEST(FixedLinearMtf, MedianOfAnOddCountIsTheMiddleSample) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 0.5, 0.1, 0.3, 0.2, 0.4);
  EXPECT_EQ(Prepare(source).Channels()[0].median, 0.3);
}

TEST(FixedLinearMtf, MeasuresRandomImagesLikeAFullSort) {
  for (const cv::Size size : {cv::Size(7, 5), cv::Size(8, 6), cv::Size(64, 51)}) {
    for (const int channels : {1, 3}) {
      for (const double divisor : {1.0, 255.0, 65535.0}) {
        const cv::Mat source = MakeLinearImage(size, channels, 3) * (1.05 * divisor);
        const FixedLinearMtf mtf = Prepare(source, divisor);
        ASSERT_EQ(mtf.Channels().size(), static_cast<std::size_t>(channels));
        for (int k = 0; k < channels; ++k) {
          SCOPED_TRACE(::testing::Message() << size << " K " << divisor << " channel " << k);
          ExpectEqualStatistics(mtf.Channels()[static_cast<std::size_t>(k)],
                                SortedStatistics(source, k, divisor));
        }
      }
    }
  }
}

TEST(FixedLinearMtf, WorkingSamplesAreDividedAndCappedAtOne) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << -51.0, 0.0, 51.0, 255.0, 510.0);
  const FixedLinearMtf mtf = Prepare(source, 255.0);
  const cv::Mat expected = (cv::Mat_<double>(1, 5) << -0.2, 0.0, 0.2, 1.0, 1.0);
  EXPECT_TRUE(AreEqual(mtf.Working(), expected));
}

TEST(FixedLinearMtf, WorkingSamplesAboveOneAreCappedWithoutDivisionToo) {
  const cv::Mat source = (cv::Mat_<double>(1, 3) << 0.1, 0.2, 1.5);
  const cv::Mat expected = (cv::Mat_<double>(1, 3) << 0.1, 0.2, 1.0);
  EXPECT_TRUE(AreEqual(Prepare(source).Working(), expected));
  EXPECT_EQ(source.at<double>(0, 2), 1.5);
}

TEST(FixedLinearMtf, SharesASourceThatIsItsOwnWorkingImage) {
  const cv::Mat source = MakeLinearImage({20, 20}, 3, 4);
  EXPECT_EQ(Prepare(source).Working().data, source.data);
}

TEST(FixedLinearMtf, StretchedSamplesAreTheTransferRoundedToFloat32) {
  const cv::Mat source = MakeLinearImage({30, 20}, 3, 5);
  const FixedLinearMtf mtf = Prepare(source);
  const cv::Mat stretched = mtf.Stretch();
  ASSERT_EQ(stretched.type(), CV_32FC3);
  ASSERT_EQ(stretched.size(), source.size());
  for (int r = 0; r < source.rows; ++r) {
    for (int c = 0; c < source.cols; ++c) {
      for (int k = 0; k < 3; ++k) {
        const LinearChannelStats& stats = mtf.Channels()[static_cast<std::size_t>(k)];
        const double expected =
            MtfForward(stats.midtones, SampleAt(source, r, c, k) - stats.shadows);
        ASSERT_EQ(SampleAt(stretched, r, c, k), static_cast<double>(static_cast<float>(expected)));
      }
    }
  }
}

TEST(FixedLinearMtf, TheMedianIsStretchedToTheTarget) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 0.08, 0.09, 0.1, 0.11, 0.12);
  EXPECT_NEAR(SampleAt(Prepare(source).Stretch(), 0, 2, 0), kTarget, 1e-7);
}

TEST(FixedLinearMtf, AConstantChannelIsStretchedToZeroAndComesBack) {
  cv::Mat source = MakeLinearImage({8, 8}, 3, 6);
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      source.at<cv::Vec3d>(r, c)[1] = 0.0;
    }
  }
  const FixedLinearMtf mtf = Prepare(source);
  EXPECT_FALSE(mtf.Channels()[0].constant);
  EXPECT_TRUE(mtf.Channels()[1].constant);
  EXPECT_EQ(mtf.Channels()[1].shadows, 0.0);
  EXPECT_EQ(mtf.Channels()[1].atOrBelowShadows, 64U);
  cv::Mat stretched = mtf.Stretch();
  for (int r = 0; r < 8; ++r) {
    for (int c = 0; c < 8; ++c) {
      EXPECT_EQ(stretched.at<cv::Vec3f>(r, c)[1], 0.0F);
      // What the network makes of a constant channel does not matter.
      stretched.at<cv::Vec3f>(r, c)[1] = std::numeric_limits<float>::quiet_NaN();
    }
  }
  const cv::Mat result = mtf.InvertLinearPrediction(stretched);
  EXPECT_EQ(SampleAt(result, 3, 4, 1), 0.0);
  EXPECT_EQ(SampleAt(result, 7, 7, 1), 0.0);
}

TEST(FixedLinearMtf, AChannelThatTheCapMakesEqualIsConstant) {
  const cv::Mat source = (cv::Mat_<double>(1, 3) << 1.5, 1.0, 7.0);
  const LinearChannelStats stats = Prepare(source).Channels()[0];
  EXPECT_TRUE(stats.constant);
  EXPECT_EQ(stats.aboveOne, 2U);
}

TEST(FixedLinearMtf, ASampleAtTheShadowsPointCountsAsClipped) {
  // MAD 0: the shadows are 0, and so is one sample.
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 0.25, 0.25, 0.25, 0.0, -0.5);
  EXPECT_EQ(Prepare(source).Channels()[0].atOrBelowShadows, 2U);
}

TEST(FixedLinearMtf, IdentityPredictionReturnsTheWorkingImage) {
  const cv::Mat source = MakeLinearImage({40, 30}, 3, 7);
  const FixedLinearMtf mtf = Prepare(source);
  const cv::Mat result = mtf.InvertLinearPrediction(mtf.Stretch());
  ASSERT_EQ(result.type(), CV_64FC3);
  for (int r = 0; r < source.rows; ++r) {
    for (int c = 0; c < source.cols; ++c) {
      for (int k = 0; k < 3; ++k) {
        const LinearChannelStats& stats = mtf.Channels()[static_cast<std::size_t>(k)];
        const double w = SampleAt(mtf.Working(), r, c, k);
        if (w <= stats.shadows) {
          ASSERT_EQ(SampleAt(result, r, c, k), w);
        } else {
          // float32 rounding, amplified by the steepest part of the inverse.
          const double gain = std::max(stats.midtones / (1 - stats.midtones),
                                       (1 - stats.midtones) / stats.midtones);
          ASSERT_NEAR(SampleAt(result, r, c, k), w, gain * std::ldexp(1.0, -24));
        }
      }
    }
  }
}

TEST(FixedLinearMtf, NegativeSamplesSurviveTheRoundTrip) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << -0.75, 0.09, 0.1, 0.11, 0.12);
  const FixedLinearMtf mtf = Prepare(source);
  EXPECT_EQ(SampleAt(mtf.InvertLinearPrediction(mtf.Stretch()), 0, 0, 0), -0.75);
}

TEST(FixedLinearMtf, PredictionsInDoublePrecisionAreInvertedExactly) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 0.08, 0.09, 0.1, 0.11, 0.12);
  const FixedLinearMtf mtf = Prepare(source);
  const LinearChannelStats& stats = mtf.Channels()[0];
  const cv::Mat prediction = (cv::Mat_<double>(1, 5) << 0.1, 0.2, 0.3, 0.4, 2.0);
  const cv::Mat before = prediction.clone();
  const cv::Mat result = mtf.InvertLinearPrediction(prediction);
  for (int c = 0; c < 4; ++c) {
    EXPECT_EQ(SampleAt(result, 0, c, 0),
              MtfInverse(stats.midtones, SampleAt(prediction, 0, c, 0)) + stats.shadows);
  }
  EXPECT_EQ(SampleAt(result, 0, 4, 0), 1.0 + stats.shadows);
  EXPECT_TRUE(AreEqual(prediction, before));
}

TEST(FixedLinearMtf, RestoresWorkingSamplesOfClippedAndConstantOnes) {
  cv::Mat source(1, 5, CV_64FC3);
  const double varying[] = {0.0, 0.09, 0.1, 0.11, 0.12};
  for (int c = 0; c < 5; ++c) {
    source.at<cv::Vec3d>(0, c) = {varying[c], 0.7, varying[4 - c]};
  }
  const FixedLinearMtf mtf = Prepare(source);
  cv::Mat image(1, 5, CV_64FC3, cv::Scalar::all(9.0));
  mtf.RestoreWorkingSamples(image);
  for (int c = 0; c < 5; ++c) {
    EXPECT_EQ(image.at<cv::Vec3d>(0, c), cv::Vec3d(c == 0 ? 0.0 : 9.0, 0.7, c == 4 ? 0.0 : 9.0))
        << c;
  }
}

TEST(RestoreSamples, CountsWhatComesBackInEachChannel) {
  // Shadows at 0.25 in both kinds of channel; the third is constant.
  std::vector<LinearChannelStats> channels(3);
  for (LinearChannelStats& channel : channels) {
    channel.shadows = 0.25;
  }
  channels[2].constant = true;
  const cv::Mat source = (cv::Mat_<cv::Vec3d>(1, 3) << cv::Vec3d(0.25, 0.3, 0.2),
                          cv::Vec3d(-1.0, 0.26, 0.5), cv::Vec3d(0.26, 0.0, 0.75));
  cv::Mat image(1, 3, CV_64FC3, cv::Scalar::all(9.0));
  const std::vector<RestoredSamples> restored = RestoreSamples(source, channels, image);
  const cv::Mat expected = (cv::Mat_<cv::Vec3d>(1, 3) << cv::Vec3d(0.25, 9.0, 0.2),
                            cv::Vec3d(-1.0, 9.0, 0.5), cv::Vec3d(9.0, 0.0, 0.75));
  EXPECT_TRUE(AreEqual(image, expected));
  ASSERT_EQ(restored.size(), 3U);
  EXPECT_EQ(restored[0].inShadows, 2U);
  EXPECT_EQ(restored[0].alsoConstant, 0U);
  EXPECT_EQ(restored[1].inShadows, 1U);
  EXPECT_EQ(restored[1].alsoConstant, 0U);
  EXPECT_EQ(restored[2].inShadows, 1U);
  EXPECT_EQ(restored[2].alsoConstant, 2U);
}

TEST(RestoreSamples, AGreySourceTakesTheFirstRecord) {
  std::vector<LinearChannelStats> channels(3);
  channels[0].shadows = 0.25;
  const cv::Mat source = (cv::Mat_<double>(2, 1) << 0.125, 0.5);
  cv::Mat image(2, 1, CV_64FC1, cv::Scalar(9.0));
  const std::vector<RestoredSamples> restored = RestoreSamples(source, channels, image);
  EXPECT_TRUE(AreEqual(image, (cv::Mat_<double>(2, 1) << 0.125, 9.0)));
  ASSERT_EQ(restored.size(), 1U);
  EXPECT_EQ(restored[0].inShadows, 1U);
}

void ExpectRefused(const cv::Mat& source, double divisor, double clipping, double target,
                   const char* text) {
  ExpectThrows<std::invalid_argument>(
      [&] { const FixedLinearMtf mtf(source, divisor, clipping, target); }, text);
}

TEST(FixedLinearMtf, RefusesOtherImagesFirst) {
  constexpr const char* kText = "Fixed linear MTF requires a float64 mono or RGB image.";
  ExpectRefused(cv::Mat(), 0.0, 0.0, 0.0, kText);
  ExpectRefused(cv::Mat(0, 0, CV_64FC1), 1.0, kClipping, kTarget, kText);
  ExpectRefused(cv::Mat(2, 2, CV_32FC3, cv::Scalar::all(0)), 1.0, kClipping, kTarget, kText);
  ExpectRefused(cv::Mat(2, 2, CV_64FC2, cv::Scalar::all(0)), 1.0, kClipping, kTarget, kText);
  ExpectRefused(cv::Mat(2, 2, CV_64FC4, cv::Scalar::all(0)), 1.0, kClipping, kTarget, kText);
  const int sizes[] = {2, 2, 2};
  ExpectRefused(cv::Mat(3, sizes, CV_64FC1, cv::Scalar(0)), 1.0, kClipping, kTarget, kText);
}

TEST(FixedLinearMtf, RefusesOtherDivisorsBeforeTheOptions) {
  const cv::Mat source(2, 2, CV_64FC1, cv::Scalar(0.5));
  for (const double divisor : {0.0, -1.0, kNan, kInfinity}) {
    ExpectRefused(source, divisor, 0.0, 0.0,
                  "Linear input requires a finite positive sample-format divisor.");
  }
}

TEST(FixedLinearMtf, RefusesOptionsOutsideTheirRangesBeforeTheSamples) {
  constexpr const char* kText =
      "Linear MTF requires a negative shadows multiplier and target between 0 and 1.";
  const cv::Mat source(2, 2, CV_64FC1, cv::Scalar(kNan));
  for (const double clipping : {0.0, 1.0, kNan, -kInfinity}) {
    ExpectRefused(source, 1.0, clipping, kTarget, kText);
  }
  for (const double target : {0.0, 1.0, -1.0, kNan, kInfinity}) {
    ExpectRefused(source, 1.0, kClipping, target, kText);
  }
}

TEST(FixedLinearMtf, RefusesSamplesThatAreNotFinite) {
  constexpr const char* kText =
      "Linear input contains a non-finite sample or unrepresentable conversion.";
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    cv::Mat source = MakeLinearImage({6, 5}, 3, 8);
    source.at<cv::Vec3d>(4, 5)[2] = bad;
    ExpectRefused(source, 1.0, kClipping, kTarget, kText);
  }
}

TEST(FixedLinearMtf, RefusesSamplesThatTheDivisionMakesInfinite) {
  const cv::Mat source = (cv::Mat_<double>(1, 3) << 1.0, 1e300, 2.0);
  ExpectRefused(source, 1e-10, kClipping, kTarget,
                "Linear input contains a non-finite sample or unrepresentable conversion.");
}

TEST(FixedLinearMtf, RefusesABackgroundOfZeroInAVaryingChannel) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 0.0, 0.0, 0.0, 0.5, 0.6);
  ExpectRefused(source, 1.0, kClipping, kTarget,
                "Linear input has a non-invertible MTF background in channel 1. Normalize or "
                "prepare the image upstream.");
}

TEST(FixedLinearMtf, RefusesAWhiteBackgroundInAVaryingChannel) {
  const cv::Mat source = (cv::Mat_<double>(1, 5) << 1.0, 2.0, 3.0, 0.5, 0.6);
  ExpectRefused(source, 1.0, kClipping, kTarget,
                "Linear input has a non-invertible MTF background in channel 1. Normalize or "
                "prepare the image upstream.");
}

TEST(FixedLinearMtf, RefusesANegativeBackground) {
  const cv::Mat source = (cv::Mat_<double>(1, 3) << -1.7e308, -0.25, 0.5);
  ExpectRefused(source, 1.0, kClipping, kTarget,
                "Linear input has a non-invertible MTF background in channel 1. Normalize or "
                "prepare the image upstream.");
}

TEST(FixedLinearMtf, NamesTheFirstBadChannelCountedFromOne) {
  cv::Mat source = MakeLinearImage({6, 5}, 3, 8);
  for (int r = 0; r < 5; ++r) {
    for (int c = 0; c < 6; ++c) {
      source.at<cv::Vec3d>(r, c)[1] = r == 0 && c == 0 ? 0.5 : 0.0;
    }
  }
  // Channels are checked in turn, so a later channel's NaN goes unnoticed.
  source.at<cv::Vec3d>(0, 0)[2] = kNan;
  ExpectRefused(source, 1.0, kClipping, kTarget,
                "Linear input has a non-invertible MTF background in channel 2. Normalize or "
                "prepare the image upstream.");
}

TEST(FixedLinearMtf, RefusesPredictionsOfAnotherShape) {
  const FixedLinearMtf mtf = Prepare(MakeLinearImage({6, 5}, 3, 8));
  for (const cv::Mat& prediction :
       {cv::Mat(), cv::Mat(5, 5, CV_32FC3), cv::Mat(5, 6, CV_32FC1), cv::Mat(5, 6, CV_8UC3)}) {
    ExpectThrows<std::invalid_argument>([&] { (void)mtf.InvertLinearPrediction(prediction); },
                                        "Linear MTF prediction does not match the prepared image.");
  }
}

TEST(FixedLinearMtf, RefusesPredictionsThatAreNotFinite) {
  const FixedLinearMtf mtf = Prepare(MakeLinearImage({6, 5}, 3, 8));
  for (const double bad : {kNan, kInfinity, -kInfinity}) {
    for (const int depth : {CV_32F, CV_64F}) {
      cv::Mat prediction;
      mtf.Stretch().convertTo(prediction, depth);
      prediction.col(2).row(3).setTo(cv::Scalar(0.5, bad, 0.5));
      ExpectThrows<std::invalid_argument>([&] { (void)mtf.InvertLinearPrediction(prediction); },
                                          "Linear MTF inference returned a non-finite sample.");
    }
  }
}

TEST(FixedLinearMtf, RefusesToRestoreOtherTypes) {
  const FixedLinearMtf mtf = Prepare(MakeLinearImage({6, 5}, 3, 8));
  for (cv::Mat image : {cv::Mat(), cv::Mat(5, 6, CV_32FC3), cv::Mat(5, 6, CV_64FC2)}) {
    ExpectThrows<std::invalid_argument>([&] { mtf.RestoreWorkingSamples(image); },
                                        "Fixed linear MTF requires a float64 mono or RGB image.");
  }
}

TEST(FixedLinearMtf, RefusesToRestoreOtherShapes) {
  const FixedLinearMtf mtf = Prepare(MakeLinearImage({6, 5}, 3, 8));
  for (cv::Mat image : {cv::Mat(5, 5, CV_64FC3), cv::Mat(5, 6, CV_64FC1)}) {
    ExpectThrows<std::invalid_argument>([&] { mtf.RestoreWorkingSamples(image); },
                                        "Linear MTF output does not match the prepared image.");
  }
}

}  // namespace
}  // namespace project_lumen::core
