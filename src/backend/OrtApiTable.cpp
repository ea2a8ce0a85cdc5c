#include "backend/OrtApiTable.h"

// Without it the header's own table would ask for the header's version when the program starts.
#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "backend/OrtHandles.h"
#include "backend/OrtLibrary.h"

namespace project_lumen::backend {
namespace {

const OrtApi*& TableOfThisProcess() {
  static const OrtApi* table = &RequireOrtApi(OrtLibraryBase());
  return table;
}

}  // namespace

const OrtApi& RequireOrtApi(const OrtApiBase& base) {
  const OrtApi* table = base.GetApi(kOrtApiVersion);
  if (table == nullptr) {
    throw std::runtime_error(
        "The ONNX Runtime library is too old: API version 24 (release 1.24 or newer) is required.");
  }
  return *table;
}

const OrtApi& CurrentOrtApi() {
  return *TableOfThisProcess();
}

void ThrowOnError(OrtStatus* status) {
  if (status == nullptr) {
    return;
  }
  const StatusHandle owned(status);
  std::string message = CurrentOrtApi().GetErrorMessage(status);
  throw Ort::Exception(std::move(message), CurrentOrtApi().GetErrorCode(status));
}

OrtApiReplacement::OrtApiReplacement(const OrtApi& replacement)
    : slot_(TableOfThisProcess()), previous_(std::exchange(slot_, &replacement)) {}

OrtApiReplacement::~OrtApiReplacement() {
  slot_ = previous_;
}

}  // namespace project_lumen::backend
