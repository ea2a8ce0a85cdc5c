// The backend over a recorded function table: which calls it makes, in which order, and what
// becomes of failures. See RealModelTest.cpp for runs of the real library.
#include "backend/OnnxRuntimeBackend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "FakeOrtApi.h"
#include "backend/OrtLibrary.h"
#include "backend/SessionRun.h"

namespace project_lumen::backend {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr int kWindow = 2;
constexpr const char* kCpuMessage =
    "ONNX Runtime CPU fallback initialized successfully; continuing on CPU. GPU acceleration is "
    "unavailable for this run.";

std::string ModelPath() {
  return std::string(NEBULEX_TEST_MODELS) + "/identity.onnx";
}

std::string Context(const std::string& path, const std::string& kind) {
  return "\nModel context: backend=ONNX Runtime; expected=ONNX model; source=backend caller; "
         "resolved path='" +
         path + "'; path kind=" + kind;
}

std::string Warning(const std::string& label, const std::string& detail) {
  return "Warning: ONNX Runtime " + label +
         " initialization/warmup failed; trying the next provider. Provider detail: " + detail;
}

const int kNoModule = 0;

ProviderPlatform WithCuda() {
  return {true, &OrtLibraryBase()};
}
ProviderPlatform WithoutCuda() {
  return {false, &OrtLibraryBase()};
}

class Backend : public testing::Test {
 protected:
  OnnxRuntimeBackend Open(const ProviderPlatform& platform, bool quiet = true) {
    return {ModelPath(), kWindow, [this](const std::string& text) { messages.push_back(text); },
            quiet, platform};
  }

  void ExpectOpenFails(const ProviderPlatform& platform, const std::string& message) {
    EXPECT_THAT([&] { Open(platform); },
                ThrowsMessage<std::runtime_error>(message + Context(ModelPath(), "regular file")));
    EXPECT_THAT(ort.Live(), IsEmpty());
  }

  // Makes DirectML fail; the CPU succeeds.
  void RefuseDirectMl() { ort.Fail("SessionOptionsAppendExecutionProvider", "no DirectML"); }

  [[nodiscard]] bool Called(const std::string& prefix) const {
    return testing::Matches(testing::Contains(StartsWith(prefix)))(ort.Calls());
  }

