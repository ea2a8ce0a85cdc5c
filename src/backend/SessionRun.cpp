#include "backend/SessionRun.h"

#include <exception>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace project_lumen::backend {
namespace {

// What ONNX Runtime says about an output tensor; `data` may be null.
struct OutputDescription {
  std::vector<std::int64_t> dimensions;
  std::size_t elementCount = 0;
  const float* data = nullptr;
};

using GetName = decltype(OrtApi::SessionGetInputName);

std::string FirstName(const OrtSession& session, GetName getName) {
  OrtAllocator* allocator = nullptr;
  ThrowOnError(CurrentOrtApi().GetAllocatorWithDefaultOptions(&allocator));
  char* name = nullptr;
  ThrowOnError(getName(&session, 0, allocator, &name));
  const auto release = [allocator](char* text) { allocator->Free(allocator, text); };
  const std::unique_ptr<char, decltype(release)> owned(name, release);
  return owned.get();
}

ValueHandle CreateInputTensor(const TensorShape& shape, const float* data) {
  const auto memory = CreateHandle<MemoryInfoHandle>([](OrtMemoryInfo** info) {
    return CurrentOrtApi().CreateCpuMemoryInfo(OrtArenaAllocator, OrtMemTypeDefault, info);
  });
  const std::int64_t dimensions[] = {shape.batch, shape.rows, shape.columns, shape.channels};
  return CreateHandle<ValueHandle>([&](OrtValue** value) {
    // ONNX Runtime takes one kind of tensor for inputs and outputs; inputs are only read.
    return CurrentOrtApi().CreateTensorWithDataAsOrtValue(
        memory.get(), const_cast<float*>(data), shape.ElementCount() * sizeof(float), dimensions,
        std::size(dimensions), ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, value);
  });
}

// The tensor that the session makes of the input; may be null.
ValueHandle Run(OrtSession& session, const std::string& inputName, const std::string& outputName,
                const OrtValue& input, const OrtRunOptions* options) {
  const char* inputNames = inputName.c_str();
  const char* outputNames = outputName.c_str();
  const OrtValue* inputs = &input;
  return CreateHandle<ValueHandle>([&](OrtValue** output) {
    return CurrentOrtApi().Run(&session, options, &inputNames, &inputs, 1, &outputNames, 1, output);
  });
}

// As Run, ended by a stop.
ValueHandle RunUntilStopped(OrtSession& session, const std::string& inputName,
                            const std::string& outputName, const OrtValue& input,
                            const std::stop_token& stop) {
  if (!stop.stop_possible()) {
    return Run(session, inputName, outputName, input, nullptr);
  }
  const auto options = CreateHandle<RunOptionsHandle>(CurrentOrtApi().CreateRunOptions);
  // Where the flag cannot be set, the run ends by itself, later.
  const std::stop_callback end(stop, [&options] {
    const StatusHandle ignored(CurrentOrtApi().RunOptionsSetTerminate(options.get()));
  });
  return Run(session, inputName, outputName, input, options.get());
}

void ThrowIfStopped(const std::stop_token& stop) {
  if (stop.stop_requested()) {
    throw InferenceStopped();
  }
}

void RequireFloatElements(const OrtTensorTypeAndShapeInfo& info) {
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  ThrowOnError(CurrentOrtApi().GetTensorElementType(&info, &type));
  if (type != ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT) {
    throw std::runtime_error("ONNX Runtime output tensor does not hold float32 samples.");
  }
}

OutputDescription DescribeOutput(OrtValue& output) {
  const OrtApi& api = CurrentOrtApi();
  const auto info = CreateHandle<TensorInfoHandle>([&](OrtTensorTypeAndShapeInfo** result) {
    return api.GetTensorTypeAndShape(&output, result);
  });
  RequireFloatElements(*info);

  OutputDescription description;
  std::size_t dimensionCount = 0;
  ThrowOnError(api.GetDimensionsCount(info.get(), &dimensionCount));
  description.dimensions.resize(dimensionCount);
  ThrowOnError(api.GetDimensions(info.get(), description.dimensions.data(), dimensionCount));
  ThrowOnError(api.GetTensorShapeElementCount(info.get(), &description.elementCount));
  void* data = nullptr;
  ThrowOnError(api.GetTensorMutableData(&output, &data));
  description.data = static_cast<const float*>(data);
  return description;
}

// The reason why the output does not fit, or null.
const char* FindFault(const OutputDescription& output, const TensorShape& expected) {
  const std::vector<std::int64_t> dimensions = {expected.batch, expected.rows, expected.columns,
                                                expected.channels};
  if (output.dimensions != dimensions) {
    return "ONNX Runtime returned an unexpected output shape.";
  }
  if (output.elementCount != expected.ElementCount()) {
    return "ONNX Runtime output tensor size does not match input size.";
  }
  if (output.data == nullptr) {
    return "ONNX Runtime output tensor has no data buffer.";
  }
  return nullptr;
}

}  // namespace

std::string FirstInputName(const OrtSession& session) {
  return FirstName(session, CurrentOrtApi().SessionGetInputName);
}

std::string FirstOutputName(const OrtSession& session) {
  return FirstName(session, CurrentOrtApi().SessionGetOutputName);
}

CheckedOutput RunSessionChecked(OrtSession& session, const std::string& providerName,
                                const std::string& inputName, const std::string& outputName,
                                const TensorShape& shape, const float* data,
                                const std::string& stage, const std::stop_token& stop) {
  const auto failure = [&](const std::string& detail) {
    return std::runtime_error(FormatInferenceFailure(stage, providerName, shape, detail));
  };
  ValueHandle value;
  OutputDescription output;
  try {
    const ValueHandle input = CreateInputTensor(shape, data);
    value = RunUntilStopped(session, inputName, outputName, *input, stop);
    if (value) {
      output = DescribeOutput(*value);
    }
  } catch (...) {
    ThrowIfStopped(stop);
    throw failure(DescribeCurrentException());
  }
  ThrowIfStopped(stop);
  if (!value) {
    throw failure("ONNX Runtime did not return an output tensor.");
  }
  if (const char* fault = FindFault(output, shape)) {
    throw failure(fault);
  }
  return {std::move(value), {output.data, output.elementCount}};
}

std::string FormatInferenceFailure(const std::string& stage, const std::string& providerName,
                                   const TensorShape& shape, const std::string& detail) {
  std::string text = "ONNX Runtime " + stage + " failed using " + providerName + " for tensor " +
                     std::to_string(shape.batch) + "x" + std::to_string(shape.rows) + "x" +
                     std::to_string(shape.columns) + "x" + std::to_string(shape.channels) + ". " +
                     detail;
  if (stage == kInferenceStage && providerName.find("DirectML") != std::string::npos) {
    text +=
        " Image processing stopped. Check the GPU driver/DirectML runtime, or use CPU execution if "
        "available.";
  }
  return text;
}

std::string DescribeCurrentException() {
  try {
    throw;
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "Unknown provider exception.";
  }
}

}  // namespace project_lumen::backend
