#include "backend/ExecutionProviders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "FakeDirectMl.h"
#include "FakeOrtApi.h"
#include "backend/OrtLibrary.h"

namespace project_lumen::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

const void* AddressInOnnxRuntime() {
  return &OrtLibraryBase();
}

const void* AddressInFakeDirectMl() {
  return reinterpret_cast<const void*>(&OrtSessionOptionsAppendExecutionProvider_DML);
}

class ExecutionProviders : public testing::Test {
 protected:
  ExecutionProviders()
      : environment(CreateHandle<EnvironmentHandle>([](OrtEnv** env) {
          return CurrentOrtApi().CreateEnv(ORT_LOGGING_LEVEL_FATAL, "test", env);
        })) {
    ort.ForgetCalls();
  }

  test::FakeOrtApi ort;
  EnvironmentHandle environment;
  Bytes model = {1, 2, 3};
};

TEST_F(ExecutionProviders, CommonOptionsAreOneInterOpThreadAndAllOptimisations) {
  const SessionOptionsHandle options = CreateSessionOptions();
  ort.ForgetCalls();
  ConfigureCommonSessionOptions(*options, 0);
  EXPECT_THAT(ort.Calls(), ElementsAre("SetInterOpNumThreads(options1, 1)",
                                       "SetSessionGraphOptimizationLevel(options1, 99)"));
}

TEST_F(ExecutionProviders, CommonOptionsTakeANumberOfIntraOpThreads) {
  const SessionOptionsHandle options = CreateSessionOptions();
  ort.ForgetCalls();
  ConfigureCommonSessionOptions(*options, 3);
  EXPECT_THAT(ort.Calls(),
              ElementsAre("SetInterOpNumThreads(options1, 1)", "SetIntraOpNumThreads(options1, 3)",
                          "SetSessionGraphOptimizationLevel(options1, 99)"));
}

TEST_F(ExecutionProviders, CudaTakesItsProviderOptionsAsTheyArePreset) {
  const CandidateSession candidate = CreateCudaSession(*environment, model, 0);
  EXPECT_THAT(
      ort.Calls(),
      ElementsAre("CreateSessionOptions()", "SetInterOpNumThreads(options1, 1)",
                  "SetSessionGraphOptimizationLevel(options1, 99)", "CreateCUDAProviderOptions()",
                  "SessionOptionsAppendExecutionProvider_CUDA_V2(options1, cudaOptions1)",
                  "CreateSessionFromArray(env1, options1)",
                  "ReleaseCUDAProviderOptions(cudaOptions1)"));
  EXPECT_EQ(ort.modelBytes, model);
}

TEST_F(ExecutionProviders, CudaOptionsAreReleasedWhenTheProviderIsRefused) {
  ort.Fail("SessionOptionsAppendExecutionProvider_CUDA_V2", "no CUDA");
  EXPECT_THAT([&] { CreateCudaSession(*environment, model, 0); },
              ThrowsMessage<std::exception>("no CUDA"));
  EXPECT_THAT(ort.Live(), ElementsAre("env1"));
}

TEST_F(ExecutionProviders, CudaOptionsAreReleasedWhenTheSessionIsRefused) {
  ort.Fail("CreateSessionFromArray", "no memory");
  EXPECT_THAT([&] { CreateCudaSession(*environment, model, 0); },
              ThrowsMessage<std::exception>("no memory"));
  EXPECT_THAT(ort.Live(), ElementsAre("env1"));
}

TEST_F(ExecutionProviders, DirectMlRunsSequentiallyWithoutMemoryPattern) {
  const CandidateSession candidate =
      CreateDirectMlSession(*environment, model, 0, AddressInOnnxRuntime());
  EXPECT_THAT(ort.Calls(),
              ElementsAre("CreateSessionOptions()", "SetInterOpNumThreads(options1, 1)",
                          "SetSessionGraphOptimizationLevel(options1, 99)",
                          "DisableMemPattern(options1)", "SetSessionExecutionMode(options1, 0)",
                          "SessionOptionsAppendExecutionProvider(options1, DML, device_id=0)",
                          "CreateSessionFromArray(env1, options1)"));
  EXPECT_EQ(ort.modelBytes, model);
}

TEST_F(ExecutionProviders, CpuKeepsTheDefaultsForMemoryPatternAndExecutionMode) {
  const CandidateSession candidate = CreateCpuSession(*environment, model, 0);
  EXPECT_THAT(ort.Calls(),
              ElementsAre("CreateSessionOptions()", "SetInterOpNumThreads(options1, 1)",
                          "SetSessionGraphOptimizationLevel(options1, 99)",
                          "CreateSessionFromArray(env1, options1)"));
  EXPECT_EQ(ort.modelBytes, model);
}

TEST_F(ExecutionProviders, ACandidateReleasesItsSessionBeforeItsOptions) {
  { const CandidateSession candidate = CreateCpuSession(*environment, model, 0); }
  const auto& calls = ort.Calls();
  EXPECT_THAT(std::vector(calls.end() - 2, calls.end()),
              ElementsAre("ReleaseSession(session1)", "ReleaseSessionOptions(options1)"));
}

OrtSessionOptions* directMlOptions = nullptr;
int directMlDevice = -1;
OrtStatus* directMlStatus = nullptr;

OrtStatus* RecordDirectMl(OrtSessionOptions* options, int device) {
  directMlOptions = options;
  directMlDevice = device;
  return directMlStatus;
}

TEST_F(ExecutionProviders, DirectMlIsAppendedThroughTheExportOfItsModuleOnDevice0) {
  SetDirectMlHook(RecordDirectMl);
  directMlStatus = nullptr;
  const SessionOptionsHandle options = CreateSessionOptions();
  ort.ForgetCalls();
  AppendDirectMlProvider(*options, AddressInFakeDirectMl());
  EXPECT_EQ(directMlOptions, options.get());
  EXPECT_EQ(directMlDevice, 0);
  EXPECT_THAT(ort.Calls(), IsEmpty());
}

TEST_F(ExecutionProviders, ARefusalByTheDirectMlExportIsThrown) {
  SetDirectMlHook(RecordDirectMl);
  directMlStatus = ort.MakeStatus("no adapter");
  const SessionOptionsHandle options = CreateSessionOptions();
  EXPECT_THAT([&] { AppendDirectMlProvider(*options, AddressInFakeDirectMl()); },
              ThrowsMessage<std::exception>("no adapter"));
  EXPECT_THAT(ort.Live(), ElementsAre("env1", "options1"));
}

TEST_F(ExecutionProviders, DirectMlNeedsALoadedRuntime) {
  const SessionOptionsHandle options = CreateSessionOptions();
  const int onTheStack = 0;
  EXPECT_THAT([&] { AppendDirectMlProvider(*options, &onTheStack); },
              ThrowsMessage<std::runtime_error>("ONNX Runtime DLL is not loaded."));
}

TEST(ProviderFailure, NamesTheProviderAndItsDetail) {
  EXPECT_EQ(FormatProviderFailure("CUDA", "out of memory"),
            "ONNX Runtime CUDA initialization/warmup failed; trying the next provider. Provider "
            "detail: out of memory");
}

}  // namespace
}  // namespace project_lumen::backend