  test::FakeOrtApi ort;
  std::vector<std::string> messages;
};

TEST_F(Backend, EverySessionThatIsTriedGetsTheNumberOfIntraOpThreads) {
  RefuseDirectMl();
  ort.Fail("SessionOptionsAppendExecutionProvider_CUDA_V2", "no CUDA");
  ProviderPlatform platform = WithCuda();
  platform.intraThreads = 3;
  Open(platform);
  EXPECT_THAT(ort.Calls(), AllOf(Contains("SetIntraOpNumThreads(options2, 3)"),
                                 Contains("SetIntraOpNumThreads(options3, 3)"),
                                 Contains("SetIntraOpNumThreads(options4, 3)")));
}

TEST_F(Backend, WithoutARestrictionTheNumberOfIntraOpThreadsIsLeftAlone) {
  Open(WithoutCuda());
  EXPECT_FALSE(Called("SetIntraOpNumThreads"));
}

// The calls of the `number`th run, whose input is written as "bytes, extents".
std::vector<std::string> RunCalls(const std::string& session, int number,
                                  const std::string& tensor) {
  const std::string memory = "memoryInfo" + std::to_string(number);
  const std::string input = "value" + std::to_string(2 * number - 1);
  const std::string output = "value" + std::to_string(2 * number);
  const std::string info = "tensorInfo" + std::to_string(number);
  return {"CreateCpuMemoryInfo(1, 0)",
          "CreateTensorWithDataAsOrtValue(" + memory + ", " + tensor + ", type 1)",
          "ReleaseMemoryInfo(" + memory + ")",
          "Run(" + session + ", the input=" + input + ", the output)",
          "GetTensorTypeAndShape(" + output + ")",
          "GetTensorElementType(" + info + ")",
          "GetDimensionsCount(" + info + ")",
          "GetDimensions(" + info + ")",
          "GetTensorShapeElementCount(" + info + ")",
          "GetTensorMutableData(" + output + ")",
          "ReleaseTensorTypeAndShapeInfo(" + info + ")",
          "ReleaseValue(" + input + ")",
          "ReleaseValue(" + output + ")"};
}

std::vector<std::string> NameCalls(const std::string& session) {
  return {"GetAllocatorWithDefaultOptions()",
          "SessionGetInputName(" + session + ", 0)",
          "Free(the input)",
          "GetAllocatorWithDefaultOptions()",
          "SessionGetOutputName(" + session + ", 0)",
          "Free(the output)"};
}

std::vector<std::string> Concatenate(const std::vector<std::vector<std::string>>& parts) {
  std::vector<std::string> all;
  for (const auto& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

TEST_F(Backend, OpensAndClosesACudaSessionInThisOrder) {
  { const OnnxRuntimeBackend backend = Open(WithCuda()); }
  EXPECT_THAT(
      ort.Calls(),
      ElementsAreArray(Concatenate(
          {{"CreateEnvWithCustomLogger(4, project-lumen-ort)", "SetLanguageProjection(env1, 1)",
            "CreateSessionOptions()", "CreateSessionOptions()", "SetInterOpNumThreads(options2, 1)",
            "SetSessionGraphOptimizationLevel(options2, 99)", "CreateCUDAProviderOptions()",
            "SessionOptionsAppendExecutionProvider_CUDA_V2(options2, cudaOptions1)",
            "CreateSessionFromArray(env1, options2)", "ReleaseCUDAProviderOptions(cudaOptions1)"},
           NameCalls("session1"),
           RunCalls("session1", 1, "48 bytes, 1x2x2x3"),
           {"ReleaseSessionOptions(options1)", "ReleaseSession(session1)",
            "ReleaseSessionOptions(options2)", "ReleaseEnv(env1)"}})));
}

TEST_F(Backend, LogsWarningsUnlessQuiet) {
  const OnnxRuntimeBackend backend = Open(WithoutCuda(), false);
  EXPECT_EQ(ort.Calls().front(), "CreateEnvWithCustomLogger(2, project-lumen-ort)");
}

TEST_F(Backend, LogsFatalMessagesOnlyWhenQuiet) {
  const OnnxRuntimeBackend backend = Open(WithoutCuda(), true);
  EXPECT_EQ(ort.Calls().front(), "CreateEnvWithCustomLogger(4, project-lumen-ort)");
}

TEST_F(Backend, TakesCudaWhenItWorksAndSendsNoMessage) {
  const OnnxRuntimeBackend backend = Open(WithCuda());
  EXPECT_EQ(backend.ProviderName(), "CUDA execution provider");
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(Backend, SkipsCudaSilentlyWithoutItsLibraryAndTakesDirectMl) {
  const OnnxRuntimeBackend backend = Open(WithoutCuda());
  EXPECT_EQ(backend.ProviderName(), "DirectML execution provider");
  EXPECT_THAT(messages, IsEmpty());
  EXPECT_FALSE(Called("CreateCUDAProviderOptions"));
}

TEST_F(Backend, OnlyDirectMlTurnsMemoryPatternOffAndFixesTheExecutionMode) {
  { const OnnxRuntimeBackend backend = Open(WithoutCuda()); }
  EXPECT_TRUE(Called("DisableMemPattern(options2)"));
  EXPECT_TRUE(Called("SetSessionExecutionMode(options2, 0)"));
  ort.ForgetCalls();
  { const OnnxRuntimeBackend backend = Open(WithCuda()); }
  EXPECT_FALSE(Called("DisableMemPattern"));
  EXPECT_FALSE(Called("SetSessionExecutionMode"));
}

TEST_F(Backend, WarnsOfAFailedCudaSessionAndTakesDirectMl) {
  ort.Fail("SessionOptionsAppendExecutionProvider_CUDA_V2", "no driver");
  const OnnxRuntimeBackend backend = Open(WithCuda());
  EXPECT_EQ(backend.ProviderName(), "DirectML execution provider");
  EXPECT_THAT(messages, ElementsAre(Warning("CUDA", "no driver")));
}

TEST_F(Backend, ReleasesACandidateWhoseWarmupFailsBeforeTheNextIsTried) {
  ort.Fail("Run", "kernel missing");
  const OnnxRuntimeBackend backend = Open(WithCuda());
  EXPECT_EQ(backend.ProviderName(), "DirectML execution provider");
  EXPECT_THAT(messages, ElementsAre(Warning(
                            "CUDA",
                            "ONNX Runtime warmup failed using CUDA execution provider for tensor "
                            "1x2x2x3. kernel missing")));
  EXPECT_THAT(ort.Live(), ElementsAre("env1", "options3", "session2"));
  const auto& calls = ort.Calls();
  const auto release = std::find(calls.begin(), calls.end(), "ReleaseSessionOptions(options2)");
  const auto next = std::find(calls.begin(), calls.end(), "DisableMemPattern(options3)");
  EXPECT_LT(release, next);
}

TEST_F(Backend, AFailedDirectMlWarmupCarriesNoDriverHint) {
  ort.Fail("Run", "device removed");
  const OnnxRuntimeBackend backend = Open(WithoutCuda());
  EXPECT_THAT(messages,
              ElementsAre(Warning("DirectML",
                                  "ONNX Runtime warmup failed using DirectML execution provider "
                                  "for tensor 1x2x2x3. device removed"),
                          kCpuMessage));
}

TEST_F(Backend, ReportsEveryFailedProviderInOrderAndThenTheCpu) {
  ort.Fail("CreateCUDAProviderOptions", "no CUDA");
  RefuseDirectMl();
  const OnnxRuntimeBackend backend = Open(WithCuda());
  EXPECT_EQ(backend.ProviderName(), "CPU execution provider");
  EXPECT_THAT(messages, ElementsAre(Warning("CUDA", "no CUDA"), Warning("DirectML", "no DirectML"),
                                    kCpuMessage));
}

TEST_F(Backend, ReportsARuntimeThatIsNotLoaded) {
  const OnnxRuntimeBackend backend = Open({false, &kNoModule});
  EXPECT_THAT(messages,
              ElementsAre(Warning("DirectML", "ONNX Runtime DLL is not loaded."), kCpuMessage));
}

TEST_F(Backend, AnEmptyCallbackSuppressesAllMessages) {
  ort.Fail("CreateCUDAProviderOptions", "no CUDA");
  RefuseDirectMl();
  const OnnxRuntimeBackend backend(ModelPath(), kWindow, {}, true, WithCuda());
  EXPECT_EQ(backend.ProviderName(), "CPU execution provider");
}

TEST_F(Backend, WarmsUpWithOneTileOfOneEighth) {
  const OnnxRuntimeBackend backend = Open(WithoutCuda());
  EXPECT_THAT(ort.inputSamples, testing::SizeIs(12));
  EXPECT_THAT(ort.inputSamples, Each(0.125F));
}

TEST_F(Backend, CreatesSessionsFromThePreparedModel) {
  const std::string path = std::string(NEBULEX_TEST_MODELS) + "/half_payload.onnx";
  const OnnxRuntimeBackend backend(path, kWindow, {}, true, WithoutCuda());
  // 512x512 half-precision elements take 512 KiB, single-precision ones 1 MiB.
  EXPECT_GT(ort.modelBytes.size(), std::size_t{1} << 20U);
}

TEST_F(Backend, FailsWhenTheCpuFailsToo) {
  RefuseDirectMl();
  ort.Fail("CreateSessionFromArray", "bad graph");
  ExpectOpenFails(WithoutCuda(),
                  "ONNX Runtime CPU fallback initialization failed. Detail: bad graph");
  EXPECT_THAT(messages, ElementsAre(Warning("DirectML", "no DirectML")));
}

TEST_F(Backend, FailsWhenTheWarmupOnTheCpuFails) {
  RefuseDirectMl();
  ort.output.dimensions = {{1, 1, 1, 3}};
  ExpectOpenFails(WithoutCuda(),
                  "ONNX Runtime CPU fallback initialization failed. Detail: ONNX Runtime warmup "
                  "failed using CPU execution provider for tensor 1x2x2x3. ONNX Runtime returned "
                  "an unexpected output shape.");
}

TEST_F(Backend, FailsWithoutAnEnvironment) {
  ort.Fail("CreateEnvWithCustomLogger", "no environment");
  ExpectOpenFails(WithoutCuda(), "no environment");
  EXPECT_FALSE(Called("CreateSessionOptions"));
}

TEST_F(Backend, FailsWithoutItsFirstSessionOptions) {
  ort.Fail("CreateSessionOptions", "no options");
  ExpectOpenFails(WithoutCuda(), "no options");
}

TEST_F(Backend, FailsForAMissingModelBeforeAnyProviderIsTried) {
  const std::string path = testing::TempDir() + "no such model.onnx";
  EXPECT_THAT([&] { OnnxRuntimeBackend(path, kWindow, {}, true, WithCuda()); },
              ThrowsMessage<std::runtime_error>("Unable to open ONNX model file: " + path +
                                                Context(path, "missing")));
  EXPECT_THAT(ort.Calls(), ElementsAre("CreateEnvWithCustomLogger(4, project-lumen-ort)",
                                       "SetLanguageProjection(env1, 1)", "CreateSessionOptions()",
                                       "ReleaseSessionOptions(options1)", "ReleaseEnv(env1)"));
}

TEST_F(Backend, FailsForAModelThatThePrescanRefuses) {
  const std::string path = std::string(NEBULEX_TEST_MODELS) + "/graph_length.onnx";
  EXPECT_THAT([&] { OnnxRuntimeBackend(path, kWindow, {}, true, WithCuda()); },
              ThrowsMessage<std::runtime_error>("Invalid ONNX graph length." +
                                                Context(path, "regular file")));
  EXPECT_THAT(ort.Live(), IsEmpty());
}

TEST_F(Backend, LetsAnExceptionThatIsNoStandardOnePassAndReleasesEverything) {
  RefuseDirectMl();
  const MessageCallback callback = [](const std::string&) { throw 42; };
  EXPECT_THROW(OnnxRuntimeBackend(ModelPath(), kWindow, callback, true, WithoutCuda()), int);
  EXPECT_THAT(ort.Live(), IsEmpty());
}

TEST_F(Backend, ReleasesEverythingWhicheverCallFails) {
  { const OnnxRuntimeBackend backend = Open(WithCuda()); }
  const int callsOfOneProvider = ort.StatusCalls();
  ASSERT_GT(callsOfOneProvider, 15);
  for (int number = 1; number <= callsOfOneProvider; ++number) {
    ort.FailCallNumber(ort.StatusCalls() + number);
    try {
      const OnnxRuntimeBackend backend = Open(WithCuda());
      EXPECT_EQ(backend.ProviderName(), "DirectML execution provider") << number;
      EXPECT_THAT(ort.Live(), testing::SizeIs(3)) << number;
    } catch (const std::runtime_error& error) {
      EXPECT_LE(number, 3) << error.what();
    }
    EXPECT_THAT(ort.Live(), IsEmpty()) << number;
  }
}

TEST_F(Backend, RunsATileOfAnySizeOverItsOwnMemory) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  ort.ForgetCalls();
  cv::Mat tile(4, 5, CV_32FC3);
  for (int i = 0; i < 60; ++i) {
    tile.ptr<float>()[i] = static_cast<float>(i);
  }
  const std::vector<float> result = backend.InferTile(tile);
  EXPECT_EQ(ort.inputData, tile.data);
  EXPECT_THAT(ort.Calls(), ElementsAreArray(RunCalls("session1", 2, "240 bytes, 1x4x5x3")));
  ASSERT_EQ(result.size(), 60U);
  for (std::size_t i = 0; i < 60; ++i) {
    EXPECT_EQ(result[i], 2.0F * static_cast<float>(i));
  }
}

TEST_F(Backend, StaysUsableAfterAFailedTile) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  const cv::Mat tile(2, 2, CV_32FC3, cv::Scalar::all(0.5));
  ort.output.returned = false;
  EXPECT_THROW(backend.InferTile(tile), std::runtime_error);
  ort.output.returned = true;
  EXPECT_EQ(backend.InferTile(tile).back(), 1.0F);
  EXPECT_EQ(backend.ProviderName(), "DirectML execution provider");
}

TEST_F(Backend, AFailedTileUnderDirectMlCarriesTheDriverHint) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  ort.Fail("Run", "device removed", 2);
  EXPECT_THAT([&] { backend.InferTile(cv::Mat::zeros(512, 512, CV_32FC3)); },
              ThrowsMessage<std::runtime_error>(
                  "ONNX Runtime inference failed using DirectML execution provider for tensor "
                  "1x512x512x3. device removed Image processing stopped. Check the GPU "
                  "driver/DirectML runtime, or use CPU execution if available."));
}

TEST_F(Backend, AFailedTileUnderCudaCarriesNoHint) {
  OnnxRuntimeBackend backend = Open(WithCuda());
  ort.Fail("Run", "out of memory", 2);
  EXPECT_THAT([&] { backend.InferTile(cv::Mat::zeros(512, 512, CV_32FC3)); },
              ThrowsMessage<std::runtime_error>(
                  "ONNX Runtime inference failed using CUDA execution provider for tensor "
                  "1x512x512x3. out of memory"));
}

TEST_F(Backend, AFailedTileLeadsToNoOtherProvider) {
  OnnxRuntimeBackend backend = Open(WithCuda());
  ort.Fail("Run", "out of memory", 2);
  ort.ForgetCalls();
  EXPECT_THROW(backend.InferTile(cv::Mat::zeros(2, 2, CV_32FC3)), std::runtime_error);
  EXPECT_FALSE(Called("CreateSession"));
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(Backend, WhatTheRuntimeLogsIsAMessageInItsPlace) {
  ort.LogDuring("SessionOptionsAppendExecutionProvider", ORT_LOGGING_LEVEL_WARNING, "no device");
  RefuseDirectMl();
  ort.LogDuring("CreateSessionFromArray", ORT_LOGGING_LEVEL_WARNING, "unused weights");
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  EXPECT_THAT(messages,
              ElementsAre("ONNX Runtime warning: no device", Warning("DirectML", "no DirectML"),
                          "ONNX Runtime warning: unused weights", kCpuMessage));
  messages.clear();
  ort.LogDuring("Run", ORT_LOGGING_LEVEL_ERROR, "a node failed");
  ort.Fail("Run", "no result", 2);
  EXPECT_THROW(backend.InferTile(cv::Mat::zeros(2, 2, CV_32FC3)), std::runtime_error);
  EXPECT_THAT(messages, ElementsAre("ONNX Runtime error: a node failed"));
}

TEST_F(Backend, WhatTheRuntimeLogsOfAFailedOpeningIsAMessageToo) {
  RefuseDirectMl();
  ort.LogDuring("CreateSessionFromArray", ORT_LOGGING_LEVEL_ERROR, "what is wrong");
  ort.Fail("CreateSessionFromArray", "bad graph");
  EXPECT_THROW(Open(WithoutCuda()), std::runtime_error);
  EXPECT_THAT(messages,
              ElementsAre(Warning("DirectML", "no DirectML"), "ONNX Runtime error: what is wrong"));
}

TEST_F(Backend, AnEmptyCallbackDropsWhatTheRuntimeLogs) {
  ort.LogDuring("CreateSessionFromArray", ORT_LOGGING_LEVEL_WARNING, "unused weights");
  EXPECT_NO_THROW(OnnxRuntimeBackend(ModelPath(), kWindow, {}, false, WithoutCuda()));
}

TEST_F(Backend, TilesOfSeveralThreadsTakeTurns) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  std::atomic<int> inside = 0;
  std::atomic<int> meetings = 0;
  ort.duringRun = [&] {
    meetings += inside++ == 0 ? 0 : 1;
    std::this_thread::yield();
    --inside;
  };
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int number = 1; number <= 4; ++number) {
    threads.emplace_back([&backend, &wrong, number] {
      const cv::Mat tile(2, 2, CV_32FC3, cv::Scalar::all(number));
      for (int i = 0; i < 200; ++i) {
        wrong +=
            backend.InferTile(tile) == std::vector<float>(12, 2.0F * static_cast<float>(number))
                ? 0
                : 1;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(meetings, 0);
  EXPECT_EQ(wrong, 0);
}

TEST_F(Backend, AMessageMayUseTheSession) {
  const cv::Mat tile = cv::Mat::zeros(2, 2, CV_32FC3);
  OnnxRuntimeBackend* used = nullptr;
  int answers = 0;
  OnnxRuntimeBackend backend(
      ModelPath(), kWindow,
      [&](const std::string&) { answers += used != nullptr && !used->InferTile(tile).empty(); },
      true, WithoutCuda());
  used = &backend;
  ort.LogDuring("Run", ORT_LOGGING_LEVEL_WARNING, "slow");
  backend.InferTile(tile);
  EXPECT_EQ(answers, 1);
}

TEST_F(Backend, ATileThatCanBeStoppedHasRunOptionsOfItsOwn) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  ort.ForgetCalls();
  const std::stop_source stop;
  backend.InferTile(cv::Mat::zeros(2, 2, CV_32FC3), stop.get_token(), {});
  EXPECT_THAT(ort.Calls(),
              AllOf(Contains("CreateRunOptions()"), Contains("ReleaseRunOptions(runOptions1)"),
                    Contains("Run(session1, the input=value3, the output, runOptions1)")));
  EXPECT_FALSE(Called("RunOptionsSetTerminate"));
}

TEST_F(Backend, AStopDuringATileSetsTheTerminateFlagOnceAndLeavesTheBackendUsable) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  const cv::Mat tile = cv::Mat::zeros(2, 2, CV_32FC3);
  std::stop_source stop;
  ort.duringRun = [&] { stop.request_stop(); };
  ort.Fail("Run", "Exiting due to terminate flag", 2);
  EXPECT_THROW(backend.InferTile(tile, stop.get_token(), {}), InferenceStopped);
  EXPECT_EQ(
      std::count(ort.Calls().begin(), ort.Calls().end(), "RunOptionsSetTerminate(runOptions1)"), 1);
  ort.duringRun = nullptr;
  EXPECT_THAT(backend.InferTile(tile), testing::SizeIs(12));
}

TEST_F(Backend, AResultThatComesDespiteTheStopIsDropped) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  std::stop_source stop;
  ort.duringRun = [&] { stop.request_stop(); };
  EXPECT_THROW(backend.InferTile(cv::Mat::zeros(2, 2, CV_32FC3), stop.get_token(), {}),
               InferenceStopped);
  EXPECT_THAT(ort.Live(), Not(Contains(StartsWith("value"))));
}

TEST_F(Backend, AStopEndsTheWaitForATurn) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  const cv::Mat tile = cv::Mat::zeros(2, 2, CV_32FC3);
  ort.duringRun = [&] {
    std::stop_source stop;
    std::thread waiting(
        [&] { EXPECT_THROW(backend.InferTile(tile, stop.get_token(), {}), InferenceStopped); });
    stop.request_stop();
    waiting.join();
  };
  EXPECT_THAT(backend.InferTile(tile), testing::SizeIs(12));
}

