// The pre-scan of a network file: any bytes give std::runtime_error or a model that is prepared.
#include <stdexcept>
#include <string>

#include "FuzzTarget.h"
#include "backend/ModelPrescan.h"

namespace project_lumen::fuzz {
namespace {

using backend::Bytes;
using backend::PrepareModel;

bool IsPrescanMessage(const std::string& message) {
  return message.find("ONNX") != std::string::npos && message.ends_with('.');
}

// Payloads double, and a length takes ten bytes at most where it took one.
void RequireBoundedSize(Input input, const Bytes& prepared) {
  Require(prepared.size() >= input.size() / 10);
  Require(prepared.size() <= input.size() * 10);
}

void RequireNothingLeftToPrepare(const Bytes& prepared) {
  Require(PrepareModel(prepared) == prepared);
}

void PrepareAnything(Input input) {
  Bytes prepared;
  try {
    prepared = PrepareModel(Bytes(input.begin(), input.end()));
  } catch (const std::runtime_error& error) {
    Require(IsPrescanMessage(error.what()));
    return;
  }
  RequireBoundedSize(input, prepared);
  RequireNothingLeftToPrepare(prepared);
}

}  // namespace
}  // namespace project_lumen::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  project_lumen::fuzz::PrepareAnything({data, size});
  return 0;
}
