#include "FakeOrtApi.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

namespace project_lumen::backend::test {

// Stands behind every handle; what a kind does not need stays empty.
struct FakeOrtApi::Object {
  std::string name;
  std::string text;
  OrtErrorCode code = ORT_OK;
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  std::vector<std::int64_t> dimensions;
  std::size_t elementCount = 0;
  std::vector<float> samples;
  const float* data = nullptr;
};

FakeOrtApi* FakeOrtApi::current_ = nullptr;

FakeOrtApi::FakeOrtApi() {
  FillTable(table_);
  allocator_.version = kOrtApiVersion;
  allocator_.Free = [](OrtAllocator*, void* text) { current_->Release("Free", text); };
  current_ = this;
  replacement_ = std::make_unique<OrtApiReplacement>(table_);
}

FakeOrtApi::~FakeOrtApi() {
  replacement_.reset();
  current_ = nullptr;
}

void FakeOrtApi::Fail(const std::string& member, const std::string& message, int occurrence) {
  failures_[{member, occurrence}] = message;
}

void FakeOrtApi::LogDuring(const std::string& member, OrtLoggingLevel severity,
                           const std::string& line) {
  lines_[member] = {severity, line};
}

void FakeOrtApi::FailCallNumber(int number) {
  failingCall_ = number;
}

std::vector<std::string> FakeOrtApi::Live() const {
  std::vector<std::string> names;
  for (const auto& [handle, object] : live_) {
    names.push_back(object->name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

OrtStatus* FakeOrtApi::MakeStatus(const std::string& message, OrtErrorCode code) {
  auto* status = Make<OrtStatus>("status");
  Find(status).text = message;
  Find(status).code = code;
  return status;
}

std::string FakeOrtApi::NameOf(const void* handle) const {
  const auto found = live_.find(handle);
  return found == live_.end() ? "(no live handle)" : found->second->name;
}

FakeOrtApi::Object& FakeOrtApi::Find(const void* handle) {
  return *live_.at(handle);
}

template <class Handle>
Handle* FakeOrtApi::Make(const std::string& kind) {
  auto object = std::make_unique<Object>();
  object->name = kind + std::to_string(++counts_[kind]);
  Object* address = object.get();
  live_[address] = std::move(object);
  return reinterpret_cast<Handle*>(address);
}

OrtStatus* FakeOrtApi::Record(const std::string& member, const std::string& arguments) {
  calls_.push_back(member + "(" + arguments + ")");
  ++statusCalls_;
  if (const auto line = lines_.extract(member)) {
    const auto& [severity, text] = line.mapped();
    logger_(nullptr, severity, "category", "id", "place", text.c_str());
  }
  const auto failure = failures_.find({member, ++occurrences_[member]});
  if (failure != failures_.end()) {
    return MakeStatus(failure->second);
  }
  return statusCalls_ == failingCall_ ? MakeStatus(member + " failed") : nullptr;
}

template <class Handle>
OrtStatus* FakeOrtApi::Create(const std::string& member, const std::string& arguments,
                              const std::string& kind, Handle** result) {
  if (OrtStatus* status = Record(member, arguments)) {
    return status;
  }
  *result = Make<Handle>(kind);
  return nullptr;
}

OrtStatus* FakeOrtApi::CreateText(const std::string& member, const std::string& arguments,
                                  const std::string& text, char** result) {
  if (OrtStatus* status = Record(member, arguments)) {
    return status;
  }
  auto object = std::make_unique<Object>();
  object->name = text;
  object->text = text;
  *result = object->text.data();
  live_[*result] = std::move(object);
  return nullptr;
}

void FakeOrtApi::Release(const std::string& member, void* handle) {
  calls_.push_back(member + "(" + NameOf(handle) + ")");
  if (live_.erase(handle) != 1) {
    ADD_FAILURE() << member << " of something that is not alive";
  }
}

namespace {

std::string Join(const std::vector<std::int64_t>& numbers) {
  std::string text;
  for (const std::int64_t number : numbers) {
    text += (text.empty() ? "" : "x") + std::to_string(number);
  }
  return text;
}

std::size_t Product(const std::vector<std::int64_t>& numbers) {
  return static_cast<std::size_t>(
      std::accumulate(numbers.begin(), numbers.end(), std::int64_t{1}, std::multiplies<>()));
}

}  // namespace

void FakeOrtApi::FillTable(OrtApi& table) {
  table.GetErrorMessage = [](const OrtStatus* status) noexcept {
    return current_->Find(status).text.c_str();
  };
  table.GetErrorCode = [](const OrtStatus* status) noexcept { return current_->Find(status).code; };
  // Statuses are too many for the protocol; the account of live handles watches them.
  table.ReleaseStatus = [](OrtStatus* status) {
    if (current_->live_.erase(status) != 1) {
      ADD_FAILURE() << "ReleaseStatus of something that is not alive";
    }
  };

  table.CreateEnv = [](OrtLoggingLevel level, const char* id, OrtEnv** env) noexcept {
    return current_->Create("CreateEnv", std::to_string(level) + ", " + id, "env", env);
  };
  table.CreateEnvWithCustomLogger = [](OrtLoggingFunction logger, void* parameter,
                                       OrtLoggingLevel level, const char* id,
                                       OrtEnv** env) noexcept {
    EXPECT_EQ(parameter, nullptr);
    current_->logger_ = logger;
    return current_->Create("CreateEnvWithCustomLogger", std::to_string(level) + ", " + id, "env",
                            env);
  };
  table.SetLanguageProjection = [](const OrtEnv* env, OrtLanguageProjection projection) noexcept {
    return current_->Record("SetLanguageProjection",
                            current_->NameOf(env) + ", " + std::to_string(projection));
  };
  table.ReleaseEnv = [](OrtEnv* env) { current_->Release("ReleaseEnv", env); };

  table.CreateSessionOptions = [](OrtSessionOptions** options) noexcept {
    return current_->Create("CreateSessionOptions", "", "options", options);
  };
  table.SetInterOpNumThreads = [](OrtSessionOptions* options, int threads) noexcept {
    return current_->Record("SetInterOpNumThreads",
                            current_->NameOf(options) + ", " + std::to_string(threads));
  };
  table.SetIntraOpNumThreads = [](OrtSessionOptions* options, int threads) noexcept {
    return current_->Record("SetIntraOpNumThreads",
                            current_->NameOf(options) + ", " + std::to_string(threads));
  };
  table.SetSessionGraphOptimizationLevel = [](OrtSessionOptions* options,
                                              GraphOptimizationLevel level) noexcept {
    return current_->Record("SetSessionGraphOptimizationLevel",
                            current_->NameOf(options) + ", " + std::to_string(level));
  };
  table.DisableMemPattern = [](OrtSessionOptions* options) noexcept {
    return current_->Record("DisableMemPattern", current_->NameOf(options));
  };
  table.SetSessionExecutionMode = [](OrtSessionOptions* options, ExecutionMode mode) noexcept {
    return current_->Record("SetSessionExecutionMode",
                            current_->NameOf(options) + ", " + std::to_string(mode));
  };
  table.ReleaseSessionOptions = [](OrtSessionOptions* options) {
    current_->Release("ReleaseSessionOptions", options);
  };

  table.CreateCUDAProviderOptions = [](OrtCUDAProviderOptionsV2** options) noexcept {
    return current_->Create("CreateCUDAProviderOptions", "", "cudaOptions", options);
  };
  table.SessionOptionsAppendExecutionProvider_CUDA_V2 =
      [](OrtSessionOptions* options, const OrtCUDAProviderOptionsV2* cudaOptions) noexcept {
        return current_->Record("SessionOptionsAppendExecutionProvider_CUDA_V2",
                                current_->NameOf(options) + ", " + current_->NameOf(cudaOptions));
      };
  table.ReleaseCUDAProviderOptions = [](OrtCUDAProviderOptionsV2* options) {
    current_->Release("ReleaseCUDAProviderOptions", options);
  };
  table.SessionOptionsAppendExecutionProvider =
      [](OrtSessionOptions* options, const char* provider, const char* const* keys,
         const char* const* values, std::size_t count) noexcept {
        std::string arguments = current_->NameOf(options) + ", " + provider;
        for (std::size_t i = 0; i < count; ++i) {
          arguments += std::string(", ") + keys[i] + "=" + values[i];
        }
        return current_->Record("SessionOptionsAppendExecutionProvider", arguments);
      };

  table.CreateSessionFromArray = [](const OrtEnv* env, const void* bytes, std::size_t size,
                                    const OrtSessionOptions* options,
                                    OrtSession** session) noexcept {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    current_->modelBytes.assign(first, first + size);
    return current_->Create("CreateSessionFromArray",
                            current_->NameOf(env) + ", " + current_->NameOf(options), "session",
                            session);
  };
  table.CreateRunOptions = [](OrtRunOptions** options) noexcept {
    return current_->Create("CreateRunOptions", "", "runOptions", options);
  };
  table.RunOptionsSetTerminate = [](OrtRunOptions* options) noexcept {
    return current_->Record("RunOptionsSetTerminate", current_->NameOf(options));
  };
  table.ReleaseRunOptions = [](OrtRunOptions* options) {
    current_->Release("ReleaseRunOptions", options);
  };
  table.ReleaseSession = [](OrtSession* session) { current_->Release("ReleaseSession", session); };

  table.GetAllocatorWithDefaultOptions = [](OrtAllocator** allocator) noexcept {
    *allocator = &current_->allocator_;
    return current_->Record("GetAllocatorWithDefaultOptions", "");
  };
  table.SessionGetInputName = [](const OrtSession* session, std::size_t index,
                                 OrtAllocator* allocator, char** name) noexcept {
    EXPECT_EQ(allocator, &current_->allocator_);
    return current_->CreateText("SessionGetInputName",
                                current_->NameOf(session) + ", " + std::to_string(index),
                                "the input", name);
  };
  table.SessionGetOutputName = [](const OrtSession* session, std::size_t index,
                                  OrtAllocator* allocator, char** name) noexcept {
    EXPECT_EQ(allocator, &current_->allocator_);
    return current_->CreateText("SessionGetOutputName",
                                current_->NameOf(session) + ", " + std::to_string(index),
                                "the output", name);
  };

  table.CreateCpuMemoryInfo = [](OrtAllocatorType allocator, OrtMemType memory,
                                 OrtMemoryInfo** info) noexcept {
    return current_->Create("CreateCpuMemoryInfo",
                            std::to_string(allocator) + ", " + std::to_string(memory), "memoryInfo",
                            info);
  };
  table.ReleaseMemoryInfo = [](OrtMemoryInfo* info) {
    current_->Release("ReleaseMemoryInfo", info);
  };
  table.CreateTensorWithDataAsOrtValue =
      [](const OrtMemoryInfo* info, void* data, std::size_t bytes, const std::int64_t* shape,
         std::size_t dimensionCount, ONNXTensorElementDataType type, OrtValue** value) noexcept {
        const std::vector<std::int64_t> dimensions(shape, shape + dimensionCount);
        OrtStatus* status =
            current_->Create("CreateTensorWithDataAsOrtValue",
                             current_->NameOf(info) + ", " + std::to_string(bytes) + " bytes, " +
                                 Join(dimensions) + ", type " + std::to_string(type),
                             "value", value);
        if (status == nullptr) {
          Object& tensor = current_->Find(*value);
          tensor.dimensions = dimensions;
          tensor.elementCount = bytes / sizeof(float);
          tensor.data = static_cast<const float*>(data);
          current_->inputData = data;
        }
        return status;
      };
  table.Run = [](OrtSession* session, const OrtRunOptions* runOptions,
                 const char* const* inputNames, const OrtValue* const* inputs,
                 std::size_t inputCount, const char* const* outputNames, std::size_t outputCount,
                 OrtValue** outputs) noexcept {
    EXPECT_EQ(inputCount, 1U);
    EXPECT_EQ(outputCount, 1U);
    const std::string arguments =
        current_->NameOf(session) + ", " + inputNames[0] + "=" + current_->NameOf(inputs[0]) +
        ", " + outputNames[0] + (runOptions == nullptr ? "" : ", " + current_->NameOf(runOptions));
    if (current_->duringRun) {
      current_->duringRun();
    }
    const FakeOutput& wanted = current_->output;
    if (!wanted.returned) {
      return current_->Record("Run", arguments);
    }
    OrtStatus* status = current_->Create("Run", arguments, "value", outputs);
    if (status == nullptr) {
      const Object& input = current_->Find(inputs[0]);
      current_->inputSamples.assign(input.data, input.data + input.elementCount);
      Object& result = current_->Find(*outputs);
      result.type = wanted.type;
      result.dimensions = wanted.dimensions.value_or(input.dimensions);
      result.elementCount = wanted.elementCount.value_or(Product(result.dimensions));
      result.samples = current_->inputSamples;
      for (float& sample : result.samples) {
        sample *= 2;
      }
      result.data = wanted.hasData ? result.samples.data() : nullptr;
    }
    return status;
  };
  table.ReleaseValue = [](OrtValue* value) { current_->Release("ReleaseValue", value); };

  table.GetTensorTypeAndShape = [](const OrtValue* value,
                                   OrtTensorTypeAndShapeInfo** info) noexcept {
    OrtStatus* status =
        current_->Create("GetTensorTypeAndShape", current_->NameOf(value), "tensorInfo", info);
    if (status == nullptr) {
      const Object& tensor = current_->Find(value);
      Object& description = current_->Find(*info);
      description.type = tensor.type;
      description.dimensions = tensor.dimensions;
      description.elementCount = tensor.elementCount;
    }
    return status;
  };
  table.GetTensorElementType = [](const OrtTensorTypeAndShapeInfo* info,
                                  ONNXTensorElementDataType* type) noexcept {
    *type = current_->Find(info).type;
    return current_->Record("GetTensorElementType", current_->NameOf(info));
  };
  table.GetDimensionsCount = [](const OrtTensorTypeAndShapeInfo* info,
                                std::size_t* count) noexcept {
    *count = current_->Find(info).dimensions.size();
    return current_->Record("GetDimensionsCount", current_->NameOf(info));
  };
  table.GetDimensions = [](const OrtTensorTypeAndShapeInfo* info, std::int64_t* dimensions,
                           std::size_t count) noexcept {
    const std::vector<std::int64_t>& known = current_->Find(info).dimensions;
    std::copy_n(known.begin(), std::min(count, known.size()), dimensions);
    return current_->Record("GetDimensions", current_->NameOf(info));
  };
  table.GetTensorShapeElementCount = [](const OrtTensorTypeAndShapeInfo* info,
                                        std::size_t* count) noexcept {
    *count = current_->Find(info).elementCount;
    return current_->Record("GetTensorShapeElementCount", current_->NameOf(info));
  };
  table.GetTensorMutableData = [](OrtValue* value, void** data) noexcept {
    *data = const_cast<float*>(current_->Find(value).data);
    return current_->Record("GetTensorMutableData", current_->NameOf(value));
  };
  table.ReleaseTensorTypeAndShapeInfo = [](OrtTensorTypeAndShapeInfo* info) {
    current_->Release("ReleaseTensorTypeAndShapeInfo", info);
  };
}

}  // namespace project_lumen::backend::test
