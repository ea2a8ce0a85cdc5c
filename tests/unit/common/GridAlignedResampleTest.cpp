#include "common/GridAlignedResample.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace project_lumen {
namespace {

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

constexpr const char* kFloatMatrixExpected =
    "!source.empty() && source.dims == 2 && "
    "(source.depth() == CV_32F || source.depth() == CV_64F)";

// Random samples around the unit range, some of them NaN or infinite when `special` is set.
cv::Mat MakeNoise(cv::Size size, int type, unsigned seed, bool special) {
  std::mt19937 generator(seed);
  std::uniform_real_distribution<double> level(-0.5, 1.5);
  cv::Mat image(size, CV_MAKETYPE(CV_64F, CV_MAT_CN(type)));
  for (int r = 0; r < image.rows; ++r) {
    auto* row = image.ptr<double>(r);
    for (int i = 0; i < image.cols * image.channels(); ++i) {
      row[i] = level(generator);
      if (special && generator() % 16 == 0) {
        constexpr double kSpecial[] = {kNan, kInfinity, -kInfinity, -0.0};
        row[i] = kSpecial[generator() % 4];
      }
    }
  }
  cv::Mat result;
  image.convertTo(result, type);
  return result;
}

bool HaveSameBits(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) {
    return false;
  }
  const std::size_t bytes = static_cast<std::size_t>(a.cols) * a.elemSize();
  for (int r = 0; r < a.rows; ++r) {
    if (std::memcmp(a.ptr(r), b.ptr(r), bytes) != 0) {
      return false;
    }
  }
  return true;
}

// The sample that the two-pass definition gives at one position, found point by point.
double ExpectedSample(const cv::Mat& source, int row, int column, int channel) {
  const auto between = [](double a, double b, double c, double d) {
    if (a == b && b == c && c == d) {
      return b;
    }
    return 0.59375 * (b + c) - 0.09375 * (a + d);
  };
  const auto stored = [&source](double value) {
    return source.depth() == CV_32F ? static_cast<double>(static_cast<float>(value)) : value;
  };
  const auto input = [&source, channel](int r, int c) {
    const int x = std::clamp(c, 0, source.cols - 1) * source.channels() + channel;
    return source.depth() == CV_32F ? static_cast<double>(source.ptr<float>(r)[x])
                                    : source.ptr<double>(r)[x];
  };
  const auto onSourceRow = [&](int r) {
    const int c = column / 2;
    return column % 2 == 0
               ? input(r, c)
               : stored(between(input(r, c - 1), input(r, c), input(r, c + 1), input(r, c + 2)));
  };
  const int r = row / 2;
  if (row % 2 == 0) {
    return onSourceRow(r);
  }
  const auto clamped = [&](int i) { return onSourceRow(std::clamp(i, 0, source.rows - 1)); };
  return stored(between(clamped(r - 1), clamped(r), clamped(r + 1), clamped(r + 2)));
}

double SampleAt(const cv::Mat& image, int row, int column, int channel) {
  const int x = column * image.channels() + channel;
  return image.depth() == CV_32F ? static_cast<double>(image.ptr<float>(row)[x])
                                 : image.ptr<double>(row)[x];
}

void ExpectAssertion(const cv::Exception& error, const std::string& function,
                     const std::string& expression) {
  EXPECT_EQ(error.code, -215);
  EXPECT_EQ(error.func, function);
  EXPECT_EQ(error.err, expression);
}

template <typename Call>
void ExpectAssertion(Call call, const std::string& function, const std::string& expression) {
  try {
    call();
    ADD_FAILURE() << "no exception";
  } catch (const cv::Exception& error) {
    ExpectAssertion(error, function, expression);
  }
}

void ExpectUpsampleRefused(const cv::Mat& source, const std::string& expression) {
  ExpectAssertion([&] { UpsampleGridCubic2x(source); }, "project_lumen::UpsampleGridCubic2x",
                  expression);
}

void ExpectDownsampleRefused(const cv::Mat& source, cv::Size target,
                             const std::string& expression) {
  ExpectAssertion([&] { DownsampleGrid2x(source, target); }, "project_lumen::DownsampleGrid2x",
                  expression);
}

class GridRoundTrip : public ::testing::TestWithParam<int> {};

