// Reading a weights file into memory, whole.
#pragma once

#include <cstdint>
#include <istream>
#include <limits>
#include <string>

#include "backend/ProtobufWire.h"

namespace project_lumen::backend {

// Protobuf messages end here, and ONNX Runtime counts a model's bytes in 32 bits.
constexpr std::uint64_t kMaximumModelSize = std::numeric_limits<std::int32_t>::max();

// Throws std::runtime_error "ONNX model exceeds the format's limit of 2147483647 bytes."
void CheckModelSize(std::uint64_t size);

// The file's bytes. Only a regular file (or a link to one) is opened, so that neither a pipe nor a
// device can block or fill the memory. Throws std::runtime_error: "Unable to open ONNX model file:
// ", "Unable to determine ONNX model file size: " or "Unable to read ONNX model file: ", each with
// the path; and what CheckModelSize throws, before anything is allocated.
Bytes ReadModelFile(const std::string& path);

// As ReadModelFile, for an open stream; `path` is for the messages.
Bytes ReadModelStream(std::istream& stream, const std::string& path);

}  // namespace project_lumen::backend