TEST_F(Backend, WhatIsLoggedOfATileGoesToTheMessagesThatCameWithIt) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  ort.LogDuring("Run", ORT_LOGGING_LEVEL_WARNING, "slow");
  std::vector<std::string> own;
  backend.InferTile(cv::Mat::zeros(2, 2, CV_32FC3), {},
                    [&](const std::string& line) { own.push_back(line); });
  EXPECT_THAT(own, ElementsAre("ONNX Runtime warning: slow"));
  EXPECT_THAT(messages, IsEmpty());
}

TEST_F(Backend, WithTheCpuAloneNoOtherProviderIsTriedAndNothingIsSaid) {
  ProviderPlatform platform = WithCuda();
  platform.cpuOnly = true;
  const OnnxRuntimeBackend backend = Open(platform);
  EXPECT_EQ(backend.ProviderName(), "CPU execution provider");
  EXPECT_THAT(messages, IsEmpty());
  EXPECT_FALSE(Called("CreateCUDAProviderOptions"));
  EXPECT_FALSE(Called("SessionOptionsAppendExecutionProvider"));
}

TEST_F(Backend, WithTheCpuAloneItsFailureIsTheFailure) {
  ProviderPlatform platform = WithCuda();
  platform.cpuOnly = true;
  ort.Fail("CreateSessionFromArray", "bad graph");
  ExpectOpenFails(platform, "bad graph");
}

TEST_F(Backend, RefusesAnEmptyTile) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  EXPECT_THAT([&] { backend.InferTile(cv::Mat()); },
              ThrowsMessage<std::runtime_error>("ONNX Runtime input image is empty."));
}

TEST_F(Backend, RefusesATileOfAnotherType) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  for (const int type : {CV_32FC1, CV_64FC3, CV_8UC3, CV_32FC4}) {
    EXPECT_THAT([&] { backend.InferTile(cv::Mat::zeros(2, 2, type)); },
                ThrowsMessage<std::runtime_error>("ONNX Runtime input image must be CV_32FC3."));
  }
}

TEST_F(Backend, RefusesATileThatIsNotContinuous) {
  OnnxRuntimeBackend backend = Open(WithoutCuda());
  const cv::Mat image = cv::Mat::zeros(4, 4, CV_32FC3);
  EXPECT_THAT([&] { backend.InferTile(image(cv::Rect(0, 0, 2, 2))); },
              ThrowsMessage<std::runtime_error>("ONNX Runtime input image must be continuous."));
}

}  // namespace
}  // namespace project_lumen::backend