TEST_P(GridRoundTrip, ReturnsImagesOfEverySizeBitForBit) {
  for (int rows = 1; rows <= 64; ++rows) {
    for (int columns = 1; columns <= 65; ++columns) {
      const auto seed = static_cast<unsigned>(rows * 100 + columns);
      const cv::Mat image = MakeNoise({columns, rows}, GetParam(), seed, false);
      const cv::Mat back = DownsampleGrid2x(UpsampleGridCubic2x(image), image.size());
      ASSERT_TRUE(HaveSameBits(back, image)) << rows << " x " << columns;
    }
  }
}

TEST_P(GridRoundTrip, ReturnsNanAndInfinitiesBitForBit) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    const cv::Mat image = MakeNoise({65, 13}, GetParam(), seed, true);
    const cv::Mat back = DownsampleGrid2x(UpsampleGridCubic2x(image), image.size());
    ASSERT_TRUE(HaveSameBits(back, image)) << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndChannels, GridRoundTrip,
                         ::testing::Values(CV_32FC1, CV_32FC3, CV_64FC1, CV_64FC3));

class UpsampledValues : public ::testing::TestWithParam<int> {};

TEST_P(UpsampledValues, EqualThePointwiseDefinition) {
  const cv::Size sizes[] = {{1, 1}, {2, 1}, {1, 3}, {3, 4}, {9, 6}};
  for (const cv::Size size : sizes) {
    const cv::Mat source = MakeNoise(size, GetParam(), 11, false);
    const cv::Mat output = UpsampleGridCubic2x(source);
    ASSERT_EQ(output.size(), cv::Size(2 * size.width, 2 * size.height));
    ASSERT_EQ(output.type(), source.type());
    for (int r = 0; r < output.rows; ++r) {
      for (int c = 0; c < output.cols; ++c) {
        for (int k = 0; k < output.channels(); ++k) {
          ASSERT_EQ(SampleAt(output, r, c, k), ExpectedSample(source, r, c, k))
              << size << " at " << r << ", " << c << ", " << k;
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(DepthsAndChannels, UpsampledValues,
                         ::testing::Values(CV_32FC1, CV_32FC2, CV_32FC3, CV_64FC1, CV_64FC3));

TEST(UpsampleGridCubic2x, InterpolatesHalfwayBetweenTheMiddleTaps) {
  const cv::Mat source = (cv::Mat_<double>(1, 4) << 0.0, 1.0, 0.0, 1.0);
  const cv::Mat output = UpsampleGridCubic2x(source);
  // By hand, edge samples repeated: 0.59375 (0 + 1) - 0.09375 (0 + 0), then
  // 0.59375 (1 + 0) - 0.09375 (0 + 1), 0.59375 (0 + 1) - 0.09375 (1 + 1), and beyond the last
  // sample 0.59375 (1 + 1) - 0.09375 (0 + 1).
  const double expected[] = {0.0, 0.59375, 1.0, 0.5, 0.0, 0.40625, 1.0, 1.09375};
  for (int c = 0; c < 8; ++c) {
    EXPECT_EQ(output.at<double>(0, c), expected[c]) << c;
    EXPECT_EQ(output.at<double>(1, c), expected[c]) << c;
  }
}

TEST(UpsampleGridCubic2x, AColumnIsDoubledToEqualColumns) {
  const cv::Mat source = (cv::Mat_<float>(3, 1) << 0.1F, 0.7F, 0.3F);
  const cv::Mat output = UpsampleGridCubic2x(source);
  ASSERT_EQ(output.size(), cv::Size(2, 6));
  for (int r = 0; r < 3; ++r) {
    EXPECT_EQ(output.at<float>(2 * r, 0), source.at<float>(r, 0));
    EXPECT_EQ(output.at<float>(2 * r, 1), source.at<float>(r, 0));
  }
}

TEST(UpsampleGridCubic2x, ConstantImagesStayExact) {
  for (const int type : {CV_32FC3, CV_64FC1}) {
    for (const double level : {0.1, 1.0 / 3.0, -7.3, 1e30, kInfinity}) {
      const cv::Mat source(5, 4, type, cv::Scalar::all(level));
      const cv::Mat expected(10, 8, type, cv::Scalar::all(level));
      EXPECT_TRUE(HaveSameBits(UpsampleGridCubic2x(source), expected)) << level;
    }
  }
}

TEST(UpsampleGridCubic2x, NanSpreadsToTheSamplesItTouchesOnly) {
  cv::Mat source(1, 8, CV_32FC1, cv::Scalar(0.5));
  source.at<float>(0, 0) = std::numeric_limits<float>::quiet_NaN();
  const cv::Mat output = UpsampleGridCubic2x(source);
  // Between samples c and c + 1 the taps are c - 1 to c + 2: those of columns 1 and 3 see column 0.
  for (int c = 0; c < 16; ++c) {
    EXPECT_EQ(std::isnan(output.at<float>(0, c)), c == 0 || c == 1 || c == 3) << c;
  }
}

TEST(UpsampleGridCubic2x, ReadsOnlyTheImageWhenItIsPartOfAnother) {
  const cv::Mat whole = MakeNoise({12, 10}, CV_32FC3, 3, false);
  const cv::Mat part = whole(cv::Rect(2, 3, 5, 4));
  EXPECT_TRUE(HaveSameBits(UpsampleGridCubic2x(part), UpsampleGridCubic2x(part.clone())));
}

TEST(UpsampleGridCubic2x, RefusesAnEmptyImage) {
  ExpectUpsampleRefused(cv::Mat(), kFloatMatrixExpected);
}

TEST(UpsampleGridCubic2x, RefusesIntegerSamples) {
  ExpectUpsampleRefused(cv::Mat(2, 2, CV_16UC3, cv::Scalar::all(1)), kFloatMatrixExpected);
}

TEST(UpsampleGridCubic2x, RefusesThreeDimensions) {
  const int sizes[] = {2, 2, 2};
  ExpectUpsampleRefused(cv::Mat(3, sizes, CV_32F, cv::Scalar(0)), kFloatMatrixExpected);
}

TEST(UpsampleGridCubic2x, RefusesSizesThatCannotBeDoubled) {
  constexpr const char* kDoublingExpected =
      "source.rows <= std::numeric_limits<int>::max() / 2 && "
      "source.cols <= std::numeric_limits<int>::max() / (2 * source.channels())";
  // Headers over one sample: the size is refused before a sample is read.
  std::vector<float> sample(3);
  ExpectUpsampleRefused(cv::Mat(1073741824, 1, CV_32FC1, sample.data()), kDoublingExpected);
  ExpectUpsampleRefused(cv::Mat(1, 1073741824, CV_32FC1, sample.data()), kDoublingExpected);
  ExpectUpsampleRefused(cv::Mat(1, 357913942, CV_32FC3, sample.data()), kDoublingExpected);
}

TEST(DownsampleGrid2x, KeepsTheSamplesAtEvenPositions) {
  const cv::Mat source = (cv::Mat_<float>(2, 4) << 1, 2, 3, 4, 5, 6, 7, 8);
  const cv::Mat output = DownsampleGrid2x(source, {2, 1});
  ASSERT_EQ(output.size(), cv::Size(2, 1));
  EXPECT_EQ(output.at<float>(0, 0), 1.0F);
  EXPECT_EQ(output.at<float>(0, 1), 3.0F);
}

TEST(DownsampleGrid2x, RefusesAnEmptyImage) {
  ExpectDownsampleRefused(cv::Mat(), {0, 0}, kFloatMatrixExpected);
}

TEST(DownsampleGrid2x, RefusesIntegerSamples) {
  ExpectDownsampleRefused(cv::Mat(2, 2, CV_8UC1, cv::Scalar(0)), {1, 1}, kFloatMatrixExpected);
}

TEST(DownsampleGrid2x, RefusesRowsOfTooManySamples) {
  std::vector<float> sample(3);
  ExpectDownsampleRefused(cv::Mat(2, 715827884, CV_32FC3, sample.data()), {357913942, 1},
                          "source.cols <= std::numeric_limits<int>::max() / source.channels()");
}

TEST(DownsampleGrid2x, RefusesOddSizesAndOtherTargets) {
  constexpr const char* kHalfExpected =
      "source.cols % 2 == 0 && source.rows % 2 == 0 && "
      "target == cv::Size(source.cols / 2, source.rows / 2)";
  const cv::Mat even(4, 6, CV_64FC1, cv::Scalar(0));
  ExpectDownsampleRefused(cv::Mat(4, 5, CV_64FC1, cv::Scalar(0)), {2, 2}, kHalfExpected);
  ExpectDownsampleRefused(cv::Mat(3, 6, CV_64FC1, cv::Scalar(0)), {3, 1}, kHalfExpected);
  ExpectDownsampleRefused(even, {2, 2}, kHalfExpected);
  ExpectDownsampleRefused(even, {3, 3}, kHalfExpected);
  ExpectDownsampleRefused(even, {6, 4}, kHalfExpected);
}

}  // namespace
}  // namespace project_lumen
