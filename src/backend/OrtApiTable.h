// The one way to ONNX Runtime: its function table, and what becomes of a failed call.
#pragma once

#include <onnxruntime_c_api.h>

#include <cstdint>

namespace project_lumen::backend {

// The version asked for by number: the headers may be older than the library, whose table only ever
// grows at its end.
constexpr std::uint32_t kOrtApiVersion = 24;

// The table of version 24 that `base` hands out. Throws std::runtime_error for a runtime that is
// too old to have it.
const OrtApi& RequireOrtApi(const OrtApiBase& base);

// The table of this process, fetched once. Throws as RequireOrtApi.
const OrtApi& CurrentOrtApi();

// Takes over a call's status. Throws Ort::Exception (a std::exception) with the status's message
// and error code, unless the status is null.
void ThrowOnError(OrtStatus* status);

// Puts another table in the place of the process's own while it lives; for tests, on one thread.
class OrtApiReplacement {
 public:
  explicit OrtApiReplacement(const OrtApi& replacement);
  ~OrtApiReplacement();
  OrtApiReplacement(const OrtApiReplacement&) = delete;
  OrtApiReplacement& operator=(const OrtApiReplacement&) = delete;

 private:
  const OrtApi*& slot_;
  const OrtApi* previous_;
};

}  // namespace project_lumen::backend
