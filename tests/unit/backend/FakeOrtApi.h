// A function table in place of ONNX Runtime's: it records every call, hands out handles that it
// keeps account of, and fails where it is told to. Handles are named by kind and number ("env1",
// "options2"), so that a test can read the calls like a protocol.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backend/OrtApiTable.h"

namespace project_lumen::backend::test {

// What Run gives back. Members without a value follow from the input tensor.
struct FakeOutput {
  bool returned = true;
  bool hasData = true;
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT;
  std::optional<std::vector<std::int64_t>> dimensions;
  std::optional<std::size_t> elementCount;
};

class FakeOrtApi {
 public:
  // Takes the place of the process's table while it lives. One at a time.
  FakeOrtApi();
  ~FakeOrtApi();
  FakeOrtApi(const FakeOrtApi&) = delete;
  FakeOrtApi& operator=(const FakeOrtApi&) = delete;

  // The `occurrence`th call of a member (1 is the first) returns a status with this message.
  void Fail(const std::string& member, const std::string& message, int occurrence = 1);

  // The call of this number, counted over all members that return a status from 1, fails.
  void FailCallNumber(int number);

  // The first call of a member makes the runtime log this line.
  void LogDuring(const std::string& member, OrtLoggingLevel severity, const std::string& line);

  // All calls so far that return a status or release something.
  [[nodiscard]] const std::vector<std::string>& Calls() const { return calls_; }
  [[nodiscard]] int StatusCalls() const { return statusCalls_; }
  void ForgetCalls() { calls_.clear(); }

  // Names of the handles that have not been released, and of unreleased strings.
  [[nodiscard]] std::vector<std::string> Live() const;

  // A fresh status for code that returns one.
  OrtStatus* MakeStatus(const std::string& message, OrtErrorCode code = ORT_FAIL);

  // The name of a handle that lives.
  std::string NameOf(const void* handle) const;

  FakeOutput output;                     // for every Run; samples are twice those of the input
  std::function<void()> duringRun;       // called by every Run; may be empty
  const void* inputData = nullptr;       // memory of the latest input tensor
  std::vector<float> inputSamples;       // its content during the latest Run
  std::vector<std::uint8_t> modelBytes;  // of the latest session

 private:
  struct Object;

  static void FillTable(OrtApi& table);

  // Records a call; a status when it has to fail.
  OrtStatus* Record(const std::string& member, const std::string& arguments);
  template <class Handle>
  Handle* Make(const std::string& kind);
  template <class Handle>
  OrtStatus* Create(const std::string& member, const std::string& arguments,
                    const std::string& kind, Handle** result);
  OrtStatus* CreateText(const std::string& member, const std::string& arguments,
                        const std::string& text, char** result);
  Object& Find(const void* handle);
  void Release(const std::string& member, void* handle);

  static FakeOrtApi* current_;

  OrtApi table_{};
  OrtAllocator allocator_{};
  std::unique_ptr<OrtApiReplacement> replacement_;
  std::map<const void*, std::unique_ptr<Object>> live_;
  std::map<std::string, int> counts_;
  std::map<std::string, int> occurrences_;
  std::map<std::pair<std::string, int>, std::string> failures_;
  std::map<std::string, std::pair<OrtLoggingLevel, std::string>> lines_;
  OrtLoggingFunction logger_ = nullptr;  // of the environment
  int failingCall_ = 0;
  int statusCalls_ = 0;
  std::vector<std::string> calls_;
};

}  // namespace project_lumen::backend::test
