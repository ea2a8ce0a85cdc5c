#include "core/ImageProcessing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "support/AddressSpaceLimit.h"
#include "support/LargeAllocations.h"

namespace project_lumen::core {
namespace {

using ::testing::ElementsAre;

using ::testing::Pair;

Image Identity(ImageView tile) {
  return {.samples = {tile.data, tile.data + tile.sampleCount},
          .width = tile.width,
          .height = tile.height,
          .channels = tile.channels};
}

// --- A reference from the definitions, pixel by pixel in plain loops ---

using Colour = std::array<float, 3>;

// What the network of these tests does to one pixel: near white it changes hardly anything,
// elsewhere it dims and lets the next channel shine through, so that a wrong order of channels
// shows.
Colour NetworkOf(const Colour& x) {
  if (std::max({x[0], x[1], x[2]}) > 0.97F) {
    return {0.9999F * x[0], 0.9999F * x[1], 0.9999F * x[2]};
  }
  Colour y{};
  for (std::size_t k = 0; k < 3; ++k) {
    y[k] = 0.7F * x[k] + 0.2F * x[(k + 1) % 3];
  }
  return y;
}

Image PixelNetwork(ImageView tile) {
  Image answer = Identity(tile);
  for (std::size_t i = 0; i < answer.samples.size(); i += 3) {
    const Colour y = NetworkOf({tile.data[i], tile.data[i + 1], tile.data[i + 2]});
    std::copy(y.begin(), y.end(), answer.samples.begin() + static_cast<std::ptrdiff_t>(i));
  }
  return answer;
}

struct Plane {
  int rows = 0;
  int columns = 0;
  std::vector<double> samples;

