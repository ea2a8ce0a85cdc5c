// Owners of ONNX Runtime's handles: each goes back through the table's own release function.
#pragma once

#include <memory>

#include "backend/OrtApiTable.h"

namespace project_lumen::backend {

// Deleter over a member of the table, such as &OrtApi::ReleaseEnv.
template <auto kRelease>
struct OrtRelease {
  template <class Object>
  void operator()(Object* object) const {
    (CurrentOrtApi().*kRelease)(object);
  }
};

using StatusHandle = std::unique_ptr<OrtStatus, OrtRelease<&OrtApi::ReleaseStatus>>;
using EnvironmentHandle = std::unique_ptr<OrtEnv, OrtRelease<&OrtApi::ReleaseEnv>>;
using SessionOptionsHandle =
    std::unique_ptr<OrtSessionOptions, OrtRelease<&OrtApi::ReleaseSessionOptions>>;
using RunOptionsHandle = std::unique_ptr<OrtRunOptions, OrtRelease<&OrtApi::ReleaseRunOptions>>;
using SessionHandle = std::unique_ptr<OrtSession, OrtRelease<&OrtApi::ReleaseSession>>;
using CudaOptionsHandle =
    std::unique_ptr<OrtCUDAProviderOptionsV2, OrtRelease<&OrtApi::ReleaseCUDAProviderOptions>>;
using MemoryInfoHandle = std::unique_ptr<OrtMemoryInfo, OrtRelease<&OrtApi::ReleaseMemoryInfo>>;
using ValueHandle = std::unique_ptr<OrtValue, OrtRelease<&OrtApi::ReleaseValue>>;
using TensorInfoHandle =
    std::unique_ptr<OrtTensorTypeAndShapeInfo, OrtRelease<&OrtApi::ReleaseTensorTypeAndShapeInfo>>;

// The handle that `create` yields: a call of the table that takes the place for its result and
// returns a status. Throws as ThrowOnError.
template <class Handle, class Create>
Handle CreateHandle(Create create) {
  typename Handle::pointer object = nullptr;
  OrtStatus* status = create(&object);
  Handle handle(object);
  ThrowOnError(status);
  return handle;
}

}  // namespace project_lumen::backend
