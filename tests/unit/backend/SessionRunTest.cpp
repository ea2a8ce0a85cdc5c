#include "backend/SessionRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "FakeOrtApi.h"
#include "backend/ExecutionProviders.h"

namespace project_lumen::backend {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;

constexpr TensorShape kShape{1, 2, 4, 3};
constexpr const char* kPrefix =
    "ONNX Runtime inference failed using CPU execution provider for tensor 1x2x4x3. ";

class SessionRun : public testing::Test {
 protected:
  SessionRun()
      : environment(CreateHandle<EnvironmentHandle>([](OrtEnv** env) {
          return CurrentOrtApi().CreateEnv(ORT_LOGGING_LEVEL_FATAL, "test", env);
        })),
        candidate(CreateCpuSession(*environment, Bytes(3), 0)) {
    ort.ForgetCalls();
  }

  CheckedOutput Run(const std::string& stage = kInferenceStage,
                    const std::string& provider = kCpuProviderName) {
    return RunSessionChecked(*candidate.session, provider, "in", "out", kShape, data.data(), stage);
  }

  void ExpectFailure(const std::string& detail) {
    EXPECT_THAT([this] { Run(); }, ThrowsMessage<std::runtime_error>(kPrefix + detail));
    EXPECT_THAT(ort.Live(), ElementsAre("env1", "options1", "session1"));
  }