  Plane(int height, int width)
      : rows(height),
        columns(width),
        samples(static_cast<std::size_t>(height) * static_cast<std::size_t>(width)) {}
  double& At(int r, int c) {
    return samples[static_cast<std::size_t>(r) * static_cast<std::size_t>(columns) +
                   static_cast<std::size_t>(c)];
  }
  [[nodiscard]] double At(int r, int c) const { return const_cast<Plane*>(this)->At(r, c); }
  // Beyond an edge lies the edge.
  [[nodiscard]] double Near(int r, int c) const {
    return At(std::clamp(r, 0, rows - 1), std::clamp(c, 0, columns - 1));
  }
};
using Planes = std::vector<Plane>;

Planes PlanesOf(const cv::Mat& image) {
  Planes planes(static_cast<std::size_t>(image.channels()), Plane(image.rows, image.cols));
  for (int k = 0; k < image.channels(); ++k) {
    for (int r = 0; r < image.rows; ++r) {
      for (int c = 0; c < image.cols; ++c) {
        planes[static_cast<std::size_t>(k)].At(r, c) = SampleAt(image, r, c, k);
      }
    }
  }
  return planes;
}

double Stored(double value, bool linear) {
  return linear ? value : static_cast<double>(static_cast<float>(value));
}

// Even positions keep the samples; odd ones lie between two: first within rows, then between them.
Plane Doubled(const Plane& small, bool linear) {
  const auto between = [linear](double a, double b, double c, double d) {
    return Stored(0.59375 * (b + c) - 0.09375 * (a + d), linear);
  };
  Plane wide(small.rows, 2 * small.columns);
  for (int r = 0; r < small.rows; ++r) {
    for (int c = 0; c < small.columns; ++c) {
      wide.At(r, 2 * c) = small.At(r, c);
      wide.At(r, 2 * c + 1) =
          between(small.Near(r, c - 1), small.At(r, c), small.Near(r, c + 1), small.Near(r, c + 2));
    }
  }
  Plane large(2 * small.rows, wide.columns);
  for (int r = 0; r < small.rows; ++r) {
    for (int c = 0; c < wide.columns; ++c) {
      large.At(2 * r, c) = wide.At(r, c);
      large.At(2 * r + 1, c) =
          between(wide.Near(r - 1, c), wide.At(r, c), wide.Near(r + 1, c), wide.Near(r + 2, c));
    }
  }
  return large;
}

double SortedMedian(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

struct Transfer {
  double shadows = 0.0;
  double midtones = 0.5;
  bool constant = false;

  // The curve through (0, 0), (midtones, 1/2) and (1, 1).
  [[nodiscard]] double Forward(double sample) const {
    const double x = std::clamp(sample - shadows, 0.0, 1.0);
    return x * (1 - midtones) / (x + midtones - 2 * midtones * x);
  }
  [[nodiscard]] double Inverse(double y) const {
    const double limited = std::clamp(y, 0.0, 1.0);
    return limited * midtones / (1 - midtones - limited + 2 * midtones * limited) + shadows;
  }
  [[nodiscard]] bool Restores(double sample) const { return constant || sample <= shadows; }
};

Transfer TransferOf(const Plane& plane, const ProcessingSettings& settings) {
  Transfer transfer;
  const double median = SortedMedian(plane.samples);
  std::vector<double> deviations;
  for (const double sample : plane.samples) {
    deviations.push_back(std::fabs(sample - median));
  }
  const double deviation = SortedMedian(deviations) * 1.4826;
  transfer.constant = std::count(plane.samples.begin(), plane.samples.end(), plane.samples[0]) ==
                      static_cast<std::ptrdiff_t>(plane.samples.size());
  transfer.shadows =
      deviation > 0 ? std::clamp(median + settings.shadowsClipping * deviation, 0.0, 1.0) : 0.0;
  const double d = median - transfer.shadows;
  const double t = settings.targetBackground;
  transfer.midtones = d * (1 - t) / (d + t - 2 * t * d);
  return transfer;
}

double Logistic(double x) {
  return x >= 40 ? 1.0 : x <= -40 ? 0.0 : 1.0 / (1.0 + std::exp(-x));
}

double Limited(double x) {
  return std::clamp(x, 0.0, 1.0);
}

// Pulls a pixel back where it is near white and has hardly changed.
void Protect(const Planes& original, Planes& starless, int r, int c, bool linear) {
  double brightness = 0.0;
  double difference = 0.0;
  for (std::size_t k = 0; k < 3; ++k) {
    brightness = std::max(brightness, Limited(starless[k].At(r, c)));
    difference += std::fabs(Limited(starless[k].At(r, c)) - Limited(original[k].At(r, c))) / 3.0;
  }
  const double w = Logistic((brightness - 0.985) * 1000) * Logistic((0.001 - difference) * 1000);
  for (std::size_t k = 0; k < 3; ++k) {
    const double kept = (1 - w) * Limited(starless[k].At(r, c));
    starless[k].At(r, c) = Stored(kept + w * Limited(original[k].At(r, c)), linear);
  }
}

cv::Mat ProcessByDefinition(const cv::Mat& source, const ProcessingSettings& settings) {
  const bool linear = settings.linear;
  const Planes given = PlanesOf(source);
  Planes working;
  std::vector<Transfer> transfers;
  for (std::size_t k = 0; k < 3; ++k) {
    const Plane& plane = given[given.size() == 1 ? 0 : k];
    working.push_back(settings.upsample ? Doubled(plane, linear) : plane);
    if (linear) {
      for (double& sample : working[k].samples) {
        sample = std::min(sample, 1.0);
      }
      transfers.push_back(TransferOf(working[k], settings));
    }
  }
  Planes starless = working;
  for (int r = 0; r < working[0].rows; ++r) {
    for (int c = 0; c < working[0].columns; ++c) {
      Colour seen{};
      for (std::size_t k = 0; k < 3; ++k) {
        const double sample = working[k].At(r, c);
        const bool flat = linear && transfers[k].constant;
        seen[k] = static_cast<float>(flat ? 0.0 : linear ? transfers[k].Forward(sample) : sample);
      }
      const Colour answer = NetworkOf(seen);
      for (std::size_t k = 0; k < 3; ++k) {
        const double sample = working[k].At(r, c);
        const bool restored = linear && transfers[k].Restores(sample);
        const auto y = static_cast<double>(answer[k]);
        starless[k].At(r, c) = restored ? sample : linear ? transfers[k].Inverse(y) : y;
      }
      if (settings.protectHighlights) {
        Protect(working, starless, r, c, linear);
      }
    }
  }
  const int step = settings.upsample ? 2 : 1;
  cv::Mat result(source.size(), CV_MAKETYPE(CV_64F, source.channels()));
  for (int r = 0; r < source.rows; ++r) {
    for (int c = 0; c < source.cols; ++c) {
      const auto at = [&](std::size_t k) { return starless[k].At(step * r, step * c); };
      for (int k = 0; k < source.channels(); ++k) {
        const double sample = SampleAt(source, r, c, k);
        const auto plane = static_cast<std::size_t>(k);
        const double value =
            source.channels() == 3 ? at(plane) : 0.299 * at(0) + 0.587 * at(1) + 0.114 * at(2);
        const bool restored = linear && transfers[plane].Restores(sample);
        result.ptr<double>(r)[c * source.channels() + k] = restored ? sample : value;
      }
    }
  }
  return result;
}

// A dark sky with noise, with samples below black, some stars, and white spots with a soft edge.
cv::Mat MakeSource(cv::Size size, bool linear, int channels) {
  const int type = CV_MAKETYPE(linear ? CV_64F : CV_32F, channels);
  cv::Mat image = MakeNoise(size, type, 11, 0.08, 0.12);
  const cv::Mat chance = MakeNoise(size, CV_64FC1, 12);
  const cv::Mat level = MakeNoise(size, type, 13);
  for (int r = 0; r < size.height; ++r) {
    for (int c = 0; c < size.width; ++c) {
      const double die = chance.at<double>(r, c);
      for (int k = 0; k < channels; ++k) {
        const double noise = SampleAt(level, r, c, k);
        double sample = SampleAt(image, r, c, k) * (1.0 + 0.2 * k);
        sample = die < 0.02 ? noise : die < 0.03 ? 0.98 + 0.02 * noise : sample;
        sample = die > 0.97 ? noise * 0.08 - 0.04 : sample;
        if (linear) {
          image.ptr<double>(r)[c * channels + k] = sample;
        } else {
          image.ptr<float>(r)[c * channels + k] = static_cast<float>(sample);
        }
      }
    }
  }
  return image;
}

cv::Mat Process(const cv::Mat& source, const ProcessingSettings& settings,
                const TileInferenceFn& network = PixelNetwork, const RunControl& control = {},
                const LinearReports& reports = {}) {
  return ProcessImage(source, settings, network, control, reports);
}

double LargestDifference(const cv::Mat& result, const cv::Mat& expected) {
  cv::Mat values;
  result.convertTo(values, CV_64F);
  return cv::norm(values, expected, cv::NORM_INF);
}

// channels, linear, upsample, protect
class EveryWay : public ::testing::TestWithParam<std::tuple<int, bool, bool, bool>> {};

TEST_P(EveryWay, FollowsTheDefinitions) {
  const auto [channels, linear, upsample, protect] = GetParam();
  const ProcessingSettings settings{
      .stride = 512, .linear = linear, .protectHighlights = protect, .upsample = upsample};
  const cv::Size size = upsample ? cv::Size(260, 256) : cv::Size(520, 512);
  const cv::Mat source = MakeSource(size, linear, channels);
  const cv::Mat before = source.clone();
  const cv::Mat result = Process(source, settings);
  ASSERT_EQ(result.size(), source.size());
  ASSERT_EQ(result.type(), source.type());
  EXPECT_LE(LargestDifference(result, ProcessByDefinition(source, settings)),
            linear ? 1e-12 : 1e-6);
  EXPECT_TRUE(AreEqual(source, before));
  EXPECT_NE(result.data, source.data);
}

INSTANTIATE_TEST_SUITE_P(Ways, EveryWay,
                         ::testing::Combine(::testing::Values(1, 3), ::testing::Bool(),
                                            ::testing::Bool(), ::testing::Bool()));

TEST(ProcessImage, ProtectionShows) {
  for (const bool linear : {false, true}) {
    const cv::Mat source = MakeSource({512, 512}, linear, 3);
    ProcessingSettings settings{.stride = 512, .linear = linear, .protectHighlights = true};
    const cv::Mat with = Process(source, settings);
    settings.protectHighlights = false;
    EXPECT_FALSE(AreEqual(with, Process(source, settings)));
  }
}

TEST(ProcessImage, GivesTheSameAtEveryStrideForANetworkWithoutNeighbours) {
  for (const bool linear : {false, true}) {
    const cv::Mat source = MakeSource({600, 530}, linear, 3);
    const cv::Mat whole = Process(source, {.stride = 512, .linear = linear});
    for (const int stride : {64, 256, 384}) {
      const cv::Mat result = Process(source, {.stride = stride, .linear = linear});
      EXPECT_LE(cv::norm(result, whole, cv::NORM_INF), 2e-6) << stride;
    }
  }
}

TEST(ProcessImage, ConstantAndCappedChannelsOfLinearDataComeBack) {
  cv::Mat source = MakeSource({512, 512}, true, 3);
  for (int r = 0; r < 512; ++r) {
    for (int c = 0; c < 512; ++c) {
      source.at<cv::Vec3d>(r, c)[1] = 0.3;
    }
  }
  source.at<cv::Vec3d>(5, 6)[0] = 1.5;
  const ProcessingSettings settings{.stride = 512, .linear = true, .protectHighlights = false};
  const cv::Mat result = Process(source, settings);
  EXPECT_LE(LargestDifference(result, ProcessByDefinition(source, settings)), 1e-12);
  EXPECT_EQ(result.at<cv::Vec3d>(100, 100)[1], 0.3);
  EXPECT_LT(result.at<cv::Vec3d>(5, 6)[0], 1.0);
}

TEST(ProcessImage, ASourceThatIsPartOfAnotherImageIsReadInItsPlace) {
  for (const bool linear : {false, true}) {
    const cv::Mat whole = MakeSource({540, 530}, linear, 3);
    const cv::Mat part = whole(cv::Rect(9, 7, 520, 512));
    const ProcessingSettings settings{.stride = 512, .linear = linear};
    EXPECT_TRUE(AreEqual(Process(part, settings), Process(part.clone(), settings)));
  }
}

TEST(ProcessImage, TellsOfLinearDataAndOfNothingElse) {
  std::vector<std::string> told;
  std::size_t transfers = 0;
  std::size_t restored = 0;
  const LinearReports reports{
      .aboveOne = [&](const RangeStatistics&) { told.emplace_back("above one"); },
      .transfer =
          [&](const std::vector<LinearChannelStats>& channels) {
            told.emplace_back("transfer");
            transfers = channels.size();
          },
      .restored =
          [&](const std::vector<RestoredSamples>& channels) {
            told.emplace_back("restored");
            restored = channels.size();
          }};
  const RunControl control{.progress = [&](int done, int) {
    told.emplace_back("progress " + std::to_string(done));
    return true;
  }};
  cv::Mat source = MakeSource({512, 512}, true, 1);
  source.at<double>(0) = 2.0;
  Process(source, {.stride = 512, .linear = true}, PixelNetwork, control, reports);
  EXPECT_THAT(told, ElementsAre("above one", "transfer", "progress 0", "progress 1", "restored"));
  EXPECT_EQ(transfers, 3U);
  EXPECT_EQ(restored, 1U);
  told.clear();
  Process(MakeSource({512, 512}, false, 3), {.stride = 512}, PixelNetwork, control, reports);
  EXPECT_THAT(told, ElementsAre("progress 0", "progress 1"));
}

TEST(ProcessImage, LetsGoOfTheNetworkBeforeLinearDataGoesBack) {
  auto model = std::make_shared<int>(0);
  const std::weak_ptr<int> seen = model;
  bool gone = false;
  const LinearReports reports{
      .restored = [&](const std::vector<RestoredSamples>&) { gone = seen.expired(); }};
  TileInferenceFn network = [model](ImageView tile) { return PixelNetwork(tile); };
  model.reset();
  ProcessImage(MakeSource({512, 512}, true, 3), {.stride = 512, .linear = true}, std::move(network),
               {}, reports);
  EXPECT_TRUE(gone);
}

// Sizes in samples of the images that a run makes beside the source.
std::vector<std::size_t> MatricesOf(bool linear, int channels, bool upsample = false) {
  const cv::Mat source =
      MakeSource(upsample ? cv::Size(256, 256) : cv::Size(512, 512), linear, channels);
  const LargeAllocations large(std::size_t{512} * 512 * 3 * sizeof(float));
  Process(source, {.stride = 512, .linear = linear, .upsample = upsample}, Identity);
  std::vector<std::size_t> counts;
  for (const std::size_t bytes : large.Sizes()) {
    counts.push_back(bytes / (std::size_t{512} * 512));
  }
  return counts;
}

// The tile, of the image's size here, is among them; 12 bytes a pixel are float32 RGB, 24 float64.
TEST(ProcessImage, HoldsNoImageTwice) {
  EXPECT_THAT(MatricesOf(false, 3), ElementsAre(12, 12));         // sum, tile
  EXPECT_THAT(MatricesOf(false, 1), ElementsAre(12, 12, 12));     // RGB before them
  EXPECT_THAT(MatricesOf(true, 3), ElementsAre(12, 12, 12, 24));  // stretched, sum, tile, result
  EXPECT_THAT(MatricesOf(true, 1), ElementsAre(24, 12, 12, 12, 24));
}

TEST(ProcessImage, RefusesAMissingCallbackAndStrides) {
  const cv::Mat source = MakeSource({512, 512}, false, 3);
  ExpectThrows<std::invalid_argument>([&] { ProcessImage(source, {}, nullptr, {}, {}); },
                                      "A tile inference callback is required.");
  ExpectThrows<std::invalid_argument>([&] { Process(source, {.stride = 3}); },
                                      "Stride must be positive, even, and at most 512.");
}

TEST(ProcessImage, RefusesSamplesOfAnotherKind) {
  const cv::Size size(512, 512);
  for (const cv::Mat& source : {cv::Mat(), MakeSource(size, true, 3), cv::Mat(size, CV_8UC3),
                                cv::Mat(size, CV_32FC2), cv::Mat(size, CV_32FC4)}) {
    ExpectThrows<std::invalid_argument>([&source] { Process(source, {}); },
                                        "Star removal requires float32 grayscale or RGB samples.");
  }
  for (const cv::Mat& source : {cv::Mat(), MakeSource(size, false, 3), cv::Mat(size, CV_64FC2)}) {
    ExpectThrows<std::invalid_argument>([&source] { Process(source, {.linear = true}); },
                                        "Linear preparation requires a nonempty float64 input.");
  }
}

TEST(ProcessImage, RefusesImagesThatHoldNoWindow) {
  constexpr const char* kText = "Image size is too small for the window!";
  const cv::Mat narrow(600, 511, CV_32FC1, cv::Scalar(0.5));
  ExpectThrows<std::invalid_argument>([&] { Process(narrow, {}); }, kText);
  const cv::Mat low(255, 300, CV_32FC3, cv::Scalar::all(0.5));
  ExpectThrows<std::invalid_argument>([&] { Process(low, {.upsample = true}); }, kText);
}

TEST(CheckImageSize, KnowsTheWorkingGrid) {
  EXPECT_NO_THROW(CheckImageSize({512, 512}, {}));
  EXPECT_NO_THROW(CheckImageSize({256, 256}, {.upsample = true}));
  ExpectThrows<std::invalid_argument>(
      [] {
        CheckImageSize({256, 256}, {});
      },
      "Image size is too small for the window!");
  ExpectThrows<std::invalid_argument>(
      [] {
        CheckImageSize({1073741824, 512}, {.upsample = true});
      },
      "Image dimensions exceed the 2x upsampling limit.");
  ExpectThrows<std::invalid_argument>(
      [] {
        CheckImageSize({2000000000, 2000000000}, {.stride = 2});
      },
      "Image dimensions exceed supported tiling limits.");
}

TEST(ProcessImage, RefusesSamplesThatAreNotFiniteBeforeAnyTile) {
  for (const double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    int tiles = 0;
    const TileInferenceFn network = [&tiles](ImageView tile) {
      ++tiles;
      return Identity(tile);
    };
    cv::Mat source = MakeSource({513, 512}, false, 3);
    source.at<cv::Vec3f>(511, 512)[2] = static_cast<float>(bad);
    ExpectThrows<std::invalid_argument>([&] { Process(source, {}, network); },
                                        "Image contains non-finite samples.");
    cv::Mat linear = MakeSource({513, 512}, true, 3);
    linear.at<cv::Vec3d>(511, 512)[2] = bad;
    ExpectThrows<std::invalid_argument>(
        [&] { Process(linear, {.linear = true}, network); },
        "Linear input contains a non-finite sample or unrepresentable conversion.");
    EXPECT_EQ(tiles, 0);
  }
}

TEST(ProcessImage, RefusesLinearSettingsOutsideTheirRanges) {
  const cv::Mat source = MakeSource({512, 512}, true, 3);
  constexpr const char* kText =
      "Linear MTF requires a negative shadows multiplier and target between 0 and 1.";
  ExpectThrows<std::invalid_argument>(
      [&] { Process(source, {.linear = true, .shadowsClipping = 0.0}); }, kText);
  ExpectThrows<std::invalid_argument>(
      [&] { Process(source, {.linear = true, .targetBackground = 1.0}); }, kText);
}

TEST(ProcessImage, RefusesWhatTheNetworkShouldNotReturn) {
  const cv::Mat source = MakeSource({512, 512}, false, 3);
  ExpectThrows<std::runtime_error>([&] { Process(source, {}, [](ImageView) { return Image{}; }); },
                                   "Inference returned an invalid image buffer.");
  ExpectThrows<std::runtime_error>(
      [&] {
        Process(source, {}, [](ImageView tile) {
          Image answer = Identity(tile);
          answer.samples[77] = std::numeric_limits<float>::quiet_NaN();
          return answer;
        });
      },
      "Inference returned non-finite samples.");
}

TEST(ProcessImage, CanBeStoppedAtEveryStep) {
  for (const bool linear : {false, true}) {
    const cv::Mat source = MakeSource({512, 512}, linear, 3);
    // The start, the working image, the first report, the tile, its report, the end.
    constexpr int kPolls = 6;
    for (int stop = 1; stop <= kPolls + 1; ++stop) {
      int polls = 0;
      const auto process = [&] {
        Process(source, {.stride = 512, .linear = linear}, Identity,
                {.stopRequested = [&] { return ++polls == stop; }});
      };
      if (stop <= kPolls) {
        EXPECT_THROW(process(), Cancelled) << stop;
        EXPECT_EQ(polls, stop);
      } else {
        EXPECT_NO_THROW(process());
        EXPECT_EQ(polls, kPolls);
      }
    }
  }
}

TEST(ProcessImage, ProgressThatDeclinesStopsTheRun) {
  std::vector<std::pair<int, int>> calls;
  EXPECT_THROW(Process(MakeSource({1024, 512}, false, 3), {.stride = 512}, Identity,
                       {.progress =
                            [&calls](int done, int total) {
                              calls.emplace_back(done, total);
                              return done < 1;
                            }}),
               Cancelled);
  EXPECT_THAT(calls, ElementsAre(Pair(0, 2), Pair(1, 2)));
}

TEST(ProcessImage, ExceptionsOfTheNetworkPassThrough) {
  ExpectThrows<std::domain_error>(
      [] {
        Process(MakeSource({512, 512}, false, 3), {},
                [](ImageView) -> Image { throw std::domain_error("mine"); });
      },
      "mine");
}

#ifndef __SANITIZE_ADDRESS__  // which needs more address space than any limit
// 3000 x 3000 float32 RGB samples are 103 MiB.
TEST(ProcessImage, LackOfMemoryIsBadAlloc) {
  for (const int type : {CV_32FC1, CV_32FC3, CV_64FC3}) {
    const cv::Mat source(3000, 3000, type, cv::Scalar::all(0.25));
    const test::AddressSpaceLimit limit(std::uint64_t{64} << 20U);
    EXPECT_THROW(Process(source, {.linear = source.depth() == CV_64F}), std::bad_alloc);
  }
}
#endif

}  // namespace
}  // namespace project_lumen::core
