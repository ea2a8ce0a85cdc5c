#include "core/TiledInference.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "core/Image.h"
#include "core/TileBlending.h"
#include "core/TileGeometry.h"

namespace project_lumen::core {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

cv::Mat Identity(const cv::Mat& tile) {
  return tile;
}

cv::Mat RunIdentity(const cv::Mat& image, int window, int stride) {
  return RunTiledInference(image, window, stride, nullptr, Identity);
}

// What blending gives for a network that multiplies each tile by a fixed pattern, in double
// precision and pixel by pixel. Mirrored samples lie outside the image only, so every tile that
// covers a pixel sees its true value, and the result is that value times the weighted mean of the
// pattern.
class BlendReference {
 public:
  BlendReference(cv::Mat image, cv::Mat pattern, int stride)
      : image_(std::move(image)), pattern_(std::move(pattern)), stride_(stride) {}

  [[nodiscard]] double At(int row, int column, int channel) const {
    const std::vector<std::pair<int, double>> alongX = Covering(column, image_.cols);
    const std::vector<std::pair<int, double>> alongY = Covering(row, image_.rows);
    double sum = 0.0;
    for (const auto& [x, weightX] : alongX) {
      for (const auto& [y, weightY] : alongY) {
        sum += weightX * weightY * SampleAt(pattern_, y, x, channel);
      }
    }
    return sum * SampleAt(image_, row, column, channel);
  }

 private:
  // Position within the tile and weight, for every tile along one axis that covers the pixel.
  [[nodiscard]] std::vector<std::pair<int, double>> Covering(int position, int length) const {
    const int window = pattern_.rows;
    const int margin = (window - stride_) / 2;
    const int tiles = (length + stride_ - 1) / stride_;
    std::vector<std::pair<int, double>> result;
    for (int i = 0; i < tiles; ++i) {
      const int t = position + margin - i * stride_;
      if (t >= 0 && t < window) {
        const double weight = Weight(t, i == 0, i == tiles - 1);
        if (weight > 0.0) {
          result.emplace_back(t, weight);
        }
      }
    }
    return result;
  }

  [[nodiscard]] double Weight(int t, bool first, bool last) const {
    const double window = pattern_.rows;
    const double fromCentre = t - window / 2;
    if (stride_ == pattern_.rows || (first && fromCentre <= 0) || (last && fromCentre >= 0)) {
      return 1.0;
    }
    // A hat of half width S for narrow strides, a trapezium over the window for wide ones.
    const double ramp = std::min<double>(stride_, window - stride_);
    const double reach = std::min<double>(stride_, window / 2);
    return std::clamp((reach - std::abs(fromCentre)) / ramp, 0.0, 1.0);
  }