  test::FakeOrtApi ort;
  EnvironmentHandle environment;
  CandidateSession candidate;
  std::vector<float> data = std::vector<float>(24, 0.25F);
};

TEST_F(SessionRun, FeedsTheCallersMemoryAndDescribesTheOutput) {
  const CheckedOutput result = Run();
  EXPECT_EQ(ort.inputData, data.data());
  EXPECT_EQ(result.samples.size(), 24U);
  EXPECT_EQ(result.samples[23], 0.5F);
  EXPECT_THAT(ort.Calls(),
              ElementsAre("CreateCpuMemoryInfo(1, 0)",
                          "CreateTensorWithDataAsOrtValue(memoryInfo1, 96 bytes, 1x2x4x3, type 1)",
                          "ReleaseMemoryInfo(memoryInfo1)", "Run(session1, in=value1, out)",
                          "GetTensorTypeAndShape(value2)", "GetTensorElementType(tensorInfo1)",
                          "GetDimensionsCount(tensorInfo1)", "GetDimensions(tensorInfo1)",
                          "GetTensorShapeElementCount(tensorInfo1)", "GetTensorMutableData(value2)",
                          "ReleaseTensorTypeAndShapeInfo(tensorInfo1)", "ReleaseValue(value1)"));
}

TEST_F(SessionRun, TheOutputIsReleasedWithItsOwner) {
  { const CheckedOutput result = Run(); }
  EXPECT_EQ(ort.Calls().back(), "ReleaseValue(value2)");
  EXPECT_THAT(ort.Live(), ElementsAre("env1", "options1", "session1"));
}

TEST_F(SessionRun, FailsWithoutAnOutput) {
  ort.output.returned = false;
  ExpectFailure("ONNX Runtime did not return an output tensor.");
}

TEST_F(SessionRun, FailsForAnotherShape) {
  for (const std::vector<std::int64_t>& dimensions :
       {std::vector<std::int64_t>{1, 4, 2, 3}, {1, 2, 4}, {1, 2, 4, 3, 1}, {2, 2, 4, 3}, {}}) {
    ort.output.dimensions = dimensions;
    ExpectFailure("ONNX Runtime returned an unexpected output shape.");
  }
}

TEST_F(SessionRun, FailsForAnotherElementCount) {
  ort.output.elementCount = 23;
  ExpectFailure("ONNX Runtime output tensor size does not match input size.");
}

TEST_F(SessionRun, FailsWithoutData) {
  ort.output.hasData = false;
  ExpectFailure("ONNX Runtime output tensor has no data buffer.");
}

TEST_F(SessionRun, NeverReadsOtherElementTypes) {
  ort.output.type = ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16;
  ExpectFailure("ONNX Runtime output tensor does not hold float32 samples.");
  EXPECT_THAT(ort.Calls(), Not(testing::Contains(HasSubstr("GetTensorMutableData"))));
}

TEST_F(SessionRun, JudgesShapeBeforeCountBeforeData) {
  ort.output.hasData = false;
  ort.output.elementCount = 5;
  ort.output.dimensions = {{1}};
  ExpectFailure("ONNX Runtime returned an unexpected output shape.");
  ort.output.dimensions.reset();
  ExpectFailure("ONNX Runtime output tensor size does not match input size.");
}

TEST_F(SessionRun, EveryFailedCallGivesItsMessageAndReleasesAll) {
  for (const char* member :
       {"CreateCpuMemoryInfo", "CreateTensorWithDataAsOrtValue", "Run", "GetTensorTypeAndShape",
        "GetTensorElementType", "GetDimensionsCount", "GetDimensions", "GetTensorShapeElementCount",
        "GetTensorMutableData"}) {
    int runs = 1;
    for (const std::string& call : ort.Calls()) {
      runs += call.rfind(std::string(member) + "(", 0) == 0 ? 1 : 0;
    }
    ort.Fail(member, std::string(member) + " broke", runs);
    ExpectFailure(std::string(member) + " broke");
  }
}

TEST_F(SessionRun, NamesTheStageOfAWarmup) {
  ort.output.returned = false;
  EXPECT_THAT([this] { Run(kWarmupStage); },
              ThrowsMessage<std::runtime_error>(
                  "ONNX Runtime warmup failed using CPU execution provider for tensor 1x2x4x3. "
                  "ONNX Runtime did not return an output tensor."));
}

TEST_F(SessionRun, NamesAreCopiedAndFreedThroughTheirAllocator) {
  EXPECT_EQ(FirstInputName(*candidate.session), "the input");
  EXPECT_EQ(FirstOutputName(*candidate.session), "the output");
  EXPECT_THAT(ort.Calls(),
              ElementsAre("GetAllocatorWithDefaultOptions()", "SessionGetInputName(session1, 0)",
                          "Free(the input)", "GetAllocatorWithDefaultOptions()",
                          "SessionGetOutputName(session1, 0)", "Free(the output)"));
}

TEST(InferenceFailure, OfATileUnderDirectMlCarriesTheDriverHint) {
  EXPECT_EQ(FormatInferenceFailure("inference", "DirectML execution provider", {1, 512, 512, 3},
                                   "Device removed."),
            "ONNX Runtime inference failed using DirectML execution provider for tensor "
            "1x512x512x3. Device removed. Image processing stopped. Check the GPU driver/DirectML "
            "runtime, or use CPU execution if available.");
}

TEST(InferenceFailure, OfATileUnderOtherProvidersCarriesNoHint) {
  EXPECT_EQ(FormatInferenceFailure("inference", "CUDA execution provider", {1, 512, 512, 3}, "x"),
            "ONNX Runtime inference failed using CUDA execution provider for tensor 1x512x512x3. "
            "x");
  EXPECT_EQ(FormatInferenceFailure("inference", "CPU execution provider", {1, 512, 512, 3}, "x"),
            "ONNX Runtime inference failed using CPU execution provider for tensor 1x512x512x3. "
            "x");
}

TEST(InferenceFailure, OfAWarmupCarriesNoHint) {
  EXPECT_EQ(
      FormatInferenceFailure("warmup", "DirectML execution provider", {1, 512, 512, 3}, "x"),
      "ONNX Runtime warmup failed using DirectML execution provider for tensor 1x512x512x3. x");
}

TEST(CurrentException, IsDescribedByItsMessage) {
  try {
    throw std::out_of_range("too far");
  } catch (...) {
    EXPECT_EQ(DescribeCurrentException(), "too far");
  }
}

TEST(CurrentException, ThatIsNoStandardOneIsUnknown) {
  try {
    throw 42;
  } catch (...) {
    EXPECT_EQ(DescribeCurrentException(), "Unknown provider exception.");
  }
}

}  // namespace
}  // namespace project_lumen::backend
