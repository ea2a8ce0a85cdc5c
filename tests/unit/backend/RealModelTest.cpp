// The backend with the ONNX Runtime library that the program is linked with, on the CPU, over the
// models of make_models.py.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <opencv2/core.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "backend/OnnxRuntimeBackend.h"
#include "support/NpyFile.h"
#include "support/StandardErrorFile.h"

namespace project_lumen::backend {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr int kWindow = 512;
constexpr const char* kWarmupFailure =
    "ONNX Runtime CPU fallback initialization failed. Detail: ONNX Runtime warmup failed using CPU "
    "execution provider for tensor 1x512x512x3. ";

std::string TestFile(const std::string& name) {
  return std::string(NEBULEX_TEST_MODELS) + "/" + name;
}

std::string Context(const std::string& path, const std::string& kind) {
  return "\nModel context: backend=ONNX Runtime; expected=ONNX model; source=backend caller; "
         "resolved path='" +
         path + "'; path kind=" + kind;
}

OnnxRuntimeBackend Open(const std::string& model) {
  return {TestFile(model + ".onnx"), kWindow, {}, true};
}

cv::Mat RandomTile(int rows = kWindow, int columns = kWindow) {
  cv::Mat tile(rows, columns, CV_32FC3);
  cv::RNG random(7);
  random.fill(tile, cv::RNG::UNIFORM, -0.25, 1.25);
  return tile;
}

// Compares the samples of row r, column c, channel k with expected(sample, r * columns + c).
template <class Expected>
void ExpectSamples(const std::vector<float>& result, const cv::Mat& tile, Expected expected) {
  ASSERT_EQ(result.size(), tile.total() * 3);
  const auto* in = tile.ptr<float>();
  for (std::size_t i = 0; i < result.size(); ++i) {
    ASSERT_EQ(result[i], expected(in[i], i / 3)) << "sample " << i;
  }
}

void ExpectOpenFails(const std::string& model, const testing::Matcher<std::string>& message) {
  EXPECT_THAT([&] { Open(model); }, ThrowsMessage<std::runtime_error>(message));
}

void ExpectWarmupFails(const std::string& model, const std::string& detail) {
  ExpectOpenFails(model,
                  kWarmupFailure + detail + Context(TestFile(model + ".onnx"), "regular file"));
}

TEST(RealModel, WithoutAGpuTheRefusalOfDirectMlIsReportedAndTheCpuTakesOver) {
  std::vector<std::string> messages;
  const OnnxRuntimeBackend backend(
      TestFile("identity.onnx"), kWindow,
      [&messages](const std::string& text) { messages.push_back(text); }, true);
  EXPECT_EQ(backend.ProviderName(), "CPU execution provider");
  EXPECT_THAT(
      messages,
      ElementsAre(AllOf(StartsWith("Warning: ONNX Runtime DirectML initialization/warmup failed; "
                                   "trying the next provider. Provider detail: "),
                        HasSubstr("not supported in this build")),
                  "ONNX Runtime CPU fallback initialized successfully; continuing on CPU. GPU "
                  "acceleration is unavailable for this run."));
}

// Whether CUDA runs depends on the library and the machine; that it is not passed over in silence
// does not.
TEST(RealModel, CudaEitherRunsOrIsReportedFirst) {
  std::vector<std::string> messages;
  const ProviderPlatform platform{true, SystemProviderPlatform().runtimeAddress};
  const OnnxRuntimeBackend backend(
      TestFile("identity.onnx"), kWindow,
      [&messages](const std::string& text) { messages.push_back(text); }, true, platform);
  const bool onCuda = backend.ProviderName() == "CUDA execution provider";
  EXPECT_EQ(onCuda, messages.empty());
  EXPECT_EQ(!onCuda,
            !messages.empty() && messages.front().starts_with(
                                     "Warning: ONNX Runtime CUDA initialization/warmup "
                                     "failed; trying the next provider. Provider detail: "));
}

// ONNX Runtime warns of weights that no node uses.
TEST(RealModel, WhatTheRuntimeLogsIsAMessageAndReachesNothingElse) {
  std::vector<std::string> messages;
  {
    const test::StandardErrorFile standardError;
    const OnnxRuntimeBackend backend(
        TestFile("unused_weights.onnx"), kWindow,
        [&messages](const std::string& text) { messages.push_back(text); }, false);
    EXPECT_EQ(standardError.Text(), "");
  }
  EXPECT_THAT(messages,
              Contains(AllOf(StartsWith("ONNX Runtime warning: "), HasSubstr("'unused'"))));
}

TEST(RealModel, QuietlyNothingIsLogged) {
  std::vector<std::string> messages;
  const OnnxRuntimeBackend backend(
      TestFile("unused_weights.onnx"), kWindow,
      [&messages](const std::string& text) { messages.push_back(text); }, true);
  EXPECT_THAT(messages, Not(Contains(HasSubstr("'unused'"))));
}

TEST(RealModel, IdentityGivesATileBack) {
  OnnxRuntimeBackend backend = Open("identity");
  const cv::Mat tile = RandomTile();
  ExpectSamples(backend.InferTile(tile), tile, [](float sample, std::size_t) { return sample; });
}

TEST(RealModel, RunsTileAfterTileAndLeavesTheTileAsItIs) {
  OnnxRuntimeBackend backend = Open("scaling");
  const cv::Mat tile = RandomTile();
  const cv::Mat before = tile.clone();
  for (int run = 0; run < 2; ++run) {
    ExpectSamples(backend.InferTile(tile), tile,
                  [](float sample, std::size_t) { return 0.5F * sample; });
  }
  EXPECT_EQ(cv::norm(tile, before, cv::NORM_INF), 0.0);
}

TEST(RealModel, EarlierResultsSurviveLaterTiles) {
  OnnxRuntimeBackend backend = Open("scaling");
  const auto first = backend.InferTile(cv::Mat(kWindow, kWindow, CV_32FC3, cv::Scalar::all(1)));
  const auto second = backend.InferTile(cv::Mat::zeros(kWindow, kWindow, CV_32FC3));
  EXPECT_EQ(first.back(), 0.5F);
  EXPECT_EQ(second.front(), 0.0F);
}

TEST(RealModel, RowsAndColumnsReachTheNetworkInTheirPlaces) {
  const std::vector<float> pattern = test::ReadNpyFloats(TestFile("pattern.npy"));
  ASSERT_EQ(pattern.size(), 512U * 512U);
  OnnxRuntimeBackend backend = Open("pattern");
  const cv::Mat tile = RandomTile();
  ExpectSamples(backend.InferTile(tile), tile,
                [&pattern](float sample, std::size_t pixel) { return sample * pattern[pixel]; });
}

TEST(RealModel, AHalfPrecisionPayloadRunsWithItsExactNumbers) {
  const std::vector<float> weights = test::ReadNpyFloats(TestFile("half_payload.npy"));
  ASSERT_EQ(weights.size(), 512U * 512U);
  OnnxRuntimeBackend backend = Open("half_payload");
  const cv::Mat ones(kWindow, kWindow, CV_32FC3, cv::Scalar::all(1));
  ExpectSamples(backend.InferTile(ones), ones,
                [&weights](float, std::size_t pixel) { return weights[pixel]; });
}

TEST(RealModel, TheOtherWorkingModelsDoWhatTheirNamesSay) {
  const cv::Mat tile = RandomTile();
  ExpectSamples(Open("zero").InferTile(tile), tile, [](float, std::size_t) { return 0.0F; });
  ExpectSamples(Open("dimmer").InferTile(tile), tile,
                [](float sample, std::size_t) { return std::min(sample, 0.4F); });
  ExpectSamples(Open("brighter").InferTile(tile), tile,
                [](float sample, std::size_t) { return 1.5F * sample; });
}

TEST(RealModel, NaNIsHandedOn) {
  const std::vector<float> result = Open("nan_output").InferTile(RandomTile());
  EXPECT_TRUE(
      std::all_of(result.begin(), result.end(), [](float sample) { return std::isnan(sample); }));
}

TEST(RealModel, ATileMayHaveAnotherSizeThanTheWindowWhereTheModelTakesIt) {
  OnnxRuntimeBackend backend = Open("identity_any_size");
  const cv::Mat tile = RandomTile(3, 700);
  ExpectSamples(backend.InferTile(tile), tile, [](float sample, std::size_t) { return sample; });
}

TEST(RealModel, ATileOfASizeThatTheModelRefusesFailsInItsWords) {
  OnnxRuntimeBackend backend = Open("identity");
  EXPECT_THAT([&] { backend.InferTile(RandomTile(256, 256)); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(StartsWith("ONNX Runtime inference failed using CPU execution provider for "
                                   "tensor 1x256x256x3. "),
                        HasSubstr("Got invalid dimensions for input: input"))));
}

TEST(RealModel, AFailingTileFailsInTheModelsWords) {
  OnnxRuntimeBackend backend = Open("fails_on_tiles");
  const cv::Mat warmup(kWindow, kWindow, CV_32FC3, cv::Scalar::all(0.125));
  ExpectSamples(backend.InferTile(warmup), warmup, [](float, std::size_t) { return 0.125F; });
  EXPECT_THAT([&] { backend.InferTile(RandomTile()); },
              ThrowsMessage<std::runtime_error>(
                  AllOf(StartsWith("ONNX Runtime inference failed using CPU execution provider for "
                                   "tensor 1x512x512x3. "),
                        HasSubstr("Gather"))));
}

TEST(RealModel, AnOutputOfAnotherShapeIsRefused) {
  for (const char* model : {"wrong_shape", "extra_dim", "one_channel"}) {
    ExpectWarmupFails(model, "ONNX Runtime returned an unexpected output shape.");
  }
}

TEST(RealModel, AnOutputOfAnotherElementTypeIsRefused) {
  for (const char* model : {"half_output", "double_output"}) {
    ExpectWarmupFails(model, "ONNX Runtime output tensor does not hold float32 samples.");
  }
}

TEST(RealModel, AnOutputThatIsNoTensorIsRefused) {
  ExpectOpenFails("sequence_output", StartsWith(kWarmupFailure));
}

TEST(RealModel, ASecondInputIsNeverFedAndOnnxRuntimeNamesIt) {
  ExpectOpenFails("two_inputs",
                  AllOf(StartsWith(kWarmupFailure), HasSubstr("second"),
                        EndsWith(Context(TestFile("two_inputs.onnx"), "regular file"))));
}

TEST(RealModel, AnInputOfAnotherElementTypeIsRefusedByOnnxRuntime) {
  ExpectOpenFails("double_input",
                  AllOf(StartsWith(kWarmupFailure), HasSubstr("Unexpected input data type")));
}

TEST(RealModel, AModelThatFailsWhenItRunsFailsInItsWarmup) {
  ExpectOpenFails("fails_at_run", AllOf(StartsWith(kWarmupFailure), HasSubstr("Reshape")));
}

TEST(RealModel, AnEmptyFileIsRefusedByOnnxRuntime) {
  ExpectOpenFails("empty",
                  AllOf(StartsWith("ONNX Runtime CPU fallback initialization failed. Detail: "),
                        EndsWith(Context(TestFile("empty.onnx"), "regular file"))));
}

TEST(RealModel, AModelWithoutAGraphIsRefusedByOnnxRuntime) {
  ExpectOpenFails("no_graph",
                  AllOf(StartsWith("ONNX Runtime CPU fallback initialization failed. Detail: "),
                        EndsWith(Context(TestFile("no_graph.onnx"), "regular file"))));
}

TEST(RealModel, ADirectoryIsNoModel) {
  const std::string folder = NEBULEX_TEST_MODELS;
  EXPECT_THAT(
      [&] { OnnxRuntimeBackend(folder, kWindow, {}, true); },
      ThrowsMessage<std::runtime_error>(
          "Unable to open ONNX model file: " + folder +
          Context(folder, "directory (CoreML .mlpackage/.mlmodelc models are directory bundles)")));
}

TEST(RealModel, ADeviceIsNoModel) {
  EXPECT_THAT([] { OnnxRuntimeBackend("/dev/zero", kWindow, {}, true); },
              ThrowsMessage<std::runtime_error>("Unable to open ONNX model file: /dev/zero" +
                                                Context("/dev/zero", "other")));
}

}  // namespace
}  // namespace project_lumen::backend
