// One checked run of a session: a float32 tensor in, a float32 tensor of the same shape out.
#pragma once

#include <cstdint>
#include <exception>
#include <span>
#include <stop_token>
#include <string>

#include "backend/OrtHandles.h"

namespace project_lumen::backend {

constexpr const char* kInferenceStage = "inference";
constexpr const char* kWarmupStage = "warmup";

// Extents of an NHWC tensor.
struct TensorShape {
  std::int64_t batch;
  std::int64_t rows;
  std::int64_t columns;
  std::int64_t channels;

  [[nodiscard]] std::size_t ElementCount() const {
    return static_cast<std::size_t>(batch * rows * columns * channels);
  }
};

// An output tensor and the samples in its memory, one for each element of the input's shape.
struct CheckedOutput {
  ValueHandle value;
  std::span<const float> samples;
};

// A run was stopped before it had a result.
class InferenceStopped : public std::exception {
 public:
  [[nodiscard]] const char* what() const noexcept override { return "Inference stopped."; }
};

// Names of a session's first input and first output. Throw Ort::Exception.
std::string FirstInputName(const OrtSession& session);
std::string FirstOutputName(const OrtSession& session);

// Runs the session on `data`, which holds the shape's elements, is not copied and must not change
// meanwhile. `stage` is kInferenceStage or kWarmupStage. A stop that is requested meanwhile ends
// the run after the node of the network that is being computed.
//
// Throws std::runtime_error with a text of FormatInferenceFailure. Its detail is the message of
// what failed in ONNX Runtime, or: "ONNX Runtime did not return an output tensor.", "ONNX Runtime
// output tensor does not hold float32 samples.", "ONNX Runtime returned an unexpected output
// shape.", "ONNX Runtime output tensor size does not match input size.", "ONNX Runtime output
// tensor has no data buffer.". InferenceStopped when a stop was requested.
CheckedOutput RunSessionChecked(OrtSession& session, const std::string& providerName,
                                const std::string& inputName, const std::string& outputName,
                                const TensorShape& shape, const float* data,
                                const std::string& stage, const std::stop_token& stop = {});

// "ONNX Runtime {stage} failed using {provider} for tensor {batch}x{rows}x{columns}x{channels}.
// {detail}", followed for tiles under DirectML by a hint for the user.
std::string FormatInferenceFailure(const std::string& stage, const std::string& providerName,
                                   const TensorShape& shape, const std::string& detail);

// Inside a catch block: the message of the exception at hand, or "Unknown provider exception." for
// one that is no standard exception.
std::string DescribeCurrentException();

}  // namespace project_lumen::backend
