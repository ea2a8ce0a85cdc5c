#include "core/StarRemoval.h"

// The header serves callers that know no OpenCV.
#ifdef CV_VERSION
#error "core/StarRemoval.h must not include OpenCV"
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

#include "TestSupport.h"
#include "common/GridAlignedResample.h"
#include "core/ImageConversion.h"
#include "core/MtfStatistics.h"
#include "core/MtfTransfer.h"
#include "core/StarLayers.h"
#include "support/AddressSpaceLimit.h"

namespace project_lumen::core {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr const char* kStride = "Stride must be positive, even, and at most 512.";
constexpr const char* kShape = "Nebulex requires RGB or grayscale pixels at least 512x512.";

ImageView ViewOf(const Image& image) {
  return {image.samples.data(), image.samples.size(), image.width, image.height, image.channels};
}

cv::Mat MatOf(const Image& image) {
  return WrapSamples(image.samples.data(), image.width, image.height, image.channels);
}

Image MakeNoiseImage(std::int32_t width, std::int32_t height, std::int32_t channels,
                     double low = 0.0, double high = 1.0) {
  return ToImage(MakeNoise({width, height}, CV_32FC(channels), 42, low, high), channels,
                 {width, height});
}

Image Identity(ImageView tile) {
  return {.samples = {tile.data, tile.data + tile.sampleCount},
          .width = tile.width,
          .height = tile.height,
          .channels = tile.channels};
}

// A network that scales every sample.
TileInferenceFn Scaling(float factor) {
  return [factor](ImageView tile) {
    Image output = Identity(tile);
    for (float& sample : output.samples) {
      sample *= factor;
    }
    return output;
  };
}

// One tile a 512 x 512 image, and results that are the network's own.
StarRemovalOptions Plain() {
  return {.stride = 512, .protectHighlights = false};
}

StarRemovalResult Remove(const Image& input, const StarRemovalOptions& options,
                         const TileInferenceFn& inferTile = Identity) {
  return RemoveStars(ViewOf(input), options, inferTile, {});
}

template <typename Exception>
void ExpectRefused(const ImageView& view, const StarRemovalOptions& options, const char* text) {
  int tiles = 0;
  ExpectThrows<Exception>(
      [&] {
        RemoveStars(view, options,
                    [&tiles](ImageView tile) {
                      ++tiles;
                      return Identity(tile);
                    },
                    {});
      },
      text);
  EXPECT_EQ(tiles, 0);
}

TEST(StarRemovalOptions, HaveTheDefaultsOfTheProgram) {
  const StarRemovalOptions options;
  EXPECT_EQ(options.stride, 256);
  EXPECT_FALSE(options.linearMtf);
  EXPECT_EQ(options.shadowsClipping, -2.8);
  EXPECT_EQ(options.targetBackground, 0.25);
  EXPECT_TRUE(options.protectHighlights);
  EXPECT_FALSE(options.computeStarMask);
  EXPECT_FALSE(options.computeUnscreen);
  EXPECT_FALSE(options.upsample2x);
}

TEST(Cancelled, SaysWhatHappened) {
  EXPECT_STREQ(Cancelled().what(), "Processing cancelled.");
}

TEST(ThrowIfStopRequested, ThrowsOnlyWhenAskedToStop) {
  EXPECT_NO_THROW(ThrowIfStopRequested({}));
  EXPECT_NO_THROW(ThrowIfStopRequested({.stopRequested = [] { return false; }}));
  EXPECT_THROW(ThrowIfStopRequested({.stopRequested = [] { return true; }}), Cancelled);
}

TEST(RemoveStars, RefusesAMissingCallbackBeforeABadStride) {
  ExpectThrows<std::invalid_argument>([] { RemoveStars({}, {.stride = 3}, nullptr, {}); },
                                      "A tile inference callback is required.");
}

TEST(RemoveStars, RefusesBadStridesBeforeABadImage) {
  for (const std::int32_t stride : {0, 1, 3, 514, 511, -2, std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::int32_t>::max()}) {
    ExpectRefused<std::invalid_argument>({}, {.stride = stride}, kStride);
  }
}

TEST(RemoveStars, RefusesABadStrideBeforeItAsksWhetherToStop) {
  ExpectThrows<std::invalid_argument>(
      [] { RemoveStars({}, {.stride = 0}, Identity, {.stopRequested = [] { return true; }}); },
      kStride);
}

TEST(RemoveStars, AcceptsTheSmallestAndTheLargestStride) {
  const Image input = MakeNoiseImage(512, 512, 1);
  for (const auto& [stride, tiles] : {std::pair(2, 256 * 256), std::pair(512, 1)}) {
    std::vector<std::pair<int, int>> calls;
    const auto stopAtOnce = [&calls](int done, int total) {
      calls.emplace_back(done, total);
      return false;
    };
    EXPECT_THROW(RemoveStars(ViewOf(input), {.stride = stride}, Identity, {.progress = stopAtOnce}),
                 Cancelled);
    EXPECT_THAT(calls, ElementsAre(Pair(0, tiles)));
  }
}

TEST(RemoveStars, RefusesSidesThatCannotBeDoubledBeforeABadImage) {
  constexpr const char* kText = "Image dimensions exceed the 2x upsampling limit.";
  const StarRemovalOptions options{.upsample2x = true};
  ExpectRefused<std::invalid_argument>({nullptr, 0, 1073741824, 512, 1}, options, kText);
  ExpectRefused<std::invalid_argument>({nullptr, 0, 512, 1073741824, 1}, options, kText);
  ExpectRefused<std::invalid_argument>({nullptr, 0, 1073741823, 1073741823, 1}, options, kShape);
  ExpectRefused<std::invalid_argument>({nullptr, 0, 1073741824, 512, 1}, {}, kShape);
}

TEST(RemoveStars, RefusesImagesSmallerThanOneWindow) {
  const Image narrow = MakeNoiseImage(511, 4000, 1);
  ExpectRefused<std::invalid_argument>(ViewOf(narrow), {}, kShape);
  ExpectRefused<std::invalid_argument>(ViewOf(narrow), {.upsample2x = true}, kShape);
}

TEST(RemoveStars, RefusesASampleTooManyOrTooFew) {
  const Image input = MakeNoiseImage(512, 512, 3);
  ImageView view = ViewOf(input);
  view.sampleCount -= 1;
  ExpectRefused<std::invalid_argument>(view, {},
                                       "Image sample count does not match its dimensions.");
  view.sampleCount += 2;
  ExpectRefused<std::invalid_argument>(view, {},
                                       "Image sample count does not match its dimensions.");
}

TEST(RemoveStars, RefusesANanBeforeAnyTile) {
  Image input = MakeNoiseImage(513, 512, 1);
  input.samples.back() = std::numeric_limits<float>::quiet_NaN();
  ExpectRefused<std::invalid_argument>(ViewOf(input), {}, "Image contains non-finite samples.");
}

TEST(RemoveStars, GivesTheNetworksOutputInTheInputsShape) {
  const Image input = MakeNoiseImage(512, 512, 3);
  const StarRemovalResult result = Remove(input, Plain(), Scaling(0.5F));
  EXPECT_EQ(result.starless.width, 512);
  EXPECT_EQ(result.starless.height, 512);
  EXPECT_EQ(result.starless.channels, 3);
  EXPECT_TRUE(AreEqual(MatOf(result.starless), MatOf(input) * 0.5));
}

TEST(RemoveStars, HandsTheNetworkWholeTiles) {
  const Image input = MakeNoiseImage(600, 512, 1);
  int tiles = 0;
  Remove(input, Plain(), [&](ImageView tile) {
    EXPECT_NE(tile.data, nullptr);
    EXPECT_EQ(tile.sampleCount, 786432U);
    EXPECT_EQ(tile.width, 512);
    EXPECT_EQ(tile.height, 512);
    EXPECT_EQ(tile.channels, 3);
    if (tiles++ == 0) {
      EXPECT_EQ(tile.data[3 * 5 + 1], input.samples[5]);
    }
    return Identity(tile);
  });
  EXPECT_EQ(tiles, 2);
}

TEST(RemoveStars, AGreyImageGivesGreyResults) {
  const Image input = MakeNoiseImage(512, 512, 1);
  StarRemovalOptions options = Plain();
  options.computeStarMask = true;
  options.computeUnscreen = true;
  const StarRemovalResult result = Remove(input, options, Scaling(0.5F));
  for (const Image* image : {&result.starless, &result.starMask, &result.unscreen}) {
    EXPECT_EQ(image->width, 512);
    EXPECT_EQ(image->height, 512);
    EXPECT_EQ(image->channels, 1);
    EXPECT_EQ(image->samples.size(), input.samples.size());
  }
  EXPECT_LE(cv::norm(MatOf(result.starless), MatOf(input) * 0.5, cv::NORM_INF), 1e-7);
}

TEST(RemoveStars, BlendsTilesOfAnImageOfAnySize) {
  const Image input = MakeNoiseImage(523, 701, 3);
  const StarRemovalResult result =
      Remove(input, {.stride = 256, .protectHighlights = false}, Scaling(0.5F));
  EXPECT_EQ(result.starless.width, 523);
  EXPECT_EQ(result.starless.height, 701);
  EXPECT_LE(cv::norm(MatOf(result.starless), MatOf(input) * 0.5, cv::NORM_INF), 1e-6);
}

TEST(RemoveStars, LeavesTheInputUntouched) {
  const Image input = MakeNoiseImage(512, 512, 3);
  const std::vector<float> before = input.samples;
  Remove(input,
         {.stride = 512, .linearMtf = true, .computeStarMask = true, .computeUnscreen = true},
         Scaling(0.5F));
  EXPECT_EQ(input.samples, before);
}

TEST(RemoveStars, LayersThatAreNotAskedForAreEmpty) {
  const StarRemovalResult result = Remove(MakeNoiseImage(512, 512, 3), Plain());
  for (const Image* image : {&result.starMask, &result.unscreen}) {
    EXPECT_THAT(image->samples, IsEmpty());
    EXPECT_EQ(image->width, 0);
    EXPECT_EQ(image->height, 0);
    EXPECT_EQ(image->channels, 0);
  }
}

TEST(RemoveStars, LayersCompareTheInputWithTheStarlessImage) {
  const Image input = MakeNoiseImage(512, 512, 3);
  StarRemovalOptions options = Plain();
  options.computeStarMask = true;
  options.computeUnscreen = true;
  const StarRemovalResult result = Remove(input, options, Scaling(0.5F));
  // With starless = x / 2 the mask is x / 2 and the layer (x / 2) / (1 - x / 2).
  const cv::Mat half = MatOf(input) * 0.5;
  EXPECT_TRUE(AreEqual(MatOf(result.starMask), half));
  cv::Mat layer;
  cv::divide(half, cv::Scalar::all(1.0) - half, layer);
  EXPECT_LE(cv::norm(MatOf(result.unscreen), layer, cv::NORM_INF), 1e-6);
}

TEST(RemoveStars, OneLayerDoesNotBringTheOther) {
  StarRemovalOptions options = Plain();
  options.computeStarMask = true;
  EXPECT_THAT(Remove(MakeNoiseImage(512, 512, 1), options).unscreen.samples, IsEmpty());
  options.computeStarMask = false;
  options.computeUnscreen = true;
  EXPECT_THAT(Remove(MakeNoiseImage(512, 512, 1), options).starMask.samples, IsEmpty());
}

TEST(RemoveStars, ReportsSuppressedUnscreenSamples) {
  Image input = MakeNoiseImage(512, 512, 1, 0.0, 0.5);
  input.samples[7] = 1.0F;
  input.samples[9] = 1.0F;
  std::vector<std::string> lines;
  StarRemovalOptions options = Plain();
  options.computeUnscreen = true;
  RemoveStars(ViewOf(input), options, Scaling(0.9999F),
              {.log = [&lines](const std::string& line) { lines.push_back(line); }});
  EXPECT_THAT(
      lines,
      ElementsAre("Warning: suppressed 2 near-saturated unscreen output sample(s). Additional "
                  "unstable samples may remain. Check the input image for clipped or near-clipped "
                  "highlights, especially channels with values at 1.0000."));
}

TEST(RemoveStars, ProtectsHighlightsOnRequest) {
  const Image input = MakeNoiseImage(512, 512, 3, 0.98, 1.0);
  const TileInferenceFn network = Scaling(0.999F);
  const StarRemovalResult plain = Remove(input, Plain(), network);
  const StarRemovalResult protectedResult =
      Remove(input, {.stride = 512, .protectHighlights = true}, network);
  cv::Mat expected = MatOf(plain.starless).clone();
  ProtectStarlessHighlights(MatOf(input), expected);
  EXPECT_TRUE(AreEqual(MatOf(protectedResult.starless), expected));
  EXPECT_FALSE(AreEqual(MatOf(protectedResult.starless), MatOf(plain.starless)));
}

TEST(RemoveStars, LayersSeeTheProtectedImage) {
  const Image input = MakeNoiseImage(512, 512, 3, 0.98, 1.0);
  const StarRemovalResult result = Remove(
      input, {.stride = 512, .protectHighlights = true, .computeStarMask = true}, Scaling(0.999F));
  EXPECT_TRUE(
      AreEqual(MatOf(result.starMask), ComputeStarMask(MatOf(input), MatOf(result.starless))));
}

TEST(RemoveStars, UpsamplingShowsTheNetworkTheDoubledGrid) {
  const Image input = MakeNoiseImage(520, 512, 3);
  const cv::Mat doubled = UpsampleGridCubic2x(MatOf(input));
  StarRemovalOptions options = Plain();
  options.upsample2x = true;
  std::vector<std::pair<int, int>> calls;
  int tiles = 0;
  RemoveStars(ViewOf(input), options,
              [&](ImageView tile) {
                // 1040 x 1024 pixels: three columns of two tiles, from the top.
                if (tiles++ == 3) {
                  const cv::Mat shown = WrapSamples(tile.data, 512, 512, 3);
                  EXPECT_TRUE(AreEqual(shown, doubled(cv::Rect(512, 512, 512, 512))));
                }
                return Identity(tile);
              },
              {.progress = [&calls](int done, int total) {
                calls.emplace_back(done, total);
                return true;
              }});
  EXPECT_EQ(tiles, 6);
  EXPECT_THAT(calls, ElementsAre(Pair(0, 6), Pair(1, 6), Pair(2, 6), Pair(3, 6), Pair(4, 6),
                                 Pair(5, 6), Pair(6, 6)));
}

TEST(RemoveStars, UpsampledResultsHaveTheInputsSize) {
  for (const std::int32_t channels : {1, 3}) {
    const Image input = MakeNoiseImage(520, 512, channels);
    StarRemovalOptions options = Plain();
    options.upsample2x = true;
    options.computeStarMask = true;
    options.computeUnscreen = true;
    const StarRemovalResult result = Remove(input, options, Scaling(0.5F));
    for (const Image* image : {&result.starless, &result.starMask, &result.unscreen}) {
      EXPECT_EQ(image->width, 520);
      EXPECT_EQ(image->height, 512);
      EXPECT_EQ(image->channels, channels);
      EXPECT_EQ(image->samples.size(), input.samples.size());
    }
    EXPECT_LE(cv::norm(MatOf(result.starMask), MatOf(input) * 0.5, cv::NORM_INF), 1e-7);
  }
}

TEST(RemoveStars, UpsamplingAloneLosesNothing) {
  const Image input = MakeNoiseImage(520, 512, 3);
  StarRemovalOptions options = Plain();
  options.upsample2x = true;
  EXPECT_EQ(Remove(input, options).starless.samples, input.samples);
}

// Three channels of known statistics: thirds of three levels each, and a constant one.
Image MakeLinearImage() {
  constexpr float kLevels[3][3] = {{0.09F, 0.1F, 0.11F}, {0.2F, 0.25F, 0.3F}, {0.5F, 0.5F, 0.5F}};
  Image image{.samples = {}, .width = 512, .height = 512, .channels = 3};
  for (std::size_t i = 0; i < std::size_t{512} * 512; ++i) {
    for (const auto& channel : kLevels) {
      image.samples.push_back(channel[i % 3]);
    }
  }
  return image;
}

StarRemovalOptions Linear() {
  return {.stride = 512, .linearMtf = true, .protectHighlights = false};
}

TEST(RemoveStars, ReportsTheAutomaticTransferOfEveryChannel) {
  std::vector<std::string> lines;
  RemoveStars(ViewOf(MakeLinearImage()), Linear(), Identity,
              {.log = [&lines](const std::string& line) { lines.push_back(line); }});
  // By hand for channel 1: MAD 0.01, shadows 0.1 - 2.8 * 0.014826 = 0.0584872, d = 0.0415128,
  // midtones 0.75 d / (0.5 d + 0.25) = 0.0311346 / 0.2707564. The others likewise.
  EXPECT_THAT(
      lines,
      ElementsAre(
          "Applying automatic MTF for linear input:",
          "  channel 1: median=0.1, normalized MAD=0.014826, shadows=0.0584872, midtones=0.114991",
          "  channel 2: median=0.25, normalized MAD=0.07413, shadows=0.042436, midtones=0.440025",
          "  channel 3: median=0.5, normalized MAD=0, shadows=0, midtones=0.75"));
}

TEST(RemoveStars, ReportsThreeChannelsForAGreyImage) {
  std::vector<std::string> lines;
  RemoveStars(ViewOf(MakeNoiseImage(512, 512, 1)), Linear(), Identity,
              {.log = [&lines](const std::string& line) { lines.push_back(line); }});
  ASSERT_EQ(lines.size(), 4U);
  for (std::size_t i = 1; i < 4; ++i) {
    EXPECT_THAT(lines[i], ::testing::StartsWith("  channel " + std::to_string(i) + ": median="));
  }
}

TEST(RemoveStars, ReportsNoTransferForOtherImages) {
  std::vector<std::string> lines;
  RemoveStars(ViewOf(MakeNoiseImage(512, 512, 3)), Plain(), Identity,
              {.log = [&lines](const std::string& line) { lines.push_back(line); }});
  EXPECT_THAT(lines, IsEmpty());
}

TEST(RemoveStars, ShowsTheNetworkStretchedLinearData) {
  const Image input = MakeLinearImage();
  const std::vector<MtfChannelStats> stats = ComputeMtfStatistics(MatOf(input), -2.8, 0.25);
  Remove(input, Linear(), [&](ImageView tile) {
    for (std::size_t i = 0; i < 9; ++i) {
      const MtfChannelStats& channel = stats[i % 3];
      const double x = static_cast<double>(input.samples[i]) - channel.shadows;
      EXPECT_EQ(tile.data[i], static_cast<float>(MtfForward(channel.midtones, x)));
    }
    return Identity(tile);
  });
}

TEST(RemoveStars, ReturnsLinearDataToLinearValues) {
  const Image input = MakeLinearImage();
  const StarRemovalResult result = Remove(input, Linear());
  EXPECT_LE(cv::norm(MatOf(result.starless), MatOf(input), cv::NORM_INF), 1e-6);
}

TEST(RemoveStars, RestoresLinearSamplesBelowTheShadowsExactly) {
  Image input = MakeLinearImage();
  input.samples[0] = -0.5F;
  input.samples[30] = 0.05F;
  input.samples[61] = 0.0F;
  // A network that changes everything it sees.
  const StarRemovalResult result = Remove(input, Linear(), [](ImageView tile) {
    Image output = Identity(tile);
    output.samples.assign(output.samples.size(), 0.5F);
    return output;
  });
  EXPECT_EQ(result.starless.samples[0], -0.5F);
  EXPECT_EQ(result.starless.samples[30], 0.05F);
  EXPECT_EQ(result.starless.samples[61], 0.0F);
  EXPECT_NE(result.starless.samples[3], input.samples[3]);
}

TEST(RemoveStars, LinearResultsCompareWithTheInputAsGiven) {
  const Image input = MakeLinearImage();
  StarRemovalOptions options = Linear();
  options.computeStarMask = true;
  const StarRemovalResult result = Remove(input, options, Scaling(0.9F));
  EXPECT_TRUE(
      AreEqual(MatOf(result.starMask), ComputeStarMask(MatOf(input), MatOf(result.starless))));
  EXPECT_GT(cv::norm(MatOf(result.starMask), cv::NORM_INF), 0.0);
}

TEST(RemoveStars, LinearDataCanBeUpsampled) {
  const Image input = MakeNoiseImage(512, 512, 3, 0.09, 0.11);
  StarRemovalOptions options = Linear();
  options.upsample2x = true;
  const StarRemovalResult result = Remove(input, options);
  EXPECT_EQ(result.starless.width, 512);
  EXPECT_LE(cv::norm(MatOf(result.starless), MatOf(input), cv::NORM_INF), 1e-6);
}

TEST(RemoveStars, ProtectsHighlightsOfLinearDataAgainstTheUnstretchedImage) {
  Image input = MakeLinearImage();
  for (std::size_t i = 300; i < 600; ++i) {
    input.samples[i] = 0.99F;
  }
  const TileInferenceFn network = Scaling(0.99999F);
  const StarRemovalResult plain = Remove(input, Linear(), network);
  StarRemovalOptions options = Linear();
  options.protectHighlights = true;
  cv::Mat expected = MatOf(plain.starless).clone();
  ProtectStarlessHighlights(MatOf(input), expected);
  EXPECT_TRUE(AreEqual(MatOf(Remove(input, options, network).starless), expected));
}

TEST(RemoveStars, RefusesLinearOptionsOutsideTheirRanges) {
  const Image input = MakeNoiseImage(512, 512, 3);
  StarRemovalOptions options = Linear();
  options.shadowsClipping = 0.0;
  ExpectRefused<std::invalid_argument>(
      ViewOf(input), options,
      "Shadows clipping must be a finite negative normalized-MAD multiplier.");
  options.targetBackground = 1.0;
  ExpectRefused<std::invalid_argument>(
      ViewOf(input), options, "Target background must be finite and strictly between 0 and 1.");
}

TEST(RemoveStars, IgnoresLinearOptionsOfOtherImages) {
  StarRemovalOptions options = Plain();
  options.shadowsClipping = 1.0;
  options.targetBackground = 7.0;
  EXPECT_NO_THROW(Remove(MakeNoiseImage(512, 512, 3), options));
}

class RefusedTile : public ::testing::Test {
 protected:
  static void ExpectRefused(Image output, const char* text) {
    const Image input = MakeNoiseImage(512, 512, 3);
    ExpectThrows<std::runtime_error>(
        [&] { Remove(input, Plain(), [&output](ImageView) { return output; }); }, text);
  }
  static Image Tile() {
    return {
        .samples = std::vector<float>(786432, 0.5F), .width = 512, .height = 512, .channels = 3};
  }
  static constexpr const char* kBuffer = "Inference returned an invalid image buffer.";
};

TEST_F(RefusedTile, OfAnotherSize) {
  Image tile = Tile();
  tile.width = 256;
  ExpectRefused(tile, kBuffer);
  tile = Tile();
  tile.height = 513;
  ExpectRefused(tile, kBuffer);
}

TEST_F(RefusedTile, OfAnotherChannelCount) {
  Image tile = Tile();
  tile.channels = 1;
  ExpectRefused(tile, kBuffer);
}

TEST_F(RefusedTile, OfAnotherSampleCount) {
  Image tile = Tile();
  tile.samples.pop_back();
  ExpectRefused(tile, kBuffer);
  tile.samples.resize(786433);
  ExpectRefused(tile, kBuffer);
  ExpectRefused(Image{}, kBuffer);
}

TEST_F(RefusedTile, WithNonFiniteSamples) {
  Image tile = Tile();
  tile.samples[1000] = std::numeric_limits<float>::infinity();
  ExpectRefused(tile, "Inference returned non-finite samples.");
}

TEST(RemoveStars, ProgressThatDeclinesAtOnceStopsBeforeAnyTile) {
  const Image input = MakeNoiseImage(512, 512, 3);
  int tiles = 0;
  ExpectThrows<Cancelled>(
      [&] {
        RemoveStars(ViewOf(input), Plain(),
                    [&tiles](ImageView tile) {
                      ++tiles;
                      return Identity(tile);
                    },
                    {.progress = [](int, int) { return false; }});
      },
      "Processing cancelled.");
  EXPECT_EQ(tiles, 0);
}

// What had been called when a run stopped at the given poll.
struct StoppedRun {
  int polls = 0;
  int progressCalls = 0;
  int tiles = 0;
  bool cancelled = false;
};

StoppedRun StopAtPoll(int poll, const StarRemovalOptions& options) {
  static const Image kInput = MakeNoiseImage(512, 512, 3);
  StoppedRun run;
  StarRemovalCallbacks callbacks;
  callbacks.stopRequested = [&run, poll] { return ++run.polls == poll; };
  callbacks.progress = [&run](int, int) {
    ++run.progressCalls;
    return true;
  };
  try {
    RemoveStars(
        ViewOf(kInput), options,
        [&run](ImageView tile) {
          ++run.tiles;
          return Identity(tile);
        },
        callbacks);
  } catch (const Cancelled&) {
    run.cancelled = true;
  }
  return run;
}

TEST(RemoveStars, CanBeStoppedAtEveryStep) {
  // The start, the first progress report, the tile, its progress report, before and after the
  // results are made.
  constexpr int kProgressCalls[] = {0, 0, 1, 1, 2, 2};
  constexpr int kTiles[] = {0, 0, 0, 1, 1, 1};
  for (int poll = 1; poll <= 6; ++poll) {
    const StoppedRun run = StopAtPoll(poll, Plain());
    EXPECT_TRUE(run.cancelled) << poll;
    EXPECT_EQ(run.polls, poll);
    EXPECT_EQ(run.progressCalls, kProgressCalls[poll - 1]) << poll;
    EXPECT_EQ(run.tiles, kTiles[poll - 1]) << poll;
  }
  const StoppedRun completed = StopAtPoll(7, Plain());
  EXPECT_FALSE(completed.cancelled);
  EXPECT_EQ(completed.polls, 6);
}

TEST(RemoveStars, CanBeStoppedAfterUpsampling) {
  StarRemovalOptions options = Plain();
  options.upsample2x = true;
  const StoppedRun run = StopAtPoll(2, options);
  EXPECT_TRUE(run.cancelled);
  EXPECT_EQ(run.progressCalls, 0);
  // The start, after upsampling, the first report, four tiles with theirs, and two at the end.
  const StoppedRun completed = StopAtPoll(1000, options);
  EXPECT_FALSE(completed.cancelled);
  EXPECT_EQ(completed.polls, 1 + 1 + 1 + 4 * 2 + 2);
}

TEST(RemoveStars, AStopRequestGoesBeforeABadImage) {
  EXPECT_THROW(RemoveStars({}, {}, Identity, {.stopRequested = [] { return true; }}), Cancelled);
}

TEST(RemoveStars, ExceptionsOfEveryCallbackPassThrough) {
  const Image input = MakeLinearImage();
  const auto fail = [] { throw std::domain_error("mine"); };
  const auto expectMine = [&input](const TileInferenceFn& inferTile,
                                   const StarRemovalCallbacks& callbacks) {
    ExpectThrows<std::domain_error>(
        [&] { RemoveStars(ViewOf(input), Linear(), inferTile, callbacks); }, "mine");
  };
  expectMine(
      [&fail](ImageView tile) {
        fail();
        return Identity(tile);
      },
      {});
  expectMine(Identity, {.progress = [&fail](int, int) {
               fail();
               return true;
             }});
  expectMine(Identity, {.stopRequested = [&fail] {
               fail();
               return false;
             }});
  expectMine(Identity, {.log = [&fail](const std::string&) { fail(); }});
}

TEST(RemoveStars, AConstantImageNeedsNoNetwork) {
  Image input = MakeNoiseImage(700, 512, 3);
  input.samples.assign(input.samples.size(), 0.25F);
  int tiles = 0;
  const StarRemovalResult result = Remove(input, Plain(), [&tiles](ImageView tile) {
    ++tiles;
    return Identity(tile);
  });
  EXPECT_EQ(tiles, 0);
  EXPECT_EQ(result.starless.samples, input.samples);
}

#ifndef __SANITIZE_ADDRESS__  // which needs more address space than any limit
// 3000 x 3000 float32 RGB samples are 103 MiB.
constexpr std::int32_t kLargeSide = 3000;
constexpr std::uint64_t kLittleMemory = std::uint64_t{64} << 20U;

void ExpectNoMemory(std::int32_t channels, const StarRemovalOptions& options) {
  Image input{.samples = {}, .width = kLargeSide, .height = kLargeSide, .channels = channels};
  input.samples.assign(std::size_t{kLargeSide} * kLargeSide * static_cast<std::size_t>(channels),
                       0.25F);
  const test::AddressSpaceLimit limit(kLittleMemory);
  EXPECT_THROW(Remove(input, options), std::bad_alloc);
}

TEST(RemoveStars, LackOfMemoryForTheResultIsBadAlloc) {
  ExpectNoMemory(3, Plain());
}

// The matrices that follow are OpenCV's, whose lack of memory is an exception of its own.
TEST(RemoveStars, LackOfMemoryForTheWorkingImageIsBadAlloc) {
  ExpectNoMemory(1, Plain());
}

TEST(RemoveStars, LackOfMemoryForTheDoubledImageIsBadAlloc) {
  StarRemovalOptions options = Plain();
  options.upsample2x = true;
  ExpectNoMemory(3, options);
}
#endif

}  // namespace
}  // namespace project_lumen::core