  cv::Mat image_;
  cv::Mat pattern_;
  int stride_;
};

// width, height, window, stride
class PatternBlend : public ::testing::TestWithParam<std::tuple<int, int, int, int>> {};

TEST_P(PatternBlend, EqualsTheIndependentSumToFloat32Rounding) {
  const auto [width, height, window, stride] = GetParam();
  const cv::Mat image = MakeNoise({width, height}, CV_32FC3, 21);
  const cv::Mat pattern = MakeNoise({window, window}, CV_32FC3, 22, -1.0, 1.0);
  const cv::Mat output = RunTiledInference(image, window, stride, nullptr,
                                           [&](const cv::Mat& tile) { return tile.mul(pattern); });
  ASSERT_EQ(output.size(), image.size());
  ASSERT_EQ(output.type(), CV_32FC3);
  const BlendReference reference(image, pattern, stride);
  // At most four terms below one, each rounded four times to 24 bits, and three additions.
  const double tolerance = 8 * std::ldexp(1.0, -24);
  for (int r = 0; r < height; ++r) {
    for (int c = 0; c < width; ++c) {
      for (int k = 0; k < 3; ++k) {
        ASSERT_NEAR(SampleAt(output, r, c, k), reference.At(r, c, k), tolerance)
            << r << ", " << c << ", " << k;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(SmallWindow, PatternBlend,
                         ::testing::Values(std::tuple(37, 29, 16, 2), std::tuple(16, 16, 16, 2),
                                           std::tuple(17, 33, 16, 4), std::tuple(35, 18, 16, 6),
                                           std::tuple(40, 21, 16, 8), std::tuple(33, 50, 16, 10),
                                           std::tuple(31, 17, 16, 14), std::tuple(45, 33, 16, 16)));
INSTANTIATE_TEST_SUITE_P(FullWindow, PatternBlend,
                         ::testing::Values(std::tuple(600, 530, 512, 64),
                                           std::tuple(600, 530, 512, 128),
                                           std::tuple(700, 530, 512, 256),
                                           std::tuple(900, 530, 512, 384),
                                           std::tuple(700, 530, 512, 512)));

// The blend of an identity network step by step, in float32 and in the order in which tiles are
// visited.
cv::Mat AddUpInFloat32(const cv::Mat& image, int window, int stride) {
  const TileGeometry geometry = ComputeTileGeometry(image.cols, image.rows, window, stride);
  const BlendRegion region = ComputeBlendRegion(geometry);
  cv::Mat sum(image.size(), CV_32FC3, cv::Scalar::all(0.0));
  for (int tileX = 0; tileX <= geometry.LastTileX(); tileX += stride) {
    for (int tileY = 0; tileY <= geometry.LastTileY(); tileY += stride) {
      for (int r = 0; r < image.rows; ++r) {
        for (int c = 0; c < image.cols; ++c) {
          const int row = r + geometry.margin - tileY;
          const int column = c + geometry.margin - tileX;
          const int end = region.start + region.side;
          if (row < region.start || row >= end || column < region.start || column >= end) {
            continue;
          }
          const auto weight = static_cast<float>(
              TileBlendWeight(geometry, tileX == 0, tileX == geometry.LastTileX(), column) *
              TileBlendWeight(geometry, tileY == 0, tileY == geometry.LastTileY(), row));
          for (int k = 0; k < 3; ++k) {
            const float weighted = image.at<cv::Vec3f>(r, c)[k] * weight;
            sum.at<cv::Vec3f>(r, c)[k] += weighted;
          }
        }
      }
    }
  }
  return sum;
}

TEST(RunTiledInference, AddsTilesInVisitingOrderWithWeightsRoundedToFloat32) {
  const cv::Mat image = MakeNoise({53, 41}, CV_32FC3, 4);
  for (int stride = 2; stride <= 16; stride += 2) {
    EXPECT_TRUE(AreEqual(RunIdentity(image, 16, stride), AddUpInFloat32(image, 16, stride)))
        << stride;
  }
  const cv::Mat large = MakeNoise({600, 530}, CV_32FC3, 4);
  for (const int stride : {254, 256, 300}) {
    EXPECT_TRUE(AreEqual(RunIdentity(large, 512, stride), AddUpInFloat32(large, 512, stride)))
        << stride;
  }
}

TEST(RunTiledInference, OneTileReturnsTheCallbacksOutput) {
  const cv::Mat image = MakeNoise({512, 512}, CV_32FC3, 1);
  cv::Mat answer = MakeNoise({512, 512}, CV_32FC3, 2, -3.0, 3.0);
  const cv::Mat output =
      RunTiledInference(image, 512, 512, nullptr, [&answer](const cv::Mat&) { return answer; });
  EXPECT_TRUE(AreEqual(output, answer));
}

TEST(RunTiledInference, LeavesTheImageAndTheCallbacksOutputUntouched) {
  const cv::Mat image = MakeNoise({24, 24}, CV_32FC3, 1);
  const cv::Mat imageBefore = image.clone();
  cv::Mat answer = MakeNoise({16, 16}, CV_32FC3, 2);
  const cv::Mat answerBefore = answer.clone();
  RunTiledInference(image, 16, 8, nullptr, [&answer](const cv::Mat&) { return answer; });
  EXPECT_TRUE(AreEqual(image, imageBefore));
  EXPECT_TRUE(AreEqual(answer, answerBefore));
}

TEST(RunTiledInference, IdentityReturnsTheImageAtEveryStride) {
  const cv::Mat image = MakeNoise({53, 41}, CV_32FC3, 4);
  for (int stride = 2; stride <= 16; stride += 2) {
    const cv::Mat output = RunIdentity(image, 16, stride);
    EXPECT_LE(cv::norm(output, image, cv::NORM_INF), 4 * std::ldexp(1.0, -24)) << stride;
  }
}

TEST(RunTiledInference, StridesOfAWholeWindowReturnIdentityExactly) {
  const cv::Mat image = MakeNoise({53, 41}, CV_32FC3, 4);
  EXPECT_TRUE(AreEqual(RunIdentity(image, 16, 16), image));
}

TEST(RunTiledInference, ReportsEveryTileAndTheStart) {
  const cv::Mat image = MakeNoise({512, 512}, CV_32FC3, 1);
  std::vector<std::pair<int, int>> calls;
  const auto progress = [&calls](int done, int total) {
    calls.emplace_back(done, total);
    return true;
  };
  RunTiledInference(image, 512, 256, progress, Identity);
  EXPECT_THAT(calls, ElementsAre(Pair(0, 4), Pair(1, 4), Pair(2, 4), Pair(3, 4), Pair(4, 4)));
}

TEST(RunTiledInference, VisitsTilesColumnByColumnFromTheTop) {
  // Every pixel says where it is; with stride 16 the tiles are cut from the image itself.
  cv::Mat image(48, 32, CV_32FC3);
  for (int r = 0; r < image.rows; ++r) {
    for (int c = 0; c < image.cols; ++c) {
      image.at<cv::Vec3f>(r, c) = {static_cast<float>(c), static_cast<float>(r), 0.0F};
    }
  }
  std::vector<std::pair<float, float>> origins;
  RunTiledInference(image, 16, 16, nullptr, [&origins](const cv::Mat& tile) {
    const auto& first = tile.at<cv::Vec3f>(0, 0);
    origins.emplace_back(first[0], first[1]);
    return tile;
  });
  EXPECT_THAT(origins, ElementsAre(Pair(0, 0), Pair(0, 16), Pair(0, 32), Pair(16, 0), Pair(16, 16),
                                   Pair(16, 32)));
}

TEST(RunTiledInference, HandsOutContinuousCopiesOfTheMirroredImage) {
  const cv::Mat image = MakeNoise({20, 18}, CV_32FC3, 8);
  std::vector<cv::Mat> tiles;
  RunTiledInference(image, 16, 8, nullptr, [&tiles](const cv::Mat& tile) {
    EXPECT_TRUE(tile.isContinuous());
    EXPECT_EQ(tile.size(), cv::Size(16, 16));
    tiles.push_back(tile);
    return tile;
  });
  cv::Mat mirrored;
  cv::copyMakeBorder(image, mirrored, 4, 10, 4, 8, cv::BORDER_REFLECT_101);
  ASSERT_EQ(tiles.size(), 9U);
  std::size_t i = 0;
  for (int x = 0; x <= 16; x += 8) {
    for (int y = 0; y <= 16; y += 8) {
      EXPECT_TRUE(AreEqual(tiles[i++], mirrored(cv::Rect(x, y, 16, 16)))) << x << ", " << y;
    }
  }
}

TEST(RunTiledInference, StrideTwoKeepsTheCentralFourPixelsOfEveryTile) {
  // A network whose output is non-zero outside the central 4 x 4 pixels only leaves no trace.
  const cv::Mat image = MakeNoise({20, 18}, CV_32FC3, 8);
  const cv::Mat output = RunTiledInference(image, 16, 2, nullptr, [](const cv::Mat& tile) {
    cv::Mat answer(tile.size(), CV_32FC3, cv::Scalar::all(1e6));
    answer(cv::Rect(6, 6, 4, 4)).setTo(cv::Scalar::all(0.0));
    return answer;
  });
  EXPECT_TRUE(AreEqual(output, cv::Mat(18, 20, CV_32FC3, cv::Scalar::all(0.0))));
}

TEST(RunTiledInference, ConstantImagesComeBackWithoutTheNetwork) {
  const cv::Mat image(700, 530, CV_32FC3, cv::Scalar(0.1, 0.2, 0.7));
  int calls = 0;
  const cv::Mat output = RunTiledInference(image, 512, 512, nullptr, [&calls](const cv::Mat& tile) {
    ++calls;
    return tile;
  });
  EXPECT_EQ(calls, 0);
  EXPECT_TRUE(AreEqual(output, image));
}

TEST(RunTiledInference, ConstantImagesNeedNoNetworkAtAnyStride) {
  const cv::Mat image(33, 40, CV_32FC3, cv::Scalar(0.25, 0.5, 1.0));
  for (int stride = 2; stride <= 16; stride += 2) {
    const cv::Mat output = RunTiledInference(image, 16, stride, nullptr, nullptr);
    EXPECT_LE(cv::norm(output, image, cv::NORM_INF), 2 * std::ldexp(1.0, -24)) << stride;
  }
}

TEST(RunTiledInference, OnlyTilesThatVaryReachTheNetwork) {
  cv::Mat image(32, 48, CV_32FC3, cv::Scalar(0.1, 0.2, 0.3));
  image.at<cv::Vec3f>(31, 16)[2] = 0.4F;
  int calls = 0;
  RunTiledInference(image, 16, 16, nullptr, [&calls](const cv::Mat& tile) {
    EXPECT_EQ(tile.at<cv::Vec3f>(15, 0)[2], 0.4F);
    ++calls;
    return tile;
  });
  EXPECT_EQ(calls, 1);
}

TEST(RunTiledInference, AVariationInAnySampleOfATileReachesTheNetwork) {
  for (const auto& [row, column, channel] :
       {std::tuple(0, 0, 0), std::tuple(0, 0, 2), std::tuple(0, 1, 1), std::tuple(7, 0, 0),
        std::tuple(9, 11, 1), std::tuple(15, 15, 2)}) {
    cv::Mat image(16, 16, CV_32FC3, cv::Scalar::all(0.5));
    image.at<cv::Vec3f>(row, column)[channel] = 0.50001F;
    int calls = 0;
    RunTiledInference(image, 16, 16, nullptr, [&calls](const cv::Mat& tile) {
      ++calls;
      return tile;
    });
    EXPECT_EQ(calls, 1) << row << ", " << column << ", " << channel;
  }
}

TEST(RunTiledInference, NonFiniteTilesAreNotUniform) {
  for (const float level : {kNan, kInfinity, -kInfinity}) {
    const cv::Mat image(16, 16, CV_32FC3, cv::Scalar::all(static_cast<double>(level)));
    int calls = 0;
    RunTiledInference(image, 16, 16, nullptr, [&calls](const cv::Mat& tile) {
      ++calls;
      return cv::Mat(tile.size(), CV_32FC3, cv::Scalar::all(0.0));
    });
    EXPECT_EQ(calls, 1) << level;
  }
}

TEST(RunTiledInference, AnEmptyCallbackFailsOnTheFirstTileThatVaries) {
  EXPECT_THROW(RunTiledInference(MakeNoise({16, 16}, CV_32FC3, 1), 16, 16, nullptr, nullptr),
               std::bad_function_call);
}

TEST(RunTiledInference, ProgressThatDeclinesAtTheStartStopsBeforeAnyTile) {
  int tiles = 0;
  ExpectThrows<Cancelled>(
      [&tiles] {
        RunTiledInference(
            MakeNoise({16, 16}, CV_32FC3, 1), 16, 16, [](int, int) { return false; },
            [&tiles](const cv::Mat& tile) {
              ++tiles;
              return tile;
            });
      },
      "Processing cancelled.");
  EXPECT_EQ(tiles, 0);
}

TEST(RunTiledInference, ProgressThatDeclinesLaterStopsAfterThatTile) {
  int tiles = 0;
  EXPECT_THROW(RunTiledInference(
                   MakeNoise({48, 16}, CV_32FC3, 1), 16, 16, [](int done, int) { return done < 2; },
                   [&tiles](const cv::Mat& tile) {
                     ++tiles;
                     return tile;
                   }),
               Cancelled);
  EXPECT_EQ(tiles, 2);
}

TEST(RunTiledInference, ExceptionsOfTheCallbackPassThrough) {
  ExpectThrows<std::domain_error>(
      [] {
        RunTiledInference(MakeNoise({16, 16}, CV_32FC3, 1), 16, 16, nullptr,
                          [](const cv::Mat&) -> cv::Mat { throw std::domain_error("mine"); });
      },
      "mine");
}

class RefusedOutput : public ::testing::Test {
 protected:
  static void ExpectRefused(const cv::Mat& output, const char* text) {
    ExpectThrows<std::runtime_error>(
        [&output] {
          RunTiledInference(MakeNoise({512, 512}, CV_32FC3, 1), 512, 512, nullptr,
                            [&output](const cv::Mat&) { return output; });
        },
        text);
  }
  static constexpr const char* kShape = "Inference returned an invalid tile shape or type.";
  static constexpr const char* kNonFinite = "Inference returned non-finite samples.";
};

TEST_F(RefusedOutput, OneChannel) {
  ExpectRefused(cv::Mat(512, 512, CV_32FC1, cv::Scalar(0)), kShape);
}

TEST_F(RefusedOutput, AnotherDepth) {
  ExpectRefused(cv::Mat(512, 512, CV_64FC3, cv::Scalar(0)), kShape);
}

TEST_F(RefusedOutput, AnotherSize) {
  ExpectRefused(cv::Mat(256, 256, CV_32FC3, cv::Scalar(0)), kShape);
  ExpectRefused(cv::Mat(512, 511, CV_32FC3, cv::Scalar(0)), kShape);
  ExpectRefused(cv::Mat(513, 512, CV_32FC3, cv::Scalar(0)), kShape);
}

TEST_F(RefusedOutput, NoSamples) {
  ExpectRefused(cv::Mat(), kShape);
}

TEST_F(RefusedOutput, NonFiniteSamplesAnywhere) {
  for (const float bad : {kNan, kInfinity, -kInfinity}) {
    for (const cv::Point at : {cv::Point(0, 0), cv::Point(511, 511), cv::Point(200, 300)}) {
      cv::Mat output(512, 512, CV_32FC3, cv::Scalar::all(0.5));
      output.at<cv::Vec3f>(at)[1] = bad;
      ExpectRefused(output, kNonFinite);
    }
  }
}

TEST(RunTiledInference, NonFiniteSamplesOutsideTheBlendRegionAreRefusedToo) {
  ExpectThrows<std::runtime_error>(
      [] {
        RunTiledInference(MakeNoise({16, 16}, CV_32FC3, 1), 16, 2, nullptr,
                          [](const cv::Mat& tile) {
                            cv::Mat output = tile.clone();
                            output.at<cv::Vec3f>(0, 0)[0] = kNan;
                            return output;
                          });
      },
      "Inference returned non-finite samples.");
}

TEST(RunTiledInference, TheLargestFiniteSamplesPass) {
  const float largest = std::numeric_limits<float>::max();
  cv::Mat image(16, 16, CV_32FC3, cv::Scalar::all(0.0));
  image.at<cv::Vec3f>(3, 4) = {largest, -largest, std::numeric_limits<float>::denorm_min()};
  EXPECT_TRUE(AreEqual(RunIdentity(image, 16, 16), image));
}

TEST(RunTiledInference, PutsTheResultWhereTheCallerWantsIt) {
  const cv::Mat image = MakeNoise({40, 33}, CV_32FC3, 4);
  const cv::Mat place(image.size(), CV_32FC3, cv::Scalar::all(0.0));
  const cv::Mat result = RunTiledInference(image, 16, 8, nullptr, Identity, place);
  EXPECT_EQ(result.data, place.data);
  EXPECT_TRUE(AreEqual(place, RunIdentity(image, 16, 8)));
}

TEST(RunTiledInference, AcceptsOutputsThatArePartOfALargerMatrix) {
  const cv::Mat image = MakeNoise({20, 17}, CV_32FC3, 1);
  const cv::Mat output = RunTiledInference(image, 16, 8, nullptr, [](const cv::Mat& tile) {
    cv::Mat larger(40, 40, CV_32FC3, cv::Scalar::all(9.0));
    tile.copyTo(larger(cv::Rect(5, 6, 16, 16)));
    return larger(cv::Rect(5, 6, 16, 16));
  });
  EXPECT_TRUE(AreEqual(output, RunIdentity(image, 16, 8)));
}

void ExpectRequestRefused(const cv::Mat& image, int window, int stride, const char* text) {
  int calls = 0;
  const auto progress = [&calls](int, int) {
    ++calls;
    return true;
  };
  ExpectThrows<std::invalid_argument>(
      [&] { RunTiledInference(image, window, stride, progress, Identity); }, text);
  EXPECT_EQ(calls, 0);
}

TEST(RunTiledInference, RefusesImagesOfAnotherTypeBeforeAnythingElse) {
  constexpr const char* kText = "Tiled inference requires float32 RGB pixels.";
  ExpectRequestRefused(cv::Mat(), 16, 16, kText);
  ExpectRequestRefused(cv::Mat(16, 16, CV_32FC1, cv::Scalar(0)), 16, 16, kText);
  ExpectRequestRefused(cv::Mat(16, 16, CV_64FC3, cv::Scalar(0)), 16, 16, kText);
  ExpectRequestRefused(cv::Mat(16, 16, CV_8UC3, cv::Scalar(0)), 0, 3, kText);
}

TEST(RunTiledInference, RefusesImpossibleWindowsAndStridesBeforeTheSize) {
  constexpr const char* kText = "Invalid inference window or stride.";
  const cv::Mat image(8, 8, CV_32FC3, cv::Scalar::all(0.0));
  ExpectRequestRefused(image, 0, 1, kText);
  ExpectRequestRefused(image, -16, -16, kText);
  ExpectRequestRefused(image, 16, 0, kText);
  ExpectRequestRefused(image, 16, -2, kText);
  ExpectRequestRefused(image, 16, 18, kText);
  ExpectRequestRefused(image, 16, 15, kText);
}

TEST(RunTiledInference, RefusesImagesSmallerThanTheWindow) {
  constexpr const char* kText = "Image size is too small for the window!";
  ExpectRequestRefused(cv::Mat(16, 15, CV_32FC3, cv::Scalar::all(0.0)), 16, 16, kText);
  ExpectRequestRefused(cv::Mat(15, 16, CV_32FC3, cv::Scalar::all(0.0)), 16, 16, kText);
}

TEST(RunTiledInference, RefusesImagesBeyondTheTilingLimits) {
  constexpr const char* kText = "Image dimensions exceed supported tiling limits.";
  // Headers over one pixel: the size is refused before a sample is read.
  std::vector<float> pixel(3);
  ExpectRequestRefused(cv::Mat(2147483646, 1, CV_32FC3, pixel.data()), 1, 1, kText);
  ExpectRequestRefused(cv::Mat(46340, 46340, CV_32FC3, pixel.data()), 1, 1, kText);
}

}  // namespace
}  // namespace project_lumen::core
